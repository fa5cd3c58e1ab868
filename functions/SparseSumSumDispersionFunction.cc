#include "functions/SparseSumSumDispersionFunction.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <stdexcept>

#include "matrixvector/eigen_matrix_checks.h"
#include "utils/error_messages.h"

namespace velmor {
namespace {

// Whether m(a, b) == m(b, a) for all a, b, absent entries read as 0, given
// t = the transpose of m; both compressed. O(stored entries) with one work
// row of n values and flags.
template <typename T>
bool NumericallySymmetric(const Eigen::SparseMatrix<T, Eigen::RowMajor, std::int32_t>& m,
                          const Eigen::SparseMatrix<T, Eigen::RowMajor, std::int32_t>& t) {
  const int n = static_cast<int>(m.rows());
  std::vector<T> work(static_cast<std::size_t>(n), T(0));
  std::vector<unsigned char> seen(static_cast<std::size_t>(n), 0);
  const std::int32_t* m_outer = m.outerIndexPtr();
  const std::int32_t* m_inner = m.innerIndexPtr();
  const T* m_values = m.valuePtr();
  const std::int32_t* t_outer = t.outerIndexPtr();
  const std::int32_t* t_inner = t.innerIndexPtr();
  const T* t_values = t.valuePtr();
  for (int r = 0; r < n; ++r) {
    for (std::int32_t p = m_outer[r]; p < m_outer[r + 1]; ++p) {
      work[m_inner[p]] = m_values[p];
      seen[m_inner[p]] = 1;
    }
    bool equal = true;
    for (std::int32_t q = t_outer[r]; q < t_outer[r + 1]; ++q) {
      const std::int32_t c = t_inner[q];
      if (seen[c]) {
        if (!(work[c] == t_values[q])) equal = false;
        seen[c] = 2;
      } else if (!(t_values[q] == T(0))) {
        equal = false;
      }
    }
    for (std::int32_t p = m_outer[r]; p < m_outer[r + 1]; ++p) {
      const std::int32_t c = m_inner[p];
      if (seen[c] == 1 && !(work[c] == T(0))) equal = false;
      seen[c] = 0;
      work[c] = T(0);
    }
    if (!equal) return false;
  }
  return true;
}

}  // namespace

// ----- Construction and normalization -----------------------------------------------------

template <typename T>
SparseSumSumDispersionFunction<T>::SparseSumSumDispersionFunction(SparseMatrix&& matrix) : n_(0) {
  const T* values = matrix.valuePtr();
  const std::int32_t* outer = matrix.outerIndexPtr();
  const std::int32_t* counts = matrix.innerNonZeroPtr();  // null when compressed
  for (Eigen::Index r = 0; r < matrix.outerSize(); ++r) {
    const std::int32_t end = counts ? outer[r] + counts[r] : outer[r + 1];
    for (std::int32_t p = outer[r]; p < end; ++p) {
      if (values[p] < T(0)) VELMOR_THROW(std::invalid_argument, "Matrix must be non-negative.");
    }
  }
  if (matrix.rows() != matrix.cols()) {
    VELMOR_THROW(std::invalid_argument, "Matrix is %ldx%ld but must be square.",
                 static_cast<long>(matrix.rows()), static_cast<long>(matrix.cols()));
  }
  if (matrix.rows() < 1) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, ground_set_size=%ld.",
                 static_cast<long>(matrix.rows()));
  }
  matrix_.swap(matrix);
  matrix_.makeCompressed();
  n_ = static_cast<int>(matrix_.rows());
  diagonal_.assign(static_cast<std::size_t>(n_), T(0));
  const std::int32_t* inner = matrix_.innerIndexPtr();
  for (int v = 0; v < n_; ++v) {
    for (std::int32_t p = matrix_.outerIndexPtr()[v]; p < matrix_.outerIndexPtr()[v + 1]; ++p) {
      if (inner[p] == v) diagonal_[static_cast<std::size_t>(v)] = matrix_.valuePtr()[p];
    }
  }
  transpose_ = matrix_.transpose();
  transpose_.makeCompressed();
  symmetric_ = NumericallySymmetric(matrix_, transpose_);
  if (symmetric_) transpose_ = SparseMatrix();
}

