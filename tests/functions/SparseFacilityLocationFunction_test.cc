#include "functions/SparseFacilityLocationFunction.h"

#include <gtest/gtest.h>

#include <Eigen/SparseCore>
#include <algorithm>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "functions/FacilityLocationFunction.h"
#include "functions/set_function_oracle.h"
#include "sets/FixedGroundSet.h"
#include "sets/UnorderedHashSet.h"
#include "support/float_types.h"

namespace velmor {
namespace {

using testing::ExpectLocatedError;
using testing::SetOf;

template <typename T>
using Sparse = typename SparseFacilityLocationFunction<T>::SparseMatrix;
template <typename T>
using Dense = typename FacilityLocationFunction<T>::DenseMatrix;

template <typename T>
Sparse<T> FromTriplets(int rows, int cols,
                       const std::vector<Eigen::Triplet<T, std::int32_t>>& triplets) {
  Sparse<T> m(rows, cols);
  m.setFromTriplets(triplets.begin(), triplets.end());
  return m;
}

template <typename T>
class SparseFacilityLocationTest : public ::testing::Test {};
TYPED_TEST_SUITE(SparseFacilityLocationTest, testing::FloatTypes);

TYPED_TEST(SparseFacilityLocationTest, IncrementalAnswersMatchWholeSetEvaluation) {
  using T = TypeParam;
  const struct {
    int n, k;
    double density;
  } cases[] = {{1, 1, 1.0}, {3, 2, 0.5}, {17, 9, 0.3}, {29, 40, 0.1}, {40, 7, 0.6}, {24, 24, 1.0}};
  std::uint32_t seed = 31;
  for (const auto& c : cases) {
    SCOPED_TRACE("n=" + std::to_string(c.n) + " k=" + std::to_string(c.k));
    Dense<T> dense;
    std::vector<int> empty_rows;
    if (c.n > 3) empty_rows = {0, c.n / 2};
    SparseFacilityLocationFunction<T> f(
        testing::RandomSparse<T>(c.n, c.k, c.density, ++seed, dense, 1.0, empty_rows), false);
    testing::OracleOptions options;
    options.seed = seed;
    options.steps = 80;
    // Gains and values are differences and sums of T values formed in double.
    options.tolerance = 1e-12;
    testing::CheckSetFunctionAgainstEvaluation(f, options);
  }
}

TYPED_TEST(SparseFacilityLocationTest, EqualsDenseFacilityLocationWithZerosForAbsentEntries) {
  using T = TypeParam;
  std::mt19937 rng(4);
  const int n = 30;
  const int k = 14;
  for (const double density : {1.0, 0.35, 0.05}) {
    SCOPED_TRACE("density " + std::to_string(density));
    Dense<T> dense;
    SparseFacilityLocationFunction<T> sparse(
        testing::RandomSparse<T>(n, k, density, 77, dense, 1.0, {3}), false);
    FacilityLocationFunction<T> reference(dense);
    reference.ComputeNormalizationConstant(false);
    EXPECT_NEAR(reference.NormalizationScale(), sparse.NormalizationScale(),
                1e-15 * reference.NormalizationScale());
    // The dense gain is summed in T in four lanes, the sparse one in double.
    const double tolerance =
        k * k * std::numeric_limits<T>::epsilon() * reference.NormalizationScale();
    for (int trial = 0; trial < 25; ++trial) {
      const UnorderedHashSet A = testing::RandomSet(n, 0.25, rng);
      EXPECT_NEAR(reference.Evaluate(A), sparse.Evaluate(A), 1e-14);
      auto sparse_context = sparse.MakeGrowingContext(A);
      auto dense_context = reference.MakeGrowingContext(A);
      auto sparse_shrinking = sparse.MakeShrinkingContext(A);
      auto dense_shrinking = reference.MakeShrinkingContext(A);
      for (int v = 0; v < n; ++v) {
        if (A.contains(v)) {
          EXPECT_NEAR(dense_shrinking->SubsetLoss(v), sparse_shrinking->SubsetLoss(v), 1e-14) << v;
        } else {
          EXPECT_NEAR(dense_context->DisjointGain(v), sparse_context->DisjointGain(v), tolerance)
              << v;
          EXPECT_NEAR(reference.Gain(v, A), sparse.Gain(v, A), 1e-14) << v;
        }
      }
    }
  }
}

TYPED_TEST(SparseFacilityLocationTest, ElementsWithoutEntriesAndRawScale) {
  using T = TypeParam;
  Sparse<T> m = FromTriplets<T>(
      4, 3, {{0, 0, T(0.5)}, {0, 2, T(0.25)}, {2, 0, T(1.5)}, {2, 1, T(-2)}, {3, 2, T(0.75)}});
  SparseFacilityLocationFunction<T> f(std::move(m), true);
  EXPECT_EQ(0, m.nonZeros()) << "the caller's matrix was not taken over";
  EXPECT_EQ(1.0, f.NormalizationScale());
  // f(V) = max(0.5, 1.5) + max(0, -2) + max(0.25, 0.75).
  EXPECT_DOUBLE_EQ(2.25, f.Evaluate(FixedGroundSet(4)));
  EXPECT_EQ(5, f.MatrixStoredEntries());
  // Single elements are not clamped: f({2}) = 1.5 - 2.
  EXPECT_DOUBLE_EQ(-0.5, f.Evaluate(2));
  EXPECT_DOUBLE_EQ(1.5, f.Evaluate(SetOf(4, {2})));
  // Element 1 stores nothing: gain 0, adding it changes only the set.
  const UnorderedHashSet A = SetOf(4, {0});
  auto context = f.MakeGrowingContext(A);
  EXPECT_EQ(0.0, context->DisjointGain(1));
  EXPECT_EQ(0.0, f.Gain(1, A));
  const double before = context->CurrentValue();
  EXPECT_FALSE(context->AddNewElementToContext(1, true));
  EXPECT_EQ(before, context->CurrentValue());
  EXPECT_TRUE(context->CurrentSet().contains(1));
  // An element below the maxima everywhere changes nothing either.
  SparseFacilityLocationFunction<T> g(FromTriplets<T>(2, 1, {{0, 0, T(1)}, {1, 0, T(0.5)}}), false);
  auto g_context = g.MakeGrowingContext(SetOf(2, {0}));
  EXPECT_FALSE(g_context->AddNewElementToContext(1, true));
  EXPECT_EQ(1.0, g_context->CurrentValue());

  // An uncompressed matrix (built by insert) is accepted and compressed.
  Sparse<T> uncompressed(3, 3);
  uncompressed.reserve(Eigen::VectorXi::Constant(3, 2));
  uncompressed.insert(2, 1) = T(0.5);
  uncompressed.insert(0, 1) = T(0.25);
  uncompressed.insert(0, 0) = T(1);
  ASSERT_FALSE(uncompressed.isCompressed());
  SparseFacilityLocationFunction<T> h(std::move(uncompressed), true);
  EXPECT_TRUE(h.Matrix().isCompressed());
  EXPECT_DOUBLE_EQ(1.5, h.Evaluate(FixedGroundSet(3)));
  EXPECT_EQ("Sparse FL, |V|=3, #landmarks=3", h.Description());
}

TYPED_TEST(SparseFacilityLocationTest, FailuresLeaveTheCallersMatrix) {
  using T = TypeParam;
  const std::string file = "SparseFacilityLocationFunction";
  // No stored entry, or only negative ones: f(V) = 0; the matrix goes back
  // to the caller intact.
  Sparse<T> empty(5, 4);
  ExpectLocatedError([&] { SparseFacilityLocationFunction<T> f(std::move(empty), false); }, file,
                     file, "Invalid matrix, f(V) = 0 <= 0.");
  EXPECT_EQ(5, empty.rows());
  EXPECT_EQ(4, empty.cols());
  Sparse<T> negative = FromTriplets<T>(2, 2, {{1, 0, T(-3)}, {0, 1, T(-1)}});
  ExpectLocatedError([&] { SparseFacilityLocationFunction<T> f(std::move(negative), false); }, file,
                     file, "Invalid matrix, f(V) = 0 <= 0.");
  ASSERT_EQ(2, negative.nonZeros());
  EXPECT_EQ(T(-3), negative.coeff(1, 0));
  EXPECT_EQ(T(-1), negative.coeff(0, 1));
  // Infinity: nested value-check error, matrix given back.
  Sparse<T> infinite = FromTriplets<T>(2, 3, {{1, 2, std::numeric_limits<T>::infinity()}});
  ExpectLocatedError([&] { SparseFacilityLocationFunction<T> f(std::move(infinite), true); }, file,
                     file, "Invalid sparse facility location matrix.", "Inf");
  EXPECT_EQ(1, infinite.nonZeros());
  // Shapes are refused before anything is taken.
  ExpectLocatedError([&] { SparseFacilityLocationFunction<T> f(Sparse<T>(3, 0), true); }, file,
                     file, "Invalid argument, number_of_concepts=3.");
  ExpectLocatedError([&] { SparseFacilityLocationFunction<T> f(Sparse<T>(0, 3), true); }, file,
                     file, "Invalid argument, ground_set_size=0.");
  Dense<T> dense;
  SparseFacilityLocationFunction<T> f(testing::RandomSparse<T>(6, 3, 0.7, 2, dense), false);
  testing::CheckArgumentErrors(f, file);
}

}  // namespace
}  // namespace velmor
