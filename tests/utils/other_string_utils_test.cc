#include "utils/other_string_utils.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/located_messages.h"

namespace velmor {
namespace {

TEST(StringUtils, TokenCutting) {
  EXPECT_EQ(YankOutAlphaNumericTokenPrefixFromStringStartingAtOffset("abc_1+x", 0), "abc_1");
  EXPECT_EQ(YankOutAlphaNumericTokenPrefixFromStringStartingAtOffset("abc_1+x", 5), "");
  EXPECT_EQ(YankOutAlphaNumericTokenPrefixFromStringStartingAtOffset("abc_1+x", 6), "x");
  EXPECT_EQ(YankOutAlphaNumericTokenPrefixFromStringStartingAtOffset("abc_1+x", 7), "");
  EXPECT_EQ(YankOutAlphaNumericTokenPrefixFromStringStartingAtOffset("abc_1+x", 70), "");
  testing::ExpectLocatedError<std::runtime_error>(
      [] { YankOutAlphaNumericTokenPrefixFromStringStartingAtOffset("abc", -2); },
      "other_string_utils", "YankOutAlphaNumericTokenPrefixFromStringStartingAtOffset",
      "Can't use negative offset = -2.");
}

TEST(StringUtils, KeywordMatching) {
  const char* rows[] = {"ROWMIN", "ROWMAX"};
  // Partial agreement: ROWMIN agrees on 4 characters, ROWMAX on 6.
  EXPECT_EQ(FindBestPrefixMatchInStringList("ROWMAX()", 0, rows, 2), std::make_pair(1, 6u));
  EXPECT_EQ(FindBestPrefixMatchInStringList("ROWMIN()", 0, rows, 2), std::make_pair(0, 6u));
  // From an offset.
  EXPECT_EQ(FindBestPrefixMatchInStringList("x|ROWMAX()", 2, rows, 2), std::make_pair(1, 6u));
  // A keyword equal to the whole key wins at once, before a later equal-length match.
  const char* exact[] = {"RBF", "RBFX", "RBF"};
  EXPECT_EQ(FindBestPrefixMatchInStringList("RBF", 0, exact, 3), std::make_pair(0, 3u));
  // Nothing agrees, no keywords, empty key.
  const char* none[] = {"COSINE", "", "DOT"};
  EXPECT_EQ(FindBestPrefixMatchInStringList("KNN(3)", 0, none, 3), std::make_pair(-1, 0u));
  EXPECT_EQ(FindBestPrefixMatchInStringList("KNN(3)", 0, none, 0), std::make_pair(-1, 0u));
  EXPECT_EQ(FindBestPrefixMatchInStringList("", 0, none, 3), std::make_pair(-1, 0u));
  // Empty keywords are skipped; equal lengths with the first keyword best are no error.
  EXPECT_EQ(FindBestPrefixMatchInStringList("DOT()", 0, none, 3), std::make_pair(2, 3u));
  const char* firsts[] = {"SCALE", "SHIFT"};
  EXPECT_EQ(FindBestPrefixMatchInStringList("S", 0, firsts, 1), std::make_pair(0, 1u));

  // Two keywords agreeing equally, the later one not first: double match;
  // invalid offsets and null keywords.
  const char* with_null[] = {"abc", nullptr};
  const std::string function = "FindBestPrefixMatchInStringList";
  testing::ExpectLocatedErrors<std::runtime_error>(
      "other_string_utils",
      {{[&] { FindBestPrefixMatchInStringList("S(2)", 0, firsts, 2); }, function,
        "At least double match: match (1,1,'SHIFT') and previous match (0,1,'SCALE') for search "
        "key 'S(2)'."},
       {[&] { FindBestPrefixMatchInStringList("abc", 3, rows, 2); }, function,
        "Invalid starting offset 3 for search key 'abc' of size 3."},
       {[&] { FindBestPrefixMatchInStringList("abc", -1, rows, 2); }, function,
        "Invalid starting offset -1 for search key 'abc' of size 3."},
       {[&] { FindBestPrefixMatchInStringList("abx", 0, with_null, 2); }, function,
        "found nullptr keyword."}});
}

}  // namespace
}  // namespace velmor
