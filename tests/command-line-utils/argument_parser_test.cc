#include "command-line-utils/argument_parser.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "command-line-utils/argument_record.h"
#include "command-line-utils/child_process.h"

namespace velmor {
namespace {

using testing_support::ChildOutcome;
using testing_support::RunInChild;

struct WalkResult {
  int status;
  std::string err;
};

// argv with "prog" in front; stderr captured.
WalkResult Walk(ArgumentParser& parser, const std::vector<std::string>& args) {
  std::vector<std::string> all = {"prog"};
  all.insert(all.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& text : all) argv.push_back(text.data());
  argv.push_back(nullptr);
  ::testing::internal::CaptureStderr();
  const int status = parser.WalkCommandLine(static_cast<int>(all.size()), argv.data());
  return {status, ::testing::internal::GetCapturedStderr()};
}

// A table with one row of each type, a toggle, an ARRAY row (with guard
// elements around it) and a help row.
struct SmallTable {
  int32_t count = 7;
  int32_t countmax = 0;
  uint32_t level = 3;
  float ratio = 0.5f;
  double scale = 2.0;
  const char* label = nullptr;
  char mark = 'x';
  bool verbose = false;
  bool toggle = false;
  double weight_storage[5] = {-9.0, 0.0, 0.0, 0.0, -9.0};  // [0] and [4] are guards
  bool help = false;
  std::vector<ArgumentRecord> rows;
  ArgumentParser parser;

  SmallTable()
      : rows{ArgumentRecord::Heading("**** Numbers"),
             ArgumentRecord("count", ArgumentRecord::kOptional, &count, "Count."),
             ArgumentRecord("countmax", ArgumentRecord::kOptional, &countmax, "Largest count."),
             ArgumentRecord("level", ArgumentRecord::kOptional, &level, "Level."),
             ArgumentRecord("ratio", ArgumentRecord::kOptional, &ratio, "Ratio."),
             ArgumentRecord("scale", ArgumentRecord::kOptional, &scale, "Scale."),
             ArgumentRecord::Heading("**** Text"),
             ArgumentRecord("label", ArgumentRecord::kOptional, &label, "Label."),
             ArgumentRecord("mark", ArgumentRecord::kOptional, &mark, "Mark."),
             ArgumentRecord::Heading("**** Flags"),
             ArgumentRecord("verbose", ArgumentRecord::kOptional, &verbose, "Verbose."),
             ArgumentRecord("toggle", ArgumentRecord::kToggle, &toggle, "Toggle."),
             ArgumentRecord("weight", ArgumentRecord::kOptional, weight_storage + 1,
                            ArgumentArray{3}, "Weights."),
             ArgumentRecord("help", ArgumentRecord::kHelp, &help, "Help."),
             ArgumentRecord::End()},
        parser(rows.data()) {}
  SmallTable(const SmallTable&) = delete;
  SmallTable& operator=(const SmallTable&) = delete;

