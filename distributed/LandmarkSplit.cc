#include "distributed/LandmarkSplit.h"

#include <sys/mman.h>
#include <unistd.h>

#include <Eigen/SparseCore>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <variant>

#include "utils/error_messages.h"
#include "utils/exceptions.h"

namespace velmor {
namespace {

using exception::CommandLineError;
using Group = SummaryPlan::FunctionGroup;
using Kind = SummaryPlan::Kind;

[[noreturn]] void Refuse(const std::string& what) {
  throw CommandLineError(exception::MakeCommandMessage(
      "The exact distributed scheme (landmarks split across ranks) does not support %s.",
      what.c_str()));
}

void CheckGroup(const Group& g) {
  if (g.kind != Kind::kFacilityLocation && g.kind != Kind::kSparseFacilityLocation) {
    Refuse("the " + g.tag + (g.kind == Kind::kCentrality ? " centrality" : std::string()) +
           " function: only dense (FL, FL2) and sparse (SPFL) facility location are supported");
  }
  if (g.softness > 0) Refuse("soft facility location (" + g.tag + " softness)");
  if (g.attraction || g.neglect || g.contraction) {
    Refuse("attraction, neglect or contraction sets of the " + g.tag + " function");
  }
}

// Throws for a value the checks refuse.
template <typename T>
void CheckValue(T x, LandmarkSplit::ValueChecks checks, std::int64_t row, std::int64_t col,
                const std::string& tag) {
  if (std::isfinite(x)) return;
  const bool nan = std::isnan(x);
  if (!(nan ? checks.nan : checks.inf)) return;
  try {
    VELMOR_THROW(std::runtime_error, "Encountered IEEE %s at row,col %lld,%lld.",
                 nan ? "NaN" : "Inf", static_cast<long long>(row), static_cast<long long>(col));
  } catch (...) {
    VELMOR_THROW_NESTED(exception::InputDataError, "Problems loading %s matrix.", tag.c_str());
  }
}

// Releases the pages of [begin, end) of a private read-only file mapping that
// lie wholly inside it: they are read again from the file if touched again.
void ReleasePages(const void* begin, const void* end) {
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto first = (reinterpret_cast<std::uintptr_t>(begin) + page - 1) / page * page;
  const auto last = reinterpret_cast<std::uintptr_t>(end) / page * page;
  if (last > first) madvise(reinterpret_cast<void*>(first), last - first, MADV_DONTNEED);
}

// Item v's values of the block at out + v * (end - begin); the block's
// largest value per landmark (clamped at 0) into maxima[begin, end).
template <typename T>
void CopyDenseBlock(DenseMatrixInput<T>& input, LandmarkSplit::Block block, T* out,
                    std::vector<double>& landmark_maxima, LandmarkSplit::ValueChecks checks,
                    const std::string& tag) {
  const std::int64_t n = input.Items();
  const std::int64_t k = input.ValuesPerItem();
  const std::int64_t width = block.end - block.begin;
  std::vector<T> maxima(static_cast<std::size_t>(width), T(0));
  const bool checking = checks.nan || checks.inf;
  auto take_row = [&](std::int64_t v, auto&& value_at) {
    T* row = out + v * width;
    for (std::int64_t j = 0; j < width; ++j) {
      const T x = value_at(block.begin + j);
      if (checking) CheckValue(x, checks, v, block.begin + j, tag);
      row[j] = x;
      maxima[static_cast<std::size_t>(j)] =
          x > maxima[static_cast<std::size_t>(j)] ? x : maxima[static_cast<std::size_t>(j)];
    }
  };
  if (input.element_major) {
    const T* values = input.element_major.get();
    // The file's pages are released in chunks of about 16 MiB.
    const std::int64_t row_bytes = k * static_cast<std::int64_t>(sizeof(T));
    const std::int64_t chunk = std::max<std::int64_t>(1, (std::int64_t{16} << 20) / row_bytes);
    for (std::int64_t v0 = 0; v0 < n; v0 += chunk) {
      const std::int64_t v1 = std::min(n, v0 + chunk);
      for (std::int64_t v = v0; v < v1; ++v) {
        const T* source = values + v * k;
        take_row(v, [source](std::int64_t i) { return source[i]; });
      }
      ReleasePages(values + v0 * k, values + v1 * k);
    }
  } else {
    for (std::int64_t v = 0; v < n; ++v) {
      take_row(v, [&input, v](std::int64_t i) { return input.rows(v, i); });
    }
  }
  for (std::int64_t j = 0; j < width; ++j) {
    landmark_maxima[static_cast<std::size_t>(block.begin + j)] =
        maxima[static_cast<std::size_t>(j)];
  }
}

template <typename T>
std::vector<double> TakeDenseBlock(DenseMatrixInput<T>& input, LandmarkSplit::Block block,
                                   LandmarkSplit::ValueChecks checks, const std::string& tag) {
  const std::int64_t n = input.Items();
  const std::int64_t width = block.end - block.begin;
  std::shared_ptr<T> values(new T[static_cast<std::size_t>(n * width)], std::default_delete<T[]>());
  std::vector<double> landmark_maxima(static_cast<std::size_t>(input.ValuesPerItem()), 0.0);
  CopyDenseBlock(input, block, values.get(), landmark_maxima, checks, tag);
  input.rows.resize(0, 0);
  input.element_major = std::move(values);
  input.items = n;
  input.values_per_item = width;
  return landmark_maxima;
}

template <typename T>
std::vector<double> TakeSparseBlock(matrixio::SparseMatrix<T>& matrix, LandmarkSplit::Block block,
                                    LandmarkSplit::ValueChecks checks, const std::string& tag) {
  std::vector<double> landmark_maxima(static_cast<std::size_t>(matrix.cols()), 0.0);
  matrixio::SparseMatrix<T> columns = matrix.middleCols(block.begin, block.end - block.begin);
  matrix = std::move(columns);
  matrix.makeCompressed();
  for (int i = 0; i < matrix.outerSize(); ++i) {
    T largest = T(0);
    for (typename matrixio::SparseMatrix<T>::InnerIterator it(matrix, i); it; ++it) {
      CheckValue(it.value(), checks, it.row(), block.begin + i, tag);
      largest = it.value() > largest ? it.value() : largest;
    }
    landmark_maxima[static_cast<std::size_t>(block.begin + i)] = largest;
  }
  return landmark_maxima;
}

std::int64_t Landmarks(const Group& g) {
  if (g.kind == Kind::kFacilityLocation) {
    return std::visit([](const auto& input) { return input.ValuesPerItem(); }, g.dense);
  }
  return std::visit([](const auto& matrix) -> std::int64_t { return matrix.cols(); }, g.sparse);
}

}  // namespace

LandmarkSplit::Block LandmarkSplit::BlockOf(std::int64_t landmarks, int rank, int ranks) {
  return {.begin = landmarks * rank / ranks, .end = landmarks * (rank + 1) / ranks};
}

void LandmarkSplit::CheckSupported(const SummaryPlan& plan) {
  for (const Group& g : plan.groups) CheckGroup(g);
  if (plan.sets.contraction) Refuse("a contraction set (-set-contraction)");
  if (!plan.algorithm.choice.IsPlainStandard()) {
    Refuse("greedy algorithm '" + plan.algorithm.choice.Description() +
           "': it runs the standard greedy");
  }
  if (plan.algorithm.partial_enumeration > 0) Refuse("partial enumeration");
  if (plan.random_evaluations.count > 0) Refuse("random evaluations");
  const SummaryPlan::Reports& r = plan.reports;
  if (r.detail || r.conditional_curvature || r.keep_conditional_curvature || r.balance > 0) {
    Refuse("the detail, conditional curvature and balance reports or the gains plot script");
  }
}

std::vector<std::vector<double>> LandmarkSplit::TakeBlocks(SummaryPlan& plan, int rank, int ranks,
                                                           ValueChecks checks) {
  std::vector<std::vector<double>> landmark_maxima;
  for (Group& g : plan.groups) {
    const std::int64_t landmarks = Landmarks(g);
    if (landmarks < ranks) {
      throw exception::InputDataError(exception::MakeCommandMessage(
          "The %s matrix has %lld columns (landmarks), fewer than the %d ranks it is split "
          "across.",
          g.tag.c_str(), static_cast<long long>(landmarks), ranks));
    }
    const Block block = BlockOf(landmarks, rank, ranks);
    if (g.kind == Kind::kFacilityLocation) {
      landmark_maxima.push_back(std::visit(
          [&](auto& input) { return TakeDenseBlock(input, block, checks, g.tag); }, g.dense));
    } else {
      landmark_maxima.push_back(std::visit(
          [&](auto& matrix) { return TakeSparseBlock(matrix, block, checks, g.tag); }, g.sparse));
    }
  }
  return landmark_maxima;
}

void LandmarkSplit::FoldNormalization(SummaryPlan& plan,
                                      const std::vector<std::vector<double>>& landmark_maxima) {
  for (std::size_t i = 0; i < plan.groups.size(); ++i) {
    Group& g = plan.groups[i];
    if (!g.normalize || landmark_maxima[i].empty()) continue;
    double ground_value = 0.0;
    for (const double m : landmark_maxima[i]) ground_value += m;
    if (!(ground_value > 0)) {
      try {
        VELMOR_THROW(std::invalid_argument,
                     "Invalid possibly all zero or negative matrix, f(V) = %g <= 0.", ground_value);
      } catch (...) {
        VELMOR_THROW_NESTED(std::runtime_error, "Problems opening an %s function.", g.tag.c_str());
      }
    }
    g.responsibility *= 1.0 / ground_value;
    g.normalize = false;
  }
}

}  // namespace velmor
