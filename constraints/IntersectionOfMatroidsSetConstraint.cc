#include "constraints/IntersectionOfMatroidsSetConstraint.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "constraints/PartitionMatroidSetConstraint.h"
#include "constraints/constraint_argument_checks.h"
#include "sets/UnorderedHashSet.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor {

using IntersectionExternal =
    IntersectionOfMatroidsSetConstraint::IntersectionOfMatroidsSetConstraintGrowingContextExternal;

IntersectionOfMatroidsSetConstraint::IntersectionOfMatroidsSetConstraint(
    std::vector<std::unique_ptr<MatroidSetConstraint>> matroids) {
  if (matroids.empty())
    VELMOR_THROW(std::invalid_argument, "Invalid argument, must have at least one matroid.");
  for (const auto& matroid : matroids) {
    if (matroid == nullptr || matroid->GroundSetSize() != matroids[0]->GroundSetSize()) {
      VELMOR_THROW(std::invalid_argument,
                   "Invalid argument, all matroids must have same ground set size n=|V|.");
    }
  }
  matroids_ = std::move(matroids);
  ground_set_size_ = matroids_[0]->GroundSetSize();
}

IntersectionOfMatroidsSetConstraint::IntersectionOfMatroidsSetConstraint(
    const nlohmann::json& json_object) {
  using exception::InputDataError;
  static constexpr const char* kObjectName = "intersection-of-matroids";
  static constexpr const char* kListName = "partition-matroids";
  if (!json_object.is_object() || !json_object.contains(kObjectName)) {
    VELMOR_THROW(InputDataError, "Can't find JSON object with name '%s'.", kObjectName);
  }
  const nlohmann::json& intersection = json_object[kObjectName];
  if (!intersection.is_object() || !intersection.contains(kListName)) {
    VELMOR_THROW(InputDataError,
                 "Can't find JSON object list named '%s', which should be a list of matroids.",
                 kListName);
  }
  const nlohmann::json& list = intersection[kListName];
  if (!list.is_array())
    VELMOR_THROW(InputDataError, "JSON object '%s' must be an array.", kListName);
  if (list.empty())
    VELMOR_THROW(InputDataError, "Invalid argument, must have at least one matroid.");
  for (const nlohmann::json& member : list) {
    matroids_.push_back(std::make_unique<PartitionMatroidSetConstraint<std::vector<int>>>(member));
    if (matroids_.back()->GroundSetSize() != matroids_.front()->GroundSetSize()) {
      VELMOR_THROW(InputDataError,
                   "Intersection of matroids in JSON object, all matroids must have the same "
                   "ground set size.");
    }
  }
  ground_set_size_ = matroids_[0]->GroundSetSize();
}

IntersectionOfMatroidsSetConstraint::IntersectionOfMatroidsSetConstraint(
    int rows, int cols, const std::vector<int>& V_limits, const std::vector<int>& U_limits) {
  if (rows < 1 || cols < 1 || V_limits.size() != static_cast<std::size_t>(rows) ||
      U_limits.size() != static_cast<std::size_t>(cols) ||
      static_cast<long>(rows) * static_cast<long>(cols) > INT_MAX) {
    VELMOR_THROW(
        std::invalid_argument,
        "Invalid element, mismatched rows=%d,cols=%d, and size of V_limits=%ld, U_limits=%ld.",
        rows, cols, static_cast<long>(V_limits.size()), static_cast<long>(U_limits.size()));
  }
  for (int r = 0; r < rows; ++r) {
    if (V_limits[static_cast<std::size_t>(r)] < 0) {
      VELMOR_THROW(std::invalid_argument, "Invalid element, V_limit[%d] = %d < 0.", r,
                   V_limits[static_cast<std::size_t>(r)]);
    }
  }
  for (int c = 0; c < cols; ++c) {
    if (U_limits[static_cast<std::size_t>(c)] < 0) {
      VELMOR_THROW(std::invalid_argument, "Invalid element, U_limit[%d] = %d < 0.", c,
                   U_limits[static_cast<std::size_t>(c)]);
    }
  }
  const std::size_t n = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
  std::vector<int> row_of(n);
  std::vector<int> column_of(n);
  for (std::size_t e = 0; e < n; ++e) {
    row_of[e] = static_cast<int>(e / static_cast<std::size_t>(cols));
    column_of[e] = static_cast<int>(e % static_cast<std::size_t>(cols));
  }
  matroids_.push_back(
      std::make_unique<PartitionMatroidSetConstraint<std::vector<int>>>(row_of, V_limits));
  matroids_.push_back(
      std::make_unique<PartitionMatroidSetConstraint<std::vector<int>>>(column_of, U_limits));
  ground_set_size_ = static_cast<int>(n);
}

IntersectionOfMatroidsSetConstraint::IntersectionOfMatroidsSetConstraint(
    const IntersectionOfMatroidsSetConstraint& other)
    : DownClosedSetConstraint(other), ground_set_size_(other.ground_set_size_) {
  matroids_.reserve(other.matroids_.size());
  for (const auto& matroid : other.matroids_) matroids_.emplace_back(matroid->CopyNew());
}

