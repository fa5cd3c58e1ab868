// The flat multi-threaded scheme (MGM, 2 threads, accelerated greedy on each
// block and on the merge) against the single-threaded accelerated greedy on
// dense facility location: float, n = 20000 elements and 20000 landmarks
// (a 1.6 GB similarity matrix), a summary of 200. Wall-clock time, since the
// scheme's point is to use both cores. Counters per run:
//   summary_size, value  what the run found (the value ratio of the two rows
//                        is the scheme's price).

#include <benchmark/benchmark.h>

#include <Eigen/Core>
#include <cstdlib>
#include <memory>
#include <vector>

#include "algorithms/acceleratedGreedyMax.h"
#include "algorithms/multiThreadedGreedyMax.h"
#include "bench/bench_support.h"
#include "constraints/CardinalitySetConstraint.h"
#include "functions/FacilityLocationFunction.h"
#include "sets/UnorderedHashSet.h"
#include "utils/logging.h"

namespace {

using velmor::FacilityLocationFunction;

constexpr int kGroundSetSize = 20000;
constexpr int kSummarySize = 200;

// Built once.
const FacilityLocationFunction<float>& Function() {
  static const std::unique_ptr<FacilityLocationFunction<float>> function =
      velmor::bench::UniformFacilityLocation(kGroundSetSize, 2024);
  return *function;
}

bool Accelerated(const velmor::SubmodularFunction& f,
                 const velmor::DownClosedSetConstraint& constraint, int limit,
                 const velmor::Set& candidates, const velmor::Set& inclusion,
                 const velmor::Set& conditioning, double fraction, velmor::GainPermit permit,
                 velmor::UnorderedHashSet* solution, std::vector<int>* order,
                 std::vector<float>* gains, double* value,
                 velmor::greedy_max::GreedyAncillaryResults* ancillary) {
  return velmor::AcceleratedGreedyConstrainedMaximization(f, constraint, limit, candidates,
                                                          inclusion, conditioning, fraction, permit,
                                                          solution, order, gains, value, ancillary);
}

// threads 0: the accelerated greedy alone; otherwise MGM with that many threads.
void BM_Greedy(benchmark::State& state) {
  const int threads = static_cast<int>(state.range(0));
  const auto& f = Function();
  const velmor::CardinalitySetConstraint constraint(kGroundSetSize, kSummarySize);
  velmor::UnorderedHashSet candidates(kGroundSetSize), empty(kGroundSetSize);
  candidates.MakeFull();
  std::vector<int> order;
  std::vector<float> gains;
  double value = 0.0;
  for (auto _ : state) {
    if (threads == 0) {
      Accelerated(f, constraint, 2147483647, candidates, empty, empty, 0.0,
                  velmor::kStopAtNegativeGain, nullptr, &order, &gains, &value, nullptr);
    } else {
      velmor::MultiThreadedGreedyConstrainedMaximization(
          f, constraint, 2147483647, candidates, empty, empty, 0.0, 1.0f, 1.0f,
          velmor::kStopAtNegativeGain, threads, false, 0, Accelerated, nullptr, &order, &gains,
          &value);
    }
    benchmark::DoNotOptimize(value);
  }
  state.counters["summary_size"] = static_cast<double>(order.size());
  state.counters["value"] = value;
}

}  // namespace

BENCHMARK(BM_Greedy)
    ->ArgName("threads")
    ->Arg(0)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

int main(int argc, char** argv) {
  velmor::logging::SetUpLogging(nullptr, "off", false, true, nullptr, nullptr);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
