#include "algorithms/greedy_max.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

#include "algorithms/PartialEnumeration.h"
#include "algorithms/greedy_test_util.h"
#include "constraints/CardinalitySetConstraint.h"
#include "constraints/IntersectionOfMatroidsSetConstraint.h"
#include "constraints/PartitionMatroidSetConstraint.h"
#include "functions/ContractionWrapperSetFunction.h"
#include "functions/FacilityLocationFunction.h"
#include "functions/MixtureSetFunction.h"
#include "functions/ModularFunction.h"
#include "functions/SparseFacilityLocationFunction.h"
#include "functions/SumSumDispersionFunction.h"
#include "utils/logging.h"

namespace velmor {
namespace {

using testing_util::FullSet;
using testing_util::MakeSet;

template <typename T>
class GreedyMaxTest : public ::testing::Test {};
using ElementTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(GreedyMaxTest, ElementTypes);

// Runs the standard greedy with every output and checks what must hold of
// any run: gains are the marginal gains of the prefixes, the value is
// f(solution ∪ C) - f(C), the solution is inclusion plus the order, and
// conditioning is never chosen.
struct GreedyRun {
  UnorderedHashSet solution;
  std::vector<int> order;
  std::vector<float> gains;
  double value = 0.0;
};

template <typename T>
GreedyRun RunAndCheck(const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
                      int limit, const Set& candidates, const Set& inclusion,
                      const Set& conditioning, GainPermit permit,
                      greedy_max::GreedyAncillaryResults* ancillary = nullptr,
                      const greedy_max::StandardGreedyOptions& options = {}) {
  GreedyRun run;
  EXPECT_TRUE(GreedyConstrainedMaximization(f, constraint, limit, candidates, inclusion,
                                            conditioning, permit, &run.solution, &run.order,
                                            &run.gains, &run.value, ancillary, options));
  const int n = f.GroundSetSize();
  const double tolerance = 64 * std::numeric_limits<T>::epsilon();
  UnorderedHashSet prefix(n);
  prefix.insertSet(inclusion);
  prefix.insertSet(conditioning);
  EXPECT_EQ(run.order.size(), run.gains.size());
  for (std::size_t i = 0; i < run.order.size(); ++i) {
    const int e = run.order[i];
    EXPECT_TRUE(candidates.contains(e));
    EXPECT_FALSE(prefix.contains(e));
    const double before = f.Evaluate(prefix);
    prefix.insert(e);
    // Gains are stored as float.
    const double gain = f.Evaluate(prefix) - before;
    EXPECT_NEAR(run.gains[i], gain, tolerance + std::abs(gain) * FLT_EPSILON) << i;
  }
  EXPECT_NEAR(run.value, f.Evaluate(prefix) - f.Evaluate(conditioning), tolerance);
  EXPECT_EQ(run.solution.size(), inclusion.size() + static_cast<int>(run.order.size()));
  for (int v : inclusion) EXPECT_TRUE(run.solution.contains(v));
  for (int v : run.order) EXPECT_TRUE(run.solution.contains(v));
  EXPECT_TRUE(constraint.IsFeasible(run.solution));
  EXPECT_LE(run.solution.size(), limit);
  return run;
}

TYPED_TEST(GreedyMaxTest, AgreesWithWholeSetGreedy) {
  using T = TypeParam;
  std::mt19937 engine(31);
  int decided = 0;
  for (int trial = 0; trial < 24; ++trial) {
    const int n = 8 + static_cast<int>(engine() % 40);
    auto f =
        testing_util::RandomFacilityLocation<T>(n, 1 + static_cast<int>(engine() % 30), engine);
    std::vector<int> mapping(static_cast<std::size_t>(n));
    for (int& b : mapping) b = static_cast<int>(engine() % 3);
    const PartitionMatroidSetConstraint<std::vector<int>> partition(mapping,
                                                                    std::vector<int>{2, 1, 3});
    const CardinalitySetConstraint cardinality(n, 1 + static_cast<int>(engine() % 6));
    // Conditioning and inclusion of a few elements, candidates most of V.
    UnorderedHashSet candidates(n), inclusion(n), conditioning(n);
    for (int e = 0; e < n; ++e) {
      const unsigned r = engine() % 10;
      if (r == 0) conditioning.insert(e);
      if (r != 1) candidates.insert(e);
    }
    for (int e = 0; e < n && inclusion.size() < 1; ++e) {
      if (!conditioning.contains(e) && mapping[static_cast<std::size_t>(e)] == 0)
        inclusion.insert(e);
    }
    for (const DownClosedSetConstraint* constraint :
         std::initializer_list<const DownClosedSetConstraint*>{&partition, &cardinality}) {
      const int limit = trial % 2 == 0 ? 2147483647 : 4;
      const GreedyRun run = RunAndCheck<T>(*f, *constraint, limit, candidates, inclusion,
                                           conditioning, kNeverStopOnGain);
      const auto naive =
          testing_util::NaiveGreedy(*f, *constraint, limit, candidates, inclusion, conditioning);
      // Only a clear winner at every step decides the order.
      if (naive.smallest_margin < 1e-4) continue;
      ++decided;
      EXPECT_EQ(run.order, naive.order);
    }
  }
  EXPECT_GT(decided, 20);
}

TYPED_TEST(GreedyMaxTest, BruteForceGuaranteeAndUpperBound) {
  using T = TypeParam;
  std::mt19937 engine(5);
  for (int trial = 0; trial < 30; ++trial) {
    const int n = 4 + static_cast<int>(engine() % 9);  // n <= 12
    const int k = 1 + static_cast<int>(engine() % 4);
    std::unique_ptr<SubmodularFunction> f;
    if (trial % 2 == 0) {
      f = testing_util::RandomFacilityLocation<T>(n, 1 + static_cast<int>(engine() % 8), engine);
    } else {
      f = testing_util::RandomMixture<T>(n, engine);
    }
    const CardinalitySetConstraint constraint(n, k);
    const UnorderedHashSet empty(n);
    const UnorderedHashSet all = FullSet(n);
    const GreedyRun run =
        RunAndCheck<T>(*f, constraint, 2147483647, all, empty, empty, kNeverStopOnGain);
    ASSERT_EQ(static_cast<int>(run.order.size()), std::min(k, n));

    double optimum = -DBL_MAX;
    for (unsigned mask = 0; mask < (1u << n); ++mask) {
      if (__builtin_popcount(mask) > k) continue;
      UnorderedHashSet s(n);
      for (int e = 0; e < n; ++e) {
        if (mask & (1u << e)) s.insert(e);
      }
      optimum = std::max(optimum, f->Evaluate(s));
    }
    const double tolerance = 64 * std::numeric_limits<T>::epsilon();
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

    // With a warm start and conditioning, the bound still covers the
    // constrained optimum max g(S), inclusion ⊆ S, |S| <= k.
    if (n >= 6 && k >= 2) {
      const UnorderedHashSet inclusion = MakeSet(n, {0});
      const UnorderedHashSet conditioning = MakeSet(n, {1});
      const double conditioned = f->Evaluate(conditioning);
      double restricted_optimum = -DBL_MAX;
      for (unsigned mask = 0; mask < (1u << n); ++mask) {
        if (!(mask & 1u) || __builtin_popcount(mask) > k) continue;
        UnorderedHashSet s = conditioning;
        for (int e = 0; e < n; ++e) {
          if (mask & (1u << e)) s.insert(e);
        }
        restricted_optimum = std::max(restricted_optimum, f->Evaluate(s) - conditioned);
      }
      double greedy_value = 0.0;
      const double restricted_bound = UpperBoundValueGreedyConstrainedMaximization(
          *f, k, all, inclusion, conditioning, nullptr, nullptr, nullptr, &greedy_value);
      EXPECT_GE(restricted_bound, restricted_optimum - tolerance);
      EXPECT_LE(greedy_value, restricted_optimum + tolerance);
    }
  }
}

TYPED_TEST(GreedyMaxTest, TiesAndGainPermit) {
  using T = TypeParam;
  // All gains equal: the order is the iteration order of the remaining
  // candidates (candidates less inclusion and conditioning).
  {
    const int n = 40;
    const ModularFunction<T> f(std::vector<T>(n, T(0.25)));
    const CardinalitySetConstraint constraint(n, 10);
    const UnorderedHashSet candidates = FullSet(n);
    const UnorderedHashSet inclusion = MakeSet(n, {3, 17});
    const UnorderedHashSet conditioning = MakeSet(n, {5});
    const GreedyRun run = RunAndCheck<T>(f, constraint, 2147483647, candidates, inclusion,
                                         conditioning, kNeverStopOnGain);
    UnorderedHashSet remaining(n);
    for (int e : candidates) {
      if (!inclusion.contains(e) && !conditioning.contains(e)) remaining.insert(e);
    }
    std::vector<int> expected;
    while (static_cast<int>(expected.size()) < 8) {
      expected.push_back(*remaining.begin());
      remaining.remove(expected.back());
    }
    EXPECT_EQ(run.order, expected);
  }

  // The gain permit, on a modular function whose best gain is `top`.
  const auto first_step = [](T top, GainPermit permit) {
    const int n = 4;
    const ModularFunction<T> f(std::vector<T>{top - T(4), top, top - T(2), top - T(8)});
    const CardinalitySetConstraint constraint(n, 4);
    const UnorderedHashSet all = FullSet(n), empty(n);
    std::vector<int> order;
    EXPECT_TRUE(GreedyConstrainedMaximization(f, constraint, 4, all, empty, empty, permit, nullptr,
                                              &order, nullptr, nullptr, nullptr));
    return order;
  };
  {
    testing_util::OptmLogCapture log;
    // 0: stops on exactly 0.0, not on a negative gain.
    EXPECT_TRUE(first_step(T(0), kStopAtZeroGain).empty());
    EXPECT_TRUE(log.Contains("Done since found negaive gain."));
  }
  EXPECT_EQ(first_step(T(-0.5), kStopAtZeroGain).size(), 4u);
  // 1: a gain of 0.0 is still added, a negative one stops.
  EXPECT_EQ(first_step(T(0), kStopAtNegativeGain), (std::vector<int>{1}));
  EXPECT_TRUE(first_step(T(-0.5), kStopAtNegativeGain).empty());
  // Any other value never stops.
  EXPECT_EQ(first_step(T(-0.5), static_cast<GainPermit>(7)).size(), 4u);
  if (std::is_same_v<T, double>) {
    EXPECT_TRUE(first_step(T(-1e-300), kStopAtNegativeGain).empty());
    EXPECT_EQ(first_step(T(-1e-300), kStopAtZeroGain).size(), 4u);
  }
}

TYPED_TEST(GreedyMaxTest, EdgeCases) {
  using T = TypeParam;
  std::mt19937 engine(17);
  const int n = 12;
  auto f = testing_util::RandomFacilityLocation<T>(n, 6, engine);
  const UnorderedHashSet all = FullSet(n), empty(n);

  // A saturated constraint: no feasible candidate is left.
  {
    testing_util::OptmLogCapture log;
    const CardinalitySetConstraint three(n, 3);
    const GreedyRun run =
        RunAndCheck<T>(*f, three, 2147483647, all, empty, empty, kNeverStopOnGain);
    EXPECT_EQ(run.order.size(), 3u);
    EXPECT_TRUE(log.Contains("Done since reached ground set size"));
    EXPECT_TRUE(
        log.Contains("Starting greedy max. current_function_eval_context.NumberOfElements() = 0"));
    EXPECT_TRUE(log.Contains("Top of loop: current_function_eval_context.NumberOfElements() = 3"));
    EXPECT_TRUE(log.Contains("Found element_having_max_gain = " + std::to_string(run.order[0])));
  }

  // Inclusion of exactly the limit: nothing is added, the solution is the inclusion.
  {
    const CardinalitySetConstraint loose(n, n);
    const UnorderedHashSet inclusion = MakeSet(n, {1, 4, 9});
    const UnorderedHashSet conditioning = MakeSet(n, {2});
    const GreedyRun run =
        RunAndCheck<T>(*f, loose, 3, all, inclusion, conditioning, kNeverStopOnGain);
    EXPECT_TRUE(run.order.empty());
    EXPECT_EQ(run.solution.size(), 3);
    UnorderedHashSet both = inclusion;
    both.insert(2);
    EXPECT_DOUBLE_EQ(run.value, f->Evaluate(both) - f->Evaluate(conditioning));
  }

  // Conditioning elements are never chosen even when they are candidates.
  {
    const CardinalitySetConstraint loose(n, n);
    const UnorderedHashSet conditioning = MakeSet(n, {0, 6, 7});
    const GreedyRun run =
        RunAndCheck<T>(*f, loose, 2147483647, all, empty, conditioning, kNeverStopOnGain);
    EXPECT_EQ(run.order.size(), static_cast<std::size_t>(n - 3));
    EXPECT_FALSE(run.solution.contains(6));
  }

  // No outputs: false, and no work (the ancillary array stays untouched).
  {
    const CardinalitySetConstraint three(n, 3);
    greedy_max::GreedyAncillaryResults ancillary;
    ancillary.number_of_gain_evaluations = 12345;
    double value = -7.0;
    EXPECT_FALSE(GreedyConstrainedMaximization(*f, three, 3, all, empty, empty, kNeverStopOnGain,
                                               nullptr, nullptr, nullptr, &value, &ancillary));
    EXPECT_EQ(value, -7.0);
    EXPECT_EQ(ancillary.number_of_gain_evaluations, 12345);
    EXPECT_FALSE(ancillary.singleton_gains_precomputed);
  }

  // Limits that allow nothing; empty candidates.
  {
    const CardinalitySetConstraint three(n, 3);
    EXPECT_TRUE(RunAndCheck<T>(*f, three, 0, all, empty, empty, kNeverStopOnGain).order.empty());
    const CardinalitySetConstraint zero(n, 0);
    EXPECT_TRUE(RunAndCheck<T>(*f, zero, 5, all, empty, empty, kNeverStopOnGain).order.empty());
    EXPECT_TRUE(RunAndCheck<T>(*f, three, 5, empty, empty, empty, kNeverStopOnGain).order.empty());
  }

  // The progress report, every second element.
  {
    testing_util::OptmLogCapture log;
    greedy_max::SetProgressLoggingPeriod(2);
    const CardinalitySetConstraint five(n, 5);
    const GreedyRun run = RunAndCheck<T>(*f, five, 2147483647, all, empty, empty, kNeverStopOnGain);
    greedy_max::SetProgressLoggingPeriod(0);
    int reports = 0;
    for (const std::string& line : log.Lines())
      reports += line.rfind("Found element ", 0) == 0 ? 1 : 0;
    EXPECT_EQ(reports, 3);
    EXPECT_TRUE(log.Contains("Found element 2 in the order, element = " +
                             std::to_string(run.order[2]) + ", gain value = "));
  }

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

TYPED_TEST(GreedyMaxTest, LazyAndThreadedScansChooseAsThePlainScan) {
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

  for (int trial = 0; trial < 10; ++trial) {
    const int n = 20 + static_cast<int>(engine() % 50);
    const int landmarks = 2 + static_cast<int>(engine() % 25);
    // Functions whose computed gains never rise, and mixtures with dispersion
    // (gains that rise: the full scan at every step).
    std::vector<std::unique_ptr<SubmodularFunction>> functions;
    auto fl = std::make_unique<FacilityLocationFunction<T>>(random_matrix(n, landmarks, 0));
    fl->ComputeNormalizationConstant(false);
    functions.push_back(std::make_unique<FacilityLocationFunction<T>>(
        random_matrix(n, 1 + landmarks % 4, 1 + trial % 3)));
    typename SparseFacilityLocationFunction<T>::SparseMatrix sparse =
        random_matrix(n, landmarks, 0).sparseView(1.0, 0.6);
    functions.push_back(
        std::make_unique<SparseFacilityLocationFunction<T>>(std::move(sparse), false));
    functions.push_back(testing_util::RandomMixture<T>(n, engine));
    UnorderedHashSet contraction(n);
    for (int e = 0; e < n; e += 7) contraction.insert(e);
    functions.push_back(
        std::make_unique<ContractionWrapperSetFunction<SubmodularFunction>>(*fl, contraction));
    const SumSumDispersionFunction<T> dispersion(random_matrix(n, n, 0));
    functions.push_back(std::make_unique<MixtureSetFunction>(fl.get(), &dispersion, 1.0, 0.01));

    std::vector<int> blocks_a(static_cast<std::size_t>(n)), blocks_b(static_cast<std::size_t>(n));
    for (int& b : blocks_a) b = static_cast<int>(engine() % 3);
    for (int& b : blocks_b) b = static_cast<int>(engine() % 2);
    const CardinalitySetConstraint cardinality(n, 1 + static_cast<int>(engine() % 12));
    const PartitionMatroidSetConstraint<std::vector<int>> partition(blocks_a,
                                                                    std::vector<int>{3, 1, 4});
    std::vector<std::unique_ptr<MatroidSetConstraint>> members;
    members.push_back(std::make_unique<PartitionMatroidSetConstraint<std::vector<int>>>(
        blocks_a, std::vector<int>{2, 5, 3}));
    members.push_back(std::make_unique<PartitionMatroidSetConstraint<std::vector<int>>>(
        blocks_b, std::vector<int>{4, 2}));
    const IntersectionOfMatroidsSetConstraint intersection(std::move(members));

    // A restriction of the candidates, a warm start (block 0 of both
    // partitions) and conditioning.
    UnorderedHashSet candidates(n), inclusion(n), conditioning(n);
    for (int e = 0; e < n; ++e) {
      const unsigned r = engine() % 10;
      if (r == 0) conditioning.insert(e);
      if (r > 1) candidates.insert(e);
      if (r == 2 && inclusion.empty() && blocks_a[static_cast<std::size_t>(e)] == 0 &&
          blocks_b[static_cast<std::size_t>(e)] == 0) {
        inclusion.insert(e);
      }
    }
    for (const auto& f : functions) {
      for (const DownClosedSetConstraint* constraint :
           std::initializer_list<const DownClosedSetConstraint*>{&cardinality, &partition,
                                                                 &intersection}) {
        const int limit = trial % 2 == 0 ? 2147483647 : 6;
        testing_util::ExpectSameAsPlainScan(*f, *constraint, limit, candidates, inclusion,
                                            conditioning);
        testing_util::ExpectSameAsPlainScan(*f, *constraint, limit, FullSet(n), UnorderedHashSet(n),
                                            UnorderedHashSet(n), kStopAtNegativeGain);
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
                                             order, gains, value, ancillary, {lazy, 1});
      };
    };
    std::vector<int> orders[2];
    double values[2];
    for (const bool lazy : {false, true}) {
      PartialEnumerationMaximization(*functions[0], cardinality, FullSet(n), UnorderedHashSet(n), 2,
                                     completion(lazy), *logging::GetLogger("optm"), 0, nullptr,
                                     &orders[lazy], nullptr, &values[lazy]);
    }
    EXPECT_EQ(orders[0], orders[1]);
    EXPECT_EQ(values[0], values[1]);

    // Which functions may be evaluated lazily, and that their gains indeed
    // never rose while dispersion's did.
    for (std::size_t i = 0; i + 1 < functions.size(); ++i) {
      EXPECT_TRUE(functions[i]->ComputedGainsNeverRise()) << functions[i]->Description();
      EXPECT_TRUE(testing_util::ComputedGainsNeverRose(*functions[i], n / 2, engine))
          << functions[i]->Description();
    }
    EXPECT_FALSE(functions.back()->ComputedGainsNeverRise());
    EXPECT_FALSE(dispersion.ComputedGainsNeverRise());
    EXPECT_FALSE(testing_util::ComputedGainsNeverRose(dispersion, 3, engine));
  }

  // Enough candidates for the threads to split them; lazy evaluation needs a
  // small part of the plain scan's evaluations.
  {
    const int n = 1500;
    auto f = testing_util::RandomFacilityLocation<T>(n, 40, engine);
    const CardinalitySetConstraint forty(n, 40);
    const UnorderedHashSet all = FullSet(n), empty(n);
    const testing_util::EvaluationCounts counts =
        testing_util::ExpectSameAsPlainScan(*f, forty, 2147483647, all, empty, empty);
    EXPECT_EQ(counts.plain, 40 * n - 40 * 39 / 2);
    EXPECT_LT(counts.lazy * 4, counts.plain);
  }
}

TYPED_TEST(GreedyMaxTest, AncillaryResultsAreReused) {
  using T = TypeParam;
  std::mt19937 engine(8);
  const int n = 60;
  auto f = testing_util::RandomMixture<T>(n, engine);
  std::vector<int> mapping(static_cast<std::size_t>(n));
  for (int& b : mapping) b = static_cast<int>(engine() % 4);
  const PartitionMatroidSetConstraint<std::vector<int>> constraint(mapping,
                                                                   std::vector<int>{2, 2, 1, 3});
  const UnorderedHashSet all = FullSet(n);
  const UnorderedHashSet inclusion = MakeSet(n, {4});
  const UnorderedHashSet conditioning = MakeSet(n, {9, 10});

  greedy_max::GreedyAncillaryResults ancillary;
  // The plain scan: every evaluation it saves is one the array saves.
  const greedy_max::StandardGreedyOptions plain{false, 1};
  const GreedyRun first = RunAndCheck<T>(*f, constraint, 2147483647, all, inclusion, conditioning,
                                         kNeverStopOnGain, &ancillary, plain);
  ASSERT_TRUE(ancillary.singleton_gains_precomputed);
  ASSERT_EQ(ancillary.singleton_gains.size(), static_cast<std::size_t>(n));
  const std::int64_t first_evaluations = ancillary.number_of_gain_evaluations;
  // The array holds the first step's gains; excluded elements are NaN.
  UnorderedHashSet base = inclusion;
  base.insertSet(conditioning);
  int stored = 0;
  int allowed = 0;
  for (int e = 0; e < n; ++e) {
    if (!base.contains(e) && constraint.IsUnionFeasible(e, inclusion)) ++allowed;
    const float g = ancillary.singleton_gains[static_cast<std::size_t>(e)];
    if (base.contains(e)) {
      EXPECT_TRUE(std::isnan(g)) << e;
      continue;
    }
    if (std::isnan(g)) continue;  // refused by the constraint at the first step
    ++stored;
    UnorderedHashSet grown = base;
    grown.insert(e);
    const double gain = f->Evaluate(grown) - f->Evaluate(base);
    EXPECT_NEAR(g, gain, 64 * std::numeric_limits<T>::epsilon() + std::abs(gain) * FLT_EPSILON);
  }
  EXPECT_EQ(stored, allowed);
  EXPECT_GT(stored, n / 2);
  EXPECT_EQ(ancillary.singleton_gains[static_cast<std::size_t>(first.order[0])], first.gains[0]);

  const GreedyRun second = RunAndCheck<T>(*f, constraint, 2147483647, all, inclusion, conditioning,
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
  const UnorderedHashSet two = MakeSet(n, {0, 1}), three = MakeSet(n, {0, 1, 2});
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
  testing_util::ExpectErrors<std::invalid_argument>(
      "greedy_max",
      {{[&] { greedy(wide, 2, all, empty, empty); }, g, sizes},
       {[&] { greedy(constraint, 2, other, empty, empty); }, g, sizes},
       {[&] { greedy(constraint, 2, all, other, empty); }, g, sizes},
       {[&] { greedy(constraint, 2, all, empty, other); }, g, sizes},
       {[&] { greedy(constraint, 5, all, three, empty); }, g,
        "Inclusion set of size 3 must itself be feasible, but constraint feasibility returns false "
        "and extra "
        "cardinality limit is 5."},
       {[&] { greedy(constraint, 1, all, two, empty); }, g,
        "Inclusion set of size 2 must itself be feasible, but constraint feasibility returns true "
        "and extra "
        "cardinality limit is 1."},
       // The bound's preconditions.
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

}  // namespace
}  // namespace velmor
