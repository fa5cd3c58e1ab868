#include "functions/SoftFacilityLocationFunction.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "matrixvector/eigen_matrix_checks.h"
#include "utils/error_messages.h"

namespace velmor {

// ----- Construction, softness and normalization -------------------------------------

template <typename T>
SoftFacilityLocationFunction<T>::SoftFacilityLocationFunction(int ground_set_size,
                                                              int number_of_concepts,
                                                              double softness_value)
    : n_(ground_set_size), k_(number_of_concepts) {
  if (ground_set_size < 1) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, ground_set_size=%d.", ground_set_size);
  }
  if (number_of_concepts < 1) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, number_of_concepts=%d.",
                 ground_set_size);
  }
  CheckAndAssignSoftnessValue(softness_value);
  matrix_.setZero(number_of_concepts, ground_set_size);
}

template <typename T>
SoftFacilityLocationFunction<T>::SoftFacilityLocationFunction(const DenseMatrix& similarities,
                                                              double softness_value)
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
  CheckAndAssignSoftnessValue(softness_value);
  matrix_ = similarities.transpose();
  n_ = static_cast<int>(rows);
  k_ = static_cast<int>(cols);
}

template <typename T>
SoftFacilityLocationFunction<T>::SoftFacilityLocationFunction(ElementMajor,
                                                              DenseMatrix&& landmarks_by_elements,
                                                              double softness_value)
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
  CheckAndAssignSoftnessValue(softness_value);
  matrix_ = std::move(landmarks_by_elements);
  n_ = static_cast<int>(cols);
  k_ = static_cast<int>(rows);
}

