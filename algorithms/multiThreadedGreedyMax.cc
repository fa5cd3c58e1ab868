#include "algorithms/multiThreadedGreedyMax.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <future>
#include <limits>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>

#include "algorithms/greedyCommon.h"
#include "utils/error_messages.h"
#include "utils/logging.h"

namespace velmor {

namespace {

// What every run of the scheme shares.
struct SchemeArguments {
  const SubmodularFunction& f;
  const DownClosedSetConstraint& constraint;
  int cardinality_limit;
  const Set& inclusion;
  const Set& conditioning;
  double algorithm_value;
  float fraction_of_threads_solution_to_compute;
  float gain_preservation_fraction;
  GainPermit gain_permit;
  const GreedyAlgorithm& algorithm;
};

// One run's result.
struct RunResult {
  explicit RunResult(int n) : solution(n) {}
  UnorderedHashSet solution;
  std::vector<int> order;
  std::vector<float> gains;
  double value = -std::numeric_limits<double>::infinity();
};

RunResult RunOn(const SchemeArguments& a, const std::vector<int>& elements, int limit) {
  const int n = a.f.GroundSetSize();
  UnorderedHashSet candidates(n);
  for (int e : elements) candidates.insert(e);
  RunResult result(n);
  a.algorithm(a.f, a.constraint, limit, candidates, a.inclusion, a.conditioning, a.algorithm_value,
              a.gain_permit, &result.solution, &result.order, &result.gains, &result.value,
              nullptr);
  return result;
}

// Runs `work(i)` for i in [0, count) on tasks of their own and collects the
// results; every task has finished before an exception of one is rethrown.
template <class Work>
std::vector<RunResult> RunConcurrently(int count, const Work& work) {
  std::vector<std::future<RunResult>> futures;
  futures.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) futures.push_back(std::async(std::launch::async, work, i));
  std::vector<RunResult> results;
  std::exception_ptr failure;
  for (std::future<RunResult>& future : futures) {
    try {
      results.push_back(future.get());
    } catch (...) {
      if (!failure) failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
  return results;
}

// The elements of a solution that go on to a merge: the shortest prefix of
// its order whose gains add up to `fraction` of their sum (all of them when
// the fraction is 1 or the gains are missing).
void AppendPreserved(const RunResult& run, float fraction, std::vector<int>& elements) {
  std::size_t kept = run.order.size();
  if (fraction < 1.0f && run.gains.size() == run.order.size()) {
    double total = 0.0;
    for (float gain : run.gains) total += static_cast<double>(gain);
    double prefix = 0.0;
    for (kept = 0; kept < run.order.size() && prefix < static_cast<double>(fraction) * total;
         ++kept) {
      prefix += static_cast<double>(run.gains[kept]);
    }
  }
  elements.insert(elements.end(), run.order.begin(),
                  run.order.begin() + static_cast<std::ptrdiff_t>(kept));
}

// The candidates (inclusion and conditioning left out) dealt into `blocks` blocks.
std::vector<std::vector<int>> Partition(const Set& candidates, const SchemeArguments& a, int blocks,
                                        bool random_partition, int seed) {
  UnorderedHashSet excluded(a.f.GroundSetSize());
  excluded.insertSet(a.inclusion);
  excluded.insertSet(a.conditioning);
  std::vector<int> elements = internal::RemainingCandidates(candidates, excluded);
  if (random_partition) {
    std::mt19937 engine(static_cast<std::mt19937::result_type>(seed));
    std::shuffle(elements.begin(), elements.end(), engine);
  }
  std::vector<std::vector<int>> result(static_cast<std::size_t>(blocks));
  const std::size_t size = elements.size();
  for (int b = 0; b < blocks; ++b) {
    const std::size_t begin = size * static_cast<std::size_t>(b) / static_cast<std::size_t>(blocks);
    const std::size_t end =
        size * static_cast<std::size_t>(b + 1) / static_cast<std::size_t>(blocks);
    result[static_cast<std::size_t>(b)].assign(
        elements.begin() + static_cast<std::ptrdiff_t>(begin),
        elements.begin() + static_cast<std::ptrdiff_t>(end));
  }
  return result;
}

// Runs the blocks, then one level of merges per entry of merge_sizes (each
// merge takes that many consecutive solutions of the level below); returns
// the solution of largest value among all runs.
RunResult RunTree(const SchemeArguments& a, const Set& candidates, int number_of_threads,
                  bool random_partition, int seed, const std::vector<int>& merge_sizes) {
  const std::vector<std::vector<int>> blocks =
      Partition(candidates, a, number_of_threads, random_partition, seed);
  long total = a.inclusion.size();
  for (const std::vector<int>& block : blocks) total += static_cast<long>(block.size());
  const long k = std::min<long>({a.constraint.SizeLimit(), a.cardinality_limit, total});
  const long to_add = std::max(0L, k - a.inclusion.size());
  const long block_adds =
      to_add == 0
          ? 0
          : std::clamp<long>(static_cast<long>(std::ceil(
                                 static_cast<double>(a.fraction_of_threads_solution_to_compute) *
                                 static_cast<double>(to_add))),
                             1L, to_add);
  const int block_limit =
      static_cast<int>(std::min<long>(a.cardinality_limit, a.inclusion.size() + block_adds));

  std::vector<RunResult> level = RunConcurrently(number_of_threads, [&](int b) {
    return RunOn(a, blocks[static_cast<std::size_t>(b)], block_limit);
  });
  std::optional<RunResult> best;
  auto keep_best = [&best](const std::vector<RunResult>& runs) {
    for (const RunResult& run : runs) {
      if (!best || run.value > best->value) best = run;
    }
  };
  keep_best(level);
  for (int merge_size : merge_sizes) {
    const int merges = static_cast<int>(level.size()) / merge_size;
    std::vector<RunResult> next = RunConcurrently(merges, [&](int m) {
      std::vector<int> elements;
      for (int c = m * merge_size; c < (m + 1) * merge_size; ++c) {
        AppendPreserved(level[static_cast<std::size_t>(c)], a.gain_preservation_fraction, elements);
      }
      return RunOn(a, elements, a.cardinality_limit);
    });
    keep_best(next);
    level = std::move(next);
  }
  return std::move(*best);
}

std::optional<std::string> SchemeArgumentProblem(float fraction_of_threads_solution_to_compute,
                                                 float gain_preservation_fraction,
                                                 int number_of_threads) {
  if (number_of_threads < 1)
    return fmt::format("Number of threads = {} must be positive.", number_of_threads);
  if (!(fraction_of_threads_solution_to_compute > 0.0f &&
        fraction_of_threads_solution_to_compute <= 1.0f)) {
    return fmt::format("Value of fraction_of_threads_solution_to_compute = {}, must be in (0, 1].",
                       fraction_of_threads_solution_to_compute);
  }
  if (!(gain_preservation_fraction > 0.0f && gain_preservation_fraction <= 1.0f)) {
    return fmt::format("Value of gain_preservation_fraction = {}, must be in (0, 1].",
                       gain_preservation_fraction);
  }
  return std::nullopt;
}

void WriteOutputs(RunResult&& best, UnorderedHashSet* solution, std::vector<int>* order,
                  std::vector<float>* gains, double* value) {
  if (solution != nullptr) *solution = std::move(best.solution);
  if (order != nullptr) *order = std::move(best.order);
  if (gains != nullptr) *gains = std::move(best.gains);
  if (value != nullptr) *value = best.value;
}

}  // namespace

bool MultiThreadedGreedyConstrainedMaximization(
    const SubmodularFunction& f, const DownClosedSetConstraint& constraint, int cardinality_limit,
    const Set& candidates, const Set& inclusion, const Set& conditioning, double algorithm_value,
    float fraction_of_threads_solution_to_compute, float gain_preservation_fraction,
    GainPermit gain_permit, int number_of_threads, bool random_partition, int seed,
    const GreedyAlgorithm& algorithm, UnorderedHashSet* solution, std::vector<int>* order,
    std::vector<float>* gains, double* value) {
  if (const auto problem = SchemeArgumentProblem(fraction_of_threads_solution_to_compute,
                                                 gain_preservation_fraction, number_of_threads)) {
    VELMOR_THROW(std::invalid_argument, "%s", problem->c_str());
  }
  if (const auto problem = internal::GreedyArgumentProblem(f, constraint, cardinality_limit,
                                                           candidates, inclusion, conditioning)) {
    VELMOR_THROW(std::invalid_argument, "%s", problem->c_str());
  }
  if (order == nullptr && gains == nullptr && solution == nullptr) return false;
  logging::GetLogger("optm")->info("Starting multi-threaded greedy max (MGM).");
  const SchemeArguments arguments{f,
                                  constraint,
                                  cardinality_limit,
                                  inclusion,
                                  conditioning,
                                  algorithm_value,
                                  fraction_of_threads_solution_to_compute,
                                  gain_preservation_fraction,
                                  gain_permit,
                                  algorithm};
  std::vector<int> merge_sizes;
  if (number_of_threads > 1) merge_sizes.push_back(number_of_threads);
  WriteOutputs(
      RunTree(arguments, candidates, number_of_threads, random_partition, seed, merge_sizes),
      solution, order, gains, value);
  return true;
}

bool HierarchicalMultiThreadedGreedyConstrainedMaximization(
    const SubmodularFunction& f, const DownClosedSetConstraint& constraint, int cardinality_limit,
    const Set& candidates, const Set& inclusion, const Set& conditioning, double algorithm_value,
    float fraction_of_threads_solution_to_compute, float gain_preservation_fraction,
    GainPermit gain_permit, int number_of_threads, int depth, int ary, bool random_partition,
    int seed, const GreedyAlgorithm& algorithm, UnorderedHashSet* solution, std::vector<int>* order,
    std::vector<float>* gains, double* value) {
  if (const auto problem = SchemeArgumentProblem(fraction_of_threads_solution_to_compute,
                                                 gain_preservation_fraction, number_of_threads)) {
    VELMOR_THROW(std::invalid_argument, "%s", problem->c_str());
  }
  if (depth < 0) {
    VELMOR_THROW(std::invalid_argument,
                 "Hierarchical multi-threaded greedy. depth = %d must be >= 0.", depth);
  }
  // number_of_threads = ary^levels_in_full_tree.
  int levels_in_full_tree = 0;
  for (long leaves = number_of_threads; leaves > 1 && ary >= 2 && leaves % ary == 0;
       leaves /= ary) {
    ++levels_in_full_tree;
  }
  long power = 1;
  for (int level = 0; level < levels_in_full_tree; ++level) power *= ary;
  if (ary < 1 || power != number_of_threads) {
    VELMOR_THROW(
        std::invalid_argument,
        fmt::format(
            "Hierarchical multi-threaded greedy. Number of threads = {} must be an integer power "
            "of ary = {}. depth = {}.",
            number_of_threads, ary, depth));
  }
  if (const auto problem = internal::GreedyArgumentProblem(f, constraint, cardinality_limit,
                                                           candidates, inclusion, conditioning)) {
    VELMOR_THROW(std::invalid_argument, "%s", problem->c_str());
  }
  if (order == nullptr && gains == nullptr && solution == nullptr) return false;
  logging::GetLogger("optm")->info("Starting hierarchical multi-threaded greedy max (HGM).");
  const SchemeArguments arguments{f,
                                  constraint,
                                  cardinality_limit,
                                  inclusion,
                                  conditioning,
                                  algorithm_value,
                                  fraction_of_threads_solution_to_compute,
                                  gain_preservation_fraction,
                                  gain_permit,
                                  algorithm};
  const int tree_levels = depth == 0 ? levels_in_full_tree : std::min(depth, levels_in_full_tree);
  std::vector<int> merge_sizes(static_cast<std::size_t>(tree_levels), ary);
  long left = number_of_threads;
  for (int level = 0; level < tree_levels; ++level) left /= ary;
  if (left > 1) merge_sizes.push_back(static_cast<int>(left));
  WriteOutputs(
      RunTree(arguments, candidates, number_of_threads, random_partition, seed, merge_sizes),
      solution, order, gains, value);
  return true;
}

}  // namespace velmor
