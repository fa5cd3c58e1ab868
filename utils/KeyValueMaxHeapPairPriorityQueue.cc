#include "utils/KeyValueMaxHeapPairPriorityQueue.h"

namespace velmor {

using KeyValuePair = KeyValueMaxHeapPairPriorityQueue::KeyValuePair;

namespace internal {

void SiftDownPlain(KeyValuePair* data, std::size_t size, std::size_t slot) {
  const KeyValuePair moving = data[slot];
  std::size_t hole = slot;
  for (;;) {
    std::size_t child = 2 * hole + 1;
    if (child >= size) break;
    if (child + 1 < size && data[child + 1].second > data[child].second) ++child;
    if (!(data[child].second > moving.second)) break;
    data[hole] = data[child];
    hole = child;
  }
  data[hole] = moving;
}

void SiftDownBottomUp(KeyValuePair* data, std::size_t size, std::size_t slot) {
  const KeyValuePair moving = data[slot];
  // Descend along the larger children to a leaf.
  std::size_t leaf = slot;
  for (;;) {
    std::size_t child = 2 * leaf + 1;
    if (child >= size) break;
    if (child + 1 < size && data[child + 1].second > data[child].second) ++child;
    leaf = child;
  }
  // Values on the path do not increase downwards, so the pairs strictly
  // greater than `moving` form a prefix of it: climb to the last of them.
  while (leaf != slot && !(data[leaf].second > moving.second)) leaf = (leaf - 1) / 2;
  // Shift the path from `slot` to `leaf` up by one, then place `moving`.
  KeyValuePair carried = moving;
  for (std::size_t at = leaf; at != slot;) {
    std::swap(carried, data[at]);
    at = (at - 1) / 2;
  }
  data[slot] = carried;
}

}  // namespace internal

KeyValueMaxHeapPairPriorityQueue::KeyValueMaxHeapPairPriorityQueue(
    std::vector<KeyValuePair>&& pairs)
    : heap_(std::move(pairs)) {
  for (std::size_t slot = heap_.size() / 2; slot-- > 0;) SiftDown(slot);
}

void KeyValueMaxHeapPairPriorityQueue::SiftDown(std::size_t slot) {
  if (heap_.size() * sizeof(KeyValuePair) < kBottomUpThresholdBytes) {
    internal::SiftDownPlain(heap_.data(), heap_.size(), slot);
  } else {
    internal::SiftDownBottomUp(heap_.data(), heap_.size(), slot);
  }
}

void KeyValueMaxHeapPairPriorityQueue::Push(int32_t key, float value) {
  heap_.emplace_back(key, value);
  std::size_t hole = heap_.size() - 1;
  while (hole > 0) {
    const std::size_t parent = (hole - 1) / 2;
    if (!(heap_[parent].second < value)) break;
    heap_[hole] = heap_[parent];
    hole = parent;
  }
  heap_[hole] = KeyValuePair(key, value);
}

bool KeyValueMaxHeapPairPriorityQueue::Pop() {
  if (heap_.empty()) VELMOR_THROW(std::out_of_range, "Heap size 0, cannot pop.");
  heap_.front() = heap_.back();
  heap_.pop_back();
  if (heap_.size() > 1) SiftDown(0);
  return heap_.empty();
}

void KeyValueMaxHeapPairPriorityQueue::PopAndPushNew(int32_t key, float value) {
  if (heap_.empty()) VELMOR_THROW(std::out_of_range, "Heap size 0, cannot pop.");
  heap_.front() = KeyValuePair(key, value);
  SiftDown(0);
}

void KeyValueMaxHeapPairPriorityQueue::ChangeTopValue(float value) {
  if (heap_.empty()) VELMOR_THROW(std::out_of_range, "Heap size 0, cannot pop.");
  const float old_value = heap_.front().second;
  heap_.front().second = value;
  if (old_value > value) SiftDown(0);
}

}  // namespace velmor
