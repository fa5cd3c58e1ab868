#include "matrixvector/FeatureSimilarity.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <stop_token>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "matrixvector/ExactSelection.h"
#include "matrixvector/RowTopK.h"
#include "matrixvector/SimilarityTiles.h"
#include "utils/FreshMemory.h"
#include "utils/error_messages.h"

namespace velmor {
namespace {

using Eigen::Index;
using internal::ExactSelection;
using internal::ParallelFor;
using internal::RowTopK;
using internal::Tile;
using internal::TileView;

// Tile side. Fixed (never derived from the thread count) so that every entry
// is computed by the same product whatever the threads.
constexpr Index kTile = 256;

// Pairs sampled for the pivots of the median's selection, when there are
// more than four times as many pairs.
constexpr std::uint64_t kSamplePairs = std::uint64_t{1} << 18;

const char* KindName(int kind) {
  static constexpr const char* kNames[] = {"RBF", "COSINE", "DOT", "EUCLIDEANSIM"};
  return kNames[kind];
}

// Sets up the pages of a fresh buffer for writing and touches each once, 64 MB
// at a time, until done or asked to stop. The content is left undefined.
void SetUpPagesUntilStopped(std::stop_token stop, void* data, std::size_t bytes) {
  constexpr std::size_t kPiece = kFreshMemoryThreshold;
  char* const begin = static_cast<char*>(data);
  for (std::size_t done = 0; done < bytes && !stop.stop_requested(); done += kPiece) {
    const std::size_t size = std::min(kPiece, bytes - done);
    PrepareFreshMemory(begin + done, size, 1);
    for (std::size_t at = 0; at < size; at += 4096) begin[done + at] = 0;
  }
}

// Makes a square block symmetric: its lower triangle over its upper one.
template <typename Block>
void CopyLowerToUpper(Block&& values) {
  for (Index j = 1; j < values.cols(); ++j) {
    for (Index i = 0; i < j; ++i) values(i, j) = values(j, i);
  }
}

// Scratch space of one worker: a tile of products and a tile of values.
template <typename T>
struct Scratch {
  Eigen::MatrixXd product_double;
  Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic> product;
  Eigen::Array<T, Eigen::Dynamic, Eigen::Dynamic> values;
};

// The product operands of one kind and the entry-wise steps that turn a tile
// of products into similarities.
//
// Raw tile values are the squared distances rounded to T for the distance
// kinds and the final similarities for kDot and kCosine. Diagonal tiles are
// made symmetric by copying their lower triangle over the upper one. Finish
// is entry-wise and gives an entry the same value wherever its tile is
// computed, since every worker's scratch has the same layout.
template <typename T>
class TileKernel {
 public:
  using Kind = typename FeatureSimilarity<T>::Kind;
  using Matrix = typename FeatureSimilarity<T>::Matrix;

  // Checks and prepares the features; throws before anything is computed.
  TileKernel(Kind kind, const Matrix& features);

  Index size() const { return n_; }

  Scratch<T> MakeScratch() const;
  // Fills scratch.values (tile.rows x tile.cols) with the raw values.
  void Raw(const Tile& tile, Scratch<T>& scratch) const;
  // Raw values to similarities in place, with the kind's parameter (gamma
  // of kRbf, the largest distance of kEuclideanSim).
  void Finish(Eigen::Ref<Eigen::Array<T, Eigen::Dynamic, Eigen::Dynamic>> values,
              double parameter) const;
  // The squared distance of rows i and j by their difference, rounded to T
  // (close to, not always equal to, the raw value). Distance kinds only.
  T SquaredDistance(Index i, Index j) const {
    return static_cast<T>((centred_.col(i) - centred_.col(j)).squaredNorm());
  }

 private:
  bool distance_kind() const { return kind_ == Kind::kRbf || kind_ == Kind::kEuclideanSim; }

