#ifndef VELMOR_FUNCTIONS_SOFTSPARSEFACILITYLOCATIONFUNCTION_H_
#define VELMOR_FUNCTIONS_SOFTSPARSEFACILITYLOCATIONFUNCTION_H_

// Soft facility location over a sparse similarity matrix (n x k, compressed,
// row-major: row v holds element v's stored entries). Only stored entries
// take part:
//
//   F_i(A) = lambda * log(1 + sum over a in A with a stored entry (a, i) of
//                                exp(S(a, i) / lambda)),
//   f(A)   = scale * sum over i of F_i(A).
//
// A member without a stored entry for landmark i adds nothing to F_i. (In the
// dense soft function a zero entry adds exp(0) = 1 inside the logarithm; here
// an absent entry adds nothing, while an explicitly stored 0 does add 1.)
//
// The contexts keep the shifted, overflow-free per-landmark state of
// SoftFacilityLocationFunction in dense arrays of k values and touch only the
// landmarks where the element has stored entries, so a gain, an addition, a
// loss and a removal that needs no rebuild cost time proportional to the
// element's stored entries. The contexts keep their values by differences of
// the touched landmarks' F_i.
//
// Errors are std::invalid_argument with location-prefixed messages. T is float
// or double; values, gains and losses are double.

#include <Eigen/SparseCore>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "functions/SetFunction.h"
#include "functions/SoftFacilityLocationFunction.h"
#include "sets/Set.h"

