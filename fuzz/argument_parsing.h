#ifndef VELMOR_FUZZ_ARGUMENT_PARSING_H_
#define VELMOR_FUZZ_ARGUMENT_PARSING_H_

// What the argument harnesses share: a fresh copy of the program's option
// table for every input (the parser renames positional rows and counts
// switches in its table; the option variables themselves are shared and keep
// whatever the last input stored), and the test for the switch that reads
// another argument file.

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "command-line-utils/velmor_arguments.h"

namespace velmor::fuzz {

inline std::vector<ArgumentRecord> FreshProgramTable() {
  const ArgumentRecord* table = ProgramArgumentTable();
  std::size_t rows = 0;
  while (!table[rows].IsEnd()) ++rows;
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