  Kind kind_;
  Index n_;
  Eigen::MatrixXd centred_;  // distance kinds: d x n, item i in column i
  Eigen::VectorXd squared_norms_;
  Matrix columns_;  // kDot, kCosine: d x n
};

template <typename T>
TileKernel<T>::TileKernel(Kind kind, const Matrix& features) : kind_(kind), n_(features.rows()) {
  const char* name = KindName(static_cast<int>(kind));
  for (Index c = 0; c < features.cols(); ++c) {
    for (Index r = 0; r < features.rows(); ++r) {
      if (!std::isfinite(features(r, c))) {
        VELMOR_THROW(std::invalid_argument,
                     "%s() needs finite features, but row %d, column %d holds %g.", name,
                     static_cast<int>(r), static_cast<int>(c), static_cast<double>(features(r, c)));
      }
    }
  }
  if (distance_kind()) {
    // Distances do not change with a shift; centring keeps the norms, and so
    // the cancellation in |a|^2 + |b|^2 - 2 a.b, small.
    const Eigen::RowVectorXd mean = features.template cast<double>().colwise().mean();
    centred_ = (features.template cast<double>().rowwise() - mean).transpose();
    squared_norms_ = centred_.colwise().squaredNorm().transpose();
    const double largest = n_ > 0 ? squared_norms_.maxCoeff() : 0.0;
    if (!(largest <= std::numeric_limits<double>::max() / 4)) {
      VELMOR_THROW(std::invalid_argument,
                   "%s() overflows: a squared distance exceeds the range of double.", name);
    }
  } else if (kind == Kind::kDot) {
    const Eigen::VectorXd norms = features.template cast<double>().rowwise().squaredNorm();
    const double largest = n_ > 0 ? norms.maxCoeff() : 0.0;
    if (!(largest <= static_cast<double>(std::numeric_limits<T>::max()))) {
      VELMOR_THROW(std::invalid_argument,
                   "DOT() overflows: a row's squared norm %g exceeds the element type's range.",
                   largest);
    }
    columns_ = features.transpose();
  } else {
    columns_.resize(features.cols(), n_);
    // Without features every row has norm 0 and nothing to scale; a row of
    // a matrix without storage must not even be formed.
    for (Index i = 0; i < n_ && features.cols() > 0; ++i) {
      const Eigen::RowVectorXd row = features.row(i).template cast<double>();
      const double norm = row.stableNorm();
      const double inverse = norm > 0 ? 1.0 / norm : 0.0;
      columns_.col(i) = (row.transpose() * inverse).template cast<T>();
    }
  }
}

template <typename T>
Scratch<T> TileKernel<T>::MakeScratch() const {
  Scratch<T> scratch;
  const Index side = std::min(kTile, n_);
  if (distance_kind()) {
    scratch.product_double.resize(side, side);
  } else {
    scratch.product.resize(side, side);
  }
  scratch.values.resize(side, side);
  return scratch;
}

template <typename T>
void TileKernel<T>::Raw(const Tile& tile, Scratch<T>& scratch) const {
  auto values = scratch.values.topLeftCorner(tile.rows, tile.cols);
  if (distance_kind()) {
    auto product = scratch.product_double.topLeftCorner(tile.rows, tile.cols);
    product.noalias() = centred_.middleCols(tile.row, tile.rows).transpose() *
                        centred_.middleCols(tile.col, tile.cols);
    const auto row_norms = squared_norms_.segment(tile.row, tile.rows).array();
    const auto col_norms = squared_norms_.segment(tile.col, tile.cols).transpose().array();
    values = (((-2.0 * product.array()).colwise() + row_norms).rowwise() + col_norms)
                 .cwiseMax(0.0)
                 .template cast<T>();
    if (tile.diagonal()) values.matrix().diagonal().setZero();
  } else {
    auto product = scratch.product.topLeftCorner(tile.rows, tile.cols);
    product.noalias() = columns_.middleCols(tile.row, tile.rows).transpose() *
                        columns_.middleCols(tile.col, tile.cols);
    values = product.array();
  }
  if (tile.diagonal()) CopyLowerToUpper(values);
}

template <typename T>
void TileKernel<T>::Finish(Eigen::Ref<Eigen::Array<T, Eigen::Dynamic, Eigen::Dynamic>> values,
                           double parameter) const {
  if (kind_ == Kind::kRbf) {
    // A gamma beyond T's range acts as T's largest value, so that a zero
    // distance still gives 1, never NaN.
    const T minus_gamma =
        -static_cast<T>(std::min(parameter, static_cast<double>(std::numeric_limits<T>::max())));
    values = (values * minus_gamma).exp();
  } else if (kind_ == Kind::kEuclideanSim) {
    values = (parameter - values.template cast<double>().sqrt()).template cast<T>();
  }
}

// Writes a finished tile to both triangles of `result`.
template <typename T>
void WriteBoth(const Tile& tile, const TileView<T>& values,
               typename FeatureSimilarity<T>::Matrix& result) {
  result.block(tile.row, tile.col, tile.rows, tile.cols) = values.matrix();
  if (!tile.diagonal()) {
    result.block(tile.col, tile.row, tile.cols, tile.rows) = values.matrix().transpose();
  }
}

// What one call computes: the kernel, the tiles, per-worker scratch, and the
// kind's parameter once known.
template <typename T>
class Computation {
 public:
  using Kind = typename FeatureSimilarity<T>::Kind;
  using Matrix = typename FeatureSimilarity<T>::Matrix;

