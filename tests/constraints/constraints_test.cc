#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "constraints/CardinalitySetConstraint.h"
#include "constraints/IntersectionOfMatroidsSetConstraint.h"
#include "constraints/PartitionMatroidSetConstraint.h"
#include "constraints/constraint_test_util.h"
#include "sets/UnorderedHashSet.h"
#include "support/temp_files.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

constexpr const char* kCardinality = "CardinalitySetConstraint";
constexpr const char* kPartition = "PartitionMatroidSetConstraint";
constexpr const char* kIntersection = "IntersectionOfMatroidsSetConstraint";

using testing::CheckAgainstOracle;
using testing::ExpectLocatedError;
using testing::SetOf;

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
  // The disjoint question does not look at membership.
  const CardinalitySetConstraint two(6, 2);
  EXPECT_FALSE(two.IsDisjointUnionFeasible(4, SetOf(6, {1, 4})));

  // A set over a smaller ground set is judged normally.
  const UnorderedHashSet small = SetOf(3, {0, 2});
  EXPECT_TRUE(two.IsFeasible(small));
  EXPECT_FALSE(two.IsUnionFeasible(1, small));
  EXPECT_TRUE(two.IsMaximal(small));

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
  testing::ExpectLocatedErrors<std::invalid_argument>(kCardinality, cases);
  EXPECT_TRUE(context->IsDisjointUnionFeasible(0));
  EXPECT_EQ(context->CurrentSet().size(), 0);
}

using Partition = PartitionMatroidSetConstraint<std::vector<int>>;
using exception::InputDataError;
using testing::PartitionsOracle;

struct RandomPartition {
  std::vector<int> mapping;
  std::vector<int> limits;
};

RandomPartition MakeRandomPartition(std::mt19937& engine, int n, int blocks) {
  RandomPartition p;
  for (int e = 0; e < n; ++e)
    p.mapping.push_back(static_cast<int>(engine() % static_cast<unsigned>(blocks)));
  for (int b = 0; b < blocks; ++b) p.limits.push_back(static_cast<int>(engine() % 4));
  return p;
}

TEST(PartitionMatroidSetConstraint, AgreesWithBruteForce) {
  std::mt19937 engine(2024);
  for (int trial = 0; trial < 30; ++trial) {
    const int n = 1 + static_cast<int>(engine() % (trial < 12 ? 9 : 20));
    const RandomPartition p = MakeRandomPartition(engine, n, 1 + static_cast<int>(engine() % 5));
    const Partition constraint(p.mapping, p.limits);
    const PartitionsOracle oracle{{p.mapping}, {p.limits}};
    CheckAgainstOracle(constraint, oracle, static_cast<unsigned>(trial), 3, true);
    if (n <= 9) {
      testing::CheckRankAndCircuits(constraint,
                                    [&](const std::vector<bool>& m) { return oracle.Feasible(m); });
    }
  }
}

TEST(PartitionMatroidSetConstraint, ConstructionsAgree) {
  // Blocks {0, 3, 5}, {1, 4}, {2} with limits 2, 0, 1.
  const std::vector<int> mapping = {0, 1, 2, 0, 1, 0};
  const std::vector<int> limits = {2, 0, 1};
  const Partition from_mapping(mapping, limits);

  const UnorderedHashSet b0 = SetOf(6, {0, 3, 5}), b1 = SetOf(6, {1, 4}), b2 = SetOf(6, {2});
  const Partition from_blocks(std::vector<const Set*>{&b0, &b1, &b2}, limits);

  const auto json = nlohmann::json::parse(R"({"partition-matroid": {"blocks": [
      {"block": [5, 0, 3, 3], "limit": 2}, {"block": [4, 1], "limit": 0}, {"block": [2], "limit": 1}]}})");
  const Partition from_json(json);
  // The inner object alone is accepted too.
  const Partition from_inner(json["partition-matroid"]);

  for (const Partition* p : {&from_blocks, &from_json, &from_inner}) {
    EXPECT_EQ(p->ElementToBlockMapping(), mapping);
    EXPECT_EQ(p->Limits(), limits);
    EXPECT_EQ(p->SizeLimit(), 3);
    EXPECT_EQ(p->Description(), "partition matroid, |V|=6, #blocks=3, down closed set constraint");
  }
  testing::ForEachSubset(6, 6, [&](const Set& s) {
    EXPECT_EQ(from_json.IsFeasible(s), from_mapping.IsFeasible(s));
    EXPECT_EQ(from_blocks.RankOfSet(s), from_mapping.RankOfSet(s));
  });
}

