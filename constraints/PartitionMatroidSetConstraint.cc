#include "constraints/PartitionMatroidSetConstraint.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "constraints/constraint_argument_checks.h"
#include "sets/UnorderedHashSet.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor {

// Whole-set questions refuse a set over a larger ground set. The union
// questions use the text without the blank after "!=".
#define VELMOR_CHECK_SET_GROUND_SIZE(s) \
  VELMOR_CHECK_CONSTRAINT_GROUND_SIZE(  \
      s, GroundSetSize(),               \
      "Invalid argument, the_set.GroundSetSize()=%d != constraint.GroundSetSize()=%d.")

template <class Container>
PartitionMatroidSetConstraint<Container>::PartitionMatroidSetConstraint(
    const Container& element_to_block_mapping, const Container& limits) {
  const long n = static_cast<long>(element_to_block_mapping.size());
  const long number_of_blocks = static_cast<long>(limits.size());
  if (n < 1 || n > INT_MAX) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, ground_set_size=%d.",
                 static_cast<int>(n));
  }
  if (number_of_blocks < 1 || number_of_blocks > INT_MAX) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, number_of_blocks=%d.",
                 static_cast<int>(number_of_blocks));
  }
  for (long e = 0; e < n; ++e) {
    const int b = element_to_block_mapping[static_cast<std::size_t>(e)];
    if (b < 0 || b >= number_of_blocks) {
      VELMOR_THROW(
          std::invalid_argument,
          "Invalid argument, element_to_block_mapping[%d]=%d invalid for |V|=%d and %d blocks.",
          static_cast<int>(e), b, static_cast<int>(n), static_cast<int>(number_of_blocks));
    }
  }
  for (long b = 0; b < number_of_blocks; ++b) {
    if (limits[static_cast<std::size_t>(b)] < 0) {
      VELMOR_THROW(std::invalid_argument, "Invalid argument, limits[%d]=%d must not be negative.",
                   static_cast<int>(b), limits[static_cast<std::size_t>(b)]);
    }
  }
  limits_ = limits;
  element_to_block_mapping_ = element_to_block_mapping;
  ComputeBlockSizesAndRank();
}

template <class Container>
PartitionMatroidSetConstraint<Container>::PartitionMatroidSetConstraint(
    const std::vector<const Set*>& blocks, const Container& limits) {
  if (blocks.empty() || blocks.size() != limits.size() || blocks.size() > INT_MAX) {
    VELMOR_THROW(std::invalid_argument,
                 "Invalid argument, invalid or limits size mismatch %ld != %ld.",
                 static_cast<long>(blocks.size()), static_cast<long>(limits.size()));
  }
  const int n = blocks[0] != nullptr ? blocks[0]->GroundSetSize() : 0;
  bool is_partition = n >= 1;
  Container mapping(static_cast<std::size_t>(std::max(n, 0)), -1);
  long covered = 0;
  for (std::size_t b = 0; is_partition && b < blocks.size(); ++b) {
    if (blocks[b] == nullptr || blocks[b]->GroundSetSize() != n) {
      is_partition = false;
      break;
    }
    for (int e : *blocks[b]) {
      if (e < 0 || e >= n || mapping[static_cast<std::size_t>(e)] != -1) {
        is_partition = false;
        break;
      }
      mapping[static_cast<std::size_t>(e)] = static_cast<int>(b);
      ++covered;
    }
  }
  if (!is_partition || covered != n) {
    VELMOR_THROW(
        std::invalid_argument,
        "Invalid argument, partition matroid must be involked with a partition of the ground set.");
  }
  for (std::size_t b = 0; b < limits.size(); ++b) {
    if (limits[b] < 0) {
      VELMOR_THROW(std::invalid_argument, "Invalid argument, limits[%d]=%d must not be negative.",
                   static_cast<int>(b), limits[b]);
    }
  }
  limits_ = limits;
  element_to_block_mapping_ = std::move(mapping);
  ComputeBlockSizesAndRank();
}

