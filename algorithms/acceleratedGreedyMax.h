#ifndef VELMOR_ALGORITHMS_ACCELERATEDGREEDYMAX_H_
#define VELMOR_ALGORITHMS_ACCELERATEDGREEDYMAX_H_

// The accelerated ("lazy") greedy. Every candidate sits in a max-heap keyed by
// its last known marginal gain; since the gains of a submodular function only
// fall as the solution grows, a stale gain is an upper bound, and only the
// element on top is re-evaluated until it stays on top after its own
// re-evaluation. On functions without ties it returns the standard greedy's
// order and gains with far fewer gain evaluations.
//
// Heap values are float (half the memory of double on large ground sets):
// fresh gains are narrowed to float before every comparison with a heap
// value; only the comparison with the threshold τ is made in double.

#include <vector>

#include "algorithms/greedy_max.h"

namespace velmor {

// The smallest gain worth keeping for a greedy run of at most k elements:
// when |candidates| * fraction <= k (in double), the lowest float
// (-3.4028234663852886e+38, nothing filtered). Otherwise the gains of the
// candidates not in `inclusion`, evaluated in a context at `inclusion` and
// narrowed to float, are partially ordered and the (k+1)-th largest is
// returned (the lowest float when there are at most k of them).
// Throws std::invalid_argument "Ground set sizes %d != %d, must be the same."
// when candidates and inclusion differ in ground-set size.
double SmallestWorthwhileGainForGreedy(const SetFunction& f, int k, const Set& candidates,
                                       const Set& inclusion, double fraction);

// The accelerated greedy with the common maximizer signature (see
// greedy_max.h); `algorithm_value` is the fraction given to
// SmallestWorthwhileGainForGreedy, and a candidate whose first gain is below
// that threshold never enters the heap. The effective limit is
// k = min(constraint.SizeLimit(), cardinality_limit) on the number of
// elements the run adds (a warm start from `inclusion` comes on top).
// Candidates are visited in the iteration order of `candidates` to build the
// heap (bottom-up, in one step). At each step the top (e, g) is re-evaluated
// to g' (float): below τ it is dropped; when g > g' the top's value becomes g'
// and e is accepted with g' if it is still on top; when g' >= g it is
// accepted with g. An accepted element that the constraint refuses is
// dropped; otherwise the gain permit is applied (as in the standard greedy)
// and the element added. Returns true, also when no output but `value` is
// asked for.
// Throws std::invalid_argument "All arguments must have same ground set size,
// got sizes %d,%d,%d,%d,%d." (function, constraint, candidates, inclusion,
// conditioning) and the inclusion-feasibility error of the standard greedy.
bool AcceleratedGreedyConstrainedMaximization(
    const SubmodularFunction& f, const DownClosedSetConstraint& constraint, int cardinality_limit,
    const Set& candidates, const Set& inclusion, const Set& conditioning, double algorithm_value,
    GainPermit gain_permit, UnorderedHashSet* solution, std::vector<int>* order,
    std::vector<float>* gains, double* value, greedy_max::GreedyAncillaryResults* ancillary);
// The same with the first gains (those of the initial heap) computed on up to
// `threads` threads; the result does not depend on their number.
bool AcceleratedGreedyConstrainedMaximization(
    const SubmodularFunction& f, const DownClosedSetConstraint& constraint, int cardinality_limit,
    const Set& candidates, const Set& inclusion, const Set& conditioning, double algorithm_value,
    GainPermit gain_permit, UnorderedHashSet* solution, std::vector<int>* order,
    std::vector<float>* gains, double* value, greedy_max::GreedyAncillaryResults* ancillary,
    int threads);

}  // namespace velmor

#endif  // VELMOR_ALGORITHMS_ACCELERATEDGREEDYMAX_H_
