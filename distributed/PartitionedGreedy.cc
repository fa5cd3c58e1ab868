#include "distributed/PartitionedGreedy.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <variant>

#include "algorithms/acceleratedGreedyMax.h"
#include "algorithms/greedyCommon.h"
#include "algorithms/greedy_max.h"
#include "sets/FixedEmptySet.h"
#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

using exception::CommandLineError;
using Group = SummaryPlan::FunctionGroup;
using Kind = GreedyAlgorithmChoice::Kind;

[[noreturn]] void Refuse(const std::string& what) {
  throw CommandLineError(exception::MakeCommandMessage(
      "The partitioned distributed scheme does not support %s.", what.c_str()));
}

// One run's outcome: its order, gains and value.
struct RunOutcome {
  std::vector<int> order;
  std::vector<float> gains;
  double value = -std::numeric_limits<double>::infinity();
};

std::vector<char> Pack(const RunOutcome& run) {
  const std::int32_t count = static_cast<std::int32_t>(run.order.size());
  std::vector<char> bytes(sizeof(count) + run.order.size() * (sizeof(int) + sizeof(float)) +
                          sizeof(double));
  char* p = bytes.data();
  auto put = [&p](const void* source, std::size_t size) {
    std::memcpy(p, source, size);
    p += size;
  };
  put(&count, sizeof(count));
  put(run.order.data(), run.order.size() * sizeof(int));
  put(run.gains.data(), run.gains.size() * sizeof(float));
  put(&run.value, sizeof(double));
  return bytes;
}

RunOutcome Unpack(const std::vector<char>& bytes) {
  const char* p = bytes.data();
  auto get = [&p](void* target, std::size_t size) {
    std::memcpy(target, p, size);
    p += size;
  };
  std::int32_t count = 0;
  get(&count, sizeof(count));
  RunOutcome run;
  run.order.resize(static_cast<std::size_t>(count));
  run.gains.resize(static_cast<std::size_t>(count));
  get(run.order.data(), run.order.size() * sizeof(int));
  get(run.gains.data(), run.gains.size() * sizeof(float));
  get(&run.value, sizeof(double));
  return run;
}

// The chosen greedy on `elements` with a size limit, stopping at a negative
// gain, as every run of the threaded scheme.
RunOutcome RunOn(const SummaryObjective& objective, Kind kind, const std::vector<int>& elements,
                 int limit) {
  const int n = objective.GroundSetSize();
  UnorderedHashSet candidates(n);
  for (int e : elements) candidates.insert(e);
  UnorderedHashSet solution(n);
  RunOutcome run;
  if (kind == Kind::kStandard) {
    GreedyConstrainedMaximization(objective.Function(), objective.Constraint(), limit, candidates,
                                  objective.Inclusion(), FixedEmptySet(n), kStopAtNegativeGain,
                                  &solution, &run.order, &run.gains, &run.value, nullptr);
  } else {
    AcceleratedGreedyConstrainedMaximization(objective.Function(), objective.Constraint(), limit,
                                             candidates, objective.Inclusion(), FixedEmptySet(n),
                                             0.0, kStopAtNegativeGain, &solution, &run.order,
                                             &run.gains, &run.value, nullptr);
  }
  return run;
}

// The candidates outside the inclusion, shuffled and cut into `ranks`
// contiguous blocks of nearly equal size; this rank's block.
std::vector<int> BlockOf(const SummaryObjective& objective, int seed, int rank, int ranks) {
  std::vector<int> elements =
      internal::RemainingCandidates(objective.Candidates(), objective.Inclusion());
  std::mt19937 engine(static_cast<std::mt19937::result_type>(seed));
  std::shuffle(elements.begin(), elements.end(), engine);
  const std::size_t size = elements.size();
  const auto begin = static_cast<std::ptrdiff_t>(size * static_cast<std::size_t>(rank) /
                                                 static_cast<std::size_t>(ranks));
  const auto end = static_cast<std::ptrdiff_t>(size * static_cast<std::size_t>(rank + 1) /
                                               static_cast<std::size_t>(ranks));
  return std::vector<int>(elements.begin() + begin, elements.begin() + end);
}

// A block run may add as many elements as the whole summary.
int BlockLimit(const SummaryObjective& objective) {
  const long inclusion = objective.Inclusion().size();
  const long total =
      inclusion +
      static_cast<long>(
          internal::RemainingCandidates(objective.Candidates(), objective.Inclusion()).size());
  const long k = std::min<long>(objective.Constraint().SizeLimit(), total);
  const long to_add = std::max(0L, k - inclusion);
  return static_cast<int>(inclusion + (to_add == 0 ? 0 : std::max(1L, to_add)));
}

// The merge sizes of the levels above the blocks.
std::vector<int> MergeSizes(int ary, int ranks) {
  std::vector<int> sizes;
  if (ary == 0) {
    if (ranks > 1) sizes.push_back(ranks);
    return sizes;
  }
  for (int left = ranks; left > 1; left /= ary) sizes.push_back(ary);
  return sizes;
}

