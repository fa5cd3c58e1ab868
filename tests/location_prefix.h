#ifndef VELMOR_TESTS_LOCATION_PREFIX_H_
#define VELMOR_TESTS_LOCATION_PREFIX_H_

// Splits a located message "[[@<file>:<line>:<function>]] <text>" into its
// parts, for tests that check where a message says it was made.

#include <cctype>
#include <optional>
#include <string>

namespace velmor::testing_util {

struct LocationPrefix {
  std::string file;
  int line = 0;
  std::string function;
  std::string text;
};

// Nothing when the message does not have that shape (the line must be digits).
inline std::optional<LocationPrefix> SplitLocationPrefix(const std::string& message) {
  if (message.rfind("[[@", 0) != 0) return std::nullopt;
  const std::size_t close = message.find("]] ");
  const std::size_t first = message.find(':', 3);
  if (close == std::string::npos || first == std::string::npos || first > close)
    return std::nullopt;
  const std::size_t second = message.find(':', first + 1);
  if (second == std::string::npos || second > close || second == first + 1) return std::nullopt;
  LocationPrefix parts;
  for (std::size_t i = first + 1; i < second; ++i) {
    if (!std::isdigit(static_cast<unsigned char>(message[i]))) return std::nullopt;
  }
  parts.file = message.substr(3, first - 3);
  parts.line = std::stoi(message.substr(first + 1, second - first - 1));
  parts.function = message.substr(second + 1, close - second - 1);
  parts.text = message.substr(close + 3);
  return parts;
}

}  // namespace velmor::testing_util

#endif  // VELMOR_TESTS_LOCATION_PREFIX_H_
