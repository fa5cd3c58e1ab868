#include "support/sets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "sets/FixedEmptySet.h"
#include "sets/FixedGroundSet.h"
#include "sets/FixedSingletonSet.h"
#include "sets/RangeSet.h"
#include "sets/RealBitSet.h"
#include "sets/UnorderedHashSet.h"
#include "support/located_messages.h"

namespace velmor {
namespace {

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

// Table length a set should have when grown by inserts alone: it doubles when
// an element arrives at half load.
struct TableLengthModel {
  std::size_t length = 8;
  void BeforeInsertOfNew(int count) {
    if (count >= static_cast<int>(0.5f * static_cast<float>(length) + 0.5f)) length *= 2;
  }
};

TEST(UnorderedHashSet, MatchesStandardSetOnRandomOperations) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    std::mt19937 random(seed);
    const int n = seed % 2 == 0 ? 100 : 5000;  // small n: dense tables, many wrapped runs
    UnorderedHashSet set(n);
    std::unordered_set<int> reference;
    std::uniform_int_distribution<int> element(0, n - 1);
    for (int step = 0; step < 60000; ++step) {
      const int op = static_cast<int>(random() % 100);
      const int v = element(random);
      // Phases that favour insertion or removal, so the table grows and shrinks.
      const bool grow_phase = (step / 5000) % 2 == 0;
      if (op < (grow_phase ? 60 : 25)) {
        ASSERT_EQ(set.insert(v), reference.insert(v).second);
      } else if (op < 95) {
        ASSERT_EQ(set.remove(v), reference.erase(v) > 0);
      } else if (op < 99) {
        set.PrepareToInsertTheFollowingNumberOfItems(static_cast<int>(random() % 200));
      } else if (random() % 20 == 0) {
        set.MakeEmpty();
        reference.clear();
      }
      ASSERT_EQ(set.size(), static_cast<int>(reference.size()));
      ASSERT_EQ(set.contains(v), reference.count(v) == 1);
      if (step % 997 == 0) {
        ASSERT_EQ(Sorted(set), Sorted(reference));
        for (int w : reference) ASSERT_TRUE(set.contains(w));
      }
    }
    EXPECT_EQ(Sorted(set), Sorted(reference));
  }
}

TEST(UnorderedHashSet, BulkFill) {
  // A reservation and MakeFull over a table that grew and shrank.
  UnorderedHashSet set(1000);
  for (int v = 0; v < 600; ++v) set.insert(v);
  for (int v = 599; v >= 0; --v) set.remove(v);
  set.PrepareToInsertTheFollowingNumberOfItems(100);
  set.MakeFull();
  EXPECT_EQ(set.size(), 1000);
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
  // Element 0 (stored as slot value 1) is in every random run above;
  // contains outside [0, n) answers false.
  UnorderedHashSet set(10);
  EXPECT_FALSE(set.contains(-1));
  EXPECT_FALSE(set.contains(10));
  EXPECT_FALSE(set.contains(1 << 30));

  // Refused calls leave the set unchanged; a reservation needing 2^31 slots
  // names the 32-bit limit.
  set.insert(3);
  UnorderedHashSet huge(1 << 30);
  testing::ExpectLocatedErrors(
      "UnorderedHashSet",
      {{[&] { set.insert(10); }, "insert", "Element 10 invalid for set with |V|=10."},
       {[&] { set.remove(-1); }, "remove", "Element -1 invalid for set with |V|=10."},
       {[&] { set.MakeSingleton(11); }, "MakeSingleton",
        "Element 11 invalid for this set with |V|=10."},
       {[&] { set.insertSet(testing::SetOf(100, {50})); }, "insertSet",
        "Element 50 invalid for set with |V|=10."},
       {[&] { huge.PrepareToInsertTheFollowingNumberOfItems(1 << 30); },
        "PrepareToInsertTheFollowingNumberOfItems",
        "Unable to create hash table with current 32-bit data type."}});
  testing::ExpectLocatedError([&] { set.MakeEmptyAndChangeGroundSetSize(-4); }, "Set",
                              "MakeEmptyAndChangeGroundSetSize", "Invalid ground set size -4.");
  EXPECT_EQ(Sorted(set), std::vector<int>{3});
  EXPECT_EQ(set.GroundSetSize(), 10);
  EXPECT_EQ(set.TableLength(), 8u);
  EXPECT_EQ(huge.TableLength(), 8u);
}

TEST(UnorderedHashSet, AssignmentsFromContainersAndSetOperations) {
  // Assign(container, n) takes n; assignment from a container keeps the set's
  // own ground-set size. Through the hash set and the bit set.
  std::vector<bool> bits(30, false);
  bits[4] = bits[29] = true;
  UnorderedHashSet hash(50);
  RealBitSet dense(50);
  for (Set* set : {static_cast<Set*>(&hash), static_cast<Set*>(&dense)}) {
    set->Assign(std::vector<int>{7, 3, 0, 49}, 50);
    EXPECT_EQ(Sorted(*set), (std::vector<int>{0, 3, 7, 49}));
    set->Assign(std::set<int>{1, 2}, 20);
    EXPECT_EQ(Sorted(*set), (std::vector<int>{1, 2}));
    EXPECT_EQ(set->GroundSetSize(), 20);
    set->Assign(bits, 30);
    EXPECT_EQ(Sorted(*set), (std::vector<int>{4, 29}));
    *set = std::vector<int>{3, 29, 0};
    EXPECT_EQ(Sorted(*set), (std::vector<int>{0, 3, 29}));
    *set = std::set<int>{5};
    EXPECT_EQ(Sorted(*set), std::vector<int>{5});
    *set = std::unordered_set<int>{8, 7};
    EXPECT_EQ(Sorted(*set), (std::vector<int>{7, 8}));
    *set = bits;
    EXPECT_EQ(Sorted(*set), (std::vector<int>{4, 29}));
    EXPECT_EQ(set->GroundSetSize(), 30);
  }
  // Set insertion skipping one element, removal of a set; copies are independent.
  const UnorderedHashSet other = testing::SetOf(50, {1, 2, 3, 4});
  UnorderedHashSet target(50);
  target.insertSetIgnoreSingleton(other, 3);
  EXPECT_EQ(Sorted(target), (std::vector<int>{1, 2, 4}));
  target.removeSet(other);
  EXPECT_TRUE(target.empty());
  auto copy = other.clone();
  copy->remove(1);
  EXPECT_TRUE(other.contains(1));
  EXPECT_EQ(copy->size(), 3);
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
}

