#include "matrixvector/RowTopK.h"

#include <algorithm>
#include <cassert>
#include <limits>

namespace velmor::internal {

using Eigen::Index;

template <typename T>
RowTopK<T>::RowTopK(Index n, int k)
    : n_(n),
      k_(k),
      capacity_(2 * k),
      entries_(static_cast<std::size_t>(n) * static_cast<std::size_t>(2 * k)),
      sizes_(static_cast<std::size_t>(n), 0),
      floors_(static_cast<std::size_t>(n), -std::numeric_limits<T>::infinity()) {
  assert(1 <= k && k <= n);
}

template <typename T>
void RowTopK<T>::Offer(Index row, T value, Index col) {
  Entry* candidates = entries_.data() + row * capacity_;
  int& size = sizes_[static_cast<std::size_t>(row)];
  candidates[size++] = Entry{value, static_cast<std::int32_t>(col)};
  if (size == capacity_) {
    std::nth_element(candidates, candidates + (k_ - 1), candidates + capacity_, Better);
    floors_[static_cast<std::size_t>(row)] = candidates[k_ - 1].value;
    size = k_;
  }
}

// Runs of kRun entries are screened against the floors by one branch-free
// test first; nearly all runs have no candidate. (Kept rolled, GCC turns the
// test into one vector comparison; unrolled first, it stays scalar.)
constexpr Index kRun = 16;

template <typename T>
bool AnyAtLeast(const T* values, const T* floors) {
  unsigned hits = 0;
#pragma GCC unroll 1
  for (int i = 0; i < kRun; ++i) hits |= values[i] >= floors[i] ? 1u : 0u;
  return hits != 0;
}

template <typename T>
bool AnyAtLeast(const T* values, T floor) {
  unsigned hits = 0;
#pragma GCC unroll 1
  for (int i = 0; i < kRun; ++i) hits |= values[i] >= floor ? 1u : 0u;
  return hits != 0;
}

template <typename T>
void RowTopK<T>::OfferDown(const T* column, Index count, Index first_row, Index col) {
  const T* floors = floors_.data() + first_row;
  for (Index start = 0; start < count; start += kRun) {
    const Index end = std::min(count, start + kRun);
    if (end - start == kRun && !AnyAtLeast(column + start, floors + start)) continue;
    for (Index i = start; i < end; ++i) {
      if (column[i] >= floors[i]) Offer(first_row + i, column[i], col);
    }
  }
}

template <typename T>
void RowTopK<T>::OfferAcross(const T* column, Index count, Index row, Index first_col) {
  const T& floor = floors_[static_cast<std::size_t>(row)];
  for (Index start = 0; start < count; start += kRun) {
    const Index end = std::min(count, start + kRun);
    if (end - start == kRun && !AnyAtLeast(column + start, floor)) continue;
    for (Index i = start; i < end; ++i) {
      if (column[i] >= floor) Offer(row, column[i], first_col + i);
    }
  }
}

template <typename T>
void RowTopK<T>::OfferTile(const Tile& tile, const TileView<T>& values) {
  for (Index j = 0; j < tile.cols; ++j) {
    // Column j holds entries (tile.row + i, tile.col + j); transposed, below
    // the diagonal, it holds row tile.col + j's entries.
    const T* column = values.data() + j * values.outerStride();
    OfferDown(column, tile.rows, tile.row, tile.col + j);
    if (!tile.diagonal()) OfferAcross(column, tile.rows, tile.col + j, tile.row);
  }
}

template <typename T>
typename RowTopK<T>::SparseMatrix RowTopK<T>::Merge(const std::vector<RowTopK>& parts) {
  assert(!parts.empty());
  const Index n = parts.front().n_;
  const int k = parts.front().k_;
  // Each row's top k, rows one after another.
  std::vector<Entry> chosen(static_cast<std::size_t>(n) * static_cast<std::size_t>(k));
  std::vector<Entry> pool;
  for (Index row = 0; row < n; ++row) {
    pool.clear();
    for (const RowTopK& part : parts) {
      const Entry* candidates = part.entries_.data() + row * part.capacity_;
      pool.insert(pool.end(), candidates, candidates + part.sizes_[static_cast<std::size_t>(row)]);
    }
    assert(pool.size() >= static_cast<std::size_t>(k));
    std::partial_sort(pool.begin(), pool.begin() + k, pool.end(), Better);
    std::copy(pool.begin(), pool.begin() + k, chosen.begin() + row * k);
  }
  // Column starts from the column counts; rows then go in ascending order.
  std::vector<std::int32_t> next(static_cast<std::size_t>(n) + 1, 0);
  for (const Entry& entry : chosen) ++next[static_cast<std::size_t>(entry.col) + 1];
  for (std::size_t c = 0; c < static_cast<std::size_t>(n); ++c) next[c + 1] += next[c];
  SparseMatrix result(n, n);
  result.resizeNonZeros(static_cast<Index>(chosen.size()));
  std::copy(next.begin(), next.end(), result.outerIndexPtr());
  for (std::size_t e = 0; e < chosen.size(); ++e) {
    const std::int32_t position = next[static_cast<std::size_t>(chosen[e].col)]++;
    result.innerIndexPtr()[position] = static_cast<std::int32_t>(e / static_cast<std::size_t>(k));
    result.valuePtr()[position] = chosen[e].value;
  }
  return result;
}

template class RowTopK<float>;
template class RowTopK<double>;

}  // namespace velmor::internal
