#include "constraints/SetConstraint.h"

#include <stdexcept>

#include "constraints/constraint_argument_checks.h"
#include "sets/UnorderedHashSet.h"
#include "utils/error_messages.h"

namespace velmor {

bool SetConstraint::IsMaximal(const UnorderedHashSet& s) const {
  return IsMaximal(static_cast<const Set&>(s));
}

std::string SetConstraint::Description() const { return "set constraint"; }

std::unique_ptr<SetConstraint> SetConstraint::Clone() const {
  return std::unique_ptr<SetConstraint>(CopyNew());
}

bool SetConstraint::ConstraintGrowingContextExternal::IsUnionFeasible(int e, const Set& s) const {
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, GroundSetSize());
  return s.contains(e) ? IsFeasible() : IsDisjointUnionFeasible(e, s);
}

bool SetConstraint::ConstraintGrowingContextExternal::AddElementToContext(int e, Set& s,
                                                                          bool also_insert) {
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, GroundSetSize());
  if (s.contains(e)) return false;
  AddNewElementToContext(e, s, also_insert);
  return true;
}

}  // namespace velmor
