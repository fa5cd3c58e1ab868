#include "CancellableFunction.h"

#include <utility>

namespace velmor::python {
namespace {

// Forwards to a context of the wrapped function, checking the stop flag first.
class WatchedGrowingContext final : public SetFunction::SetFunctionGrowingContext {
 public:
  WatchedGrowingContext(std::unique_ptr<SetFunctionGrowingContext> inner, RunSignals* signals)
      : inner_(std::move(inner)), signals_(signals) {}

  void AssignContext(const Set& A) override { inner_->AssignContext(A); }
  std::unique_ptr<SetFunctionGrowingContext> clone() const override {
    return std::make_unique<WatchedGrowingContext>(inner_->clone(), signals_);
  }
  double DisjointGain(int v) const override {
    StopWhenAsked();
    signals_->evaluations.fetch_add(1, std::memory_order_relaxed);
    return inner_->DisjointGain(v);
  }
  void DisjointGains(const int* elements, int count, double* gains) const override {
    StopWhenAsked();
    signals_->evaluations.fetch_add(count, std::memory_order_relaxed);
    inner_->DisjointGains(elements, count, gains);
  }
  bool AddNewElementToContext(int v, bool also_insert) override {
    StopWhenAsked();
    const bool changed = inner_->AddNewElementToContext(v, also_insert);
    if (also_insert) signals_->added.fetch_add(1, std::memory_order_relaxed);
    return changed;
  }
  double DisjointSetGain(const Set& B) const override { return inner_->DisjointSetGain(B); }
  const UnorderedHashSet& CurrentSet() const override { return inner_->CurrentSet(); }
  int NumberOfElements() const override { return inner_->NumberOfElements(); }
  double CurrentValue() const override { return inner_->CurrentValue(); }

 private:
  void StopWhenAsked() const {
    if (signals_->stop.load(std::memory_order_relaxed)) throw RunCancelled();
  }

  std::unique_ptr<SetFunctionGrowingContext> inner_;
  RunSignals* signals_;
};

}  // namespace

CancellableFunction::CancellableFunction(const SubmodularFunction& function,
                                         std::shared_ptr<RunSignals> signals)
    : function_(&function), signals_(std::move(signals)) {}

std::unique_ptr<SetFunction::SetFunctionGrowingContext> CancellableFunction::MakeGrowingContext(
    const Set& A) const {
  return std::make_unique<WatchedGrowingContext>(function_->MakeGrowingContext(A), signals_.get());
}

}  // namespace velmor::python