TEST(PartitionMatroidSetConstraint, ArgumentErrors) {
  const std::string constructor = "PartitionMatroidSetConstraint";
  const UnorderedHashSet a = SetOf(4, {0, 1}), b = SetOf(4, {2}), c = SetOf(5, {3});
  const UnorderedHashSet overlap = SetOf(4, {1, 3});
  const std::string partition_text =
      "Invalid argument, partition matroid must be involked with a partition of the ground set.";
  // Larger ground sets: only the disjoint question lacks the blank after "!=".
  const Partition p(std::vector<int>{0, 1, 0}, std::vector<int>{1, 1});
  const UnorderedHashSet large(4), s(3);
  const std::string with_blank =
      "Invalid argument, the_set.GroundSetSize()=4 != constraint.GroundSetSize()=3.";
  // Constructions from an element-to-block mapping and from block sets.
  const auto mapped = [](std::vector<int> mapping, std::vector<int> limits) {
    return [=] { Partition(mapping, limits); };
  };
  const auto blocks = [](std::vector<const Set*> sets, std::vector<int> limits) {
    return [=] { Partition(sets, limits); };
  };
  std::vector<testing::ErrorCase> cases = {
      {mapped({}, {1}), constructor, "Invalid argument, ground_set_size=0."},
      {mapped({0}, {}), constructor, "Invalid argument, number_of_blocks=0."},
      {mapped({0, 2, 1}, {1, 1}), constructor,
       "Invalid argument, element_to_block_mapping[1]=2 invalid for |V|=3 and 2 blocks."},
      {mapped({0, -1}, {1}), constructor,
       "Invalid argument, element_to_block_mapping[1]=-1 invalid for |V|=2 and 1 blocks."},
      {blocks({&a, &b}, {1}), constructor,
       "Invalid argument, invalid or limits size mismatch 2 != 1."},
      {blocks({}, {}), constructor, "Invalid argument, invalid or limits size mismatch 0 != 0."},
      // Element 3 uncovered; element 1 in two blocks; mixed ground sets.
      {blocks({&a, &b}, {1, 1}), constructor, partition_text},
      {blocks({&a, &b, &overlap}, {1, 1, 1}), constructor, partition_text},
      {blocks({&a, &b, &c}, {1, 1, 1}), constructor, partition_text},
      {[&] { (void)p.IsFeasible(large); }, "IsFeasible", with_blank},
      {[&] { (void)p.IsUnionFeasible(0, large); }, "IsUnionFeasible", with_blank},
      {[&] { (void)p.RankOfSet(large); }, "RankOfSet", with_blank},
      {[&] { (void)p.IsACycle(large); }, "IsACycle", with_blank},
      {[&] { (void)p.IsDisjointUnionFeasible(0, large); }, "IsDisjointUnionFeasible",
       "Invalid argument, the_set.GroundSetSize()=4 !=constraint.GroundSetSize()=3."},
  };
  auto context = p.MakeGrowingContext();
  for (int e : {-1, 3}) {
    const std::string text = "Invalid element = " + std::to_string(e) + ".";
    cases.push_back({[&, e] { (void)p.IsUnionFeasible(e, s); }, "IsUnionFeasible", text});
    cases.push_back(
        {[&, e] { (void)p.IsDisjointUnionFeasible(e, s); }, "IsDisjointUnionFeasible", text});
    cases.push_back({[&, e] { (void)context->AddNewElementToContext(e, true); },
                     "AddNewElementToContext", text});
  }
  testing::ExpectLocatedErrors<std::invalid_argument>(kPartition, cases);
  EXPECT_TRUE(context->IsFeasible());
  EXPECT_EQ(context->CurrentSet().size(), 0);
}

