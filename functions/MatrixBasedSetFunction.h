#ifndef VELMOR_FUNCTIONS_MATRIXBASEDSETFUNCTION_H_
#define VELMOR_FUNCTIONS_MATRIXBASEDSETFUNCTION_H_

// What the matrix-based set functions share: a matrix whose row v holds the
// entries of element v, a normalization scale, and the checks and the
// normalization that go with them.
//
// The rows come in two forms with one interface, so that the code of a family
// is written once for its dense and its sparse member:
//   - internal::DenseRows<T>: element-major storage, every landmark an entry;
//   - internal::SparseRows<T>: a compressed row-major sparse matrix whose
//     stored entries are the entries.
// ForEachEntry(v, visit) calls visit(i, value) for element v's entries in
// storage order (landmark order when dense).
//
// MatrixBasedSetFunction<F, Rows, Kind> is the layer between
// SetFunctionSkeleton and a family (F the function class, Kind its abstract
// kind). The family gives RawValueOf(state) and RawGainOver(v, state), the
// unscaled value and gain of a member state (see SetFunctionSkeleton); this
// layer scales them.

#include <fmt/format.h>

#include <Eigen/SparseCore>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "functions/SetFunctionSkeleton.h"
#include "matrixvector/ElementMajorStorage.h"
#include "matrixvector/eigen_matrix_checks.h"

namespace velmor {
namespace internal {

template <typename T>
class DenseRows {
 public:
  using Scalar = T;
  static constexpr bool kDense = true;

  DenseRows() = default;
  explicit DenseRows(ElementMajorStorage<T> storage) : storage(std::move(storage)) {}

  // Rows read from n * k values held elsewhere. Refuses a null pointer with
  // "Invalid argument, no similarity storage." located at `site`.
  static DenseRows Shared(const MessageSite& site, std::shared_ptr<T> values, long n, long k) {
    if (values == nullptr) ThrowInvalidArgument(site, "Invalid argument, no similarity storage.");
    return DenseRows(ElementMajorStorage<T>::Share(std::move(values), n, k));
  }

  int Elements() const { return static_cast<int>(storage.Elements()); }
  int Landmarks() const { return static_cast<int>(storage.Landmarks()); }
  long StoredEntries() const { return static_cast<long>(Elements()) * Landmarks(); }
  const T* Row(int v) const { return storage.Row(v); }

  template <typename Visit>
  void ForEachEntry(int v, Visit&& visit) const {
    const T* row = Row(v);
    const int k = Landmarks();
    for (int i = 0; i < k; ++i) visit(i, row[i]);
  }

  ElementMajorStorage<T> storage;
};

template <typename T>
class SparseRows {
 public:
  using Scalar = T;
  using SparseMatrix = Eigen::SparseMatrix<T, Eigen::RowMajor, std::int32_t>;
  static constexpr bool kDense = false;

  int Elements() const { return static_cast<int>(matrix.rows()); }
  int Landmarks() const { return static_cast<int>(matrix.cols()); }
  long StoredEntries() const { return static_cast<long>(matrix.nonZeros()); }

  template <typename Visit>
  void ForEachEntry(int v, Visit&& visit) const {
    const std::int32_t* inner = matrix.innerIndexPtr();
    const T* values = matrix.valuePtr();
    const std::int32_t end = matrix.outerIndexPtr()[v + 1];
    for (std::int32_t p = matrix.outerIndexPtr()[v]; p < end; ++p) visit(inner[p], values[p]);
  }

  SparseMatrix matrix;  // compressed
};

}  // namespace internal

template <typename F, typename Rows, typename Kind>
class MatrixBasedSetFunction : public SetFunctionSkeleton<F, Kind> {
 public:
  using Scalar = typename Rows::Scalar;

  int GroundSetSize() const override { return rows_.Elements(); }
  // k, the number of landmarks (the dispersion family, whose rows are the
  // elements themselves, says 0).
  int NumberOfLandmarks() const override { return rows_.Landmarks(); }
  int NumberOfConcepts() const { return rows_.Landmarks(); }
  long MatrixRows() const override { return rows_.Elements(); }
  long MatrixColumns() const override { return rows_.Landmarks(); }
  long MatrixStoredEntries() const override { return rows_.StoredEntries(); }
  bool IsMonotoneNondecreasing() const override { return true; }
  // "<F::kName>, |V|=<n>", followed by ", #landmarks=<k>" when the function
  // has landmarks.
  std::string Description() const override {
    std::string text = fmt::format("{}, |V|={}", F::kName, rows_.Elements());
    if (Self().NumberOfLandmarks() > 0) text += fmt::format(", #landmarks={}", rows_.Landmarks());
    return text;
  }
  double NormalizationScale() const { return scale_; }