template <class Container>
PartitionMatroidSetConstraint<Container>::PartitionMatroidSetConstraint(
    const nlohmann::json& json_object) {
  using exception::InputDataError;
  static constexpr const char* kObjectName = "partition-matroid";
  static constexpr const char* kBlocksName = "blocks";
  static constexpr const char* kBlockName = "block";
  static constexpr const char* kLimitName = "limit";

  if (!json_object.is_object())
    VELMOR_THROW(InputDataError, "Invalid partition matroid JSON object");
  const nlohmann::json* matroid = nullptr;
  if (json_object.contains(kObjectName)) {
    matroid = &json_object[kObjectName];
  } else if (json_object.contains(kBlocksName)) {
    matroid = &json_object;
  } else {
    VELMOR_THROW(InputDataError, "Can't find object of name '%s' in partition-matroid JSON object.",
                 kObjectName);
  }
  if (!matroid->is_object()) VELMOR_THROW(InputDataError, "Invalid partition matroid JSON object");
  if (!matroid->contains(kBlocksName)) {
    VELMOR_THROW(InputDataError, "Can't find '%s' in partition-matroid JSON object.", kBlocksName);
  }
  const nlohmann::json& blocks = (*matroid)[kBlocksName];
  if (!blocks.is_array())
    VELMOR_THROW(InputDataError, "Partition matroid blocks must be an array in JSON object.");
  if (blocks.empty())
    VELMOR_THROW(InputDataError, "Partition matroid must have blocks with elements.");
  if (blocks.size() > INT_MAX)
    VELMOR_THROW(InputDataError, "Invalid partition matroid JSON object");

  // (element, block) pairs of every block, and each block's limit.
  std::vector<std::pair<int, int>> members;
  Container limits;
  limits.reserve(blocks.size());
  int block_number = 0;
  for (const nlohmann::json& block : blocks) {
    if (!block.is_object())
      VELMOR_THROW(InputDataError, "Partition matroid block must be a JSON object.");
    if (!block.contains(kBlockName)) {
      VELMOR_THROW(InputDataError,
                   "Can't find block array name '%s' in partition-matroid JSON block.", kBlockName);
    }
    const nlohmann::json& elements = block[kBlockName];
    if (!elements.is_array())
      VELMOR_THROW(InputDataError, "Partition matroid block array must be JSON array object.");
    if (elements.empty())
      VELMOR_THROW(InputDataError, "Partition matroid must have blocks with elements.");
    for (const nlohmann::json& element : elements) {
      // The largest element must leave n = element + 1 representable.
      bool valid = element.is_number_integer();
      std::int64_t value = 0;
      if (valid && element.is_number_unsigned()) {
        const std::uint64_t u = element.get<std::uint64_t>();
        valid = u < static_cast<std::uint64_t>(INT_MAX);
        value = valid ? static_cast<std::int64_t>(u) : 0;
      } else if (valid) {
        value = element.get<std::int64_t>();
        valid = value >= 0 && value < INT_MAX;
      }
      if (!valid)
        VELMOR_THROW(InputDataError,
                     "Partition matroid block element must be non-negative integer.");
      members.emplace_back(static_cast<int>(value), block_number);
    }
    if (!block.contains(kLimitName))
      VELMOR_THROW(InputDataError, "Partition matroid block is missing a limit value.");
    const nlohmann::json& limit = block[kLimitName];
    if (!limit.is_number_integer()) {
      VELMOR_THROW(InputDataError, "Partition matroid block limit must be a non-negative integer.");
    }
    int limit_value = INT_MAX;
    if (!limit.is_number_unsigned()) {
      const std::int64_t signed_limit = limit.get<std::int64_t>();
      if (signed_limit < 0)
        VELMOR_THROW(InputDataError, "Partition matroid block limit must not be negative.");
      limit_value = static_cast<int>(std::min<std::int64_t>(signed_limit, INT_MAX));
    } else {
      limit_value = static_cast<int>(std::min<std::uint64_t>(limit.get<std::uint64_t>(), INT_MAX));
    }
    limits.push_back(limit_value);
    ++block_number;
  }

  // Sorted by element, a repeat within one block is harmless, a repeat across
  // blocks is an intersection, and the distinct elements must be 0..n-1.
  std::sort(members.begin(), members.end());
  members.erase(std::unique(members.begin(), members.end()), members.end());
  for (std::size_t i = 1; i < members.size(); ++i) {
    if (members[i].first == members[i - 1].first) {
      VELMOR_THROW(InputDataError, "Partition matroid blocks must be non-intersecting.");
    }
  }
  const int n = members.back().first + 1;
  if (static_cast<std::size_t>(n) != members.size()) {
    VELMOR_THROW(InputDataError, "Partition matroid blocks must cover the ground set.");
  }
  Container mapping(static_cast<std::size_t>(n));
  for (const auto& [element, block] : members) mapping[static_cast<std::size_t>(element)] = block;
  limits_ = std::move(limits);
  element_to_block_mapping_ = std::move(mapping);
  ComputeBlockSizesAndRank();
}

