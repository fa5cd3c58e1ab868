#include "functions/FacilityLocationFunction.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include "matrixvector/eigen_matrix_checks.h"
#include "utils/error_messages.h"

namespace velmor {
namespace {

// Four lanes of T in one vector register (SSE for float, AVX for double when
// available; the compiler splits it otherwise). Lane arithmetic is plain
// element-wise IEEE arithmetic, so the vector form computes exactly the
// four-lane sums.
template <typename T>
struct Quad;
template <>
struct Quad<float> {
  typedef float type __attribute__((vector_size(4 * sizeof(float))));
};
template <>
struct Quad<double> {
  typedef double type __attribute__((vector_size(4 * sizeof(double))));
};

template <typename T>
inline typename Quad<T>::type LoadQuad(const T* p) {
  typename Quad<T>::type q;
  std::memcpy(&q, p, sizeof(q));
  return q;
}

// Side of the square tiles in which the n x k input is transposed: a tile's
// source columns stay in the first-level cache.
constexpr Eigen::Index kTransposeTile = 64;

template <typename T>
inline T PositivePart(T x) {
  return x > T(0) ? x : T(0);
}

// out[r] = sum over i of max(0, rows[r][i] - maxima[i]) for R rows at once,
// each in the four-lane order: lane j sums the landmarks i = j (mod 4) of
// the full blocks of four; of the last k mod 4 landmarks, the first two go to
// lanes 0 and 1 when two or three remain, and a single remaining one to lane
// 2; result (lane2 + (lane0 + lane1)) + lane3. The R rows have independent
// accumulators (R dependency chains in flight) and share each load of the
// maxima; the arithmetic of each row does not depend on R.
template <typename T, int R>
inline void LaneGains(const T* const* rows, const T* maxima, int k, T* out) {
  using V = typename Quad<T>::type;
  const V zero = {};
  V acc[R];
  for (int r = 0; r < R; ++r) acc[r] = zero;
  const int full = k & ~3;
  for (int i = 0; i < full; i += 4) {
    const V m = LoadQuad(maxima + i);
    for (int r = 0; r < R; ++r) {
      V d = LoadQuad(rows[r] + i) - m;
      d = d > zero ? d : zero;
      acc[r] += d;
    }
  }
  for (int r = 0; r < R; ++r) {
    T lane0 = acc[r][0];
    T lane1 = acc[r][1];
    T lane2 = acc[r][2];
    T lane3 = acc[r][3];
    int i = full;
    if (k - i >= 2) {
      lane0 += PositivePart<T>(rows[r][i] - maxima[i]);
      lane1 += PositivePart<T>(rows[r][i + 1] - maxima[i + 1]);
      i += 2;
    }
    if (i < k) lane2 += PositivePart<T>(rows[r][i] - maxima[i]);
    out[r] = (lane2 + (lane0 + lane1)) + lane3;
  }
}

}  // namespace

// ----- Construction and normalization ------------------------------------------

template <typename T>
FacilityLocationFunction<T>::FacilityLocationFunction(int ground_set_size, int number_of_concepts)
    : n_(ground_set_size), k_(number_of_concepts) {
  if (ground_set_size < 1) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, ground_set_size=%d.", ground_set_size);
  }
  if (number_of_concepts < 1) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, number_of_concepts=%d.",
                 ground_set_size);
  }
  storage_.owned.setZero(number_of_concepts, ground_set_size);
  storage_.Rebase();
}

template <typename T>
FacilityLocationFunction<T>::FacilityLocationFunction(const DenseMatrix& similarities)
    : n_(0), k_(0) {
  const Eigen::Index rows = similarities.rows();
  const Eigen::Index cols = similarities.cols();
  if (rows < 1 || rows > INT_MAX) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, ground_set_size=%ld.",
                 static_cast<long>(rows));
  }
  if (cols < 1 || cols > INT_MAX) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, number_of_concepts=%ld.",
                 static_cast<long>(rows));
  }
  // Transposed tile by tile: a plain transpose of a large matrix reads one
  // value per cache line (and per page) and is many times slower.
  storage_.owned.resize(cols, rows);
  for (Eigen::Index v = 0; v < rows; v += kTransposeTile) {
    const Eigen::Index tile_rows = std::min(kTransposeTile, rows - v);
    for (Eigen::Index i = 0; i < cols; i += kTransposeTile) {
      const Eigen::Index tile_cols = std::min(kTransposeTile, cols - i);
      storage_.owned.block(i, v, tile_cols, tile_rows) =
          similarities.block(v, i, tile_rows, tile_cols).transpose();
    }
  }
  storage_.Rebase();
  n_ = static_cast<int>(rows);
  k_ = static_cast<int>(cols);
}

