#include "algorithms/greedy_max.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "algorithms/PartialEnumeration.h"
#include "algorithms/acceleratedGreedyMax.h"
#include "algorithms/greedy_test_util.h"
#include "algorithms/stochasticGreedyMax.h"
#include "constraints/CardinalitySetConstraint.h"
#include "constraints/IntersectionOfMatroidsSetConstraint.h"
#include "constraints/PartitionMatroidSetConstraint.h"
#include "functions/ContractionWrapperSetFunction.h"
#include "functions/FacilityLocationFunction.h"
#include "functions/MixtureSetFunction.h"
#include "functions/ModularFunction.h"
#include "functions/SparseFacilityLocationFunction.h"
#include "functions/SumSumDispersionFunction.h"
#include "support/float_types.h"
#include "utils/logging.h"

namespace velmor {
namespace {

using testing::FullSet;
using testing::GreedyRun;
using testing::kNoLimit;
using testing::SetOf;

// Runs the standard greedy with every output and checks what must hold of any run.
template <typename T>
GreedyRun RunAndCheck(const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
                      int limit, const Set& candidates, const Set& inclusion,
                      const Set& conditioning, GainPermit permit = kNeverStopOnGain,
                      greedy_max::GreedyAncillaryResults* ancillary = nullptr,
                      const greedy_max::StandardGreedyOptions& options = {}) {
  GreedyRun run(f.GroundSetSize());
  EXPECT_TRUE(GreedyConstrainedMaximization(f, constraint, limit, candidates, inclusion,
                                            conditioning, permit, &run.solution, &run.order,
                                            &run.gains, &run.value, ancillary, options));
  for (int e : run.order) EXPECT_TRUE(candidates.contains(e));
  testing::ExpectValidRun(f, constraint, limit, inclusion, conditioning, run, testing::Eps<T>(64));
  return run;
}

template <typename T>
class GreedyMaxTest : public ::testing::Test {};
TYPED_TEST_SUITE(GreedyMaxTest, testing::FloatTypes);

TYPED_TEST(GreedyMaxTest, BruteForceGuaranteeAndUpperBound) {
  using T = TypeParam;
  std::mt19937 engine(5);
  const double tolerance = testing::Eps<T>(64);
  for (int trial = 0; trial < 30; ++trial) {
    const int n = 4 + static_cast<int>(engine() % 9);  // n <= 12
    const int k = 1 + static_cast<int>(engine() % 4);
    std::unique_ptr<SubmodularFunction> f;
    if (trial % 2 == 0) {
      f = testing::RandomFacilityLocation<T>(n, 1 + static_cast<int>(engine() % 8), engine);
    } else {
      f = testing::RandomMixture<T>(n, engine);
    }
    const CardinalitySetConstraint constraint(n, k);
    const UnorderedHashSet empty(n), all = FullSet(n);
    const GreedyRun run = RunAndCheck<T>(*f, constraint, kNoLimit, all, empty, empty);
    ASSERT_EQ(static_cast<int>(run.order.size()), std::min(k, n));
    double optimum = -DBL_MAX;
    testing::ForEachSubset(n, k,
                           [&](const Set& s) { optimum = std::max(optimum, f->Evaluate(s)); });
    EXPECT_GE(run.value, (1.0 - 1.0 / std::exp(1.0)) * optimum - tolerance);
    EXPECT_LE(run.value, optimum + tolerance);

    UnorderedHashSet bound_solution(n);
    std::vector<int> bound_order;
    double bound_greedy_value = 0.0;
    const double bound = UpperBoundValueGreedyConstrainedMaximization(
        *f, k, all, empty, empty, &bound_solution, &bound_order, nullptr, &bound_greedy_value);
    EXPECT_GE(bound, optimum - tolerance);
    EXPECT_EQ(bound_order, run.order);
    EXPECT_DOUBLE_EQ(bound_greedy_value, run.value);

    // With a warm start {0} and conditioning {1}, the bound still covers the
    // constrained optimum max f(S ∪ C) - f(C), {0} ⊆ S, |S| <= k.
    if (n >= 6 && k >= 2) {
      const UnorderedHashSet inclusion = SetOf(n, {0}), conditioning = SetOf(n, {1});
      const double conditioned = f->Evaluate(conditioning);
      double restricted_optimum = -DBL_MAX;
      testing::ForEachSubset(n, k, [&](const Set& s) {
        if (!s.contains(0)) return;
        restricted_optimum = std::max(restricted_optimum,
                                      f->Evaluate(testing::Union(s, conditioning)) - conditioned);
      });
      double greedy_value = 0.0;
      const double restricted_bound = UpperBoundValueGreedyConstrainedMaximization(
          *f, k, all, inclusion, conditioning, nullptr, nullptr, nullptr, &greedy_value);
      EXPECT_GE(restricted_bound, restricted_optimum - tolerance);
      EXPECT_LE(greedy_value, restricted_optimum + tolerance);
    }
  }
}

// The gain permit in the standard, accelerated and stochastic greedy (whole
// samples): kStopAtZeroGain stops on exactly 0, not on a negative gain;
// kStopAtNegativeGain takes a gain of 0 and stops on a negative one; any other
// value never stops. Modular functions: the steps take the weights in
// decreasing order.
TYPED_TEST(GreedyMaxTest, GainPermit) {
  using T = TypeParam;
  const auto orders = [](const std::vector<T>& weights, GainPermit permit) {
    const int n = static_cast<int>(weights.size());
    const ModularFunction<T> g(weights);
    const CardinalitySetConstraint c(n, n);
    const UnorderedHashSet all = FullSet(n), empty(n);
    std::vector<std::vector<int>> found(3);
    EXPECT_TRUE(GreedyConstrainedMaximization(g, c, n, all, empty, empty, permit, nullptr,
                                              &found[0], nullptr, nullptr, nullptr));
    EXPECT_TRUE(AcceleratedGreedyConstrainedMaximization(g, c, kNoLimit, all, empty, empty, 0.0,
                                                         permit, nullptr, &found[1], nullptr,
                                                         nullptr, nullptr));
    EXPECT_TRUE(StochasticAcceleratedGreedyConstrainedMaximization(
        0.0, 1, 0.0, 0, 1.0, 0.0, 0, 1, g, c, kNoLimit, all, empty, empty, permit, 1, nullptr,
        &found[2], nullptr, nullptr, nullptr, 0.0));
    return found;
  };
  const std::vector<T> mixed{3, -1, 2, -2, 0}, negative{-0.5, -1, -2, -3};
  const struct {
    const std::vector<T>& weights;
    GainPermit permit;
    std::vector<int> order;
  } cases[] = {
      {mixed, kStopAtNegativeGain, {0, 2, 4}},
      {mixed, kStopAtZeroGain, {0, 2}},
      {mixed, kNeverStopOnGain, {0, 2, 4, 1, 3}},
      {negative, kStopAtZeroGain, {0, 1, 2, 3}},
      {negative, kStopAtNegativeGain, {}},
      {negative, static_cast<GainPermit>(7), {0, 1, 2, 3}},
  };
  for (const auto& c : cases) {
    for (const std::vector<int>& order : orders(c.weights, c.permit)) {
      EXPECT_EQ(order, c.order) << "permit " << c.permit << ", first weight " << c.weights[0];
    }
  }
  // The standard greedy judges the double gain, not its float narrowing.
  if constexpr (std::is_same_v<T, double>) {
    const std::vector<T> tiny{-1e-300, -1, -2};
    EXPECT_TRUE(orders(tiny, kStopAtNegativeGain)[0].empty());
    EXPECT_EQ(orders(tiny, kStopAtZeroGain)[0].size(), 3u);
  }
}

TYPED_TEST(GreedyMaxTest, EdgeCases) {
  using T = TypeParam;
  std::mt19937 engine(17);
  const int n = 12;
  auto f = testing::RandomFacilityLocation<T>(n, 6, engine);
  const UnorderedHashSet all = FullSet(n), empty(n);
  const CardinalitySetConstraint three(n, 3), loose(n, n), zero(n, 0);
  // Inclusion of exactly the limit: nothing is added, the solution is the inclusion.
  const UnorderedHashSet inclusion = SetOf(n, {1, 4, 9});
  GreedyRun run = RunAndCheck<T>(*f, loose, 3, all, inclusion, SetOf(n, {2}));
  EXPECT_TRUE(run.order.empty());
  // Limits that allow nothing; empty candidates.
  EXPECT_TRUE(RunAndCheck<T>(*f, three, 0, all, empty, empty).order.empty());
  EXPECT_TRUE(RunAndCheck<T>(*f, zero, 5, all, empty, empty).order.empty());
  EXPECT_TRUE(RunAndCheck<T>(*f, three, 5, empty, empty, empty).order.empty());

  // No outputs: false, and no work.
  double value = -7.0;
  EXPECT_FALSE(GreedyConstrainedMaximization(*f, three, 3, all, empty, empty, kNeverStopOnGain,
                                             nullptr, nullptr, nullptr, &value, nullptr));
  EXPECT_EQ(value, -7.0);

  // The progress report, every second element.
  testing::OptmLogCapture log;
  greedy_max::SetProgressLoggingPeriod(2);
  run = RunAndCheck<T>(*f, CardinalitySetConstraint(n, 5), kNoLimit, all, empty, empty);
  greedy_max::SetProgressLoggingPeriod(0);
  int reports = 0;
  for (const std::string& line : log.Lines()) reports += line.rfind("Found element ", 0) == 0;
  EXPECT_EQ(reports, 3);
  EXPECT_TRUE(log.Contains("Found element 2 in the order, element = " +
                           std::to_string(run.order[2]) + ", gain value = "));

  // The step observer sees 0, 1, 2, ...; a stop request ends the run there.
  std::vector<int> seen;
  std::atomic<bool> stop{false};
  const auto on_step = [&](int chosen, int most) {
    seen.push_back(chosen);
    stop = chosen == 2 && most == 5;
  };
  std::vector<int> order;
  EXPECT_THROW(
      GreedyConstrainedMaximization(*f, CardinalitySetConstraint(n, 5), kNoLimit, all, empty, empty,
                                    kNeverStopOnGain, nullptr, &order, nullptr, nullptr, nullptr,
                                    {.observer = {on_step, &stop}}),
      GreedyStopped);
  EXPECT_EQ(seen, (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(order, std::vector<int>(run.order.begin(), run.order.begin() + 2));

  // Earlier entries: `order` is emptied first, `gains` keeps them.
  {
    const CardinalitySetConstraint four(n, 4);
    const GreedyRun fresh = RunAndCheck<T>(*f, four, 4, all, empty, empty, kNeverStopOnGain);
    std::vector<int> order{7, 7};
    std::vector<float> gains{-3.0f, -4.0f};
    GreedyConstrainedMaximization(*f, four, 4, all, empty, empty, kNeverStopOnGain, nullptr, &order,
                                  &gains, nullptr, nullptr);
    EXPECT_EQ(order, fresh.order);
    std::vector<float> expected{-3.0f, -4.0f};
    expected.insert(expected.end(), fresh.gains.begin(), fresh.gains.end());
    EXPECT_EQ(gains, expected);
  }
}

GreedyRun Standard(const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
                   int limit, const Set& candidates, const Set& inclusion,
                   const Set& conditioning) {
  GreedyRun run(f.GroundSetSize());
  greedy_max::GreedyAncillaryResults ancillary;
  GreedyConstrainedMaximization(f, constraint, limit, candidates, inclusion, conditioning,
                                kNeverStopOnGain, &run.solution, &run.order, &run.gains, &run.value,
                                &ancillary);
  run.evaluations = ancillary.number_of_gain_evaluations;
  return run;
}

GreedyRun Accelerated(const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
                      int limit, const Set& candidates, const Set& inclusion,
                      const Set& conditioning, double fraction = 0.0,
                      GainPermit permit = kNeverStopOnGain,
                      greedy_max::GreedyAncillaryResults* ancillary = nullptr) {
  GreedyRun run(f.GroundSetSize());
  greedy_max::GreedyAncillaryResults own;
  if (ancillary == nullptr) ancillary = &own;
  EXPECT_TRUE(AcceleratedGreedyConstrainedMaximization(
      f, constraint, limit, candidates, inclusion, conditioning, fraction, permit, &run.solution,
      &run.order, &run.gains, &run.value, ancillary));
  run.evaluations = ancillary->number_of_gain_evaluations;
  return run;
}

// Whether, at every step of the standard run, its chosen gain narrowed to
// float is strictly above every other feasible candidate's: then the float
// heap cannot meet a tie and the two algorithms must agree.
bool FloatTieFree(const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
                  const Set& candidates, const Set& inclusion, const Set& conditioning,
                  const std::vector<int>& order) {
  const int n = f.GroundSetSize();
  UnorderedHashSet current(n), base(n);
  current.insertSet(inclusion);
  base.insertSet(inclusion);
  base.insertSet(conditioning);
  auto context = f.MakeGrowingContext(base);
  for (int chosen : order) {
    const float best = static_cast<float>(context->DisjointGain(chosen));
    for (int e = 0; e < n; ++e) {
      if (e == chosen || !candidates.contains(e) || base.contains(e)) continue;
      if (!constraint.IsUnionFeasible(e, current)) continue;
      if (!(static_cast<float>(context->DisjointGain(e)) < best)) return false;
    }
    context->AddNewElementToContext(chosen, true);
    current.insert(chosen);
    base.insert(chosen);
  }
  return true;
}

std::vector<int> RandomBlocks(int n, int blocks, std::mt19937& engine) {
  std::vector<int> mapping(static_cast<std::size_t>(n));
  for (int& b : mapping) b = static_cast<int>(engine() % static_cast<unsigned>(blocks));
  return mapping;
}

std::vector<std::unique_ptr<MatroidSetConstraint>> TwoPartitions(const std::vector<int>& a,
                                                                 const std::vector<int>& b) {
  std::vector<std::unique_ptr<MatroidSetConstraint>> members;
  members.push_back(std::make_unique<PartitionMatroidSetConstraint<std::vector<int>>>(
      a, std::vector<int>{3, 2, 2, 2}));
  members.push_back(std::make_unique<PartitionMatroidSetConstraint<std::vector<int>>>(
      b, std::vector<int>{2, 3, 1}));
  return members;
}

// Constraints and sets for the differential test: a cardinality, a partition
// matroid with a block of limit 0, an intersection of two partition matroids;
// candidates that include conditioning elements, and (when asked) a warm start
// in block 0, feasible under all three.
struct RandomInstance {
  RandomInstance(int n, bool warm_start, std::mt19937& engine)
      : blocks_a(RandomBlocks(n, 4, engine)),
        blocks_b(RandomBlocks(n, 3, engine)),
        cardinality(n, 1 + static_cast<int>(engine() % 15)),
        partition(blocks_a, std::vector<int>{3, 1, 0, 4}),
        intersection(TwoPartitions(blocks_a, blocks_b)),
        candidates(n),
        inclusion(n),
        conditioning(n) {
    for (int e = 0; e < n; ++e) {
      const unsigned r = engine() % 12;
      if (r == 0) conditioning.insert(e);
      if (r != 1) candidates.insert(e);
      if (warm_start && r > 1 && inclusion.empty() && blocks_a[static_cast<std::size_t>(e)] == 0)
        inclusion.insert(e);
    }
  }
  std::vector<int> blocks_a, blocks_b;
  CardinalitySetConstraint cardinality;
  PartitionMatroidSetConstraint<std::vector<int>> partition;
  IntersectionOfMatroidsSetConstraint intersection;
  UnorderedHashSet candidates, inclusion, conditioning;
};

// Each function under each constraint: the lazy and threaded scans against the
// plain one; the standard greedy against the whole-set greedy where every step
// has a clear winner; the accelerated greedy against the standard one where no
// float tie can decide.
TYPED_TEST(GreedyMaxTest, DifferentialRunsOnRandomInstances) {
  using T = TypeParam;
  using Matrix = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;
  std::mt19937 engine(404);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  const auto random_matrix = [&](int rows, int columns, int levels) {
    // levels > 0: values k / levels only, so that many gains tie exactly.
    Matrix m(rows, columns);
    for (int i = 0; i < rows; ++i) {
      for (int j = 0; j < columns; ++j) {
        const double u = uniform(engine);
        m(i, j) = static_cast<T>(levels > 0 ? std::floor(u * (levels + 1)) / levels : u);
      }
    }
    return m;
  };

  int compared = 0, decided = 0;
  for (int trial = 0; trial < 16; ++trial) {
    const int n = 20 + static_cast<int>(engine() % 100);
    const int landmarks = 2 + static_cast<int>(engine() % 40);
    // Functions whose computed gains never rise, and last a mixture with
    // dispersion (gains that rise: the full scan at every step).
    std::vector<std::unique_ptr<SubmodularFunction>> functions;
    auto fl = std::make_unique<FacilityLocationFunction<T>>(random_matrix(n, landmarks, 0));
    fl->ComputeNormalizationConstant(false);
    functions.push_back(std::make_unique<FacilityLocationFunction<T>>(
        random_matrix(n, 1 + landmarks % 4, 1 + trial % 3)));
    typename SparseFacilityLocationFunction<T>::SparseMatrix sparse =
        random_matrix(n, landmarks, 0).sparseView(1.0, 0.6);
    functions.push_back(
        std::make_unique<SparseFacilityLocationFunction<T>>(std::move(sparse), false));
    functions.push_back(testing::RandomMixture<T>(n, engine));
    functions.push_back(std::make_unique<ContractionWrapperSetFunction<SubmodularFunction>>(
        *fl, testing::RandomSet(n, 0.1, engine)));
    const SumSumDispersionFunction<T> dispersion(random_matrix(n, n, 0));
    functions.push_back(std::make_unique<MixtureSetFunction>(fl.get(), &dispersion, 1.0, 0.01));

    const RandomInstance instance(n, trial % 2 == 1, engine);
    const Set &candidates = instance.candidates, &inclusion = instance.inclusion,
              &conditioning = instance.conditioning;
    for (std::size_t i = 0; i < functions.size(); ++i) {
      const SubmodularFunction& f = *functions[i];
      for (const DownClosedSetConstraint* constraint :
           std::initializer_list<const DownClosedSetConstraint*>{
               &instance.cardinality, &instance.partition, &instance.intersection}) {
        testing::ExpectSameAsPlainScan(f, *constraint, trial % 2 == 0 ? kNoLimit : 6, candidates,
                                       inclusion, conditioning);
        testing::ExpectSameAsPlainScan(f, *constraint, kNoLimit, FullSet(n), UnorderedHashSet(n),
                                       UnorderedHashSet(n), kStopAtNegativeGain);
        for (int limit : {kNoLimit, 5}) {
          const GreedyRun standard =
              Standard(f, *constraint, limit, candidates, inclusion, conditioning);
          const auto naive =
              testing::NaiveGreedy(f, *constraint, limit, candidates, inclusion, conditioning);
          if (naive.smallest_margin >= 1e-4) {
            ++decided;
            EXPECT_EQ(standard.order, naive.order) << f.Description();
          }
          if (i + 1 == functions.size() ||
              !FloatTieFree(f, *constraint, candidates, inclusion, conditioning, standard.order))
            continue;
          ++compared;
          // The accelerated greedy's limit counts the elements it adds, the
          // standard greedy's the whole solution.
          const int added = limit == kNoLimit ? limit : limit - inclusion.size();
          const GreedyRun accelerated =
              Accelerated(f, *constraint, added, candidates, inclusion, conditioning);
          ASSERT_EQ(accelerated.order, standard.order) << "trial " << trial;
          ASSERT_EQ(accelerated.gains, standard.gains) << "trial " << trial;
          EXPECT_EQ(accelerated.value, standard.value);
          testing::ExpectValidRun(f, *constraint, limit, inclusion, conditioning, accelerated,
                                  testing::Eps<T>(64));
          // Maximal unless the extra limit stopped it.
          if (accelerated.solution.size() < limit) {
            for (int e : candidates) {
              if (accelerated.solution.contains(e) || conditioning.contains(e)) continue;
              EXPECT_FALSE(constraint->IsUnionFeasible(e, accelerated.solution)) << e;
            }
          }
        }
      }
    }

    // Completions of partial enumeration from every starting pair.
    const auto completion = [](bool lazy) -> GreedyAlgorithm {
      return [lazy](const SubmodularFunction& g, const DownClosedSetConstraint& constraint,
                    int limit, const Set& c, const Set& in, const Set& cond, double,
                    GainPermit permit, UnorderedHashSet* solution, std::vector<int>* order,
                    std::vector<float>* gains, double* value,
                    greedy_max::GreedyAncillaryResults* ancillary) {
        return GreedyConstrainedMaximization(g, constraint, limit, c, in, cond, permit, solution,
                                             order, gains, value, ancillary, {.lazy = lazy});
      };
    };
    std::vector<int> orders[2];
    double values[2];
    for (const bool lazy : {false, true}) {
      PartialEnumerationMaximization(*functions[0], CardinalitySetConstraint(n, 3 + trial % 5),
                                     FullSet(n), UnorderedHashSet(n), 2, completion(lazy),
                                     *logging::GetLogger("optm"), 0, nullptr, &orders[lazy],
                                     nullptr, &values[lazy]);
    }
    EXPECT_EQ(orders[0], orders[1]);
    EXPECT_EQ(values[0], values[1]);

    // Which functions may be evaluated lazily, and that their gains indeed
    // never rose while dispersion's did.
    for (std::size_t i = 0; i + 1 < functions.size(); ++i) {
      EXPECT_TRUE(functions[i]->ComputedGainsNeverRise()) << functions[i]->Description();
      EXPECT_TRUE(testing::ComputedGainsNeverRose(*functions[i], n / 2, engine))
          << functions[i]->Description();
    }
    EXPECT_FALSE(functions.back()->ComputedGainsNeverRise());
    EXPECT_FALSE(dispersion.ComputedGainsNeverRise());
    EXPECT_FALSE(testing::ComputedGainsNeverRose(dispersion, 3, engine));
  }
  EXPECT_GT(compared, 200);
  EXPECT_GT(decided, 200);

  // Enough candidates for the threads to split them; lazy evaluation needs a
  // small part of the plain scan's evaluations.
  {
    const int n = 1500;
    auto f = testing::RandomFacilityLocation<T>(n, 40, engine);
    const CardinalitySetConstraint forty(n, 40);
    const UnorderedHashSet all = FullSet(n), empty(n);
    const testing::EvaluationCounts counts =
        testing::ExpectSameAsPlainScan(*f, forty, kNoLimit, all, empty, empty);
    EXPECT_EQ(counts.plain, 40 * n - 40 * 39 / 2);
    EXPECT_LT(counts.lazy * 4, counts.plain);
  }
}

TYPED_TEST(GreedyMaxTest, AncillaryResultsAreReused) {
  using T = TypeParam;
  std::mt19937 engine(8);
  const int n = 60;
  auto f = testing::RandomMixture<T>(n, engine);
  std::vector<int> mapping(static_cast<std::size_t>(n));
  for (int& b : mapping) b = static_cast<int>(engine() % 4);
  const PartitionMatroidSetConstraint<std::vector<int>> constraint(mapping,
                                                                   std::vector<int>{2, 2, 1, 3});
  const UnorderedHashSet all = FullSet(n);
  const UnorderedHashSet inclusion = SetOf(n, {4}), conditioning = SetOf(n, {9, 10});

  greedy_max::GreedyAncillaryResults ancillary;
  // The plain scan: every evaluation it saves is one the array saves.
  const greedy_max::StandardGreedyOptions plain{.lazy = false};
  const GreedyRun first = RunAndCheck<T>(*f, constraint, kNoLimit, all, inclusion, conditioning,
                                         kNeverStopOnGain, &ancillary, plain);
  ASSERT_TRUE(ancillary.singleton_gains_precomputed);
  ASSERT_EQ(ancillary.singleton_gains.size(), static_cast<std::size_t>(n));
  const std::int64_t first_evaluations = ancillary.number_of_gain_evaluations;
  // The array holds the first step's gains; excluded and refused elements are NaN.
  const UnorderedHashSet base = testing::Union(inclusion, conditioning);
  int stored = 0, allowed = 0;
  for (int e = 0; e < n; ++e) {
    const float g = ancillary.singleton_gains[static_cast<std::size_t>(e)];
    if (base.contains(e)) {
      EXPECT_TRUE(std::isnan(g)) << e;
      continue;
    }
    if (constraint.IsUnionFeasible(e, inclusion)) ++allowed;
    if (std::isnan(g)) continue;
    ++stored;
    UnorderedHashSet grown = base;
    grown.insert(e);
    const double gain = f->Evaluate(grown) - f->Evaluate(base);
    EXPECT_NEAR(g, gain, testing::Eps<T>(64) + std::abs(gain) * FLT_EPSILON);
  }
  EXPECT_EQ(stored, allowed);
  EXPECT_GT(stored, n / 2);
  EXPECT_EQ(ancillary.singleton_gains[static_cast<std::size_t>(first.order[0])], first.gains[0]);

  const GreedyRun second = RunAndCheck<T>(*f, constraint, kNoLimit, all, inclusion, conditioning,
                                          kNeverStopOnGain, &ancillary, plain);
  EXPECT_EQ(second.order, first.order);
  EXPECT_EQ(second.gains, first.gains);
  EXPECT_EQ(second.value, first.value);
  EXPECT_EQ(ancillary.number_of_gain_evaluations, first_evaluations - stored);

  // A filled array of the wrong length is refused.
  ancillary.singleton_gains.pop_back();
  EXPECT_THROW(
      RunAndCheck<T>(*f, constraint, 5, all, inclusion, conditioning, kNeverStopOnGain, &ancillary),
      std::invalid_argument);
}

TEST(GreedyMax, Errors) {
  const int n = 6;
  const ModularFunction<double> f(std::vector<double>(n, 1.0));
  const ModularFunction<double> decreasing(std::vector<double>{1.0, -1.0, 2.0, 0.0, 1.0, 1.0});
  const CardinalitySetConstraint constraint(n, 2), wide(n + 1, 2);
  const UnorderedHashSet all = FullSet(n), empty(n), other(n + 1);
  const UnorderedHashSet two = SetOf(n, {0, 1}), three = SetOf(n, {0, 1, 2});
  std::vector<int> order;
  const auto greedy = [&](const DownClosedSetConstraint& c, int limit, const Set& candidates,
                          const Set& inclusion, const Set& conditioning) {
    GreedyConstrainedMaximization(f, c, limit, candidates, inclusion, conditioning,
                                  kNeverStopOnGain, nullptr, &order, nullptr, nullptr, nullptr);
  };
  const auto bound = [&](const SubmodularFunction& g, int k, const Set& candidates,
                         const Set& inclusion) {
    UpperBoundValueGreedyConstrainedMaximization(g, k, candidates, inclusion, empty, nullptr,
                                                 nullptr, nullptr, nullptr);
  };
  const std::string sizes = "Invalid argument, all ground set sizes must match.";
  const std::string g = "GreedyConstrainedMaximization",
                    b = "UpperBoundValueGreedyConstrainedMaximization";
  testing::ExpectLocatedErrors(
      "greedy_max",
      {{[&] { greedy(wide, 2, all, empty, empty); }, g, sizes},
       {[&] { greedy(constraint, 2, other, empty, empty); }, g, sizes},
       {[&] { greedy(constraint, 2, all, other, empty); }, g, sizes},
       {[&] { greedy(constraint, 2, all, empty, other); }, g, sizes},
       {[&] { greedy(constraint, 5, all, three, empty); }, g,
        "Inclusion set of size 3 must itself be feasible, but constraint feasibility returns false "
        "and extra cardinality limit is 5."},
       {[&] { greedy(constraint, 1, all, two, empty); }, g,
        "Inclusion set of size 2 must itself be feasible, but constraint feasibility returns true "
        "and extra cardinality limit is 1."},
       {[&] { bound(decreasing, 2, all, empty); }, b,
        "Bound only applies to a monotone non-decreasing submodular function."},
       {[&] { bound(f, 0, all, empty); }, b, "Must have positive cardinality constraint, got 0."},
       {[&] { bound(f, 2, all, three); }, b, "Inclusion set must itself be feasible, <=2."},
       {[&] { bound(f, 2, other, empty); }, b, sizes}});
  // On a modular function the bound is tight: the k largest weights.
  const ModularFunction<double> weights(std::vector<double>{1.0, 5.0, 2.0, 4.0, 3.0, 0.5});
  EXPECT_DOUBLE_EQ(UpperBoundValueGreedyConstrainedMaximization(weights, 3, all, empty, empty,
                                                                nullptr, nullptr, nullptr, nullptr),
                   12.0);
}

TYPED_TEST(GreedyMaxTest, AcceleratedAncillaryResultsAreReused) {
  using T = TypeParam;
  std::mt19937 engine(44);
  const int n = 90;
  auto f = testing::RandomMixture<T>(n, engine);
  const CardinalitySetConstraint constraint(n, 12);
  const UnorderedHashSet all = FullSet(n);
  const UnorderedHashSet inclusion = SetOf(n, {3, 50}), conditioning = SetOf(n, {7, 8, 9});
  // A caller asking for the value alone gets it.
  {
    const CardinalitySetConstraint ten(n, 10);
    const UnorderedHashSet one = SetOf(n, {3});
    const GreedyRun warm = Accelerated(*f, ten, 3, all, one, conditioning);
    double value = -1.0;
    EXPECT_TRUE(AcceleratedGreedyConstrainedMaximization(*f, ten, 3, all, one, conditioning, 0.0,
                                                         kNeverStopOnGain, nullptr, nullptr,
                                                         nullptr, &value, nullptr));
    EXPECT_EQ(value, warm.value);
  }
  // The ancillary array filled by one run serves the next, with the same result.
  greedy_max::GreedyAncillaryResults ancillary;
  const GreedyRun filled = Accelerated(*f, constraint, kNoLimit, all, inclusion, conditioning, 0.0,
                                       kNeverStopOnGain, &ancillary);
  ASSERT_TRUE(ancillary.singleton_gains_precomputed);
  const GreedyRun reused = Accelerated(*f, constraint, kNoLimit, all, inclusion, conditioning, 0.0,
                                       kNeverStopOnGain, &ancillary);
  EXPECT_EQ(reused.order, filled.order);
  EXPECT_EQ(reused.gains, filled.gains);
  EXPECT_EQ(reused.value, filled.value);
  EXPECT_EQ(reused.evaluations, filled.evaluations - (n - 5));
  // The standard greedy reads the same array.
  GreedyRun standard(n);
  GreedyConstrainedMaximization(*f, constraint, kNoLimit, all, inclusion, conditioning,
                                kNeverStopOnGain, &standard.solution, &standard.order,
                                &standard.gains, &standard.value, &ancillary);
  if (FloatTieFree(*f, constraint, all, inclusion, conditioning, standard.order)) {
    EXPECT_EQ(standard.order, filled.order);
  }
}

TEST(AcceleratedGreedy, LazyStepsAndThreshold) {
  // Unnormalized facility location over three landmarks:
  //   e0 = (4, 0, 0), e1 = (2, 1, 0), e2 = (0, 0, 1), e3 = (4, 0, 0).
  FacilityLocationFunction<double>::DenseMatrix similarities(4, 3);
  similarities << 4, 0, 0, 2, 1, 0, 0, 0, 1, 4, 0, 0;
  FacilityLocationFunction<double> f(similarities);
  f.ComputeNormalizationConstant(true);
  const int n = 4;
  const UnorderedHashSet all = FullSet(n), empty(n);
  const CardinalitySetConstraint two(n, 2);

  // After e0 or e3 (gain 4, fresh == stale: taken at once), the other one
  // falls to 0 and sinks; e1 falls from 3 to 1, equal to e2's stale 1: it
  // stays on top and is accepted with 1. Evaluations: 4 singletons + 3.
  {
    const GreedyRun run = Accelerated(f, two, kNoLimit, all, empty, empty);
    ASSERT_EQ(run.order.size(), 2u);
    EXPECT_TRUE(run.order[0] == 0 || run.order[0] == 3);
    EXPECT_EQ(run.order[1], 1);
    EXPECT_EQ(run.gains, (std::vector<float>{4.0f, 1.0f}));
    EXPECT_EQ(run.evaluations, 7);
  }

  // The threshold: with fraction 1, |candidates| = 4 > k = 2, so τ is the
  // third largest singleton gain, 3 (e1). e2 (gain 1) never enters the heap;
  // after e0, e3 and e1 fall below τ and are dropped: one element only.
  EXPECT_EQ(SmallestWorthwhileGainForGreedy(f, 2, all, empty, 1.0), 3.0);
  EXPECT_EQ(SmallestWorthwhileGainForGreedy(f, 2, all, empty, 0.5),
            static_cast<double>(std::numeric_limits<float>::lowest()));
  EXPECT_EQ(SmallestWorthwhileGainForGreedy(f, 2, all, SetOf(n, {0, 1}), 1.0),
            static_cast<double>(std::numeric_limits<float>::lowest()));
  {
    const GreedyRun run = Accelerated(f, two, kNoLimit, all, empty, empty, 1.0);
    ASSERT_EQ(run.order.size(), 1u);
    EXPECT_TRUE(run.order[0] == 0 || run.order[0] == 3);
  }
  // The threshold against a sort of the singleton gains of a modular function.
  std::mt19937 engine(1);
  std::vector<double> weights(50);
  for (double& w : weights) w = std::uniform_real_distribution<double>(-1.0, 1.0)(engine);
  const ModularFunction<double> modular(weights);
  std::vector<double> sorted = weights;
  std::sort(sorted.begin(), sorted.end(), std::greater<double>());
  for (int k : {0, 1, 7, 48}) {
    EXPECT_EQ(SmallestWorthwhileGainForGreedy(modular, k, FullSet(50), UnorderedHashSet(50), 2.0),
              static_cast<double>(static_cast<float>(sorted[static_cast<std::size_t>(k)])));
  }
}

TEST(AcceleratedGreedy, Errors) {
  const int n = 5;
  const ModularFunction<double> f(std::vector<double>(n, 1.0));
  const CardinalitySetConstraint constraint(n, 2);
  const UnorderedHashSet all = FullSet(n), empty(n), other(n + 2);
  std::vector<int> order;
  const auto greedy = [&](int limit, const Set& candidates, const Set& inclusion,
                          const Set& conditioning) {
    AcceleratedGreedyConstrainedMaximization(f, constraint, limit, candidates, inclusion,
                                             conditioning, 0.0, kNeverStopOnGain, nullptr, &order,
                                             nullptr, nullptr, nullptr);
  };
  const std::string function = "AcceleratedGreedyConstrainedMaximization";
  testing::ExpectLocatedErrors<std::invalid_argument>(
      "acceleratedGreedyMax",
      {{[&] { greedy(2, all, empty, other); }, function,
        "All arguments must have same ground set size, got sizes 5,5,5,5,7."},
       {[&] { greedy(2, other, empty, empty); }, function,
        "All arguments must have same ground set size, got sizes 5,5,7,5,5."},
       {[&] {
          greedy(4, all, SetOf(n, {0, 1, 2}), empty);
        },
        function,
        "Inclusion set of size 3 must itself be feasible, but constraint feasibility returns false "
        "and extra "
        "cardinality limit is 4."},
       {[&] { (void)SmallestWorthwhileGainForGreedy(f, 2, all, other, 1.0); },
        "SmallestWorthwhileGainForGreedy", "Ground set sizes 5 != 7, must be the same."}});
}

}  // namespace
}  // namespace velmor
