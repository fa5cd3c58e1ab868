#include "constraints/IntersectionOfMatroidsSetConstraint.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "constraints/PartitionMatroidSetConstraint.h"
#include "constraints/constraint_test_util.h"
#include "sets/UnorderedHashSet.h"
#include "support/temp_files.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

using Partition = PartitionMatroidSetConstraint<std::vector<int>>;
using exception::InputDataError;
using testing::CheckAgainstOracle;
using testing::ExpectLocatedError;
using testing::PartitionsOracle;

constexpr const char* kFile = "IntersectionOfMatroidsSetConstraint";

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
  std::vector<testing::ErrorCase> cases = {
      {[] {
         IntersectionOfMatroidsSetConstraint(2, 3, {1, 1}, {1, 1});
       },
       constructor,
       "Invalid element, mismatched rows=2,cols=3, and size of V_limits=2, U_limits=2."},
      {[] { IntersectionOfMatroidsSetConstraint(0, 0, {}, {}); }, constructor,
       "Invalid element, mismatched rows=0,cols=0, and size of V_limits=0, U_limits=0."},
      {[] {
         IntersectionOfMatroidsSetConstraint(2, 2, {1, -3}, {-1, 1});
       },
       constructor, "Invalid element, V_limit[1] = -3 < 0."},
      {[] {
         IntersectionOfMatroidsSetConstraint(2, 2, {1, 3}, {1, -2});
       },
       constructor, "Invalid element, U_limit[1] = -2 < 0."},
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
  testing::ExpectLocatedErrors<std::invalid_argument>(kFile, cases);
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
      kFile, "FromJSONFile", "Can't open JSON file '" + dir.File("none.json") + "'.");

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
        kFile, function, c.message);
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
