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

MixtureSetFunction::MixtureSetFunction(const MixtureSetFunction& other)
    : SetFunction(other), weights_(other.weights_), n_(other.n_) {
  components_.reserve(other.components_.size());
  for (const auto& component : other.components_) components_.push_back(component->clone());
}

void MixtureSetFunction::Install(std::vector<std::unique_ptr<SetFunction>> components,
                                 std::vector<double>& weights) {
  components_ = std::move(components);
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
    if (!(w >= 0.0)) {
      VELMOR_THROW(std::invalid_argument,
                   "Invalid argument, found weight %e, weights must be all non-negative.", w);
    }
    if (std::isinf(w)) {
      VELMOR_THROW(std::invalid_argument,
                   "Invalid argument, found weight %e, weights must be finite.", w);
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

double MixtureSetFunction::Evaluate(int v) const {
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  double value = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i)
    value += weights_[i] * components_[i]->Evaluate(v);
  return value;
}

double MixtureSetFunction::Evaluate(const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  double value = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i)
    value += weights_[i] * components_[i]->Evaluate(A);
  return value;
}

double MixtureSetFunction::EvaluateUnion(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  double value = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i) {
    value += weights_[i] * components_[i]->EvaluateUnion(v, A);
  }
  return value;
}

double MixtureSetFunction::EvaluateUnion(const Set& A, const Set& B) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (B.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", B.GroundSetSize());
  }
  double value = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i) {
    value += weights_[i] * components_[i]->EvaluateUnion(A, B);
  }
  return value;
}

double MixtureSetFunction::EvaluateGroundSet() const {
  double value = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i) {
    value += weights_[i] * components_[i]->EvaluateGroundSet();
  }
  return value;
}

std::pair<double, double> MixtureSetFunction::EvaluateUnionAndSecondArg(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  double first = 0.0;
  double second = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i) {
    const std::pair<double, double> values = components_[i]->EvaluateUnionAndSecondArg(v, A);
    first += weights_[i] * values.first;
    second += weights_[i] * values.second;
  }
  return {first, second};
}

double MixtureSetFunction::EvaluateAfterSubtraction(const Set& A, int v) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  double value = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i) {
    value += weights_[i] * components_[i]->EvaluateAfterSubtraction(A, v);
  }
  return value;
}

double MixtureSetFunction::EvaluateAfterSubtraction(const Set& A, const Set& B) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (B.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", B.GroundSetSize());
  }
  double value = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i) {
    value += weights_[i] * components_[i]->EvaluateAfterSubtraction(A, B);
  }
  return value;
}

double MixtureSetFunction::Gain(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  if (A.contains(v) || components_.empty()) return 0.0;
  double gain = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i)
    gain += weights_[i] * components_[i]->Gain(v, A);
  return gain;
}

double MixtureSetFunction::Loss(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  double loss = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i)
    loss += weights_[i] * components_[i]->Loss(v, A);
  return loss;
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

// ----- Context factories -------------------------------------------------------------

std::unique_ptr<SetFunction::SetFunctionGrowingContext> MixtureSetFunction::MakeGrowingContext(
    const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<MixtureSetFunctionGrowingContext>(this, A);
}

std::unique_ptr<SetFunction::SetFunctionShrinkingContext> MixtureSetFunction::MakeShrinkingContext(
    const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<MixtureSetFunctionShrinkingContext>(this, A);
}

std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
MixtureSetFunction::MakeGrowingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<MixtureSetFunctionGrowingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
MixtureSetFunction::MakeShrinkingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<MixtureSetFunctionShrinkingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

