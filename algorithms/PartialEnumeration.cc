#include "algorithms/PartialEnumeration.h"

#include <spdlog/spdlog.h>

#include <algorithm>
#include <limits>
#include <numeric>

#include "sets/FixedEmptySet.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor {

namespace {

// One greedy completion and its results.
struct Completion {
  UnorderedHashSet solution;
  std::vector<int> order;
  std::vector<float> gains;
  double value = 0.0;
};

// The elements of `candidates` outside `inclusion`, ascending.
std::vector<int> AscendingPool(const UnorderedHashSet& candidates,
                               const UnorderedHashSet& inclusion) {
  std::vector<int> pool;
  candidates.ToVector(pool);
  pool.erase(std::remove_if(pool.begin(), pool.end(), [&](int v) { return inclusion.contains(v); }),
             pool.end());
  std::sort(pool.begin(), pool.end());
  return pool;
}

// Advances `pick` (p ascending indices into m items) to the next subset in
// lexicographic order; false after the last one.
bool NextSubset(std::vector<int>& pick, int m) {
  const int p = static_cast<int>(pick.size());
  int i = p - 1;
  while (i >= 0 && pick[static_cast<std::size_t>(i)] == m - p + i) --i;
  if (i < 0) return false;
  ++pick[static_cast<std::size_t>(i)];
  for (int j = i + 1; j < p; ++j) {
    pick[static_cast<std::size_t>(j)] = pick[static_cast<std::size_t>(j - 1)] + 1;
  }
  return true;
}

}  // namespace

void PartialEnumerationMaximization(
    const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
    const UnorderedHashSet& candidates, const UnorderedHashSet& inclusion, int p,
    const GreedyAlgorithm& complete, spdlog::logger& log, int log_period,
    UnorderedHashSet* solution, std::vector<int>* order, std::vector<float>* gains, double* value) {
  const int n = f.GroundSetSize();
  const FixedEmptySet conditioning(n);
  const std::vector<int> pool = AscendingPool(candidates, inclusion);
  const int m = static_cast<int>(pool.size());
  double combinations = 1.0;
  for (int i = 0; i < p; ++i) combinations = combinations * (m - i) / (i + 1);
  const int period = std::max(1, log_period);

  Completion best;
  bool found = false;
  std::vector<int> pick(static_cast<std::size_t>(std::max(p, 0)));
  std::iota(pick.begin(), pick.end(), 0);
  long long count = 0;
  while (p <= m) {
    if (count % period == 0) {
      log.info("Working on partial enumeration set {} of {}", count, combinations);
    }
    ++count;
    UnorderedHashSet start = inclusion;
    for (int i : pick) start.insert(pool[static_cast<std::size_t>(i)]);
    if (constraint.IsFeasible(start)) {
      Completion c;
      c.solution = UnorderedHashSet(n);
      complete(f, constraint, std::numeric_limits<int>::max(), candidates, start, conditioning, 0.0,
               kNeverStopOnGain, &c.solution, &c.order, &c.gains, &c.value, nullptr);
      if (!found || c.value > best.value) {
        best = std::move(c);
        found = true;
      }
    }
    if (!NextSubset(pick, m)) break;
  }
  if (!found) {
    throw exception::InputDataError(exception::MakeCommandMessage(
        "With current partial enumeration setting (%d), nothing was feasible.", p));
  }
  log.info("Partial enumeration finished, reordering final best solution of size {}.",
           best.solution.size());
  UnorderedHashSet members(n);
  for (int v : best.solution) {
    if (!inclusion.contains(v)) members.insert(v);
  }
  UnorderedHashSet reordered(n);
  GreedyConstrainedMaximization(f, constraint, std::numeric_limits<int>::max(), members, inclusion,
                                conditioning, kNeverStopOnGain, &reordered, order, gains, value,
                                nullptr);
  if (solution != nullptr) *solution = std::move(reordered);
}

}  // namespace velmor
