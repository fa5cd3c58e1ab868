#ifndef VELMOR_TESTS_FUNCTIONS_SET_FUNCTION_ORACLE_H_
#define VELMOR_TESTS_FUNCTIONS_SET_FUNCTION_ORACLE_H_

// Differential test driver for any SetFunction: CheckSetFunctionAgainstEvaluation
// walks a seeded random sequence of additions and removals (the current set A
// modelled by a std::set) and compares, at every step, every incremental answer
// with whole-set evaluation: the gains of the growing contexts (owning,
// external, batched: bit for bit with each other) and Gain, EvaluateUnion,
// EvaluateUnionAndSecondArg and GainOrLoss against f(A + v) - f(A); the losses
// of the shrinking context, Loss and EvaluateAfterSubtraction against
// f(A) - f(A - v); context values and sizes; AssignContext against a context
// built element by element; clones (of contexts and of f) answering as the
// originals without reaching them; and the set forms (DisjointSetGain,
// SetGain, SetLoss, SubsetSetLoss, EvaluateUnion(A, B),
// EvaluateAfterSubtraction(A, B)) against explicit sets; with a definition
// given, f(A) at every step and f({v}) for every v against it. Failures carry
// the seed and step. Also here: random matrices and sets, and
// CheckArgumentErrors.

#include <gtest/gtest.h>

#include <Eigen/Core>
#include <Eigen/SparseCore>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "functions/SetFunction.h"
#include "sets/UnorderedHashSet.h"
#include "support/located_messages.h"
#include "support/sets.h"

