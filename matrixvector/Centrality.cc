#include "matrixvector/Centrality.h"

namespace velmor {

std::optional<CentralityKind> CentralityKindFromText(const std::string& text) {
  constexpr const char* kTexts[] = {"ROWMIN()", "ROWMAX()", "ROWSUM()", "ROWMEAN()"};
  for (int i = 0; i < 4; ++i) {
    if (text == kTexts[i]) return static_cast<CentralityKind>(i);
  }
  return std::nullopt;
}

template <typename T>
matrixio::DenseMatrix<double> ComputeCentrality(const matrixio::DenseMatrix<T>& matrix,
                                                CentralityKind kind) {
  matrixio::DenseMatrix<double> centrality(matrix.rows(), 1);
  for (Eigen::Index i = 0; i < matrix.rows(); ++i) {
    const auto row = matrix.row(i).template cast<double>();
    switch (kind) {
      case CentralityKind::kRowMin:
        centrality(i, 0) = row.minCoeff();
        break;
      case CentralityKind::kRowMax:
        centrality(i, 0) = row.maxCoeff();
        break;
      case CentralityKind::kRowSum:
        centrality(i, 0) = row.sum();
        break;
      case CentralityKind::kRowMean:
        centrality(i, 0) = row.mean();
        break;
    }
  }
  return centrality;
}

template matrixio::DenseMatrix<double> ComputeCentrality(const matrixio::DenseMatrix<float>&,
                                                         CentralityKind);
template matrixio::DenseMatrix<double> ComputeCentrality(const matrixio::DenseMatrix<double>&,
                                                         CentralityKind);

}  // namespace velmor
