#include "matrixvector/MatrixTransformations.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include "io/DenseMatrixIO.h"

namespace velmor {
namespace {

using matrixio::DenseMatrix;

std::string MessageOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::exception& e) {
    return e.what();
  }
  return "nothing thrown";
}

DenseMatrix<double> Features() {
  DenseMatrix<double> x(4, 3);
  x << 1, 0, 2,  //
      0, 1, 0,   //
      3, 3, 3,   //
      -1, 2, 0.5;
  return x;
}

TEST(MatrixTransformations, FeatureSimilarities) {
  const DenseMatrix<double> x = Features();
  // Each similarity is checked entry by entry against its definition.
  DenseMatrix<double> rbf = x, cosine = x, dot = x, euclid = x;
  ApplyMatrixTransformation("RBF(0.25)", rbf);
  ApplyMatrixTransformation("COS()", cosine);  // prefix of COSINE
  ApplyMatrixTransformation(" DOT ( ) ", dot);
  ApplyMatrixTransformation("EUCLIDEANSIM()", euclid);
  ASSERT_EQ(rbf.rows(), 4);
  ASSERT_EQ(rbf.cols(), 4);
  double largest = 0;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) largest = std::max(largest, (x.row(i) - x.row(j)).norm());
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      const double d2 = (x.row(i) - x.row(j)).squaredNorm();
      EXPECT_NEAR(rbf(i, j), std::exp(-0.25 * d2), 1e-12);
      EXPECT_NEAR(dot(i, j), x.row(i).dot(x.row(j)), 1e-12);
      EXPECT_NEAR(cosine(i, j), x.row(i).dot(x.row(j)) / (x.row(i).norm() * x.row(j).norm()),
                  1e-12);
      EXPECT_NEAR(euclid(i, j), largest - std::sqrt(d2), 1e-9);
    }
  }
  // Default gamma: 1 / median squared distance of distinct rows.
  DenseMatrix<double> automatic = x;
  ApplyMatrixTransformation("RBF()", automatic);
  std::vector<double> d2;
  for (int j = 1; j < 4; ++j)
    for (int i = 0; i < j; ++i) d2.push_back((x.row(i) - x.row(j)).squaredNorm());
  std::sort(d2.begin(), d2.end());
  const double gamma = 1.0 / d2[d2.size() / 2];
  EXPECT_NEAR(automatic(0, 1), std::exp(-gamma * (x.row(0) - x.row(1)).squaredNorm()), 1e-12);
}

TEST(MatrixTransformations, EntryWiseAndStructural) {
  DenseMatrix<float> m(2, 3);
  m << -1, 2, -3, 4, -5, 6;
  DenseMatrix<float> t = m;
  ApplyMatrixTransformation("ABS() | SCALE(2) | SHIFT(-1) | CLIP(0, 9)", t);
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 3; ++j)
      EXPECT_FLOAT_EQ(t(i, j), std::clamp(2 * std::abs(m(i, j)) - 1, 0.f, 9.f));
  ApplyMatrixTransformation("TRANSPOSE()", t);
  EXPECT_EQ(t.rows(), 3);
  EXPECT_FLOAT_EQ(t(2, 0), std::clamp(2 * 3.f - 1, 0.f, 9.f));

  DenseMatrix<double> s(3, 3);
  s << 1, 2, 3, 4, 5, 6, 7, 8, 9;
  DenseMatrix<double> sym = s;
  ApplyMatrixTransformation("SYMMETRIZE()", sym);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) EXPECT_DOUBLE_EQ(sym(i, j), (s(i, j) + s(j, i)) / 2);

  // KNN keeps the k largest of each row; ties go to the lower column.
  DenseMatrix<double> knn(2, 4);
  knn << 5, 1, 5, 3,  //
      0, 0, 0, 0;
  ApplyMatrixTransformation("KNN(2)", knn);
  EXPECT_EQ(knn.row(0), (Eigen::RowVector4d() << 5, 0, 5, 0).finished());
  EXPECT_EQ(knn.row(1), Eigen::RowVector4d::Zero());
  // In sparse form, only the kept entries are stored.
  TransformableMatrix<double> sparse;
  sparse.dense = s;
  ApplyMatrixTransformation("KNN(1)", sparse, true);
  ASSERT_TRUE(sparse.is_sparse);
  EXPECT_EQ(sparse.sparse.nonZeros(), 3);
  EXPECT_EQ(sparse.sparse.coeff(1, 2), 6);
  // A sparse matrix keeps its form through entry-wise steps.
  ApplyMatrixTransformation("SCALE(0.5) | TRANSPOSE()", sparse, true);
  EXPECT_EQ(sparse.sparse.coeff(2, 1), 3);

  // A matrix said to be symmetric is so bit for bit (its storage is then
  // element-major); feature similarities and what keeps them symmetric say so.
  const std::pair<const char*, bool> claims[] = {
      {"RBF()", true},
      {"COS() | SHIFT(1) | CLIP(0, 1.5)", true},
      {"DOT() | TRANSPOSE()", true},
      {"EUCLIDEANSIM() | KNN(2)", false},
      {"SCALE(2)", false},
      {"DOT() | ABS() | SCALE(3) | SYMMETRIZE()", true},
  };
  for (const auto& [pipeline, symmetric] : claims) {
    TransformableMatrix<float> m;
    m.dense = Features().cast<float>();
    ApplyMatrixTransformation(pipeline, m, TransformationOptions{false, 3});
    EXPECT_EQ(m.symmetric, symmetric) << pipeline;
    EXPECT_TRUE(!m.symmetric || m.dense == m.dense.transpose()) << pipeline;
  }
}

