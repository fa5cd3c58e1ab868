#include "matrixvector/eigen_matrix_checks.h"

#include <fmt/format.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

#include "utils/error_messages.h"

namespace velmor {
namespace {

std::atomic<bool> matrix_value_checks_enabled{true};

}  // namespace

template <typename T>
bool CheckValueThrowWithInfo(const ValueCheckFlags& flags, T value, T row, T col) {
  const T largest = std::numeric_limits<T>::max();
  const bool beyond_largest = std::abs(value) > largest;
  std::string text;
  if (flags.non_negative && value >= 0) {
    text =
        fmt::format("Matrix contains non-negative value {} at (row,col)=({},{}).", value, row, col);
  } else if (flags.positive && value > 0) {
    text = fmt::format("Matrix contains positive value {} at (row,col)=({},{}).", value, row, col);
  } else if (flags.negative && value < 0) {
    text = fmt::format("Matrix contains negative value {} at (row,col)=({},{}).", value, row, col);
  } else if (flags.non_positive && value <= 0) {
    text =
        fmt::format("Matrix contains non-positive value {} at (row,col)=({},{}).", value, row, col);
  } else if (flags.nan && std::isnan(value)) {
    text = fmt::format("Matrix contains IEEE FP NaN value at (row,col)=({},{}).", row, col);
  } else if (flags.any_inf && beyond_largest) {
    text = fmt::format("Matrix contains IEEE FP +/- Inf value at (row,col)=({},{}).", row, col);
  } else if (flags.plus_inf && value > 0 && beyond_largest) {
    text = fmt::format("Matrix contains IEEE FP +Inf value at (row,col)=({},{}).", row, col);
  } else if (flags.minus_inf && value < 0 && beyond_largest) {
    text = fmt::format("Matrix contains IEEE FP -Inf value at (row,col)=({},{}).", row, col);
  } else {
    return true;
  }
  if (!flags.throw_on_failure) return false;
  VELMOR_THROW(std::invalid_argument, text);
}

template bool CheckValueThrowWithInfo<float>(const ValueCheckFlags&, float, float, float);
template bool CheckValueThrowWithInfo<double>(const ValueCheckFlags&, double, double, double);

bool MatrixValueChecksEnabled() {
  return matrix_value_checks_enabled.load(std::memory_order_relaxed);
}

void SetMatrixValueChecksEnabled(bool enabled) {
  matrix_value_checks_enabled.store(enabled, std::memory_order_relaxed);
}

}  // namespace velmor
