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
// The evaluations and contexts are those of SumSumDispersionCore, an addition
// or removal visiting only the stored entries of row and column v instead of
// all n elements. Whole-set evaluation walks, for each member a in the set's
// order, the stored entries of row a in storage order, counting those whose
// column is a member.
//
// Messages of this family carry no final period for "Too large ground set
// size = %d" and "Invalid element = %d". T is float or double; values are
// double.

#include <Eigen/SparseCore>
#include <cstdint>
#include <string>

#include "functions/SetFunction.h"
#include "functions/SumSumDispersionCore.h"
#include "utils/error_messages.h"

namespace velmor {

template <typename T>
class SparseSumSumDispersionFunction
    : public clone_inherit<
          SparseSumSumDispersionFunction<T>,
          SumSumDispersionCore<SparseSumSumDispersionFunction<T>, internal::SparseRows<T>>> {
 public:
  // Compressed sparse matrix with 32-bit signed indices.
  using SparseMatrix = Eigen::SparseMatrix<T, Eigen::RowMajor, std::int32_t>;

  VELMOR_CONTEXT_NAMES(SparseSumSumDispersionFunction);

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

  // Description(): "Sparse SumSumDisp, |V|=<n>".
  static constexpr const char* kName = "Sparse SumSumDisp";

  const SparseMatrix& Matrix() const { return this->rows_.matrix; }

  // The base name of this class's source file (and header), for its messages.
  static const char* SourceFile() { return VELMOR_SOURCE_FILE; }
};

extern template class SparseSumSumDispersionFunction<float>;
extern template class SparseSumSumDispersionFunction<double>;

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SPARSESUMSUMDISPERSIONFUNCTION_H_
