#include "functions/SumSumDispersionFunction.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <stdexcept>

#include "matrixvector/eigen_matrix_checks.h"
#include "utils/error_messages.h"

namespace velmor {

// ----- Construction and normalization -----------------------------------------------------

template <typename T>
SumSumDispersionFunction<T>::SumSumDispersionFunction(const DenseMatrix& matrix) : n_(0) {
  if ((matrix.array() < T(0)).any())
    VELMOR_THROW(std::invalid_argument, "Matrix must be non-negative.");
  if (matrix.rows() != matrix.cols()) {
    VELMOR_THROW(std::invalid_argument, "Matrix is %ldx%ld but must be square.",
                 static_cast<long>(matrix.rows()), static_cast<long>(matrix.cols()));
  }
  if (matrix.rows() < 1 || matrix.rows() > INT_MAX) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, ground_set_size=%ld.",
                 static_cast<long>(matrix.rows()));
  }
  matrix_ = matrix;
  n_ = static_cast<int>(matrix.rows());
  symmetric_ = true;
  for (int a = 0; a < n_ && symmetric_; ++a) {
    const T* row = Row(a);
    for (int b = a + 1; b < n_; ++b) {
      if (!(row[b] == matrix_(b, a))) {
        symmetric_ = false;
        break;
      }
    }
  }
  if (!symmetric_) transpose_ = matrix.transpose();
}

template <typename T>
void SumSumDispersionFunction<T>::ComputeNormalizationConstant(bool skip) {
  if (MatrixValueChecksEnabled()) {
    const ValueCheckFlags flags = NanAndInfValueCheckFlags();
    try {
      for (int a = 0; a < n_; ++a) {
        const T* row = Row(a);
        for (int b = 0; b < n_; ++b) {
          if (!std::isfinite(row[b])) {
            CheckValueThrowWithInfo<T>(flags, row[b], static_cast<T>(a), static_cast<T>(b));
          }
        }
      }
    } catch (...) {
      VELMOR_THROW_NESTED(std::invalid_argument, "Invalid SumSumDisp matrix.");
    }
  }
  if (skip) {
    scale_ = 1.0;
    return;
  }
  std::vector<int> all(static_cast<std::size_t>(n_));
  for (int v = 0; v < n_; ++v) all[static_cast<std::size_t>(v)] = v;
  const double ground_set_value = RawValue(all);
  if (!(ground_set_value > 0)) {
    VELMOR_THROW(std::invalid_argument,
                 "Invalid possibly all zero or negative SumSumDisp matrix, f(V) = %g <= 0.",
                 ground_set_value);
  }
  scale_ = 1.0 / ground_set_value;
}

// ----- Private helpers ----------------------------------------------------------------------

template <typename T>
double SumSumDispersionFunction<T>::RawValue(const std::vector<int>& elements) const {
  double sum = 0.0;
  if (symmetric_) {
    for (const int a : elements) {
      const T* row = Row(a);
      for (const int b : elements) {
        if (a < b) {
          sum += static_cast<double>(T(2) * row[b]);
        } else if (a == b) {
          sum += static_cast<double>(row[a]);
        }
      }
    }
  } else {
    for (const int a : elements) {
      const T* row = Row(a);
      for (const int b : elements) sum += static_cast<double>(row[b]);
    }
  }
  return sum;
}

template <typename T>
double SumSumDispersionFunction<T>::RawPairSum(int v, const Set& A) const {
  const T* row = Row(v);
  const T* column = Column(v);
  double sum = static_cast<double>(row[v]);
  for (const int a : A) {
    if (a == v) continue;
    sum +=
        symmetric_ ? static_cast<double>(T(2) * row[a]) : static_cast<double>(row[a] + column[a]);
  }
  return sum;
}

// ----- Evaluation ----------------------------------------------------------------------------

template <typename T>
double SumSumDispersionFunction<T>::Evaluate(int v) const {
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  return scale_ * static_cast<double>(Row(v)[v]);
}

template <typename T>
double SumSumDispersionFunction<T>::Evaluate(const Set& A) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  std::vector<int> elements;
  A.ToVector(elements);
  return scale_ * RawValue(elements);
}

