#ifndef VELMOR_PYTHON_OBJECTIVESPEC_H_
#define VELMOR_PYTHON_OBJECTIVESPEC_H_

// A set function as the Python module holds it: the function groups of a
// SummaryPlan (facility location, soft or sparse, dispersion, modular), each
// with its weight and its conditioning sets, and the objective built from them
// on first use. Matrices shared with the caller (element-major storage) stay
// shared: building the objective copies the groups, which copies pointers,
// not values (sparse matrices are copied once, into the functions' own form).

#include <memory>
#include <optional>
#include <vector>

#include "CancellableFunction.h"
#include "constraints/DownClosedSetConstraint.h"
#include "summarization/SummaryObjective.h"
#include "summarization/SummaryPlan.h"

namespace velmor::python {

class ObjectiveSpec {
 public:
  // One group. Its tag is given when the objective is built.
  explicit ObjectiveSpec(SummaryPlan::FunctionGroup group);

  // sum_i weights[i] * parts[i], the parts' groups in order. Throws
  // std::invalid_argument when there is no part, the counts differ, a weight
  // is negative or not finite, or the ground sets differ.
  static ObjectiveSpec Mixture(const std::vector<const ObjectiveSpec*>& parts,
                               const std::vector<double>& weights);

  // The same function with its facility-location group conditioned: the
  // attraction (and neglect) sets make it the conditional mutual information
  // I_f(X; A | N), the contraction set C then f(X u C) - f(C). Throws
  // std::invalid_argument unless the function is one facility-location group
  // (dense or sparse, hard or soft), or when a neglect set comes without an
  // attraction set.
  ObjectiveSpec Conditioned(std::optional<UnorderedHashSet> attraction,
                            std::optional<UnorderedHashSet> neglect,
                            std::optional<UnorderedHashSet> contraction) const;

  // n.
  int GroundSetSize() const;
  // Whether the matrices are double (otherwise single precision, or none).
  bool InDouble() const;

  // The objective, built on the first call (matrix checks, normalization):
  // throws SummaryObjective::GroupError and std::invalid_argument as
  // SummaryObjective does. Not thread-safe: callers serialize first calls.
  const SummaryObjective& Objective() const;

 private:
  std::vector<SummaryPlan::FunctionGroup> groups_;
  mutable std::shared_ptr<const SummaryObjective> objective_;
};

// How Maximize runs.
struct MaximizeOptions {
  GreedyAlgorithmChoice choice;
  int seed = 12345;
  // The elements the solution starts with (absent: none), and the candidates
  // (absent: the whole ground set).
  std::optional<UnorderedHashSet> inclusion;
  std::optional<UnorderedHashSet> restriction;
};

struct MaximizeResult {
  // The chosen elements in the order of choice, inclusion left out.
  std::vector<int> order;
  // f(v | inclusion + the elements chosen before v), recomputed in double.
  std::vector<double> gains;
  // f(inclusion + order).
  double value = 0.0;
};

// Maximizes f under `constraint` from the inclusion over the candidates: the
// plain standard greedy runs to the constraint's limit whatever the gains,
// the other algorithms stop at the first negative gain. The run goes through
// a CancellableFunction watched by `signals` (RunCancelled once its stop flag
// is set); the gains are then recomputed on f itself. Throws the
// algorithms' std::invalid_argument errors (sets over another ground set, an
// infeasible inclusion) and exception::InputAndOrParameterDataError when
// the value is not finite.
MaximizeResult Maximize(const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
                        const MaximizeOptions& options, std::shared_ptr<RunSignals> signals);

}  // namespace velmor::python

#endif  // VELMOR_PYTHON_OBJECTIVESPEC_H_
