#include "matrixvector/eigen_matrix_checks.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>

#include "support/float_types.h"
#include "support/located_messages.h"

namespace velmor {
namespace {

template <typename T>
class ValueCheckTest : public ::testing::Test {};
TYPED_TEST_SUITE(ValueCheckTest, testing::FloatTypes);

// What the check says about a value at (row, col) = (2, 3): "pass",
// "fail" (false without an error) or the error's message without its prefix.
template <typename T>
std::string Verdict(const ValueCheckFlags& flags, T value) {
  try {
    return CheckValueThrowWithInfo<T>(flags, value, T(2), T(3)) ? "pass" : "fail";
  } catch (const std::invalid_argument& e) {
    const std::string what = e.what();
    const auto parts = velmor::testing::SplitLocated(what);
    if (!parts || parts->file != "eigen_matrix_checks" ||
        parts->function != "CheckValueThrowWithInfo") {
      return "bad prefix: " + what;
    }
    return parts->text;
  }
}

ValueCheckFlags Only(bool ValueCheckFlags::*field) {
  ValueCheckFlags flags;
  flags.*field = true;
  flags.throw_on_failure = true;
  return flags;
}

// Each test alone, its message, and the order in which they are tried.
TYPED_TEST(ValueCheckTest, EachTestItsMessageAndTheOrder) {
  using T = TypeParam;
  const T inf = std::numeric_limits<T>::infinity();
  const T nan = std::numeric_limits<T>::quiet_NaN();

  const struct {
    bool ValueCheckFlags::*flag;
    T value;
    const char* verdict;
  } cases[] = {
      // Sign tests carry the value; zero and negative zero are not negative.
      {&ValueCheckFlags::non_negative, T(0),
       "Matrix contains non-negative value 0 at (row,col)=(2,3)."},
      {&ValueCheckFlags::non_negative, T(-0.5), "pass"},
      {&ValueCheckFlags::positive, T(1.5),
       "Matrix contains positive value 1.5 at (row,col)=(2,3)."},
      {&ValueCheckFlags::positive, T(0), "pass"},
      {&ValueCheckFlags::negative, T(-2.25),
       "Matrix contains negative value -2.25 at (row,col)=(2,3)."},
      {&ValueCheckFlags::negative, T(0), "pass"},
      {&ValueCheckFlags::negative, T(-0.0), "pass"},
      {&ValueCheckFlags::non_positive, T(0),
       "Matrix contains non-positive value 0 at (row,col)=(2,3)."},
      {&ValueCheckFlags::non_positive, T(1e-30), "pass"},
      // Specials carry only the position.
      {&ValueCheckFlags::nan, nan, "Matrix contains IEEE FP NaN value at (row,col)=(2,3)."},
      {&ValueCheckFlags::nan, inf, "pass"},
      {&ValueCheckFlags::any_inf, -inf,
       "Matrix contains IEEE FP +/- Inf value at (row,col)=(2,3)."},
      {&ValueCheckFlags::any_inf, std::numeric_limits<T>::max(), "pass"},
      {&ValueCheckFlags::plus_inf, inf, "Matrix contains IEEE FP +Inf value at (row,col)=(2,3)."},
      {&ValueCheckFlags::plus_inf, -inf, "pass"},
      {&ValueCheckFlags::minus_inf, -inf, "Matrix contains IEEE FP -Inf value at (row,col)=(2,3)."},
      {&ValueCheckFlags::minus_inf, inf, "pass"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.verdict, Verdict(Only(c.flag), c.value)) << c.value;

  // Nothing enabled: everything passes.
  ValueCheckFlags none;
  for (const T value : {T(0), T(-1), inf, nan}) EXPECT_EQ("pass", Verdict(none, value));
  // A NaN passes the sign test and fails the NaN test.
  ValueCheckFlags flags = Only(&ValueCheckFlags::negative);
  flags.nan = true;
  EXPECT_EQ("Matrix contains IEEE FP NaN value at (row,col)=(2,3).",
            Verdict(flags, std::numeric_limits<T>::quiet_NaN()));
  // The first failing test counts: "+/- Inf" comes before "+Inf"; a sign test before both.
  flags = Only(&ValueCheckFlags::any_inf);
  flags.plus_inf = true;
  EXPECT_EQ("Matrix contains IEEE FP +/- Inf value at (row,col)=(2,3).", Verdict(flags, inf));
  flags.positive = true;
  EXPECT_EQ("Matrix contains positive value inf at (row,col)=(2,3).", Verdict(flags, inf));
  // Without throwing, a failure is a false result.
  flags.throw_on_failure = false;
  EXPECT_EQ("fail", Verdict(flags, inf));
  EXPECT_EQ("pass", Verdict(flags, T(-3)));
}

}  // namespace
}  // namespace velmor
