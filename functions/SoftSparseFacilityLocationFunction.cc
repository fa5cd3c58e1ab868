#include "functions/SoftSparseFacilityLocationFunction.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "matrixvector/eigen_matrix_checks.h"
#include "sets/FixedGroundSet.h"
#include "utils/error_messages.h"

namespace velmor {

// ----- Construction and softness -------------------------------------------------------------

template <typename T>
SoftSparseFacilityLocationFunction<T>::SoftSparseFacilityLocationFunction(
    SparseMatrix&& similarities, double softness_value, bool skip_normalization)
    : n_(0), k_(0) {
  const long rows = static_cast<long>(similarities.rows());
  const long cols = static_cast<long>(similarities.cols());
  if (rows < 1) VELMOR_THROW(std::invalid_argument, "Invalid argument, ground_set_size=%ld.", rows);
  if (cols < 1)
    VELMOR_THROW(std::invalid_argument, "Invalid argument, number_of_concepts=%ld.", rows);
  CheckAndAssignSoftnessValue(softness_value);
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

template <typename T>
void SoftSparseFacilityLocationFunction<T>::CheckAndAssignSoftnessValue(double softness_value) {
  if (!(softness_value > 0)) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, must have softness_value (=%e) > 0.",
                 softness_value);
  }
  const double inverse = 1.0 / softness_value;
  if (!std::isfinite(softness_value) || !std::isfinite(inverse)) {
    VELMOR_THROW(std::invalid_argument,
                 "Invalid argument, softness_value (=%e) must be finite with a finite inverse.",
                 softness_value);
  }
  this->softness_ = softness_value;
  this->inverse_softness_ = inverse;
}

// ----- Private helpers --------------------------------------------------------------------------

template <typename T>
template <typename ForEach>
void SoftSparseFacilityLocationFunction<T>::BuildState(ForEach&& for_each, std::vector<T>& shifts,
                                                       std::vector<double>& sums) const {
  const std::int32_t* inner = matrix_.innerIndexPtr();
  const T* values = matrix_.valuePtr();
  shifts.assign(static_cast<std::size_t>(k_), T(0));
  T* m = shifts.data();
  for_each([this, inner, values, m](int a) {
    const std::int32_t end = End(a);
    for (std::int32_t p = Begin(a); p < end; ++p) {
      const std::int32_t i = inner[p];
      m[i] = values[p] > m[i] ? values[p] : m[i];
    }
  });
  const double inv = this->inverse_softness_;
  sums.resize(static_cast<std::size_t>(k_));
  double* z = sums.data();
  // The constant member of value 0.
  for (int i = 0; i < k_; ++i) z[i] = std::exp(-static_cast<double>(m[i]) * inv);
  for_each([this, inner, values, m, z, inv](int a) {
    const std::int32_t end = End(a);
    for (std::int32_t p = Begin(a); p < end; ++p) {
      const std::int32_t i = inner[p];
      z[i] += std::exp((static_cast<double>(values[p]) - static_cast<double>(m[i])) * inv);
    }
  });
}

template <typename T>
double SoftSparseFacilityLocationFunction<T>::RawValue(const T* shifts, const double* sums) const {
  double log_sum = 0.0;
  double shift_sum = 0.0;
  for (int i = 0; i < k_; ++i) {
    log_sum += std::log(sums[i]);
    shift_sum += static_cast<double>(shifts[i]);
  }
  return this->softness_ * log_sum + shift_sum;
}

template <typename T>
double SoftSparseFacilityLocationFunction<T>::RawGain(int v, const T* shifts,
                                                      const double* sums) const {
  const std::int32_t* inner = matrix_.innerIndexPtr();
  const T* values = matrix_.valuePtr();
  const double inv = this->inverse_softness_;
  const std::int32_t end = End(v);
  double linear = 0.0;
  double log_part = 0.0;
  for (std::int32_t p = Begin(v); p < end; ++p) {
    const std::int32_t i = inner[p];
    this->SoftGainParts(values[p], shifts[i], sums[i], inv, linear, log_part);
  }
  return this->softness_ * log_part + linear;
}

// ----- Evaluation
// ---------------------------------------------------------------------------------

template <typename T>
double SoftSparseFacilityLocationFunction<T>::Evaluate(int v) const {
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const T* values = matrix_.valuePtr();
  const double inv = this->inverse_softness_;
  double sum = 0.0;
  for (std::int32_t p = Begin(v); p < End(v); ++p)
    sum += this->SoftSingle(static_cast<double>(values[p]), inv);
  return scale_ * (this->softness_ * sum);
}