 protected:
  friend class SetFunctionSkeleton<F, Kind>;

  // Refuses a matrix of n elements by k landmarks with n or k outside
  // [1, INT_MAX]: "Invalid argument, ground_set_size=%ld." or
  // "Invalid argument, number_of_concepts=%ld." (both printing n).
  static void CheckShape(const internal::MessageSite& site, long n, long k) {
    if (n < 1 || n > INT_MAX) {
      internal::ThrowInvalidArgument(site, "Invalid argument, ground_set_size=%ld.", n);
    }
    if (k < 1 || k > INT_MAX) {
      internal::ThrowInvalidArgument(site, "Invalid argument, number_of_concepts=%ld.", n);
    }
  }

  // 1. When MatrixValueChecksEnabled(): every entry, element by element in
  //    storage order, must be free of NaN and infinity (as
  //    CheckValueThrowWithInfo says); the first failure is thrown nested in
  //    "Invalid <noun> matrix.".
  // 2. Unless `skip`, f(V) is computed with scale 1; unless f(V) > 0,
  //    `non_positive` (a format taking f(V) as %g) is thrown; otherwise scale
  //    = 1 / f(V). With `skip`, scale = 1.
  // Messages are located at `site`; a failed call leaves the scale as it was.
  void Normalize(bool skip, const internal::MessageSite& site, const char* noun,
                 const char* non_positive) {
    if (MatrixValueChecksEnabled()) {
      try {
        CheckEntries();
      } catch (...) {
        internal::ThrowInvalidArgumentNested(site, std::string("Invalid ") + noun + " matrix.");
      }
    }
    if (skip) {
      scale_ = 1.0;
      return;
    }
    const int n = rows_.Elements();
    const double ground_set_value = Self().RawValueOf(Self().StateOf([n](auto&& visit) {
      for (int v = 0; v < n; ++v) visit(v);
    }));
    if (!(ground_set_value > 0))
      internal::ThrowInvalidArgument(site, non_positive, ground_set_value);
    scale_ = 1.0 / ground_set_value;
  }

  // Sparse rows: takes `matrix` over (leaving it empty) and compresses it,
  // then normalizes as Normalize; on failure the matrix is first given back.
  template <typename SparseMatrix>
  void AdoptAndNormalize(SparseMatrix& matrix, bool skip, const internal::MessageSite& site,
                         const char* noun, const char* non_positive) {
    rows_.matrix.swap(matrix);
    rows_.matrix.makeCompressed();
    try {
      Normalize(skip, site, noun, non_positive);
    } catch (...) {
      matrix.swap(rows_.matrix);
      throw;
    }
  }

  template <typename State>
  double ValueOf(const State& state) const {
    return scale_ * Self().RawValueOf(state);
  }
  template <typename State>
  double GainOver(int v, const State& state) const {
    return scale_ * Self().RawGainOver(v, state);
  }

  Rows rows_;
  double scale_ = 1.0;

 private:
  // Only non-finite values can fail NaN and infinity checks, so only those
  // pay for the full check.
  void CheckEntries() const { CheckEntries(0, rows_.Elements()); }

 protected:
  // Whether element v's entries are all finite: none has the all-ones
  // exponent of NaN and infinity (a test on the bits, which vectorizes).
  bool AllFinite(int v) const {
    using Bits = std::conditional_t<sizeof(Scalar) == 4, std::uint32_t, std::uint64_t>;
    constexpr Bits kExponent =
        static_cast<Bits>(sizeof(Scalar) == 4 ? 0x7f800000ull : 0x7ff0000000000000ull);
    Bits special = 0;
    rows_.ForEachEntry(v, [&special](int, Scalar x) {
      Bits bits;
      std::memcpy(&bits, &x, sizeof(bits));
      special |= static_cast<Bits>((bits & kExponent) == kExponent);
    });
    return special == 0;
  }

  // The check of Normalize for the elements [begin, end).
  void CheckEntries(int begin, int end) const {
    const ValueCheckFlags flags = NanAndInfValueCheckFlags();
    for (int v = begin; v < end; ++v) {
      if (AllFinite(v)) continue;
      rows_.ForEachEntry(v, [&flags, v](int i, Scalar x) {
        if (!std::isfinite(x)) {
          CheckValueThrowWithInfo<Scalar>(flags, x, static_cast<Scalar>(v), static_cast<Scalar>(i));
        }
      });
    }
  }

 private:
  const F& Self() const { return static_cast<const F&>(*this); }
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_MATRIXBASEDSETFUNCTION_H_