template <class Container>
void PartitionMatroidSetConstraint<Container>::ComputeBlockSizesAndRank() {
  block_sizes_.assign(limits_.size(), 0);
  for (int b : element_to_block_mapping_) ++block_sizes_[static_cast<std::size_t>(b)];
  rank_of_ground_set_ = 0;
  for (std::size_t b = 0; b < limits_.size(); ++b)
    rank_of_ground_set_ += std::min(block_sizes_[b], limits_[b]);
}

template <class Container>
void PartitionMatroidSetConstraint<Container>::CountPerBlock(const Set& s,
                                                             std::vector<int>& counts) const {
  counts.assign(limits_.size(), 0);
  for (int e : s)
    ++counts[static_cast<std::size_t>(element_to_block_mapping_[static_cast<std::size_t>(e)])];
}

template <class Container>
bool PartitionMatroidSetConstraint<Container>::BlockOfHasRoom(
    int e, const std::vector<int>& counts) const {
  const auto b = static_cast<std::size_t>(element_to_block_mapping_[static_cast<std::size_t>(e)]);
  return counts[b] < limits_[b];
}

template <class Container>
bool PartitionMatroidSetConstraint<Container>::IsFeasible(const Set& s) const {
  VELMOR_CHECK_SET_GROUND_SIZE(s);
  std::vector<int> counts;
  CountPerBlock(s, counts);
  for (std::size_t b = 0; b < counts.size(); ++b) {
    if (counts[b] > limits_[b]) return false;
  }
  return true;
}

template <class Container>
bool PartitionMatroidSetConstraint<Container>::IsUnionFeasible(int e, const Set& s) const {
  VELMOR_CHECK_SET_GROUND_SIZE(s);
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, GroundSetSize());
  if (s.contains(e)) return IsFeasible(s);
  std::vector<int> counts;
  CountPerBlock(s, counts);
  return BlockOfHasRoom(e, counts);
}

template <class Container>
bool PartitionMatroidSetConstraint<Container>::IsDisjointUnionFeasible(int e, const Set& s) const {
  VELMOR_CHECK_CONSTRAINT_GROUND_SIZE(
      s, GroundSetSize(),
      "Invalid argument, the_set.GroundSetSize()=%d !=constraint.GroundSetSize()=%d.");
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, GroundSetSize());
  std::vector<int> counts;
  CountPerBlock(s, counts);
  return BlockOfHasRoom(e, counts);
}

template <class Container>
bool PartitionMatroidSetConstraint<Container>::IsMaximal(const Set& s) const {
  VELMOR_CHECK_SET_GROUND_SIZE(s);
  std::vector<int> counts;
  CountPerBlock(s, counts);
  for (std::size_t b = 0; b < counts.size(); ++b) {
    if (counts[b] > limits_[b] || counts[b] < std::min(limits_[b], block_sizes_[b])) return false;
  }
  return true;
}

template <class Container>
std::string PartitionMatroidSetConstraint<Container>::Description() const {
  return fmt::format("partition matroid, |V|={}, #blocks={}, {}", GroundSetSize(), NumberOfBlocks(),
                     DownClosedSetConstraint::Description());
}

template <class Container>
std::unique_ptr<SetConstraint::ConstraintGrowingContextExternal>
PartitionMatroidSetConstraint<Container>::MakeGrowingContextExternal(const Set& s) const {
  return std::make_unique<PartitionMatroidSetConstraintGrowingContextExternal>(*this, s);
}

template <class Container>
std::unique_ptr<SetConstraint::ConstraintGrowingContext>
PartitionMatroidSetConstraint<Container>::MakeGrowingContext() const {
  return std::make_unique<PartitionMatroidSetConstraintGrowingContext>(
      *this, UnorderedHashSet(GroundSetSize()));
}

