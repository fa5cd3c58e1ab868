#include "distributed/LandmarkSplitGreedy.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <cfloat>
#include <memory>
#include <stdexcept>
#include <vector>

#include "algorithms/greedy_max.h"
#include "constraints/DownClosedSetConstraint.h"
#include "functions/SetFunction.h"
#include "sets/UnorderedHashSet.h"
#include "utils/error_messages.h"

namespace velmor {

void LandmarkSplitGreedy::CheckStart(const SummaryObjective& local) {
  const UnorderedHashSet& inclusion = local.Inclusion();
  const bool feasible = local.Constraint().IsFeasible(inclusion);
  if (!feasible) {
    VELMOR_THROW(std::invalid_argument,
                 fmt::format("Inclusion set of size {} must itself be feasible, but constraint "
                             "feasibility returns {}.",
                             inclusion.size(), feasible));
  }
}

namespace {

// The index of the largest of gains[0 .. count) (the first of equal ones), or
// -1 when count is 0.
int ArgMax(const std::vector<double>& gains, int count) {
  int best = -1;
  double max_gain = -DBL_MAX;
  for (int j = 0; j < count; ++j) {
    if (gains[static_cast<std::size_t>(j)] > max_gain) {
      max_gain = gains[static_cast<std::size_t>(j)];
      best = j;
    }
  }
  return best;
}

}  // namespace

SummaryResult LandmarkSplitGreedy::Run(const SummaryObjective& local,
                                       const Collectives& collectives, spdlog::logger* progress) {
  const SubmodularFunction& f = local.Function();
  const DownClosedSetConstraint& constraint = local.Constraint();
  const int n = f.GroundSetSize();

  UnorderedHashSet current(n);
  current.insertSet(local.Inclusion());
  UnorderedHashSet remaining(n);
  for (int e : local.Candidates()) {
    if (!current.contains(e)) remaining.insert(e);
  }
  const std::unique_ptr<SetFunction::SetFunctionGrowingContext> context =
      f.MakeGrowingContext(current);
  const std::unique_ptr<SetConstraint::ConstraintGrowingContextExternal> constraint_context =
      constraint.MakeGrowingContextExternal(current);

  SummaryResult result;
  result.summarized = true;
  std::vector<int> feasible;
  std::vector<double> gains(static_cast<std::size_t>(remaining.size()));
  feasible.reserve(static_cast<std::size_t>(remaining.size()));
  const int progress_period = greedy_max::ProgressLoggingPeriod();
  const bool nothing_to_choose = constraint.SizeLimit() == 0 || local.Candidates().empty();
  while (!nothing_to_choose) {
    feasible.clear();
    for (int e : remaining) {
      if (constraint_context->IsDisjointUnionFeasible(e, current)) feasible.push_back(e);
    }
    const int count = static_cast<int>(feasible.size());
    if (count == 0) break;
    context->DisjointGains(feasible.data(), count, gains.data());
    collectives.sum(gains.data(), count);
    const int best = collectives.root_choice(ArgMax(gains, count));
    if (best < 0) break;
    const int element = feasible[static_cast<std::size_t>(best)];
    const double gain = gains[static_cast<std::size_t>(best)];
    const int added = static_cast<int>(result.order.size());
    if (progress != nullptr && progress_period >= 1 && added % progress_period == 0) {
      progress->info("Found element {} in the order, element = {}, gain value = {}.", added,
                     element, gain);
    }
    result.order.push_back(element);
    result.gains.push_back(static_cast<float>(gain));
    context->AddNewElementToContext(element, true);
    constraint_context->AddNewElementToContext(element, current, false);
    current.insert(element);
    remaining.remove(element);
  }
  double value = context->CurrentValue();
  collectives.sum(&value, 1);
  result.value = value;
  result.solution = std::move(current);
  return result;
}

}  // namespace velmor
