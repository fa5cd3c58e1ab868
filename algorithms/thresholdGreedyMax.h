#ifndef VELMOR_ALGORITHMS_THRESHOLDGREEDYMAX_H_
#define VELMOR_ALGORITHMS_THRESHOLDGREEDYMAX_H_

// The decreasing-threshold greedy. Instead of finding the best element at
// every step, it sweeps the candidates with a threshold w that starts at the
// largest singleton gain d and falls by a factor (1 - epsilon) after each
// sweep, adding every feasible element whose gain reaches w. For a monotone
// function under a cardinality limit it reaches (1 - 1/e - epsilon) of the
// optimum with O((n / epsilon) log(k / epsilon)) gain evaluations at most;
// an element whose last known gain (an upper bound, as gains only fall) is
// below w is skipped without evaluation, so most sweeps evaluate few.

#include <vector>

#include "algorithms/greedy_max.h"

namespace velmor {

// `epsilon` in (0, 1): the threshold's rate of fall. The sweeps stop once w
// falls below epsilon * d / K, K = min(constraint.SizeLimit(),
// cardinality_limit), or when K elements are chosen. A last sweep then walks
// the remaining candidates once in their iteration order and adds each
// feasible element whose gain the gain permit accepts (so with permit 1 the
// small and zero gains are still taken, as the standard greedy would), until
// K is reached. No gains vector: the order is not the order of decreasing
// gains, and a caller who needs the gains runs FixedOrderGreedyConstrained
// over `order`. `ancillary`, when given, receives the number of gain
// evaluations; when its singleton gains are pre-computed the first sweep
// takes them instead of evaluating.
// Returns false, doing nothing, when solution and order are both null; true
// otherwise. Throws std::invalid_argument "Value of epsilon = %g, must be in
// (0, 1)." and the ground-set size and inclusion errors of the other greedy
// algorithms.
bool ThresholdGreedyConstrainedMaximization(double epsilon, const SubmodularFunction& f,
                                            const DownClosedSetConstraint& constraint,
                                            int cardinality_limit, const Set& candidates,
                                            const Set& inclusion, const Set& conditioning,
                                            GainPermit gain_permit, UnorderedHashSet* solution,
                                            std::vector<int>* order, double* value,
                                            greedy_max::GreedyAncillaryResults* ancillary);

}  // namespace velmor

#endif  // VELMOR_ALGORITHMS_THRESHOLDGREEDYMAX_H_
