#include "constraints/IntersectionOfMatroidsSetConstraint.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "constraints/CardinalitySetConstraint.h"
#include "constraints/PartitionMatroidSetConstraint.h"
#include "constraints/constraint_test_util.h"
#include "sets/UnorderedHashSet.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

using Partition = PartitionMatroidSetConstraint<std::vector<int>>;
using exception::InputDataError;
using testing_util::CheckAgainstOracle;
using testing_util::ExpectError;
using testing_util::PartitionsOracle;

constexpr const char* kFile = "IntersectionOfMatroidsSetConstraint";

// A matroid that answers as a cardinality constraint and counts how often its
// external contexts are asked IsDisjointUnionFeasible.
class CountingMatroid : public MatroidSetConstraint {
 public:
  CountingMatroid(int n, int k, int* calls) : inner_(n, k), calls_(calls) {}
  CountingMatroid* CopyNew() const override { return new CountingMatroid(*this); }
  bool IsFeasible(const Set& s) const override { return inner_.IsFeasible(s); }
  bool IsUnionFeasible(int e, const Set& s) const override { return inner_.IsUnionFeasible(e, s); }
  bool IsDisjointUnionFeasible(int e, const Set& s) const override {
    return inner_.IsDisjointUnionFeasible(e, s);
  }
  bool IsMaximal(const Set& s) const override { return inner_.IsMaximal(s); }
  int GroundSetSize() const override { return inner_.GroundSetSize(); }
  bool IsPartitionMatroid() const override { return false; }
  std::unique_ptr<ConstraintGrowingContextExternal> MakeGrowingContextExternal(
      const Set& s) const override {
    return std::make_unique<Context>(inner_.MakeGrowingContextExternal(s), calls_);
  }
  std::unique_ptr<ConstraintGrowingContext> MakeGrowingContext() const override {
    return inner_.MakeGrowingContext();
  }
  std::unique_ptr<ConstraintGrowingContext> MakeGrowingContext(const Set& s) const override {
    return inner_.MakeGrowingContext(s);
  }
  int SizeLimit() const override { return inner_.SizeLimit(); }
  int RankOfSet(const Set& s) const override { return inner_.RankOfSet(s); }
  bool IsACycle(const Set& s) const override { return inner_.IsACycle(s); }

 private:
  class Context : public ConstraintGrowingContextExternal {
   public:
    Context(std::unique_ptr<ConstraintGrowingContextExternal> inner, int* calls)
        : inner_(std::move(inner)), calls_(calls) {}
    void AssignContext(const Set& s) override { inner_->AssignContext(s); }
    bool IsFeasible() const override { return inner_->IsFeasible(); }
    bool IsMaximal(const Set& s) const override { return inner_->IsMaximal(s); }
    int GroundSetSize() const override { return inner_->GroundSetSize(); }
    bool IsDisjointUnionFeasible(int e, const Set& s) const override {
      ++*calls_;
      return inner_->IsDisjointUnionFeasible(e, s);
    }
    bool AddNewElementToContext(int e, Set& s, bool also_insert) override {
      return inner_->AddNewElementToContext(e, s, also_insert);
    }

   private:
    std::unique_ptr<ConstraintGrowingContextExternal> inner_;
    int* calls_;
  };

  CardinalitySetConstraint inner_;
  int* calls_;
};

std::vector<std::unique_ptr<MatroidSetConstraint>> Members(std::vector<Partition> partitions) {
  std::vector<std::unique_ptr<MatroidSetConstraint>> members;
  for (auto& p : partitions) members.push_back(std::make_unique<Partition>(std::move(p)));
  return members;
}