template <typename T>
FacilityLocationFunction<T>::FacilityLocationFunction(ElementMajor,
                                                      DenseMatrix&& landmarks_by_elements)
    : n_(0), k_(0) {
  const Eigen::Index rows = landmarks_by_elements.rows();
  const Eigen::Index cols = landmarks_by_elements.cols();
  if (cols < 1 || cols > INT_MAX) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, ground_set_size=%ld.",
                 static_cast<long>(cols));
  }
  if (rows < 1 || rows > INT_MAX) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, number_of_concepts=%ld.",
                 static_cast<long>(cols));
  }
  storage_.owned = std::move(landmarks_by_elements);
  storage_.Rebase();
  n_ = static_cast<int>(cols);
  k_ = static_cast<int>(rows);
}

template <typename T>
FacilityLocationFunction<T>::FacilityLocationFunction(ElementMajor,
                                                      std::shared_ptr<T> landmarks_by_elements,
                                                      std::ptrdiff_t ground_set_size,
                                                      std::ptrdiff_t number_of_concepts)
    : n_(0), k_(0) {
  if (ground_set_size < 1 || ground_set_size > INT_MAX) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, ground_set_size=%ld.",
                 static_cast<long>(ground_set_size));
  }
  if (number_of_concepts < 1 || number_of_concepts > INT_MAX) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, number_of_concepts=%ld.",
                 static_cast<long>(ground_set_size));
  }
  if (landmarks_by_elements == nullptr) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, no similarity storage.");
  }
  storage_.shared = std::move(landmarks_by_elements);
  storage_.Rebase();
  n_ = static_cast<int>(ground_set_size);
  k_ = static_cast<int>(number_of_concepts);
}

// ----- Storage -----------------------------------------------------------------

template <typename T>
FacilityLocationFunction<T>::Storage::Storage(const Storage& other)
    : owned(other.owned), shared(other.shared) {
  Rebase();
}

template <typename T>
FacilityLocationFunction<T>::Storage::Storage(Storage&& other) noexcept
    : owned(std::move(other.owned)), shared(std::move(other.shared)) {
  Rebase();
  other.Rebase();
}

template <typename T>
typename FacilityLocationFunction<T>::Storage& FacilityLocationFunction<T>::Storage::operator=(
    const Storage& other) {
  if (this != &other) {
    Storage copy(other);
    *this = std::move(copy);
  }
  return *this;
}

template <typename T>
typename FacilityLocationFunction<T>::Storage& FacilityLocationFunction<T>::Storage::operator=(
    Storage&& other) noexcept {
  if (this != &other) {
    owned = std::move(other.owned);
    shared = std::move(other.shared);
    Rebase();
    other.Rebase();
  }
  return *this;
}

template <typename T>
T* FacilityLocationFunction<T>::MutableData() {
  if (storage_.shared != nullptr && storage_.shared.use_count() > 1) {
    // Copy first, then switch: a failed allocation leaves the storage shared.
    storage_.owned = Eigen::Map<const DenseMatrix>(storage_.shared.get(), k_, n_);
    storage_.shared.reset();
    storage_.Rebase();
  }
  return storage_.data;
}

