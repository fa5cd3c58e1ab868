#include "matrixvector/eigen_matrix_checks.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

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

  // Each test fails on one value, with "Matrix contains <what> at
  // (row,col)=(2,3)."; and passes on the values just beyond its boundary. Sign
  // tests carry the value; zero and negative zero are not negative. Specials
  // carry only the position.
  const struct {
    bool ValueCheckFlags::*flag;
    T failing;
    const char* what;
    std::vector<T> passing;
  } cases[] = {
      {&ValueCheckFlags::non_negative, T(0), "non-negative value 0", {T(-0.5)}},
      {&ValueCheckFlags::positive, T(1.5), "positive value 1.5", {T(0)}},
      {&ValueCheckFlags::negative, T(-2.25), "negative value -2.25", {T(0), T(-0.0)}},
      {&ValueCheckFlags::non_positive, T(0), "non-positive value 0", {T(1e-30)}},
      {&ValueCheckFlags::nan, nan, "IEEE FP NaN value", {inf}},
      {&ValueCheckFlags::any_inf, -inf, "IEEE FP +/- Inf value", {std::numeric_limits<T>::max()}},
      {&ValueCheckFlags::plus_inf, inf, "IEEE FP +Inf value", {-inf}},
      {&ValueCheckFlags::minus_inf, -inf, "IEEE FP -Inf value", {inf}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(std::string("Matrix contains ") + c.what + " at (row,col)=(2,3).",
              Verdict(Only(c.flag), c.failing));
    for (const T value : c.passing) EXPECT_EQ("pass", Verdict(Only(c.flag), value)) << c.what;
  }

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
