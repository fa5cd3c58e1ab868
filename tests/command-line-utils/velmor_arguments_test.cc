#include "command-line-utils/velmor_arguments.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/child_process.h"

namespace velmor {
namespace {

std::vector<std::string> OptionNames() {
  std::vector<std::string> names;
  for (const ArgumentRecord* row = ProgramArgumentTable(); !row->IsEnd(); ++row) {
    if (!row->IsHeading()) names.emplace_back(row->name);
  }
  return names;
}

// Every option is reachable under its full name: one command line giving each
// of them (but -help) a value of its type parses, and marks each row seen once.
TEST(OptionTable, EveryOptionParsesUnderItsFullName) {
  const testing::ChildOutcome o = testing::RunInChild([] {
    std::vector<std::string> args = {"quillo"};
    for (const ArgumentRecord* row = ProgramArgumentTable(); !row->IsEnd(); ++row) {
      if (row->IsHeading() || row->kind == ArgumentRecord::kHelp) continue;
      args.push_back(std::string("-") + row->name);
      const char* values[] = {"3", "3", "0.5", "0.5", "text", "c", "on"};
      args.push_back(values[row->type]);
    }
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
  EXPECT_GT(OptionNames().size(), 100u);
}

// Names are distinct, do not collide with the argument-file switch, and
// leave most options a short unique prefix.
TEST(OptionTable, NamesAndPrefixes) {
  const std::vector<std::string> names = OptionNames();
  int unique_prefixes = 0;
  for (std::size_t i = 0; i < names.size(); ++i) {
    for (std::size_t j = i + 1; j < names.size(); ++j) EXPECT_NE(names[i], names[j]);
    EXPECT_NE(std::string("argsfilename").rfind(names[i], 0), 0u) << names[i];
    EXPECT_NE(names[i].rfind("argsfilename", 0), 0u) << names[i];
    for (std::size_t length = 1; length <= names[i].size(); ++length) {
      int matches = 0;
      for (const std::string& other : names)
        matches += other.compare(0, length, names[i], 0, length) == 0;
      unique_prefixes += matches == 1;
    }
  }
  EXPECT_GT(unique_prefixes, 100);
}

}  // namespace
}  // namespace velmor
