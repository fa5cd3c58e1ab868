#include "constraints/DownClosedSetConstraint.h"

#include <algorithm>
#include <stdexcept>

#include "constraints/constraint_argument_checks.h"
#include "sets/UnorderedHashSet.h"
#include "utils/error_messages.h"

namespace velmor {

bool DownClosedSetConstraint::IsUnionFeasible(int e, const Set& s) const {
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, GroundSetSize());
  UnorderedHashSet grown(std::max(s.GroundSetSize(), e + 1));
  grown.PrepareToInsertTheFollowingNumberOfItems(s.size() + 1);
  for (int v : s) grown.insert(v);
  grown.insert(e);
  return IsFeasible(grown);
}

bool DownClosedSetConstraint::IsMaximal(const Set& s) const {
  if (!IsFeasible(s)) return false;
  const int n = GroundSetSize();
  for (int e = 0; e < n; ++e) {
    if (!s.contains(e) && IsDisjointUnionFeasible(e, s)) return false;
  }
  return true;
}

std::string DownClosedSetConstraint::Description() const {
  return "down closed " + SetConstraint::Description();
}

std::unique_ptr<SetConstraint::ConstraintGrowingContextExternal>
DownClosedSetConstraint::MakeEmptyGrowingContextExternal() const {
  return MakeGrowingContextExternal(UnorderedHashSet(GroundSetSize()));
}

}  // namespace velmor
