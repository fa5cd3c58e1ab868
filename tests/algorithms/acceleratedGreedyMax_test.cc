#include "algorithms/acceleratedGreedyMax.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

#include "algorithms/greedy_max.h"
#include "algorithms/greedy_test_util.h"
#include "constraints/CardinalitySetConstraint.h"
#include "constraints/IntersectionOfMatroidsSetConstraint.h"
#include "constraints/PartitionMatroidSetConstraint.h"
#include "functions/ContractionWrapperSetFunction.h"
#include "functions/FacilityLocationFunction.h"
#include "functions/ModularFunction.h"
#include "support/float_types.h"

namespace velmor {
namespace {

using testing::FullSet;
using testing::GreedyRun;
using testing::kNoLimit;
using testing::SetOf;

template <typename T>
class AcceleratedGreedyTest : public ::testing::Test {};
TYPED_TEST_SUITE(AcceleratedGreedyTest, testing::FloatTypes);

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

TYPED_TEST(AcceleratedGreedyTest, SameOrderAndGainsAsStandardAndWholeSetGreedy) {
  using T = TypeParam;
  std::mt19937 engine(2718);
  int compared = 0, decided = 0;
  for (int trial = 0; trial < 45; ++trial) {
    const int n = 20 + static_cast<int>(engine() % 120);
    // Facility location, a mixture, and facility location under a contraction.
    std::unique_ptr<SubmodularFunction> f;
    if (trial % 3 == 2) {
      f = testing::RandomMixture<T>(n, engine);
    } else {
      f = testing::RandomFacilityLocation<T>(n, 5 + static_cast<int>(engine() % 60), engine);
    }
    if (trial % 4 == 1) {
      f = std::make_unique<ContractionWrapperSetFunction<SubmodularFunction>>(
          std::move(f), testing::RandomSet(n, 0.05, engine));
    }
    // Cardinality, a partition matroid, and an intersection of two.
    std::vector<int> blocks_a(static_cast<std::size_t>(n)), blocks_b(static_cast<std::size_t>(n));
    for (int& b : blocks_a) b = static_cast<int>(engine() % 4);
    for (int& b : blocks_b) b = static_cast<int>(engine() % 3);
    const CardinalitySetConstraint cardinality(n, 1 + static_cast<int>(engine() % 15));
    const PartitionMatroidSetConstraint<std::vector<int>> partition(blocks_a,
                                                                    std::vector<int>{3, 1, 0, 4});
    std::vector<std::unique_ptr<MatroidSetConstraint>> members;
    members.push_back(std::make_unique<PartitionMatroidSetConstraint<std::vector<int>>>(
        blocks_a, std::vector<int>{3, 2, 2, 2}));
    members.push_back(std::make_unique<PartitionMatroidSetConstraint<std::vector<int>>>(
        blocks_b, std::vector<int>{2, 3, 1}));
    const IntersectionOfMatroidsSetConstraint intersection(std::move(members));

    // Conditioning and candidates at random; every other trial a warm start.
    UnorderedHashSet candidates(n), conditioning(n), inclusion(n);
    for (int e = 0; e < n; ++e) {
      const unsigned r = engine() % 12;
      if (r == 0) conditioning.insert(e);
      if (r != 1) candidates.insert(e);
      if (trial % 2 == 1 && r > 1 && inclusion.empty() && blocks_a[e] == 0) inclusion.insert(e);
    }
    for (const DownClosedSetConstraint* constraint :
         std::initializer_list<const DownClosedSetConstraint*>{&cardinality, &partition,
                                                               &intersection}) {
      for (int limit : {kNoLimit, 5}) {
        const GreedyRun standard =
            Standard(*f, *constraint, limit, candidates, inclusion, conditioning);
        // The standard greedy against the whole-set greedy, when each step has
        // a clear winner.
        const auto naive =
            testing::NaiveGreedy(*f, *constraint, limit, candidates, inclusion, conditioning);
        if (naive.smallest_margin >= 1e-4) {
          ++decided;
          EXPECT_EQ(standard.order, naive.order);
        }
        if (!FloatTieFree(*f, *constraint, candidates, inclusion, conditioning, standard.order))
          continue;
        ++compared;
        // The accelerated greedy's limit counts the elements it adds, the
        // standard greedy's the whole solution.
        const int added = limit == kNoLimit ? limit : limit - inclusion.size();
        const GreedyRun accelerated =
            Accelerated(*f, *constraint, added, candidates, inclusion, conditioning);
        ASSERT_EQ(accelerated.order, standard.order) << "trial " << trial;
        ASSERT_EQ(accelerated.gains, standard.gains) << "trial " << trial;
        EXPECT_EQ(accelerated.value, standard.value);
        testing::ExpectValidRun(*f, *constraint, limit, inclusion, conditioning, accelerated,
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
  EXPECT_GT(compared, 200);
  EXPECT_GT(decided, 100);
}

TYPED_TEST(AcceleratedGreedyTest, AncillaryResultsAreReused) {
  using T = TypeParam;
  std::mt19937 engine(44);
  const int n = 90;
  auto f = testing::RandomMixture<T>(n, engine);
  const CardinalitySetConstraint constraint(n, 12);
  const UnorderedHashSet all = FullSet(n);
  const UnorderedHashSet inclusion = SetOf(n, {3, 50}), conditioning = SetOf(n, {7, 8, 9});
  // The limit counts the elements added, not the warm start; a caller asking
  // for the value alone gets it.
  {
    const CardinalitySetConstraint ten(n, 10);
    const UnorderedHashSet one = SetOf(n, {3});
    const GreedyRun warm = Accelerated(*f, ten, 3, all, one, conditioning);
    EXPECT_EQ(warm.order.size(), 3u);
    EXPECT_EQ(warm.solution.size(), 4);
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

  // The gain permit, applied to the accepted float gain.
  const ModularFunction<double> levels(std::vector<double>{0.0, -1.0, -2.0, 0.0});
  EXPECT_TRUE(
      Accelerated(levels, two, kNoLimit, all, empty, empty, 0.0, kStopAtZeroGain).order.empty());
  EXPECT_EQ(
      Accelerated(levels, two, kNoLimit, all, empty, empty, 0.0, kStopAtNegativeGain).order.size(),
      2u);
  const ModularFunction<double> negative(std::vector<double>{-0.5, -1.0, -2.0, -3.0});
  EXPECT_EQ(Accelerated(negative, two, kNoLimit, all, empty, empty, 0.0, kStopAtZeroGain).order,
            (std::vector<int>{0, 1}));
  EXPECT_TRUE(Accelerated(negative, two, kNoLimit, all, empty, empty, 0.0, kStopAtNegativeGain)
                  .order.empty());

  // A constraint that refuses the top: dropped, the next one taken.
  const PartitionMatroidSetConstraint<std::vector<int>> one_of_e0_e3(std::vector<int>{0, 1, 2, 0},
                                                                     std::vector<int>{1, 1, 1});
  const GreedyRun run = Accelerated(f, one_of_e0_e3, kNoLimit, all, empty, empty);
  EXPECT_EQ(run.order.size(), 3u);
  EXPECT_TRUE(one_of_e0_e3.IsFeasible(run.solution));
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
