// One greedy scan of dense facility location: the gain of every element
// outside a small context set, against a plain read pass over the same matrix
// measured in the same run. Reported per (element type, n = k):
//   ReadPass       sum of all entries, several independent vector
//                  accumulators, so it runs at memory bandwidth;
//   GreedyScan     DisjointGain(v) through the context interface, one call
//                  per candidate, keeping the best (what the greedy does);
//   GreedyScanBatched  the same gains through DisjointGains, 256 candidates
//                  per call.
// The figure of merit is the scan time over the read-pass time.
//
// Only one matrix is alive at a time (16384^2 doubles are 2 GB).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "functions/FacilityLocationFunction.h"
#include "sets/UnorderedHashSet.h"

namespace {

using velmor::FacilityLocationFunction;
using velmor::SetFunction;
using velmor::UnorderedHashSet;

// The function under test; a request for another shape or type frees the
// previous one first.
struct Holder {
  std::unique_ptr<FacilityLocationFunction<float>> f32;
  std::unique_ptr<FacilityLocationFunction<double>> f64;
  int n = 0;
};
Holder holder;

template <typename T>
std::unique_ptr<FacilityLocationFunction<T>>& Slot();
template <>
std::unique_ptr<FacilityLocationFunction<float>>& Slot<float>() {
  return holder.f32;
}
template <>
std::unique_ptr<FacilityLocationFunction<double>>& Slot<double>() {
  return holder.f64;
}

template <typename T>
const FacilityLocationFunction<T>& Function(int n) {
  if (!Slot<T>() || holder.n != n) {
    holder.f32.reset();
    holder.f64.reset();
    holder.n = n;
    auto f = std::make_unique<FacilityLocationFunction<T>>(n, n);
    std::uint64_t state = 0x9E3779B97F4A7C15ull;
    for (int v = 0; v < n; ++v) {
      T* row = f->MutableRow(v);
      for (int i = 0; i < n; ++i) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        row[i] = static_cast<T>(static_cast<double>(state >> 11) * 0x1.0p-53);
      }
    }
    f->ComputeNormalizationConstant(false);
    Slot<T>() = std::move(f);
  }
  return *Slot<T>();
}

// The context set: a few elements spread over the ground set.
UnorderedHashSet ContextSet(int n) {
  UnorderedHashSet set(n);
  for (int j = 1; j <= 5; ++j) set.insert(static_cast<int>(static_cast<long>(n) * j / 7));
  return set;
}

template <typename T>
struct Wide;
template <>
struct Wide<float> {
  typedef float type __attribute__((vector_size(32)));
};
template <>
struct Wide<double> {
  typedef double type __attribute__((vector_size(32)));
};

template <typename T>
void ReadPass(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const FacilityLocationFunction<T>& f = Function<T>(n);
  using V = typename Wide<T>::type;
  constexpr std::size_t kLanes = sizeof(V) / sizeof(T);
  const T* data = f.ElementMajorMatrix().data();
  const std::size_t count = static_cast<std::size_t>(n) * n;
  for (auto _ : state) {
    V acc[4] = {};
    std::size_t i = 0;
    for (; i + 4 * kLanes <= count; i += 4 * kLanes) {
      for (int a = 0; a < 4; ++a) {
        V x;
        std::memcpy(&x, data + i + a * kLanes, sizeof(V));
        acc[a] += x;
      }
    }
    T sum = 0;
    for (; i < count; ++i) sum += data[i];
    const V total = (acc[0] + acc[1]) + (acc[2] + acc[3]);
    for (std::size_t j = 0; j < kLanes; ++j) sum += total[j];
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * count * sizeof(T));
}

// The elements of 0..n-1 that are not in `A`, in increasing order.
std::vector<int> ElementsOutside(const UnorderedHashSet& A, int n) {
  std::vector<int> outside;
  for (int v = 0; v < n; ++v) {
    if (!A.contains(v)) outside.push_back(v);
  }
  return outside;
}

template <typename T>
void GreedyScan(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const FacilityLocationFunction<T>& f = Function<T>(n);
  const UnorderedHashSet A = ContextSet(n);
  const std::unique_ptr<SetFunction::SetFunctionGrowingContext> context = f.MakeGrowingContext(A);
  const std::vector<int> candidates = ElementsOutside(A, n);
  for (auto _ : state) {
    double best_gain = -1.0;
    int best = n;
    for (const int v : candidates) {
      const double gain = context->DisjointGain(v);
      if (gain > best_gain) {
        best_gain = gain;
        best = v;
      }
    }
    benchmark::DoNotOptimize(best);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * candidates.size() * n *
                          sizeof(T));
}

template <typename T>
void GreedyScanBatched(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const FacilityLocationFunction<T>& f = Function<T>(n);
  const UnorderedHashSet A = ContextSet(n);
  const std::unique_ptr<SetFunction::SetFunctionGrowingContext> context = f.MakeGrowingContext(A);
  const std::vector<int> candidates = ElementsOutside(A, n);
  constexpr int kChunk = 256;
  std::vector<double> gains(kChunk);
  for (auto _ : state) {
    double best_gain = -1.0;
    int best = n;
    for (std::size_t start = 0; start < candidates.size(); start += kChunk) {
      const int count = static_cast<int>(std::min<std::size_t>(kChunk, candidates.size() - start));
      context->DisjointGains(candidates.data() + start, count, gains.data());
      for (int j = 0; j < count; ++j) {
        if (gains[j] > best_gain) {
          best_gain = gains[j];
          best = candidates[start + j];
        }
      }
    }
    benchmark::DoNotOptimize(best);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * candidates.size() * n *
                          sizeof(T));
}

template <typename T>
void RegisterFor(const char* type_name, int n, int iterations) {
  const std::string suffix = std::string("<") + type_name + ">";
  benchmark::RegisterBenchmark(("ReadPass" + suffix).c_str(), ReadPass<T>)
      ->Arg(n)
      ->Unit(benchmark::kMillisecond)
      ->Iterations(iterations);
  benchmark::RegisterBenchmark(("GreedyScan" + suffix).c_str(), GreedyScan<T>)
      ->Arg(n)
      ->Unit(benchmark::kMillisecond)
      ->Iterations(iterations);
  benchmark::RegisterBenchmark(("GreedyScanBatched" + suffix).c_str(), GreedyScanBatched<T>)
      ->Arg(n)
      ->Unit(benchmark::kMillisecond)
      ->Iterations(iterations);
}

}  // namespace

int main(int argc, char** argv) {
  // Registered in this order so that each matrix is built once.
  RegisterFor<float>("float", 4096, 40);
  RegisterFor<double>("double", 4096, 20);
  RegisterFor<float>("float", 16384, 4);
  RegisterFor<double>("double", 16384, 3);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