namespace velmor::testing {

struct OracleOptions {
  std::uint32_t seed = 12345;
  // Random operations (additions or removals) per run.
  int steps = 120;
  // Allowed difference: tolerance * (1 + max(|expected|, |actual|)).
  double tolerance = 1e-9;
  // Probability that a step removes an element (when A is not empty).
  double removal_probability = 0.3;
  // At most this many candidates are checked per step (all when fewer).
  int candidates_per_step = 12;
  // Whether shrinking contexts are exercised.
  bool check_shrinking = true;
  // Elements outside the function's domain (a contraction's C): never
  // candidates, members or elements of the sets B.
  std::set<int> excluded;
  // f written out independently (brute force over the matrix, or the
  // wrapped functions' values); empty: not checked.
  std::function<double(const Set&)> definition;
};

namespace internal {

inline UnorderedHashSet MakeSet(const std::set<int>& elements, int n) {
  UnorderedHashSet set(n);
  for (int v : elements) set.insert(v);
  return set;
}

inline void ExpectClose(double expected, double actual, double tolerance, const char* what) {
  const double bound = tolerance * (1.0 + std::max(std::fabs(expected), std::fabs(actual)));
  EXPECT_LE(std::fabs(expected - actual), bound)
      << what << ": expected " << expected << ", got " << actual;
}

}  // namespace internal

// Runs the checks described above on `f`. f's ground set must not be empty.
inline void CheckSetFunctionAgainstEvaluation(const SetFunction& f, const OracleOptions& options) {
  using internal::ExpectClose;
  using internal::MakeSet;
  const int n = f.GroundSetSize();
  ASSERT_GT(n, 0);
  const double tol = options.tolerance;
  std::mt19937 rng(options.seed);
  auto uniform = [&rng](int bound) {
    return std::uniform_int_distribution<int>(0, bound - 1)(rng);
  };
  std::bernoulli_distribution remove_coin(options.removal_probability);

  std::set<int> model;
  UnorderedHashSet empty(n);
  std::unique_ptr<SetFunction::SetFunctionGrowingContext> growing = f.MakeGrowingContext(empty);
  std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal> external =
      f.MakeGrowingContextExternal(empty);
  std::unique_ptr<SetFunction::SetFunctionShrinkingContext> shrinking;
  if (options.check_shrinking) shrinking = f.MakeShrinkingContext(empty);
  const std::unique_ptr<SetFunction> copy = f.clone();

  ExpectClose(f.Evaluate(empty), growing->CurrentValue(), tol, "empty-set context value");
  for (int v = 0; v < n && options.definition; ++v) {
    ExpectClose(options.definition(MakeSet({v}, n)), f.Evaluate(v), tol,
                "f({v}) against definition");
  }

  for (int step = 0; step < options.steps; ++step) {
    SCOPED_TRACE("seed " + std::to_string(options.seed) + ", step " + std::to_string(step) +
                 ", |A| = " + std::to_string(model.size()));
    const UnorderedHashSet A = MakeSet(model, n);
    const double fA = f.Evaluate(A);
    if (options.definition) ExpectClose(options.definition(A), fA, tol, "f(A) against definition");

    // --- Context values against evaluation.
    ExpectClose(fA, growing->CurrentValue(), tol, "growing context value");
    ExpectClose(fA, external->CurrentValue(), tol, "external growing context value");
    EXPECT_EQ(static_cast<int>(model.size()), growing->NumberOfElements());
    if (shrinking) ExpectClose(fA, shrinking->CurrentValue(), tol, "shrinking context value");
    EXPECT_EQ(fA, copy->Evaluate(A)) << "clone of the function";

    // --- Gains of candidates outside A.
    std::vector<int> outside;
    for (int v = 0; v < n; ++v) {
      if (model.count(v) == 0 && options.excluded.count(v) == 0) outside.push_back(v);
    }
    std::shuffle(outside.begin(), outside.end(), rng);
    if (static_cast<int>(outside.size()) > options.candidates_per_step) {
      outside.resize(static_cast<std::size_t>(options.candidates_per_step));
    }
    std::vector<double> batched(outside.size());
    growing->DisjointGains(outside.data(), static_cast<int>(outside.size()), batched.data());
    for (std::size_t j = 0; j < outside.size(); ++j) {
      const int v = outside[j];
      std::set<int> plus = model;
      plus.insert(v);
      const double fAv = f.Evaluate(MakeSet(plus, n));
      const double gain = growing->DisjointGain(v);
      ExpectClose(fAv - fA, gain, tol, "DisjointGain against f(A + v) - f(A)");
      EXPECT_EQ(gain, batched[j]) << "batched DisjointGains of " << v;
      EXPECT_EQ(gain, external->DisjointGain(v)) << "external DisjointGain of " << v;
      ExpectClose(fAv - fA, f.Gain(v, A), tol, "Gain");
      ExpectClose(fAv, f.EvaluateUnion(v, A), tol, "EvaluateUnion(v, A)");
      const std::pair<double, double> pair = f.EvaluateUnionAndSecondArg(v, A);
      ExpectClose(fAv, pair.first, tol, "EvaluateUnionAndSecondArg first");
      ExpectClose(fA, pair.second, tol, "EvaluateUnionAndSecondArg second");
      ExpectClose(fAv - fA, f.GainOrLoss(v, A), tol, "GainOrLoss of a non-member");
      EXPECT_EQ(0.0, f.Loss(v, A)) << "Loss of a non-member " << v;
    }

    // --- Losses of members.
    for (int v : model) {
      EXPECT_EQ(0.0, f.Gain(v, A)) << "Gain of member " << v;
      std::set<int> minus = model;
      minus.erase(v);
      const double fAmv = f.Evaluate(MakeSet(minus, n));
      ExpectClose(fAmv, f.EvaluateAfterSubtraction(A, v), tol, "EvaluateAfterSubtraction(A, v)");
      ExpectClose(fA, f.EvaluateUnion(v, A), tol, "EvaluateUnion of a member");
      ExpectClose(fA - fAmv, f.Loss(v, A), tol, "Loss");
      ExpectClose(fA - fAmv, f.GainOrLoss(v, A), tol, "GainOrLoss of a member");
      if (shrinking) ExpectClose(fA - fAmv, shrinking->SubsetLoss(v), tol, "SubsetLoss");
    }

    // --- Set forms against explicit sets: B random, disjoint part for gains.
    {
      std::set<int> b_model;
      const int b_size = uniform(std::min(n, 6) + 1);
      for (int i = 0; i < b_size; ++i) {
        const int b = uniform(n);
        if (options.excluded.count(b) == 0) b_model.insert(b);
      }
      const UnorderedHashSet B = MakeSet(b_model, n);
      std::set<int> union_model = model;
      union_model.insert(b_model.begin(), b_model.end());
      std::set<int> difference_model;
      for (int v : model) {
        if (b_model.count(v) == 0) difference_model.insert(v);
      }
      const double f_union = f.Evaluate(MakeSet(union_model, n));
      const double f_difference = f.Evaluate(MakeSet(difference_model, n));
      ExpectClose(f_union, f.EvaluateUnion(A, B), tol, "EvaluateUnion(A, B)");
      ExpectClose(f_difference, f.EvaluateAfterSubtraction(A, B), tol,
                  "EvaluateAfterSubtraction(A, B)");
      ExpectClose(f_union - f.Evaluate(B), f.SetGain(A, B), tol, "SetGain(A, B)");
      ExpectClose(fA - f_difference, f.SetLoss(B, A), tol, "SetLoss(B, A)");
      std::set<int> disjoint;
      for (int v : b_model) {
        if (model.count(v) == 0) disjoint.insert(v);
      }
      const double value_before = growing->CurrentValue();
      ExpectClose(f_union - fA, growing->DisjointSetGain(MakeSet(disjoint, n)), tol,
                  "DisjointSetGain");
      EXPECT_EQ(value_before, growing->CurrentValue()) << "DisjointSetGain changed the context";
      if (shrinking) {
        std::set<int> members;
        for (int v : b_model) {
          if (model.count(v) != 0) members.insert(v);
        }
        std::set<int> rest;
        for (int v : model) {
          if (members.count(v) == 0) rest.insert(v);
        }
        ExpectClose(fA - f.Evaluate(MakeSet(rest, n)),
                    shrinking->SubsetSetLoss(MakeSet(members, n)), tol, "SubsetSetLoss");
      }
    }

    // --- A clone follows its own changes only.
    if (!outside.empty()) {
      std::unique_ptr<SetFunction::SetFunctionGrowingContext> twin = growing->clone();
      ExpectClose(growing->CurrentValue(), twin->CurrentValue(), 0.0, "cloned context value");
      const double before = growing->CurrentValue();
      twin->AddNewElementToContext(outside[0], true);
      EXPECT_EQ(before, growing->CurrentValue()) << "a clone's addition reached the original";
      EXPECT_EQ(static_cast<int>(model.size()), growing->NumberOfElements());
      EXPECT_TRUE(twin->CurrentSet().contains(outside[0]));
    }

    // --- Next operation.
    const bool remove = !model.empty() && (remove_coin(rng) || outside.empty());
    if (remove) {
      auto it = model.begin();
      std::advance(it, uniform(static_cast<int>(model.size())));
      const int v = *it;
      model.erase(it);
      const UnorderedHashSet after = MakeSet(model, n);
      f.AssignContext(*growing, after);
      f.AssignContext(*external, after);
      // Built element by element from the empty set, in another order.
      std::unique_ptr<SetFunction::SetFunctionGrowingContext> rebuilt = f.MakeGrowingContext(empty);
      for (auto r = model.rbegin(); r != model.rend(); ++r)
        rebuilt->AddNewElementToContext(*r, true);
      ExpectClose(rebuilt->CurrentValue(), growing->CurrentValue(), tol,
                  "AssignContext against element-by-element building");
      EXPECT_EQ(rebuilt->NumberOfElements(), growing->NumberOfElements());
      for (int probe = 0; probe < 3; ++probe) {
        const int u = uniform(n);
        if (model.count(u) != 0) continue;
        ExpectClose(rebuilt->DisjointGain(u), growing->DisjointGain(u), tol,
                    "gain after AssignContext against element-by-element building");
      }
      if (shrinking) {
        shrinking->RemoveExistingElementFromContext(v, true);
        EXPECT_FALSE(shrinking->CurrentSet().contains(v));
      }
    } else if (!outside.empty()) {
      const int v = outside[static_cast<std::size_t>(uniform(static_cast<int>(outside.size())))];
      model.insert(v);
      growing->AddNewElementToContext(v, true);
      external->AddNewElementToContext(v);
      if (shrinking) f.AssignContext(*shrinking, MakeSet(model, n));
    }
  }
}

// A rows x cols matrix with entries scale * uniform [0, 1), filled row by row.
template <typename T>
Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic> RandomMatrix(int rows, int cols,
                                                              std::uint32_t seed,
                                                              double scale = 1.0) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic> m(rows, cols);
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < cols; ++c) m(r, c) = static_cast<T>(scale * unit(rng));
  }
  return m;
}

