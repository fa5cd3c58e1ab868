#ifndef VELMOR_TESTS_ALGORITHMS_GREEDY_TEST_UTIL_H_
#define VELMOR_TESTS_ALGORITHMS_GREEDY_TEST_UTIL_H_

// Shared by the algorithm tests: random objectives, a naive greedy built on
// whole-set evaluation and capture of the "optm" log.

#include <gtest/gtest.h>
#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "algorithms/greedy_max.h"
#include "constraints/DownClosedSetConstraint.h"
#include "functions/FacilityLocationFunction.h"
#include "functions/MixtureSetFunction.h"
#include "functions/ModularFunction.h"
#include "sets/UnorderedHashSet.h"
#include "support/located_messages.h"
#include "support/sets.h"
#include "utils/logging.h"

namespace velmor::testing {

constexpr int kNoLimit = 2147483647;

// What a greedy algorithm returns.
struct GreedyRun {
  explicit GreedyRun(int n) : solution(n) {}
  UnorderedHashSet solution;
  std::vector<int> order;
  std::vector<float> gains;
  double value = 0.0;
  std::int64_t evaluations = 0;
};

// What must hold of any run: the solution is the inclusion plus the order,
// feasible and within the limit; no conditioning element is chosen; gains (when
// returned) are the marginal gains of the prefixes and the value is
// f(solution ∪ C) - f(C), both within `tolerance` (gains are stored as float).
inline void ExpectValidRun(const SetFunction& f, const DownClosedSetConstraint& constraint,
                           int limit, const Set& inclusion, const Set& conditioning,
                           const GreedyRun& run, double tolerance) {
  UnorderedHashSet prefix(f.GroundSetSize());
  prefix.insertSet(inclusion);
  prefix.insertSet(conditioning);
  EXPECT_TRUE(run.gains.empty() || run.gains.size() == run.order.size());
  for (std::size_t i = 0; i < run.order.size(); ++i) {
    const int e = run.order[i];
    EXPECT_FALSE(prefix.contains(e)) << e;
    EXPECT_TRUE(run.solution.contains(e)) << e;
    const double before = f.Evaluate(prefix);
    prefix.insert(e);
    const double gain = f.Evaluate(prefix) - before;
    if (!run.gains.empty()) {
      EXPECT_NEAR(run.gains[i], gain, tolerance + std::abs(gain) * FLT_EPSILON) << i;
    }
  }
  EXPECT_NEAR(run.value, f.Evaluate(prefix) - f.Evaluate(conditioning), tolerance);
  EXPECT_EQ(run.solution.size(), inclusion.size() + static_cast<int>(run.order.size()));
  for (int v : inclusion) EXPECT_TRUE(run.solution.contains(v));
  EXPECT_TRUE(constraint.IsFeasible(run.solution));
  EXPECT_LE(run.solution.size(), limit);
}

// A normalized dense facility location over n elements and `landmarks`
// landmarks with similarities uniform in [0, 1).
template <typename T>
std::unique_ptr<FacilityLocationFunction<T>> RandomFacilityLocation(int n, int landmarks,
                                                                    std::mt19937& engine) {
  typename FacilityLocationFunction<T>::DenseMatrix matrix(n, landmarks);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < landmarks; ++j) matrix(i, j) = static_cast<T>(uniform(engine));
  }
  auto f = std::make_unique<FacilityLocationFunction<T>>(matrix);
  f->ComputeNormalizationConstant(false);
  return f;
}

// A mixture of two random facility locations and a modular term with
// positive weights: monotone and submodular.
template <typename T>
std::unique_ptr<MixtureSetFunction> RandomMixture(int n, std::mt19937& engine) {
  std::vector<std::unique_ptr<SetFunction>> components;
  components.push_back(RandomFacilityLocation<T>(n, 1 + static_cast<int>(engine() % 20), engine));
  components.push_back(RandomFacilityLocation<T>(n, 1 + static_cast<int>(engine() % 20), engine));
  std::vector<T> weights(static_cast<std::size_t>(n));
  std::uniform_real_distribution<double> uniform(0.0, 0.05);
  for (T& w : weights) w = static_cast<T>(uniform(engine));
  components.push_back(std::make_unique<ModularFunction<T>>(weights));
  return std::make_unique<MixtureSetFunction>(std::move(components),
                                              std::vector<double>{1.0, 0.5, 2.0});
}

