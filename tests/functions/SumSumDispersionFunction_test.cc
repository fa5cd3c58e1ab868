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
#include "support/float_types.h"

namespace velmor {
namespace {

using testing::ExpectLocatedError;
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
TYPED_TEST_SUITE(SumSumDispersionTest, testing::FloatTypes);

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

TYPED_TEST(SumSumDispersionTest, MembersAndNonMembersInContexts) {
  using T = TypeParam;
  SumSumDispersionFunction<T> f(RandomMatrix<T>(6, false, 2));
  // Adding a member again, or removing a non-member, changes nothing.
  auto growing = f.MakeGrowingContext(SetOf(6, {2, 4}));
  const double value = growing->CurrentValue();
  EXPECT_FALSE(growing->AddNewElementToContext(2, true));
  EXPECT_EQ(value, growing->CurrentValue());
  UnorderedHashSet full(6);
  full.MakeFull();
  auto shrinking = f.MakeShrinkingContext(full);
  shrinking->RemoveExistingElementFromContext(0, true);
  const double before = shrinking->CurrentValue();
  shrinking->RemoveExistingElementFromContext(0, false);
  EXPECT_EQ(before, shrinking->CurrentValue());
  // Losses of members after further removals still match evaluation.
  shrinking->RemoveExistingElementFromContext(5, true);
  const UnorderedHashSet rest = SetOf(6, {1, 2, 3, 4});
  for (int v : rest) {
    EXPECT_NEAR(f.Evaluate(rest) - f.EvaluateAfterSubtraction(rest, v), shrinking->SubsetLoss(v),
                1e-6);
  }
  EXPECT_EQ("SumSumDisp, |V|=6", f.Description());
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
    ExpectLocatedError([&] { SumSumDispersionFunction<T> f(c.m); }, file, file, c.text);
  }
  SumSumDispersionFunction<T> zero(Matrix<T>::Zero(4, 4));
  ExpectLocatedError([&] { zero.ComputeNormalizationConstant(false); }, file,
                     "ComputeNormalizationConstant",
                     "Invalid possibly all zero or negative SumSumDisp matrix, f(V) = 0 <= 0.");
  Matrix<T> with_nan = Matrix<T>::Ones(2, 2);
  with_nan(1, 0) = std::numeric_limits<T>::quiet_NaN();
  SumSumDispersionFunction<T> nan(with_nan);
  EXPECT_FALSE(nan.IsSymmetric());
  ExpectLocatedError([&] { nan.ComputeNormalizationConstant(false); }, file,
                     "ComputeNormalizationConstant", "Invalid SumSumDisp matrix.", "NaN");
  // No final period in this family's element and size messages; the pair
  // form delegates to EvaluateUnion.
  testing::CheckArgumentErrors(SumSumDispersionFunction<T>(Matrix<T>::Ones(4, 4)), file, "");
}

}  // namespace
}  // namespace velmor
