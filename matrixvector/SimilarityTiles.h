#ifndef VELMOR_MATRIXVECTOR_SIMILARITYTILES_H_
#define VELMOR_MATRIXVECTOR_SIMILARITYTILES_H_

// Internal to matrixvector/: the tiles in which symmetric n x n matrices are
// computed, and the loop that spreads work items over threads.

#include <Eigen/Core>
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace velmor::internal {

// A tile of an n x n matrix on or below the diagonal: rows [row, row + rows),
// columns [col, col + cols).
struct Tile {
  Eigen::Index row, col, rows, cols;
  bool diagonal() const { return row == col; }
};

// A tile's values held in a column-major array with some outer stride.
template <typename T>
using TileView =
    Eigen::Map<const Eigen::Array<T, Eigen::Dynamic, Eigen::Dynamic>, 0, Eigen::OuterStride<>>;

// The tiles of side `side` (the last row and column of tiles may be smaller)
// on and below the diagonal, row block by row block.
inline std::vector<Tile> LowerTiles(Eigen::Index n, Eigen::Index side) {
  std::vector<Tile> tiles;
  for (Eigen::Index row = 0; row < n; row += side) {
    for (Eigen::Index col = 0; col <= row; col += side) {
      tiles.push_back({row, col, std::min(side, n - row), std::min(side, n - col)});
    }
  }
  return tiles;
}

// Runs body(item, worker) for every item in [0, count) on up to `workers`
// threads, the calling thread being worker 0; which worker takes which item
// is not fixed. The first exception thrown by a body stops the remaining
// items and is rethrown after every thread has ended.
template <typename Body>
void ParallelFor(std::int64_t count, int workers, const Body& body) {
  workers = static_cast<int>(std::clamp<std::int64_t>(count, 1, std::max(1, workers)));
  std::atomic<std::int64_t> next{0};
  std::exception_ptr failure;
  std::mutex failure_mutex;
  const auto work = [&](int worker) {
    try {
      for (std::int64_t item; (item = next.fetch_add(1)) < count;) body(item, worker);
    } catch (...) {
      next = count;
      const std::lock_guard<std::mutex> lock(failure_mutex);
      if (!failure) failure = std::current_exception();
    }
  };
  std::vector<std::thread> threads;
  try {
    for (int worker = 1; worker < workers; ++worker) threads.emplace_back(work, worker);
  } catch (...) {
    next = count;
    for (std::thread& thread : threads) thread.join();
    throw;
  }
  work(0);
  for (std::thread& thread : threads) thread.join();
  if (failure) std::rethrow_exception(failure);
}

}  // namespace velmor::internal

#endif  // VELMOR_MATRIXVECTOR_SIMILARITYTILES_H_
