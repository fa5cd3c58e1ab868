#ifndef VELMOR_SETS_REALBITSET_H_
#define VELMOR_SETS_REALBITSET_H_

// Dense bit set over [0, n): one bit per element in 64-bit words, for large
// sets. Iteration is ascending. insert and remove throw std::invalid_argument
// "Element %d invalid for this set with |V|=%d." for an element v >= n; they do
// not test v < 0 (elements are never negative), and a negative element fails
// with std::out_of_range from the word access, leaving the set unchanged.

#include <cstdint>
#include <memory>
#include <vector>

#include "sets/Set.h"

namespace velmor {

class RealBitSet : public Set {
 public:
  explicit RealBitSet(int ground_set_size = 0);
  RealBitSet(const RealBitSet&) = default;
  RealBitSet& operator=(const RealBitSet& other);
  using Set::operator=;

  using Set::Assign;
  std::unique_ptr<Set> clone() const override;

  bool insert(int v) override;
  bool remove(int v) override;
  bool contains(int v) const override {
    return v >= 0 && v < n_ && ((words_[Word(v)] >> Bit(v)) & 1u) != 0;
  }
  void PrepareToInsertTheFollowingNumberOfItems(int) override {}
  void MakeEmpty() override;
  void MakeFull() override;
  // Throws "Element %d invalid for this set with |V|=%d." for v outside [0, n).
  void MakeSingleton(int v) override;
  void MakeEmptyAndChangeGroundSetSize(int n) override;

  Cursor CursorBegin() const override { return NextSetBit(0); }
  Cursor CursorNext(Cursor cursor) const override { return NextSetBit(cursor + 1); }
  int CursorElement(Cursor cursor) const override { return static_cast<int>(cursor); }
  Cursor CursorEnd() const override { return n_; }

 private:
  static std::size_t Word(int v) { return static_cast<std::size_t>(v) >> 6; }
  static unsigned Bit(int v) { return static_cast<unsigned>(v) & 63u; }
  // Position of the first set bit at or after `from`, or n.
  Cursor NextSetBit(Cursor from) const;

  std::vector<uint64_t> words_;
};

}  // namespace velmor

#endif  // VELMOR_SETS_REALBITSET_H_
