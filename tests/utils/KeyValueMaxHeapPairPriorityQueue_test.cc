#include "utils/KeyValueMaxHeapPairPriorityQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <queue>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/located_messages.h"

namespace velmor {
namespace {

using Heap = KeyValueMaxHeapPairPriorityQueue;
using Pair = Heap::KeyValuePair;

// Every parent's value is at least its children's.
bool IsHeap(const std::vector<Pair>& data) {
  for (std::size_t i = 1; i < data.size(); ++i) {
    if (data[(i - 1) / 2].second < data[i].second) return false;
  }
  return true;
}

// `size` pairs with values among `distinct_values` (few give many ties).
std::vector<Pair> RandomPairs(std::mt19937& engine, std::size_t size, unsigned distinct_values) {
  std::vector<Pair> pairs(size);
  for (std::size_t i = 0; i < size; ++i)
    pairs[i] = Pair(static_cast<int32_t>(i), static_cast<float>(engine() % distinct_values));
  return pairs;
}

TEST(KeyValueMaxHeapPairPriorityQueue, MatchesStdPriorityQueue) {
  std::mt19937 engine(12345);
  for (int distinct_values : {0, 3, 50}) {
    Heap heap;
    std::priority_queue<float> model;
    std::multiset<Pair> contents;
    for (int step = 0; step < 20000; ++step) {
      const unsigned operation = engine() % 8;
      const int32_t key = static_cast<int32_t>(engine() % 1000);
      const float value =
          distinct_values > 0
              ? static_cast<float>(engine() % static_cast<unsigned>(distinct_values))
              : std::uniform_real_distribution<float>(-5.0f, 5.0f)(engine);
      if (operation < 3 || model.empty()) {
        heap.Push(key, value);
        model.push(value);
        contents.insert(Pair(key, value));
      } else {
        const Pair top(heap.TopKey(), heap.TopValue());
        ASSERT_NE(contents.find(top), contents.end());
        contents.erase(contents.find(top));
        model.pop();
        if (operation < 5) {
          EXPECT_EQ(heap.Pop(), model.empty());
        } else if (operation < 7) {
          heap.PopAndPushNew(key, value);
          model.push(value);
          contents.insert(Pair(key, value));
        } else {
          // Lowered or raised in place: the same pair, a new value.
          heap.ChangeTopValue(value);
          model.push(value);
          contents.insert(Pair(top.first, value));
        }
      }
      ASSERT_EQ(heap.size(), model.size());
      if (!model.empty()) {
        ASSERT_EQ(heap.TopValue(), model.top());
      }
      if (step % 97 == 0) {
        ASSERT_TRUE(IsHeap(heap.Data()));
        std::vector<Pair> sorted = heap.Data();
        std::sort(sorted.begin(), sorted.end());
        ASSERT_TRUE(std::equal(sorted.begin(), sorted.end(), contents.begin(), contents.end()));
      }
    }
  }
}

TEST(KeyValueMaxHeapPairPriorityQueue, LargeArraysUseTheSameOrder) {
  // 500,000 pairs are 4,000,000 bytes (plain sift-down), 500,001 pairs take
  // the bottom-up one; both must give the array a plain heap would, with many
  // ties (1000 distinct values).
  std::mt19937 engine(3);
  for (std::size_t size : {500000u, 500001u}) {
    std::vector<Pair> pairs = RandomPairs(engine, size, 1000);
    std::vector<Pair> reference = pairs;
    for (std::size_t slot = size / 2; slot-- > 0;)
      internal::SiftDownPlain(reference.data(), size, slot);
    Heap heap(std::move(pairs));
    ASSERT_EQ(heap.Data(), reference);
    for (int pop = 0; pop < 100; ++pop) {
      reference[0] = reference.back();
      reference.pop_back();
      internal::SiftDownPlain(reference.data(), reference.size(), 0);
      heap.Pop();
    }
    ASSERT_EQ(heap.Data(), reference);
  }
}

TEST(KeyValueMaxHeapPairPriorityQueue, EdgeCases) {
  // Empty heap: every access is refused with the accessor's name.
  Heap empty;
  testing::ExpectLocatedErrors<std::out_of_range>(
      "KeyValueMaxHeapPairPriorityQueue",
      {{[&] { (void)empty.TopValue(); }, "TopValue",
        "Heap size 0, cannot get top value of empty priority queue."},
       {[&] { (void)empty.TopKey(); }, "TopKey",
        "Heap size 0, cannot get top key of empty priority queue."},
       {[&] { (void)empty.Pop(); }, "Pop", "Heap size 0, cannot pop."},
       {[&] { empty.PopAndPushNew(1, 1.0f); }, "PopAndPushNew", "Heap size 0, cannot pop."},
       {[&] { empty.ChangeTopValue(1.0f); }, "ChangeTopValue", "Heap size 0, cannot pop."}});
  EXPECT_TRUE(empty.empty());
  // Among equal children the left one rises.
  Heap ties(std::vector<Pair>{{0, 1.0f}, {1, 2.0f}, {2, 2.0f}});
  EXPECT_EQ(ties.TopKey(), 1);
  ties.Pop();
  EXPECT_EQ(ties.TopKey(), 2);
}

}  // namespace
}  // namespace velmor
