#ifndef VELMOR_DISTRIBUTED_LANDMARKSPLITGREEDY_H_
#define VELMOR_DISTRIBUTED_LANDMARKSPLITGREEDY_H_

// The standard greedy over an objective split by landmarks across ranks (see
// LandmarkSplit): every rank runs it in step on its own part of the
// objective. At each step each rank computes its part of every feasible
// candidate's gain with the batched gain kernel, the parts are summed across
// the ranks, and the largest sum wins (the first of equal gains in the
// candidates' iteration order, as in the single-process standard greedy).
// Candidates are scanned in full at every step.
//
// With one rank the order, gains and value are bit for bit those of the
// single-process standard greedy on the whole objective. With more, the
// gains differ only by the order in which the ranks' parts are added (each
// part is summed as the single-process kernel sums, over the rank's
// landmarks), and the order is the same unless two gains are that close.

#include <functional>

#include "summarization/SummaryObjective.h"
#include "summarization/SummaryRun.h"

namespace spdlog {
class logger;
}

namespace velmor {

class LandmarkSplitGreedy {
 public:
  // What the ranks do together. `sum` is collective and leaves the same sums
  // on every rank; `root_choice` is collective and returns the first rank's
  // value on every rank (so that all ranks add the same element even if their
  // sums differed in the last bit).
  struct Collectives {
    std::function<void(double* values, int count)> sum;
    std::function<int(int value)> root_choice;
  };

  // Runs the greedy up to the objective's constraint over its candidates,
  // starting from its inclusion, never stopping on the gain. `progress`, when
  // not null, gets the greedy's periodic progress lines (the period set by
  // greedy_max::SetProgressLoggingPeriod). The result's order, gains,
  // solution and value are the whole objective's; its conditional curvature
  // is left empty. REQUIRES: CheckStart(local) passed (on every rank alike).
  // Throws std::invalid_argument "Inclusion set of size %d must itself be
  // feasible, but constraint feasibility returns false." when the inclusion
  // violates the constraint. No collective call: every rank checks alone and
  // finds the same.
  static void CheckStart(const SummaryObjective& local);

  static SummaryResult Run(const SummaryObjective& local, const Collectives& collectives,
                           spdlog::logger* progress);
};

}  // namespace velmor

#endif  // VELMOR_DISTRIBUTED_LANDMARKSPLITGREEDY_H_
