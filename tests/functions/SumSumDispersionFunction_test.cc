#include "functions/SumSumDispersionFunction.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "functions/SparseSumSumDispersionFunction.h"
#include "functions/set_function_oracle.h"
#include "sets/UnorderedHashSet.h"
#include "support/float_types.h"

namespace velmor {
namespace {

using testing::ExpectLocatedError;
using testing::SetOf;

template <typename T>
using Matrix = typename SumSumDispersionFunction<T>::DenseMatrix;

template <typename T>
class DispersionTest : public ::testing::Test {};
TYPED_TEST_SUITE(DispersionTest, testing::FloatTypes);

TYPED_TEST(DispersionTest, MembersAndNonMembersInContexts) {
  using T = TypeParam;
  SumSumDispersionFunction<T> f(testing::RandomMatrix<T>(6, 6, 2));
  // Removing a non-member changes nothing.
  UnorderedHashSet full(6);
  full.MakeFull();
  auto shrinking = f.MakeShrinkingContext(full);
  shrinking->RemoveExistingElementFromContext(0, true);
  const double before = shrinking->CurrentValue();
  shrinking->RemoveExistingElementFromContext(0, false);
  EXPECT_EQ(before, shrinking->CurrentValue());
  EXPECT_EQ("SumSumDisp, |V|=6", f.Description());
}

TYPED_TEST(DispersionTest, Errors) {
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
}

template <typename T>
using Sparse = typename SparseSumSumDispersionFunction<T>::SparseMatrix;

TYPED_TEST(DispersionTest, SymmetricFlagReadsAbsentEntriesAsZero) {
  using T = TypeParam;
  // A stored 0 facing an absent entry is symmetric.
  Sparse<T> m(3, 3);
  m.insert(0, 1) = T(2);
  m.insert(1, 0) = T(2);
  m.insert(2, 0) = T(0);
  m.insert(1, 1) = T(1);
  SparseSumSumDispersionFunction<T> f(std::move(m));
  EXPECT_TRUE(f.IsSymmetric());
  EXPECT_EQ(0, m.nonZeros()) << "the caller's matrix was not taken over";
  EXPECT_DOUBLE_EQ(5.0, f.Evaluate(SetOf(3, {0, 1})));
  // One differing value makes it general.
  Sparse<T> g(2, 2);
  g.insert(0, 1) = T(2);
  g.insert(1, 0) = T(3);
  SparseSumSumDispersionFunction<T> general(std::move(g));
  EXPECT_FALSE(general.IsSymmetric());
  const UnorderedHashSet both = SetOf(2, {0, 1});
  EXPECT_DOUBLE_EQ(5.0, general.Evaluate(both));
  // One side absent, the other not zero.
  Sparse<T> h(2, 2);
  h.insert(1, 0) = T(1);
  SparseSumSumDispersionFunction<T> one_sided(std::move(h));
  EXPECT_FALSE(one_sided.IsSymmetric());
  EXPECT_DOUBLE_EQ(1.0, one_sided.Evaluate(both));
  EXPECT_EQ("Sparse SumSumDisp, |V|=2", one_sided.Description());
}

TYPED_TEST(DispersionTest, SparseErrors) {
  using T = TypeParam;
  const std::string file = "SparseSumSumDispersionFunction";
  // Refused matrices stay with the caller.
  Sparse<T> wide(2, 3);
  wide.insert(0, 2) = T(1);
  ExpectLocatedError([&] { SparseSumSumDispersionFunction<T> f(std::move(wide)); }, file, file,
                     "Matrix is 2x3 but must be square.");
  EXPECT_EQ(1, wide.nonZeros());
  Sparse<T> negative(3, 3);
  negative.insert(1, 2) = T(-1);
  ExpectLocatedError([&] { SparseSumSumDispersionFunction<T> f(std::move(negative)); }, file, file,
                     "Matrix must be non-negative.");
  EXPECT_EQ(1, negative.nonZeros());
  ExpectLocatedError([&] { SparseSumSumDispersionFunction<T> f(Sparse<T>(0, 0)); }, file, file,
                     "Invalid argument, ground_set_size=0.");
  SparseSumSumDispersionFunction<T> empty(Sparse<T>(4, 4));
  ExpectLocatedError(
      [&] { empty.ComputeNormalizationConstant(false); }, file, "ComputeNormalizationConstant",
      "Invalid possibly all zero or negative Sparse SumSumDisp matrix, f(V) = 0 <= 0.");
  Sparse<T> infinite(2, 2);
  infinite.insert(0, 1) = std::numeric_limits<T>::infinity();
  SparseSumSumDispersionFunction<T> inf(std::move(infinite));
  ExpectLocatedError([&] { inf.ComputeNormalizationConstant(true); }, file,
                     "ComputeNormalizationConstant", "Invalid Sparse SumSumDisp matrix.", "Inf");
}

}  // namespace
}  // namespace velmor
