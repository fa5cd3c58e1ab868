// Argument files read against the program's option table: any content ends
// in one of the parser's three statuses, never in a crash or a hang. Files
// that name the argument-file switch are left out: the parser ends the
// process for them, as it must.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "command-line-utils/argument_parser.h"
#include "fuzz/argument_parsing.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzz_targets.h"

namespace velmor::fuzz {
namespace {

// The parser's line buffer: a longer line stops the reading.
constexpr std::size_t kLineBuffer = 32768;

bool IsBlankOrTab(char c) { return c == ' ' || c == '\t'; }
bool IsEndOfLine(char c) { return c == '\0' || c == '\n' || c == '\r'; }

// Whether some line the parser would read names the argument-file switch.
bool NamesArgumentsFile(const std::string& content) {
  std::size_t begin = 0;
  while (begin < content.size()) {
    // One read of the parser: through the next newline, at most
    // kLineBuffer - 1 characters, seen as a C string.
    std::size_t end = content.find('\n', begin);
    end = end == std::string::npos ? content.size() : end + 1;
    end = std::min(end, begin + kLineBuffer - 1);
    const std::string line = content.substr(begin, end - begin);
    begin = end;
    const char* p = line.c_str();
    if (std::strlen(p) >= kLineBuffer - 1) return false;  // the parser stops here
    const std::string cut(p, std::strcspn(p, "#"));
    p = cut.c_str();
    while (IsBlankOrTab(*p)) ++p;
    const char* name_begin = p;
    while (!IsEndOfLine(*p) && !IsBlankOrTab(*p) && *p != '=') ++p;
    if (MayNameArgumentsFile(std::string(name_begin, p).c_str())) return true;
  }
  return false;
}

}  // namespace

int FuzzArgumentFile(const uint8_t* data, std::size_t size) {
  const std::string content(reinterpret_cast<const char*>(data), size);
  if (NamesArgumentsFile(content)) return 0;
  const std::string path = WriteScratchFile("arguments.txt", content);
  std::vector<ArgumentRecord> table = FreshProgramTable();
  ArgumentParser parser(table.data());
  const int status = parser.ReadArgumentsFile(path.c_str());
  VELMOR_FUZZ_CHECK(status == ArgumentParser::kOk || status == ArgumentParser::kMissingRequired ||
                        status == ArgumentParser::kError,
                    "status " + std::to_string(status));
  return 0;
}

}  // namespace velmor::fuzz

VELMOR_FUZZ_ENTRY_POINT(velmor::fuzz::FuzzArgumentFile)