  double weight(int i) const { return weight_storage[1 + i]; }
};

std::string WriteFile(const std::string& dir, const std::string& name, const std::string& text) {
  const std::string path = dir + "/" + name;
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

TEST(ArgumentParser, ConvertsAndStoresEachType) {
  // Integers take base 0: hex, octal, decimal; trailing text is accepted.
  {
    SmallTable t;
    WalkResult r = Walk(t.parser, {"-count", "0x1F", "-countmax", "010"});
    EXPECT_EQ(r.status, ArgumentParser::kOk);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(t.count, 31);
    EXPECT_EQ(t.countmax, 8);
    EXPECT_EQ(Walk(t.parser, {"-count", "12abc"}).status, ArgumentParser::kOk);
    EXPECT_EQ(t.count, 12);
    EXPECT_EQ(t.rows[1].seen_count, 2);
    EXPECT_TRUE(t.parser.WasFound(1));
    EXPECT_FALSE(t.parser.WasFound(3));
  }
  // Extreme values of each width; a negative number is a value, not a switch.
  {
    SmallTable t;
    WalkResult r = Walk(t.parser, {"-count", "-2147483648", "-level", "4294967295", "-ratio", "0.1",
                                   "-scale", "-1e-300", "-label", "a b", "-mark", "q"});
    EXPECT_EQ(r.status, ArgumentParser::kOk) << r.err;
    EXPECT_EQ(t.count, INT32_MIN);
    EXPECT_EQ(t.level, 4294967295u);
    EXPECT_EQ(t.ratio, 0.1f);
    EXPECT_EQ(t.scale, -1e-300);
    EXPECT_STREQ(t.label, "a b");
    EXPECT_EQ(t.mark, 'q');
  }
  // Numbers out of the variable's range are narrowed modulo 2^32.
  {
    SmallTable t;
    EXPECT_EQ(Walk(t.parser, {"-count", "4294967293", "-level", "-1"}).status, ArgumentParser::kOk);
    EXPECT_EQ(t.count, -3);
    EXPECT_EQ(t.level, 4294967295u);
    EXPECT_EQ(Walk(t.parser, {"-count", "2147483648", "-level", "4294967296"}).status,
              ArgumentParser::kOk);
    EXPECT_EQ(t.count, INT32_MIN);
    EXPECT_EQ(t.level, 0u);
  }
  // A str value is a copy that outlives the argument text.
  {
    SmallTable t;
    std::vector<std::string> args = {"-label", "temporary"};
    Walk(t.parser, args);
    args[1].assign("overwritten");
    EXPECT_STREQ(t.label, "temporary");
    Walk(t.parser, {"-label", ""});
    EXPECT_STREQ(t.label, "");
  }
  EXPECT_STREQ(ArgumentTypeName(ArgumentRecord::kUnsigned), "unsigned");
  EXPECT_STREQ(ArgumentTypeName(42), "error: unknown type");
}

TEST(ArgumentParser, BadOrMissingValuesGetTheirMessages) {
  struct Case {
    std::vector<std::string> args;
    std::string message;
  };
  const std::vector<Case> cases = {
      // Value missing at the end of the line.
      {{"-count"}, "Argument Error: Integer argument needed: -count\n"},
      {{"-level"}, "Argument Error: Unsigned integer argument needed: -level\n"},
      {{"-ratio"}, "Argument Error: Real number argument needed: -ratio\n"},
      {{"-scale"}, "Argument Error: Real number argument needed: -scale\n"},
      {{"-label"}, "Argument Error: String argument needed: -label\n"},
      {{"-mark"}, "Argument Error: Character argument needed: -mark \n"},
      // Values that are not numbers.
      {{"-count", "abc"}, "Argument Error: Integer argument needed: -count abc\n"},
      {{"-count", ""}, "Argument Error: Integer argument needed: -count \n"},
      {{"-ratio", "x1"}, "Argument Error: Floating point number argument needed: -ratio x1\n"},
      {{"-scale", "--"}, "Argument Error: Real number argument needed: -scale --\n"},
      {{"-mark", "ab"}, "Argument Error: Character argument needed: -mark ab\n"},
      {{"-mark", ""}, "Argument Error: Character argument needed: -mark \n"},
      {{"-verbose", "maybe"}, "Argument Error: Boolean argument needed: -verbose maybe\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args[0] + (c.args.size() > 1 ? " " + c.args[1] : ""));
    SmallTable t;
    WalkResult r = Walk(t.parser, c.args);
    EXPECT_EQ(r.status, ArgumentParser::kError);
    EXPECT_EQ(r.err, c.message);
    // Nothing was stored and the switch does not count as given.
    EXPECT_EQ(t.count, 7);
    EXPECT_EQ(t.level, 3u);
    EXPECT_EQ(t.mark, 'x');
    EXPECT_FALSE(t.verbose);
    for (const ArgumentRecord& row : t.rows) EXPECT_EQ(row.seen_count, 0);
  }
  // The walk stops at the first error.
  SmallTable t;
  EXPECT_EQ(Walk(t.parser, {"-count", "x", "-level", "5"}).status, ArgumentParser::kError);
  EXPECT_EQ(t.level, 3u);
}

TEST(ArgumentParser, PrefixLookup) {
  // A unique prefix selects its row; an exact name beats longer ones.
  {
    SmallTable t;
    EXPECT_EQ(Walk(t.parser, {"-lab", "x", "-countm", "4", "-count", "5"}).status,
              ArgumentParser::kOk);
    EXPECT_STREQ(t.label, "x");
    EXPECT_EQ(t.countmax, 4);
    EXPECT_EQ(t.count, 5);
  }
  // Several matches without an exact one are ambiguous; so is a lone dash.
  for (const std::string typed : {"-cou", "-c", "-"}) {
    SmallTable t;
    WalkResult r = Walk(t.parser, {typed, "1"});
    EXPECT_EQ(r.status, ArgumentParser::kError);
    EXPECT_EQ(r.err, "Argument Error: Ambiguous switch: " + typed + "\n");
  }
  // Without prefer_exact_match an exact name that prefixes another is ambiguous.
  {
    SmallTable t;
    t.parser.set_prefer_exact_match(false);
    WalkResult r = Walk(t.parser, {"-count", "1"});
    EXPECT_EQ(r.err, "Argument Error: Ambiguous switch: -count\n");
    EXPECT_EQ(Walk(t.parser, {"-countm", "1"}).status, ArgumentParser::kOk);
  }
  // Unknown names; heading rows are not switches.
  for (const std::string typed : {"-zzz", "-categflg", "-counting", "-5"}) {
    SmallTable t;
    WalkResult r = Walk(t.parser, {typed, "1"});
    EXPECT_EQ(r.status, ArgumentParser::kError);
    EXPECT_EQ(r.err, "Argument Error: Unknown switch: " + typed + "\n");
  }
}

TEST(ArgumentParser, Booleans) {
  // Words, upper-cased and matched as prefixes; "O" is taken as ON.
  const std::vector<std::pair<std::string, bool>> words = {
      {"t", true},    {"Yes", true}, {"on", true},     {"1", true},   {"TRUE", true},
      {"tR", true},   {"y", true},   {"o", true},      {"f", false},  {"n", false},
      {"off", false}, {"0", false},  {"FALSE", false}, {"No", false}, {"of", false}};
  for (const auto& [word, meaning] : words) {
    SCOPED_TRACE(word);
    SmallTable t;
    t.verbose = !meaning;
    WalkResult r = Walk(t.parser, {"-verbose", word});
    EXPECT_EQ(r.status, ArgumentParser::kOk) << r.err;
    EXPECT_EQ(t.verbose, meaning);
  }
  for (const std::string word : {"maybe", "truex", "yess", "10", "", "2"}) {
    SmallTable t;
    WalkResult r = Walk(t.parser, {"-verbose", word});
    EXPECT_EQ(r.status, ArgumentParser::kError);
    EXPECT_EQ(r.err, "Argument Error: Boolean argument needed: -verbose " + word + "\n");
  }
  // No value, or a following switch: true, and the switch is read next.
  {
    SmallTable t;
    EXPECT_EQ(Walk(t.parser, {"-verbose", "-count", "5"}).status, ArgumentParser::kOk);
    EXPECT_TRUE(t.verbose);
    EXPECT_EQ(t.count, 5);
    SmallTable u;
    EXPECT_EQ(Walk(u.parser, {"-count", "5", "-verbose"}).status, ArgumentParser::kOk);
    EXPECT_TRUE(u.verbose);
  }
  // A toggle flips each time it is given without a value; a word sets it.
  {
    SmallTable t;
    Walk(t.parser, {"-toggle"});
    EXPECT_TRUE(t.toggle);
    Walk(t.parser, {"-toggle", "-toggle"});
    EXPECT_TRUE(t.toggle);
    Walk(t.parser, {"-toggle", "-toggle", "-toggle"});
    EXPECT_FALSE(t.toggle);
    Walk(t.parser, {"-toggle", "no"});
    EXPECT_FALSE(t.toggle);
    Walk(t.parser, {"-toggle", "yes"});
    EXPECT_TRUE(t.toggle);
  }
}

TEST(ArgumentParser, ArrayRows) {
  // Indices 1..size address the elements.
  {
    SmallTable t;
    EXPECT_EQ(Walk(t.parser, {"-weight1", "0.5", "-weight3", "-4"}).status, ArgumentParser::kOk);
    EXPECT_EQ(t.weight(0), 0.5);
    EXPECT_EQ(t.weight(1), 0.0);
    EXPECT_EQ(t.weight(2), -4.0);
    EXPECT_EQ(t.rows[12].seen_count, 2);
  }
  // Index 0 passes the bound test but writes nothing, not even next to the array.
  {
    SmallTable t;
    WalkResult r = Walk(t.parser, {"-weight0", "7"});
    EXPECT_EQ(r.status, ArgumentParser::kOk);
    EXPECT_EQ(r.err,
              "Argument Warning: Array index 0 in switch (-weight0) names no element; value "
              "ignored\n");
    for (double w : t.weight_storage) EXPECT_NE(w, 7.0);
    EXPECT_EQ(t.weight_storage[0], -9.0);
  }
  // Above the size, and absurdly large indices.
  for (const std::string typed : {"-weight4", "-weight99999999999999999999"}) {
    SmallTable t;
    WalkResult r = Walk(t.parser, {typed, "1"});
    EXPECT_EQ(r.status, ArgumentParser::kError);
    EXPECT_EQ(r.err,
              "Argument Error: Array index in switch (" + typed + ") is out of bounds (1..3)\n");
    EXPECT_EQ(t.weight_storage[4], -9.0);
  }
  // The plain name needs an index unless the policy is cleared.
  {
    SmallTable t;
    WalkResult r = Walk(t.parser, {"-weight", "1"});
    EXPECT_EQ(r.status, ArgumentParser::kError);
    EXPECT_EQ(r.err, "Argument Error: Need to supply index for array type flag: -weight\n");
    t.parser.set_array_needs_index(false);
    EXPECT_EQ(Walk(t.parser, {"-weight", "1.25"}).status, ArgumentParser::kOk);
    EXPECT_EQ(t.weight(0), 1.25);
  }
  // Indexed names are looked up exactly unless the policy is cleared.
  {
    SmallTable t;
    EXPECT_EQ(Walk(t.parser, {"-wei2", "1"}).err, "Argument Error: Unknown switch: -wei2\n");
    t.parser.set_exact_array_names(false);
    EXPECT_EQ(Walk(t.parser, {"-wei2", "1"}).status, ArgumentParser::kOk);
    EXPECT_EQ(t.weight(1), 1.0);
  }
  // Scalar rows cannot be indexed.
  {
    SmallTable t;
    EXPECT_EQ(Walk(t.parser, {"-scale1", "1"}).err,
              "Argument Error: Switch (-scale1) is not of type ARRAY and cannot be written as "
              "(-scaleX)\n");
    EXPECT_EQ(Walk(t.parser, {"-scale2", "1"}).err,
              "Argument Error: Array index in switch (-scale2) is out of bounds (1..1)\n");
    EXPECT_EQ(t.scale, 2.0);
  }
  // Bad value for an indexed switch.
  {
    SmallTable t;
    EXPECT_EQ(Walk(t.parser, {"-weight2"}).err,
              "Argument Error: Real number argument needed: -weight2\n");
  }
}

TEST(ArgumentParser, PositionalAndRequiredRows) {
  int32_t first = 0, size = 0;
  const char* second = nullptr;
  double weights[2] = {0.0, 0.0};
  bool flag = false;
  auto make_rows = [&] {
    return std::vector<ArgumentRecord>{
        ArgumentRecord("noflg", ArgumentRecord::kRequired, &first, "First."),
        ArgumentRecord("noflg", ArgumentRecord::kOptional, &second, "Second."),
        ArgumentRecord("size", ArgumentRecord::kRequired, &size, "Size."),
        ArgumentRecord("w", ArgumentRecord::kRequired, weights, ArgumentArray{2}, "Weights."),
        ArgumentRecord("flag", ArgumentRecord::kRequired, &flag, "Flag."),
        ArgumentRecord::End()};
  };
  // Positional values fill the rows in order; a further one is ignored.
  {
    std::vector<ArgumentRecord> rows = make_rows();
    ArgumentParser parser(rows.data());
    WalkResult r = Walk(parser, {"5", "-size", "2", "file.txt", "extra", "-w1", "1", "-flag"});
    EXPECT_EQ(r.status, ArgumentParser::kOk);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(first, 5);
    EXPECT_STREQ(second, "file.txt");
    EXPECT_STREQ(rows[0].name, "nofl_fnd");
    EXPECT_STREQ(rows[1].name, "nofl_fnd");
    EXPECT_FALSE(parser.CheckRequired(false));
  }
  // A positional value that does not convert: the switch text is empty.
  {
    std::vector<ArgumentRecord> rows = make_rows();
    ArgumentParser parser(rows.data());
    WalkResult r = Walk(parser, {"abc"});
    EXPECT_EQ(r.status, ArgumentParser::kError);
    EXPECT_EQ(r.err, "Argument Error: Integer argument needed:  abc\n");
    EXPECT_STREQ(rows[0].name, "noflg");
  }
  // Missing required rows: status 0, and the report lists each one.
  {
    std::vector<ArgumentRecord> rows = make_rows();
    ArgumentParser parser(rows.data());
    WalkResult r = Walk(parser, {"-size", "3"});
    EXPECT_EQ(r.status, ArgumentParser::kMissingRequired);
    EXPECT_EQ(r.err, "");
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(parser.CheckRequired(true));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Argument Error: Missing REQUIRED argument: <integer>\n"
              "Argument Error: Missing REQUIRED argument: -wX  <double>\n"
              "Argument Error: Missing REQUIRED argument: -flag  [bool]\n");
  }
  // ParseArguments reports the missing rows and fails.
  {
    std::vector<ArgumentRecord> rows = make_rows();
    ArgumentParser parser(rows.data());
    std::vector<std::string> all = {"tool", "-flag", "-w2", "3"};
    std::vector<char*> argv;
    for (std::string& s : all) argv.push_back(s.data());
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(parser.ParseArguments(4, argv.data(), "help"));
    const std::string err = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(err,
              "Argument Error: Missing REQUIRED argument: <integer>\n"
              "Argument Error: Missing REQUIRED argument: -size  <integer>\n");
    EXPECT_EQ(parser.program_name(), "tool");
  }
}

class ArgumentFiles : public ::testing::Test {
 protected:
  void SetUp() override { dir_ = testing_support::MakeTemporaryDirectory(); }
  void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }
  std::string dir_;
};

TEST_F(ArgumentFiles, SwitchesFromFile) {
  const std::string path = WriteFile(dir_, "good.args",
                                     "# comment line\n"
                                     "count = 12   # trailing comment\n"
                                     "label=hello world\n"
                                     "   verbose\n"
                                     "\n"
                                     "   # indented comment\n"
                                     "scale\t0.5\n"
                                     "unknownthing 3\n"
                                     "weight2 4\n"
                                     "mark   =z\n"
                                     "toggle\r\n"
                                     "countm 3");
  // Read through the switch, any prefix of its name, then the command line goes on.
  for (const std::string typed : {"-argsfilename", "-args", "-a"}) {
    SmallTable t;
    WalkResult r = Walk(t.parser, {typed, path, "-level", "9"});
    EXPECT_EQ(r.status, ArgumentParser::kOk);
    EXPECT_EQ(r.err, "Argument Warning: Skipping unknown switch in " + path +
                         " : unknownthing,\nArgument Warning: Skipping unknown switch in " + path +
                         " : weight2,\n");
    EXPECT_EQ(t.count, 12);
    EXPECT_STREQ(t.label, "hello");
    EXPECT_TRUE(t.verbose);
    EXPECT_EQ(t.scale, 0.5);
    EXPECT_EQ(t.mark, 'z');
    EXPECT_TRUE(t.toggle);
    EXPECT_EQ(t.countmax, 3);
    EXPECT_EQ(t.level, 9u);
    EXPECT_EQ(t.weight(1), 0.0);
  }
  // The file switch wins over a row whose name is one of its prefixes.
  {
    int32_t args_value = 0;
    std::vector<ArgumentRecord> rows = {
        ArgumentRecord("args", ArgumentRecord::kOptional, &args_value, "Not a file."),
        ArgumentRecord::End()};
    ArgumentParser parser(rows.data());
    const std::string file = WriteFile(dir_, "empty.args", "# nothing\n");
    EXPECT_EQ(Walk(parser, {"-args", file}).status, ArgumentParser::kOk);
    EXPECT_EQ(args_value, 0);
    EXPECT_EQ(rows[0].seen_count, 0);
  }
}

TEST_F(ArgumentFiles, ErrorsInFiles) {
  // A bad value: reported, the file stops, the command line goes on.
  {
    const std::string path = WriteFile(dir_, "bad.args", "count abc\nlevel 8\n");
    SmallTable t;
    WalkResult r = Walk(t.parser, {"-argsfilename", path, "-scale", "4"});
    EXPECT_EQ(r.status, ArgumentParser::kOk);
    EXPECT_EQ(r.err,
              "Argument Error: Integer argument needed: count abc\nArgument Error: Error in " +
                  path + "\n");
    EXPECT_EQ(t.level, 3u);
    EXPECT_EQ(t.scale, 4.0);
    SmallTable u;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(u.parser.ReadArgumentsFile(path.c_str()), ArgumentParser::kError);
    ::testing::internal::GetCapturedStderr();
  }
  // Ambiguous names, names without value where one is needed, nameless lines.
  {
    const std::string ambiguous = WriteFile(dir_, "amb.args", "cou 3\n");
    const std::string no_value = WriteFile(dir_, "novalue.args", "count\n");
    const std::string nameless = WriteFile(dir_, "nameless.args", "=3\n");
    const std::string indexed = WriteFile(dir_, "array.args", "weight 3\n");
    SmallTable t;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(t.parser.ReadArgumentsFile(ambiguous.c_str()), ArgumentParser::kError);
    EXPECT_EQ(t.parser.ReadArgumentsFile(no_value.c_str()), ArgumentParser::kError);
    EXPECT_EQ(t.parser.ReadArgumentsFile(nameless.c_str()), ArgumentParser::kError);
    EXPECT_EQ(t.parser.ReadArgumentsFile(indexed.c_str()), ArgumentParser::kError);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Argument Error: Ambiguous switch in " + ambiguous + " : cou\n" +
                  "Argument Error: Integer argument needed: count\n" + "Argument Error: Error in " +
                  no_value + "\n" + "Argument Error: Ambiguous switch in " + nameless + " : \n" +
                  "Argument Error: Need to supply index for array type flag: weight\n" +
                  "Argument Error: Error in " + indexed + "\n");
  }
  // Files that cannot be read, or not as text lines.
  {
    SmallTable t;
    const std::string missing = dir_ + "/missing.args";
    WalkResult r = Walk(t.parser, {"-argsfilename", missing, "-count", "1"});
    EXPECT_EQ(r.status, ArgumentParser::kOk);
    EXPECT_EQ(r.err, "Argument Error: Can't file argument file: " + missing + "\n");
    EXPECT_EQ(t.count, 1);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(t.parser.ReadArgumentsFile(dir_.c_str()), ArgumentParser::kError);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Argument Error: Can't file argument file: " + dir_ + "\n");
  }
  // Line length: 32766 characters and a newline fill the buffer; one fewer fits.
  {
    const std::string fits_value(32765 - 6, 'v');
    const std::string fits = WriteFile(dir_, "fits.args", "label=" + fits_value + "\n");
    const std::string too_long =
        WriteFile(dir_, "long.args", "label=" + std::string(32766 - 6, 'v') + "\n");
    SmallTable t;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(t.parser.ReadArgumentsFile(fits.c_str()), ArgumentParser::kOk);
    EXPECT_EQ(t.parser.ReadArgumentsFile(too_long.c_str()), ArgumentParser::kError);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Argument Error: Line length too long in command line parameter arguments file: " +
                  too_long + "\n");
    EXPECT_EQ(std::string(t.label), fits_value);
  }
  // Required rows are checked at the end of a file.
  {
    int32_t need = 0;
    std::vector<ArgumentRecord> rows = {
        ArgumentRecord("need", ArgumentRecord::kRequired, &need, "Needed."), ArgumentRecord::End()};
    ArgumentParser parser(rows.data());
    const std::string other = WriteFile(dir_, "other.args", "# none\n");
    const std::string given = WriteFile(dir_, "given.args", "need 0x10\n");
    EXPECT_EQ(parser.ReadArgumentsFile(other.c_str()), ArgumentParser::kMissingRequired);
    EXPECT_EQ(parser.ReadArgumentsFile(given.c_str()), ArgumentParser::kOk);
    EXPECT_EQ(need, 16);
  }
}