template <typename T>
void FacilityLocationFunction<T>::ComputeNormalizationConstant(bool skip) {
  if (MatrixValueChecksEnabled()) {
    const ValueCheckFlags flags = NanAndInfValueCheckFlags();
    try {
      // Every finite value passes these flags, so only non-finite ones need
      // the full check; the scan order (element by element, landmark by
      // landmark) decides which bad entry is reported.
      for (int v = 0; v < n_; ++v) {
        const T* row = Row(v);
        for (int i = 0; i < k_; ++i) {
          if (!std::isfinite(row[i])) {
            CheckValueThrowWithInfo<T>(flags, row[i], static_cast<T>(v), static_cast<T>(i));
          }
        }
      }
    } catch (...) {
      VELMOR_THROW_NESTED(std::invalid_argument, "Invalid facility location matrix.");
    }
  }
  if (skip) {
    scale_ = 1.0;
    return;
  }
  std::vector<T> maxima(static_cast<std::size_t>(k_), T(0));
  for (int v = 0; v < n_; ++v) RaiseMaxima(v, maxima.data());
  const double ground_set_value = SumInDouble(maxima.data());
  if (ground_set_value <= 0) {
    VELMOR_THROW(std::invalid_argument,
                 "Invalid possibly all zero or negative matrix, f(V) = %g <= 0.", ground_set_value);
  }
  scale_ = 1.0 / ground_set_value;
}

// ----- Private helpers ------------------------------------------------------------

template <typename T>
void FacilityLocationFunction<T>::RaiseMaxima(int v, T* maxima) const {
  const T* row = Row(v);
  for (int i = 0; i < k_; ++i) maxima[i] = row[i] > maxima[i] ? row[i] : maxima[i];
}

template <typename T>
double FacilityLocationFunction<T>::SumInDouble(const T* values) const {
  double sum = 0.0;
  for (int i = 0; i < k_; ++i) sum += values[i];
  return sum;
}

template <typename T>
double FacilityLocationFunction<T>::PositiveExcessInDouble(int v, const T* maxima) const {
  const T* row = Row(v);
  double sum = 0.0;
  for (int i = 0; i < k_; ++i) {
    const double excess = static_cast<double>(row[i]) - static_cast<double>(maxima[i]);
    if (excess > 0) sum += excess;
  }
  return sum;
}

// ----- Evaluation -------------------------------------------------------------------

template <typename T>
double FacilityLocationFunction<T>::Evaluate(int v) const {
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  return scale_ * SumInDouble(Row(v));
}

template <typename T>
double FacilityLocationFunction<T>::Evaluate(const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  std::vector<T> maxima(static_cast<std::size_t>(k_), T(0));
  for (int a : A) RaiseMaxima(a, maxima.data());
  return scale_ * SumInDouble(maxima.data());
}

template <typename T>
double FacilityLocationFunction<T>::EvaluateUnion(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  std::vector<T> maxima(static_cast<std::size_t>(k_), T(0));
  for (int a : A) RaiseMaxima(a, maxima.data());
  RaiseMaxima(v, maxima.data());
  return scale_ * SumInDouble(maxima.data());
}

template <typename T>
double FacilityLocationFunction<T>::EvaluateUnion(const Set& A, const Set& B) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (B.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", B.GroundSetSize());
  }
  std::vector<T> maxima(static_cast<std::size_t>(k_), T(0));
  for (int a : A) RaiseMaxima(a, maxima.data());
  for (int b : B) RaiseMaxima(b, maxima.data());
  return scale_ * SumInDouble(maxima.data());
}

template <typename T>
std::pair<double, double> FacilityLocationFunction<T>::EvaluateUnionAndSecondArg(
    int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  std::vector<T> maxima(static_cast<std::size_t>(k_), T(0));
  for (int a : A) RaiseMaxima(a, maxima.data());
  const double second = SumInDouble(maxima.data());
  RaiseMaxima(v, maxima.data());
  const double first = SumInDouble(maxima.data());
  return {scale_ * first, scale_ * second};
}

template <typename T>
double FacilityLocationFunction<T>::EvaluateAfterSubtraction(const Set& A, int v) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  std::vector<T> maxima(static_cast<std::size_t>(k_), T(0));
  for (int a : A) {
    if (a != v) RaiseMaxima(a, maxima.data());
  }
  return scale_ * SumInDouble(maxima.data());
}

template <typename T>
double FacilityLocationFunction<T>::EvaluateAfterSubtraction(const Set& A, const Set& B) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (B.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", B.GroundSetSize());
  }
  std::vector<T> maxima(static_cast<std::size_t>(k_), T(0));
  for (int a : A) {
    if (!B.contains(a)) RaiseMaxima(a, maxima.data());
  }
  return scale_ * SumInDouble(maxima.data());
}

