#include "algorithms/stochasticGreedyMax.h"

#include <spdlog/spdlog.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>

#include "algorithms/acceleratedGreedyMax.h"
#include "algorithms/greedyCommon.h"
#include "utils/error_messages.h"
#include "utils/logging.h"

namespace velmor {

namespace {

constexpr float kUnknownBound = std::numeric_limits<float>::infinity();

// g as a float no smaller than g, so that a stored gain stays an upper bound.
float FloatUpperBound(double g) {
  float narrowed = static_cast<float>(g);
  if (static_cast<double>(narrowed) < g) narrowed = std::nextafter(narrowed, kUnknownBound);
  return narrowed;
}

// The epsilon of step t of `planned` steps.
double EpsilonOfStep(double starting, double ending, double gamma, long t, long planned) {
  if (planned <= 1 || ending == starting) return starting;
  const double progress = std::min(1.0, static_cast<double>(t) / static_cast<double>(planned - 1));
  return starting + (ending - starting) * std::pow(progress, gamma);
}

// ceil((remaining / planned) * ln(1 / epsilon)) within the size bounds.
long SampleSize(long remaining, long planned, double epsilon, int minimum, int maximum) {
  double wanted = static_cast<double>(remaining);
  if (epsilon > 0.0) {
    wanted = std::ceil(static_cast<double>(remaining) / static_cast<double>(std::max(1L, planned)) *
                       std::log(1.0 / epsilon));
  }
  long size = wanted >= static_cast<double>(remaining) ? remaining
                                                       : static_cast<long>(std::max(0.0, wanted));
  size = std::max<long>(size, std::max(1, minimum));
  if (maximum > 0) size = std::min<long>(size, maximum);
  return std::min(size, remaining);
}

}  // namespace

bool StochasticAcceleratedGreedyConstrainedMaximization(
    double starting_epsilon, int minimum_sample_size, double ending_epsilon,
    int maximum_sample_size, double epsilon_gamma, double lazy_acceptance_tolerance,
    int expected_summary_size, int lazy_evaluation, const SubmodularFunction& f,
    const DownClosedSetConstraint& constraint, int cardinality_limit, const Set& candidates,
    const Set& inclusion, const Set& conditioning, GainPermit gain_permit, int seed,
    UnorderedHashSet* solution, std::vector<int>* order, std::vector<float>* gains, double* value,
    greedy_max::GreedyAncillaryResults* ancillary, double algorithm_value) {
  if (!(starting_epsilon >= 0.0)) {
    VELMOR_THROW(std::invalid_argument, "Value of starting_epsilon = %g, must be >= 0.",
                 starting_epsilon);
  }
  if (!(starting_epsilon <= ending_epsilon)) {
    VELMOR_THROW(std::invalid_argument,
                 "Value of starting_epsilon = %g, must be <= ending_epsilon = %g.",
                 starting_epsilon, ending_epsilon);
  }
  if (!(epsilon_gamma > 0.0) || std::isinf(epsilon_gamma)) {
    VELMOR_THROW(std::invalid_argument, "Value of epsilon_gamma = %g, must be positive.",
                 epsilon_gamma);
  }
  if (minimum_sample_size < 0 || maximum_sample_size < 0) {
    VELMOR_THROW(std::invalid_argument,
                 "Sample sizes minimum_sample_size = %d and maximum_sample_size = %d must be >= 0.",
                 minimum_sample_size, maximum_sample_size);
  }
  if (!(lazy_acceptance_tolerance >= 0.0 && lazy_acceptance_tolerance < 1.0)) {
    VELMOR_THROW(std::invalid_argument,
                 "Value of lazy_acceptance_tolerance = %g, must be in [0, 1).",
                 lazy_acceptance_tolerance);
  }
  if (expected_summary_size < 0) {
    VELMOR_THROW(std::invalid_argument, "Value of expected_summary_size = %d, must be >= 0.",
                 expected_summary_size);
  }
  const internal::AncillaryCheck ancillary_check = internal::CheckRunArguments(
      f, constraint, cardinality_limit, candidates, inclusion, conditioning, ancillary);
  if (ancillary_check.problem)
    VELMOR_THROW(std::invalid_argument, "%s", ancillary_check.problem->c_str());
  const int n = f.GroundSetSize();
  const bool bounds_given = ancillary_check.precomputed;
  if (order == nullptr && gains == nullptr && solution == nullptr) return false;

  const std::shared_ptr<spdlog::logger> logger = logging::GetLogger("optm");
  const int progress_period = greedy_max::ProgressLoggingPeriod();
  const int k = std::min(constraint.SizeLimit(), cardinality_limit);
  const double threshold =
      SmallestWorthwhileGainForGreedy(f, k, candidates, inclusion, algorithm_value);

  internal::GreedyRunState state(f, constraint, inclusion, conditioning);
  // The pool of candidates still in play; elements leave it by swapping with
  // the last one, so its order is a deterministic function of the seed.
  std::vector<int> pool = internal::RemainingCandidates(candidates, state.excluded);
  const long planned =
      expected_summary_size > 0
          ? expected_summary_size
          : std::max(1L, std::min<long>(k, inclusion.size() + static_cast<long>(pool.size())) -
                             inclusion.size());
  std::vector<float> bounds(static_cast<std::size_t>(n), kUnknownBound);
  if (bounds_given) {
    for (int e : pool) {
      const float stored = ancillary->singleton_gains[static_cast<std::size_t>(e)];
      if (!std::isnan(stored)) bounds[static_cast<std::size_t>(e)] = stored;
    }
  }
  if (order != nullptr) order->clear();
  if (gains != nullptr) gains->clear();
  logger->info("Starting stochastic accelerated greedy max, {} candidates, {} planned steps.",
               pool.size(), planned);

  std::mt19937 engine(static_cast<std::mt19937::result_type>(seed));
  std::vector<int> fresh_elements;  // sampled, without a bound yet
  std::vector<double> fresh_gains;
  std::vector<int> bounded_elements;    // sampled, with a bound from an earlier step
  std::vector<double> gain_of_sampled;  // per pool slot of the sample
  std::int64_t evaluations = 0;
  long step = 0;
  int added = 0;
  while (state.current.size() < k && !pool.empty()) {
    const long remaining = static_cast<long>(pool.size());
    const double epsilon =
        EpsilonOfStep(starting_epsilon, ending_epsilon, epsilon_gamma, step, planned);
    const long sample_size =
        SampleSize(remaining, planned, epsilon, minimum_sample_size, maximum_sample_size);
    // Partial Fisher-Yates: the sample is pool[0, sample_size).
    for (long j = 0; j < sample_size; ++j) {
      std::uniform_int_distribution<long> pick(j, remaining - 1);
      std::swap(pool[static_cast<std::size_t>(j)], pool[static_cast<std::size_t>(pick(engine))]);
    }
    // Drop the infeasible ones for good; split the rest by whether they have a bound.
    fresh_elements.clear();
    bounded_elements.clear();
    for (long j = 0; j < sample_size; ++j) {
      const int e = pool[static_cast<std::size_t>(j)];
      if (!state.Feasible(e)) continue;
      if (lazy_evaluation != 0 && bounds[static_cast<std::size_t>(e)] != kUnknownBound) {
        bounded_elements.push_back(e);
      } else {
        fresh_elements.push_back(e);
      }
    }
    fresh_gains.resize(fresh_elements.size());
    state.function_context->DisjointGains(
        fresh_elements.data(), static_cast<int>(fresh_elements.size()), fresh_gains.data());
    evaluations += static_cast<std::int64_t>(fresh_elements.size());
    int best = -1;
    double best_gain = -std::numeric_limits<double>::max();
    for (std::size_t j = 0; j < fresh_elements.size(); ++j) {
      bounds[static_cast<std::size_t>(fresh_elements[j])] = FloatUpperBound(fresh_gains[j]);
      if (fresh_gains[j] > best_gain) {
        best_gain = fresh_gains[j];
        best = fresh_elements[j];
      }
    }
    // The bounded ones in decreasing order of their bounds, until the best
    // fresh gain is close enough to the largest bound left.
    std::stable_sort(bounded_elements.begin(), bounded_elements.end(), [&bounds](int a, int b) {
      return bounds[static_cast<std::size_t>(a)] > bounds[static_cast<std::size_t>(b)];
    });
    for (int e : bounded_elements) {
      const double bound = static_cast<double>(bounds[static_cast<std::size_t>(e)]);
      if (best >= 0 && best_gain >= (1.0 - lazy_acceptance_tolerance) * bound) break;
      const double gain = state.function_context->DisjointGain(e);
      ++evaluations;
      bounds[static_cast<std::size_t>(e)] = FloatUpperBound(gain);
      if (gain > best_gain) {
        best_gain = gain;
        best = e;
      }
    }
    // Leave out, for good, the infeasible and the not worthwhile.
    for (long j = sample_size - 1; j >= 0; --j) {
      const int e = pool[static_cast<std::size_t>(j)];
      const float bound = bounds[static_cast<std::size_t>(e)];
      const bool worthless =
          bound != kUnknownBound && (static_cast<double>(bound) < threshold || std::isnan(bound));
      if (e == best || worthless || !state.Feasible(e)) {
        pool[static_cast<std::size_t>(j)] = pool.back();
        pool.pop_back();
      }
    }
    ++step;
    if (best < 0 || static_cast<double>(static_cast<float>(best_gain)) < threshold) continue;
    if (progress_period >= 1 && added % progress_period == 0) {
      logger->info(
          "Found element {} in the order, element = {}, gain value = {}, sample size = {}.", added,
          best, best_gain, sample_size);
    }
    if (internal::GainPermitStops(gain_permit, best_gain)) {
      logger->debug("Done since found negaive gain.");
      break;
    }
    ++added;
    state.Add(best);
    if (order != nullptr) order->push_back(best);
    if (gains != nullptr) gains->push_back(static_cast<float>(best_gain));
  }
  logger->info(
      "Finished running stochastic accelerated greedy, found {} elements with {} gain evaluations.",
      added, evaluations);
  if (ancillary != nullptr) ancillary->number_of_gain_evaluations = evaluations;
  internal::FinishGreedyRun(f, conditioning, state, solution, value);
  return true;
}

}  // namespace velmor
