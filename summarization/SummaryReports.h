#ifndef VELMOR_SUMMARIZATION_SUMMARYREPORTS_H_
#define VELMOR_SUMMARIZATION_SUMMARYREPORTS_H_

// The reports on a computed summary, logged at info level: its value,
// elements, order, gains and cumulative gains, the conditional curvature of
// each chosen element, the detail report (curvature summary and a modular
// upper bound) and the balance report (each mixture component's share). They
// only read the objective: no function is copied.

#include <vector>

#include "functions/SetFunction.h"
#include "sets/UnorderedHashSet.h"
#include "summarization/SummaryObjective.h"
#include "summarization/SummaryPlan.h"
#include "summarization/SummaryRun.h"

namespace spdlog {
class logger;
}

namespace velmor {

// For each element v of `order`, 1 - f(v | solution - v) / g, g its gain at
// the step that chose it. A zero gain logs "Evaluation g({}|S)=0, with {} \in
// Summary. Assuming zero curvature." and counts as 0.
std::vector<double> ConditionalCurvature(const SetFunction& f, const UnorderedHashSet& solution,
                                         const std::vector<int>& order,
                                         const std::vector<float>& gains, spdlog::logger& log);

// "Conditional curvature of the summary: min = ..., mean = ..., max = ..."
// (when there is a curvature) and "Modular Upper Bound on solution = {}, 0 <=
// Approximate Efficiency = f(Sol)/UBound = {} <= 1.0", the bound being the
// sum of f({v}) over the order (efficiency 1 for a bound <= 0).
void LogDetailReport(const SetFunction& f, const std::vector<int>& order,
                     const std::vector<double>& curvature, double value, spdlog::logger& log);

// For each mixture component i with weight w_i, its share of the value of the
// order's elements S: w_i f_i(S), or w_i (f_i(S u C) - f_i(C)) when the
// objective is contracted by C, as a value and as a percentage of the sum of
// the shares. With level > 1 also its weighted gain at each step of the order
// (starting from C, or from the empty set).
void LogBalanceReport(const SummaryObjective& objective, const std::vector<int>& order,
                      unsigned level, bool numpy_vectors, spdlog::logger& log);

// The result lines the plan's reports ask for, in this order: value,
// elements, order, gains, cumulative gains.
void LogResultReports(const SummaryResult& result, const SummaryPlan::Reports& reports,
                      spdlog::logger& log);

// Then the analysis the plan's reports ask for, in this order: the
// conditional curvature (result.conditional_curvature), the detail report and
// the balance report.
void LogAnalysisReports(const SummaryObjective& objective, const SummaryResult& result,
                        const SummaryPlan::Reports& reports, spdlog::logger& log);

}  // namespace velmor

#endif  // VELMOR_SUMMARIZATION_SUMMARYREPORTS_H_
