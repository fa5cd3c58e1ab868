// Partition-matroid and intersection-of-matroids JSON: whatever a constraint
// is built from must be what the text says (each listed element in its
// block, each block's limit), the object and file forms must agree, and the
// greedy through a growing context must end in a feasible set, for a
// partition matroid one of the matroid's rank.
#include <algorithm>
#include <climits>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "constraints/IntersectionOfMatroidsSetConstraint.h"
#include "constraints/PartitionMatroidSetConstraint.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_targets.h"
#include "sets/UnorderedHashSet.h"

namespace velmor::fuzz {
namespace {

using PartitionMatroid = PartitionMatroidSetConstraint<std::vector<int>>;

// Adds 0, 1, ..., n-1 in turn when the context allows; returns the set.
UnorderedHashSet GreedyThroughContext(const SetConstraint& constraint) {
  const std::unique_ptr<SetConstraint::ConstraintGrowingContext> context =
      constraint.MakeGrowingContext();
  for (int e = 0; e < constraint.GroundSetSize(); ++e) {
    if (context->IsDisjointUnionFeasible(e)) context->AddNewElementToContext(e, true);
  }
  UnorderedHashSet chosen(constraint.GroundSetSize());
  for (int e : context->CurrentSet()) chosen.insert(e);
  return chosen;
}

void CheckPartitionMatroid(const nlohmann::json& json) {
  std::unique_ptr<PartitionMatroid> matroid;
  if (!Succeeds([&] { matroid = std::make_unique<PartitionMatroid>(json); })) return;
  const nlohmann::json& object =
      json.contains("partition-matroid") ? json["partition-matroid"] : json;
  const nlohmann::json& blocks = object["blocks"];
  VELMOR_FUZZ_CHECK(matroid->NumberOfBlocks() == static_cast<int>(blocks.size()), "block count");
  std::size_t listed = 0;
  for (std::size_t b = 0; b < blocks.size(); ++b) {
    const nlohmann::json& limit = blocks[b]["limit"];
    const int64_t expected_limit =
        limit.is_number_unsigned()
            ? static_cast<int64_t>(std::min<uint64_t>(limit.get<uint64_t>(), INT_MAX))
            : std::min<int64_t>(limit.get<int64_t>(), INT_MAX);
    VELMOR_FUZZ_CHECK(matroid->Limits()[b] == expected_limit, "block limit");
    for (const nlohmann::json& element : blocks[b]["block"]) {
      const int64_t e = element.get<int64_t>();
      VELMOR_FUZZ_CHECK(
          e >= 0 && e < matroid->GroundSetSize() &&
              matroid->ElementToBlockMapping()[static_cast<std::size_t>(e)] == static_cast<int>(b),
          "an element outside its block");
      ++listed;
    }
  }
  VELMOR_FUZZ_CHECK(listed >= static_cast<std::size_t>(matroid->GroundSetSize()),
                    "more elements than listed");
  const UnorderedHashSet basis = GreedyThroughContext(*matroid);
  VELMOR_FUZZ_CHECK(matroid->IsFeasible(basis), "the greedy's set is infeasible");
  VELMOR_FUZZ_CHECK(static_cast<int>(basis.size()) == matroid->SizeLimit() &&
                        matroid->RankOfSet(basis) == matroid->SizeLimit(),
                    "the greedy's set is not a basis");
}

void CheckIntersection(const nlohmann::json& json, const std::string& path) {
  std::unique_ptr<IntersectionOfMatroidsSetConstraint> intersection;
  const bool built =
      Succeeds([&] { intersection = std::make_unique<IntersectionOfMatroidsSetConstraint>(json); });
  const bool read_from_file =
      Succeeds([&] { (void)IntersectionOfMatroidsSetConstraint::FromJSONFile(path); });
  VELMOR_FUZZ_CHECK(built == read_from_file, "the file form disagrees");
  if (!built) return;
  const UnorderedHashSet chosen = GreedyThroughContext(*intersection);
  VELMOR_FUZZ_CHECK(intersection->IsFeasible(chosen), "the greedy's set is infeasible");
  for (int i = 0; i < intersection->NumberOfMatroids(); ++i) {
    VELMOR_FUZZ_CHECK(intersection->Matroid(i).IsFeasible(chosen),
                      "the greedy's set is infeasible for a member");
  }
}

}  // namespace

int FuzzMatroidJSON(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string path = WriteScratchFile("matroids.json", text);
  const nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
  if (json.is_discarded()) {
    VELMOR_FUZZ_CHECK(
        !Succeeds([&] { (void)IntersectionOfMatroidsSetConstraint::FromJSONFile(path); }),
        "read a file that is not JSON");
    return 0;
  }
  CheckPartitionMatroid(json);
  CheckIntersection(json, path);
  return 0;
}

}  // namespace velmor::fuzz

VELMOR_FUZZ_ENTRY_POINT(velmor::fuzz::FuzzMatroidJSON)
