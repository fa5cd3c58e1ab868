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

#include "algorithms/GreedyAlgorithmChoice.h"

namespace velmor {

// Parses the option text; an empty or null text is the plain standard
// greedy. Throws exception::CommandLineError "Invalid greedy algorithm '%s'
// for option -%s: %s" (the reason last) for anything else. The description
// of a parsed choice parses back to the same choice.
GreedyAlgorithmChoice ParseGreedyAlgorithmChoice(const char* text, const char* option);

}  // namespace velmor

#endif  // VELMOR_COMMAND_LINE_UTILS_GREEDYALGORITHMCHOICE_H_
