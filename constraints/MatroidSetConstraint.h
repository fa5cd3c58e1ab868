#ifndef VELMOR_CONSTRAINTS_MATROIDSETCONSTRAINT_H_
#define VELMOR_CONSTRAINTS_MATROIDSETCONSTRAINT_H_

// A down-closed constraint whose feasible sets are the independent sets of a
// matroid, with the matroid's rank and circuit questions.

#include "constraints/DownClosedSetConstraint.h"

namespace velmor {

class MatroidSetConstraint : public DownClosedSetConstraint {
 public:
  ~MatroidSetConstraint() override = default;
  MatroidSetConstraint* CopyNew() const override = 0;
  bool IsMatroid() const override { return true; }

  // The size of a largest feasible subset of s.
  virtual int RankOfSet(const Set& s) const = 0;
  // Is s a circuit: infeasible, with every proper subset feasible?
  virtual bool IsACycle(const Set& s) const = 0;

 protected:
  MatroidSetConstraint() = default;
  MatroidSetConstraint(const MatroidSetConstraint&) = default;
  MatroidSetConstraint& operator=(const MatroidSetConstraint&) = default;
};

}  // namespace velmor

#endif  // VELMOR_CONSTRAINTS_MATROIDSETCONSTRAINT_H_
