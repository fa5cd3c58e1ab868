#include "functions/FacilityLocationFunction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <exception>
#include <limits>
#include <random>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "functions/set_function_oracle.h"
#include "matrixvector/eigen_matrix_checks.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {
namespace {

template <typename T>
using Matrix = typename FacilityLocationFunction<T>::DenseMatrix;

// Random n x k matrix with entries uniform in [0, 1), row v = element v.
template <typename T>
Matrix<T> RandomMatrix(int n, int k, std::uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  Matrix<T> m(n, k);
  for (int v = 0; v < n; ++v) {
    for (int i = 0; i < k; ++i) m(v, i) = static_cast<T>(unit(rng));
  }
  return m;
}

UnorderedHashSet SetOf(int n, std::initializer_list<int> elements) {
  UnorderedHashSet set(n);
  for (int v : elements) set.insert(v);
  return set;
}

// Brute-force value: sum over landmarks of max(0, max over A), in double.
template <typename T>
double BruteForceValue(const Matrix<T>& m, const std::vector<int>& A) {
  double sum = 0.0;
  for (int i = 0; i < m.cols(); ++i) {
    double best = 0.0;
    for (int a : A) best = std::max(best, static_cast<double>(m(a, i)));
    sum += best;
  }
  return sum;
}

// The expected four-lane sum, written out plainly: lane i % 4 for the full
// blocks, then lanes 0, 1 for a tail of two or three, lane 2 for a last one.
float LaneOrderSum(const std::vector<float>& terms) {
  const int k = static_cast<int>(terms.size());
  float lane[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  const int full = k / 4 * 4;
  for (int i = 0; i < full; ++i) lane[i % 4] += terms[i];
  int i = full;
  if (k - i >= 2) {
    lane[0] += terms[i];
    lane[1] += terms[i + 1];
    i += 2;
  }
  if (i < k) lane[2] += terms[i];
  return (lane[2] + (lane[0] + lane[1])) + lane[3];
}

float PlainOrderSum(const std::vector<float>& terms) {
  float sum = 0.0f;
  for (float t : terms) sum += t;
  return sum;
}

// Message of an exception and of each nested one, outermost first.
std::vector<std::string> MessageChain(const std::exception& e) {
  std::vector<std::string> chain = {e.what()};
  try {
    std::rethrow_if_nested(e);
  } catch (const std::exception& inner) {
    const std::vector<std::string> rest = MessageChain(inner);
    chain.insert(chain.end(), rest.begin(), rest.end());
  }
  return chain;
}

template <typename F>
std::vector<std::string> ChainOf(F&& call) {
  try {
    call();
  } catch (const std::invalid_argument& e) {
    return MessageChain(e);
  }
  return {};
}

template <typename T>
class FacilityLocationTest : public ::testing::Test {};
using ElementTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(FacilityLocationTest, ElementTypes);

TYPED_TEST(FacilityLocationTest, IncrementalAnswersMatchWholeSetEvaluation) {
  using T = TypeParam;
  // Tolerance: float gains are summed in float over k landmarks.
  const struct {
    int n, k;
  } shapes[] = {{1, 1}, {2, 3}, {9, 4}, {17, 5}, {24, 7}, {31, 13}, {12, 33}, {40, 64}, {6, 130}};
  std::uint32_t seed = 7;
  for (const auto& shape : shapes) {
    SCOPED_TRACE("n = " + std::to_string(shape.n) + ", k = " + std::to_string(shape.k));
    FacilityLocationFunction<T> f(RandomMatrix<T>(shape.n, shape.k, seed));
    f.ComputeNormalizationConstant(false);
    testing::OracleOptions options;
    options.seed = seed++;
    options.steps = 60;
    options.tolerance = 8.0 * shape.k * std::numeric_limits<T>::epsilon();
    testing::CheckSetFunctionAgainstEvaluation(f, options);
  }
}

TYPED_TEST(FacilityLocationTest, ValuesAgainstBruteForceAndNormalization) {
  using T = TypeParam;
  const int n = 23;
  const int k = 11;
  const Matrix<T> m = RandomMatrix<T>(n, k, 99);
  FacilityLocationFunction<T> f(m);
  const double tol = 4.0 * k * std::numeric_limits<double>::epsilon();

  // Unnormalized values equal the brute-force coverage.
  std::mt19937 rng(5);
  for (int trial = 0; trial < 20; ++trial) {
    std::vector<int> elements;
    UnorderedHashSet A(n);
    for (int j = 0; j < trial % 7; ++j) {
      const int v = static_cast<int>(rng() % n);
      if (A.insert(v)) elements.push_back(v);
    }
    EXPECT_NEAR(BruteForceValue<T>(m, elements), f.Evaluate(A), tol);
  }

  // Empty set is 0; after normalization f(V) = 1 and values scale by 1 / f(V).
  EXPECT_EQ(0.0, f.Evaluate(UnorderedHashSet(n)));
  std::vector<int> all(n);
  for (int v = 0; v < n; ++v) all[v] = v;
  const double ground_value = BruteForceValue<T>(m, all);
  const UnorderedHashSet some = SetOf(n, {1, 4, 9});
  const double before = f.Evaluate(some);
  f.ComputeNormalizationConstant(false);
  EXPECT_NEAR(1.0, f.EvaluateGroundSet(), tol);
  EXPECT_NEAR(before / ground_value, f.Evaluate(some), tol);
  EXPECT_EQ(0.0, f.Evaluate(UnorderedHashSet(n)));
  // Skipping restores scale 1.
  f.ComputeNormalizationConstant(true);
  EXPECT_EQ(before, f.Evaluate(some));
}

TYPED_TEST(FacilityLocationTest, ConstructionFromEitherLayoutAgrees) {
  using T = TypeParam;
  const int n = 10;
  const int k = 6;
  const Matrix<T> m = RandomMatrix<T>(n, k, 3);
  FacilityLocationFunction<T> from_rows(m);

  // The element-major k x n matrix is moved in without a copy.
  Matrix<T> transposed = m.transpose();
  const T* storage = transposed.data();
  FacilityLocationFunction<T> from_columns(typename FacilityLocationFunction<T>::ElementMajor{},
                                           std::move(transposed));
  EXPECT_EQ(storage, from_columns.ElementMajorMatrix().data());

  // Filling the zero matrix row by row gives the same function.
  FacilityLocationFunction<T> filled(n, k);
  for (int v = 0; v < n; ++v) {
    for (int i = 0; i < k; ++i) filled.MutableRow(v)[i] = m(v, i);
  }
  for (const FacilityLocationFunction<T>* f : {&from_columns, &filled}) {
    EXPECT_EQ(n, f->GroundSetSize());
    EXPECT_EQ(k, f->NumberOfConcepts());
    for (int v = 0; v < n; ++v) {
      for (int i = 0; i < k; ++i) ASSERT_EQ(m(v, i), f->Similarity(v, i));
    }
  }
  const UnorderedHashSet A = SetOf(n, {0, 3, 7});
  EXPECT_EQ(from_rows.Evaluate(A), from_columns.Evaluate(A));
  EXPECT_EQ(from_rows.Evaluate(A), filled.Evaluate(A));
  EXPECT_EQ("Dense FL, |V|=10, #landmarks=6", from_rows.Description());
}

TYPED_TEST(FacilityLocationTest, ContextEdgeCases) {
  using T = TypeParam;
  const int n = 5;
  const int k = 3;
  Matrix<T> m(n, k);
  m << 1, 2, 3,  //
      1, 2, 3,   // duplicate of row 0
      0, 1, 1,   // dominated by row 0
      4, 0, 0,   //
      -1, -2, 0.5;
  FacilityLocationFunction<T> f(m);

  // Adding a dominated element changes nothing and reports it.
  auto growing = f.MakeGrowingContext(SetOf(n, {0}));
  const double value = growing->CurrentValue();
  EXPECT_FALSE(growing->AddNewElementToContext(2, true));
  EXPECT_EQ(value, growing->CurrentValue());
  EXPECT_EQ(2, growing->NumberOfElements());
  EXPECT_TRUE(growing->AddNewElementToContext(3, true));
  EXPECT_EQ(9.0, growing->CurrentValue());

  // Ties: each of two equal maxima has loss 0 on those landmarks.
  const UnorderedHashSet A = SetOf(n, {0, 1, 3});
  auto shrinking = f.MakeShrinkingContext(A);
  EXPECT_EQ(0.0, shrinking->SubsetLoss(0));
  EXPECT_EQ(0.0, shrinking->SubsetLoss(1));
  EXPECT_EQ(3.0, shrinking->SubsetLoss(3));
  EXPECT_EQ(f.Evaluate(A) - f.EvaluateAfterSubtraction(A, 0), shrinking->SubsetLoss(0));
  shrinking->RemoveExistingElementFromContext(0, true);
  EXPECT_EQ(5.0, shrinking->SubsetLoss(1));
  EXPECT_EQ(f.Evaluate(SetOf(n, {1, 3})), shrinking->CurrentValue());

  // A negative row: the singleton form sums without clamping, the set form clamps.
  EXPECT_EQ(-2.5, f.Evaluate(4));
  EXPECT_EQ(0.5, f.Evaluate(SetOf(n, {4})));
  EXPECT_EQ(0.5, f.MakeGrowingContext(UnorderedHashSet(n))->DisjointGain(4));

  // A set over a smaller ground set is accepted and agrees.
  EXPECT_EQ(f.Evaluate(SetOf(n, {0, 2})), f.Evaluate(SetOf(3, {0, 2})));
  EXPECT_EQ(f.Gain(3, SetOf(n, {0, 2})), f.Gain(3, SetOf(3, {0, 2})));
}

TYPED_TEST(FacilityLocationTest, ArgumentErrors) {
  using T = TypeParam;
  const int n = 10;
  FacilityLocationFunction<T> f(RandomMatrix<T>(n, 4, 1));
  const UnorderedHashSet A = SetOf(n, {2, 5});
  const UnorderedHashSet too_large(n + 1);
  auto expect_message = [](auto&& call, const std::string& pattern) {
    const std::vector<std::string> chain = ChainOf(call);
    ASSERT_FALSE(chain.empty()) << "no std::invalid_argument for " << pattern;
    EXPECT_TRUE(std::regex_match(chain[0], std::regex(pattern))) << chain[0];
  };

  // Construction.
  expect_message([] { FacilityLocationFunction<T>(0, 3); },
                 R"(\[\[@FacilityLocationFunction:\d+:FacilityLocationFunction\]\] Invalid argument, ground_set_size=0\.)");
  expect_message([] { FacilityLocationFunction<T>(3, 0); },
                 R"(\[\[@FacilityLocationFunction:\d+:FacilityLocationFunction\]\] Invalid argument, number_of_concepts=3\.)");

  // Sets over a larger ground set.
  expect_message([&] { f.Evaluate(too_large); },
                 R"(\[\[@FacilityLocationFunction:\d+:Evaluate\]\] Too large ground set size = 11\.)");
  expect_message([&] { f.EvaluateUnion(1, too_large); }, R"(.*:EvaluateUnion\]\] Too large ground set size = 11\.)");
  expect_message([&] { f.EvaluateUnion(A, too_large); }, R"(.*:EvaluateUnion\]\] Too large ground set size = 11\.)");
  expect_message([&] { f.EvaluateUnionAndSecondArg(1, too_large); },
                 R"(.*:EvaluateUnionAndSecondArg\]\] Too large ground set size = 11\.)");
  expect_message([&] { f.EvaluateAfterSubtraction(too_large, 1); },
                 R"(.*:EvaluateAfterSubtraction\]\] Too large ground set size = 11\.)");
  expect_message([&] { f.Gain(1, too_large); }, R"(.*:Gain\]\] Too large ground set size = 11\.)");
  expect_message([&] { f.Loss(1, too_large); }, R"(.*:Loss\]\] Too large ground set size = 11\.)");

  // Elements outside [0, n).
  expect_message([&] { f.Evaluate(n); }, R"(.*:Evaluate\]\] Invalid element = 10\.)");
  expect_message([&] { f.Gain(-1, A); }, R"(.*:Gain\]\] Invalid element = -1\.)");
  expect_message([&] { f.Loss(n, A); }, R"(.*:Loss\]\] Invalid element = 10\.)");
  expect_message([&] { f.EvaluateUnion(n, A); }, R"(.*:EvaluateUnion\]\] Invalid element = 10\.)");
  auto growing = f.MakeGrowingContext(A);
  auto shrinking = f.MakeShrinkingContext(A);
  const double value = growing->CurrentValue();
  expect_message([&] { growing->DisjointGain(n); },
                 R"(\[\[@FacilityLocationFunction:\d+:DisjointGain\]\] Invalid element = 10\.)");
  const int bad[] = {1, -3};
  double gains[2];
  expect_message([&] { growing->DisjointGains(bad, 2, gains); }, R"(.*:DisjointGains\]\] Invalid element = -3\.)");
  expect_message([&] { growing->AddNewElementToContext(-1, true); },
                 R"(.*:AddNewElementToContext\]\] Invalid element = -1\.)");
  EXPECT_EQ(value, growing->CurrentValue());
  EXPECT_EQ(2, growing->NumberOfElements());
  expect_message([&] { shrinking->SubsetLoss(n); }, R"(.*:SubsetLoss\]\] Invalid element = 10\.)");
  expect_message([&] { shrinking->RemoveExistingElementFromContext(n, true); },
                 R"(.*:RemoveExistingElementFromContext\]\] Invalid element = 10\.)");
  EXPECT_EQ(2, shrinking->NumberOfElements());

  // Mismatched ground sets for contexts: the function's own check and the
  // generic one of the context.
  expect_message([&] { f.AssignContext(*growing, too_large); },
                 R"(\[\[@FacilityLocationFunction:\d+:AssignContext\]\] Invalid ground set size, 11 != 10\.)");
  expect_message([&] { f.MakeGrowingContext(UnorderedHashSet(n - 1)); },
                 R"(.*:MakeGrowingContext\]\] Invalid ground set size, 9 != 10\.)");
  expect_message([&] { growing->AssignContext(too_large); },
                 R"(\[\[@SetFunction:\d+:AssignContext\]\] Invalid element, mismatched ground set size, 11 != 10\.)");
  expect_message([&] { shrinking->AssignContext(too_large); },
                 R"(\[\[@SetFunction:\d+:AssignContext\]\] Invalid element, mismatched ground set size, 11 != 10\.)");
  EXPECT_EQ(value, growing->CurrentValue());
  EXPECT_EQ(2, growing->NumberOfElements());
}

TYPED_TEST(FacilityLocationTest, NormalizationFailures) {
  using T = TypeParam;
  // All zeros: f(V) = 0.
  {
    FacilityLocationFunction<T> f(4, 3);
    const std::vector<std::string> chain = ChainOf([&] { f.ComputeNormalizationConstant(false); });
    ASSERT_EQ(1u, chain.size());
    EXPECT_TRUE(std::regex_match(
        chain[0], std::regex(R"(\[\[@FacilityLocationFunction:\d+:ComputeNormalizationConstant\]\] )"
                             R"(Invalid possibly all zero or negative matrix, f\(V\) = 0 <= 0\.)")))
        << chain[0];
    EXPECT_EQ(1.0, f.NormalizationScale());
  }
  // NaN and infinity: the first bad entry in element-major scan order, nested.
  {
    Matrix<T> m = RandomMatrix<T>(5, 4, 2);
    m(3, 1) = std::numeric_limits<T>::infinity();
    m(2, 3) = std::numeric_limits<T>::quiet_NaN();
    FacilityLocationFunction<T> f(m);
    const std::vector<std::string> chain = ChainOf([&] { f.ComputeNormalizationConstant(false); });
    ASSERT_EQ(2u, chain.size());
    EXPECT_TRUE(std::regex_match(
        chain[0], std::regex(R"(\[\[@FacilityLocationFunction:\d+:ComputeNormalizationConstant\]\] )"
                             R"(Invalid facility location matrix\.)")))
        << chain[0];
    EXPECT_TRUE(std::regex_match(
        chain[1], std::regex(R"(\[\[@eigen_matrix_checks:\d+:CheckValueThrowWithInfo\]\] )"
                             R"(Matrix contains IEEE FP NaN value at \(row,col\)=\(2,3\)\.)")))
        << chain[1];
    m(2, 3) = 0;
    FacilityLocationFunction<T> g(m);
    const std::vector<std::string> inf_chain = ChainOf([&] { g.ComputeNormalizationConstant(true); });
    ASSERT_EQ(2u, inf_chain.size());
    EXPECT_NE(std::string::npos,
              inf_chain[1].find("Matrix contains IEEE FP +/- Inf value at (row,col)=(3,1)."));
    // With the library-wide checks off the matrix is not inspected.
    SetMatrixValueChecksEnabled(false);
    EXPECT_NO_THROW(g.ComputeNormalizationConstant(true));
    SetMatrixValueChecksEnabled(true);
  }
}

// The gain of one candidate is summed in float in the fixed four-lane order.
// Each case mixes one large term with small ones, so that the order of the
// float additions decides which small terms survive rounding.
TEST(FacilityLocationLaneOrder, FloatGainUsesFourLaneOrder) {
  // Hand-built: lane 1 holds 1e8, the other lanes collect threes; summed
  // plainly every 3 is lost against 1e8, summed by lanes they are not.
  {
    const std::vector<float> row = {3, 1e8f, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3};
    Matrix<float> m(1, static_cast<int>(row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) m(0, static_cast<int>(i)) = row[i];
    FacilityLocationFunction<float> f(m);
    const float expected = LaneOrderSum(row);
    ASSERT_NE(expected, PlainOrderSum(row));
    EXPECT_EQ(static_cast<double>(expected),
              f.MakeGrowingContext(UnorderedHashSet(1))->DisjointGain(0));
  }
  // Random rows of widely spread magnitudes, every tail length, against a
  // context holding some elements (so terms are max(0, S - m)).
  std::mt19937 rng(2024);
  std::uniform_real_distribution<double> exponent(-8.0, 8.0);
  int differs_from_plain = 0;
  for (int k = 1; k <= 23; ++k) {
    const int n = 12;
    Matrix<float> m(n, k);
    for (int v = 0; v < n; ++v) {
      for (int i = 0; i < k; ++i) m(v, i) = static_cast<float>(std::pow(10.0, exponent(rng)));
    }
    FacilityLocationFunction<float> f(m);
    const UnorderedHashSet A = SetOf(n, {0, 1});
    auto context = f.MakeGrowingContext(A);
    std::vector<int> candidates;
    for (int v = 2; v < n; ++v) candidates.push_back(v);
    std::vector<double> batched(candidates.size());
    context->DisjointGains(candidates.data(), static_cast<int>(candidates.size()), batched.data());
    for (std::size_t j = 0; j < candidates.size(); ++j) {
      const int v = candidates[j];
      std::vector<float> terms(k);
      for (int i = 0; i < k; ++i) {
        const float covered = std::max({0.0f, m(0, i), m(1, i)});
        terms[i] = std::max(0.0f, m(v, i) - covered);
      }
      const float expected = LaneOrderSum(terms);
      if (expected != PlainOrderSum(terms)) ++differs_from_plain;
      EXPECT_EQ(static_cast<double>(expected), context->DisjointGain(v)) << "k = " << k << ", v = " << v;
      EXPECT_EQ(static_cast<double>(expected), batched[j]) << "k = " << k << ", v = " << v;
    }
  }
  // The data must be able to tell the orders apart for the test to mean anything.
  EXPECT_GT(differs_from_plain, 10);
}

}  // namespace
}  // namespace velmor
