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

// The two sets behind one interface: made for a ground set of n, filled
// with the workload's elements.
struct VelmorSet {
  explicit VelmorSet(const Workload& w) : set(w.n) {
    for (int v : w.elements) set.insert(v);
  }
  bool Contains(int v) const { return set.contains(v); }
  void Remove(int v) { set.remove(v); }
  velmor::UnorderedHashSet set;
};

struct StdSet {
  explicit StdSet(const Workload& w) : set(w.elements.begin(), w.elements.end()) {}
  bool Contains(int v) const { return set.count(v) != 0; }
  void Remove(int v) { set.erase(v); }
  std::unordered_set<int> set;
};

template <typename Set>
void BM_Insert(benchmark::State& state) {
  const Workload& w = MakeWorkload(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    Set set(w);
    benchmark::DoNotOptimize(set.set.size());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w.elements.size()));
}

template <typename Set>
void BM_Contains(benchmark::State& state) {
  const Workload& w = MakeWorkload(static_cast<int>(state.range(0)));
  const Set set(w);
  for (auto _ : state) {
    int found = 0;
    for (int v : w.queries) found += set.Contains(v);
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w.queries.size()));
}

// Remove every element; the refill is timed apart and subtracted by pausing.
template <typename Set>
void BM_Remove(benchmark::State& state) {
  const Workload& w = MakeWorkload(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    Set set(w);
    state.ResumeTiming();
    for (int v : w.elements) set.Remove(v);
    benchmark::DoNotOptimize(set.set.size());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w.elements.size()));
}

#define VELMOR_SIZES RangeMultiplier(10)->Range(1000, 1000000)->Unit(benchmark::kMicrosecond)
BENCHMARK_TEMPLATE(BM_Insert, VelmorSet)->VELMOR_SIZES;
BENCHMARK_TEMPLATE(BM_Insert, StdSet)->VELMOR_SIZES;
BENCHMARK_TEMPLATE(BM_Contains, VelmorSet)->VELMOR_SIZES;
BENCHMARK_TEMPLATE(BM_Contains, StdSet)->VELMOR_SIZES;
BENCHMARK_TEMPLATE(BM_Remove, VelmorSet)->VELMOR_SIZES;
BENCHMARK_TEMPLATE(BM_Remove, StdSet)->VELMOR_SIZES;

}  // namespace

BENCHMARK_MAIN();
