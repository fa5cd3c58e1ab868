#include "matrixvector/FeatureSimilarity.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "matrixvector/MatrixTransformations.h"
#include "support/float_types.h"
#include "support/located_messages.h"

namespace velmor {
namespace {

template <typename T>
using Matrix = typename FeatureSimilarity<T>::Matrix;
template <typename T>
using Kind = typename FeatureSimilarity<T>::Kind;

// Items around a few cluster centres, as embeddings are; with `integer`,
// small whole numbers, so that many similarities tie exactly.
template <typename T>
Matrix<T> Features(int n, int d, bool integer, unsigned seed) {
  std::mt19937 engine(seed);
  std::normal_distribution<double> normal;
  std::uniform_int_distribution<int> small(0, 3);
  const Eigen::MatrixXd centres =
      Eigen::MatrixXd::NullaryExpr(4, d, [&] { return 3 * normal(engine); });
  Matrix<T> x(n, d);
  for (int i = 0; i < n; ++i) {
    const int centre = i % 4;
    for (int c = 0; c < d; ++c) {
      x(i, c) = static_cast<T>(integer ? small(engine) : centres(centre, c) + normal(engine));
    }
  }
  return x;
}

// Squared distances of distinct rows, by plain loops in double, ascending.
template <typename T>
std::vector<double> SortedPairDistances(const Matrix<T>& x) {
  std::vector<double> d2;
  for (int j = 1; j < x.rows(); ++j)
    for (int i = 0; i < j; ++i)
      d2.push_back((x.row(i) - x.row(j)).template cast<double>().squaredNorm());
  std::sort(d2.begin(), d2.end());
  return d2;
}

// The similarity by its definition in double, with the entry's error scale.
template <typename T>
std::pair<double, double> Reference(Kind<T> kind, const Matrix<T>& x, int i, int j, double gamma,
                                    double largest) {
  const Eigen::VectorXd a = x.row(i).template cast<double>().transpose();
  const Eigen::VectorXd b = x.row(j).template cast<double>().transpose();
  switch (kind) {
    case Kind<T>::kRbf:
      return {std::exp(-gamma * (a - b).squaredNorm()), 1.0};
    case Kind<T>::kCosine:
      return {a.norm() > 0 && b.norm() > 0 ? a.dot(b) / (a.norm() * b.norm()) : 0.0, 1.0};
    case Kind<T>::kDot:
      return {a.dot(b), a.norm() * b.norm()};
    default:
      return {largest - (a - b).norm(), largest};
  }
}

template <typename T>
class FeatureSimilarityTest : public ::testing::Test {};
TYPED_TEST_SUITE(FeatureSimilarityTest, testing::FloatTypes);

constexpr Kind<float> kAllKinds[] = {Kind<float>::kRbf, Kind<float>::kCosine, Kind<float>::kDot,
                                     Kind<float>::kEuclideanSim};

TYPED_TEST(FeatureSimilarityTest, DenseMatchesDefinitionForEveryThreadCount) {
  using T = TypeParam;
  const double tolerance = 64 * std::numeric_limits<T>::epsilon();
  // Sizes around tile boundaries; one zero row for COSINE.
  for (const int n : {1, 2, 129, 513}) {
    Matrix<T> x = Features<T>(n, 5, false, static_cast<unsigned>(n));
    if (n > 2) x.row(n / 2).setZero();
    const std::vector<double> d2 = SortedPairDistances<T>(x);
    const double median = d2.empty() ? 0.0 : d2[d2.size() / 2];
    const double largest = d2.empty() ? 0.0 : std::sqrt(d2.back());
    for (const auto kind_value : kAllKinds) {
      const auto kind = static_cast<Kind<T>>(kind_value);
      for (const double gamma : {0.0, 0.125}) {
        if (kind != Kind<T>::kRbf && gamma > 0) continue;
        const Matrix<T> s = FeatureSimilarity<T>(kind, gamma, 1).Dense(x);
        ASSERT_EQ(s.rows(), n);
        ASSERT_EQ(s.cols(), n);
        EXPECT_TRUE(s == s.transpose()) << "not symmetric, kind " << static_cast<int>(kind);
        const double used_gamma = gamma > 0 ? gamma : median > 0 ? 1 / median : 1.0;
        for (int j = 0; j < n; ++j) {
          for (int i = 0; i < n; ++i) {
            const auto [value, scale] = Reference<T>(kind, x, i, j, used_gamma, largest);
            ASSERT_NEAR(s(i, j), value, tolerance * scale)
                << "kind " << static_cast<int>(kind) << " n " << n << " at " << i << "," << j;
          }
        }
        for (const int threads : {2, 3}) {
          EXPECT_TRUE(FeatureSimilarity<T>(kind, gamma, threads).Dense(x) == s)
              << threads << " threads, kind " << static_cast<int>(kind) << " n " << n;
        }
      }
    }
  }
  // No features at all: every row is the same point.
  const Matrix<T> empty(3, 0);
  EXPECT_TRUE((FeatureSimilarity<T>(Kind<T>::kRbf, 0, 2).Dense(empty).array() == 1).all());
  EXPECT_TRUE((FeatureSimilarity<T>(Kind<T>::kDot, 0, 2).Dense(empty).array() == 0).all());
}

TYPED_TEST(FeatureSimilarityTest, MedianIsExactRankOfAllPairs) {
  using T = TypeParam;
  // Many ties: whole-number features give a few whole squared distances,
  // far more of each than the selection gathers at once.
  const Matrix<T> ties = Features<T>(400, 3, true, 5);
  const std::vector<double> tied = SortedPairDistances<T>(ties);
  for (const int threads : {1, 3}) {
    EXPECT_NEAR(FeatureSimilarity<T>(Kind<T>::kRbf, 0, threads).MedianSquaredDistance(ties),
                tied[tied.size() / 2], 1e-9);
  }
  // Over a million pairs, all distinct; neighbouring ranks differ far more
  // than rounding.
  const Matrix<T> many = Features<T>(2100, 4, false, 9);
  const std::vector<double> all = SortedPairDistances<T>(many);
  const double median = all[all.size() / 2];
  const double got = FeatureSimilarity<T>(Kind<T>::kRbf, 0, 2).MedianSquaredDistance(many);
  EXPECT_NEAR(got, median, 4 * std::numeric_limits<T>::epsilon() * median);
  if constexpr (std::is_same_v<T, double>) {
    EXPECT_LT(std::abs(got - median), std::abs(all[all.size() / 2 + 1] - median) / 4);
  }
  EXPECT_EQ(FeatureSimilarity<T>(Kind<T>::kRbf, 0, 2).MedianSquaredDistance(Matrix<T>(1, 4)), 0);
}

TYPED_TEST(FeatureSimilarityTest, NearestEqualsDenseThenKnn) {
  using T = TypeParam;
  // Whole-number features make many exact ties, which KNN breaks towards
  // the lower column; k = 300 exceeds n.
  for (const bool integer : {true, false}) {
    const Matrix<T> x = Features<T>(267, 3, integer, 11);
    for (const char* kind : {"RBF()", "RBF(0.5)", "COSINE()", "DOT()", "EUCLIDEANSIM()"}) {
      for (const char* k : {"KNN(1)", "KNN(7)", "KNN(300)"}) {
        const std::string streamed = std::string(kind) + " | " + k;
        const std::string dense_first = std::string(kind) + " | SCALE(1) | " + k;
        TransformableMatrix<T> expected;
        expected.dense = x;
        ApplyMatrixTransformation(dense_first, expected, TransformationOptions{true, 1});
        for (const int threads : {1, 2, 3}) {
          TransformableMatrix<T> got;
          got.dense = x;
          ApplyMatrixTransformation(streamed, got, TransformationOptions{true, threads});
          ASSERT_TRUE(got.is_sparse);
          ASSERT_EQ(got.sparse.nonZeros(), expected.sparse.nonZeros()) << streamed;
          EXPECT_TRUE(Matrix<T>(got.sparse) == Matrix<T>(expected.sparse))
              << streamed << " on " << threads << " threads";
        }
        TransformableMatrix<T> dense;
        dense.dense = x;
        ApplyMatrixTransformation(streamed, dense, TransformationOptions{false, 2});
        EXPECT_TRUE(dense.dense == Matrix<T>(expected.sparse)) << streamed << " dense";
      }
    }
  }
}

TYPED_TEST(FeatureSimilarityTest, RefusesWhatItCannotRepresent) {
  using T = TypeParam;
  const auto refused = [](Kind<T> kind, const Matrix<T>& x, const std::string& text) {
    testing::ExpectErrorContaining<std::invalid_argument>(
        [&] { FeatureSimilarity<T>(kind, 0, 2).Dense(x); }, text);
  };
  Matrix<T> x = Matrix<T>::Ones(3, 2);
  x(2, 1) = std::numeric_limits<T>::quiet_NaN();
  refused(Kind<T>::kCosine, x, "COSINE() needs finite features, but row 2, column 1");
  x(2, 1) = std::numeric_limits<T>::max();
  refused(Kind<T>::kDot, x, "DOT() overflows");
  refused(Kind<T>::kEuclideanSim, x, "EUCLIDEANSIM() overflows");
  if constexpr (std::is_same_v<T, double>) {
    refused(Kind<T>::kRbf, x, "RBF() overflows");
  } else {
    // In float the squared distances fit double, and a far point is simply dissimilar.
    EXPECT_EQ(FeatureSimilarity<T>(Kind<T>::kRbf, 1, 2).Dense(x)(0, 2), 0);
  }
  // A gamma beyond T's range still gives 1 for equal points.
  EXPECT_EQ(FeatureSimilarity<T>(Kind<T>::kRbf, 1e300, 1).Dense(Matrix<T>::Ones(2, 2))(0, 1), 1);
  EXPECT_THROW(FeatureSimilarity<T>(Kind<T>::kRbf, -1, 1), std::invalid_argument);
  EXPECT_THROW(FeatureSimilarity<T>(Kind<T>::kDot, 0, -1), std::invalid_argument);
  EXPECT_THROW(FeatureSimilarity<T>(Kind<T>::kDot, 0, 1).Nearest(x, 0), std::invalid_argument);
}

}  // namespace
}  // namespace velmor
