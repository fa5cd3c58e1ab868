#ifndef VELMOR_TESTS_SUPPORT_FLOAT_TYPES_H_
#define VELMOR_TESTS_SUPPORT_FLOAT_TYPES_H_

// The element types every templated class is instantiated for, as a typed-test
// list, and tolerances derived from their precision.

#include <gtest/gtest.h>

#include <limits>

namespace velmor::testing {

using FloatTypes = ::testing::Types<float, double>;

// `ulps` units of T's precision.
template <typename T>
constexpr double Eps(double ulps = 1.0) {
  return ulps * static_cast<double>(std::numeric_limits<T>::epsilon());
}

}  // namespace velmor::testing

#endif  // VELMOR_TESTS_SUPPORT_FLOAT_TYPES_H_
