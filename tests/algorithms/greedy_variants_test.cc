#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <map>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "algorithms/acceleratedGreedyMax.h"
#include "algorithms/fixedOrderGreedy.h"
#include "algorithms/greedyAlgorithmSelection.h"
#include "algorithms/greedy_max.h"
#include "algorithms/greedy_test_util.h"
#include "algorithms/multiThreadedGreedyMax.h"
#include "algorithms/random_min_max.h"
#include "algorithms/stochasticGreedyMax.h"
#include "algorithms/thresholdGreedyMax.h"
#include "constraints/CardinalitySetConstraint.h"
#include "constraints/PartitionMatroidSetConstraint.h"
#include "functions/FacilityLocationFunction.h"
#include "functions/ModularFunction.h"

namespace velmor {
namespace {

// The faster and the parallel greedy variants, measured against the standard
// greedy (value, feasibility, evaluations) and against brute force.
using testing::ExpectLocatedError;
using testing::FullSet;
using testing::GreedyRun;
using testing::kNoLimit;
using testing::SetOf;

// The standard greedy's plain scan: every candidate evaluated at every step.
GreedyRun Standard(const SubmodularFunction& f, const DownClosedSetConstraint& constraint) {
  const int n = f.GroundSetSize();
  GreedyRun run(n);
  const UnorderedHashSet empty(n);
  greedy_max::GreedyAncillaryResults ancillary;
  GreedyConstrainedMaximization(f, constraint, kNoLimit, FullSet(n), empty, empty,
                                kStopAtNegativeGain, &run.solution, &run.order, &run.gains,
                                &run.value, &ancillary, {false, 1});
  run.evaluations = ancillary.number_of_gain_evaluations;
  return run;
}

struct StochasticValues {
  double starting_epsilon = 0.1;
  int minimum_sample_size = 1;
  double ending_epsilon = 0.1;
  int maximum_sample_size = 0;
  double epsilon_gamma = 1.0;
  double tolerance = 0.0;
  int expected_summary_size = 0;
  int lazy = 1;
};

GreedyRun Stochastic(const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
                     int limit, const StochasticValues& v, int seed,
                     const Set* inclusion = nullptr) {
  const int n = f.GroundSetSize();
  GreedyRun run(n);
  const UnorderedHashSet empty(n);
  greedy_max::GreedyAncillaryResults ancillary;
  EXPECT_TRUE(StochasticAcceleratedGreedyConstrainedMaximization(
      v.starting_epsilon, v.minimum_sample_size, v.ending_epsilon, v.maximum_sample_size,
      v.epsilon_gamma, v.tolerance, v.expected_summary_size, v.lazy, f, constraint, limit,
      FullSet(n), inclusion != nullptr ? *inclusion : empty, empty, kStopAtNegativeGain, seed,
      &run.solution, &run.order, &run.gains, &run.value, &ancillary, 0.0));
  run.evaluations = ancillary.number_of_gain_evaluations;
  return run;
}

// The checks every run must pass, with gains to float precision.
void ExpectConsistent(const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
                      const GreedyRun& run, const Set* inclusion = nullptr) {
  const UnorderedHashSet empty(f.GroundSetSize());
  testing::ExpectValidRun(f, constraint, kNoLimit, inclusion ? *inclusion : empty, empty, run,
                          1e-6);
}

// Ten blocks of `n / 10` elements, at most `per_block` from each.
PartitionMatroidSetConstraint<std::vector<int>> TenBlocks(int n, int per_block) {
  std::vector<int> mapping(static_cast<std::size_t>(n));
  for (int e = 0; e < n; ++e) mapping[static_cast<std::size_t>(e)] = e % 10;
  return PartitionMatroidSetConstraint(mapping, std::vector<int>(10, per_block));
}

TEST(StochasticGreedy, ValueEvaluationsAndReproducibility) {
  std::mt19937 engine(11);
  const int n = 3000;
  const int k = 40;
  const auto f = testing::RandomFacilityLocation<float>(n, 300, engine);
  const CardinalitySetConstraint constraint(n, k);
  const GreedyRun standard = Standard(*f, constraint);

  // epsilon 0 samples everything: the standard greedy's steps exactly.
  const GreedyRun full =
      Stochastic(*f, constraint, kNoLimit, {.starting_epsilon = 0.0, .ending_epsilon = 0.0}, 1);
  EXPECT_EQ(full.order, standard.order);
  EXPECT_EQ(full.gains, standard.gains);

  // epsilon 0.1, lazy and not: close to the standard value with far fewer evaluations.
  for (int lazy : {0, 1}) {
    double value_sum = 0.0;
    std::int64_t evaluation_sum = 0;
    const int seeds = 8;
    for (int seed = 0; seed < seeds; ++seed) {
      const GreedyRun run = Stochastic(*f, constraint, kNoLimit, {.lazy = lazy}, seed);
      ExpectConsistent(*f, constraint, run);
      EXPECT_EQ(static_cast<int>(run.order.size()), k);
      value_sum += run.value;
      evaluation_sum += run.evaluations;
    }
    EXPECT_GE(value_sum / seeds, 0.95 * standard.value) << "lazy " << lazy;
    EXPECT_LT(static_cast<double>(evaluation_sum) / seeds, 0.2 * standard.evaluations);
  }

  // The same seed gives the same run; other seeds give other ones.
  const GreedyRun a = Stochastic(*f, constraint, kNoLimit, {}, 7);
  const GreedyRun b = Stochastic(*f, constraint, kNoLimit, {}, 7);
  EXPECT_EQ(a.order, b.order);
  EXPECT_EQ(a.gains, b.gains);
  int differing = 0;
  for (int seed = 100; seed < 105; ++seed)
    differing += Stochastic(*f, constraint, kNoLimit, {}, seed).order != a.order;
  EXPECT_GT(differing, 0);
}

TEST(StochasticGreedy, ConstraintsScheduleWarmStartAndPermit) {
  std::mt19937 engine(12);
  const int n = 500;
  const auto f = testing::RandomFacilityLocation<double>(n, 60, engine);
  // A partition matroid: full and feasible; the extra limit counts the warm start.
  const auto blocks = TenBlocks(n, 2);
  const StochasticValues values = {.starting_epsilon = 0.01,
                                   .ending_epsilon = 0.5,
                                   .epsilon_gamma = 2.0,
                                   .expected_summary_size = 20};
  const GreedyRun matroid = Stochastic(*f, blocks, kNoLimit, values, 3);
  ExpectConsistent(*f, blocks, matroid);
  EXPECT_EQ(static_cast<int>(matroid.order.size()), 20);
  const UnorderedHashSet inclusion = SetOf(n, {0, 10});
  const GreedyRun warm = Stochastic(*f, blocks, 7, values, 3, &inclusion);
  ExpectConsistent(*f, blocks, warm, &inclusion);
  EXPECT_EQ(warm.solution.size(), 7);
  // Sample sizes: a cap of 1 makes every step a single evaluation.
  EXPECT_EQ(Stochastic(*f, CardinalitySetConstraint(n, 10), kNoLimit,
                       {.maximum_sample_size = 1, .lazy = 0}, 5)
                .evaluations,
            10);

  // Parameter errors.
  const ModularFunction<double> g(std::vector<double>{1.0, 2.0});
  const UnorderedHashSet both = FullSet(2), empty(2);
  std::vector<int> order;
  auto run = [&](double start, int min_size, double end, double gamma, double tolerance,
                 int expected) {
    StochasticAcceleratedGreedyConstrainedMaximization(
        start, min_size, end, 0, gamma, tolerance, expected, 1, g, CardinalitySetConstraint(2, 1),
        1, both, empty, empty, kStopAtNegativeGain, 0, nullptr, &order, nullptr, nullptr, nullptr,
        0.0);
  };
  const std::string function = "StochasticAcceleratedGreedyConstrainedMaximization";
  testing::ExpectLocatedErrors(
      "stochasticGreedyMax",
      {{[&] { run(-0.5, 1, 0.1, 1, 0, 0); }, function,
        "Value of starting_epsilon = -0.5, must be >= 0."},
       {[&] { run(0.3, 1, 0.2, 1, 0, 0); }, function,
        "Value of starting_epsilon = 0.3, must be <= ending_epsilon = 0.2."},
       {[&] { run(0.1, 1, 0.2, 0, 0, 0); }, function,
        "Value of epsilon_gamma = 0, must be positive."},
       {[&] { run(0.1, -1, 0.2, 1, 0, 0); }, function,
        "Sample sizes minimum_sample_size = -1 and maximum_sample_size = 0 must be >= 0."},
       {[&] { run(0.1, 1, 0.2, 1, 1.0, 0); }, function,
        "Value of lazy_acceptance_tolerance = 1, must be in [0, 1)."},
       {[&] { run(0.1, 1, 0.2, 1, 0, -3); }, function,
        "Value of expected_summary_size = -3, must be >= 0."}});
  EXPECT_THROW(run(std::nan(""), 1, 0.2, 1, 0, 0), std::invalid_argument);
}

TEST(ThresholdGreedy, GuaranteeAgainstBruteForceAndStandard) {
  std::mt19937 engine(21);
  const double epsilon = 0.1;
  // Small instances: (1 - 1/e - epsilon) of the optimum.
  for (int trial = 0; trial < 20; ++trial) {
    const int n = 6 + static_cast<int>(engine() % 7);
    const int k = 1 + static_cast<int>(engine() % 4);
    const auto f = testing::RandomMixture<double>(n, engine);
    const CardinalitySetConstraint constraint(n, k);
    const UnorderedHashSet empty(n);
    GreedyRun run(n);
    ASSERT_TRUE(ThresholdGreedyConstrainedMaximization(
        epsilon, *f, constraint, kNoLimit, FullSet(n), empty, empty, kStopAtNegativeGain,
        &run.solution, &run.order, &run.value, nullptr));
    ExpectConsistent(*f, constraint, run);
    double optimum = -DBL_MAX;
    testing::ForEachSubset(n, k,
                           [&](const Set& s) { optimum = std::max(optimum, f->Evaluate(s)); });
    EXPECT_GE(run.value, (1.0 - 1.0 / std::exp(1.0) - epsilon) * optimum - 1e-12);
  }

  // A larger one under a matroid: close to the standard greedy with fewer evaluations.
  const int n = 3000;
  const auto f = testing::RandomFacilityLocation<float>(n, 300, engine);
  const auto blocks = TenBlocks(n, 4);
  const GreedyRun standard = Standard(*f, blocks);
  GreedyRun run(n);
  const UnorderedHashSet empty(n);
  greedy_max::GreedyAncillaryResults ancillary;
  ThresholdGreedyConstrainedMaximization(epsilon, *f, blocks, kNoLimit, FullSet(n), empty, empty,
                                         kStopAtNegativeGain, &run.solution, &run.order, &run.value,
                                         &ancillary);
  ExpectConsistent(*f, blocks, run);
  EXPECT_EQ(run.order.size(), standard.order.size());
  EXPECT_GE(run.value, 0.95 * standard.value);
  EXPECT_LT(ancillary.number_of_gain_evaluations, standard.evaluations / 2);
  ExpectLocatedError(
      [&] {
        ThresholdGreedyConstrainedMaximization(1.0, *f, blocks, kNoLimit, FullSet(n), empty, empty,
                                               kStopAtNegativeGain, nullptr, &run.order, nullptr,
                                               nullptr);
      },
      "thresholdGreedyMax", "ThresholdGreedyConstrainedMaximization",
      "Value of epsilon = 1, must be in (0, 1).");
}

TEST(FixedOrderGreedy, GainsSkipsAndStops) {
  std::mt19937 engine(31);
  const int n = 30;
  const auto f = testing::RandomFacilityLocation<double>(n, 12, engine);
  const UnorderedHashSet inclusion = SetOf(n, {4}), conditioning = SetOf(n, {7});
  // 14 repeats 4's block, 7 is conditioning, 3 comes twice: all skipped.
  const std::vector<int> walk = {3, 14, 7, 3, 25, 4, 0, 11, 19, 2, 28, 5};
  GreedyRun run(n);
  ASSERT_TRUE(FixedOrderGreedyConstrained(*f, TenBlocks(n, 1), 5, walk, inclusion, conditioning,
                                          0.0, kNeverStopOnGain, &run.solution, &run.order,
                                          &run.gains, &run.value));
  EXPECT_EQ(run.order, (std::vector<int>{3, 25, 0, 11}));  // then |solution| = 5
  UnorderedHashSet so_far = testing::Union(inclusion, conditioning);
  for (std::size_t j = 0; j < run.order.size(); ++j) {
    const double before = f->Evaluate(so_far);
    so_far.insert(run.order[j]);
    EXPECT_NEAR(run.gains[j], f->Evaluate(so_far) - before, 1e-6);
  }
  EXPECT_NEAR(run.value, f->Evaluate(so_far) - f->Evaluate(conditioning), 1e-12);

  // The permit stops the walk at the first negative gain.
  const ModularFunction<double> modular(std::vector<double>{1.0, -1.0, 2.0});
  const CardinalitySetConstraint three(3, 3);
  const UnorderedHashSet empty(3);
  std::vector<int> order;
  FixedOrderGreedyConstrained(modular, three, kNoLimit, {0, 1, 2}, empty, empty, 0.0,
                              kStopAtNegativeGain, nullptr, &order, nullptr, nullptr);
  EXPECT_EQ(order, std::vector<int>{0});
  ExpectLocatedError(
      [&] {
        FixedOrderGreedyConstrained(modular, three, kNoLimit, {0, 3}, empty, empty, 0.0,
                                    kStopAtNegativeGain, nullptr, &order, nullptr, nullptr);
      },
      "fixedOrderGreedy", "FixedOrderGreedyConstrained", "Invalid element = 3 in the fixed order.");
  EXPECT_FALSE(FixedOrderGreedyConstrained(modular, three, kNoLimit, {0}, empty, empty, 0.0,
                                           kStopAtNegativeGain, nullptr, nullptr, nullptr,
                                           nullptr));
}

GreedyAlgorithm AcceleratedAlgorithm() {
  return
      [](const SubmodularFunction& f, const DownClosedSetConstraint& c, int limit,
         const Set& candidates, const Set& inclusion, const Set& conditioning, double fraction,
         GainPermit permit, UnorderedHashSet* solution, std::vector<int>* order,
         std::vector<float>* gains, double* value, greedy_max::GreedyAncillaryResults* ancillary) {
        return AcceleratedGreedyConstrainedMaximization(f, c, limit, candidates, inclusion,
                                                        conditioning, fraction, permit, solution,
                                                        order, gains, value, ancillary);
      };
}

// Runs the flat scheme, or the tree when depth or ary asks for it.
GreedyRun MultiThreaded(const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
                        int threads, int depth, int ary, bool random, float fraction,
                        float preservation, const Set& inclusion, const Set& conditioning,
                        const GreedyAlgorithm& algorithm = AcceleratedAlgorithm()) {
  const int n = f.GroundSetSize();
  GreedyRun run(n);
  if (depth != 0 || ary > 1) {
    HierarchicalMultiThreadedGreedyConstrainedMaximization(
        f, constraint, kNoLimit, FullSet(n), inclusion, conditioning, 0.0, fraction, preservation,
        kStopAtNegativeGain, threads, depth, ary, random, 5, algorithm, &run.solution, &run.order,
        &run.gains, &run.value);
  } else {
    MultiThreadedGreedyConstrainedMaximization(f, constraint, kNoLimit, FullSet(n), inclusion,
                                               conditioning, 0.0, fraction, preservation,
                                               kStopAtNegativeGain, threads, random, 5, algorithm,
                                               &run.solution, &run.order, &run.gains, &run.value);
  }
  return run;
}

TEST(MultiThreadedGreedy, FlatAndHierarchicalAgainstStandard) {
  std::mt19937 engine(41);
  const int n = 4000;
  const int k = 50;
  const auto f = testing::RandomFacilityLocation<float>(n, 400, engine);
  const CardinalitySetConstraint constraint(n, k);
  const UnorderedHashSet empty(n);
  const GreedyRun standard = Standard(*f, constraint);
  // One thread, whole solution: the wrapped algorithm itself.
  EXPECT_EQ(MultiThreaded(*f, constraint, 1, 0, 1, false, 1.0f, 1.0f, empty, empty).order,
            standard.order);
  struct Case {
    int threads, depth, ary;
    bool random;
    float fraction, preservation;
  };
  for (const Case& c : {Case{2, 0, 1, false, 1.0f, 1.0f}, Case{4, 0, 1, true, 1.0f, 1.0f},
                        Case{4, 0, 2, true, 1.0f, 1.0f}, Case{8, 1, 2, false, 0.5f, 0.9f},
                        Case{9, 0, 3, true, 1.0f, 1.0f}}) {
    SCOPED_TRACE(std::to_string(c.threads) + " threads, ary " + std::to_string(c.ary));
    const GreedyRun run = MultiThreaded(*f, constraint, c.threads, c.depth, c.ary, c.random,
                                        c.fraction, c.preservation, empty, empty);
    ExpectConsistent(*f, constraint, run);
    // Merges that see whole solutions fill the summary; with less preserved
    // the best block may win.
    if (c.preservation == 1.0f) {
      EXPECT_EQ(static_cast<int>(run.order.size()), k);
    }
    EXPECT_EQ(run.gains.size(), run.order.size());
    EXPECT_GE(run.value, 0.9 * standard.value);
  }
  // Under a partition matroid with a warm start and conditioning.
  const auto blocks = TenBlocks(n, 3);
  const GreedyRun run =
      MultiThreaded(*f, blocks, 4, 0, 2, true, 1.0f, 1.0f, SetOf(n, {0}), SetOf(n, {1}));
  EXPECT_TRUE(blocks.IsFeasible(run.solution));
  EXPECT_TRUE(run.solution.contains(0));
  EXPECT_FALSE(run.solution.contains(1));
  EXPECT_EQ(run.solution.size(), 30);
}

TEST(MultiThreadedGreedy, ErrorsAndFailingRuns) {
  const ModularFunction<double> f(std::vector<double>{1.0, 2.0, 3.0, 4.0});
  const CardinalitySetConstraint constraint(4, 2);
  const UnorderedHashSet empty(4);
  const auto order = [&](int threads, int depth, int ary, float fraction = 1.0f,
                         float preservation = 1.0f) {
    return MultiThreaded(f, constraint, threads, depth, ary, false, fraction, preservation, empty,
                         empty)
        .order;
  };
  const std::string tree = "HierarchicalMultiThreadedGreedyConstrainedMaximization";
  const std::string flat = "MultiThreadedGreedyConstrainedMaximization";
  testing::ExpectLocatedErrors(
      "multiThreadedGreedyMax",
      {{[&] { order(6, 0, 2); }, tree,
        "Hierarchical multi-threaded greedy. Number of threads = 6 must be an integer power of "
        "ary = 2. depth = 0."},
       {[&] { order(4, 1, 1); }, tree,
        "Hierarchical multi-threaded greedy. Number of threads = 4 must be an integer power of "
        "ary = 1. depth = 1."},
       {[&] { order(4, -1, 2); }, tree,
        "Hierarchical multi-threaded greedy. depth = -1 must be >= 0."},
       {[&] { order(0, 0, 1); }, flat, "Number of threads = 0 must be positive."},
       {[&] { order(2, 0, 1, 0.0f); }, flat,
        "Value of fraction_of_threads_solution_to_compute = 0, must be in (0, 1]."},
       {[&] { order(2, 0, 1, 1.0f, 1.5f); }, flat,
        "Value of gain_preservation_fraction = 1.5, must be in (0, 1]."}});
  EXPECT_EQ(order(1, 0, 2), (std::vector<int>{3, 2}));  // ary^0 threads
  EXPECT_EQ(order(4, 5, 2), (std::vector<int>{3, 2}));  // a depth beyond the tree: the whole tree
  // A run that throws on one thread reaches the caller.
  const GreedyAlgorithm failing =
      [](const SubmodularFunction&, const DownClosedSetConstraint&, int, const Set& candidates,
         const Set&, const Set&, double, GainPermit, UnorderedHashSet*, std::vector<int>*,
         std::vector<float>*, double*, greedy_max::GreedyAncillaryResults*) -> bool {
    if (candidates.contains(3)) throw std::runtime_error("block with 3");
    return true;
  };
  EXPECT_THROW(MultiThreaded(f, constraint, 2, 0, 1, false, 1.0f, 1.0f, empty, empty, failing),
               std::runtime_error);
}

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

std::vector<int> Sorted(const Set& s) {
  std::vector<int> elements;
  s.ToVector(elements);
  std::sort(elements.begin(), elements.end());
  return elements;
}

struct Draws {
  UnorderedHashSet min_set, max_set;
  double min_value = 0.0, max_value = 0.0, average = 0.0;
};

Draws Draw(int attempts, std::uint64_t seed, const SetFunction& f,
           const DownClosedSetConstraint& constraint, const Set& candidates, const Set& warm_start,
           const Set& conditioning) {
  Draws d;
  EXPECT_TRUE(RandomMaximizationMinimization(attempts, seed, f, constraint, candidates, warm_start,
                                             conditioning, &d.min_set, &d.max_set, &d.min_value,
                                             &d.max_value, &d.average));
  return d;
}

TEST(RandomMinMax, UniformRandomSubset) {
  // Every 2-subset of 6 elements equally often: 15 pairs, 30000 draws.
  std::mt19937 engine(9);
  std::map<std::pair<int, int>, int> counts;
  const int draws = 30000;
  std::vector<int> elements = {0, 1, 2, 3, 4, 5};
  for (int i = 0; i < draws; ++i) {
    UniformRandomSubset(elements, 2, engine);
    counts[{std::min(elements[0], elements[1]), std::max(elements[0], elements[1])}]++;
    std::vector<int> sorted = elements;
    std::sort(sorted.begin(), sorted.end());
    ASSERT_EQ(sorted, (std::vector<int>{0, 1, 2, 3, 4, 5}));
  }
  ASSERT_EQ(counts.size(), 15u);
  const double expected = draws / 15.0;
  const double sigma = std::sqrt(expected * (1.0 - 1.0 / 15.0));
  for (const auto& [pair, count] : counts) EXPECT_NEAR(count, expected, 5 * sigma);
  // Sizes beyond the vector take all of it; 0 takes nothing and draws nothing.
  std::vector<int> few = {7, 8};
  UniformRandomSubset(few, 5, engine);
  std::sort(few.begin(), few.end());
  EXPECT_EQ(few, (std::vector<int>{7, 8}));
  std::mt19937 a(3), b(3);
  UniformRandomSubset(few, 0, a);
  EXPECT_EQ(a(), b());
}

TEST(RandomMinMax, AgainstExhaustiveExtremes) {
  // Over all C(8, 3) = 56 subsets, the extremes are reached by 3000 draws.
  std::mt19937 engine(4);
  const int n = 8;
  auto f = testing::RandomFacilityLocation<double>(n, 5, engine);
  const CardinalitySetConstraint constraint(n, 3);
  const UnorderedHashSet all = FullSet(n), empty(n);
  double lowest = 1e300, highest = -1e300, total = 0.0;
  int subsets = 0;
  testing::ForEachSubset(n, 3, [&](const Set& s) {
    if (s.size() != 3) return;
    const double v = f->Evaluate(s);
    lowest = std::min(lowest, v);
    highest = std::max(highest, v);
    total += v;
    ++subsets;
  });
  const Draws d = Draw(3000, 77, *f, constraint, all, empty, empty);
  EXPECT_DOUBLE_EQ(d.min_value, lowest);
  EXPECT_DOUBLE_EQ(d.max_value, highest);
  EXPECT_EQ(d.min_set.size(), 3);
  EXPECT_DOUBLE_EQ(f->Evaluate(d.min_set), d.min_value);
  EXPECT_DOUBLE_EQ(f->Evaluate(d.max_set), d.max_value);
  EXPECT_NEAR(d.average, total / subsets, 0.05 * (highest - lowest));

  // Equal seeds give equal draws; the low 32 bits of the seed count.
  const Draws again = Draw(20, 77 + (std::uint64_t{5} << 32), *f, constraint, all, empty, empty);
  const Draws same = Draw(20, 77, *f, constraint, all, empty, empty);
  EXPECT_EQ(Sorted(again.min_set), Sorted(same.min_set));
  EXPECT_EQ(Sorted(again.max_set), Sorted(same.max_set));
  EXPECT_EQ(again.average, same.average);
}

TEST(RandomMinMax, WarmStartConditioningAndOneAttempt) {
  const int n = 10;
  std::vector<double> weights(n);
  for (int e = 0; e < n; ++e) weights[static_cast<std::size_t>(e)] = std::pow(2.0, e);
  const ModularFunction<double> f(weights, 0.25);
  const CardinalitySetConstraint constraint(n, 3);
  const UnorderedHashSet warm_start = SetOf(n, {0});
  const UnorderedHashSet conditioning = SetOf(n, {9});
  // Candidates include a conditioning element, which is drawn but not reported.
  const UnorderedHashSet candidates = SetOf(n, {0, 1, 2, 3, 9});

  // One attempt: the extremes and the average coincide, both sets are the draw.
  const Draws one = Draw(1, 123, f, constraint, candidates, warm_start, conditioning);
  EXPECT_EQ(one.min_value, one.max_value);
  EXPECT_EQ(one.average, one.min_value);
  EXPECT_EQ(Sorted(one.min_set), Sorted(one.max_set));
  EXPECT_FALSE(one.min_set.contains(0));
  EXPECT_FALSE(one.min_set.contains(9));

  // Each value is f(R ∪ W ∪ C) - f(C) = 1 + the weights 2^e of R's elements
  // other than 9, for R three of {1, 2, 3, 9}. Reported sets leave out 9.
  const Draws many = Draw(400, 5, f, constraint, candidates, warm_start, conditioning);
  // Minimum: R = {1, 2, 9}, 1 + 2 + 4.
  EXPECT_DOUBLE_EQ(many.min_value, 1.0 + 2.0 + 4.0);
  EXPECT_EQ(many.min_set.size(), 2);
  EXPECT_TRUE(many.min_set.contains(1) && many.min_set.contains(2));
  // Maximum: R = {1, 2, 3}, 1 + 2 + 4 + 8.
  EXPECT_DOUBLE_EQ(many.max_value, 15.0);
  EXPECT_EQ(many.max_set.size(), 3);
}

TEST(RandomMinMax, EarlyReturnsAndErrors) {
  const int n = 4;
  const ModularFunction<double> f(std::vector<double>(n, 1.0));
  const CardinalitySetConstraint constraint(n, 2), zero(n, 0);
  const UnorderedHashSet all = FullSet(n), empty(n), other(n + 1);
  double value = -1.0;
  EXPECT_FALSE(RandomMaximizationMinimization(3, 1, f, constraint, all, empty, empty, nullptr,
                                              nullptr, nullptr, nullptr, nullptr));
  EXPECT_FALSE(RandomMaximizationMinimization(3, 1, f, zero, all, empty, empty, nullptr, nullptr,
                                              &value, nullptr, nullptr));
  EXPECT_EQ(value, -1.0);

  const auto draw = [&](int attempts, const Set& warm_start, const Set& conditioning) {
    RandomMaximizationMinimization(attempts, 1, f, constraint, all, warm_start, conditioning,
                                   nullptr, nullptr, &value, nullptr, nullptr);
  };
  const std::string function = "RandomMaximizationMinimization";
  testing::ExpectLocatedErrors<std::invalid_argument>(
      "random_min_max",
      {{[&] { draw(3, other, empty); }, function,
        "Invalid argument, ground set sizes 4,4,4,5,4 must all match."},
       {[&] {
          draw(3, SetOf(n, {0, 1, 2}), empty);
        },
        function, "Warm start set must itself be feasible."},
       {[&] { draw(0, empty, empty); }, function, "Number of attempts = 0 must be > 0."}});
}

}  // namespace
}  // namespace velmor
