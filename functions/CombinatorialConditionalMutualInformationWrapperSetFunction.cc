#include "functions/CombinatorialConditionalMutualInformationWrapperSetFunction.h"

#include <cmath>
#include <stdexcept>

#include "utils/error_messages.h"

namespace velmor {

// ----- Construction ----------------------------------------------------------------------

template <typename Kind>
CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::CombinatorialConditionalMutualInformationWrapperSetFunction(const Kind& f,
                                                                       const Set& attraction_set,
                                                                       const Set& neglect_set,
                                                                       double multiplier)
    : CombinatorialConditionalMutualInformationWrapperSetFunction(f.clone(), attraction_set,
                                                                  neglect_set, multiplier) {}

template <typename Kind>
CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::CombinatorialConditionalMutualInformationWrapperSetFunction(std::unique_ptr<Kind> f,
                                                                       const Set& attraction_set,
                                                                       const Set& neglect_set,
                                                                       double multiplier)
    : function_(std::move(f)), multiplier_(multiplier) {
  if (!function_)
    VELMOR_THROW(std::invalid_argument, "Invalid argument, the wrapped function must be present.");
  n_ = function_->GroundSetSize();
  if (attraction_set.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.",
                 attraction_set.GroundSetSize(), n_);
  }
  if (neglect_set.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.",
                 neglect_set.GroundSetSize(), n_);
  }
  if (!std::isfinite(multiplier)) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, multiplier (=%e) must be finite.",
                 multiplier);
  }
  attraction_set_ = UnorderedHashSet(n_);
  attraction_set_.Assign(attraction_set);
  neglect_set_ = UnorderedHashSet(n_);
  neglect_set_.Assign(neglect_set);
  in_attraction_.assign(static_cast<std::size_t>(n_), 0);
  in_neglect_.assign(static_cast<std::size_t>(n_), 0);
  for (const int a : attraction_set_) in_attraction_[static_cast<std::size_t>(a)] = 1;
  for (const int b : neglect_set_) in_neglect_[static_cast<std::size_t>(b)] = 1;
  UnorderedHashSet both(neglect_set_);
  both.insertSet(attraction_set_);
  constant_ = function_->Evaluate(both) - function_->Evaluate(neglect_set_);
}

template <typename Kind>
UnorderedHashSet CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::WithNeglect(
    const Set& X) const {
  UnorderedHashSet result(neglect_set_);
  result.PrepareToInsertTheFollowingNumberOfItems(X.size());
  for (const int x : X) result.insert(x);
  return result;
}

template <typename Kind>
UnorderedHashSet CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::WithBoth(
    const Set& X) const {
  UnorderedHashSet result = WithNeglect(X);
  result.insertSet(attraction_set_);
  return result;
}

