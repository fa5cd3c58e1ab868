#ifndef VELMOR_FUNCTIONS_MODULARFUNCTION_H_
#define VELMOR_FUNCTIONS_MODULARFUNCTION_H_

// f(S) = offset + sum of w_e over e in S: every element carries a weight.
// At once submodular and supermodular; a building block of mixtures, a
// per-element bonus or penalty term, and an exact reference in checks of the
// other functions. Weights may be negative (the function is then not
// monotone); NaN and infinite weights are refused. T is float or double; the
// weights and the offset are stored in T, values are summed in double.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "functions/SetFunction.h"
#include "sets/Set.h"

namespace velmor {

template <typename T>
class ModularFunction
    : public clone_inherit<ModularFunction<T>, SubmodularFunction, SupermodularFunction> {
 public:
  // Growing state: the current value, starting at the offset.
  class ModularFunctionGrowingContextExternal final
      : public SetFunction::SetFunctionGrowingContextExternal {
   public:
    explicit ModularFunctionGrowingContextExternal(const ModularFunction* function);
    // Sets the value to Evaluate(A).
    void AssignContext(const Set& A) override;
    std::unique_ptr<SetFunctionGrowingContextExternal> clone() const override;
    // w_v. Throws "Invalid element = %d.".
    double DisjointGain(int v) const override;
    // Adds w_v to the value; returns whether w_v != 0. Throws "Invalid element = %d.".
    bool AddNewElementToContext(int v) override;
    void ResetToEmptySet() override;
    double CurrentValue() const override { return value_; }

   private:
    const ModularFunction* function_;
    double value_;
  };

  // Shrinking state: the current value.
  class ModularFunctionShrinkingContextExternal final
      : public SetFunction::SetFunctionShrinkingContextExternal {
   public:
    explicit ModularFunctionShrinkingContextExternal(const ModularFunction* function);
    void AssignContext(const Set& A) override;
    std::unique_ptr<SetFunctionShrinkingContextExternal> clone() const override;
    // w_v. Throws "Invalid element = %d.".
    double SubsetLoss(int v) const override;
    // Subtracts w_v from the value. Throws "Invalid element = %d.".
    void RemoveExistingElementFromContext(const Set& A, int v) override;
    double CurrentValue() const override { return value_; }

   private:
    const ModularFunction* function_;
    double value_;
  };

  using ModularFunctionGrowingContext = SetFunction::DerivedSetFunctionGrowingContext<
      ModularFunction, ModularFunctionGrowingContextExternal, UnorderedHashSet>;
  using ModularFunctionShrinkingContext = SetFunction::DerivedSetFunctionShrinkingContext<
      ModularFunction, ModularFunctionShrinkingContextExternal, UnorderedHashSet>;

  // Ground set of size weights.size(). Throws std::invalid_argument "Found
  // invalid modular element, has value that is IEEE FP NaN or Inf." when a
  // weight is NaN or infinite.
  explicit ModularFunction(std::vector<T> weights, T offset = T(0));

  // offset + w_v. Throws "Invalid element = %d.".
  double Evaluate(int v) const override;
  // offset + sum of the weights of A, in A's iteration order.
  double Evaluate(const Set& A) const override;
  double EvaluateUnion(int v, const Set& A) const override;
  double EvaluateUnion(const Set& A, const Set& B) const override;
  double EvaluateGroundSet() const override;
  std::pair<double, double> EvaluateUnionAndSecondArg(int v, const Set& A) const override;
  double EvaluateAfterSubtraction(const Set& A, int v) const override;
  double EvaluateAfterSubtraction(const Set& A, const Set& B) const override;
  // 0.0 when A holds v, else w_v.
  double Gain(int v, const Set& A) const override;
  // w_v when A holds v, else 0.0.
  double Loss(int v, const Set& A) const override;

  int GroundSetSize() const override { return n_; }
  int NumberOfLandmarks() const override { return 0; }
  long MatrixRows() const override { return 0; }
  long MatrixColumns() const override { return 0; }
  long MatrixStoredEntries() const override { return 0; }
  // "Modular function, |V|=<n>, offset=<offset>".
  std::string Description() const override;
  // True when no weight is negative.
  bool IsMonotoneNondecreasing() const override;

  std::unique_ptr<SetFunction::SetFunctionGrowingContext> MakeGrowingContext(
      const Set& A) const override;
  std::unique_ptr<SetFunction::SetFunctionShrinkingContext> MakeShrinkingContext(
      const Set& A) const override;
  std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal> MakeGrowingContextExternal(
      const Set& A) const override;
  std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal> MakeShrinkingContextExternal(
      const Set& A) const override;
  void AssignContext(SetFunction::SetFunctionGrowingContext& context, const Set& A) const override;
  void AssignContext(SetFunction::SetFunctionShrinkingContext& context,
                     const Set& A) const override;
  void AssignContext(SetFunction::SetFunctionGrowingContextExternal& context,
                     const Set& A) const override;
  void AssignContext(SetFunction::SetFunctionShrinkingContextExternal& context,
                     const Set& A) const override;

  const std::vector<T>& Weights() const { return weights_; }
  T Offset() const { return offset_; }

 private:
  std::vector<T> weights_;
  int n_;
  T offset_;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_MODULARFUNCTION_H_
