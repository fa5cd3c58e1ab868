#include "functions/ContractionWrapperSetFunction.h"

#include <cmath>
#include <stdexcept>

#include "utils/error_messages.h"

namespace velmor {

// ----- Construction ----------------------------------------------------------------------

template <typename Kind>
ContractionWrapperSetFunction<Kind>::ContractionWrapperSetFunction(const Kind& f,
                                                                   const Set& contraction_set,
                                                                   double multiplier)
    : ContractionWrapperSetFunction(f.clone(), contraction_set, multiplier) {}

template <typename Kind>
ContractionWrapperSetFunction<Kind>::ContractionWrapperSetFunction(std::unique_ptr<Kind> f,
                                                                   const Set& contraction_set,
                                                                   double multiplier)
    : function_(std::move(f)), multiplier_(multiplier) {
  if (!function_)
    VELMOR_THROW(std::invalid_argument, "Invalid argument, the wrapped function must be present.");
  n_ = function_->GroundSetSize();
  if (contraction_set.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.",
                 contraction_set.GroundSetSize(), n_);
  }
  if (!std::isfinite(multiplier)) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, multiplier (=%e) must be finite.",
                 multiplier);
  }
  contraction_set_ = UnorderedHashSet(n_);
  contraction_set_.Assign(contraction_set);
  in_contraction_.assign(static_cast<std::size_t>(n_), 0);
  for (const int c : contraction_set_) in_contraction_[static_cast<std::size_t>(c)] = 1;
  contraction_value_ = function_->Evaluate(contraction_set_);
}

template <typename Kind>
UnorderedHashSet ContractionWrapperSetFunction<Kind>::WithContraction(const Set& A) const {
  UnorderedHashSet result(contraction_set_);
  result.PrepareToInsertTheFollowingNumberOfItems(A.size());
  for (const int a : A) result.insert(a);
  return result;
}

