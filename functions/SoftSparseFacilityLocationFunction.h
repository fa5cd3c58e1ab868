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
// The evaluations and contexts are those of SoftFacilityLocationCore over
// sparse rows: the contexts keep the shifted per-landmark state in dense
// arrays of k values and touch only the landmarks where the element has stored
// entries, so a gain, an addition, a loss and a removal that needs no rebuild
// cost time proportional to the element's stored entries.
//
// Errors are std::invalid_argument with location-prefixed messages. T is float
// or double; values, gains and losses are double.

#include <Eigen/SparseCore>
#include <cstdint>
#include <string>

#include "functions/SetFunction.h"
#include "functions/SoftFacilityLocationCore.h"
#include "functions/SoftFacilityLocationFunction.h"
#include "utils/error_messages.h"

namespace velmor {

template <typename T>
class SoftSparseFacilityLocationFunction
    : public clone_inherit<
          SoftSparseFacilityLocationFunction<T>,
          SoftFacilityLocationCore<SoftSparseFacilityLocationFunction<T>, internal::SparseRows<T>,
                                   SoftFacilityLocationFunctionAbstract>> {
 public:
  // Compressed sparse matrix with 32-bit signed indices; rows are elements.
  using SparseMatrix = Eigen::SparseMatrix<T, Eigen::RowMajor, std::int32_t>;

  VELMOR_CONTEXT_NAMES(SoftSparseFacilityLocationFunction);

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

  // Description(): "Soft Sparse FL, |V|=<n>, #landmarks=<k>".
  static constexpr const char* kName = "Soft Sparse FL";

  const SparseMatrix& Matrix() const { return this->rows_.matrix; }

  // The base name of this class's source file (and header), for its messages.
  static const char* SourceFile() { return VELMOR_SOURCE_FILE; }
};

extern template class SoftSparseFacilityLocationFunction<float>;
extern template class SoftSparseFacilityLocationFunction<double>;

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SOFTSPARSEFACILITYLOCATIONFUNCTION_H_
