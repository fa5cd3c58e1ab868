#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "sets/FixedEmptySet.h"
#include "sets/FixedGroundSet.h"
#include "sets/FixedSingletonSet.h"
#include "sets/RangeSet.h"
#include "sets/RealBitSet.h"
#include "sets/UnorderedHashSet.h"

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

std::vector<int> Elements(const Set& s) { return std::vector<int>(s.begin(), s.end()); }

// Each call must throw std::invalid_argument whose message contains the text.
void ExpectMessages(const std::vector<std::pair<std::function<void()>, std::string>>& cases) {
  for (const auto& [call, text] : cases) {
    const std::string message = MessageOf(call);
    EXPECT_NE(message.find(text), std::string::npos) << message << "\nwanted: " << text;
  }
}

TEST(RangeSet, RangesAndRefusals) {
  RangeSet range(10);
  // An empty range reads as [0, 0) and iterates over nothing.
  range.SetRange(3, 3);
  EXPECT_EQ(range.RangeBegin(), 0);
  EXPECT_EQ(range.RangeEnd(), 0);
  EXPECT_TRUE(Elements(range).empty());
  range.SetRange(0, 10);
  EXPECT_EQ(range.size(), 10);
  range.SetRange(2, 5);
  EXPECT_EQ(Elements(range), (std::vector<int>{2, 3, 4}));
  EXPECT_TRUE(range.contains(2));
  EXPECT_FALSE(range.contains(5));

  // Refusals name the range and leave the set unchanged.
  UnorderedHashSet two(10);
  two.insert(1);
  two.insert(8);
  FixedSingletonSet single(10, 6);
  ExpectMessages({
      {[&] { range.SetRange(0, 11); },
       ":SetRange]] Can not assign such a range [0,11) to a RangeSet."},
      {[&] { range.SetRange(2, 1); }, "[2,1)"},
      {[&] { range.SetRange(-1, 1); }, "[-1,1)"},
      {[&] { range.insert(7); }, ":insert]] Can not insert to this set."},
      {[&] { range.remove(2); }, ":remove]] Can not remove from this set."},
      {[&] { range.MakeSingleton(10); }, ":MakeSingleton]] Element invalid 10 for this set."},
      {[&] { range.insertSet(two); }, ":insertSet]] Can not insert"},
      {[&] { range.removeSet(two); }, ":removeSet]] Can not remove"},
      {[&] { range.Assign(two); }, "Can not insert to this set."},
      {[&] { range.insertSetIgnoreSingleton(single, 5); },
       ":insertSetIgnoreSingleton]] Can not insert to this set."},
  });
  EXPECT_EQ(Elements(range), (std::vector<int>{2, 3, 4}));

  // insertSetIgnoreSingleton accepts other = {u}.
  range.insertSetIgnoreSingleton(single, 6);
  EXPECT_EQ(Elements(range), (std::vector<int>{2, 3, 4}));

  // Assignment from a contiguous set becomes that range.
  UnorderedHashSet run(20);
  for (int v : {9, 7, 8}) run.insert(v);
  range.Assign(run);
  EXPECT_EQ(Elements(range), (std::vector<int>{7, 8, 9}));
  EXPECT_EQ(range.GroundSetSize(), 20);
}

TEST(RangeSet, FixedSets) {
  FixedGroundSet ground(5);
  EXPECT_EQ(Elements(ground), (std::vector<int>{0, 1, 2, 3, 4}));
  ExpectMessages({{[&] { ground.insert(1); }, "Can not insert to this set."}});
  EXPECT_TRUE(Elements(FixedEmptySet(5)).empty());
  FixedSingletonSet single(5, 4);
  EXPECT_EQ(Elements(single), std::vector<int>{4});
  EXPECT_THROW(FixedSingletonSet(5, 5), std::invalid_argument);
  // clone keeps the concrete type and contents.
  auto copy = ground.clone();
  EXPECT_NE(dynamic_cast<FixedGroundSet*>(copy.get()), nullptr);
  EXPECT_EQ(Elements(*copy), Elements(ground));
  // A hash set built from a fixed set holds the same elements.
  UnorderedHashSet from_range(5);
  from_range.Assign(ground);
  EXPECT_EQ(from_range.size(), 5);
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
    EXPECT_EQ(static_cast<int>(Elements(bits).size()), n);
    EXPECT_EQ(Elements(bits).back(), n - 1);
    bits.MakeEmpty();
    EXPECT_TRUE(Elements(bits).empty());
  }

  RealBitSet bits(70);
  EXPECT_TRUE(bits.insert(69));
  EXPECT_FALSE(bits.insert(69));
  EXPECT_EQ(bits.size(), 1);
  EXPECT_FALSE(bits.contains(70));
  ExpectMessages(
      {{[&] { bits.insert(70); }, ":insert]] Element 70 invalid for this set with |V|=70."},
       {[&] { bits.remove(71); }, ":remove]] Element 71 invalid"}});
  EXPECT_EQ(bits.size(), 1);

  // Element-wise set insertion and removal from another kind of set.
  RangeSet range(70);
  range.SetRange(60, 70);
  bits.insertSet(range);
  EXPECT_EQ(bits.size(), 10);
  bits.removeSet(range);
  EXPECT_TRUE(bits.empty());
}

}  // namespace
}  // namespace velmor
