#ifndef VELMOR_DISTRIBUTED_LANDMARKSPLIT_H_
#define VELMOR_DISTRIBUTED_LANDMARKSPLIT_H_

// A run's facility-location objective split by landmarks across the ranks of
// a job. Facility location sums over landmarks (the matrix's columns), and so
// do its gains and values: a rank that holds every item's similarities to its
// own block of landmarks computes a partial gain for every item, and the sum
// over the ranks is the whole function's gain. Each rank then needs n x (k/P)
// values instead of n x k.
//
// The split plan is an ordinary plan whose groups hold only the rank's
// columns and whose normalization (f(V) = 1, which needs every landmark) is
// folded into the groups' responsibilities: its objective's gains and values,
// summed over the ranks, are those of the whole plan's objective.

#include <cstdint>
#include <vector>

#include "summarization/SummaryPlan.h"

namespace velmor {

class LandmarkSplit {
 public:
  // Landmarks [begin, end) of a group.
  struct Block {
    std::int64_t begin = 0;
    std::int64_t end = 0;
  };

  // The block of `landmarks` that `rank` of `ranks` holds: contiguous, in rank
  // order, sizes differing by at most one.
  static Block BlockOf(std::int64_t landmarks, int rank, int ranks);

  // Throws exception::CommandLineError naming the first part of the plan the
  // split cannot run: a group other than dense or sparse facility location, a
  // soft one, one with attraction, neglect or contraction sets, a plan
  // contraction set, a chosen greedy other than the plain standard one,
  // partial enumeration, random evaluations, and the reports and plot that
  // evaluate the objective after the run (detail, conditional curvature,
  // balance).
  static void CheckSupported(const SummaryPlan& plan);

  // Replaces every group's matrix by the columns of its block for `rank` (a
  // mapped file is read block by block and its pages are released as they
  // are read, so the rank's memory stays near its own block), and returns,
  // per group, the largest value of each of its landmarks (clamped at 0)
  // over the items, for the landmarks of the block, and 0 for the others.
  // With `checks`, every value of the block is checked as it is copied, so
  // that the ranks together check every value once and no rank reads the
  // whole file (the loading's own checks can then be turned off).
  // Throws exception::InputDataError when a group has fewer landmarks than
  // there are ranks, and "Problems loading FL matrix." (the group's tag) with
  // "Encountered IEEE NaN (or Inf) at row,col %lld,%lld." nested for a value
  // the checks refuse. REQUIRES: CheckSupported(plan) passed.
  struct ValueChecks {
    bool nan = false;
    bool inf = false;
  };
  static std::vector<std::vector<double>> TakeBlocks(SummaryPlan& plan, int rank, int ranks,
                                                     ValueChecks checks);

  // With `landmark_maxima` the per-group largest values of every landmark
  // (the element-wise maximum of TakeBlocks' results over the ranks), folds
  // each normalized group's 1 / f(V) into its responsibility and turns its
  // own normalization off (a group with an empty vector is left as it is);
  // f(V) is the maxima summed in double in landmark
  // order, as the single-process function sums it. Throws std::runtime_error
  // "Problems opening an FL function." (the group's tag) with
  // std::invalid_argument "Invalid possibly all zero or negative matrix,
  // f(V) = %g <= 0." nested for a normalized group with f(V) <= 0.
  static void FoldNormalization(SummaryPlan& plan,
                                const std::vector<std::vector<double>>& landmark_maxima);
};

}  // namespace velmor

#endif  // VELMOR_DISTRIBUTED_LANDMARKSPLIT_H_
