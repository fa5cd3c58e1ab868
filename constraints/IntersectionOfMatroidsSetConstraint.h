#ifndef VELMOR_CONSTRAINTS_INTERSECTIONOFMATROIDSSETCONSTRAINT_H_
#define VELMOR_CONSTRAINTS_INTERSECTIONOFMATROIDSSETCONSTRAINT_H_

// A set is feasible when it is independent in each of several matroids over
// one ground set V = {0, ..., n-1}. Down-closed, but not a matroid itself.
// Whole-set questions ask every member; the growing context keeps one context
// per member and asks them in member order, stopping at the first refusal.
//
// JSON form, key names exact: an object holding
//   {"intersection-of-matroids": {"partition-matroids": [M1, M2, ...]}}
// where each Mi is a partition matroid in the JSON form of
// PartitionMatroidSetConstraint. All members must have one ground-set size.

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "constraints/DownClosedSetConstraint.h"
#include "constraints/MatroidSetConstraint.h"

namespace velmor {

class IntersectionOfMatroidsSetConstraint : public DownClosedSetConstraint {
 public:
  class IntersectionOfMatroidsSetConstraintGrowingContextExternal;
  using IntersectionOfMatroidsSetConstraintGrowingContext =
      SetConstraint::DerivedConstraintGrowingContext<
          IntersectionOfMatroidsSetConstraint,
          IntersectionOfMatroidsSetConstraintGrowingContextExternal, UnorderedHashSet>;

  // Takes the members over. Throws std::invalid_argument when there is none,
  // a pointer is null, or the ground-set sizes differ.
  explicit IntersectionOfMatroidsSetConstraint(
      std::vector<std::unique_ptr<MatroidSetConstraint>> matroids);
  // From the JSON form above; throws exception::InputDataError naming what is
  // wrong (errors of a member's partition-matroid object pass through).
  explicit IntersectionOfMatroidsSetConstraint(const nlohmann::json& json_object);
  // The cells of a rows x cols grid, cell (r, c) being element r * cols + c:
  // at most V_limits[r] cells of row r and U_limits[c] cells of column c.
  // Throws std::invalid_argument when rows or cols is below 1, the limit
  // vectors do not have lengths rows and cols, rows * cols exceeds the int
  // range, or a limit is negative.
  IntersectionOfMatroidsSetConstraint(int rows, int cols, const std::vector<int>& V_limits,
                                      const std::vector<int>& U_limits);
  // Copies each member.
  IntersectionOfMatroidsSetConstraint(const IntersectionOfMatroidsSetConstraint& other);
  ~IntersectionOfMatroidsSetConstraint() override = default;

  // Reads and parses the JSON file, then constructs as from a JSON object.
  // Throws exception::InputDataError when the file cannot be read or parsed.
  static std::unique_ptr<IntersectionOfMatroidsSetConstraint> FromJSONFile(
      const std::string& file_name);

  IntersectionOfMatroidsSetConstraint* CopyNew() const override {
    return new IntersectionOfMatroidsSetConstraint(*this);
  }

  bool IsFeasible(const Set& s) const override;
  bool IsUnionFeasible(int e, const Set& s) const override;
  bool IsDisjointUnionFeasible(int e, const Set& s) const override;
  int GroundSetSize() const override { return ground_set_size_; }
  bool IsMatroid() const override { return false; }
  bool IsPartitionMatroid() const override { return false; }
  // "intersection of m matroids, |V|=n, down closed set constraint".
  std::string Description() const override;

  std::unique_ptr<ConstraintGrowingContextExternal> MakeGrowingContextExternal(
      const Set& s) const override;
  std::unique_ptr<ConstraintGrowingContext> MakeGrowingContext() const override;
  std::unique_ptr<ConstraintGrowingContext> MakeGrowingContext(const Set& s) const override;

  // The smallest of the members' size limits.
  int SizeLimit() const override;

  int NumberOfMatroids() const { return static_cast<int>(matroids_.size()); }
  const MatroidSetConstraint& Matroid(int i) const {
    return *matroids_[static_cast<std::size_t>(i)];
  }

 private:
  // Checks the members and sets the ground-set size.
  void CheckMembers();

  std::vector<std::unique_ptr<MatroidSetConstraint>> matroids_;
  int ground_set_size_ = 0;
};

// One external context per member, in member order, over the caller's set.
class IntersectionOfMatroidsSetConstraint::IntersectionOfMatroidsSetConstraintGrowingContextExternal
    : public SetConstraint::ConstraintGrowingContextExternal {
 public:
  // Positioned at s, whose ground-set size must be n.
  IntersectionOfMatroidsSetConstraintGrowingContextExternal(
      const IntersectionOfMatroidsSetConstraint& constraint, const Set& s);

  // Throws std::invalid_argument "Invalid element, mismatched ground set size
  // = %d." when s's ground-set size is not n.
  void AssignContext(const Set& s) override;
  // all_feasible: true while every member stayed feasible.
  bool IsFeasible() const override { return all_feasible_; }
  bool IsMaximal(const Set& s) const override;
  int GroundSetSize() const override { return constraint_->GroundSetSize(); }
  // False at the first member that refuses e (later members are not asked).
  bool IsDisjointUnionFeasible(int e, const Set& s) const override;
  // Adds e to every member (never inserting into s through them); recomputes
  // all_feasible only while it is still true; then inserts e into s when
  // also_insert is set.
  bool AddNewElementToContext(int e, Set& s, bool also_insert) override;
  // all_feasible when s holds e, else IsDisjointUnionFeasible.
  bool IsUnionFeasible(int e, const Set& s) const override;
  bool AddElementToContext(int e, Set& s, bool also_insert) override;

 private:
  const IntersectionOfMatroidsSetConstraint* constraint_;
  std::vector<std::unique_ptr<ConstraintGrowingContextExternal>> member_contexts_;
  bool all_feasible_ = true;
};

}  // namespace velmor

#endif  // VELMOR_CONSTRAINTS_INTERSECTIONOFMATROIDSSETCONSTRAINT_H_
