// Measures HTML trees, per element. Adding an element copies its subtree, so the order of building
// matters. Top-down, each element is copied once, when it is added to its parent in the tree.
// Bottom-up, it is copied again with each ancestor: n * depth copies for a balanced tree, n * n / 2
// for a chain.
#include <benchmark/benchmark.h>
#include <tarn.h>

#include <cstdlib>
#include <deque>

namespace {

constexpr int64_t kBreadth = 10;

void check(bool holds) {
  if (!holds) std::abort();
}

TarnHandle newElement() {
  TarnHandle element = 0;
  CGIgs_new(&element, TARN_ELEMENT_MAGIC);
  CGIgs_setString(&element, TARN_ELEMENT_NAME, "div", TARN_ELEMENT_MAGIC);
  return element;
}

// Adds a new child and returns the copy that its parent owns.
TarnHandle addTo(TarnHandle parent) {
  TarnHandle child = newElement();
  check(HTMLElement_addElement(&parent, &child) == TARN_OK);
  HTMLElement_delete(&child);
  TarnHandle list = CGIgs_getStruct(&parent, TARN_ELEMENT_EMBEDDED, TARN_ELEMENT_MAGIC);
  const int count = HTMLElementList_getCount(&list);
  return HTMLElementList_getByIndex(&list, static_cast<uint32_t>(count - 1));
}

TarnHandle chainTopDown(int64_t elements) {
  TarnHandle root = newElement();
  TarnHandle last = root;
  for (int64_t i = 1; i < elements; ++i) last = addTo(last);
  return root;
}

TarnHandle chainBottomUp(int64_t elements) {
  TarnHandle tree = newElement();
  for (int64_t i = 1; i < elements; ++i) {
    TarnHandle parent = newElement();
    check(HTMLElement_addElement(&parent, &tree) == TARN_OK);
    HTMLElement_delete(&tree);
    tree = parent;
  }
  return tree;
}

TarnHandle broadTopDown(int64_t elements) {
  TarnHandle root = newElement();
  std::deque<TarnHandle> parents{root};
  for (int64_t i = 1; i < elements; ++i) {
    parents.push_back(addTo(parents.front()));
    if (i % kBreadth == 0) parents.pop_front();
  }
  return root;
}

// Builds the largest full tree of at most this many elements: ten subtrees, each built and then
// added.
TarnHandle broadBottomUp(int64_t elements) {
  TarnHandle parent = newElement();
  if (elements <= kBreadth) return parent;
  for (int64_t i = 0; i < kBreadth; ++i) {
    TarnHandle child = broadBottomUp((elements - 1) / kBreadth);
    check(HTMLElement_addElement(&parent, &child) == TARN_OK);
    HTMLElement_delete(&child);
  }
  return parent;
}

void perElement(benchmark::State &state) {
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.SetComplexityN(state.range(0));
}

template <TarnHandle (*make)(int64_t)>
void build(benchmark::State &state) {
  for ([[maybe_unused]] auto _ : state) {
    TarnHandle tree = make(state.range(0));
    state.PauseTiming();
    HTMLElement_delete(&tree);
    state.ResumeTiming();
  }
  perElement(state);
}

template <TarnHandle (*make)(int64_t)>
void cloneAndDelete(benchmark::State &state) {
  TarnHandle tree = make(state.range(0));
  for ([[maybe_unused]] auto _ : state) {
    TarnHandle copy = 0;
    check(HTMLElement_clone(&tree, &copy) == TARN_OK);
    HTMLElement_delete(&copy);
  }
  HTMLElement_delete(&tree);
  perElement(state);
}

// Sizes of full trees of breadth 10, and of chains.
void fullTrees(benchmark::internal::Benchmark *benchmark) {
  benchmark->Arg(111)->Arg(1111)->Arg(11111);
}

void chains(benchmark::internal::Benchmark *benchmark) { benchmark->Arg(10000)->Arg(100000); }

BENCHMARK(cloneAndDelete<broadTopDown>)
    ->Name("CloneAndDelete/broad")
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Complexity(benchmark::oN);
BENCHMARK(cloneAndDelete<chainTopDown>)
    ->Name("CloneAndDelete/chain")
    ->Apply(chains)
    ->Complexity(benchmark::oN);
BENCHMARK(build<broadTopDown>)->Name("TopDown/broad")->Apply(fullTrees)->Complexity(benchmark::oN);
BENCHMARK(build<broadBottomUp>)
    ->Name("BottomUp/broad")
    ->Apply(fullTrees)
    ->Complexity(benchmark::oNLogN);
BENCHMARK(build<chainTopDown>)
    ->Name("TopDown/chain")
    ->Arg(250)
    ->Arg(500)
    ->Arg(1000)
    ->Apply(chains)
    ->Complexity(benchmark::oN);
BENCHMARK(build<chainBottomUp>)
    ->Name("BottomUp/chain")
    ->Arg(250)
    ->Arg(500)
    ->Arg(1000)
    ->Complexity(benchmark::oNSquared);

}  // namespace
