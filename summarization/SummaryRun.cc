#include "summarization/SummaryRun.h"

#include <fmt/ranges.h>
#include <spdlog/spdlog.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <thread>

#include "algorithms/PartialEnumeration.h"
#include "algorithms/greedy_max.h"
#include "algorithms/random_min_max.h"
#include "sets/FixedEmptySet.h"
#include "summarization/SummaryReports.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

// CPU (user, system) and wall-clock seconds of the process.
struct Clock {
  double user = 0, system = 0, wall = 0;
  static Clock Now() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    Clock c;
    c.user = static_cast<double>(usage.ru_utime.tv_sec) +
             1e-6 * static_cast<double>(usage.ru_utime.tv_usec);
    c.system = static_cast<double>(usage.ru_stime.tv_sec) +
               1e-6 * static_cast<double>(usage.ru_stime.tv_usec);
    c.wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    return c;
  }
};

void RunRandomEvaluations(const SummaryObjective& objective,
                          const SummaryPlan::RandomEvaluations& random, spdlog::logger& log) {
  const int n = objective.GroundSetSize();
  // Each subset draws this many of the candidates outside the inclusion.
  int pool = 0;
  for (int v : objective.Candidates()) pool += objective.Inclusion().contains(v) ? 0 : 1;
  const int k = std::min(objective.Constraint().SizeLimit(), pool);
  log.info("Running {} random subsets of size {} ...", random.count, k);
  UnorderedHashSet min_set(n), max_set(n);
  double min_value = 0, max_value = 0, average_value = 0;
  RandomMaximizationMinimization(random.count, random.seed, objective.Function(),
                                 objective.Constraint(), objective.Candidates(),
                                 objective.Inclusion(), FixedEmptySet(n), &min_set, &max_set,
                                 &min_value, &max_value, &average_value);
  log.info(
      "Ran {} random subsets of size {}, (minvalue <= avgvalue <= maxvalue) = ({:.10g} <= "
      "{:.10g} <= {:.10g})",
      random.count, k, min_value, average_value, max_value);
  if (random.log_sets) {
    std::vector<int> elements;
    min_set.ToVector(elements);
    std::sort(elements.begin(), elements.end());
    log.info("Set achieving minimum random val: {{{}}}", fmt::join(elements, ", "));
    max_set.ToVector(elements);
    std::sort(elements.begin(), elements.end());
    log.info("Set achieving maximum random val: {{{}}}", fmt::join(elements, ", "));
  }
}

// The plan's greedy as a maximizer of the common signature: the standard
// greedy (lazy, or the plain scan) with the caller's limit and permit on
// `threads` threads watched by `observer`, or the chosen one.
GreedyAlgorithm PlannedGreedy(const SummaryPlan::Algorithm& algorithm, int threads,
                              const GreedyStepObserver& observer) {
  return [algorithm, threads, observer](
             const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
             int cardinality_limit, const Set& candidates, const Set& inclusion,
             const Set& conditioning, double, GainPermit gain_permit, UnorderedHashSet* solution,
             std::vector<int>* order, std::vector<float>* gains, double* value,
             greedy_max::GreedyAncillaryResults* ancillary) {
    using Kind = GreedyAlgorithmChoice::Kind;
    const Kind kind = algorithm.choice.kind;
    if (algorithm.choice.threads == 0 && (kind == Kind::kStandard || kind == Kind::kPlain)) {
      return GreedyConstrainedMaximization(
          f, constraint, cardinality_limit, candidates, inclusion, conditioning, gain_permit,
          solution, order, gains, value, ancillary,
          {.lazy = kind == Kind::kStandard, .threads = threads, .observer = observer});
    }
    return RunChosenGreedyAlgorithm(algorithm.choice, algorithm.seed, f, constraint, candidates,
                                    inclusion, solution, order, gains, value, threads);
  };
}

