#include "matrixvector/OneHotExpansion.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>
#include <vector>

#include "utils/error_messages.h"

namespace velmor {

namespace {

constexpr int kLargestCode = 1 << 20;

// The number of expanded columns of each feature: its largest code + 1.
template <typename T>
std::vector<int> ExpandedWidths(const matrixio::DenseMatrix<T>& codes) {
  std::vector<int> widths(static_cast<std::size_t>(codes.cols()), 0);
  for (Eigen::Index j = 0; j < codes.cols(); ++j) {
    for (Eigen::Index i = 0; i < codes.rows(); ++i) {
      const T c = codes(i, j);
      if (!(c >= 0) || c != std::floor(c) || c > kLargestCode) {
        throw std::invalid_argument(exception::MakeCommandMessage(
            "one-hot expansion needs non-negative integer codes, but entry (%d,%d) is %g.",
            static_cast<int>(i), static_cast<int>(j), static_cast<double>(c)));
      }
      widths[static_cast<std::size_t>(j)] =
          std::max(widths[static_cast<std::size_t>(j)], static_cast<int>(c) + 1);
    }
  }
  return widths;
}

}  // namespace

template <typename T>
matrixio::DenseMatrix<T> ExpandOneHot(const matrixio::DenseMatrix<T>& codes) {
  const std::vector<int> widths = ExpandedWidths(codes);
  const Eigen::Index total = std::accumulate(widths.begin(), widths.end(), Eigen::Index{0});
  matrixio::DenseMatrix<T> expanded = matrixio::DenseMatrix<T>::Zero(codes.rows(), total);
  Eigen::Index offset = 0;
  for (Eigen::Index j = 0; j < codes.cols(); ++j) {
    for (Eigen::Index i = 0; i < codes.rows(); ++i) {
      expanded(i, offset + static_cast<Eigen::Index>(codes(i, j))) = 1;
    }
    offset += widths[static_cast<std::size_t>(j)];
  }
  return expanded;
}

template matrixio::DenseMatrix<float> ExpandOneHot(const matrixio::DenseMatrix<float>&);
template matrixio::DenseMatrix<double> ExpandOneHot(const matrixio::DenseMatrix<double>&);

}  // namespace velmor
