#ifndef VELMOR_ALGORITHMS_FIXEDORDERGREEDY_H_
#define VELMOR_ALGORITHMS_FIXEDORDERGREEDY_H_

// The greedy over a given order: walks `fixed_order` once and adds each
// element that is still allowed, recording its marginal gain at the moment it
// is added. Run over the order another algorithm chose, it reproduces that
// algorithm's solution and supplies the gains it did not record.

#include <vector>

#include "algorithms/greedy_max.h"

namespace velmor {

// Walks fixed_order from the solution `inclusion`; an element is skipped when
// it is in inclusion ∪ conditioning or already added, or when the constraint
// refuses it. The walk stops when |solution| reaches min(constraint.SizeLimit(),
// cardinality_limit) or when the gain permit refuses a gain (that element is
// not added). `algorithm_value` is accepted for the common signature and not
// used. order, gains, value and solution are written as the other greedy
// algorithms write them. Returns false, doing nothing, when solution, order
// and gains are all null; true otherwise.
// Throws std::invalid_argument "Invalid element = %d in the fixed order." for
// an element outside [0, n) (before any work), and the ground-set size and
// inclusion errors of the other greedy algorithms.
bool FixedOrderGreedyConstrained(const SubmodularFunction& f,
                                 const DownClosedSetConstraint& constraint, int cardinality_limit,
                                 const std::vector<int>& fixed_order, const Set& inclusion,
                                 const Set& conditioning, double algorithm_value,
                                 GainPermit gain_permit, UnorderedHashSet* solution,
                                 std::vector<int>* order, std::vector<float>* gains, double* value);

}  // namespace velmor

#endif  // VELMOR_ALGORITHMS_FIXEDORDERGREEDY_H_