TEST(MatrixTransformations, SaveAndErrors) {
  const std::string file = ::testing::TempDir() + "/velmor_transformation_save.csv";
  DenseMatrix<double> m = Features();
  ApplyMatrixTransformation("SAVE(" + file + ") | SCALE(3)", m);
  const DenseMatrix<double> saved = matrixio::LoadDenseMatrixFromFileOrRamOrMakeRandom<double>(
      file.c_str(), nullptr, false, -1, -1);
  EXPECT_TRUE(saved.isApprox(Features()));
  EXPECT_TRUE(m.isApprox(3 * Features()));
  std::remove(file.c_str());

  // Bad strings name what is wrong and leave the matrix unchanged.
  const DenseMatrix<double> before = Features();
  const auto error_of = [&](const std::string& pipeline) {
    DenseMatrix<double> copy = before;
    const std::string message = MessageOf([&] { ApplyMatrixTransformation(pipeline, copy); });
    EXPECT_TRUE(copy.isApprox(before)) << pipeline;
    return message;
  };
  const std::pair<const char*, const char*> refused[] = {
      {"FOO()", "Unknown matrix transformation 'FOO'."},
      {"S(1)", "At least double match"},
      {"SCALE", "Expected '(' after transformation 'SCALE'."},
      {"SCALE(2", "Missing ')'"},
      {"SCALE(x)", "must be a finite number, not 'x'"},
      {"CLIP(1)", "CLIP() takes 2 argument(s), but 1 were given."},
      {"ABS() |", "Missing transformation after the last '|'."},
      {"ABS() ABS()", "Expected '|'"},
      {"SYMMETRIZE()", "needs a square matrix, but it is 4x3."},
      {"KNN(0)", "KNN() needs a whole number k >= 1"},
      {"RBF(-1)", "RBF() needs gamma > 0"},
  };
  for (const auto& [pipeline, text] : refused)
    EXPECT_NE(error_of(pipeline).find(text), std::string::npos) << text;
  TransformableMatrix<double> sparse;
  sparse.sparse = Features().sparseView();
  sparse.is_sparse = true;
  EXPECT_NE(MessageOf([&] {
              ApplyMatrixTransformation("SHIFT(1)", sparse);
            }).find("SHIFT() needs a dense matrix, but the matrix is sparse."),
            std::string::npos);
  // Empty and blank strings change nothing.
  DenseMatrix<double> same = before;
  ApplyMatrixTransformation("  ", same);
  EXPECT_EQ(same, before);
}

}  // namespace
}  // namespace velmor
