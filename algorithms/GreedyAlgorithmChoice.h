#ifndef VELMOR_ALGORITHMS_GREEDYALGORITHMCHOICE_H_
#define VELMOR_ALGORITHMS_GREEDYALGORITHMCHOICE_H_

// A choice among the greedy maximizers, as a value: the algorithm, its
// epsilon and the number of blocks of the flat multi-threaded scheme.

#include <string>
#include <vector>

#include "algorithms/greedy_max.h"

namespace velmor {

struct GreedyAlgorithmChoice {
  // kStandard evaluates lazily where that is exact; kPlain is the same
  // greedy scanning every candidate at every step (same result, more work).
  enum class Kind { kStandard, kAccelerated, kStochastic, kThreshold, kPlain };
  Kind kind = Kind::kStandard;
  // The stochastic greedy's sampling epsilon, in [0, 1); the threshold
  // greedy's rate of fall, in (0, 1). Unused by the others.
  double epsilon = 0.1;
  // 0: one run on the calling thread; otherwise the number of blocks of the
  // flat multi-threaded scheme.
  int threads = 0;

  // "standard", "accelerated", "stochastic", "threshold" or "plain".
  static const char* Name(Kind kind);

  // The default: the standard greedy, not in the multi-threaded scheme.
  bool IsPlainStandard() const { return kind == Kind::kStandard && threads == 0; }
  // "standard", "accelerated", "stochastic(0.05)", "threshold(0.1):2" and the
  // like: the name, the epsilon where the algorithm takes one, the blocks.
  std::string Description() const;
};

// Runs the chosen algorithm (defined beside RunOneOfTheGreedyAlgorithms, so
// that the choice itself needs none of the algorithms) through
// RunOneOfTheGreedyAlgorithms, from
// `inclusion`, on `candidates`, with no size limit beyond the constraint's and
// no conditioning; it stops at a negative gain. `seed` seeds the stochastic
// greedy's samples and the multi-threaded scheme's random partition of the
// candidates. Returns what RunOneOfTheGreedyAlgorithms returns. The standard
// and accelerated greedy outside the multi-threaded scheme run directly, as
// the selector would run them, with their full passes over the candidates on
// up to `pass_threads` threads (the result does not depend on it).
bool RunChosenGreedyAlgorithm(const GreedyAlgorithmChoice& choice, int seed,
                              const SubmodularFunction& f,
                              const DownClosedSetConstraint& constraint, const Set& candidates,
                              const Set& inclusion, UnorderedHashSet* solution,
                              std::vector<int>* order, std::vector<float>* gains, double* value,
                              int pass_threads = 1);

}  // namespace velmor

#endif  // VELMOR_ALGORITHMS_GREEDYALGORITHMCHOICE_H_
