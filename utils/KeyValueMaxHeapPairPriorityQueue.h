#ifndef VELMOR_UTILS_KEYVALUEMAXHEAPPAIRPRIORITYQUEUE_H_
#define VELMOR_UTILS_KEYVALUEMAXHEAPPAIRPRIORITYQUEUE_H_

// Binary max-heap of (key, value) pairs ordered by value alone, stored in one
// contiguous array in the implicit layout (children of slot i at 2i+1 and
// 2i+2). Keys are element numbers, values float gains: 8 bytes a pair.
//
// Sift-down rule: at slot i the larger child is the right one only when its
// value is strictly greater than the left one's, and the pair moves down only
// while that child's value is strictly greater than its own; a pair is never
// moved below a child of equal value. Sift-up moves a pair above its parent
// only while the parent's value is strictly smaller. Two sift-down
// implementations give identical arrays: the plain one for arrays below
// kBottomUpThresholdBytes, and for larger ones a bottom-up descent (follow the
// larger children to a leaf, then climb back to the pair's place), which
// saves comparisons when the pair sinks deep, as a pair taken from the end
// usually does.
//
// The operations that need a non-empty heap throw std::out_of_range.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

#include "utils/error_messages.h"

namespace velmor {

class KeyValueMaxHeapPairPriorityQueue {
 public:
  using KeyValuePair = std::pair<int32_t, float>;

  // Arrays of at least this many bytes use the bottom-up sift-down.
  static constexpr std::size_t kBottomUpThresholdBytes = 4000001;

  KeyValueMaxHeapPairPriorityQueue() = default;
  // Takes the vector over (no copy) and arranges it as a heap bottom-up, O(size).
  explicit KeyValueMaxHeapPairPriorityQueue(std::vector<KeyValuePair>&& pairs);

  void Reserve(std::size_t n) { heap_.reserve(n); }
  // Appends and sifts up, O(log size).
  void Push(int32_t key, float value);

  // Throws std::out_of_range "Heap size 0, cannot get top value of empty
  // priority queue." when empty.
  float TopValue() const {
    if (heap_.empty()) {
      VELMOR_THROW(std::out_of_range, "Heap size 0, cannot get top value of empty priority queue.");
    }
    return heap_.front().second;
  }
  // Throws std::out_of_range "Heap size 0, cannot get top key of empty
  // priority queue." when empty.
  int32_t TopKey() const {
    if (heap_.empty()) {
      VELMOR_THROW(std::out_of_range, "Heap size 0, cannot get top key of empty priority queue.");
    }
    return heap_.front().first;
  }

  // Removes the top: the last pair moves to the root and sifts down. Returns
  // true when the heap is now empty. Throws std::out_of_range "Heap size 0,
  // cannot pop." when empty.
  bool Pop();
  // Replaces the top by (key, value) and sifts it down. Throws as Pop.
  void PopAndPushNew(int32_t key, float value);
  // Sets the top's value; sifts down only when the old value was strictly
  // greater (a raised top stays). Throws as Pop.
  void ChangeTopValue(float value);

  std::size_t size() const { return heap_.size(); }
  bool empty() const { return heap_.empty(); }
  // The array in heap layout.
  const std::vector<KeyValuePair>& Data() const { return heap_; }

 private:
  void SiftDown(std::size_t slot);

  std::vector<KeyValuePair> heap_;
};

namespace internal {

// The two sift-down implementations over data[0, size), from `slot`.
// REQUIRES: slot < size, and the subtrees below `slot` are heaps.
void SiftDownPlain(KeyValueMaxHeapPairPriorityQueue::KeyValuePair* data, std::size_t size,
                   std::size_t slot);
void SiftDownBottomUp(KeyValueMaxHeapPairPriorityQueue::KeyValuePair* data, std::size_t size,
                      std::size_t slot);

}  // namespace internal
}  // namespace velmor

#endif  // VELMOR_UTILS_KEYVALUEMAXHEAPPAIRPRIORITYQUEUE_H_
