#include "functions/SparseSumSumDispersionFunction.h"

#include <utility>
#include <vector>

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

template <typename T>
SparseSumSumDispersionFunction<T>::SparseSumSumDispersionFunction(SparseMatrix&& matrix) {
  const internal::MessageSite site = VELMOR_SITE(SparseSumSumDispersionFunction);
  const T* values = matrix.valuePtr();
  const std::int32_t* outer = matrix.outerIndexPtr();
  const std::int32_t* counts = matrix.innerNonZeroPtr();  // null when compressed
  for (Eigen::Index r = 0; r < matrix.outerSize(); ++r) {
    const std::int32_t end = counts ? outer[r] + counts[r] : outer[r + 1];
    for (std::int32_t p = outer[r]; p < end; ++p) {
      if (values[p] < T(0)) internal::ThrowInvalidArgument(site, "Matrix must be non-negative.");
    }
  }
  this->CheckSquare(site, matrix.rows(), matrix.cols());
  this->rows_.matrix.swap(matrix);
  this->rows_.matrix.makeCompressed();
  internal::SparseRows<T> transpose;
  transpose.matrix = this->rows_.matrix.transpose();
  transpose.matrix.makeCompressed();
  const bool symmetric = NumericallySymmetric(this->rows_.matrix, transpose.matrix);
  this->Index(std::move(transpose), symmetric);
}

template <typename T>
void SparseSumSumDispersionFunction<T>::ComputeNormalizationConstant(bool skip) {
  this->Normalize(
      skip, VELMOR_SITE(SparseSumSumDispersionFunction), "Sparse SumSumDisp",
      "Invalid possibly all zero or negative Sparse SumSumDisp matrix, f(V) = %g <= 0.");
}

template class SparseSumSumDispersionFunction<float>;
template class SparseSumSumDispersionFunction<double>;

}  // namespace velmor