template <typename T>
double SoftSparseFacilityLocationFunction<T>::Evaluate(const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  std::vector<T> shifts;
  std::vector<double> sums;
  BuildState(
      [&A](auto&& visit) {
        for (int a : A) visit(a);
      },
      shifts, sums);
  return scale_ * RawValue(shifts.data(), sums.data());
}

template <typename T>
double SoftSparseFacilityLocationFunction<T>::EvaluateUnion(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const bool member = A.contains(v);
  std::vector<T> shifts;
  std::vector<double> sums;
  BuildState(
      [&A, v, member](auto&& visit) {
        for (int a : A) visit(a);
        if (!member) visit(v);
      },
      shifts, sums);
  return scale_ * RawValue(shifts.data(), sums.data());
}

template <typename T>
double SoftSparseFacilityLocationFunction<T>::EvaluateUnion(const Set& A, const Set& B) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (B.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", B.GroundSetSize());
  }
  std::vector<T> shifts;
  std::vector<double> sums;
  BuildState(
      [&A, &B](auto&& visit) {
        for (int a : A) visit(a);
        for (int b : B) {
          if (!A.contains(b)) visit(b);
        }
      },
      shifts, sums);
  return scale_ * RawValue(shifts.data(), sums.data());
}

template <typename T>
std::pair<double, double> SoftSparseFacilityLocationFunction<T>::EvaluateUnionAndSecondArg(
    int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  std::vector<T> shifts;
  std::vector<double> sums;
  BuildState(
      [&A](auto&& visit) {
        for (int a : A) visit(a);
      },
      shifts, sums);
  const double second = RawValue(shifts.data(), sums.data());
  if (A.contains(v)) return {scale_ * second, scale_ * second};
  const std::int32_t* inner = matrix_.innerIndexPtr();
  const T* values = matrix_.valuePtr();
  for (std::int32_t p = Begin(v); p < End(v); ++p) {
    const std::int32_t i = inner[p];
    this->SoftAbsorb(values[p], shifts[i], sums[i], this->inverse_softness_);
  }
  const double first = RawValue(shifts.data(), sums.data());
  return {scale_ * first, scale_ * second};
}

template <typename T>
double SoftSparseFacilityLocationFunction<T>::EvaluateAfterSubtraction(const Set& A, int v) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  std::vector<T> shifts;
  std::vector<double> sums;
  BuildState(
      [&A, v](auto&& visit) {
        for (int a : A) {
          if (a != v) visit(a);
        }
      },
      shifts, sums);
  return scale_ * RawValue(shifts.data(), sums.data());
}

template <typename T>
double SoftSparseFacilityLocationFunction<T>::EvaluateAfterSubtraction(const Set& A,
                                                                       const Set& B) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (B.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", B.GroundSetSize());
  }
  std::vector<T> shifts;
  std::vector<double> sums;
  BuildState(
      [&A, &B](auto&& visit) {
        for (int a : A) {
          if (!B.contains(a)) visit(a);
        }
      },
      shifts, sums);
  return scale_ * RawValue(shifts.data(), sums.data());
}

template <typename T>
double SoftSparseFacilityLocationFunction<T>::Gain(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  if (A.contains(v)) return 0.0;
  std::vector<T> shifts;
  std::vector<double> sums;
  BuildState(
      [&A](auto&& visit) {
        for (int a : A) visit(a);
      },
      shifts, sums);
  return scale_ * RawGain(v, shifts.data(), sums.data());
}

template <typename T>
double SoftSparseFacilityLocationFunction<T>::Loss(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  if (!A.contains(v)) return 0.0;
  std::vector<T> shifts;
  std::vector<double> sums;
  BuildState(
      [&A, v](auto&& visit) {
        for (int a : A) {
          if (a != v) visit(a);
        }
      },
      shifts, sums);
  return scale_ * RawGain(v, shifts.data(), sums.data());
}

template <typename T>
std::string SoftSparseFacilityLocationFunction<T>::Description() const {
  return fmt::format("Soft Sparse FL, |V|={}, #landmarks={}", n_, k_);
}

