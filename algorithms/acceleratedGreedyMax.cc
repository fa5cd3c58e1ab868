#include "algorithms/acceleratedGreedyMax.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>
#include <utility>

#include "algorithms/greedyCommon.h"
#include "utils/KeyValueMaxHeapPairPriorityQueue.h"
#include "utils/error_messages.h"
#include "utils/logging.h"

namespace velmor {

double SmallestWorthwhileGainForGreedy(const SetFunction& f, int k, const Set& candidates,
                                       const Set& inclusion, double fraction) {
  constexpr double kLowest = static_cast<double>(std::numeric_limits<float>::lowest());
  if (candidates.GroundSetSize() != inclusion.GroundSetSize()) {
    VELMOR_THROW(std::invalid_argument, "Ground set sizes %d != %d, must be the same.",
                 candidates.GroundSetSize(), inclusion.GroundSetSize());
  }
  if (static_cast<double>(candidates.size()) * fraction <= static_cast<double>(k)) return kLowest;
  std::vector<int> elements;
  elements.reserve(static_cast<std::size_t>(candidates.size()));
  for (int e : candidates) {
    if (!inclusion.contains(e)) elements.push_back(e);
  }
  if (k < 0 || elements.size() <= static_cast<std::size_t>(k)) return kLowest;
  const std::unique_ptr<SetFunction::SetFunctionGrowingContext> context =
      f.MakeGrowingContext(inclusion);
  std::vector<double> gains(elements.size());
  context->DisjointGains(elements.data(), static_cast<int>(elements.size()), gains.data());
  std::vector<float> narrowed(gains.size());
  for (std::size_t j = 0; j < gains.size(); ++j) {
    // NaN gains sort last, so they never become the threshold ahead of a number.
    narrowed[j] =
        std::isnan(gains[j]) ? std::numeric_limits<float>::lowest() : static_cast<float>(gains[j]);
  }
  std::nth_element(narrowed.begin(), narrowed.begin() + k, narrowed.end(), std::greater<float>());
  return static_cast<double>(narrowed[static_cast<std::size_t>(k)]);
}

bool AcceleratedGreedyConstrainedMaximization(
    const SubmodularFunction& f, const DownClosedSetConstraint& constraint, int cardinality_limit,
    const Set& candidates, const Set& inclusion, const Set& conditioning, double algorithm_value,
    GainPermit gain_permit, UnorderedHashSet* solution, std::vector<int>* order,
    std::vector<float>* gains, double* value, greedy_max::GreedyAncillaryResults* ancillary) {
  return AcceleratedGreedyConstrainedMaximization(
      f, constraint, cardinality_limit, candidates, inclusion, conditioning, algorithm_value,
      gain_permit, solution, order, gains, value, ancillary, 1);
}

bool AcceleratedGreedyConstrainedMaximization(
    const SubmodularFunction& f, const DownClosedSetConstraint& constraint, int cardinality_limit,
    const Set& candidates, const Set& inclusion, const Set& conditioning, double algorithm_value,
    GainPermit gain_permit, UnorderedHashSet* solution, std::vector<int>* order,
    std::vector<float>* gains, double* value, greedy_max::GreedyAncillaryResults* ancillary,
    int threads) {
  const internal::AncillaryCheck ancillary_check = internal::CheckRunArguments(
      f, constraint, cardinality_limit, candidates, inclusion, conditioning, ancillary);
  if (ancillary_check.problem)
    VELMOR_THROW(std::invalid_argument, "%s", ancillary_check.problem->c_str());
  const int n = f.GroundSetSize();
  const bool use_ancillary = ancillary_check.precomputed;
  if (ancillary != nullptr) ancillary->number_of_gain_evaluations = 0;

  const std::shared_ptr<spdlog::logger> logger = logging::GetLogger("optm");
  const int progress_period = greedy_max::ProgressLoggingPeriod();
  const int k = std::min(constraint.SizeLimit(), cardinality_limit);
  const double threshold =
      SmallestWorthwhileGainForGreedy(f, k, candidates, inclusion, algorithm_value);

  UnorderedHashSet base(n);
  base.insertSet(inclusion);
  base.insertSet(conditioning);
  UnorderedHashSet current(n);
  current.insertSet(inclusion);
  const std::unique_ptr<SetFunction::SetFunctionGrowingContext> context =
      f.MakeGrowingContext(base);
  const std::unique_ptr<SetConstraint::ConstraintGrowingContextExternal> constraint_context =
      constraint.MakeGrowingContextExternal(current);

  // Initial gains, in the iteration order of `candidates`.
  std::vector<int> elements;
  elements.reserve(static_cast<std::size_t>(candidates.size()));
  for (int e : candidates) {
    if (!base.contains(e)) elements.push_back(e);
  }
  const int count = static_cast<int>(elements.size());
  std::vector<double> initial_gains(elements.size());
  std::int64_t evaluations = 0;
  if (use_ancillary) {
    logger->info("Using pre-computed ancillary singleton gains.");
    for (int j = 0; j < count; ++j) {
      const float stored = ancillary->singleton_gains[static_cast<std::size_t>(elements[j])];
      if (std::isnan(stored)) {
        initial_gains[j] = context->DisjointGain(elements[j]);
        ++evaluations;
      } else {
        initial_gains[j] = static_cast<double>(stored);
      }
    }
  } else {
    logger->info("Computing {} singleton values.", count);
    internal::DisjointGainsOnThreads(*context, elements.data(), count, initial_gains.data(),
                                     threads);
    evaluations += count;
    if (ancillary != nullptr) {
      logger->info("Computing ancillary singleton gains.");
      ancillary->singleton_gains.assign(static_cast<std::size_t>(n),
                                        std::numeric_limits<float>::quiet_NaN());
      for (int j = 0; j < count; ++j) {
        ancillary->singleton_gains[static_cast<std::size_t>(elements[j])] =
            static_cast<float>(initial_gains[j]);
      }
      ancillary->singleton_gains_precomputed = true;
    }
    logger->info("Done computing {} singleton values.", count);
  }
  std::vector<KeyValueMaxHeapPairPriorityQueue::KeyValuePair> pairs;
  pairs.reserve(elements.size());
  for (int j = 0; j < count; ++j) {
    const float gain = static_cast<float>(initial_gains[j]);
    if (static_cast<double>(gain) >= threshold) pairs.emplace_back(elements[j], gain);
  }
  std::vector<double>().swap(initial_gains);
  KeyValueMaxHeapPairPriorityQueue heap(std::move(pairs));

  if (order != nullptr) {
    order->clear();
    order->reserve(
        static_cast<std::size_t>(std::max(0, std::min<int>(k, static_cast<int>(heap.size())))));
  }
  if (gains != nullptr) {
    gains->clear();
    gains->reserve(
        static_cast<std::size_t>(std::max(0, std::min<int>(k, static_cast<int>(heap.size())))));
  }

  int added = 0;
  // k counts the elements this run adds: a warm start does not use them up.
  while (!heap.empty() && added < k) {
    const int element = heap.TopKey();
    const float stale_gain = heap.TopValue();
    const float fresh_gain = static_cast<float>(context->DisjointGain(element));
    ++evaluations;
    if (threshold > static_cast<double>(fresh_gain) || std::isnan(fresh_gain)) {
      heap.Pop();
      continue;
    }
    float accepted_gain = stale_gain;
    if (stale_gain > fresh_gain) {
      heap.ChangeTopValue(fresh_gain);
      // The sift-down never moves a pair below an equal child, so an equal
      // top value means `element` is still on top.
      if (!(heap.TopValue() == fresh_gain)) continue;
      accepted_gain = fresh_gain;
    }
    heap.Pop();
    if (!constraint_context->IsDisjointUnionFeasible(element, current)) continue;
    if (progress_period >= 1 && added % progress_period == 0) {
      logger->info("Found element {} in the order, element = {}, gain value = {}, heap size = {}.",
                   added, element, accepted_gain, heap.size());
    }
    if (internal::GainPermitStops(gain_permit, accepted_gain)) {
      logger->debug("Done since found negaive gain.");
      break;
    }
    ++added;
    context->AddNewElementToContext(element, true);
    constraint_context->AddNewElementToContext(element, current, false);
    current.insert(element);
    if (order != nullptr) order->push_back(element);
    if (gains != nullptr) gains->push_back(accepted_gain);
  }
  logger->info("Finished running accelerated greedy, found {} elements.", added);
  if (ancillary != nullptr) ancillary->number_of_gain_evaluations = evaluations;
  if (value != nullptr) *value = context->CurrentValue() - f.Evaluate(conditioning);
  if (solution != nullptr) *solution = current;
  return true;
}

}  // namespace velmor
