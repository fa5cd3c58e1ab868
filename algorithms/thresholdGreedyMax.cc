#include "algorithms/thresholdGreedyMax.h"

#include <spdlog/spdlog.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "algorithms/greedyCommon.h"
#include "utils/error_messages.h"
#include "utils/logging.h"

namespace velmor {

bool ThresholdGreedyConstrainedMaximization(double epsilon, const SubmodularFunction& f,
                                            const DownClosedSetConstraint& constraint,
                                            int cardinality_limit, const Set& candidates,
                                            const Set& inclusion, const Set& conditioning,
                                            GainPermit gain_permit, UnorderedHashSet* solution,
                                            std::vector<int>* order, double* value,
                                            greedy_max::GreedyAncillaryResults* ancillary) {
  if (!(epsilon > 0.0 && epsilon < 1.0)) {
    VELMOR_THROW(std::invalid_argument, "Value of epsilon = %g, must be in (0, 1).", epsilon);
  }
  const internal::AncillaryCheck ancillary_check = internal::CheckRunArguments(
      f, constraint, cardinality_limit, candidates, inclusion, conditioning, ancillary);
  if (ancillary_check.problem)
    VELMOR_THROW(std::invalid_argument, "%s", ancillary_check.problem->c_str());
  const bool singletons_given = ancillary_check.precomputed;
  if (order == nullptr && solution == nullptr) return false;

  const std::shared_ptr<spdlog::logger> logger = logging::GetLogger("optm");
  const int k = std::min(constraint.SizeLimit(), cardinality_limit);
  internal::GreedyRunState state(f, constraint, inclusion, conditioning);
  std::vector<int> pool = internal::RemainingCandidates(candidates, state.excluded);
  if (order != nullptr) order->clear();

  // Bounds: the singleton gains (an upper bound of every later gain).
  std::vector<double> bounds(pool.size());
  std::int64_t evaluations = 0;
  if (singletons_given) {
    for (std::size_t j = 0; j < pool.size(); ++j) {
      const float stored = ancillary->singleton_gains[static_cast<std::size_t>(pool[j])];
      if (std::isnan(stored)) {
        bounds[j] = state.function_context->DisjointGain(pool[j]);
        ++evaluations;
      } else {
        bounds[j] = static_cast<double>(stored);
      }
    }
  } else {
    state.function_context->DisjointGains(pool.data(), static_cast<int>(pool.size()),
                                          bounds.data());
    evaluations += static_cast<std::int64_t>(pool.size());
  }
  double largest = -std::numeric_limits<double>::max();
  for (double b : bounds) largest = std::max(largest, b);
  logger->info("Starting threshold greedy max, {} candidates, largest singleton gain {}.",
               pool.size(), largest);

  // Adds pool[j]: from here on it is out of the pool (marked by -1).
  auto add = [&](std::size_t j, double gain) {
    state.Add(pool[j]);
    if (order != nullptr) order->push_back(pool[j]);
    logger->debug("Threshold greedy added element = {}, gain value = {}.", pool[j], gain);
    pool[j] = -1;
  };
  const double lowest_threshold = k > 0 ? epsilon * largest / static_cast<double>(k) : largest;
  for (double w = largest; w > 0.0 && w >= lowest_threshold && state.current.size() < k;
       w *= 1.0 - epsilon) {
    for (std::size_t j = 0; j < pool.size() && state.current.size() < k; ++j) {
      if (pool[j] < 0 || !(bounds[j] >= w)) continue;
      if (!state.Feasible(pool[j])) {
        pool[j] = -1;  // down-closed: infeasible for good
        continue;
      }
      bounds[j] = state.function_context->DisjointGain(pool[j]);
      ++evaluations;
      if (bounds[j] >= w) add(j, bounds[j]);
    }
  }
  // The last sweep: whatever gain the permit accepts.
  for (std::size_t j = 0; j < pool.size() && state.current.size() < k; ++j) {
    if (pool[j] < 0 || !state.Feasible(pool[j])) continue;
    const double gain = state.function_context->DisjointGain(pool[j]);
    ++evaluations;
    if (!std::isnan(gain) && !internal::GainPermitStops(gain_permit, gain)) add(j, gain);
  }
  logger->info("Finished running threshold greedy, found {} elements with {} gain evaluations.",
               state.current.size() - inclusion.size(), evaluations);
  if (ancillary != nullptr) ancillary->number_of_gain_evaluations = evaluations;
  internal::FinishGreedyRun(f, conditioning, state, solution, value);
  return true;
}

}  // namespace velmor
