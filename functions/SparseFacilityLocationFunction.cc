#include "functions/SparseFacilityLocationFunction.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "matrixvector/eigen_matrix_checks.h"
#include "sets/FixedGroundSet.h"
#include "utils/error_messages.h"

namespace velmor {

// ----- Construction ----------------------------------------------------------------------

template <typename T>
SparseFacilityLocationFunction<T>::SparseFacilityLocationFunction(SparseMatrix&& similarities,
                                                                  bool skip_normalization)
    : n_(0), k_(0) {
  const long rows = static_cast<long>(similarities.rows());
  const long cols = static_cast<long>(similarities.cols());
  if (rows < 1) VELMOR_THROW(std::invalid_argument, "Invalid argument, ground_set_size=%ld.", rows);
  if (cols < 1)
    VELMOR_THROW(std::invalid_argument, "Invalid argument, number_of_concepts=%ld.", rows);
  matrix_.swap(similarities);
  matrix_.makeCompressed();
  n_ = static_cast<int>(rows);
  k_ = static_cast<int>(cols);

  if (MatrixValueChecksEnabled()) {
    const ValueCheckFlags flags = NanAndInfValueCheckFlags();
    try {
      const std::int32_t* inner = matrix_.innerIndexPtr();
      const T* values = matrix_.valuePtr();
      for (int v = 0; v < n_; ++v) {
        for (std::int32_t p = Begin(v); p < End(v); ++p) {
          if (!std::isfinite(values[p])) {
            CheckValueThrowWithInfo<T>(flags, values[p], static_cast<T>(v),
                                       static_cast<T>(inner[p]));
          }
        }
      }
    } catch (...) {
      similarities.swap(matrix_);
      VELMOR_THROW_NESTED(std::invalid_argument, "Invalid sparse facility location matrix.");
    }
  }
  if (skip_normalization) return;
  const double ground_set_value = Evaluate(FixedGroundSet(n_));
  if (ground_set_value > 0) {
    scale_ = 1.0 / ground_set_value;
    return;
  }
  similarities.swap(matrix_);
  VELMOR_THROW(std::invalid_argument, "Invalid matrix, f(V) = %g <= 0.", ground_set_value);
}

// ----- Private helpers -------------------------------------------------------------------

template <typename T>
void SparseFacilityLocationFunction<T>::RaiseMaxima(int v, T* maxima) const {
  const std::int32_t* inner = matrix_.innerIndexPtr();
  const T* values = matrix_.valuePtr();
  const std::int32_t end = End(v);
  for (std::int32_t p = Begin(v); p < end; ++p) {
    const std::int32_t i = inner[p];
    maxima[i] = values[p] > maxima[i] ? values[p] : maxima[i];
  }
}

template <typename T>
double SparseFacilityLocationFunction<T>::SumInDouble(const T* values) const {
  double sum = 0.0;
  for (int i = 0; i < k_; ++i) sum += values[i];
  return sum;
}

template <typename T>
double SparseFacilityLocationFunction<T>::PositiveExcessInDouble(int v, const T* maxima) const {
  const std::int32_t* inner = matrix_.innerIndexPtr();
  const T* values = matrix_.valuePtr();
  const std::int32_t end = End(v);
  double sum = 0.0;
  // Branch-free: a non-positive excess adds +0.0, which leaves the sum as it is.
  for (std::int32_t p = Begin(v); p < end; ++p) {
    const double excess = static_cast<double>(values[p]) - static_cast<double>(maxima[inner[p]]);
    sum += excess > 0.0 ? excess : 0.0;
  }
  return sum;
}

// ----- Evaluation --------------------------------------------------------------------------

template <typename T>
double SparseFacilityLocationFunction<T>::Evaluate(int v) const {
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const T* values = matrix_.valuePtr();
  double sum = 0.0;
  for (std::int32_t p = Begin(v); p < End(v); ++p) sum += values[p];
  return scale_ * sum;
}

template <typename T>
double SparseFacilityLocationFunction<T>::Evaluate(const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  std::vector<T> maxima(static_cast<std::size_t>(k_), T(0));
  for (int a : A) RaiseMaxima(a, maxima.data());
  return scale_ * SumInDouble(maxima.data());
}

template <typename T>
double SparseFacilityLocationFunction<T>::EvaluateUnion(int v, const Set& A) const {
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
double SparseFacilityLocationFunction<T>::EvaluateUnion(const Set& A, const Set& B) const {
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
std::pair<double, double> SparseFacilityLocationFunction<T>::EvaluateUnionAndSecondArg(
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
double SparseFacilityLocationFunction<T>::EvaluateAfterSubtraction(const Set& A, int v) const {
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
double SparseFacilityLocationFunction<T>::EvaluateAfterSubtraction(const Set& A,
                                                                   const Set& B) const {
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
double SparseFacilityLocationFunction<T>::Gain(int v, const Set& A) const {
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
double SparseFacilityLocationFunction<T>::Loss(int v, const Set& A) const {
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
std::string SparseFacilityLocationFunction<T>::Description() const {
  return fmt::format("Sparse FL, |V|={}, #landmarks={}", n_, k_);
}

// ----- Context factories ------------------------------------------------------------------

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContext>
SparseFacilityLocationFunction<T>::MakeGrowingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<SparseFacilityLocationFunctionGrowingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContext>
SparseFacilityLocationFunction<T>::MakeShrinkingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<SparseFacilityLocationFunctionShrinkingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
SparseFacilityLocationFunction<T>::MakeGrowingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<SparseFacilityLocationFunctionGrowingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
SparseFacilityLocationFunction<T>::MakeShrinkingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<SparseFacilityLocationFunctionShrinkingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
void SparseFacilityLocationFunction<T>::AssignContext(
    SetFunction::SetFunctionGrowingContext& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SparseFacilityLocationFunction<T>::AssignContext(
    SetFunction::SetFunctionShrinkingContext& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SparseFacilityLocationFunction<T>::AssignContext(
    SetFunction::SetFunctionGrowingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SparseFacilityLocationFunction<T>::AssignContext(
    SetFunction::SetFunctionShrinkingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

// ----- Growing context ---------------------------------------------------------------------

template <typename T>
SparseFacilityLocationFunction<T>::SparseFacilityLocationFunctionGrowingContextExternal::
    SparseFacilityLocationFunctionGrowingContextExternal(
        const SparseFacilityLocationFunction* function)
    : function_(function), maxima_(static_cast<std::size_t>(function->k_), T(0)) {}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal> SparseFacilityLocationFunction<
    T>::SparseFacilityLocationFunctionGrowingContextExternal::clone() const {
  return std::make_unique<SparseFacilityLocationFunctionGrowingContextExternal>(*this);
}

template <typename T>
double SparseFacilityLocationFunction<
    T>::SparseFacilityLocationFunctionGrowingContextExternal::DisjointGain(int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  return function_->scale_ * function_->PositiveExcessInDouble(v, maxima_.data());
}

template <typename T>
bool SparseFacilityLocationFunction<
    T>::SparseFacilityLocationFunctionGrowingContextExternal::AddNewElementToContext(int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const std::int32_t* inner = function_->matrix_.innerIndexPtr();
  const T* values = function_->matrix_.valuePtr();
  const std::int32_t end = function_->End(v);
  T* maxima = maxima_.data();
  bool changed = false;
  for (std::int32_t p = function_->Begin(v); p < end; ++p) {
    const T d = values[p];
    T& m = maxima[inner[p]];
    if (d > m) {
      raw_value_ += static_cast<double>(d) - static_cast<double>(m);
      m = d;
      changed = true;
    }
  }
  return changed;
}

template <typename T>
void SparseFacilityLocationFunction<
    T>::SparseFacilityLocationFunctionGrowingContextExternal::ResetToEmptySet() {
  std::fill(maxima_.begin(), maxima_.end(), T(0));
  raw_value_ = 0.0;
}

template <typename T>
double SparseFacilityLocationFunction<
    T>::SparseFacilityLocationFunctionGrowingContextExternal::CurrentValue() const {
  return function_->scale_ * raw_value_;
}

// ----- Shrinking context --------------------------------------------------------------------

template <typename T>
SparseFacilityLocationFunction<T>::SparseFacilityLocationFunctionShrinkingContextExternal::
    SparseFacilityLocationFunctionShrinkingContextExternal(
        const SparseFacilityLocationFunction* function)
    : function_(function),
      maxima_(static_cast<std::size_t>(function->k_), T(0)),
      second_maxima_(static_cast<std::size_t>(function->k_), T(0)),
      affected_(static_cast<std::size_t>(function->k_), 0) {}

template <typename T>
void SparseFacilityLocationFunction<
    T>::SparseFacilityLocationFunctionShrinkingContextExternal::AssignContext(const Set& A) {
  std::fill(maxima_.begin(), maxima_.end(), T(0));
  std::fill(second_maxima_.begin(), second_maxima_.end(), T(0));
  const std::int32_t* inner = function_->matrix_.innerIndexPtr();
  const T* values = function_->matrix_.valuePtr();
  T* m = maxima_.data();
  T* s = second_maxima_.data();
  for (int a : A) {
    const std::int32_t end = function_->End(a);
    for (std::int32_t p = function_->Begin(a); p < end; ++p) {
      const std::int32_t i = inner[p];
      const T x = values[p];
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
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal> SparseFacilityLocationFunction<
    T>::SparseFacilityLocationFunctionShrinkingContextExternal::clone() const {
  return std::make_unique<SparseFacilityLocationFunctionShrinkingContextExternal>(*this);
}

template <typename T>
double SparseFacilityLocationFunction<
    T>::SparseFacilityLocationFunctionShrinkingContextExternal::SubsetLoss(int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const std::int32_t* inner = function_->matrix_.innerIndexPtr();
  const T* values = function_->matrix_.valuePtr();
  const std::int32_t end = function_->End(v);
  double loss = 0.0;
  for (std::int32_t p = function_->Begin(v); p < end; ++p) {
    const std::int32_t i = inner[p];
    if (values[p] == maxima_[i]) {
      loss += static_cast<double>(maxima_[i]) - static_cast<double>(second_maxima_[i]);
    }
  }
  return function_->scale_ * loss;
}

template <typename T>
void SparseFacilityLocationFunction<T>::SparseFacilityLocationFunctionShrinkingContextExternal::
    RemoveExistingElementFromContext(const Set& A, int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const std::int32_t* inner = function_->matrix_.innerIndexPtr();
  const T* values = function_->matrix_.valuePtr();
  T* m = maxima_.data();
  T* s = second_maxima_.data();
  unsigned char* affected = affected_.data();
  const std::int32_t v_begin = function_->Begin(v);
  const std::int32_t v_end = function_->End(v);
  bool any = false;
  for (std::int32_t p = v_begin; p < v_end; ++p) {
    const std::int32_t i = inner[p];
    if (values[p] == m[i] || values[p] == s[i]) {
      raw_value_ -= static_cast<double>(m[i]);
      m[i] = T(0);
      s[i] = T(0);
      affected[i] = 1;
      any = true;
    }
  }
  if (any) {
    for (int a : A) {
      if (a == v) continue;
      const std::int32_t end = function_->End(a);
      for (std::int32_t p = function_->Begin(a); p < end; ++p) {
        const std::int32_t i = inner[p];
        if (!affected[i]) continue;
        const T x = values[p];
        if (x > m[i]) {
          s[i] = m[i];
          m[i] = x;
        } else if (x > s[i]) {
          s[i] = x;
        }
      }
    }
    // The affected maxima re-enter the value (kept by differences, so that a
    // removal costs time in the stored entries visited, not in k).
    for (std::int32_t p = v_begin; p < v_end; ++p) {
      const std::int32_t i = inner[p];
      if (affected[i]) raw_value_ += static_cast<double>(m[i]);
      affected[i] = 0;
    }
  }
}

template <typename T>
double SparseFacilityLocationFunction<
    T>::SparseFacilityLocationFunctionShrinkingContextExternal::CurrentValue() const {
  return function_->scale_ * raw_value_;
}

template <typename T>
void SparseFacilityLocationFunction<
    T>::SparseFacilityLocationFunctionShrinkingContextExternal::RecomputeRawValue() {
  raw_value_ = function_->SumInDouble(maxima_.data());
}

template class SparseFacilityLocationFunction<float>;
template class SparseFacilityLocationFunction<double>;

}  // namespace velmor
