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
// the absent entries. f is submodular and monotone nondecreasing. The
// evaluations and contexts are those of FacilityLocationCore over sparse rows:
// a gain costs time proportional to the number of stored entries of v, not to
// k (the contexts keep the per-landmark state in dense arrays of k values
// indexed by the stored landmark index).
//
// Errors are std::invalid_argument with location-prefixed messages. T is float
// or double; values, gains and losses are double.

#include <Eigen/SparseCore>
#include <cstdint>
#include <string>

#include "functions/FacilityLocationCore.h"
#include "functions/SetFunction.h"
#include "utils/error_messages.h"

namespace velmor {

template <typename T>
class SparseFacilityLocationFunction
    : public clone_inherit<SparseFacilityLocationFunction<T>,
                           FacilityLocationCore<SparseFacilityLocationFunction<T>,
                                                internal::SparseRows<T>, SubmodularFunction>> {
 public:
  // Compressed sparse matrix with 32-bit signed indices; rows are elements.
  using SparseMatrix = Eigen::SparseMatrix<T, Eigen::RowMajor, std::int32_t>;

  VELMOR_CONTEXT_NAMES(SparseFacilityLocationFunction);

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

  // Description(): "Sparse FL, |V|=<n>, #landmarks=<k>".
  static constexpr const char* kName = "Sparse FL";

  // The compressed matrix the function owns.
  const SparseMatrix& Matrix() const { return this->rows_.matrix; }

  // The base name of this class's source file (and header), for its messages.
  static const char* SourceFile() { return VELMOR_SOURCE_FILE; }
};

extern template class SparseFacilityLocationFunction<float>;
extern template class SparseFacilityLocationFunction<double>;

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SPARSEFACILITYLOCATIONFUNCTION_H_
