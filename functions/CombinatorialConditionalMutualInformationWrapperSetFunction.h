#ifndef VELMOR_FUNCTIONS_COMBINATORIALCONDITIONALMUTUALINFORMATIONWRAPPERSETFUNCTION_H_
#define VELMOR_FUNCTIONS_COMBINATORIALCONDITIONALMUTUALINFORMATIONWRAPPERSETFUNCTION_H_

// Combinatorial conditional mutual information of a set function f with an
// attraction set A given a neglect set N (which may be empty):
//
//   g(X) = m * I_f(X; A | N) = m * ((f(X u N) + c) - f(X u A u N)),
//   c    = f(A u N) - f(N), computed once at construction,
//
// with a multiplier m (1 unless given). Maximizing g picks elements that share
// much with A while discounting what N already explains. The order of
// operations is fixed: (f(X u N) + c) - f(X u A u N), then the product with m.
// g(X) = 0 for X a subset of N, and an element of N has gain 0 for any X.
// Instances exist for SetFunction, SubmodularFunction and SupermodularFunction.
//
// The wrapper owns a clone of f (or takes f over) and keeps A and N as
// UnorderedHashSets and as membership flags. Each wrapper context owns two
// contexts of f, one at X u N and one at X u A u N; a gain is
// m * (f(v | X u N) - f(v | X u A u N)), where the second term is 0 for v in A
// and both are 0 for v in N (answered without asking f's contexts).
//
// Errors are std::invalid_argument with location-prefixed messages:
// "Invalid element = %d." and "Too large ground set size = %d." from the
// evaluations, "Invalid ground set size, %d != %d." from AssignContext and the
// context factories. Values are double.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "functions/SetFunction.h"
#include "sets/Set.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {

