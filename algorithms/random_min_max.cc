#include "algorithms/random_min_max.h"

#include <algorithm>
#include <cfloat>
#include <stdexcept>
#include <utility>

#include "utils/error_messages.h"

namespace velmor {

namespace {

// Uniform in [0, bound) for bound >= 1, by rejection of the biased tail.
std::uint32_t UniformBelow(std::uint32_t bound, std::mt19937& engine) {
  const std::uint32_t limit = static_cast<std::uint32_t>(-bound) % bound;  // 2^32 mod bound
  for (;;) {
    const std::uint32_t word = static_cast<std::uint32_t>(engine());
    if (word >= limit) return word % bound;
  }
}

}  // namespace

void UniformRandomSubset(std::vector<int>& elements, int size, std::mt19937& engine) {
  const std::size_t count = elements.size();
  const std::size_t take =
      std::min<std::size_t>(count, static_cast<std::size_t>(std::max(size, 0)));
  for (std::size_t i = 0; i < take; ++i) {
    const std::size_t j = i + UniformBelow(static_cast<std::uint32_t>(count - i), engine);
    std::swap(elements[i], elements[j]);
  }
}

bool RandomMaximizationMinimization(int number_of_attempts, std::uint64_t seed,
                                    const SetFunction& f, const DownClosedSetConstraint& constraint,
                                    const Set& candidates, const Set& warm_start,
                                    const Set& conditioning, UnorderedHashSet* min_set,
                                    UnorderedHashSet* max_set, double* min_value, double* max_value,
                                    double* average_value) {
  const int n = f.GroundSetSize();
  if (constraint.GroundSetSize() != n || candidates.GroundSetSize() != n ||
      warm_start.GroundSetSize() != n || conditioning.GroundSetSize() != n) {
    VELMOR_THROW(std::invalid_argument,
                 "Invalid argument, ground set sizes %d,%d,%d,%d,%d must all match.", n,
                 constraint.GroundSetSize(), candidates.GroundSetSize(), warm_start.GroundSetSize(),
                 conditioning.GroundSetSize());
  }
  if (!constraint.IsFeasible(warm_start)) {
    VELMOR_THROW(std::invalid_argument, "Warm start set must itself be feasible.");
  }
  if (number_of_attempts < 1) {
    VELMOR_THROW(std::invalid_argument, "Number of attempts = %d must be > 0.", number_of_attempts);
  }
  if (min_set == nullptr && max_set == nullptr && min_value == nullptr && max_value == nullptr &&
      average_value == nullptr) {
    return false;
  }
  const int subset_size = constraint.SizeLimit();
  if (subset_size == 0) return false;

  // The pool in ascending order, so that the draws do not depend on how the
  // candidate set stores its elements.
  std::vector<int> pool;
  pool.reserve(static_cast<std::size_t>(candidates.size()));
  for (int e : candidates) {
    if (!warm_start.contains(e)) pool.push_back(e);
  }
  std::sort(pool.begin(), pool.end());
  UnorderedHashSet base(n);
  base.insertSet(warm_start);
  base.insertSet(conditioning);
  const double reference = f.Evaluate(conditioning);
  const int drawn = std::min(subset_size, static_cast<int>(pool.size()));

  std::mt19937 engine(static_cast<std::uint32_t>(seed & 0xFFFFFFFFu));
  UnorderedHashSet evaluated(n);
  std::vector<int> min_draw, max_draw;
  double minimum = DBL_MAX;
  double maximum = -DBL_MAX;
  double sum = 0.0;
  for (int attempt = 0; attempt < number_of_attempts; ++attempt) {
    UniformRandomSubset(pool, drawn, engine);
    evaluated = base;
    for (int i = 0; i < drawn; ++i) evaluated.insert(pool[static_cast<std::size_t>(i)]);
    const double v = f.Evaluate(evaluated) - reference;
    sum += v;
    if (v < minimum) {
      minimum = v;
      if (min_set != nullptr) min_draw.assign(pool.begin(), pool.begin() + drawn);
    }
    if (v > maximum) {
      maximum = v;
      max_draw.assign(pool.begin(), pool.begin() + drawn);
    }
  }

  // The reported sets leave out conditioning elements that are not warm-start elements.
  const auto report = [&](const std::vector<int>& draw, UnorderedHashSet* out) {
    out->MakeEmptyAndChangeGroundSetSize(n);
    for (int e : draw) {
      if (!conditioning.contains(e) || warm_start.contains(e)) out->insert(e);
    }
  };
  if (min_set != nullptr) report(min_draw, min_set);
  if (max_set != nullptr) report(max_draw, max_set);
  if (min_value != nullptr) *min_value = minimum;
  if (max_value != nullptr) *max_value = maximum;
  if (average_value != nullptr) *average_value = sum / static_cast<double>(number_of_attempts);
  return true;
}

}  // namespace velmor
