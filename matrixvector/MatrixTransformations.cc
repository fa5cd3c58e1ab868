#include "matrixvector/MatrixTransformations.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "io/DenseMatrixIO.h"
#include "io/SparseMatrixIO.h"
#include "matrixvector/FeatureSimilarity.h"
#include "utils/error_messages.h"
#include "utils/logging.h"
#include "utils/other_string_utils.h"

namespace velmor {
namespace {

using matrixio::DenseMatrix;
using matrixio::SparseMatrix;

enum Keyword {
  kRbf,
  kCosine,
  kDot,
  kEuclideanSim,
  kAbs,
  kScale,
  kShift,
  kClip,
  kSymmetrize,
  kTranspose,
  kKnn,
  kPrint,
  kSave,
  kNumberOfKeywords
};
constexpr const char* kKeywords[kNumberOfKeywords] = {
    "RBF",  "COSINE",     "DOT",       "EUCLIDEANSIM", "ABS",   "SCALE", "SHIFT",
    "CLIP", "SYMMETRIZE", "TRANSPOSE", "KNN",          "PRINT", "SAVE"};

// One parsed call: keyword and its argument texts.
struct Step {
  Keyword keyword;
  std::vector<std::string> arguments;
};

std::string Trim(const std::string& text) {
  std::size_t b = 0, e = text.size();
  while (b < e && std::isspace(static_cast<unsigned char>(text[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(text[e - 1]))) --e;
  return text.substr(b, e - b);
}

// Splits "NAME(a, b) | NAME2()" into steps; every error names the offending text.
std::vector<Step> ParseSteps(const std::string& pipeline) {
  std::vector<Step> steps;
  std::size_t position = 0;
  const std::size_t length = pipeline.size();
  while (true) {
    while (position < length && std::isspace(static_cast<unsigned char>(pipeline[position])))
      ++position;
    if (position >= length) {
      if (!steps.empty()) {
        VELMOR_THROW(std::invalid_argument, "Missing transformation after the last '|'.");
      }
      break;
    }
    const std::string name = YankOutAlphaNumericTokenPrefixFromStringStartingAtOffset(
        pipeline, static_cast<int32_t>(position));
    if (name.empty()) {
      VELMOR_THROW(std::invalid_argument, "Expected a transformation name at offset %d of '%s'.",
                   static_cast<int>(position), pipeline.c_str());
    }
    const auto match = FindBestPrefixMatchInStringList(name, 0, kKeywords, kNumberOfKeywords);
    if (match.first < 0 || match.second != name.size()) {
      VELMOR_THROW(std::invalid_argument, "Unknown matrix transformation '%s'.", name.c_str());
    }
    position += name.size();
    while (position < length && std::isspace(static_cast<unsigned char>(pipeline[position])))
      ++position;
    if (position >= length || pipeline[position] != '(') {
      VELMOR_THROW(std::invalid_argument, "Expected '(' after transformation '%s'.", name.c_str());
    }
    const std::size_t close = pipeline.find(')', position);
    if (close == std::string::npos) {
      VELMOR_THROW(std::invalid_argument, "Missing ')' after transformation '%s'.", name.c_str());
    }
    Step step{static_cast<Keyword>(match.first), {}};
    const std::string inside = Trim(pipeline.substr(position + 1, close - position - 1));
    if (!inside.empty()) {
      std::stringstream split(inside);
      std::string argument;
      while (std::getline(split, argument, ',')) step.arguments.push_back(Trim(argument));
      if (inside.back() == ',') step.arguments.push_back("");
    }
    steps.push_back(std::move(step));
    position = close + 1;
    while (position < length && std::isspace(static_cast<unsigned char>(pipeline[position])))
      ++position;
    if (position >= length) break;
    if (pipeline[position] != '|') {
      VELMOR_THROW(std::invalid_argument,
                   "Expected '|' between transformations at offset %d of '%s'.",
                   static_cast<int>(position), pipeline.c_str());
    }
    ++position;
  }
  return steps;
}

void CheckArgumentCount(const Step& step, std::size_t least, std::size_t most) {
  const std::size_t count = step.arguments.size();
  if (count < least || count > most) {
    VELMOR_THROW(std::invalid_argument, "%s() takes %s%zu argument(s), but %zu were given.",
                 kKeywords[step.keyword], least == most ? "" : "at most ", most, count);
  }
}

double NumberArgument(const Step& step, std::size_t index) {
  const std::string& text = step.arguments[index];
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || !std::isfinite(value)) {
    VELMOR_THROW(std::invalid_argument, "Argument %zu of %s() must be a finite number, not '%s'.",
                 index + 1, kKeywords[step.keyword], text.c_str());
  }
  return value;
}

template <typename T>
void RequireDense(const TransformableMatrix<T>& matrix, const Step& step) {
  if (matrix.is_sparse) {
    VELMOR_THROW(std::invalid_argument, "%s() needs a dense matrix, but the matrix is sparse.",
                 kKeywords[step.keyword]);
  }
}

template <typename T>
void RequireSquare(const TransformableMatrix<T>& matrix, const Step& step) {
  if (matrix.rows() != matrix.cols()) {
    VELMOR_THROW(std::invalid_argument, "%s() needs a square matrix, but it is %dx%d.",
                 kKeywords[step.keyword], matrix.rows(), matrix.cols());
  }
}

// The similarity of a feature step, its arguments checked.
template <typename T>
FeatureSimilarity<T> MakeFeatureSimilarity(const Step& step, int threads) {
  using Kind = typename FeatureSimilarity<T>::Kind;
  switch (step.keyword) {
    case kRbf: {
      CheckArgumentCount(step, 0, 1);
      double gamma = 0.0;
      if (step.arguments.size() == 1) {
        gamma = NumberArgument(step, 0);
        if (gamma <= 0)
          VELMOR_THROW(std::invalid_argument, "RBF() needs gamma > 0, not %g.", gamma);
      }
      return FeatureSimilarity<T>(Kind::kRbf, gamma, threads);
    }
    case kCosine:
      CheckArgumentCount(step, 0, 0);
      return FeatureSimilarity<T>(Kind::kCosine, 0.0, threads);
    case kDot:
      CheckArgumentCount(step, 0, 0);
      return FeatureSimilarity<T>(Kind::kDot, 0.0, threads);
    default:
      CheckArgumentCount(step, 0, 0);
      return FeatureSimilarity<T>(Kind::kEuclideanSim, 0.0, threads);
  }
}

template <typename T>
void ApplyFeatureStep(const Step& step, TransformableMatrix<T>& matrix, int threads) {
  RequireDense(matrix, step);
  const FeatureSimilarity<T> similarity = MakeFeatureSimilarity<T>(step, threads);
  matrix.dense = similarity.Dense(matrix.dense);
  matrix.symmetric = true;
}

// The k of KNN(k), checked.
double KnnArgument(const Step& step) {
  CheckArgumentCount(step, 1, 1);
  const double k_value = NumberArgument(step, 0);
  if (k_value < 1 || k_value != std::floor(k_value)) {
    VELMOR_THROW(std::invalid_argument, "KNN() needs a whole number k >= 1, not %g.", k_value);
  }
  return k_value;
}

// A feature step followed by KNN(k): the k largest of each row are kept as
// the tiles are computed.
template <typename T>
void ApplyNearestFeatureStep(const Step& step, const Step& knn, TransformableMatrix<T>& matrix,
                             const TransformationOptions& options) {
  RequireDense(matrix, step);
  const FeatureSimilarity<T> similarity = MakeFeatureSimilarity<T>(step, options.threads);
  const double k_value = KnnArgument(knn);
  const int k =
      static_cast<int>(std::min<double>(k_value, std::max<Eigen::Index>(1, matrix.rows())));
  SparseMatrix<T> nearest = similarity.Nearest(matrix.dense, k);
  matrix.symmetric = false;
  if (options.want_sparse) {
    matrix.sparse.swap(nearest);
    matrix.dense.resize(0, 0);
    matrix.is_sparse = true;
  } else {
    matrix.dense = DenseMatrix<T>(nearest);
  }
}

// Keeps the k largest entries of each row (ties broken towards lower columns).
template <typename T>
void ApplyKnn(const Step& step, TransformableMatrix<T>& matrix, bool want_sparse) {
  const double k_value = KnnArgument(step);
  matrix.symmetric = false;
  const int cols = matrix.cols();
  const int k = static_cast<int>(std::min<double>(k_value, cols));
  if (matrix.is_sparse) matrix.dense = DenseMatrix<T>(matrix.sparse);
  const DenseMatrix<T>& dense = matrix.dense;
  std::vector<matrixio::SparseTriplet<T>> kept;
  kept.reserve(static_cast<std::size_t>(matrix.rows()) * static_cast<std::size_t>(k));
  std::vector<int> order(static_cast<std::size_t>(cols));
  for (int i = 0; i < dense.rows(); ++i) {
    for (int j = 0; j < cols; ++j) order[static_cast<std::size_t>(j)] = j;
    std::partial_sort(order.begin(), order.begin() + k, order.end(), [&](int a, int b) {
      return dense(i, a) > dense(i, b) || (dense(i, a) == dense(i, b) && a < b);
    });
    for (int r = 0; r < k; ++r) {
      const int j = order[static_cast<std::size_t>(r)];
      kept.emplace_back(i, j, dense(i, j));
    }
  }
  if (want_sparse || matrix.is_sparse) {
    matrix.sparse.resize(matrix.rows(), cols);
    matrix.sparse.setFromTriplets(kept.begin(), kept.end());
    matrix.sparse.makeCompressed();
    matrix.dense.resize(0, 0);
    matrix.is_sparse = true;
  } else {
    DenseMatrix<T> result = DenseMatrix<T>::Zero(matrix.rows(), cols);
    for (const auto& t : kept) result(t.row(), t.col()) = t.value();
    matrix.dense.swap(result);
  }
}

template <typename T>
void ApplyEntryStep(const Step& step, TransformableMatrix<T>& matrix) {
  switch (step.keyword) {
    case kAbs:
      CheckArgumentCount(step, 0, 0);
      if (matrix.is_sparse)
        matrix.sparse = matrix.sparse.cwiseAbs();
      else
        matrix.dense = matrix.dense.cwiseAbs();
      break;
    case kScale: {
      CheckArgumentCount(step, 1, 1);
      const T a = static_cast<T>(NumberArgument(step, 0));
      if (matrix.is_sparse)
        matrix.sparse *= a;
      else
        matrix.dense *= a;
      break;
    }
    case kShift: {
      CheckArgumentCount(step, 1, 1);
      RequireDense(matrix, step);
      matrix.dense.array() += static_cast<T>(NumberArgument(step, 0));
      break;
    }
    case kClip: {
      CheckArgumentCount(step, 2, 2);
      const double low = NumberArgument(step, 0), high = NumberArgument(step, 1);
      if (low > high) {
        VELMOR_THROW(std::invalid_argument, "CLIP() needs lo <= hi, not %g > %g.", low, high);
      }
      const T lo = static_cast<T>(low), hi = static_cast<T>(high);
      if (matrix.is_sparse) {
        for (Eigen::Index c = 0; c < matrix.sparse.outerSize(); ++c) {
          for (typename SparseMatrix<T>::InnerIterator it(matrix.sparse, c); it; ++it) {
            it.valueRef() = std::clamp(it.value(), lo, hi);
          }
        }
      } else {
        matrix.dense = matrix.dense.cwiseMax(lo).cwiseMin(hi);
      }
      break;
    }
    case kSymmetrize:
      CheckArgumentCount(step, 0, 0);
      RequireSquare(matrix, step);
      if (matrix.is_sparse) {
        SparseMatrix<T> transposed = matrix.sparse.transpose();
        matrix.sparse = (matrix.sparse + transposed) * static_cast<T>(0.5);
      } else {
        DenseMatrix<T> transposed = matrix.dense.transpose();
        matrix.dense = (matrix.dense + transposed) * static_cast<T>(0.5);
        matrix.symmetric = true;
      }
      break;
    case kTranspose:
      CheckArgumentCount(step, 0, 0);
      if (matrix.is_sparse) {
        SparseMatrix<T> transposed = matrix.sparse.transpose();
        matrix.sparse.swap(transposed);
      } else {
        DenseMatrix<T> transposed = matrix.dense.transpose();
        matrix.dense.swap(transposed);
      }
      break;
    default:
      break;
  }
}

template <typename T>
void ApplyOutputStep(const Step& step, TransformableMatrix<T>& matrix) {
  if (step.keyword == kPrint) {
    CheckArgumentCount(step, 0, 0);
    std::ostringstream text;
    if (matrix.is_sparse)
      text << DenseMatrix<T>(matrix.sparse);
    else
      text << matrix.dense;
    logging::GetLogger("mxfm")->info("Matrix ({}x{}):\n{}", matrix.rows(), matrix.cols(),
                                     text.str());
    return;
  }
  CheckArgumentCount(step, 1, 1);
  if (step.arguments[0].empty()) VELMOR_THROW(std::invalid_argument, "SAVE() needs a file name.");
  if (matrix.is_sparse) {
    matrixio::WriteSparseMatrixToFile(matrix.sparse, step.arguments[0]);
  } else {
    matrixio::WriteMatrixToFile(matrix.dense, step.arguments[0], false);
  }
}

}  // namespace

template <typename T>
void ApplyMatrixTransformation(const std::string& pipeline, TransformableMatrix<T>& matrix,
                               const TransformationOptions& options) {
  if (options.threads < 0) {
    VELMOR_THROW(std::invalid_argument, "Invalid thread count %d.", options.threads);
  }
  const std::vector<Step> steps = ParseSteps(pipeline);
  for (std::size_t s = 0; s < steps.size(); ++s) {
    const Step& step = steps[s];
    switch (step.keyword) {
      case kRbf:
      case kCosine:
      case kDot:
      case kEuclideanSim:
        if (s + 1 < steps.size() && steps[s + 1].keyword == kKnn) {
          ApplyNearestFeatureStep(step, steps[++s], matrix, options);
        } else {
          ApplyFeatureStep(step, matrix, options.threads);
        }
        break;
      case kKnn:
        ApplyKnn(step, matrix, options.want_sparse);
        break;
      case kPrint:
      case kSave:
        ApplyOutputStep(step, matrix);
        break;
      default:
        ApplyEntryStep(step, matrix);
        break;
    }
  }
  if (options.want_sparse && !matrix.is_sparse) {
    matrix.sparse = matrix.dense.sparseView();
    matrix.sparse.makeCompressed();
    matrix.dense.resize(0, 0);
    matrix.is_sparse = true;
  }
}

template <typename T>
void ApplyMatrixTransformation(const std::string& pipeline, TransformableMatrix<T>& matrix,
                               bool want_sparse) {
  TransformationOptions options;
  options.want_sparse = want_sparse;
  ApplyMatrixTransformation(pipeline, matrix, options);
}

template <typename T>
void ApplyMatrixTransformation(const std::string& pipeline, DenseMatrix<T>& matrix) {
  TransformableMatrix<T> holder;
  holder.dense.swap(matrix);
  try {
    ApplyMatrixTransformation(pipeline, holder, false);
  } catch (...) {
    holder.dense.swap(matrix);
    throw;
  }
  if (holder.is_sparse) holder.dense = DenseMatrix<T>(holder.sparse);
  holder.dense.swap(matrix);
}

template void ApplyMatrixTransformation<float>(const std::string&, TransformableMatrix<float>&,
                                               const TransformationOptions&);
template void ApplyMatrixTransformation<double>(const std::string&, TransformableMatrix<double>&,
                                                const TransformationOptions&);
template void ApplyMatrixTransformation<float>(const std::string&, TransformableMatrix<float>&,
                                               bool);
template void ApplyMatrixTransformation<double>(const std::string&, TransformableMatrix<double>&,
                                                bool);
template void ApplyMatrixTransformation<float>(const std::string&, DenseMatrix<float>&);
template void ApplyMatrixTransformation<double>(const std::string&, DenseMatrix<double>&);

}  // namespace velmor
