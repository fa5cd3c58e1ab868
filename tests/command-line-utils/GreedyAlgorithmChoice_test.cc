#include "command-line-utils/GreedyAlgorithmChoice.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "command-line-utils/argument_record.h"
#include "command-line-utils/velmor_arguments.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

using Kind = GreedyAlgorithmChoice::Kind;

TEST(GreedyAlgorithmChoice, ParsesNamesPrefixesEpsilonsAndThreads) {
  struct Case {
    const char* text;
    Kind kind;
    double epsilon;
    int threads;
  };
  for (const Case& c :
       {Case{"standard", Kind::kStandard, 0.1, 0}, Case{"sta", Kind::kStandard, 0.1, 0},
        Case{"a", Kind::kAccelerated, 0.1, 0},
        Case{" accelerated : 2 ", Kind::kAccelerated, 0.1, 2},
        Case{"stochastic", Kind::kStochastic, 0.1, 0}, Case{"sto(0)", Kind::kStochastic, 0.0, 0},
        Case{"stochastic( 0.25 ):16", Kind::kStochastic, 0.25, 16},
        Case{"t(0.05)", Kind::kThreshold, 0.05, 0}, Case{"threshold:1", Kind::kThreshold, 0.1, 1},
        Case{"standard:3", Kind::kStandard, 0.1, 3}}) {
    const GreedyAlgorithmChoice choice = ParseGreedyAlgorithmChoice(c.text, "greedyalgorithm");
    EXPECT_EQ(choice.kind, c.kind) << c.text;
    EXPECT_EQ(choice.epsilon, c.epsilon) << c.text;
    EXPECT_EQ(choice.threads, c.threads) << c.text;
    // The description reads back as the same choice.
    const GreedyAlgorithmChoice again =
        ParseGreedyAlgorithmChoice(choice.Description().c_str(), "x");
    EXPECT_EQ(again.kind, choice.kind);
    EXPECT_EQ(again.epsilon, choice.epsilon);
    EXPECT_EQ(again.threads, choice.threads);
  }
  EXPECT_TRUE(ParseGreedyAlgorithmChoice(nullptr, "greedyalgorithm").IsPlainStandard());
  EXPECT_TRUE(ParseGreedyAlgorithmChoice("  ", "greedyalgorithm").IsPlainStandard());
  EXPECT_FALSE(ParseGreedyAlgorithmChoice("standard:1", "greedyalgorithm").IsPlainStandard());

  struct Bad {
    const char* text;
    const char* reason;
  };
  for (const Bad& b :
       {Bad{"st", "the name is the start of more than one algorithm."},
        Bad{"lazy", "expected standard, accelerated, stochastic or threshold."},
        Bad{"(0.1)", "expected standard, accelerated, stochastic or threshold."},
        Bad{"standardx", "expected standard, accelerated, stochastic or threshold."},
        Bad{"accelerated(0.1)", "only stochastic and threshold take an epsilon."},
        Bad{"threshold(0)", "the threshold greedy's epsilon must be in (0, 1)."},
        Bad{"stochastic(1)", "the stochastic greedy's epsilon must be in [0, 1)."},
        Bad{"stochastic(nan)", "the epsilon in parentheses must be a number."},
        Bad{"threshold(0.1", "a '(' must be closed by ')' before the end or ':'."},
        Bad{"threshold()", "the epsilon in parentheses must be a number."},
        Bad{"accelerated:", "the thread count after ':' must be an integer from 1 to 4096."},
        Bad{"accelerated:0", "the thread count after ':' must be an integer from 1 to 4096."},
        Bad{"accelerated:2x", "the thread count after ':' must be an integer from 1 to 4096."}}) {
    try {
      ParseGreedyAlgorithmChoice(b.text, "greedyalgorithm");
      ADD_FAILURE() << "accepted " << b.text;
    } catch (const exception::CommandLineError& e) {
      EXPECT_EQ(std::string(e.what()), std::string("Invalid greedy algorithm '") + b.text +
                                           "' for option -greedyalgorithm: " + b.reason);
    }
  }
}

// Every option prefix that names one option of the table without the rows
// added after it (greedy algorithm, precision) still names exactly that
// option with them.
TEST(GreedyAlgorithmChoice, OptionRowLeavesEveryUniquePrefixUnique) {
  std::vector<std::string> names;
  for (const ArgumentRecord* row = ProgramArgumentTable(); !row->IsEnd(); ++row) {
    if (!row->IsHeading()) names.emplace_back(row->name);
  }
  ASSERT_EQ(names.back(), "precision");
  const std::vector<std::string> added(names.end() - 2, names.end());
  names.resize(names.size() - 2);
  int unique_prefixes = 0;
  for (const std::string& name : names) {
    for (std::size_t length = 1; length <= name.size(); ++length) {
      const std::string prefix = name.substr(0, length);
      int matches = 0;
      for (const std::string& other : names) matches += other.compare(0, length, prefix) == 0;
      if (matches != 1) continue;
      ++unique_prefixes;
      for (const std::string& row : added) EXPECT_NE(row.compare(0, length, prefix), 0) << prefix;
    }
  }
  EXPECT_GT(unique_prefixes, 100);
}

}  // namespace
}  // namespace velmor