namespace velmor {

template <typename T>
class SoftSparseFacilityLocationFunction
    : public clone_inherit<SoftSparseFacilityLocationFunction<T>,
                           SoftFacilityLocationFunctionAbstract> {
 public:
  // Compressed sparse matrix with 32-bit signed indices; rows are elements.
  using SparseMatrix = Eigen::SparseMatrix<T, Eigen::RowMajor, std::int32_t>;

  // Growing state for A: m_i, z_i per landmark (shifted form) and the raw
  // (unscaled) value.
  class SoftSparseFacilityLocationFunctionGrowingContextExternal final
      : public SetFunction::SetFunctionGrowingContextExternal {
   public:
    explicit SoftSparseFacilityLocationFunctionGrowingContextExternal(
        const SoftSparseFacilityLocationFunction* function);
    std::unique_ptr<SetFunctionGrowingContextExternal> clone() const override;
    // scale * (lambda * sum of log parts + sum of linear parts) over v's
    // stored entries in storage order; 0 for an element without entries.
    // Throws "Invalid element = %d.".
    double DisjointGain(int v) const override;
    // Absorbs each stored entry of v; returns whether any m_i changed.
    // Throws "Invalid element = %d.".
    bool AddNewElementToContext(int v) override;
    void ResetToEmptySet() override;
    double CurrentValue() const override;

   private:
    const SoftSparseFacilityLocationFunction* function_;
    std::vector<T> shifts_;     // m_i
    std::vector<double> sums_;  // z_i
    double raw_value_ = 0.0;
  };

  // Shrinking state for A: m_i, z_i, s_i and w_i per landmark (see
  // SoftFacilityLocationFunctionAbstract::SoftLossParts).
  class SoftSparseFacilityLocationFunctionShrinkingContextExternal final
      : public SetFunction::SetFunctionShrinkingContextExternal {
   public:
    explicit SoftSparseFacilityLocationFunctionShrinkingContextExternal(
        const SoftSparseFacilityLocationFunction* function);
    void AssignContext(const Set& A) override;
    std::unique_ptr<SetFunctionShrinkingContextExternal> clone() const override;
    // f(A) - f(A - v) for v in A, over v's stored entries. Throws
    // "Invalid element = %d.".
    double SubsetLoss(int v) const override;
    // Takes v's terms out of its landmarks; a landmark where v holds the
    // largest or second largest value is rebuilt from the stored entries of
    // the other members of A. Throws "Invalid element = %d.".
    void RemoveExistingElementFromContext(const Set& A, int v) override;
    double CurrentValue() const override;

   private:
    const SoftSparseFacilityLocationFunction* function_;
    std::vector<T> shifts_;                // m_i
    std::vector<T> runners_up_;            // s_i
    std::vector<double> sums_;             // z_i
    std::vector<double> runner_sums_;      // w_i
    std::vector<unsigned char> affected_;  // per landmark, scratch for the removal
    double raw_value_ = 0.0;
  };

  using SoftSparseFacilityLocationFunctionGrowingContext =
      SetFunction::DerivedSetFunctionGrowingContext<
          SoftSparseFacilityLocationFunction,
          SoftSparseFacilityLocationFunctionGrowingContextExternal, UnorderedHashSet>;
  using SoftSparseFacilityLocationFunctionShrinkingContext =
      SetFunction::DerivedSetFunctionShrinkingContext<
          SoftSparseFacilityLocationFunction,
          SoftSparseFacilityLocationFunctionShrinkingContextExternal, UnorderedHashSet>;

  // Checks n >= 1 and k >= 1 ("Invalid argument, ground_set_size=%d.",
  // "Invalid argument, number_of_concepts=%d.", printing n) and the softness
  // value (as CheckAndAssignSoftnessValue) before anything is taken; then
  // takes over `similarities` (left empty; storage compressed), checks the
  // stored values when MatrixValueChecksEnabled() (failure nested in
  // "Invalid sparse facility location matrix.") and, unless
  // skip_normalization, sets scale = 1 / f(V) or throws
  // "Invalid matrix, f(V) = %g <= 0.". On those two failures the storage is
  // given back to `similarities` first.
  SoftSparseFacilityLocationFunction(SparseMatrix&& similarities, double softness_value,
                                     bool skip_normalization);

  void CheckAndAssignSoftnessValue(double softness_value) override;

  // scale * lambda * sum over v's stored entries of (x + log1p(exp(-x))),
  // x = S(v, i) / lambda (taken in a form that does not overflow for x < 0).
  // Throws "Invalid element = %d.".
  double Evaluate(int v) const override;
  double Evaluate(const Set& A) const override;
  double EvaluateUnion(int v, const Set& A) const override;
  double EvaluateUnion(const Set& A, const Set& B) const override;
  std::pair<double, double> EvaluateUnionAndSecondArg(int v, const Set& A) const override;
  double EvaluateAfterSubtraction(const Set& A, int v) const override;
  double EvaluateAfterSubtraction(const Set& A, const Set& B) const override;
  double Gain(int v, const Set& A) const override;
  double Loss(int v, const Set& A) const override;

  int GroundSetSize() const override { return n_; }
  int NumberOfLandmarks() const override { return k_; }
  long MatrixRows() const override { return n_; }
  long MatrixColumns() const override { return k_; }
  long MatrixStoredEntries() const override { return static_cast<long>(matrix_.nonZeros()); }
  // "Soft Sparse FL, |V|=<n>, #landmarks=<k>".
  std::string Description() const override;
  bool IsMonotoneNondecreasing() const override { return true; }

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

  int NumberOfConcepts() const { return k_; }
  double NormalizationScale() const { return scale_; }
  const SparseMatrix& Matrix() const { return matrix_; }

 private:
  std::int32_t Begin(int v) const { return matrix_.outerIndexPtr()[v]; }
  std::int32_t End(int v) const { return matrix_.outerIndexPtr()[v + 1]; }
  // Shifted state (m, z) of the members that `for_each` visits.
  template <typename ForEach>
  void BuildState(ForEach&& for_each, std::vector<T>& shifts, std::vector<double>& sums) const;
  // lambda * (sum of log z_i) + sum of m_i over all landmarks, unscaled.
  double RawValue(const T* shifts, const double* sums) const;
  // Unscaled gain of v against a shifted state.
  double RawGain(int v, const T* shifts, const double* sums) const;

  SparseMatrix matrix_;  // compressed
  int n_;
  int k_;
  double scale_ = 1.0;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SOFTSPARSEFACILITYLOCATIONFUNCTION_H_
