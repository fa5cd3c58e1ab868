#ifndef VELMOR_UTILS_MATHFUNCTIONS_H_
#define VELMOR_UTILS_MATHFUNCTIONS_H_

#include <vector>

namespace velmor {

// Root-mean-square difference sqrt(sum_i (a_i - b_i)^2 / n); 0 for empty
// vectors. Throws std::invalid_argument when the lengths differ.
double ComputeTwoVectorDifferenceRMSE(const std::vector<double>& a, const std::vector<double>& b);

}  // namespace velmor

#endif  // VELMOR_UTILS_MATHFUNCTIONS_H_
