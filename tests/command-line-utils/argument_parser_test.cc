#include "command-line-utils/argument_parser.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "command-line-utils/argument_record.h"
#include "support/child_process.h"
#include "support/temp_files.h"

namespace velmor {
namespace {

using testing::ChildOutcome;
using testing::RunInChild;

// argv for a word list, with "prog" in front.
struct Argv {
  explicit Argv(std::vector<std::string> args) : words(std::move(args)) {
    words.insert(words.begin(), "prog");
    for (std::string& w : words) pointers.push_back(w.data());
    pointers.push_back(nullptr);
  }
  int argc() const { return static_cast<int>(words.size()); }
  std::vector<std::string> words;
  std::vector<char*> pointers;
};

struct WalkResult {
  int status;
  std::string err;
};

std::string CaptureStderrOf(const std::function<void()>& call) {
  ::testing::internal::CaptureStderr();
  call();
  return ::testing::internal::GetCapturedStderr();
}

// A table with one row of each type, a toggle, an ARRAY row (with guard
// elements around it) and a help row.
struct SmallTable {
  int32_t count = 7, countmax = 0;
  uint32_t level = 3;
  float ratio = 0.5f;
  double scale = 2.0;
  const char* label = nullptr;
  char mark = 'x';
  bool verbose = false, toggle = false;
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
  // Walks `args` (after "prog"), catching what it writes to standard error.
  WalkResult Walk(const std::vector<std::string>& args) {
    Argv argv(args);
    ::testing::internal::CaptureStderr();
    const int status = parser.WalkCommandLine(argv.argc(), argv.pointers.data());
    return {status, ::testing::internal::GetCapturedStderr()};
  }
  // What differs from the initial state, as "name=value ...", and how many
  // rows were marked seen: "" for an untouched table.
  std::string Changed() const {
    std::string text;
    const auto add = [&text](bool differs, const std::string& item) {
      if (differs) text += (text.empty() ? "" : " ") + item;
    };
    add(count != 7, fmt::format("count={}", count));
    add(countmax != 0, fmt::format("countmax={}", countmax));
    add(level != 3, fmt::format("level={}", level));
    add(ratio != 0.5f, fmt::format("ratio={}", ratio));
    add(scale != 2.0, fmt::format("scale={}", scale));
    add(label != nullptr, fmt::format("label={}", label ? label : ""));
    add(mark != 'x', fmt::format("mark={}", mark));
    add(verbose, "verbose");
    add(toggle, "toggle");
    add(weight(0) != 0 || weight(1) != 0 || weight(2) != 0,
        fmt::format("weight={},{},{}", weight(0), weight(1), weight(2)));
    add(weight_storage[0] != -9.0 || weight_storage[4] != -9.0, "guards");
    int seen = 0;
    for (const ArgumentRecord& row : rows) seen += row.seen_count;
    add(seen != 0, fmt::format("seen={}", seen));
    return text;
  }
};

TEST(ArgumentParser, CommandLines) {
  struct Case {
    std::vector<std::string> args;
    std::string err;      // standard error; a case without "Error" must succeed
    std::string changed;  // SmallTable::Changed() after the walk
  };
  const std::vector<Case> cases = {
      // Integers take base 0 (hex, octal) and ignore trailing text; extreme
      // values of each width; a negative number is a value, not a switch.
      {{"-count", "0x1F", "-countmax", "010"}, "", "count=31 countmax=8 seen=2"},
      {{"-count", "-2147483648", "-level", "4294967295", "-ratio", "0.1", "-scale", "-1e-300",
        "-label", "a b", "-mark", "q"},
       "",
       "count=-2147483648 level=4294967295 ratio=0.1 scale=-1e-300 label=a b mark=q seen=6"},
      // A unique prefix selects its row; an exact name beats longer ones.
      {{"-lab", "x", "-countm", "4", "-count", "5"}, "", "count=5 countmax=4 label=x seen=3"},
      // Booleans: no value, or a following switch, means true.
      {{"-verbose", "-count", "5"}, "", "count=5 verbose seen=2"},
      // Missing values.
      {{"-count"}, "Argument Error: Integer argument needed: -count\n", ""},
      {{"-ratio"}, "Argument Error: Real number argument needed: -ratio\n", ""},
      // Numbers out of the variable's range are narrowed modulo 2^32.
      {{"-count", "4294967293", "-level", "-1"}, "", "count=-3 level=4294967295 seen=2"},
      {{"-count", "2147483648", "-level", "4294967296"}, "", "count=-2147483648 level=0 seen=2"},
      // Values that are not numbers.
      {{"-count", "abc"}, "Argument Error: Integer argument needed: -count abc\n", ""},
      {{"-mark", "ab"}, "Argument Error: Character argument needed: -mark ab\n", ""},
      // The walk stops at the first error.
      {{"-count", "x", "-level", "5"}, "Argument Error: Integer argument needed: -count x\n", ""},
      // Ambiguous (several matches without an exact one, a lone dash) and unknown switches.
      {{"-cou", "1"}, "Argument Error: Ambiguous switch: -cou\n", ""},
      {{"-zzz", "1"}, "Argument Error: Unknown switch: -zzz\n", ""},
  };
  for (const Case& c : cases) {
    std::string line;
    for (const std::string& a : c.args) line += a + " ";
    SCOPED_TRACE(line);
    SmallTable t;
    const WalkResult r = t.Walk(c.args);
    const bool error = c.err.find("Error") != std::string::npos;
    EXPECT_EQ(r.status, error ? ArgumentParser::kError : ArgumentParser::kOk);
    EXPECT_EQ(r.err, c.err);
    EXPECT_EQ(t.Changed(), c.changed);
  }

  // A str value is a copy that outlives the argument text.
  SmallTable t;
  std::vector<std::string> args = {"-label", "temporary"};
  t.Walk(args);
  args[1].assign("overwritten");
  EXPECT_STREQ(t.label, "temporary");
}

TEST(ArgumentParser, BooleanWords) {
  // Upper-cased and matched as prefixes; "O" is taken as ON.
  const std::pair<std::string, int> words[] = {
      {"t", 1},  {"Yes", 1},    {"on", 1},     {"1", 1},     {"TRUE", 1}, {"tR", 1},    {"y", 1},
      {"o", 1},  {"f", 0},      {"n", 0},      {"off", 0},   {"0", 0},    {"FALSE", 0}, {"No", 0},
      {"of", 0}, {"maybe", -1}, {"truex", -1}, {"yess", -1}, {"10", -1},  {"", -1},     {"2", -1}};
  for (const auto& [word, meaning] : words) {
    SmallTable t;
    t.verbose = meaning == 0;
    const WalkResult r = t.Walk({"-verbose", word});
    EXPECT_EQ(r.err,
              meaning < 0 ? "Argument Error: Boolean argument needed: -verbose " + word + "\n" : "")
        << word;
    EXPECT_EQ(t.verbose, meaning == 1) << word;
  }
}

TEST(ArgumentParser, ArgumentFiles) {
  const testing::TempDir dir;
  const std::string path = dir.Write("good.args",
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
  // Read through the switch or any prefix of it, then the command line goes on.
  for (const std::string typed : {"-argsfilename", "-a"}) {
    SmallTable t;
    WalkResult r = t.Walk({typed, path, "-level", "9"});
    EXPECT_EQ(r.status, ArgumentParser::kOk);
    EXPECT_EQ(r.err, "Argument Warning: Skipping unknown switch in " + path +
                         " : unknownthing,\nArgument Warning: Skipping unknown switch in " + path +
                         " : weight2,\n");
    EXPECT_EQ(t.Changed(),
              "count=12 countmax=3 level=9 scale=0.5 label=hello mark=z verbose toggle seen=8");
  }
  // A bad value: reported, the file stops, the command line goes on.
  const std::string bad = dir.Write("bad.args", "count abc\nlevel 8\n");
  SmallTable t;
  WalkResult r = t.Walk({"-argsfilename", bad, "-scale", "4"});
  EXPECT_EQ(r.status, ArgumentParser::kOk);
  EXPECT_EQ(r.err, "Argument Error: Integer argument needed: count abc\nArgument Error: Error in " +
                       bad + "\n");
  EXPECT_EQ(t.level, 3u);
  EXPECT_EQ(t.scale, 4.0);
  // An ambiguous name, a name without its value, a missing file.
  const std::string ambiguous = dir.Write("amb.args", "cou 3\n");
  const std::string no_value = dir.Write("novalue.args", "count\n");
  EXPECT_EQ(CaptureStderrOf([&] {
              for (const std::string& file : {ambiguous, no_value, dir.File("missing.args")}) {
                EXPECT_EQ(t.parser.ReadArgumentsFile(file.c_str()), ArgumentParser::kError);
              }
            }),
            "Argument Error: Ambiguous switch in " + ambiguous + " : cou\n" +
                "Argument Error: Integer argument needed: count\n" + "Argument Error: Error in " +
                no_value + "\n" +
                "Argument Error: Can't file argument file: " + dir.File("missing.args") + "\n");
  // Line length: 32766 characters and a newline fill the buffer; one fewer fits.
  const std::string fits_value(32765 - 6, 'v');
  const std::string fits = dir.Write("fits.args", "label=" + fits_value + "\n");
  const std::string too_long = dir.Write("long.args", "label=" + std::string(32760, 'v') + "\n");
  EXPECT_EQ(CaptureStderrOf([&] {
              EXPECT_EQ(t.parser.ReadArgumentsFile(fits.c_str()), ArgumentParser::kOk);
              EXPECT_EQ(t.parser.ReadArgumentsFile(too_long.c_str()), ArgumentParser::kError);
            }),
            "Argument Error: Line length too long in command line parameter arguments file: " +
                too_long + "\n");
  EXPECT_EQ(std::string(t.label), fits_value);
}

// Cases that end the process with status 1 and a message.
TEST(ArgumentParser, FatalCases) {
  const testing::TempDir dir;
  const auto walk_in_child = [](std::vector<std::string> args, int type = -1) {
    return RunInChild([&] {
      SmallTable t;
      if (type >= 0) t.rows[1].type = static_cast<uint8_t>(type);
      Argv argv(args);
      t.parser.WalkCommandLine(argv.argc(), argv.pointers.data());
      return 0;
    });
  };
  std::vector<std::pair<ChildOutcome, std::string>> outcomes;
  // Recursion, also through a prefix; the file switch without a file name.
  for (const std::string line : {"argsfilename other.args\n", "a\n"}) {
    const std::string path = dir.Write("recursive.args", "count 3\n" + line);
    outcomes.push_back({walk_in_child({"-argsfilename", path}),
                        "Argument Error: Can not recursively parse arguments from files\n\n"});
  }
  outcomes.push_back({walk_in_child({"-count", "1", "-argsf"}),
                      "Argument Error: Expecting file name after argsfilename argument flag\n\n"});
  // A record whose type code was damaged.
  outcomes.push_back(
      {walk_in_child({"-count", "1"}, 9), "Argument Error: Unknown internal argument\n"});
  for (const auto& [outcome, message] : outcomes) {
    EXPECT_TRUE(outcome.exited && outcome.status == 1) << outcome;
    EXPECT_EQ(outcome.err, message);
  }
}

// Random command lines of switch prefixes, array forms and junk values: the
// parser never crashes, never writes outside its variables, and reports an
// error exactly when it says so.
TEST(ArgumentParser, RandomCommandLines) {
  const testing::TempDir dir;
  const std::string file = dir.Write("f.args", "count 3\nbogus 1\nverbose off\nlabel=x\n");
  const std::vector<std::string> switches = {
      "-count",   "-countmax", "-cou",      "-c",       "-level",    "-ratio", "-r",
      "-scale",   "-label",    "-mark",     "-verbose", "-toggle",   "-t",     "-weight",
      "-weight0", "-weight1",  "-weight3",  "-weight4", "-weight-1", "-help",  "-",
      "--",       "-zzz",      "-categflg", "-noflg",   "-nofl_fnd", "-scale1"};
  std::vector<std::string> values = {"", std::string(300, '9')};
  std::istringstream words(
      "0 1 -1 0x 0x7fffffff 1e999 nan -inf t no abc 4294967296 999999999999999999999 08 0.5e x --");
  for (std::string word; words >> word;) values.push_back(word);
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
    WalkResult r = t.Walk(args);
    ASSERT_TRUE(r.status == ArgumentParser::kOk || r.status == ArgumentParser::kError);
    EXPECT_EQ(r.status == ArgumentParser::kError,
              r.err.find("Argument Error:") != std::string::npos)
        << r.err;
    EXPECT_EQ(t.weight_storage[0], -9.0);
    EXPECT_EQ(t.weight_storage[4], -9.0);
  }
}

}  // namespace
}  // namespace velmor
