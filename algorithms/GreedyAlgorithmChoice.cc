#include "algorithms/GreedyAlgorithmChoice.h"

#include <fmt/format.h>

namespace velmor {

const char* GreedyAlgorithmChoice::Name(Kind kind) {
  constexpr const char* kNames[] = {"standard", "accelerated", "stochastic", "threshold", "plain"};
  return kNames[static_cast<int>(kind)];
}

std::string GreedyAlgorithmChoice::Description() const {
  std::string text = Name(kind);
  if (kind == Kind::kStochastic || kind == Kind::kThreshold) text += fmt::format("({})", epsilon);
  if (threads > 0) text += fmt::format(":{}", threads);
  return text;
}

}  // namespace velmor
