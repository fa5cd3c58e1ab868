#include "algorithms/greedyCommon.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

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

AncillaryCheck CheckRunArguments(const SetFunction& f, const DownClosedSetConstraint& constraint,
                                 int cardinality_limit, const Set& candidates, const Set& inclusion,
                                 const Set& conditioning,
                                 const greedy_max::GreedyAncillaryResults* ancillary) {
  if (auto problem = GreedyArgumentProblem(f, constraint, cardinality_limit, candidates, inclusion,
                                           conditioning)) {
    return {.problem = std::move(problem)};
  }
  return CheckAncillary(ancillary, f.GroundSetSize());
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

UnorderedHashSet RemainingSet(const Set& candidates, const Set& excluded) {
  UnorderedHashSet remaining(candidates.GroundSetSize());
  for (int e : candidates) {
    if (!excluded.contains(e)) remaining.insert(e);
  }
  return remaining;
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

void DisjointGainsOnThreads(const SetFunction::SetFunctionGrowingContext& context,
                            const int* elements, int count, double* gains, int threads,
                            int least_per_thread) {
  const int slices = std::max(1, std::min(threads, count / std::max(1, least_per_thread)));
  if (slices <= 1) {
    context.DisjointGains(elements, count, gains);
    return;
  }
  const int per_slice = (count + slices - 1) / slices;
  // Clones are made before any thread starts: a context may keep scratch
  // space that its own gain computation writes.
  std::vector<std::unique_ptr<SetFunction::SetFunctionGrowingContext>> clones;
  for (int s = 1; s < slices && s * per_slice < count; ++s) clones.push_back(context.clone());
  std::vector<std::exception_ptr> failures(clones.size() + 1);
  std::vector<std::thread> workers;
  workers.reserve(clones.size());
  for (std::size_t s = 1; s <= clones.size(); ++s) {
    const int begin = static_cast<int>(s) * per_slice;
    const int size = std::min(count, begin + per_slice) - begin;
    auto slice = [&clones, &failures, elements, gains, begin, size, s] {
      try {
        clones[s - 1]->DisjointGains(elements + begin, size, gains + begin);
      } catch (...) {
        failures[s] = std::current_exception();
      }
    };
    try {
      workers.emplace_back(slice);
    } catch (const std::system_error&) {
      slice();  // no thread to be had: this one does the slice
    }
  }
  try {
    context.DisjointGains(elements, std::min(count, per_slice), gains);
  } catch (...) {
    failures[0] = std::current_exception();
  }
  for (std::thread& worker : workers) worker.join();
  for (const std::exception_ptr& failure : failures) {
    if (failure) std::rethrow_exception(failure);
  }
}

}  // namespace velmor::internal
