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
// ComputeNormalizationConstant(false), f(V) = 1.
//
// Storage is element-major: the k values of element v are contiguous, at
// offset v * k, i.e. a k x n column-major matrix (column v is element v's
// row). This is the layout the gain loop streams through. The function either
// owns it as an Eigen matrix or shares storage held elsewhere (for instance a
// file mapped into memory) through a std::shared_ptr; the evaluation code
// reads both alike through one base pointer.
//
// Copies (and clones): an owned matrix is copied; shared storage is shared
// by the copy. The mutating accessors (MutableRow, MutableElementMajorMatrix)
// first give the function its own copy of shared storage when anyone else
// holds it too, so a copy never sees another's writes.
//
// Summation orders (fixed, so that results are reproducible bit for bit):
//   - values: the maxima are summed in double in landmark order;
//   - DisjointGain: sum of max(0, S(v, i) - m_i) accumulated in T in four
//     lanes; lane j takes the landmarks i = j (mod 4) of the full blocks of
//     four; of the last k mod 4 landmarks, when two or three remain the first
//     two go to lanes 0 and 1, and a single remaining one goes to lane 2; the
//     result is (lane2 + (lane0 + lane1)) + lane3, then times scale in double.
//
// Errors are std::invalid_argument with location-prefixed messages (see each
// operation). T is float or double.

