#include <gtest/gtest.h>

#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "sets/FixedEmptySet.h"
#include "sets/FixedGroundSet.h"
#include "sets/FixedSingletonSet.h"
#include "sets/RangeSet.h"
#include "sets/RealBitSet.h"
#include "support/located_messages.h"
#include "support/sets.h"

namespace velmor {
namespace {

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
