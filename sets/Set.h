#ifndef VELMOR_SETS_SET_H_
#define VELMOR_SETS_SET_H_

// A finite set of element indices of a ground set V = {0, ..., n-1}.
//
// Set functions, constraints and algorithms take sets only through this
// interface. Every insertion checks 0 <= v < n; `contains` does not check and
// answers false outside V. Checks come before any change, so a refused call
// leaves the set as it was. Iteration follows the set's storage order (slot
// order for a hash set, ascending order for ranges and bit sets).
//
// One thread at a time may write a set; concurrent read-only use is safe.

#include <cstdint>
#include <iosfwd>
#include <iterator>
#include <memory>
#include <set>
#include <unordered_set>
#include <vector>

namespace velmor {

class Set {
 public:
  // Opaque iteration position; its meaning belongs to the concrete set.
  using Cursor = std::int64_t;

  // Forward iterator over the elements, driven by the cursor operations.
  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = int;
    using difference_type = std::ptrdiff_t;
    using pointer = const int*;
    using reference = int;

    const_iterator() = default;
    const_iterator(const Set* set, Cursor cursor) : set_(set), cursor_(cursor) {}
    int operator*() const { return set_->CursorElement(cursor_); }
    const_iterator& operator++() {
      cursor_ = set_->CursorNext(cursor_);
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator old = *this;
      ++*this;
      return old;
    }
    bool operator==(const const_iterator& other) const { return cursor_ == other.cursor_; }

   private:
    const Set* set_ = nullptr;
    Cursor cursor_ = 0;
  };

  explicit Set(int ground_set_size = 0) : n_(ground_set_size) {}
  virtual ~Set() = default;

  // 1. The empty set (full = false) or V (full = true) of a ground set of size n.
  virtual void Reset(int n, bool full);
  // 2-7. Replace the contents; each takes the ground-set size from its argument.
  // From a Set: empty, then insert the source's elements one by one in its
  // iteration order, with no reservation, so the result iterates exactly as a
  // set grown by those inserts. The containers reserve for their size first.
  virtual void Assign(const Set& other);
  virtual void Assign(const std::vector<int>& elements, int n);
  virtual void Assign(const std::vector<bool>& bits, int n);
  virtual void Assign(const int* elements, int count, int n);
  virtual void Assign(const std::set<int>& elements, int n);
  virtual void Assign(const std::unordered_set<int>& elements, int n);
  // 8. A new heap copy of the same concrete type.
  virtual std::unique_ptr<Set> clone() const = 0;

  // 10-12. insert returns whether v was new, remove whether v was present.
  virtual bool insert(int v) = 0;
  virtual bool remove(int v) = 0;
  virtual bool contains(int v) const = 0;
  // 13-15. Element-wise insertion or removal of another set's elements;
  // insertSetIgnoreSingleton skips the element u.
  virtual void insertSet(const Set& other);
  virtual void insertSetIgnoreSingleton(const Set& other, int u);
  virtual void removeSet(const Set& other);
  // 16. Capacity hint: k more elements will be inserted.
  virtual void PrepareToInsertTheFollowingNumberOfItems(int k) = 0;
  // 17-20.
  virtual void MakeEmpty() = 0;
  virtual void MakeFull() = 0;
  virtual void MakeSingleton(int v) = 0;
  // Throws std::invalid_argument "Invalid ground set size %d." for n < 0.
  virtual void MakeEmptyAndChangeGroundSetSize(int n);

  // 21. Cursor protocol: CursorBegin() is the first element's position (equal
  // to CursorEnd() for an empty set), CursorNext() the following position.
  virtual Cursor CursorBegin() const = 0;
  virtual Cursor CursorNext(Cursor cursor) const = 0;
  virtual int CursorElement(Cursor cursor) const = 0;
  virtual Cursor CursorEnd() const = 0;
  const_iterator begin() const { return const_iterator(this, CursorBegin()); }
  const_iterator end() const { return const_iterator(this, CursorEnd()); }

  // 22. The elements in iteration order, replacing the vector's contents.
  virtual void ToVector(std::vector<int>& elements) const;

  // Assignment operators: from a Set as Assign(other); from a container as
  // Assign(container, n) with this set's own ground-set size n.
  Set& operator=(const Set& other) {
    if (this != &other) Assign(other);
    return *this;
  }
  Set& operator=(const std::vector<int>& elements) { return AssignKeepingSize(elements); }
  Set& operator=(const std::vector<bool>& bits) { return AssignKeepingSize(bits); }
  Set& operator=(const std::set<int>& elements) { return AssignKeepingSize(elements); }
  Set& operator=(const std::unordered_set<int>& elements) { return AssignKeepingSize(elements); }

  int size() const { return count_; }
  int GroundSetSize() const { return n_; }
  bool empty() const { return count_ == 0; }

  // Human-readable dump for debugging: "{n=..., size=...: e1 e2 ...}".
  virtual void DebugPrint(std::ostream& stream) const;

 protected:
  Set(const Set&) = default;

  template <class Container>
  Set& AssignKeepingSize(const Container& elements) {
    Assign(elements, n_);
    return *this;
  }

  int n_ = 0;
  int count_ = 0;
};

}  // namespace velmor

#endif  // VELMOR_SETS_SET_H_
