#include "functions/MixtureSetFunction.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "sets/FixedEmptySet.h"
#include "utils/error_messages.h"

namespace velmor {
namespace {

// Outcome of the component checks shared by the constructors; each
// constructor throws from its own body so that messages name it.
struct ComponentCheck {
  int missing = -1;       // position of the first missing component, or -1
  bool mismatch = false;  // a component's ground-set size differs from the first's
  int first_size = 0;
  int other_size = 0;
};

// sum over i of weights[i] * measure(*parts[i]), from 0.0 in order: the
// combination of every mixture value, gain and loss.
template <typename Parts, typename Measure>
double WeightedSumOver(const std::vector<double>& weights, const Parts& parts, Measure&& measure) {
  double sum = 0.0;
  for (std::size_t i = 0; i < parts.size(); ++i) sum += weights[i] * measure(*parts[i]);
  return sum;
}

template <typename Pointer>
ComponentCheck CheckComponents(const std::vector<Pointer>& components) {
  ComponentCheck check;
  for (std::size_t i = 0; i < components.size(); ++i) {
    if (components[i] == nullptr) {
      check.missing = static_cast<int>(i);
      return check;
    }
  }
  if (components.empty()) return check;
  check.first_size = components[0]->GroundSetSize();
  for (const auto& component : components) {
    if (component->GroundSetSize() != check.first_size) {
      check.mismatch = true;
      check.other_size = component->GroundSetSize();
      return check;
    }
  }
  return check;
}

}  // namespace

// Throws the component-check failure from the enclosing constructor.
#define VELMOR_THROW_ON_COMPONENT_PROBLEM(check)                                                   \
  do {                                                                                             \
    if ((check).missing == 0) {                                                                    \
      VELMOR_THROW(std::invalid_argument,                                                          \
                   "Invalid argument, all components must be present, component 0 missing.");      \
    }                                                                                              \
    if ((check).missing > 0) {                                                                     \
      VELMOR_THROW(std::invalid_argument,                                                          \
                   "Invalid argument, all components must be present, missing component at "       \
                   "position %d.",                                                                 \
                   (check).missing);                                                               \
    }                                                                                              \
    if ((check).mismatch) {                                                                        \
      VELMOR_THROW(std::invalid_argument,                                                          \
                   "Invalid argument, all components must have same ground set size n=|V|, found " \
                   "sizes %d and %d.",                                                             \
                   (check).first_size, (check).other_size);                                        \
    }                                                                                              \
  } while (false)

namespace {

std::vector<std::unique_ptr<SetFunction>> CloneAll(
    const std::vector<const SetFunction*>& components) {
  std::vector<std::unique_ptr<SetFunction>> clones;
  clones.reserve(components.size());
  for (const SetFunction* component : components) clones.push_back(component->clone());
  return clones;
}

}  // namespace

// ----- Construction ----------------------------------------------------------------

MixtureSetFunction::MixtureSetFunction(const std::vector<const SetFunction*>& components,
                                       std::vector<double> weights) {
  const ComponentCheck check = CheckComponents(components);
  VELMOR_THROW_ON_COMPONENT_PROBLEM(check);
  Install(CloneAll(components), weights);
}

MixtureSetFunction::MixtureSetFunction(std::vector<std::unique_ptr<SetFunction>> components,
                                       std::vector<double> weights) {
  const ComponentCheck check = CheckComponents(components);
  VELMOR_THROW_ON_COMPONENT_PROBLEM(check);
  Install(std::move(components), weights);
}

MixtureSetFunction::MixtureSetFunction(const SetFunction* f1, const SetFunction* f2, double w1,
                                       double w2) {
  if (f1 == nullptr || f2 == nullptr) {
    VELMOR_THROW(std::invalid_argument,
                 "Invalid argument, both components (f1 and f2) must be present.");
  }
  const std::vector<const SetFunction*> components = {f1, f2};
  const ComponentCheck check = CheckComponents(components);
  VELMOR_THROW_ON_COMPONENT_PROBLEM(check);
  std::vector<double> weights = {w1, w2};
  Install(CloneAll(components), weights);
}

MixtureSetFunction::MixtureSetFunction(const SetFunction* f1, const SetFunction* f2,
                                       const SetFunction* f3, double w1, double w2, double w3) {
  if (f1 == nullptr || f2 == nullptr || f3 == nullptr) {
    VELMOR_THROW(std::invalid_argument,
                 "Invalid argument, components (f1, f2, and f3) must be present.");
  }
  const std::vector<const SetFunction*> components = {f1, f2, f3};
  const ComponentCheck check = CheckComponents(components);
  VELMOR_THROW_ON_COMPONENT_PROBLEM(check);
  std::vector<double> weights = {w1, w2, w3};
  Install(CloneAll(components), weights);
}

MixtureSetFunction::MixtureSetFunction(const SetFunction* f1, const SetFunction* f2,
                                       const SetFunction* f3, const SetFunction* f4, double w1,
                                       double w2, double w3, double w4) {
  if (f1 == nullptr || f2 == nullptr || f3 == nullptr || f4 == nullptr) {
    VELMOR_THROW(std::invalid_argument,
                 "Invalid argument, components (f1, f2, f3, and f4) must be present.");
  }
  const std::vector<const SetFunction*> components = {f1, f2, f3, f4};
  const ComponentCheck check = CheckComponents(components);
  VELMOR_THROW_ON_COMPONENT_PROBLEM(check);
  std::vector<double> weights = {w1, w2, w3, w4};
  Install(CloneAll(components), weights);
}

MixtureSetFunction::MixtureSetFunction(const SetFunction* f1, const SetFunction* f2,
                                       const SetFunction* f3, const SetFunction* f4,
                                       const SetFunction* f5, double w1, double w2, double w3,
                                       double w4, double w5) {
  if (f1 == nullptr || f2 == nullptr || f3 == nullptr || f4 == nullptr || f5 == nullptr) {
    VELMOR_THROW(std::invalid_argument,
                 "Invalid argument, components (f1, f2, f3, f4, and f5) must be present.");
  }
  const std::vector<const SetFunction*> components = {f1, f2, f3, f4, f5};
  const ComponentCheck check = CheckComponents(components);
  VELMOR_THROW_ON_COMPONENT_PROBLEM(check);
  std::vector<double> weights = {w1, w2, w3, w4, w5};
  Install(CloneAll(components), weights);
}

#undef VELMOR_THROW_ON_COMPONENT_PROBLEM

void MixtureSetFunction::Install(std::vector<std::unique_ptr<SetFunction>> components,
                                 std::vector<double>& weights) {
  components_.clear();
  components_.reserve(components.size());
  for (auto& component : components) components_.emplace_back(std::move(component));
  n_ = components_.empty() ? 0 : components_[0]->GroundSetSize();
  setComponentWeights(weights, true);
}

void MixtureSetFunction::setComponentWeights(std::vector<double>& weights, bool take_over) {
  if (weights.size() != components_.size()) {
    VELMOR_THROW(std::invalid_argument,
                 "Invalid argument, number of weights %ld must match number of components %ld.",
                 static_cast<long>(weights.size()), static_cast<long>(components_.size()));
  }
  if (components_.empty()) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, must have at least one component.");
  }
  for (const double w : weights) {
    if (0.0 > w) {
      VELMOR_THROW(std::invalid_argument,
                   "Invalid argument, found weight %e, weights must be all non-negative.", w);
    }
  }
  if (take_over) {
    weights_ = std::move(weights);
    weights.clear();
  } else {
    weights_ = weights;
  }
}

