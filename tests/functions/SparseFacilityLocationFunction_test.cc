#include "functions/SparseFacilityLocationFunction.h"

#include <gtest/gtest.h>

#include <Eigen/SparseCore>
#include <algorithm>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "functions/FacilityLocationFunction.h"
#include "functions/set_function_oracle.h"
#include "matrixvector/eigen_matrix_checks.h"
#include "sets/FixedGroundSet.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {
namespace {

template <typename T>
using Sparse = typename SparseFacilityLocationFunction<T>::SparseMatrix;
template <typename T>
using Dense = typename FacilityLocationFunction<T>::DenseMatrix;

// A random n x k matrix: each entry is stored with probability `density`
// (values in [0, 1)), and rows listed in `empty_rows` store nothing. `dense`
// receives the same matrix with zeros where nothing is stored.
template <typename T>
Sparse<T> RandomSparse(int n, int k, double density, std::uint32_t seed, Dense<T>& dense,
                       const std::vector<int>& empty_rows = {}) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::bernoulli_distribution stored(density);
  std::vector<Eigen::Triplet<T, std::int32_t>> triplets;
  dense.setZero(n, k);
  for (int v = 0; v < n; ++v) {
    const bool empty = std::find(empty_rows.begin(), empty_rows.end(), v) != empty_rows.end();
    for (int i = 0; i < k; ++i) {
      if (empty || !stored(rng)) continue;
      const T x = static_cast<T>(unit(rng));
      triplets.emplace_back(v, i, x);
      dense(v, i) = x;
    }
  }
  Sparse<T> m(n, k);
  m.setFromTriplets(triplets.begin(), triplets.end());
  return m;
}

UnorderedHashSet RandomSet(int n, double p, std::mt19937& rng) {
  std::bernoulli_distribution coin(p);
  UnorderedHashSet set(n);
  for (int v = 0; v < n; ++v) {
    if (coin(rng)) set.insert(v);
  }
  return set;
}

// Expects std::invalid_argument "[[@SparseFacilityLocationFunction:<line>:<function>]] <text>".
template <typename F>
void ExpectMessage(F&& call, const std::string& function, const std::string& text) {
  try {
    call();
    ADD_FAILURE() << "no exception, expected " << text;
  } catch (const std::invalid_argument& e) {
    const std::string what = e.what();
    EXPECT_EQ(0u, what.find("[[@SparseFacilityLocationFunction:")) << what;
    const std::string tail = ":" + function + "]] " + text;
    EXPECT_TRUE(what.size() >= tail.size() &&
                what.compare(what.size() - tail.size(), tail.size(), tail) == 0)
        << what;
  }
}

template <typename T>
class SparseFacilityLocationTest : public ::testing::Test {};
using ElementTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(SparseFacilityLocationTest, ElementTypes);

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
    Sparse<T> m = RandomSparse<T>(c.n, c.k, c.density, ++seed, dense, empty_rows);
    SparseFacilityLocationFunction<T> f(std::move(m), false);
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
  for (const double density : {1.0, 0.35, 0.05}) {
    SCOPED_TRACE("density " + std::to_string(density));
    const int n = 30;
    const int k = 14;
    Dense<T> dense;
    SparseFacilityLocationFunction<T> sparse(RandomSparse<T>(n, k, density, 77, dense, {3}), false);
    FacilityLocationFunction<T> reference(dense);
    reference.ComputeNormalizationConstant(false);
    EXPECT_NEAR(reference.NormalizationScale(), sparse.NormalizationScale(),
                1e-15 * reference.NormalizationScale());
    for (int trial = 0; trial < 25; ++trial) {
      const UnorderedHashSet A = RandomSet(n, 0.25, rng);
      EXPECT_NEAR(reference.Evaluate(A), sparse.Evaluate(A), 1e-14);
      auto sparse_context = sparse.MakeGrowingContext(A);
      auto dense_context = reference.MakeGrowingContext(A);
      for (int v = 0; v < n; ++v) {
        if (A.contains(v)) continue;
        // The dense gain is summed in T in four lanes, the sparse one in double.
        const double tolerance =
            k * k * std::numeric_limits<T>::epsilon() * reference.NormalizationScale();
        EXPECT_NEAR(dense_context->DisjointGain(v), sparse_context->DisjointGain(v), tolerance)
            << v;
        EXPECT_NEAR(reference.Gain(v, A), sparse.Gain(v, A), 1e-14) << v;
      }
      auto sparse_shrinking = sparse.MakeShrinkingContext(A);
      auto dense_shrinking = reference.MakeShrinkingContext(A);
      for (int v : A)
        EXPECT_NEAR(dense_shrinking->SubsetLoss(v), sparse_shrinking->SubsetLoss(v), 1e-14) << v;
    }
  }
}

