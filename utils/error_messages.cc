#include "utils/error_messages.h"

#include <cstdarg>
#include <cstdio>
#include <stdexcept>

namespace velmor::exception {
namespace {

constexpr std::size_t kMessageBufferSize = 1024;

std::string SourcePrefix(const char* file, const char* function, unsigned line) {
  return std::string("[[@") + file + ":" + std::to_string(line) + ":" + function + "]] ";
}

}  // namespace

std::string MakeSourceMessage(const char* file, const char* function, unsigned line,
                              const char* format, ...) {
  char buffer[kMessageBufferSize];
  va_list args;
  va_start(args, format);
  const int written = std::vsnprintf(buffer, sizeof(buffer), format, args);
  va_end(args);
  if (written < 1) throw std::runtime_error("Problem making source message.");
  return SourcePrefix(file, function, line) + buffer;
}

std::string MakeSourceMessage(const char* file, const char* function, unsigned line,
                              const std::string& text) {
  return SourcePrefix(file, function, line) + text;
}

std::string MakeCommandMessage(const char* format, ...) {
  char buffer[kMessageBufferSize];
  va_list args;
  va_start(args, format);
  const int written = std::vsnprintf(buffer, sizeof(buffer), format, args);
  va_end(args);
  if (written < 0) throw std::runtime_error("Problem making command message.");
  return buffer;
}

void PrintNestedExceptions(std::ostream& stream, const std::exception& e, int level, int step,
                           char fill) {
  const auto* nested = dynamic_cast<const std::nested_exception*>(&e);
  if (nested == nullptr || nested->nested_ptr() == nullptr) return;
  try {
    nested->rethrow_nested();
  } catch (const std::exception& inner) {
    stream << std::string(static_cast<std::size_t>(level > 0 ? level : 0), fill) << ' '
           << inner.what() << '\n';
    PrintNestedExceptions(stream, inner, level + step, 2, '+');
  } catch (...) {
    // Not a standard exception: the chain ends here.
  }
}

}  // namespace velmor::exception
