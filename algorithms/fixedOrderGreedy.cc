#include "algorithms/fixedOrderGreedy.h"

#include <algorithm>
#include <stdexcept>

#include "algorithms/greedyCommon.h"
#include "sets/FixedGroundSet.h"
#include "utils/error_messages.h"

namespace velmor {

bool FixedOrderGreedyConstrained(const SubmodularFunction& f,
                                 const DownClosedSetConstraint& constraint, int cardinality_limit,
                                 const std::vector<int>& fixed_order, const Set& inclusion,
                                 const Set& conditioning, double /*algorithm_value*/,
                                 GainPermit gain_permit, UnorderedHashSet* solution,
                                 std::vector<int>* order, std::vector<float>* gains,
                                 double* value) {
  const int n = f.GroundSetSize();
  if (const auto problem = internal::GreedyArgumentProblem(
          f, constraint, cardinality_limit, FixedGroundSet(n), inclusion, conditioning)) {
    VELMOR_THROW(std::invalid_argument, "%s", problem->c_str());
  }
  for (int e : fixed_order) {
    if (e < 0 || e >= n)
      VELMOR_THROW(std::invalid_argument, "Invalid element = %d in the fixed order.", e);
  }
  if (order == nullptr && gains == nullptr && solution == nullptr) return false;

  const int k = std::min(constraint.SizeLimit(), cardinality_limit);
  internal::GreedyRunState state(f, constraint, inclusion, conditioning);
  if (order != nullptr) order->clear();
  if (gains != nullptr) gains->clear();
  for (int e : fixed_order) {
    if (state.current.size() >= k) break;
    if (state.excluded.contains(e) || !state.Feasible(e)) continue;
    const double gain = state.function_context->DisjointGain(e);
    if (internal::GainPermitStops(gain_permit, gain)) break;
    state.Add(e);
    if (order != nullptr) order->push_back(e);
    if (gains != nullptr) gains->push_back(static_cast<float>(gain));
  }
  internal::FinishGreedyRun(f, conditioning, state, solution, value);
  return true;
}

}  // namespace velmor
