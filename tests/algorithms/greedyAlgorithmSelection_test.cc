#include "algorithms/greedyAlgorithmSelection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "algorithms/acceleratedGreedyMax.h"
#include "algorithms/greedy_test_util.h"
#include "algorithms/stochasticGreedyMax.h"
#include "algorithms/thresholdGreedyMax.h"
#include "constraints/CardinalitySetConstraint.h"
#include "functions/ModularFunction.h"

namespace velmor {
namespace {

using testing_util::FullSet;
using testing_util::OptmLogCapture;

constexpr int kNoLimit = 2147483647;

// The selector's flags and tuning values, with the values a caller would
// typically give.
struct Selection {
  bool standard = false;
  bool stochastic = false;
  bool threshold = false;
  int threads = 0;
  int depth = 0;
  int ary = 1;
  GainPermit permit = kNeverStopOnGain;
  double threshold_value = 0.2;
  double starting_epsilon = 0.05, ending_epsilon = 0.2;
  int seed = 3;
};

struct Outcome {
  explicit Outcome(int n) : solution(n) {}
  bool result = false;
  UnorderedHashSet solution;
  std::vector<int> order;
  std::vector<float> gains;
  double value = 0.0;
  std::vector<std::string> log;
};

Outcome Select(const Selection& s, const SubmodularFunction& f,
               const DownClosedSetConstraint& constraint, bool want_order = true,
               bool want_gains = true) {
  const int n = f.GroundSetSize();
  Outcome out(n);
  const UnorderedHashSet empty(n);
  OptmLogCapture capture;
  out.result = RunOneOfTheGreedyAlgorithms(
      s.standard, s.stochastic, s.starting_epsilon, 1, s.ending_epsilon, 0, 1.0, 0.0, 0, 1,
      s.threshold, s.threshold_value, s.threads, s.depth, s.ary, true, 1.0f, 1.0f, s.seed, f,
      constraint, kNoLimit, FullSet(n), empty, empty, 0.0, s.permit, &out.solution,
      want_order ? &out.order : nullptr, want_gains ? &out.gains : nullptr, &out.value);
  out.log = capture.Lines();
  return out;
}

bool Logged(const Outcome& out, const std::string& text) {
  for (const std::string& line : out.log) {
    if (line.find(text) != std::string::npos) return true;
  }
  return false;
}

TEST(GreedyAlgorithmSelection, PrecedenceAndHandOver) {
  std::mt19937 engine(51);
  const int n = 400;
  const auto f = testing_util::RandomFacilityLocation<double>(n, 50, engine);
  const CardinalitySetConstraint constraint(n, 15);
  const UnorderedHashSet empty(n);
  const UnorderedHashSet all = FullSet(n);

  // No flag: the accelerated greedy, the same run as a direct call.
  const Outcome accelerated = Select({}, *f, constraint);
  std::vector<int> direct_order;
  std::vector<float> direct_gains;
  AcceleratedGreedyConstrainedMaximization(*f, constraint, kNoLimit, all, empty, empty, 0.0,
                                           kStopAtNegativeGain, nullptr, &direct_order,
                                           &direct_gains, nullptr, nullptr);
  EXPECT_TRUE(accelerated.result);
  EXPECT_TRUE(Logged(accelerated, "Finished running accelerated greedy"));
  EXPECT_EQ(accelerated.order, direct_order);
  EXPECT_EQ(accelerated.gains, direct_gains);

  // Standard wins over stochastic; stochastic over threshold.
  Selection both;
  both.standard = both.stochastic = both.threshold = true;
  const Outcome standard = Select(both, *f, constraint);
  EXPECT_TRUE(Logged(standard, "Starting greedy max."));
  EXPECT_FALSE(Logged(standard, "stochastic"));
  EXPECT_EQ(standard.order, direct_order);

  Selection stochastic;
  stochastic.stochastic = stochastic.threshold = true;
  const Outcome sampled = Select(stochastic, *f, constraint);
  EXPECT_TRUE(Logged(sampled, "Starting stochastic accelerated greedy"));
  std::vector<int> stochastic_order;
  StochasticAcceleratedGreedyConstrainedMaximization(
      stochastic.starting_epsilon, 1, stochastic.ending_epsilon, 0, 1.0, 0.0, 0, 1, *f, constraint,
      kNoLimit, all, empty, empty, kStopAtNegativeGain, stochastic.seed, nullptr, &stochastic_order,
      nullptr, nullptr, nullptr, 0.0);
  EXPECT_EQ(sampled.order, stochastic_order);  // the values reached it in their places

  // Threshold: gains only through the fixed-order pass, which needs the order.
  Selection threshold;
  threshold.threshold = true;
  const Outcome swept = Select(threshold, *f, constraint);
  EXPECT_TRUE(Logged(swept, "Starting threshold greedy"));
  std::vector<int> threshold_order;
  ThresholdGreedyConstrainedMaximization(threshold.threshold_value, *f, constraint, kNoLimit, all,
                                         empty, empty, kStopAtNegativeGain, nullptr,
                                         &threshold_order, nullptr, nullptr);
  EXPECT_EQ(swept.order, threshold_order);
  ASSERT_EQ(swept.gains.size(), swept.order.size());
  EXPECT_NEAR(std::accumulate(swept.gains.begin(), swept.gains.end(), 0.0), swept.value, 1e-5);
  const Outcome no_order = Select(threshold, *f, constraint, false, true);
  EXPECT_TRUE(no_order.result);
  EXPECT_TRUE(no_order.gains.empty());
  EXPECT_EQ(no_order.solution.size(), 15);

  // Threads: flat unless a depth or an ary above 1 asks for the tree.
  Selection flat;
  flat.threads = 4;
  const Outcome mgm = Select(flat, *f, constraint);
  EXPECT_TRUE(Logged(mgm, "Starting multi-threaded greedy max (MGM)."));
  EXPECT_FALSE(Logged(mgm, "(HGM)"));
  EXPECT_EQ(mgm.order.size(), 15u);
  Selection tree = flat;
  tree.ary = 2;
  const Outcome hgm = Select(tree, *f, constraint);
  EXPECT_TRUE(Logged(hgm, "Starting hierarchical multi-threaded greedy max (HGM)."));
  EXPECT_TRUE(Logged(hgm, "Finished running accelerated greedy"));
  tree.ary = 1;
  tree.depth = 1;
  tree.threads = 1;
  tree.threshold = true;
  const Outcome deep = Select(tree, *f, constraint);
  EXPECT_TRUE(Logged(deep, "(HGM)"));
  EXPECT_TRUE(Logged(deep, "Starting threshold greedy"));
  ASSERT_EQ(deep.gains.size(), 15u);  // one block: the threshold run with its gains filled
  EXPECT_NEAR(std::accumulate(deep.gains.begin(), deep.gains.end(), 0.0), deep.value, 1e-5);

  // Nothing to write: false from the standard greedy.
  const UnorderedHashSet none(n);
  EXPECT_FALSE(RunOneOfTheGreedyAlgorithms(
      true, false, 0, 0, 0, 0, 1, 0, 0, 0, false, 0.1, 0, 0, 1, false, 1, 1, 0, *f, constraint, 10,
      all, none, none, 0.0, kStopAtNegativeGain, nullptr, nullptr, nullptr, nullptr));
}

TEST(GreedyAlgorithmSelection, CallersPermitIsNeverUsed) {
  // Negative weights: every algorithm stops at the first negative gain,
  // whatever permit the caller gives.
  const ModularFunction<double> f(std::vector<double>{-1.0, 4.0, 0.0, -3.0, 2.0, -0.5});
  const CardinalitySetConstraint constraint(6, 6);
  for (GainPermit permit : {kStopAtZeroGain, kStopAtNegativeGain, kNeverStopOnGain}) {
    for (int algorithm = 0; algorithm < 4; ++algorithm) {
      for (int threads : {0, 2}) {
        Selection s;
        s.permit = permit;
        s.standard = algorithm == 0;
        s.stochastic = algorithm == 1;
        s.starting_epsilon = s.ending_epsilon = 0.0;  // whole samples: exact steps
        s.threshold = algorithm == 2;
        s.threads = threads;
        const Outcome out = Select(s, f, constraint);
        std::vector<int> sorted = out.order;
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(sorted, (std::vector<int>{1, 2, 4}))
            << "permit " << permit << ", algorithm " << algorithm;
        EXPECT_EQ(out.value, 6.0);
      }
    }
  }
}

}  // namespace
}  // namespace velmor
