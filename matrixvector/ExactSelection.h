#ifndef VELMOR_MATRIXVECTOR_EXACTSELECTION_H_
#define VELMOR_MATRIXVECTOR_EXACTSELECTION_H_

// Internal to matrixvector/: exact selection of the value of a given rank
// among the entries strictly below the diagonal of a symmetric n x n matrix
// whose tiles can be visited again and again, but never held all at once
// except where they already are.
//
// The selection keeps an interval [lo, hi] known to hold the answer, the
// answer's rank among the entries inside it, and their count. Each pass
// visits every tile (on any number of workers, in any order) and narrows it:
//   split    the first pass, when pivots were given: counts the entries
//            below, inside and above the pivots, gathering those inside
//            while they fit the limit (so that, when the answer is inside,
//            it is found in this one pass);
//   buckets  when the interval holds more entries than the buffer limit:
//            counts them in 65536 equal ranges of their bit patterns
//            (non-negative floating-point values order as their patterns);
//   collect  once they fit the limit: gathers them and selects among them.
// Each bucket pass divides the interval's range of patterns by 65536, so at
// most two follow for float and four for double; an interval of a single
// value (ties) ends at once. Pivots near the answer (from a sample) make the
// usual course a single split pass. The result does not depend on the
// workers or the order of the visits.
//
// REQUIRES: every entry is >= 0 or +infinity (-0 counts as 0), never NaN.

#include <atomic>
#include <cstdint>
#include <vector>

#include "matrixvector/SimilarityTiles.h"

namespace velmor::internal {

template <typename T>
class ExactSelection {
 public:
  // The entry of 0-based rank `rank` in ascending order among `total`
  // entries; `buffer_limit` entries at most are gathered. REQUIRES: rank <
  // total, workers >= 1.
  ExactSelection(std::uint64_t rank, std::uint64_t total, std::uint64_t buffer_limit, int workers);

  // Pivots lo <= hi for the first pass (a split pass).
  void SetPivots(T lo, T hi);

  bool done() const { return done_; }
  // The answer, once done().
  T value() const { return lo_; }

  // A pass: StartPass, then Visit every tile once (concurrently with
  // distinct `worker` values), then FinishPass.
  void StartPass();
  void Visit(const Tile& tile, const TileView<T>& values, int worker);
  void FinishPass();

 private:
  enum class Pass { kSplit, kBuckets, kCollect };

  void FinishSplit();
  void FinishBuckets();
  void FinishCollect();

  std::uint64_t rank_;
  std::uint64_t count_;
  std::uint64_t buffer_limit_;
  T lo_;
  T hi_;
  T pivot_lo_ = 0;
  T pivot_hi_ = 0;
  bool pivots_ = false;
  bool done_ = false;
  Pass pass_ = Pass::kCollect;
  int bucket_shift_ = 0;
  // Per worker: counters (split: below, up to, overflow; buckets: 65536) and
  // gathered values (split: all inside; collect: a tile's).
  std::vector<std::vector<std::uint64_t>> counts_;
  std::vector<std::vector<T>> gathered_;
  // A collect pass's values, filled up to cursor_.
  std::vector<T> collected_;
  std::atomic<std::uint64_t> cursor_{0};
};

}  // namespace velmor::internal

#endif  // VELMOR_MATRIXVECTOR_EXACTSELECTION_H_
