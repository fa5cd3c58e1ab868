#ifndef VELMOR_UTILS_ERROR_MESSAGES_H_
#define VELMOR_UTILS_ERROR_MESSAGES_H_

// Message builders used by every throw site, the throw-site macros that supply
// the location, and the printer of nested exception chains.
//
// A source message reads "[[@File:line:function]] text", where File is the
// base name of the throwing source file without directory or extension and
// function the plain name of the enclosing function ("operator()" inside a
// lambda). A command message is the bare text, for mistakes of the user that
// need no location.

#include <cstddef>
#include <exception>
#include <ostream>
#include <string>

#include "utils/exceptions.h"

namespace velmor::exception {

// printf-formats into a 1024-byte buffer (longer texts are cut to 1023
// characters) and prefixes the location. Throws std::runtime_error
// "Problem making source message." when formatting fails or gives an empty text.
std::string MakeSourceMessage(const char* file, const char* function, unsigned line,
                              const char* format, ...) __attribute__((format(printf, 4, 5)));

// Prefixes the location to a finished text; never fails, an empty text included.
std::string MakeSourceMessage(const char* file, const char* function, unsigned line,
                              const std::string& text);

// printf-formats like MakeSourceMessage but adds no location; an empty result
// is accepted. Throws std::runtime_error "Problem making command message." when
// formatting fails.
std::string MakeCommandMessage(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Writes the chain of exceptions nested in `e`, one per line: `level` copies of
// `fill`, a blank and what(); deeper ones with level + step (then step 2 and
// fill '+'). A nested exception not derived from std::exception ends the chain.
void PrintNestedExceptions(std::ostream& stream, const std::exception& e, int level, int step,
                           char fill);

namespace internal {

// Compile-time base name of a source path, without directory and extension.
template <std::size_t N>
struct SourceBaseName {
  char text[N]{};
  consteval explicit SourceBaseName(const char (&path)[N]) {
    std::size_t begin = 0;
    std::size_t end = N - 1;
    for (std::size_t i = 0; i + 1 < N; ++i) {
      if (path[i] == '/') begin = i + 1;
    }
    for (std::size_t i = N - 1; i > begin; --i) {
      if (path[i - 1] == '.') {
        end = i - 1;
        break;
      }
    }
    for (std::size_t i = begin; i < end; ++i) text[i - begin] = path[i];
  }
};

}  // namespace internal
}  // namespace velmor::exception

// Base name of the current source file, as a constant C string.
#define VELMOR_SOURCE_FILE                                                              \
  ([]() -> const char* {                                                                \
    static constexpr ::velmor::exception::internal::SourceBaseName kBaseName(__FILE__); \
    return kBaseName.text;                                                              \
  }())

// Source message for the current file, enclosing function and line.
#define VELMOR_SOURCE_MESSAGE(...) \
  ::velmor::exception::MakeSourceMessage(VELMOR_SOURCE_FILE, __func__, __LINE__, __VA_ARGS__)

// Throws `Type` with a source message: VELMOR_THROW(std::invalid_argument, "x = %d.", x).
#define VELMOR_THROW(Type, ...) throw Type(VELMOR_SOURCE_MESSAGE(__VA_ARGS__))

// From inside a catch block: throws `Type` with a source message, carrying the
// exception being handled as its nested cause.
#define VELMOR_THROW_NESTED(Type, ...) \
  std::throw_with_nested(Type(VELMOR_SOURCE_MESSAGE(__VA_ARGS__)))

#endif  // VELMOR_UTILS_ERROR_MESSAGES_H_