TEST(PartitionMatroidSetConstraint, JsonErrors) {
  struct Case {
    const char* json;
    const char* function_text;
  };
  const Case cases[] = {
      // Shape of the outer objects.
      {R"([1, 2])", "Invalid partition matroid JSON object"},
      {R"({"other": {}})",
       "Can't find object of name 'partition-matroid' in partition-matroid JSON object."},
      {R"({"partition-matroid": {"blks": []}})",
       "Can't find 'blocks' in partition-matroid JSON object."},
      {R"({"blocks": {"block": [0], "limit": 1}})",
       "Partition matroid blocks must be an array in JSON object."},
      {R"({"blocks": []})", "Partition matroid must have blocks with elements."},
      // Blocks.
      {R"({"blocks": [[0, 1]]})", "Partition matroid block must be a JSON object."},
      {R"({"blocks": [{"elements": [0], "limit": 1}]})",
       "Can't find block array name 'block' in partition-matroid JSON block."},
      {R"({"blocks": [{"block": 0, "limit": 1}]})",
       "Partition matroid block array must be JSON array object."},
      {R"({"blocks": [{"block": [], "limit": 1}]})",
       "Partition matroid must have blocks with elements."},
      {R"({"blocks": [{"block": [0, -1], "limit": 1}]})",
       "Partition matroid block element must be non-negative integer."},
      {R"({"blocks": [{"block": ["0"], "limit": 1}]})",
       "Partition matroid block element must be non-negative integer."},
      {R"({"blocks": [{"block": [0]}]})", "Partition matroid block is missing a limit value."},
      {R"({"blocks": [{"block": [0], "limit": "2"}]})",
       "Partition matroid block limit must be a non-negative integer."},
      {R"({"blocks": [{"block": [0], "limit": -1}]})",
       "Partition matroid block limit must not be negative."},
      // The blocks together.
      {R"({"blocks": [{"block": [0, 1], "limit": 1}, {"block": [1, 2], "limit": 1}]})",
       "Partition matroid blocks must be non-intersecting."},
      {R"({"blocks": [{"block": [0, 1], "limit": 1}, {"block": [3], "limit": 1}]})",
       "Partition matroid blocks must cover the ground set."},
      {R"({"blocks": [{"block": [2147483646], "limit": 1}]})",
       "Partition matroid blocks must cover the ground set."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    const auto json = nlohmann::json::parse(c.json);
    ExpectLocatedError<InputDataError>([&] { Partition p(json); }, kPartition,
                                       "PartitionMatroidSetConstraint", c.function_text);
  }
  // A huge limit means no limit.
  const Partition unlimited(
      nlohmann::json::parse(R"({"blocks": [{"block": [0, 1], "limit": 99999999999}]})"));
  EXPECT_EQ(unlimited.SizeLimit(), 2);
}

std::vector<std::unique_ptr<MatroidSetConstraint>> Members(std::vector<Partition> partitions) {
  std::vector<std::unique_ptr<MatroidSetConstraint>> members;
  for (auto& p : partitions) members.push_back(std::make_unique<Partition>(std::move(p)));
  return members;
}

TEST(IntersectionOfMatroidsSetConstraint, AgreesWithBruteForce) {
  std::mt19937 engine(99);
  for (int trial = 0; trial < 25; ++trial) {
    const int n = 1 + static_cast<int>(engine() % 18);
    PartitionsOracle oracle;
    std::vector<Partition> partitions;
    for (int m = 0, members = 1 + static_cast<int>(engine() % 3); m < members; ++m) {
      const int blocks = 1 + static_cast<int>(engine() % 4);
      std::vector<int> mapping, limit;
      for (int e = 0; e < n; ++e) mapping.push_back(static_cast<int>(engine() % blocks));
      for (int b = 0; b < blocks; ++b) limit.push_back(static_cast<int>(engine() % 4));
      partitions.emplace_back(mapping, limit);
      oracle.mappings.push_back(mapping);
      oracle.limits.push_back(limit);
    }
    const IntersectionOfMatroidsSetConstraint constraint(Members(partitions));
    CheckAgainstOracle(constraint, oracle, static_cast<unsigned>(trial), 3, true);
    // A copy owns copies of the members and answers the same.
    const IntersectionOfMatroidsSetConstraint copy(constraint);
    CheckAgainstOracle(copy, oracle, static_cast<unsigned>(trial) + 100, 1, false);
    int smallest = n;
    for (auto& p : partitions) smallest = std::min(smallest, p.SizeLimit());
    EXPECT_EQ(constraint.SizeLimit(), smallest);
  }
  // A 3 x 4 grid: at most row_limits[r] cells per row, column_limits[c] per column.
  const std::vector<int> row_limits = {1, 2, 0}, column_limits = {1, 1, 2, 1};
  const IntersectionOfMatroidsSetConstraint grid(3, 4, row_limits, column_limits);
  EXPECT_EQ(grid.NumberOfMatroids(), 2);
  // As two partition matroids: cell e lies in row e / 4 and column e % 4.
  PartitionsOracle oracle{{{}, {}}, {row_limits, column_limits}};
  for (int e = 0; e < 12; ++e) {
    oracle.mappings[0].push_back(e / 4);
    oracle.mappings[1].push_back(e % 4);
  }
  CheckAgainstOracle(grid, oracle, 8u, 6, true);
}

TEST(IntersectionOfMatroidsSetConstraint, InfeasibleContexts) {
  // An element that makes a member infeasible turns the context infeasible for good.
  const IntersectionOfMatroidsSetConstraint walked(
      Members({Partition(std::vector<int>{0, 0, 0, 0}, std::vector<int>{1}),
               Partition(std::vector<int>{0, 0, 0, 0}, std::vector<int>{3})}));
  UnorderedHashSet s(4);
  auto context = walked.MakeGrowingContextExternal(s);
  EXPECT_TRUE(context->IsDisjointUnionFeasible(0, s));
  context->AddNewElementToContext(0, s, true);
  EXPECT_FALSE(context->IsDisjointUnionFeasible(1, s));
  context->AddNewElementToContext(1, s, true);
  EXPECT_FALSE(context->IsFeasible());
  EXPECT_FALSE(context->IsUnionFeasible(0, s));
  context->AddNewElementToContext(2, s, false);
  EXPECT_FALSE(context->IsFeasible());
  EXPECT_FALSE(s.contains(2));
  EXPECT_FALSE(context->IsMaximal(s));
  // Repositioning recomputes it.
  s.MakeEmpty();
  context->AssignContext(s);
  EXPECT_TRUE(context->IsFeasible());
}

TEST(IntersectionOfMatroidsSetConstraint, ArgumentErrors) {
  const std::string constructor = "IntersectionOfMatroidsSetConstraint";
  const IntersectionOfMatroidsSetConstraint grid(2, 2, {1, 1}, {1, 1});
  UnorderedHashSet s(4);
  auto context = grid.MakeGrowingContextExternal(s);
  // A rows x cols grid with row limits V and column limits U.
  const auto grid_of = [](int rows, int cols, std::vector<int> v, std::vector<int> u) {
    return [=] { IntersectionOfMatroidsSetConstraint(rows, cols, v, u); };
  };
  std::vector<testing::ErrorCase> cases = {
      {grid_of(2, 3, {1, 1}, {1, 1}), constructor,
       "Invalid element, mismatched rows=2,cols=3, and size of V_limits=2, U_limits=2."},
      {grid_of(0, 0, {}, {}), constructor,
       "Invalid element, mismatched rows=0,cols=0, and size of V_limits=0, U_limits=0."},
      {grid_of(2, 2, {1, -3}, {-1, 1}), constructor, "Invalid element, V_limit[1] = -3 < 0."},
      {grid_of(2, 2, {1, 3}, {1, -2}), constructor, "Invalid element, U_limit[1] = -2 < 0."},
      {[] {
         IntersectionOfMatroidsSetConstraint(std::vector<std::unique_ptr<MatroidSetConstraint>>{});
       },
       constructor, "Invalid argument, must have at least one matroid."},
      {[] {
         IntersectionOfMatroidsSetConstraint(
             Members({Partition(std::vector<int>{0, 0}, std::vector<int>{1}),
                      Partition(std::vector<int>{0, 0, 0}, {1})}));
       },
       constructor, "Invalid argument, all matroids must have same ground set size n=|V|."},
      // A context's set must have exactly the ground-set size.
      {[&] { (void)grid.MakeGrowingContextExternal(UnorderedHashSet(3)); },
       constructor + "GrowingContextExternal", "Invalid element, mismatched ground set size = 3."},
      {[&] { context->AssignContext(UnorderedHashSet(5)); }, "AssignContext",
       "Invalid element, mismatched ground set size = 5."},
  };
  for (int e : {-1, 4}) {
    const std::string text = "Invalid element = " + std::to_string(e) + ".";
    cases.push_back({[&, e] { (void)context->IsDisjointUnionFeasible(e, s); },
                     "IsDisjointUnionFeasible", text});
    cases.push_back({[&, e] { (void)context->IsUnionFeasible(e, s); }, "IsUnionFeasible", text});
    cases.push_back({[&, e] { (void)context->AddNewElementToContext(e, s, true); },
                     "AddNewElementToContext", text});
    cases.push_back(
        {[&, e] { (void)context->AddElementToContext(e, s, true); }, "AddElementToContext", text});
  }
  testing::ExpectLocatedErrors<std::invalid_argument>(kIntersection, cases);
  EXPECT_TRUE(context->IsFeasible());
  EXPECT_EQ(s.size(), 0);
}

TEST(IntersectionOfMatroidsSetConstraint, Json) {
  const char* text = R"({"intersection-of-matroids": {"partition-matroids": [
      {"partition-matroid": {"blocks": [{"block": [0, 1], "limit": 1}, {"block": [2, 3], "limit": 1}]}},
      {"partition-matroid": {"blocks": [{"block": [0, 2], "limit": 1}, {"block": [1, 3], "limit": 2}]}}]}})";
  const IntersectionOfMatroidsSetConstraint from_json(nlohmann::json::parse(text));
  EXPECT_EQ(from_json.NumberOfMatroids(), 2);
  EXPECT_EQ(from_json.Description(),
            "intersection of 2 matroids, |V|=4, down closed set constraint");
  const IntersectionOfMatroidsSetConstraint from_vectors(
      Members({Partition(std::vector<int>{0, 0, 1, 1}, std::vector<int>{1, 1}),
               Partition(std::vector<int>{0, 1, 0, 1}, std::vector<int>{1, 2})}));
  // The same through a file; a truncated file; no file.
  const testing::TempDir dir;
  const std::string path = dir.Write("im.json", text);
  const auto from_file = IntersectionOfMatroidsSetConstraint::FromJSONFile(path);
  testing::ForEachSubset(4, 4, [&](const Set& s) {
    EXPECT_EQ(from_json.IsFeasible(s), from_vectors.IsFeasible(s));
    EXPECT_EQ(from_file->IsFeasible(s), from_vectors.IsFeasible(s));
  });
  dir.Write("im.json", R"({"intersection-of-matroids": {"partition-matroids": [)");
  const std::string chain = testing::ExpectErrorContaining<InputDataError>(
      [&] { (void)IntersectionOfMatroidsSetConstraint::FromJSONFile(path); },
      "Can't parse JSON file '" + path + "'.");
  EXPECT_NE(chain.find('\n'), std::string::npos) << "the parser's error is nested";
  ExpectLocatedError<InputDataError>(
      [&] { (void)IntersectionOfMatroidsSetConstraint::FromJSONFile(dir.File("none.json")); },
      kIntersection, "FromJSONFile", "Can't open JSON file '" + dir.File("none.json") + "'.");

  // Malformed objects.
  const std::string function = "IntersectionOfMatroidsSetConstraint";
  const struct {
    const char* json;
    const char* message;
  } cases[] = {
      {R"({"intersection": {}})", "Can't find JSON object with name 'intersection-of-matroids'."},
      {R"("intersection-of-matroids")",
       "Can't find JSON object with name 'intersection-of-matroids'."},
      {R"({"intersection-of-matroids": {"matroids": []}})",
       "Can't find JSON object list named 'partition-matroids', which should be a list of "
       "matroids."},
      {R"({"intersection-of-matroids": [1]})",
       "Can't find JSON object list named 'partition-matroids', which should be a list of "
       "matroids."},
      {R"({"intersection-of-matroids": {"partition-matroids": {}}})",
       "JSON object 'partition-matroids' must be an array."},
      {R"({"intersection-of-matroids": {"partition-matroids": []}})",
       "Invalid argument, must have at least one matroid."},
      {R"({"intersection-of-matroids": {"partition-matroids": [
          {"partition-matroid": {"blocks": [{"block": [0, 1], "limit": 1}]}},
          {"partition-matroid": {"blocks": [{"block": [0, 1, 2], "limit": 1}]}}]}})",
       "Intersection of matroids in JSON object, all matroids must have the same ground set size."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.json);
    ExpectLocatedError<InputDataError>(
        [&] { IntersectionOfMatroidsSetConstraint constraint(nlohmann::json::parse(c.json)); },
        kIntersection, function, c.message);
  }
  // A member's own error passes through.
  ExpectLocatedError<InputDataError>(
      [] {
        IntersectionOfMatroidsSetConstraint constraint(nlohmann::json::parse(
            R"({"intersection-of-matroids": {"partition-matroids": [{"partition-matroid": {"blocks": 1}}]}})"));
      },
      "PartitionMatroidSetConstraint", "PartitionMatroidSetConstraint",
      "Partition matroid blocks must be an array in JSON object.");
}

}  // namespace
}  // namespace velmor