  using Progress = typename FeatureSimilarity<T>::Progress;

  Computation(Kind kind, double gamma, int threads, const Matrix& features,
              const Progress& progress, const std::atomic<bool>* stop)
      : kind_(kind),
        gamma_(gamma),
        progress_(progress),
        stop_(stop),
        kernel_(kind, features),
        tiles_(kernel_.size(), kTile),
        workers_(static_cast<int>(std::clamp<std::int64_t>(tiles_.size(), 1, threads))) {
    for (int w = 0; w < workers_; ++w) scratch_.push_back(kernel_.MakeScratch());
  }

  Index size() const { return kernel_.size(); }
  int workers() const { return workers_; }

  // Whether the median (default gamma) must be selected first.
  bool NeedsMedian() const { return kind_ == Kind::kRbf && gamma_ == 0 && size() > 1; }
  // Whether the largest distance must be found first.
  bool NeedsLargest() const { return kind_ == Kind::kEuclideanSim; }

  // Raw values of every tile to `visit(tile, view, worker)`, in parallel;
  // the progress is told under the name `pass`. Throws, once the stop flag
  // is set, before the next tile.
  template <typename Visit>
  void ForEachRawTile(const char* pass, const Visit& visit) {
    std::atomic<std::int64_t> done{0};
    const std::int64_t total = tiles_.size();
    ParallelFor(total, workers_, [&](std::int64_t t, int w) {
      if (stop_ != nullptr && stop_->load(std::memory_order_relaxed)) {
        VELMOR_THROW(std::runtime_error, "%s() was stopped before it finished.",
                     KindName(static_cast<int>(kind_)));
      }
      const Tile tile = tiles_[t];
      Scratch<T>& scratch = scratch_[static_cast<std::size_t>(w)];
      kernel_.Raw(tile, scratch);
      visit(tile, ScratchView(tile, scratch), w);
      if (progress_) progress_(pass, done.fetch_add(1, std::memory_order_relaxed) + 1, total);
    });
  }

  // Finished values of every tile to `visit(tile, view, worker)`.
  // REQUIRES: Prepare() was called.
  template <typename Visit>
  void ForEachFinishedTile(const Visit& visit) {
    ForEachRawTile("similarities", [&](const Tile& tile, const TileView<T>&, int w) {
      Scratch<T>& scratch = scratch_[static_cast<std::size_t>(w)];
      auto values = scratch.values.topLeftCorner(tile.rows, tile.cols);
      kernel_.Finish(values, parameter_);
      // A vectorized and a scalar step may round one value differently, so
      // a finished diagonal tile is made symmetric again.
      if (tile.diagonal()) CopyLowerToUpper(values);
      visit(tile, ScratchView(tile, scratch), w);
    });
  }

  // Finds the kind's statistic, when it has one, by passes over the tiles
  // (the median's selection, usually one pass; the largest distance, one
  // pass), and sets the parameter Finish uses.
  void Prepare() {
    double median = 0.0, largest = 0.0;
    if (NeedsMedian()) {
      median = static_cast<double>(Select(*MakeMedianSelection()));
    } else if (NeedsLargest()) {
      std::vector<double> largest_of(static_cast<std::size_t>(workers_), 0.0);
      ForEachRawTile("largest distance", [&](const Tile& tile, const TileView<T>& raw, int w) {
        TakeLargest(tile, raw, largest_of[static_cast<std::size_t>(w)]);
      });
      largest = *std::max_element(largest_of.begin(), largest_of.end());
    }
    SetParameter(median, largest);
  }