template <typename Kind>
class CombinatorialConditionalMutualInformationWrapperSetFunction
    : public clone_inherit<CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>,
                           Kind> {
 public:
  // Growing state: growing contexts of f at X u N and at X u A u N.
  class CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal final
      : public SetFunction::SetFunctionGrowingContextExternal {
   public:
    // The state of the empty set: f's contexts at N and at A u N.
    explicit CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal(
        const CombinatorialConditionalMutualInformationWrapperSetFunction* function);
    CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal(
        const CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal&
            other);
    void AssignContext(const Set& X) override;
    std::unique_ptr<SetFunctionGrowingContextExternal> clone() const override;
    // m * (gain at X u N - gain at X u A u N), with the gains that the
    // contexts' sets already hold taken as 0. Throws "Invalid element = %d.".
    double DisjointGain(int v) const override;
    // Each of f's contexts whose set lacks v absorbs it; returns whether any
    // changed. Throws "Invalid element = %d.".
    bool AddNewElementToContext(int v) override;
    void ResetToEmptySet() override;
    // m * ((value at X u N + c) - value at X u A u N).
    double CurrentValue() const override;

   private:
    const CombinatorialConditionalMutualInformationWrapperSetFunction* function_;
    std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal> with_neglect_;
    std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal> with_both_;
  };

  // Shrinking state: shrinking contexts of f at X u N and X u A u N, and
  // those two sets.
  class CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal final
      : public SetFunction::SetFunctionShrinkingContextExternal {
   public:
    explicit CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal(
        const CombinatorialConditionalMutualInformationWrapperSetFunction* function);
    CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal(
        const CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal&
            other);
    void AssignContext(const Set& X) override;
    std::unique_ptr<SetFunctionShrinkingContextExternal> clone() const override;
    // m * (loss at X u N - loss at X u A u N), with the losses of elements
    // that stay in a context's set (through N or A) taken as 0. Throws
    // "Invalid element = %d.".
    double SubsetLoss(int v) const override;
    // Each of f's contexts whose set loses v drops it. Throws
    // "Invalid element = %d.".
    void RemoveExistingElementFromContext(const Set& X, int v) override;
    double CurrentValue() const override;

   private:
    const CombinatorialConditionalMutualInformationWrapperSetFunction* function_;
    std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal> with_neglect_;
    std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal> with_both_;
    UnorderedHashSet neglect_set_;  // X u N
    UnorderedHashSet both_set_;     // X u A u N
  };

  using CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContext =
      SetFunction::DerivedSetFunctionGrowingContext<
          CombinatorialConditionalMutualInformationWrapperSetFunction,
          CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal,
          UnorderedHashSet>;
  using CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContext =
      SetFunction::DerivedSetFunctionShrinkingContext<
          CombinatorialConditionalMutualInformationWrapperSetFunction,
          CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal,
          UnorderedHashSet>;

  // Wraps a clone of f (or takes f over). Throws std::invalid_argument
  // "Invalid argument, the wrapped function must be present." for a null f,
  // "Invalid ground set size, %d != %d." (the set's n, f's n) when A or N is
  // over another ground set, and "Invalid argument, multiplier (=%e) must be
  // finite." for a NaN or infinite multiplier. Copies are deep.
  CombinatorialConditionalMutualInformationWrapperSetFunction(const Kind& f,
                                                              const Set& attraction_set,
                                                              const Set& neglect_set,
                                                              double multiplier = 1.0);
  CombinatorialConditionalMutualInformationWrapperSetFunction(std::unique_ptr<Kind> f,
                                                              const Set& attraction_set,
                                                              const Set& neglect_set,
                                                              double multiplier = 1.0);

  // T = N + e; v1 = f(T); T gains A; v2 = f(T); m * ((v1 + c) - v2).
  // Throws "Invalid element = %d.".
  double Evaluate(int e) const override;
  // The same with T = X u N.
  double Evaluate(const Set& X) const override;
  double EvaluateUnion(int v, const Set& X) const override;
  double EvaluateUnion(const Set& X, const Set& Y) const override;
  std::pair<double, double> EvaluateUnionAndSecondArg(int v, const Set& X) const override;
  double EvaluateAfterSubtraction(const Set& X, int v) const override;
  double EvaluateAfterSubtraction(const Set& X, const Set& Y) const override;
  // m * (f.Gain(e, X u N) - f.Gain(e, X u A u N)); 0 for e in X or N.
  double Gain(int e, const Set& X) const override;
  // g(X) - g(X - e) by the value formula; 0 for e not in X.
  double Loss(int e, const Set& X) const override;

  int GroundSetSize() const override { return n_; }
  int NumberOfLandmarks() const override { return function_->NumberOfLandmarks(); }
  long MatrixRows() const override { return function_->MatrixRows(); }
  long MatrixColumns() const override { return function_->MatrixColumns(); }
  long MatrixStoredEntries() const override { return function_->MatrixStoredEntries(); }
  // "CMI wrapped " followed by f's description.
  std::string Description() const override;
  // m >= 0 and f is submodular: then every gain is a difference of f's gains
  // on nested sets, which is >= 0.
  bool IsMonotoneNondecreasing() const override;

  std::unique_ptr<SetFunction::SetFunctionGrowingContext> MakeGrowingContext(
      const Set& X) const override;
  std::unique_ptr<SetFunction::SetFunctionShrinkingContext> MakeShrinkingContext(
      const Set& X) const override;
  std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal> MakeGrowingContextExternal(
      const Set& X) const override;
  std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal> MakeShrinkingContextExternal(
      const Set& X) const override;
  void AssignContext(SetFunction::SetFunctionGrowingContext& context, const Set& X) const override;
  void AssignContext(SetFunction::SetFunctionShrinkingContext& context,
                     const Set& X) const override;
  void AssignContext(SetFunction::SetFunctionGrowingContextExternal& context,
                     const Set& X) const override;
  void AssignContext(SetFunction::SetFunctionShrinkingContextExternal& context,
                     const Set& X) const override;

  const Kind& WrappedFunction() const { return *function_; }
  const UnorderedHashSet& AttractionSet() const { return attraction_set_; }
  const UnorderedHashSet& NeglectSet() const { return neglect_set_; }
  double Constant() const { return constant_; }
  double Multiplier() const { return multiplier_; }

 private:
  // X u N, and X u A u N, over f's ground set.
  UnorderedHashSet WithNeglect(const Set& X) const;
  UnorderedHashSet WithBoth(const Set& X) const;
  // m * ((v1 + c) - v2).
  double Combine(double v1, double v2) const { return multiplier_ * ((v1 + constant_) - v2); }
  bool InAttraction(int v) const { return in_attraction_[static_cast<std::size_t>(v)] != 0; }
  bool InNeglect(int v) const { return in_neglect_[static_cast<std::size_t>(v)] != 0; }

  // Owning pointer to f whose copies clone f.
  class OwnedFunction {
   public:
    explicit OwnedFunction(std::unique_ptr<Kind> f) : f_(std::move(f)) {}
    OwnedFunction(const OwnedFunction& other) : f_(other.f_ ? other.f_->clone() : nullptr) {}
    OwnedFunction& operator=(const OwnedFunction& other) {
      if (this != &other) f_ = other.f_ ? other.f_->clone() : nullptr;
      return *this;
    }
    Kind* operator->() const { return f_.get(); }
    Kind& operator*() const { return *f_; }
    explicit operator bool() const { return f_ != nullptr; }

   private:
    std::unique_ptr<Kind> f_;
  };

  OwnedFunction function_;
  UnorderedHashSet attraction_set_;
  UnorderedHashSet neglect_set_;
  double constant_ = 0.0;
  double multiplier_;
  std::vector<unsigned char> in_attraction_;
  std::vector<unsigned char> in_neglect_;
  int n_ = 0;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_COMBINATORIALCONDITIONALMUTUALINFORMATIONWRAPPERSETFUNCTION_H_