std::vector<int> Elements(const Set& s) { return std::vector<int>(s.begin(), s.end()); }

TEST(RangeSet, RangesAndRefusals) {
  RangeSet range(10);
  // An empty range reads as [0, 0) and iterates over nothing.
  range.SetRange(3, 3);
  EXPECT_EQ(range.RangeBegin(), 0);
  EXPECT_EQ(range.RangeEnd(), 0);
  EXPECT_TRUE(Elements(range).empty());
  range.SetRange(2, 5);
  EXPECT_EQ(Elements(range), (std::vector<int>{2, 3, 4}));
  EXPECT_FALSE(range.contains(5));
  // Refusals name the range and leave the set unchanged; insertSetIgnoreSingleton
  // accepts other = {u}.
  const UnorderedHashSet two = testing::SetOf(10, {1, 8});
  const FixedSingletonSet single(10, 6);
  const std::string insert = "Can not insert to this set.",
                    remove = "Can not remove from this set.";
  testing::ExpectLocatedErrors(
      "RangeSet",
      {{[&] { range.SetRange(0, 11); }, "SetRange",
        "Can not assign such a range [0,11) to a RangeSet."},
       {[&] { range.SetRange(2, 1); }, "SetRange",
        "Can not assign such a range [2,1) to a RangeSet."},
       {[&] { range.SetRange(-1, 1); }, "SetRange",
        "Can not assign such a range [-1,1) to a RangeSet."},
       {[&] { range.insert(7); }, "insert", insert},
       {[&] { range.remove(2); }, "remove", remove},
       {[&] { range.MakeSingleton(10); }, "MakeSingleton", "Element invalid 10 for this set."},
       {[&] { range.insertSet(two); }, "insertSet", insert},
       {[&] { range.removeSet(two); }, "removeSet", remove},
       {[&] { range.Assign(two); }, "Assign", insert},
       {[&] { range.insertSetIgnoreSingleton(single, 5); }, "insertSetIgnoreSingleton", insert}});
  range.insertSetIgnoreSingleton(single, 6);
  EXPECT_EQ(Elements(range), (std::vector<int>{2, 3, 4}));
  // Assignment from a contiguous set becomes that range.
  range.Assign(testing::SetOf(20, {9, 7, 8}));
  EXPECT_EQ(Elements(range), (std::vector<int>{7, 8, 9}));
  EXPECT_EQ(range.GroundSetSize(), 20);
  // The fixed sets.
  EXPECT_EQ(Elements(FixedGroundSet(5)), (std::vector<int>{0, 1, 2, 3, 4}));
  EXPECT_TRUE(Elements(FixedEmptySet(5)).empty());
  EXPECT_EQ(Elements(FixedSingletonSet(5, 4)), std::vector<int>{4});
  EXPECT_THROW(FixedSingletonSet(5, 5), std::invalid_argument);
}

TEST(RealBitSet, MatchesStandardSet) {
  for (int n : {1, 63, 64, 65, 130, 1000}) {
    RealBitSet bits(n);
    std::set<int> reference;
    std::mt19937 random(static_cast<unsigned>(n));
    for (int step = 0; step < 4000; ++step) {
      const int v = static_cast<int>(random() % static_cast<unsigned>(n));
      if (random() % 3 != 0) {
        ASSERT_EQ(bits.insert(v), reference.insert(v).second);
      } else {
        ASSERT_EQ(bits.remove(v), reference.erase(v) == 1);
      }
      ASSERT_EQ(bits.size(), static_cast<int>(reference.size()));
    }
    EXPECT_EQ(Elements(bits), std::vector<int>(reference.begin(), reference.end()));
    bits.MakeFull();
    EXPECT_EQ(bits.size(), n);
    EXPECT_EQ(Elements(bits), Elements(FixedGroundSet(n)));
    bits.MakeEmpty();
    EXPECT_TRUE(Elements(bits).empty());
  }
  // Elements outside [0, n); set insertion and removal from another kind of set.
  RealBitSet bits(70);
  bits.insert(69);
  EXPECT_FALSE(bits.contains(70));
  testing::ExpectLocatedErrors(
      "RealBitSet",
      {{[&] { bits.insert(70); }, "insert", "Element 70 invalid for this set with |V|=70."},
       {[&] { bits.remove(71); }, "remove", "Element 71 invalid for this set with |V|=70."}});
  EXPECT_EQ(bits.size(), 1);
  // Only v >= n is tested with that message; a negative element fails in the
  // word access instead.
  EXPECT_THROW(bits.insert(-1), std::out_of_range);
  EXPECT_THROW(bits.remove(-65), std::out_of_range);
  EXPECT_EQ(Elements(bits), std::vector<int>{69});
  RangeSet range(70);
  range.SetRange(60, 70);
  bits.insertSet(range);
  EXPECT_EQ(bits.size(), 10);
  bits.removeSet(range);
  EXPECT_TRUE(bits.empty());
}

}  // namespace
}  // namespace velmor
