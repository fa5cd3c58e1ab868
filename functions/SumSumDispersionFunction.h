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
// the whole-set evaluation counts each unordered pair as 2 x M(a, b), doubled
// in T, and the matrix is stored once, row by row; without it the columns are
// stored as well, so that the row and the column of an element are both
// contiguous. The evaluations and contexts are those of SumSumDispersionCore:
// a context gain is one read, an addition costs O(n).
//
// Messages of this family carry no final period for "Too large ground set
// size = %d" and "Invalid element = %d". Errors are std::invalid_argument with
// location-prefixed messages. T is float or double; values are double.

#include <Eigen/Core>
#include <string>

#include "functions/SetFunction.h"
#include "functions/SumSumDispersionCore.h"
#include "utils/error_messages.h"

namespace velmor {

template <typename T>
class SumSumDispersionFunction
    : public clone_inherit<
          SumSumDispersionFunction<T>,
          SumSumDispersionCore<SumSumDispersionFunction<T>, internal::DenseRows<T>>> {
 public:
  // Dynamic-size column-major matrix of T (the form matrices are loaded in).
  using DenseMatrix = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;

  VELMOR_CONTEXT_NAMES(SumSumDispersionFunction);

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

  // Description(): "SumSumDisp, |V|=<n>".
  static constexpr const char* kName = "SumSumDisp";

  // The base name of this class's source file (and header), for its messages.
  static const char* SourceFile() { return VELMOR_SOURCE_FILE; }
};

extern template class SumSumDispersionFunction<float>;
extern template class SumSumDispersionFunction<double>;

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SUMSUMDISPERSIONFUNCTION_H_