TEST_F(ArgumentFiles, FatalCases) {
  // Recursion, also through a prefix, ends the process with status 1.
  for (const std::string line : {"argsfilename other.args\n", "args x\n", "a\n"}) {
    const std::string path = WriteFile(dir_, "recursive.args", "count 3\n" + line);
    ChildOutcome o = RunInChild([&] {
      SmallTable t;
      std::vector<std::string> all = {"prog", "-argsfilename", path};
      std::vector<char*> argv;
      for (std::string& s : all) argv.push_back(s.data());
      t.parser.WalkCommandLine(3, argv.data());
      return 0;
    });
    EXPECT_TRUE(o.exited);
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(o.err, "Argument Error: Can not recursively parse arguments from files\n\n");
  }
  // The file switch without a file name.
  {
    ChildOutcome o = RunInChild([] {
      SmallTable t;
      std::vector<std::string> all = {"prog", "-count", "1", "-argsf"};
      std::vector<char*> argv;
      for (std::string& s : all) argv.push_back(s.data());
      t.parser.WalkCommandLine(4, argv.data());
      return 0;
    });
    EXPECT_TRUE(o.exited);
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(o.err, "Argument Error: Expecting file name after argsfilename argument flag\n\n");
  }
}

TEST(ArgumentParser, RecordConstructionRules) {
  ChildOutcome toggle = RunInChild([] {
    int32_t value = 0;
    ArgumentRecord("t", ArgumentRecord::kToggle, &value, "Toggle of the wrong type.");
    return 0;
  });
  EXPECT_TRUE(toggle.exited);
  EXPECT_EQ(toggle.status, 1);
  EXPECT_EQ(toggle.err, "Argument Error: A toggle argument must boolean\n");

  ChildOutcome help = RunInChild([] {
    uint32_t levels[2] = {0, 0};
    ArgumentRecord("help", ArgumentRecord::kHelp, levels, ArgumentArray{2}, "Help.");
    return 0;
  });
  EXPECT_EQ(help.status, 1);
  EXPECT_EQ(help.err,
            "INTERNAL ERROR: Cannot have a flag of kind Help that is also of type ARRAY.\n");

  // A record whose type code was damaged.
  ChildOutcome unknown = RunInChild([] {
    SmallTable t;
    t.rows[1].type = 9;
    std::vector<std::string> all = {"prog", "-count", "1"};
    std::vector<char*> argv;
    for (std::string& s : all) argv.push_back(s.data());
    t.parser.WalkCommandLine(3, argv.data());
    return 0;
  });
  EXPECT_EQ(unknown.status, 1);
  EXPECT_EQ(unknown.err, "Argument Error: Unknown internal argument\n");
}

