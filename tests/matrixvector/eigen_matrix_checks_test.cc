#include "matrixvector/eigen_matrix_checks.h"

#include <gtest/gtest.h>

#include <limits>
#include <regex>
#include <stdexcept>
#include <string>

namespace velmor {
namespace {

// What the check says about a value at (row, col) = (2, 3): "pass",
// "fail" (false without an error) or the error's message without its prefix.
template <typename T>
std::string Verdict(const ValueCheckFlags& flags, T value) {
  try {
    return CheckValueThrowWithInfo<T>(flags, value, T(2), T(3)) ? "pass" : "fail";
  } catch (const std::invalid_argument& e) {
    const std::string what = e.what();
    const std::regex prefix(R"(\[\[@eigen_matrix_checks:\d+:CheckValueThrowWithInfo\]\] (.*))");
    std::smatch match;
    if (!std::regex_match(what, match, prefix)) return "bad prefix: " + what;
    return match[1];
  }
}

ValueCheckFlags Only(bool ValueCheckFlags::*field) {
  ValueCheckFlags flags;
  flags.*field = true;
  flags.throw_on_failure = true;
  return flags;
}

template <typename T>
class ValueCheckTest : public ::testing::Test {};
using ElementTypes = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ValueCheckTest, ElementTypes);

TYPED_TEST(ValueCheckTest, EachTestAndItsMessage) {
  using T = TypeParam;
  const T inf = std::numeric_limits<T>::infinity();
  const T nan = std::numeric_limits<T>::quiet_NaN();

  // Sign tests carry the value.
  EXPECT_EQ("Matrix contains non-negative value 0 at (row,col)=(2,3).",
            Verdict(Only(&ValueCheckFlags::non_negative), T(0)));
  EXPECT_EQ("pass", Verdict(Only(&ValueCheckFlags::non_negative), T(-0.5)));
  EXPECT_EQ("Matrix contains positive value 1.5 at (row,col)=(2,3).",
            Verdict(Only(&ValueCheckFlags::positive), T(1.5)));
  EXPECT_EQ("pass", Verdict(Only(&ValueCheckFlags::positive), T(0)));
  EXPECT_EQ("Matrix contains negative value -2.25 at (row,col)=(2,3).",
            Verdict(Only(&ValueCheckFlags::negative), T(-2.25)));
  EXPECT_EQ("Matrix contains non-positive value 0 at (row,col)=(2,3).",
            Verdict(Only(&ValueCheckFlags::non_positive), T(0)));
  EXPECT_EQ("pass", Verdict(Only(&ValueCheckFlags::non_positive), T(1e-30)));

  // Zero and negative zero are not negative.
  EXPECT_EQ("pass", Verdict(Only(&ValueCheckFlags::negative), T(0)));
  EXPECT_EQ("pass", Verdict(Only(&ValueCheckFlags::negative), T(-0.0)));

  // Specials carry only the position.
  EXPECT_EQ("Matrix contains IEEE FP NaN value at (row,col)=(2,3).", Verdict(Only(&ValueCheckFlags::nan), nan));
  EXPECT_EQ("pass", Verdict(Only(&ValueCheckFlags::nan), inf));
  EXPECT_EQ("Matrix contains IEEE FP +/- Inf value at (row,col)=(2,3).",
            Verdict(Only(&ValueCheckFlags::any_inf), -inf));
  EXPECT_EQ("pass", Verdict(Only(&ValueCheckFlags::any_inf), std::numeric_limits<T>::max()));
  EXPECT_EQ("Matrix contains IEEE FP +Inf value at (row,col)=(2,3).", Verdict(Only(&ValueCheckFlags::plus_inf), inf));
  EXPECT_EQ("pass", Verdict(Only(&ValueCheckFlags::plus_inf), -inf));
  EXPECT_EQ("Matrix contains IEEE FP -Inf value at (row,col)=(2,3).", Verdict(Only(&ValueCheckFlags::minus_inf), -inf));
  EXPECT_EQ("pass", Verdict(Only(&ValueCheckFlags::minus_inf), inf));

  // Nothing enabled: everything passes.
  ValueCheckFlags none;
  for (const T value : {T(0), T(-1), inf, nan}) EXPECT_EQ("pass", Verdict(none, value));
}

TYPED_TEST(ValueCheckTest, OrderAndThrowSwitch) {
  using T = TypeParam;
  const T inf = std::numeric_limits<T>::infinity();
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
  // Positions print in {fmt}'s default form.
  EXPECT_THROW(
      {
        try {
          CheckValueThrowWithInfo<T>(Only(&ValueCheckFlags::negative), T(-1), T(12345), T(0));
        } catch (const std::invalid_argument& e) {
          EXPECT_NE(std::string::npos, std::string(e.what()).find("value -1 at (row,col)=(12345,0)."));
          throw;
        }
      },
      std::invalid_argument);
}

TEST(MatrixValueChecksSwitch, OnAtStartAndSettable) {
  EXPECT_TRUE(MatrixValueChecksEnabled());
  SetMatrixValueChecksEnabled(false);
  EXPECT_FALSE(MatrixValueChecksEnabled());
  SetMatrixValueChecksEnabled(true);
  EXPECT_TRUE(MatrixValueChecksEnabled());
}

}  // namespace
}  // namespace velmor
