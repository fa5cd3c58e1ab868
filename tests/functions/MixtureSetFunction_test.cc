#include "functions/MixtureSetFunction.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "functions/FacilityLocationFunction.h"
#include "functions/ModularFunction.h"
#include "functions/set_function_oracle.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {
namespace {

constexpr int kN = 14;

FacilityLocationFunction<float> MakeFacilityLocation(int n, int k, std::uint32_t seed) {
  FacilityLocationFunction<float> f(testing::RandomMatrix<float>(n, k, seed));
  f.ComputeNormalizationConstant(false);
  return f;
}

ModularFunction<double> MakeModular(int n, std::uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> dist(-0.2, 1.0);
  std::vector<double> weights(static_cast<std::size_t>(n));
  for (double& w : weights) w = dist(rng);
  return ModularFunction<double>(weights, 0.1);
}

// A component whose Gain must never be consulted.
class GainRefusingModular : public clone_inherit<GainRefusingModular, ModularFunction<double>> {
 public:
  using clone_inherit::clone_inherit;
  double Gain(int, const Set&) const override { throw std::logic_error("Gain consulted"); }
};

TEST(MixtureSetFunction, IncrementalAnswersMatchWholeSetEvaluation) {
  const FacilityLocationFunction<float> fl = MakeFacilityLocation(kN, 9, 1);
  const FacilityLocationFunction<float> fl2 = MakeFacilityLocation(kN, 6, 2);
  const ModularFunction<double> modular = MakeModular(kN, 3);
  const MixtureSetFunction mixture(&fl, &modular, &fl2, 0.7, 0.25, 1.5);
  testing::OracleOptions options;
  options.seed = 77;
  options.tolerance = 200 * std::numeric_limits<float>::epsilon();
  testing::CheckSetFunctionAgainstEvaluation(mixture, options);
  // A mixture inside a mixture.
  const MixtureSetFunction nested(&mixture, &fl, 2.0, 0.5);
  options.seed = 78;
  testing::CheckSetFunctionAgainstEvaluation(nested, options);
}

TEST(MixtureSetFunction, ValuesAreWeightedSumsOfComponents) {
  const FacilityLocationFunction<float> fl = MakeFacilityLocation(kN, 5, 4);
  const ModularFunction<double> modular = MakeModular(kN, 5);
  const MixtureSetFunction mixture(std::vector<const SetFunction*>{&fl, &modular}, {0.3, 1.7});
  const auto mixed = [&](auto of) { return 0.3 * of(fl) + 1.7 * of(modular); };
  std::mt19937 rng(9);
  for (int trial = 0; trial < 25; ++trial) {
    const UnorderedHashSet A = testing::RandomSet(kN, trial % 9 / 10.0, rng);
    const UnorderedHashSet B = testing::RandomSet(kN, 0.2, rng);
    const int v = static_cast<int>(rng() % kN);
    EXPECT_EQ(mixed([&](const SetFunction& g) { return g.Evaluate(A); }), mixture.Evaluate(A));
    EXPECT_EQ(mixed([&](const SetFunction& g) { return g.Evaluate(v); }), mixture.Evaluate(v));
    EXPECT_EQ(mixed([&](const SetFunction& g) { return g.EvaluateUnion(A, B); }),
              mixture.EvaluateUnion(A, B));
    EXPECT_EQ(mixed([&](const SetFunction& g) { return g.EvaluateAfterSubtraction(A, B); }),
              mixture.EvaluateAfterSubtraction(A, B));
    EXPECT_EQ(mixed([&](const SetFunction& g) { return g.Loss(v, A); }), mixture.Loss(v, A));
    if (!A.contains(v)) {
      EXPECT_EQ(mixed([&](const SetFunction& g) { return g.Gain(v, A); }), mixture.Gain(v, A));
    }
  }
  EXPECT_EQ(2, mixture.NumberOfComponents());
  EXPECT_EQ(static_cast<long>(kN) * 5, mixture.MatrixStoredEntries());
}

TEST(MixtureSetFunction, WeightsAndComponentsEdgeCases) {
  const FacilityLocationFunction<float> fl = MakeFacilityLocation(kN, 5, 6);
  const ModularFunction<double> modular = MakeModular(kN, 7);
  UnorderedHashSet A(kN);
  A.insert(2);
  A.insert(9);

  // One component with weight 1 is that component exactly.
  const MixtureSetFunction single(std::vector<const SetFunction*>{&fl}, {1.0});
  EXPECT_EQ(fl.Evaluate(A), single.Evaluate(A));
  EXPECT_EQ(fl.MakeGrowingContext(A)->DisjointGain(4),
            single.MakeGrowingContext(A)->DisjointGain(4));

  // Weight 0 removes a component's influence.
  const MixtureSetFunction zero(&fl, &modular, 1.0, 0.0);
  EXPECT_EQ(fl.Evaluate(A), zero.Evaluate(A));

  // Gain of a member is 0.0 without asking the components.
  const GainRefusingModular refusing(std::vector<double>(kN, 1.0));
  const MixtureSetFunction guarded(&refusing, &fl);
  EXPECT_EQ(0.0, guarded.Gain(2, A));
  EXPECT_THROW(guarded.Gain(3, A), std::logic_error);

  // The mixture owns clones: it outlives and ignores later changes of the originals.
  auto owned_fl = std::make_unique<FacilityLocationFunction<float>>(MakeFacilityLocation(kN, 5, 6));
  const MixtureSetFunction owner(owned_fl.get(), &modular);
  const double before = owner.Evaluate(A);
  owned_fl->MutableRow(2)[0] += 10.0f;
  owned_fl.reset();
  EXPECT_EQ(before, owner.Evaluate(A));

  // Weights can be replaced, by copy or by take-over; a copy of the mixture
  // keeps its own weights.
  MixtureSetFunction mixture(&fl, &modular);
  const std::unique_ptr<SetFunction> copy = mixture.clone();
  std::vector<double> weights = {2.0, 0.5};
  mixture.setComponentWeights(weights);
  EXPECT_EQ(2u, weights.size());
  EXPECT_EQ(2.0 * fl.Evaluate(A) + 0.5 * modular.Evaluate(A), mixture.Evaluate(A));
  mixture.setComponentWeights(weights, true);
  EXPECT_TRUE(weights.empty());
  EXPECT_EQ(fl.Evaluate(A) + modular.Evaluate(A), copy->Evaluate(A));
  // Contexts read the current weights.
  auto context = mixture.MakeGrowingContext(A);
  mixture.setComponentWeights(std::vector<double>{1.0, 1.0});
  EXPECT_EQ(mixture.Evaluate(A), context->CurrentValue());
}

TEST(MixtureSetFunction, Errors) {
  const FacilityLocationFunction<float> fl = MakeFacilityLocation(kN, 5, 8);
  const ModularFunction<double> modular = MakeModular(kN, 9);
  const ModularFunction<double> other_size = MakeModular(kN + 1, 10);
  using Components = std::vector<const SetFunction*>;
  MixtureSetFunction mixture(&fl, &modular, 1.0, 2.0);
  const std::string weights = "setComponentWeights";
  const std::string constructor = "MixtureSetFunction";
  const std::string missing = "Invalid argument, both components (f1 and f2) must be present.";
  const struct {
    std::function<void()> call;
    const std::string& function;
    std::string text;
  } cases[] = {
      // Weights: count first, then emptiness, then sign (NaN is not non-negative).
      {[&] { mixture.setComponentWeights(std::vector<double>{1.0}); }, weights,
       "Invalid argument, number of weights 1 must match number of components 2."},
      {[&] {
         mixture.setComponentWeights(std::vector<double>{1.0, -0.1});
       },
       weights, "Invalid argument, found weight -1.000000e-01, weights must be all non-negative."},
      {[&] {
         mixture.setComponentWeights(std::vector<double>{std::nan(""), 1.0});
       },
       weights, "Invalid argument, found weight nan, weights must be all non-negative."},
      {[&] { MixtureSetFunction(Components{}, std::vector<double>{}); }, weights,
       "Invalid argument, must have at least one component."},
      {[&] { MixtureSetFunction(Components{}, std::vector<double>{1.0}); }, weights,
       "Invalid argument, number of weights 1 must match number of components 0."},
      // Components.
      {[&] {
         MixtureSetFunction(Components{nullptr, &fl}, {1.0, 1.0});
       },
       constructor, "Invalid argument, all components must be present, component 0 missing."},
      {[&] {
         MixtureSetFunction(Components{&fl, &modular, nullptr}, {1.0, 1.0, 1.0});
       },
       constructor,
       "Invalid argument, all components must be present, missing component at position 2."},
      {[&] { MixtureSetFunction(&fl, &other_size); }, constructor,
       "Invalid argument, all components must have same ground set size n=|V|, found sizes 14 and "
       "15."},
      {[&] { MixtureSetFunction(&fl, nullptr); }, constructor, missing},
      {[&] { MixtureSetFunction(&fl, &fl, nullptr); }, constructor,
       "Invalid argument, components (f1, f2, and f3) must be present."},
      {[&] { MixtureSetFunction(nullptr, &fl, &fl, &fl); }, constructor,
       "Invalid argument, components (f1, f2, f3, and f4) must be present."},
      {[&] { MixtureSetFunction(&fl, &fl, &fl, &fl, nullptr); }, constructor,
       "Invalid argument, components (f1, f2, f3, f4, and f5) must be present."},
      {[&] { mixture.LogComponentNames(nullptr); }, "LogComponentNames",
       "Invalid nullptr logger object."},
  };
  for (const auto& c : cases)
    testing::ExpectLocatedError(c.call, "MixtureSetFunction", c.function, c.text);
  // A refused take-over leaves both the weights and the caller's vector.
  std::vector<double> kept = {1.0, -2.0};
  EXPECT_THROW(mixture.setComponentWeights(kept, true), std::invalid_argument);
  EXPECT_EQ(2u, kept.size());
  EXPECT_EQ((std::vector<double>{1.0, 2.0}), mixture.ComponentWeights());
  testing::CheckArgumentErrors(mixture, "MixtureSetFunction");
}

}  // namespace
}  // namespace velmor