TEST(ArgumentParser, UsageText) {
  int32_t count = 7;
  double weights[2] = {1.5, -2.0};
  const char* label = nullptr;
  char mark = 'm';
  bool verbose = true;
  int32_t hidden = 0;
  uint32_t help = 0;
  std::vector<ArgumentRecord> rows = {
      ArgumentRecord::Heading("**** Group A"),
      ArgumentRecord("count", ArgumentRecord::kOptional, &count, "Count."),
      ArgumentRecord("weight", ArgumentRecord::kOptional, weights, ArgumentArray{2}, "Weights."),
      ArgumentRecord("label", ArgumentRecord::kOptional, &label, "Label."),
      ArgumentRecord::Heading("  ---- Group B"),
      ArgumentRecord("mark", ArgumentRecord::kRequired, &mark, "Mark."),
      ArgumentRecord("verbose", ArgumentRecord::kOptional, &verbose, "Verbose."),
      ArgumentRecord("hidden", ArgumentRecord::kOptional, &hidden, "Hidden.", 2),
      ArgumentRecord("help", ArgumentRecord::kHelp, &help, "Help."),
      ArgumentRecord::End()};
  ArgumentParser parser(rows.data());
  std::vector<std::string> all = {"tool", "-label", "abc"};
  std::vector<char*> argv;
  for (std::string& s : all) argv.push_back(s.data());
  ASSERT_EQ(parser.WalkCommandLine(3, argv.data()), ArgumentParser::kMissingRequired);

  // Everything at help level 1; descriptions aligned after the widest entry
  // (" [-argsfilename str]", 17 characters inside the brackets).
  ::testing::internal::CaptureStdout();
  parser.PrintUsage(nullptr, false);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Usage: tool  [[[-flag] [option]] ...]\n"
            "Required: <>; Optional: []; Flagless arguments must be in order.\n"
            "**** Group A\n"
            " [-count integer]      Count. {7}\n"
            " [-weightX double]     Weights. {1.500000e+00 -2.000000e+00}\n"
            " [-label str]          Label. {abc}\n"
            "  ---- Group B\n"
            " <-mark char>          Mark. {m}\n"
            " [-verbose bool]       Verbose. {T}\n"
            " [-help unsigned]      Help. {0}\n"
            " [-argsfilename str]   File to obtain additional arguments from. {}\n");

  // One group, by its heading without the decoration, on standard error.
  ::testing::internal::CaptureStderr();
  parser.PrintUsage("Group B", true);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "Usage: tool  [[[-flag] [option]] ...]\n"
            "Required: <>; Optional: []; Flagless arguments must be in order.\n"
            "  ---- Group B\n"
            " <-mark char>       Mark. {m}\n"
            " [-verbose bool]    Verbose. {T}\n"
            " [-help unsigned]   Help. {0}\n");

  // -help 2 raises the help level: the hidden row appears; the usage goes to
  // standard output and the process ends with status 0.
  ChildOutcome o = RunInChild([&] {
    std::vector<std::string> help_args = {"tool", "-hel", "2", "-mark", "q"};
    std::vector<char*> help_argv;
    for (std::string& s : help_args) help_argv.push_back(s.data());
    parser.ParseArguments(5, help_argv.data(), "help");
    return 3;
  });
  EXPECT_TRUE(o.exited);
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_NE(o.out.find(" [-hidden integer]     Hidden. {0}\n"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find(" [-help unsigned]      Help. {2}\n"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find(" <-mark char>          Mark. {q}\n"), std::string::npos) << o.out;

  // -help followed by a switch: level 1, and the switch is still read.
  ChildOutcome o2 = RunInChild([&] {
    std::vector<std::string> help_args = {"tool", "-help", "-count", "5"};
    std::vector<char*> help_argv;
    for (std::string& s : help_args) help_argv.push_back(s.data());
    parser.ParseArguments(4, help_argv.data(), "help");
    return 3;
  });
  EXPECT_EQ(o2.status, 0);
  EXPECT_EQ(o2.out.find("Hidden"), std::string::npos);
  EXPECT_NE(o2.out.find(" [-count integer]      Count. {5}\n"), std::string::npos) << o2.out;

  // Damaged type code.
  rows[1].type = 77;
  ::testing::internal::CaptureStdout();
  parser.PrintUsage("Group A", false);
  EXPECT_NE(
      ::testing::internal::GetCapturedStdout().find(" [-count error: unknown type]   Count. {}"),
      std::string::npos);
}

// Random command lines of switch prefixes, array forms and junk values: the
// parser never crashes, never writes outside its variables, and reports an
// error exactly when it says so.
TEST(ArgumentParser, RandomCommandLines) {
  const std::string dir = testing_support::MakeTemporaryDirectory();
  const std::string file = WriteFile(dir, "f.args", "count 3\nbogus 1\nverbose off\nlabel=x\n");
  const std::vector<std::string> switches = {
      "-count",   "-countmax", "-cou",      "-c",       "-level",    "-ratio", "-r",
      "-scale",   "-label",    "-mark",     "-verbose", "-toggle",   "-t",     "-weight",
      "-weight0", "-weight1",  "-weight3",  "-weight4", "-weight-1", "-help",  "-",
      "--",       "-zzz",      "-categflg", "-noflg",   "-nofl_fnd", "-scale1"};
  const std::vector<std::string> values = {"0",
                                           "1",
                                           "-1",
                                           "0x",
                                           "0x7fffffff",
                                           "1e999",
                                           "nan",
                                           "-inf",
                                           "t",
                                           "no",
                                           "",
                                           "abc",
                                           "4294967296",
                                           "999999999999999999999",
                                           "08",
                                           "0.5e",
                                           "x",
                                           "--",
                                           std::string(300, '9')};
  std::mt19937 engine(12345);
  for (int round = 0; round < 3000; ++round) {
    std::vector<std::string> args;
    const int length = static_cast<int>(engine() % 7);
    for (int k = 0; k < length; ++k) {
      const unsigned pick = engine() % 10;
      if (pick < 5) {
        args.push_back(switches[engine() % switches.size()]);
      } else if (pick < 9) {
        args.push_back(values[engine() % values.size()]);
      } else {
        args.push_back("-argsfilename");
        args.push_back(file);
      }
    }
    SmallTable t;
    WalkResult r = Walk(t.parser, args);
    ASSERT_TRUE(r.status == ArgumentParser::kOk || r.status == ArgumentParser::kError);
    EXPECT_EQ(r.status == ArgumentParser::kError,
              r.err.find("Argument Error:") != std::string::npos)
        << r.err;
    EXPECT_EQ(t.weight_storage[0], -9.0);
    EXPECT_EQ(t.weight_storage[4], -9.0);
  }
  std::system(("rm -rf '" + dir + "'").c_str());
}

}  // namespace
}  // namespace velmor
