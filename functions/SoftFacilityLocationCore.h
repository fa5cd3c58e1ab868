#ifndef VELMOR_FUNCTIONS_SOFTFACILITYLOCATIONCORE_H_
#define VELMOR_FUNCTIONS_SOFTFACILITYLOCATIONCORE_H_

// Soft facility location over the rows of a matrix, written once for the
// dense and the sparse function:
//
//   F_i(A) = lambda * log(1 + sum over a in A with an entry (a, i) of
//                                exp(S(a, i) / lambda)),
//   f(A)   = scale * sum over landmarks i of F_i(A).
//
// Every state keeps each landmark in a shifted, overflow-free form: m_i, the
// largest value among the members (a constant member of value 0 included, so
// m_i >= 0), and z_i = sum over the members (constant included) of
// exp((S(a, i) - m_i) / lambda) >= 1, so that F_i(A) = m_i + lambda * log(z_i)
// and no exponent is ever positive, whatever the scale of S against lambda.
// The member state of a set is (m, z), built in two passes over the members.
//
// Summation orders, kept bit for bit: values are lambda * (sum of log z_i) +
// sum of m_i over all landmarks; gains and losses (lambda * sum of log parts
// + sum of linear parts) over the element's entries in storage order; a
// growing context's value is recomputed from all landmarks after each
// addition; a shrinking context's likewise when dense, and kept by the
// differences of the touched landmarks' F_i when sparse.

#include <cmath>
#include <limits>
#include <vector>

#include "functions/MatrixBasedSetFunction.h"
#include "functions/SetFunctionSkeleton.h"
#include "sets/Set.h"

namespace velmor {

// Kind is SoftFacilityLocationFunctionAbstract: it holds lambda and 1 / lambda.
template <typename F, typename Rows, typename Kind>
class SoftFacilityLocationCore : public MatrixBasedSetFunction<F, Rows, Kind> {
 public:
  // Stores lambda and 1 / lambda. Throws "Invalid argument, must have
  // softness_value (=%e) > 0." when 0 >= lambda, changing nothing. (NaN,
  // infinity and a lambda whose inverse overflows pass, and give values that
  // are not finite.)
  void CheckAndAssignSoftnessValue(double softness_value) override {
    if (0 >= softness_value) {
      internal::ThrowInvalidArgument(
          VELMOR_SITE(F), "Invalid argument, must have softness_value (=%e) > 0.", softness_value);
    }
    this->softness_ = softness_value;
    this->inverse_softness_ = 1.0 / softness_value;
  }

  class GrowingContextExternal;
  class ShrinkingContextExternal;

 protected:
  friend class SetFunctionSkeleton<F, Kind>;
  friend class MatrixBasedSetFunction<F, Rows, Kind>;
  using T = typename Rows::Scalar;

  struct State {
    std::vector<T> shifts;     // m_i
    std::vector<double> sums;  // z_i
  };

  // ----- Member state --------------------------------------------------------------

  // The shifts over the members first, then the shifted sums.
  template <typename ForEach>
  State StateOf(ForEach&& for_each) const {
    const int k = this->rows_.Landmarks();
    State state{std::vector<T>(static_cast<std::size_t>(k), T(0)),
                std::vector<double>(static_cast<std::size_t>(k))};
    T* m = state.shifts.data();
    for_each([this, m](int a) {
      this->rows_.ForEachEntry(a, [m](int i, T x) { m[i] = x > m[i] ? x : m[i]; });
    });
    const double inv = this->inverse_softness_;
    double* z = state.sums.data();
    // The constant member of value 0.
    for (int i = 0; i < k; ++i) z[i] = std::exp(-static_cast<double>(m[i]) * inv);
    for_each([this, m, z, inv](int a) {
      this->rows_.ForEachEntry(a, [m, z, inv](int i, T x) {
        z[i] += std::exp((static_cast<double>(x) - static_cast<double>(m[i])) * inv);
      });
    });
    return state;
  }
  double RawValueOf(const State& state) const {
    return RawValue(state.shifts.data(), state.sums.data());
  }
  double RawGainOver(int v, const State& state) const {
    return RawGain(v, state.shifts.data(), state.sums.data());
  }
  void Absorb(int v, State& state) const {
    T* m = state.shifts.data();
    double* z = state.sums.data();
    const double inv = this->inverse_softness_;
    this->rows_.ForEachEntry(v, [m, z, inv](int i, T x) { SoftAbsorb(x, m[i], z[i], inv); });
  }

