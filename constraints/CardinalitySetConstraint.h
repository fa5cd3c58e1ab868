#ifndef VELMOR_CONSTRAINTS_CARDINALITYSETCONSTRAINT_H_
#define VELMOR_CONSTRAINTS_CARDINALITYSETCONSTRAINT_H_

// The cardinality constraint |S| <= k over V = {0, ..., n-1}: a uniform
// matroid of rank k. Every question is O(1) (IsUnionFeasible one lookup).
//
// A set over a ground set smaller than n is judged normally; one over a larger
// ground set raises std::invalid_argument. Note that IsMaximal(s) is |s| == k,
// so with k > n no set is maximal.

#include <memory>
#include <string>

#include "constraints/MatroidSetConstraint.h"

namespace velmor {

class CardinalitySetConstraint : public MatroidSetConstraint {
 public:
  class CardinalitySetConstraintGrowingContextExternal;

  // Throws std::invalid_argument for ground_set_size < 1 (checked first) or
  // size_limit < 0.
  CardinalitySetConstraint(int ground_set_size, int size_limit);
  CardinalitySetConstraint(const CardinalitySetConstraint&) = default;
  ~CardinalitySetConstraint() override = default;

  CardinalitySetConstraint* CopyNew() const override { return new CardinalitySetConstraint(*this); }
  // k >= |s|.
  bool IsFeasible(const Set& s) const override;
  // k >= |s| when s holds e, k > |s| otherwise.
  bool IsUnionFeasible(int e, const Set& s) const override;
  // k > |s|, without a look at whether s holds e.
  bool IsDisjointUnionFeasible(int e, const Set& s) const override;
  // |s| == k.
  bool IsMaximal(const Set& s) const override;
  int GroundSetSize() const override { return ground_set_size_; }
  bool IsPartitionMatroid() const override { return false; }
  // "cardinality(k) set constraint".
  std::string Description() const override;

  std::unique_ptr<ConstraintGrowingContextExternal> MakeGrowingContextExternal(
      const Set& s) const override;
  std::unique_ptr<ConstraintGrowingContext> MakeGrowingContext() const override;
  std::unique_ptr<ConstraintGrowingContext> MakeGrowingContext(const Set& s) const override;

  int SizeLimit() const override { return size_limit_; }
  // min(k, |s|).
  int RankOfSet(const Set& s) const override;
  // |s| == k + 1.
  bool IsACycle(const Set& s) const override;

 private:
  int ground_set_size_;
  int size_limit_;
};

// Follows a caller-owned set by its size alone.
class CardinalitySetConstraint::CardinalitySetConstraintGrowingContextExternal
    : public SetConstraint::ConstraintGrowingContextExternal {
 public:
  // Positioned at s; throws std::invalid_argument when s's ground set exceeds n.
  CardinalitySetConstraintGrowingContextExternal(const CardinalitySetConstraint& constraint,
                                                 const Set& s);

  void AssignContext(const Set& s) override;
  bool IsFeasible() const override { return count_ <= size_limit_; }
  bool IsMaximal(const Set&) const override { return count_ == size_limit_; }
  int GroundSetSize() const override { return ground_set_size_; }
  bool IsDisjointUnionFeasible(int e, const Set& s) const override;
  bool AddNewElementToContext(int e, Set& s, bool also_insert) override;

  int count() const { return count_; }

 private:
  const CardinalitySetConstraint* constraint_;
  int count_ = 0;
  // Copies of the constraint's n and k, read on every question.
  int ground_set_size_;
  int size_limit_;
};

}  // namespace velmor

#endif  // VELMOR_CONSTRAINTS_CARDINALITYSETCONSTRAINT_H_
