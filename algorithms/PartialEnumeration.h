#ifndef VELMOR_ALGORITHMS_PARTIALENUMERATION_H_
#define VELMOR_ALGORITHMS_PARTIALENUMERATION_H_

// Partial enumeration: a greedy started from every small subset of the
// candidates, keeping the best completion. With starting sets of size p the
// cost is C(m, p) greedy runs for m candidates.

#include <vector>

#include "algorithms/greedy_max.h"

namespace spdlog {
class logger;
}

namespace velmor {

// Tries, as starting sets, inclusion ∪ P for every p-subset P of
// pool = candidates \ inclusion, in lexicographic order of the pool's
// ascending list. Each feasible starting set is completed by `complete`
// (called with f, constraint, no size limit beyond the constraint's, the
// candidates, the starting set, no conditioning, algorithm value 0 and
// kNeverStopOnGain); the completion of highest value is kept (the first among
// equal values). The kept solution is then put into greedy order with fresh
// gains: the standard greedy (never stopping on the gain) from `inclusion`
// over the kept solution's other elements, whose results go to the outputs
// (each may be null).
//
// Progress goes to `log` at info level: "Working on partial enumeration set
// {} of {}" (sets tried so far, C(m, p)) before every `log_period`-th set
// (every set when log_period < 1), and "Partial enumeration finished,
// reordering final best solution of size {}." at the end.
//
// Throws exception::InputDataError "With current partial enumeration setting
// (%d), nothing was feasible." when no starting set is feasible (p > m
// included); the exceptions of `complete` and of the greedy pass through.
void PartialEnumerationMaximization(
    const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
    const UnorderedHashSet& candidates, const UnorderedHashSet& inclusion, int p,
    const GreedyAlgorithm& complete, spdlog::logger& log, int log_period,
    UnorderedHashSet* solution, std::vector<int>* order, std::vector<float>* gains, double* value);

}  // namespace velmor

#endif  // VELMOR_ALGORITHMS_PARTIALENUMERATION_H_
