#include "functions/SetFunction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "functions/FacilityLocationFunction.h"
#include "functions/MixtureSetFunction.h"
#include "functions/ModularFunction.h"
#include "functions/set_function_oracle.h"
#include "sets/FixedEmptySet.h"
#include "sets/FixedSingletonSet.h"
#include "sets/RangeSet.h"
#include "sets/UnorderedHashSet.h"
#include "support/float_types.h"
#include "support/located_messages.h"

namespace velmor {
namespace {

// f(A) = sqrt(sum of w_a over a in A) with positive weights: submodular. It
// implements only the pure operations, so the oracle exercises the defaults
// of SetFunction and the generic context templates.
class SqrtOfSum : public clone_inherit<SqrtOfSum, SubmodularFunction> {
 public:
  explicit SqrtOfSum(std::vector<double> weights) : weights_(std::move(weights)) {}

  class Growing final : public SetFunctionGrowingContextExternal {
   public:
    explicit Growing(const SqrtOfSum* f) : f_(f) {}
    std::unique_ptr<SetFunctionGrowingContextExternal> clone() const override {
      return std::make_unique<Growing>(*this);
    }
    double DisjointGain(int v) const override {
      return std::sqrt(sum_ + f_->weights_.at(static_cast<std::size_t>(v))) - std::sqrt(sum_);
    }
    bool AddNewElementToContext(int v) override {
      sum_ += f_->weights_.at(static_cast<std::size_t>(v));
      return true;
    }
    void ResetToEmptySet() override { sum_ = 0.0; }
    double CurrentValue() const override { return std::sqrt(sum_); }

   private:
    const SqrtOfSum* f_;
    double sum_ = 0.0;
  };

  class Shrinking final : public SetFunctionShrinkingContextExternal {
   public:
    explicit Shrinking(const SqrtOfSum* f) : f_(f) {}
    void AssignContext(const Set& A) override {
      sum_ = 0.0;
      for (int a : A) sum_ += f_->weights_[static_cast<std::size_t>(a)];
    }
    std::unique_ptr<SetFunctionShrinkingContextExternal> clone() const override {
      return std::make_unique<Shrinking>(*this);
    }
    double SubsetLoss(int v) const override {
      return std::sqrt(sum_) -
             std::sqrt(std::max(0.0, sum_ - f_->weights_.at(static_cast<std::size_t>(v))));
    }
    void RemoveExistingElementFromContext(const Set&, int v) override {
      sum_ -= f_->weights_.at(static_cast<std::size_t>(v));
    }
    double CurrentValue() const override { return std::sqrt(std::max(0.0, sum_)); }

   private:
    const SqrtOfSum* f_;
    double sum_ = 0.0;
  };

  double Evaluate(int v) const override {
    return std::sqrt(weights_.at(static_cast<std::size_t>(v)));
  }
  double Evaluate(const Set& A) const override {
    double sum = 0.0;
    for (int a : A) sum += weights_[static_cast<std::size_t>(a)];
    return std::sqrt(sum);
  }
  // f((A + B) - D).
  double Changed(const Set& A, const Set& B, const Set& D) const {
    UnorderedHashSet u(GroundSetSize());
    u.insertSet(A);
    u.insertSet(B);
    u.removeSet(D);
    return Evaluate(u);
  }
  double EvaluateUnion(int v, const Set& A) const override { return Changed(A, One(v), None()); }
  double EvaluateUnion(const Set& A, const Set& B) const override { return Changed(A, B, None()); }
  double EvaluateAfterSubtraction(const Set& A, int v) const override {
    return Changed(A, None(), One(v));
  }
  double EvaluateAfterSubtraction(const Set& A, const Set& B) const override {
    return Changed(A, None(), B);
  }
  FixedSingletonSet One(int v) const { return FixedSingletonSet(GroundSetSize(), v); }
  FixedEmptySet None() const { return FixedEmptySet(GroundSetSize()); }
  int GroundSetSize() const override { return static_cast<int>(weights_.size()); }
  int NumberOfLandmarks() const override { return 0; }
  long MatrixRows() const override { return 0; }
  long MatrixColumns() const override { return 0; }
  long MatrixStoredEntries() const override { return 0; }
  std::unique_ptr<SetFunctionGrowingContext> MakeGrowingContext(const Set& A) const override {
    return std::make_unique<DerivedSetFunctionGrowingContext<SqrtOfSum, Growing>>(this, A);
  }
  std::unique_ptr<SetFunctionShrinkingContext> MakeShrinkingContext(const Set& A) const override {
    return std::make_unique<DerivedSetFunctionShrinkingContext<SqrtOfSum, Shrinking>>(this, A);
  }
  std::unique_ptr<SetFunctionGrowingContextExternal> MakeGrowingContextExternal(
      const Set& A) const override {
    auto context = std::make_unique<Growing>(this);
    context->AssignContext(A);
    return context;
  }
  std::unique_ptr<SetFunctionShrinkingContextExternal> MakeShrinkingContextExternal(
      const Set& A) const override {
    auto context = std::make_unique<Shrinking>(this);
    context->AssignContext(A);
    return context;
  }
  void AssignContext(SetFunctionGrowingContext& c, const Set& A) const override {
    c.AssignContext(A);
  }
  void AssignContext(SetFunctionShrinkingContext& c, const Set& A) const override {
    c.AssignContext(A);
  }
  void AssignContext(SetFunctionGrowingContextExternal& c, const Set& A) const override {
    c.AssignContext(A);
  }
  void AssignContext(SetFunctionShrinkingContextExternal& c, const Set& A) const override {
    c.AssignContext(A);
  }

