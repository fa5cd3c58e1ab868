#ifndef VELMOR_ALGORITHMS_STOCHASTICGREEDYMAX_H_
#define VELMOR_ALGORITHMS_STOCHASTICGREEDYMAX_H_

// The stochastic accelerated greedy. Each step draws a random sample of the
// remaining candidates and adds the sampled element with the largest
// marginal gain; with R candidates left and K steps planned, a sample of
//   s = ceil((R / K) * ln(1 / epsilon))
// elements finds, in expectation, an element within a factor (1 - epsilon)
// of the best of the step, so the whole run reaches (1 - 1/e - epsilon) of
// the optimum of a monotone function under a cardinality limit with about
// R ln(1/epsilon) evaluations in all instead of R per step.
//
// "Accelerated": every element keeps its last known gain, an upper bound of
// its present gain (gains only fall as the solution grows). Within a sample,
// the elements never evaluated are evaluated in one batch, the others one at
// a time in decreasing order of their bounds, and the scan stops as soon as
// the best fresh gain reaches (1 - lazy_acceptance_tolerance) times the
// largest bound not yet evaluated. With a tolerance of 0 the chosen element
// is exactly the best of its sample.

#include <vector>

#include "algorithms/greedy_max.h"

namespace velmor {

// Tuning values, in the order the algorithm selector hands them on:
//  - starting_epsilon (>= 0), ending_epsilon (>= starting_epsilon),
//    epsilon_gamma (> 0): the epsilon of step t of K planned steps is
//      eps_t = starting + (ending - starting) * (t / (K - 1))^epsilon_gamma
//    (eps_0 = starting), so early steps, which decide most of the value, use
//    the larger samples. eps_t = 0 samples every remaining candidate (the
//    standard greedy's step); eps_t >= 1 samples minimum_sample_size.
//  - minimum_sample_size (>= 0): the smallest sample (at least 1 is drawn);
//  - maximum_sample_size (>= 0): the largest sample, 0 for no cap;
//  - lazy_acceptance_tolerance in [0, 1): see above; 0 is exact;
//  - expected_summary_size (>= 0): K, the planned number of steps; 0 takes
//    min(constraint.SizeLimit(), cardinality_limit, number of candidates)
//    less |inclusion| (give it when only a matroid limits the size);
//  - lazy_evaluation: nonzero keeps the bounds between steps (above); 0
//    evaluates every sampled element in one batch at every step;
//  - seed: of the MT19937 engine that draws the samples; the same seed and
//    arguments give the same result;
//  - algorithm_value: the fraction given to SmallestWorthwhileGainForGreedy
//    (see acceleratedGreedyMax.h); an element whose gain falls below that
//    threshold is dropped for good (0 filters nothing and costs nothing).
// The rest of the arguments are those of the common signature (greedy_max.h):
// the run stops at min(constraint.SizeLimit(), cardinality_limit) elements,
// when no candidate is left, or when the gain permit says so (the element is
// then not added). Infeasible sampled elements are dropped for good (the
// constraint is down-closed). `ancillary`, when given, receives the number of
// gain evaluations; when its singleton gains are pre-computed they are the
// first bounds. Returns false, doing nothing, when solution, order and gains
// are all null; true otherwise.
// Throws std::invalid_argument: "Value of starting_epsilon = %g, must be >= 0.",
// "Value of starting_epsilon = %g, must be <= ending_epsilon = %g.",
// "Value of epsilon_gamma = %g, must be positive.", a message naming any
// other tuning value out of range, and the ground-set size and inclusion
// errors of the accelerated greedy.
bool StochasticAcceleratedGreedyConstrainedMaximization(
    double starting_epsilon, int minimum_sample_size, double ending_epsilon,
    int maximum_sample_size, double epsilon_gamma, double lazy_acceptance_tolerance,
    int expected_summary_size, int lazy_evaluation, const SubmodularFunction& f,
    const DownClosedSetConstraint& constraint, int cardinality_limit, const Set& candidates,
    const Set& inclusion, const Set& conditioning, GainPermit gain_permit, int seed,
    UnorderedHashSet* solution, std::vector<int>* order, std::vector<float>* gains, double* value,
    greedy_max::GreedyAncillaryResults* ancillary, double algorithm_value);

}  // namespace velmor

#endif  // VELMOR_ALGORITHMS_STOCHASTICGREEDYMAX_H_
