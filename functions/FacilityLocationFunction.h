#ifndef VELMOR_FUNCTIONS_FACILITYLOCATIONFUNCTION_H_
#define VELMOR_FUNCTIONS_FACILITYLOCATIONFUNCTION_H_

// Dense facility location, the main summarization objective.
//
// Each element v of the ground set V = [0, n) has a similarity S(v, i) to each
// of k landmarks (concepts) i. A set A covers landmark i as well as its best
// member does:
//
//   f(A) = scale * sum over i in [0, k) of max(0, max over a in A of S(a, i)),
//   f(empty set) = 0.
//
// f is submodular and monotone nondecreasing; after
// ComputeNormalizationConstant(false), f(V) = 1. The evaluations and contexts
// are those of FacilityLocationCore over dense rows.
//
// Storage is element-major (ElementMajorStorage): the k values of element v
// are contiguous, at offset v * k, i.e. a k x n column-major matrix (column v
// is element v's row). The function either owns it or shares values held
// elsewhere (for instance a file mapped into memory). Copies (and clones)
// copy owned values and share shared ones; the mutating accessors (MutableRow,
// MutableElementMajorMatrix) first give the function its own copy of shared
// values when anyone else holds them too, so a copy never sees another's
// writes.
//
// The growing context's gain sums max(0, S(v, i) - m_i) in T in four lanes:
// lane j takes the landmarks i = j (mod 4) of the full blocks of four; of the
// last k mod 4 landmarks, when two or three remain the first two go to lanes 0
// and 1, and a single remaining one goes to lane 2; the result is (lane2 +
// (lane0 + lane1)) + lane3, then times scale in double. The other summation
// orders are FacilityLocationCore's.
//
// Errors are std::invalid_argument with location-prefixed messages (see each
// operation). T is float or double.

#include <Eigen/Core>
#include <cstddef>
#include <memory>
#include <string>

#include "functions/FacilityLocationCore.h"
#include "functions/SetFunction.h"
#include "matrixvector/ElementMajorStorage.h"
#include "utils/error_messages.h"

