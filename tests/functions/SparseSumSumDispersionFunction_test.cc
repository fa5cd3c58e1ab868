#include "functions/SparseSumSumDispersionFunction.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

#include "functions/SumSumDispersionFunction.h"
#include "functions/set_function_oracle.h"
#include "support/float_types.h"

namespace velmor {
namespace {

using testing::ExpectLocatedError;
using testing::SetOf;

template <typename T>
using Sparse = typename SparseSumSumDispersionFunction<T>::SparseMatrix;
template <typename T>
using Dense = typename SumSumDispersionFunction<T>::DenseMatrix;

// Random non-negative n x n matrix (symmetric on request); `dense` gets zeros
// where nothing is stored.
template <typename T>
Sparse<T> RandomSparse(int n, double density, bool symmetric, std::uint32_t seed, Dense<T>& dense) {
  testing::RandomSparse<T>(n, n, density, seed, dense);
  if (symmetric) dense = (dense + dense.transpose()).eval();
  return dense.sparseView();
}

template <typename T>
class SparseSumSumDispersionTest : public ::testing::Test {};
TYPED_TEST_SUITE(SparseSumSumDispersionTest, testing::FloatTypes);

TYPED_TEST(SparseSumSumDispersionTest, IncrementalAnswersMatchWholeSetEvaluation) {
  using T = TypeParam;
  std::uint32_t seed = 40;
  for (const int n : {1, 3, 12, 31}) {
    for (const bool symmetric : {true, false}) {
      for (const double density : {0.2, 0.8}) {
        SCOPED_TRACE("n=" + std::to_string(n) + (symmetric ? " symmetric" : " general"));
        Dense<T> dense;
        Sparse<T> m = RandomSparse<T>(n, density, symmetric, ++seed, dense);
        m.coeffRef(0, 0) = T(0.5);  // f(V) > 0
        SparseSumSumDispersionFunction<T> f(std::move(m));
        f.ComputeNormalizationConstant(false);
        testing::OracleOptions options;
        options.seed = seed;
        options.steps = 60;
        options.tolerance = 1e-12;
        testing::CheckSetFunctionAgainstEvaluation(f, options);
      }
    }
  }
}

TYPED_TEST(SparseSumSumDispersionTest, AgreesWithDenseDispersion) {
  using T = TypeParam;
  std::mt19937 rng(77);
  const int n = 25;
  for (const bool symmetric : {true, false}) {
    Dense<T> dense;
    SparseSumSumDispersionFunction<T> sparse(RandomSparse<T>(n, 0.3, symmetric, 5, dense));
    SumSumDispersionFunction<T> reference(dense);
    EXPECT_EQ(reference.IsSymmetric(), sparse.IsSymmetric());
    sparse.ComputeNormalizationConstant(false);
    reference.ComputeNormalizationConstant(false);
    EXPECT_NEAR(reference.NormalizationScale(), sparse.NormalizationScale(),
                1e-14 * reference.NormalizationScale());
    // Without symmetry the dense function adds M(v, u) + M(u, v) in T, the
    // sparse one adds the two stored entries separately in double.
    const double tolerance = 1e-14 + 8 * std::numeric_limits<T>::epsilon();
    for (int trial = 0; trial < 20; ++trial) {
      const UnorderedHashSet A = testing::RandomSet(n, 0.35, rng);
      EXPECT_NEAR(reference.Evaluate(A), sparse.Evaluate(A), tolerance);
      auto a = reference.MakeGrowingContext(A);
      auto b = sparse.MakeGrowingContext(A);
      auto c = reference.MakeShrinkingContext(A);
      auto d = sparse.MakeShrinkingContext(A);
      for (int v = 0; v < n; ++v) {
        if (A.contains(v)) {
          EXPECT_NEAR(c->SubsetLoss(v), d->SubsetLoss(v), tolerance);
          EXPECT_NEAR(reference.Loss(v, A), sparse.Loss(v, A), tolerance);
        } else {
          EXPECT_NEAR(a->DisjointGain(v), b->DisjointGain(v), tolerance);
          EXPECT_NEAR(reference.Gain(v, A), sparse.Gain(v, A), tolerance);
          EXPECT_EQ(reference.Evaluate(v), sparse.Evaluate(v));
        }
      }
    }
  }
}

TYPED_TEST(SparseSumSumDispersionTest, SymmetricFlagReadsAbsentEntriesAsZero) {
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

TYPED_TEST(SparseSumSumDispersionTest, Errors) {
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
  // No final period in the element and size messages; the pair form
  // delegates to EvaluateUnion.
  testing::CheckArgumentErrors(SparseSumSumDispersionFunction<T>(Dense<T>::Ones(4, 4).sparseView()),
                               file, "");
}

}  // namespace
}  // namespace velmor
