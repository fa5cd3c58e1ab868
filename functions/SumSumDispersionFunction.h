#ifndef VELMOR_FUNCTIONS_SUMSUMDISPERSIONFUNCTION_H_
#define VELMOR_FUNCTIONS_SUMSUMDISPERSIONFUNCTION_H_

// Sum-sum dispersion: the total pairwise similarity inside a set,
//
//   f(A) = scale * sum over a in A and b in A of M(a, b),
//
// for a square non-negative n x n matrix M (diagonal included). f is
// supermodular and, M being non-negative, monotone nondecreasing; it is
// typically one term of a mixture.
//
// A symmetric flag is set at construction when M equals its transpose exactly
// (entry by entry with ==, so a NaN entry makes M non-symmetric). With the flag
// the whole-set evaluation visits each unordered pair once (2 x M(a, b) for
// a < b, doubled in T), and the matrix is stored once; without it the
// transpose is stored as well, so that the row and the column of an element
// are both contiguous.
//
// Contexts keep an array g of n doubles: in a growing context g[u] =
// f(A + u) - f(A) (unscaled) for every u not in A, so a gain is one read; an
// addition costs O(n). In a shrinking context g[u] = f(A) - f(A - u) for the
// members u. Each context also keeps its own membership flags: an addition
// leaves g of members unchanged (a removal, g of non-members), and adding a
// member or removing a non-member changes nothing.
//
// Messages of this family carry no final period for "Too large ground set
// size = %d" and "Invalid element = %d". Errors are std::invalid_argument with
// location-prefixed messages. T is float or double; values are double.

#include <Eigen/Core>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "functions/SetFunction.h"
#include "sets/Set.h"

