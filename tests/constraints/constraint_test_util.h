#ifndef VELMOR_TESTS_CONSTRAINTS_CONSTRAINT_TEST_UTIL_H_
#define VELMOR_TESTS_CONSTRAINTS_CONSTRAINT_TEST_UTIL_H_

// Shared by the constraint tests: a driver that grows random sets and compares every answer of a
// constraint and of its two kinds of growing context with a brute-force feasibility oracle.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "constraints/DownClosedSetConstraint.h"
#include "constraints/MatroidSetConstraint.h"
#include "sets/UnorderedHashSet.h"
#include "support/located_messages.h"
#include "support/sets.h"

namespace velmor::testing {

using FeasibilityOracle = std::function<bool(const std::vector<bool>& members)>;
// Whether element e (not a member) may join the members; by default, whether
// the grown set is feasible.
using AddabilityOracle = std::function<bool(const std::vector<bool>& members, int e)>;

// Brute force for an intersection of partition matroids (one member: a single
// partition matroid). A set is feasible when every block of every member is
// within its limit; an element may join when its own block has room in every
// member, whatever the other blocks hold.
struct PartitionsOracle {
  std::vector<std::vector<int>> mappings;
  std::vector<std::vector<int>> limits;

  std::vector<int> Counts(std::size_t m, const std::vector<bool>& members) const {
    std::vector<int> counts(limits[m].size(), 0);
    for (std::size_t e = 0; e < members.size(); ++e) {
      if (members[e]) ++counts[static_cast<std::size_t>(mappings[m][e])];
    }
    return counts;
  }
  bool Feasible(const std::vector<bool>& members) const {
    for (std::size_t m = 0; m < mappings.size(); ++m) {
      const std::vector<int> counts = Counts(m, members);
      for (std::size_t b = 0; b < counts.size(); ++b) {
        if (counts[b] > limits[m][b]) return false;
      }
    }
    return true;
  }
  bool Addable(const std::vector<bool>& members, int e) const {
    for (std::size_t m = 0; m < mappings.size(); ++m) {
      const auto b = static_cast<std::size_t>(mappings[m][static_cast<std::size_t>(e)]);
      if (Counts(m, members)[b] >= limits[m][b]) return false;
    }
    return true;
  }
};

inline std::vector<bool> Members(const Set& s, int n) {
  std::vector<bool> members(static_cast<std::size_t>(n), false);
  for (int v : s) members[static_cast<std::size_t>(v)] = true;
  return members;
}

// Grows `rounds` random sets element by element from the empty set. At every
// step each question of the constraint, its external context and its owning
// context must agree with `feasible`. Elements are mostly drawn among the
// feasible ones; with `allow_infeasible_steps` an infeasible one is sometimes
// added, so that the contexts must also follow an infeasible set.
inline void CheckAgainstOracle(const DownClosedSetConstraint& constraint,
                               const FeasibilityOracle& feasible, unsigned seed, int rounds,
                               bool allow_infeasible_steps, AddabilityOracle addable_oracle = {}) {
  const int n = constraint.GroundSetSize();
  std::mt19937 engine(seed);
  for (int round = 0; round < rounds; ++round) {
    UnorderedHashSet s(n);
    auto external = constraint.MakeGrowingContextExternal(s);
    auto owning = constraint.MakeGrowingContext();
    bool s_feasible = true;
    for (int step = 0; step <= n; ++step) {
      std::vector<bool> members = Members(s, n);
      s_feasible = feasible(members);
      ASSERT_EQ(constraint.IsFeasible(s), s_feasible);
      ASSERT_EQ(external->IsFeasible(), s_feasible);
      ASSERT_EQ(owning->IsFeasible(), s_feasible);
      std::vector<int> addable;
      std::vector<int> refused;
      for (int e = 0; e < n; ++e) {
        if (members[static_cast<std::size_t>(e)]) {
          ASSERT_EQ(constraint.IsUnionFeasible(e, s), s_feasible) << e;
          ASSERT_EQ(external->IsUnionFeasible(e, s), s_feasible) << e;
          ASSERT_EQ(owning->IsUnionFeasible(e), s_feasible) << e;
          continue;
        }
        members[static_cast<std::size_t>(e)] = true;
        const bool grown_feasible = feasible(members);
        members[static_cast<std::size_t>(e)] = false;
        const bool grown = addable_oracle ? addable_oracle(members, e) : grown_feasible;
        ASSERT_EQ(constraint.IsDisjointUnionFeasible(e, s), grown) << e;
        ASSERT_EQ(constraint.IsUnionFeasible(e, s), grown) << e;
        ASSERT_EQ(external->IsDisjointUnionFeasible(e, s), grown) << e;
        ASSERT_EQ(external->IsUnionFeasible(e, s), grown) << e;
        ASSERT_EQ(owning->IsDisjointUnionFeasible(e), grown) << e;
        ASSERT_EQ(owning->IsUnionFeasible(e), grown) << e;
        (grown_feasible ? addable : refused).push_back(e);
      }
      const bool maximal = s_feasible && addable.empty();
      ASSERT_EQ(constraint.IsMaximal(s), maximal);
      ASSERT_EQ(external->IsMaximal(s), maximal);
      ASSERT_EQ(owning->IsMaximal(), maximal);
      const bool take_infeasible =
          allow_infeasible_steps && !refused.empty() && (addable.empty() || engine() % 5 == 0);
      if (!take_infeasible && addable.empty()) break;
      const std::vector<int>& pool = take_infeasible ? refused : addable;
      const int e = pool[engine() % pool.size()];
      // The external context inserts into s; the owning one into its own set.
      ASSERT_TRUE(external->AddElementToContext(e, s, true));
      ASSERT_FALSE(external->AddElementToContext(e, s, true));
      ASSERT_TRUE(owning->AddElementToContext(e, true));
      ASSERT_FALSE(owning->AddElementToContext(e, true));
      ASSERT_EQ(owning->CurrentSet().size(), s.size());
      ASSERT_TRUE(s.contains(e));
    }
    // Repositioning at the final set gives the same answers as growing to it.
    auto fresh = constraint.MakeGrowingContext(s);
    owning->AssignContext(s);
    external->AssignContext(s);
    EXPECT_EQ(fresh->IsFeasible(), s_feasible);
    EXPECT_EQ(owning->IsFeasible(), s_feasible);
    for (int e = 0; e < n; ++e) {
      if (s.contains(e)) continue;
      EXPECT_EQ(fresh->IsDisjointUnionFeasible(e), constraint.IsDisjointUnionFeasible(e, s));
      EXPECT_EQ(owning->IsDisjointUnionFeasible(e), constraint.IsDisjointUnionFeasible(e, s));
      EXPECT_EQ(external->IsDisjointUnionFeasible(e, s), constraint.IsDisjointUnionFeasible(e, s));
    }
  }
}

// The same walk for intersections of partition matroids.
inline void CheckAgainstOracle(const DownClosedSetConstraint& constraint,
                               const PartitionsOracle& oracle, unsigned seed, int rounds,
                               bool allow_infeasible_steps) {
  CheckAgainstOracle(
      constraint, [&](const std::vector<bool>& m) { return oracle.Feasible(m); }, seed, rounds,
      allow_infeasible_steps,
      [&](const std::vector<bool>& m, int e) { return oracle.Addable(m, e); });
}

// For every subset S of [0, n) (n small): the rank is the size of the largest
// feasible subset of S, and S is a circuit when it is infeasible and every
// one-smaller subset is feasible.
inline void CheckRankAndCircuits(const MatroidSetConstraint& matroid,
                                 const FeasibilityOracle& feasible) {
  const int n = matroid.GroundSetSize();
  const auto feasible_mask = [&](unsigned mask) {
    std::vector<bool> members(static_cast<std::size_t>(n));
    for (int e = 0; e < n; ++e) members[static_cast<std::size_t>(e)] = (mask >> e) & 1u;
    return feasible(members);
  };
  for (unsigned mask = 0; mask < (1u << n); ++mask) {
    int rank = 0;
    for (unsigned sub = mask;; sub = (sub - 1) & mask) {
      if (feasible_mask(sub)) rank = std::max(rank, __builtin_popcount(sub));
      if (sub == 0) break;
    }
    bool circuit = !feasible_mask(mask) && mask != 0;
    for (int e = 0; circuit && e < n; ++e) {
      if (mask & (1u << e)) circuit = feasible_mask(mask & ~(1u << e));
    }
    UnorderedHashSet s(n);
    for (int e = 0; e < n; ++e) {
      if (mask & (1u << e)) s.insert(e);
    }
    ASSERT_EQ(matroid.RankOfSet(s), rank) << mask;
    ASSERT_EQ(matroid.IsACycle(s), circuit) << mask;
    if (mask == (1u << n) - 1) {
      EXPECT_EQ(matroid.SizeLimit(), rank);
    }
  }
}

}  // namespace velmor::testing

#endif  // VELMOR_TESTS_CONSTRAINTS_CONSTRAINT_TEST_UTIL_H_
