#include "utils/other_string_utils.h"

#include <fmt/format.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "utils/error_messages.h"

namespace velmor {
namespace {

void PrintLineToStandardError(const char* format, va_list args) {
  std::vfprintf(stderr, format, args);
  std::fputc('\n', stderr);
  std::fflush(stderr);
}

bool IsTokenCharacter(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

}  // namespace

void ErrorExit(const char* format, ...) {
  va_list args;
  va_start(args, format);
  PrintLineToStandardError(format, args);
  va_end(args);
  std::exit(1);
}

void ErrorAbort(const char* format, ...) {
  va_list args;
  va_start(args, format);
  PrintLineToStandardError(format, args);
  va_end(args);
  std::abort();
}

void ErrorPrint(const char* format, ...) {
  va_list args;
  va_start(args, format);
  PrintLineToStandardError(format, args);
  va_end(args);
}

void CheckOrExit(bool condition, const char* format, ...) {
  if (condition) return;
  va_list args;
  va_start(args, format);
  PrintLineToStandardError(format, args);
  va_end(args);
  std::exit(1);
}

std::string YankOutAlphaNumericTokenPrefixFromStringStartingAtOffset(const std::string& text,
                                                                     int32_t offset) {
  if (offset < 0) {
    VELMOR_THROW(std::runtime_error, "Can't use negative offset = %d.", offset);
  }
  std::size_t end = static_cast<std::size_t>(offset);
  if (end >= text.size()) return std::string();
  while (end < text.size() && IsTokenCharacter(text[end])) ++end;
  return text.substr(static_cast<std::size_t>(offset), end - static_cast<std::size_t>(offset));
}

std::pair<int32_t, uint32_t> FindBestPrefixMatchInStringList(const std::string& key, int32_t offset,
                                                             const char* const* keywords,
                                                             int32_t number_of_keywords) {
  if (number_of_keywords < 1 || key.empty()) return {-1, 0};
  if (offset < 0 || static_cast<std::size_t>(offset) >= key.size()) {
    VELMOR_THROW(std::runtime_error, "Invalid starting offset %d for search key '%s' of size %d.",
                 offset, key.c_str(), static_cast<int>(key.size()));
  }
  int32_t best = -1, previous = -1;
  uint32_t best_length = 0, previous_length = 0;
  const char* rest = key.c_str() + offset;
  for (int32_t i = 0; i < number_of_keywords; ++i) {
    const char* keyword = keywords[i];
    if (keyword == nullptr) VELMOR_THROW(std::runtime_error, "found nullptr keyword.");
    uint32_t m = 0;
    while (keyword[m] != '\0' && rest[m] != '\0' && keyword[m] == rest[m]) ++m;
    if (m == 0) continue;  // also skips an empty keyword
    if (keyword[m] == '\0' && m == key.size()) return {i, m};
    if (best < 0) {
      best = i;
      best_length = m;
    } else if (m >= best_length) {
      previous = best;
      previous_length = best_length;
      best = i;
      best_length = m;
    }
  }
  if (best > 0 && previous >= 0 && best_length == previous_length) {
    VELMOR_THROW(std::runtime_error, "%s",
                 fmt::format("At least double match: match ({},{},'{}') and previous match "
                             "({},{},'{}') for search key '{}'.",
                             best, best_length, keywords[best], previous, previous_length,
                             keywords[previous], key)
                     .c_str());
  }
  return {best, best_length};
}

}  // namespace velmor
