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
#include "functions/SetFunctionSkeleton.h"
#include "functions/SetFunctionWrapper.h"
#include "sets/Set.h"
#include "sets/UnorderedHashSet.h"
#include "utils/error_messages.h"

namespace velmor {

template <typename Kind>
class CombinatorialConditionalMutualInformationWrapperSetFunction
    : public clone_inherit<
          CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>,
          SetFunctionWrapper<CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>,
                             Kind>> {
  using Skeleton =
      SetFunctionSkeleton<CombinatorialConditionalMutualInformationWrapperSetFunction, Kind>;

 public:
  // Growing state: growing contexts of f at X u N and at X u A u N.
  class GrowingContextExternal final
      : public internal::GrowingContextExternalSkeleton<
            GrowingContextExternal, CombinatorialConditionalMutualInformationWrapperSetFunction> {
    using Base = internal::GrowingContextExternalSkeleton<
        GrowingContextExternal, CombinatorialConditionalMutualInformationWrapperSetFunction>;

   public:
    // The state of the empty set: f's contexts at N and at A u N.
    explicit GrowingContextExternal(
        const CombinatorialConditionalMutualInformationWrapperSetFunction* function);
    void AssignContext(const Set& X) override;
    // m * (gain at X u N - gain at X u A u N), with the gains that the
    // contexts' sets already hold taken as 0.
    double DisjointGainOf(int v) const;
    // Each of f's contexts whose set lacks v absorbs it; returns whether any
    // changed.
    bool AddElement(int v);
    void ResetToEmptySet() override;
    // m * ((value at X u N + c) - value at X u A u N).
    double CurrentValue() const override;

   private:
    internal::ClonedPointer<SetFunction::SetFunctionGrowingContextExternal> with_neglect_;
    internal::ClonedPointer<SetFunction::SetFunctionGrowingContextExternal> with_both_;
  };

  // Shrinking state: shrinking contexts of f at X u N and X u A u N, and
  // those two sets.
  class ShrinkingContextExternal final
      : public internal::ShrinkingContextExternalSkeleton<
            ShrinkingContextExternal, CombinatorialConditionalMutualInformationWrapperSetFunction> {
    using Base = internal::ShrinkingContextExternalSkeleton<
        ShrinkingContextExternal, CombinatorialConditionalMutualInformationWrapperSetFunction>;

   public:
    explicit ShrinkingContextExternal(
        const CombinatorialConditionalMutualInformationWrapperSetFunction* function);
    void AssignContext(const Set& X) override;
    // m * (loss at X u N - loss at X u A u N), with the losses of elements
    // that stay in a context's set (through N or A) taken as 0.
    double SubsetLossOf(int v) const;
    // Each of f's contexts whose set loses v drops it.
    void RemoveElement(const Set& X, int v);
    double CurrentValue() const override;

   private:
    internal::ClonedPointer<SetFunction::SetFunctionShrinkingContextExternal> with_neglect_;
    internal::ClonedPointer<SetFunction::SetFunctionShrinkingContextExternal> with_both_;
    UnorderedHashSet neglect_set_;  // X u N
    UnorderedHashSet both_set_;     // X u A u N
  };

  using GrowingContextExternal = GrowingContextExternal;
  VELMOR_CONTEXT_NAMES(CombinatorialConditionalMutualInformationWrapperSetFunction);

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

  // The evaluations apply the value formula to the argument sets: Evaluate(e)
  // takes T = N + e, v1 = f(T), then T gains A, v2 = f(T), and returns
  // m * ((v1 + c) - v2); the set forms take T = X u N (the union or difference
  // of the arguments). Gain(e, X) = m * (f.Gain(e, X u N) - f.Gain(e, X u A u
  // N)), 0 for e in X or N; Loss(e, X) = g(X) - g(X - e), 0 for e not in X.

  // "CMI wrapped " followed by f's description.
  std::string Description() const override;
  // m >= 0 and f is submodular: then every gain is a difference of f's gains
  // on nested sets, which is >= 0.
  bool IsMonotoneNondecreasing() const override;

  const UnorderedHashSet& AttractionSet() const { return attraction_set_; }
  const UnorderedHashSet& NeglectSet() const { return neglect_set_; }
  double Constant() const { return constant_; }

  // The base name of this class's source file (and header), for its messages.
  static const char* SourceFile() { return VELMOR_SOURCE_FILE; }

 private:
  friend Skeleton;

  double ElementValue(int e) const;
  double Value(const internal::SetExpression& expression) const;
  std::pair<double, double> UnionAndSecondValues(int v, const Set& X) const;
  double GainOf(int e, const Set& X) const;
  double LossOf(int e, const Set& X) const;

  // m * ((value of `evaluate` at T + c) - value at T u A), for T the set
  // `with_neglect` holds (X u N for the X in question); T gains A.
  template <typename Evaluate>
  double CombineOver(UnorderedHashSet with_neglect, Evaluate&& evaluate) const;
  // X u N, and X u A u N, over f's ground set.
  UnorderedHashSet WithNeglect(const Set& X) const { return this->UnionWith(neglect_set_, X); }
  UnorderedHashSet WithBoth(const Set& X) const;
  // m * ((v1 + c) - v2).
  double Combine(double v1, double v2) const { return this->multiplier_ * ((v1 + constant_) - v2); }
  bool InAttraction(int v) const { return in_attraction_[static_cast<std::size_t>(v)] != 0; }
  bool InNeglect(int v) const { return in_neglect_[static_cast<std::size_t>(v)] != 0; }

  UnorderedHashSet attraction_set_;
  UnorderedHashSet neglect_set_;
  std::vector<unsigned char> in_attraction_;
  std::vector<unsigned char> in_neglect_;
  double constant_ = 0.0;
};

extern template class CombinatorialConditionalMutualInformationWrapperSetFunction<SetFunction>;
extern template class CombinatorialConditionalMutualInformationWrapperSetFunction<
    SubmodularFunction>;
extern template class CombinatorialConditionalMutualInformationWrapperSetFunction<
    SupermodularFunction>;

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_COMBINATORIALCONDITIONALMUTUALINFORMATIONWRAPPERSETFUNCTION_H_