template <typename T>
void SparseSumSumDispersionFunction<T>::ComputeNormalizationConstant(bool skip) {
  if (MatrixValueChecksEnabled()) {
    const ValueCheckFlags flags = NanAndInfValueCheckFlags();
    try {
      const std::int32_t* outer = matrix_.outerIndexPtr();
      const std::int32_t* inner = matrix_.innerIndexPtr();
      const T* values = matrix_.valuePtr();
      for (int a = 0; a < n_; ++a) {
        for (std::int32_t p = outer[a]; p < outer[a + 1]; ++p) {
          if (!std::isfinite(values[p])) {
            CheckValueThrowWithInfo<T>(flags, values[p], static_cast<T>(a),
                                       static_cast<T>(inner[p]));
          }
        }
      }
    } catch (...) {
      VELMOR_THROW_NESTED(std::invalid_argument, "Invalid Sparse SumSumDisp matrix.");
    }
  }
  if (skip) {
    scale_ = 1.0;
    return;
  }
  std::vector<int> all(static_cast<std::size_t>(n_));
  for (int v = 0; v < n_; ++v) all[static_cast<std::size_t>(v)] = v;
  const std::vector<unsigned char> everyone(static_cast<std::size_t>(n_), 1);
  const double ground_set_value = RawValue(all, everyone);
  if (!(ground_set_value > 0)) {
    VELMOR_THROW(std::invalid_argument,
                 "Invalid possibly all zero or negative Sparse SumSumDisp matrix, f(V) = %g <= 0.",
                 ground_set_value);
  }
  scale_ = 1.0 / ground_set_value;
}

// ----- Private helpers ----------------------------------------------------------------------

template <typename T>
double SparseSumSumDispersionFunction<T>::RawValue(const std::vector<int>& elements,
                                                   const std::vector<unsigned char>& member) const {
  const std::int32_t* outer = matrix_.outerIndexPtr();
  const std::int32_t* inner = matrix_.innerIndexPtr();
  const T* values = matrix_.valuePtr();
  double sum = 0.0;
  for (const int a : elements) {
    for (std::int32_t p = outer[a]; p < outer[a + 1]; ++p) {
      const std::int32_t b = inner[p];
      if (!member[static_cast<std::size_t>(b)]) continue;
      if (!symmetric_) {
        sum += static_cast<double>(values[p]);
      } else if (a < b) {
        sum += static_cast<double>(T(2) * values[p]);
      } else if (a == b) {
        sum += static_cast<double>(values[p]);
      }
    }
  }
  return sum;
}

template <typename T>
double SparseSumSumDispersionFunction<T>::RawPairSum(int v, const Set& A) const {
  double sum = static_cast<double>(diagonal_[static_cast<std::size_t>(v)]);
  const T* values = matrix_.valuePtr();
  const std::int32_t* inner = matrix_.innerIndexPtr();
  for (std::int32_t p = matrix_.outerIndexPtr()[v]; p < matrix_.outerIndexPtr()[v + 1]; ++p) {
    const std::int32_t u = inner[p];
    if (u == v || !A.contains(u)) continue;
    sum += symmetric_ ? static_cast<double>(T(2) * values[p]) : static_cast<double>(values[p]);
  }
  if (!symmetric_) {
    const T* t_values = transpose_.valuePtr();
    const std::int32_t* t_inner = transpose_.innerIndexPtr();
    for (std::int32_t p = transpose_.outerIndexPtr()[v]; p < transpose_.outerIndexPtr()[v + 1];
         ++p) {
      const std::int32_t u = t_inner[p];
      if (u == v || !A.contains(u)) continue;
      sum += static_cast<double>(t_values[p]);
    }
  }
  return sum;
}

template <typename T>
void SparseSumSumDispersionFunction<T>::UpdatePairTerms(int v, double sign,
                                                        const unsigned char* member,
                                                        unsigned char target, double* g) const {
  const T* values = matrix_.valuePtr();
  const std::int32_t* inner = matrix_.innerIndexPtr();
  const std::int32_t end = matrix_.outerIndexPtr()[v + 1];
  for (std::int32_t p = matrix_.outerIndexPtr()[v]; p < end; ++p) {
    const std::int32_t u = inner[p];
    if (u == v || (member != nullptr && member[u] != target)) continue;
    g[u] += sign *
            (symmetric_ ? static_cast<double>(T(2) * values[p]) : static_cast<double>(values[p]));
  }
  if (!symmetric_) {
    const T* t_values = transpose_.valuePtr();
    const std::int32_t* t_inner = transpose_.innerIndexPtr();
    const std::int32_t t_end = transpose_.outerIndexPtr()[v + 1];
    for (std::int32_t p = transpose_.outerIndexPtr()[v]; p < t_end; ++p) {
      const std::int32_t u = t_inner[p];
      if (u == v || (member != nullptr && member[u] != target)) continue;
      g[u] += sign * static_cast<double>(t_values[p]);
    }
  }
}

