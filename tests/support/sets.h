#ifndef VELMOR_TESTS_SUPPORT_SETS_H_
#define VELMOR_TESTS_SUPPORT_SETS_H_

// Sets for tests: listed elements, unions, random subsets.

#include <algorithm>
#include <initializer_list>
#include <random>

#include "sets/UnorderedHashSet.h"

namespace velmor::testing {

inline UnorderedHashSet SetOf(int n, std::initializer_list<int> elements) {
  UnorderedHashSet set(n);
  for (int v : elements) set.insert(v);
  return set;
}

inline UnorderedHashSet FullSet(int n) {
  UnorderedHashSet set(n);
  set.MakeFull();
  return set;
}

inline UnorderedHashSet Union(const Set& a, const Set& b) {
  UnorderedHashSet u(std::max(a.GroundSetSize(), b.GroundSetSize()));
  for (int v : a) u.insert(v);
  for (int v : b) u.insert(v);
  return u;
}

// Each element of [0, n) with probability p.
inline UnorderedHashSet RandomSet(int n, double p, std::mt19937& rng) {
  std::bernoulli_distribution coin(p);
  UnorderedHashSet set(n);
  for (int v = 0; v < n; ++v) {
    if (coin(rng)) set.insert(v);
  }
  return set;
}

// Calls visit(S) for every subset S of [0, n) with |S| <= k (n small).
template <typename Visit>
void ForEachSubset(int n, int k, Visit visit) {
  for (unsigned mask = 0; mask < (1u << n); ++mask) {
    if (__builtin_popcount(mask) > k) continue;
    UnorderedHashSet s(n);
    for (int e = 0; e < n; ++e) {
      if (mask & (1u << e)) s.insert(e);
    }
    visit(s);
  }
}

}  // namespace velmor::testing

#endif  // VELMOR_TESTS_SUPPORT_SETS_H_