TYPED_TEST(SparseFacilityLocationTest, ElementsWithoutEntriesAndRawScale) {
  using T = TypeParam;
  std::vector<Eigen::Triplet<T, std::int32_t>> triplets = {
      {0, 0, T(0.5)}, {0, 2, T(0.25)}, {2, 0, T(1.5)}, {2, 1, T(-2)}, {3, 2, T(0.75)}};
  Sparse<T> m(4, 3);
  m.setFromTriplets(triplets.begin(), triplets.end());
  SparseFacilityLocationFunction<T> f(std::move(m), true);
  EXPECT_EQ(0, m.nonZeros()) << "the caller's matrix was not taken over";
  EXPECT_EQ(1.0, f.NormalizationScale());
  // f(V) = max(0.5, 1.5) + max(0, -2) + max(0.25, 0.75).
  EXPECT_DOUBLE_EQ(2.25, f.Evaluate(FixedGroundSet(4)));
  EXPECT_EQ(5, f.MatrixStoredEntries());
  // Single elements are not clamped: f({2}) = 1.5 - 2.
  EXPECT_DOUBLE_EQ(-0.5, f.Evaluate(2));
  UnorderedHashSet single(4);
  single.insert(2);
  EXPECT_DOUBLE_EQ(1.5, f.Evaluate(single));

  // Element 1 stores nothing: gain 0, adding it changes only the set.
  UnorderedHashSet A(4);
  A.insert(0);
  auto context = f.MakeGrowingContext(A);
  EXPECT_EQ(0.0, context->DisjointGain(1));
  EXPECT_EQ(0.0, f.Gain(1, A));
  const double before = context->CurrentValue();
  EXPECT_FALSE(context->AddNewElementToContext(1, true));
  EXPECT_EQ(before, context->CurrentValue());
  EXPECT_TRUE(context->CurrentSet().contains(1));
  // An element below the maxima everywhere changes nothing either.
  Sparse<T> second(2, 1);
  second.insert(0, 0) = T(1);
  second.insert(1, 0) = T(0.5);
  SparseFacilityLocationFunction<T> g(std::move(second), false);
  UnorderedHashSet first(2);
  first.insert(0);
  auto g_context = g.MakeGrowingContext(first);
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
  // No stored entry: f(V) = 0, and the matrix goes back to the caller.
  Sparse<T> empty(5, 4);
  ExpectMessage([&] { SparseFacilityLocationFunction<T> f(std::move(empty), false); },
                "SparseFacilityLocationFunction", "Invalid matrix, f(V) = 0 <= 0.");
  EXPECT_EQ(5, empty.rows());
  EXPECT_EQ(4, empty.cols());
  // Only negative entries: f(V) = 0 as well; the entries are intact.
  Sparse<T> negative(2, 2);
  negative.insert(1, 0) = T(-3);
  negative.insert(0, 1) = T(-1);
  ExpectMessage([&] { SparseFacilityLocationFunction<T> f(std::move(negative), false); },
                "SparseFacilityLocationFunction", "Invalid matrix, f(V) = 0 <= 0.");
  ASSERT_EQ(2, negative.nonZeros());
  EXPECT_EQ(T(-3), negative.coeff(1, 0));
  EXPECT_EQ(T(-1), negative.coeff(0, 1));
  // Infinity: nested value-check error, matrix given back.
  Sparse<T> infinite(2, 3);
  infinite.insert(1, 2) = std::numeric_limits<T>::infinity();
  try {
    SparseFacilityLocationFunction<T> f(std::move(infinite), true);
    ADD_FAILURE() << "infinity accepted";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string::npos,
              std::string(e.what()).find(
                  ":SparseFacilityLocationFunction]] Invalid sparse facility location matrix."))
        << e.what();
    EXPECT_THROW(std::rethrow_if_nested(e), std::invalid_argument);
  }
  EXPECT_EQ(1, infinite.nonZeros());
  // Shapes are refused before anything is taken.
  Sparse<T> no_columns(3, 0);
  ExpectMessage([&] { SparseFacilityLocationFunction<T> f(std::move(no_columns), true); },
                "SparseFacilityLocationFunction", "Invalid argument, number_of_concepts=3.");
  Sparse<T> no_rows(0, 3);
  ExpectMessage([&] { SparseFacilityLocationFunction<T> f(std::move(no_rows), true); },
                "SparseFacilityLocationFunction", "Invalid argument, ground_set_size=0.");

  // Element and set errors.
  Dense<T> dense;
  SparseFacilityLocationFunction<T> f(RandomSparse<T>(6, 3, 0.7, 2, dense), false);
  UnorderedHashSet A(6);
  UnorderedHashSet larger(7);
  ExpectMessage([&] { f.Evaluate(6); }, "Evaluate", "Invalid element = 6.");
  ExpectMessage([&] { f.Evaluate(larger); }, "Evaluate", "Too large ground set size = 7.");
  ExpectMessage([&] { f.Gain(-1, A); }, "Gain", "Invalid element = -1.");
  ExpectMessage([&] { f.Loss(1, larger); }, "Loss", "Too large ground set size = 7.");
  ExpectMessage([&] { f.EvaluateAfterSubtraction(A, 8); }, "EvaluateAfterSubtraction",
                "Invalid element = 8.");
  auto context = f.MakeGrowingContext(A);
  ExpectMessage([&] { context->DisjointGain(6); }, "DisjointGain", "Invalid element = 6.");
  ExpectMessage([&] { context->AddNewElementToContext(6, true); }, "AddNewElementToContext",
                "Invalid element = 6.");
  ExpectMessage([&] { f.AssignContext(*context, larger); }, "AssignContext",
                "Invalid ground set size, 7 != 6.");
  auto shrinking = f.MakeShrinkingContext(A);
  ExpectMessage([&] { shrinking->SubsetLoss(-3); }, "SubsetLoss", "Invalid element = -3.");
}

}  // namespace
}  // namespace velmor