std::unique_ptr<IntersectionOfMatroidsSetConstraint>
IntersectionOfMatroidsSetConstraint::FromJSONFile(const std::string& file_name) {
  std::ifstream stream(file_name);
  if (!stream)
    VELMOR_THROW(exception::InputDataError, "Can't open JSON file '%s'.", file_name.c_str());
  nlohmann::json json_object;
  try {
    json_object = nlohmann::json::parse(stream);
  } catch (const std::exception&) {
    VELMOR_THROW_NESTED(exception::InputDataError, "Can't parse JSON file '%s'.",
                        file_name.c_str());
  }
  return std::make_unique<IntersectionOfMatroidsSetConstraint>(json_object);
}

bool IntersectionOfMatroidsSetConstraint::IsFeasible(const Set& s) const {
  for (const auto& matroid : matroids_) {
    if (!matroid->IsFeasible(s)) return false;
  }
  return true;
}

bool IntersectionOfMatroidsSetConstraint::IsUnionFeasible(int e, const Set& s) const {
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, ground_set_size_);
  for (const auto& matroid : matroids_) {
    if (!matroid->IsUnionFeasible(e, s)) return false;
  }
  return true;
}

bool IntersectionOfMatroidsSetConstraint::IsDisjointUnionFeasible(int e, const Set& s) const {
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, ground_set_size_);
  for (const auto& matroid : matroids_) {
    if (!matroid->IsDisjointUnionFeasible(e, s)) return false;
  }
  return true;
}

std::string IntersectionOfMatroidsSetConstraint::Description() const {
  return fmt::format("intersection of {} matroids, |V|={}, {}", matroids_.size(), ground_set_size_,
                     DownClosedSetConstraint::Description());
}

std::unique_ptr<SetConstraint::ConstraintGrowingContextExternal>
IntersectionOfMatroidsSetConstraint::MakeGrowingContextExternal(const Set& s) const {
  return std::make_unique<IntersectionExternal>(*this, s);
}

std::unique_ptr<SetConstraint::ConstraintGrowingContext>
IntersectionOfMatroidsSetConstraint::MakeGrowingContext() const {
  return std::make_unique<IntersectionOfMatroidsSetConstraintGrowingContext>(
      *this, UnorderedHashSet(ground_set_size_));
}

std::unique_ptr<SetConstraint::ConstraintGrowingContext>
IntersectionOfMatroidsSetConstraint::MakeGrowingContext(const Set& s) const {
  return std::make_unique<IntersectionOfMatroidsSetConstraintGrowingContext>(*this, s);
}

int IntersectionOfMatroidsSetConstraint::SizeLimit() const {
  int limit = INT_MAX;
  for (const auto& matroid : matroids_) limit = std::min(limit, matroid->SizeLimit());
  return limit;
}

// The growing context.

IntersectionExternal::IntersectionOfMatroidsSetConstraintGrowingContextExternal(
    const IntersectionOfMatroidsSetConstraint& constraint, const Set& s)
    : constraint_(&constraint) {
  if (s.GroundSetSize() != constraint.GroundSetSize()) {
    VELMOR_THROW(std::invalid_argument, "Invalid element, mismatched ground set size = %d.",
                 s.GroundSetSize());
  }
  member_contexts_.reserve(constraint.matroids_.size());
  for (const auto& matroid : constraint.matroids_) {
    member_contexts_.push_back(matroid->MakeGrowingContextExternal(s));
    all_feasible_ = all_feasible_ && member_contexts_.back()->IsFeasible();
  }
}

void IntersectionExternal::AssignContext(const Set& s) {
  if (s.GroundSetSize() != GroundSetSize()) {
    VELMOR_THROW(std::invalid_argument, "Invalid element, mismatched ground set size = %d.",
                 s.GroundSetSize());
  }
  bool all_feasible = true;
  for (auto& context : member_contexts_) {
    context->AssignContext(s);
    all_feasible = all_feasible && context->IsFeasible();
  }
  all_feasible_ = all_feasible;
}

bool IntersectionExternal::IsMaximal(const Set& s) const {
  if (!all_feasible_) return false;
  const int n = GroundSetSize();
  for (int e = 0; e < n; ++e) {
    if (!s.contains(e) && IsDisjointUnionFeasible(e, s)) return false;
  }
  return true;
}

bool IntersectionExternal::IsDisjointUnionFeasible(int e, const Set& s) const {
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, GroundSetSize());
  for (const auto& context : member_contexts_) {
    if (!context->IsDisjointUnionFeasible(e, s)) return false;
  }
  return true;
}

bool IntersectionExternal::AddNewElementToContext(int e, Set& s, bool also_insert) {
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, GroundSetSize());
  for (auto& context : member_contexts_) {
    context->AddNewElementToContext(e, s, false);
    if (all_feasible_) all_feasible_ = context->IsFeasible();
  }
  if (also_insert) s.insert(e);
  return true;
}

bool IntersectionExternal::IsUnionFeasible(int e, const Set& s) const {
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, GroundSetSize());
  return s.contains(e) ? all_feasible_ : IsDisjointUnionFeasible(e, s);
}

bool IntersectionExternal::AddElementToContext(int e, Set& s, bool also_insert) {
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, GroundSetSize());
  if (s.contains(e)) return false;
  AddNewElementToContext(e, s, also_insert);
  return true;
}

}  // namespace velmor
