#include "functions/SoftSparseFacilityLocationFunction.h"

#include <gtest/gtest.h>

#include <Eigen/SparseCore>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "functions/SoftFacilityLocationFunction.h"
#include "functions/set_function_oracle.h"
#include "sets/FixedGroundSet.h"
#include "sets/UnorderedHashSet.h"
#include "support/float_types.h"

namespace velmor {
namespace {

using testing::ExpectLocatedError;
using testing::RandomSet;
using testing::SetOf;

template <typename T>
using Sparse = typename SoftSparseFacilityLocationFunction<T>::SparseMatrix;
template <typename T>
using Dense = typename SoftFacilityLocationFunction<T>::DenseMatrix;

// sum_i lambda log(1 + sum over members with a stored (a, i) of exp(S / lambda));
// the random matrices store no zeros.
template <typename T>
double BruteForceValue(const Dense<T>& m, const Set& A, double lambda) {
  long double total = 0;
  for (int i = 0; i < m.cols(); ++i) {
    long double sum = 1;
    for (int a : A) {
      if (m(a, i) != T(0)) {
        sum += std::exp(static_cast<long double>(m(a, i)) / lambda);
      }
    }
    total += lambda * std::log(sum);
  }
  return static_cast<double>(total);
}

template <typename T>
class SoftSparseFacilityLocationTest : public ::testing::Test {};
TYPED_TEST_SUITE(SoftSparseFacilityLocationTest, testing::FloatTypes);

TYPED_TEST(SoftSparseFacilityLocationTest, IncrementalAnswersMatchWholeSetEvaluation) {
  using T = TypeParam;
  const struct {
    int n, k;
    double density, scale, lambda;
  } cases[] = {{1, 1, 1.0, 1.0, 0.5},     {4, 3, 0.5, 1.0, 1.0},     {19, 8, 0.3, 1.0, 0.05},
               {30, 25, 0.15, 10.0, 0.1}, {26, 6, 0.7, 100.0, 1e-4}, {15, 15, 1.0, 1.0, 3.0}};
  std::uint32_t seed = 61;
  for (const auto& c : cases) {
    SCOPED_TRACE("n=" + std::to_string(c.n) + " k=" + std::to_string(c.k) +
                 " lambda=" + std::to_string(c.lambda));
    Dense<T> dense;
    SoftSparseFacilityLocationFunction<T> f(
        testing::RandomSparse<T>(c.n, c.k, c.density, ++seed, dense, c.scale), c.lambda, false);
    testing::OracleOptions options;
    options.seed = seed;
    options.steps = 70;
    options.tolerance = 1e-9;
    testing::CheckSetFunctionAgainstEvaluation(f, options);
  }
}

TYPED_TEST(SoftSparseFacilityLocationTest, ValuesFollowTheAbsentEntryRule) {
  using T = TypeParam;
  std::mt19937 rng(9);
  const int n = 20;
  const int k = 10;
  for (const double density : {1.0, 0.4}) {
    for (const double lambda : {0.1, 1.0}) {
      SCOPED_TRACE("density " + std::to_string(density) + " lambda " + std::to_string(lambda));
      Dense<T> dense;
      SoftSparseFacilityLocationFunction<T> sparse(
          testing::RandomSparse<T>(n, k, density, 5, dense), lambda, true);
      SoftFacilityLocationFunction<T> reference(dense, lambda);
      reference.ComputeNormalizationConstant(true);
      for (int trial = 0; trial < 20; ++trial) {
        const UnorderedHashSet A = RandomSet(n, 0.3, rng);
        const double expected = BruteForceValue<T>(dense, A, lambda);
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
        EXPECT_NEAR(BruteForceValue<T>(dense, SetOf(n, {v}), lambda), sparse.Evaluate(v), 1e-12);
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

TYPED_TEST(SoftSparseFacilityLocationTest, FailuresLeaveTheCallersMatrix) {
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

  testing::CheckArgumentErrors(f, file);
}

}  // namespace
}  // namespace velmor
