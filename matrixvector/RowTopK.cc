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
      entries_(static_cast<std::size_t>(n) * static_cast<std::size_t>(k)),
      sizes_(static_cast<std::size_t>(n), 0),
      floors_(static_cast<std::size_t>(n), -std::numeric_limits<T>::infinity()) {
  assert(1 <= k && k <= n);
}

template <typename T>
void RowTopK<T>::Offer(Index row, T value, Index col) {
  Entry* heap = entries_.data() + row * k_;
  int& size = sizes_[static_cast<std::size_t>(row)];
  const Entry entry{value, static_cast<std::int32_t>(col)};
  if (size < k_) {
    heap[size++] = entry;
    std::push_heap(heap, heap + size, Better);
  } else if (Better(entry, heap[0])) {
    std::pop_heap(heap, heap + k_, Better);
    heap[k_ - 1] = entry;
    std::push_heap(heap, heap + k_, Better);
  } else {
    return;
  }
  if (size == k_) floors_[static_cast<std::size_t>(row)] = heap[0].value;
}

template <typename T>
void RowTopK<T>::OfferTile(const Tile& tile, const TileView<T>& values) {
  // An entry below a full row's floor cannot enter it; runs of entries are
  // screened by a branch-free test first, and nearly all fail it.
  constexpr Index kRun = 16;
  const T* floors = floors_.data();
  for (Index j = 0; j < tile.cols; ++j) {
    const T* column = values.data() + j * values.outerStride();
    // Column j holds entries (tile.row + i, tile.col + j).
    for (Index start = 0; start < tile.rows; start += kRun) {
      const Index end = std::min(tile.rows, start + kRun);
      bool any = false;
      for (Index i = start; i < end; ++i) any |= column[i] >= floors[tile.row + i];
      if (!any) continue;
      for (Index i = start; i < end; ++i) {
        if (column[i] >= floors[tile.row + i]) Offer(tile.row + i, column[i], tile.col + j);
      }
    }
    if (tile.diagonal()) continue;
    // Transposed, the same column holds row tile.col + j's entries.
    const Index row = tile.col + j;
    for (Index start = 0; start < tile.rows; start += kRun) {
      const Index end = std::min(tile.rows, start + kRun);
      const T floor = floors[row];
      bool any = false;
      for (Index i = start; i < end; ++i) any |= column[i] >= floor;
      if (!any) continue;
      for (Index i = start; i < end; ++i) {
        if (column[i] >= floors[row]) Offer(row, column[i], tile.row + i);
      }
    }
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
      const Entry* heap = part.entries_.data() + row * k;
      pool.insert(pool.end(), heap, heap + part.sizes_[static_cast<std::size_t>(row)]);
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