  // A selection of the median squared distance, with pivots from a sample
  // of pairs when there are many. REQUIRES: NeedsMedian().
  std::unique_ptr<ExactSelection<T>> MakeMedianSelection() const {
    const auto n = static_cast<std::uint64_t>(size());
    const std::uint64_t total = n * (n - 1) / 2, rank = total / 2;
    const std::uint64_t limit = std::clamp<std::uint64_t>(total / 64, 4096, 1 << 22);
    auto selection = std::make_unique<ExactSelection<T>>(rank, total, limit, workers_);
    if (total > 4 * kSamplePairs) {
      const auto [lo, hi] = SamplePivots(static_cast<double>(rank) / static_cast<double>(total));
      selection->SetPivots(lo, hi);
    }
    return selection;
  }

  // Runs the passes of `selection`.
  T Select(ExactSelection<T>& selection) {
    while (!selection.done()) {
      selection.StartPass();
      ForEachRawTile("median distance", [&](const Tile& tile, const TileView<T>& raw, int w) {
        selection.Visit(tile, raw, w);
      });
      selection.FinishPass();
    }
    return selection.value();
  }

  // The largest raw value below the diagonal (the largest squared distance).
  static void TakeLargest(const Tile& tile, const TileView<T>& raw, double& largest) {
    for (Index j = 0; j < tile.cols; ++j) {
      const Index begin = tile.diagonal() ? j + 1 : 0;
      if (begin < tile.rows) {
        largest =
            std::max(largest, static_cast<double>(raw.col(j).tail(tile.rows - begin).maxCoeff()));
      }
    }
  }

  // The kind's parameter: kRbf's gamma from the given one or the median,
  // kEuclideanSim's largest distance from the largest squared one.
  void SetParameter(double median, double largest_squared) {
    if (kind_ == Kind::kRbf) {
      parameter_ = gamma_ > 0 ? gamma_ : median > 0 ? 1.0 / median : 1.0;
      if (!(parameter_ > 0)) {
        VELMOR_THROW(std::invalid_argument,
                     "RBF() cannot choose gamma: the median squared distance %g is out of range.",
                     median);
      }
    } else if (kind_ == Kind::kEuclideanSim) {
      parameter_ = std::sqrt(largest_squared);
      if (!(parameter_ <= static_cast<double>(std::numeric_limits<T>::max()))) {
        VELMOR_THROW(std::invalid_argument,
                     "EUCLIDEANSIM() overflows: the largest distance %g exceeds the element "
                     "type's range.",
                     parameter_);
      }
    }
  }

 private:
  static TileView<T> ScratchView(const Tile& tile, const Scratch<T>& scratch) {
    return TileView<T>(scratch.values.data(), tile.rows, tile.cols,
                       Eigen::OuterStride<>(scratch.values.rows()));
  }

  // Pivots around the `quantile` of the squared distances of a fixed sample
  // of m pairs, 3 sqrt(m) sample ranks either way: six standard deviations of
  // the true quantile's rank in the sample, so they hold it but for bad
  // luck, which costs only passes.
  std::pair<T, T> SamplePivots(double quantile) const {
    const Index n = size();
    std::vector<T> sample(kSamplePairs);
    std::uint64_t state = 0x9E3779B97F4A7C15ull;
    for (T& value : sample) {
      std::uint64_t z = (state += 0x9E3779B97F4A7C15ull);  // splitmix64
      z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
      z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
      z ^= z >> 31;
      const auto i = static_cast<Index>(z % static_cast<std::uint64_t>(n));
      const auto step = static_cast<Index>((z >> 32) % static_cast<std::uint64_t>(n - 1));
      value = kernel_.SquaredDistance(i, (i + 1 + step) % n);
    }
    const double m = static_cast<double>(kSamplePairs);
    const double spread = 3.0 * std::sqrt(m);
    const double lo_index = std::floor(quantile * m - spread);
    const double hi_index = std::ceil(quantile * m + spread);
    T lo = 0, hi = std::numeric_limits<T>::infinity();
    if (lo_index >= 0) {
      const auto at = sample.begin() + static_cast<std::ptrdiff_t>(lo_index);
      std::nth_element(sample.begin(), at, sample.end());
      lo = *at;
    }
    if (hi_index < m) {
      const auto at = sample.begin() + static_cast<std::ptrdiff_t>(hi_index);
      std::nth_element(sample.begin(), at, sample.end());
      hi = *at;
    }
    return {lo, hi};
  }

