// Standard greedy (plain scan or lazy evaluation, on 1 or 2 threads) against
// the accelerated greedy on dense facility location (float, n = 10000
// elements, n landmarks, a summary of 100), with a plain read pass over the
// same similarity matrix as the baseline (one gain evaluation of every element
// reads the whole matrix once). Uniform similarities are the hard case for
// lazy evaluation: nearly every gain stays close to the best. Counters per run:
//   gain_evaluations  marginal gains evaluated;
//   summary_size, value  what the run found (equal for both algorithms).

#include <benchmark/benchmark.h>

#include <Eigen/Core>
#include <cstdlib>
#include <memory>
#include <vector>

#include "algorithms/acceleratedGreedyMax.h"
#include "algorithms/greedy_max.h"
#include "bench/bench_support.h"
#include "constraints/CardinalitySetConstraint.h"
#include "functions/FacilityLocationFunction.h"
#include "sets/UnorderedHashSet.h"
#include "utils/logging.h"

namespace {

using velmor::FacilityLocationFunction;

constexpr int kGroundSetSize = 10000;
constexpr int kSummarySize = 100;

// Built once.
const FacilityLocationFunction<float>& Function() {
  static const std::unique_ptr<FacilityLocationFunction<float>> function =
      velmor::bench::UniformFacilityLocation(kGroundSetSize, 12345);
  return *function;
}

void BM_ReadPass(benchmark::State& state) {
  const auto& f = Function();
  const float* data = f.Row(0);
  const std::size_t count = static_cast<std::size_t>(kGroundSetSize) * kGroundSetSize;
  for (auto _ : state) {
    float lanes[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    for (std::size_t i = 0; i + 8 <= count; i += 8) {
      for (int j = 0; j < 8; ++j) lanes[j] += data[i + static_cast<std::size_t>(j)];
    }
    benchmark::DoNotOptimize(lanes);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(count * sizeof(float)));
}

template <bool kAccelerated>
void BM_Greedy(benchmark::State& state) {
  const auto& f = Function();
  const velmor::CardinalitySetConstraint constraint(kGroundSetSize, kSummarySize);
  velmor::UnorderedHashSet candidates(kGroundSetSize), empty(kGroundSetSize);
  candidates.MakeFull();
  std::vector<int> order;
  std::vector<float> gains;
  double value = 0.0;
  std::int64_t evaluations = 0;
  for (auto _ : state) {
    velmor::greedy_max::GreedyAncillaryResults ancillary;
    if constexpr (kAccelerated) {
      velmor::AcceleratedGreedyConstrainedMaximization(f, constraint, 2147483647, candidates, empty,
                                                       empty, 0.0, velmor::kNeverStopOnGain,
                                                       nullptr, &order, &gains, &value, &ancillary);
    } else {
      velmor::GreedyConstrainedMaximization(
          f, constraint, 2147483647, candidates, empty, empty, velmor::kNeverStopOnGain, nullptr,
          &order, &gains, &value, &ancillary,
          {state.range(0) != 0, static_cast<int>(state.range(1))});
    }
    evaluations = ancillary.number_of_gain_evaluations;
    benchmark::DoNotOptimize(value);
  }
  state.counters["gain_evaluations"] = static_cast<double>(evaluations);
  state.counters["summary_size"] = static_cast<double>(order.size());
  state.counters["value"] = value;
}

}  // namespace

BENCHMARK(BM_ReadPass)->Unit(benchmark::kMillisecond);
// Arguments: lazy (0: plain scan), threads.
BENCHMARK_TEMPLATE(BM_Greedy, false)
    ->Name("BM_StandardGreedy")
    ->ArgNames({"lazy", "threads"})
    ->Args({0, 1})
    ->Args({0, 2})
    ->Args({1, 1})
    ->Args({1, 2})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2);
BENCHMARK_TEMPLATE(BM_Greedy, true)->Name("BM_AcceleratedGreedy")->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
  // The algorithms log on "optm"; the loggers must exist, silent here.
  velmor::logging::SetUpLogging(nullptr, "off", false, true, nullptr, nullptr);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