void MixtureSetFunction::setComponentWeights(const std::vector<double>& weights) {
  std::vector<double> copy = weights;
  setComponentWeights(copy, true);
}

// ----- Evaluation --------------------------------------------------------------------

template <typename Measure>
double MixtureSetFunction::WeightedSum(Measure&& measure) const {
  return WeightedSumOver(weights_, components_, measure);
}

double MixtureSetFunction::ElementValue(int v) const {
  return WeightedSum([v](const SetFunction& f) { return f.Evaluate(v); });
}

double MixtureSetFunction::Value(const internal::SetExpression& expression) const {
  return WeightedSum([&expression](const SetFunction& f) {
    return expression.EvaluateWith(f, expression.First());
  });
}

double MixtureSetFunction::EvaluateGroundSet() const {
  return WeightedSum([](const SetFunction& f) { return f.EvaluateGroundSet(); });
}

std::pair<double, double> MixtureSetFunction::UnionAndSecondValues(int v, const Set& A) const {
  double first = 0.0;
  double second = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i) {
    const std::pair<double, double> values = components_[i]->EvaluateUnionAndSecondArg(v, A);
    first += weights_[i] * values.first;
    second += weights_[i] * values.second;
  }
  return {first, second};
}

double MixtureSetFunction::GainOf(int v, const Set& A) const {
  if (components_.empty()) return 0.0;
  return WeightedSum([v, &A](const SetFunction& f) { return f.Gain(v, A); });
}

double MixtureSetFunction::LossOf(int v, const Set& A) const {
  return WeightedSum([v, &A](const SetFunction& f) { return f.Loss(v, A); });
}

// ----- Description ----------------------------------------------------------------------

int MixtureSetFunction::NumberOfLandmarks() const {
  int landmarks = 0;
  for (const auto& component : components_)
    landmarks = std::max(landmarks, component->NumberOfLandmarks());
  return landmarks;
}

long MixtureSetFunction::MatrixStoredEntries() const {
  long entries = 0;
  for (const auto& component : components_) entries += component->MatrixStoredEntries();
  return entries;
}