template <typename T>
std::pair<double, double> SumSumDispersionFunction<T>::EvaluateUnionAndSecondArg(
    int v, const Set& A) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  const double union_value = EvaluateUnion(v, A);
  return {union_value, Evaluate(A)};
}

template <typename T>
double SumSumDispersionFunction<T>::EvaluateUnion(int v, const Set& A) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  std::vector<int> elements;
  A.ToVector(elements);
  if (!A.contains(v)) elements.push_back(v);
  return scale_ * RawValue(elements);
}

template <typename T>
double SumSumDispersionFunction<T>::EvaluateUnion(const Set& A, const Set& B) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (B.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", B.GroundSetSize());
  std::vector<int> elements;
  A.ToVector(elements);
  for (const int b : B) {
    if (!A.contains(b)) elements.push_back(b);
  }
  return scale_ * RawValue(elements);
}

template <typename T>
double SumSumDispersionFunction<T>::EvaluateAfterSubtraction(const Set& A, int v) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  std::vector<int> elements;
  elements.reserve(static_cast<std::size_t>(A.size()));
  for (const int a : A) {
    if (a != v) elements.push_back(a);
  }
  return scale_ * RawValue(elements);
}

template <typename T>
double SumSumDispersionFunction<T>::EvaluateAfterSubtraction(const Set& A, const Set& B) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (B.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", B.GroundSetSize());
  std::vector<int> elements;
  elements.reserve(static_cast<std::size_t>(A.size()));
  for (const int a : A) {
    if (!B.contains(a)) elements.push_back(a);
  }
  return scale_ * RawValue(elements);
}

template <typename T>
double SumSumDispersionFunction<T>::Gain(int v, const Set& A) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  if (A.contains(v)) return 0.0;
  return scale_ * RawPairSum(v, A);
}

template <typename T>
double SumSumDispersionFunction<T>::Loss(int v, const Set& A) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  if (!A.contains(v)) return 0.0;
  return scale_ * RawPairSum(v, A);
}

template <typename T>
std::string SumSumDispersionFunction<T>::Description() const {
  return fmt::format("SumSumDisp, |V|={}", n_);
}