// Whole-set greedy: each step takes the candidate with the largest
// f(S ∪ C + e) - f(S ∪ C) among those with S + e feasible and |S| < limit.
// `margin` receives, per step, the smallest relative distance between the
// best gain and any other one; a step with a tiny margin cannot decide an order.
struct NaiveGreedyResult {
  std::vector<int> order;
  std::vector<double> gains;
  double smallest_margin = DBL_MAX;
};

inline NaiveGreedyResult NaiveGreedy(const SetFunction& f,
                                     const DownClosedSetConstraint& constraint, int limit,
                                     const Set& candidates, const Set& inclusion,
                                     const Set& conditioning) {
  const int n = f.GroundSetSize();
  NaiveGreedyResult result;
  UnorderedHashSet current(n), with_conditioning(n);
  current.insertSet(inclusion);
  with_conditioning.insertSet(inclusion);
  with_conditioning.insertSet(conditioning);
  while (current.size() < limit) {
    const double base = f.Evaluate(with_conditioning);
    int best = -1;
    double best_gain = -DBL_MAX, second_gain = -DBL_MAX;
    for (int e = 0; e < n; ++e) {
      if (!candidates.contains(e) || with_conditioning.contains(e)) continue;
      current.insert(e);
      const bool feasible = constraint.IsFeasible(current);
      current.remove(e);
      if (!feasible) continue;
      with_conditioning.insert(e);
      const double gain = f.Evaluate(with_conditioning) - base;
      with_conditioning.remove(e);
      if (gain > best_gain) {
        second_gain = best_gain;
        best_gain = gain;
        best = e;
      } else if (gain > second_gain) {
        second_gain = gain;
      }
    }
    if (best < 0) break;
    if (second_gain > -DBL_MAX) {
      result.smallest_margin =
          std::min(result.smallest_margin, (best_gain - second_gain) / (1.0 + std::abs(best_gain)));
    }
    result.order.push_back(best);
    result.gains.push_back(best_gain);
    current.insert(best);
    with_conditioning.insert(best);
  }
  return result;
}

// The standard greedy's lazy evaluation, and both evaluations on 2 and 3
// threads (lazy also in small batches on up to 5), against the plain scan on one thread: the same
// order, gains, value and solution, bit for bit; so too when the first step's gains are read from
// the plain run's ancillary array. Returns the gain evaluations of the plain
// scan and of the lazy one.
struct EvaluationCounts {
  std::int64_t plain = 0;
  std::int64_t lazy = 0;
};
inline EvaluationCounts ExpectSameAsPlainScan(const SubmodularFunction& f,
                                              const DownClosedSetConstraint& constraint, int limit,
                                              const Set& candidates, const Set& inclusion,
                                              const Set& conditioning,
                                              GainPermit permit = kNeverStopOnGain) {
  struct Run {
    UnorderedHashSet solution;
    std::vector<int> order;
    std::vector<float> gains;
    double value = 0.0;
    greedy_max::GreedyAncillaryResults ancillary;
  };
  const auto run = [&](bool lazy, int threads, const greedy_max::GreedyAncillaryResults* reused,
                       int batch = 0) {
    Run r;
    if (reused != nullptr) r.ancillary = *reused;
    EXPECT_TRUE(GreedyConstrainedMaximization(
        f, constraint, limit, candidates, inclusion, conditioning, permit, &r.solution, &r.order,
        &r.gains, &r.value, &r.ancillary, {.lazy = lazy, .threads = threads, .lazy_batch = batch}));
    return r;
  };
  const auto expect_same = [](const Run& a, const Run& b, const std::string& what) {
    EXPECT_EQ(a.order, b.order) << what;
    ASSERT_EQ(a.gains.size(), b.gains.size()) << what;
    for (std::size_t i = 0; i < a.gains.size(); ++i) {
      EXPECT_EQ(std::signbit(a.gains[i]), std::signbit(b.gains[i])) << what << " " << i;
      EXPECT_EQ(a.gains[i], b.gains[i]) << what << " " << i;
    }
    EXPECT_EQ(a.value, b.value) << what;
    EXPECT_EQ(a.solution.size(), b.solution.size()) << what;
    for (int v : a.solution) EXPECT_TRUE(b.solution.contains(v)) << what << " " << v;
  };
  const Run plain = run(false, 1, nullptr);
  EvaluationCounts counts{plain.ancillary.number_of_gain_evaluations, 0};
  for (const int threads : {1, 2, 3}) {
    for (const bool lazy : {false, true}) {
      if (!lazy && threads == 1) continue;
      const Run other = run(lazy, threads, nullptr);
      expect_same(plain, other,
                  std::string(lazy ? "lazy" : "plain") + " on " + std::to_string(threads));
      if (lazy && threads == 1) counts.lazy = other.ancillary.number_of_gain_evaluations;
    }
  }
  // Lazy re-evaluations in small batches split between up to five threads.
  for (const auto& [batch, threads] : {std::pair{2, 5}, std::pair{3, 3}, std::pair{7, 2}}) {
    expect_same(plain, run(true, threads, nullptr, batch), "batches of " + std::to_string(batch));
  }
  if (plain.ancillary.singleton_gains_precomputed) {
    expect_same(run(false, 1, &plain.ancillary), run(true, 1, &plain.ancillary),
                "first gains read from the array");
  }
  return counts;
}

