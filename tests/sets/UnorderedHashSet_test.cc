#include "sets/UnorderedHashSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "sets/RangeSet.h"
#include "sets/RealBitSet.h"

namespace velmor {
namespace {

std::string MessageOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "nothing thrown";
}

std::vector<int> Sorted(const Set& s) {
  std::vector<int> elements(s.begin(), s.end());
  std::sort(elements.begin(), elements.end());
  return elements;
}

std::vector<int> Sorted(const std::unordered_set<int>& s) {
  std::vector<int> elements(s.begin(), s.end());
  std::sort(elements.begin(), elements.end());
  return elements;
}

// Table length a set should have, followed independently of the set: doubles
// when an element arrives at half load, halves when a removal drops below an
// eighth (never below 16), and the reservation doubles until the target fits.
struct TableLengthModel {
  std::size_t length = 8;
  static int Half(std::size_t l) { return static_cast<int>(0.5f * static_cast<float>(l) + 0.5f); }
  static int Eighth(std::size_t l) {
    return static_cast<int>(0.125f * static_cast<float>(l) + 0.5f);
  }
  void BeforeInsertOfNew(int count) {
    if (count >= Half(length)) length *= 2;
  }
  void AfterRemove(int count) {
    if (count < Eighth(length) && length / 2 >= 9) length /= 2;
  }
  void Reserve(int count, int k) {
    while (count + k >= Half(length)) length *= 2;
  }
};

TEST(UnorderedHashSet, MatchesStandardSetOnRandomOperations) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    std::mt19937 random(seed);
    const int n = seed % 2 == 0 ? 100 : 5000;  // small n: dense tables, many wrapped runs
    UnorderedHashSet set(n);
    std::unordered_set<int> reference;
    TableLengthModel model;
    std::uniform_int_distribution<int> element(0, n - 1);
    for (int step = 0; step < 60000; ++step) {
      const int op = static_cast<int>(random() % 100);
      const int v = element(random);
      // Phases that favour insertion or removal, so the table grows and shrinks.
      const bool grow_phase = (step / 5000) % 2 == 0;
      if (op < (grow_phase ? 60 : 25)) {
        if (!reference.count(v)) model.BeforeInsertOfNew(static_cast<int>(reference.size()));
        ASSERT_EQ(set.insert(v), reference.insert(v).second);
      } else if (op < 95) {
        const bool present = reference.erase(v) > 0;
        ASSERT_EQ(set.remove(v), present);
        if (present) model.AfterRemove(static_cast<int>(reference.size()));
      } else if (op < 99) {
        const int k = static_cast<int>(random() % 200);
        model.Reserve(static_cast<int>(reference.size()), k);
        set.PrepareToInsertTheFollowingNumberOfItems(k);
      } else if (random() % 20 == 0) {
        set.MakeEmpty();
        reference.clear();
        model.length = 8;
      }
      ASSERT_EQ(set.size(), static_cast<int>(reference.size()));
      ASSERT_EQ(set.TableLength(), model.length) << "step " << step;
      ASSERT_EQ(set.contains(v), reference.count(v) == 1);
      if (step % 997 == 0) {
        ASSERT_EQ(Sorted(set), Sorted(reference));
        for (int w : reference) ASSERT_TRUE(set.contains(w));
      }
    }
    EXPECT_EQ(Sorted(set), Sorted(reference));
  }
}

TEST(UnorderedHashSet, GrowthAndShrinkBoundaries) {
  UnorderedHashSet set(1000);
  EXPECT_EQ(set.TableLength(), 8u);
  for (int v = 0; v < 4; ++v) set.insert(v);
  EXPECT_EQ(set.TableLength(), 8u);  // four fit in eight slots
  set.insert(4);
  EXPECT_EQ(set.TableLength(), 16u);  // the fifth doubles the table
  EXPECT_EQ(set.GrowthThreshold(), 8);
  EXPECT_EQ(set.ShrinkThreshold(), 2);

  for (int v = 5; v < 600; ++v) set.insert(v);
  EXPECT_EQ(set.TableLength(), 2048u);
  // Removing everything halves at each crossing but stops at 16 slots.
  std::vector<std::size_t> lengths;
  for (int v = 599; v >= 0; --v) {
    set.remove(v);
    if (lengths.empty() || lengths.back() != set.TableLength())
      lengths.push_back(set.TableLength());
  }
  EXPECT_EQ(lengths, (std::vector<std::size_t>{2048, 1024, 512, 256, 128, 64, 32, 16}));
  EXPECT_EQ(set.size(), 0);
  set.MakeEmpty();
  EXPECT_EQ(set.TableLength(), 8u);

  // A reservation rehashes once to the length that keeps the target below half.
  set.PrepareToInsertTheFollowingNumberOfItems(100);
  EXPECT_EQ(set.TableLength(), 256u);
  // Bulk fill through MakeFull.
  set.MakeFull();
  EXPECT_EQ(set.size(), 1000);
  EXPECT_EQ(set.TableLength(), 2048u);
  for (int v = 0; v < 1000; ++v) ASSERT_TRUE(set.contains(v));
}