// ----- Context factories ------------------------------------------------------------------------

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContext>
SumSumDispersionFunction<T>::MakeGrowingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<SumSumDispersionFunctionGrowingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContext>
SumSumDispersionFunction<T>::MakeShrinkingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<SumSumDispersionFunctionShrinkingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
SumSumDispersionFunction<T>::MakeGrowingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<SumSumDispersionFunctionGrowingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
SumSumDispersionFunction<T>::MakeShrinkingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<SumSumDispersionFunctionShrinkingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
void SumSumDispersionFunction<T>::AssignContext(SetFunction::SetFunctionGrowingContext& context,
                                                const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SumSumDispersionFunction<T>::AssignContext(SetFunction::SetFunctionShrinkingContext& context,
                                                const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SumSumDispersionFunction<T>::AssignContext(
    SetFunction::SetFunctionGrowingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SumSumDispersionFunction<T>::AssignContext(
    SetFunction::SetFunctionShrinkingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

// ----- Growing context ---------------------------------------------------------------------------

template <typename T>
SumSumDispersionFunction<T>::SumSumDispersionFunctionGrowingContextExternal::
    SumSumDispersionFunctionGrowingContextExternal(const SumSumDispersionFunction* function)
    : function_(function),
      gains_(static_cast<std::size_t>(function->n_)),
      members_(static_cast<std::size_t>(function->n_), 0) {
  ResetToEmptySet();
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
SumSumDispersionFunction<T>::SumSumDispersionFunctionGrowingContextExternal::clone() const {
  return std::make_unique<SumSumDispersionFunctionGrowingContextExternal>(*this);
}

template <typename T>
double SumSumDispersionFunction<T>::SumSumDispersionFunctionGrowingContextExternal::DisjointGain(
    int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  return function_->scale_ * gains_[static_cast<std::size_t>(v)];
}

template <typename T>
bool SumSumDispersionFunction<
    T>::SumSumDispersionFunctionGrowingContextExternal::AddNewElementToContext(int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  if (members_[static_cast<std::size_t>(v)]) return false;
  const int n = function_->n_;
  double* g = gains_.data();
  unsigned char* member = members_.data();
  raw_value_ += g[v];
  member[v] = 1;
  const T* row = function_->Row(v);
  // Branch-free over u, so that the loop vectorizes: members add 0.
  if (function_->symmetric_) {
    for (int u = 0; u < n; ++u) {
      const double add = static_cast<double>(T(2) * row[u]);
      g[u] += member[u] ? 0.0 : add;
    }
  } else {
    const T* column = function_->Column(v);
    for (int u = 0; u < n; ++u) {
      const double add = static_cast<double>(row[u] + column[u]);
      g[u] += member[u] ? 0.0 : add;
    }
  }
  return true;
}

template <typename T>
void SumSumDispersionFunction<
    T>::SumSumDispersionFunctionGrowingContextExternal::ResetToEmptySet() {
  const int n = function_->n_;
  for (int u = 0; u < n; ++u)
    gains_[static_cast<std::size_t>(u)] = static_cast<double>(function_->Row(u)[u]);
  std::fill(members_.begin(), members_.end(), 0);
  raw_value_ = 0.0;
}

template <typename T>
double SumSumDispersionFunction<T>::SumSumDispersionFunctionGrowingContextExternal::CurrentValue()
    const {
  return function_->scale_ * raw_value_;
}

// ----- Shrinking context
// ---------------------------------------------------------------------------

template <typename T>
SumSumDispersionFunction<T>::SumSumDispersionFunctionShrinkingContextExternal::
    SumSumDispersionFunctionShrinkingContextExternal(const SumSumDispersionFunction* function)
    : function_(function),
      losses_(static_cast<std::size_t>(function->n_), 0.0),
      members_(static_cast<std::size_t>(function->n_), 0) {}

template <typename T>
void SumSumDispersionFunction<T>::SumSumDispersionFunctionShrinkingContextExternal::AssignContext(
    const Set& A) {
  const int n = function_->n_;
  double* g = losses_.data();
  unsigned char* member = members_.data();
  std::fill(members_.begin(), members_.end(), 0);
  for (int u = 0; u < n; ++u) g[u] = static_cast<double>(function_->Row(u)[u]);
  std::vector<int> elements;
  A.ToVector(elements);
  for (const int b : elements) {
    member[b] = 1;
    const T* row = function_->Row(b);
    const T* column = function_->Column(b);
    const double own = g[b];
    if (function_->symmetric_) {
      for (int u = 0; u < n; ++u) g[u] += static_cast<double>(T(2) * row[u]);
    } else {
      for (int u = 0; u < n; ++u) g[u] += static_cast<double>(row[u] + column[u]);
    }
    g[b] = own;
  }
  raw_value_ = function_->RawValue(elements);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
SumSumDispersionFunction<T>::SumSumDispersionFunctionShrinkingContextExternal::clone() const {
  return std::make_unique<SumSumDispersionFunctionShrinkingContextExternal>(*this);
}

template <typename T>
double SumSumDispersionFunction<T>::SumSumDispersionFunctionShrinkingContextExternal::SubsetLoss(
    int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  return function_->scale_ * losses_[static_cast<std::size_t>(v)];
}

template <typename T>
void SumSumDispersionFunction<T>::SumSumDispersionFunctionShrinkingContextExternal::
    RemoveExistingElementFromContext(const Set& /*A*/, int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  if (!members_[static_cast<std::size_t>(v)]) return;
  const int n = function_->n_;
  double* g = losses_.data();
  unsigned char* member = members_.data();
  raw_value_ -= g[v];
  member[v] = 0;
  const T* row = function_->Row(v);
  if (function_->symmetric_) {
    for (int u = 0; u < n; ++u) {
      const double sub = static_cast<double>(T(2) * row[u]);
      g[u] -= member[u] ? sub : 0.0;
    }
  } else {
    const T* column = function_->Column(v);
    for (int u = 0; u < n; ++u) {
      const double sub = static_cast<double>(row[u] + column[u]);
      g[u] -= member[u] ? sub : 0.0;
    }
  }
}

template <typename T>
double SumSumDispersionFunction<T>::SumSumDispersionFunctionShrinkingContextExternal::CurrentValue()
    const {
  return function_->scale_ * raw_value_;
}

template class SumSumDispersionFunction<float>;
template class SumSumDispersionFunction<double>;

}  // namespace velmor
