#include "algorithms/greedy_max.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <chrono>
#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>

#include "algorithms/greedyCommon.h"
#include "constraints/CardinalitySetConstraint.h"
#include "utils/error_messages.h"
#include "utils/logging.h"

namespace velmor {

namespace greedy_max {
namespace {
std::atomic<int> progress_logging_period{0};
}  // namespace

void SetProgressLoggingPeriod(int period) {
  progress_logging_period.store(period, std::memory_order_relaxed);
}
int ProgressLoggingPeriod() { return progress_logging_period.load(std::memory_order_relaxed); }

}  // namespace greedy_max

namespace {

// The best candidate of a step; element n when none is feasible.
struct StepChoice {
  int element;
  double gain;
};

// The size of lazy evaluation's batches of re-evaluations. One at a time on
// one thread; on several, batches of about half the re-evaluations the
// previous step needed, split between the threads when each thread gets at
// least least_per_thread gains (worth a thread's start), else one at a time.
class ReevaluationBatches {
 public:
  ReevaluationBatches(int threads, int fixed_size) : threads_(threads), fixed_size_(fixed_size) {}

  // A full pass of `count` gains took `seconds` on the run's threads.
  void MeasuredFullPass(int count, double seconds) {
    if (count <= 0 || threads_ <= 1) return;
    // As DisjointGainsOnThreads splits a full pass.
    const int used = std::max(1, std::min(threads_, count / internal::kLeastGainsPerThread));
    const double seconds_per_gain = seconds * used / count;
    least_per_thread_ = static_cast<int>(
        std::min(1e9, std::ceil(kThreadStartSeconds / std::max(seconds_per_gain, 1e-12))));
  }
  void StepNeeded(std::int64_t reevaluations) { last_step_ = reevaluations; }

  int threads() const { return threads_; }
  int LeastPerThread() const { return fixed_size_ > 0 ? 1 : least_per_thread_; }
  int Size() const {
    if (threads_ <= 1) return 1;
    if (fixed_size_ > 0) return fixed_size_;
    const std::int64_t least_batch = 2 * static_cast<std::int64_t>(least_per_thread_);
    if (last_step_ < least_batch) return 1;
    return static_cast<int>(std::min<std::int64_t>(std::max(last_step_ / 2, least_batch), 1 << 20));
  }

 private:
  // What starting, cloning for and joining one thread costs, about.
  static constexpr double kThreadStartSeconds = 50e-6;

  int threads_;
  int fixed_size_;
  int least_per_thread_ = 1 << 30;  // until a full pass is measured: never split
  std::int64_t last_step_ = 0;
};

// Lazy evaluation's state: for each remaining candidate a bound of its gain,
// the last gain computed for it (valid because the function's computed gains
// never rise), in a max-heap on the bound. A candidate whose gain is not
// known (never evaluated, or NaN) is bounded by +inf, so it is evaluated
// whenever it is looked at.
class StaleGainBounds {
 public:
  struct Entry {
    double bound;
    int element;
  };

  // One entry per element of `remaining` but `chosen`: the bound of the
  // feasible_candidates[j] is bounds[j]; the other elements get +inf.
  void Fill(const UnorderedHashSet& remaining, const std::vector<int>& feasible_candidates,
            const std::vector<double>& bounds, int chosen) {
    std::vector<double> bound_of(static_cast<std::size_t>(remaining.GroundSetSize()), kUnknown);
    for (std::size_t j = 0; j < feasible_candidates.size(); ++j) {
      bound_of[static_cast<std::size_t>(feasible_candidates[j])] = Bound(bounds[j]);
    }
    heap_.clear();
    heap_.reserve(static_cast<std::size_t>(remaining.size()));
    for (const int e : remaining) {
      if (e != chosen) heap_.push_back({bound_of[static_cast<std::size_t>(e)], e});
    }
    std::make_heap(heap_.begin(), heap_.end(), Lower);
  }

