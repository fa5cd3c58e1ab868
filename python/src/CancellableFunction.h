#ifndef VELMOR_PYTHON_CANCELLABLEFUNCTION_H_
#define VELMOR_PYTHON_CANCELLABLEFUNCTION_H_

// A submodular function that answers exactly as the function it refers to and
// lets another thread stop a maximization running over it: every growing
// context it makes reads a shared stop flag before each gain (or batch of
// gains) and throws RunCancelled once the flag is set, and counts the gains
// asked and the elements added, so that the other thread can show progress.
//
// The wrapped function is not owned: it must outlive this object, its clones
// and their contexts. Clones share the flag and the counter. Whole-set
// evaluations and shrinking contexts are forwarded unchanged.

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>

#include "functions/SetFunction.h"

namespace velmor::python {

// Thrown out of a context of a CancellableFunction whose stop flag is set.
class RunCancelled : public std::runtime_error {
 public:
  RunCancelled() : std::runtime_error("The run was cancelled.") {}
};

// What the thread that watches a run shares with it.
struct RunSignals {
  // Set by the watcher; the run throws RunCancelled at its next gain.
  std::atomic<bool> stop{false};
  // Elements added to the run's growing contexts so far (all threads).
  std::atomic<long> added{0};
  // Marginal gains asked of the run's growing contexts so far.
  std::atomic<long> evaluations{0};
};

class CancellableFunction : public clone_inherit<CancellableFunction, SubmodularFunction> {
 public:
  // `signals` must outlive every context made by this object.
  CancellableFunction(const SubmodularFunction& function, std::shared_ptr<RunSignals> signals);

  double Evaluate(int v) const override { return function_->Evaluate(v); }
  double Evaluate(const Set& A) const override { return function_->Evaluate(A); }
  double EvaluateUnion(int v, const Set& A) const override {
    return function_->EvaluateUnion(v, A);
  }
  double EvaluateUnion(const Set& A, const Set& B) const override {
    return function_->EvaluateUnion(A, B);
  }
  double EvaluateGroundSet() const override { return function_->EvaluateGroundSet(); }
  std::pair<double, double> EvaluateUnionAndSecondArg(int v, const Set& A) const override {
    return function_->EvaluateUnionAndSecondArg(v, A);
  }
  double EvaluateAfterSubtraction(const Set& A, int v) const override {
    return function_->EvaluateAfterSubtraction(A, v);
  }
  double EvaluateAfterSubtraction(const Set& A, const Set& B) const override {
    return function_->EvaluateAfterSubtraction(A, B);
  }
  double Gain(int v, const Set& A) const override { return function_->Gain(v, A); }
  double Loss(int v, const Set& A) const override { return function_->Loss(v, A); }
  double GainOrLoss(int v, const Set& A) const override { return function_->GainOrLoss(v, A); }
  double SetGain(const Set& A, const Set& B) const override { return function_->SetGain(A, B); }
  double SetLoss(const Set& B, const Set& A) const override { return function_->SetLoss(B, A); }
  int GroundSetSize() const override { return function_->GroundSetSize(); }
  int NumberOfLandmarks() const override { return function_->NumberOfLandmarks(); }
  long MatrixRows() const override { return function_->MatrixRows(); }
  long MatrixColumns() const override { return function_->MatrixColumns(); }
  long MatrixStoredEntries() const override { return function_->MatrixStoredEntries(); }
  std::string Description() const override { return function_->Description(); }
  int NumberOfComponents() const override { return function_->NumberOfComponents(); }
  void LogDescription(spdlog::logger* logger) const override { function_->LogDescription(logger); }
  void LogComponentNames(spdlog::logger* logger) const override {
    function_->LogComponentNames(logger);
  }
  bool IsMonotoneNondecreasing() const override { return function_->IsMonotoneNondecreasing(); }
  // The wrapper's gains are the function's: the lazy greedy may trust them.
  bool ComputedGainsNeverRise() const override { return function_->ComputedGainsNeverRise(); }

  // A context of the wrapped function, watched as described above.
  std::unique_ptr<SetFunctionGrowingContext> MakeGrowingContext(const Set& A) const override;
  std::unique_ptr<SetFunctionShrinkingContext> MakeShrinkingContext(const Set& A) const override {
    return function_->MakeShrinkingContext(A);
  }
  std::unique_ptr<SetFunctionGrowingContextExternal> MakeGrowingContextExternal(
      const Set& A) const override {
    return function_->MakeGrowingContextExternal(A);
  }
  std::unique_ptr<SetFunctionShrinkingContextExternal> MakeShrinkingContextExternal(
      const Set& A) const override {
    return function_->MakeShrinkingContextExternal(A);
  }
  void AssignContext(SetFunctionGrowingContext& context, const Set& A) const override {
    context.AssignContext(A);
  }
  void AssignContext(SetFunctionShrinkingContext& context, const Set& A) const override {
    function_->AssignContext(context, A);
  }
  void AssignContext(SetFunctionGrowingContextExternal& context, const Set& A) const override {
    function_->AssignContext(context, A);
  }
  void AssignContext(SetFunctionShrinkingContextExternal& context, const Set& A) const override {
    function_->AssignContext(context, A);
  }

 private:
  const SubmodularFunction* function_;
  std::shared_ptr<RunSignals> signals_;
};

}  // namespace velmor::python

#endif  // VELMOR_PYTHON_CANCELLABLEFUNCTION_H_
