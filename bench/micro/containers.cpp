// Measures filling a generic list and strings piece by piece.
#include <benchmark/benchmark.h>
#include <tarn.h>

#include <cstdlib>
#include <string>
#include <tarn/string.hpp>

namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

void perPiece(benchmark::State &state) {
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.SetComplexityN(state.range(0));
}

void addData(benchmark::State &state) {
  for ([[maybe_unused]] auto _ : state) {
    TarnHandle list = 0;
    check(TARNGenericList_new(&list) == TARN_OK);
    for (int64_t i = 0; i < state.range(0); ++i) {
      check(TARNGenericList_addDatum(&list, static_cast<uintptr_t>(i)) == TARN_OK);
    }
    TARNGenericList_delete(&list);
  }
  perPiece(state);
}

// A string does not store its length: each append searches for the end of the text.
void append(benchmark::State &state) {
  for ([[maybe_unused]] auto _ : state) {
    TarnHandle string = 0;
    check(TARNString_new(&string) == TARN_OK);
    for (int64_t i = 0; i < state.range(0); ++i) {
      check(TARNString_append(&string, "eight by") == TARN_OK);
    }
    TARNString_delete(&string);
  }
  perPiece(state);
}

// tarn::String knows its length.
template <class String>
void appendToObject(benchmark::State &state) {
  for ([[maybe_unused]] auto _ : state) {
    String string;
    for (int64_t i = 0; i < state.range(0); ++i) string += "five.";
    check(string.size() == 5 * static_cast<size_t>(state.range(0)));
  }
  perPiece(state);
}

BENCHMARK(addData)->RangeMultiplier(10)->Range(10, 100000)->Complexity();
BENCHMARK(append)->RangeMultiplier(10)->Range(10, 10000)->Complexity();
BENCHMARK(appendToObject<tarn::String>)->Arg(1000)->Arg(40000);
BENCHMARK(appendToObject<std::string>)->Arg(1000)->Arg(40000);

}  // namespace
