#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>

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

TYPED_TEST(WrapperTest, ContractionIdentities) {
  using T = TypeParam;
  const int n = 20;
  std::mt19937 rng(3);
  FacilityLocationFunction<T> f(RandomMatrix<T>(n, 6, 9));
  f.ComputeNormalizationConstant(false);
  const UnorderedHashSet empty(n);
  for (const double m : {1.0, 3.0}) {
    for (int trial = 0; trial < 10; ++trial) {
      const UnorderedHashSet C = RandomSet(n, 0.3, rng), A = RandomSet(n, 0.3, rng);
      const ContractionWrapperSetFunction<SubmodularFunction> g(f, C, m);
      EXPECT_EQ(f.Evaluate(C), g.ContractionValue());
      // f'(A) = m (f(A u C) - f(C)); 0 on subsets of C.
      EXPECT_NEAR(m * (f.Evaluate(Union(A, C)) - f.Evaluate(C)), g.Evaluate(A), 1e-14);
      UnorderedHashSet inside(n);
      for (int c : C) {
        if (c % 2 == 0) inside.insert(c);
      }
      EXPECT_NEAR(0.0, g.Evaluate(inside), 1e-15);
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
      // Other elements: m f(v | A u C).
      for (int v = 0; v < n; ++v) {
        if (C.contains(v) || A.contains(v)) continue;
        EXPECT_NEAR(m * f.Gain(v, Union(A, C)), g.Gain(v, A), 1e-15);
        EXPECT_NEAR(m * f.Gain(v, Union(A, C)), context->DisjointGain(v), 1e-6);
      }
    }
    // C empty: m (f(A) - f(empty)).
    const ContractionWrapperSetFunction<SubmodularFunction> plain(f, empty, m);
    const UnorderedHashSet A = RandomSet(n, 0.5, rng);
    EXPECT_NEAR(m * (f.Evaluate(A) - f.Evaluate(empty)), plain.Evaluate(A), 1e-14);
    for (int v = 0; v < n; ++v) EXPECT_NEAR(m * f.Evaluate(v), plain.Evaluate(v), 1e-14);
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
    EXPECT_TRUE(g.IsMonotoneNondecreasing());
    EXPECT_EQ(4, g.NumberOfLandmarks());
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

TYPED_TEST(WrapperTest, MutualInformationIdentities) {
  using T = TypeParam;
  const int n = 18;
  std::mt19937 rng(21);
  FacilityLocationFunction<T> f(RandomMatrix<T>(n, 7, 4));
  f.ComputeNormalizationConstant(false);
  const UnorderedHashSet empty(n);
  for (const double m : {1.0, 0.3}) {
    for (int trial = 0; trial < 10; ++trial) {
      const UnorderedHashSet A = RandomSet(n, 0.3, rng), N = RandomSet(n, 0.2, rng);
      const UnorderedHashSet X = RandomSet(n, 0.3, rng);
      const Cmi<SubmodularFunction> g(f, A, N, m);
      const UnorderedHashSet AN = Union(A, N);
      EXPECT_EQ(f.Evaluate(AN) - f.Evaluate(N), g.Constant());
      // The fixed order of operations, bit for bit: m ((v1 + c) - v2).
      const double v1 = f.Evaluate(Union(X, N)), v2 = f.Evaluate(Union(X, AN));
      EXPECT_EQ(m * ((v1 + g.Constant()) - v2), g.Evaluate(X));
      // The definition, I_f(X; A | N); 0 for X inside N.
      EXPECT_NEAR(m * (v1 + f.Evaluate(AN) - v2 - f.Evaluate(N)), g.Evaluate(X), 1e-14);
      UnorderedHashSet inside(n);
      for (int v : N) {
        if (v % 2 == 1) inside.insert(v);
      }
      EXPECT_NEAR(0.0, g.Evaluate(inside), 1e-15);
      // Elements of N have gain 0; the others the difference of f's gains,
      // which f's submodularity keeps >= 0.
      auto context = g.MakeGrowingContext(X);
      for (int v = 0; v < n; ++v) {
        if (X.contains(v)) continue;
        const double expected =
            N.contains(v) ? 0.0 : m * (f.Gain(v, Union(X, N)) - f.Gain(v, Union(X, AN)));
        EXPECT_EQ(expected, g.Gain(v, X));
        EXPECT_NEAR(expected, context->DisjointGain(v), 1e-6);
        EXPECT_GE(context->DisjointGain(v), -1e-7);
      }
    }
    // N empty: f(X) + f(A) - f(X u A) - f(empty).
    const UnorderedHashSet A = RandomSet(n, 0.4, rng), X = RandomSet(n, 0.4, rng);
    const Cmi<SubmodularFunction> g(f, A, empty, m);
    EXPECT_NEAR(m * (f.Evaluate(X) + f.Evaluate(A) - f.Evaluate(Union(X, A)) - f.Evaluate(empty)),
                g.Evaluate(X), 1e-14);
    EXPECT_TRUE(g.IsMonotoneNondecreasing());
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
