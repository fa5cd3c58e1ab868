#include "functions/SetFunctionSkeleton.h"

#include <cstdarg>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>

#include "utils/error_messages.h"

namespace velmor::internal {

void ThrowInvalidArgument(const MessageSite& site, const char* format, ...) {
  char text[1024];
  va_list args;
  va_start(args, format);
  const int written = std::vsnprintf(text, sizeof(text), format, args);
  va_end(args);
  if (written < 1) throw std::runtime_error("Problem making source message.");
  throw std::invalid_argument(
      exception::MakeSourceMessage(site.file, site.function, site.line, std::string(text)));
}

void ThrowInvalidArgumentNested(const MessageSite& site, const std::string& text) {
  std::throw_with_nested(std::invalid_argument(
      exception::MakeSourceMessage(site.file, site.function, site.line, text)));
}

}  // namespace velmor::internal
