#include "summarization/SummaryReports.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <numeric>
#include <string>
#include <type_traits>

#include "sets/FixedEmptySet.h"

namespace velmor {
namespace {

// Numbers in reports: integers as they are, reals with ten significant digits.
template <typename T>
std::string FormatNumber(T value) {
  if constexpr (std::is_integral_v<T>) {
    return fmt::format("{}", value);
  } else {
    return fmt::format("{:.10g}", value);
  }
}

// "name = np.array([a, b])", or "a b " when not as numpy.
template <typename T>
std::string VectorText(const std::vector<T>& values, const char* numpy_name, bool numpy) {
  std::string text;
  if (numpy) {
    text = std::string(numpy_name) + " = np.array([";
    for (std::size_t i = 0; i < values.size(); ++i) {
      text += FormatNumber(values[i]);
      if (i + 1 < values.size()) text += ", ";
    }
    return text + "])";
  }
  for (const T& v : values) text += FormatNumber(v) + " ";
  return text;
}

// "{1, 4, 9}": the elements in ascending order.
std::string SetText(const UnorderedHashSet& set) {
  std::vector<int> sorted;
  set.ToVector(sorted);
  std::sort(sorted.begin(), sorted.end());
  return fmt::format("{{{}}}", fmt::join(sorted, ", "));
}

std::vector<double> CumulativeSums(const std::vector<float>& gains) {
  std::vector<double> cumulative(gains.size());
  double running = 0.0;
  for (std::size_t i = 0; i < gains.size(); ++i) cumulative[i] = running += gains[i];
  return cumulative;
}

// Component i's weighted value at `members` (with C added and f_i(C) taken
// off under a contraction C).
double ComponentShare(const SummaryObjective& objective, int i, const UnorderedHashSet& members) {
  const SetFunction& component = objective.Mixture().Component(i);
  const double weight = objective.Mixture().ComponentWeights()[static_cast<std::size_t>(i)];
  const UnorderedHashSet* contraction = objective.Contraction();
  if (contraction == nullptr) return weight * component.Evaluate(members);
  UnorderedHashSet with_contraction = members;
  with_contraction.insertSet(*contraction);
  return weight * (component.Evaluate(with_contraction) - component.Evaluate(*contraction));
}

// Component i's weighted gain at each step of the order.
std::vector<double> ComponentStepGains(const SummaryObjective& objective, int i,
                                       const std::vector<int>& order) {
  const SetFunction& component = objective.Mixture().Component(i);
  const double weight = objective.Mixture().ComponentWeights()[static_cast<std::size_t>(i)];
  const UnorderedHashSet* contraction = objective.Contraction();
  auto context = contraction != nullptr
                     ? component.MakeGrowingContext(*contraction)
                     : component.MakeGrowingContext(FixedEmptySet(objective.GroundSetSize()));
  std::vector<double> step_gains;
  for (int v : order) {
    step_gains.push_back(weight * context->DisjointGain(v));
    context->AddNewElementToContext(v, true);
  }
  return step_gains;
}

}  // namespace

std::vector<double> ConditionalCurvature(const SetFunction& f, const UnorderedHashSet& solution,
                                         const std::vector<int>& order,
                                         const std::vector<float>& gains, spdlog::logger& log) {
  std::vector<double> curvature(order.size(), 0.0);
  auto context = f.MakeShrinkingContext(solution);
  for (std::size_t i = 0; i < order.size(); ++i) {
    const double gain = gains[i];
    if (gain == 0.0) {
      log.info("Evaluation g({}|S)=0, with {} \\in Summary. Assuming zero curvature.", order[i],
               order[i]);
      continue;
    }
    curvature[i] = 1.0 - context->SubsetLoss(order[i]) / gain;
  }
  return curvature;
}

void LogDetailReport(const SetFunction& f, const std::vector<int>& order,
                     const std::vector<double>& curvature, double value, spdlog::logger& log) {
  double bound = 0.0;
  for (int v : order) bound += f.Evaluate(v);
  if (!curvature.empty()) {
    const auto [low, high] = std::minmax_element(curvature.begin(), curvature.end());
    const double mean = std::accumulate(curvature.begin(), curvature.end(), 0.0) /
                        static_cast<double>(curvature.size());
    log.info("Conditional curvature of the summary: min = {:.10g}, mean = {:.10g}, max = {:.10g}.",
             *low, mean, *high);
  }
  log.info(
      "Modular Upper Bound on solution = {}, 0 <= Approximate Efficiency = f(Sol)/UBound = {} <= "
      "1.0",
      bound, bound > 0 ? value / bound : 1.0);
}

void LogBalanceReport(const SummaryObjective& objective, const std::vector<int>& order,
                      unsigned level, bool numpy_vectors, spdlog::logger& log) {
  const MixtureSetFunction& mixture = objective.Mixture();
  UnorderedHashSet members(objective.GroundSetSize());
  for (int v : order) members.insert(v);
  std::vector<double> shares;
  double total = 0.0;
  for (int i = 0; i < mixture.NumberOfComponents(); ++i) {
    shares.push_back(ComponentShare(objective, i, members));
    total += shares.back();
  }
  for (int i = 0; i < mixture.NumberOfComponents(); ++i) {
    const double share = shares[static_cast<std::size_t>(i)];
    log.info("Balance: {} (responsibility {:g}) contributes {:.10g} = {:.4g}% of f(Solution).",
             objective.ComponentName(i), mixture.ComponentWeights()[static_cast<std::size_t>(i)],
             share, total != 0 ? 100.0 * share / total : 0.0);
    if (level > 1) {
      log.info(
          "Balance: {} gains: {}", objective.ComponentName(i),
          VectorText(ComponentStepGains(objective, i, order), "component_gains", numpy_vectors));
    }
  }
}

void LogResultReports(const SummaryResult& result, const SummaryPlan::Reports& reports,
                      spdlog::logger& log) {
  const bool numpy = reports.numpy_vectors;
  if (reports.value) {
    if (reports.solution) {
      log.info("Summary valuation: f({}) = {:.8g}", SetText(result.solution), result.value);
    } else {
      log.info("Summary valuation: f(Solution) = {:.8g}", result.value);
    }
  }
  if (reports.solution) log.info("Solution Set: {}", SetText(result.solution));
  if (reports.order) {
    const std::string text = VectorText(result.order, "elements_in_rank_order", numpy);
    log.info("Summary Solution: {:.{}}", text, text.size());
  }
  if (reports.gains) {
    const std::string text = VectorText(result.gains, "gains", numpy);
    log.info("Summary Gains: {:.{}}", text, text.size());
  }
  if (reports.cumulative_gains) {
    const std::string text = VectorText(CumulativeSums(result.gains), "cgains", numpy);
    log.info("Summary Cumulative Gains: {:.{}}", text, text.size());
  }
}

void LogAnalysisReports(const SummaryObjective& objective, const SummaryResult& result,
                        const SummaryPlan::Reports& reports, spdlog::logger& log) {
  const bool numpy = reports.numpy_vectors;
  if (reports.conditional_curvature) {
    log.info("Summary Conditional Curvature: {}",
             VectorText(result.conditional_curvature, "conditional_curvature", numpy));
  }
  if (reports.detail) {
    LogDetailReport(objective.Function(), result.order, result.conditional_curvature, result.value,
                    log);
  }
  if (reports.balance > 0) {
    LogBalanceReport(objective, result.order, reports.balance, numpy, log);
  }
}

}  // namespace velmor