// ----- Evaluation ----------------------------------------------------------------------------

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::Evaluate(int e) const {
  if (e < 0 || e >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", e);
  UnorderedHashSet t(neglect_set_);
  t.insert(e);
  const double v1 = function_->Evaluate(t);
  t.insertSet(attraction_set_);
  const double v2 = function_->Evaluate(t);
  return Combine(v1, v2);
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::Evaluate(
    const Set& X) const {
  if (X.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", X.GroundSetSize());
  }
  UnorderedHashSet t = WithNeglect(X);
  const double v1 = function_->Evaluate(t);
  t.insertSet(attraction_set_);
  const double v2 = function_->Evaluate(t);
  return Combine(v1, v2);
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::EvaluateUnion(
    int v, const Set& X) const {
  if (X.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", X.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  UnorderedHashSet t = WithNeglect(X);
  const double v1 = function_->EvaluateUnion(v, t);
  t.insertSet(attraction_set_);
  const double v2 = function_->EvaluateUnion(v, t);
  return Combine(v1, v2);
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::EvaluateUnion(
    const Set& X, const Set& Y) const {
  if (X.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", X.GroundSetSize());
  }
  if (Y.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", Y.GroundSetSize());
  }
  UnorderedHashSet t = WithNeglect(X);
  const double v1 = function_->EvaluateUnion(t, Y);
  t.insertSet(attraction_set_);
  const double v2 = function_->EvaluateUnion(t, Y);
  return Combine(v1, v2);
}

template <typename Kind>
std::pair<double, double>
CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::EvaluateUnionAndSecondArg(
    int v, const Set& X) const {
  if (X.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", X.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  UnorderedHashSet t = WithNeglect(X);
  const std::pair<double, double> p1 = function_->EvaluateUnionAndSecondArg(v, t);
  t.insertSet(attraction_set_);
  const std::pair<double, double> p2 = function_->EvaluateUnionAndSecondArg(v, t);
  return {Combine(p1.first, p2.first), Combine(p1.second, p2.second)};
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::EvaluateAfterSubtraction(
    const Set& X, int v) const {
  if (X.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", X.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  UnorderedHashSet t(neglect_set_);
  for (const int x : X) {
    if (x != v) t.insert(x);
  }
  const double v1 = function_->Evaluate(t);
  t.insertSet(attraction_set_);
  const double v2 = function_->Evaluate(t);
  return Combine(v1, v2);
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::EvaluateAfterSubtraction(
    const Set& X, const Set& Y) const {
  if (X.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", X.GroundSetSize());
  }
  if (Y.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", Y.GroundSetSize());
  }
  UnorderedHashSet t(neglect_set_);
  for (const int x : X) {
    if (!Y.contains(x)) t.insert(x);
  }
  const double v1 = function_->Evaluate(t);
  t.insertSet(attraction_set_);
  const double v2 = function_->Evaluate(t);
  return Combine(v1, v2);
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::Gain(int e,
                                                                               const Set& X) const {
  if (X.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", X.GroundSetSize());
  }
  if (e < 0 || e >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", e);
  if (InNeglect(e) || X.contains(e)) return 0.0;
  UnorderedHashSet t = WithNeglect(X);
  const double g1 = function_->Gain(e, t);
  t.insertSet(attraction_set_);
  const double g2 = function_->Gain(e, t);
  return multiplier_ * (g1 - g2);
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::Loss(int e,
                                                                               const Set& X) const {
  if (X.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", X.GroundSetSize());
  }
  if (e < 0 || e >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", e);
  if (!X.contains(e)) return 0.0;
  return Evaluate(X) - EvaluateAfterSubtraction(X, e);
}

template <typename Kind>
std::string CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::Description() const {
  return "CMI wrapped " + function_->Description();
}

template <typename Kind>
bool CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::IsMonotoneNondecreasing()
    const {
  return multiplier_ >= 0 && dynamic_cast<const SubmodularFunction*>(&*function_) != nullptr;
}

// ----- Context factories -----------------------------------------------------------------------

template <typename Kind>
std::unique_ptr<SetFunction::SetFunctionGrowingContext>
CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::MakeGrowingContext(
    const Set& X) const {
  if (X.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", X.GroundSetSize(),
                 n_);
  }
  return std::make_unique<
      CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContext>(this, X);
}

template <typename Kind>
std::unique_ptr<SetFunction::SetFunctionShrinkingContext>
CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::MakeShrinkingContext(
    const Set& X) const {
  if (X.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", X.GroundSetSize(),
                 n_);
  }
  return std::make_unique<
      CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContext>(this, X);
}

template <typename Kind>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::MakeGrowingContextExternal(
    const Set& X) const {
  if (X.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", X.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<
      CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal>(this);
  context->AssignContext(X);
  return context;
}

template <typename Kind>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::MakeShrinkingContextExternal(
    const Set& X) const {
  if (X.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", X.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<
      CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal>(this);
  context->AssignContext(X);
  return context;
}

template <typename Kind>
void CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::AssignContext(
    SetFunction::SetFunctionGrowingContext& context, const Set& X) const {
  if (X.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", X.GroundSetSize(),
                 n_);
  }
  context.AssignContext(X);
}

template <typename Kind>
void CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::AssignContext(
    SetFunction::SetFunctionShrinkingContext& context, const Set& X) const {
  if (X.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", X.GroundSetSize(),
                 n_);
  }
  context.AssignContext(X);
}

template <typename Kind>
void CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::AssignContext(
    SetFunction::SetFunctionGrowingContextExternal& context, const Set& X) const {
  if (X.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", X.GroundSetSize(),
                 n_);
  }
  context.AssignContext(X);
}

template <typename Kind>
void CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::AssignContext(
    SetFunction::SetFunctionShrinkingContextExternal& context, const Set& X) const {
  if (X.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", X.GroundSetSize(),
                 n_);
  }
  context.AssignContext(X);
}

// ----- Growing context --------------------------------------------------------------------------

template <typename Kind>
CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal::
    CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal(
        const CombinatorialConditionalMutualInformationWrapperSetFunction* function)
    : function_(function),
      with_neglect_(function->function_->MakeGrowingContextExternal(function->neglect_set_)),
      with_both_(function->function_->MakeGrowingContextExternal(
          function->WithBoth(UnorderedHashSet(function->n_)))) {}

template <typename Kind>
CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal::
    CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal(
        const CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal&
            other)
    : SetFunction::SetFunctionGrowingContextExternal(other),
      function_(other.function_),
      with_neglect_(other.with_neglect_->clone()),
      with_both_(other.with_both_->clone()) {}

template <typename Kind>
void CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal::
    AssignContext(const Set& X) {
  UnorderedHashSet t = function_->WithNeglect(X);
  with_neglect_->AssignContext(t);
  t.insertSet(function_->attraction_set_);
  with_both_->AssignContext(t);
}

template <typename Kind>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::
    CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal::clone()
        const {
  return std::make_unique<
      CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal>(*this);
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::
    CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal::DisjointGain(
        int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  if (function_->InNeglect(v)) return 0.0;
  const double g1 = with_neglect_->DisjointGain(v);
  const double g2 = function_->InAttraction(v) ? 0.0 : with_both_->DisjointGain(v);
  return function_->multiplier_ * (g1 - g2);
}

template <typename Kind>
bool CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal::
    AddNewElementToContext(int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  if (function_->InNeglect(v)) return false;
  const bool first = with_neglect_->AddNewElementToContext(v);
  const bool second = function_->InAttraction(v) ? false : with_both_->AddNewElementToContext(v);
  return first || second;
}

template <typename Kind>
void CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal::
    ResetToEmptySet() {
  with_neglect_->AssignContext(function_->neglect_set_);
  with_both_->AssignContext(function_->WithBoth(UnorderedHashSet(function_->n_)));
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::CombinatorialConditionalMutualInformationWrapperSetFunctionGrowingContextExternal::
    CurrentValue() const {
  return function_->Combine(with_neglect_->CurrentValue(), with_both_->CurrentValue());
}

// ----- Shrinking context -------------------------------------------------------------------------

template <typename Kind>
CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal::
    CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal(
        const CombinatorialConditionalMutualInformationWrapperSetFunction* function)
    : function_(function),
      with_neglect_(function->function_->MakeShrinkingContextExternal(function->neglect_set_)),
      with_both_(function->function_->MakeShrinkingContextExternal(
          function->WithBoth(UnorderedHashSet(function->n_)))),
      neglect_set_(function->neglect_set_),
      both_set_(function->WithBoth(UnorderedHashSet(function->n_))) {}

template <typename Kind>
CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal::
    CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal(
        const CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal&
            other)
    : SetFunction::SetFunctionShrinkingContextExternal(other),
      function_(other.function_),
      with_neglect_(other.with_neglect_->clone()),
      with_both_(other.with_both_->clone()),
      neglect_set_(other.neglect_set_),
      both_set_(other.both_set_) {}

template <typename Kind>
void CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal::
    AssignContext(const Set& X) {
  neglect_set_ = function_->WithNeglect(X);
  with_neglect_->AssignContext(neglect_set_);
  both_set_ = neglect_set_;
  both_set_.insertSet(function_->attraction_set_);
  with_both_->AssignContext(both_set_);
}

template <typename Kind>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::
    CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal::clone()
        const {
  return std::make_unique<
      CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal>(*this);
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::
    CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal::SubsetLoss(
        int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  if (function_->InNeglect(v)) return 0.0;
  const double l1 = with_neglect_->SubsetLoss(v);
  const double l2 = function_->InAttraction(v) ? 0.0 : with_both_->SubsetLoss(v);
  return function_->multiplier_ * (l1 - l2);
}

template <typename Kind>
void CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal::
    RemoveExistingElementFromContext(const Set& /*X*/, int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  if (function_->InNeglect(v)) return;
  if (neglect_set_.contains(v)) {
    with_neglect_->RemoveExistingElementFromContext(neglect_set_, v);
    neglect_set_.remove(v);
  }
  if (!function_->InAttraction(v) && both_set_.contains(v)) {
    with_both_->RemoveExistingElementFromContext(both_set_, v);
    both_set_.remove(v);
  }
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::CombinatorialConditionalMutualInformationWrapperSetFunctionShrinkingContextExternal::
    CurrentValue() const {
  return function_->Combine(with_neglect_->CurrentValue(), with_both_->CurrentValue());
}

template class CombinatorialConditionalMutualInformationWrapperSetFunction<SetFunction>;
template class CombinatorialConditionalMutualInformationWrapperSetFunction<SubmodularFunction>;
template class CombinatorialConditionalMutualInformationWrapperSetFunction<SupermodularFunction>;

}  // namespace velmor
