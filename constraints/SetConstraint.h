#ifndef VELMOR_CONSTRAINTS_SETCONSTRAINT_H_
#define VELMOR_CONSTRAINTS_SETCONSTRAINT_H_

// The constraint protocol: which subsets of a ground set V = {0, ..., n-1} a
// maximizer may return, asked one element at a time while a solution grows.
//
// A constraint answers questions about a whole set (IsFeasible, the union
// questions) and hands out growing contexts that follow a set as it grows, so
// that a feasibility question costs O(1) or O(blocks touched) instead of a
// pass over the set. Two kinds of growing context exist:
//  - ConstraintGrowingContextExternal keeps only the constraint's bookkeeping;
//    the caller owns the set and passes it with every call.
//  - ConstraintGrowingContext owns a private copy of the set it follows
//    (DerivedConstraintGrowingContext makes one from an external context).
// A context keeps a pointer to its constraint, which must outlive it. A
// constraint is read-only after construction, so any number of threads may
// ask it questions and use their own contexts at once; a context belongs to
// one thread.
//
// Element arguments must lie in [0, n); every question and context operation
// that takes one throws std::invalid_argument "Invalid element = %d."
// otherwise. Checks come before any change.

#include <memory>
#include <string>

#include "sets/Set.h"

namespace velmor {

class UnorderedHashSet;

class SetConstraint {
 public:
  class ConstraintContext;
  class ConstraintGrowingContext;
  class ConstraintGrowingContextExternal;
  template <class Constraint, class External, class OwnedSet>
  class DerivedConstraintGrowingContext;

  virtual ~SetConstraint() = default;

  // A new heap copy of the most derived type (derived classes narrow the
  // return type). Clone() wraps it in an owning pointer.
  virtual SetConstraint* CopyNew() const = 0;

  // Is s feasible? A set over a ground set smaller than n is judged as it is;
  // one over a larger ground set is an argument error.
  virtual bool IsFeasible(const Set& s) const = 0;
  // Is s + e feasible? e may or may not be in s.
  virtual bool IsUnionFeasible(int e, const Set& s) const = 0;
  // Is s + e feasible, for e not in s? (The caller guarantees e is not in s.)
  virtual bool IsDisjointUnionFeasible(int e, const Set& s) const = 0;
  // Forwards to IsMaximal(const Set&).
  virtual bool IsMaximal(const UnorderedHashSet& s) const;
  // Is s feasible with no element of V that can be added to it?
  virtual bool IsMaximal(const Set& s) const = 0;
  virtual int GroundSetSize() const = 0;
  virtual bool IsMatroid() const = 0;
  virtual bool IsPartitionMatroid() const = 0;
  // One-line text; the root's is "set constraint".
  virtual std::string Description() const;
  virtual std::unique_ptr<SetConstraint> Clone() const;

  // A new external context positioned at s (s's ground set must not exceed n).
  virtual std::unique_ptr<ConstraintGrowingContextExternal> MakeGrowingContextExternal(
      const Set& s) const = 0;
  // A new owning context for the empty set, or positioned at a private copy of s.
  virtual std::unique_ptr<ConstraintGrowingContext> MakeGrowingContext() const = 0;
  virtual std::unique_ptr<ConstraintGrowingContext> MakeGrowingContext(const Set& s) const = 0;

 protected:
  SetConstraint() = default;
  SetConstraint(const SetConstraint&) = default;
  SetConstraint& operator=(const SetConstraint&) = default;
};

// Common virtual base of every constraint context.
class SetConstraint::ConstraintContext {
 public:
  virtual ~ConstraintContext() = default;

