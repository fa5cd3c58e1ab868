#include "matrixvector/ExactSelection.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cassert>
#include <limits>
#include <type_traits>

namespace velmor::internal {
namespace {

constexpr int kBucketBits = 16;
constexpr std::size_t kBuckets = std::size_t{1} << kBucketBits;

template <typename T>
using Key = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;

// The bit pattern of a value >= 0, with -0 taken as 0.
template <typename T>
Key<T> KeyOf(T value) {
  return value == 0 ? Key<T>{0} : std::bit_cast<Key<T>>(value);
}

template <typename T>
T ValueOf(Key<T> key) {
  return std::bit_cast<T>(key);
}

// Calls visit(column pointer, first row, end row) for the part of each
// column of `tile` strictly below the matrix's diagonal.
template <typename T, typename Visit>
void ForEachLowerRun(const Tile& tile, const TileView<T>& values, const Visit& visit) {
  for (Eigen::Index j = 0; j < tile.cols; ++j) {
    visit(values.data() + j * values.outerStride(), tile.diagonal() ? j + 1 : 0, tile.rows);
  }
}

// Calls take(i) for each i in [begin, end) with lo <= values[i] <= hi. Full
// runs of 16 are tested branch-free into a bit mask first (kept rolled, GCC
// makes it one vector comparison), as most entries lie outside.
template <typename T, typename Take>
void ForEachInside(const T* values, Eigen::Index begin, Eigen::Index end, T lo, T hi,
                   const Take& take) {
  constexpr Eigen::Index kRun = 16;
  Eigen::Index start = begin;
  for (; start + kRun <= end; start += kRun) {
    unsigned hits = 0;
#pragma GCC unroll 1
    for (Eigen::Index i = 0; i < kRun; ++i) {
      hits |= (((values[start + i] >= lo) & (values[start + i] <= hi)) ? 1u : 0u) << i;
    }
    for (; hits != 0; hits &= hits - 1) take(start + std::countr_zero(hits));
  }
  for (Eigen::Index i = start; i < end; ++i) {
    if (values[i] >= lo && values[i] <= hi) take(i);
  }
}

}  // namespace

template <typename T>
ExactSelection<T>::ExactSelection(std::uint64_t rank, std::uint64_t total,
                                  std::uint64_t buffer_limit, int workers)
    : rank_(rank),
      count_(total),
      buffer_limit_(buffer_limit),
      lo_(0),
      hi_(std::numeric_limits<T>::infinity()),
      counts_(static_cast<std::size_t>(workers)),
      gathered_(static_cast<std::size_t>(workers)) {
  assert(rank < total && workers >= 1);
}

template <typename T>
void ExactSelection<T>::SetPivots(T lo, T hi) {
  assert(0 <= lo && lo <= hi);
  pivot_lo_ = lo;
  pivot_hi_ = hi;
  pivots_ = true;
}

template <typename T>
void ExactSelection<T>::StartPass() {
  if (pivots_) {
    pass_ = Pass::kSplit;
    for (auto& counts : counts_) counts.assign(3, 0);
  } else if (count_ <= buffer_limit_) {
    pass_ = Pass::kCollect;
    collected_.assign(static_cast<std::size_t>(count_), T{0});
    cursor_ = 0;
  } else {
    pass_ = Pass::kBuckets;
    const Key<T> range = KeyOf(hi_) - KeyOf(lo_);
    bucket_shift_ = 0;
    while ((range >> bucket_shift_) >= kBuckets) ++bucket_shift_;
    for (auto& counts : counts_) counts.assign(kBuckets, 0);
  }
}

template <typename T>
void ExactSelection<T>::Visit(const Tile& tile, const TileView<T>& values, int worker) {
  const T lo = lo_, hi = hi_;
  switch (pass_) {
    case Pass::kSplit: {
      const T pivot_lo = pivot_lo_, pivot_hi = pivot_hi_;
      std::uint64_t below = 0, up_to = 0;
      ForEachLowerRun(tile, values, [&](const T* column, Eigen::Index begin, Eigen::Index end) {
        for (Eigen::Index i = begin; i < end; ++i) {
          below += column[i] < pivot_lo;
          up_to += column[i] <= pivot_hi;
        }
      });
      auto& counts = counts_[static_cast<std::size_t>(worker)];
      counts[0] += below;
      counts[1] += up_to;
      // The values between the pivots are gathered on the way, while the
      // worker's share of the limit lasts (counts[2] marks an overflow), so
      // that the usual course needs no collect pass.
      std::vector<T>& gathered = gathered_[static_cast<std::size_t>(worker)];
      if (counts[2] == 0) {
        ForEachLowerRun(tile, values, [&](const T* column, Eigen::Index begin, Eigen::Index end) {
          ForEachInside(column, begin, end, pivot_lo, pivot_hi,
                        [&](Eigen::Index i) { gathered.push_back(column[i]); });
        });
        if (gathered.size() > buffer_limit_ / counts_.size()) {
          counts[2] = 1;
          std::vector<T>().swap(gathered);
        }
      }
      break;
    }
    case Pass::kBuckets: {
      std::uint64_t* counts = counts_[static_cast<std::size_t>(worker)].data();
      const Key<T> first = KeyOf(lo);
      const int shift = bucket_shift_;
      ForEachLowerRun(tile, values, [&](const T* column, Eigen::Index begin, Eigen::Index end) {
        ForEachInside(column, begin, end, lo, hi,
                      [&](Eigen::Index i) { ++counts[(KeyOf(column[i]) - first) >> shift]; });
      });
      break;
    }
    case Pass::kCollect: {
      // Staged per tile, then copied to a place reserved in the shared buffer.
      std::vector<T>& staged = gathered_[static_cast<std::size_t>(worker)];
      staged.clear();
      ForEachLowerRun(tile, values, [&](const T* column, Eigen::Index begin, Eigen::Index end) {
        ForEachInside(column, begin, end, lo, hi,
                      [&](Eigen::Index i) { staged.push_back(column[i]); });
      });
      const std::uint64_t at = cursor_.fetch_add(staged.size());
      assert(at + staged.size() <= collected_.size());
      std::copy(staged.begin(), staged.end(), collected_.begin() + static_cast<std::ptrdiff_t>(at));
      break;
    }
  }
}

template <typename T>
void ExactSelection<T>::FinishPass() {
  switch (pass_) {
    case Pass::kSplit:
      FinishSplit();
      break;
    case Pass::kBuckets:
      FinishBuckets();
      break;
    case Pass::kCollect:
      FinishCollect();
      break;
  }
  for (auto& counts : counts_) std::vector<std::uint64_t>().swap(counts);
  for (auto& staged : gathered_) std::vector<T>().swap(staged);
  if (lo_ == hi_) done_ = true;
}

template <typename T>
void ExactSelection<T>::FinishSplit() {
  std::uint64_t below = 0, up_to = 0;
  for (const auto& counts : counts_) {
    below += counts[0];
    up_to += counts[1];
  }
  pivots_ = false;
  if (rank_ < below) {
    hi_ = ValueOf<T>(KeyOf(pivot_lo_) - 1);
    count_ = below;
  } else if (rank_ < up_to) {
    lo_ = pivot_lo_;
    hi_ = pivot_hi_;
    rank_ -= below;
    count_ = up_to - below;
    const bool complete = std::all_of(counts_.begin(), counts_.end(),
                                      [](const auto& counts) { return counts[2] == 0; });
    if (complete) {
      for (std::vector<T>& gathered : gathered_) {
        collected_.insert(collected_.end(), gathered.begin(), gathered.end());
        std::vector<T>().swap(gathered);
      }
      cursor_ = collected_.size();
      FinishCollect();
    }
  } else {
    lo_ = ValueOf<T>(KeyOf(pivot_hi_) + 1);
    rank_ -= up_to;
    count_ -= up_to;
  }
}

template <typename T>
void ExactSelection<T>::FinishBuckets() {
  std::vector<std::uint64_t> total(kBuckets, 0);
  for (const auto& counts : counts_) {
    for (std::size_t b = 0; b < kBuckets; ++b) total[b] += counts[b];
  }
  std::size_t bucket = 0;
  while (rank_ >= total[bucket]) rank_ -= total[bucket++];
  const Key<T> first = KeyOf(lo_) + (static_cast<Key<T>>(bucket) << bucket_shift_);
  const Key<T> last = first + ((Key<T>{1} << bucket_shift_) - 1);
  lo_ = ValueOf<T>(first);
  hi_ = ValueOf<T>(std::min(last, KeyOf(hi_)));
  count_ = total[bucket];
}

template <typename T>
void ExactSelection<T>::FinishCollect() {
  assert(cursor_ == collected_.size());
  const auto middle = collected_.begin() + static_cast<std::ptrdiff_t>(rank_);
  std::nth_element(collected_.begin(), middle, collected_.end());
  lo_ = hi_ = *middle;
  std::vector<T>().swap(collected_);
}

template class ExactSelection<float>;
template class ExactSelection<double>;

}  // namespace velmor::internal