template <typename T>
double FacilityLocationFunction<T>::Gain(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  if (A.contains(v)) return 0.0;
  std::vector<T> maxima(static_cast<std::size_t>(k_), T(0));
  for (int a : A) RaiseMaxima(a, maxima.data());
  return scale_ * PositiveExcessInDouble(v, maxima.data());
}

template <typename T>
double FacilityLocationFunction<T>::Loss(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  if (!A.contains(v)) return 0.0;
  std::vector<T> maxima(static_cast<std::size_t>(k_), T(0));
  for (int a : A) {
    if (a != v) RaiseMaxima(a, maxima.data());
  }
  return scale_ * PositiveExcessInDouble(v, maxima.data());
}

template <typename T>
std::string FacilityLocationFunction<T>::Description() const {
  return fmt::format("Dense FL, |V|={}, #landmarks={}", n_, k_);
}

// ----- Context factories ---------------------------------------------------------

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContext>
FacilityLocationFunction<T>::MakeGrowingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<FacilityLocationFunctionGrowingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContext>
FacilityLocationFunction<T>::MakeShrinkingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<FacilityLocationFunctionShrinkingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
FacilityLocationFunction<T>::MakeGrowingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<FacilityLocationFunctionGrowingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
FacilityLocationFunction<T>::MakeShrinkingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<FacilityLocationFunctionShrinkingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
void FacilityLocationFunction<T>::AssignContext(SetFunction::SetFunctionGrowingContext& context,
                                                const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void FacilityLocationFunction<T>::AssignContext(SetFunction::SetFunctionShrinkingContext& context,
                                                const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void FacilityLocationFunction<T>::AssignContext(
    SetFunction::SetFunctionGrowingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void FacilityLocationFunction<T>::AssignContext(
    SetFunction::SetFunctionShrinkingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

// ----- Growing context ------------------------------------------------------------

template <typename T>
FacilityLocationFunction<T>::FacilityLocationFunctionGrowingContextExternal::
    FacilityLocationFunctionGrowingContextExternal(const FacilityLocationFunction* function)
    : function_(function), maxima_(static_cast<std::size_t>(function->k_), T(0)) {}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
FacilityLocationFunction<T>::FacilityLocationFunctionGrowingContextExternal::clone() const {
  return std::make_unique<FacilityLocationFunctionGrowingContextExternal>(*this);
}

template <typename T>
double FacilityLocationFunction<T>::FacilityLocationFunctionGrowingContextExternal::DisjointGain(
    int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const T* row = function_->Row(v);
  T gain_raw;
  LaneGains<T, 1>(&row, maxima_.data(), function_->k_, &gain_raw);
  return function_->scale_ * static_cast<double>(gain_raw);
}

template <typename T>
void FacilityLocationFunction<T>::FacilityLocationFunctionGrowingContextExternal::DisjointGains(
    const int* elements, int count, double* gains) const {
  const int n = function_->n_;
  for (int j = 0; j < count; ++j) {
    const int v = elements[j];
    if (v < 0 || v >= n) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  }
  const int k = function_->k_;
  const double scale = function_->scale_;
  const T* maxima = maxima_.data();
  int j = 0;
  for (; j + 4 <= count; j += 4) {
    const T* rows[4] = {function_->Row(elements[j]), function_->Row(elements[j + 1]),
                        function_->Row(elements[j + 2]), function_->Row(elements[j + 3])};
    T raw[4];
    LaneGains<T, 4>(rows, maxima, k, raw);
    for (int r = 0; r < 4; ++r) gains[j + r] = scale * static_cast<double>(raw[r]);
  }
  for (; j < count; ++j) {
    const T* row = function_->Row(elements[j]);
    T raw;
    LaneGains<T, 1>(&row, maxima, k, &raw);
    gains[j] = scale * static_cast<double>(raw);
  }
}

template <typename T>
bool FacilityLocationFunction<
    T>::FacilityLocationFunctionGrowingContextExternal::AddNewElementToContext(int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const T* row = function_->Row(v);
  T* maxima = maxima_.data();
  const int k = function_->k_;
  bool changed = false;
  for (int i = 0; i < k; ++i) {
    const bool larger = row[i] > maxima[i];
    maxima[i] = larger ? row[i] : maxima[i];
    changed |= larger;
  }
  raw_value_ = function_->SumInDouble(maxima);
  return changed;
}

template <typename T>
void FacilityLocationFunction<
    T>::FacilityLocationFunctionGrowingContextExternal::ResetToEmptySet() {
  std::fill(maxima_.begin(), maxima_.end(), T(0));
  raw_value_ = 0.0;
}

template <typename T>
double FacilityLocationFunction<T>::FacilityLocationFunctionGrowingContextExternal::CurrentValue()
    const {
  return function_->scale_ * raw_value_;
}

// ----- Shrinking context ----------------------------------------------------------

template <typename T>
FacilityLocationFunction<T>::FacilityLocationFunctionShrinkingContextExternal::
    FacilityLocationFunctionShrinkingContextExternal(const FacilityLocationFunction* function)
    : function_(function),
      maxima_(static_cast<std::size_t>(function->k_), T(0)),
      second_maxima_(static_cast<std::size_t>(function->k_), T(0)) {}

template <typename T>
void FacilityLocationFunction<T>::FacilityLocationFunctionShrinkingContextExternal::AssignContext(
    const Set& A) {
  std::fill(maxima_.begin(), maxima_.end(), T(0));
  std::fill(second_maxima_.begin(), second_maxima_.end(), T(0));
  const int k = function_->k_;
  T* m = maxima_.data();
  T* s = second_maxima_.data();
  for (int a : A) {
    const T* row = function_->Row(a);
    for (int i = 0; i < k; ++i) {
      const T x = row[i];
      if (x > m[i]) {
        s[i] = m[i];
        m[i] = x;
      } else if (x > s[i]) {
        s[i] = x;
      }
    }
  }
  RecomputeRawValue();
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
FacilityLocationFunction<T>::FacilityLocationFunctionShrinkingContextExternal::clone() const {
  return std::make_unique<FacilityLocationFunctionShrinkingContextExternal>(*this);
}

template <typename T>
double FacilityLocationFunction<T>::FacilityLocationFunctionShrinkingContextExternal::SubsetLoss(
    int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const T* row = function_->Row(v);
  const int k = function_->k_;
  double loss = 0.0;
  for (int i = 0; i < k; ++i) {
    if (row[i] == maxima_[i]) {
      loss += static_cast<double>(maxima_[i]) - static_cast<double>(second_maxima_[i]);
    }
  }
  return function_->scale_ * loss;
}

template <typename T>
void FacilityLocationFunction<T>::FacilityLocationFunctionShrinkingContextExternal::
    RemoveExistingElementFromContext(const Set& A, int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const T* row = function_->Row(v);
  const int k = function_->k_;
  T* m = maxima_.data();
  T* s = second_maxima_.data();
  affected_.clear();
  for (int i = 0; i < k; ++i) {
    if (row[i] == m[i] || row[i] == s[i]) {
      m[i] = T(0);
      s[i] = T(0);
      affected_.push_back(i);
    }
  }
  if (!affected_.empty()) {
    // Member by member, so that each member's row is read once.
    for (int a : A) {
      if (a == v) continue;
      const T* other = function_->Row(a);
      for (const int i : affected_) {
        const T x = other[i];
        if (x > m[i]) {
          s[i] = m[i];
          m[i] = x;
        } else if (x > s[i]) {
          s[i] = x;
        }
      }
    }
  }
  RecomputeRawValue();
}

template <typename T>
double FacilityLocationFunction<T>::FacilityLocationFunctionShrinkingContextExternal::CurrentValue()
    const {
  return function_->scale_ * raw_value_;
}

template <typename T>
void FacilityLocationFunction<
    T>::FacilityLocationFunctionShrinkingContextExternal::RecomputeRawValue() {
  raw_value_ = function_->SumInDouble(maxima_.data());
}

template class FacilityLocationFunction<float>;
template class FacilityLocationFunction<double>;

}  // namespace velmor
