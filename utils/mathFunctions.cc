#include "utils/mathFunctions.h"

#include <cmath>
#include <stdexcept>

#include "utils/error_messages.h"

namespace velmor {

double ComputeTwoVectorDifferenceRMSE(const std::vector<double>& a, const std::vector<double>& b) {
  if (a.size() != b.size()) {
    VELMOR_THROW(std::invalid_argument,
                 "Invalid argument, vector lengths (%ld and %ld) msut be the same.",
                 static_cast<long>(a.size()), static_cast<long>(b.size()));
  }
  if (a.empty()) return 0.0;
  double sum = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const double d = a[i] - b[i];
    sum += d * d;
  }
  return std::sqrt(sum / static_cast<double>(a.size()));
}

}  // namespace velmor
