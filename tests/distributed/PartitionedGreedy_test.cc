// The partitioned scheme on ranks simulated by threads, against the library's
// threaded blocks-and-merges scheme on the same objective.

#include "distributed/PartitionedGreedy.h"

#include <gtest/gtest.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include <barrier>
#include <limits>
#include <random>
#include <thread>

#include "algorithms/acceleratedGreedyMax.h"
#include "algorithms/greedy_test_util.h"
#include "algorithms/multiThreadedGreedyMax.h"
#include "sets/FixedEmptySet.h"

namespace velmor {
namespace {

// Runs PartitionedGreedy::Run on `ranks` threads whose all-gather meets at
// a barrier; returns every rank's result.
std::vector<SummaryResult> RunOnThreads(const SummaryObjective& objective,
                                        const SummaryPlan::Algorithm& algorithm, int ary,
                                        int ranks) {
  std::vector<std::vector<char>> deposits(static_cast<std::size_t>(ranks));
  std::barrier meeting(ranks);
  std::vector<SummaryResult> results(static_cast<std::size_t>(ranks));
  std::vector<std::thread> threads;
  for (int rank = 0; rank < ranks; ++rank) {
    threads.emplace_back([&, rank] {
      const PartitionedGreedy::Collectives collectives{
          .rank = rank, .ranks = ranks, .all_gather = [&](const std::vector<char>& mine) {
            deposits[static_cast<std::size_t>(rank)] = mine;
            meeting.arrive_and_wait();
            std::vector<std::vector<char>> all = deposits;
            meeting.arrive_and_wait();
            return all;
          }};
      results[static_cast<std::size_t>(rank)] =
          PartitionedGreedy::Run(objective, algorithm, ary, collectives);
    });
  }
  for (std::thread& t : threads) t.join();
  return results;
}

GreedyAlgorithm LibraryAlgorithm(GreedyAlgorithmChoice::Kind kind) {
  return [kind](const SubmodularFunction& f, const DownClosedSetConstraint& c, int limit,
                const Set& candidates, const Set& inclusion, const Set& conditioning, double,
                GainPermit, UnorderedHashSet* solution, std::vector<int>* order,
                std::vector<float>* gains, double* value, greedy_max::GreedyAncillaryResults*) {
    if (kind == GreedyAlgorithmChoice::Kind::kStandard) {
      return GreedyConstrainedMaximization(f, c, limit, candidates, inclusion, conditioning,
                                           kStopAtNegativeGain, solution, order, gains, value,
                                           nullptr);
    }
    return AcceleratedGreedyConstrainedMaximization(f, c, limit, candidates, inclusion,
                                                    conditioning, 0.0, kStopAtNegativeGain,
                                                    solution, order, gains, value, nullptr);
  };
}

TEST(PartitionedGreedy, EqualsThreadedBlocksAndMerges) {
  using Kind = GreedyAlgorithmChoice::Kind;
  std::mt19937 engine(17);
  std::uniform_real_distribution<float> uniform(0.0f, 1.0f);
  const int n = 301;
  matrixio::DenseMatrix<float> similarities(n, 37);
  for (int v = 0; v < n; ++v) {
    for (int i = 0; i < 37; ++i) similarities(v, i) = uniform(engine) * uniform(engine);
  }
  spdlog::logger quiet("quiet", std::make_shared<spdlog::sinks::null_sink_mt>());
  struct Case {
    int ranks, ary;
    Kind kind;
    bool with_inclusion;
  };
  for (const Case c : {Case{1, 0, Kind::kStandard, false}, Case{3, 0, Kind::kStandard, true},
                       Case{4, 2, Kind::kStandard, false}, Case{8, 2, Kind::kAccelerated, true},
                       Case{9, 3, Kind::kStandard, false}, Case{9, 0, Kind::kAccelerated, false}}) {
    SCOPED_TRACE(::testing::Message() << c.ranks << " ranks, ary " << c.ary);
    SummaryPlan plan;
    plan.groups.emplace_back(SummaryPlan::Kind::kFacilityLocation, "FL", 1.0);
    DenseMatrixInput<float> input;
    input.rows = similarities;
    plan.groups.back().dense = std::move(input);
    plan.summary_size = 12;
    if (c.with_inclusion) plan.sets.inclusion = testing::SetOf(n, {4, 200});
    plan.algorithm.choice.kind = c.kind;
    plan.algorithm.choice.threads = c.ranks;
    plan.algorithm.seed = 1000 + c.ranks;
    const SummaryObjective objective(plan, quiet);

    // The library's scheme, whole block solutions kept.
    UnorderedHashSet solution(n);
    std::vector<int> order;
    std::vector<float> gains;
    double value = 0;
    const int no_limit = std::numeric_limits<int>::max();
    const GreedyAlgorithm algorithm = LibraryAlgorithm(c.kind);
    if (c.ary == 0) {
      MultiThreadedGreedyConstrainedMaximization(
          objective.Function(), objective.Constraint(), no_limit, objective.Candidates(),
          objective.Inclusion(), FixedEmptySet(n), 0.0, 1.0f, 1.0f, kStopAtNegativeGain, c.ranks,
          true, plan.algorithm.seed, algorithm, &solution, &order, &gains, &value);
    } else {
      HierarchicalMultiThreadedGreedyConstrainedMaximization(
          objective.Function(), objective.Constraint(), no_limit, objective.Candidates(),
          objective.Inclusion(), FixedEmptySet(n), 0.0, 1.0f, 1.0f, kStopAtNegativeGain, c.ranks, 0,
          c.ary, true, plan.algorithm.seed, algorithm, &solution, &order, &gains, &value);
    }
    for (const SummaryResult& result : RunOnThreads(objective, plan.algorithm, c.ary, c.ranks)) {
      EXPECT_EQ(result.order, order);
      EXPECT_EQ(result.gains, gains);
      EXPECT_EQ(result.value, value);
      EXPECT_EQ(result.solution.size(), solution.size());
      for (int e : solution) EXPECT_TRUE(result.solution.contains(e));
    }
  }
}

}  // namespace
}  // namespace velmor