namespace velmor {

template <typename T>
class SumSumDispersionFunction
    : public clone_inherit<SumSumDispersionFunction<T>, SupermodularFunction> {
 public:
  // Dynamic-size column-major matrix of T (the form matrices are loaded in).
  using DenseMatrix = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;

  // Growing state for A: g[u] for u not in A, the members, the raw value.
  class SumSumDispersionFunctionGrowingContextExternal final
      : public SetFunction::SetFunctionGrowingContextExternal {
   public:
    // The empty set: g[u] = M(u, u).
    explicit SumSumDispersionFunctionGrowingContextExternal(
        const SumSumDispersionFunction* function);
    std::unique_ptr<SetFunctionGrowingContextExternal> clone() const override;
    // scale * g[v]; no matrix access. Throws "Invalid element = %d".
    double DisjointGain(int v) const override;
    // Raw value += g[v]; for every u not in A + v: g[u] += 2 M(v, u)
    // (symmetric) or M(v, u) + M(u, v). O(n). Returns false, changing
    // nothing, when v is already a member. Throws "Invalid element = %d".
    bool AddNewElementToContext(int v) override;
    void ResetToEmptySet() override;
    double CurrentValue() const override;

    const std::vector<double>& Gains() const { return gains_; }

   private:
    const SumSumDispersionFunction* function_;
    std::vector<double> gains_;
    std::vector<unsigned char> members_;
    double raw_value_ = 0.0;
  };

  // Shrinking state for A: g[u] = f(A) - f(A - u) for members u.
  class SumSumDispersionFunctionShrinkingContextExternal final
      : public SetFunction::SetFunctionShrinkingContextExternal {
   public:
    explicit SumSumDispersionFunctionShrinkingContextExternal(
        const SumSumDispersionFunction* function);
    // O(|A| n).
    void AssignContext(const Set& A) override;
    std::unique_ptr<SetFunctionShrinkingContextExternal> clone() const override;
    // scale * g[v]. Throws "Invalid element = %d".
    double SubsetLoss(int v) const override;
    // Raw value -= g[v]; for every member u of A - v: g[u] -= 2 M(v, u) or
    // M(v, u) + M(u, v). O(n). Nothing changes when v is not a member.
    // Throws "Invalid element = %d".
    void RemoveExistingElementFromContext(const Set& A, int v) override;
    double CurrentValue() const override;

    const std::vector<double>& Losses() const { return losses_; }

   private:
    const SumSumDispersionFunction* function_;
    std::vector<double> losses_;
    std::vector<unsigned char> members_;
    double raw_value_ = 0.0;
  };

  using SumSumDispersionFunctionGrowingContext = SetFunction::DerivedSetFunctionGrowingContext<
      SumSumDispersionFunction, SumSumDispersionFunctionGrowingContextExternal, UnorderedHashSet>;
  using SumSumDispersionFunctionShrinkingContext = SetFunction::DerivedSetFunctionShrinkingContext<
      SumSumDispersionFunction, SumSumDispersionFunctionShrinkingContextExternal, UnorderedHashSet>;

  // Copies M, computes the symmetric flag, scale 1.0. Throws, in this order:
  // "Matrix must be non-negative." when an entry is < 0; "Matrix is %ldx%ld
  // but must be square." (rows, columns); "Invalid argument,
  // ground_set_size=%d." for a 0 x 0 matrix.
  explicit SumSumDispersionFunction(const DenseMatrix& matrix);

  // 1. When MatrixValueChecksEnabled(): every entry, row by row, must be free
  //    of NaN and infinity; the first failure is thrown nested in
  //    "Invalid SumSumDisp matrix.".
  // 2. Unless `skip`, f(V) is computed with scale 1; f(V) <= 0 throws
  //    "Invalid possibly all zero or negative SumSumDisp matrix, f(V) = %g <= 0.";
  //    otherwise scale = 1 / f(V). With `skip`, scale = 1.
  void ComputeNormalizationConstant(bool skip);

  // scale * M(v, v). Throws "Invalid element = %d".
  double Evaluate(int v) const override;
  // Walks the ordered pairs of A in A's iteration order (outer and inner);
  // symmetric: a < b adds 2 M(a, b), a = b adds M(a, a); otherwise every
  // ordered pair adds M(a, b). O(|A|^2).
  double Evaluate(const Set& A) const override;
  // The pair walk over A's elements followed by v (when not in A).
  double EvaluateUnion(int v, const Set& A) const override;
  // (f(A + v), f(A)), with this operation's own argument checks.
  std::pair<double, double> EvaluateUnionAndSecondArg(int v, const Set& A) const override;
  // The pair walk over A's elements followed by those of B not in A.
  double EvaluateUnion(const Set& A, const Set& B) const override;
  double EvaluateAfterSubtraction(const Set& A, int v) const override;
  double EvaluateAfterSubtraction(const Set& A, const Set& B) const override;
  // scale * (M(v, v) + sum over a in A of 2 M(v, a) or M(v, a) + M(a, v));
  // 0.0 when A holds v. O(|A|).
  double Gain(int v, const Set& A) const override;
  // The same over A - v; 0.0 when A does not hold v.
  double Loss(int v, const Set& A) const override;

  int GroundSetSize() const override { return n_; }
  int NumberOfLandmarks() const override { return 0; }
  long MatrixRows() const override { return n_; }
  long MatrixColumns() const override { return n_; }
  long MatrixStoredEntries() const override { return static_cast<long>(n_) * n_; }
  // "SumSumDisp, |V|=<n>".
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
  // The kind of the function, "supermodular".
  static const char* KindName() { return "supermodular"; }

 private:
  using RowMajorMatrix = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

  // Row v of M and of its transpose (column v of M), contiguous; unchecked.
  const T* Row(int v) const { return matrix_.data() + static_cast<std::ptrdiff_t>(v) * n_; }
  const T* Column(int v) const {
    return (symmetric_ ? matrix_ : transpose_).data() + static_cast<std::ptrdiff_t>(v) * n_;
  }
  // Unscaled pair walk over `elements` (distinct), in their order.
  double RawValue(const std::vector<int>& elements) const;
  // Unscaled M(v, v) + sum over the members of `A` other than v of the pair
  // terms of (v, a).
  double RawPairSum(int v, const Set& A) const;

  RowMajorMatrix matrix_;
  RowMajorMatrix transpose_;  // empty when symmetric
  int n_;
  bool symmetric_ = false;
  double scale_ = 1.0;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SUMSUMDISPERSIONFUNCTION_H_
