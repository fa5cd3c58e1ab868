#ifndef VELMOR_COMMAND_LINE_UTILS_ARGUMENT_RECORD_H_
#define VELMOR_COMMAND_LINE_UTILS_ARGUMENT_RECORD_H_

// One row of a command-line argument table: a switch name bound to a typed
// variable (or to an array of them), with its help text. A table is a plain
// array of records ended by ArgumentRecord::End() (null name); the
// ArgumentParser walks it.
//
// Reserved names:
//   "noflg"     a positional argument (no switch); filled in table order.
//   "nofl_fnd"  a positional argument already filled (the parser renames a
//               "noflg" row to this once it has given it a value).
//   "categflg"  a heading row: no value, its description is the heading text
//               printed by the usage.

#include <cstdint>

namespace velmor {

// Marks a record as an ARRAY record of `size` elements, written on the command
// line as the name followed by a 1-based index (e.g. -weight2 0.5).
struct ArgumentArray {
  int32_t size;
};

struct ArgumentRecord {
  enum Kind : uint8_t { kOptional = 0, kRequired = 1, kToggle = 2, kHelp = 3 };
  enum Type : uint8_t {
    kInteger = 0,   // int32_t
    kUnsigned = 1,  // uint32_t
    kFloat = 2,     // float
    kDouble = 3,    // double
    kStr = 4,       // const char* (null: not given); values are parser-owned copies
    kChar = 5,      // char
    kBool = 6       // bool
  };

  static constexpr const char* kPositionalName = "noflg";
  static constexpr const char* kFilledPositionalName = "nofl_fnd";
  static constexpr const char* kHeadingName = "categflg";

  const char* name = nullptr;
  uint8_t kind = kOptional;
  uint8_t type = kInteger;
  void* target = nullptr;  // the variable, or the first element of the array
  bool is_array = false;
  int32_t array_index = 0;  // 0-based element of the current assignment
  int32_t array_size = 1;   // valid command-line indices are 1..array_size
  const char* description = nullptr;
  int32_t help_level = 1;  // least global help level at which usage lists the row
  int32_t seen_count = 0;  // times the switch was given

  // A scalar record. The variable's C++ type selects the value type. Ends the
  // process (status 1) when a toggle record is not of type bool.
  ArgumentRecord(const char* name, Kind kind, int32_t* target, const char* description,
                 int32_t help_level = 1);
  ArgumentRecord(const char* name, Kind kind, uint32_t* target, const char* description,
                 int32_t help_level = 1);
  ArgumentRecord(const char* name, Kind kind, float* target, const char* description,
                 int32_t help_level = 1);
  ArgumentRecord(const char* name, Kind kind, double* target, const char* description,
                 int32_t help_level = 1);
  ArgumentRecord(const char* name, Kind kind, const char** target, const char* description,
                 int32_t help_level = 1);
  ArgumentRecord(const char* name, Kind kind, char* target, const char* description,
                 int32_t help_level = 1);
  ArgumentRecord(const char* name, Kind kind, bool* target, const char* description,
                 int32_t help_level = 1);

  // An ARRAY record over target[0 .. array.size). Ends the process (status 1)
  // for a toggle that is not bool and for a help record (help cannot be an
  // ARRAY).
  ArgumentRecord(const char* name, Kind kind, int32_t* target, ArgumentArray array,
                 const char* description, int32_t help_level = 1);
  ArgumentRecord(const char* name, Kind kind, uint32_t* target, ArgumentArray array,
                 const char* description, int32_t help_level = 1);
  ArgumentRecord(const char* name, Kind kind, float* target, ArgumentArray array,
                 const char* description, int32_t help_level = 1);
  ArgumentRecord(const char* name, Kind kind, double* target, ArgumentArray array,
                 const char* description, int32_t help_level = 1);
  ArgumentRecord(const char* name, Kind kind, const char** target, ArgumentArray array,
                 const char* description, int32_t help_level = 1);
  ArgumentRecord(const char* name, Kind kind, char* target, ArgumentArray array,
                 const char* description, int32_t help_level = 1);
  ArgumentRecord(const char* name, Kind kind, bool* target, ArgumentArray array,
                 const char* description, int32_t help_level = 1);

  // A heading row ("categflg") with the given heading text.
  static ArgumentRecord Heading(const char* text, int32_t help_level = 1);
  // The terminating row (null name).
  static ArgumentRecord End();

  bool IsEnd() const { return name == nullptr; }
  bool IsHeading() const;
  // True for an unfilled or a filled positional row.
  bool IsPositional() const;

 private:
  ArgumentRecord() = default;
  ArgumentRecord(const char* name, Kind kind, Type type, void* target, bool is_array,
                 int32_t array_size, const char* description, int32_t help_level);
};

// "integer", "unsigned", "float", "double", "str", "char", "bool"; any other
// code gives "error: unknown type".
const char* ArgumentTypeName(uint8_t type);

}  // namespace velmor

#endif  // VELMOR_COMMAND_LINE_UTILS_ARGUMENT_RECORD_H_
