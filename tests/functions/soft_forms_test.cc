// The soft facility-location forms against a direct transcription of their
// formulas (bit for bit), and the growing dispersion context's addition of an
// element that was not inserted.

#include <gtest/gtest.h>

#include <Eigen/SparseCore>
#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "functions/MixtureSetFunction.h"
#include "functions/SoftFacilityLocationFunction.h"
#include "functions/SoftSparseFacilityLocationFunction.h"
#include "functions/SparseSumSumDispersionFunction.h"
#include "functions/SumSumDispersionFunction.h"
#include "sets/UnorderedHashSet.h"
#include "support/float_types.h"

namespace velmor {
namespace {

template <typename T>
using Dense = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;

// The formulas, written out for a matrix M whose entry (a, i) takes part when
// stored(a, i); inv = 1 / lambda is used in every exponent.
template <typename T>
struct SoftOracle {
  const Dense<T>& M;
  std::function<bool(int, int)> stored;
  double lambda, inv, scale;

  // scale lambda sum (y + log1p(exp(-y))), y = S(v, i) / lambda.
  double ElementValue(int v) const {
    double sum = 0.0;
    for (int i = 0; i < M.cols(); ++i) {
      if (!stored(v, i)) continue;
      const double y = static_cast<double>(M(v, i)) * inv;
      sum += y + std::log1p(std::exp(-y));
    }
    return scale * lambda * sum;
  }
  double Gain(int v, const std::vector<T>& m, const std::vector<double>& z) const {
    double logs = 0.0, linear = 0.0;
    for (int i = 0; i < M.cols(); ++i) {
      if (!stored(v, i)) continue;
      const double d = static_cast<double>(M(v, i)), mi = static_cast<double>(m[i]);
      if (M(v, i) > m[i]) {
        linear += d - mi;
        logs += std::log((std::exp((mi - d) * inv) * z[i] + 1) / z[i]);
      } else {
        logs += std::log((std::exp((d - mi) * inv) + z[i]) / z[i]);
      }
    }
    return (lambda * logs + linear) * scale;
  }
  void Add(int v, std::vector<T>& m, std::vector<double>& z) const {
    for (int i = 0; i < M.cols(); ++i) {
      if (!stored(v, i)) continue;
      const double d = static_cast<double>(M(v, i)), mi = static_cast<double>(m[i]);
      if (M(v, i) > m[i]) {
        z[i] = std::exp((mi - d) * inv) * z[i] + 1;
        m[i] = M(v, i);
      } else {
        z[i] = z[i] + std::exp((d - mi) * inv);
      }
    }
  }
  double Value(const std::vector<T>& m, const std::vector<double>& z) const {
    double logs = 0.0, shifts = 0.0;
    for (std::size_t i = 0; i < m.size(); ++i) {
      logs += std::log(z[i]);
      shifts += static_cast<double>(m[i]);
    }
    return scale * (lambda * logs + shifts);
  }
  // Loss of v from A, from the largest and second largest values and the
  // shifted sum of the constant member and A's members (in A's order);
  // NaN where the formula is not finite or not used.
  double Loss(int v, const Set& A) const {
    double logs = 0.0, linear = 0.0;
    for (int i = 0; i < M.cols(); ++i) {
      if (!stored(v, i)) continue;
      std::vector<T> values = {T(0)};
      for (int a : A) {
        if (stored(a, i)) values.push_back(M(a, i));
      }
      std::sort(values.begin(), values.end(), std::greater<T>());
      const double mi = static_cast<double>(values[0]), si = static_cast<double>(values[1]);
      double z = std::exp(-mi * inv);
      for (int a : A) {
        if (stored(a, i)) z += std::exp((static_cast<double>(M(a, i)) - mi) * inv);
      }
      double part = NAN;
      if (M(v, i) == values[0]) {
        linear += mi - si;
        // Below z = 2 the difference z - 1 loses the other members' digits:
        // the engine then answers from a sum without it (checked elsewhere
        // against whole-set evaluation).
        if (z >= 2) part = std::log(std::exp((si - mi) * inv) * z / (z - 1));
      } else {
        part = std::log(z / (z - std::exp((static_cast<double>(M(v, i)) - mi) * inv)));
      }
      if (!std::isfinite(part)) return NAN;
      logs += part;
    }
    return (lambda * logs + linear) * scale;
  }
};

// Random adds on a growing context and a loss of every member on a shrinking
// one; every probe equal to the oracle's, bit for bit.
template <typename T>
void ExpectSoftFormulas(const SetFunction& f, const SoftOracle<T>& oracle, std::mt19937& rng) {
  const int n = static_cast<int>(oracle.M.rows()), k = static_cast<int>(oracle.M.cols());
  for (int v = 0; v < n; ++v) {
    const double expected = oracle.ElementValue(v);
    if (std::isfinite(expected)) {
      EXPECT_EQ(expected, f.Evaluate(v)) << "element " << v;
    } else {
      EXPECT_TRUE(std::isfinite(f.Evaluate(v))) << "element " << v;
    }
  }
  std::vector<T> m(static_cast<std::size_t>(k), T(0));
  std::vector<double> z(static_cast<std::size_t>(k), 1.0);
  auto growing = f.MakeGrowingContext(UnorderedHashSet(n));
  std::vector<int> order(static_cast<std::size_t>(n));
  for (int v = 0; v < n; ++v) order[static_cast<std::size_t>(v)] = v;
  std::shuffle(order.begin(), order.end(), rng);
  UnorderedHashSet A(n);
  for (const int v : order) {
    for (int u = 0; u < n; ++u) {
      if (!A.contains(u)) {
        EXPECT_EQ(oracle.Gain(u, m, z), growing->DisjointGain(u)) << u;
      }
    }
    oracle.Add(v, m, z);
    growing->AddNewElementToContext(v, true);
    A.insert(v);
    EXPECT_EQ(oracle.Value(m, z), growing->CurrentValue()) << "after adding " << v;
    auto shrinking = f.MakeShrinkingContext(A);
    for (int a : A) {
      const double expected = oracle.Loss(a, A);
      if (std::isfinite(expected)) {
        EXPECT_EQ(expected, shrinking->SubsetLoss(a)) << a;
      }
    }
  }
}

template <typename T>
class SoftFormsTest : public ::testing::Test {};
TYPED_TEST_SUITE(SoftFormsTest, testing::FloatTypes);

TYPED_TEST(SoftFormsTest, GainLossAndValueFollowTheFormulas) {
  using T = TypeParam;
  std::mt19937 rng(17);
  const double lambdas[] = {1e-3, 0.05, 0.7, 1.0, 30.0};
  for (int probe = 0; probe < 60; ++probe) {
    const int n = 2 + probe % 7, k = 1 + probe % 5;
    const double lambda = lambdas[probe % 5];
    // Values up to +-800 lambda: exp(800) overflows, exp(700) does not.
    std::uniform_real_distribution<double> value(-800 * lambda, 800 * lambda);
    std::bernoulli_distribution present(0.6), small(0.5);
    Dense<T> M(n, k);
    for (int a = 0; a < n; ++a) {
      for (int i = 0; i < k; ++i) {
        M(a, i) = static_cast<T>(small(rng) ? value(rng) / 800 : value(rng));
        if (M(a, i) == T(0)) M(a, i) = T(1);
      }
    }
    M(0, 0) = std::abs(M(0, 0));  // f(V) > 0 in both forms
    // Dense.
    SoftFacilityLocationFunction<T> dense(M, lambda);
    dense.ComputeNormalizationConstant(false);
    const SoftOracle<T> dense_oracle{M, [](int, int) { return true; }, lambda, 1.0 / lambda,
                                     dense.NormalizationScale()};
    ExpectSoftFormulas<T>(dense, dense_oracle, rng);
    // Sparse: only stored entries take part.
    Dense<T> S = M;
    for (int a = 0; a < n; ++a) {
      for (int i = 0; i < k; ++i) {
        if ((a || i) && !present(rng)) S(a, i) = T(0);
      }
    }
    typename SoftSparseFacilityLocationFunction<T>::SparseMatrix sparse_matrix = S.sparseView();
    SoftSparseFacilityLocationFunction<T> sparse(std::move(sparse_matrix), lambda, false);
    const SoftOracle<T> sparse_oracle{S, [&S](int a, int i) { return S(a, i) != T(0); }, lambda,
                                      1.0 / lambda, sparse.NormalizationScale()};
    ExpectSoftFormulas<T>(sparse, sparse_oracle, rng);
  }
}

// f of a multiset (members repeated as added): sum over its ordered pairs of
// M(a, b). Integer entries keep every sum exact.
template <typename T>
double MultisetValue(const Dense<T>& M, const std::vector<int>& members) {
  double sum = 0.0;
  for (int a : members) {
    for (int b : members) sum += static_cast<double>(M(a, b));
  }
  return sum;
}

TYPED_TEST(SoftFormsTest, DispersionAddsAgainAnElementNotInserted) {
  using T = TypeParam;
  std::mt19937 rng(5);
  std::uniform_int_distribution<int> entry(0, 9);
  for (int probe = 0; probe < 12; ++probe) {
    const int n = 3 + probe % 4;
    Dense<T> M(n, n);
    for (int a = 0; a < n; ++a) {
      for (int b = 0; b <= a; ++b) M(a, b) = M(b, a) = static_cast<T>(entry(rng));
    }
    if (probe % 2) M(0, n - 1) += T(1);  // not symmetric
    SumSumDispersionFunction<T> dense(M);
    typename SparseSumSumDispersionFunction<T>::SparseMatrix sparse_matrix = M.sparseView();
    SparseSumSumDispersionFunction<T> sparse(std::move(sparse_matrix));
    MixtureSetFunction mixture(std::vector<const SetFunction*>{&dense}, {1.0});
    for (const SetFunction* f :
         {static_cast<const SetFunction*>(&dense), static_cast<const SetFunction*>(&sparse),
          static_cast<const SetFunction*>(&mixture)}) {
      // One element inserted, then v twice without insertion: the value
      // and the gains are those of the multiset {a, v, v}.
      const int a = probe % n, v = (a + 1) % n;
      auto context = f->MakeGrowingContext(UnorderedHashSet(n));
      context->AddNewElementToContext(a, true);
      EXPECT_TRUE(context->AddNewElementToContext(v, false));
      EXPECT_TRUE(context->AddNewElementToContext(v, false));
      EXPECT_EQ(1, context->NumberOfElements());
      const std::vector<int> members = {a, v, v};
      EXPECT_EQ(MultisetValue(M, members), context->CurrentValue()) << f->Description();
      for (int u = 0; u < n; ++u) {
        if (u == a) continue;
        std::vector<int> with_u = members;
        with_u.push_back(u);
        EXPECT_EQ(MultisetValue(M, with_u) - MultisetValue(M, members), context->DisjointGain(u))
            << f->Description() << ", u = " << u;
      }
    }
  }
}

}  // namespace
}  // namespace velmor
