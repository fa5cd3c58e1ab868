#include "algorithms/greedyAlgorithmSelection.h"

#include <limits>

#include "algorithms/GreedyAlgorithmChoice.h"
#include "algorithms/acceleratedGreedyMax.h"
#include "algorithms/fixedOrderGreedy.h"
#include "algorithms/greedy_max.h"
#include "algorithms/multiThreadedGreedyMax.h"
#include "algorithms/stochasticGreedyMax.h"
#include "algorithms/thresholdGreedyMax.h"
#include "sets/FixedEmptySet.h"

namespace velmor {

namespace {

// The threshold greedy, then the fixed-order pass over its order for the gains.
bool ThresholdGreedyWithGains(double epsilon, const SubmodularFunction& f,
                              const DownClosedSetConstraint& constraint, int cardinality_limit,
                              const Set& candidates, const Set& inclusion, const Set& conditioning,
                              double algorithm_value, UnorderedHashSet* solution,
                              std::vector<int>* order, std::vector<float>* gains, double* value) {
  const bool done = ThresholdGreedyConstrainedMaximization(
      epsilon, f, constraint, cardinality_limit, candidates, inclusion, conditioning,
      kStopAtNegativeGain, solution, order, value, nullptr);
  if (order == nullptr || gains == nullptr || !done) return done;
  const std::vector<int> chosen = *order;
  return FixedOrderGreedyConstrained(f, constraint, cardinality_limit, chosen, inclusion,
                                     conditioning, algorithm_value, kStopAtNegativeGain, nullptr,
                                     nullptr, gains, nullptr);
}

}  // namespace

bool RunOneOfTheGreedyAlgorithms(
    bool use_standard_greedy, bool use_stochastic_greedy, double starting_epsilon,
    int minimum_sample_size, double ending_epsilon, int maximum_sample_size, double epsilon_gamma,
    double lazy_acceptance_tolerance, int expected_summary_size, int lazy_evaluation,
    bool use_threshold_greedy, double threshold_value, int number_of_threads, int hgm_depth,
    int hgm_ary, bool random_partition, float fraction_of_threads_solution_to_compute,
    float gain_preservation_fraction, int seed, const SubmodularFunction& f,
    const DownClosedSetConstraint& constraint, int cardinality_limit, const Set& candidates,
    const Set& inclusion, const Set& conditioning, double algorithm_value,
    [[maybe_unused]] GainPermit gain_permit, UnorderedHashSet* solution, std::vector<int>* order,
    std::vector<float>* gains, double* value) {
  // The chosen single-run algorithm with its tuning values fixed and the
  // permit fixed at 1; the common signature's permit and ancillary are
  // dropped.
  GreedyAlgorithm algorithm;
  if (use_standard_greedy) {
    algorithm = [](const SubmodularFunction& g, const DownClosedSetConstraint& c, int limit,
                   const Set& cand, const Set& incl, const Set& cond, double, GainPermit,
                   UnorderedHashSet* sol, std::vector<int>* ord, std::vector<float>* gns,
                   double* val, greedy_max::GreedyAncillaryResults*) {
      return GreedyConstrainedMaximization(g, c, limit, cand, incl, cond, kStopAtNegativeGain, sol,
                                           ord, gns, val, nullptr);
    };
  } else if (use_stochastic_greedy) {
    algorithm = [=](const SubmodularFunction& g, const DownClosedSetConstraint& c, int limit,
                    const Set& cand, const Set& incl, const Set& cond, double algorithm_double,
                    GainPermit, UnorderedHashSet* sol, std::vector<int>* ord,
                    std::vector<float>* gns, double* val, greedy_max::GreedyAncillaryResults*) {
      return StochasticAcceleratedGreedyConstrainedMaximization(
          starting_epsilon, minimum_sample_size, ending_epsilon, maximum_sample_size, epsilon_gamma,
          lazy_acceptance_tolerance, expected_summary_size, lazy_evaluation, g, c, limit, cand,
          incl, cond, kStopAtNegativeGain, seed, sol, ord, gns, val, nullptr, algorithm_double);
    };
  } else if (use_threshold_greedy) {
    algorithm = [=](const SubmodularFunction& g, const DownClosedSetConstraint& c, int limit,
                    const Set& cand, const Set& incl, const Set& cond, double algorithm_double,
                    GainPermit, UnorderedHashSet* sol, std::vector<int>* ord,
                    std::vector<float>* gns, double* val, greedy_max::GreedyAncillaryResults*) {
      return ThresholdGreedyWithGains(threshold_value, g, c, limit, cand, incl, cond,
                                      algorithm_double, sol, ord, gns, val);
    };
  } else {
    algorithm = [](const SubmodularFunction& g, const DownClosedSetConstraint& c, int limit,
                   const Set& cand, const Set& incl, const Set& cond, double algorithm_double,
                   GainPermit, UnorderedHashSet* sol, std::vector<int>* ord,
                   std::vector<float>* gns, double* val, greedy_max::GreedyAncillaryResults*) {
      return AcceleratedGreedyConstrainedMaximization(g, c, limit, cand, incl, cond,
                                                      algorithm_double, kStopAtNegativeGain, sol,
                                                      ord, gns, val, nullptr);
    };
  }
  if (number_of_threads == 0) {
    return algorithm(f, constraint, cardinality_limit, candidates, inclusion, conditioning,
                     algorithm_value, kStopAtNegativeGain, solution, order, gains, value, nullptr);
  }
  if (hgm_depth > 0 || hgm_ary > 1) {
    return HierarchicalMultiThreadedGreedyConstrainedMaximization(
        f, constraint, cardinality_limit, candidates, inclusion, conditioning, algorithm_value,
        fraction_of_threads_solution_to_compute, gain_preservation_fraction, kStopAtNegativeGain,
        number_of_threads, hgm_depth, hgm_ary, random_partition, seed, algorithm, solution, order,
        gains, value);
  }
  return MultiThreadedGreedyConstrainedMaximization(
      f, constraint, cardinality_limit, candidates, inclusion, conditioning, algorithm_value,
      fraction_of_threads_solution_to_compute, gain_preservation_fraction, kStopAtNegativeGain,
      number_of_threads, random_partition, seed, algorithm, solution, order, gains, value);
}

bool RunChosenGreedyAlgorithm(const GreedyAlgorithmChoice& choice, int seed,
                              const SubmodularFunction& f,
                              const DownClosedSetConstraint& constraint, const Set& candidates,
                              const Set& inclusion, UnorderedHashSet* solution,
                              std::vector<int>* order, std::vector<float>* gains, double* value,
                              int pass_threads) {
  using Kind = GreedyAlgorithmChoice::Kind;
  const FixedEmptySet conditioning(f.GroundSetSize());
  constexpr int kNoLimit = std::numeric_limits<int>::max();
  if (choice.threads == 0 && (choice.kind == Kind::kStandard || choice.kind == Kind::kPlain)) {
    return GreedyConstrainedMaximization(
        f, constraint, kNoLimit, candidates, inclusion, conditioning, kStopAtNegativeGain, solution,
        order, gains, value, nullptr,
        {.lazy = choice.kind == Kind::kStandard, .threads = pass_threads});
  }
  if (choice.threads == 0 && choice.kind == Kind::kAccelerated) {
    return AcceleratedGreedyConstrainedMaximization(
        f, constraint, kNoLimit, candidates, inclusion, conditioning, 0.0, kStopAtNegativeGain,
        solution, order, gains, value, nullptr, pass_threads);
  }
  // Stochastic: a constant epsilon, samples of at least one element, no cap,
  // exact lazy evaluation within a sample. Schemes: shuffled blocks, whole
  // block solutions, everything merged.
  return RunOneOfTheGreedyAlgorithms(
      choice.kind == Kind::kStandard || choice.kind == Kind::kPlain,
      choice.kind == Kind::kStochastic, choice.epsilon, 1, choice.epsilon, 0, 1.0, 0.0, 0, 1,
      choice.kind == Kind::kThreshold, choice.epsilon, choice.threads, 0, 1, true, 1.0f, 1.0f, seed,
      f, constraint, std::numeric_limits<int>::max(), candidates, inclusion, conditioning, 0.0,
      kStopAtNegativeGain, solution, order, gains, value);
}

}  // namespace velmor