template <typename T>
void SoftFacilityLocationFunction<T>::CheckAndAssignSoftnessValue(double softness_value) {
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

template <typename T>
void SoftFacilityLocationFunction<T>::ComputeNormalizationConstant(bool skip) {
  if (MatrixValueChecksEnabled()) {
    const ValueCheckFlags flags = NanAndInfValueCheckFlags();
    try {
      for (int v = 0; v < n_; ++v) {
        const T* row = Row(v);
        for (int i = 0; i < k_; ++i) {
          if (!std::isfinite(row[i])) {
            CheckValueThrowWithInfo<T>(flags, row[i], static_cast<T>(v), static_cast<T>(i));
          }
        }
      }
    } catch (...) {
      VELMOR_THROW_NESTED(std::invalid_argument, "Invalid soft facility location matrix.");
    }
  }
  if (skip) {
    scale_ = 1.0;
    return;
  }
  std::vector<T> shifts;
  std::vector<double> sums;
  BuildState(
      [this](auto&& visit) {
        for (int v = 0; v < n_; ++v) visit(v);
      },
      shifts, sums);
  const double ground_set_value = RawValue(shifts.data(), sums.data());
  if (!(ground_set_value > 0)) {
    VELMOR_THROW(std::invalid_argument, "Invalid matrix, f(V) = %g <= 0.", ground_set_value);
  }
  scale_ = 1.0 / ground_set_value;
}

// ----- Private helpers -----------------------------------------------------------------

template <typename T>
template <typename ForEach>
void SoftFacilityLocationFunction<T>::BuildState(ForEach&& for_each, std::vector<T>& shifts,
                                                 std::vector<double>& sums) const {
  const int k = k_;
  shifts.assign(static_cast<std::size_t>(k), T(0));
  T* m = shifts.data();
  for_each([this, m, k](int a) {
    const T* row = Row(a);
    for (int i = 0; i < k; ++i) m[i] = row[i] > m[i] ? row[i] : m[i];
  });
  const double inv = this->inverse_softness_;
  sums.resize(static_cast<std::size_t>(k));
  double* z = sums.data();
  // The constant member of value 0.
  for (int i = 0; i < k; ++i) z[i] = std::exp(-static_cast<double>(m[i]) * inv);
  for_each([this, m, z, k, inv](int a) {
    const T* row = Row(a);
    for (int i = 0; i < k; ++i) {
      z[i] += std::exp((static_cast<double>(row[i]) - static_cast<double>(m[i])) * inv);
    }
  });
}

template <typename T>
double SoftFacilityLocationFunction<T>::RawValue(const T* shifts, const double* sums) const {
  double log_sum = 0.0;
  double shift_sum = 0.0;
  for (int i = 0; i < k_; ++i) {
    log_sum += std::log(sums[i]);
    shift_sum += static_cast<double>(shifts[i]);
  }
  return this->softness_ * log_sum + shift_sum;
}

template <typename T>
double SoftFacilityLocationFunction<T>::RawGain(int v, const T* shifts, const double* sums) const {
  const T* row = Row(v);
  const double inv = this->inverse_softness_;
  double linear = 0.0;
  double log_part = 0.0;
  for (int i = 0; i < k_; ++i)
    this->SoftGainParts(row[i], shifts[i], sums[i], inv, linear, log_part);
  return this->softness_ * log_part + linear;
}

// ----- Evaluation -------------------------------------------------------------------------

template <typename T>
double SoftFacilityLocationFunction<T>::Evaluate(int v) const {
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const T* row = Row(v);
  const double inv = this->inverse_softness_;
  double sum = 0.0;
  for (int i = 0; i < k_; ++i) sum += this->SoftSingle(static_cast<double>(row[i]), inv);
  return scale_ * (this->softness_ * sum);
}

template <typename T>
double SoftFacilityLocationFunction<T>::Evaluate(const Set& A) const {
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
double SoftFacilityLocationFunction<T>::EvaluateUnion(int v, const Set& A) const {
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
double SoftFacilityLocationFunction<T>::EvaluateUnion(const Set& A, const Set& B) const {
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
std::pair<double, double> SoftFacilityLocationFunction<T>::EvaluateUnionAndSecondArg(
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
  const T* row = Row(v);
  for (int i = 0; i < k_; ++i)
    this->SoftAbsorb(row[i], shifts[i], sums[i], this->inverse_softness_);
  const double first = RawValue(shifts.data(), sums.data());
  return {scale_ * first, scale_ * second};
}

template <typename T>
double SoftFacilityLocationFunction<T>::EvaluateAfterSubtraction(const Set& A, int v) const {
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
double SoftFacilityLocationFunction<T>::EvaluateAfterSubtraction(const Set& A, const Set& B) const {
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
double SoftFacilityLocationFunction<T>::Gain(int v, const Set& A) const {
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
double SoftFacilityLocationFunction<T>::Loss(int v, const Set& A) const {
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
std::string SoftFacilityLocationFunction<T>::Description() const {
  return fmt::format("Soft Dense FL, |V|={}, #landmarks={}", n_, k_);
}

// ----- Context factories -----------------------------------------------------------------

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContext>
SoftFacilityLocationFunction<T>::MakeGrowingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<SoftFacilityLocationFunctionGrowingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContext>
SoftFacilityLocationFunction<T>::MakeShrinkingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<SoftFacilityLocationFunctionShrinkingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
SoftFacilityLocationFunction<T>::MakeGrowingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<SoftFacilityLocationFunctionGrowingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
SoftFacilityLocationFunction<T>::MakeShrinkingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<SoftFacilityLocationFunctionShrinkingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
void SoftFacilityLocationFunction<T>::AssignContext(SetFunction::SetFunctionGrowingContext& context,
                                                    const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SoftFacilityLocationFunction<T>::AssignContext(
    SetFunction::SetFunctionShrinkingContext& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SoftFacilityLocationFunction<T>::AssignContext(
    SetFunction::SetFunctionGrowingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SoftFacilityLocationFunction<T>::AssignContext(
    SetFunction::SetFunctionShrinkingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

// ----- Growing context -------------------------------------------------------------------

template <typename T>
SoftFacilityLocationFunction<T>::SoftFacilityLocationFunctionGrowingContextExternal::
    SoftFacilityLocationFunctionGrowingContextExternal(const SoftFacilityLocationFunction* function)
    : function_(function),
      shifts_(static_cast<std::size_t>(function->k_), T(0)),
      sums_(static_cast<std::size_t>(function->k_), 1.0) {}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
SoftFacilityLocationFunction<T>::SoftFacilityLocationFunctionGrowingContextExternal::clone() const {
  return std::make_unique<SoftFacilityLocationFunctionGrowingContextExternal>(*this);
}

template <typename T>
double
SoftFacilityLocationFunction<T>::SoftFacilityLocationFunctionGrowingContextExternal::DisjointGain(
    int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  return function_->scale_ * function_->RawGain(v, shifts_.data(), sums_.data());
}

template <typename T>
bool SoftFacilityLocationFunction<
    T>::SoftFacilityLocationFunctionGrowingContextExternal::AddNewElementToContext(int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const T* row = function_->Row(v);
  const int k = function_->k_;
  const double inv = function_->inverse_softness_;
  T* m = shifts_.data();
  double* z = sums_.data();
  bool changed = false;
  for (int i = 0; i < k; ++i) changed |= function_->SoftAbsorb(row[i], m[i], z[i], inv);
  raw_value_ = function_->RawValue(m, z);
  return changed;
}

template <typename T>
void SoftFacilityLocationFunction<
    T>::SoftFacilityLocationFunctionGrowingContextExternal::ResetToEmptySet() {
  std::fill(shifts_.begin(), shifts_.end(), T(0));
  std::fill(sums_.begin(), sums_.end(), 1.0);
  raw_value_ = 0.0;
}

template <typename T>
double SoftFacilityLocationFunction<
    T>::SoftFacilityLocationFunctionGrowingContextExternal::CurrentValue() const {
  return function_->scale_ * raw_value_;
}

// ----- Shrinking context -----------------------------------------------------------------

template <typename T>
SoftFacilityLocationFunction<T>::SoftFacilityLocationFunctionShrinkingContextExternal::
    SoftFacilityLocationFunctionShrinkingContextExternal(
        const SoftFacilityLocationFunction* function)
    : function_(function),
      shifts_(static_cast<std::size_t>(function->k_), T(0)),
      runners_up_(static_cast<std::size_t>(function->k_), -std::numeric_limits<T>::infinity()),
      sums_(static_cast<std::size_t>(function->k_), 1.0),
      runner_sums_(static_cast<std::size_t>(function->k_), 0.0) {
  affected_.reserve(static_cast<std::size_t>(function->k_));
}

template <typename T>
void SoftFacilityLocationFunction<
    T>::SoftFacilityLocationFunctionShrinkingContextExternal::AssignContext(const Set& A) {
  const int k = function_->k_;
  const double inv = function_->inverse_softness_;
  T* m = shifts_.data();
  T* s = runners_up_.data();
  double* z = sums_.data();
  double* w = runner_sums_.data();
  // The constant member of value 0 first.
  std::fill(shifts_.begin(), shifts_.end(), T(0));
  std::fill(runners_up_.begin(), runners_up_.end(), -std::numeric_limits<T>::infinity());
  for (int a : A) {
    const T* row = function_->Row(a);
    for (int i = 0; i < k; ++i) function_->SoftTopTwo(row[i], m[i], s[i]);
  }
  for (int i = 0; i < k; ++i) {
    z[i] = 0.0;
    w[i] = -1.0;
    function_->SoftAccumulate(T(0), m[i], s[i], z[i], w[i], inv);
  }
  for (int a : A) {
    const T* row = function_->Row(a);
    for (int i = 0; i < k; ++i) function_->SoftAccumulate(row[i], m[i], s[i], z[i], w[i], inv);
  }
  RecomputeRawValue();
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal> SoftFacilityLocationFunction<
    T>::SoftFacilityLocationFunctionShrinkingContextExternal::clone() const {
  return std::make_unique<SoftFacilityLocationFunctionShrinkingContextExternal>(*this);
}

template <typename T>
double
SoftFacilityLocationFunction<T>::SoftFacilityLocationFunctionShrinkingContextExternal::SubsetLoss(
    int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const T* row = function_->Row(v);
  const int k = function_->k_;
  const double inv = function_->inverse_softness_;
  double linear = 0.0;
  double log_part = 0.0;
  for (int i = 0; i < k; ++i) {
    function_->SoftLossParts(row[i], shifts_[i], runners_up_[i], sums_[i], runner_sums_[i], inv,
                             linear, log_part);
  }
  return function_->scale_ * (function_->softness_ * log_part + linear);
}

template <typename T>
void SoftFacilityLocationFunction<T>::SoftFacilityLocationFunctionShrinkingContextExternal::
    RemoveExistingElementFromContext(const Set& A, int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const T* row = function_->Row(v);
  const int k = function_->k_;
  const double inv = function_->inverse_softness_;
  T* m = shifts_.data();
  T* s = runners_up_.data();
  double* z = sums_.data();
  double* w = runner_sums_.data();
  affected_.clear();
  for (int i = 0; i < k; ++i) {
    if (row[i] == m[i] || row[i] == s[i]) {
      affected_.push_back(i);
    } else {
      function_->SoftRemove(row[i], m[i], s[i], z[i], w[i], inv);
    }
  }
  if (!affected_.empty()) {
    // Rebuilt from the constant member and the members other than v, member
    // by member so that each member's row is read once per pass.
    for (const int i : affected_) {
      m[i] = T(0);
      s[i] = -std::numeric_limits<T>::infinity();
    }
    for (int a : A) {
      if (a == v) continue;
      const T* other = function_->Row(a);
      for (const int i : affected_) function_->SoftTopTwo(other[i], m[i], s[i]);
    }
    for (const int i : affected_) {
      z[i] = 0.0;
      w[i] = -1.0;
      function_->SoftAccumulate(T(0), m[i], s[i], z[i], w[i], inv);
    }
    for (int a : A) {
      if (a == v) continue;
      const T* other = function_->Row(a);
      for (const int i : affected_)
        function_->SoftAccumulate(other[i], m[i], s[i], z[i], w[i], inv);
    }
  }
  RecomputeRawValue();
}

template <typename T>
double SoftFacilityLocationFunction<
    T>::SoftFacilityLocationFunctionShrinkingContextExternal::CurrentValue() const {
  return function_->scale_ * raw_value_;
}

template <typename T>
void SoftFacilityLocationFunction<
    T>::SoftFacilityLocationFunctionShrinkingContextExternal::RecomputeRawValue() {
  raw_value_ = function_->RawValue(shifts_.data(), sums_.data());
}

template class SoftFacilityLocationFunction<float>;
template class SoftFacilityLocationFunction<double>;

}  // namespace velmor
