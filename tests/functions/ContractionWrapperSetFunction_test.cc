#include "functions/ContractionWrapperSetFunction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>

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
class ContractionWrapperTest : public ::testing::Test {};
TYPED_TEST_SUITE(ContractionWrapperTest, testing::FloatTypes);

TYPED_TEST(ContractionWrapperTest, IncrementalAnswersMatchWholeSetEvaluation) {
  using T = TypeParam;
  const int n = 23;
  std::mt19937 rng(14);
  FacilityLocationFunction<T> fl(RandomMatrix<T>(n, 9, 1));
  fl.ComputeNormalizationConstant(false);
  SumSumDispersionFunction<T> dispersion(RandomMatrix<T>(n, n, 2));
  dispersion.ComputeNormalizationConstant(false);
  testing::OracleOptions options;
  options.steps = 60;
  // Float gains are summed in float (facility location's lanes, dispersion's
  // M(v, u) + M(u, v)); values in double.
  options.tolerance = std::is_same_v<T, float> ? 1e-5 : 1e-12;
  for (const double p : {0.0, 0.2, 0.6}) {
    const UnorderedHashSet C = RandomSet(n, p, rng);
    SCOPED_TRACE("|C| = " + std::to_string(C.size()));
    options.excluded = std::set<int>(C.begin(), C.end());
    const ContractionWrapperSetFunction<SubmodularFunction> submodular(fl, C), scaled(fl, C, 2.5);
    const ContractionWrapperSetFunction<SetFunction> negative(static_cast<const SetFunction&>(fl),
                                                              C, -0.75);
    const ContractionWrapperSetFunction<SupermodularFunction> supermodular(dispersion, C, 1.5);
    for (const SetFunction* f : std::initializer_list<const SetFunction*>{
             &submodular, &scaled, &negative, &supermodular}) {
      ++options.seed;
      testing::CheckSetFunctionAgainstEvaluation(*f, options);
    }
  }
}

TYPED_TEST(ContractionWrapperTest, ContractionIdentities) {
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

TYPED_TEST(ContractionWrapperTest, CopiesOwnTheirFunctionAndArgumentErrors) {
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
  testing::CheckArgumentErrors(Wrapper(f, one), file);
}

}  // namespace
}  // namespace velmor
