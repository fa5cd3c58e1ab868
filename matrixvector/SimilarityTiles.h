#ifndef VELMOR_MATRIXVECTOR_SIMILARITYTILES_H_
#define VELMOR_MATRIXVECTOR_SIMILARITYTILES_H_

// Internal to matrixvector/: the tiles in which symmetric n x n matrices are
// computed, and the loop that spreads work items over threads.

#include <Eigen/Core>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <exception>
#include <mutex>
#include <numeric>
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
// on and below the diagonal of an n x n matrix, numbered 0 .. size() - 1 in a
// fixed scrambled order (an affine permutation of the row-by-row order), in
// O(1) memory. The order spreads consecutive tiles over the matrix.
class LowerTiles {
 public:
  LowerTiles(Eigen::Index n, Eigen::Index side)
      : n_(n), side_(side), blocks_((n + side - 1) / side), count_(blocks_ * (blocks_ + 1) / 2) {
    // A stride near count / golden ratio, coprime to the count.
    stride_ = std::max<std::int64_t>(1, static_cast<std::int64_t>(0.6180339887 * count_));
    while (std::gcd(stride_, std::max<std::int64_t>(count_, 1)) != 1) ++stride_;
  }

  std::int64_t size() const { return count_; }

  // REQUIRES: 0 <= t < size().
  Tile operator[](std::int64_t t) const {
    const auto u = static_cast<std::int64_t>(
        (static_cast<unsigned __int128>(t) * static_cast<unsigned __int128>(stride_)) %
        static_cast<unsigned __int128>(count_));
    // u = I (I + 1) / 2 + J with J <= I: row block I, column block J.
    auto i = static_cast<std::int64_t>((std::sqrt(8.0 * static_cast<double>(u) + 1.0) - 1.0) / 2.0);
    while ((i + 1) * (i + 2) / 2 <= u) ++i;
    while (i * (i + 1) / 2 > u) --i;
    const std::int64_t j = u - i * (i + 1) / 2;
    const Eigen::Index row = i * side_, col = j * side_;
    return {row, col, std::min(side_, n_ - row), std::min(side_, n_ - col)};
  }

 private:
  Eigen::Index n_, side_;
  std::int64_t blocks_, count_, stride_;
};

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
