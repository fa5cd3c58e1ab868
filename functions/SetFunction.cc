#include "functions/SetFunction.h"

#include <spdlog/spdlog.h>

#include <stdexcept>

#include "sets/RangeSet.h"

namespace velmor {
namespace {

// The sum of (scratch.*measure)(b) over B's elements in B's order, on a
// scratch copy of `context` to which change(scratch, b) applies each b after
// it is measured.
template <typename Context, typename Change>
double SumOverScratchCopy(const Context& context, const Set& B,
                          double (Context::*measure)(int) const, Change&& change) {
  std::unique_ptr<Context> scratch = context.clone();
  double sum = 0.0;
  for (int b : B) {
    sum += ((*scratch).*measure)(b);
    change(*scratch, b);
  }
  return sum;
}

}  // namespace

// ----- External growing context ---------------------------------------------

void SetFunction::SetFunctionGrowingContextExternal::AssignContext(const Set& A) {
  ResetToEmptySet();
  for (int v : A) AddNewElementToContext(v);
}

void SetFunction::SetFunctionGrowingContextExternal::DisjointGains(const int* elements, int count,
                                                                   double* gains) const {
  for (int j = 0; j < count; ++j) gains[j] = DisjointGain(elements[j]);
}

// ----- Owning contexts: multi-element forms -----------------------------------

void SetFunction::SetFunctionGrowingContext::DisjointGains(const int* elements, int count,
                                                           double* gains) const {
  for (int j = 0; j < count; ++j) gains[j] = DisjointGain(elements[j]);
}

double SetFunction::SetFunctionGrowingContext::DisjointSetGain(const Set& B) const {
  return SumOverScratchCopy(*this, B, &SetFunctionGrowingContext::DisjointGain,
                            [](auto& scratch, int b) { scratch.AddNewElementToContext(b, false); });
}

bool SetFunction::SetFunctionGrowingContext::AddNewElementsToContext(const Set& B,
                                                                     bool also_insert) {
  bool changed = false;
  for (int b : B) changed = AddNewElementToContext(b, also_insert) || changed;
  return changed;
}

double SetFunction::SetFunctionShrinkingContext::SubsetSetLoss(const Set& B) const {
  return SumOverScratchCopy(
      *this, B, &SetFunctionShrinkingContext::SubsetLoss,
      [](auto& scratch, int b) { scratch.RemoveExistingElementFromContext(b, true); });
}

void SetFunction::SetFunctionShrinkingContext::RemoveExistingElementsFromContext(const Set& B,
                                                                                 bool also_remove) {
  for (int b : B) RemoveExistingElementFromContext(b, also_remove);
}

// ----- SetFunction defaults -----------------------------------------------------

double SetFunction::EvaluateGroundSet() const {
  RangeSet full(GroundSetSize());
  full.MakeFull();
  return Evaluate(full);
}

std::pair<double, double> SetFunction::EvaluateUnionAndSecondArg(int v, const Set& A) const {
  const double union_value = EvaluateUnion(v, A);
  return {union_value, Evaluate(A)};
}

double SetFunction::Gain(int v, const Set& A) const {
  if (A.contains(v)) return 0.0;
  return EvaluateUnion(v, A) - Evaluate(A);
}

double SetFunction::Loss(int v, const Set& A) const {
  if (!A.contains(v)) return 0.0;
  return Evaluate(A) - EvaluateAfterSubtraction(A, v);
}

double SetFunction::GainOrLoss(int v, const Set& A) const {
  return A.contains(v) ? Loss(v, A) : Gain(v, A);
}

double SetFunction::SetGain(const Set& A, const Set& B) const {
  return EvaluateUnion(A, B) - Evaluate(B);
}

double SetFunction::SetLoss(const Set& B, const Set& A) const {
  return Evaluate(A) - EvaluateAfterSubtraction(A, B);
}

std::string SetFunction::Description() const { return "set function"; }

int SetFunction::NumberOfComponents() const { return 0; }

void SetFunction::LogDescription(spdlog::logger* logger) const {
  if (logger == nullptr) VELMOR_THROW(std::invalid_argument, "Invalid nullptr logger object.");
  logger->info("{}\n", Description());
}

void SetFunction::LogComponentNames(spdlog::logger* logger) const {
  if (logger == nullptr) VELMOR_THROW(std::invalid_argument, "Invalid nullptr logger object.");
}

bool SetFunction::IsMonotoneNondecreasing() const { return false; }

}  // namespace velmor
