// The contraction and conditional-mutual-information wrappers inside both
// greedy algorithms: the same summary from each, feasible, and a value equal
// to the wrapped function's own evaluation of the summary.

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "algorithms/acceleratedGreedyMax.h"
#include "algorithms/greedy_max.h"
#include "constraints/CardinalitySetConstraint.h"
#include "functions/CombinatorialConditionalMutualInformationWrapperSetFunction.h"
#include "functions/ContractionWrapperSetFunction.h"
#include "functions/FacilityLocationFunction.h"
#include "sets/FixedEmptySet.h"
#include "sets/FixedGroundSet.h"

namespace velmor {
namespace {

TEST(WrappedFunctionsInGreedy, StandardAndAcceleratedAgree) {
  for (unsigned seed = 1; seed <= 8; ++seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> value(0.0, 1.0);
    const int n = 40, k = 23;
    Eigen::MatrixXd similarities(n, k);
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < k; ++j) similarities(i, j) = value(random);
    FacilityLocationFunction<double> fl(similarities);
    fl.ComputeNormalizationConstant(false);

    UnorderedHashSet contraction(n), attraction(n), neglect(n);
    for (int v : {1, 7, 30}) contraction.insert(v);
    for (int v : {2, 3, 11, 19}) attraction.insert(v);
    for (int v : {5, 25}) neglect.insert(v);
    std::vector<std::unique_ptr<SubmodularFunction>> wrapped;
    wrapped.push_back(
        std::make_unique<ContractionWrapperSetFunction<SubmodularFunction>>(fl, contraction));
    wrapped.push_back(
        std::make_unique<
            CombinatorialConditionalMutualInformationWrapperSetFunction<SubmodularFunction>>(
            fl, attraction, neglect));

    const CardinalitySetConstraint constraint(n, 6);
    const FixedGroundSet candidates(n);
    const FixedEmptySet empty(n);
    for (const auto& f : wrapped) {
      UnorderedHashSet standard_set(n), lazy_set(n);
      std::vector<int> standard_order, lazy_order;
      std::vector<float> standard_gains, lazy_gains;
      double standard_value = 0, lazy_value = 0;
      GreedyConstrainedMaximization(*f, constraint, n, candidates, empty, empty, kNeverStopOnGain,
                                    &standard_set, &standard_order, &standard_gains,
                                    &standard_value, nullptr);
      AcceleratedGreedyConstrainedMaximization(*f, constraint, n, candidates, empty, empty, 0.0,
                                               kNeverStopOnGain, &lazy_set, &lazy_order,
                                               &lazy_gains, &lazy_value, nullptr);
      // Both find summaries of equal gains and value. CMI gains saturate at
      // the attraction set's coverage, so equal gains (ties) are common there
      // and may be broken differently; contraction gains come without ties and
      // give the same order.
      EXPECT_EQ(standard_gains, lazy_gains) << f->Description() << " seed " << seed;
      EXPECT_NEAR(standard_value, lazy_value, 1e-12);
      if (f->Description().rfind("contraction", 0) == 0) {
        EXPECT_EQ(standard_order, lazy_order);
      }
      ASSERT_EQ(standard_order.size(), 6u);
      EXPECT_TRUE(constraint.IsFeasible(standard_set));
      EXPECT_NEAR(standard_value, f->Evaluate(standard_set), 1e-12);
      // Gains add up to the value, and never increase along the order.
      double total = 0;
      for (std::size_t i = 0; i < standard_gains.size(); ++i) {
        total += standard_gains[i];
        if (i > 0) {
          EXPECT_LE(standard_gains[i], standard_gains[i - 1] + 1e-6f);
        }
      }
      EXPECT_NEAR(total, standard_value, 1e-5);
    }
  }
}

}  // namespace
}  // namespace velmor