  // scale * lambda * sum over v's entries of y + log1p(exp(-y)) with
  // y = S(v, i) / lambda (F_i({v}) / lambda). Where exp(-y) overflows, the
  // term is log1p(exp(y)), its finite equal.
  double ElementValue(int v) const {
    const double inv = this->inverse_softness_;
    double sum = 0.0;
    this->rows_.ForEachEntry(v, [&sum, inv](int, T x) {
      const double y = static_cast<double>(x) * inv;
      const double term = y + std::log1p(std::exp(-y));
      sum += std::isinf(term) && y < 0 ? std::log1p(std::exp(y)) : term;
    });
    return this->scale_ * this->softness_ * sum;
  }

  // lambda * (sum of log z_i) + sum of m_i over all landmarks, unscaled.
  double RawValue(const T* shifts, const double* sums) const {
    const int k = this->rows_.Landmarks();
    double log_sum = 0.0;
    double shift_sum = 0.0;
    for (int i = 0; i < k; ++i) {
      log_sum += std::log(sums[i]);
      shift_sum += static_cast<double>(shifts[i]);
    }
    return this->softness_ * log_sum + shift_sum;
  }
  // Unscaled gain of v against a shifted state.
  double RawGain(int v, const T* shifts, const double* sums) const {
    const double inv = this->inverse_softness_;
    double linear = 0.0;
    double log_part = 0.0;
    this->rows_.ForEachEntry(
        v, [&](int i, T x) { SoftGainParts(x, shifts[i], sums[i], inv, linear, log_part); });
    return this->softness_ * log_part + linear;
  }

  // ----- Per-landmark arithmetic of the shifted form ----------------------------
  // A landmark's members are summarized by m and z; inv = 1 / lambda. The
  // landmark's part of a gain or loss is linear + lambda * log_part.

  // The change of F_i when a member of value d joins: if d > m, linear d - m
  // and log part log((exp((m - d)/lambda) z + 1) / z); otherwise linear 0 and
  // log part log((exp((d - m)/lambda) + z) / z). No exponent is positive and
  // z >= 1, so both are finite.
  static void SoftGainParts(T d, T m, double z, double inv, double& linear, double& log_part) {
    const double dd = static_cast<double>(d);
    const double dm = static_cast<double>(m);
    if (d > m) {
      linear += dd - dm;
      log_part += std::log((std::exp((dm - dd) * inv) * z + 1.0) / z);
    } else {
      log_part += std::log((std::exp((dd - dm) * inv) + z) / z);
    }
  }

  // Absorbs a member of value d: if d > m it becomes the new shift,
  // z = exp((m - d)/lambda) z + 1, m = d (returns true); otherwise
  // z += exp((d - m)/lambda) (returns false).
  static bool SoftAbsorb(T d, T& m, double& z, double inv) {
    if (d > m) {
      z = std::exp((static_cast<double>(m) - static_cast<double>(d)) * inv) * z + 1.0;
      m = d;
      return true;
    }
    z += std::exp((static_cast<double>(d) - static_cast<double>(m)) * inv);
    return false;
  }

  // Shrinking state of a landmark: m and z as above, s the second largest
  // value among the members (constant included; -infinity when the constant
  // is the only member), and w the sum over all members but one holder of m
  // of exp((x - s)/lambda) (>= 1 when s is finite, 0 otherwise). With w the
  // loss of a holder of m needs no difference z - 1, which loses every digit
  // when the other members' terms are tiny against 1.
  //
  // The change of F_i when a member of value d leaves: if d == m, linear
  // m - s and log part log(exp((s - m)/lambda) z / (z - 1)) (z - 1 is the sum
  // without d's own term 1); otherwise linear 0 and log part
  // log(z / (z - exp((d - m)/lambda))). Below z = 2, z - 1 keeps only the
  // digits of the other members' terms that survived the rounding of z (none,
  // when they are tiny against 1), so there the first log part is taken from
  // w instead, log1p(exp((s - m)/lambda) w) - log(w); so is any log part
  // that is not finite (the second then as -log1p(-exp((d - m)/lambda) / z)).
  static void SoftLossParts(T d, T m, T s, double z, double w, double inv, double& linear,
                            double& log_part) {
    const double dm = static_cast<double>(m);
    if (d == m) {
      const double ds = static_cast<double>(s);
      const double e = std::exp((ds - dm) * inv);
      linear += dm - ds;
      const double part = std::log(e * z / (z - 1.0));
      log_part += z >= 2.0 && std::isfinite(part) ? part : std::log1p(e * w) - std::log(w);
    } else {
      const double e = std::exp((static_cast<double>(d) - dm) * inv);
      const double part = std::log(z / (z - e));
      log_part += std::isfinite(part) ? part : -std::log1p(-e / z);
    }
  }

  // Removes a member of value d with m > d != s from z and w; clamps both at
  // 1, their exact lower bound, against rounding.
  static void SoftRemove(T d, T m, T s, double& z, double& w, double inv) {
    const double dd = static_cast<double>(d);
    z -= std::exp((dd - static_cast<double>(m)) * inv);
    w -= std::exp((dd - static_cast<double>(s)) * inv);
    if (z < 1.0) z = 1.0;
    if (w < 1.0) w = 1.0;
  }

