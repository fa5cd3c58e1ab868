#include "constraints/CardinalitySetConstraint.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "constraints/constraint_test_util.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {
namespace {

using testing::CheckAgainstOracle;
using testing::ExpectLocatedError;
using testing::SetOf;

constexpr const char* kFile = "CardinalitySetConstraint";

TEST(CardinalitySetConstraint, AgreesWithBruteForce) {
  for (int n : {1, 2, 7, 16, 17}) {
    for (int k : {0, 1, 3, n - 1, n}) {
      if (k < 0 || k > n) continue;  // k > n: no set has size k, so none is maximal.
      const CardinalitySetConstraint constraint(n, k);
      const auto feasible = [k](const std::vector<bool>& members) {
        int count = 0;
        for (bool m : members) count += m ? 1 : 0;
        return count <= k;
      };
      CheckAgainstOracle(constraint, feasible, 11u * static_cast<unsigned>(n + k), 3, true);
      if (n <= 7) testing::CheckRankAndCircuits(constraint, feasible);
      // A clone answers as the original.
      const auto copy = constraint.Clone();
      CheckAgainstOracle(dynamic_cast<const DownClosedSetConstraint&>(*copy), feasible, 5u, 1,
                         false);
    }
  }
}

TEST(CardinalitySetConstraint, Rules) {
  // k = 0: the empty set is feasible and maximal, nothing can be added.
  const CardinalitySetConstraint none(5, 0);
  const UnorderedHashSet empty(5);
  EXPECT_TRUE(none.IsFeasible(empty));
  EXPECT_TRUE(none.IsMaximal(empty));
  for (int e = 0; e < 5; ++e) EXPECT_FALSE(none.IsDisjointUnionFeasible(e, empty));
  EXPECT_FALSE(none.MakeGrowingContext()->IsDisjointUnionFeasible(0));

  // Union with an element already present, at the limit.
  const CardinalitySetConstraint two(6, 2);
  const UnorderedHashSet full = SetOf(6, {1, 4});
  EXPECT_TRUE(two.IsUnionFeasible(4, full));
  EXPECT_FALSE(two.IsUnionFeasible(3, full));
  // The disjoint question does not look at membership.
  EXPECT_FALSE(two.IsDisjointUnionFeasible(4, full));

  // A set over a smaller ground set is judged normally.
  const UnorderedHashSet small = SetOf(3, {0, 2});
  EXPECT_TRUE(two.IsFeasible(small));
  EXPECT_FALSE(two.IsUnionFeasible(1, small));
  EXPECT_TRUE(two.IsMaximal(small));

  EXPECT_EQ(two.MaximumSolutionSize(), 2);

  // Without also_insert the context counts the element but the set stays.
  UnorderedHashSet s = SetOf(6, {2});
  auto context = two.MakeGrowingContextExternal(s);
  EXPECT_FALSE(context->AddElementToContext(2, s, true));
  EXPECT_TRUE(context->AddNewElementToContext(3, s, false));
  EXPECT_FALSE(s.contains(3));
  EXPECT_TRUE(context->IsMaximal(s));
  EXPECT_FALSE(context->IsDisjointUnionFeasible(5, s));
}

TEST(CardinalitySetConstraint, Errors) {
  // The constructor checks n before k. With larger ground sets, the union
  // questions have no blank after "!=". Elements outside [0, n) everywhere.
  const CardinalitySetConstraint constraint(4, 2);
  const UnorderedHashSet large(5), s(4);
  auto context = constraint.MakeGrowingContext();
  const std::string with_blank =
      "Invalid argument, set.GroundSetSize()=5 != constraint.GroundSetSize()=4.";
  const std::string without_blank =
      "Invalid argument, set.GroundSetSize()=5 !=constraint.GroundSetSize()=4.";
  std::vector<testing::ErrorCase> cases = {
      {[] { CardinalitySetConstraint(0, -1); }, "CardinalitySetConstraint",
       "Invalid argument, ground_set_size=0."},
      {[] { CardinalitySetConstraint(3, -1); }, "CardinalitySetConstraint",
       "Invalid argument, size_limit=-1."},
      {[&] { (void)constraint.IsFeasible(large); }, "IsFeasible", with_blank},
      {[&] { (void)constraint.IsUnionFeasible(0, large); }, "IsUnionFeasible", without_blank},
      {[&] { (void)constraint.IsDisjointUnionFeasible(0, large); }, "IsDisjointUnionFeasible",
       without_blank},
      {[&] { (void)constraint.MakeGrowingContext(large); }, "AssignContext", with_blank},
  };
  for (int e : {-1, 4}) {
    const std::string text = "Invalid element = " + std::to_string(e) + ".";
    cases.push_back({[&, e] { (void)constraint.IsUnionFeasible(e, s); }, "IsUnionFeasible", text});
    cases.push_back({[&, e] { (void)constraint.IsDisjointUnionFeasible(e, s); },
                     "IsDisjointUnionFeasible", text});
    cases.push_back(
        {[&, e] { (void)context->IsDisjointUnionFeasible(e); }, "IsDisjointUnionFeasible", text});
    // The owning context's generic addition names the base class.
    ExpectLocatedError<std::invalid_argument>([&] { (void)context->AddElementToContext(e, true); },
                                              "SetConstraint", "AddElementToContext", text);
  }
  testing::ExpectLocatedErrors<std::invalid_argument>(kFile, cases);
  EXPECT_TRUE(context->IsDisjointUnionFeasible(0));
  EXPECT_EQ(context->CurrentSet().size(), 0);
}

}  // namespace
}  // namespace velmor