// ----- Evaluation ----------------------------------------------------------------------------

template <typename T>
double SparseSumSumDispersionFunction<T>::Evaluate(int v) const {
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  return scale_ * static_cast<double>(diagonal_[static_cast<std::size_t>(v)]);
}

template <typename T>
double SparseSumSumDispersionFunction<T>::Evaluate(const Set& A) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  std::vector<int> elements;
  A.ToVector(elements);
  std::vector<unsigned char> member(static_cast<std::size_t>(n_), 0);
  for (const int a : elements) member[static_cast<std::size_t>(a)] = 1;
  return scale_ * RawValue(elements, member);
}

template <typename T>
std::pair<double, double> SparseSumSumDispersionFunction<T>::EvaluateUnionAndSecondArg(
    int v, const Set& A) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  const double union_value = EvaluateUnion(v, A);
  return {union_value, Evaluate(A)};
}

template <typename T>
double SparseSumSumDispersionFunction<T>::EvaluateUnion(int v, const Set& A) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  std::vector<int> elements;
  A.ToVector(elements);
  if (!A.contains(v)) elements.push_back(v);
  std::vector<unsigned char> member(static_cast<std::size_t>(n_), 0);
  for (const int a : elements) member[static_cast<std::size_t>(a)] = 1;
  return scale_ * RawValue(elements, member);
}

template <typename T>
double SparseSumSumDispersionFunction<T>::EvaluateUnion(const Set& A, const Set& B) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (B.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", B.GroundSetSize());
  std::vector<int> elements;
  A.ToVector(elements);
  std::vector<unsigned char> member(static_cast<std::size_t>(n_), 0);
  for (const int a : elements) member[static_cast<std::size_t>(a)] = 1;
  for (const int b : B) {
    if (!member[static_cast<std::size_t>(b)]) {
      member[static_cast<std::size_t>(b)] = 1;
      elements.push_back(b);
    }
  }
  return scale_ * RawValue(elements, member);
}

template <typename T>
double SparseSumSumDispersionFunction<T>::EvaluateAfterSubtraction(const Set& A, int v) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  std::vector<int> elements;
  std::vector<unsigned char> member(static_cast<std::size_t>(n_), 0);
  for (const int a : A) {
    if (a == v) continue;
    elements.push_back(a);
    member[static_cast<std::size_t>(a)] = 1;
  }
  return scale_ * RawValue(elements, member);
}

template <typename T>
double SparseSumSumDispersionFunction<T>::EvaluateAfterSubtraction(const Set& A,
                                                                   const Set& B) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (B.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", B.GroundSetSize());
  std::vector<int> elements;
  std::vector<unsigned char> member(static_cast<std::size_t>(n_), 0);
  for (const int a : A) {
    if (B.contains(a)) continue;
    elements.push_back(a);
    member[static_cast<std::size_t>(a)] = 1;
  }
  return scale_ * RawValue(elements, member);
}

template <typename T>
double SparseSumSumDispersionFunction<T>::Gain(int v, const Set& A) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  if (A.contains(v)) return 0.0;
  return scale_ * RawPairSum(v, A);
}

template <typename T>
double SparseSumSumDispersionFunction<T>::Loss(int v, const Set& A) const {
  if (A.GroundSetSize() > n_)
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d", A.GroundSetSize());
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  if (!A.contains(v)) return 0.0;
  return scale_ * RawPairSum(v, A);
}

template <typename T>
std::string SparseSumSumDispersionFunction<T>::Description() const {
  return fmt::format("Sparse SumSumDisp, |V|={}", n_);
}