  // Top-two update of a landmark's (m, s) with a member of value x.
  static void SoftTopTwo(T x, T& m, T& s) {
    if (x > m) {
      s = m;
      m = x;
    } else if (x > s) {
      s = x;
    }
  }

  // Adds a member of value x to the (z, w) sums of a landmark whose (m, s) are
  // final; w must start at -1 (and z at 0) before the first member, the
  // constant one included.
  static void SoftAccumulate(T x, T m, T s, double& z, double& w, double inv) {
    const double dx = static_cast<double>(x);
    z += std::exp((dx - static_cast<double>(m)) * inv);
    w += x < m ? std::exp((dx - static_cast<double>(s)) * inv) : 1.0;
  }
};

// Growing state for A: per landmark m_i and z_i, and the raw (unscaled) value.
template <typename F, typename Rows, typename Kind>
class SoftFacilityLocationCore<F, Rows, Kind>::GrowingContextExternal final
    : public internal::GrowingContextExternalSkeleton<GrowingContextExternal, F> {
  using Skeleton = internal::GrowingContextExternalSkeleton<GrowingContextExternal, F>;

 public:
  // The state of the empty set (m_i = 0, z_i = 1).
  explicit GrowingContextExternal(const F* function)
      : Skeleton(function),
        shifts_(static_cast<std::size_t>(function->rows_.Landmarks()), T(0)),
        sums_(shifts_.size(), 1.0) {}

  // scale * (lambda * sum of log parts + sum of linear parts) over v's
  // entries. O(entries of v), allocates nothing.
  double DisjointGainOf(int v) const {
    return this->function_->scale_ * this->function_->RawGain(v, shifts_.data(), sums_.data());
  }
  // Absorbs v into each of its landmarks, then recomputes the value from all
  // landmarks (O(k), also when sparse); returns whether any m_i changed.
  bool AddElement(int v) {
    const F& f = *this->function_;
    const double inv = f.inverse_softness_;
    T* m = shifts_.data();
    double* z = sums_.data();
    bool changed = false;
    f.rows_.ForEachEntry(
        v, [m, z, inv, &changed](int i, T x) { changed |= SoftAbsorb(x, m[i], z[i], inv); });
    raw_value_ = f.RawValue(m, z);
    return changed;
  }
  void ResetToEmptySet() override {
    std::fill(shifts_.begin(), shifts_.end(), T(0));
    std::fill(sums_.begin(), sums_.end(), 1.0);
    raw_value_ = 0.0;
  }
  double CurrentValue() const override { return this->function_->scale_ * raw_value_; }

  const std::vector<T>& Shifts() const { return shifts_; }
  const std::vector<double>& ShiftedSums() const { return sums_; }

 private:
  std::vector<T> shifts_;     // m_i
  std::vector<double> sums_;  // z_i
  double raw_value_ = 0.0;
};

// Shrinking state for A: per landmark m_i, z_i, the second largest value s_i
// and the runner-up sum w_i (see SoftLossParts).
template <typename F, typename Rows, typename Kind>
class SoftFacilityLocationCore<F, Rows, Kind>::ShrinkingContextExternal final
    : public internal::ShrinkingContextExternalSkeleton<ShrinkingContextExternal, F> {
  using Skeleton = internal::ShrinkingContextExternalSkeleton<ShrinkingContextExternal, F>;

 public:
  explicit ShrinkingContextExternal(const F* function)
      : Skeleton(function),
        shifts_(static_cast<std::size_t>(function->rows_.Landmarks()), T(0)),
        runners_up_(shifts_.size(), -std::numeric_limits<T>::infinity()),
        sums_(shifts_.size(), 1.0),
        runner_sums_(shifts_.size(), 0.0) {
    if constexpr (Rows::kDense) {
      affected_.reserve(shifts_.size());
    } else {
      affected_flags_.assign(shifts_.size(), 0);
    }
  }

  // Two scans of A: the top two values, then the sums. O(|A| k).
  void AssignContext(const Set& A) override {
    const F& f = *this->function_;
    const int k = f.rows_.Landmarks();
    const double inv = f.inverse_softness_;
    T* m = shifts_.data();
    T* s = runners_up_.data();
    double* z = sums_.data();
    double* w = runner_sums_.data();
    // The constant member of value 0 first.
    std::fill(shifts_.begin(), shifts_.end(), T(0));
    std::fill(runners_up_.begin(), runners_up_.end(), -std::numeric_limits<T>::infinity());
    for (int a : A) f.rows_.ForEachEntry(a, [m, s](int i, T x) { SoftTopTwo(x, m[i], s[i]); });
    for (int i = 0; i < k; ++i) {
      z[i] = 0.0;
      w[i] = -1.0;
      SoftAccumulate(T(0), m[i], s[i], z[i], w[i], inv);
    }
    for (int a : A) {
      f.rows_.ForEachEntry(
          a, [m, s, z, w, inv](int i, T x) { SoftAccumulate(x, m[i], s[i], z[i], w[i], inv); });
    }
    raw_value_ = f.RawValue(m, z);
  }
  // f(A) - f(A - v) for v in A, over v's entries.
  double SubsetLossOf(int v) const {
    const F& f = *this->function_;
    const double inv = f.inverse_softness_;
    double linear = 0.0;
    double log_part = 0.0;
    f.rows_.ForEachEntry(v, [&](int i, T x) {
      SoftLossParts(x, shifts_[i], runners_up_[i], sums_[i], runner_sums_[i], inv, linear,
                    log_part);
    });
    return f.scale_ * (f.softness_ * log_part + linear);
  }
  // Takes v's term out of each of its landmarks; a landmark where v holds the
  // largest or second largest value is rebuilt from the other members of A.
  void RemoveElement(const Set& A, int v) {
    const F& f = *this->function_;
    const double inv = f.inverse_softness_;
    T* m = shifts_.data();
    T* s = runners_up_.data();
    double* z = sums_.data();
    double* w = runner_sums_.data();
    if constexpr (Rows::kDense) {
      affected_.clear();
      f.rows_.ForEachEntry(v, [&](int i, T d) {
        if (d == m[i] || d == s[i]) {
          affected_.push_back(i);
        } else {
          SoftRemove(d, m[i], s[i], z[i], w[i], inv);
        }
      });
      if (!affected_.empty()) {
        Rebuild(A, v, [this, &f](int a, auto&& visit) {
          const T* row = f.rows_.Row(a);
          for (const int i : affected_) visit(i, row[i]);
        });
      }
      raw_value_ = f.RawValue(m, z);
    } else {
      // The value is kept by differences: the touched landmarks' F_i leave it
      // here and re-enter it at the end.
      unsigned char* affected = affected_flags_.data();
      double shift_change = 0.0;
      double log_change = 0.0;
      bool any = false;
      f.rows_.ForEachEntry(v, [&](int i, T d) {
        shift_change -= static_cast<double>(m[i]);
        log_change -= std::log(z[i]);
        if (d == m[i] || d == s[i]) {
          affected[i] = 1;
          any = true;
        } else {
          SoftRemove(d, m[i], s[i], z[i], w[i], inv);
        }
      });
      if (any) {
        Rebuild(A, v, [&f, affected](int a, auto&& visit) {
          f.rows_.ForEachEntry(a, [affected, &visit](int i, T x) {
            if (affected[i]) visit(i, x);
          });
        });
      }
      f.rows_.ForEachEntry(v, [&](int i, T) {
        shift_change += static_cast<double>(m[i]);
        log_change += std::log(z[i]);
        affected[i] = 0;
      });
      raw_value_ += f.softness_ * log_change + shift_change;
    }
  }
  double CurrentValue() const override { return this->function_->scale_ * raw_value_; }

 private:
  // Rebuilds the landmarks that affected_of(a, visit) passes to visit(i, x)
  // (x = S(a, i)) from the constant member and the members of A other than v,
  // member by member so that each member's row is read once per pass.
  template <typename AffectedOf>
  void Rebuild(const Set& A, int v, AffectedOf&& affected_of) {
    const double inv = this->function_->inverse_softness_;
    T* m = shifts_.data();
    T* s = runners_up_.data();
    double* z = sums_.data();
    double* w = runner_sums_.data();
    affected_of(v, [m, s](int i, T) {
      m[i] = T(0);
      s[i] = -std::numeric_limits<T>::infinity();
    });
    for (int a : A) {
      if (a != v) affected_of(a, [m, s](int i, T x) { SoftTopTwo(x, m[i], s[i]); });
    }
    affected_of(v, [m, s, z, w, inv](int i, T) {
      z[i] = 0.0;
      w[i] = -1.0;
      SoftAccumulate(T(0), m[i], s[i], z[i], w[i], inv);
    });
    for (int a : A) {
      if (a == v) continue;
      affected_of(
          a, [m, s, z, w, inv](int i, T x) { SoftAccumulate(x, m[i], s[i], z[i], w[i], inv); });
    }
  }

  std::vector<T> shifts_;                      // m_i
  std::vector<T> runners_up_;                  // s_i
  std::vector<double> sums_;                   // z_i
  std::vector<double> runner_sums_;            // w_i
  std::vector<int> affected_;                  // dense: landmarks to rebuild
  std::vector<unsigned char> affected_flags_;  // sparse: per landmark
  double raw_value_ = 0.0;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SOFTFACILITYLOCATIONCORE_H_