template <class Container>
std::unique_ptr<SetConstraint::ConstraintGrowingContext>
PartitionMatroidSetConstraint<Container>::MakeGrowingContext(const Set& s) const {
  return std::make_unique<PartitionMatroidSetConstraintGrowingContext>(*this, s);
}

template <class Container>
int PartitionMatroidSetConstraint<Container>::RankOfSet(const Set& s) const {
  VELMOR_CHECK_SET_GROUND_SIZE(s);
  if (s.size() == GroundSetSize()) return rank_of_ground_set_;
  std::vector<int> counts;
  CountPerBlock(s, counts);
  int rank = 0;
  for (std::size_t b = 0; b < counts.size(); ++b) rank += std::min(counts[b], limits_[b]);
  return rank;
}

template <class Container>
bool PartitionMatroidSetConstraint<Container>::IsACycle(const Set& s) const {
  VELMOR_CHECK_SET_GROUND_SIZE(s);
  if (static_cast<long>(s.size()) > static_cast<long>(rank_of_ground_set_) + 1) return false;
  if (s.empty()) return false;
  const int block = element_to_block_mapping_[static_cast<std::size_t>(*s.begin())];
  for (int e : s) {
    if (element_to_block_mapping_[static_cast<std::size_t>(e)] != block) return false;
  }
  return static_cast<long>(s.size()) ==
         static_cast<long>(limits_[static_cast<std::size_t>(block)]) + 1;
}

// The growing context.

template <class Container>
PartitionMatroidSetConstraint<Container>::PartitionMatroidSetConstraintGrowingContextExternal::
    PartitionMatroidSetConstraintGrowingContextExternal(
        const PartitionMatroidSetConstraint& constraint, const Set& s)
    : constraint_(&constraint) {
  AssignContext(s);
}

template <class Container>
void PartitionMatroidSetConstraint<
    Container>::PartitionMatroidSetConstraintGrowingContextExternal::AssignContext(const Set& s) {
  if (s.GroundSetSize() > GroundSetSize()) {
    VELMOR_THROW(std::invalid_argument,
                 "Invalid argument, the_set.GroundSetSize()=%d != constraint.GroundSetSize()=%d.",
                 s.GroundSetSize(), GroundSetSize());
  }
  constraint_->CountPerBlock(s, counts_);
  blocks_over_limit_ = 0;
  for (std::size_t b = 0; b < counts_.size(); ++b) {
    if (counts_[b] > constraint_->limits_[b]) ++blocks_over_limit_;
  }
}

template <class Container>
bool PartitionMatroidSetConstraint<
    Container>::PartitionMatroidSetConstraintGrowingContextExternal::IsMaximal(const Set&) const {
  if (blocks_over_limit_ != 0) return false;
  for (std::size_t b = 0; b < counts_.size(); ++b) {
    if (counts_[b] < std::min(constraint_->limits_[b], constraint_->block_sizes_[b])) return false;
  }
  return true;
}

template <class Container>
bool PartitionMatroidSetConstraint<Container>::PartitionMatroidSetConstraintGrowingContextExternal::
    IsDisjointUnionFeasible(int e, const Set&) const {
  const auto& mapping = constraint_->element_to_block_mapping_;
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, static_cast<int>(mapping.size()));
  return constraint_->BlockOfHasRoom(e, counts_);
}

template <class Container>
bool PartitionMatroidSetConstraint<Container>::PartitionMatroidSetConstraintGrowingContextExternal::
    AddNewElementToContext(int e, Set& s, bool also_insert) {
  const auto& mapping = constraint_->element_to_block_mapping_;
  VELMOR_CHECK_CONSTRAINT_ELEMENT(e, static_cast<int>(mapping.size()));
  if (also_insert) s.insert(e);
  const std::size_t b = static_cast<std::size_t>(mapping[static_cast<std::size_t>(e)]);
  if (counts_[b] == constraint_->limits_[b]) ++blocks_over_limit_;
  ++counts_[b];
  return true;
}

template class PartitionMatroidSetConstraint<std::vector<int>>;

}  // namespace velmor
