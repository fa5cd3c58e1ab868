#include "constraints/SetConstraint.h"

#include <stdexcept>

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
  if (e < 0 || e >= GroundSetSize())
    VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", e);
  return s.contains(e) ? IsFeasible() : IsDisjointUnionFeasible(e, s);
}

bool SetConstraint::ConstraintGrowingContextExternal::AddElementToContext(int e, Set& s,
                                                                          bool also_insert) {
  if (e < 0 || e >= GroundSetSize())
    VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", e);
  if (s.contains(e)) return false;
  AddNewElementToContext(e, s, also_insert);
  return true;
}

}  // namespace velmor
