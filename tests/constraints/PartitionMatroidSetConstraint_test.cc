#include "constraints/PartitionMatroidSetConstraint.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "constraints/constraint_test_util.h"
#include "sets/UnorderedHashSet.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

using Partition = PartitionMatroidSetConstraint<std::vector<int>>;
using exception::InputDataError;
using testing::CheckAgainstOracle;
using testing::ExpectLocatedError;
using testing::PartitionsOracle;
using testing::SetOf;

constexpr const char* kFile = "PartitionMatroidSetConstraint";

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
  EXPECT_TRUE(from_mapping.IsPartitionMatroid());
  EXPECT_TRUE(from_mapping.IsMatroid());

  // A block with limit 0: none of its elements is ever feasible.
  auto context = from_mapping.MakeGrowingContext();
  for (int e : {0, 2, 3}) ASSERT_TRUE(context->AddElementToContext(e, true));
  EXPECT_TRUE(context->IsMaximal());
  for (int e : {1, 4}) EXPECT_FALSE(from_mapping.IsUnionFeasible(e, UnorderedHashSet(6)));

  // The whole ground set: the stored rank.
  UnorderedHashSet all(6);
  all.MakeFull();
  EXPECT_EQ(from_mapping.RankOfSet(all), 3);
  EXPECT_FALSE(from_mapping.IsFeasible(all));
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
  std::vector<testing::ErrorCase> cases = {
      {[] { Partition(std::vector<int>{}, std::vector<int>{1}); }, constructor,
       "Invalid argument, ground_set_size=0."},
      {[] { Partition(std::vector<int>{0}, std::vector<int>{}); }, constructor,
       "Invalid argument, number_of_blocks=0."},
      {[] {
         Partition(std::vector<int>{0, 2, 1}, std::vector<int>{1, 1});
       },
       constructor,
       "Invalid argument, element_to_block_mapping[1]=2 invalid for |V|=3 and 2 blocks."},
      {[] {
         Partition(std::vector<int>{0, -1}, std::vector<int>{1});
       },
       constructor,
       "Invalid argument, element_to_block_mapping[1]=-1 invalid for |V|=2 and 1 blocks."},
      {[&] {
         Partition(std::vector<const Set*>{&a, &b}, std::vector<int>{1});
       },
       constructor, "Invalid argument, invalid or limits size mismatch 2 != 1."},
      {[&] { Partition(std::vector<const Set*>{}, std::vector<int>{}); }, constructor,
       "Invalid argument, invalid or limits size mismatch 0 != 0."},
      // Element 3 uncovered; element 1 in two blocks; mixed ground sets.
      {[&] {
         Partition(std::vector<const Set*>{&a, &b}, std::vector<int>{1, 1});
       },
       constructor, partition_text},
      {[&] {
         Partition(std::vector<const Set*>{&a, &b, &overlap}, std::vector<int>{1, 1, 1});
       },
       constructor, partition_text},
      {[&] {
         Partition(std::vector<const Set*>{&a, &b, &c}, std::vector<int>{1, 1, 1});
       },
       constructor, partition_text},
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
  testing::ExpectLocatedErrors<std::invalid_argument>(kFile, cases);
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
    ExpectLocatedError<InputDataError>([&] { Partition p(json); }, kFile,
                                       "PartitionMatroidSetConstraint", c.function_text);
  }
  // A huge limit means no limit.
  const Partition unlimited(
      nlohmann::json::parse(R"({"blocks": [{"block": [0, 1], "limit": 99999999999}]})"));
  EXPECT_EQ(unlimited.SizeLimit(), 2);
}

}  // namespace
}  // namespace velmor
