#ifndef VELMOR_COMMAND_LINE_UTILS_SETSPECIFICATION_H_
#define VELMOR_COMMAND_LINE_UTILS_SETSPECIFICATION_H_

// Set specification strings, as given to the set-... and ...-set-... options:
//
//   ""                   the empty set
//   "0,5,10-19"          element numbers and inclusive ranges, comma-separated
//                        (blanks allowed around items)
//   "RAND(25)"           25 distinct elements drawn uniformly at random
//   "RAND(10%)"          10% of V, rounded to the nearest whole number
//   "picked.txt"         a file: .txt or .csv holds numbers separated by
//   "picked.csv"         commas, blanks or newlines ('#' starts a comment);
//   "picked.npy"         .npy holds an integer vector (int32, or int64 values
//                        that fit 32 bits; a matrix is read in
//   "picked.json"        row order); .json holds an object {"set": [...]}
//
// Random draws use the engine given, so a seeded run is reproducible. An
// element outside [0, n) is an InputDataError naming it; a malformed string
// is a CommandLineError naming the option, and a file that cannot be read an
// InputDataError naming the file and the option, each with the cause nested.

#include <random>
#include <string>

#include "sets/UnorderedHashSet.h"

namespace velmor {

UnorderedHashSet ParseSetSpecification(const std::string& set_string, int n, std::mt19937& engine,
                                       const std::string& option_name);

}  // namespace velmor

#endif  // VELMOR_COMMAND_LINE_UTILS_SETSPECIFICATION_H_
