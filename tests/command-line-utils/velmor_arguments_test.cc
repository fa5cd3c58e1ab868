#include "command-line-utils/velmor_arguments.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/child_process.h"

namespace velmor {
namespace {

// Every option is reachable under its full name: one command line giving each
// of them (but -help) a value of its type parses, and marks each row seen once
// (a repeated name leaves a row unseen). No name is the start of the
// argument-file switch or starts with it.
TEST(OptionTable, EveryOptionParsesUnderItsFullName) {
  const testing::ChildOutcome o = testing::RunInChild([] {
    std::vector<std::string> args = {"quillo"};
    const std::string file_switch = "argsfilename";
    for (const ArgumentRecord* row = ProgramArgumentTable(); !row->IsEnd(); ++row) {
      if (row->IsHeading() || row->kind == ArgumentRecord::kHelp) continue;
      const std::string name = row->name;
      if (file_switch.rfind(name, 0) == 0 || name.rfind(file_switch, 0) == 0) return 3;
      args.push_back("-" + name);
      const char* values[] = {"3", "3", "0.5", "0.5", "text", "c", "on"};
      args.push_back(values[row->type]);
    }
    if (args.size() <= 1 + 2 * 100) return 4;  // more than 100 options
    std::vector<char*> argv;
    for (std::string& s : args) argv.push_back(s.data());
    if (!ParseArguments(static_cast<int>(argv.size()), argv.data(), "help")) return 1;
    int wrong = 0;
    for (const ArgumentRecord* row = ProgramArgumentTable(); !row->IsEnd(); ++row) {
      if (row->IsHeading() || row->kind == ArgumentRecord::kHelp) continue;
      if (row->seen_count != 1) {
        std::fprintf(stderr, "%s seen %d times\n", row->name, row->seen_count);
        ++wrong;
      }
    }
    return wrong == 0 ? 0 : 2;
  });
  EXPECT_TRUE(o.exited);
  EXPECT_EQ(o.status, 0) << o;
}

}  // namespace
}  // namespace velmor
