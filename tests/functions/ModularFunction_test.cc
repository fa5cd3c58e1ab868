#include "functions/ModularFunction.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "functions/set_function_oracle.h"
#include "sets/RangeSet.h"
#include "sets/UnorderedHashSet.h"
#include "support/float_types.h"

namespace velmor {
namespace {

template <typename T>
std::vector<T> RandomWeights(int n, std::uint32_t seed, double low, double high) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> dist(low, high);
  std::vector<T> weights(static_cast<std::size_t>(n));
  for (T& w : weights) w = static_cast<T>(dist(rng));
  return weights;
}

template <typename T>
class ModularFunctionTest : public ::testing::Test {};
TYPED_TEST_SUITE(ModularFunctionTest, testing::FloatTypes);

TYPED_TEST(ModularFunctionTest, IncrementalAnswersMatchWholeSetEvaluation) {
  using T = TypeParam;
  // Mixed signs, with and without an offset.
  for (const int n : {1, 5, 33}) {
    ModularFunction<T> f(RandomWeights<T>(n, 11u + n, -1.0, 2.0),
                         static_cast<T>(n % 2 ? 0.75 : 0.0));
    testing::OracleOptions options;
    options.seed = 100u + n;
    options.tolerance = 64 * std::numeric_limits<double>::epsilon();
    testing::CheckSetFunctionAgainstEvaluation(f, options);
  }
}

TYPED_TEST(ModularFunctionTest, ValuesAreOffsetPlusPlainSum) {
  using T = TypeParam;
  const int n = 40;
  const std::vector<T> weights = RandomWeights<T>(n, 3, -5.0, 5.0);
  const T offset = static_cast<T>(-1.25);
  ModularFunction<T> f(weights, offset);
  std::mt19937 rng(8);
  for (int trial = 0; trial < 30; ++trial) {
    const UnorderedHashSet A = testing::RandomSet(n, trial / 30.0, rng);
    double sum = offset;
    for (int v : A) sum += weights[static_cast<std::size_t>(v)];
    EXPECT_NEAR(sum, f.Evaluate(A), 1e-12 * n);
  }
  EXPECT_EQ(static_cast<double>(weights[7]) + offset, f.Evaluate(7));
  RangeSet all(n);
  all.MakeFull();
  EXPECT_NEAR(f.Evaluate(all), f.EvaluateGroundSet(), 1e-12 * n);
  // Monotone exactly when no weight is negative.
  EXPECT_FALSE(f.IsMonotoneNondecreasing());
  EXPECT_TRUE(ModularFunction<T>(RandomWeights<T>(n, 4, 0.0, 1.0)).IsMonotoneNondecreasing());
}

TYPED_TEST(ModularFunctionTest, Errors) {
  using T = TypeParam;
  // Non-finite weights are refused.
  for (const T bad : {std::numeric_limits<T>::quiet_NaN(), std::numeric_limits<T>::infinity(),
                      -std::numeric_limits<T>::infinity()}) {
    testing::ExpectLocatedError(
        [bad] {
          ModularFunction<T>(std::vector<T>{1, bad, 2});
        },
        "ModularFunction", "ModularFunction",
        "Found invalid modular element, has value that is IEEE FP NaN or Inf.");
  }
  testing::CheckArgumentErrors(ModularFunction<T>(std::vector<T>{1, 2, 3, 4}), "ModularFunction");
}

}  // namespace
}  // namespace velmor