// Whether the gains of f's growing context never rise as its set grows, bit
// for bit, over `steps` random additions.
inline bool ComputedGainsNeverRose(const SetFunction& f, int steps, std::mt19937& engine) {
  const int n = f.GroundSetSize();
  auto context = f.MakeGrowingContext(UnorderedHashSet(n));
  std::vector<int> outside(static_cast<std::size_t>(n));
  for (int e = 0; e < n; ++e) outside[static_cast<std::size_t>(e)] = e;
  std::vector<double> before(outside.size());
  for (int e = 0; e < n; ++e) before[static_cast<std::size_t>(e)] = context->DisjointGain(e);
  bool never_rose = true;
  for (int step = 0; step < steps && !outside.empty(); ++step) {
    const std::size_t pick = engine() % outside.size();
    context->AddNewElementToContext(outside[pick], true);
    outside.erase(outside.begin() + static_cast<std::ptrdiff_t>(pick));
    for (const int e : outside) {
      const double after = context->DisjointGain(e);
      if (after > before[static_cast<std::size_t>(e)]) never_rose = false;
      before[static_cast<std::size_t>(e)] = after;
    }
  }
  return never_rose;
}

// While alive, every message of the "optm" logger (debug and up) is kept.
class OptmLogCapture {
 public:
  OptmLogCapture()
      : logger_(logging::GetLogger("optm")),
        sink_(std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(100000)),
        old_level_(logger_->level()) {
    sink_->set_pattern("%v");
    logger_->sinks().push_back(sink_);
    logger_->set_level(spdlog::level::debug);
  }
  ~OptmLogCapture() {
    auto& sinks = logger_->sinks();
    sinks.erase(std::remove(sinks.begin(), sinks.end(), sink_), sinks.end());
    logger_->set_level(old_level_);
  }
  std::vector<std::string> Lines() const { return sink_->last_formatted(); }
  bool Contains(const std::string& text) const {
    for (const std::string& line : Lines()) {
      if (line.find(text) != std::string::npos) return true;
    }
    return false;
  }

 private:
  std::shared_ptr<spdlog::logger> logger_;
  std::shared_ptr<spdlog::sinks::ringbuffer_sink_mt> sink_;
  spdlog::level::level_enum old_level_;
};

}  // namespace velmor::testing

#endif  // VELMOR_TESTS_ALGORITHMS_GREEDY_TEST_UTIL_H_
