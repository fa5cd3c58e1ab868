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
#include "functions/SetFunctionSkeleton.h"
#include "functions/SetFunctionWrapper.h"
#include "sets/Set.h"
#include "sets/UnorderedHashSet.h"
#include "utils/error_messages.h"

namespace velmor {

template <typename Kind>
class ContractionWrapperSetFunction
    : public clone_inherit<ContractionWrapperSetFunction<Kind>,
                           SetFunctionWrapper<ContractionWrapperSetFunction<Kind>, Kind>> {
  using Skeleton = SetFunctionSkeleton<ContractionWrapperSetFunction, Kind>;

 public:
  // Growing state: a growing context of f at A union C.
  class GrowingContextExternal final
      : public internal::GrowingContextExternalSkeleton<GrowingContextExternal,
                                                        ContractionWrapperSetFunction> {
    using Base = internal::GrowingContextExternalSkeleton<GrowingContextExternal,
                                                          ContractionWrapperSetFunction>;

   public:
    static constexpr bool kBatchedGains = true;

    // The state of the empty set: f's context at C.
    explicit GrowingContextExternal(const ContractionWrapperSetFunction* function);
    // f's context is assigned A union C.
    void AssignContext(const Set& A) override;
    // 0 for v in C, else m * f's DisjointGain(v).
    double DisjointGainOf(int v) const;
    // f's batched gains when no element is in C (each equal to DisjointGainOf).
    void DisjointGainsOf(const int* elements, int count, double* gains) const;
    // Nothing for v in C (returns false), else f's context absorbs v.
    bool AddElement(int v);
    void ResetToEmptySet() override;
    // m * (f's context value - f(C)).
    double CurrentValue() const override;

   private:
    internal::ClonedPointer<SetFunction::SetFunctionGrowingContextExternal> inner_;
  };

  // Shrinking state: a shrinking context of f at A union C, and that set.
  class ShrinkingContextExternal final
      : public internal::ShrinkingContextExternalSkeleton<ShrinkingContextExternal,
                                                          ContractionWrapperSetFunction> {
    using Base = internal::ShrinkingContextExternalSkeleton<ShrinkingContextExternal,
                                                            ContractionWrapperSetFunction>;

   public:
    explicit ShrinkingContextExternal(const ContractionWrapperSetFunction* function);
    void AssignContext(const Set& A) override;
    // 0 for v in C, else m * f's SubsetLoss(v).
    double SubsetLossOf(int v) const;
    // Nothing for v in C or not in the context's set; otherwise f's context
    // drops v.
    void RemoveElement(const Set& A, int v);
    double CurrentValue() const override;

   private:
    internal::ClonedPointer<SetFunction::SetFunctionShrinkingContextExternal> inner_;
    UnorderedHashSet with_contraction_;  // A union C
  };

  VELMOR_CONTEXT_NAMES(ContractionWrapperSetFunction);

  // Wraps a clone of f (or takes f over). Throws std::invalid_argument
  // "Invalid argument, the wrapped function must be present." for a null f,
  // "Invalid ground set size, %d != %d." (C's n, f's n) when C is over
  // another ground set, and "Invalid argument, multiplier (=%e) must be
  // finite." for a NaN or infinite multiplier.
  ContractionWrapperSetFunction(const Kind& f, const Set& contraction_set, double multiplier = 1.0);
  ContractionWrapperSetFunction(std::unique_ptr<Kind> f, const Set& contraction_set,
                                double multiplier = 1.0);
  // Copies are deep: a copy owns a clone of f.

  // The evaluations apply f to the argument sets with C added:
  //   Evaluate(e) = m * (f(C + e) - f(C)), Evaluate(A) = m * (f(A union C) - f(C)),
  //   EvaluateUnion and EvaluateUnionAndSecondArg likewise;
  //   EvaluateAfterSubtraction keeps the elements of C in;
  //   Gain(e, A) = m * f.Gain(e, A union C), 0 for e in A or C;
  //   Loss(e, A) = m * f.Loss(e, A union C) for e in A and not in C, 0 otherwise.

  // "contraction wrapped " followed by f's description.
  std::string Description() const override;
  // m >= 0 and f is known to be monotone.
  bool IsMonotoneNondecreasing() const override;

  const UnorderedHashSet& ContractionSet() const { return contraction_set_; }
  double ContractionValue() const { return contraction_value_; }

  // The base name of this class's source file (and header), for its messages.
  static const char* SourceFile() { return VELMOR_SOURCE_FILE; }

 private:
  friend Skeleton;

  double ElementValue(int e) const;
  double Value(const internal::SetExpression& expression) const;
  std::pair<double, double> UnionAndSecondValues(int v, const Set& A) const;
  double GainOf(int e, const Set& A) const;
  double LossOf(int e, const Set& A) const;

  // m * (value - f(C)).
  double Contracted(double value) const { return this->multiplier_ * (value - contraction_value_); }
  // A union C, over f's ground set.
  UnorderedHashSet WithContraction(const Set& A) const {
    return this->UnionWith(contraction_set_, A);
  }
  bool InContraction(int v) const { return in_contraction_[static_cast<std::size_t>(v)] != 0; }

  UnorderedHashSet contraction_set_;
  std::vector<unsigned char> in_contraction_;
  double contraction_value_ = 0.0;
};

extern template class ContractionWrapperSetFunction<SetFunction>;
extern template class ContractionWrapperSetFunction<SubmodularFunction>;
extern template class ContractionWrapperSetFunction<SupermodularFunction>;

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_CONTRACTIONWRAPPERSETFUNCTION_H_