// n weights uniform in [low, high).
template <typename T>
std::vector<T> RandomWeights(int n, std::uint32_t seed, double low, double high) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> dist(low, high);
  std::vector<T> weights(static_cast<std::size_t>(n));
  for (T& w : weights) w = static_cast<T>(dist(rng));
  return weights;
}

// A random n x k matrix storing each entry with probability `density`, values
// scale * uniform (0, 1); rows listed in `empty_rows` store nothing. `dense`
// receives the same matrix with zeros where nothing is stored.
template <typename T>
Eigen::SparseMatrix<T, Eigen::RowMajor, std::int32_t> RandomSparse(
    int n, int k, double density, std::uint32_t seed,
    Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>& dense, double scale = 1.0,
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
      dense(v, i) = static_cast<T>(scale * unit(rng)) + std::numeric_limits<T>::min();
      triplets.emplace_back(v, i, dense(v, i));
    }
  }
  Eigen::SparseMatrix<T, Eigen::RowMajor, std::int32_t> m(n, k);
  m.setFromTriplets(triplets.begin(), triplets.end());
  return m;
}

// Every entry point of f and of its contexts (owning and external) refuses the
// elements -1 and n and a set over a larger ground set (contexts: any other
// ground set size),
// naming itself in the message; refused calls leave contexts as they were. A
// set over a smaller ground set is accepted by the whole-set forms. `file` is
// the source file named in the messages, `end` the text that ends the element
// and size messages, `pair_function` the name EvaluateUnionAndSecondArg's
// messages carry (a function may delegate it). Needs n >= 2.
inline void CheckArgumentErrors(const SetFunction& f, const std::string& file,
                                const std::string& end = ".",
                                const std::string& pair_function = "EvaluateUnionAndSecondArg") {
  const int n = f.GroundSetSize();
  ASSERT_GE(n, 2);
  const std::string N = std::to_string(n), larger_size = std::to_string(n + 1);
  const UnorderedHashSet A = SetOf(n, {0}), larger(n + 1), smaller = SetOf(n - 1, {0});
  const std::string too_large = "Too large ground set size = " + larger_size + end;
  const std::string mismatch = "Invalid ground set size, " + larger_size + " != " + N + ".";
  auto growing = f.MakeGrowingContext(A);
  auto shrinking = f.MakeShrinkingContext(A);
  auto growing_external = f.MakeGrowingContextExternal(A);
  auto shrinking_external = f.MakeShrinkingContextExternal(A);
  const double value = growing->CurrentValue();
  std::vector<ErrorCase> cases = {
      {[&] { f.Evaluate(larger); }, "Evaluate", too_large},
      {[&] { f.EvaluateUnion(0, larger); }, "EvaluateUnion", too_large},
      {[&] { f.EvaluateUnion(A, larger); }, "EvaluateUnion", too_large},
      {[&] { f.EvaluateUnionAndSecondArg(0, larger); }, pair_function, too_large},
      {[&] { f.EvaluateAfterSubtraction(larger, 0); }, "EvaluateAfterSubtraction", too_large},
      {[&] { f.EvaluateAfterSubtraction(larger, A); }, "EvaluateAfterSubtraction", too_large},
      {[&] { f.Gain(0, larger); }, "Gain", too_large},
      {[&] { f.Loss(0, larger); }, "Loss", too_large},
      {[&] { f.MakeGrowingContext(smaller); }, "MakeGrowingContext",
       "Invalid ground set size, " + std::to_string(n - 1) + " != " + N + "."},
      {[&] { f.MakeShrinkingContext(larger); }, "MakeShrinkingContext", mismatch},
      {[&] { f.AssignContext(*growing, larger); }, "AssignContext", mismatch},
      {[&] { f.AssignContext(*shrinking, larger); }, "AssignContext", mismatch},
      {[&] { f.AssignContext(*growing_external, larger); }, "AssignContext", mismatch},
      {[&] { f.AssignContext(*shrinking_external, larger); }, "AssignContext", mismatch},
  };
  for (const int e : {-1, n}) {
    const std::string bad = "Invalid element = " + std::to_string(e) + end;
    cases.insert(
        cases.end(),
        {{[&, e] { f.Evaluate(e); }, "Evaluate", bad},
         {[&, e] { f.EvaluateUnion(e, A); }, "EvaluateUnion", bad},
         {[&, e] { f.EvaluateUnionAndSecondArg(e, A); }, pair_function, bad},
         {[&, e] { f.EvaluateAfterSubtraction(A, e); }, "EvaluateAfterSubtraction", bad},
         {[&, e] { f.Gain(e, A); }, "Gain", bad},
         {[&, e] { f.Loss(e, A); }, "Loss", bad},
         {[&, e] { growing->DisjointGain(e); }, "DisjointGain", bad},
         {[&, e] { growing->AddNewElementToContext(e, true); }, "AddNewElementToContext", bad},
         {[&, e] { shrinking->SubsetLoss(e); }, "SubsetLoss", bad},
         {[&, e] { shrinking->RemoveExistingElementFromContext(e, true); },
          "RemoveExistingElementFromContext", bad}});
  }
  ExpectLocatedErrors(file, cases);
  ExpectLocatedError(
      [&] { growing->AssignContext(larger); }, "SetFunction", "AssignContext",
      "Invalid element, mismatched ground set size, " + larger_size + " != " + N + ".");
  EXPECT_EQ(f.Evaluate(A), f.Evaluate(smaller)) << "a smaller ground set is accepted";
  f.AssignContext(*growing_external, A);
  f.AssignContext(*shrinking_external, A);
  EXPECT_EQ(value, growing->CurrentValue());
  EXPECT_EQ(1, growing->NumberOfElements());
  EXPECT_EQ(1, shrinking->NumberOfElements());
}

}  // namespace velmor::testing

#endif  // VELMOR_TESTS_FUNCTIONS_SET_FUNCTION_ORACLE_H_