// ----- Context factories
// ----------------------------------------------------------------------------

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContext>
SoftSparseFacilityLocationFunction<T>::MakeGrowingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<SoftSparseFacilityLocationFunctionGrowingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContext>
SoftSparseFacilityLocationFunction<T>::MakeShrinkingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<SoftSparseFacilityLocationFunctionShrinkingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
SoftSparseFacilityLocationFunction<T>::MakeGrowingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<SoftSparseFacilityLocationFunctionGrowingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
SoftSparseFacilityLocationFunction<T>::MakeShrinkingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<SoftSparseFacilityLocationFunctionShrinkingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
void SoftSparseFacilityLocationFunction<T>::AssignContext(
    SetFunction::SetFunctionGrowingContext& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SoftSparseFacilityLocationFunction<T>::AssignContext(
    SetFunction::SetFunctionShrinkingContext& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SoftSparseFacilityLocationFunction<T>::AssignContext(
    SetFunction::SetFunctionGrowingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SoftSparseFacilityLocationFunction<T>::AssignContext(
    SetFunction::SetFunctionShrinkingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

// ----- Growing context
// -------------------------------------------------------------------------------

template <typename T>
SoftSparseFacilityLocationFunction<T>::SoftSparseFacilityLocationFunctionGrowingContextExternal::
    SoftSparseFacilityLocationFunctionGrowingContextExternal(
        const SoftSparseFacilityLocationFunction* function)
    : function_(function),
      shifts_(static_cast<std::size_t>(function->k_), T(0)),
      sums_(static_cast<std::size_t>(function->k_), 1.0) {}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal> SoftSparseFacilityLocationFunction<
    T>::SoftSparseFacilityLocationFunctionGrowingContextExternal::clone() const {
  return std::make_unique<SoftSparseFacilityLocationFunctionGrowingContextExternal>(*this);
}

template <typename T>
double SoftSparseFacilityLocationFunction<
    T>::SoftSparseFacilityLocationFunctionGrowingContextExternal::DisjointGain(int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  return function_->scale_ * function_->RawGain(v, shifts_.data(), sums_.data());
}

template <typename T>
bool SoftSparseFacilityLocationFunction<
    T>::SoftSparseFacilityLocationFunctionGrowingContextExternal::AddNewElementToContext(int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const std::int32_t* inner = function_->matrix_.innerIndexPtr();
  const T* values = function_->matrix_.valuePtr();
  const double inv = function_->inverse_softness_;
  const double lambda = function_->softness_;
  const std::int32_t end = function_->End(v);
  T* m = shifts_.data();
  double* z = sums_.data();
  bool changed = false;
  double shift_change = 0.0;
  double log_change = 0.0;
  for (std::int32_t p = function_->Begin(v); p < end; ++p) {
    const std::int32_t i = inner[p];
    const T old_shift = m[i];
    const double old_log = std::log(z[i]);
    changed |= function_->SoftAbsorb(values[p], m[i], z[i], inv);
    shift_change += static_cast<double>(m[i]) - static_cast<double>(old_shift);
    log_change += std::log(z[i]) - old_log;
  }
  raw_value_ += lambda * log_change + shift_change;
  return changed;
}

template <typename T>
void SoftSparseFacilityLocationFunction<
    T>::SoftSparseFacilityLocationFunctionGrowingContextExternal::ResetToEmptySet() {
  std::fill(shifts_.begin(), shifts_.end(), T(0));
  std::fill(sums_.begin(), sums_.end(), 1.0);
  raw_value_ = 0.0;
}

template <typename T>
double SoftSparseFacilityLocationFunction<
    T>::SoftSparseFacilityLocationFunctionGrowingContextExternal::CurrentValue() const {
  return function_->scale_ * raw_value_;
}

// ----- Shrinking context
// ------------------------------------------------------------------------------

template <typename T>
SoftSparseFacilityLocationFunction<T>::SoftSparseFacilityLocationFunctionShrinkingContextExternal::
    SoftSparseFacilityLocationFunctionShrinkingContextExternal(
        const SoftSparseFacilityLocationFunction* function)
    : function_(function),
      shifts_(static_cast<std::size_t>(function->k_), T(0)),
      runners_up_(static_cast<std::size_t>(function->k_), -std::numeric_limits<T>::infinity()),
      sums_(static_cast<std::size_t>(function->k_), 1.0),
      runner_sums_(static_cast<std::size_t>(function->k_), 0.0),
      affected_(static_cast<std::size_t>(function->k_), 0) {}

template <typename T>
void SoftSparseFacilityLocationFunction<
    T>::SoftSparseFacilityLocationFunctionShrinkingContextExternal::AssignContext(const Set& A) {
  const std::int32_t* inner = function_->matrix_.innerIndexPtr();
  const T* values = function_->matrix_.valuePtr();
  const double inv = function_->inverse_softness_;
  const int k = function_->k_;
  T* m = shifts_.data();
  T* s = runners_up_.data();
  double* z = sums_.data();
  double* w = runner_sums_.data();
  // The constant member of value 0 first.
  std::fill(shifts_.begin(), shifts_.end(), T(0));
  std::fill(runners_up_.begin(), runners_up_.end(), -std::numeric_limits<T>::infinity());
  for (int a : A) {
    const std::int32_t end = function_->End(a);
    for (std::int32_t p = function_->Begin(a); p < end; ++p) {
      const std::int32_t i = inner[p];
      function_->SoftTopTwo(values[p], m[i], s[i]);
    }
  }
  for (int i = 0; i < k; ++i) {
    z[i] = 0.0;
    w[i] = -1.0;
    function_->SoftAccumulate(T(0), m[i], s[i], z[i], w[i], inv);
  }
  for (int a : A) {
    const std::int32_t end = function_->End(a);
    for (std::int32_t p = function_->Begin(a); p < end; ++p) {
      const std::int32_t i = inner[p];
      function_->SoftAccumulate(values[p], m[i], s[i], z[i], w[i], inv);
    }
  }
  raw_value_ = function_->RawValue(m, z);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
SoftSparseFacilityLocationFunction<
    T>::SoftSparseFacilityLocationFunctionShrinkingContextExternal::clone() const {
  return std::make_unique<SoftSparseFacilityLocationFunctionShrinkingContextExternal>(*this);
}

template <typename T>
double SoftSparseFacilityLocationFunction<
    T>::SoftSparseFacilityLocationFunctionShrinkingContextExternal::SubsetLoss(int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const std::int32_t* inner = function_->matrix_.innerIndexPtr();
  const T* values = function_->matrix_.valuePtr();
  const double inv = function_->inverse_softness_;
  const std::int32_t end = function_->End(v);
  double linear = 0.0;
  double log_part = 0.0;
  for (std::int32_t p = function_->Begin(v); p < end; ++p) {
    const std::int32_t i = inner[p];
    function_->SoftLossParts(values[p], shifts_[i], runners_up_[i], sums_[i], runner_sums_[i], inv,
                             linear, log_part);
  }
  return function_->scale_ * (function_->softness_ * log_part + linear);
}

template <typename T>
void SoftSparseFacilityLocationFunction<T>::
    SoftSparseFacilityLocationFunctionShrinkingContextExternal::RemoveExistingElementFromContext(
        const Set& A, int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const std::int32_t* inner = function_->matrix_.innerIndexPtr();
  const T* values = function_->matrix_.valuePtr();
  const double inv = function_->inverse_softness_;
  const double lambda = function_->softness_;
  T* m = shifts_.data();
  T* s = runners_up_.data();
  double* z = sums_.data();
  double* w = runner_sums_.data();
  unsigned char* affected = affected_.data();
  const std::int32_t v_begin = function_->Begin(v);
  const std::int32_t v_end = function_->End(v);
  // The value is kept by differences: the touched landmarks' F_i leave it
  // here and re-enter it at the end.
  double shift_change = 0.0;
  double log_change = 0.0;
  bool any = false;
  for (std::int32_t p = v_begin; p < v_end; ++p) {
    const std::int32_t i = inner[p];
    shift_change -= static_cast<double>(m[i]);
    log_change -= std::log(z[i]);
    const T d = values[p];
    if (d == m[i] || d == s[i]) {
      affected[i] = 1;
      any = true;
    } else {
      function_->SoftRemove(d, m[i], s[i], z[i], w[i], inv);
    }
  }
  if (any) {
    for (std::int32_t p = v_begin; p < v_end; ++p) {
      const std::int32_t i = inner[p];
      if (!affected[i]) continue;
      m[i] = T(0);
      s[i] = -std::numeric_limits<T>::infinity();
    }
    for (int a : A) {
      if (a == v) continue;
      const std::int32_t end = function_->End(a);
      for (std::int32_t p = function_->Begin(a); p < end; ++p) {
        const std::int32_t i = inner[p];
        if (affected[i]) function_->SoftTopTwo(values[p], m[i], s[i]);
      }
    }
    for (std::int32_t p = v_begin; p < v_end; ++p) {
      const std::int32_t i = inner[p];
      if (!affected[i]) continue;
      z[i] = 0.0;
      w[i] = -1.0;
      function_->SoftAccumulate(T(0), m[i], s[i], z[i], w[i], inv);
    }
    for (int a : A) {
      if (a == v) continue;
      const std::int32_t end = function_->End(a);
      for (std::int32_t p = function_->Begin(a); p < end; ++p) {
        const std::int32_t i = inner[p];
        if (affected[i]) function_->SoftAccumulate(values[p], m[i], s[i], z[i], w[i], inv);
      }
    }
  }
  for (std::int32_t p = v_begin; p < v_end; ++p) {
    const std::int32_t i = inner[p];
    shift_change += static_cast<double>(m[i]);
    log_change += std::log(z[i]);
    affected[i] = 0;
  }
  raw_value_ += lambda * log_change + shift_change;
}

template <typename T>
double SoftSparseFacilityLocationFunction<
    T>::SoftSparseFacilityLocationFunctionShrinkingContextExternal::CurrentValue() const {
  return function_->scale_ * raw_value_;
}

template class SoftSparseFacilityLocationFunction<float>;
template class SoftSparseFacilityLocationFunction<double>;

}  // namespace velmor
