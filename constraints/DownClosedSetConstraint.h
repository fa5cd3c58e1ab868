#ifndef VELMOR_CONSTRAINTS_DOWNCLOSEDSETCONSTRAINT_H_
#define VELMOR_CONSTRAINTS_DOWNCLOSEDSETCONSTRAINT_H_

// A constraint under which every subset of a feasible set is feasible. The
// maximization algorithms take their constraint as a DownClosedSetConstraint.

#include <memory>
#include <string>

#include "constraints/SetConstraint.h"

namespace velmor {

class DownClosedSetConstraint : public SetConstraint {
 public:
  ~DownClosedSetConstraint() override = default;
  DownClosedSetConstraint* CopyNew() const override = 0;

  // Default: a copy of s with e inserted, judged by IsFeasible. O(|s|) plus
  // one IsFeasible. Throws "Invalid element = %d." for e outside [0, n).
  bool IsUnionFeasible(int e, const Set& s) const override;
  // Default: false when s is infeasible; otherwise false as soon as an element
  // 0, 1, ..., n-1 not in s passes IsDisjointUnionFeasible; true if none does.
  bool IsMaximal(const Set& s) const override;
  // "down closed " followed by the root's description.
  std::string Description() const override;

  // Same as SizeLimit().
  virtual int MaximumSolutionSize() const { return SizeLimit(); }
  // Same as MakeGrowingContextExternal of the empty set over V.
  virtual std::unique_ptr<ConstraintGrowingContextExternal> MakeEmptyGrowingContextExternal() const;
  // The largest size of a feasible set.
  virtual int SizeLimit() const = 0;

 protected:
  DownClosedSetConstraint() = default;
  DownClosedSetConstraint(const DownClosedSetConstraint&) = default;
  DownClosedSetConstraint& operator=(const DownClosedSetConstraint&) = default;
};

}  // namespace velmor

#endif  // VELMOR_CONSTRAINTS_DOWNCLOSEDSETCONSTRAINT_H_
