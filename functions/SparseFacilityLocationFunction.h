#ifndef VELMOR_FUNCTIONS_SPARSEFACILITYLOCATIONFUNCTION_H_
#define VELMOR_FUNCTIONS_SPARSEFACILITYLOCATIONFUNCTION_H_

// Facility location over a sparse similarity matrix, for data where each
// element is similar to few landmarks.
//
// The matrix is an n x k compressed row-major sparse matrix: element v owns
// the run of stored entries (landmark i, S(v, i)) of row v. Only stored
// entries take part; an entry that is not stored is absent:
//
//   f(A) = scale * sum over landmarks i of
//          max(0, max over a in A with a stored entry (a, i) of S(a, i)),
//
// which equals dense facility location on the matrix with zeros in place of
// the absent entries. f is submodular and monotone nondecreasing.
//
// A gain costs time proportional to the number of stored entries of v, not
// to k: the contexts keep the per-landmark state in dense arrays of k values
// indexed by the stored landmark index, and a gain streams v's index and value
// runs once.
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
#include "sets/Set.h"

namespace velmor {

template <typename T>
class SparseFacilityLocationFunction
    : public clone_inherit<SparseFacilityLocationFunction<T>, SubmodularFunction> {
 public:
  // Compressed sparse matrix with 32-bit signed indices; rows are elements.
  using SparseMatrix = Eigen::SparseMatrix<T, Eigen::RowMajor, std::int32_t>;

  // Growing state for A: m_i = max(0, largest stored S(a, i) over a in A) for
  // each landmark and the raw (unscaled) value, kept by increments.
  class SparseFacilityLocationFunctionGrowingContextExternal final
      : public SetFunction::SetFunctionGrowingContextExternal {
   public:
    explicit SparseFacilityLocationFunctionGrowingContextExternal(
        const SparseFacilityLocationFunction* function);
    std::unique_ptr<SetFunctionGrowingContextExternal> clone() const override;
    // scale * sum over v's stored entries (i, d) with d > m_i of (d - m_i),
    // in double in storage order; 0 for an element without entries. Throws
    // "Invalid element = %d.".
    double DisjointGain(int v) const override;
    // For each stored entry (i, d) of v in storage order with d > m_i: the raw
    // value grows by d - m_i and m_i = d. Returns whether any m_i changed.
    // Throws "Invalid element = %d.".
    bool AddNewElementToContext(int v) override;
    void ResetToEmptySet() override;
    double CurrentValue() const override;

    const std::vector<T>& Maxima() const { return maxima_; }

   private:
    const SparseFacilityLocationFunction* function_;
    std::vector<T> maxima_;
    double raw_value_ = 0.0;
  };

  // Shrinking state for A: per landmark the largest (m_i) and second largest
  // (s_i) stored S(a, i) over a in A, each 0 when there is none.
  class SparseFacilityLocationFunctionShrinkingContextExternal final
      : public SetFunction::SetFunctionShrinkingContextExternal {
   public:
    explicit SparseFacilityLocationFunctionShrinkingContextExternal(
        const SparseFacilityLocationFunction* function);
    // Strict top-two scan of the members' stored entries in A's order.
    void AssignContext(const Set& A) override;
    std::unique_ptr<SetFunctionShrinkingContextExternal> clone() const override;
    // scale * sum over v's stored entries with S(v, i) == m_i of (m_i - s_i).
    // Throws "Invalid element = %d.".
    double SubsetLoss(int v) const override;
    // For every stored entry of v equal to m_i or s_i, recomputes m_i and s_i
    // from the stored entries of the other members of A (one pass over their
    // entries). Throws "Invalid element = %d.".
    void RemoveExistingElementFromContext(const Set& A, int v) override;
    double CurrentValue() const override;

   private:
    void RecomputeRawValue();

    const SparseFacilityLocationFunction* function_;
    std::vector<T> maxima_;
    std::vector<T> second_maxima_;
    std::vector<unsigned char> affected_;  // per landmark, scratch for the removal
    double raw_value_ = 0.0;
  };

  using SparseFacilityLocationFunctionGrowingContext =
      SetFunction::DerivedSetFunctionGrowingContext<
          SparseFacilityLocationFunction, SparseFacilityLocationFunctionGrowingContextExternal,
          UnorderedHashSet>;
  using SparseFacilityLocationFunctionShrinkingContext =
      SetFunction::DerivedSetFunctionShrinkingContext<
          SparseFacilityLocationFunction, SparseFacilityLocationFunctionShrinkingContextExternal,
          UnorderedHashSet>;

  // Takes over `similarities` (n x k, row v = element v); the caller's matrix
  // is left empty, and the storage is compressed. Then:
  //   1. when MatrixValueChecksEnabled(), every stored value must be free of
  //      NaN and infinity; the first failure is thrown nested in
  //      "Invalid sparse facility location matrix.";
  //   2. unless skip_normalization, f(V) > 0 gives scale = 1 / f(V), and
  //      otherwise "Invalid matrix, f(V) = %g <= 0." is thrown.
  // On either failure the storage is given back to `similarities` first, so
  // the caller still holds its data. A matrix with n < 1 or k < 1 is refused
  // before it is taken over, with "Invalid argument, ground_set_size=%d." or
  // "Invalid argument, number_of_concepts=%d." (printing n).
  SparseFacilityLocationFunction(SparseMatrix&& similarities, bool skip_normalization);

  // scale * sum of v's stored values in double, not clamped at 0 (as the
  // dense function's single-element form). Throws "Invalid element = %d.".
  double Evaluate(int v) const override;
  double Evaluate(const Set& A) const override;
  double EvaluateUnion(int v, const Set& A) const override;
  double EvaluateUnion(const Set& A, const Set& B) const override;
  std::pair<double, double> EvaluateUnionAndSecondArg(int v, const Set& A) const override;
  double EvaluateAfterSubtraction(const Set& A, int v) const override;
  double EvaluateAfterSubtraction(const Set& A, const Set& B) const override;
  // scale * sum over v's stored entries of max(0, d - m_i), m over A; 0.0 when
  // A holds v.
  double Gain(int v, const Set& A) const override;
  // The same with m over A - v; 0.0 when A does not hold v.
  double Loss(int v, const Set& A) const override;

  int GroundSetSize() const override { return n_; }
  int NumberOfLandmarks() const override { return k_; }
  long MatrixRows() const override { return n_; }
  long MatrixColumns() const override { return k_; }
  long MatrixStoredEntries() const override { return static_cast<long>(matrix_.nonZeros()); }
  // "Sparse FL, |V|=<n>, #landmarks=<k>".
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
  // The compressed matrix the function owns.
  const SparseMatrix& Matrix() const { return matrix_; }

 private:
  // Element v's stored entries are [Begin(v), End(v)) of the index and value
  // arrays; unchecked.
  std::int32_t Begin(int v) const { return matrix_.outerIndexPtr()[v]; }
  std::int32_t End(int v) const { return matrix_.outerIndexPtr()[v + 1]; }
  // m_i = max(m_i, d) for v's stored entries.
  void RaiseMaxima(int v, T* maxima) const;
  double SumInDouble(const T* values) const;
  double PositiveExcessInDouble(int v, const T* maxima) const;

  SparseMatrix matrix_;  // compressed
  int n_;
  int k_;
  double scale_ = 1.0;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SPARSEFACILITYLOCATIONFUNCTION_H_