TEST(IntersectionOfMatroidsSetConstraint, AgreesWithBruteForce) {
  std::mt19937 engine(99);
  for (int trial = 0; trial < 25; ++trial) {
    const int n = 1 + static_cast<int>(engine() % 18);
    const int number_of_members = 1 + static_cast<int>(engine() % 3);
    PartitionsOracle oracle;
    std::vector<Partition> partitions;
    for (int m = 0; m < number_of_members; ++m) {
      const int blocks = 1 + static_cast<int>(engine() % 4);
      std::vector<int> mapping, limit;
      for (int e = 0; e < n; ++e)
        mapping.push_back(static_cast<int>(engine() % static_cast<unsigned>(blocks)));
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
}

TEST(IntersectionOfMatroidsSetConstraint, MemberWalk) {
  // One member: the intersection answers exactly as that member.
  const Partition single(std::vector<int>{0, 0, 1, 1, 1}, std::vector<int>{1, 2});
  const IntersectionOfMatroidsSetConstraint alone(Members({single}));
  CheckAgainstOracle(alone, PartitionsOracle{{{0, 0, 1, 1, 1}}, {{1, 2}}}, 3u, 4, true);
  EXPECT_EQ(alone.Description(), "intersection of 1 matroids, |V|=5, down closed set constraint");

  // A member that refuses stops the walk: the second member is not asked.
  int first_calls = 0;
  int second_calls = 0;
  std::vector<std::unique_ptr<MatroidSetConstraint>> members;
  members.push_back(std::make_unique<CountingMatroid>(4, 1, &first_calls));
  members.push_back(std::make_unique<CountingMatroid>(4, 3, &second_calls));
  const IntersectionOfMatroidsSetConstraint walked(std::move(members));
  UnorderedHashSet s(4);
  auto context = walked.MakeGrowingContextExternal(s);
  EXPECT_TRUE(context->IsDisjointUnionFeasible(0, s));
  EXPECT_EQ(first_calls, 1);
  EXPECT_EQ(second_calls, 1);
  context->AddNewElementToContext(0, s, true);
  EXPECT_FALSE(context->IsDisjointUnionFeasible(1, s));
  EXPECT_EQ(first_calls, 2);
  EXPECT_EQ(second_calls, 1);

  // An element that makes a member infeasible turns all_feasible false for good.
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

TEST(IntersectionOfMatroidsSetConstraint, Grid) {
  // 3 x 4 grid: at most V_limits[r] cells per row, U_limits[c] per column.
  const int rows = 3, cols = 4;
  const std::vector<int> row_limits = {1, 2, 0};
  const std::vector<int> column_limits = {1, 1, 2, 1};
  const IntersectionOfMatroidsSetConstraint grid(rows, cols, row_limits, column_limits);
  EXPECT_EQ(grid.GroundSetSize(), 12);
  EXPECT_EQ(grid.NumberOfMatroids(), 2);
  // As two partition matroids: cell e lies in row e / cols and column e % cols.
  PartitionsOracle oracle{{{}, {}}, {row_limits, column_limits}};
  for (int e = 0; e < rows * cols; ++e) {
    oracle.mappings[0].push_back(e / cols);
    oracle.mappings[1].push_back(e % cols);
  }
  CheckAgainstOracle(grid, oracle, 8u, 6, true);
}

TEST(IntersectionOfMatroidsSetConstraint, ArgumentErrors) {
  const std::string constructor = "IntersectionOfMatroidsSetConstraint";
  const IntersectionOfMatroidsSetConstraint grid(2, 2, {1, 1}, {1, 1});
  UnorderedHashSet s(4);
  auto context = grid.MakeGrowingContextExternal(s);
  std::vector<testing_util::ErrorCase> cases = {
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
  testing_util::ExpectErrors<std::invalid_argument>(kFile, cases);
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
  for (unsigned mask = 0; mask < 16; ++mask) {
    UnorderedHashSet s(4);
    for (int e = 0; e < 4; ++e) {
      if (mask & (1u << e)) s.insert(e);
    }
    EXPECT_EQ(from_json.IsFeasible(s), from_vectors.IsFeasible(s)) << mask;
  }

  // The same through a file.
  const std::string path =
      std::string(VELMOR_TEST_BINARY_DIR) + "/intersection_of_matroids_test.json";
  {
    std::ofstream out(path);
    out << text;
  }
  const auto from_file = IntersectionOfMatroidsSetConstraint::FromJSONFile(path);
  EXPECT_EQ(from_file->NumberOfMatroids(), 2);
  EXPECT_EQ(from_file->SizeLimit(), from_json.SizeLimit());
  {
    std::ofstream out(path);
    out << R"({"intersection-of-matroids": {"partition-matroids": [)";
  }
  try {
    (void)IntersectionOfMatroidsSetConstraint::FromJSONFile(path);
    ADD_FAILURE() << "truncated file accepted";
  } catch (const InputDataError& e) {
    EXPECT_NE(std::string(e.what()).find("Can't parse JSON file '" + path + "'."),
              std::string::npos);
    EXPECT_THROW(std::rethrow_if_nested(e), nlohmann::json::parse_error);
  }
  std::remove(path.c_str());
  ExpectError<InputDataError>(
      [&] { (void)IntersectionOfMatroidsSetConstraint::FromJSONFile(path); }, kFile, "FromJSONFile",
      "Can't open JSON file '" + path + "'.");

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
    ExpectError<InputDataError>(
        [&] { IntersectionOfMatroidsSetConstraint constraint(nlohmann::json::parse(c.json)); },
        kFile, function, c.message);
  }
  // A member's own error passes through.
  ExpectError<InputDataError>(
      [] {
        IntersectionOfMatroidsSetConstraint constraint(nlohmann::json::parse(
            R"({"intersection-of-matroids": {"partition-matroids": [{"partition-matroid": {"blocks": 1}}]}})"));
      },
      "PartitionMatroidSetConstraint", "PartitionMatroidSetConstraint",
      "Partition matroid blocks must be an array in JSON object.");
}

}  // namespace
}  // namespace velmor
