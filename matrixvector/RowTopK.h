#ifndef VELMOR_MATRIXVECTOR_ROWTOPK_H_
#define VELMOR_MATRIXVECTOR_ROWTOPK_H_

// Internal to matrixvector/: the k largest entries of each row of a
// symmetric n x n matrix whose tiles are offered one at a time, so that the
// matrix is never held.
//
// Entries are ordered by larger value, then lower column. That order is
// total, so the kept entries do not depend on the order of the offers, and
// several instances that were offered disjoint sets of tiles (one per
// worker) merge into exactly the top k of all their offers.
//
// Each row keeps a buffer of 2k candidates: entries at or above the row's
// floor (the k-th best at the last compaction) are appended, and a full
// buffer is cut back to its best k. Memory: n * 2k (value, column) pairs and
// one floor per row.

#include <Eigen/SparseCore>
#include <cstdint>
#include <vector>

#include "matrixvector/SimilarityTiles.h"

namespace velmor::internal {

template <typename T>
class RowTopK {
 public:
  using SparseMatrix = Eigen::SparseMatrix<T, Eigen::ColMajor, std::int32_t>;

  // REQUIRES: 1 <= k <= n.
  RowTopK(Eigen::Index n, int k);

  // Offers a tile's entries to the rows of its row block and, for a tile
  // below the diagonal, its transposed entries to the rows of its column
  // block. REQUIRES: a diagonal tile is symmetric.
  void OfferTile(const Tile& tile, const TileView<T>& values);

  // The top k of each row over all of `parts`, as an n x n compressed
  // column-major matrix with k stored entries per row (zeros included).
  // REQUIRES: together the parts were offered every entry of every row.
  static SparseMatrix Merge(const std::vector<RowTopK>& parts);

 private:
  struct Entry {
    T value;
    std::int32_t col;
  };
  static bool Better(const Entry& a, const Entry& b) {
    return a.value > b.value || (a.value == b.value && a.col < b.col);
  }
  void Offer(Eigen::Index row, T value, Eigen::Index col);
  // Offers column[i] to row first_row + i, as column `col`, for i in [0, count).
  void OfferDown(const T* column, Eigen::Index count, Eigen::Index first_row, Eigen::Index col);
  // Offers column[i] to row `row`, as column first_col + i, for i in [0, count).
  void OfferAcross(const T* column, Eigen::Index count, Eigen::Index row, Eigen::Index first_col);

  Eigen::Index n_;
  int k_;
  int capacity_;                // 2k
  std::vector<Entry> entries_;  // row r's candidates at r * capacity
  std::vector<int> sizes_;
  std::vector<T> floors_;  // the k-th best at the last compaction, else -infinity
};

}  // namespace velmor::internal

#endif  // VELMOR_MATRIXVECTOR_ROWTOPK_H_
