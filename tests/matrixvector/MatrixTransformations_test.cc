#include "matrixvector/MatrixTransformations.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>

#include "io/DenseMatrixIO.h"
#include "matrixvector/FeatureSimilarity.h"
#include "support/located_messages.h"
#include "support/temp_files.h"

namespace velmor {
namespace {

using matrixio::DenseMatrix;

DenseMatrix<double> Features() {
  DenseMatrix<double> x(4, 3);
  x << 1, 0, 2,  //
      0, 1, 0,   //
      3, 3, 3,   //
      -1, 2, 0.5;
  return x;
}

TEST(MatrixTransformations, FeatureSimilaritiesByName) {
  // Names (a prefix, blanks) and arguments reach the similarity's own
  // computation, which is checked against its definition on its own.
  using Kind = FeatureSimilarity<double>::Kind;
  const std::pair<const char*, FeatureSimilarity<double>> named[] = {
      {"RBF(0.25)", {Kind::kRbf, 0.25, 1}},
      {"RBF()", {Kind::kRbf, 0, 1}},
      {"COS()", {Kind::kCosine, 0, 1}},
      {" DOT ( ) ", {Kind::kDot, 0, 1}},
      {"EUCLIDEANSIM()", {Kind::kEuclideanSim, 0, 1}}};
  for (const auto& [pipeline, similarity] : named) {
    DenseMatrix<double> m = Features();
    ApplyMatrixTransformation(pipeline, m);
    EXPECT_EQ(m, similarity.Dense(Features())) << pipeline;
  }
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
  const testing::TempDir dir;
  const std::string file = dir.File("saved.csv");
  DenseMatrix<double> m = Features();
  ApplyMatrixTransformation("SAVE(" + file + ") | SCALE(3)", m);
  const DenseMatrix<double> saved = matrixio::LoadDenseMatrixFromFileOrRamOrMakeRandom<double>(
      file.c_str(), nullptr, false, -1, -1);
  EXPECT_TRUE(saved.isApprox(Features()));
  EXPECT_TRUE(m.isApprox(3 * Features()));

  // Bad strings name what is wrong and leave the matrix unchanged.
  const DenseMatrix<double> before = Features();
  const auto error_of = [&](const std::string& pipeline) {
    DenseMatrix<double> copy = before;
    const auto message = testing::FailureOf([&] { ApplyMatrixTransformation(pipeline, copy); });
    EXPECT_TRUE(copy.isApprox(before)) << pipeline;
    return message.value_or("nothing thrown");
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
  EXPECT_NE(testing::FailureOf([&] {
              ApplyMatrixTransformation("SHIFT(1)", sparse);
            })->find("SHIFT() needs a dense matrix, but the matrix is sparse."),
            std::string::npos);
  // Empty and blank strings change nothing.
  DenseMatrix<double> same = before;
  ApplyMatrixTransformation("  ", same);
  EXPECT_EQ(same, before);
}

}  // namespace
}  // namespace velmor
