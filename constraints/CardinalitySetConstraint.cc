#include "constraints/CardinalitySetConstraint.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "constraints/constraint_argument_checks.h"
#include "sets/UnorderedHashSet.h"
#include "utils/error_messages.h"

namespace velmor {

using CardinalityExternal =
    CardinalitySetConstraint::CardinalitySetConstraintGrowingContextExternal;
using CardinalityOwning =
    SetConstraint::DerivedConstraintGrowingContext<CardinalitySetConstraint, CardinalityExternal,
                                                   UnorderedHashSet>;

// Sets over a larger ground set are refused by every whole-set question.
#define VELMOR_CHECK_SET_GROUND_SIZE(s) \
  VELMOR_CHECK_CONSTRAINT_GROUND_SIZE(  \
      s, ground_set_size_,              \
      "Invalid argument, set.GroundSetSize()=%d != constraint.GroundSetSize()=%d.")

// The union questions word the ground set message without the space.
#define VELMOR_CHECK_UNION_ARGUMENTS(e, s)                                            \
  do {                                                                                \
    VELMOR_CHECK_CONSTRAINT_GROUND_SIZE(                                              \
        s, ground_set_size_,                                                          \
        "Invalid argument, set.GroundSetSize()=%d !=constraint.GroundSetSize()=%d."); \
    VELMOR_CHECK_CONSTRAINT_ELEMENT(e, ground_set_size_);                             \
  } while (false)

CardinalitySetConstraint::CardinalitySetConstraint(int ground_set_size, int size_limit)
    : ground_set_size_(ground_set_size), size_limit_(size_limit) {
  if (ground_set_size < 1) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, ground_set_size=%d.", ground_set_size);
  }
  if (size_limit < 0)
    VELMOR_THROW(std::invalid_argument, "Invalid argument, size_limit=%d.", size_limit);
}

bool CardinalitySetConstraint::IsFeasible(const Set& s) const {
  VELMOR_CHECK_SET_GROUND_SIZE(s);
  return size_limit_ >= s.size();
}

bool CardinalitySetConstraint::IsUnionFeasible(int e, const Set& s) const {
  VELMOR_CHECK_UNION_ARGUMENTS(e, s);
  return s.contains(e) ? size_limit_ >= s.size() : size_limit_ > s.size();
}

bool CardinalitySetConstraint::IsDisjointUnionFeasible(int e, const Set& s) const {
  VELMOR_CHECK_UNION_ARGUMENTS(e, s);
  return size_limit_ > s.size();
}

bool CardinalitySetConstraint::IsMaximal(const Set& s) const {
  VELMOR_CHECK_SET_GROUND_SIZE(s);
  return s.size() == size_limit_;
}

std::string CardinalitySetConstraint::Description() const {
  return fmt::format("cardinality({}) {}", size_limit_, "set constraint");
}

std::unique_ptr<SetConstraint::ConstraintGrowingContextExternal>
CardinalitySetConstraint::MakeGrowingContextExternal(const Set& s) const {
  return std::make_unique<CardinalityExternal>(*this, s);
}

std::unique_ptr<SetConstraint::ConstraintGrowingContext>
CardinalitySetConstraint::MakeGrowingContext() const {
  return std::make_unique<CardinalityOwning>(*this, UnorderedHashSet(ground_set_size_));
}

std::unique_ptr<SetConstraint::ConstraintGrowingContext>
CardinalitySetConstraint::MakeGrowingContext(const Set& s) const {
  return std::make_unique<CardinalityOwning>(*this, s);
}

int CardinalitySetConstraint::RankOfSet(const Set& s) const {
  VELMOR_CHECK_SET_GROUND_SIZE(s);
  return std::min(size_limit_, s.size());
}

bool CardinalitySetConstraint::IsACycle(const Set& s) const {
  VELMOR_CHECK_SET_GROUND_SIZE(s);
  return static_cast<long>(s.size()) == static_cast<long>(size_limit_) + 1;
}

// The growing context.

CardinalityExternal::CardinalitySetConstraintGrowingContextExternal(
    const CardinalitySetConstraint& constraint, const Set& s)
    : constraint_(&constraint),
      ground_set_size_(constraint.GroundSetSize()),
      size_limit_(constraint.SizeLimit()) {
  AssignContext(s);
}

void CardinalityExternal::AssignContext(const Set& s) {
  VELMOR_CHECK_SET_GROUND_SIZE(s);
  count_ = s.size();
}

bool CardinalityExternal::IsDisjointUnionFeasible(int e, const Set&) const {
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, ground_set_size_);
  return count_ < size_limit_;
}

bool CardinalityExternal::AddNewElementToContext(int e, Set& s, bool also_insert) {
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, ground_set_size_);
  if (also_insert) s.insert(e);
  ++count_;
  return true;
}

}  // namespace velmor
