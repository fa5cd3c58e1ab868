// The contraction and conditional-mutual-information wrappers inside both
// greedy algorithms: the same summary from each, feasible, and a value equal
// to the wrapped function's own evaluation of the summary.

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "algorithms/acceleratedGreedyMax.h"
#include "algorithms/greedy_max.h"
#include "algorithms/greedy_test_util.h"
#include "constraints/CardinalitySetConstraint.h"
#include "functions/CombinatorialConditionalMutualInformationWrapperSetFunction.h"
#include "functions/ContractionWrapperSetFunction.h"

namespace velmor {
namespace {

using testing::SetOf;

TEST(WrappedFunctionsInGreedy, StandardAndAcceleratedAgree) {
  for (unsigned seed = 1; seed <= 8; ++seed) {
    std::mt19937 engine(seed);
    const int n = 40;
    const auto fl = testing::RandomFacilityLocation<double>(n, 23, engine);
    std::vector<std::unique_ptr<SubmodularFunction>> wrapped;
    wrapped.push_back(std::make_unique<ContractionWrapperSetFunction<SubmodularFunction>>(
        *fl, SetOf(n, {1, 7, 30})));
    wrapped.push_back(
        std::make_unique<
            CombinatorialConditionalMutualInformationWrapperSetFunction<SubmodularFunction>>(
            *fl, SetOf(n, {2, 3, 11, 19}), SetOf(n, {5, 25})));
    const CardinalitySetConstraint constraint(n, 6);
    const UnorderedHashSet candidates = testing::FullSet(n), empty(n);
    for (const auto& f : wrapped) {
      SCOPED_TRACE(f->Description() + ", seed " + std::to_string(seed));
      testing::GreedyRun standard(n), lazy(n);
      GreedyConstrainedMaximization(*f, constraint, n, candidates, empty, empty, kNeverStopOnGain,
                                    &standard.solution, &standard.order, &standard.gains,
                                    &standard.value, nullptr);
      AcceleratedGreedyConstrainedMaximization(*f, constraint, n, candidates, empty, empty, 0.0,
                                               kNeverStopOnGain, &lazy.solution, &lazy.order,
                                               &lazy.gains, &lazy.value, nullptr);
      // Equal gains and value. CMI gains saturate at the attraction set's
      // coverage, so ties are common there and may be broken differently;
      // contraction gains come without ties and give the same order.
      EXPECT_EQ(standard.gains, lazy.gains);
      EXPECT_NEAR(standard.value, lazy.value, 1e-12);
      if (f->Description().rfind("contraction", 0) == 0) {
        EXPECT_EQ(standard.order, lazy.order);
      }
      ASSERT_EQ(standard.order.size(), 6u);
      testing::ExpectValidRun(*f, constraint, n, empty, empty, standard, 1e-6);
      testing::ExpectValidRun(*f, constraint, n, empty, empty, lazy, 1e-6);
      for (std::size_t i = 1; i < standard.gains.size(); ++i)
        EXPECT_LE(standard.gains[i], standard.gains[i - 1] + 1e-6f);
    }
  }
}

}  // namespace
}  // namespace velmor
