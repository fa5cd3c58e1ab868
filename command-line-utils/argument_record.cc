#include "command-line-utils/argument_record.h"

#include <cstring>

#include "utils/other_string_utils.h"

namespace velmor {

ArgumentRecord::ArgumentRecord(const char* name, Kind kind, Type type, void* target, bool is_array,
                               int32_t array_size, const char* description, int32_t help_level)
    : name(name),
      kind(kind),
      type(type),
      target(target),
      is_array(is_array),
      array_index(0),
      array_size(array_size),
      description(description),
      help_level(help_level),
      seen_count(0) {
  if (kind == kToggle && type != kBool) {
    ErrorExit("%s A toggle argument must boolean", "Argument Error:");
  }
  if (kind == kHelp && is_array) {
    ErrorExit("INTERNAL ERROR: Cannot have a flag of kind Help that is also of type ARRAY.");
  }
}

#define VELMOR_ARGUMENT_RECORD_CONSTRUCTORS(CppType, TypeCode)                                     \
  ArgumentRecord::ArgumentRecord(const char* name, Kind kind, CppType* target,                     \
                                 const char* description, int32_t help_level)                      \
      : ArgumentRecord(name, kind, TypeCode, static_cast<void*>(target), false, 1, description,    \
                       help_level) {}                                                              \
  ArgumentRecord::ArgumentRecord(const char* name, Kind kind, CppType* target,                     \
                                 ArgumentArray array, const char* description, int32_t help_level) \
      : ArgumentRecord(name, kind, TypeCode, static_cast<void*>(target), true, array.size,         \
                       description, help_level) {}

VELMOR_ARGUMENT_RECORD_CONSTRUCTORS(int32_t, kInteger)
VELMOR_ARGUMENT_RECORD_CONSTRUCTORS(uint32_t, kUnsigned)
VELMOR_ARGUMENT_RECORD_CONSTRUCTORS(float, kFloat)
VELMOR_ARGUMENT_RECORD_CONSTRUCTORS(double, kDouble)
VELMOR_ARGUMENT_RECORD_CONSTRUCTORS(const char*, kStr)
VELMOR_ARGUMENT_RECORD_CONSTRUCTORS(char, kChar)
VELMOR_ARGUMENT_RECORD_CONSTRUCTORS(bool, kBool)

#undef VELMOR_ARGUMENT_RECORD_CONSTRUCTORS

ArgumentRecord ArgumentRecord::Heading(const char* text, int32_t help_level) {
  ArgumentRecord record;
  record.name = kHeadingName;
  record.description = text;
  record.help_level = help_level;
  return record;
}

ArgumentRecord ArgumentRecord::End() { return ArgumentRecord(); }

bool ArgumentRecord::IsHeading() const {
  return name != nullptr && std::strcmp(name, kHeadingName) == 0;
}

bool ArgumentRecord::IsPositional() const {
  return name != nullptr &&
         (std::strcmp(name, kPositionalName) == 0 || std::strcmp(name, kFilledPositionalName) == 0);
}

const char* ArgumentTypeName(uint8_t type) {
  switch (type) {
    case ArgumentRecord::kInteger:
      return "integer";
    case ArgumentRecord::kUnsigned:
      return "unsigned";
    case ArgumentRecord::kFloat:
      return "float";
    case ArgumentRecord::kDouble:
      return "double";
    case ArgumentRecord::kStr:
      return "str";
    case ArgumentRecord::kChar:
      return "char";
    case ArgumentRecord::kBool:
      return "bool";
    default:
      return "error: unknown type";
  }
}

}  // namespace velmor
