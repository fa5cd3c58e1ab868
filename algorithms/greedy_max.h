#ifndef VELMOR_ALGORITHMS_GREEDY_MAX_H_
#define VELMOR_ALGORITHMS_GREEDY_MAX_H_

// The standard greedy maximizer of a submodular function under a down-closed
// constraint and an extra cardinality limit, the types every greedy maximizer
// of the library shares, and a data-dependent upper bound on the optimum of a
// monotone function under a cardinality limit.
//
// Common signature of the maximizers (the standard greedy omits the double):
//   (f, constraint, cardinality_limit, candidates, inclusion, conditioning,
//    double algorithm_value, gain_permit, solution, order, gains, value, ancillary)
//  - candidates: the elements that may be chosen;
//  - inclusion: elements that start in the solution (a warm start); they are
//    in `solution` but not in `order`;
//  - conditioning: elements counted in f but never chosen and never reported;
//  - solution, order, gains, value: outputs, each may be null; `order` holds
//    the chosen elements in order of choice, `gains` (parallel to it) their
//    marginal gains narrowed to float, `value` is f(solution ∪ conditioning)
//    - f(conditioning);
//  - ancillary: may be null; see GreedyAncillaryResults.
// Every set must have the function's ground-set size n. Contexts of the
// function and of the constraint are made per run and released on every exit
// path; the function and the constraint are only read, so several runs may
// share them. Per-step messages go to the "optm" logger at debug level.

#include <cstdint>
#include <functional>
#include <vector>

#include "algorithms/GreedyStepObserver.h"
#include "constraints/DownClosedSetConstraint.h"
#include "functions/SetFunction.h"
#include "sets/Set.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {

// Which best gains a greedy step may still accept. The values are tested
// exactly: 0 stops when the best gain is exactly 0.0 (a negative best gain
// does not stop), 1 stops when it is below 0.0, any other value never stops
// on the gain.
enum GainPermit : int {
  kStopAtZeroGain = 0,
  kStopAtNegativeGain = 1,
  kNeverStopOnGain = 2,
};

namespace greedy_max {

// State shared between runs on the same function, start set and candidates.
struct GreedyAncillaryResults {
  // Gains of the first greedy step, indexed by element (n entries once
  // filled); NaN for an element whose gain the filling run did not evaluate.
  std::vector<float> singleton_gains;
  // false: the run fills singleton_gains and then sets this; true: the run
  // reads the first step's gains from singleton_gains (evaluating only the
  // NaN entries).
  bool singleton_gains_precomputed = false;
  // Set by each run: how many marginal gains it evaluated.
  std::int64_t number_of_gain_evaluations = 0;
};

// How the standard greedy finds each step's best candidate. Neither choice
// changes the result: order, gains and value are the same bit for bit.
struct StandardGreedyOptions {
  // true: exact lazy evaluation when the function's computed gains never rise
  // (SetFunction::ComputedGainsNeverRise); a full scan at every step
  // otherwise. false: a full scan at every step (the plain scan).
  bool lazy = true;
  // Threads for the full passes (the first step, every step of the plain
  // scan) and for lazy evaluation's batches of re-evaluations; 1 or less: the
  // calling thread alone.
  int threads = 1;
  // Lazy evaluation on several threads re-evaluates the candidates of the
  // largest stale bounds in batches split between the threads. 0: each batch
  // is sized from the re-evaluations the previous step needed, and split only
  // when a slice's gains cost more than starting a thread (measured on the
  // first step); n > 0: batches of n, always split (for tests).
  int lazy_batch = 0;
  // Told after each step; may stop the run (see GreedyStepObserver).
  GreedyStepObserver observer{};
};

// The library-wide period of the greedy progress report: every p-th chosen
// element is logged at info level on "optm" ("Found element ..."). p < 1
// (the default, 0) turns the report off. Thread-safe.
void SetProgressLoggingPeriod(int period);
int ProgressLoggingPeriod();

}  // namespace greedy_max

