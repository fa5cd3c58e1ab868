#include "command-line-utils/argument_parser.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "utils/other_string_utils.h"

namespace velmor {
namespace {

constexpr const char* kArgumentsFileSwitch = "argsfilename";
constexpr const char* kErrorPrefix = "Argument Error:";
constexpr const char* kWarningPrefix = "Argument Warning:";
constexpr int kArgumentsFileLineBufferSize = 32768;

// Prefix of "argsfilename", compared over at most 13 characters so that the
// full name (with its terminator) counts too.
bool IsPrefixOfArgumentsFileSwitch(const char* typed) {
  std::size_t n = std::strlen(typed);
  if (n > 13) n = 13;
  return std::strncmp(typed, kArgumentsFileSwitch, n) == 0;
}

// Copies of str values live for the whole process: the store is reachable
// from this pointer and never freed, so variables never dangle.
const char* KeepStringCopy(const char* text) {
  static auto* store = new std::vector<std::unique_ptr<char[]>>();
  std::size_t length = std::strlen(text);
  auto copy = std::make_unique<char[]>(length + 1);
  std::memcpy(copy.get(), text, length + 1);
  store->push_back(std::move(copy));
  return store->back().get();
}

// The element the current assignment goes to; `scratch` when the index names
// no element (index 0 of an ARRAY switch).
template <typename T>
T& Slot(const ArgumentRecord& record, T& scratch) {
  if (record.array_index < 0 || record.array_index >= record.array_size) return scratch;
  return static_cast<T*>(record.target)[record.array_index];
}

// Upper-cased `value` is a non-empty prefix of `word`.
bool IsUpperCasePrefixOf(const std::string& value, const char* word) {
  return !value.empty() && value.size() <= std::strlen(word) &&
         std::strncmp(value.c_str(), word, value.size()) == 0;
}

// 1 true, 0 false, -1 not a boolean word.
int ParseBooleanWord(const char* value) {
  std::string upper(value);
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  if (IsUpperCasePrefixOf(upper, "TRUE") || IsUpperCasePrefixOf(upper, "YES") ||
      IsUpperCasePrefixOf(upper, "ON") || upper == "1") {
    return 1;
  }
  if (IsUpperCasePrefixOf(upper, "FALSE") || IsUpperCasePrefixOf(upper, "NO") ||
      IsUpperCasePrefixOf(upper, "OFF") || upper == "0") {
    return 0;
  }
  return -1;
}

bool IsBlankOrTab(char c) { return c == ' ' || c == '\t'; }
bool IsEndOfLine(char c) { return c == '\0' || c == '\n' || c == '\r'; }

void PrintValue(std::FILE* out, const ArgumentRecord& record, int32_t element) {
  switch (record.type) {
    case ArgumentRecord::kInteger:
      std::fprintf(out, "%d", static_cast<const int32_t*>(record.target)[element]);
      break;
    case ArgumentRecord::kUnsigned:
      std::fprintf(out, "%u", static_cast<const uint32_t*>(record.target)[element]);
      break;
    case ArgumentRecord::kFloat:
      std::fprintf(out, "%e",
                   static_cast<double>(static_cast<const float*>(record.target)[element]));
      break;
    case ArgumentRecord::kDouble:
      std::fprintf(out, "%e", static_cast<const double*>(record.target)[element]);
      break;
    case ArgumentRecord::kStr: {
      const char* text = static_cast<const char* const*>(record.target)[element];
      std::fputs(text != nullptr ? text : "null", out);
      break;
    }
    case ArgumentRecord::kChar:
      std::fputc(static_cast<const char*>(record.target)[element], out);
      break;
    case ArgumentRecord::kBool:
      std::fputc(static_cast<const bool*>(record.target)[element] ? 'T' : 'F', out);
      break;
    default:
      break;
  }
}

// Width of " -name type" without the brackets: switch (when there is one), a
// blank, the type name.
std::size_t UsageEntryWidth(const ArgumentRecord& record) {
  std::size_t width = std::strlen(ArgumentTypeName(record.type));
  if (!record.IsPositional()) width += 1 + std::strlen(record.name) + (record.is_array ? 1 : 0) + 1;
  return width;
}

bool HeadingMatches(const char* heading, const char* prefix) {
  if (heading == nullptr) return false;
  const std::size_t n = std::strlen(prefix);
  if (std::strncmp(heading, prefix, n) == 0) return true;
  while (*heading == ' ' || *heading == '*' || *heading == '-') ++heading;
  return std::strncmp(heading, prefix, n) == 0;
}

}  // namespace

ArgumentParser::ArgumentParser(ArgumentRecord* table) : table_(table), number_of_records_(0) {
  while (!table_[number_of_records_].IsEnd()) ++number_of_records_;
  found_.assign(static_cast<std::size_t>(number_of_records_), 0);
}

void ArgumentParser::MarkGiven(int index) {
  found_[static_cast<std::size_t>(index)] = 1;
  ++table_[index].seen_count;
}

ArgumentParser::Lookup ArgumentParser::FindSwitch(const char* typed, bool exact_only) const {
  const std::size_t n = std::strlen(typed);
  if (!exact_only && n == 0) return {Lookup::kAmbiguous, -1};
  int matches = 0, last_match = -1, exact_match = -1;
  for (int i = 0; i < number_of_records_; ++i) {
    const ArgumentRecord& record = table_[i];
    if (record.IsPositional() || record.IsHeading()) continue;
    if (exact_only) {
      if (std::strcmp(record.name, typed) == 0) {
        ++matches;
        last_match = i;
      }
    } else if (std::strncmp(record.name, typed, n) == 0) {
      ++matches;
      last_match = i;
      if (std::strlen(record.name) == n) exact_match = i;
    }
  }
  const bool arguments_file = !exact_only && IsPrefixOfArgumentsFileSwitch(typed);
  if (arguments_file) ++matches;
  if (matches == 0) return {Lookup::kNotFound, -1};
  if (matches == 1) {
    return arguments_file ? Lookup{Lookup::kArgumentsFile, -1} : Lookup{Lookup::kFound, last_match};
  }
  if (!exact_only && prefer_exact_match_) {
    if (exact_match >= 0) return {Lookup::kFound, exact_match};
    if (arguments_file && n == std::strlen(kArgumentsFileSwitch)) {
      return {Lookup::kArgumentsFile, -1};
    }
  }
  return {Lookup::kAmbiguous, -1};
}

int ArgumentParser::FindExact(const char* name) const {
  for (int i = 0; i < number_of_records_; ++i) {
    const ArgumentRecord& record = table_[i];
    if (record.IsPositional() || record.IsHeading()) continue;
    if (std::strcmp(record.name, name) == 0) return i;
  }
  return -1;
}

bool ArgumentParser::ConvertAndStore(ArgumentRecord& record, const char* switch_text,
                                     const char* value, bool& consumed) {
  consumed = false;
  char* end = nullptr;
  switch (record.type) {
    case ArgumentRecord::kInteger: {
      if (value == nullptr) {
        ErrorPrint("%s Integer argument needed: %s", kErrorPrefix, switch_text);
        return false;
      }
      // As the C library converts: only a text with no number fails; a value
      // out of range is narrowed.
      const long parsed = std::strtol(value, &end, 0);
      if (end == value) {
        ErrorPrint("%s Integer argument needed: %s %s", kErrorPrefix, switch_text, value);
        return false;
      }
      int32_t scratch = 0;
      Slot(record, scratch) = static_cast<int32_t>(parsed);
      consumed = true;
      return true;
    }
    case ArgumentRecord::kUnsigned: {
      uint32_t scratch = 0;
      if (record.kind == ArgumentRecord::kHelp) {
        uint32_t& level = Slot(record, scratch);
        if (value == nullptr || value[0] == '-') {
          level = 1;
        } else {
          consumed = true;
          const unsigned long parsed = std::strtoul(value, &end, 0);
          if (end != value) level = static_cast<uint32_t>(parsed);
        }
        help_level_ =
            static_cast<int32_t>(level > static_cast<uint32_t>(INT32_MAX) ? INT32_MAX : level);
        return true;
      }
      if (value == nullptr) {
        ErrorPrint("%s Unsigned integer argument needed: %s", kErrorPrefix, switch_text);
        return false;
      }
      const unsigned long parsed = std::strtoul(value, &end, 0);
      if (end == value) {
        ErrorPrint("%s Unsigned integer argument needed: %s %s", kErrorPrefix, switch_text, value);
        return false;
      }
      Slot(record, scratch) = static_cast<uint32_t>(parsed);
      consumed = true;
      return true;
    }
    case ArgumentRecord::kFloat: {
      if (value == nullptr) {
        ErrorPrint("%s Real number argument needed: %s", kErrorPrefix, switch_text);
        return false;
      }
      const float parsed = std::strtof(value, &end);
      if (end == value) {
        ErrorPrint("%s Floating point number argument needed: %s %s", kErrorPrefix, switch_text,
                   value);
        return false;
      }
      float scratch = 0.0f;
      Slot(record, scratch) = parsed;
      consumed = true;
      return true;
    }
    case ArgumentRecord::kDouble: {
      if (value == nullptr) {
        ErrorPrint("%s Real number argument needed: %s", kErrorPrefix, switch_text);
        return false;
      }
      const double parsed = std::strtod(value, &end);
      if (end == value) {
        ErrorPrint("%s Real number argument needed: %s %s", kErrorPrefix, switch_text, value);
        return false;
      }
      double scratch = 0.0;
      Slot(record, scratch) = parsed;
      consumed = true;
      return true;
    }
    case ArgumentRecord::kStr: {
      if (value == nullptr) {
        ErrorPrint("%s String argument needed: %s", kErrorPrefix, switch_text);
        return false;
      }
      const char* scratch = nullptr;
      Slot(record, scratch) = KeepStringCopy(value);
      consumed = true;
      return true;
    }
    case ArgumentRecord::kChar: {
      if (value == nullptr || value[0] == '\0' || value[1] != '\0') {
        ErrorPrint("%s Character argument needed: %s %s", kErrorPrefix, switch_text,
                   value != nullptr ? value : "");
        return false;
      }
      char scratch = 0;
      Slot(record, scratch) = value[0];
      consumed = true;
      return true;
    }
    case ArgumentRecord::kBool: {
      bool scratch = false;
      bool& flag = Slot(record, scratch);
      if (value == nullptr || value[0] == '-') {
        flag = record.kind == ArgumentRecord::kToggle ? !flag : true;
        return true;
      }
      const int word = ParseBooleanWord(value);
      if (word < 0) {
        ErrorPrint("%s Boolean argument needed: %s %s", kErrorPrefix, switch_text, value);
        return false;
      }
      flag = word == 1;
      consumed = true;
      return true;
    }
    default:
      ErrorExit("%s Unknown internal argument", kErrorPrefix);
  }
}

int ArgumentParser::WalkCommandLine(int argc, char** argv) {
  if (argc > 0 && argv[0] != nullptr) program_name_ = argv[0];
  for (int i = 1; i < argc; ++i) {
    const char* argument = argv[i];
    bool consumed = false;

    // Positional argument: the first row still waiting for one.
    if (argument[0] != '-') {
      int row = -1;
      for (int r = 0; r < number_of_records_; ++r) {
        if (std::strcmp(table_[r].name, ArgumentRecord::kPositionalName) == 0) {
          row = r;
          break;
        }
      }
      if (row < 0) continue;
      table_[row].array_index = 0;
      if (!ConvertAndStore(table_[row], "", argument, consumed)) return kError;
      table_[row].name = ArgumentRecord::kFilledPositionalName;
      MarkGiven(row);
      continue;
    }

    const char* typed = argument + 1;
    const char* next = i + 1 < argc ? argv[i + 1] : nullptr;
    const Lookup lookup = FindSwitch(typed, false);
    if (lookup.result == Lookup::kAmbiguous) {
      ErrorPrint("%s Ambiguous switch: %s", kErrorPrefix, argument);
      return kError;
    }

    // Argument file, also when a row of that spelling exists.
    if (lookup.result == Lookup::kArgumentsFile ||
        (lookup.result == Lookup::kFound && IsPrefixOfArgumentsFileSwitch(typed))) {
      if (next == nullptr) {
        ErrorExit("%s Expecting file name after %s argument flag\n", kErrorPrefix,
                  kArgumentsFileSwitch);
      }
      ++i;
      ReadArgumentsFile(next);
      continue;
    }

    if (lookup.result == Lookup::kFound) {
      ArgumentRecord& record = table_[lookup.index];
      if (record.is_array) {
        if (array_needs_index_) {
          ErrorPrint("%s Need to supply index for array type flag: %s", kErrorPrefix, argument);
          return kError;
        }
      }
      record.array_index = 0;
      if (!ConvertAndStore(record, argument, next, consumed)) return kError;
      if (consumed) ++i;
      MarkGiven(lookup.index);
      continue;
    }

    // Array form NAME<digits>.
    const std::size_t length = std::strlen(typed);
    std::size_t digits_start = length;
    while (digits_start > 0 && std::isdigit(static_cast<unsigned char>(typed[digits_start - 1]))) {
      --digits_start;
    }
    if (digits_start == length || digits_start == 0) {
      ErrorPrint("%s Unknown switch: %s", kErrorPrefix, argument);
      return kError;
    }
    int64_t index = 0;  // saturates: any huge index is out of bounds anyway
    for (std::size_t k = digits_start; k < length; ++k) {
      index = index * 10 + (typed[k] - '0');
      if (index > INT32_MAX) index = static_cast<int64_t>(INT32_MAX) + 1;
    }
    const std::string base(typed, digits_start);
    const Lookup array_lookup = FindSwitch(base.c_str(), exact_array_names_);
    if (array_lookup.result == Lookup::kAmbiguous) {
      ErrorPrint("%s Ambiguous switch: %s", kErrorPrefix, argument);
      return kError;
    }
    if (array_lookup.result != Lookup::kFound) {
      ErrorPrint("%s Unknown switch: %s", kErrorPrefix, argument);
      return kError;
    }
    ArgumentRecord& record = table_[array_lookup.index];
    if (!(index - 1 < record.array_size)) {
      ErrorPrint("%s Array index in switch (%s) is out of bounds (1..%d)", kErrorPrefix, argument,
                 record.array_size);
      return kError;
    }
    if (!record.is_array) {
      const std::string dashed = std::string("-") + record.name;
      ErrorPrint("%s Switch (%s) is not of type ARRAY and cannot be written as (%sX)", kErrorPrefix,
                 argument, dashed.c_str());
      return kError;
    }
    record.array_index = static_cast<int32_t>(index - 1);
    const bool ok = ConvertAndStore(record, argument, next, consumed);
    if (ok && record.array_index < 0) {
      ErrorPrint("%s Array index 0 in switch (%s) names no element; value ignored", kWarningPrefix,
                 argument);
    }
    record.array_index = 0;
    if (!ok) return kError;
    if (consumed) ++i;
    MarkGiven(array_lookup.index);
  }
  return CheckRequired(false) ? kMissingRequired : kOk;
}

int ArgumentParser::ReadArgumentsFile(const char* path) {
  std::FILE* file = std::fopen(path, "r");
  if (file == nullptr) {
    ErrorPrint("%s Can't file argument file: %s", kErrorPrefix, path);
    return kError;
  }
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> closer(file, &std::fclose);
  std::vector<char> buffer(kArgumentsFileLineBufferSize);
  while (std::fgets(buffer.data(), kArgumentsFileLineBufferSize, file) != nullptr) {
    if (std::strlen(buffer.data()) >= static_cast<std::size_t>(kArgumentsFileLineBufferSize - 1)) {
      ErrorPrint("%s Line length too long in command line parameter arguments file: %s",
                 kErrorPrefix, path);
      return kError;
    }
    char* hash = std::strchr(buffer.data(), '#');
    if (hash != nullptr) *hash = '\0';
    const char* p = buffer.data();
    while (IsBlankOrTab(*p)) ++p;
    if (IsEndOfLine(*p)) continue;

    const char* name_start = p;
    while (!IsEndOfLine(*p) && !IsBlankOrTab(*p) && *p != '=') ++p;
    const std::string name(name_start, p);
    while (IsBlankOrTab(*p)) ++p;
    if (*p == '=') ++p;
    while (IsBlankOrTab(*p)) ++p;
    const char* value_start = p;
    while (!IsEndOfLine(*p) && !IsBlankOrTab(*p)) ++p;
    const std::string value(value_start, p);

    // A line such as "=3" has no name: as ambiguous as a lone dash.
    if (name.empty()) {
      ErrorPrint("%s Ambiguous switch in %s : %s", kErrorPrefix, path, name.c_str());
      return kError;
    }
    if (IsPrefixOfArgumentsFileSwitch(name.c_str())) {
      ErrorExit("%s Can not recursively parse arguments from files\n", kErrorPrefix);
    }
    const Lookup lookup = FindSwitch(name.c_str(), false);
    if (lookup.result == Lookup::kNotFound) {
      ErrorPrint("%s Skipping unknown switch in %s : %s,", kWarningPrefix, path, name.c_str());
      continue;
    }
    if (lookup.result != Lookup::kFound) {
      ErrorPrint("%s Ambiguous switch in %s : %s", kErrorPrefix, path, name.c_str());
      return kError;
    }
    ArgumentRecord& record = table_[lookup.index];
    if (record.is_array && array_needs_index_) {
      ErrorPrint("%s Need to supply index for array type flag: %s", kErrorPrefix, name.c_str());
      ErrorPrint("%s Error in %s", kErrorPrefix, path);
      return kError;
    }
    record.array_index = 0;
    bool consumed = false;
    if (!ConvertAndStore(record, name.c_str(), value.empty() ? nullptr : value.c_str(), consumed)) {
      ErrorPrint("%s Error in %s", kErrorPrefix, path);
      return kError;
    }
    MarkGiven(lookup.index);
  }
  if (std::ferror(file)) {
    ErrorPrint("%s Can't file argument file: %s", kErrorPrefix, path);
    return kError;
  }
  return CheckRequired(false) ? kMissingRequired : kOk;
}

bool ArgumentParser::CheckRequired(bool report) const {
  bool missing = false;
  for (int i = 0; i < number_of_records_; ++i) {
    const ArgumentRecord& record = table_[i];
    if (record.kind != ArgumentRecord::kRequired || record.IsHeading() || found_[i] != 0) continue;
    missing = true;
    if (!report) continue;
    std::fprintf(stderr, "%s Missing REQUIRED argument:", kErrorPrefix);
    if (!record.IsPositional())
      std::fprintf(stderr, record.is_array ? " -%sX " : " -%s ", record.name);
    const bool is_bool = record.type == ArgumentRecord::kBool;
    std::fprintf(stderr, " %c%s%c\n", is_bool ? '[' : '<', ArgumentTypeName(record.type),
                 is_bool ? ']' : '>');
  }
  if (report) std::fflush(stderr);
  return missing;
}

void ArgumentParser::PrintUsage(const char* category_prefix, bool to_standard_error) const {
  std::FILE* out = to_standard_error ? stderr : stdout;

  // Which rows are listed: help level, and the heading they sit under.
  std::vector<bool> listed(static_cast<std::size_t>(number_of_records_), false);
  const char* heading = nullptr;
  for (int i = 0; i < number_of_records_; ++i) {
    const ArgumentRecord& record = table_[i];
    if (record.IsHeading()) heading = record.description;
    listed[i] = help_level_ >= record.help_level &&
                (category_prefix == nullptr || HeadingMatches(heading, category_prefix));
  }
  const bool list_arguments_file = category_prefix == nullptr;

  std::size_t width = 0;
  for (int i = 0; i < number_of_records_; ++i) {
    if (listed[i] && !table_[i].IsHeading()) width = std::max(width, UsageEntryWidth(table_[i]));
  }
  const std::size_t arguments_file_width = 1 + std::strlen(kArgumentsFileSwitch) + 1 + 3;
  if (list_arguments_file) width = std::max(width, arguments_file_width);

  std::fprintf(out, "Usage: %s  [[[-flag] [option]] ...]\n", program_name_.c_str());
  std::fprintf(out, "Required: <>; Optional: []; Flagless arguments must be in order.\n");
  for (int i = 0; i < number_of_records_; ++i) {
    if (!listed[i]) continue;
    const ArgumentRecord& record = table_[i];
    if (record.IsHeading()) {
      std::fprintf(out, "%s\n", record.description != nullptr ? record.description : "");
      continue;
    }
    const bool required = record.kind == ArgumentRecord::kRequired;
    std::fprintf(out, " %c", required ? '<' : '[');
    if (!record.IsPositional()) {
      std::fprintf(out, record.is_array ? "-%sX" : "-%s", record.name);
      std::fputc(' ', out);
    }
    std::fprintf(out, "%s%c", ArgumentTypeName(record.type), required ? '>' : ']');
    std::fprintf(out, "%*s", static_cast<int>(width - UsageEntryWidth(record)), "");
    std::fprintf(out, "   %s {", record.description != nullptr ? record.description : "");
    const int32_t elements = record.is_array ? record.array_size : 1;
    for (int32_t e = 0; e < elements; ++e) {
      if (e > 0) std::fputc(' ', out);
      PrintValue(out, record, e);
    }
    std::fprintf(out, "}\n");
  }
  if (list_arguments_file) {
    std::fprintf(out, " [-%s str]", kArgumentsFileSwitch);
    std::fprintf(out, "%*s", static_cast<int>(width - arguments_file_width), "");
    std::fprintf(out, "   File to obtain additional arguments from. {}\n");
  }
  std::fflush(out);
}

bool ArgumentParser::ParseArguments(int argc, char** argv, const char* help_switch_name) {
  const int status = WalkCommandLine(argc, argv);
  if (help_switch_name != nullptr) {
    const int help = FindExact(help_switch_name);
    if (help >= 0 && table_[help].seen_count != 0) {
      PrintUsage(nullptr, false);
      std::exit(0);
    }
  }
  if (status == kMissingRequired) {
    CheckRequired(true);
    return false;
  }
  return status == kOk;
}

}  // namespace velmor
