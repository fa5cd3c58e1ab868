#ifndef VELMOR_FUNCTIONS_MIXTURESETFUNCTION_H_
#define VELMOR_FUNCTIONS_MIXTURESETFUNCTION_H_

// f(S) = sum over i of w_i * f_i(S): a non-negative weighting of set functions
// over one ground set, so that one objective can balance, say, a facility
// location term against a dispersion or modular term.
//
// The mixture owns its components (clones made at construction, or pointers
// handed over). Every value is the weighted sum over the components in
// component order, accumulated in double from 0.0. Its contexts are made of
// one external context per component; each context operation is applied to
// every component context and combined with the current weights.
//
// Errors are std::invalid_argument with location-prefixed messages.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "functions/SetFunction.h"
#include "functions/SetFunctionSkeleton.h"
#include "sets/Set.h"
#include "utils/error_messages.h"

namespace velmor {

class MixtureSetFunction
    : public clone_inherit<MixtureSetFunction,
                           SetFunctionSkeleton<MixtureSetFunction, SubmodularFunction>> {
  using Skeleton = SetFunctionSkeleton<MixtureSetFunction, SubmodularFunction>;

 public:
  // One external growing context per component.
  class GrowingContextExternal final
      : public internal::GrowingContextExternalSkeleton<GrowingContextExternal,
                                                        MixtureSetFunction> {
   public:
    static constexpr bool kBatchedGains = true;

    // The state of the empty set.
    explicit GrowingContextExternal(const MixtureSetFunction* function);
    void AssignContext(const Set& A) override;
    void ResetToEmptySet() override;
    // Adds v to every component context; true when any changed.
    bool AddElement(int v);
    // The same, handing every component the set A the state stands for.
    bool AddElementTo(const Set& A, int v);
    // sum of w_i * (component i's DisjointGain).
    double DisjointGainOf(int v) const;
    // Batched per component, then combined per element as DisjointGainOf does.
    void DisjointGainsOf(const int* elements, int count, double* gains) const;
    double CurrentValue() const override;

   private:
    std::vector<internal::ClonedPointer<SetFunctionGrowingContextExternal>> components_;
    mutable std::vector<double> scratch_;  // per-component batched gains
  };

  // One external shrinking context per component.
  class ShrinkingContextExternal final
      : public internal::ShrinkingContextExternalSkeleton<ShrinkingContextExternal,
                                                          MixtureSetFunction> {
   public:
    explicit ShrinkingContextExternal(const MixtureSetFunction* function);
    void AssignContext(const Set& A) override;
    double SubsetLossOf(int v) const;
    void RemoveElement(const Set& A, int v);
    double CurrentValue() const override;

   private:
    std::vector<internal::ClonedPointer<SetFunctionShrinkingContextExternal>> components_;
  };

  VELMOR_CONTEXT_NAMES(MixtureSetFunction);

  // Clones every component. Component checks first:
  //   "Invalid argument, all components must be present, component 0 missing.",
  //   "Invalid argument, all components must be present, missing component at position %d.",
  //   "Invalid argument, all components must have same ground set size n=|V|, found sizes %d and
  //   %d."
  // then the weight checks of setComponentWeights.
  MixtureSetFunction(const std::vector<const SetFunction*>& components,
                     std::vector<double> weights);

  // Takes the components over without cloning them; same checks.
  MixtureSetFunction(std::vector<std::unique_ptr<SetFunction>> components,
                     std::vector<double> weights);

  // Two to five components f1..f5 with weights w1..w5 (default 1.0 each).
  // A missing component throws "Invalid argument, both components (f1 and f2)
  // must be present." (and the three-, four- and five-component texts).
  MixtureSetFunction(const SetFunction* f1, const SetFunction* f2, double w1 = 1.0,
                     double w2 = 1.0);
  MixtureSetFunction(const SetFunction* f1, const SetFunction* f2, const SetFunction* f3,
                     double w1 = 1.0, double w2 = 1.0, double w3 = 1.0);
  MixtureSetFunction(const SetFunction* f1, const SetFunction* f2, const SetFunction* f3,
                     const SetFunction* f4, double w1 = 1.0, double w2 = 1.0, double w3 = 1.0,
                     double w4 = 1.0);
  MixtureSetFunction(const SetFunction* f1, const SetFunction* f2, const SetFunction* f3,
                     const SetFunction* f4, const SetFunction* f5, double w1 = 1.0, double w2 = 1.0,
                     double w3 = 1.0, double w4 = 1.0, double w5 = 1.0);

  // Copies are deep: a copy owns clones of the components.
  MixtureSetFunction(const MixtureSetFunction& other) = default;
  MixtureSetFunction& operator=(const MixtureSetFunction&) = delete;

  // Checks the weights, then installs them; with take_over the vector is
  // moved in (the caller's vector is left empty), otherwise copied. Checks, in
  // order:
  //   count != number of components:
  //     "Invalid argument, number of weights %ld must match number of components %ld."
  //   no component: "Invalid argument, must have at least one component."
  //   a weight w with 0.0 > w:
  //     "Invalid argument, found weight %e, weights must be all non-negative."
  // (A NaN or infinite weight passes, and gives values that are not finite.)
  // A refused call leaves the weights as they were.
  void setComponentWeights(std::vector<double>& weights, bool take_over);
  void setComponentWeights(const std::vector<double>& weights);

  // Every value is sum of w_i * (component i's value), in component order; the
  // element check comes first. Gain is 0.0 when A holds v, without consulting
  // the components; Loss is sum of w_i * Loss_i.
  double EvaluateGroundSet() const override;

  int GroundSetSize() const override { return n_; }
  // The largest landmark count of the components.
  int NumberOfLandmarks() const override;
  // 0: the mixture holds no matrix of its own.
  long MatrixRows() const override { return 0; }
  long MatrixColumns() const override { return 0; }
  // The stored entries of all components together.
  long MatrixStoredEntries() const override;
  // "Mixture of <c> components, |V|=<n>".
  std::string Description() const override;
  int NumberOfComponents() const override { return static_cast<int>(components_.size()); }
  // One info line per component: "Comp {}: {}." (index from 0, description).
  // Throws "Invalid nullptr logger object.".
  void LogComponentNames(spdlog::logger* logger) const override;
  // True when every component with a positive weight is.
  bool IsMonotoneNondecreasing() const override;
  // True when no weight is negative and every component with a positive
  // weight says so: a gain is the sum, in component order, of weight times
  // the component's gain, and rounded products with a weight >= 0 and rounded
  // sums of terms that do not rise do not rise.
  bool ComputedGainsNeverRise() const override;

  const std::vector<double>& ComponentWeights() const { return weights_; }
  const SetFunction& Component(int i) const { return *components_[static_cast<std::size_t>(i)]; }

  // The base name of this class's source file (and header), for its messages.
  static const char* SourceFile() { return VELMOR_SOURCE_FILE; }

 private:
  friend Skeleton;

  // Installs checked components, then the weights through setComponentWeights.
  void Install(std::vector<std::unique_ptr<SetFunction>> components, std::vector<double>& weights);

  // sum over i of w_i * measure(component i), from 0.0 in component order.
  template <typename Measure>
  double WeightedSum(Measure&& measure) const;

  double ElementValue(int v) const;
  double Value(const internal::SetExpression& expression) const;
  std::pair<double, double> UnionAndSecondValues(int v, const Set& A) const;
  double GainOf(int v, const Set& A) const;
  double LossOf(int v, const Set& A) const;

  std::vector<double> weights_;
  std::vector<internal::ClonedPointer<SetFunction>> components_;
  int n_ = 0;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_MIXTURESETFUNCTION_H_
