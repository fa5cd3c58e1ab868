#include "summarization/SummaryPlan.h"

namespace velmor {

std::int64_t SummaryPlan::FunctionGroup::Items() const {
  switch (kind) {
    case Kind::kFacilityLocation:
    case Kind::kDispersion:
      return std::visit([](const auto& input) { return input.Items(); }, dense);
    case Kind::kSparseFacilityLocation:
    case Kind::kSparseDispersion:
      return std::visit([](const auto& matrix) -> std::int64_t { return matrix.rows(); }, sparse);
    case Kind::kCentrality:
      break;
  }
  return static_cast<std::int64_t>(centrality.size());
}

}  // namespace velmor