 private:
  std::vector<double> weights_;
};

std::vector<double> Weights(int n) {
  std::vector<double> w(static_cast<std::size_t>(n));
  for (int v = 0; v < n; ++v) w[static_cast<std::size_t>(v)] = 0.5 + (v * 37 % 11);
  return w;
}

TEST(SetFunction, DefaultsAndGenericContextsAgainstEvaluation) {
  const SqrtOfSum f(Weights(19));
  testing::OracleOptions options;
  options.seed = 4;
  options.steps = 150;
  options.tolerance = 1e-12;
  testing::CheckSetFunctionAgainstEvaluation(f, options);

  // Defaults of the descriptive operations.
  EXPECT_EQ("set function", f.Description());
  EXPECT_EQ(0, f.NumberOfComponents());
  EXPECT_FALSE(f.IsMonotoneNondecreasing());
  RangeSet all(19);
  all.MakeFull();
  EXPECT_EQ(f.Evaluate(all), f.EvaluateGroundSet());
  testing::ExpectLocatedErrors(
      "SetFunction",
      {{[&] { f.LogComponentNames(nullptr); }, "LogComponentNames",
        "Invalid nullptr logger object."},
       {[&] { f.LogDescription(nullptr); }, "LogDescription", "Invalid nullptr logger object."}});
}

TEST(SetFunction, ContextSetFollowsTheInsertFlag) {
  const SqrtOfSum f(Weights(8));
  auto context = f.MakeGrowingContext(UnorderedHashSet(8));
  // Without insertion the state moves on but the set stays.
  context->AddNewElementToContext(3, false);
  EXPECT_EQ(0, context->NumberOfElements());
  EXPECT_NEAR(f.Evaluate(3), context->CurrentValue(), 1e-15);
  context->AddNewElementToContext(5, true);
  EXPECT_EQ(1, context->NumberOfElements());
  EXPECT_TRUE(context->CurrentSet().contains(5));
  EXPECT_FALSE(context->CurrentSet().contains(3));
  // Several at once.
  UnorderedHashSet B(8);
  B.insert(0);
  B.insert(7);
  EXPECT_TRUE(context->AddNewElementsToContext(B, true));
  EXPECT_EQ(3, context->NumberOfElements());

  UnorderedHashSet A(8);
  for (int v : {1, 2, 4, 6}) A.insert(v);
  auto shrinking = f.MakeShrinkingContext(A);
  UnorderedHashSet C(8);
  C.insert(2);
  C.insert(6);
  shrinking->RemoveExistingElementsFromContext(C, true);
  EXPECT_EQ(2, shrinking->NumberOfElements());
  A.remove(2);
  A.remove(6);
  EXPECT_NEAR(f.Evaluate(A), shrinking->CurrentValue(), 1e-12);
}

template <typename T>
class FunctionTest : public ::testing::Test {};
TYPED_TEST_SUITE(FunctionTest, testing::FloatTypes);

TYPED_TEST(FunctionTest, MonotoneExactlyWithoutNegativeWeights) {
  using T = TypeParam;
  EXPECT_FALSE(ModularFunction<T>(std::vector<T>{1, T(-0.5), 2}).IsMonotoneNondecreasing());
  EXPECT_TRUE(ModularFunction<T>(std::vector<T>{1, 0, 2}, T(-1)).IsMonotoneNondecreasing());
}

TYPED_TEST(FunctionTest, Errors) {
  using T = TypeParam;
  // Non-finite weights are refused.
  for (const T bad : {std::numeric_limits<T>::quiet_NaN(), std::numeric_limits<T>::infinity(),
                      -std::numeric_limits<T>::infinity()}) {
    testing::ExpectLocatedError(
        [bad] {
          ModularFunction<T>(std::vector<T>{1, bad, 2});
        },
        "ModularFunction", "ModularFunction",
        "Found invalid modular element, has value that is IEEE FP NaN or Inf.");
  }
}

constexpr int kN = 14;

FacilityLocationFunction<float> MakeFacilityLocation(int n, int k, std::uint32_t seed) {
  FacilityLocationFunction<float> f(testing::RandomMatrix<float>(n, k, seed));
  f.ComputeNormalizationConstant(false);
  return f;
}

ModularFunction<double> MakeModular(int n, std::uint32_t seed) {
  return ModularFunction<double>(testing::RandomWeights<double>(n, seed, -0.2, 1.0), 0.1);
}

// A component whose Gain must never be consulted.
class GainRefusingModular : public clone_inherit<GainRefusingModular, ModularFunction<double>> {
 public:
  using clone_inherit::clone_inherit;
  double Gain(int, const Set&) const override { throw std::logic_error("Gain consulted"); }
};

TEST(MixtureSetFunction, WeightsAndComponentsEdgeCases) {
  const FacilityLocationFunction<float> fl = MakeFacilityLocation(kN, 5, 6);
  const ModularFunction<double> modular = MakeModular(kN, 7);
  UnorderedHashSet A(kN);
  A.insert(2);
  A.insert(9);

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
  // Sizes add up over the components.
  EXPECT_EQ(2, mixture.NumberOfComponents());
  EXPECT_EQ(static_cast<long>(kN) * 5, mixture.MatrixStoredEntries());
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
      // Weights: count first, then emptiness, then sign (only 0.0 > w is refused).
      {[&] { mixture.setComponentWeights(std::vector<double>{1.0}); }, weights,
       "Invalid argument, number of weights 1 must match number of components 2."},
      {[&] {
         mixture.setComponentWeights(std::vector<double>{1.0, -0.1});
       },
       weights, "Invalid argument, found weight -1.000000e-01, weights must be all non-negative."},
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
}

}  // namespace
}  // namespace velmor