std::string MixtureSetFunction::Description() const {
  return fmt::format("Mixture of {} components, |V|={}", components_.size(), n_);
}

void MixtureSetFunction::LogComponentNames(spdlog::logger* logger) const {
  if (logger == nullptr) VELMOR_THROW(std::invalid_argument, "Invalid nullptr logger object.");
  for (std::size_t i = 0; i < components_.size(); ++i) {
    logger->info("Comp {}: {}.", i, components_[i]->Description());
  }
}

bool MixtureSetFunction::IsMonotoneNondecreasing() const {
  for (std::size_t i = 0; i < components_.size(); ++i) {
    if (weights_[i] > 0.0 && !components_[i]->IsMonotoneNondecreasing()) return false;
  }
  return true;
}

bool MixtureSetFunction::ComputedGainsNeverRise() const {
  for (std::size_t i = 0; i < components_.size(); ++i) {
    if (!(weights_[i] >= 0.0)) return false;
    if (weights_[i] > 0.0 && !components_[i]->ComputedGainsNeverRise()) return false;
  }
  return true;
}

// ----- Growing context ------------------------------------------------------------------

MixtureSetFunction::GrowingContextExternal::GrowingContextExternal(
    const MixtureSetFunction* function)
    : GrowingContextExternalSkeleton(function) {
  components_.reserve(function->components_.size());
  for (const auto& component : function->components_) {
    components_.emplace_back(component->MakeGrowingContextExternal(FixedEmptySet(function->n_)));
  }
}

void MixtureSetFunction::GrowingContextExternal::AssignContext(const Set& A) {
  for (auto& component : components_) component->AssignContext(A);
}

double MixtureSetFunction::GrowingContextExternal::DisjointGainOf(int v) const {
  return WeightedSumOver(
      function_->weights_, components_,
      [v](const SetFunctionGrowingContextExternal& c) { return c.DisjointGain(v); });
}

void MixtureSetFunction::GrowingContextExternal::DisjointGainsOf(const int* elements, int count,
                                                                 double* gains) const {
  if (count <= 0) return;
  const std::size_t per = static_cast<std::size_t>(count);
  scratch_.resize(components_.size() * per);
  for (std::size_t i = 0; i < components_.size(); ++i) {
    components_[i]->DisjointGains(elements, count, scratch_.data() + i * per);
  }
  const std::vector<double>& weights = function_->weights_;
  for (std::size_t j = 0; j < per; ++j) {
    double gain = 0.0;
    for (std::size_t i = 0; i < components_.size(); ++i) gain += weights[i] * scratch_[i * per + j];
    gains[j] = gain;
  }
}

bool MixtureSetFunction::GrowingContextExternal::AddElement(int v) {
  bool changed = false;
  for (auto& component : components_) changed = component->AddNewElementToContext(v) || changed;
  return changed;
}

bool MixtureSetFunction::GrowingContextExternal::AddElementTo(const Set& A, int v) {
  bool changed = false;
  for (auto& component : components_)
    changed = component->AddNewElementToContextWithSet(A, v) || changed;
  return changed;
}

void MixtureSetFunction::GrowingContextExternal::ResetToEmptySet() {
  for (auto& component : components_) component->ResetToEmptySet();
}

double MixtureSetFunction::GrowingContextExternal::CurrentValue() const {
  return WeightedSumOver(function_->weights_, components_,
                         [](const SetFunctionContext& c) { return c.CurrentValue(); });
}

// ----- Shrinking context ----------------------------------------------------------------

MixtureSetFunction::ShrinkingContextExternal::ShrinkingContextExternal(
    const MixtureSetFunction* function)
    : ShrinkingContextExternalSkeleton(function) {
  components_.reserve(function->components_.size());
  for (const auto& component : function->components_) {
    components_.emplace_back(component->MakeShrinkingContextExternal(FixedEmptySet(function->n_)));
  }
}

void MixtureSetFunction::ShrinkingContextExternal::AssignContext(const Set& A) {
  for (auto& component : components_) component->AssignContext(A);
}

double MixtureSetFunction::ShrinkingContextExternal::SubsetLossOf(int v) const {
  return WeightedSumOver(
      function_->weights_, components_,
      [v](const SetFunctionShrinkingContextExternal& c) { return c.SubsetLoss(v); });
}

void MixtureSetFunction::ShrinkingContextExternal::RemoveElement(const Set& A, int v) {
  for (auto& component : components_) component->RemoveExistingElementFromContext(A, v);
}

double MixtureSetFunction::ShrinkingContextExternal::CurrentValue() const {
  return WeightedSumOver(function_->weights_, components_,
                         [](const SetFunctionContext& c) { return c.CurrentValue(); });
}

}  // namespace velmor