  // The step's choice, exactly as a full scan of `remaining` in its
  // iteration order would make it: the largest gain, the earliest in that
  // order among equal gains. Candidates are looked at in decreasing order of
  // their bounds, and the look stops at the first bound below the best gain
  // found; a bound equal to it is looked at only when its candidate comes
  // earlier in the iteration order, since only then could it win. With
  // batch_size > 1 the candidates are taken batch_size at a time against the
  // best gain before the batch and evaluated on the threads: the extra ones
  // only get exact bounds. Every entry but the chosen one goes back with its
  // new bound.
  template <typename Feasible>
  StepChoice Choose(const SetFunction::SetFunctionGrowingContext& context,
                    const UnorderedHashSet& remaining, const Feasible& feasible,
                    const ReevaluationBatches& batches, std::int64_t& evaluations) {
    const int batch_size = batches.Size();
    const int n = remaining.GroundSetSize();
    StepChoice best{n, -DBL_MAX};
    Set::Cursor best_cursor = 0;
    looked_at_.clear();
    while (!heap_.empty() && !(heap_.front().bound < best.gain)) {
      batch_.clear();
      while (!heap_.empty() && !(heap_.front().bound < best.gain) &&
             static_cast<int>(batch_.size()) < batch_size) {
        std::pop_heap(heap_.begin(), heap_.end(), Lower);
        const Entry& entry = looked_at_.emplace_back(heap_.back());
        heap_.pop_back();
        if (entry.bound == best.gain &&
            (best.element == n || remaining.CursorOf(entry.element) > best_cursor)) {
          continue;  // at best a tie that comes later: cannot win
        }
        if (!feasible(entry.element)) continue;
        batch_.push_back(static_cast<int>(looked_at_.size() - 1));
      }
      const int count = static_cast<int>(batch_.size());
      EvaluateBatch(context, batches);
      evaluations += count;
      for (int j = 0; j < count; ++j) {
        Entry& entry = looked_at_[static_cast<std::size_t>(batch_[j])];
        const double gain = batch_gains_[j];
        entry.bound = Bound(gain);
        if (gain > best.gain) {
          best = {entry.element, gain};
          best_cursor = remaining.CursorOf(entry.element);
        } else if (gain == best.gain && best.element != n) {
          const Set::Cursor cursor = remaining.CursorOf(entry.element);
          if (cursor < best_cursor) {
            best = {entry.element, gain};
            best_cursor = cursor;
          }
        }
      }
    }
    for (const Entry& entry : looked_at_) {
      if (entry.element == best.element) continue;
      heap_.push_back(entry);
      std::push_heap(heap_.begin(), heap_.end(), Lower);
    }
    return best;
  }

 private:
  static constexpr double kUnknown = std::numeric_limits<double>::infinity();
  static double Bound(double gain) { return std::isnan(gain) ? kUnknown : gain; }
  static bool Lower(const Entry& a, const Entry& b) { return a.bound < b.bound; }

  // batch_gains_[j] = the gain of looked_at_[batch_[j]]'s element.
  void EvaluateBatch(const SetFunction::SetFunctionGrowingContext& context,
                     const ReevaluationBatches& batches) {
    batch_elements_.clear();
    for (const int index : batch_) {
      batch_elements_.push_back(looked_at_[static_cast<std::size_t>(index)].element);
    }
    batch_gains_.resize(batch_elements_.size());
    const int count = static_cast<int>(batch_elements_.size());
    if (batches.Size() <= 1 || count <= 1) {
      for (int j = 0; j < count; ++j) batch_gains_[j] = context.DisjointGain(batch_elements_[j]);
      return;
    }
    internal::DisjointGainsOnThreads(context, batch_elements_.data(), count, batch_gains_.data(),
                                     batches.threads(), batches.LeastPerThread());
  }

