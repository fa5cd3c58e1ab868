#ifndef VELMOR_DISTRIBUTED_PARTITIONEDGREEDY_H_
#define VELMOR_DISTRIBUTED_PARTITIONEDGREEDY_H_

// The partitioned scheme across the ranks of a job, the multi-threaded
// scheme's blocks and merges with one rank per block: the candidates are
// dealt into one block per rank (shuffled by an MT19937 seeded with the
// plan's algorithm seed), each rank runs the greedy on its block, and the
// block solutions merge up a tree (`ary` solutions per merge, level by level,
// each merge run by the rank of its first solution; ary 0 merges all of them
// in one run). Of all runs the one of largest value is kept (the first of
// equal values in block, then level order). With the same seed, blocks and
// arity the result is that of MultiThreadedGreedyConstrainedMaximization
// (ary 0) and HierarchicalMultiThreadedGreedyConstrainedMaximization (ary
// >= 2) with whole block solutions and every solution kept for the merges.
//
// Every rank holds the whole objective, but a run reads only the rows of its
// candidates and of what it chooses: over a mapped .npy file a rank touches
// about (n/P) x k values plus the rows of the merges.

#include <cstdint>
#include <functional>
#include <vector>

#include "summarization/SummaryObjective.h"
#include "summarization/SummaryPlan.h"
#include "summarization/SummaryRun.h"

namespace velmor {

class PartitionedGreedy {
 public:
  // What the ranks do together: `all_gather` is collective and returns every
  // rank's bytes in rank order, on every rank.
  struct Collectives {
    int rank = 0;
    int ranks = 1;
    std::function<std::vector<std::vector<char>>(const std::vector<char>& mine)> all_gather;
  };

  // Throws exception::CommandLineError for what the scheme cannot run: a
  // greedy other than standard or accelerated, a block count (":T") other
  // than the number of ranks, partial enumeration, random evaluations, an
  // arity that does not fit the ranks (`ranks` must be a power of `ary`), a
  // negative arity.
  static void CheckSupported(const SummaryPlan& plan, int ary, int ranks);

  // For each dense facility-location group that normalizes itself (not
  // soft), the largest value of each landmark (clamped at 0) over this rank's
  // share of the items (contiguous rows; the pages of a mapped file are
  // released once read); empty for the other groups. With the element-wise
  // maximum over the ranks, LandmarkSplit::FoldNormalization then spares
  // building the objective the read of every row.
  static std::vector<std::vector<double>> LandmarkMaxima(SummaryPlan& plan, int rank, int ranks);

  // Runs the scheme (collective). Returns the kept run's order, gains,
  // solution (inclusion and order) and value on every rank.
  static SummaryResult Run(const SummaryObjective& objective,
                           const SummaryPlan::Algorithm& algorithm, int ary,
                           const Collectives& collectives);
};

}  // namespace velmor

#endif  // VELMOR_DISTRIBUTED_PARTITIONEDGREEDY_H_