// ----- Evaluation ----------------------------------------------------------------------------

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::Evaluate(int e) const {
  if (e < 0 || e >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", e);
  UnorderedHashSet with_element(contraction_set_);
  with_element.insert(e);
  return multiplier_ * (function_->Evaluate(with_element) - contraction_value_);
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::Evaluate(const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  return multiplier_ * (function_->Evaluate(WithContraction(A)) - contraction_value_);
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::EvaluateUnion(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  return multiplier_ * (function_->EvaluateUnion(v, WithContraction(A)) - contraction_value_);
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::EvaluateUnion(const Set& A, const Set& B) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (B.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", B.GroundSetSize());
  }
  return multiplier_ * (function_->EvaluateUnion(WithContraction(A), B) - contraction_value_);
}

template <typename Kind>
std::pair<double, double> ContractionWrapperSetFunction<Kind>::EvaluateUnionAndSecondArg(
    int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const std::pair<double, double> values =
      function_->EvaluateUnionAndSecondArg(v, WithContraction(A));
  return {multiplier_ * (values.first - contraction_value_),
          multiplier_ * (values.second - contraction_value_)};
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::EvaluateAfterSubtraction(const Set& A, int v) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const UnorderedHashSet with_contraction = WithContraction(A);
  const double value = InContraction(v) ? function_->Evaluate(with_contraction)
                                        : function_->EvaluateAfterSubtraction(with_contraction, v);
  return multiplier_ * (value - contraction_value_);
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::EvaluateAfterSubtraction(const Set& A,
                                                                     const Set& B) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (B.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", B.GroundSetSize());
  }
  // Elements of C stay in: only B \ C is taken out of A union C.
  UnorderedHashSet removed(n_);
  for (const int b : B) {
    if (!InContraction(b)) removed.insert(b);
  }
  return multiplier_ *
         (function_->EvaluateAfterSubtraction(WithContraction(A), removed) - contraction_value_);
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::Gain(int e, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (e < 0 || e >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", e);
  if (InContraction(e) || A.contains(e)) return 0.0;
  return multiplier_ * function_->Gain(e, WithContraction(A));
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::Loss(int e, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (e < 0 || e >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", e);
  if (InContraction(e) || !A.contains(e)) return 0.0;
  return multiplier_ * function_->Loss(e, WithContraction(A));
}

template <typename Kind>
std::string ContractionWrapperSetFunction<Kind>::Description() const {
  return "contraction wrapped " + function_->Description();
}

template <typename Kind>
bool ContractionWrapperSetFunction<Kind>::IsMonotoneNondecreasing() const {
  return multiplier_ >= 0 && function_->IsMonotoneNondecreasing();
}

// ----- Context factories -----------------------------------------------------------------------

template <typename Kind>
std::unique_ptr<SetFunction::SetFunctionGrowingContext>
ContractionWrapperSetFunction<Kind>::MakeGrowingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<ContractionWrapperSetFunctionGrowingContext>(this, A);
}

template <typename Kind>
std::unique_ptr<SetFunction::SetFunctionShrinkingContext>
ContractionWrapperSetFunction<Kind>::MakeShrinkingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<ContractionWrapperSetFunctionShrinkingContext>(this, A);
}

template <typename Kind>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
ContractionWrapperSetFunction<Kind>::MakeGrowingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<ContractionWrapperSetFunctionGrowingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename Kind>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
ContractionWrapperSetFunction<Kind>::MakeShrinkingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<ContractionWrapperSetFunctionShrinkingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename Kind>
void ContractionWrapperSetFunction<Kind>::AssignContext(
    SetFunction::SetFunctionGrowingContext& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename Kind>
void ContractionWrapperSetFunction<Kind>::AssignContext(
    SetFunction::SetFunctionShrinkingContext& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename Kind>
void ContractionWrapperSetFunction<Kind>::AssignContext(
    SetFunction::SetFunctionGrowingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename Kind>
void ContractionWrapperSetFunction<Kind>::AssignContext(
    SetFunction::SetFunctionShrinkingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

// ----- Growing context --------------------------------------------------------------------------

template <typename Kind>
ContractionWrapperSetFunction<Kind>::ContractionWrapperSetFunctionGrowingContextExternal::
    ContractionWrapperSetFunctionGrowingContextExternal(
        const ContractionWrapperSetFunction* function)
    : function_(function),
      inner_(function->function_->MakeGrowingContextExternal(function->contraction_set_)) {}

template <typename Kind>
ContractionWrapperSetFunction<Kind>::ContractionWrapperSetFunctionGrowingContextExternal::
    ContractionWrapperSetFunctionGrowingContextExternal(
        const ContractionWrapperSetFunctionGrowingContextExternal& other)
    : SetFunction::SetFunctionGrowingContextExternal(other),
      function_(other.function_),
      inner_(other.inner_->clone()) {}

template <typename Kind>
void ContractionWrapperSetFunction<
    Kind>::ContractionWrapperSetFunctionGrowingContextExternal::AssignContext(const Set& A) {
  inner_->AssignContext(function_->WithContraction(A));
}

template <typename Kind>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal> ContractionWrapperSetFunction<
    Kind>::ContractionWrapperSetFunctionGrowingContextExternal::clone() const {
  return std::make_unique<ContractionWrapperSetFunctionGrowingContextExternal>(*this);
}

template <typename Kind>
double ContractionWrapperSetFunction<
    Kind>::ContractionWrapperSetFunctionGrowingContextExternal::DisjointGain(int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  if (function_->InContraction(v)) return 0.0;
  return function_->multiplier_ * inner_->DisjointGain(v);
}

template <typename Kind>
void ContractionWrapperSetFunction<
    Kind>::ContractionWrapperSetFunctionGrowingContextExternal::DisjointGains(const int* elements,
                                                                              int count,
                                                                              double* gains) const {
  bool any_in_contraction = false;
  for (int j = 0; j < count; ++j) {
    const int v = elements[j];
    if (v < 0 || v >= function_->n_)
      VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
    any_in_contraction = any_in_contraction || function_->InContraction(v);
  }
  if (any_in_contraction) {
    for (int j = 0; j < count; ++j) gains[j] = DisjointGain(elements[j]);
    return;
  }
  inner_->DisjointGains(elements, count, gains);
  for (int j = 0; j < count; ++j) gains[j] = function_->multiplier_ * gains[j];
}

template <typename Kind>
bool ContractionWrapperSetFunction<
    Kind>::ContractionWrapperSetFunctionGrowingContextExternal::AddNewElementToContext(int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  if (function_->InContraction(v)) return false;
  return inner_->AddNewElementToContext(v);
}

template <typename Kind>
void ContractionWrapperSetFunction<
    Kind>::ContractionWrapperSetFunctionGrowingContextExternal::ResetToEmptySet() {
  inner_->AssignContext(function_->contraction_set_);
}

template <typename Kind>
double ContractionWrapperSetFunction<
    Kind>::ContractionWrapperSetFunctionGrowingContextExternal::CurrentValue() const {
  return function_->multiplier_ * (inner_->CurrentValue() - function_->contraction_value_);
}

// ----- Shrinking context -------------------------------------------------------------------------

template <typename Kind>
ContractionWrapperSetFunction<Kind>::ContractionWrapperSetFunctionShrinkingContextExternal::
    ContractionWrapperSetFunctionShrinkingContextExternal(
        const ContractionWrapperSetFunction* function)
    : function_(function),
      inner_(function->function_->MakeShrinkingContextExternal(function->contraction_set_)),
      with_contraction_(function->contraction_set_) {}

template <typename Kind>
ContractionWrapperSetFunction<Kind>::ContractionWrapperSetFunctionShrinkingContextExternal::
    ContractionWrapperSetFunctionShrinkingContextExternal(
        const ContractionWrapperSetFunctionShrinkingContextExternal& other)
    : SetFunction::SetFunctionShrinkingContextExternal(other),
      function_(other.function_),
      inner_(other.inner_->clone()),
      with_contraction_(other.with_contraction_) {}

template <typename Kind>
void ContractionWrapperSetFunction<
    Kind>::ContractionWrapperSetFunctionShrinkingContextExternal::AssignContext(const Set& A) {
  with_contraction_ = function_->WithContraction(A);
  inner_->AssignContext(with_contraction_);
}

template <typename Kind>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal> ContractionWrapperSetFunction<
    Kind>::ContractionWrapperSetFunctionShrinkingContextExternal::clone() const {
  return std::make_unique<ContractionWrapperSetFunctionShrinkingContextExternal>(*this);
}

template <typename Kind>
double ContractionWrapperSetFunction<
    Kind>::ContractionWrapperSetFunctionShrinkingContextExternal::SubsetLoss(int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  if (function_->InContraction(v)) return 0.0;
  return function_->multiplier_ * inner_->SubsetLoss(v);
}

template <typename Kind>
void ContractionWrapperSetFunction<Kind>::ContractionWrapperSetFunctionShrinkingContextExternal::
    RemoveExistingElementFromContext(const Set& /*A*/, int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  if (function_->InContraction(v) || !with_contraction_.contains(v)) return;
  inner_->RemoveExistingElementFromContext(with_contraction_, v);
  with_contraction_.remove(v);
}

template <typename Kind>
double ContractionWrapperSetFunction<
    Kind>::ContractionWrapperSetFunctionShrinkingContextExternal::CurrentValue() const {
  return function_->multiplier_ * (inner_->CurrentValue() - function_->contraction_value_);
}

template class ContractionWrapperSetFunction<SetFunction>;
template class ContractionWrapperSetFunction<SubmodularFunction>;
template class ContractionWrapperSetFunction<SupermodularFunction>;

}  // namespace velmor
