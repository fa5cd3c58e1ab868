#ifndef VELMOR_FUNCTIONS_SPARSESUMSUMDISPERSIONFUNCTION_H_
#define VELMOR_FUNCTIONS_SPARSESUMSUMDISPERSIONFUNCTION_H_

// Sum-sum dispersion over a sparse square matrix: the same function as
// SumSumDispersionFunction,
//
//   f(A) = scale * sum over a in A and b in A of M(a, b),
//
// where M is an n x n compressed row-major sparse matrix and entries that are
// not stored are 0. f is supermodular and monotone nondecreasing.
//
// Construction takes the matrix over by move and checks, before taking it (so
// that a refused matrix stays with the caller), in this order: every stored
// value is >= 0 ("Matrix must be non-negative."), the matrix is square
// ("Matrix is %ldx%ld but must be square."), and n >= 1 ("Invalid argument,
// ground_set_size=%d."). NaN and infinity are refused by
// ComputeNormalizationConstant when the library-wide matrix checks are on.
//
// The function keeps a symmetric flag: it is set when M(a, b) == M(b, a) for
// all a, b, comparing values with absent entries read as 0 (so an explicitly
// stored 0 facing an absent entry is symmetric; a NaN never is). With the flag
// a pair a < b counts 2 M(a, b) (doubled in T) and only M is stored; without
// it the transpose is stored too, so that an addition reads the stored
// entries of row v and of column v as two contiguous runs.
//
// Contexts follow SumSumDispersionFunction (an array g of n doubles and the
// context's own membership flags), but an addition or removal visits only the
// stored entries of row and column v instead of all n elements. Whole-set
// evaluation walks, for each member a in the set's order, the stored entries
// of row a in storage order, counting those whose column is a member.
//
// Messages of this family carry no final period for "Too large ground set
// size = %d" and "Invalid element = %d". T is float or double; values are
// double.

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
class SparseSumSumDispersionFunction
    : public clone_inherit<SparseSumSumDispersionFunction<T>, SupermodularFunction> {
 public:
  // Compressed sparse matrix with 32-bit signed indices.
  using SparseMatrix = Eigen::SparseMatrix<T, Eigen::RowMajor, std::int32_t>;

  // Growing state for A: g[u] = f(A + u) - f(A) (unscaled) for u not in A,
  // the members, the raw value.
  class SparseSumSumDispersionFunctionGrowingContextExternal final
      : public SetFunction::SetFunctionGrowingContextExternal {
   public:
    explicit SparseSumSumDispersionFunctionGrowingContextExternal(
        const SparseSumSumDispersionFunction* function);
    std::unique_ptr<SetFunctionGrowingContextExternal> clone() const override;
    // scale * g[v]. Throws "Invalid element = %d".
    double DisjointGain(int v) const override;
    // Raw value += g[v]; g[u] of non-members u grows by the stored entries of
    // row v (doubled when symmetric) and of column v. Returns false, changing
    // nothing, when v is already a member. Throws "Invalid element = %d".
    bool AddNewElementToContext(int v) override;
    void ResetToEmptySet() override;
    double CurrentValue() const override;

   private:
    const SparseSumSumDispersionFunction* function_;
    std::vector<double> gains_;
    std::vector<unsigned char> members_;
    double raw_value_ = 0.0;
  };

  // Shrinking state for A: g[u] = f(A) - f(A - u) for members u.
  class SparseSumSumDispersionFunctionShrinkingContextExternal final
      : public SetFunction::SetFunctionShrinkingContextExternal {
   public:
    explicit SparseSumSumDispersionFunctionShrinkingContextExternal(
        const SparseSumSumDispersionFunction* function);
    void AssignContext(const Set& A) override;
    std::unique_ptr<SetFunctionShrinkingContextExternal> clone() const override;
    // scale * g[v]. Throws "Invalid element = %d".
    double SubsetLoss(int v) const override;
    // Raw value -= g[v]; g of the remaining members shrinks by the stored
    // entries of row and column v. Nothing changes when v is not a member.
    // Throws "Invalid element = %d".
    void RemoveExistingElementFromContext(const Set& A, int v) override;
    double CurrentValue() const override;

   private:
    const SparseSumSumDispersionFunction* function_;
    std::vector<double> losses_;
    std::vector<unsigned char> members_;
    double raw_value_ = 0.0;
  };

  using SparseSumSumDispersionFunctionGrowingContext =
      SetFunction::DerivedSetFunctionGrowingContext<
          SparseSumSumDispersionFunction, SparseSumSumDispersionFunctionGrowingContextExternal,
          UnorderedHashSet>;
  using SparseSumSumDispersionFunctionShrinkingContext =
      SetFunction::DerivedSetFunctionShrinkingContext<
          SparseSumSumDispersionFunction, SparseSumSumDispersionFunctionShrinkingContextExternal,
          UnorderedHashSet>;

  // Checks as described above, then takes over `matrix` (left empty; storage
  // compressed), computes the diagonal and the symmetric flag; scale 1.0.
  explicit SparseSumSumDispersionFunction(SparseMatrix&& matrix);

  // 1. When MatrixValueChecksEnabled(): every stored value, row by row, must
  //    be free of NaN and infinity; the first failure is thrown nested in
  //    "Invalid Sparse SumSumDisp matrix.".
  // 2. Unless `skip`, f(V) <= 0 throws "Invalid possibly all zero or negative
  //    Sparse SumSumDisp matrix, f(V) = %g <= 0."; otherwise scale = 1 / f(V).
  //    With `skip`, scale = 1.
  void ComputeNormalizationConstant(bool skip);

  // scale * M(v, v). Throws "Invalid element = %d".
  double Evaluate(int v) const override;
  double Evaluate(const Set& A) const override;
  double EvaluateUnion(int v, const Set& A) const override;
  // (f(A + v), f(A)), with this operation's own argument checks.
  std::pair<double, double> EvaluateUnionAndSecondArg(int v, const Set& A) const override;
  double EvaluateUnion(const Set& A, const Set& B) const override;
  double EvaluateAfterSubtraction(const Set& A, int v) const override;
  double EvaluateAfterSubtraction(const Set& A, const Set& B) const override;
  // scale * (M(v, v) + the stored entries of row and column v whose other end
  // is in A); 0.0 when A holds v.
  double Gain(int v, const Set& A) const override;
  // The same over A - v; 0.0 when A does not hold v.
  double Loss(int v, const Set& A) const override;

  int GroundSetSize() const override { return n_; }
  int NumberOfLandmarks() const override { return 0; }
  long MatrixRows() const override { return n_; }
  long MatrixColumns() const override { return n_; }
  long MatrixStoredEntries() const override { return static_cast<long>(matrix_.nonZeros()); }
  // "Sparse SumSumDisp, |V|=<n>".
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

  bool IsSymmetric() const { return symmetric_; }
  double NormalizationScale() const { return scale_; }
  const SparseMatrix& Matrix() const { return matrix_; }
  // The kind of the function, "supermodular".
  static const char* KindName() { return "supermodular"; }

 private:
  // Unscaled pair sum over the members flagged in `member`, visiting the
  // rows of `elements` in order.
  double RawValue(const std::vector<int>& elements, const std::vector<unsigned char>& member) const;
  // Unscaled M(v, v) + the pair terms of v with the members of A other than v.
  double RawPairSum(int v, const Set& A) const;
  // Adds `sign` times the pair terms of v to g[u] for the u whose flag in
  // `member` equals `target`.
  void UpdatePairTerms(int v, double sign, const unsigned char* member, unsigned char target,
                       double* g) const;

  SparseMatrix matrix_;     // compressed
  SparseMatrix transpose_;  // compressed; empty when symmetric
  std::vector<T> diagonal_;
  int n_;
  bool symmetric_ = false;
  double scale_ = 1.0;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SPARSESUMSUMDISPERSIONFUNCTION_H_