// Order, gains, solution and value of the plan's algorithm: the greedy never
// stops on the gain, and under partial enumeration completes every starting
// set.
SummaryResult Maximize(const SummaryObjective& objective, const SummaryPlan::Algorithm& algorithm,
                       int threads, const GreedyStepObserver& observer, spdlog::logger& log) {
  SummaryResult result;
  result.summarized = true;
  const int n = objective.GroundSetSize();
  result.solution = UnorderedHashSet(n);
  const GreedyAlgorithm greedy = PlannedGreedy(algorithm, threads, observer);
  if (algorithm.partial_enumeration > 0) {
    PartialEnumerationMaximization(
        objective.Function(), objective.Constraint(), objective.Candidates(), objective.Inclusion(),
        algorithm.partial_enumeration, greedy, log, algorithm.partial_enumeration_log_period,
        &result.solution, &result.order, &result.gains, &result.value);
  } else {
    greedy(objective.Function(), objective.Constraint(), std::numeric_limits<int>::max(),
           objective.Candidates(), objective.Inclusion(), FixedEmptySet(n), 0.0, kNeverStopOnGain,
           &result.solution, &result.order, &result.gains, &result.value, nullptr);
  }
  return result;
}

void WarnWhenNothingWasChosen(const SummaryObjective& objective, const SummaryResult& result,
                              spdlog::logger& log) {
  const int room = std::min(objective.SummarySize(), objective.Constraint().SizeLimit()) -
                   objective.Inclusion().size();
  if (!result.order.empty() || room <= 0) return;
  log.warn(
      "WARNING: No work was done by the algorithm.\nCould indicate a numerical problem (Infs or "
      "NaNs) due to an invalid input matrix,\na transform thereof that results in an invalid "
      "matrix, a centrality computation on\nthat matrix (or transformation on that centrality) "
      "that leads to numerical overflow\nproblems, and/or an invalid submodular specification. "
      "Results below will be invalid.\nFix the above, or try running with FP exceptions turned "
      "on.");
}

}  // namespace

void CheckSummaryValueIsFinite(const SummaryResult& result) {
  if (!std::isfinite(result.value)) {
    throw exception::InputAndOrParameterDataError(exception::MakeCommandMessage(
        "Solution has non-finite or NaN value (%g) when using current parameters and input. "
        "Exiting since results are likely invalid.",
        result.value));
  }
}

SummaryResult RunSummary(const SummaryObjective& objective, const SummaryPlan& plan,
                         spdlog::logger& log, const GreedyStepObserver& observer) {
  log.info("Summarizing function with ground set of size |V|=n={}, relative ground set |R|={}, {}.",
           objective.GroundSetSize(), objective.Candidates().size(),
           objective.ConstraintDescription());
  if (objective.Candidates().size() == 0) {
    log.info("Relative ground set size being zero means there is no work to do.");
    return SummaryResult();
  }
  if (plan.random_evaluations.count > 0) {
    RunRandomEvaluations(objective, plan.random_evaluations, log);
  }

  const SummaryPlan::Algorithm& algorithm = plan.algorithm;
  if (!algorithm.choice.IsPlainStandard()) {
    log.info("Greedy algorithm: {}.", algorithm.choice.Description());
  }
  const Clock before = Clock::Now();
  const int threads =
      plan.threads > 0 ? plan.threads : static_cast<int>(std::thread::hardware_concurrency());
  SummaryResult result = Maximize(objective, algorithm, threads, observer, log);
  const int chosen = static_cast<int>(result.order.size());
  observer.Step(chosen, chosen);
  const Clock after = Clock::Now();
  const double user = after.user - before.user, system = after.system - before.system;
  log.info("Summarization time: CPU {}s (User: {}s; System: {}s); Wall Clock {}s.", user + system,
           user, system, after.wall - before.wall);
  WarnWhenNothingWasChosen(objective, result, log);
  CheckSummaryValueIsFinite(result);

  const SummaryPlan::Reports& reports = plan.reports;
  LogResultReports(result, reports, log);
  if (reports.detail || reports.conditional_curvature || reports.keep_conditional_curvature) {
    result.conditional_curvature = ConditionalCurvature(objective.Function(), result.solution,
                                                        result.order, result.gains, log);
  }
  LogAnalysisReports(objective, result, reports, log);
  return result;
}

}  // namespace velmor
