#include "algorithms/greedyCommon.h"

#include <fmt/format.h>

namespace velmor::internal {

bool GainPermitStops(GainPermit gain_permit, double gain) {
  switch (static_cast<int>(gain_permit)) {
    case kStopAtZeroGain:
      return gain == 0.0;
    case kStopAtNegativeGain:
      return gain < 0.0;
    default:
      return false;
  }
}

std::optional<std::string> GreedyArgumentProblem(const SetFunction& f,
                                                 const DownClosedSetConstraint& constraint,
                                                 int cardinality_limit, const Set& candidates,
                                                 const Set& inclusion, const Set& conditioning) {
  const int n = f.GroundSetSize();
  if (constraint.GroundSetSize() != n || candidates.GroundSetSize() != n ||
      inclusion.GroundSetSize() != n || conditioning.GroundSetSize() != n) {
    return fmt::format("All arguments must have same ground set size, got sizes {},{},{},{},{}.", n,
                       constraint.GroundSetSize(), candidates.GroundSetSize(),
                       inclusion.GroundSetSize(), conditioning.GroundSetSize());
  }
  const bool inclusion_feasible = constraint.IsFeasible(inclusion);
  if (!inclusion_feasible || inclusion.size() > cardinality_limit) {
    return fmt::format(
        "Inclusion set of size {} must itself be feasible, but constraint feasibility returns {} "
        "and extra "
        "cardinality limit is {}.",
        inclusion.size(), inclusion_feasible, cardinality_limit);
  }
  return std::nullopt;
}

AncillaryCheck CheckAncillary(const greedy_max::GreedyAncillaryResults* ancillary, int n) {
  AncillaryCheck check;
  check.precomputed = ancillary != nullptr && ancillary->singleton_gains_precomputed;
  if (check.precomputed && ancillary->singleton_gains.size() != static_cast<std::size_t>(n)) {
    check.problem =
        fmt::format("Invalid argument, ancillary singleton gains have {} entries, not {}.",
                    ancillary->singleton_gains.size(), n);
  }
  return check;
}

GreedyRunState::GreedyRunState(const SubmodularFunction& f,
                               const DownClosedSetConstraint& constraint, const Set& inclusion,
                               const Set& conditioning)
    : current(f.GroundSetSize()), excluded(f.GroundSetSize()) {
  current.insertSet(inclusion);
  excluded.insertSet(inclusion);
  excluded.insertSet(conditioning);
  function_context = f.MakeGrowingContext(excluded);
  constraint_context = constraint.MakeGrowingContextExternal(current);
}

void GreedyRunState::Add(int e) {
  function_context->AddNewElementToContext(e, true);
  constraint_context->AddNewElementToContext(e, current, false);
  current.insert(e);
  excluded.insert(e);
}

std::vector<int> RemainingCandidates(const Set& candidates, const Set& excluded) {
  std::vector<int> elements;
  elements.reserve(static_cast<std::size_t>(candidates.size()));
  for (int e : candidates) {
    if (!excluded.contains(e)) elements.push_back(e);
  }
  return elements;
}

void FinishGreedyRun(const SubmodularFunction& f, const Set& conditioning,
                     const GreedyRunState& state, UnorderedHashSet* solution, double* value) {
  if (value != nullptr) *value = state.function_context->CurrentValue() - f.Evaluate(conditioning);
  if (solution != nullptr) *solution = state.current;
}

}  // namespace velmor::internal
