#ifndef VELMOR_MATRIXVECTOR_FEATURESIMILARITY_H_
#define VELMOR_MATRIXVECTOR_FEATURESIMILARITY_H_

// Similarity matrices of feature vectors, computed tile by tile as matrix
// products on a given number of threads.
//
// The rows x_0 .. x_{n-1} of an n x d feature matrix give the n x n matrix
//   kRbf           exp(-gamma ||x_i - x_j||^2)
//   kCosine        x_i.x_j / (||x_i|| ||x_j||), 0 where either row is all zero
//   kDot           x_i.x_j
//   kEuclideanSim  largest distance - ||x_i - x_j||
// The result is symmetric bit for bit, so its column-major storage is also the
// element-major layout (element v's n values contiguous) that the dense
// facility-location function reads: it can be moved in without a transposing
// copy.
//
// Determinism: the matrix is cut into square tiles whose size does not depend
// on the thread count; each tile of the lower triangle is one product of two
// row blocks, finished entry-wise and written to both triangles. Results are
// therefore identical for every thread count, and the dense and the
// nearest-neighbour forms hold the same values.
//
// Arithmetic: the distance kinds centre the features on their mean and take
// the products in double, then round the squared distance to T; kDot and
// kCosine take the products in T (kCosine on rows scaled to unit length in
// double). The largest distance of kEuclideanSim is the square root of the
// largest rounded squared distance.
//
// Default gamma of kRbf: 1 / the median of the n(n-1)/2 squared distances
// between distinct rows (the one of 0-based rank floor(n(n-1)/4) in ascending
// order, of the rounded values above), or 1 when that median is 0 or there
// are fewer than two rows. The selection is exact, with no second n x n
// array: pivots from a fixed sample of pairs bound it, and one pass over the
// tiles counts the values below and between them and gathers those between
// (about 1% of the pairs; at most min(2^22, pairs / 64) are held, further
// passes narrowing by bit patterns when there are more).
//
// Passes: the statistic a kind needs (the default gamma's median, usually one
// pass; kEuclideanSim's largest distance, one pass) is found by computing the
// tiles once more before the pass that produces the result; nothing is read
// back from the result.
//
// Errors, all checked before any result is made: std::invalid_argument with a
// source message naming the kind as "RBF()", "COSINE()", "DOT()" or
// "EUCLIDEANSIM()"; std::runtime_error "%s() cannot allocate its %ldx%ld
// result (%.1f GB)." with the std::bad_alloc nested when the dense result
// cannot be allocated (other allocations throw std::bad_alloc itself).
//
// T is float or double.

#include <Eigen/Core>
#include <Eigen/SparseCore>
#include <atomic>
#include <cstdint>
#include <functional>

namespace velmor {

template <typename T>
class FeatureSimilarity {
 public:
  enum class Kind { kRbf, kCosine, kDot, kEuclideanSim };

  // n x d features in, n x n similarities out; both column-major.
  using Matrix = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic, Eigen::ColMajor>;
  // The sparse matrices of the library: compressed column-major, 32-bit indices.
  using SparseMatrix = Eigen::SparseMatrix<T, Eigen::ColMajor, int32_t>;

  // `gamma` is kRbf's: a finite value > 0, or 0 for the default; the other
  // kinds take 0. `threads` >= 1, or 0 for the machine's cores. Throws
  // "RBF() needs gamma > 0, not %g." for a negative or non-finite gamma,
  // "%s() takes no gamma." and "Invalid thread count %d.".
  FeatureSimilarity(Kind kind, double gamma, int threads);

  // Told after each tile of a pass: the pass ("median distance", "largest
  // distance", "similarities"), the tiles done and the tiles of the pass.
  // Called from the computing threads, possibly at once: it must be
  // thread-safe, and cheap. It cannot change any result.
  using Progress = std::function<void(const char* pass, std::int64_t done, std::int64_t total)>;
  void SetProgress(Progress progress) { progress_ = std::move(progress); }

  // A flag read before each tile of every pass (one relaxed load per tile):
  // once another thread sets it, the running call stops within a tile per
  // thread and throws std::runtime_error "%s() was stopped before it
  // finished.", leaving no result. nullptr (the default): never stopped. The
  // flag must outlive the calls.
  void SetStopFlag(const std::atomic<bool>* stop) { stop_ = stop; }

  // The n x n similarity matrix of the rows of `features`. Memory: the result
  // (with huge pages asked for) plus per thread two 256 x 256 tiles and, for
  // the default gamma, the selection's buffer.
  // Throws "%s() needs finite features, but row %d, column %d holds %g." and,
  // when the result cannot be represented in T, "DOT() overflows: a row's
  // squared norm %g exceeds the element type's range.", "%s() overflows: a
  // squared distance exceeds the range of double." or "EUCLIDEANSIM()
  // overflows: the largest distance %g exceeds the element type's range.".
  Matrix Dense(const Matrix& features) const;

  // The same matrix keeping only the min(k, n) largest entries of each row
  // (ties broken towards the lower column), every kept entry stored, zeros
  // included; equal entry for entry to KNN applied to Dense(features). The
  // n x n matrix is never held: memory is O(threads * n * k) besides the
  // result. Throws as Dense, and "Nearest() needs k >= 1, not %d." first, and
  // "Nearest() would keep %.0f entries, more than a sparse matrix holds."
  // when n * min(k, n) exceeds 32-bit indices.
  SparseMatrix Nearest(const Matrix& features, int k) const;

  // The median squared distance of the default gamma (0 for fewer than two
  // rows). Throws as Dense.
  double MedianSquaredDistance(const Matrix& features) const;

  Kind kind() const { return kind_; }
  int threads() const { return threads_; }

 private:
  Kind kind_;
  double gamma_;
  int threads_;
  Progress progress_;
  const std::atomic<bool>* stop_ = nullptr;
};

}  // namespace velmor

#endif  // VELMOR_MATRIXVECTOR_FEATURESIMILARITY_H_
