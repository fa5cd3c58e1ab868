#ifndef VELMOR_CONSTRAINTS_PARTITIONMATROIDSETCONSTRAINT_H_
#define VELMOR_CONSTRAINTS_PARTITIONMATROIDSETCONSTRAINT_H_

// Partition matroid: V = {0, ..., n-1} is split into blocks 0..B-1 and a set S
// is feasible when |S ∩ block_b| <= limit_b for every block b.
//
// Whole-set questions count S per block (O(|S| + B), one allocation); the
// growing contexts keep one counter per block, so a feasibility question
// costs O(1). Read-only after construction.
//
// JSON form, key names exact:
//   {"partition-matroid": {"blocks": [{"block": [0, 2, 5], "limit": 1},
//                                     {"block": [1, 3, 4], "limit": 2}]}}
// Blocks must be non-empty, pairwise disjoint and together cover 0..n-1,
// where n is one more than the largest element listed. An element repeated
// inside one block counts once. The inner object {"blocks": [...]} is also
// accepted on its own.

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "constraints/MatroidSetConstraint.h"

namespace velmor {

template <class Container>
class PartitionMatroidSetConstraint : public MatroidSetConstraint {
 public:
  class PartitionMatroidSetConstraintGrowingContextExternal;
  using PartitionMatroidSetConstraintGrowingContext =
      SetConstraint::DerivedConstraintGrowingContext<
          PartitionMatroidSetConstraint, PartitionMatroidSetConstraintGrowingContextExternal,
          UnorderedHashSet>;

  // mapping[e] is the block of element e (n = mapping length), limits[b] the
  // limit of block b. Throws std::invalid_argument when n < 1, B < 1, an
  // entry is outside [0, B), or a limit is negative.
  PartitionMatroidSetConstraint(const Container& element_to_block_mapping, const Container& limits);
  // blocks[b] lists the elements of block b; all blocks share one ground-set
  // size n and must partition 0..n-1 (empty blocks allowed). Throws
  // std::invalid_argument when the counts differ or are 0, the blocks do not
  // partition the ground set, or a limit is negative.
  PartitionMatroidSetConstraint(const std::vector<const Set*>& blocks, const Container& limits);
  // From the JSON form above; throws exception::InputDataError naming what
  // is wrong.
  explicit PartitionMatroidSetConstraint(const nlohmann::json& json_object);
  PartitionMatroidSetConstraint(const PartitionMatroidSetConstraint&) = default;
  ~PartitionMatroidSetConstraint() override = default;

  PartitionMatroidSetConstraint* CopyNew() const override {
    return new PartitionMatroidSetConstraint(*this);
  }

  bool IsFeasible(const Set& s) const override;
  // For e in s: IsFeasible(s). For e not in s, as IsDisjointUnionFeasible.
  bool IsUnionFeasible(int e, const Set& s) const override;
  // Whether block(e) holds fewer elements of s than its limit. Other blocks
  // are not looked at: one over-full block does not stop the others from
  // growing.
  bool IsDisjointUnionFeasible(int e, const Set& s) const override;
  // Feasible, and every block b holds min(limit_b, |block_b|) elements of s.
  bool IsMaximal(const Set& s) const override;
  int GroundSetSize() const override { return static_cast<int>(element_to_block_mapping_.size()); }
  bool IsPartitionMatroid() const override { return true; }
  // "partition matroid, |V|=n, #blocks=B, down closed set constraint".
  std::string Description() const override;

  std::unique_ptr<ConstraintGrowingContextExternal> MakeGrowingContextExternal(
      const Set& s) const override;
  std::unique_ptr<ConstraintGrowingContext> MakeGrowingContext() const override;
  std::unique_ptr<ConstraintGrowingContext> MakeGrowingContext(const Set& s) const override;

  // The rank of V.
  int SizeLimit() const override { return rank_of_ground_set_; }
  // Σ_b min(|s ∩ block_b|, limit_b); the stored rank of V when |s| == n.
  int RankOfSet(const Set& s) const override;
  // s lies inside one block b and |s| == limit_b + 1.
  bool IsACycle(const Set& s) const override;

  int NumberOfBlocks() const { return static_cast<int>(limits_.size()); }
  const Container& Limits() const { return limits_; }
  const Container& ElementToBlockMapping() const { return element_to_block_mapping_; }
  const Container& BlockSizes() const { return block_sizes_; }

 private:
  // Block sizes and the rank of V, from the mapping and the limits.
  void ComputeBlockSizesAndRank();
  // Elements of s per block, into a zeroed vector of B counters.
  void CountPerBlock(const Set& s, std::vector<int>& counts) const;
  // Whether the counter of block(e) is below that block's limit.
  bool BlockOfHasRoom(int e, const std::vector<int>& counts) const;

  Container limits_;
  Container element_to_block_mapping_;
  int rank_of_ground_set_ = 0;
  Container block_sizes_;
};

// One counter per block for a caller-owned set, and the number of blocks
// over their limit.
template <class Container>
class PartitionMatroidSetConstraint<Container>::PartitionMatroidSetConstraintGrowingContextExternal
    : public SetConstraint::ConstraintGrowingContextExternal {
 public:
  // Positioned at s; throws std::invalid_argument when s's ground set exceeds n.
  PartitionMatroidSetConstraintGrowingContextExternal(
      const PartitionMatroidSetConstraint& constraint, const Set& s);

  void AssignContext(const Set& s) override;
  bool IsFeasible() const override { return blocks_over_limit_ == 0; }
  bool IsMaximal(const Set& s) const override;
  int GroundSetSize() const override { return constraint_->GroundSetSize(); }
  // Tests the counter of block(e) only, as the constraint's own question does.
  bool IsDisjointUnionFeasible(int e, const Set& s) const override;
  bool AddNewElementToContext(int e, Set& s, bool also_insert) override;

  // Elements of the followed set in block b.
  int BlockCount(int b) const { return counts_[static_cast<std::size_t>(b)]; }

 private:
  const PartitionMatroidSetConstraint* constraint_;
  std::vector<int> counts_;
  int blocks_over_limit_ = 0;
};

extern template class PartitionMatroidSetConstraint<std::vector<int>>;

}  // namespace velmor

#endif  // VELMOR_CONSTRAINTS_PARTITIONMATROIDSETCONSTRAINT_H_
