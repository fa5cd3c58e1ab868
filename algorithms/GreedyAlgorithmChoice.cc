#include "algorithms/GreedyAlgorithmChoice.h"

#include <fmt/format.h>

#include <limits>

#include "algorithms/acceleratedGreedyMax.h"
#include "algorithms/greedyAlgorithmSelection.h"
#include "sets/FixedEmptySet.h"

namespace velmor {

const char* GreedyAlgorithmChoice::Name(Kind kind) {
  constexpr const char* kNames[] = {"standard", "accelerated", "stochastic", "threshold", "plain"};
  return kNames[static_cast<int>(kind)];
}

std::string GreedyAlgorithmChoice::Description() const {
  std::string text = Name(kind);
  if (kind == Kind::kStochastic || kind == Kind::kThreshold) text += fmt::format("({})", epsilon);
  if (threads > 0) text += fmt::format(":{}", threads);
  return text;
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
        order, gains, value, nullptr, {choice.kind == Kind::kStandard, pass_threads});
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
