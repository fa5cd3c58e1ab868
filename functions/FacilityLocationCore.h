#ifndef VELMOR_FUNCTIONS_FACILITYLOCATIONCORE_H_
#define VELMOR_FUNCTIONS_FACILITYLOCATIONCORE_H_

// Facility location over the rows of a matrix, written once for the dense
// and the sparse function:
//
//   f(A) = scale * sum over landmarks i of max(0, max over a in A of S(a, i)),
//
// where a member takes part in landmark i only through an entry (a, i) of its
// row (every landmark when dense, the stored entries when sparse).
//
// The member state of a set is the vector m of its k per-landmark maxima
// (clamped at 0). Summation orders, kept bit for bit:
//   - values: the maxima summed in double in landmark order;
//   - f({v}): v's entries summed in double in storage order, not clamped;
//   - gains against a state: max(0, S(v, i) - m_i) over v's entries, in
//     double in storage order (a dense function may use its own kernel for the
//     growing context's gains: F::RawDisjointGain and, with batched gains,
//     F::BatchedDisjointGains);
//   - the growing context's value: recomputed from the maxima after each
//     addition when dense, kept by increments d - m_i when sparse; the
//     shrinking context's likewise after a removal.

#include <algorithm>
#include <string>
#include <vector>

#include "functions/MatrixBasedSetFunction.h"
#include "functions/SetFunctionSkeleton.h"
#include "sets/Set.h"
#include "utils/ParallelParts.h"

namespace velmor {

template <typename F, typename Rows, typename Kind>
class FacilityLocationCore : public MatrixBasedSetFunction<F, Rows, Kind> {
 public:
  class GrowingContextExternal;
  class ShrinkingContextExternal;

  // True for a non-negative scale. A gain is scale * (a sum of max(0, S(v, i)
  // - m_i) terms in an order fixed by v's entries and the lanes). Growing the
  // set only raises the maxima m_i; a rounded difference with a larger
  // subtrahend is no larger, max(0, .) keeps that, a rounded sum of terms that
  // are each no larger is no larger, and so is its product with scale >= 0.
  bool ComputedGainsNeverRise() const override { return this->NormalizationScale() >= 0.0; }

 protected:
  using T = typename Rows::Scalar;
  friend class SetFunctionSkeleton<F, Kind>;
  friend class MatrixBasedSetFunction<F, Rows, Kind>;

  // ----- Member state: the maxima ----------------------------------------------

  template <typename ForEach>
  std::vector<T> StateOf(ForEach&& for_each) const {
    std::vector<T> maxima(static_cast<std::size_t>(this->rows_.Landmarks()), T(0));
    for_each([this, &maxima](int a) { RaiseMaxima(a, maxima.data()); });
    return maxima;
  }
  double RawValueOf(const std::vector<T>& maxima) const { return SumInDouble(maxima.data()); }
  double RawGainOver(int v, const std::vector<T>& maxima) const {
    return PositiveExcess(v, maxima.data());
  }
  void Absorb(int v, std::vector<T>& maxima) const { RaiseMaxima(v, maxima.data()); }

  double ElementValue(int v) const {
    double sum = 0.0;
    this->rows_.ForEachEntry(v, [&sum](int, T x) { sum += x; });
    return this->scale_ * sum;
  }

  // The unscaled gain of the growing context.
  double RawDisjointGain(int v, const T* maxima) const { return PositiveExcess(v, maxima); }

  void RaiseMaxima(int v, T* maxima) const {
    this->rows_.ForEachEntry(v,
                             [maxima](int i, T x) { maxima[i] = x > maxima[i] ? x : maxima[i]; });
  }
  double SumInDouble(const T* values) const {
    const int k = this->rows_.Landmarks();
    double sum = 0.0;
    for (int i = 0; i < k; ++i) sum += values[i];
    return sum;
  }
  double PositiveExcess(int v, const T* maxima) const {
    double sum = 0.0;
    this->rows_.ForEachEntry(v, [&sum, maxima](int i, T x) {
      const double excess = static_cast<double>(x) - static_cast<double>(maxima[i]);
      if (excess > 0) sum += excess;
    });
    return sum;
  }
  // Normalize's check and scale from one pass over the rows, split into
  // `threads` contiguous ranges of elements scanned at once. Each range stops
  // at its first element holding a non-finite value (when checks are on) and
  // otherwise raises its own maxima; the first failing element overall is
  // checked again to throw Normalize's error, and the ranges' maxima are
  // merged by the same comparison (a maximum does not depend on the order)
  // and summed as RawValueOf sums them. Scale and errors are therefore
  // Normalize's, bit for bit, for every thread count.
  void NormalizeInOnePass(bool skip, const internal::MessageSite& site, const char* noun,
                          const char* non_positive, int threads) {
    const bool check = MatrixValueChecksEnabled();
    const int n = this->rows_.Elements();
    const int parts = std::clamp(threads, 1, std::max(1, n));
    std::vector<std::vector<T>> maxima(
        static_cast<std::size_t>(parts),
        std::vector<T>(static_cast<std::size_t>(skip ? 0 : this->rows_.Landmarks()), T(0)));
    std::vector<int> first_failing(static_cast<std::size_t>(parts), n);
    const auto scan = [&](int part) {
      std::vector<T>& part_maxima = maxima[static_cast<std::size_t>(part)];
      const auto begin = static_cast<int>(PartBegin(n, parts, part));
      const auto end = static_cast<int>(PartBegin(n, parts, part + 1));
      for (int v = begin; v < end; ++v) {
        if (check && !this->AllFinite(v)) {
          first_failing[static_cast<std::size_t>(part)] = v;
          return;
        }
        if (!skip) RaiseMaxima(v, part_maxima.data());
      }
    };
    if (check || !skip) RunInParts(parts, scan);
    if (check) {
      const int failing = *std::min_element(first_failing.begin(), first_failing.end());
      if (failing < n) {
        try {
          this->CheckEntries(failing, failing + 1);
        } catch (...) {
          internal::ThrowInvalidArgumentNested(site, std::string("Invalid ") + noun + " matrix.");
        }
      }
    }
    if (skip) {
      this->scale_ = 1.0;
      return;
    }
    T* merged = maxima[0].data();
    for (int part = 1; part < parts; ++part) {
      const T* other = maxima[static_cast<std::size_t>(part)].data();
      for (int i = 0; i < this->rows_.Landmarks(); ++i) {
        merged[i] = other[i] > merged[i] ? other[i] : merged[i];
      }
    }
    ScaleFromMaxima(maxima[0], site, non_positive);
  }

