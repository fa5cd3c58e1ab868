#ifndef VELMOR_FUNCTIONS_CONTRACTIONWRAPPERSETFUNCTION_H_
#define VELMOR_FUNCTIONS_CONTRACTIONWRAPPERSETFUNCTION_H_

// Contraction of a set function f by a fixed set C:
//
//   f'(A) = m * (f(A union C) - f(C)),
//
// the value that A adds on top of C, times a multiplier m (1 unless given).
// Contraction keeps submodularity (and supermodularity), so the wrapper
// exists for each kind: ContractionWrapperSetFunction<SetFunction>,
// <SubmodularFunction> and <SupermodularFunction>, each deriving from its
// parameter. An element of C has gain 0 for any A; f'(A) = 0 for A a subset of
// C; with C empty f'(A) = m * (f(A) - f(empty set)).
//
// The wrapper owns a clone of f (or takes f over), caches f(C) at
// construction and keeps C both as an UnorderedHashSet and as membership
// flags. Each wrapper context owns a context of f positioned at (its set)
// union C; gains and losses of elements of C are answered as 0 without asking
// f's context.
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
class ContractionWrapperSetFunction
    : public clone_inherit<ContractionWrapperSetFunction<Kind>, Kind> {
 public:
  // Growing state: a growing context of f at A union C.
  class ContractionWrapperSetFunctionGrowingContextExternal final
      : public SetFunction::SetFunctionGrowingContextExternal {
   public:
    // The state of the empty set: f's context at C.
    explicit ContractionWrapperSetFunctionGrowingContextExternal(
        const ContractionWrapperSetFunction* function);
    ContractionWrapperSetFunctionGrowingContextExternal(
        const ContractionWrapperSetFunctionGrowingContextExternal& other);
    // f's context is assigned A union C.
    void AssignContext(const Set& A) override;
    std::unique_ptr<SetFunctionGrowingContextExternal> clone() const override;
    // 0 for v in C, else m * f's DisjointGain(v). Throws "Invalid element = %d.".
    double DisjointGain(int v) const override;
    // f's batched gains when no element is in C (each equal to DisjointGain).
    void DisjointGains(const int* elements, int count, double* gains) const override;
    // Nothing for v in C (returns false), else f's context absorbs v.
    // Throws "Invalid element = %d.".
    bool AddNewElementToContext(int v) override;
    void ResetToEmptySet() override;
    // m * (f's context value - f(C)).
    double CurrentValue() const override;

   private:
    const ContractionWrapperSetFunction* function_;
    std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal> inner_;
  };

  // Shrinking state: a shrinking context of f at A union C, and that set.
  class ContractionWrapperSetFunctionShrinkingContextExternal final
      : public SetFunction::SetFunctionShrinkingContextExternal {
   public:
    explicit ContractionWrapperSetFunctionShrinkingContextExternal(
        const ContractionWrapperSetFunction* function);
    ContractionWrapperSetFunctionShrinkingContextExternal(
        const ContractionWrapperSetFunctionShrinkingContextExternal& other);
    void AssignContext(const Set& A) override;
    std::unique_ptr<SetFunctionShrinkingContextExternal> clone() const override;
    // 0 for v in C, else m * f's SubsetLoss(v). Throws "Invalid element = %d.".
    double SubsetLoss(int v) const override;
    // Nothing for v in C or not in the context's set; otherwise f's context
    // drops v. Throws "Invalid element = %d.".
    void RemoveExistingElementFromContext(const Set& A, int v) override;
    double CurrentValue() const override;

   private:
    const ContractionWrapperSetFunction* function_;
    std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal> inner_;
    UnorderedHashSet with_contraction_;  // A union C
  };

  using ContractionWrapperSetFunctionGrowingContext = SetFunction::DerivedSetFunctionGrowingContext<
      ContractionWrapperSetFunction, ContractionWrapperSetFunctionGrowingContextExternal,
      UnorderedHashSet>;
  using ContractionWrapperSetFunctionShrinkingContext =
      SetFunction::DerivedSetFunctionShrinkingContext<
          ContractionWrapperSetFunction, ContractionWrapperSetFunctionShrinkingContextExternal,
          UnorderedHashSet>;

  // Wraps a clone of f (or takes f over). Throws std::invalid_argument
  // "Invalid argument, the wrapped function must be present." for a null f,
  // "Invalid ground set size, %d != %d." (C's n, f's n) when C is over
  // another ground set, and "Invalid argument, multiplier (=%e) must be
  // finite." for a NaN or infinite multiplier.
  ContractionWrapperSetFunction(const Kind& f, const Set& contraction_set, double multiplier = 1.0);
  ContractionWrapperSetFunction(std::unique_ptr<Kind> f, const Set& contraction_set,
                                double multiplier = 1.0);
  // Copies are deep: a copy owns a clone of f.

  // m * (f(C + e) - f(C)). Throws "Invalid element = %d.".
  double Evaluate(int e) const override;
  // m * (f(A union C) - f(C)).
  double Evaluate(const Set& A) const override;
  double EvaluateUnion(int v, const Set& A) const override;
  double EvaluateUnion(const Set& A, const Set& B) const override;
  std::pair<double, double> EvaluateUnionAndSecondArg(int v, const Set& A) const override;
  // m * (f((A - v) union C) - f(C)); an element of C stays in.
  double EvaluateAfterSubtraction(const Set& A, int v) const override;
  double EvaluateAfterSubtraction(const Set& A, const Set& B) const override;
  // m * f.Gain(e, A union C); 0 for e in A or C.
  double Gain(int e, const Set& A) const override;
  // m * f.Loss(e, A union C) for e in A and not in C; 0 otherwise.
  double Loss(int e, const Set& A) const override;

  int GroundSetSize() const override { return n_; }
  int NumberOfLandmarks() const override { return function_->NumberOfLandmarks(); }
  long MatrixRows() const override { return function_->MatrixRows(); }
  long MatrixColumns() const override { return function_->MatrixColumns(); }
  long MatrixStoredEntries() const override { return function_->MatrixStoredEntries(); }
  // "contraction wrapped " followed by f's description.
  std::string Description() const override;
  // m >= 0 and f is known to be monotone.
  bool IsMonotoneNondecreasing() const override;

  std::unique_ptr<SetFunction::SetFunctionGrowingContext> MakeGrowingContext(
      const Set& A) const override;
  std::unique_ptr<SetFunction::SetFunctionShrinkingContext> MakeShrinkingContext(
      const Set& A) const override;
  std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal> MakeGrowingContextExternal(
      const Set& A) const override;
  std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal> MakeShrinkingContextExternal(
      const Set& A) const override;
  void AssignContext(SetFunction::SetFunctionGrowingContext& context, const Set& A) const override;
  void AssignContext(SetFunction::SetFunctionShrinkingContext& context,
                     const Set& A) const override;
  void AssignContext(SetFunction::SetFunctionGrowingContextExternal& context,
                     const Set& A) const override;
  void AssignContext(SetFunction::SetFunctionShrinkingContextExternal& context,
                     const Set& A) const override;

  const Kind& WrappedFunction() const { return *function_; }
  const UnorderedHashSet& ContractionSet() const { return contraction_set_; }
  double ContractionValue() const { return contraction_value_; }
  double Multiplier() const { return multiplier_; }

 private:
  // A union C, over f's ground set.
  UnorderedHashSet WithContraction(const Set& A) const;
  bool InContraction(int v) const { return in_contraction_[static_cast<std::size_t>(v)] != 0; }

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
  double contraction_value_ = 0.0;
  double multiplier_;
  UnorderedHashSet contraction_set_;
  std::vector<unsigned char> in_contraction_;
  int n_ = 0;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_CONTRACTIONWRAPPERSETFUNCTION_H_
