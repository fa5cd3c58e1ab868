#include "functions/SoftFacilityLocationFunction.h"

#include <gtest/gtest.h>

#include <Eigen/SparseCore>
#include <cmath>
#include <limits>
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
using testing::SetOf;

template <typename T>
using Matrix = typename SoftFacilityLocationFunction<T>::DenseMatrix;

template <typename T>
class SoftFacilityLocationTest : public ::testing::Test {};
TYPED_TEST_SUITE(SoftFacilityLocationTest, testing::FloatTypes);

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

TYPED_TEST(SoftFacilityLocationTest, StoredZeroTakesPartAbsentEntryDoesNot) {
  using T = TypeParam;
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