// Any maximizer of the common signature, held as one callable (the
// multi-threaded schemes run such a callable on blocks of the ground set).
using GreedyAlgorithm = std::function<bool(
    const SubmodularFunction& f, const DownClosedSetConstraint& constraint, int cardinality_limit,
    const Set& candidates, const Set& inclusion, const Set& conditioning, double algorithm_value,
    GainPermit gain_permit, UnorderedHashSet* solution, std::vector<int>* order,
    std::vector<float>* gains, double* value, greedy_max::GreedyAncillaryResults* ancillary)>;

// The standard greedy: at each step, of the remaining candidates that the
// constraint still allows, the one with the largest gain wins (strictly
// larger: among equal gains the first in the iteration order of the remaining
// candidates). It stops when |solution| reaches cardinality_limit, when no
// candidate is feasible, or when the gain permit says so (the element is then
// not added). `order` is cleared; `gains` keeps its earlier entries and the
// chosen gains are appended.
//
// The first step evaluates every candidate. The plain scan does so at every
// step: O(n k) gain evaluations, each incremental through the function's
// growing context. Lazy evaluation (the default, for functions whose computed
// gains never rise) keeps each candidate's last gain as a bound and evaluates
// candidates in decreasing order of their bounds until no bound can beat the
// best gain found, ties included; it chooses exactly what the plain scan
// chooses, usually with a few percent of its evaluations. On several threads
// the candidates of the largest bounds are re-evaluated in batches; a batch
// may evaluate a few candidates the one-by-one look would have skipped, which
// only makes their bounds exact, so the choice stays the same.
//
// Returns false, doing nothing, when solution, order and gains are all null;
// true otherwise. With `ancillary` not yet filled, the first step's gains are
// stored in it; when filled, the first step reads them instead of evaluating.
// Throws std::invalid_argument when a ground-set size differs from n, when
// `inclusion` is infeasible or larger than cardinality_limit, or when a
// filled ancillary array does not have n entries. `options` choose the
// evaluation and watch the run (GreedyStopped when its observer asks to stop).
bool GreedyConstrainedMaximization(const SubmodularFunction& f,
                                   const DownClosedSetConstraint& constraint, int cardinality_limit,
                                   const Set& candidates, const Set& inclusion,
                                   const Set& conditioning, GainPermit gain_permit,
                                   UnorderedHashSet* solution, std::vector<int>* order,
                                   std::vector<float>* gains, double* value,
                                   greedy_max::GreedyAncillaryResults* ancillary,
                                   const greedy_max::StandardGreedyOptions& options = {});

// Runs the standard greedy from `inclusion` under |S| <= cardinality_limit
// (never stopping on the gain) and returns an upper bound on
//   max { g(S) : inclusion ⊆ S ⊆ inclusion ∪ candidates, |S| <= k },
//   g(S) = f(S ∪ conditioning) - f(conditioning),
// valid when f is monotone non-decreasing and submodular. With A_0 =
// inclusion, A_1, ... the greedy sets and r = k - |inclusion|, the bound is
//   min over i of  g(A_i) + (sum of the r largest positive gains f(v | A_i ∪
//   conditioning) over the candidates v not yet in A_i ∪ conditioning),
// since for an optimum S*, g(S*) <= g(A_i) + Σ_{v in S* \ A_i} f(v | A_i ∪ C)
// and |S* \ A_i| <= r. The greedy run's order, gains, value (g of the greedy
// set) and solution go to the outputs that are given.
// Throws std::invalid_argument when f does not report itself monotone
// non-decreasing, when cardinality_limit <= 0, when |inclusion| >
// cardinality_limit, or when a ground-set size differs.
double UpperBoundValueGreedyConstrainedMaximization(const SubmodularFunction& f,
                                                    int cardinality_limit, const Set& candidates,
                                                    const Set& inclusion, const Set& conditioning,
                                                    UnorderedHashSet* solution,
                                                    std::vector<int>* order,
                                                    std::vector<float>* gains, double* value);

}  // namespace velmor

#endif  // VELMOR_ALGORITHMS_GREEDY_MAX_H_
