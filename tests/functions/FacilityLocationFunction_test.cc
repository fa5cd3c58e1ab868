#include "functions/FacilityLocationFunction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "functions/set_function_oracle.h"
#include "matrixvector/eigen_matrix_checks.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {
namespace {

using testing::ExpectMessage;
using testing::RandomMatrix;
using testing::SetOf;

template <typename T>
using Matrix = typename FacilityLocationFunction<T>::DenseMatrix;

// Brute-force value: sum over landmarks of max(0, max over A), in double.
template <typename T>
double BruteForceValue(const Matrix<T>& m, const std::vector<int>& A) {
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

float PlainOrderSum(const std::vector<float>& terms) {
  float sum = 0.0f;
  for (float t : terms) sum += t;
  return sum;
}

template <typename T>
class FacilityLocationTest : public ::testing::Test {};
using ElementTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(FacilityLocationTest, ElementTypes);

TYPED_TEST(FacilityLocationTest, IncrementalAnswersMatchWholeSetEvaluation) {
  using T = TypeParam;
  // Tolerance: float gains are summed in float over k landmarks.
  const struct {
    int n, k;
  } shapes[] = {{1, 1}, {2, 3}, {9, 4}, {17, 5}, {24, 7}, {31, 13}, {12, 33}, {40, 64}, {6, 130}};
  std::uint32_t seed = 7;
  for (const auto& shape : shapes) {
    SCOPED_TRACE("n = " + std::to_string(shape.n) + ", k = " + std::to_string(shape.k));
    FacilityLocationFunction<T> f(RandomMatrix<T>(shape.n, shape.k, seed));
    f.ComputeNormalizationConstant(false);
    testing::OracleOptions options;
    options.seed = seed++;
    options.steps = 60;
    options.tolerance = 8.0 * shape.k * std::numeric_limits<T>::epsilon();
    testing::CheckSetFunctionAgainstEvaluation(f, options);
  }
}

TYPED_TEST(FacilityLocationTest, ValuesAgainstBruteForceAndNormalization) {
  using T = TypeParam;
  const int n = 23;
  const int k = 11;
  const Matrix<T> m = RandomMatrix<T>(n, k, 99);
  FacilityLocationFunction<T> f(m);
  const double tol = 4.0 * k * std::numeric_limits<double>::epsilon();
  std::mt19937 rng(5);
  for (int trial = 0; trial < 20; ++trial) {
    std::vector<int> elements;
    UnorderedHashSet A(n);
    for (int j = 0; j < trial % 7; ++j) {
      const int v = static_cast<int>(rng() % n);
      if (A.insert(v)) elements.push_back(v);
    }
    EXPECT_NEAR(BruteForceValue<T>(m, elements), f.Evaluate(A), tol);
  }
  // Empty set is 0; after normalization f(V) = 1 and values scale by 1 / f(V);
  // skipping restores scale 1.
  std::vector<int> all(n);
  for (int v = 0; v < n; ++v) all[v] = v;
  const UnorderedHashSet some = SetOf(n, {1, 4, 9});
  const double before = f.Evaluate(some);
  f.ComputeNormalizationConstant(false);
  EXPECT_NEAR(1.0, f.EvaluateGroundSet(), tol);
  EXPECT_NEAR(before / BruteForceValue<T>(m, all), f.Evaluate(some), tol);
  EXPECT_EQ(0.0, f.Evaluate(UnorderedHashSet(n)));
  f.ComputeNormalizationConstant(true);
  EXPECT_EQ(before, f.Evaluate(some));
}

TYPED_TEST(FacilityLocationTest, ConstructionFromEitherLayoutAgrees) {
  using T = TypeParam;
  const int n = 10;
  const int k = 6;
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
  const UnorderedHashSet A = SetOf(n, {0, 3, 7});
  for (const FacilityLocationFunction<T>* f : {&from_columns, &filled}) {
    for (int v = 0; v < n; ++v) {
      for (int i = 0; i < k; ++i) ASSERT_EQ(m(v, i), f->Similarity(v, i));
    }
    EXPECT_EQ(from_rows.Evaluate(A), f->Evaluate(A));
  }
  EXPECT_EQ("Dense FL, |V|=10, #landmarks=6", from_rows.Description());
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
  const double value = growing->CurrentValue();
  EXPECT_FALSE(growing->AddNewElementToContext(2, true));
  EXPECT_EQ(value, growing->CurrentValue());
  EXPECT_EQ(2, growing->NumberOfElements());
  EXPECT_TRUE(growing->AddNewElementToContext(3, true));
  EXPECT_EQ(9.0, growing->CurrentValue());

  // Ties: each of two equal maxima has loss 0 on those landmarks.
  const UnorderedHashSet A = SetOf(n, {0, 1, 3});
  auto shrinking = f.MakeShrinkingContext(A);
  EXPECT_EQ(0.0, shrinking->SubsetLoss(0));
  EXPECT_EQ(0.0, shrinking->SubsetLoss(1));
  EXPECT_EQ(3.0, shrinking->SubsetLoss(3));
  shrinking->RemoveExistingElementFromContext(0, true);
  EXPECT_EQ(5.0, shrinking->SubsetLoss(1));
  EXPECT_EQ(f.Evaluate(SetOf(n, {1, 3})), shrinking->CurrentValue());

  // A negative row: the singleton form sums without clamping, the set form clamps.
  EXPECT_EQ(-2.5, f.Evaluate(4));
  EXPECT_EQ(0.5, f.Evaluate(SetOf(n, {4})));
  EXPECT_EQ(0.5, f.MakeGrowingContext(UnorderedHashSet(n))->DisjointGain(4));
  EXPECT_EQ(f.Gain(3, SetOf(n, {0, 2})), f.Gain(3, SetOf(3, {0, 2})));
}

TYPED_TEST(FacilityLocationTest, Errors) {
  using T = TypeParam;
  const std::string file = "FacilityLocationFunction";
  FacilityLocationFunction<T> f(RandomMatrix<T>(10, 4, 1));
  testing::CheckArgumentErrors(f, file);
  auto growing = f.MakeGrowingContext(SetOf(10, {2}));
  const int bad[] = {1, -3};
  double gains[2];
  ExpectMessage([&] { growing->DisjointGains(bad, 2, gains); }, file, "DisjointGains",
                "Invalid element = -3.");
  ExpectMessage([] { FacilityLocationFunction<T>(0, 3); }, file, "FacilityLocationFunction",
                "Invalid argument, ground_set_size=0.");
  ExpectMessage([] { FacilityLocationFunction<T>(3, 0); }, file, "FacilityLocationFunction",
                "Invalid argument, number_of_concepts=3.");

  // Normalization: all zeros; NaN and infinity nested, the first bad entry in
  // element-major scan order; the scale stays 1 after a failure.
  FacilityLocationFunction<T> zeros(4, 3);
  ExpectMessage([&] { zeros.ComputeNormalizationConstant(false); }, file,
                "ComputeNormalizationConstant",
                "Invalid possibly all zero or negative matrix, f(V) = 0 <= 0.");
  EXPECT_EQ(1.0, zeros.NormalizationScale());
  Matrix<T> m = RandomMatrix<T>(5, 4, 2);
  m(3, 1) = std::numeric_limits<T>::infinity();
  m(2, 3) = std::numeric_limits<T>::quiet_NaN();
  FacilityLocationFunction<T> nan(m);
  ExpectMessage([&] { nan.ComputeNormalizationConstant(false); }, file,
                "ComputeNormalizationConstant", "Invalid facility location matrix.",
                "Matrix contains IEEE FP NaN value at (row,col)=(2,3).");
  m(2, 3) = 0;
  FacilityLocationFunction<T> inf(m);
  ExpectMessage([&] { inf.ComputeNormalizationConstant(true); }, file,
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
    ExpectMessage([&] { bad.ComputeNormalizationConstant(false, threads); }, file,
                  "ComputeNormalizationConstant", "Invalid facility location matrix.",
                  "Matrix contains IEEE FP NaN value at (row,col)=(4,2).");
    EXPECT_EQ(1.0, bad.NormalizationScale());
  }
  ExpectMessage([&] { bad.ComputeNormalizationConstant(false, -1); }, file,
                "ComputeNormalizationConstant", "Invalid thread count -1.");
}

// The gain of one candidate is summed in float in the fixed four-lane order.
// Each case mixes one large term with small ones, so that the order of the
// float additions decides which small terms survive rounding.
TEST(FacilityLocationLaneOrder, FloatGainUsesFourLaneOrder) {
  // Hand-built: lane 1 holds 1e8, the other lanes collect threes; summed
  // plainly every 3 is lost against 1e8, summed by lanes they are not.
  {
    const std::vector<float> row = {3, 1e8f, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3};
    Matrix<float> m(1, static_cast<int>(row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) m(0, static_cast<int>(i)) = row[i];
    FacilityLocationFunction<float> f(m);
    ASSERT_NE(LaneOrderSum(row), PlainOrderSum(row));
    EXPECT_EQ(static_cast<double>(LaneOrderSum(row)),
              f.MakeGrowingContext(UnorderedHashSet(1))->DisjointGain(0));
  }
  // Random rows of widely spread magnitudes, every tail length, against a
  // context holding some elements (so terms are max(0, S - m)).
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
      for (int i = 0; i < k; ++i)
        terms[i] = std::max(0.0f, m(v, i) - std::max({0.0f, m(0, i), m(1, i)}));
      const float expected = LaneOrderSum(terms);
      if (expected != PlainOrderSum(terms)) ++differs_from_plain;
      EXPECT_EQ(static_cast<double>(expected), context->DisjointGain(v))
          << "k = " << k << ", v = " << v;
      EXPECT_EQ(static_cast<double>(expected), batched[j]) << "k = " << k << ", v = " << v;
    }
  }
  // The data must be able to tell the orders apart for the test to mean anything.
  EXPECT_GT(differs_from_plain, 10);
}

}  // namespace
}  // namespace velmor