void MixtureSetFunction::AssignContext(SetFunction::SetFunctionGrowingContext& context,
                                       const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

void MixtureSetFunction::AssignContext(SetFunction::SetFunctionShrinkingContext& context,
                                       const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

void MixtureSetFunction::AssignContext(SetFunction::SetFunctionGrowingContextExternal& context,
                                       const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

void MixtureSetFunction::AssignContext(SetFunction::SetFunctionShrinkingContextExternal& context,
                                       const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

// ----- Growing context ------------------------------------------------------------------

MixtureSetFunction::MixtureSetFunctionGrowingContextExternal::
    MixtureSetFunctionGrowingContextExternal(const MixtureSetFunction* function)
    : function_(function) {
  components_.reserve(function->components_.size());
  for (const auto& component : function->components_) {
    components_.push_back(component->MakeGrowingContextExternal(FixedEmptySet(function->n_)));
  }
}

MixtureSetFunction::MixtureSetFunctionGrowingContextExternal::
    MixtureSetFunctionGrowingContextExternal(const MixtureSetFunctionGrowingContextExternal& other)
    : SetFunctionGrowingContextExternal(other), function_(other.function_) {
  components_.reserve(other.components_.size());
  for (const auto& component : other.components_) components_.push_back(component->clone());
}

void MixtureSetFunction::MixtureSetFunctionGrowingContextExternal::AssignContext(const Set& A) {
  for (auto& component : components_) component->AssignContext(A);
}

std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
MixtureSetFunction::MixtureSetFunctionGrowingContextExternal::clone() const {
  return std::make_unique<MixtureSetFunctionGrowingContextExternal>(*this);
}

double MixtureSetFunction::MixtureSetFunctionGrowingContextExternal::DisjointGain(int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const std::vector<double>& weights = function_->weights_;
  double gain = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i)
    gain += weights[i] * components_[i]->DisjointGain(v);
  return gain;
}

void MixtureSetFunction::MixtureSetFunctionGrowingContextExternal::DisjointGains(
    const int* elements, int count, double* gains) const {
  const int n = function_->n_;
  for (int j = 0; j < count; ++j) {
    if (elements[j] < 0 || elements[j] >= n) {
      VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", elements[j]);
    }
  }
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

bool MixtureSetFunction::MixtureSetFunctionGrowingContextExternal::AddNewElementToContext(int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  bool changed = false;
  for (auto& component : components_) changed = component->AddNewElementToContext(v) || changed;
  return changed;
}

void MixtureSetFunction::MixtureSetFunctionGrowingContextExternal::ResetToEmptySet() {
  for (auto& component : components_) component->ResetToEmptySet();
}

double MixtureSetFunction::MixtureSetFunctionGrowingContextExternal::CurrentValue() const {
  const std::vector<double>& weights = function_->weights_;
  double value = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i)
    value += weights[i] * components_[i]->CurrentValue();
  return value;
}

// ----- Shrinking context ----------------------------------------------------------------

MixtureSetFunction::MixtureSetFunctionShrinkingContextExternal::
    MixtureSetFunctionShrinkingContextExternal(const MixtureSetFunction* function)
    : function_(function) {
  components_.reserve(function->components_.size());
  for (const auto& component : function->components_) {
    components_.push_back(component->MakeShrinkingContextExternal(FixedEmptySet(function->n_)));
  }
}

MixtureSetFunction::MixtureSetFunctionShrinkingContextExternal::
    MixtureSetFunctionShrinkingContextExternal(
        const MixtureSetFunctionShrinkingContextExternal& other)
    : SetFunctionShrinkingContextExternal(other), function_(other.function_) {
  components_.reserve(other.components_.size());
  for (const auto& component : other.components_) components_.push_back(component->clone());
}

void MixtureSetFunction::MixtureSetFunctionShrinkingContextExternal::AssignContext(const Set& A) {
  for (auto& component : components_) component->AssignContext(A);
}

std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
MixtureSetFunction::MixtureSetFunctionShrinkingContextExternal::clone() const {
  return std::make_unique<MixtureSetFunctionShrinkingContextExternal>(*this);
}

double MixtureSetFunction::MixtureSetFunctionShrinkingContextExternal::SubsetLoss(int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  const std::vector<double>& weights = function_->weights_;
  double loss = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i)
    loss += weights[i] * components_[i]->SubsetLoss(v);
  return loss;
}

void MixtureSetFunction::MixtureSetFunctionShrinkingContextExternal::
    RemoveExistingElementFromContext(const Set& A, int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  for (auto& component : components_) component->RemoveExistingElementFromContext(A, v);
}

double MixtureSetFunction::MixtureSetFunctionShrinkingContextExternal::CurrentValue() const {
  const std::vector<double>& weights = function_->weights_;
  double value = 0.0;
  for (std::size_t i = 0; i < components_.size(); ++i)
    value += weights[i] * components_[i]->CurrentValue();
  return value;
}

}  // namespace velmor
