#include "functions/ModularFunction.h"

#include <fmt/format.h>

#include <climits>
#include <cmath>

#include "utils/error_messages.h"

namespace velmor {

template <typename T>
ModularFunction<T>::ModularFunction(std::vector<T> weights, T offset)
    : weights_(std::move(weights)), n_(0), offset_(offset) {
  const internal::MessageSite site = VELMOR_SITE(ModularFunction);
  if (weights_.size() > static_cast<std::size_t>(INT_MAX)) {
    internal::ThrowInvalidArgument(site, "Too large ground set size = %zu.", weights_.size());
  }
  for (const T w : weights_) {
    if (!std::isfinite(w)) {
      internal::ThrowInvalidArgument(
          site, "Found invalid modular element, has value that is IEEE FP NaN or Inf.");
    }
  }
  n_ = static_cast<int>(weights_.size());
}

template <typename T>
double ModularFunction<T>::EvaluateGroundSet() const {
  double value = offset_;
  for (const T w : weights_) value += w;
  return value;
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

template class ModularFunction<float>;
template class ModularFunction<double>;

}  // namespace velmor
