#include "functions/MixtureSetFunction.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include "functions/FacilityLocationFunction.h"
#include "functions/ModularFunction.h"
#include "functions/set_function_oracle.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {
namespace {

constexpr int kN = 14;

FacilityLocationFunction<float> MakeFacilityLocation(int n, int k, std::uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  FacilityLocationFunction<float>::DenseMatrix m(n, k);
  for (int v = 0; v < n; ++v) {
    for (int i = 0; i < k; ++i) m(v, i) = unit(rng);
  }
  FacilityLocationFunction<float> f(m);
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

std::string MessageOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::invalid_argument& e) {
    return e.what();
  }
  return "(no std::invalid_argument)";
}

bool Matches(const std::string& text, const std::string& pattern) {
  return std::regex_match(text, std::regex(pattern));
}

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
  const std::vector<double> weights = {0.3, 1.7};
  const MixtureSetFunction mixture(std::vector<const SetFunction*>{&fl, &modular}, weights);
  std::mt19937 rng(9);
  for (int trial = 0; trial < 25; ++trial) {
    UnorderedHashSet A(kN);
    UnorderedHashSet B(kN);
    for (int j = 0; j < trial % 9; ++j) A.insert(static_cast<int>(rng() % kN));
    for (int j = 0; j < 3; ++j) B.insert(static_cast<int>(rng() % kN));
    const int v = static_cast<int>(rng() % kN);
    EXPECT_EQ(0.3 * fl.Evaluate(A) + 1.7 * modular.Evaluate(A), mixture.Evaluate(A));
    EXPECT_EQ(0.3 * fl.Evaluate(v) + 1.7 * modular.Evaluate(v), mixture.Evaluate(v));
    EXPECT_EQ(0.3 * fl.EvaluateUnion(A, B) + 1.7 * modular.EvaluateUnion(A, B), mixture.EvaluateUnion(A, B));
    EXPECT_EQ(0.3 * fl.EvaluateAfterSubtraction(A, B) + 1.7 * modular.EvaluateAfterSubtraction(A, B),
              mixture.EvaluateAfterSubtraction(A, B));
    EXPECT_EQ(0.3 * fl.Loss(v, A) + 1.7 * modular.Loss(v, A), mixture.Loss(v, A));
    if (!A.contains(v)) {
      EXPECT_EQ(0.3 * fl.Gain(v, A) + 1.7 * modular.Gain(v, A), mixture.Gain(v, A));
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
  EXPECT_EQ(fl.MakeGrowingContext(A)->DisjointGain(4), single.MakeGrowingContext(A)->DisjointGain(4));

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
  const std::string prefix = R"(\[\[@MixtureSetFunction:\d+:)";

  // Weights: count first, then emptiness, then sign.
  MixtureSetFunction mixture(&fl, &modular, 1.0, 2.0);
  EXPECT_TRUE(Matches(MessageOf([&] { mixture.setComponentWeights(std::vector<double>{1.0}); }),
                      prefix + R"(setComponentWeights\]\] Invalid argument, number of weights 1 must match )"
                               R"(number of components 2\.)"));
  EXPECT_TRUE(Matches(MessageOf([&] { mixture.setComponentWeights(std::vector<double>{1.0, -0.1}); }),
                      prefix + R"(setComponentWeights\]\] Invalid argument, found weight -1\.000000e-01, )"
                               R"(weights must be all non-negative\.)"));
  EXPECT_TRUE(Matches(MessageOf([&] {
                        mixture.setComponentWeights(
                            std::vector<double>{std::numeric_limits<double>::quiet_NaN(), 1.0});
                      }),
                      ".*weights must be all non-negative\\."));
  std::vector<double> kept = {1.0, -2.0};
  EXPECT_THROW(mixture.setComponentWeights(kept, true), std::invalid_argument);
  EXPECT_EQ(2u, kept.size());
  EXPECT_EQ((std::vector<double>{1.0, 2.0}), mixture.ComponentWeights());
  EXPECT_TRUE(Matches(
      MessageOf([&] { MixtureSetFunction(std::vector<const SetFunction*>{}, std::vector<double>{}); }),
      prefix + R"(setComponentWeights\]\] Invalid argument, must have at least one component\.)"));
  EXPECT_TRUE(Matches(
      MessageOf([&] { MixtureSetFunction(std::vector<const SetFunction*>{}, std::vector<double>{1.0}); }),
      ".*number of weights 1 must match number of components 0\\."));

  // Components.
  EXPECT_TRUE(Matches(
      MessageOf([&] { MixtureSetFunction(std::vector<const SetFunction*>{nullptr, &fl}, {1.0, 1.0}); }),
      prefix + R"(MixtureSetFunction\]\] Invalid argument, all components must be present, component 0 missing\.)"));
  EXPECT_TRUE(Matches(
      MessageOf([&] {
        MixtureSetFunction(std::vector<const SetFunction*>{&fl, &modular, nullptr}, {1.0, 1.0, 1.0});
      }),
      prefix + R"(MixtureSetFunction\]\] Invalid argument, all components must be present, missing component at position 2\.)"));
  EXPECT_TRUE(Matches(
      MessageOf([&] { MixtureSetFunction(&fl, &other_size); }),
      prefix + R"(MixtureSetFunction\]\] Invalid argument, all components must have same ground set size n=\|V\|, found sizes 14 and 15\.)"));
  EXPECT_TRUE(Matches(MessageOf([&] { MixtureSetFunction(&fl, nullptr); }),
                      prefix + R"(MixtureSetFunction\]\] Invalid argument, both components \(f1 and f2\) must be present\.)"));
  EXPECT_TRUE(Matches(MessageOf([&] { MixtureSetFunction(&fl, &fl, nullptr); }),
                      ".*components \\(f1, f2, and f3\\) must be present\\."));
  EXPECT_TRUE(Matches(MessageOf([&] { MixtureSetFunction(nullptr, &fl, &fl, &fl); }),
                      ".*components \\(f1, f2, f3, and f4\\) must be present\\."));
  EXPECT_TRUE(Matches(MessageOf([&] { MixtureSetFunction(&fl, &fl, &fl, &fl, nullptr); }),
                      ".*components \\(f1, f2, f3, f4, and f5\\) must be present\\."));

  // Elements, sets and contexts.
  UnorderedHashSet larger(kN + 1);
  EXPECT_TRUE(Matches(MessageOf([&] { mixture.Evaluate(kN); }), prefix + R"(Evaluate\]\] Invalid element = 14\.)"));
  EXPECT_TRUE(Matches(MessageOf([&] { mixture.Gain(0, larger); }), prefix + R"(Gain\]\] Too large ground set size = 15\.)"));
  EXPECT_TRUE(Matches(MessageOf([&] { mixture.EvaluateUnion(0, larger); }),
                      prefix + R"(EvaluateUnion\]\] Too large ground set size = 15\.)"));
  auto context = mixture.MakeGrowingContext(UnorderedHashSet(kN));
  EXPECT_TRUE(Matches(MessageOf([&] { mixture.AssignContext(*context, larger); }),
                      prefix + R"(AssignContext\]\] Invalid ground set size, 15 != 14\.)"));
  EXPECT_TRUE(Matches(MessageOf([&] { mixture.LogComponentNames(nullptr); }),
                      prefix + R"(LogComponentNames\]\] Invalid nullptr logger object\.)"));
}

TEST(MixtureSetFunction, LogsComponentNames) {
  const FacilityLocationFunction<float> fl = MakeFacilityLocation(kN, 5, 11);
  const ModularFunction<double> modular(std::vector<double>(kN, 1.0));
  const MixtureSetFunction mixture(&fl, &modular);
  std::ostringstream out;
  auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(out);
  sink->set_pattern("%v");
  spdlog::logger logger("mixture-test", sink);
  logger.set_level(spdlog::level::info);
  mixture.LogComponentNames(&logger);
  EXPECT_EQ("Comp 0: Dense FL, |V|=14, #landmarks=5.\nComp 1: " + modular.Description() + ".\n", out.str());
}

}  // namespace
}  // namespace velmor