 protected:
  ConstraintContext() = default;
  ConstraintContext(const ConstraintContext&) = default;
  ConstraintContext& operator=(const ConstraintContext&) = default;
};

// A context that owns the set A it follows.
class SetConstraint::ConstraintGrowingContext : public virtual ConstraintContext {
 public:
  // Repositions the context at a copy of s.
  virtual void AssignContext(const Set& s) = 0;
  // Is A feasible?
  virtual bool IsFeasible() const = 0;
  ~ConstraintGrowingContext() override = default;
  virtual bool IsMaximal() const = 0;
  virtual int GroundSetSize() const = 0;
  // Is A + e feasible, for e not in A? O(1) for cardinality and partition matroids.
  virtual bool IsDisjointUnionFeasible(int e) const = 0;
  // Updates the bookkeeping to A + e (e not in A); inserts e into A when
  // also_insert is set. Returns whether the state changed.
  virtual bool AddNewElementToContext(int e, bool also_insert) = 0;
  // Is A + e feasible, e in A or not?
  virtual bool IsUnionFeasible(int e) const = 0;
  // As AddNewElementToContext, but returns false and changes nothing when e is in A.
  virtual bool AddElementToContext(int e, bool also_insert) = 0;
  // The set A the context follows.
  virtual const Set& CurrentSet() const = 0;
};

// A context that keeps only the constraint's bookkeeping for a set A that the
// caller owns and passes with every call; the caller must pass the same set
// the context was positioned at (and grown with) each time.
class SetConstraint::ConstraintGrowingContextExternal : public virtual ConstraintContext {
 public:
  // Repositions the context at s.
  virtual void AssignContext(const Set& s) = 0;
  virtual bool IsFeasible() const = 0;
  ~ConstraintGrowingContextExternal() override = default;
  virtual bool IsMaximal(const Set& s) const = 0;
  virtual int GroundSetSize() const = 0;
  virtual bool IsDisjointUnionFeasible(int e, const Set& s) const = 0;
  virtual bool AddNewElementToContext(int e, Set& s, bool also_insert) = 0;
  // Default: IsFeasible() when s holds e, else IsDisjointUnionFeasible(e, s).
  virtual bool IsUnionFeasible(int e, const Set& s) const;
  // Default: false when s holds e, else AddNewElementToContext(e, s,
  // also_insert) and true.
  virtual bool AddElementToContext(int e, Set& s, bool also_insert);
};

// An owning context made of a constraint's external context and a private set
// of the constraint's ground-set size. `External` must be constructible from
// (const Constraint&, const Set&), positioned at that set.
template <class Constraint, class External, class OwnedSet>
class SetConstraint::DerivedConstraintGrowingContext final
    : public SetConstraint::ConstraintGrowingContext {
 public:
  DerivedConstraintGrowingContext(const Constraint& constraint, const Set& s)
      : external_(constraint, s), set_(constraint.GroundSetSize()) {
    set_.PrepareToInsertTheFollowingNumberOfItems(s.size());
    for (int v : s) set_.insert(v);
  }

  void AssignContext(const Set& s) override {
    external_.AssignContext(s);
    set_.MakeEmpty();
    set_.PrepareToInsertTheFollowingNumberOfItems(s.size());
    for (int v : s) set_.insert(v);
  }
  bool IsFeasible() const override { return external_.IsFeasible(); }
  bool IsMaximal() const override { return external_.IsMaximal(set_); }
  int GroundSetSize() const override { return external_.GroundSetSize(); }
  bool IsDisjointUnionFeasible(int e) const override {
    return external_.IsDisjointUnionFeasible(e, set_);
  }
  bool AddNewElementToContext(int e, bool also_insert) override {
    return external_.AddNewElementToContext(e, set_, also_insert);
  }
  bool IsUnionFeasible(int e) const override { return external_.IsUnionFeasible(e, set_); }
  bool AddElementToContext(int e, bool also_insert) override {
    return external_.AddElementToContext(e, set_, also_insert);
  }
  const Set& CurrentSet() const override { return set_; }

  const External& external() const { return external_; }

 private:
  External external_;
  OwnedSet set_;
};

}  // namespace velmor

#endif  // VELMOR_CONSTRAINTS_SETCONSTRAINT_H_
