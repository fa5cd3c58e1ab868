#include "functions/SoftFacilityLocationFunction.h"

#include <gtest/gtest.h>

#include <Eigen/SparseCore>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "functions/FacilityLocationFunction.h"
#include "functions/SoftSparseFacilityLocationFunction.h"
#include "functions/set_function_oracle.h"
#include "matrixvector/eigen_matrix_checks.h"
#include "sets/FixedGroundSet.h"
#include "sets/UnorderedHashSet.h"
#include "support/float_types.h"

namespace velmor {
namespace {

using testing::ExpectLocatedError;
using testing::RandomMatrix;
using testing::RandomSet;
using testing::SetOf;

template <typename T>
using Matrix = typename SoftFacilityLocationFunction<T>::DenseMatrix;

// F(A) = sum_i lambda log(1 + sum_a exp(S(a, i) / lambda)) written out in long
// double, for matrices small enough against lambda not to overflow. With
// `zero_is_absent` (sparse matrices, whose random forms store no zeros) a zero
// entry adds nothing.
template <typename T>
double BruteForceValue(const Matrix<T>& m, const Set& A, double lambda,
                       bool zero_is_absent = false) {
  long double total = 0;
  for (int i = 0; i < m.cols(); ++i) {
    long double sum = 1;
    for (int a : A) {
      if (!zero_is_absent || m(a, i) != T(0))
        sum += std::exp(static_cast<long double>(m(a, i)) / lambda);
    }
    total += lambda * std::log(sum);
  }
  return static_cast<double>(total);
}

template <typename T>
class SoftFacilityLocationTest : public ::testing::Test {};
TYPED_TEST_SUITE(SoftFacilityLocationTest, testing::FloatTypes);

TYPED_TEST(SoftFacilityLocationTest, ValuesAgainstBruteForce) {
  using T = TypeParam;
  std::mt19937 rng(5);
  const int n = 15;
  for (const double lambda : {0.05, 0.3, 1.0, 7.0}) {
    const Matrix<T> m = RandomMatrix<T>(n, 9, 21);
    SoftFacilityLocationFunction<T> f(m, lambda);
    f.ComputeNormalizationConstant(true);
    for (int trial = 0; trial < 20; ++trial) {
      const UnorderedHashSet A = RandomSet(n, 0.4, rng);
      const double expected = BruteForceValue<T>(m, A, lambda);
      EXPECT_NEAR(expected, f.Evaluate(A), 1e-12 * (1 + expected)) << "lambda " << lambda;
    }
    for (int v = 0; v < n; ++v) {
      const double expected = BruteForceValue<T>(m, SetOf(n, {v}), lambda);
      EXPECT_NEAR(expected, f.Evaluate(v), 1e-12 * (1 + expected));
    }
    // Normalized: f(V) = 1, values scaled alike.
    const double raw_full = f.EvaluateGroundSet();
    f.ComputeNormalizationConstant(false);
    EXPECT_NEAR(1.0, f.EvaluateGroundSet(), 1e-14);
    EXPECT_NEAR(1.0 / raw_full, f.NormalizationScale(), 1e-15 / raw_full);
  }
  // More than one 64 x 64 block of the matrix each way: every row where it belongs.
  const Matrix<T> big = RandomMatrix<T>(70, 67, 4);
  SoftFacilityLocationFunction<T> g(big, 0.5);
  g.ComputeNormalizationConstant(true);
  for (int v = 0; v < 70; ++v) {
    const double expected = BruteForceValue<T>(big, SetOf(70, {v}), 0.5);
    EXPECT_NEAR(expected, g.Evaluate(v), 1e-12 * (1 + expected));
  }
}

TYPED_TEST(SoftFacilityLocationTest, ApproachesHardFacilityLocation) {
  using T = TypeParam;
  std::mt19937 rng(8);
  const int n = 25;
  const int k = 11;
  const Matrix<T> m = RandomMatrix<T>(n, k, 3);
  FacilityLocationFunction<T> hard(m);
  hard.ComputeNormalizationConstant(true);
  for (const double lambda : {1e-1, 1e-2, 1e-3, 1e-6, 1e-12}) {
    SoftFacilityLocationFunction<T> soft(m, lambda);
    soft.ComputeNormalizationConstant(true);
    for (int trial = 0; trial < 30; ++trial) {
      const UnorderedHashSet A = RandomSet(n, 0.3, rng);
      const double difference = soft.Evaluate(A) - hard.Evaluate(A);
      // 0 <= F_i - max_i <= lambda log(|A| + 1) for each of the k landmarks.
      EXPECT_GE(difference, -1e-12) << "lambda " << lambda;
      EXPECT_LE(difference, k * lambda * std::log(A.size() + 1.0) + 1e-12) << "lambda " << lambda;
      // Incremental gains follow the hard gains within the same margins.
      auto context = soft.MakeGrowingContext(A);
      for (int v = 0; v < n; v += 3) {
        if (A.contains(v)) continue;
        EXPECT_NEAR(hard.Gain(v, A), context->DisjointGain(v),
                    2 * k * lambda * std::log(A.size() + 2.0) + 1e-12);
      }
    }
  }
}

TYPED_TEST(SoftFacilityLocationTest, StaysFiniteFarBelowTheMatrixScale) {
  using T = TypeParam;
  // S up to 1e4 against lambda = 1e-8: exp(S / lambda) would overflow a
  // double by far; the shifted state never forms it.
  const int n = 12;
  const Matrix<T> m = RandomMatrix<T>(n, 5, 99, 1e4);
  SoftFacilityLocationFunction<T> soft(m, 1e-8);
  soft.ComputeNormalizationConstant(false);
  FacilityLocationFunction<T> hard(m);
  hard.ComputeNormalizationConstant(false);
  UnorderedHashSet A(n);
  auto growing = soft.MakeGrowingContext(A);
  for (int v = 0; v < n; ++v) {
    const double gain = growing->DisjointGain(v);
    ASSERT_TRUE(std::isfinite(gain));
    EXPECT_GE(gain, 0.0);
    growing->AddNewElementToContext(v, true);
    A.insert(v);
    EXPECT_NEAR(hard.Evaluate(A), growing->CurrentValue(), 1e-9);
  }
  EXPECT_NEAR(1.0, soft.Evaluate(A), 1e-12);
  // Losses from the full set, where every other member's term underflows.
  auto shrinking = soft.MakeShrinkingContext(A);
  for (int v = 0; v < n; ++v) EXPECT_NEAR(hard.Loss(v, A), shrinking->SubsetLoss(v), 1e-9);
  // Single-element form with negative entries: no overflow either.
  Matrix<T> negative(1, 2);
  negative << T(-5), T(3);
  SoftFacilityLocationFunction<T> g(negative, 1e-3);
  g.ComputeNormalizationConstant(true);
  EXPECT_NEAR(3.0, g.Evaluate(0), 1e-9);
}

TYPED_TEST(SoftFacilityLocationTest, TiesInTheShrinkingContext) {
  using T = TypeParam;
  // Two members holding the same maximum.
  Matrix<T> tie(3, 1);
  tie << T(1), T(1), T(0.25);
  SoftFacilityLocationFunction<T> t(tie, 0.01);
  t.ComputeNormalizationConstant(true);
  const UnorderedHashSet all = SetOf(3, {0, 1, 2});
  auto shrinking = t.MakeShrinkingContext(all);
  for (int v = 0; v < 3; ++v) {
    EXPECT_NEAR(t.Evaluate(all) - t.EvaluateAfterSubtraction(all, v), shrinking->SubsetLoss(v),
                1e-12);
  }
  shrinking->RemoveExistingElementFromContext(0, true);
  const UnorderedHashSet rest = SetOf(3, {1, 2});
  EXPECT_NEAR(t.Evaluate(rest), shrinking->CurrentValue(), 1e-12);
  EXPECT_NEAR(t.Evaluate(rest) - t.EvaluateAfterSubtraction(rest, 1), shrinking->SubsetLoss(1),
              1e-12);
}

TYPED_TEST(SoftFacilityLocationTest, Errors) {
  using T = TypeParam;
  const std::string file = "SoftFacilityLocationFunction";
  // Softness: only 0 >= lambda is refused.
  const struct {
    double lambda;
    const char* text;
  } softness[] = {
      {0.0, "Invalid argument, must have softness_value (=0.000000e+00) > 0."},
      {-2.5, "Invalid argument, must have softness_value (=-2.500000e+00) > 0."},
  };
  for (const auto& c : softness) {
    ExpectLocatedError([&] { SoftFacilityLocationFunction<T> f(2, 2, c.lambda); }, file,
                       "CheckAndAssignSoftnessValue", c.text);
  }
  for (const double accepted : {std::nan(""), std::numeric_limits<double>::infinity(), 1e-320}) {
    EXPECT_NO_THROW(SoftFacilityLocationFunction<T>(2, 2, accepted)) << accepted;
  }
  SoftFacilityLocationFunction<T> f(4, 3, 0.5);
  EXPECT_THROW(f.CheckAndAssignSoftnessValue(0.0), std::invalid_argument);
  EXPECT_EQ(0.5, f.SoftnessValue()) << "a refused softness changed the function";
  EXPECT_EQ(2.0, f.InverseSoftnessValue());
  ExpectLocatedError([] { SoftFacilityLocationFunction<T> g(0, 2, 1.0); }, file,
                     "SoftFacilityLocationFunction", "Invalid argument, ground_set_size=0.");
  ExpectLocatedError([] { SoftFacilityLocationFunction<T> g(5, 0, 1.0); }, file,
                     "SoftFacilityLocationFunction", "Invalid argument, number_of_concepts=5.");

  // Normalization: a NaN (nested, scale unchanged; skipped with the checks
  // off), and strongly negative rows where f(V) = k lambda log(1 + n e^(-big)) rounds to 0.
  SoftFacilityLocationFunction<T> nan(3, 2, 1.0);
  nan.MutableRow(1)[1] = std::numeric_limits<T>::quiet_NaN();
  ExpectLocatedError([&] { nan.ComputeNormalizationConstant(false); }, file,
                     "ComputeNormalizationConstant", "Invalid soft facility location matrix.",
                     "NaN");
  EXPECT_EQ(1.0, nan.NormalizationScale());
  SetMatrixValueChecksEnabled(false);
  EXPECT_NO_THROW(nan.ComputeNormalizationConstant(true));
  SetMatrixValueChecksEnabled(true);
  SoftFacilityLocationFunction<T> negative(2, 2, 1.0);
  for (int v = 0; v < 2; ++v) {
    for (int i = 0; i < 2; ++i) negative.MutableRow(v)[i] = T(-1e4);
  }
  ExpectLocatedError([&] { negative.ComputeNormalizationConstant(false); }, file,
                     "ComputeNormalizationConstant", "Invalid matrix, f(V) = 0 <= 0.");
}

template <typename T>
using Sparse = typename SoftSparseFacilityLocationFunction<T>::SparseMatrix;

TYPED_TEST(SoftFacilityLocationTest, ValuesFollowTheAbsentEntryRule) {
  using T = TypeParam;
  std::mt19937 rng(9);
  const int n = 20;
  const int k = 10;
  for (const double density : {1.0, 0.4}) {
    for (const double lambda : {0.1, 1.0}) {
      SCOPED_TRACE("density " + std::to_string(density) + " lambda " + std::to_string(lambda));
      Matrix<T> dense;
      SoftSparseFacilityLocationFunction<T> sparse(
          testing::RandomSparse<T>(n, k, density, 5, dense), lambda, true);
      SoftFacilityLocationFunction<T> reference(dense, lambda);
      reference.ComputeNormalizationConstant(true);
      for (int trial = 0; trial < 20; ++trial) {
        const UnorderedHashSet A = RandomSet(n, 0.3, rng);
        const double expected = BruteForceValue<T>(dense, A, lambda, true);
        EXPECT_NEAR(expected, sparse.Evaluate(A), 1e-12 * (1 + expected));
        if (density == 1.0) {
          // Everything stored: the dense soft function on the same values.
          EXPECT_NEAR(reference.Evaluate(A), sparse.Evaluate(A), 1e-12 * (1 + expected));
          auto a = reference.MakeGrowingContext(A);
          auto b = sparse.MakeGrowingContext(A);
          for (int v = 0; v < n; ++v) {
            if (A.contains(v)) continue;
            EXPECT_NEAR(a->DisjointGain(v), b->DisjointGain(v), 1e-12);
          }
        }
      }
      for (int v = 0; v < n; ++v) {
        EXPECT_NEAR(BruteForceValue<T>(dense, SetOf(n, {v}), lambda, true), sparse.Evaluate(v),
                    1e-12);
      }
    }
  }

  // An explicit 0 against an absent entry for landmark 0, on top of a member
  // of value 0.5: the stored 0 raises F_0 by lambda log((z + exp(-m/lambda)) / z)
  // with m = 0.5 and z = exp(-m/lambda) + 1; the absent entry raises nothing.
  const double lambda = 0.2;
  Sparse<T> with_zero(2, 1);
  with_zero.insert(0, 0) = T(0.5);
  with_zero.insert(1, 0) = T(0);
  Sparse<T> without(2, 1);
  without.insert(0, 0) = T(0.5);
  SoftSparseFacilityLocationFunction<T> explicit_zero(std::move(with_zero), lambda, true);
  SoftSparseFacilityLocationFunction<T> absent(std::move(without), lambda, true);
  const UnorderedHashSet first = SetOf(2, {0});
  const UnorderedHashSet both = SetOf(2, {0, 1});
  const double z = std::exp(-0.5 / lambda) + 1;
  const double raise = lambda * std::log((z + std::exp(-0.5 / lambda)) / z);
  EXPECT_NEAR(raise, explicit_zero.Evaluate(both) - explicit_zero.Evaluate(first), 1e-14);
  EXPECT_NEAR(raise, explicit_zero.Gain(1, first), 1e-14);
  EXPECT_EQ(absent.Evaluate(first), absent.Evaluate(both));
  EXPECT_EQ(0.0, absent.Gain(1, first));
  EXPECT_EQ(0.0, absent.Evaluate(1)) << "no stored entry, F = lambda log 1";
  EXPECT_NEAR(lambda * std::log(2.0), explicit_zero.Evaluate(1), 1e-15);
  EXPECT_EQ("Soft Sparse FL, |V|=2, #landmarks=1", absent.Description());
}

TYPED_TEST(SoftFacilityLocationTest, FailuresLeaveTheCallersMatrix) {
  using T = TypeParam;
  const std::string file = "SoftSparseFacilityLocationFunction";
  // Softness is checked before the matrix is taken.
  Sparse<T> m(3, 2);
  m.insert(0, 1) = T(1);
  ExpectLocatedError([&] { SoftSparseFacilityLocationFunction<T> f(std::move(m), -1.0, false); },
                     file, "CheckAndAssignSoftnessValue",
                     "Invalid argument, must have softness_value (=-1.000000e+00) > 0.");
  EXPECT_EQ(1, m.nonZeros());
  // No stored entries: f(V) = 0; the caller keeps its matrix.
  Sparse<T> empty(4, 4);
  ExpectLocatedError([&] { SoftSparseFacilityLocationFunction<T> f(std::move(empty), 1.0, false); },
                     file, file, "Invalid matrix, f(V) = 0 <= 0.");
  EXPECT_EQ(4, empty.rows());
  EXPECT_EQ(4, empty.cols());
  // NaN: nested value-check failure.
  Sparse<T> nan(2, 2);
  nan.insert(1, 1) = std::numeric_limits<T>::quiet_NaN();
  nan.insert(0, 0) = T(2);
  ExpectLocatedError([&] { SoftSparseFacilityLocationFunction<T> f(std::move(nan), 1.0, false); },
                     file, file, "Invalid sparse facility location matrix.", "NaN");
  EXPECT_EQ(2, nan.nonZeros());
  // Success takes the matrix; with skip the scale stays 1.
  SoftSparseFacilityLocationFunction<T> f(std::move(m), 0.5, true);
  EXPECT_EQ(0, m.nonZeros());
  EXPECT_EQ(1.0, f.NormalizationScale());
  EXPECT_NEAR(0.5 * std::log1p(std::exp(2.0)), f.Evaluate(FixedGroundSet(3)), 1e-15);
}

}  // namespace
}  // namespace velmor
