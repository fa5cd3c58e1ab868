#include "functions/FacilityLocationFunction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "functions/set_function_oracle.h"
#include "matrixvector/eigen_matrix_checks.h"
#include "support/float_types.h"

namespace velmor {
namespace {

using testing::ExpectLocatedError;
using testing::RandomMatrix;
using testing::SetOf;

template <typename T>
using Matrix = typename FacilityLocationFunction<T>::DenseMatrix;

// Brute-force value: sum over landmarks of max(0, max over A), in double.
template <typename T>
double BruteForceValue(const Matrix<T>& m, const Set& A) {
  double sum = 0.0;
  for (int i = 0; i < m.cols(); ++i) {
    double best = 0.0;
    for (int a : A) best = std::max(best, static_cast<double>(m(a, i)));
    sum += best;
  }
  return sum;
}

// The expected four-lane sum, written out plainly: lane i % 4 for the full
// blocks, then lanes 0, 1 for a tail of two or three, lane 2 for a last one.
float LaneOrderSum(const std::vector<float>& terms) {
  const int k = static_cast<int>(terms.size());
  float lane[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  const int full = k / 4 * 4;
  for (int i = 0; i < full; ++i) lane[i % 4] += terms[i];
  int i = full;
  if (k - i >= 2) {
    lane[0] += terms[i];
    lane[1] += terms[i + 1];
    i += 2;
  }
  if (i < k) lane[2] += terms[i];
  return (lane[2] + (lane[0] + lane[1])) + lane[3];
}

template <typename T>
class FacilityLocationTest : public ::testing::Test {};
TYPED_TEST_SUITE(FacilityLocationTest, testing::FloatTypes);

TYPED_TEST(FacilityLocationTest, IncrementalAnswersMatchWholeSetEvaluation) {
  using T = TypeParam;
  // k around multiples of four; float gains are summed in float over k landmarks.
  const struct {
    int n, k;
  } shapes[] = {{1, 1}, {2, 3}, {9, 4}, {17, 5}, {24, 7}, {31, 13}, {12, 33}, {40, 64}, {6, 130}};
  testing::OracleOptions options;
  options.steps = 60;
  for (const auto& shape : shapes) {
    SCOPED_TRACE("n = " + std::to_string(shape.n) + ", k = " + std::to_string(shape.k));
    FacilityLocationFunction<T> f(RandomMatrix<T>(shape.n, shape.k, ++options.seed));
    f.ComputeNormalizationConstant(false);
    options.tolerance = testing::Eps<T>(8.0 * shape.k);
    testing::CheckSetFunctionAgainstEvaluation(f, options);
  }
}

TYPED_TEST(FacilityLocationTest, ValuesAgainstBruteForceAndNormalization) {
  using T = TypeParam;
  const int n = 23, k = 11;
  const Matrix<T> m = RandomMatrix<T>(n, k, 99);
  FacilityLocationFunction<T> f(m);
  const double tol = testing::Eps<double>(4.0 * k);
  std::mt19937 rng(5);
  for (int trial = 0; trial < 20; ++trial) {
    const UnorderedHashSet A = testing::RandomSet(n, trial % 7 / 10.0, rng);
    EXPECT_NEAR(BruteForceValue<T>(m, A), f.Evaluate(A), tol);
  }
  // Normalized: f(V) = 1 and values scale by 1 / f(V); skipping restores scale 1.
  const UnorderedHashSet some = SetOf(n, {1, 4, 9});
  const double before = f.Evaluate(some);
  f.ComputeNormalizationConstant(false);
  EXPECT_NEAR(1.0, f.EvaluateGroundSet(), tol);
  EXPECT_NEAR(before / BruteForceValue<T>(m, testing::FullSet(n)), f.Evaluate(some), tol);
  EXPECT_EQ(0.0, f.Evaluate(UnorderedHashSet(n)));
  f.ComputeNormalizationConstant(true);
  EXPECT_EQ(before, f.Evaluate(some));
}

TYPED_TEST(FacilityLocationTest, ConstructionFromEitherLayoutAgrees) {
  using T = TypeParam;
  // More than one 64 x 64 transposition tile each way, with partial tiles.
  const int n = 70, k = 67;
  const Matrix<T> m = RandomMatrix<T>(n, k, 3);
  FacilityLocationFunction<T> from_rows(m);
  // The element-major k x n matrix is moved in without a copy.
  Matrix<T> transposed = m.transpose();
  const T* storage = transposed.data();
  FacilityLocationFunction<T> from_columns(typename FacilityLocationFunction<T>::ElementMajor{},
                                           std::move(transposed));
  EXPECT_EQ(storage, from_columns.ElementMajorMatrix().data());
  // Filling the zero matrix row by row gives the same function.
  FacilityLocationFunction<T> filled(n, k);
  for (int v = 0; v < n; ++v) {
    for (int i = 0; i < k; ++i) filled.MutableRow(v)[i] = m(v, i);
  }
  for (const FacilityLocationFunction<T>* f : {&from_rows, &from_columns, &filled}) {
    for (int v = 0; v < n; ++v) {
      for (int i = 0; i < k; ++i) ASSERT_EQ(m(v, i), f->Similarity(v, i)) << v << ", " << i;
    }
  }
}

TYPED_TEST(FacilityLocationTest, ContextEdgeCases) {
  using T = TypeParam;
  const int n = 5;
  Matrix<T> m(n, 3);
  m << 1, 2, 3,  //
      1, 2, 3,   // duplicate of row 0
      0, 1, 1,   // dominated by row 0
      4, 0, 0,   //
      -1, -2, 0.5;
  FacilityLocationFunction<T> f(m);
  // Adding a dominated element changes nothing and reports it.
  auto growing = f.MakeGrowingContext(SetOf(n, {0}));
  EXPECT_FALSE(growing->AddNewElementToContext(2, true));
  EXPECT_EQ(6.0, growing->CurrentValue());
  EXPECT_TRUE(growing->AddNewElementToContext(3, true));
  EXPECT_EQ(9.0, growing->CurrentValue());
  // Ties: each of two equal maxima has loss 0 on those landmarks.
  auto shrinking = f.MakeShrinkingContext(SetOf(n, {0, 1, 3}));
  EXPECT_EQ(0.0, shrinking->SubsetLoss(0));
  EXPECT_EQ(3.0, shrinking->SubsetLoss(3));
  shrinking->RemoveExistingElementFromContext(0, true);
  EXPECT_EQ(5.0, shrinking->SubsetLoss(1));
  // A negative row: the singleton form sums without clamping, the set form clamps.
  EXPECT_EQ(-2.5, f.Evaluate(4));
  EXPECT_EQ(0.5, f.Evaluate(SetOf(n, {4})));
  EXPECT_EQ(0.5, f.MakeGrowingContext(UnorderedHashSet(n))->DisjointGain(4));
}

TYPED_TEST(FacilityLocationTest, Errors) {
  using T = TypeParam;
  const std::string file = "FacilityLocationFunction";
  FacilityLocationFunction<T> f(RandomMatrix<T>(10, 4, 1));
  testing::CheckArgumentErrors(f, file);
  auto growing = f.MakeGrowingContext(SetOf(10, {2}));
  const int bad[] = {1, -3};
  double gains[2];
  // Normalization: all zeros; NaN and infinity nested, the first bad entry in
  // element-major scan order; the scale stays 1 after a failure.
  FacilityLocationFunction<T> zeros(4, 3);
  Matrix<T> m = RandomMatrix<T>(5, 4, 2);
  m(3, 1) = std::numeric_limits<T>::infinity();
  m(2, 3) = std::numeric_limits<T>::quiet_NaN();
  FacilityLocationFunction<T> nan(m);
  m(2, 3) = 0;
  FacilityLocationFunction<T> inf(m);
  testing::ExpectLocatedErrors(
      file,
      {{[&] { growing->DisjointGains(bad, 2, gains); }, "DisjointGains", "Invalid element = -3."},
       {[] { FacilityLocationFunction<T>(0, 3); }, file, "Invalid argument, ground_set_size=0."},
       {[] { FacilityLocationFunction<T>(3, 0); }, file, "Invalid argument, number_of_concepts=3."},
       {[&] { zeros.ComputeNormalizationConstant(false); }, "ComputeNormalizationConstant",
        "Invalid possibly all zero or negative matrix, f(V) = 0 <= 0."}});
  EXPECT_EQ(1.0, zeros.NormalizationScale());
  ExpectLocatedError([&] { nan.ComputeNormalizationConstant(false); }, file,
                     "ComputeNormalizationConstant", "Invalid facility location matrix.",
                     "Matrix contains IEEE FP NaN value at (row,col)=(2,3).");
  ExpectLocatedError([&] { inf.ComputeNormalizationConstant(true); }, file,
                     "ComputeNormalizationConstant", "Invalid facility location matrix.",
                     "Matrix contains IEEE FP +/- Inf value at (row,col)=(3,1).");
  // With the library-wide checks off the matrix is not inspected.
  SetMatrixValueChecksEnabled(false);
  EXPECT_NO_THROW(inf.ComputeNormalizationConstant(true));
  SetMatrixValueChecksEnabled(true);
}

// The one-pass normalization split between threads: the scale is 1 / f(V)
// as the sequential whole-set evaluation computes it, bit for bit, and a bad
// entry is reported as the first in element-major order, for every count.
TYPED_TEST(FacilityLocationTest, OnePassNormalizationOnAnyThreadCount) {
  using T = TypeParam;
  const std::string file = "FacilityLocationFunction";
  const struct { int n, k; } shapes[] = {{1, 1}, {2, 5}, {7, 3}, {64, 33}, {65, 130}};
  for (const auto& shape : shapes) {
    // Negative entries too, so that clamping at 0 takes part.
    Matrix<T> m = RandomMatrix<T>(shape.n, shape.k, 11 + shape.n);
    m.array() -= T(0.4);
    FacilityLocationFunction<T> f(m);
    const double ground_set_value = f.EvaluateGroundSet();  // sequential, scale 1
    for (int threads : {1, 2, 3, 8, 0}) {
      SCOPED_TRACE("n = " + std::to_string(shape.n) + ", threads = " + std::to_string(threads));
      f.ComputeNormalizationConstant(false, threads);
      EXPECT_EQ(1.0 / ground_set_value, f.NormalizationScale());
      f.ComputeNormalizationConstant(true, threads);
      EXPECT_EQ(1.0, f.NormalizationScale());
    }
  }
  // Bad entries in several of the parts: the earliest wins; the scale stays.
  Matrix<T> m = RandomMatrix<T>(9, 4, 3);
  m(7, 0) = std::numeric_limits<T>::infinity();
  m(4, 2) = std::numeric_limits<T>::quiet_NaN();
  m(5, 1) = std::numeric_limits<T>::quiet_NaN();
  FacilityLocationFunction<T> bad(m);
  for (int threads : {1, 2, 3, 4, 9, 16}) {
    SCOPED_TRACE("threads = " + std::to_string(threads));
    ExpectLocatedError([&] { bad.ComputeNormalizationConstant(false, threads); }, file,
                       "ComputeNormalizationConstant", "Invalid facility location matrix.",
                       "Matrix contains IEEE FP NaN value at (row,col)=(4,2).");
    EXPECT_EQ(1.0, bad.NormalizationScale());
  }
  ExpectLocatedError([&] { bad.ComputeNormalizationConstant(false, -1); }, file,
                     "ComputeNormalizationConstant", "Invalid thread count -1.");
}

// The gain of one candidate is summed in float in the fixed four-lane order:
// rows of widely spread magnitudes, every tail length, against a context
// holding some elements (terms max(0, S - m)), so that the order of the float
// additions decides which small terms survive rounding.
TEST(FacilityLocationLaneOrder, FloatGainUsesFourLaneOrder) {
  std::mt19937 rng(2024);
  std::uniform_real_distribution<double> exponent(-8.0, 8.0);
  int differs_from_plain = 0;
  for (int k = 1; k <= 23; ++k) {
    const int n = 12;
    Matrix<float> m(n, k);
    for (int v = 0; v < n; ++v) {
      for (int i = 0; i < k; ++i) m(v, i) = static_cast<float>(std::pow(10.0, exponent(rng)));
    }
    FacilityLocationFunction<float> f(m);
    auto context = f.MakeGrowingContext(SetOf(n, {0, 1}));
    std::vector<int> candidates;
    for (int v = 2; v < n; ++v) candidates.push_back(v);
    std::vector<double> batched(candidates.size());
    context->DisjointGains(candidates.data(), static_cast<int>(candidates.size()), batched.data());
    for (std::size_t j = 0; j < candidates.size(); ++j) {
      const int v = candidates[j];
      std::vector<float> terms(k);
      float plain = 0.0f;
      for (int i = 0; i < k; ++i) {
        terms[i] = std::max(0.0f, m(v, i) - std::max({0.0f, m(0, i), m(1, i)}));
        plain += terms[i];
      }
      const float expected = LaneOrderSum(terms);
      differs_from_plain += expected != plain;
      EXPECT_EQ(static_cast<double>(expected), context->DisjointGain(v)) << k << ", " << v;
      EXPECT_EQ(static_cast<double>(expected), batched[j]) << k << ", " << v;
    }
  }
  // The data must be able to tell the orders apart for the test to mean anything.
  EXPECT_GT(differs_from_plain, 10);
}

}  // namespace
}  // namespace velmor
