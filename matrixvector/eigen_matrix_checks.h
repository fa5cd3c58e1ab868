#ifndef VELMOR_MATRIXVECTOR_EIGEN_MATRIX_CHECKS_H_
#define VELMOR_MATRIXVECTOR_EIGEN_MATRIX_CHECKS_H_

// Entry-wise value checks that the matrix-based set functions apply to the
// matrices they are given, refusing values their mathematics cannot accept:
// a wrong sign, NaN or infinity. A caller scans its matrix entry by entry and
// stops at the first entry that fails.

namespace velmor {

// Which tests CheckValueThrowWithInfo makes. Each enabled test fails a value
// as follows; the tests run in this order and only the first failing one counts.
struct ValueCheckFlags {
  bool non_negative = false;  // value >= 0
  bool positive = false;      // value > 0
  bool negative = false;      // value < 0
  bool non_positive = false;  // value <= 0
  bool nan = false;           // value is NaN
  bool any_inf = false;       // |value| > largest finite value of the type
  bool plus_inf = false;      // value > 0 and |value| > largest finite value
  bool minus_inf = false;     // value < 0 and |value| > largest finite value
  // Not a test: whether a failing value throws or only makes the check
  // return false.
  bool throw_on_failure = true;
};

// Flags that refuse NaN and both infinities, throwing on failure.
inline ValueCheckFlags NanAndInfValueCheckFlags() {
  ValueCheckFlags flags;
  flags.nan = true;
  flags.any_inf = true;
  return flags;
}

// Returns true when `value` passes every enabled test of `flags`. A failing
// value returns false when flags.throw_on_failure is off and otherwise throws
// std::invalid_argument with the failing test's message, e.g.
// "Matrix contains negative value -1 at (row,col)=(2,3).". Row and column are
// given in the matrix's element type and printed in {fmt}'s default form.
// T is float or double.
template <typename T>
bool CheckValueThrowWithInfo(const ValueCheckFlags& flags, T value, T row, T col);

// The library-wide switch that makes set functions check their matrices when
// they are normalized. On at start; thread-safe.
bool MatrixValueChecksEnabled();
void SetMatrixValueChecksEnabled(bool enabled);

}  // namespace velmor

#endif  // VELMOR_MATRIXVECTOR_EIGEN_MATRIX_CHECKS_H_
