#include "functions/ModularFunction.h"

#include <fmt/format.h>

#include <climits>
#include <cmath>
#include <stdexcept>

#include "utils/error_messages.h"

namespace velmor {

// ----- Function -----------------------------------------------------------------

template <typename T>
ModularFunction<T>::ModularFunction(std::vector<T> weights, T offset)
    : weights_(std::move(weights)), n_(0), offset_(offset) {
  if (weights_.size() > static_cast<std::size_t>(INT_MAX)) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %zu.", weights_.size());
  }
  for (const T w : weights_) {
    if (!std::isfinite(w)) {
      VELMOR_THROW(std::invalid_argument,
                   "Found invalid modular element, has value that is IEEE FP NaN or Inf.");
    }
  }
  if (!std::isfinite(offset_)) {
    VELMOR_THROW(std::invalid_argument,
                 "Found invalid modular offset, has value that is IEEE FP NaN or Inf.");
  }
  n_ = static_cast<int>(weights_.size());
}

template <typename T>
double ModularFunction<T>::Evaluate(int v) const {
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  return static_cast<double>(weights_[v]) + static_cast<double>(offset_);
}

template <typename T>
double ModularFunction<T>::Evaluate(const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  double value = offset_;
  for (int a : A) value += weights_[a];
  return value;
}

template <typename T>
double ModularFunction<T>::EvaluateUnion(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  double value = offset_;
  for (int a : A) value += weights_[a];
  if (!A.contains(v)) value += weights_[v];
  return value;
}

template <typename T>
double ModularFunction<T>::EvaluateUnion(const Set& A, const Set& B) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (B.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", B.GroundSetSize());
  }
  double value = offset_;
  for (int a : A) value += weights_[a];
  for (int b : B) {
    if (!A.contains(b)) value += weights_[b];
  }
  return value;
}

template <typename T>
double ModularFunction<T>::EvaluateGroundSet() const {
  double value = offset_;
  for (const T w : weights_) value += w;
  return value;
}

template <typename T>
std::pair<double, double> ModularFunction<T>::EvaluateUnionAndSecondArg(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  double value = offset_;
  for (int a : A) value += weights_[a];
  return {A.contains(v) ? value : value + weights_[v], value};
}

template <typename T>
double ModularFunction<T>::EvaluateAfterSubtraction(const Set& A, int v) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  double value = offset_;
  for (int a : A) {
    if (a != v) value += weights_[a];
  }
  return value;
}

template <typename T>
double ModularFunction<T>::EvaluateAfterSubtraction(const Set& A, const Set& B) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (B.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", B.GroundSetSize());
  }
  double value = offset_;
  for (int a : A) {
    if (!B.contains(a)) value += weights_[a];
  }
  return value;
}

template <typename T>
double ModularFunction<T>::Gain(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  return A.contains(v) ? 0.0 : static_cast<double>(weights_[v]);
}

template <typename T>
double ModularFunction<T>::Loss(int v, const Set& A) const {
  if (A.GroundSetSize() > n_) {
    VELMOR_THROW(std::invalid_argument, "Too large ground set size = %d.", A.GroundSetSize());
  }
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  return A.contains(v) ? static_cast<double>(weights_[v]) : 0.0;
}

template <typename T>
std::string ModularFunction<T>::Description() const {
  return fmt::format("Modular function, |V|={}, offset={}", n_, offset_);
}

template <typename T>
bool ModularFunction<T>::IsMonotoneNondecreasing() const {
  for (const T w : weights_) {
    if (w < 0) return false;
  }
  return true;
}

// ----- Context factories ------------------------------------------------------

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContext> ModularFunction<T>::MakeGrowingContext(
    const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<ModularFunctionGrowingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContext> ModularFunction<T>::MakeShrinkingContext(
    const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  return std::make_unique<ModularFunctionShrinkingContext>(this, A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
ModularFunction<T>::MakeGrowingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<ModularFunctionGrowingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
ModularFunction<T>::MakeShrinkingContextExternal(const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  auto context = std::make_unique<ModularFunctionShrinkingContextExternal>(this);
  context->AssignContext(A);
  return context;
}

template <typename T>
void ModularFunction<T>::AssignContext(SetFunction::SetFunctionGrowingContext& context,
                                       const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void ModularFunction<T>::AssignContext(SetFunction::SetFunctionShrinkingContext& context,
                                       const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void ModularFunction<T>::AssignContext(SetFunction::SetFunctionGrowingContextExternal& context,
                                       const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

template <typename T>
void ModularFunction<T>::AssignContext(SetFunction::SetFunctionShrinkingContextExternal& context,
                                       const Set& A) const {
  if (A.GroundSetSize() != n_) {
    VELMOR_THROW(std::invalid_argument, "Invalid ground set size, %d != %d.", A.GroundSetSize(),
                 n_);
  }
  context.AssignContext(A);
}

// ----- Growing context --------------------------------------------------------

template <typename T>
ModularFunction<T>::ModularFunctionGrowingContextExternal::ModularFunctionGrowingContextExternal(
    const ModularFunction* function)
    : function_(function), value_(function->offset_) {}

template <typename T>
void ModularFunction<T>::ModularFunctionGrowingContextExternal::AssignContext(const Set& A) {
  value_ = function_->Evaluate(A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionGrowingContextExternal>
ModularFunction<T>::ModularFunctionGrowingContextExternal::clone() const {
  return std::make_unique<ModularFunctionGrowingContextExternal>(*this);
}

template <typename T>
double ModularFunction<T>::ModularFunctionGrowingContextExternal::DisjointGain(int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  return function_->weights_[v];
}

template <typename T>
bool ModularFunction<T>::ModularFunctionGrowingContextExternal::AddNewElementToContext(int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  value_ += function_->weights_[v];
  return function_->weights_[v] != T(0);
}

template <typename T>
void ModularFunction<T>::ModularFunctionGrowingContextExternal::ResetToEmptySet() {
  value_ = function_->offset_;
}

// ----- Shrinking context ------------------------------------------------------

template <typename T>
ModularFunction<T>::ModularFunctionShrinkingContextExternal::
    ModularFunctionShrinkingContextExternal(const ModularFunction* function)
    : function_(function), value_(function->offset_) {}

template <typename T>
void ModularFunction<T>::ModularFunctionShrinkingContextExternal::AssignContext(const Set& A) {
  value_ = function_->Evaluate(A);
}

template <typename T>
std::unique_ptr<SetFunction::SetFunctionShrinkingContextExternal>
ModularFunction<T>::ModularFunctionShrinkingContextExternal::clone() const {
  return std::make_unique<ModularFunctionShrinkingContextExternal>(*this);
}

template <typename T>
double ModularFunction<T>::ModularFunctionShrinkingContextExternal::SubsetLoss(int v) const {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  return function_->weights_[v];
}

template <typename T>
void ModularFunction<T>::ModularFunctionShrinkingContextExternal::RemoveExistingElementFromContext(
    const Set& /*A*/, int v) {
  if (v < 0 || v >= function_->n_) VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", v);
  value_ -= function_->weights_[v];
}

template class ModularFunction<float>;
template class ModularFunction<double>;

}  // namespace velmor
