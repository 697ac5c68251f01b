// Measures the operations that process every byte of a form.
#include <benchmark/benchmark.h>
#include <tarn.h>

#include <cstdlib>
#include <string>

namespace {

std::string repeated(const std::string &piece, int64_t size) {
  std::string text;
  while (text.size() < static_cast<size_t>(size)) text += piece;
  text.resize(static_cast<size_t>(size));
  return text;
}

void perByte(benchmark::State &state) {
  state.SetBytesProcessed(state.iterations() * state.range(0));
  state.SetComplexityN(state.range(0));
}

void find(benchmark::State &state, const std::string &piece, const std::string &needle) {
  const std::string haystack = repeated(piece, state.range(0));
  for ([[maybe_unused]] auto _ : state) {
    void *found = memfind(haystack.data(), static_cast<uint32_t>(haystack.size()), needle.data(),
                          static_cast<uint32_t>(needle.size()));
    if (found) std::abort();
    benchmark::DoNotOptimize(found);
  }
  perByte(state);
}

void unescape(benchmark::State &state, const std::string &piece) {
  const std::string text = repeated(piece, state.range(0));
  for ([[maybe_unused]] auto _ : state) {
    char *decoded = unescapeString(text.c_str());
    if (!decoded) std::abort();
    benchmark::DoNotOptimize(decoded);
    std::free(decoded);
  }
  perByte(state);
}

void sizes(benchmark::internal::Benchmark *benchmark) {
  benchmark->RangeMultiplier(32)->Range(32, 1 << 20)->Complexity(benchmark::oN);
}

BENCHMARK_CAPTURE(find, plain, "Llyn y Fan Fawr, ", "\r\n--boundary")->Apply(sizes);
// Line ends that all look like the start of a boundary, to slow down the search.
BENCHMARK_CAPTURE(find, hostile, "\r\n--boundar", "\r\n--boundary")->Apply(sizes);
BENCHMARK_CAPTURE(unescape, plain, "LlynyFanFawr")->Apply(sizes);
BENCHMARK_CAPTURE(unescape, escaped, "Zo%C3%AB+%26+")->Apply(sizes);

}  // namespace
