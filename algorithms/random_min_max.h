#ifndef VELMOR_ALGORITHMS_RANDOM_MIN_MAX_H_
#define VELMOR_ALGORITHMS_RANDOM_MIN_MAX_H_

// Random evaluations: the baseline a greedy summary is judged against.
// Random subsets of the summary's size are drawn and evaluated, and the
// smallest, largest and average value are reported with the sets that
// reached the extremes.

#include <cstdint>
#include <random>
#include <vector>

#include "constraints/DownClosedSetConstraint.h"
#include "functions/SetFunction.h"
#include "sets/Set.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {

// Rearranges `elements` so that its first min(size, |elements|) entries are a
// uniformly random subset of them, in random order (partial Fisher-Yates).
// Every draw takes 32-bit words from the engine and maps them to a range by
// rejection, so equal seeds give equal subsets on every platform.
void UniformRandomSubset(std::vector<int>& elements, int size, std::mt19937& engine);

// Draws number_of_attempts subsets R of pool = candidates \ warm_start, each
// uniformly random with s = constraint.SizeLimit() elements (all of the pool
// when it is smaller), and evaluates v = f(R ∪ warm_start ∪ conditioning) -
// f(conditioning). The random engine is a 32-bit Mersenne Twister seeded with
// the low 32 bits of `seed`, made once per call, so equal seeds give equal
// draws. The first set reaching a strict minimum or maximum is kept; the set
// outputs receive R without the elements of conditioning. The subsets are not
// checked against the constraint beyond their size. Outputs may be null.
// Returns false, doing nothing, when all five outputs are null or s is 0;
// true otherwise.
// Throws std::invalid_argument "Invalid argument, ground set sizes
// %d,%d,%d,%d,%d must all match." (function, constraint, candidates,
// warm_start, conditioning), "Warm start set must itself be feasible." and
// "Number of attempts = %d must be > 0.", in that order of checking.
bool RandomMaximizationMinimization(int number_of_attempts, std::uint64_t seed,
                                    const SetFunction& f, const DownClosedSetConstraint& constraint,
                                    const Set& candidates, const Set& warm_start,
                                    const Set& conditioning, UnorderedHashSet* min_set,
                                    UnorderedHashSet* max_set, double* min_value, double* max_value,
                                    double* average_value);

}  // namespace velmor

#endif  // VELMOR_ALGORITHMS_RANDOM_MIN_MAX_H_
