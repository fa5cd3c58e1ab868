// UnorderedHashSet against std::unordered_set<int> for insert, contains and
// remove at 10^3 to 10^6 elements. Elements are distinct random indices of a
// ground set ten times larger; contains is asked for members and non-members
// alike.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <unordered_set>
#include <vector>

#include "sets/UnorderedHashSet.h"

namespace {

struct Workload {
  int n = 0;
  std::vector<int> elements;  // to insert
  std::vector<int> queries;   // half members, half not
};

const Workload& MakeWorkload(int count) {
  static std::vector<Workload> cache;
  for (const auto& w : cache) {
    if (static_cast<int>(w.elements.size()) == count) return w;
  }
  Workload w;
  w.n = count * 10;
  std::vector<int> all(static_cast<std::size_t>(w.n));
  std::iota(all.begin(), all.end(), 0);
  std::mt19937 random(12345);
  std::shuffle(all.begin(), all.end(), random);
  w.elements.assign(all.begin(), all.begin() + count);
  w.queries.assign(all.begin(), all.begin() + count / 2);
  w.queries.insert(w.queries.end(), all.begin() + count, all.begin() + count + count / 2);
  std::shuffle(w.queries.begin(), w.queries.end(), random);
  cache.push_back(std::move(w));
  return cache.back();
}

void BM_Insert_Velmor(benchmark::State& state) {
  const Workload& w = MakeWorkload(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    velmor::UnorderedHashSet set(w.n);
    for (int v : w.elements) set.insert(v);
    benchmark::DoNotOptimize(set.size());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w.elements.size()));
}

void BM_Insert_Std(benchmark::State& state) {
  const Workload& w = MakeWorkload(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::unordered_set<int> set;
    for (int v : w.elements) set.insert(v);
    benchmark::DoNotOptimize(set.size());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w.elements.size()));
}

void BM_Contains_Velmor(benchmark::State& state) {
  const Workload& w = MakeWorkload(static_cast<int>(state.range(0)));
  velmor::UnorderedHashSet set(w.n);
  for (int v : w.elements) set.insert(v);
  for (auto _ : state) {
    int found = 0;
    for (int v : w.queries) found += set.contains(v);
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w.queries.size()));
}

void BM_Contains_Std(benchmark::State& state) {
  const Workload& w = MakeWorkload(static_cast<int>(state.range(0)));
  std::unordered_set<int> set(w.elements.begin(), w.elements.end());
  for (auto _ : state) {
    int found = 0;
    for (int v : w.queries) found += static_cast<int>(set.count(v));
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w.queries.size()));
}

// Remove every element; the refill is timed apart and subtracted by pausing.
void BM_Remove_Velmor(benchmark::State& state) {
  const Workload& w = MakeWorkload(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    velmor::UnorderedHashSet set(w.n);
    for (int v : w.elements) set.insert(v);
    state.ResumeTiming();
    for (int v : w.elements) set.remove(v);
    benchmark::DoNotOptimize(set.size());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w.elements.size()));
}

void BM_Remove_Std(benchmark::State& state) {
  const Workload& w = MakeWorkload(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    std::unordered_set<int> set(w.elements.begin(), w.elements.end());
    state.ResumeTiming();
    for (int v : w.elements) set.erase(v);
    benchmark::DoNotOptimize(set.size());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w.elements.size()));
}

#define VELMOR_SIZES RangeMultiplier(10)->Range(1000, 1000000)->Unit(benchmark::kMicrosecond)
BENCHMARK(BM_Insert_Velmor)->VELMOR_SIZES;
BENCHMARK(BM_Insert_Std)->VELMOR_SIZES;
BENCHMARK(BM_Contains_Velmor)->VELMOR_SIZES;
BENCHMARK(BM_Contains_Std)->VELMOR_SIZES;
BENCHMARK(BM_Remove_Velmor)->VELMOR_SIZES;
BENCHMARK(BM_Remove_Std)->VELMOR_SIZES;

}  // namespace

BENCHMARK_MAIN();
