#ifndef VELMOR_COMMAND_LINE_UTILS_ARGUMENT_PARSER_H_
#define VELMOR_COMMAND_LINE_UTILS_ARGUMENT_PARSER_H_

// Table-driven command-line parser. Switches are matched by unique prefix,
// values are converted by the record's type and stored in the bound variable,
// further switches are read from argument files (-argsfilename FILE), and the
// usage text lists every row with its current value.
//
// Problems are reported as text lines on standard error (through ErrorPrint,
// each followed by a newline) and as status codes, never by exception:
//   kMissingRequired (0)  the walk finished but a required row was not given
//   kOk (1)               everything was given
//   kError (2)            a message was printed and the walk stopped there
// A few problems end the process with status 1 (ErrorExit): a missing file
// name after -argsfilename, an argsfilename switch inside an argument file, and
// a record with an unknown type code.
//
// Switch lookup (name typed after the dash): positional and heading rows are
// skipped; a row matches when its name begins with the typed text. A single
// match wins; several are ambiguous unless prefer_exact_match is set and a row
// has exactly the typed name (the last such). Any typed text that is a prefix
// of "argsfilename" (up to the full name) counts as one more match and, when
// the lookup is not ambiguous, selects the argument-file switch. A lone "-" is
// always ambiguous. Without a match, "NAME<digits>" addresses element
// <digits>-1 of the ARRAY row NAME (looked up by exact name when
// exact_array_names is set). Index 0 passes the bound test (only the upper
// bound is checked) but names no element: its value is converted, reported
// with an "Argument Warning:" line and dropped.
//
// Values: integers by strtol/strtoul with base 0 (0x hex, leading 0 octal),
// reals by strtof/strtod; trailing characters after a number are accepted and
// only a text that starts with no number is refused. A number outside the
// variable's range is narrowed to its width as C converts it (4294967293 is
// -3 for an integer, -1 is 4294967295 for an unsigned). A str value is a
// copy owned by the parser for the whole process (the variable points at it).
// A bool switch without a value, or followed by an argument beginning with '-'
// (which is then read as the next switch), becomes true, or flips for a toggle
// row; otherwise the value, upper-cased, is true when it is a prefix of TRUE,
// YES or ON or is "1", false when it is a prefix of FALSE, NO or OFF or is "0"
// (so "O" means true). Any other value, including an empty one, is refused.
//
// Argument files: '#' starts a comment; each remaining non-blank line is
// "name [=] value" or "name" (no dash, value without blanks). Unknown names
// warn and are skipped; the array form is not recognized.
//
// A parser is used once per table: positional rows are consumed by renaming
// them, and the found flags and seen counts keep accumulating.

#include <cstdint>
#include <string>
#include <vector>

#include "command-line-utils/argument_record.h"

namespace velmor {

class ArgumentParser {
 public:
  enum Status : int { kMissingRequired = 0, kOk = 1, kError = 2 };

  // REQUIRES: `table` ends with ArgumentRecord::End() and outlives the parser.
  // The parser writes to the rows (names of positional rows, array_index,
  // seen_count) and to their variables.
  explicit ArgumentParser(ArgumentRecord* table);

  // The program's entry: walks the command line; if a row named
  // `help_switch_name` exists (null: none) and was given, prints the usage to
  // standard output and ends the process with status 0. Otherwise returns true
  // when the walk succeeded; prints the missing required rows and returns false
  // when some were not given; returns false after an error already reported.
  bool ParseArguments(int argc, char** argv, const char* help_switch_name);

  // Walks argv[1 .. argc) (argv[0], when present, becomes the program name).
  // Returns kOk, kMissingRequired or kError. Errors inside an argument file are
  // reported but do not stop the walk.
  int WalkCommandLine(int argc, char** argv);

  // Reads switches from an argument file. Returns kOk, kMissingRequired (the
  // required rows are checked at the end) or kError (can't open or read the
  // file, line of 32767 characters or more, ambiguous switch, bad value).
  int ReadArgumentsFile(const char* path);

  // Writes the usage text to standard error (to_standard_error) or standard
  // output. With a category prefix, only the rows under headings whose text,
  // with or without its leading blanks, '*' and '-', begins with the prefix are
  // listed (and not the argument-file switch). Rows whose help level exceeds
  // the global help level are left out.
  void PrintUsage(const char* category_prefix, bool to_standard_error) const;

  // True when some required row was not given; with `report` each missing one
  // is also printed to standard error.
  bool CheckRequired(bool report) const;

  void set_prefer_exact_match(bool value) { prefer_exact_match_ = value; }
  void set_exact_array_names(bool value) { exact_array_names_ = value; }
  void set_array_needs_index(bool value) { array_needs_index_ = value; }

  // Set by the value of a help row of type unsigned; initially 1.
  int32_t help_level() const { return help_level_; }
  const std::string& program_name() const { return program_name_; }
  // Whether row `index` of the table received a value.
  bool WasFound(int index) const { return found_.at(static_cast<std::size_t>(index)) != 0; }

 private:
  struct Lookup {
    enum Result { kNotFound, kFound, kAmbiguous, kArgumentsFile } result;
    int index;
  };

  Lookup FindSwitch(const char* typed, bool exact_only) const;
  int FindExact(const char* name) const;
  // Converts `value` (null: absent) into the row's current element. Sets
  // `consumed` when the value was used. Prints the failure message and returns
  // false on a bad or missing value.
  bool ConvertAndStore(ArgumentRecord& record, const char* switch_text, const char* value,
                       bool& consumed);
  void MarkGiven(int index);

  ArgumentRecord* table_;
  int number_of_records_;
  std::vector<unsigned char> found_;
  std::string program_name_;
  int32_t help_level_ = 1;
  bool prefer_exact_match_ = true;
  bool exact_array_names_ = true;
  bool array_needs_index_ = true;
};

}  // namespace velmor

#endif  // VELMOR_COMMAND_LINE_UTILS_ARGUMENT_PARSER_H_
