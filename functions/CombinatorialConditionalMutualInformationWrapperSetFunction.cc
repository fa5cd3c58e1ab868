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
                                                                       double multiplier) {
  const internal::MessageSite site =
      VELMOR_SITE(CombinatorialConditionalMutualInformationWrapperSetFunction);
  this->Wrap(site, std::move(f));
  attraction_set_ = this->Adopt(site, attraction_set, in_attraction_);
  neglect_set_ = this->Adopt(site, neglect_set, in_neglect_);
  this->SetMultiplier(site, multiplier);
  UnorderedHashSet both(neglect_set_);
  both.insertSet(attraction_set_);
  constant_ = this->function_->Evaluate(both) - this->function_->Evaluate(neglect_set_);
}

template <typename Kind>
UnorderedHashSet CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::WithBoth(
    const Set& X) const {
  UnorderedHashSet result = WithNeglect(X);
  result.insertSet(attraction_set_);
  return result;
}

template <typename Kind>
template <typename Evaluate>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::CombineOver(
    UnorderedHashSet with_neglect, Evaluate&& evaluate) const {
  const double v1 = evaluate(with_neglect);
  with_neglect.insertSet(attraction_set_);
  const double v2 = evaluate(with_neglect);
  return Combine(v1, v2);
}

// ----- Evaluation ----------------------------------------------------------------------------

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::ElementValue(
    int e) const {
  UnorderedHashSet t(neglect_set_);
  t.insert(e);
  return CombineOver(std::move(t), [this](const Set& T) { return this->function_->Evaluate(T); });
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::Value(
    const internal::SetExpression& expression) const {
  if (expression.Subtracts()) {
    UnorderedHashSet t(neglect_set_);
    expression.ForEachMember([&t](int x) { t.insert(x); });
    return CombineOver(std::move(t), [this](const Set& T) { return this->function_->Evaluate(T); });
  }
  return CombineOver(WithNeglect(expression.First()), [this, &expression](const Set& T) {
    return expression.EvaluateWith(*this->function_, T);
  });
}

template <typename Kind>
std::pair<double, double>
CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::UnionAndSecondValues(
    int v, const Set& X) const {
  UnorderedHashSet t = WithNeglect(X);
  const std::pair<double, double> p1 = this->function_->EvaluateUnionAndSecondArg(v, t);
  t.insertSet(attraction_set_);
  const std::pair<double, double> p2 = this->function_->EvaluateUnionAndSecondArg(v, t);
  return {Combine(p1.first, p2.first), Combine(p1.second, p2.second)};
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::GainOf(
    int e, const Set& X) const {
  if (InNeglect(e)) return 0.0;
  UnorderedHashSet t = WithNeglect(X);
  const double g1 = this->function_->Gain(e, t);
  t.insertSet(attraction_set_);
  const double g2 = this->function_->Gain(e, t);
  return this->multiplier_ * (g1 - g2);
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::LossOf(
    int e, const Set& X) const {
  if (!X.contains(e)) return 0.0;
  return this->Evaluate(X) - this->EvaluateAfterSubtraction(X, e);
}

template <typename Kind>
std::string CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::Description() const {
  return "CMI wrapped " + this->function_->Description();
}

template <typename Kind>
bool CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::IsMonotoneNondecreasing()
    const {
  return this->multiplier_ >= 0 &&
         dynamic_cast<const SubmodularFunction*>(&*this->function_) != nullptr;
}

// ----- Growing context --------------------------------------------------------------------------

template <typename Kind>
CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::GrowingContextExternal::
    GrowingContextExternal(
        const CombinatorialConditionalMutualInformationWrapperSetFunction* function)
    : Base(function),
      with_neglect_(function->function_->MakeGrowingContextExternal(function->neglect_set_)),
      with_both_(function->function_->MakeGrowingContextExternal(
          function->WithBoth(UnorderedHashSet(function->n_)))) {}

template <typename Kind>
void CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::GrowingContextExternal::AssignContext(const Set& X) {
  UnorderedHashSet t = this->function_->WithNeglect(X);
  with_neglect_->AssignContext(t);
  t.insertSet(this->function_->attraction_set_);
  with_both_->AssignContext(t);
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::GrowingContextExternal::DisjointGainOf(int v) const {
  const auto& f = *this->function_;
  if (f.InNeglect(v)) return 0.0;
  const double g1 = with_neglect_->DisjointGain(v);
  const double g2 = f.InAttraction(v) ? 0.0 : with_both_->DisjointGain(v);
  return f.multiplier_ * (g1 - g2);
}

template <typename Kind>
bool CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::GrowingContextExternal::AddElement(int v) {
  const auto& f = *this->function_;
  if (f.InNeglect(v)) return false;
  const bool first = with_neglect_->AddNewElementToContext(v);
  const bool second = f.InAttraction(v) ? false : with_both_->AddNewElementToContext(v);
  return first || second;
}

template <typename Kind>
void CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::GrowingContextExternal::ResetToEmptySet() {
  const auto& f = *this->function_;
  with_neglect_->AssignContext(f.neglect_set_);
  with_both_->AssignContext(f.WithBoth(UnorderedHashSet(f.n_)));
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::GrowingContextExternal::CurrentValue() const {
  return this->function_->Combine(with_neglect_->CurrentValue(), with_both_->CurrentValue());
}

// ----- Shrinking context -------------------------------------------------------------------------

template <typename Kind>
CombinatorialConditionalMutualInformationWrapperSetFunction<Kind>::ShrinkingContextExternal::
    ShrinkingContextExternal(
        const CombinatorialConditionalMutualInformationWrapperSetFunction* function)
    : Base(function),
      with_neglect_(function->function_->MakeShrinkingContextExternal(function->neglect_set_)),
      with_both_(function->function_->MakeShrinkingContextExternal(
          function->WithBoth(UnorderedHashSet(function->n_)))),
      neglect_set_(function->neglect_set_),
      both_set_(function->WithBoth(UnorderedHashSet(function->n_))) {}

template <typename Kind>
void CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::ShrinkingContextExternal::AssignContext(const Set& X) {
  neglect_set_ = this->function_->WithNeglect(X);
  with_neglect_->AssignContext(neglect_set_);
  both_set_ = neglect_set_;
  both_set_.insertSet(this->function_->attraction_set_);
  with_both_->AssignContext(both_set_);
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::ShrinkingContextExternal::SubsetLossOf(int v) const {
  const auto& f = *this->function_;
  if (f.InNeglect(v)) return 0.0;
  const double l1 = with_neglect_->SubsetLoss(v);
  const double l2 = f.InAttraction(v) ? 0.0 : with_both_->SubsetLoss(v);
  return f.multiplier_ * (l1 - l2);
}

template <typename Kind>
void CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::ShrinkingContextExternal::RemoveElement(const Set& /*X*/, int v) {
  const auto& f = *this->function_;
  if (f.InNeglect(v)) return;
  if (neglect_set_.contains(v)) {
    with_neglect_->RemoveExistingElementFromContext(neglect_set_, v);
    neglect_set_.remove(v);
  }
  if (!f.InAttraction(v) && both_set_.contains(v)) {
    with_both_->RemoveExistingElementFromContext(both_set_, v);
    both_set_.remove(v);
  }
}

template <typename Kind>
double CombinatorialConditionalMutualInformationWrapperSetFunction<
    Kind>::ShrinkingContextExternal::CurrentValue() const {
  return this->function_->Combine(with_neglect_->CurrentValue(), with_both_->CurrentValue());
}

template class CombinatorialConditionalMutualInformationWrapperSetFunction<SetFunction>;
template class CombinatorialConditionalMutualInformationWrapperSetFunction<SubmodularFunction>;
template class CombinatorialConditionalMutualInformationWrapperSetFunction<SupermodularFunction>;

}  // namespace velmor