namespace velmor {

// The facility-location kind: submodular, with a normalization step.
class FacilityLocationFunctionAbstract
    : public clone_inherit<abstract_method<FacilityLocationFunctionAbstract>, SubmodularFunction> {
 public:
  // Checks the matrix (when the library-wide matrix checks are on) and, unless
  // `skip`, scales f so that f(V) = 1.
  virtual void ComputeNormalizationConstant(bool skip) = 0;
};

template <typename T>
class FacilityLocationFunction
    : public clone_inherit<FacilityLocationFunction<T>,
                           FacilityLocationCore<FacilityLocationFunction<T>, internal::DenseRows<T>,
                                                FacilityLocationFunctionAbstract>> {
 public:
  // Dynamic-size column-major matrix of T.
  using DenseMatrix = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;

  // Tag choosing the constructors that take the element-major k x n matrix.
  struct ElementMajor {};

  VELMOR_CONTEXT_NAMES(FacilityLocationFunction);

  // A zero-filled n x k similarity matrix, scale 1.0; fill it through
  // MutableRow or MutableElementMajorMatrix, then normalize. Throws
  // "Invalid argument, ground_set_size=%d." for n < 1 and
  // "Invalid argument, number_of_concepts=%d." (printing n) for k < 1;
  // std::bad_alloc when the matrix cannot be allocated.
  FacilityLocationFunction(int ground_set_size, int number_of_concepts);

  // From an n x k matrix whose row v holds element v's similarities (the
  // layout of a loaded file); copied into element-major order. Same errors.
  explicit FacilityLocationFunction(const DenseMatrix& similarities);

  // From a k x n matrix whose column v holds element v's similarities, i.e.
  // the element-major layout itself (the transpose of the n x k form). The
  // matrix is moved in, with no copy. Same errors (n = columns, k = rows).
  FacilityLocationFunction(ElementMajor, DenseMatrix&& landmarks_by_elements);

  // From element-major storage held elsewhere: `landmarks_by_elements` points
  // at n * k values, element v's k similarities at offset v * k. The function
  // keeps its share of the pointer and reads the values where they are, with
  // no copy. Throws "Invalid argument, ground_set_size=%ld." for n < 1 or
  // above INT_MAX, "Invalid argument, number_of_concepts=%ld." (printing n)
  // for such k, and "Invalid argument, no similarity storage." for a null
  // pointer.
  FacilityLocationFunction(ElementMajor, std::shared_ptr<T> landmarks_by_elements,
                           std::ptrdiff_t ground_set_size, std::ptrdiff_t number_of_concepts);

  // 1. When MatrixValueChecksEnabled(): every S(v, i), element by element
  //    and landmark by landmark, must be free of NaN and infinity (checked by
  //    CheckValueThrowWithInfo); the first failure is thrown nested in
  //    "Invalid facility location matrix.".
  // 2. Unless `skip`, f(V) is computed with scale 1; f(V) <= 0 throws
  //    "Invalid possibly all zero or negative matrix, f(V) = %g <= 0.";
  //    otherwise scale = 1 / f(V). With `skip`, scale = 1.
  // A failed call leaves the scale as it was.
  void ComputeNormalizationConstant(bool skip) override;
  // The same from one pass over the rows that checks and computes f(V) at
  // once, split between `threads` threads (>= 1, or 0 for the machine's
  // cores). Scale and errors are the same for every thread count.
  void ComputeNormalizationConstant(bool skip, int threads);
  // The same without reading the rows, for rows already checked free of NaN
  // and infinity whose largest value per landmark is `checked_maxima` (k
  // values, as MappedNumpyMatrix::TakeCheckedColumnMaxima gives them for the
  // file the rows are mapped from): no check can fail, and the scale is the
  // pass's own, bit for bit. A size other than k throws std::invalid_argument.
  void ComputeNormalizationConstant(bool skip, const std::vector<T>& checked_maxima);

  // Description(): "Dense FL, |V|=<n>, #landmarks=<k>".
  static constexpr const char* kName = "Dense FL";

  // S(v, i), unchecked.
  T Similarity(int v, int i) const { return Row(v)[i]; }
  // Element v's k similarities, contiguous; unchecked.
  const T* Row(int v) const { return this->rows_.storage.Row(v); }
  // Writable row v; unchecked. Shared storage held by others too is first
  // copied into the function's own matrix (O(n k) once); storage held by this
  // function alone is written in place (a privately mapped file takes the
  // write into its copied page, never into the file).
  T* MutableRow(int v) { return this->rows_.storage.MutableRow(v); }
  // The k x n element-major matrix, as a view of the storage.
  Eigen::Map<const DenseMatrix> ElementMajorMatrix() const { return this->rows_.storage.Matrix(); }
  // Writable view, with MutableRow's rule for shared storage.
  Eigen::Map<DenseMatrix> MutableElementMajorMatrix() {
    return this->rows_.storage.MutableMatrix();
  }
  // Whether the storage is shared (held through a std::shared_ptr) rather
  // than the function's own matrix.
  bool HasSharedStorage() const { return this->rows_.storage.IsShared(); }

  // The unscaled gain of v against the maxima m (k values), in the four-lane
  // order above. O(k), allocates nothing; unchecked.
  double RawDisjointGain(int v, const T* maxima) const;
  // gains[j] = scale * RawDisjointGain(elements[j], maxima), bit for bit,
  // computed four rows at a time (independent accumulators, the maxima read
  // once per block); unchecked.
  void BatchedDisjointGains(const int* elements, int count, const T* maxima, double* gains) const;

  // The base name of this class's source file (and header), for its messages.
  static const char* SourceFile() { return VELMOR_SOURCE_FILE; }

 private:
  // Checks the shape (n = elements, k = landmarks) at the calling
  // constructor's site, then takes the rows that `make_rows` returns.
  template <typename MakeRows>
  void Install(const internal::MessageSite& site, long n, long k, MakeRows&& make_rows);
};

extern template class FacilityLocationFunction<float>;
extern template class FacilityLocationFunction<double>;

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_FACILITYLOCATIONFUNCTION_H_
