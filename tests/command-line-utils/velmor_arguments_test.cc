#include "command-line-utils/velmor_arguments.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "command-line-utils/child_process.h"

namespace velmor {
namespace {

using testing_support::ChildOutcome;
using testing_support::RunInChild;

std::vector<const ArgumentRecord*> Rows() {
  std::vector<const ArgumentRecord*> rows;
  for (const ArgumentRecord* r = ProgramArgumentTable(); !r->IsEnd(); ++r) rows.push_back(r);
  return rows;
}

const ArgumentRecord* Row(const std::string& name) {
  for (const ArgumentRecord* r : Rows()) {
    if (!r->IsHeading() && name == r->name) return r;
  }
  return nullptr;
}

// Parses a command line with the program's parser in a child process (the
// option variables are global); the child's status is 10 + the parse result,
// or what the process exit gives.
template <typename Check>
ChildOutcome ParseInChild(std::vector<std::string> args, Check check) {
  return RunInChild([&] {
    std::vector<std::string> all = {"quillo"};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& s : all) argv.push_back(s.data());
    argv.push_back(nullptr);
    const bool ok = ParseArguments(static_cast<int>(all.size()), argv.data(), "help");
    return check() ? 10 + (ok ? 1 : 0) : 50;
  });
}

TEST(OptionCatalogue, TableStructure) {
  const std::vector<const ArgumentRecord*> rows = Rows();
  int headings = 0, options = 0;
  std::set<std::string> names;
  for (const ArgumentRecord* r : rows) {
    ASSERT_NE(r->name, nullptr);
    if (r->IsHeading()) {
      ++headings;
      const std::string heading = r->description;
      EXPECT_TRUE(heading.rfind("****", 0) == 0 || heading.rfind("  ----", 0) == 0) << heading;
      EXPECT_EQ(r->help_level, 1);
      continue;
    }
    ++options;
    const std::string name = r->name;
    EXPECT_TRUE(names.insert(name).second) << "duplicate " << name;
    EXPECT_NE(r->target, nullptr) << name;
    EXPECT_NE(r->description, nullptr) << name;
    EXPECT_FALSE(r->is_array) << name;
    EXPECT_EQ(r->help_level, 1) << name;
    EXPECT_FALSE(r->IsPositional()) << name;
    EXPECT_EQ(r->kind, name == "help" ? ArgumentRecord::kHelp : ArgumentRecord::kOptional) << name;
    // Not swallowed by the argument-file switch, in either direction.
    EXPECT_NE(std::strncmp(name.c_str(), "argsfilename", name.size()), 0) << name;
    EXPECT_NE(name.rfind("argsfilename", 0), 0u) << name;
  }
  // The catalogue's 17 groups and 103 options, then the greedy algorithm's and
  // the precision's groups.
  EXPECT_EQ(headings, 19);
  EXPECT_EQ(options, 105);
  // Each group starts with its heading; the first and last rows.
  EXPECT_TRUE(rows.front()->IsHeading());
  EXPECT_STREQ(rows.front()->description, "**** Facility location (FL) function");
  EXPECT_STREQ(rows[1]->name, "flfilename");
  const std::size_t last = rows.size() - 1;
  EXPECT_STREQ(rows[last - 4]->name, "help");
  EXPECT_EQ(rows[last - 4]->type, ArgumentRecord::kBool);
  EXPECT_STREQ(rows[last - 3]->description, "**** Greedy algorithm");
  EXPECT_STREQ(rows[last - 2]->name, "greedyalgorithm");
  EXPECT_EQ(rows[last - 2]->type, ArgumentRecord::kStr);
  EXPECT_STREQ(rows[last]->name, "precision");
}

TEST(OptionCatalogue, RowsBindTheirVariablesWithDefaults) {
  using namespace options;
  struct Expected {
    const char* name;
    uint8_t type;
    const void* variable;
  };
  const std::vector<Expected> bindings = {
      {"flfilename", ArgumentRecord::kStr, &flfilename},
      {"flrows", ArgumentRecord::kInteger, &flrows},
      {"fl-set-contraction", ArgumentRecord::kStr, &fl_set_contraction},
      {"fl2centralityccfspec", ArgumentRecord::kStr, &fl2centralityccfspec},
      {"spflsoftness", ArgumentRecord::kDouble, &spflsoftness},
      {"ssd2nonormalize", ArgumentRecord::kBool, &ssd2nonormalize},
      {"spssd2transformation", ArgumentRecord::kStr, &spssd2transformation},
      {"ctrl-lograndomevalsolutions", ArgumentRecord::kBool, &ctrl_lograndomevalsolutions},
      {"imjson", ArgumentRecord::kStr, &imjson},
      {"optm-logiterperiod", ArgumentRecord::kInteger, &optm_logiterperiod},
      {"ctrl-logbalancereport", ArgumentRecord::kUnsigned, &ctrl_logbalancereport},
      {"set-contraction", ArgumentRecord::kStr, &set_contraction},
      {"outfilegains", ArgumentRecord::kStr, &outfilegains},
      {"sumsize", ArgumentRecord::kInteger, &sumsize},
      {"ctrl-logpartialenumperiod", ArgumentRecord::kInteger, &ctrl_logpartialenumperiod},
      {"seed", ArgumentRecord::kInteger, &seed},
      {"help", ArgumentRecord::kBool, &help},
  };
  for (const Expected& e : bindings) {
    const ArgumentRecord* r = Row(e.name);
    ASSERT_NE(r, nullptr) << e.name;
    EXPECT_EQ(r->type, e.type) << e.name;
    EXPECT_EQ(r->target, e.variable) << e.name;
  }
  // No default (null) against an empty default.
  EXPECT_EQ(flfilename, nullptr);
  ASSERT_NE(fltransformation, nullptr);
  EXPECT_STREQ(fltransformation, "");
  EXPECT_EQ(spfltransformation, nullptr);
  EXPECT_STREQ(ssdtransformation, "");
  EXPECT_EQ(spssdtransformation, nullptr);
  EXPECT_STREQ(flcentralityspec, "ROWMIN()");
  EXPECT_STREQ(fl2centralityccfspec, "LINEAR()");
  EXPECT_EQ(loglevels, nullptr);
  // Numbers and switches.
  EXPECT_EQ(flrows, -1);
  EXPECT_EQ(ssd2cols, -1);
  EXPECT_EQ(flresponsibility, 1.0);
  EXPECT_EQ(spssd2responsibility, 1.0);
  EXPECT_EQ(flcentralityresponsibility, 0.0);
  EXPECT_EQ(fl2asymiterations, 0);
  EXPECT_EQ(sumsize, 2147483647);
  EXPECT_EQ(numlibthreads, -1);
  EXPECT_EQ(ctrl_logpartialenumperiod, 100);
  EXPECT_EQ(seed, 12345);
  EXPECT_EQ(ctrl_logbalancereport, 0u);
  EXPECT_TRUE(clogconcise);
  EXPECT_TRUE(ctrl_lognpv);
  EXPECT_TRUE(ctrl_logval);
  EXPECT_TRUE(ctrl_loglimits);
  EXPECT_FALSE(clogtimestamps);
  EXPECT_FALSE(rseed);
  EXPECT_FALSE(help);
  // Help texts as the usage prints them.
  EXPECT_STREQ(Row("set-deletion")->description,
               "Deletion set D:  f': 2^{V \\ D} \\to \\R, where f'(A) = f(A).");
  EXPECT_STREQ(Row("flohexpand")->description,
               "Treat FL input matrix as integer encoded one-hot & expand to dense 0/1 valued "
               "one-hot before using.");
}

TEST(OptionCatalogue, CommandLines) {
  using namespace options;
  // flc is shared by flcols and the flcentrality rows; fl by the whole group.
  for (const char* typed : {"-flc", "-fl"}) {
    ChildOutcome o = ParseInChild({typed, "5"}, [] { return flcols == -1; });
    EXPECT_EQ(o.status, 10);
    EXPECT_EQ(o.err, std::string("Argument Error: Ambiguous switch: ") + typed + "\n");
  }
  // Full names, a negative number as a value, a bool followed by a switch.
  ChildOutcome ok = ParseInChild(
      {"-flcols", "5", "-sumsize", "-3", "-flnonormalize", "-fl-set-contraction", "0:2",
       "-ctrl-logval", "off", "-flfilename", "sim.npy", "-ctrl-logbalancereport", "2"},
      [] {
        return flcols == 5 && sumsize == -3 && flnonormalize &&
               std::strcmp(fl_set_contraction, "0:2") == 0 && !ctrl_logval &&
               std::strcmp(flfilename, "sim.npy") == 0 && ctrl_logbalancereport == 2u &&
               fl2cols == -1;
      });
  EXPECT_EQ(ok.status, 11) << ok.err;
  EXPECT_EQ(ok.err, "");
}

TEST(OptionCatalogue, HelpPrintsUsageAndExits) {
  ChildOutcome o = ParseInChild({"-sumsize", "4", "-help"}, [] { return true; });
  EXPECT_TRUE(o.exited);
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");

  std::istringstream lines(o.out);
  std::string line;
  std::vector<std::string> all;
  while (std::getline(lines, line)) all.push_back(line);
  ASSERT_EQ(all.size(), 2u + 19u + 105u + 1u);
  EXPECT_EQ(all[0], "Usage: quillo  [[[-flag] [option]] ...]");
  EXPECT_EQ(all[1], "Required: <>; Optional: []; Flagless arguments must be in order.");
  EXPECT_EQ(all[2], "**** Facility location (FL) function");
  EXPECT_EQ(all.back().substr(0, 20), " [-argsfilename str]");

  // Every option line: " [-name type]", blanks, "   description {value}"; the
  // descriptions share one column, and the widest entry has no extra blanks.
  std::set<std::size_t> columns;
  bool some_line_unpadded = false;
  std::map<std::string, std::string> by_name;
  for (std::size_t i = 2; i < all.size(); ++i) {
    const std::string& l = all[i];
    if (l.rfind("****", 0) == 0 || l.rfind("  ----", 0) == 0) continue;
    ASSERT_EQ(l.substr(0, 3), " [-") << l;
    const std::size_t close = l.find(']');
    ASSERT_NE(close, std::string::npos);
    const std::size_t description = l.find_first_not_of(' ', close + 1);
    ASSERT_GE(description, close + 4) << l;
    columns.insert(description);
    some_line_unpadded |= description == close + 4;
    ASSERT_EQ(l.back(), '}') << l;
    by_name[l.substr(3, l.find(' ', 3) - 3)] = l;
  }
  EXPECT_EQ(columns.size(), 1u);
  EXPECT_TRUE(some_line_unpadded);
  // Current values: the given one, defaults, null text, bool letters, %e reals.
  const std::size_t column = *columns.begin();
  auto tail = [&](const std::string& name) { return by_name.at(name).substr(column); };
  EXPECT_EQ(tail("sumsize"),
            "The size, k, of the summary (-p means k=(n+1-p), p>0), must have k<=n. {4}");
  EXPECT_EQ(tail("flfilename"),
            "Facility location input matrix .csv, .npy, or .bin file name. {null}");
  EXPECT_EQ(tail("fltransformation"), "Matrix transformation spec for FL input matrix. {}");
  EXPECT_EQ(tail("flresponsibility"),
            "Responsibility of FL function when used with other functions. {1.000000e+00}");
  EXPECT_EQ(tail("clogconcise"), "Concise printing in console logging. {T}");
  EXPECT_EQ(tail("help"), "Print help message {T}");
  EXPECT_EQ(by_name.at("ctrl-logbalancereport")
                .substr(0, column)
                .find("[-ctrl-logbalancereport unsigned]"),
            1u);
  EXPECT_EQ(by_name.size(), 106u);  // the rows and the argument-file switch
  EXPECT_EQ(tail("greedyalgorithm").substr(0, 32), "Greedy algorithm: standard (the ");
}

TEST(OptionCatalogue, ArgumentFileAndMissingArguments) {
  const std::string dir = testing_support::MakeTemporaryDirectory();
  const std::string path = dir + "/run.args";
  {
    std::FILE* f = std::fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fputs("# summary of ten\nsumsize=10\nflfilename sim.npy\nsomething 3\nclogtimestamps\n",
               f);
    std::fclose(f);
  }
  ChildOutcome o = ParseInChild({"-argsfilename", path, "-seed", "7"}, [] {
    using namespace options;
    return sumsize == 10 && std::strcmp(flfilename, "sim.npy") == 0 && clogtimestamps && seed == 7;
  });
  EXPECT_EQ(o.status, 11) << o.err;
  EXPECT_EQ(o.err, "Argument Warning: Skipping unknown switch in " + path + " : something,\n");
  std::remove(path.c_str());
  ::rmdir(dir.c_str());

  // A bad value makes ParseArguments fail (the driver turns that into its
  // "Poorly formed command line arguments." error).
  ChildOutcome bad =
      ParseInChild({"-sumsize", "ten"}, [] { return options::sumsize == 2147483647; });
  EXPECT_EQ(bad.status, 10);
  EXPECT_EQ(bad.err, "Argument Error: Integer argument needed: -sumsize ten\n");
}

}  // namespace
}  // namespace velmor