TEST(UnorderedHashSet, WrappedRunsSurviveDeletion) {
  // Elements whose home is the last slot of an 8-slot table fill slots 7, 0, 1.
  std::vector<int> last_home;
  for (int v = 0; last_home.size() < 3; ++v) {
    if ((UnorderedHashSet::Hash(static_cast<uint32_t>(v)) & 7u) == 7u) last_home.push_back(v);
  }
  std::vector<int> first_home;
  for (int v = 0; first_home.size() < 1; ++v) {
    if ((UnorderedHashSet::Hash(static_cast<uint32_t>(v)) & 7u) == 0u) first_home.push_back(v);
  }
  const int n = 1 + std::max(*std::max_element(last_home.begin(), last_home.end()), first_home[0]);
  for (int removed = 0; removed < 3; ++removed) {
    UnorderedHashSet set(n);
    for (int v : last_home) set.insert(v);
    set.insert(first_home[0]);  // its home slot 0 is taken by the wrapped run
    ASSERT_EQ(set.TableLength(), 8u);
    ASSERT_TRUE(set.remove(last_home[removed]));
    for (int v : last_home) EXPECT_EQ(set.contains(v), v != last_home[removed]);
    EXPECT_TRUE(set.contains(first_home[0]));
    EXPECT_EQ(set.size(), 3);
  }
}

TEST(UnorderedHashSet, ElementsAndMessages) {
  UnorderedHashSet set(10);
  // Element 0 is stored (as slot value 1) and found.
  EXPECT_FALSE(set.contains(0));
  EXPECT_TRUE(set.insert(0));
  EXPECT_TRUE(set.contains(0));
  EXPECT_FALSE(set.insert(0));
  EXPECT_EQ(set.size(), 1);
  EXPECT_TRUE(set.remove(0));
  EXPECT_FALSE(set.remove(0));
  // contains outside [0, n) answers false.
  EXPECT_FALSE(set.contains(-1));
  EXPECT_FALSE(set.contains(10));
  EXPECT_FALSE(set.contains(1 << 30));

  // Refused calls leave the set unchanged.
  set.insert(3);
  UnorderedHashSet big(100);
  big.insert(50);
  const std::pair<std::function<void()>, const char*> refused[] = {
      {[&] { set.insert(10); }, ":insert]] Element 10 invalid for set with |V|=10."},
      {[&] { set.remove(-1); }, ":remove]] Element -1 invalid for set with |V|=10."},
      {[&] { set.MakeSingleton(11); },
       ":MakeSingleton]] Element 11 invalid for this set with |V|=10."},
      {[&] { set.MakeEmptyAndChangeGroundSetSize(-4); }, "[[@Set:"},
      {[&] { set.MakeEmptyAndChangeGroundSetSize(-4); },
       ":MakeEmptyAndChangeGroundSetSize]] Invalid ground set size -4."},
      {[&] { set.insertSet(big); }, "Element 50 invalid"},
  };
  for (const auto& [call, text] : refused)
    EXPECT_NE(MessageOf(call).find(text), std::string::npos) << text;
  EXPECT_EQ(Sorted(set), std::vector<int>{3});
  EXPECT_EQ(set.GroundSetSize(), 10);
  EXPECT_EQ(set.TableLength(), 8u);

  // A reservation needing 2^31 slots names the 32-bit limit.
  UnorderedHashSet huge(1 << 30);
  EXPECT_NE(MessageOf([&] {
              huge.PrepareToInsertTheFollowingNumberOfItems(1 << 30);
            }).find("Unable to create hash table with current 32-bit data type."),
            std::string::npos);
  EXPECT_EQ(huge.TableLength(), 8u);
}