  std::vector<Entry> heap_;
  std::vector<Entry> looked_at_;
  // The step's current batch: indices into looked_at_, elements and gains.
  std::vector<int> batch_;
  std::vector<int> batch_elements_;
  std::vector<double> batch_gains_;
};

// The first of the largest gains (strictly larger wins), or element n.
StepChoice FirstLargest(const std::vector<int>& elements, const std::vector<double>& gains,
                        int count, int n) {
  StepChoice best{n, -DBL_MAX};
  for (int j = 0; j < count; ++j) {
    if (gains[j] > best.gain) best = {elements[j], gains[j]};
  }
  return best;
}

}  // namespace

bool GreedyConstrainedMaximization(const SubmodularFunction& f,
                                   const DownClosedSetConstraint& constraint, int cardinality_limit,
                                   const Set& candidates, const Set& inclusion,
                                   const Set& conditioning, GainPermit gain_permit,
                                   UnorderedHashSet* solution, std::vector<int>* order,
                                   std::vector<float>* gains, double* value,
                                   greedy_max::GreedyAncillaryResults* ancillary,
                                   const greedy_max::StandardGreedyOptions& options) {
  const int n = f.GroundSetSize();
  if (constraint.GroundSetSize() != n || candidates.GroundSetSize() != n ||
      inclusion.GroundSetSize() != n || conditioning.GroundSetSize() != n) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, all ground set sizes must match.");
  }
  const bool inclusion_feasible = constraint.IsFeasible(inclusion);
  if (!inclusion_feasible || inclusion.size() > cardinality_limit) {
    VELMOR_THROW(
        std::invalid_argument,
        fmt::format("Inclusion set of size {} must itself be feasible, but constraint feasibility "
                    "returns {} and extra cardinality limit is {}.",
                    inclusion.size(), inclusion_feasible, cardinality_limit));
  }
  const internal::AncillaryCheck ancillary_check = internal::CheckAncillary(ancillary, n);
  if (ancillary_check.problem)
    VELMOR_THROW(std::invalid_argument, "%s", ancillary_check.problem->c_str());
  const bool use_ancillary = ancillary_check.precomputed;
  if (order == nullptr && gains == nullptr && solution == nullptr) return false;
  std::int64_t evaluations = 0;

  const std::shared_ptr<spdlog::logger> logger = logging::GetLogger("optm");
  const int progress_period = greedy_max::ProgressLoggingPeriod();

  // Working sets and contexts.
  internal::GreedyRunState state(f, constraint, inclusion, conditioning);
  UnorderedHashSet remaining = internal::RemainingSet(candidates, state.excluded);
  SetFunction::SetFunctionGrowingContext& context = *state.function_context;
  const auto feasible = [&state](int e) { return state.Feasible(e); };

  // `order` starts empty; `gains` keeps what it holds and gets room for more.
  const std::size_t most_chosen = static_cast<std::size_t>(
      std::max(0L, std::min<long>({constraint.SizeLimit(), cardinality_limit, remaining.size()})));
  if (order != nullptr) {
    order->clear();
    order->reserve(most_chosen);
  }
  if (gains != nullptr) gains->reserve(gains->size() + most_chosen);

  const bool nothing_to_choose =
      constraint.SizeLimit() == 0 || cardinality_limit < 1 || candidates.empty();
  const bool fill_ancillary =
      ancillary != nullptr && !ancillary->singleton_gains_precomputed && !nothing_to_choose;
  if (fill_ancillary) {
    ancillary->singleton_gains.assign(static_cast<std::size_t>(n),
                                      std::numeric_limits<float>::quiet_NaN());
  }
  const bool lazy = options.lazy && f.ComputedGainsNeverRise();
  StaleGainBounds stale_gains;
  ReevaluationBatches batches(options.threads, options.lazy_batch);
  const GreedyStepObserver& observer = options.observer;
  // The most this run may add, for the observer: a warm start uses up room.
  const int most = static_cast<int>(
      std::clamp<long>(std::min<long>(constraint.SizeLimit(), cardinality_limit) - inclusion.size(),
                       0L, static_cast<long>(remaining.size())));

