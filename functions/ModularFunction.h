#ifndef VELMOR_FUNCTIONS_MODULARFUNCTION_H_
#define VELMOR_FUNCTIONS_MODULARFUNCTION_H_

// f(S) = offset + sum of w_e over e in S: every element carries a weight.
// At once submodular and supermodular; a building block of mixtures, a
// per-element bonus or penalty term, and an exact reference in checks of the
// other functions. Weights may be negative (the function is then not
// monotone); NaN and infinite weights are refused. T is float or double; the
// weights and the offset are stored in T, values are summed in double from
// the offset, in the set's iteration order.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "functions/SetFunction.h"
#include "functions/SetFunctionSkeleton.h"
#include "sets/Set.h"
#include "utils/error_messages.h"

namespace velmor {

template <typename T>
class ModularFunction
    : public clone_inherit<
          ModularFunction<T>,
          SetFunctionSkeleton<ModularFunction<T>, SubmodularFunction, SupermodularFunction>> {
  using Skeleton = SetFunctionSkeleton<ModularFunction, SubmodularFunction, SupermodularFunction>;

 public:
  // Growing state: the current value, starting at the offset.
  class GrowingContextExternal final
      : public internal::GrowingContextExternalSkeleton<GrowingContextExternal, ModularFunction> {
    using Base = internal::GrowingContextExternalSkeleton<GrowingContextExternal, ModularFunction>;

   public:
    explicit GrowingContextExternal(const ModularFunction* function)
        : Base(function), value_(function->offset_) {}
    // Sets the value to Evaluate(A).
    void AssignContext(const Set& A) override { value_ = this->function_->Evaluate(A); }
    // w_v.
    double DisjointGainOf(int v) const { return this->function_->weights_[v]; }
    // Adds w_v to the value; returns whether w_v != 0.
    bool AddElement(int v) {
      value_ += this->function_->weights_[v];
      return this->function_->weights_[v] != T(0);
    }
    void ResetToEmptySet() override { value_ = this->function_->offset_; }
    double CurrentValue() const override { return value_; }

   private:
    double value_;
  };

  // Shrinking state: the current value.
  class ShrinkingContextExternal final
      : public internal::ShrinkingContextExternalSkeleton<ShrinkingContextExternal,
                                                          ModularFunction> {
    using Base =
        internal::ShrinkingContextExternalSkeleton<ShrinkingContextExternal, ModularFunction>;

   public:
    explicit ShrinkingContextExternal(const ModularFunction* function)
        : Base(function), value_(function->offset_) {}
    void AssignContext(const Set& A) override { value_ = this->function_->Evaluate(A); }
    // w_v.
    double SubsetLossOf(int v) const { return this->function_->weights_[v]; }
    // Subtracts w_v from the value.
    void RemoveElement(const Set& /*A*/, int v) { value_ -= this->function_->weights_[v]; }
    double CurrentValue() const override { return value_; }

   private:
    double value_;
  };

  VELMOR_CONTEXT_NAMES(ModularFunction);

  // Ground set of size weights.size(). Throws std::invalid_argument "Found
  // invalid modular element, has value that is IEEE FP NaN or Inf." when a
  // weight is NaN or infinite.
  explicit ModularFunction(std::vector<T> weights, T offset = T(0));

  // offset + sum of the weights.
  double EvaluateGroundSet() const override;

  int GroundSetSize() const override { return n_; }
  int NumberOfLandmarks() const override { return 0; }
  long MatrixRows() const override { return 0; }
  long MatrixColumns() const override { return 0; }
  long MatrixStoredEntries() const override { return 0; }
  // "Modular function, |V|=<n>, offset=<offset>".
  std::string Description() const override;
  // True when no weight is negative.
  bool IsMonotoneNondecreasing() const override;

  const std::vector<T>& Weights() const { return weights_; }
  T Offset() const { return offset_; }

  // The base name of this class's source file (and header), for its messages.
  static const char* SourceFile() { return VELMOR_SOURCE_FILE; }

 private:
  friend Skeleton;

  // f({v}) = w_v + offset.
  double ElementValue(int v) const {
    return static_cast<double>(weights_[v]) + static_cast<double>(offset_);
  }
  // The member state is the running value.
  template <typename ForEach>
  double StateOf(ForEach&& for_each) const {
    double value = offset_;
    for_each([this, &value](int a) { value += weights_[a]; });
    return value;
  }
  double ValueOf(double value) const { return value; }
  void Absorb(int v, double& value) const { value += weights_[v]; }
  // O(1): w_v for v not in A; w_v for v in A, else 0.0.
  double GainOf(int v, const Set& /*A*/) const { return weights_[v]; }
  double LossOf(int v, const Set& A) const {
    return A.contains(v) ? static_cast<double>(weights_[v]) : 0.0;
  }

  std::vector<T> weights_;
  int n_;
  T offset_;
};

extern template class ModularFunction<float>;
extern template class ModularFunction<double>;

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_MODULARFUNCTION_H_
