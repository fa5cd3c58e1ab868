#ifndef VELMOR_ALGORITHMS_GREEDYALGORITHMSELECTION_H_
#define VELMOR_ALGORITHMS_GREEDYALGORITHMSELECTION_H_

// One entry to every greedy maximizer of the library, chosen by flags and
// tuned by one flat list of values.

#include <vector>

#include "algorithms/greedy_max.h"

namespace velmor {

// Chooses the algorithm, in this precedence: use_standard_greedy (the
// standard greedy), use_stochastic_greedy (the stochastic accelerated
// greedy), use_threshold_greedy (the threshold greedy; when `order` and
// `gains` are given and the run succeeds, FixedOrderGreedyConstrained over
// that order fills `gains` and its result is returned; without `order` there
// are no gains),
// and otherwise the accelerated greedy. With number_of_threads 0 that
// algorithm runs once on the caller's thread; otherwise it runs inside the
// hierarchical scheme when hgm_depth > 0 or hgm_ary > 1, else inside the
// flat scheme, with number_of_threads threads.
//
// Every algorithm started gets GainPermit 1 (stop at a negative gain):
// `gain_permit` is never read, so a caller's permit cannot change a run.
//
// The unnamed values go to the algorithms as follows (see their headers):
//  - the stochastic greedy: starting_epsilon, minimum_sample_size,
//    ending_epsilon, maximum_sample_size, epsilon_gamma,
//    lazy_acceptance_tolerance, expected_summary_size, lazy_evaluation, and
//    `seed` (its random engine's seed); algorithm_value is its
//    smallest-worthwhile-gain fraction;
//  - threshold_value: the threshold greedy's epsilon, in (0, 1);
//  - the schemes: random_partition (deal shuffled candidates to the blocks,
//    else contiguous blocks), fraction_of_threads_solution_to_compute (a
//    block's share of the summary size) and gain_preservation_fraction (what
//    of a block solution goes on to a merge), and `seed` (of the shuffle);
//  - algorithm_value: also the accelerated greedy's smallest-worthwhile-gain
//    fraction and the double handed to every run inside the schemes.
// Returns the bool of the algorithm that ran (false when solution, order and
// gains are all null). The algorithms' exceptions pass through.
bool RunOneOfTheGreedyAlgorithms(
    bool use_standard_greedy, bool use_stochastic_greedy, double starting_epsilon,
    int minimum_sample_size, double ending_epsilon, int maximum_sample_size, double epsilon_gamma,
    double lazy_acceptance_tolerance, int expected_summary_size, int lazy_evaluation,
    bool use_threshold_greedy, double threshold_value, int number_of_threads, int hgm_depth,
    int hgm_ary, bool random_partition, float fraction_of_threads_solution_to_compute,
    float gain_preservation_fraction, int seed, const SubmodularFunction& f,
    const DownClosedSetConstraint& constraint, int cardinality_limit, const Set& candidates,
    const Set& inclusion, const Set& conditioning, double algorithm_value, GainPermit gain_permit,
    UnorderedHashSet* solution, std::vector<int>* order, std::vector<float>* gains, double* value);

}  // namespace velmor

#endif  // VELMOR_ALGORITHMS_GREEDYALGORITHMSELECTION_H_
