#include "functions/SumSumDispersionFunction.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "functions/set_function_oracle.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {
namespace {

using testing::ExpectMessage;
using testing::SetOf;

template <typename T>
using Matrix = typename SumSumDispersionFunction<T>::DenseMatrix;

// Random non-negative n x n matrix, symmetric on request.
template <typename T>
Matrix<T> RandomMatrix(int n, bool symmetric, std::uint32_t seed) {
  Matrix<T> m = testing::RandomMatrix<T>(n, n, seed);
  if (symmetric) m.template triangularView<Eigen::StrictlyLower>() = m.transpose().eval();
  return m;
}

template <typename T>
double BruteForceValue(const Matrix<T>& m, const Set& A) {
  double sum = 0.0;
  for (int a : A) {
    for (int b : A) sum += static_cast<double>(m(a, b));
  }
  return sum;
}

template <typename T>
class SumSumDispersionTest : public ::testing::Test {};
using ElementTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(SumSumDispersionTest, ElementTypes);

TYPED_TEST(SumSumDispersionTest, IncrementalAnswersMatchWholeSetEvaluation) {
  using T = TypeParam;
  std::uint32_t seed = 3;
  for (const int n : {1, 2, 7, 16, 33}) {
    for (const bool symmetric : {true, false}) {
      SCOPED_TRACE("n=" + std::to_string(n) + (symmetric ? " symmetric" : " general"));
      SumSumDispersionFunction<T> f(RandomMatrix<T>(n, symmetric, ++seed));
      EXPECT_EQ(symmetric || n == 1, f.IsSymmetric());
      f.ComputeNormalizationConstant(false);
      testing::OracleOptions options;
      options.seed = seed;
      options.steps = 60;
      // Float gains are summed in float (dense facility location's lanes,
      // dispersion's M(v, u) + M(u, v)); values in double.
      options.tolerance = std::is_same_v<T, float> ? 1e-5 : 1e-12;
      testing::CheckSetFunctionAgainstEvaluation(f, options);
    }
  }
}

TYPED_TEST(SumSumDispersionTest, ValuesAgainstBruteForce) {
  using T = TypeParam;
  std::mt19937 rng(12);
  for (const bool symmetric : {true, false}) {
    const Matrix<T> m = RandomMatrix<T>(14, symmetric, 8);
    SumSumDispersionFunction<T> f(m);
    f.ComputeNormalizationConstant(true);
    for (int trial = 0; trial < 20; ++trial) {
      const UnorderedHashSet A = testing::RandomSet(14, 0.4, rng);
      EXPECT_NEAR(BruteForceValue<T>(m, A), f.Evaluate(A), 1e-12 * (1 + A.size() * A.size()));
    }
    EXPECT_EQ(static_cast<double>(m(5, 5)), f.Evaluate(5));
    // Normalized: f(V) = 1.
    f.ComputeNormalizationConstant(false);
    EXPECT_NEAR(1.0, f.EvaluateGroundSet(), 1e-14);
  }
}

TYPED_TEST(SumSumDispersionTest, GainArraysOfContexts) {
  using T = TypeParam;
  const Matrix<T> m = RandomMatrix<T>(6, false, 2);
  SumSumDispersionFunction<T> f(m);
  UnorderedHashSet empty(6);
  typename SumSumDispersionFunction<T>::SumSumDispersionFunctionGrowingContext context(&f, empty);
  for (int u = 0; u < 6; ++u)
    EXPECT_EQ(static_cast<double>(m(u, u)), context.external().Gains()[u]);
  EXPECT_TRUE(context.AddNewElementToContext(2, true));
  const double member_gain = context.external().Gains()[2];
  EXPECT_TRUE(context.AddNewElementToContext(4, true));
  // g of a member stays as it was; g of a non-member grows by both directions.
  EXPECT_EQ(member_gain, context.external().Gains()[2]);
  EXPECT_NEAR(static_cast<double>(m(1, 1)) + m(1, 2) + m(2, 1) + m(1, 4) + m(4, 1),
              context.external().Gains()[1], 1e-6);
  // Adding a member again changes nothing.
  const double value = context.CurrentValue();
  EXPECT_FALSE(context.AddNewElementToContext(2, true));
  EXPECT_EQ(value, context.CurrentValue());

  UnorderedHashSet full(6);
  full.MakeFull();
  typename SumSumDispersionFunction<T>::SumSumDispersionFunctionShrinkingContext shrinking(&f,
                                                                                           full);
  shrinking.RemoveExistingElementFromContext(0, true);
  const double non_member_loss = shrinking.external().Losses()[0];
  shrinking.RemoveExistingElementFromContext(5, true);
  EXPECT_EQ(non_member_loss, shrinking.external().Losses()[0]) << "a removal changed a non-member";
  // Removing a non-member changes nothing.
  const double before = shrinking.CurrentValue();
  shrinking.RemoveExistingElementFromContext(0, false);
  EXPECT_EQ(before, shrinking.CurrentValue());
  EXPECT_EQ("SumSumDisp, |V|=6", f.Description());
  EXPECT_STREQ("supermodular", SumSumDispersionFunction<T>::KindName());
}

TYPED_TEST(SumSumDispersionTest, Errors) {
  using T = TypeParam;
  const std::string file = "SumSumDispersionFunction";
  // The sign check comes before the shape check.
  Matrix<T> negative = Matrix<T>::Ones(3, 3);
  negative(2, 1) = T(-0.5);
  Matrix<T> both = Matrix<T>::Ones(2, 3);
  both(0, 0) = T(-1);
  const struct {
    Matrix<T> m;
    const char* text;
  } refused[] = {{Matrix<T>::Ones(2, 3), "Matrix is 2x3 but must be square."},
                 {negative, "Matrix must be non-negative."},
                 {both, "Matrix must be non-negative."},
                 {Matrix<T>(0, 0), "Invalid argument, ground_set_size=0."}};
  for (const auto& c : refused) {
    ExpectMessage([&] { SumSumDispersionFunction<T> f(c.m); }, file, file, c.text);
  }
  SumSumDispersionFunction<T> zero(Matrix<T>::Zero(4, 4));
  ExpectMessage([&] { zero.ComputeNormalizationConstant(false); }, file,
                "ComputeNormalizationConstant",
                "Invalid possibly all zero or negative SumSumDisp matrix, f(V) = 0 <= 0.");
  Matrix<T> with_nan = Matrix<T>::Ones(2, 2);
  with_nan(1, 0) = std::numeric_limits<T>::quiet_NaN();
  SumSumDispersionFunction<T> nan(with_nan);
  EXPECT_FALSE(nan.IsSymmetric());
  ExpectMessage([&] { nan.ComputeNormalizationConstant(false); }, file,
                "ComputeNormalizationConstant", "Invalid SumSumDisp matrix.", "NaN");
  // No final period in this family's element and size messages; the pair
  // form delegates to EvaluateUnion.
  testing::CheckArgumentErrors(SumSumDispersionFunction<T>(Matrix<T>::Ones(4, 4)), file, "");
}

}  // namespace
}  // namespace velmor
