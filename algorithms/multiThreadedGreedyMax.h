#ifndef VELMOR_ALGORITHMS_MULTITHREADEDGREEDYMAX_H_
#define VELMOR_ALGORITHMS_MULTITHREADEDGREEDYMAX_H_

// Greedy maximization split over threads. The candidates are partitioned
// into one block per thread, and a greedy algorithm (any callable of the
// common signature) runs on every block at once; the block solutions are
// then merged by running the algorithm again over their union. The flat
// scheme (MGM) merges all block solutions in one run; the hierarchical one
// (HGM) merges them as a tree, `ary` solutions per merge, level by level,
// each merge of a level on its own thread. Of every solution computed (the
// blocks' and every merge's) the one of largest value is returned, so the
// result is never worse than the best block's.
//
// Each run has its own contexts (made by the algorithm); the function and
// the constraint are shared and only read. Runs go through std::async tasks;
// an exception in one of them reaches the caller after every task of its
// level has finished.

#include <vector>

#include "algorithms/greedy_max.h"

namespace velmor {

// Tuning values, beside the common signature (see greedy_max.h):
//  - algorithm_value: handed to every run of `algorithm`;
//  - fraction_of_threads_solution_to_compute in (0, 1]: a block run may add
//    up to ceil(fraction * (K - |inclusion|)) elements (at least 1), K =
//    min(constraint.SizeLimit(), cardinality_limit); merges use the full K;
//  - gain_preservation_fraction in (0, 1]: a solution enters a merge with
//    the shortest prefix of its order whose gains add up to this fraction
//    of the solution's value (1 keeps all of it; less to merge is faster);
//  - number_of_threads >= 1: the number of blocks;
//  - random_partition: true deals the candidates (inclusion and
//    conditioning left out) to the blocks after a shuffle by an MT19937
//    seeded with `seed`; false cuts the candidates' iteration order into
//    contiguous blocks of nearly equal size (seed unused);
//  - gain_permit is handed to every run.
// Outputs as for every greedy algorithm; `gains` are those of the run that
// produced the returned solution. Returns false, doing nothing, when
// solution, order and gains are all null; true otherwise. Logs "Starting
// multi-threaded greedy max (MGM)." at info level on "optm".
// Throws std::invalid_argument for a thread count below 1, a fraction out of
// range, and the ground-set size and inclusion errors of the other greedy
// algorithms; exceptions of `algorithm` pass through.
bool MultiThreadedGreedyConstrainedMaximization(
    const SubmodularFunction& f, const DownClosedSetConstraint& constraint, int cardinality_limit,
    const Set& candidates, const Set& inclusion, const Set& conditioning, double algorithm_value,
    float fraction_of_threads_solution_to_compute, float gain_preservation_fraction,
    GainPermit gain_permit, int number_of_threads, bool random_partition, int seed,
    const GreedyAlgorithm& algorithm, UnorderedHashSet* solution, std::vector<int>* order,
    std::vector<float>* gains, double* value);

// The hierarchical scheme: number_of_threads must be ary^L for an integer
// L >= 0 (ary >= 2, or ary 1 with one thread), else "Hierarchical
// multi-threaded greedy. Number of threads = {} must be an integer power of
// ary = {}. depth = {}.". The tree merges `ary` solutions per run for
// min(depth, L) levels (depth 0: all L levels); when levels are left, one
// last run merges every solution left. depth must be >= 0. The other values
// are those of the flat scheme. Logs "Starting hierarchical multi-threaded
// greedy max (HGM).".
bool HierarchicalMultiThreadedGreedyConstrainedMaximization(
    const SubmodularFunction& f, const DownClosedSetConstraint& constraint, int cardinality_limit,
    const Set& candidates, const Set& inclusion, const Set& conditioning, double algorithm_value,
    float fraction_of_threads_solution_to_compute, float gain_preservation_fraction,
    GainPermit gain_permit, int number_of_threads, int depth, int ary, bool random_partition,
    int seed, const GreedyAlgorithm& algorithm, UnorderedHashSet* solution, std::vector<int>* order,
    std::vector<float>* gains, double* value);

}  // namespace velmor

#endif  // VELMOR_ALGORITHMS_MULTITHREADEDGREEDYMAX_H_
