#ifndef VELMOR_FUZZ_ARGUMENT_PARSING_H_
#define VELMOR_FUZZ_ARGUMENT_PARSING_H_

// What the argument harnesses share: a fresh copy of the program's option
// table for every input (the parser renames positional rows and counts
// switches in its table) with the option variables set back to their values
// before the first input, so that every input is judged alone; and the test
// for the switch that reads another argument file.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "command-line-utils/velmor_arguments.h"

namespace velmor::fuzz {

inline std::size_t OptionValueBytes(uint8_t type) {
  switch (type) {
    case ArgumentRecord::kDouble:
      return sizeof(double);
    case ArgumentRecord::kStr:
      return sizeof(const char*);
    case ArgumentRecord::kChar:
      return sizeof(char);
    case ArgumentRecord::kBool:
      return sizeof(bool);
    default:
      return sizeof(int32_t);  // integer, unsigned, float
  }
}

inline std::vector<ArgumentRecord> FreshProgramTable() {
  const ArgumentRecord* table = ProgramArgumentTable();
  std::size_t rows = 0;
  while (!table[rows].IsEnd()) ++rows;
  using Saved = std::vector<std::pair<void*, std::vector<unsigned char>>>;
  static const Saved initial_values = [&] {
    Saved saved;
    for (std::size_t row = 0; row < rows; ++row) {
      if (table[row].target == nullptr) continue;
      const auto* bytes = static_cast<const unsigned char*>(table[row].target);
      const std::size_t count = OptionValueBytes(table[row].type) *
                                static_cast<std::size_t>(std::max(table[row].array_size, 1));
      saved.emplace_back(table[row].target, std::vector<unsigned char>(bytes, bytes + count));
    }
    return saved;
  }();
  for (const auto& [target, bytes] : initial_values) {
    std::memcpy(target, bytes.data(), bytes.size());
  }
  return std::vector<ArgumentRecord>(table, table + rows + 1);
}

// Whether a switch typed as `typed` (without its dash) may be taken as the
// argument-file switch: a non-empty prefix of "argsfilename", compared over
// at most 13 characters. Such a switch ends the process when it has no file
// name after it on the command line, or when it appears inside a file.
inline bool MayNameArgumentsFile(const char* typed) {
  const std::size_t n = std::min<std::size_t>(std::strlen(typed), 13);
  return n > 0 && std::strncmp(typed, "argsfilename", n) == 0;
}

}  // namespace velmor::fuzz

#endif  // VELMOR_FUZZ_ARGUMENT_PARSING_H_
