#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

#include "functions/CombinatorialConditionalMutualInformationWrapperSetFunction.h"
#include "functions/ContractionWrapperSetFunction.h"
#include "functions/FacilityLocationFunction.h"
#include "functions/SumSumDispersionFunction.h"
#include "functions/set_function_oracle.h"
#include "support/float_types.h"

namespace velmor {
namespace {

using testing::RandomMatrix;
using testing::RandomSet;
using testing::Union;

template <typename T>
class WrapperTest : public ::testing::Test {};
TYPED_TEST_SUITE(WrapperTest, testing::FloatTypes);

// Values and the gains of elements outside C are checked against the
// definition by the oracle walks, which never offer an element of C; here
// what the contraction answers for those.
TYPED_TEST(WrapperTest, ContractionOnElementsOfC) {
  using T = TypeParam;
  const int n = 20;
  std::mt19937 rng(3);
  FacilityLocationFunction<T> f(RandomMatrix<T>(n, 6, 9));
  f.ComputeNormalizationConstant(false);
  for (const double m : {1.0, 3.0}) {
    for (int trial = 0; trial < 10; ++trial) {
      const UnorderedHashSet C = RandomSet(n, 0.3, rng), A = RandomSet(n, 0.3, rng);
      const ContractionWrapperSetFunction<SubmodularFunction> g(f, C, m);
      EXPECT_EQ(f.Evaluate(C), g.ContractionValue());
      // Elements of C have gain 0 and, in a shrinking context, loss 0.
      auto context = g.MakeGrowingContext(A);
      auto shrinking = g.MakeShrinkingContext(Union(A, C));
      for (int c : C) {
        EXPECT_EQ(0.0, g.Gain(c, A));
        EXPECT_EQ(0.0, context->DisjointGain(c));
        EXPECT_EQ(0.0, shrinking->SubsetLoss(c));
        EXPECT_NEAR(g.Evaluate(A), g.EvaluateUnion(c, A), 1e-15);
      }
      // Loss and subtraction apply f to the sets with C added, taking out
      // elements of C too: m f.Loss(v, A u C), m (f((A u C) - v) - f(C)).
      const UnorderedHashSet B = RandomSet(n, 0.3, rng);
      EXPECT_DOUBLE_EQ(m * (f.EvaluateAfterSubtraction(Union(A, C), B) - f.Evaluate(C)),
                       g.EvaluateAfterSubtraction(A, B));
      for (int v = 0; v < n; ++v) {
        EXPECT_DOUBLE_EQ(m * f.Loss(v, Union(A, C)), g.Loss(v, A)) << v;
        EXPECT_DOUBLE_EQ(m * (f.EvaluateAfterSubtraction(Union(A, C), v) - f.Evaluate(C)),
                         g.EvaluateAfterSubtraction(A, v))
            << v;
      }
    }
  }
}

TYPED_TEST(WrapperTest, CopiesOwnTheirFunctionAndArgumentErrors) {
  using T = TypeParam;
  const int n = 10;
  std::mt19937 rng(1);
  const UnorderedHashSet C = RandomSet(n, 0.3, rng), A = RandomSet(n, 0.5, rng);
  std::unique_ptr<SetFunction> copy;
  double expected = 0;
  {
    auto inner = std::make_unique<FacilityLocationFunction<T>>(RandomMatrix<T>(n, 4, 5));
    inner->ComputeNormalizationConstant(false);
    const ContractionWrapperSetFunction<SubmodularFunction> g(std::move(inner), C, 2.0);
    expected = g.Evaluate(A);
    copy = g.clone();
    EXPECT_EQ("contraction wrapped Dense FL, |V|=10, #landmarks=4", g.Description());
  }
  EXPECT_EQ(expected, copy->Evaluate(A)) << "the clone must not refer to the destroyed original";
  EXPECT_NEAR(expected, copy->MakeGrowingContext(A)->CurrentValue(), 1e-6);

  const std::string file = "ContractionWrapperSetFunction";
  const FacilityLocationFunction<T> f(RandomMatrix<T>(5, 3, 4));
  const UnorderedHashSet one = testing::SetOf(5, {1});
  using Wrapper = ContractionWrapperSetFunction<SubmodularFunction>;
  testing::ExpectLocatedErrors(
      file, {{[&] { Wrapper(f, UnorderedHashSet(3)); }, file, "Invalid ground set size, 3 != 5."},
             {[&] { Wrapper(std::unique_ptr<SubmodularFunction>(), one); }, file,
              "Invalid argument, the wrapped function must be present."},
             {[&] { Wrapper(f, one, std::nan("")); }, file,
              "Invalid argument, multiplier (=nan) must be finite."}});
}

template <typename T>
using Cmi = CombinatorialConditionalMutualInformationWrapperSetFunction<T>;

// Values and gains are checked against the definition by the oracle walks;
// here the fixed order of the operations, bit for bit.
TYPED_TEST(WrapperTest, MutualInformationOrderOfOperations) {
  using T = TypeParam;
  const int n = 18;
  std::mt19937 rng(21);
  FacilityLocationFunction<T> f(RandomMatrix<T>(n, 7, 4));
  f.ComputeNormalizationConstant(false);
  for (const double m : {1.0, 0.3}) {
    for (int trial = 0; trial < 10; ++trial) {
      const UnorderedHashSet A = RandomSet(n, 0.3, rng), N = RandomSet(n, 0.2, rng);
      const UnorderedHashSet X = RandomSet(n, 0.3, rng);
      const Cmi<SubmodularFunction> g(f, A, N, m);
      const UnorderedHashSet AN = Union(A, N);
      EXPECT_EQ(f.Evaluate(AN) - f.Evaluate(N), g.Constant());
      // m ((f(X u N) + constant) - f(X u A u N)).
      const double v1 = f.Evaluate(Union(X, N)), v2 = f.Evaluate(Union(X, AN));
      EXPECT_EQ(m * ((v1 + g.Constant()) - v2), g.Evaluate(X));
    }
  }
}

TYPED_TEST(WrapperTest, CmiCopiesOwnTheirFunctionAndArgumentErrors) {
  using T = TypeParam;
  const int n = 6;
  std::mt19937 rng(2);
  const UnorderedHashSet A = RandomSet(n, 0.5, rng), N = testing::SetOf(n, {0});
  const UnorderedHashSet X = testing::SetOf(n, {3});
  std::unique_ptr<SetFunction> copy;
  double expected = 0;
  {
    auto inner = std::make_unique<FacilityLocationFunction<T>>(RandomMatrix<T>(n, 3, 8));
    const Cmi<SubmodularFunction> g(std::move(inner), A, N);
    expected = g.Evaluate(X);
    copy = g.clone();
    EXPECT_EQ("CMI wrapped Dense FL, |V|=6, #landmarks=3", g.Description());
  }
  EXPECT_EQ(expected, copy->Evaluate(X)) << "the clone must not refer to the destroyed original";

  const std::string file = "CombinatorialConditionalMutualInformationWrapperSetFunction";
  const FacilityLocationFunction<T> f(RandomMatrix<T>(n, 3, 8));
  testing::ExpectLocatedErrors(
      file, {{[&] { Cmi<SubmodularFunction>(f, UnorderedHashSet(2), N); }, file,
              "Invalid ground set size, 2 != 6."},
             {[&] { Cmi<SubmodularFunction>(f, A, UnorderedHashSet(9)); }, file,
              "Invalid ground set size, 9 != 6."},
             {[&] { Cmi<SubmodularFunction>(std::unique_ptr<SubmodularFunction>(), A, N); }, file,
              "Invalid argument, the wrapped function must be present."},
             {[&] { Cmi<SubmodularFunction>(f, A, N, INFINITY); }, file,
              "Invalid argument, multiplier (=inf) must be finite."}});
}

}  // namespace
}  // namespace velmor
