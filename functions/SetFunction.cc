#include "functions/SetFunction.h"

#include <spdlog/spdlog.h>

#include <stdexcept>

#include "sets/RangeSet.h"

namespace velmor {

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
  std::unique_ptr<SetFunctionGrowingContext> scratch = clone();
  double gain = 0.0;
  for (int b : B) {
    gain += scratch->DisjointGain(b);
    scratch->AddNewElementToContext(b, false);
  }
  return gain;
}

bool SetFunction::SetFunctionGrowingContext::AddNewElementsToContext(const Set& B,
                                                                     bool also_insert) {
  bool changed = false;
  for (int b : B) changed = AddNewElementToContext(b, also_insert) || changed;
  return changed;
}

double SetFunction::SetFunctionShrinkingContext::SubsetSetLoss(const Set& B) const {
  std::unique_ptr<SetFunctionShrinkingContext> scratch = clone();
  double loss = 0.0;
  for (int b : B) {
    loss += scratch->SubsetLoss(b);
    scratch->RemoveExistingElementFromContext(b, true);
  }
  return loss;
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
