#include "algorithms/random_min_max.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <stdexcept>
#include <vector>

#include "algorithms/greedy_test_util.h"
#include "constraints/CardinalitySetConstraint.h"
#include "functions/FacilityLocationFunction.h"
#include "functions/ModularFunction.h"

namespace velmor {
namespace {

using testing::FullSet;
using testing::SetOf;

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
