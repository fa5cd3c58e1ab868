#ifndef VELMOR_ALGORITHMS_GREEDYCOMMON_H_
#define VELMOR_ALGORITHMS_GREEDYCOMMON_H_

// Pieces every greedy maximizer of the library shares: the argument checks of
// the common signature, the gain-permit test, and the start of a run (the
// working sets and the two contexts).

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "algorithms/greedy_max.h"

namespace velmor::internal {

// Whether the permit stops the run at this best gain (a float gain widens to
// double exactly, so one test serves both).
bool GainPermitStops(GainPermit gain_permit, double gain);

// The problem with the arguments of a run, or nothing: a ground-set size
// that differs from f's ("All arguments must have same ground set size, got
// sizes %d,%d,%d,%d,%d."), or an infeasible `inclusion` or one larger than
// cardinality_limit. The caller throws it, so that the message carries the
// caller's name.
std::optional<std::string> GreedyArgumentProblem(const SetFunction& f,
                                                 const DownClosedSetConstraint& constraint,
                                                 int cardinality_limit, const Set& candidates,
                                                 const Set& inclusion, const Set& conditioning);

// Whether `ancillary` holds pre-computed singleton gains, checked to have n
// entries; otherwise the problem ("Invalid argument, ancillary singleton
// gains have %ld entries, not %d."), for the caller to throw.
struct AncillaryCheck {
  bool precomputed = false;
  std::optional<std::string> problem;
};
AncillaryCheck CheckAncillary(const greedy_max::GreedyAncillaryResults* ancillary, int n);

// GreedyArgumentProblem, then CheckAncillary with f's ground-set size: the
// first problem found, for the caller to throw.
AncillaryCheck CheckRunArguments(const SetFunction& f, const DownClosedSetConstraint& constraint,
                                 int cardinality_limit, const Set& candidates, const Set& inclusion,
                                 const Set& conditioning,
                                 const greedy_max::GreedyAncillaryResults* ancillary);

// The state of one greedy run from `inclusion`: the solution being grown,
// inclusion ∪ conditioning (never chosen), the function's context at that
// union and the constraint's context at the solution.
struct GreedyRunState {
  GreedyRunState(const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
                 const Set& inclusion, const Set& conditioning);

  // Adds e to both contexts and the solution.
  void Add(int e);
  // Whether solution + e stays feasible.
  bool Feasible(int e) const { return constraint_context->IsDisjointUnionFeasible(e, current); }

  UnorderedHashSet current;
  UnorderedHashSet excluded;
  std::unique_ptr<SetFunction::SetFunctionGrowingContext> function_context;
  std::unique_ptr<SetConstraint::ConstraintGrowingContextExternal> constraint_context;
};

// The candidates not in `excluded`, as a set.
UnorderedHashSet RemainingSet(const Set& candidates, const Set& excluded);

// The candidates not in inclusion ∪ conditioning, in candidates' iteration order.
std::vector<int> RemainingCandidates(const Set& candidates, const Set& excluded);

// The default least number of gains per thread of a full pass: below it a
// thread costs more than it saves for the cheapest functions.
inline constexpr int kLeastGainsPerThread = 256;

// gains[j] = context.DisjointGain(elements[j]) for j in [0, count), bit for
// bit as context.DisjointGains gives them. With threads > 1 and at least
// least_per_thread elements for each of two threads, consecutive slices of
// the elements go to up to `threads` threads,
// each with its own clone of the context (the calling thread takes the
// first); each gain lands at its own index, so the result does not depend on
// the number of threads. An exception of any thread is thrown again here.
void DisjointGainsOnThreads(const SetFunction::SetFunctionGrowingContext& context,
                            const int* elements, int count, double* gains, int threads,
                            int least_per_thread = kLeastGainsPerThread);

// Writes value (f(solution ∪ conditioning) - f(conditioning)) and solution
// when they are given.
void FinishGreedyRun(const SubmodularFunction& f, const Set& conditioning,
                     const GreedyRunState& state, UnorderedHashSet* solution, double* value);

}  // namespace velmor::internal

#endif  // VELMOR_ALGORITHMS_GREEDYCOMMON_H_
