#include "functions/CombinatorialConditionalMutualInformationWrapperSetFunction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "functions/FacilityLocationFunction.h"
#include "functions/SumSumDispersionFunction.h"
#include "functions/set_function_oracle.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {
namespace {

template <typename T>
using Cmi = CombinatorialConditionalMutualInformationWrapperSetFunction<T>;

using testing::ExpectMessage;
using testing::RandomMatrix;
using testing::RandomSet;
using testing::Union;

template <typename T>
class CmiWrapperTest : public ::testing::Test {};
using ElementTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(CmiWrapperTest, ElementTypes);

TYPED_TEST(CmiWrapperTest, IncrementalAnswersMatchWholeSetEvaluation) {
  using T = TypeParam;
  const int n = 22;
  std::mt19937 rng(6);
  FacilityLocationFunction<T> fl(RandomMatrix<T>(n, 8, 1));
  fl.ComputeNormalizationConstant(false);
  SumSumDispersionFunction<T> dispersion(RandomMatrix<T>(n, n, 2));
  dispersion.ComputeNormalizationConstant(false);
  std::uint32_t seed = 90;
  const struct {
    double attraction, neglect;
  } densities[] = {{0.2, 0.0}, {0.3, 0.2}, {0.0, 0.3}, {0.5, 0.5}};
  for (const auto& d : densities) {
    const UnorderedHashSet A = RandomSet(n, d.attraction, rng);
    const UnorderedHashSet N = RandomSet(n, d.neglect, rng);
    SCOPED_TRACE("|A| = " + std::to_string(A.size()) + ", |N| = " + std::to_string(N.size()));
    testing::OracleOptions options;
    options.steps = 60;
    // Float gains are summed in float (dense facility location's lanes,
    // dispersion's M(v, u) + M(u, v)); values in double.
    options.tolerance = std::is_same_v<T, float> ? 1e-5 : 1e-12;
    options.seed = ++seed;
    Cmi<SubmodularFunction> submodular(fl, A, N);
    testing::CheckSetFunctionAgainstEvaluation(submodular, options);
    options.seed = ++seed;
    Cmi<SetFunction> scaled(static_cast<const SetFunction&>(fl), A, N, -2.0);
    testing::CheckSetFunctionAgainstEvaluation(scaled, options);
    options.seed = ++seed;
    Cmi<SupermodularFunction> supermodular(dispersion, A, N, 0.5);
    testing::CheckSetFunctionAgainstEvaluation(supermodular, options);
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
      const UnorderedHashSet A = RandomSet(n, 0.3, rng);
      const UnorderedHashSet N = RandomSet(n, 0.2, rng);
      const UnorderedHashSet X = RandomSet(n, 0.3, rng);
      Cmi<SubmodularFunction> g(f, A, N, m);
      const UnorderedHashSet AN = Union(A, N);
      EXPECT_EQ(f.Evaluate(AN) - f.Evaluate(N), g.Constant());
      // The fixed order of operations, bit for bit: m ((v1 + c) - v2).
      const double v1 = f.Evaluate(Union(X, N));
      const double v2 = f.Evaluate(Union(X, AN));
      EXPECT_EQ(m * ((v1 + g.Constant()) - v2), g.Evaluate(X));
      // The definition, I_f(X; A | N).
      EXPECT_NEAR(
          m * (f.Evaluate(Union(X, N)) + f.Evaluate(AN) - f.Evaluate(Union(X, AN)) - f.Evaluate(N)),
          g.Evaluate(X), 1e-14);
      // X inside N: 0.
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
        if (N.contains(v)) {
          EXPECT_EQ(0.0, g.Gain(v, X));
          EXPECT_EQ(0.0, context->DisjointGain(v));
          continue;
        }
        const double expected = m * (f.Gain(v, Union(X, N)) - f.Gain(v, Union(X, AN)));
        EXPECT_EQ(expected, g.Gain(v, X));
        EXPECT_NEAR(expected, context->DisjointGain(v), 1e-6);
        EXPECT_GE(context->DisjointGain(v), -1e-7);
      }
    }
    // N empty: f(X) + f(A) - f(X u A) - f(empty).
    const UnorderedHashSet A = RandomSet(n, 0.4, rng);
    const UnorderedHashSet X = RandomSet(n, 0.4, rng);
    Cmi<SubmodularFunction> g(f, A, empty, m);
    EXPECT_NEAR(m * (f.Evaluate(X) + f.Evaluate(A) - f.Evaluate(Union(X, A)) - f.Evaluate(empty)),
                g.Evaluate(X), 1e-14);
    EXPECT_TRUE(g.IsMonotoneNondecreasing());
  }
}

TYPED_TEST(CmiWrapperTest, CopiesAndErrors) {
  using T = TypeParam;
  const int n = 6;
  std::mt19937 rng(2);
  const UnorderedHashSet A = RandomSet(n, 0.5, rng);
  UnorderedHashSet N(n);
  N.insert(0);
  std::unique_ptr<SetFunction> copy;
  UnorderedHashSet X(n);
  X.insert(3);
  double expected = 0;
  {
    auto inner = std::make_unique<FacilityLocationFunction<T>>(RandomMatrix<T>(n, 3, 8));
    Cmi<SubmodularFunction> g(std::move(inner), A, N);
    expected = g.Evaluate(X);
    copy = g.clone();
    EXPECT_EQ("CMI wrapped Dense FL, |V|=6, #landmarks=3", g.Description());
  }
  EXPECT_EQ(expected, copy->Evaluate(X)) << "the clone must not refer to the destroyed original";

  const std::string file = "CombinatorialConditionalMutualInformationWrapperSetFunction";
  FacilityLocationFunction<T> f(RandomMatrix<T>(n, 3, 8));
  ExpectMessage([&] { Cmi<SubmodularFunction> g(f, UnorderedHashSet(2), N); }, file, file,
                "Invalid ground set size, 2 != 6.");
  ExpectMessage([&] { Cmi<SubmodularFunction> g(f, A, UnorderedHashSet(9)); }, file, file,
                "Invalid ground set size, 9 != 6.");
  ExpectMessage([&] { Cmi<SubmodularFunction> g(std::unique_ptr<SubmodularFunction>(), A, N); },
                file, file, "Invalid argument, the wrapped function must be present.");
  ExpectMessage([&] { Cmi<SubmodularFunction> g(f, A, N, INFINITY); }, file, file,
                "Invalid argument, multiplier (=inf) must be finite.");
  testing::CheckArgumentErrors(Cmi<SubmodularFunction>(f, A, N), file);
}

}  // namespace
}  // namespace velmor
