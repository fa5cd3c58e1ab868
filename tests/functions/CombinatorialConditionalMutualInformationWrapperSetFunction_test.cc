#include "functions/CombinatorialConditionalMutualInformationWrapperSetFunction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <type_traits>

#include "functions/FacilityLocationFunction.h"
#include "functions/SumSumDispersionFunction.h"
#include "functions/set_function_oracle.h"
#include "support/float_types.h"

namespace velmor {
namespace {

template <typename T>
using Cmi = CombinatorialConditionalMutualInformationWrapperSetFunction<T>;

using testing::RandomMatrix;
using testing::RandomSet;
using testing::Union;

template <typename T>
class CmiWrapperTest : public ::testing::Test {};
TYPED_TEST_SUITE(CmiWrapperTest, testing::FloatTypes);

TYPED_TEST(CmiWrapperTest, IncrementalAnswersMatchWholeSetEvaluation) {
  using T = TypeParam;
  const int n = 22;
  std::mt19937 rng(6);
  FacilityLocationFunction<T> fl(RandomMatrix<T>(n, 8, 1));
  fl.ComputeNormalizationConstant(false);
  SumSumDispersionFunction<T> dispersion(RandomMatrix<T>(n, n, 2));
  dispersion.ComputeNormalizationConstant(false);
  testing::OracleOptions options;
  options.steps = 60;
  // Float gains are summed in float (facility location's lanes, dispersion's
  // M(v, u) + M(u, v)); values in double.
  options.tolerance = std::is_same_v<T, float> ? 1e-5 : 1e-12;
  const struct {
    double attraction, neglect;
  } densities[] = {{0.2, 0.0}, {0.3, 0.2}, {0.0, 0.3}, {0.5, 0.5}};
  for (const auto& d : densities) {
    const UnorderedHashSet A = RandomSet(n, d.attraction, rng), N = RandomSet(n, d.neglect, rng);
    SCOPED_TRACE("|A| = " + std::to_string(A.size()) + ", |N| = " + std::to_string(N.size()));
    const Cmi<SubmodularFunction> submodular(fl, A, N);
    const Cmi<SetFunction> scaled(static_cast<const SetFunction&>(fl), A, N, -2.0);
    const Cmi<SupermodularFunction> supermodular(dispersion, A, N, 0.5);
    for (const SetFunction* f :
         std::initializer_list<const SetFunction*>{&submodular, &scaled, &supermodular}) {
      ++options.seed;
      testing::CheckSetFunctionAgainstEvaluation(*f, options);
    }
  }
}

TYPED_TEST(CmiWrapperTest, MutualInformationIdentities) {
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

TYPED_TEST(CmiWrapperTest, CopiesOwnTheirFunctionAndArgumentErrors) {
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
  testing::CheckArgumentErrors(Cmi<SubmodularFunction>(f, A, N), file);
}

}  // namespace
}  // namespace velmor