  // Full-pass scratch, sized once: the feasible candidates, their gains and,
  // for lazy evaluation, the bounds those gains give.
  std::vector<int> feasible_candidates;
  std::vector<double> candidate_gains;
  std::vector<double> candidate_bounds;
  feasible_candidates.reserve(static_cast<std::size_t>(remaining.size()));
  candidate_gains.resize(static_cast<std::size_t>(remaining.size()));

  logger->debug("Starting greedy max. current_function_eval_context.NumberOfElements() = {}",
                context.NumberOfElements());
  bool first_pass = true;
  int added = 0;
  if (!nothing_to_choose) observer.Step(0, most);
  while (!nothing_to_choose) {
    if (state.current.size() >= cardinality_limit) break;
    observer.ThrowIfStopRequested(added);
    logger->debug("Top of loop: current_function_eval_context.NumberOfElements() = {}",
                  context.NumberOfElements());

    StepChoice best{n, -DBL_MAX};
    if (first_pass || !lazy) {
      feasible_candidates.clear();
      for (int e : remaining) {
        if (feasible(e)) feasible_candidates.push_back(e);
      }
      const int count = static_cast<int>(feasible_candidates.size());
      if (lazy) candidate_bounds.resize(static_cast<std::size_t>(count));
      if (first_pass && use_ancillary) {
        for (int j = 0; j < count; ++j) {
          const float stored =
              ancillary->singleton_gains[static_cast<std::size_t>(feasible_candidates[j])];
          if (std::isnan(stored)) {
            candidate_gains[j] = context.DisjointGain(feasible_candidates[j]);
            ++evaluations;
            if (lazy) candidate_bounds[j] = candidate_gains[j];
          } else {
            candidate_gains[j] = static_cast<double>(stored);
            // A gain read from another run bounds nothing here: unknown.
            if (lazy) candidate_bounds[j] = std::numeric_limits<double>::infinity();
          }
        }
      } else {
        const auto start = std::chrono::steady_clock::now();
        internal::DisjointGainsOnThreads(context, feasible_candidates.data(), count,
                                         candidate_gains.data(), options.threads);
        batches.MeasuredFullPass(
            count, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        evaluations += count;
        if (first_pass && fill_ancillary) {
          for (int j = 0; j < count; ++j) {
            ancillary->singleton_gains[static_cast<std::size_t>(feasible_candidates[j])] =
                static_cast<float>(candidate_gains[j]);
          }
        }
        if (lazy) std::copy_n(candidate_gains.begin(), count, candidate_bounds.begin());
      }
      best = FirstLargest(feasible_candidates, candidate_gains, count, n);
      if (lazy) stale_gains.Fill(remaining, feasible_candidates, candidate_bounds, best.element);
    } else {
      const std::int64_t before = evaluations;
      best = stale_gains.Choose(context, remaining, feasible, batches, evaluations);
      batches.StepNeeded(evaluations - before);
    }
    if (first_pass && fill_ancillary) ancillary->singleton_gains_precomputed = true;
    first_pass = false;

    const int element_having_max_gain = best.element;
    const double max_gain = best.gain;
    logger->debug("Found element_having_max_gain = {}, max_gain = {}", element_having_max_gain,
                  max_gain);
    if (element_having_max_gain == n) {
      logger->debug("Done since reached ground set size");
      break;
    }
    if (internal::GainPermitStops(gain_permit, max_gain)) {
      logger->debug("Done since found negaive gain.");
      break;
    }
    if (progress_period >= 1 && added % progress_period == 0) {
      logger->info("Found element {} in the order, element = {}, gain value = {}.", added,
                   element_having_max_gain, max_gain);
    }
    ++added;

    if (order != nullptr) order->push_back(element_having_max_gain);
    if (gains != nullptr) gains->push_back(static_cast<float>(max_gain));
    state.Add(element_having_max_gain);
    remaining.remove(element_having_max_gain);
    observer.Step(added, most);
  }
  if (ancillary != nullptr) ancillary->number_of_gain_evaluations = evaluations;
  logger->debug("Standard greedy done, {} elements added with {} gain evaluations.", added,
                evaluations);

  internal::FinishGreedyRun(f, conditioning, state, solution, value);
  return true;
}

double UpperBoundValueGreedyConstrainedMaximization(const SubmodularFunction& f,
                                                    int cardinality_limit, const Set& candidates,
                                                    const Set& inclusion, const Set& conditioning,
                                                    UnorderedHashSet* solution,
                                                    std::vector<int>* order,
                                                    std::vector<float>* gains, double* value) {
  if (!f.IsMonotoneNondecreasing()) {
    VELMOR_THROW(std::invalid_argument,
                 "Bound only applies to a monotone non-decreasing submodular function.");
  }
  if (cardinality_limit <= 0) {
    VELMOR_THROW(std::invalid_argument, "Must have positive cardinality constraint, got %d.",
                 cardinality_limit);
  }
  if (inclusion.size() > cardinality_limit) {
    VELMOR_THROW(std::invalid_argument, "Inclusion set must itself be feasible, <=%d.",
                 cardinality_limit);
  }
  const int n = f.GroundSetSize();
  if (candidates.GroundSetSize() != n || inclusion.GroundSetSize() != n ||
      conditioning.GroundSetSize() != n) {
    VELMOR_THROW(std::invalid_argument, "Invalid argument, all ground set sizes must match.");
  }

  const CardinalitySetConstraint limit(n, cardinality_limit);
  internal::GreedyRunState state(f, limit, inclusion, conditioning);
  UnorderedHashSet remaining = internal::RemainingSet(candidates, state.excluded);
  SetFunction::SetFunctionGrowingContext& context = *state.function_context;
  const double conditioning_value = f.Evaluate(conditioning);
  const int free_slots = cardinality_limit - inclusion.size();

  if (order != nullptr) order->clear();
  if (gains != nullptr) gains->clear();
  std::vector<int> elements;
  std::vector<double> step_gains(static_cast<std::size_t>(remaining.size()));
  std::vector<double> positive_gains;
  positive_gains.reserve(static_cast<std::size_t>(remaining.size()));
  double bound = std::numeric_limits<double>::infinity();
  for (;;) {
    remaining.ToVector(elements);
    const int count = static_cast<int>(elements.size());
    context.DisjointGains(elements.data(), count, step_gains.data());

    // Bound at this step: g(A_i) plus the free_slots largest positive gains.
    positive_gains.clear();
    for (int j = 0; j < count; ++j) {
      if (step_gains[j] > 0.0) positive_gains.push_back(step_gains[j]);
    }
    const std::size_t taken = std::min(positive_gains.size(), static_cast<std::size_t>(free_slots));
    std::nth_element(positive_gains.begin(),
                     positive_gains.begin() + static_cast<std::ptrdiff_t>(taken),
                     positive_gains.end(), std::greater<double>());
    double top_sum = 0.0;
    for (std::size_t j = 0; j < taken; ++j) top_sum += positive_gains[j];
    bound = std::min(bound, (context.CurrentValue() - conditioning_value) + top_sum);

    if (state.current.size() >= cardinality_limit || count == 0) break;
    int best = n;
    double best_gain = -DBL_MAX;
    for (int j = 0; j < count; ++j) {
      if (step_gains[j] > best_gain) {
        best_gain = step_gains[j];
        best = elements[j];
      }
    }
    if (best == n) break;
    if (order != nullptr) order->push_back(best);
    if (gains != nullptr) gains->push_back(static_cast<float>(best_gain));
    state.Add(best);
    remaining.remove(best);
  }
  if (value != nullptr) *value = context.CurrentValue() - conditioning_value;
  if (solution != nullptr) *solution = state.current;
  return bound;
}

}  // namespace velmor