  // NormalizeInOnePass without the pass, for rows already checked free of NaN
  // and infinity whose largest value per landmark is `checked_maxima` (one
  // per landmark): the check cannot fail, and the maxima the pass would raise
  // from 0 are max(0, checked_maxima[i]), the same values.
  void NormalizeFromCheckedMaxima(bool skip, const internal::MessageSite& site,
                                  const char* non_positive, const std::vector<T>& checked_maxima) {
    if (static_cast<int>(checked_maxima.size()) != this->rows_.Landmarks()) {
      internal::ThrowInvalidArgument(site, "Invalid argument, %d maxima for %d landmarks.",
                                     static_cast<int>(checked_maxima.size()),
                                     this->rows_.Landmarks());
    }
    if (skip) {
      this->scale_ = 1.0;
      return;
    }
    std::vector<T> maxima(checked_maxima.size());
    for (std::size_t i = 0; i < maxima.size(); ++i) {
      maxima[i] = checked_maxima[i] > T(0) ? checked_maxima[i] : T(0);
    }
    ScaleFromMaxima(maxima, site, non_positive);
  }

  // scale = 1 / f(V) from the landmarks' maxima, unless f(V) <= 0 (thrown).
  void ScaleFromMaxima(const std::vector<T>& maxima, const internal::MessageSite& site,
                       const char* non_positive) {
    const double ground_set_value = RawValueOf(maxima);
    if (!(ground_set_value > 0))
      internal::ThrowInvalidArgument(site, non_positive, ground_set_value);
    this->scale_ = 1.0 / ground_set_value;
  }

