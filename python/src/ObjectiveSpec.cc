#include "ObjectiveSpec.h"

#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <string>
#include <thread>
#include <utility>

#include "algorithms/greedy_max.h"
#include "constraints/CardinalitySetConstraint.h"
#include "sets/FixedEmptySet.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor::python {
namespace {

using Kind = SummaryPlan::Kind;

bool HasDenseMatrix(Kind kind) {
  return kind == Kind::kFacilityLocation || kind == Kind::kDispersion;
}
bool HasSparseMatrix(Kind kind) {
  return kind == Kind::kSparseFacilityLocation || kind == Kind::kSparseDispersion;
}

// The tags the command line gives its groups: "FL", "FL2", "SPFL", ... with a
// number from the second group of a kind on.
void TagGroups(std::vector<SummaryPlan::FunctionGroup>& groups) {
  static const std::map<Kind, const char*> kBase = {{Kind::kFacilityLocation, "FL"},
                                                    {Kind::kCentrality, "FL"},
                                                    {Kind::kSparseFacilityLocation, "SPFL"},
                                                    {Kind::kDispersion, "SSD"},
                                                    {Kind::kSparseDispersion, "SPSSD"}};
  std::map<Kind, int> seen;
  for (SummaryPlan::FunctionGroup& g : groups) {
    const char* base = kBase.at(g.kind);
    const int count = ++seen[g.kind];
    g.tag = count == 1 ? std::string(base) : base + std::to_string(count);
  }
}

// The logger the objective reports its construction to: nobody listens.
spdlog::logger& SilentLogger() {
  static spdlog::logger logger("velmor-python", std::make_shared<spdlog::sinks::null_sink_mt>());
  return logger;
}

}  // namespace

ObjectiveSpec::ObjectiveSpec(SummaryPlan::FunctionGroup group) {
  groups_.push_back(std::move(group));
}

ObjectiveSpec ObjectiveSpec::Mixture(const std::vector<const ObjectiveSpec*>& parts,
                                     const std::vector<double>& weights) {
  if (parts.empty()) VELMOR_THROW(std::invalid_argument, "A mixture needs at least one function.");
  if (parts.size() != weights.size()) {
    VELMOR_THROW(std::invalid_argument, "A mixture of %zu functions got %zu weights.", parts.size(),
                 weights.size());
  }
  const int n = parts.front()->GroundSetSize();
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (!(std::isfinite(weights[i]) && weights[i] >= 0)) {
      VELMOR_THROW(std::invalid_argument, "Mixture weight %zu is %g, not a finite value >= 0.", i,
                   weights[i]);
    }
    if (parts[i]->GroundSetSize() != n) {
      VELMOR_THROW(std::invalid_argument,
                   "Mixture part %zu has ground set size %d, the first part %d.", i,
                   parts[i]->GroundSetSize(), n);
    }
  }
  ObjectiveSpec mixture(*parts.front());
  mixture.groups_.clear();
  mixture.objective_.reset();
  for (std::size_t i = 0; i < parts.size(); ++i) {
    for (SummaryPlan::FunctionGroup g : parts[i]->groups_) {
      g.responsibility *= weights[i];
      mixture.groups_.push_back(std::move(g));
    }
  }
  return mixture;
}

ObjectiveSpec ObjectiveSpec::Conditioned(std::optional<UnorderedHashSet> attraction,
                                         std::optional<UnorderedHashSet> neglect,
                                         std::optional<UnorderedHashSet> contraction) const {
  if (groups_.size() != 1 || !(groups_[0].kind == Kind::kFacilityLocation ||
                               groups_[0].kind == Kind::kSparseFacilityLocation)) {
    VELMOR_THROW(std::invalid_argument,
                 "Only a single facility-location function can be conditioned, not a mixture or "
                 "another kind.");
  }
  if (neglect && !attraction) {
    VELMOR_THROW(std::invalid_argument, "A neglect set needs an attraction set.");
  }
  ObjectiveSpec conditioned(*this);
  conditioned.objective_.reset();
  SummaryPlan::FunctionGroup& g = conditioned.groups_[0];
  if (attraction) {
    g.attraction = std::move(attraction);
    g.neglect = std::move(neglect);
  }
  if (contraction) g.contraction = std::move(contraction);
  return conditioned;
}

int ObjectiveSpec::GroundSetSize() const { return static_cast<int>(groups_.front().Items()); }

bool ObjectiveSpec::InDouble() const {
  for (const SummaryPlan::FunctionGroup& g : groups_) {
    if (HasDenseMatrix(g.kind) && g.dense.index() == 1) return true;
    if (HasSparseMatrix(g.kind) && g.sparse.index() == 1) return true;
  }
  return false;
}

const SummaryObjective& ObjectiveSpec::Objective() const {
  if (!objective_) {
    SummaryPlan plan;
    plan.groups = groups_;
    TagGroups(plan.groups);
    plan.summary_size = GroundSetSize();
    objective_ = std::make_shared<const SummaryObjective>(plan, SilentLogger());
  }
  return *objective_;
}

MaximizeResult Maximize(const SubmodularFunction& f, const DownClosedSetConstraint& constraint,
                        const MaximizeOptions& options, std::shared_ptr<RunSignals> signals) {
  const int n = f.GroundSetSize();
  const UnorderedHashSet inclusion = options.inclusion ? *options.inclusion : UnorderedHashSet(n);
  UnorderedHashSet candidates(n);
  if (options.restriction) {
    candidates = *options.restriction;
  } else {
    candidates.MakeFull();
  }
  const CancellableFunction watched(f, std::move(signals));
  MaximizeResult result;
  UnorderedHashSet solution(n);
  std::vector<float> narrowed_gains;
  // The full passes and lazy re-evaluation batches on every core, as quillo
  // runs them: the result does not depend on the thread count.
  const int pass_threads = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
  if (options.choice.IsPlainStandard()) {
    GreedyConstrainedMaximization(watched, constraint, std::numeric_limits<int>::max(), candidates,
                                  inclusion, FixedEmptySet(n), kNeverStopOnGain, &solution,
                                  &result.order, &narrowed_gains, &result.value, nullptr,
                                  {.lazy = true, .threads = pass_threads});
  } else {
    RunChosenGreedyAlgorithm(options.choice, options.seed, watched, constraint, candidates,
                             inclusion, &solution, &result.order, &narrowed_gains, &result.value,
                             pass_threads);
  }
  if (!std::isfinite(result.value)) {
    throw exception::InputAndOrParameterDataError(exception::MakeCommandMessage(
        "Solution has non-finite or NaN value (%g) when using current parameters and input. "
        "Exiting since results are likely invalid.",
        result.value));
  }
  auto context = f.MakeGrowingContext(inclusion);
  result.gains.reserve(result.order.size());
  for (const int v : result.order) {
    result.gains.push_back(context->DisjointGain(v));
    context->AddNewElementToContext(v, true);
  }
  return result;
}

}  // namespace velmor::python
