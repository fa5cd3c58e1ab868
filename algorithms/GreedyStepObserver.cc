#include "algorithms/GreedyStepObserver.h"

#include <fmt/format.h>

namespace velmor {

void GreedyStepObserver::ThrowIfStopRequested(int chosen) const {
  if (stop != nullptr && stop->load(std::memory_order_relaxed)) throw GreedyStopped(chosen);
}

GreedyStopped::GreedyStopped(int chosen)
    : std::runtime_error(
          fmt::format("Greedy run stopped on request after {} chosen elements.", chosen)),
      chosen_(chosen) {}

}  // namespace velmor