#include <Eigen/Core>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "functions/SetFunction.h"
#include "sets/Set.h"

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
    : public clone_inherit<FacilityLocationFunction<T>, FacilityLocationFunctionAbstract> {
 public:
  // Dynamic-size column-major matrix of T.
  using DenseMatrix = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;

  // Tag choosing the constructor that takes the element-major k x n matrix.
  struct ElementMajor {};

  // Growing state for A: m_i = max(0, max over a in A of S(a, i)) for each
  // landmark, and the raw (unscaled) value, the sum of the m_i in double.
  class FacilityLocationFunctionGrowingContextExternal final
      : public SetFunction::SetFunctionGrowingContextExternal {
   public:
    // The state of the empty set (all m_i = 0).
    explicit FacilityLocationFunctionGrowingContextExternal(
        const FacilityLocationFunction* function);
    std::unique_ptr<SetFunctionGrowingContextExternal> clone() const override;
    // f(v | A) for v not in A, in the four-lane order. O(k), reads row v and
    // the maxima once, allocates nothing. Throws "Invalid element = %d.".
    double DisjointGain(int v) const override;
    // The same gains for several elements, bit for bit, computed four rows at
    // a time (independent accumulators, the maxima read once per block). All
    // elements are checked before any gain is computed.
    void DisjointGains(const int* elements, int count, double* gains) const override;
    // Raises m_i to S(v, i) where larger; recomputes the raw value; returns
    // whether any m_i changed. Throws "Invalid element = %d.".
    bool AddNewElementToContext(int v) override;
    void ResetToEmptySet() override;
    // scale * raw value.
    double CurrentValue() const override;

    const std::vector<T>& Maxima() const { return maxima_; }

   private:
    const FacilityLocationFunction* function_;
    std::vector<T> maxima_;
    double raw_value_ = 0.0;
  };

  // Shrinking state for A: per landmark the largest (m_i) and second largest
  // (s_i) S(a, i) over a in A, each 0 when there is none (so clamped at 0).
  class FacilityLocationFunctionShrinkingContextExternal final
      : public SetFunction::SetFunctionShrinkingContextExternal {
   public:
    explicit FacilityLocationFunctionShrinkingContextExternal(
        const FacilityLocationFunction* function);
    // Strict top-two scan of A in A's iteration order. O(|A| k).
    void AssignContext(const Set& A) override;
    std::unique_ptr<SetFunctionShrinkingContextExternal> clone() const override;
    // scale * sum over i with S(v, i) == m_i of (m_i - s_i), in double. A tie
    // with another member counts with m_i - s_i = 0. Throws "Invalid element = %d.".
    double SubsetLoss(int v) const override;
    // For every landmark where S(v, i) equals m_i or s_i, recomputes m_i and
    // s_i from the members of A other than v. Throws "Invalid element = %d.".
    void RemoveExistingElementFromContext(const Set& A, int v) override;
    double CurrentValue() const override;

   private:
    void RecomputeRawValue();

    const FacilityLocationFunction* function_;
    std::vector<T> maxima_;
    std::vector<T> second_maxima_;
    std::vector<int> affected_;  // scratch for the removal
    double raw_value_ = 0.0;
  };

  using FacilityLocationFunctionGrowingContext = SetFunction::DerivedSetFunctionGrowingContext<
      FacilityLocationFunction, FacilityLocationFunctionGrowingContextExternal, UnorderedHashSet>;
  using FacilityLocationFunctionShrinkingContext = SetFunction::DerivedSetFunctionShrinkingContext<
      FacilityLocationFunction, FacilityLocationFunctionShrinkingContextExternal, UnorderedHashSet>;

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

  // scale * sum over i of S(v, i) in double, not clamped at 0 (unlike the set
  // form). Throws "Invalid element = %d.".
  double Evaluate(int v) const override;
  double Evaluate(const Set& A) const override;
  double EvaluateUnion(int v, const Set& A) const override;
  double EvaluateUnion(const Set& A, const Set& B) const override;
  std::pair<double, double> EvaluateUnionAndSecondArg(int v, const Set& A) const override;
  double EvaluateAfterSubtraction(const Set& A, int v) const override;
  double EvaluateAfterSubtraction(const Set& A, const Set& B) const override;
  // scale * sum of max(0, S(v, i) - m_i) in double, m over A; 0.0 when A holds v.
  double Gain(int v, const Set& A) const override;
  // scale * sum of max(0, S(v, i) - m_i) in double, m over A - v; 0.0 when A
  // does not hold v.
  double Loss(int v, const Set& A) const override;

  int GroundSetSize() const override { return n_; }
  int NumberOfLandmarks() const override { return k_; }
  long MatrixRows() const override { return n_; }
  long MatrixColumns() const override { return k_; }
  long MatrixStoredEntries() const override { return static_cast<long>(n_) * k_; }
  // "Dense FL, |V|=<n>, #landmarks=<k>".
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
  // S(v, i), unchecked.
  T Similarity(int v, int i) const { return Row(v)[i]; }
  // Element v's k similarities, contiguous; unchecked.
  const T* Row(int v) const { return storage_.data + static_cast<std::ptrdiff_t>(v) * k_; }
  // Writable row v; unchecked. Shared storage held by others too is first
  // copied into the function's own matrix (O(n k) once); storage held by this
  // function alone is written in place (a privately mapped file takes the
  // write into its copied page, never into the file).
  T* MutableRow(int v) { return MutableData() + static_cast<std::ptrdiff_t>(v) * k_; }
  // The k x n element-major matrix, as a view of the storage.
  Eigen::Map<const DenseMatrix> ElementMajorMatrix() const {
    return Eigen::Map<const DenseMatrix>(storage_.data, k_, n_);
  }
  // Writable view, with MutableRow's rule for shared storage.
  Eigen::Map<DenseMatrix> MutableElementMajorMatrix() {
    return Eigen::Map<DenseMatrix>(MutableData(), k_, n_);
  }
  // Whether the storage is shared (held through a std::shared_ptr) rather
  // than the function's own matrix.
  bool HasSharedStorage() const { return storage_.shared != nullptr; }

 private:
  // m_i = max(m_i, S(v, i)) for every landmark.
  void RaiseMaxima(int v, T* maxima) const;
  // Sum of the k values in double, in landmark order.
  double SumInDouble(const T* values) const;
  // Sum of max(0, S(v, i) - m_i) in double, in landmark order.
  double PositiveExcessInDouble(int v, const T* maxima) const;

  // The element-major values: the function's own k x n matrix, or a share of
  // storage held elsewhere. `data` points at whichever is in use and follows
  // it through copies and moves (a copy copies `owned` and shares `shared`).
  struct Storage {
    DenseMatrix owned;          // k x n when owned; empty with shared storage
    std::shared_ptr<T> shared;  // shared storage, or null when owned
    T* data = nullptr;          // element v's row at data + v * k

    Storage() = default;
    Storage(const Storage& other);
    Storage(Storage&& other) noexcept;
    Storage& operator=(const Storage& other);
    Storage& operator=(Storage&& other) noexcept;
    // Points `data` at the storage in use.
    void Rebase() { data = shared != nullptr ? shared.get() : owned.data(); }
  };

  // The storage base for writing: shared storage that others hold too is
  // first copied into the function's own matrix.
  T* MutableData();

  Storage storage_;
  int n_;
  int k_;
  double scale_ = 1.0;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_FACILITYLOCATIONFUNCTION_H_