  Kind kind_;
  double gamma_;
  const Progress& progress_;
  const std::atomic<bool>* stop_;
  double parameter_ = 0.0;
  TileKernel<T> kernel_;
  // Visited in the scrambled order: results never depend on the order, but
  // the nearest-neighbour form runs faster when each row meets its column
  // blocks in an order unrelated to the items' (for items sorted along a
  // feature, the ascending order would make nearly every entry a new best).
  internal::LowerTiles tiles_;
  int workers_;
  std::vector<Scratch<T>> scratch_;
};

}  // namespace

template <typename T>
FeatureSimilarity<T>::FeatureSimilarity(Kind kind, double gamma, int threads)
    : kind_(kind), gamma_(gamma), threads_(threads) {
  if (kind == Kind::kRbf && !(gamma >= 0 && std::isfinite(gamma))) {
    VELMOR_THROW(std::invalid_argument, "RBF() needs gamma > 0, not %g.", gamma);
  }
  if (kind != Kind::kRbf && gamma != 0) {
    VELMOR_THROW(std::invalid_argument, "%s() takes no gamma.", KindName(static_cast<int>(kind)));
  }
  if (threads < 0) VELMOR_THROW(std::invalid_argument, "Invalid thread count %d.", threads);
  if (threads == 0) threads_ = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

template <typename T>
typename FeatureSimilarity<T>::Matrix FeatureSimilarity<T>::Dense(const Matrix& features) const {
  Computation<T> computation(kind_, gamma_, threads_, features, progress_, stop_);
  const Index n = computation.size();
  // The result's pages are set up on a thread of their own while the
  // parameter's pass runs (the first touch of fresh memory is slow on virtual
  // machines). Should the allocation fail, the pass's own errors come first.
  Matrix result;
  try {
    result.resize(n, n);
  } catch (const std::bad_alloc&) {
  }
  {
    std::jthread setup;
    try {
      if (result.size() > 0)
        setup = std::jthread(SetUpPagesUntilStopped, result.data(), result.size() * sizeof(T));
    } catch (const std::system_error&) {
      // No thread: the pages are set up as they are first written.
    }
    computation.Prepare();
    if (setup.joinable()) setup.join();
  }
  if (result.size() != n * n) {
    try {
      result.resize(n, n);
    } catch (const std::bad_alloc&) {
      VELMOR_THROW_NESTED(std::runtime_error, "%s() cannot allocate its %ldx%ld result (%.1f GB).",
                          KindName(static_cast<int>(kind_)), static_cast<long>(n),
                          static_cast<long>(n), static_cast<double>(n) * n * sizeof(T) / 1e9);
    }
  }
  computation.ForEachFinishedTile([&](const Tile& tile, const TileView<T>& values, int) {
    WriteBoth<T>(tile, values, result);
  });
  return result;
}

template <typename T>
typename FeatureSimilarity<T>::SparseMatrix FeatureSimilarity<T>::Nearest(const Matrix& features,
                                                                          int k) const {
  if (k < 1) VELMOR_THROW(std::invalid_argument, "Nearest() needs k >= 1, not %d.", k);
  Computation<T> computation(kind_, gamma_, threads_, features, progress_, stop_);
  const Index n = computation.size();
  const int kept = static_cast<int>(std::min<Index>(k, n));
  if (static_cast<double>(n) * kept > std::numeric_limits<std::int32_t>::max()) {
    VELMOR_THROW(std::invalid_argument,
                 "Nearest() would keep %.0f entries, more than a sparse matrix holds.",
                 static_cast<double>(n) * kept);
  }
  if (n == 0) return SparseMatrix(0, 0);
  computation.Prepare();
  std::vector<RowTopK<T>> parts;
  for (int w = 0; w < computation.workers(); ++w) parts.emplace_back(n, kept);
  computation.ForEachFinishedTile([&](const Tile& tile, const TileView<T>& values, int w) {
    parts[static_cast<std::size_t>(w)].OfferTile(tile, values);
  });
  return RowTopK<T>::Merge(parts);
}

template <typename T>
double FeatureSimilarity<T>::MedianSquaredDistance(const Matrix& features) const {
  Computation<T> computation(Kind::kRbf, 0.0, threads_, features, progress_, stop_);
  if (!computation.NeedsMedian()) return 0.0;
  return static_cast<double>(computation.Select(*computation.MakeMedianSelection()));
}

template class FeatureSimilarity<float>;
template class FeatureSimilarity<double>;

}  // namespace velmor
