// Every kind of set function over a range of shapes and scales: incremental
// answers against whole-set evaluation, and refusals of elements outside the
// ground set and of sets over another one.

#include <gtest/gtest.h>

#include <Eigen/SparseCore>
#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "functions/CombinatorialConditionalMutualInformationWrapperSetFunction.h"
#include "functions/ContractionWrapperSetFunction.h"
#include "functions/FacilityLocationFunction.h"
#include "functions/MixtureSetFunction.h"
#include "functions/ModularFunction.h"
#include "functions/SoftFacilityLocationFunction.h"
#include "functions/SoftSparseFacilityLocationFunction.h"
#include "functions/SparseFacilityLocationFunction.h"
#include "functions/SparseSumSumDispersionFunction.h"
#include "functions/SumSumDispersionFunction.h"
#include "functions/set_function_oracle.h"
#include "support/float_types.h"

namespace velmor {
namespace {

using testing::RandomMatrix;
using testing::RandomSet;
using testing::Union;

template <typename T>
using Dense = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;
using Definition = std::function<double(const Set&)>;

// Facility location written out: sum over landmarks of max(0, max over A).
template <typename T>
double FacilityLocationOf(const Dense<T>& m, const Set& A) {
  double sum = 0.0;
  for (int i = 0; i < m.cols(); ++i) {
    double best = 0.0;
    for (int a : A) best = std::max(best, static_cast<double>(m(a, i)));
    sum += best;
  }
  return sum;
}

// Soft facility location written out in long double: sum over landmarks of
// lambda log(1 + sum over A of exp(m(a, i) / lambda)), each term shifted by
// its largest exponent. With `zero_is_absent` (sparse matrices, whose random
// forms store no zeros) a zero entry takes no part.
template <typename T>
double SoftFacilityLocationOf(const Dense<T>& m, double lambda, bool zero_is_absent, const Set& A) {
  long double total = 0;
  for (int i = 0; i < m.cols(); ++i) {
    long double top = 0;
    for (int a : A) {
      if (!zero_is_absent || m(a, i) != T(0)) top = std::max<long double>(top, m(a, i));
    }
    long double sum = std::exp(-top / lambda);
    for (int a : A) {
      if (!zero_is_absent || m(a, i) != T(0)) sum += std::exp((m(a, i) - top) / lambda);
    }
    total += top + lambda * std::log(sum);
  }
  return static_cast<double>(total);
}

// Dispersion written out: sum over the ordered pairs of A of m(a, b).
template <typename T>
double DispersionOf(const Dense<T>& m, const Set& A) {
  double sum = 0.0;
  for (int a : A) {
    for (int b : A) sum += static_cast<double>(m(a, b));
  }
  return sum;
}

// `value` divided by its ground-set value when `normalize`.
Definition Scaled(const Definition& value, int n, bool normalize) {
  const double scale = normalize ? 1.0 / value(testing::FullSet(n)) : 1.0;
  return [value, scale](const Set& A) { return scale * value(A); };
}

// One oracle walk of `steps` steps; `tolerance` relative as in OracleOptions.
void Walk(const SetFunction& f, std::uint32_t seed, int steps, double tolerance,
          Definition definition, const std::set<int>& excluded = {}) {
  SCOPED_TRACE(f.Description());
  testing::OracleOptions options;
  options.seed = seed;
  options.steps = steps;
  options.tolerance = tolerance;
  options.excluded = excluded;
  options.definition = std::move(definition);
  testing::CheckSetFunctionAgainstEvaluation(f, options);
}

template <typename T>
class SetFunctionKinds : public ::testing::Test {};
TYPED_TEST_SUITE(SetFunctionKinds, testing::FloatTypes);

TYPED_TEST(SetFunctionKinds, FacilityLocationFamily) {
  using T = TypeParam;
  std::uint32_t seed = 12345;
  // Dense: k around multiples of four (the lanes' tails); float gains are
  // summed in float over k landmarks.
  const struct {
    int n, k;
  } shapes[] = {{1, 1}, {2, 3}, {9, 4}, {17, 5}, {24, 7}, {31, 13}, {12, 33}, {40, 64}, {6, 130}};
  for (const auto& s : shapes) {
    const Dense<T> m = RandomMatrix<T>(s.n, s.k, ++seed);
    FacilityLocationFunction<T> f(m);
    f.ComputeNormalizationConstant(false);
    Walk(f, seed, 60, testing::Eps<T>(8.0 * s.k),
         Scaled([m](const Set& A) { return FacilityLocationOf<T>(m, A); }, s.n, true));
  }
  // Soft: scales of S against lambda from mild to extreme (exponents down to
  // -1e6), normalized and raw; more than one 64 x 64 block each way.
  const struct {
    int n, k;
    double scale, lambda;
    bool normalize;
  } soft[] = {{1, 1, 1.0, 0.5, true},     {2, 3, 1.0, 1.0, true},    {9, 4, 1.0, 0.1, true},
              {17, 5, 1.0, 0.02, false},  {24, 7, 10.0, 1.0, true},  {31, 13, 100.0, 1e-4, true},
              {12, 33, 1.0, 30.0, false}, {20, 6, 1e3, 1e-3, false}, {70, 67, 1.0, 0.5, false}};
  for (const auto& c : soft) {
    const Dense<T> m = RandomMatrix<T>(c.n, c.k, ++seed, c.scale);
    SoftFacilityLocationFunction<T> f(m, c.lambda);
    f.ComputeNormalizationConstant(!c.normalize);
    const double lambda = c.lambda;
    Walk(
        f, seed, 60, 1e-9,
        Scaled([m, lambda](const Set& A) { return SoftFacilityLocationOf<T>(m, lambda, false, A); },
               c.n, c.normalize));
  }
  // Sparse, hard and soft, with rows that store nothing: the dense forms with
  // zeros where nothing is stored.
  const struct {
    int n, k;
    double density, scale, lambda;
  } sparse[] = {{1, 1, 1.0, 1.0, 0.5},    {3, 2, 0.5, 1.0, 1.0},     {17, 9, 0.3, 1.0, 0.05},
                {29, 40, 0.1, 10.0, 0.1}, {40, 7, 0.6, 100.0, 1e-4}, {24, 24, 1.0, 1.0, 3.0}};
  for (const auto& c : sparse) {
    Dense<T> m;
    const std::vector<int> empty_rows = c.n > 3 ? std::vector<int>{0, c.n / 2} : std::vector<int>{};
    SparseFacilityLocationFunction<T> hard(
        testing::RandomSparse<T>(c.n, c.k, c.density, ++seed, m, 1.0, empty_rows), false);
    Walk(hard, seed, 80, 1e-12,
         Scaled([m](const Set& A) { return FacilityLocationOf<T>(m, A); }, c.n, true));
    SoftSparseFacilityLocationFunction<T> f(
        testing::RandomSparse<T>(c.n, c.k, c.density, ++seed, m, c.scale), c.lambda, false);
    const double lambda = c.lambda;
    Walk(f, seed, 70, 1e-9,
         Scaled([m, lambda](const Set& A) { return SoftFacilityLocationOf<T>(m, lambda, true, A); },
                c.n, true));
  }
}

TYPED_TEST(SetFunctionKinds, ModularAndDispersion) {
  using T = TypeParam;
  // Float gains are summed in float (dispersion's M(v, u) + M(u, v)); values in double.
  const double tolerance = std::is_same_v<T, float> ? 1e-5 : 1e-12;
  std::uint32_t seed = 3;
  for (const int n : {1, 2, 7, 16, 33}) {
    // Modular: mixed signs, with and without an offset.
    const std::vector<T> w = testing::RandomWeights<T>(n, 11u + n, -1.0, 2.0);
    const double offset = n % 2 ? 0.75 : 0.0;
    Walk(ModularFunction<T>(w, T(offset)), 100u + n, 120,
         64 * std::numeric_limits<double>::epsilon(), [w, offset](const Set& A) {
           double sum = offset;
           for (int a : A) sum += static_cast<double>(w[static_cast<std::size_t>(a)]);
           return sum;
         });
    for (const bool symmetric : {true, false}) {
      Dense<T> m = RandomMatrix<T>(n, n, ++seed);
      if (symmetric) m.template triangularView<Eigen::StrictlyLower>() = m.transpose().eval();
      SumSumDispersionFunction<T> f(m);
      EXPECT_EQ(symmetric || n == 1, f.IsSymmetric());
      f.ComputeNormalizationConstant(false);
      Walk(f, seed, 60, tolerance,
           Scaled([m](const Set& A) { return DispersionOf<T>(m, A); }, n, true));
      for (const double density : {0.2, 0.8}) {
        Dense<T> dense;
        testing::RandomSparse<T>(n, n, density, ++seed, dense);
        if (symmetric) dense = (dense + dense.transpose()).eval();
        dense(0, 0) = T(0.5);  // f(V) > 0
        SparseSumSumDispersionFunction<T> g(dense.sparseView());
        EXPECT_EQ((dense.array() == dense.transpose().array()).all(), g.IsSymmetric());
        g.ComputeNormalizationConstant(false);
        Walk(g, seed, 60, 1e-12,
             Scaled([dense](const Set& A) { return DispersionOf<T>(dense, A); }, n, true));
      }
    }
  }
}

TYPED_TEST(SetFunctionKinds, MixturesAndWrappers) {
  using T = TypeParam;
  const int n = 22;
  std::mt19937 rng(6);
  FacilityLocationFunction<T> fl(RandomMatrix<T>(n, 9, 1)), fl2(RandomMatrix<T>(n, 6, 2));
  fl.ComputeNormalizationConstant(false);
  fl2.ComputeNormalizationConstant(false);
  SumSumDispersionFunction<T> dispersion(RandomMatrix<T>(n, n, 2));
  dispersion.ComputeNormalizationConstant(false);
  const ModularFunction<double> modular(testing::RandomWeights<double>(n, 3, -0.2, 1.0), 0.1);
  // Float gains are summed in float; values in double.
  const double tolerance = std::is_same_v<T, float> ? 1e-5 : 1e-12;
  std::uint32_t seed = 77;
  // A mixture, and a mixture inside a mixture (built from a list): weighted
  // sums of the components.
  const double mixture_tolerance = std::is_same_v<T, float> ? 2.4e-5 : 1e-12;
  const MixtureSetFunction mixture(&fl, &modular, &fl2, 0.7, 0.25, 1.5);
  Walk(mixture, ++seed, 120, mixture_tolerance, [&](const Set& A) {
    return 0.7 * fl.Evaluate(A) + 0.25 * modular.Evaluate(A) + 1.5 * fl2.Evaluate(A);
  });
  Walk(MixtureSetFunction(std::vector<const SetFunction*>{&mixture, &fl}, {2.0, 0.5}), ++seed, 120,
       mixture_tolerance,
       [&](const Set& A) { return 2.0 * mixture.Evaluate(A) + 0.5 * fl.Evaluate(A); });
  // Contractions by C (never a candidate), m (f(A + C) - f(C)), and conditional
  // mutual information with attraction C and neglect N,
  // m (f(A + N) + f(C + N) - f(A + C + N) - f(N)), of each kind.
  for (const double p : {0.0, 0.2, 0.5}) {
    const UnorderedHashSet C = RandomSet(n, p, rng), N = RandomSet(n, 0.3 - p / 2, rng);
    const std::set<int> excluded(C.begin(), C.end());
    SCOPED_TRACE("|C| = " + std::to_string(C.size()) + ", |N| = " + std::to_string(N.size()));
    const auto contracted = [&C](const SetFunction& f, double m) -> Definition {
      return [&f, &C, m](const Set& A) { return m * (f.Evaluate(Union(A, C)) - f.Evaluate(C)); };
    };
    const auto informed = [&C, &N](const SetFunction& f, double m) -> Definition {
      return [&f, &C, &N, m](const Set& A) {
        const UnorderedHashSet AN = Union(A, N), CN = Union(C, N);
        return m * (f.Evaluate(AN) + f.Evaluate(CN) - f.Evaluate(Union(AN, C)) - f.Evaluate(N));
      };
    };
    Walk(ContractionWrapperSetFunction<SubmodularFunction>(fl, C, 2.5), ++seed, 60, tolerance,
         contracted(fl, 2.5), excluded);
    Walk(ContractionWrapperSetFunction<SetFunction>(static_cast<const SetFunction&>(fl), C, -0.75),
         ++seed, 60, tolerance, contracted(fl, -0.75), excluded);
    Walk(ContractionWrapperSetFunction<SupermodularFunction>(dispersion, C, 1.5), ++seed, 60,
         tolerance, contracted(dispersion, 1.5), excluded);
    using Cmi = CombinatorialConditionalMutualInformationWrapperSetFunction<SubmodularFunction>;
    Walk(Cmi(fl, C, N), ++seed, 60, tolerance, informed(fl, 1.0));
    Walk(CombinatorialConditionalMutualInformationWrapperSetFunction<SetFunction>(
             static_cast<const SetFunction&>(fl), C, N, -2.0),
         ++seed, 60, tolerance, informed(fl, -2.0));
    Walk(CombinatorialConditionalMutualInformationWrapperSetFunction<SupermodularFunction>(
             dispersion, C, N, 0.5),
         ++seed, 60, tolerance, informed(dispersion, 0.5));
  }
}

TYPED_TEST(SetFunctionKinds, ArgumentErrors) {
  using T = TypeParam;
  const int n = 6;
  FacilityLocationFunction<T> fl(RandomMatrix<T>(n, 4, 1));
  SoftFacilityLocationFunction<T> soft(RandomMatrix<T>(n, 3, 2), 0.5);
  Dense<T> dense;
  const SparseFacilityLocationFunction<T> sparse(testing::RandomSparse<T>(n, 3, 0.7, 2, dense),
                                                 false);
  const SoftSparseFacilityLocationFunction<T> soft_sparse(
      testing::RandomSparse<T>(n, 3, 0.7, 3, dense), 0.5, false);
  const ModularFunction<T> modular(std::vector<T>(n, T(1)));
  const MixtureSetFunction mixture(&fl, &modular, 1.0, 2.0);
  const UnorderedHashSet one = testing::SetOf(n, {1});
  const ContractionWrapperSetFunction<SubmodularFunction> contraction(fl, one);
  const CombinatorialConditionalMutualInformationWrapperSetFunction<SubmodularFunction> cmi(fl, one,
                                                                                            one);
  const SumSumDispersionFunction<T> dispersion(Dense<T>::Ones(n, n));
  const SparseSumSumDispersionFunction<T> sparse_dispersion(Dense<T>::Ones(n, n).sparseView());
  const struct {
    const SetFunction& f;
    std::string file, end;
  } kinds[] = {
      {fl, "FacilityLocationFunction", "."},
      {soft, "SoftFacilityLocationFunction", "."},
      {sparse, "SparseFacilityLocationFunction", "."},
      {soft_sparse, "SoftSparseFacilityLocationFunction", "."},
      {modular, "ModularFunction", "."},
      {mixture, "MixtureSetFunction", "."},
      {contraction, "ContractionWrapperSetFunction", "."},
      {cmi, "CombinatorialConditionalMutualInformationWrapperSetFunction", "."},
      // No final period in the dispersion family's messages.
      {dispersion, "SumSumDispersionFunction", ""},
      {sparse_dispersion, "SparseSumSumDispersionFunction", ""},
  };
  for (const auto& kind : kinds) {
    SCOPED_TRACE(kind.file);
    testing::CheckArgumentErrors(kind.f, kind.file, kind.end);
  }
}

}  // namespace
}  // namespace velmor
