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

using testing::FullSet;
using testing::kNoLimit;

// The selector's flags and tuning values, with the values a caller would
// typically give.
struct Selection {
  bool standard = false, stochastic = false, threshold = false;
  int threads = 0, depth = 0, ary = 1;
  GainPermit permit = kNeverStopOnGain;
  double epsilon = 0.05;
};

struct Outcome : testing::GreedyRun {
  explicit Outcome(int n) : GreedyRun(n) {}
  bool result = false;
  std::vector<std::string> log;
  bool Logged(const std::string& text) const {
    return std::any_of(log.begin(), log.end(),
                       [&](const std::string& line) { return line.find(text) != line.npos; });
  }
};

std::unique_ptr<Outcome> Select(const Selection& s, const SubmodularFunction& f,
                                const DownClosedSetConstraint& constraint, bool want_order = true) {
  const int n = f.GroundSetSize();
  auto out = std::make_unique<Outcome>(n);
  const UnorderedHashSet empty(n);
  testing::OptmLogCapture capture;
  out->result = RunOneOfTheGreedyAlgorithms(
      s.standard, s.stochastic, s.epsilon, 1, s.epsilon, 0, 1.0, 0.0, 0, 1, s.threshold, 0.2,
      s.threads, s.depth, s.ary, true, 1.0f, 1.0f, 3, f, constraint, kNoLimit, FullSet(n), empty,
      empty, 0.0, s.permit, &out->solution, want_order ? &out->order : nullptr, &out->gains,
      &out->value);
  out->log = capture.Lines();
  return out;
}

TEST(GreedyAlgorithmSelection, PrecedenceAndHandOver) {
  std::mt19937 engine(51);
  const int n = 400;
  const auto f = testing::RandomFacilityLocation<double>(n, 50, engine);
  const CardinalitySetConstraint constraint(n, 15);
  const UnorderedHashSet empty(n), all = FullSet(n);
  const auto direct = [&](auto run) {
    std::vector<int> order;
    run(&order);
    return order;
  };
  // No flag: the accelerated greedy, the same run as a direct call; standard
  // wins over stochastic, stochastic over threshold.
  const std::vector<int> accelerated = direct([&](std::vector<int>* order) {
    AcceleratedGreedyConstrainedMaximization(*f, constraint, kNoLimit, all, empty, empty, 0.0,
                                             kStopAtNegativeGain, nullptr, order, nullptr, nullptr,
                                             nullptr);
  });
  auto out = Select({}, *f, constraint);
  EXPECT_TRUE(out->result);
  EXPECT_TRUE(out->Logged("Finished running accelerated greedy"));
  EXPECT_EQ(out->order, accelerated);
  out = Select({.standard = true, .stochastic = true, .threshold = true}, *f, constraint);
  EXPECT_TRUE(out->Logged("Starting greedy max."));
  EXPECT_FALSE(out->Logged("stochastic"));
  EXPECT_EQ(out->order, accelerated);
  out = Select({.stochastic = true, .threshold = true}, *f, constraint);
  EXPECT_EQ(out->order, direct([&](std::vector<int>* order) {
              StochasticAcceleratedGreedyConstrainedMaximization(
                  0.05, 1, 0.05, 0, 1.0, 0.0, 0, 1, *f, constraint, kNoLimit, all, empty, empty,
                  kStopAtNegativeGain, 3, nullptr, order, nullptr, nullptr, nullptr, 0.0);
            }));
  // Threshold: gains only through the fixed-order pass, which needs the order.
  out = Select({.threshold = true}, *f, constraint);
  EXPECT_EQ(out->order, direct([&](std::vector<int>* order) {
              ThresholdGreedyConstrainedMaximization(0.2, *f, constraint, kNoLimit, all, empty,
                                                     empty, kStopAtNegativeGain, nullptr, order,
                                                     nullptr, nullptr);
            }));
  ASSERT_EQ(out->gains.size(), out->order.size());
  EXPECT_NEAR(std::accumulate(out->gains.begin(), out->gains.end(), 0.0), out->value, 1e-5);
  out = Select({.threshold = true}, *f, constraint, false);
  EXPECT_TRUE(out->result);
  EXPECT_TRUE(out->gains.empty());
  EXPECT_EQ(out->solution.size(), 15);
  // Threads: flat unless a depth or an ary above 1 asks for the tree.
  out = Select({.threads = 4}, *f, constraint);
  EXPECT_TRUE(out->Logged("Starting multi-threaded greedy max (MGM)."));
  EXPECT_FALSE(out->Logged("(HGM)"));
  EXPECT_EQ(out->order.size(), 15u);
  out = Select({.threads = 4, .ary = 2}, *f, constraint);
  EXPECT_TRUE(out->Logged("Starting hierarchical multi-threaded greedy max (HGM)."));
  EXPECT_TRUE(out->Logged("Finished running accelerated greedy"));
  out = Select({.threshold = true, .threads = 1, .depth = 1}, *f, constraint);
  EXPECT_TRUE(out->Logged("(HGM)"));
  EXPECT_TRUE(out->Logged("Starting threshold greedy"));
  ASSERT_EQ(out->gains.size(), 15u);  // one block: the threshold run with its gains filled
  EXPECT_NEAR(std::accumulate(out->gains.begin(), out->gains.end(), 0.0), out->value, 1e-5);
  // Nothing to write: false from the standard greedy.
  EXPECT_FALSE(RunOneOfTheGreedyAlgorithms(
      true, false, 0, 0, 0, 0, 1, 0, 0, 0, false, 0.1, 0, 0, 1, false, 1, 1, 0, *f, constraint, 10,
      all, empty, empty, 0.0, kStopAtNegativeGain, nullptr, nullptr, nullptr, nullptr));
}

TEST(GreedyAlgorithmSelection, CallersPermitIsNeverUsed) {
  // Negative weights: every algorithm stops at the first negative gain,
  // whatever permit the caller gives.
  const ModularFunction<double> f(std::vector<double>{-1.0, 4.0, 0.0, -3.0, 2.0, -0.5});
  const CardinalitySetConstraint constraint(6, 6);
  for (GainPermit permit : {kStopAtZeroGain, kStopAtNegativeGain, kNeverStopOnGain}) {
    for (int algorithm = 0; algorithm < 4; ++algorithm) {
      for (int threads : {0, 2}) {
        const auto out = Select({.standard = algorithm == 0,
                                 .stochastic = algorithm == 1,
                                 .threshold = algorithm == 2,
                                 .threads = threads,
                                 .permit = permit,
                                 .epsilon = 0.0},  // whole samples: exact steps
                                f, constraint);
        std::vector<int> sorted = out->order;
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(sorted, (std::vector<int>{1, 2, 4}))
            << "permit " << permit << ", algorithm " << algorithm;
        EXPECT_EQ(out->value, 6.0);
      }
    }
  }
}

}  // namespace
}  // namespace velmor