TEST(UnorderedHashSet, AssignmentsIterationAndPrint) {
  UnorderedHashSet set(50);
  set.Assign(std::vector<int>{7, 3, 0, 49}, 50);
  EXPECT_EQ(Sorted(set), (std::vector<int>{0, 3, 7, 49}));
  set.Assign(std::set<int>{1, 2}, 20);
  EXPECT_EQ(Sorted(set), (std::vector<int>{1, 2}));
  EXPECT_EQ(set.GroundSetSize(), 20);
  std::vector<bool> bits(30, false);
  bits[4] = bits[29] = true;
  set.Assign(bits, 30);
  EXPECT_EQ(Sorted(set), (std::vector<int>{4, 29}));

  // Iteration runs in slot order: the order of the home slots here.
  UnorderedHashSet slots(1000);
  for (int v : {10, 20, 30}) slots.insert(v);
  std::vector<std::pair<uint32_t, int>> by_slot;
  for (int v : {10, 20, 30})
    by_slot.push_back({UnorderedHashSet::Hash(static_cast<uint32_t>(v)) & 7u, v});
  std::sort(by_slot.begin(), by_slot.end());
  std::vector<int> iterated;
  slots.ToVector(iterated);
  if (by_slot[0].first != by_slot[1].first && by_slot[1].first != by_slot[2].first) {
    EXPECT_EQ(iterated,
              (std::vector<int>{by_slot[0].second, by_slot[1].second, by_slot[2].second}));
  }

  // Set insertion skipping one element, and removal of a set.
  UnorderedHashSet other(50);
  other.Assign(std::vector<int>{1, 2, 3, 4}, 50);
  UnorderedHashSet target(50);
  target.insertSetIgnoreSingleton(other, 3);
  EXPECT_EQ(Sorted(target), (std::vector<int>{1, 2, 4}));
  target.removeSet(other);
  EXPECT_TRUE(target.empty());

  // Copies are independent.
  auto copy = other.clone();
  copy->remove(1);
  EXPECT_TRUE(other.contains(1));
  EXPECT_EQ(copy->size(), 3);

  std::ostringstream print;
  other.DebugPrint(print);
  EXPECT_EQ(print.str(),
            "Hash table size = 16, num_elements = 4, load = 0.250000\n"
            "current growth (shrink) load factor = 0.500000 (0.125000)\n"
            "current growth (shrink) trigger threshold = 8 (2)\n");
}

TEST(UnorderedHashSet, AssignmentFromASetGrowsAsItsInsertsWould) {
  // Sources: a hash set that grew and shrank (its table is longer than its
  // elements need), a range of four (a reservation would take 16 slots where
  // four inserts keep 8), and a bit set.
  UnorderedHashSet shrunk(1000);
  for (int v = 0; v < 200; ++v) shrunk.insert(v);
  for (int v = 0; v < 190; ++v) shrunk.remove(v);
  RangeSet four(100);
  four.SetRange(10, 14);
  RealBitSet bits(300);
  for (int v : {5, 77, 130, 299, 64, 63}) bits.insert(v);
  const Set* sources[] = {&shrunk, &four, &bits};
  for (const Set* source : sources) {
    // The oracle: an empty set grown by the source's elements in its order.
    UnorderedHashSet grown(source->GroundSetSize());
    TableLengthModel model;
    for (int v : *source) {
      model.BeforeInsertOfNew(grown.size());
      grown.insert(v);
    }
    std::vector<int> expected;
    grown.ToVector(expected);
    UnorderedHashSet assigned(3), through_set(5), copied(1000);
    for (int v : {0, 1, 2}) assigned.insert(v);
    assigned.Assign(*source);
    static_cast<Set&>(through_set) = *source;
    std::vector<const UnorderedHashSet*> results = {&assigned, &through_set};
    if (source == &shrunk) {
      copied = shrunk;
      results.push_back(&copied);
    }
    for (const UnorderedHashSet* result : results) {
      std::vector<int> iterated;
      result->ToVector(iterated);
      EXPECT_EQ(iterated, expected);
      EXPECT_EQ(result->TableLength(), model.length);
      EXPECT_EQ(result->GroundSetSize(), source->GroundSetSize());
    }
  }

  // From the containers, keeping the set's own ground-set size.
  UnorderedHashSet target(40);
  target = std::vector<int>{3, 39, 0};
  EXPECT_EQ(Sorted(target), (std::vector<int>{0, 3, 39}));
  target = std::set<int>{5};
  EXPECT_EQ(Sorted(target), std::vector<int>{5});
  target = std::unordered_set<int>{8, 7};
  EXPECT_EQ(Sorted(target), (std::vector<int>{7, 8}));
  std::vector<bool> members(40, false);
  members[1] = members[38] = true;
  RealBitSet dense(40);
  for (Set* set : {static_cast<Set*>(&target), static_cast<Set*>(&dense)}) {
    *set = members;
    EXPECT_EQ(Sorted(*set), (std::vector<int>{1, 38}));
    EXPECT_EQ(set->GroundSetSize(), 40);
  }
}

}  // namespace
}  // namespace velmor