// ----- Context factories ------------------------------------------------------------------------

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContext>
SparseSumSumDispersionFunction<T>::MakeGrowingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<SparseSumSumDispersionFunctionGrowingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContext>
SparseSumSumDispersionFunction<T>::MakeShrinkingContext(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<SparseSumSumDispersionFunctionShrinkingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
SparseSumSumDispersionFunction<T>::MakeGrowingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<SparseSumSumDispersionFunctionGrowingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
SparseSumSumDispersionFunction<T>::MakeShrinkingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<SparseSumSumDispersionFunctionShrinkingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
void SparseSumSumDispersionFunction<T>::AssignContext(
    SetFunction::SetFunctionGrowingContext& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SparseSumSumDispersionFunction<T>::AssignContext(
    SetFunction::SetFunctionShrinkingContext& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SparseSumSumDispersionFunction<T>::AssignContext(
    SetFunction::SetFunctionGrowingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void SparseSumSumDispersionFunction<T>::AssignContext(
    SetFunction::SetFunctionShrinkingContextExternal& context, const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

// ----- Growing context ---------------------------------------------------------------------------

template <typename T>
SparseSumSumDispersionFunction<T>::SparseSumSumDispersionFunctionGrowingContextExternal::
    SparseSumSumDispersionFunctionGrowingContextExternal(
        const SparseSumSumDispersionFunction* function)
    : function_(function),
      gains_(static_cast<std::size_t>(function->n_)),
      members_(static_cast<std::size_t>(function->n_), 0) {
  ResetToEmptySet();
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal> SparseSumSumDispersionFunction<
    T>::SparseSumSumDispersionFunctionGrowingContextExternal::clone() const {
  return std::make_unique<SparseSumSumDispersionFunctionGrowingContextExternal>(*this);
}

template <typename T>
double SparseSumSumDispersionFunction<
    T>::SparseSumSumDispersionFunctionGrowingContextExternal::DisjointGain(int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  return function_->scale_ * gains_[static_cast<std::size_t>(v)];
}

template <typename T>
bool SparseSumSumDispersionFunction<
    T>::SparseSumSumDispersionFunctionGrowingContextExternal::AddNewElementToContext(int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  if (members_[static_cast<std::size_t>(v)]) return false;
  raw_value_ += gains_[static_cast<std::size_t>(v)];
  members_[static_cast<std::size_t>(v)] = 1;
  function_->UpdatePairTerms(v, 1.0, members_.data(), 0, gains_.data());
  return true;
}

template <typename T>
void SparseSumSumDispersionFunction<
    T>::SparseSumSumDispersionFunctionGrowingContextExternal::ResetToEmptySet() {
  for (std::size_t u = 0; u < gains_.size(); ++u)
    gains_[u] = static_cast<double>(function_->diagonal_[u]);
  std::fill(members_.begin(), members_.end(), 0);
  raw_value_ = 0.0;
}

template <typename T>
double SparseSumSumDispersionFunction<
    T>::SparseSumSumDispersionFunctionGrowingContextExternal::CurrentValue() const {
  return function_->scale_ * raw_value_;
}

// ----- Shrinking context
// ---------------------------------------------------------------------------

template <typename T>
SparseSumSumDispersionFunction<T>::SparseSumSumDispersionFunctionShrinkingContextExternal::
    SparseSumSumDispersionFunctionShrinkingContextExternal(
        const SparseSumSumDispersionFunction* function)
    : function_(function),
      losses_(static_cast<std::size_t>(function->n_), 0.0),
      members_(static_cast<std::size_t>(function->n_), 0) {}

template <typename T>
void SparseSumSumDispersionFunction<
    T>::SparseSumSumDispersionFunctionShrinkingContextExternal::AssignContext(const Set& A) {
  std::vector<int> elements;
  A.ToVector(elements);
  std::fill(members_.begin(), members_.end(), 0);
  for (const int a : elements) members_[static_cast<std::size_t>(a)] = 1;
  for (std::size_t u = 0; u < losses_.size(); ++u)
    losses_[u] = static_cast<double>(function_->diagonal_[u]);
  for (const int b : elements) function_->UpdatePairTerms(b, 1.0, nullptr, 0, losses_.data());
  raw_value_ = function_->RawValue(elements, members_);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal> SparseSumSumDispersionFunction<
    T>::SparseSumSumDispersionFunctionShrinkingContextExternal::clone() const {
  return std::make_unique<SparseSumSumDispersionFunctionShrinkingContextExternal>(*this);
}

template <typename T>
double SparseSumSumDispersionFunction<
    T>::SparseSumSumDispersionFunctionShrinkingContextExternal::SubsetLoss(int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  return function_->scale_ * losses_[static_cast<std::size_t>(v)];
}

template <typename T>
void SparseSumSumDispersionFunction<T>::SparseSumSumDispersionFunctionShrinkingContextExternal::
    RemoveExistingElementFromContext(const Set& /*A*/, int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d", v);
  if (!members_[static_cast<std::size_t>(v)]) return;
  raw_value_ -= losses_[static_cast<std::size_t>(v)];
  members_[static_cast<std::size_t>(v)] = 0;
  function_->UpdatePairTerms(v, -1.0, members_.data(), 1, losses_.data());
}

template <typename T>
double SparseSumSumDispersionFunction<
    T>::SparseSumSumDispersionFunctionShrinkingContextExternal::CurrentValue() const {
  return function_->scale_ * raw_value_;
}

template class SparseSumSumDispersionFunction<float>;
template class SparseSumSumDispersionFunction<double>;

}  // namespace velmor
