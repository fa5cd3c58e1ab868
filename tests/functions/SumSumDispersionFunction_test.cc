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

template <typename T>
using Matrix = typename SumSumDispersionFunction<T>::DenseMatrix;

// Random non-negative n x n matrix, symmetric on request.
template <typename T>
Matrix<T> RandomMatrix(int n, bool symmetric, std::uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  Matrix<T> m(n, n);
  for (int a = 0; a < n; ++a) {
    for (int b = 0; b < n; ++b) m(a, b) = static_cast<T>(unit(rng));
  }
  if (symmetric) {
    for (int a = 0; a < n; ++a) {
      for (int b = 0; b < a; ++b) m(a, b) = m(b, a);
    }
  }
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

template <typename F>
void ExpectMessage(F&& call, const std::string& function, const std::string& text) {
  try {
    call();
    ADD_FAILURE() << "no exception, expected " << text;
  } catch (const std::invalid_argument& e) {
    const std::string what = e.what();
    EXPECT_EQ(0u, what.find("[[@SumSumDispersionFunction:")) << what;
    const std::string tail = ":" + function + "]] " + text;
    EXPECT_TRUE(what.size() >= tail.size() &&
                what.compare(what.size() - tail.size(), tail.size(), tail) == 0)
        << what;
  }
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
  std::bernoulli_distribution coin(0.4);
  for (const bool symmetric : {true, false}) {
    const Matrix<T> m = RandomMatrix<T>(14, symmetric, 8);
    SumSumDispersionFunction<T> f(m);
    f.ComputeNormalizationConstant(true);
    for (int trial = 0; trial < 20; ++trial) {
      UnorderedHashSet A(14);
      for (int v = 0; v < 14; ++v) {
        if (coin(rng)) A.insert(v);
      }
      EXPECT_NEAR(BruteForceValue<T>(m, A), f.Evaluate(A), 1e-12 * (1 + A.size() * A.size()));
    }
    // Singletons and pairs.
    UnorderedHashSet pair(14);
    pair.insert(3);
    pair.insert(9);
    EXPECT_EQ(static_cast<double>(m(5, 5)), f.Evaluate(5));
    EXPECT_NEAR(static_cast<double>(m(3, 3)) + m(9, 9) + m(3, 9) + m(9, 3), f.Evaluate(pair),
                1e-12);
    // Normalized: f(V) = 1.
    f.ComputeNormalizationConstant(false);
    UnorderedHashSet all(14);
    all.MakeFull();
    EXPECT_NEAR(1.0, f.Evaluate(all), 1e-14);
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

TYPED_TEST(SumSumDispersionTest, ArgumentErrors) {
  using T = TypeParam;
  ExpectMessage([] { SumSumDispersionFunction<T> f(Matrix<T>::Ones(2, 3)); },
                "SumSumDispersionFunction", "Matrix is 2x3 but must be square.");
  Matrix<T> negative = Matrix<T>::Ones(3, 3);
  negative(2, 1) = T(-0.5);
  ExpectMessage([&] { SumSumDispersionFunction<T> f(negative); }, "SumSumDispersionFunction",
                "Matrix must be non-negative.");
  // The sign check comes first.
  Matrix<T> both = Matrix<T>::Ones(2, 3);
  both(0, 0) = T(-1);
  ExpectMessage([&] { SumSumDispersionFunction<T> f(both); }, "SumSumDispersionFunction",
                "Matrix must be non-negative.");
  ExpectMessage([] { SumSumDispersionFunction<T> f(Matrix<T>(0, 0)); }, "SumSumDispersionFunction",
                "Invalid argument, ground_set_size=0.");

  SumSumDispersionFunction<T> zero(Matrix<T>::Zero(4, 4));
  ExpectMessage([&] { zero.ComputeNormalizationConstant(false); }, "ComputeNormalizationConstant",
                "Invalid possibly all zero or negative SumSumDisp matrix, f(V) = 0 <= 0.");
  Matrix<T> with_nan = Matrix<T>::Ones(2, 2);
  with_nan(1, 0) = std::numeric_limits<T>::quiet_NaN();
  SumSumDispersionFunction<T> nan(with_nan);
  EXPECT_FALSE(nan.IsSymmetric());
  try {
    nan.ComputeNormalizationConstant(false);
    ADD_FAILURE() << "NaN accepted";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string::npos, std::string(e.what()).find("]] Invalid SumSumDisp matrix."))
        << e.what();
    EXPECT_THROW(std::rethrow_if_nested(e), std::invalid_argument);
  }

  // No final period in this family's element and size messages.
  SumSumDispersionFunction<T> f(Matrix<T>::Ones(4, 4));
  UnorderedHashSet A(4);
  UnorderedHashSet larger(6);
  ExpectMessage([&] { f.Evaluate(4); }, "Evaluate", "Invalid element = 4");
  ExpectMessage([&] { f.Evaluate(larger); }, "Evaluate", "Too large ground set size = 6");
  ExpectMessage([&] { f.Gain(-1, A); }, "Gain", "Invalid element = -1");
  ExpectMessage([&] { f.Loss(0, larger); }, "Loss", "Too large ground set size = 6");
  ExpectMessage([&] { f.EvaluateUnion(A, larger); }, "EvaluateUnion",
                "Too large ground set size = 6");
  ExpectMessage([&] { f.EvaluateAfterSubtraction(A, 9); }, "EvaluateAfterSubtraction",
                "Invalid element = 9");
  auto context = f.MakeGrowingContext(A);
  ExpectMessage([&] { context->DisjointGain(4); }, "DisjointGain", "Invalid element = 4");
  ExpectMessage([&] { context->AddNewElementToContext(7, true); }, "AddNewElementToContext",
                "Invalid element = 7");
  ExpectMessage([&] { f.AssignContext(*context, larger); }, "AssignContext",
                "Invalid ground set size, 6 != 4.");
  auto shrinking = f.MakeShrinkingContext(A);
  ExpectMessage([&] { shrinking->SubsetLoss(4); }, "SubsetLoss", "Invalid element = 4");
}

}  // namespace
}  // namespace velmor
