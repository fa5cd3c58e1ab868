#include "algorithms/GreedyAlgorithmChoice.h"

#include <fmt/format.h>

#include <limits>

#include "algorithms/greedyAlgorithmSelection.h"
#include "sets/FixedEmptySet.h"

namespace velmor {

const char* GreedyAlgorithmChoice::Name(Kind kind) {
  constexpr const char* kNames[] = {"standard", "accelerated", "stochastic", "threshold"};
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
                              std::vector<int>* order, std::vector<float>* gains, double* value) {
  using Kind = GreedyAlgorithmChoice::Kind;
  const FixedEmptySet conditioning(f.GroundSetSize());
  // Stochastic: a constant epsilon, samples of at least one element, no cap,
  // exact lazy evaluation within a sample. Schemes: shuffled blocks, whole
  // block solutions, everything merged.
  return RunOneOfTheGreedyAlgorithms(
      choice.kind == Kind::kStandard, choice.kind == Kind::kStochastic, choice.epsilon, 1,
      choice.epsilon, 0, 1.0, 0.0, 0, 1, choice.kind == Kind::kThreshold, choice.epsilon,
      choice.threads, 0, 1, true, 1.0f, 1.0f, seed, f, constraint, std::numeric_limits<int>::max(),
      candidates, inclusion, conditioning, 0.0, kStopAtNegativeGain, solution, order, gains, value);
}

}  // namespace velmor
