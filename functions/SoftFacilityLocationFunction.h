#ifndef VELMOR_FUNCTIONS_SOFTFACILITYLOCATIONFUNCTION_H_
#define VELMOR_FUNCTIONS_SOFTFACILITYLOCATIONFUNCTION_H_

// Soft facility location: dense facility location with the hard maximum per
// landmark replaced by a smooth maximum of softness lambda > 0.
//
// For a landmark i and a set A,
//
//   F_i(A) = lambda * log(1 + sum over a in A of exp(S(a, i) / lambda)),
//   f(A)   = scale * sum over i in [0, k) of F_i(A),
//
// so f(empty set) = 0. The 1 inside the logarithm acts as an always-present
// constant member of value 0. As lambda goes to 0, F_i(A) approaches
// max(0, max over a in A of S(a, i)) from above, by at most
// lambda * log(|A| + 1). f is submodular and monotone nondecreasing. The
// evaluations and contexts (in the shifted, overflow-free form) are those of
// SoftFacilityLocationCore over dense rows; each landmark of a gain costs one
// exp and one log.
//
// Storage is element-major as in FacilityLocationFunction (ElementMajorStorage:
// owned, or shared such as a mapped file, with the same copy rules).
//
// Errors are std::invalid_argument with location-prefixed messages. T is float
// or double; values, gains and losses are double.

#include <Eigen/Core>
#include <cstddef>
#include <memory>
#include <string>

#include "functions/SetFunction.h"
#include "functions/SoftFacilityLocationCore.h"
#include "matrixvector/ElementMajorStorage.h"
#include "utils/error_messages.h"

namespace velmor {

// The soft facility-location kind, dense or sparse: submodular, with a
// softness value lambda and its inverse 1 / lambda (used in every exponent).
class SoftFacilityLocationFunctionAbstract
    : public clone_inherit<abstract_method<SoftFacilityLocationFunctionAbstract>,
                           SubmodularFunction> {
 public:
  // Stores lambda and 1 / lambda, refusing a lambda that is not > 0. A failed
  // call changes nothing.
  virtual void CheckAndAssignSoftnessValue(double softness_value) = 0;

  double SoftnessValue() const { return softness_; }
  double InverseSoftnessValue() const { return inverse_softness_; }

 protected:
  SoftFacilityLocationFunctionAbstract() = default;
  SoftFacilityLocationFunctionAbstract(const SoftFacilityLocationFunctionAbstract&) = default;

  double softness_ = 1.0;
  double inverse_softness_ = 1.0;
};

template <typename T>
class SoftFacilityLocationFunction
    : public clone_inherit<
          SoftFacilityLocationFunction<T>,
          SoftFacilityLocationCore<SoftFacilityLocationFunction<T>, internal::DenseRows<T>,
                                   SoftFacilityLocationFunctionAbstract>> {
 public:
  // Dynamic-size column-major matrix of T.
  using DenseMatrix = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;

  // Tag choosing the constructors that take the element-major k x n matrix.
  struct ElementMajor {};

  VELMOR_CONTEXT_NAMES(SoftFacilityLocationFunction);

  // A zero-filled n x k matrix, scale 1.0, softness lambda. Throws
  // "Invalid argument, ground_set_size=%d." for n < 1,
  // "Invalid argument, number_of_concepts=%d." (printing n) for k < 1, then
  // as CheckAndAssignSoftnessValue; std::bad_alloc when the matrix cannot be
  // allocated.
  SoftFacilityLocationFunction(int ground_set_size, int number_of_concepts, double softness_value);

  // From an n x k matrix whose row v holds element v's similarities; copied
  // into element-major order. Same errors.
  SoftFacilityLocationFunction(const DenseMatrix& similarities, double softness_value);

  // From the k x n element-major matrix itself (column v = element v), moved
  // in without a copy. Same errors (n = columns, k = rows).
  SoftFacilityLocationFunction(ElementMajor, DenseMatrix&& landmarks_by_elements,
                               double softness_value);

  // From element-major storage held elsewhere (n * k values, element v's at
  // offset v * k), read where it is with no copy, as FacilityLocationFunction's
  // constructor of the same form. Throws as the other constructors, then
  // "Invalid argument, no similarity storage." for a null pointer.
  SoftFacilityLocationFunction(ElementMajor, std::shared_ptr<T> landmarks_by_elements,
                               std::ptrdiff_t ground_set_size, std::ptrdiff_t number_of_concepts,
                               double softness_value);

  // 1. When MatrixValueChecksEnabled(): every S(v, i), element by element and
  //    landmark by landmark, must be free of NaN and infinity; the first
  //    failure is thrown nested in "Invalid soft facility location matrix.".
  // 2. Unless `skip`, f(V) is computed with scale 1; f(V) <= 0 throws
  //    "Invalid matrix, f(V) = %g <= 0."; otherwise scale = 1 / f(V). With
  //    `skip`, scale = 1. A failed call leaves the scale as it was.
  void ComputeNormalizationConstant(bool skip);

  // Description(): "Soft Dense FL, |V|=<n>, #landmarks=<k>".
  static constexpr const char* kName = "Soft Dense FL";

  // S(v, i), unchecked.
  T Similarity(int v, int i) const { return Row(v)[i]; }
  // Element v's k similarities, contiguous; unchecked.
  const T* Row(int v) const { return this->rows_.storage.Row(v); }
  // Writable row v, with FacilityLocationFunction's rule for shared storage.
  T* MutableRow(int v) { return this->rows_.storage.MutableRow(v); }
  // The k x n element-major matrix, as a view of the storage.
  Eigen::Map<const DenseMatrix> ElementMajorMatrix() const { return this->rows_.storage.Matrix(); }
  // Whether the storage is shared rather than the function's own matrix.
  bool HasSharedStorage() const { return this->rows_.storage.IsShared(); }

  // The base name of this class's source file (and header), for its messages.
  static const char* SourceFile() { return VELMOR_SOURCE_FILE; }

 private:
  // Checks the shape (n = elements, k = landmarks) and the softness at the
  // calling constructor's site, then takes the rows `make_rows` returns.
  template <typename MakeRows>
  void Install(const internal::MessageSite& site, long n, long k, double softness_value,
               MakeRows&& make_rows);
};

extern template class SoftFacilityLocationFunction<float>;
extern template class SoftFacilityLocationFunction<double>;

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SOFTFACILITYLOCATIONFUNCTION_H_
