#include "functions/ContractionWrapperSetFunction.h"

#include <cmath>

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
                                                                   double multiplier) {
  const internal::MessageSite site = VELMOR_SITE(ContractionWrapperSetFunction);
  this->Wrap(site, std::move(f));
  contraction_set_ = this->Adopt(site, contraction_set, in_contraction_);
  this->SetMultiplier(site, multiplier);
  contraction_value_ = this->function_->Evaluate(contraction_set_);
}

// ----- Evaluation ----------------------------------------------------------------------------

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::ElementValue(int e) const {
  UnorderedHashSet with_element(contraction_set_);
  with_element.insert(e);
  return Contracted(this->function_->Evaluate(with_element));
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::Value(const internal::SetExpression& expression) const {
  const UnorderedHashSet with_contraction = WithContraction(expression.First());
  if (!expression.Subtracts()) {
    return Contracted(expression.EvaluateWith(*this->function_, with_contraction));
  }
  if (expression.TakesElement()) {
    const int v = expression.Element();
    return Contracted(InContraction(v)
                          ? this->function_->Evaluate(with_contraction)
                          : this->function_->EvaluateAfterSubtraction(with_contraction, v));
  }
  // Elements of C stay in: only B \ C is taken out of A union C.
  UnorderedHashSet removed(this->n_);
  for (const int b : expression.Second()) {
    if (!InContraction(b)) removed.insert(b);
  }
  return Contracted(this->function_->EvaluateAfterSubtraction(with_contraction, removed));
}

template <typename Kind>
std::pair<double, double> ContractionWrapperSetFunction<Kind>::UnionAndSecondValues(
    int v, const Set& A) const {
  const std::pair<double, double> values =
      this->function_->EvaluateUnionAndSecondArg(v, WithContraction(A));
  return {Contracted(values.first), Contracted(values.second)};
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::GainOf(int e, const Set& A) const {
  if (InContraction(e)) return 0.0;
  return this->multiplier_ * this->function_->Gain(e, WithContraction(A));
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::LossOf(int e, const Set& A) const {
  if (InContraction(e) || !A.contains(e)) return 0.0;
  return this->multiplier_ * this->function_->Loss(e, WithContraction(A));
}

template <typename Kind>
std::string ContractionWrapperSetFunction<Kind>::Description() const {
  return "contraction wrapped " + this->function_->Description();
}

template <typename Kind>
bool ContractionWrapperSetFunction<Kind>::IsMonotoneNondecreasing() const {
  return this->multiplier_ >= 0 && this->function_->IsMonotoneNondecreasing();
}

// ----- Growing context --------------------------------------------------------------------------

template <typename Kind>
ContractionWrapperSetFunction<Kind>::GrowingContextExternal::GrowingContextExternal(
    const ContractionWrapperSetFunction* function)
    : Base(function),
      inner_(function->function_->MakeGrowingContextExternal(function->contraction_set_)) {}

template <typename Kind>
void ContractionWrapperSetFunction<Kind>::GrowingContextExternal::AssignContext(const Set& A) {
  inner_->AssignContext(this->function_->WithContraction(A));
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::GrowingContextExternal::DisjointGainOf(int v) const {
  if (this->function_->InContraction(v)) return 0.0;
  return this->function_->multiplier_ * inner_->DisjointGain(v);
}

template <typename Kind>
void ContractionWrapperSetFunction<Kind>::GrowingContextExternal::DisjointGainsOf(
    const int* elements, int count, double* gains) const {
  const ContractionWrapperSetFunction& f = *this->function_;
  for (int j = 0; j < count; ++j) {
    if (f.InContraction(elements[j])) {
      for (int i = 0; i < count; ++i) gains[i] = DisjointGainOf(elements[i]);
      return;
    }
  }
  inner_->DisjointGains(elements, count, gains);
  for (int j = 0; j < count; ++j) gains[j] = f.multiplier_ * gains[j];
}

template <typename Kind>
bool ContractionWrapperSetFunction<Kind>::GrowingContextExternal::AddElement(int v) {
  if (this->function_->InContraction(v)) return false;
  return inner_->AddNewElementToContext(v);
}

template <typename Kind>
void ContractionWrapperSetFunction<Kind>::GrowingContextExternal::ResetToEmptySet() {
  inner_->AssignContext(this->function_->contraction_set_);
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::GrowingContextExternal::CurrentValue() const {
  return this->function_->Contracted(inner_->CurrentValue());
}

// ----- Shrinking context -------------------------------------------------------------------------

template <typename Kind>
ContractionWrapperSetFunction<Kind>::ShrinkingContextExternal::ShrinkingContextExternal(
    const ContractionWrapperSetFunction* function)
    : Base(function),
      inner_(function->function_->MakeShrinkingContextExternal(function->contraction_set_)),
      with_contraction_(function->contraction_set_) {}

template <typename Kind>
void ContractionWrapperSetFunction<Kind>::ShrinkingContextExternal::AssignContext(const Set& A) {
  with_contraction_ = this->function_->WithContraction(A);
  inner_->AssignContext(with_contraction_);
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::ShrinkingContextExternal::SubsetLossOf(int v) const {
  if (this->function_->InContraction(v)) return 0.0;
  return this->function_->multiplier_ * inner_->SubsetLoss(v);
}

template <typename Kind>
void ContractionWrapperSetFunction<Kind>::ShrinkingContextExternal::RemoveElement(const Set& /*A*/,
                                                                                  int v) {
  if (this->function_->InContraction(v) || !with_contraction_.contains(v)) return;
  inner_->RemoveExistingElementFromContext(with_contraction_, v);
  with_contraction_.remove(v);
}

template <typename Kind>
double ContractionWrapperSetFunction<Kind>::ShrinkingContextExternal::CurrentValue() const {
  return this->function_->Contracted(inner_->CurrentValue());
}

template class ContractionWrapperSetFunction<SetFunction>;
template class ContractionWrapperSetFunction<SubmodularFunction>;
template class ContractionWrapperSetFunction<SupermodularFunction>;

}  // namespace velmor