  // Strict top-two update of a landmark's largest (m) and second largest (s).
  static void TopTwo(T x, T& m, T& s) {
    if (x > m) {
      s = m;
      m = x;
    } else if (x > s) {
      s = x;
    }
  }
};

// Growing state for A: m_i for each landmark, and the raw (unscaled) value,
// the sum of the m_i.
template <typename F, typename Rows, typename Kind>
class FacilityLocationCore<F, Rows, Kind>::GrowingContextExternal final
    : public internal::GrowingContextExternalSkeleton<GrowingContextExternal, F> {
  using Skeleton = internal::GrowingContextExternalSkeleton<GrowingContextExternal, F>;

 public:
  static constexpr bool kBatchedGains = Rows::kDense;

  // The state of the empty set (all m_i = 0).
  explicit GrowingContextExternal(const F* function)
      : Skeleton(function), maxima_(static_cast<std::size_t>(function->rows_.Landmarks()), T(0)) {}

  // scale * the gain of v against the maxima. O(entries of v), allocates nothing.
  double DisjointGainOf(int v) const {
    return this->function_->scale_ * this->function_->RawDisjointGain(v, maxima_.data());
  }
  void DisjointGainsOf(const int* elements, int count, double* gains) const {
    this->function_->BatchedDisjointGains(elements, count, maxima_.data(), gains);
  }
  // Raises m_i to S(v, i) where larger; returns whether any m_i changed.
  bool AddElement(int v) {
    const F& f = *this->function_;
    T* maxima = maxima_.data();
    bool changed = false;
    if constexpr (Rows::kDense) {
      f.rows_.ForEachEntry(v, [maxima, &changed](int i, T x) {
        const bool larger = x > maxima[i];
        maxima[i] = larger ? x : maxima[i];
        changed |= larger;
      });
      raw_value_ = f.SumInDouble(maxima);
    } else {
      f.rows_.ForEachEntry(v, [this, maxima, &changed](int i, T x) {
        if (x > maxima[i]) {
          raw_value_ += static_cast<double>(x) - static_cast<double>(maxima[i]);
          maxima[i] = x;
          changed = true;
        }
      });
    }
    return changed;
  }
  void ResetToEmptySet() override {
    std::fill(maxima_.begin(), maxima_.end(), T(0));
    raw_value_ = 0.0;
  }
  double CurrentValue() const override { return this->function_->scale_ * raw_value_; }

  const std::vector<T>& Maxima() const { return maxima_; }

 private:
  std::vector<T> maxima_;
  double raw_value_ = 0.0;
};

// Shrinking state for A: per landmark the largest (m_i) and second largest
// (s_i) S(a, i) over a in A, each 0 when there is none.
template <typename F, typename Rows, typename Kind>
class FacilityLocationCore<F, Rows, Kind>::ShrinkingContextExternal final
    : public internal::ShrinkingContextExternalSkeleton<ShrinkingContextExternal, F> {
  using Skeleton = internal::ShrinkingContextExternalSkeleton<ShrinkingContextExternal, F>;

 public:
  explicit ShrinkingContextExternal(const F* function)
      : Skeleton(function),
        maxima_(static_cast<std::size_t>(function->rows_.Landmarks()), T(0)),
        second_maxima_(maxima_) {
    if constexpr (!Rows::kDense) affected_flags_.assign(maxima_.size(), 0);
  }

  // Strict top-two scan of A in A's iteration order. O(|A| k).
  void AssignContext(const Set& A) override {
    std::fill(maxima_.begin(), maxima_.end(), T(0));
    std::fill(second_maxima_.begin(), second_maxima_.end(), T(0));
    const F& f = *this->function_;
    T* m = maxima_.data();
    T* s = second_maxima_.data();
    for (int a : A) f.rows_.ForEachEntry(a, [m, s](int i, T x) { TopTwo(x, m[i], s[i]); });
    raw_value_ = f.SumInDouble(m);
  }
  // scale * sum over v's entries with S(v, i) == m_i of (m_i - s_i), in
  // double. A tie with another member counts with m_i - s_i = 0.
  double SubsetLossOf(int v) const {
    const T* m = maxima_.data();
    const T* s = second_maxima_.data();
    double loss = 0.0;
    this->function_->rows_.ForEachEntry(v, [m, s, &loss](int i, T x) {
      if (x == m[i]) loss += static_cast<double>(m[i]) - static_cast<double>(s[i]);
    });
    return this->function_->scale_ * loss;
  }
  // For every landmark where S(v, i) equals m_i or s_i, recomputes m_i and
  // s_i from the members of A other than v.
  void RemoveElement(const Set& A, int v) {
    if constexpr (Rows::kDense) {
      RemoveFromDense(A, v);
    } else {
      RemoveFromSparse(A, v);
    }
  }
  double CurrentValue() const override { return this->function_->scale_ * raw_value_; }

 private:
  // Member by member, so that each member's row is read once; the value is
  // recomputed from the maxima.
  void RemoveFromDense(const Set& A, int v) {
    const F& f = *this->function_;
    const T* row = f.rows_.Row(v);
    const int k = f.rows_.Landmarks();
    T* m = maxima_.data();
    T* s = second_maxima_.data();
    affected_.clear();
    for (int i = 0; i < k; ++i) {
      if (row[i] == m[i] || row[i] == s[i]) {
        m[i] = T(0);
        s[i] = T(0);
        affected_.push_back(i);
      }
    }
    if (!affected_.empty()) {
      for (int a : A) {
        if (a == v) continue;
        const T* other = f.rows_.Row(a);
        for (const int i : affected_) TopTwo(other[i], m[i], s[i]);
      }
    }
    raw_value_ = f.SumInDouble(m);
  }

  // Only v's stored entries are visited, and the value is kept by
  // differences, so that a removal costs time in the entries visited, not in k.
  void RemoveFromSparse(const Set& A, int v) {
    const F& f = *this->function_;
    T* m = maxima_.data();
    T* s = second_maxima_.data();
    unsigned char* affected = affected_flags_.data();
    bool any = false;
    f.rows_.ForEachEntry(v, [this, m, s, affected, &any](int i, T x) {
      if (x == m[i] || x == s[i]) {
        raw_value_ -= static_cast<double>(m[i]);
        m[i] = T(0);
        s[i] = T(0);
        affected[i] = 1;
        any = true;
      }
    });
    if (!any) return;
    for (int a : A) {
      if (a == v) continue;
      f.rows_.ForEachEntry(a, [m, s, affected](int i, T x) {
        if (affected[i]) TopTwo(x, m[i], s[i]);
      });
    }
    f.rows_.ForEachEntry(v, [this, m, affected](int i, T) {
      if (affected[i]) raw_value_ += static_cast<double>(m[i]);
      affected[i] = 0;
    });
  }

  std::vector<T> maxima_;
  std::vector<T> second_maxima_;
  std::vector<int> affected_;                  // dense: landmarks to rebuild
  std::vector<unsigned char> affected_flags_;  // sparse: per landmark
  double raw_value_ = 0.0;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_FACILITYLOCATIONCORE_H_
