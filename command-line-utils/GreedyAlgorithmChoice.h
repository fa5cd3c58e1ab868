#ifndef VELMOR_COMMAND_LINE_UTILS_GREEDYALGORITHMCHOICE_H_
#define VELMOR_COMMAND_LINE_UTILS_GREEDYALGORITHMCHOICE_H_

// The program's choice of greedy algorithm, from the text of its
// -greedyalgorithm option:
//
//   NAME[(EPSILON)][:THREADS]
//
// NAME is standard, accelerated, stochastic or threshold, or any prefix that
// names one of them alone ("acc", "sto", "th"; "st" is ambiguous). EPSILON is
// allowed for stochastic (the sampling epsilon, in [0, 1); 0 samples every
// candidate) and threshold (the threshold's rate of fall, in (0, 1)), 0.1 when
// not given. THREADS >= 1 runs the algorithm inside the flat multi-threaded
// scheme with that many blocks. Blanks around the parts are allowed.

#include <string>
#include <vector>

#include "algorithms/greedy_max.h"

namespace velmor {

struct GreedyAlgorithmChoice {
  enum class Kind { kStandard, kAccelerated, kStochastic, kThreshold };
  Kind kind = Kind::kStandard;
  double epsilon = 0.1;
  // 0: one run on the calling thread.
  int threads = 0;

  // The plain standard greedy on one thread (the program's default run).
  bool IsPlainStandard() const { return kind == Kind::kStandard && threads == 0; }
  // "stochastic(0.05):2" and the like; parses back to the same choice.
  std::string Description() const;
};

// Parses the option text; an empty or null text is the plain standard
// greedy. Throws exception::CommandLineError "Invalid greedy algorithm '%s'
// for option -%s: %s" (the reason last) for anything else.
GreedyAlgorithmChoice ParseGreedyAlgorithmChoice(const char* text, const char* option);

// Runs the chosen algorithm through RunOneOfTheGreedyAlgorithms, from
// `inclusion`, on `candidates`, without a size limit beyond the constraint's,
// no conditioning. `seed` seeds the stochastic greedy's samples and the
// multi-threaded scheme's random partition of the candidates. The plain
// standard greedy is not run here (the caller runs it with its own permit).
bool RunChosenGreedyAlgorithm(const GreedyAlgorithmChoice& choice, int seed,
                              const SubmodularFunction& f,
                              const DownClosedSetConstraint& constraint, const Set& candidates,
                              const Set& inclusion, UnorderedHashSet* solution,
                              std::vector<int>* order, std::vector<float>* gains, double* value);

}  // namespace velmor

#endif  // VELMOR_COMMAND_LINE_UTILS_GREEDYALGORITHMCHOICE_H_
