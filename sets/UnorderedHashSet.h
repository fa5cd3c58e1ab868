#ifndef VELMOR_SETS_UNORDEREDHASHSET_H_
#define VELMOR_SETS_UNORDEREDHASHSET_H_

// Open-addressing hash set of element indices with linear probing: the set the
// greedy algorithms keep their solutions in.
//
// The slot table has a power-of-two length of at least 8; a slot holds
// element + 1, and 0 marks an empty slot, so a zeroed allocation is an empty
// table. The table doubles when an element arrives while the count is at the
// growth threshold (half the table), and halves when a removal takes the count
// below the shrink threshold (an eighth), never below 16 slots through
// `remove`; only MakeEmpty returns to 8. Deletion shifts entries back instead
// of leaving tombstones. Membership, insertion and removal are O(1) expected.
// Iteration runs in ascending slot order.

#include <cstdint>
#include <memory>
#include <vector>

#include "sets/Set.h"

namespace velmor {

class UnorderedHashSet : public Set {
 public:
  explicit UnorderedHashSet(int ground_set_size = 0);
  UnorderedHashSet(const UnorderedHashSet& other) = default;
  // As Assign(other): the result iterates as the source's elements inserted one
  // by one, so it may differ from the source's own slot order.
  UnorderedHashSet& operator=(const UnorderedHashSet& other);
  using Set::operator=;

  using Set::Assign;
  std::unique_ptr<Set> clone() const override;

  // Throw std::invalid_argument "Element %d invalid for set with |V|=%d."
  // for v outside [0, n).
  bool insert(int v) override;
  bool remove(int v) override;
  bool contains(int v) const override;
  void insertSet(const Set& other) override;
  void insertSetIgnoreSingleton(const Set& other, int u) override;

  // Grows the table once so that `k` more elements fit below the growth
  // threshold. Throws std::invalid_argument when that needs 2^31 slots or more.
  void PrepareToInsertTheFollowingNumberOfItems(int k) override;
  void MakeEmpty() override;
  void MakeFull() override;
  // Throws std::invalid_argument "Element %d invalid for this set with |V|=%d.".
  void MakeSingleton(int v) override;

  Cursor CursorBegin() const override;
  Cursor CursorNext(Cursor cursor) const override;
  int CursorElement(Cursor cursor) const override { return static_cast<int>(table_[cursor]) - 1; }
  Cursor CursorEnd() const override { return static_cast<Cursor>(table_.size()); }
  // Where iteration meets v: iteration visits the members in increasing
  // CursorOf; CursorEnd() for a non-member. Any insertion or removal may move
  // members. O(1) expected.
  Cursor CursorOf(int v) const {
    if (v < 0 || v >= n_) return CursorEnd();
    const uint32_t slot = FindSlot(v);
    return table_[slot] != 0 ? static_cast<Cursor>(slot) : CursorEnd();
  }

  // Three lines: table size, count and load; load factors; trigger thresholds.
  void DebugPrint(std::ostream& stream) const override;

  std::size_t TableLength() const { return table_.size(); }
  int GrowthThreshold() const { return growth_threshold_; }
  int ShrinkThreshold() const { return shrink_threshold_; }

  // The mix applied to an element before masking to its home slot.
  static uint32_t Hash(uint32_t v) {
    uint32_t a = v;
    a = (a + 0x7ED55D16u) + (a << 12);
    a = (a ^ 0xC761C23Cu) ^ (a >> 19);
    a = (a + 0x165667B1u) + (a << 5);
    a = (a + 0xD3A2646Cu) ^ (a << 9);
    a = (a + 0xFD7046C5u) + (a << 3);
    a = (a ^ 0xB55A4F09u) ^ (a >> 16);
    return a;
  }

 private:
  static constexpr uint32_t kInitialLength = 8;

  uint32_t HomeSlot(uint32_t stored) const { return Hash(stored - 1) & mask_; }
  // Slot holding v, or the empty slot where v would go.
  uint32_t FindSlot(int v) const {
    const uint32_t stored = static_cast<uint32_t>(v) + 1;
    uint32_t slot = Hash(static_cast<uint32_t>(v)) & mask_;
    while (table_[slot] != 0 && table_[slot] != stored) slot = (slot + 1) & mask_;
    return slot;
  }
  // Stores v if absent, growing first when at the growth threshold.
  bool InsertUnchecked(int v);
  void Rehash(std::size_t new_length);
  void UpdateThresholds();
  void ResetTable(std::size_t length);

  std::vector<uint32_t> table_;
  int bits_ = 3;
  uint32_t mask_ = kInitialLength - 1;
  int shift_ = 32 - 3;
  float growth_load_factor_ = 0.5f;
  int growth_threshold_ = 0;
  float shrink_load_factor_ = 0.125f;
  int shrink_threshold_ = 0;
};

}  // namespace velmor

#endif  // VELMOR_SETS_UNORDEREDHASHSET_H_