template <typename T>
std::vector<double> RowRangeMaxima(DenseMatrixInput<T>& input, int rank, int ranks) {
  const std::int64_t n = input.Items();
  const std::int64_t k = input.ValuesPerItem();
  const std::int64_t begin = n * rank / ranks, end = n * (rank + 1) / ranks;
  std::vector<T> maxima(static_cast<std::size_t>(k), T(0));
  for (std::int64_t v = begin; v < end; ++v) {
    for (std::int64_t i = 0; i < k; ++i) {
      const T x = input.element_major ? input.element_major.get()[v * k + i] : input.rows(v, i);
      T& m = maxima[static_cast<std::size_t>(i)];
      m = x > m ? x : m;
    }
  }
  if (input.element_major && end > begin) {
    // The rows are read again only when chosen or a candidate of this rank.
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto first =
        (reinterpret_cast<std::uintptr_t>(input.element_major.get() + begin * k) + page - 1) /
        page * page;
    const auto last =
        reinterpret_cast<std::uintptr_t>(input.element_major.get() + end * k) / page * page;
    if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_DONTNEED);
  }
  return std::vector<double>(maxima.begin(), maxima.end());
}

}  // namespace

void PartitionedGreedy::CheckSupported(const SummaryPlan& plan, int ary, int ranks) {
  const GreedyAlgorithmChoice& choice = plan.algorithm.choice;
  if (choice.kind != Kind::kStandard && choice.kind != Kind::kAccelerated) {
    Refuse("greedy algorithm '" + choice.Description() + "' (standard or accelerated only)");
  }
  if (choice.threads != 0 && choice.threads != ranks) {
    Refuse("greedy algorithm '" + choice.Description() + "' on " + std::to_string(ranks) +
           " ranks: the ranks are the blocks, so ':T' must be the number of ranks");
  }
  if (plan.algorithm.partial_enumeration > 0) Refuse("partial enumeration");
  if (plan.random_evaluations.count > 0) Refuse("random evaluations");
  if (ary < 0 || ary == 1) Refuse("arity " + std::to_string(ary) + " (0 or at least 2)");
  if (ary >= 2) {
    long power = 1;
    while (power < ranks) power *= ary;
    if (power != ranks) {
      Refuse("arity " + std::to_string(ary) + " on " + std::to_string(ranks) +
             " ranks: the number of ranks must be a power of the arity");
    }
  }
}

std::vector<std::vector<double>> PartitionedGreedy::LandmarkMaxima(SummaryPlan& plan, int rank,
                                                                   int ranks) {
  std::vector<std::vector<double>> maxima;
  for (Group& g : plan.groups) {
    if (g.kind == SummaryPlan::Kind::kFacilityLocation && g.softness <= 0 && g.normalize) {
      maxima.push_back(std::visit(
          [rank, ranks](auto& input) { return RowRangeMaxima(input, rank, ranks); }, g.dense));
    } else {
      maxima.emplace_back();
    }
  }
  return maxima;
}

SummaryResult PartitionedGreedy::Run(const SummaryObjective& objective,
                                     const SummaryPlan::Algorithm& algorithm, int ary,
                                     const Collectives& collectives) {
  const Kind kind = algorithm.choice.kind;
  const std::vector<int> block =
      BlockOf(objective, algorithm.seed, collectives.rank, collectives.ranks);
  // Level by level: the runs of the level, in order, known to every rank.
  std::vector<char> mine = Pack(RunOn(objective, kind, block, BlockLimit(objective)));
  std::vector<RunOutcome> level;
  for (const std::vector<char>& bytes : collectives.all_gather(mine))
    level.push_back(Unpack(bytes));
  std::vector<RunOutcome> all = level;
  int stride = 1;  // ranks between two runs of the level
  for (const int merge_size : MergeSizes(ary, collectives.ranks)) {
    const int merges = static_cast<int>(level.size()) / merge_size;
    const int my_merge = collectives.rank / (stride * merge_size);
    mine.clear();
    if (collectives.rank % (stride * merge_size) == 0 && my_merge < merges) {
      std::vector<int> elements;
      for (int c = my_merge * merge_size; c < (my_merge + 1) * merge_size; ++c) {
        const std::vector<int>& order = level[static_cast<std::size_t>(c)].order;
        elements.insert(elements.end(), order.begin(), order.end());
      }
      mine = Pack(RunOn(objective, kind, elements, std::numeric_limits<int>::max()));
    }
    std::vector<RunOutcome> next;
    for (const std::vector<char>& bytes : collectives.all_gather(mine)) {
      if (!bytes.empty()) next.push_back(Unpack(bytes));
    }
    all.insert(all.end(), next.begin(), next.end());
    level = std::move(next);
    stride *= merge_size;
  }
  const RunOutcome* best = nullptr;
  for (const RunOutcome& run : all) {
    if (best == nullptr || run.value > best->value) best = &run;
  }
  SummaryResult result;
  result.summarized = true;
  result.order = best->order;
  result.gains = best->gains;
  result.value = best->value;
  result.solution = objective.Inclusion();
  for (int e : best->order) result.solution.insert(e);
  return result;
}

}  // namespace velmor
