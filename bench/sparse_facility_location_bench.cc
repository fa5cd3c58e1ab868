// Sparse facility location: a full gain scan (DisjointGain of every element
// of the ground set) on a k-nearest-neighbour-like matrix, n = 100000
// elements with 20 stored entries each (random neighbours, values in [0, 1)),
// after 50 elements have been added to the context. Items processed are
// stored entries, so the reported rate gives the time per stored entry.
//
// Baseline in the same run: a plain read pass over the same stored entries
// (sum of the values, indexed through the landmark state array the same way),
// which is the memory traffic a gain scan cannot avoid.

#include <benchmark/benchmark.h>

#include <Eigen/SparseCore>
#include <cstdint>
#include <random>
#include <vector>

#include "functions/SparseFacilityLocationFunction.h"
#include "sets/UnorderedHashSet.h"

namespace {

constexpr int kElements = 100000;
constexpr int kEntriesPerRow = 20;
constexpr int kChosen = 50;

template <typename T>
typename velmor::SparseFacilityLocationFunction<T>::SparseMatrix MakeNeighbourMatrix() {
  std::mt19937 rng(2024);
  std::uniform_int_distribution<int> neighbour(0, kElements - 1);
  std::uniform_real_distribution<double> similarity(0.0, 1.0);
  std::vector<Eigen::Triplet<T, std::int32_t>> triplets;
  triplets.reserve(static_cast<std::size_t>(kElements) * kEntriesPerRow);
  for (int v = 0; v < kElements; ++v) {
    for (int j = 0; j < kEntriesPerRow; ++j) {
      triplets.emplace_back(v, neighbour(rng), static_cast<T>(similarity(rng)));
    }
  }
  typename velmor::SparseFacilityLocationFunction<T>::SparseMatrix m(kElements, kElements);
  // Duplicated neighbours are summed; a few rows then hold 19 entries.
  m.setFromTriplets(triplets.begin(), triplets.end());
  return m;
}

template <typename T>
const velmor::SparseFacilityLocationFunction<T>& Function() {
  static const velmor::SparseFacilityLocationFunction<T> f(MakeNeighbourMatrix<T>(), false);
  return f;
}

template <typename T>
void BM_SparseFLGainScan(benchmark::State& state) {
  const auto& f = Function<T>();
  velmor::UnorderedHashSet empty(kElements);
  auto context = f.MakeGrowingContext(empty);
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> element(0, kElements - 1);
  for (int j = 0; j < kChosen; ++j) context->AddNewElementToContext(element(rng), true);
  for (auto _ : state) {
    double best = 0;
    for (int v = 0; v < kElements; ++v) {
      const double gain = context->DisjointGain(v);
      best = gain > best ? gain : best;
    }
    benchmark::DoNotOptimize(best);
  }
  state.SetItemsProcessed(state.iterations() * f.MatrixStoredEntries());
}

// The read pass: for every stored entry, value minus the landmark's state.
template <typename T>
void BM_PlainReadPass(benchmark::State& state) {
  const auto& f = Function<T>();
  const auto& m = f.Matrix();
  const std::int32_t* outer = m.outerIndexPtr();
  const std::int32_t* inner = m.innerIndexPtr();
  const T* values = m.valuePtr();
  const std::vector<T> maxima(static_cast<std::size_t>(kElements), T(0.5));
  for (auto _ : state) {
    double best = 0;
    for (int v = 0; v < kElements; ++v) {
      double sum = 0;
      for (std::int32_t p = outer[v]; p < outer[v + 1]; ++p) {
        sum += static_cast<double>(values[p]) - static_cast<double>(maxima[inner[p]]);
      }
      best = sum > best ? sum : best;
    }
    benchmark::DoNotOptimize(best);
  }
  state.SetItemsProcessed(state.iterations() * f.MatrixStoredEntries());
}

BENCHMARK_TEMPLATE(BM_SparseFLGainScan, float)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_SparseFLGainScan, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_PlainReadPass, float)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_PlainReadPass, double)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
