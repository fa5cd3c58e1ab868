#ifndef VELMOR_UTILS_OTHER_STRING_UTILS_H_
#define VELMOR_UTILS_OTHER_STRING_UTILS_H_

// Error printers of the command-line layer and the keyword matcher and token
// cutter shared by the parsers of set and transformation strings.

#include <cstdint>
#include <string>
#include <utility>

namespace velmor {

// Write the printf-formatted text and a newline to standard error, then:
// end the process with status 1 / abort it / return.
[[noreturn]] void ErrorExit(const char* format, ...) __attribute__((format(printf, 1, 2)));
[[noreturn]] void ErrorAbort(const char* format, ...) __attribute__((format(printf, 1, 2)));
void ErrorPrint(const char* format, ...) __attribute__((format(printf, 1, 2)));
// When `condition` is false, as ErrorExit; otherwise nothing.
void CheckOrExit(bool condition, const char* format, ...) __attribute__((format(printf, 2, 3)));

// The longest run of letters, digits and '_' starting at `offset`; empty when
// the offset is at or past the end. Throws std::runtime_error for a negative
// offset.
std::string YankOutAlphaNumericTokenPrefixFromStringStartingAtOffset(const std::string& text,
                                                                     int32_t offset);

// Matches the key, from `offset` on, against each keyword by the number m of
// leading characters that agree (partial agreement counts). Returns the best
// keyword's index and m, or (-1, 0) when there is no keyword or the key is
// empty. A keyword that equals the whole key wins at once; among equal m the
// later keyword is best. Throws std::runtime_error for an offset outside the
// key, a null keyword, or two best keywords of equal m ("At least double
// match ...").
std::pair<int32_t, uint32_t> FindBestPrefixMatchInStringList(const std::string& key, int32_t offset,
                                                             const char* const* keywords,
                                                             int32_t number_of_keywords);

}  // namespace velmor

#endif  // VELMOR_UTILS_OTHER_STRING_UTILS_H_
