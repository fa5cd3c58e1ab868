#ifndef VELMOR_SUMMARIZATION_SUMMARYRUN_H_
#define VELMOR_SUMMARIZATION_SUMMARYRUN_H_

// Running a summarization: the random evaluations, the timed greedy (or
// partial enumeration) and the reports of a SummaryPlan, on the objective
// built from it.

#include <vector>

#include "algorithms/GreedyStepObserver.h"
#include "sets/UnorderedHashSet.h"
#include "summarization/SummaryObjective.h"
#include "summarization/SummaryPlan.h"

namespace spdlog {
class logger;
}

namespace velmor {

struct SummaryResult {
  // false when there was nothing to choose from (no candidates): nothing ran
  // and the rest is empty.
  bool summarized = false;
  // The chosen elements in the order of choice (inclusion elements are not
  // in it) and the gain of each, narrowed to float.
  std::vector<int> order;
  std::vector<float> gains;
  // The solution: the inclusion and the order.
  UnorderedHashSet solution;
  // f(solution), f the objective's function.
  double value = 0.0;
  // For each element of the order, 1 - f(v | solution - v) / its gain (0 for
  // a zero gain); filled when a report needs it or the plan keeps it.
  std::vector<double> conditional_curvature;
};

// Logs on `log` at info level "Summarizing function with ground set of size
// |V|=n={}, relative ground set |R|={}, {}." (with the constraint's
// description); without candidates also "Relative ground set size being zero
// means there is no work to do." and returns an unsummarized result.
// Otherwise runs the random evaluations (their log lines give the size of
// the subsets drawn: the constraint's size limit, or all candidates outside
// the inclusion when there are fewer), then the plan's algorithm (logging
// "Greedy algorithm: {}." for a chosen one and the "Summarization time: ..."
// line), warns when no element was chosen although the constraint left room,
// and logs the reports the plan asks for. The standard greedy (lazy or the
// plain scan) tells `observer` of every step and stops when it asks to; after
// the greedy work, before its time is logged, `observer` is called once with
// chosen == most (the number of elements chosen). GreedyStopped then passes
// through.
//
// Throws exception::InputAndOrParameterDataError "Solution has non-finite or
// NaN value (%g) when using current parameters and input. Exiting since
// results are likely invalid." for a value that is not finite, and passes the
// algorithms' exceptions through (partial enumeration's InputDataError when
// no starting set is feasible).
SummaryResult RunSummary(const SummaryObjective& objective, const SummaryPlan& plan,
                         spdlog::logger& log, const GreedyStepObserver& observer = {});

// Throws exception::InputAndOrParameterDataError "Solution has non-finite or
// NaN value (%g) when using current parameters and input. Exiting since
// results are likely invalid." when the summary's value is not finite.
void CheckSummaryValueIsFinite(const SummaryResult& result);

}  // namespace velmor

#endif  // VELMOR_SUMMARIZATION_SUMMARYRUN_H_
