#ifndef VELMOR_SETS_RANGESET_H_
#define VELMOR_SETS_RANGESET_H_

// The half-open interval [b, e) of the ground set, 0 <= b <= e <= n; the empty
// range is kept as [0, 0). It is changed only as a whole (SetRange, MakeEmpty,
// MakeFull, MakeSingleton); element-wise insertion and removal throw
// std::invalid_argument. Iteration is ascending.

#include <memory>

#include "sets/Set.h"

namespace velmor {

class RangeSet : public Set {
 public:
  explicit RangeSet(int ground_set_size = 0) : Set(ground_set_size) {}
  RangeSet(const RangeSet&) = default;
  RangeSet& operator=(const RangeSet& other);
  using Set::operator=;

  // Accepts a source whose elements form one contiguous run (or none); any
  // other source throws "Can not insert to this set." and changes nothing.
  using Set::Assign;
  void Assign(const Set& other) override;
  std::unique_ptr<Set> clone() const override;

  // Always throw "Can not insert to this set." / "Can not remove from this set.".
  bool insert(int v) override;
  bool remove(int v) override;
  void insertSet(const Set& other) override;
  void removeSet(const Set& other) override;
  // Accepted only when `other` is exactly {u}, so that nothing is inserted.
  void insertSetIgnoreSingleton(const Set& other, int u) override;

  bool contains(int v) const override { return begin_ <= v && v < end_; }
  void PrepareToInsertTheFollowingNumberOfItems(int) override {}
  void MakeEmpty() override;
  void MakeFull() override;
  // Throws "Element invalid %d for this set." for v outside [0, n).
  void MakeSingleton(int v) override;
  // Makes the set [b, e); throws for b < 0, b > e or e > n.
  void SetRange(int b, int e);

  Cursor CursorBegin() const override { return begin_; }
  Cursor CursorNext(Cursor cursor) const override { return cursor + 1; }
  int CursorElement(Cursor cursor) const override { return static_cast<int>(cursor); }
  Cursor CursorEnd() const override { return end_; }

  int RangeBegin() const { return begin_; }
  int RangeEnd() const { return end_; }

 private:
  int begin_ = 0;
  int end_ = 0;
};

}  // namespace velmor

#endif  // VELMOR_SETS_RANGESET_H_
