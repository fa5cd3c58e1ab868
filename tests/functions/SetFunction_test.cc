#include "functions/SetFunction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "functions/ModularFunction.h"
#include "functions/set_function_oracle.h"
#include "sets/RangeSet.h"
#include "sets/UnorderedHashSet.h"
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
  double EvaluateUnion(int v, const Set& A) const override {
    UnorderedHashSet u(GroundSetSize());
    u.insertSet(A);
    u.insert(v);
    return Evaluate(u);
  }
  double EvaluateUnion(const Set& A, const Set& B) const override {
    UnorderedHashSet u(GroundSetSize());
    u.insertSet(A);
    u.insertSet(B);
    return Evaluate(u);
  }
  double EvaluateAfterSubtraction(const Set& A, int v) const override {
    UnorderedHashSet u(GroundSetSize());
    u.insertSet(A);
    u.remove(v);
    return Evaluate(u);
  }
  double EvaluateAfterSubtraction(const Set& A, const Set& B) const override {
    UnorderedHashSet u(GroundSetSize());
    u.insertSet(A);
    u.removeSet(B);
    return Evaluate(u);
  }
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

TEST(SetFunction, CloneKeepsTheConcreteTypeThroughEveryBase) {
  const SqrtOfSum f(Weights(5));
  const SubmodularFunction& as_kind = f;
  const SetFunction& as_base = f;
  EXPECT_EQ(typeid(SqrtOfSum), typeid(*as_kind.clone()));
  EXPECT_EQ(typeid(SqrtOfSum), typeid(*as_base.clone()));

  // A function of both kinds holds one SetFunction and clones from either side.
  const ModularFunction<double> modular(std::vector<double>{1.0, -2.0, 3.0}, 0.5);
  const SupermodularFunction& as_super = modular;
  const SubmodularFunction& as_sub = modular;
  const std::unique_ptr<SupermodularFunction> from_super = as_super.clone();
  const std::unique_ptr<SubmodularFunction> from_sub = as_sub.clone();
  EXPECT_EQ(typeid(ModularFunction<double>), typeid(*from_super));
  EXPECT_EQ(typeid(ModularFunction<double>), typeid(*from_sub));
  EXPECT_EQ(static_cast<const SetFunction*>(&as_super), static_cast<const SetFunction*>(&as_sub));
  EXPECT_EQ(4.5, from_super->Evaluate(testing::SetOf(3, {0, 2})));
  EXPECT_EQ(4.5, from_sub->Evaluate(testing::SetOf(3, {0, 2})));
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

}  // namespace
}  // namespace velmor
