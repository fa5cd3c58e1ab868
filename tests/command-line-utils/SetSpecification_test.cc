#include "command-line-utils/SetSpecification.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "support/temp_files.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

std::set<int> Sorted(const Set& s) { return {s.begin(), s.end()}; }

TEST(SetSpecification, ListsRangesAndFiles) {
  const testing::TempDir dir;
  std::mt19937 engine(1);
  EXPECT_TRUE(Sorted(ParseSetSpecification("", 10, engine, "set-inclusion")).empty());
  EXPECT_TRUE(Sorted(ParseSetSpecification("   ", 10, engine, "set-inclusion")).empty());
  EXPECT_EQ(Sorted(ParseSetSpecification("0,5, 7-9 ,5", 10, engine, "x")),
            (std::set<int>{0, 5, 7, 8, 9}));
  EXPECT_EQ(Sorted(ParseSetSpecification("3-3", 10, engine, "x")), std::set<int>{3});

  const std::string text = dir.Write("set.txt", "# chosen\n1 2,3\n\n9 # last\n");
  EXPECT_EQ(Sorted(ParseSetSpecification(text, 10, engine, "x")), (std::set<int>{1, 2, 3, 9}));
  const std::string json = dir.Write("set.json", R"({"set": [4, 0, 4]})");
  EXPECT_EQ(Sorted(ParseSetSpecification(json, 10, engine, "x")), (std::set<int>{0, 4}));
  testing::RunPython(dir, "np.save('set.npy', np.array([8, 1, 6], dtype=np.int64))");
  EXPECT_EQ(Sorted(ParseSetSpecification(dir.File("set.npy"), 10, engine, "x")),
            (std::set<int>{1, 6, 8}));
}

TEST(SetSpecification, RandomDraws) {
  std::mt19937 a(7), b(7);
  const std::set<int> first = Sorted(ParseSetSpecification("RAND(25)", 100, a, "x"));
  EXPECT_EQ(first.size(), 25u);
  EXPECT_EQ(first, Sorted(ParseSetSpecification("RAND(25)", 100, b, "x")));  // same seed, same set
  EXPECT_NE(first, Sorted(ParseSetSpecification("RAND(25)", 100, b, "x")));  // the engine moved on
  EXPECT_EQ(ParseSetSpecification("RAND(10%)", 55, a, "x").size(), 6);       // 5.5 rounds to 6
  EXPECT_EQ(ParseSetSpecification("RAND(100%)", 9, a, "x").size(), 9);
  EXPECT_EQ(ParseSetSpecification("RAND(0)", 9, a, "x").size(), 0);
  // Every element is equally likely: counts over many draws stay near the mean.
  std::vector<int> counts(20, 0);
  for (int draw = 0; draw < 4000; ++draw) {
    for (int v : ParseSetSpecification("RAND(5)", 20, a, "x"))
      ++counts[static_cast<std::size_t>(v)];
  }
  for (int c : counts) EXPECT_NEAR(c, 1000, 150);
}

TEST(SetSpecification, Errors) {
  const testing::TempDir dir;
  std::mt19937 engine(1);
  const auto error = [&](const std::string& set_string,
                         int n) -> std::pair<std::string, std::string> {
    try {
      ParseSetSpecification(set_string, n, engine, "set-deletion");
    } catch (const exception::InputDataError& e) {
      return {"input", e.what()};
    } catch (const exception::CommandLineError& e) {
      std::string text = e.what();
      try {
        std::rethrow_if_nested(e);
      } catch (const std::exception& inner) {
        text += std::string(" | ") + inner.what();
      }
      return {"command", text};
    }
    return {"none", ""};
  };
  // Elements outside [0, n) are data errors.
  EXPECT_EQ(error("3,10", 10).first, "input");
  EXPECT_NE(error("3,10", 10).second.find("Set element 10 is outside the ground set [0, 10)."),
            std::string::npos);
  EXPECT_EQ(error("-1", 10).first, "input");  // a negative element
  EXPECT_EQ(error("RAND(11)", 10).first, "input");
  // Malformed strings name the option.
  for (const char* bad : {"1,,2", "a", "5-2", "1-x", "RAND(x)", "RAND(120%)", "2.5"}) {
    const auto [kind, text] = error(bad, 10);
    EXPECT_EQ(kind, "command") << bad;
    EXPECT_NE(text.find("of option 'set-deletion'."), std::string::npos) << text;
  }
  // Unreadable or malformed files are data errors naming the file.
  EXPECT_EQ(error("/nonexistent/set.txt", 10).first, "input");
  EXPECT_EQ(error(dir.Write("bad.json", R"({"set": [1, "two"]})"), 10).first, "input");
  EXPECT_NE(error(dir.Write("bad2.json", "{set: "), 10).second.find("is not valid JSON"),
            std::string::npos);
}

}  // namespace
}  // namespace velmor
