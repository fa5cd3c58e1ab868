#include "utils/error_messages.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "support/located_messages.h"
#include "utils/exceptions.h"
#include "utils/top_level_error_report.h"

namespace velmor::exception {
namespace {

std::string EmptyText() { return std::string(); }

// Three levels of nesting, each layer wrapping the one below.
[[noreturn]] void ThrowThreeDeep() {
  try {
    try {
      try {
        throw std::runtime_error("root cause");
      } catch (...) {
        std::throw_with_nested(std::invalid_argument("middle"));
      }
    } catch (...) {
      std::throw_with_nested(InputDataError("upper"));
    }
  } catch (...) {
    std::throw_with_nested(CommandLineError("top"));
  }
}

TEST(ErrorMessages, SourceMessageShape) {
  const int line = __LINE__ + 2;
  const std::string message =
      VELMOR_SOURCE_MESSAGE("Element %d invalid for set with |V|=%d.", 7, 3);
  // File base name without directory or extension, then the real line and function.
  const auto parts = velmor::testing::SplitLocated(message);
  ASSERT_TRUE(parts) << message;
  EXPECT_EQ(parts->file, "error_messages_test");
  EXPECT_EQ(parts->line, line);
  EXPECT_EQ(parts->function, "TestBody");
  EXPECT_EQ(parts->text, "Element 7 invalid for set with |V|=3.");

  // Inside a lambda the function is operator().
  const auto from_lambda = [] { return VELMOR_SOURCE_MESSAGE("x"); }();
  EXPECT_NE(from_lambda.find(":operator()]] x"), std::string::npos) << from_lambda;

  // The finished-text overload does no formatting and accepts an empty text.
  EXPECT_EQ(MakeSourceMessage("f", "g", 12, std::string("100%d")), "[[@f:12:g]] 100%d");
  EXPECT_EQ(MakeSourceMessage("f", "g", 12, std::string()), "[[@f:12:g]] ");
}

TEST(ErrorMessages, EmptyAndLongTexts) {
  // Empty formatted texts: an error for source messages, fine for command messages.
  try {
    (void)MakeSourceMessage("f", "g", 1, "%s", EmptyText().c_str());
    FAIL() << "empty source message accepted";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "Problem making source message.");
  }
  EXPECT_EQ(MakeCommandMessage("%s", EmptyText().c_str()), "");

  // Long texts are cut to 1023 characters; the prefix does not count.
  const std::string long_text(3000, 'x');
  EXPECT_EQ(MakeCommandMessage("%s", long_text.c_str()), std::string(1023, 'x'));
  EXPECT_EQ(MakeSourceMessage("f", "g", 1, "%s", long_text.c_str()),
            "[[@f:1:g]] " + std::string(1023, 'x'));
}

TEST(ErrorMessages, ThrowMacrosAndNestedChains) {
  // The macros locate the message and nest the cause below it.
  try {
    try {
      VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", -1);
    } catch (...) {
      VELMOR_THROW_NESTED(InputDataError, "Problems loading %s matrix.", "FL");
    }
    ADD_FAILURE() << "nothing thrown";
  } catch (const InputDataError& e) {
    std::ostringstream chain;
    PrintNestedExceptions(chain, e, 2, 2, '+');
    EXPECT_EQ(velmor::testing::StripLocations(std::string(e.what()) + "\n" + chain.str()),
              "Problems loading FL matrix.\n++ Invalid element = -1.\n");
    const auto inner = velmor::testing::SplitLocated(chain.str().substr(3));
    EXPECT_TRUE(inner && inner->function == "TestBody") << chain.str();
  }
  // Three nested levels: two, four and six fill characters, each and a blank
  // (the top-level report below); the first level and fill are the caller's.
  try {
    ThrowThreeDeep();
  } catch (const std::exception& e) {
    std::ostringstream custom;
    PrintNestedExceptions(custom, e, 1, 3, '*');
    EXPECT_EQ(custom.str(), "* upper\n++++ middle\n++++++ root cause\n");
  }
  // A nested exception not derived from std::exception ends the chain silently.
  try {
    try {
      throw 42;
    } catch (...) {
      std::throw_with_nested(std::runtime_error("outer"));
    }
  } catch (const std::exception& e) {
    std::ostringstream chain;
    PrintNestedExceptions(chain, e, 2, 2, '+');
    EXPECT_EQ(chain.str(), "");
  }
}

TEST(ErrorMessages, TopLevelReport) {
  const auto report_of = [](auto thrower) {
    try {
      thrower();
    } catch (...) {
      return TopLevelErrorReportText(std::current_exception());
    }
    return std::string("nothing thrown");
  };
  // Our own exceptions name their source.
  EXPECT_EQ(report_of([] { throw CommandLineError("bad switch"); }),
            "ERROR DETECTED: Command line argument: bad switch\n");
  EXPECT_EQ(report_of([] { throw InputDataError("bad file"); }),
            "ERROR DETECTED: Specified input data: bad file\n");
  EXPECT_EQ(report_of([] { throw InputAndOrParameterDataError("nan"); }),
            "ERROR DETECTED: Input data and/or parameters applied thereon: nan\n");
  // Memory, standard and unknown exceptions.
  EXPECT_EQ(report_of([] { throw std::bad_alloc(); }),
            "ERROR DETECTED: Memory allocation failure exception caught: std::bad_alloc\n");
  EXPECT_EQ(report_of([] { throw std::invalid_argument("arg"); }),
            "ERROR DETECTED: Exception caught: arg\n");
  EXPECT_EQ(report_of([] { throw 3.5; }), "ERROR DETECTED: Unknown exception caught: \n");
  // The chain follows the first line.
  EXPECT_EQ(
      report_of([] { ThrowThreeDeep(); }),
      "ERROR DETECTED: Command line argument: top\n++ upper\n++++ middle\n++++++ root cause\n");

  // The runner returns the work's status, or 1 after a report.
  EXPECT_EQ(TopLevelErrorReport([] { return 0; }), 0);
  EXPECT_EQ(TopLevelErrorReport([]() -> int { throw std::runtime_error("x"); }), 1);
}

}  // namespace
}  // namespace velmor::exception
