#ifndef VELMOR_FUNCTIONS_SUMSUMDISPERSIONCORE_H_
#define VELMOR_FUNCTIONS_SUMSUMDISPERSIONCORE_H_

// Sum-sum dispersion over the rows of a square matrix M, written once for the
// dense and the sparse function:
//
//   f(A) = scale * sum over a in A and b in A of M(a, b).
//
// rows_ holds the rows of M; unless M is symmetric, transpose_ holds its
// columns, so that the row and the column of an element are both contiguous.
// With the symmetric flag a pair a < b counts 2 M(a, b) (doubled in T); without
// it every ordered pair counts M(a, b).
//
// The member state of a set is the list of its members (with their flags when
// sparse); its value walks the ordered pairs of the list. Contexts keep an
// array g of n doubles: in a growing context g[u] = f(A + u) - f(A)
// (unscaled) for every u not in A, so a gain is one read and an addition
// updates g from the row and column of the added element; in a shrinking
// context g[u] = f(A) - f(A - u) for the members u. An addition adds the pair
// terms of v to g of every element outside the context's set (v included, as
// it is not yet inserted), so a second addition of an element that was not
// inserted adds it again. Given no set, it updates every g: under the promise
// v not in A the gains read later are the same. The shrinking context keeps
// its own membership flags: a removal leaves g of non-members unchanged, and
// removing a non-member changes nothing.
//
// Messages of this family carry no final period for "Too large ground set
// size = %d" and "Invalid element = %d".

#include <algorithm>
#include <climits>
#include <vector>

#include "functions/MatrixBasedSetFunction.h"
#include "functions/SetFunction.h"
#include "functions/SetFunctionSkeleton.h"
#include "sets/Set.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {

template <typename F, typename Rows>
class SumSumDispersionCore : public MatrixBasedSetFunction<F, Rows, SupermodularFunction> {
  using Kind = SupermodularFunction;

 public:
  using T = typename Rows::Scalar;

  static constexpr const char* kMessageEnd = "";

  class GrowingContextExternal;
  class ShrinkingContextExternal;

  int NumberOfLandmarks() const override { return 0; }
  bool IsSymmetric() const { return symmetric_; }
  // The kind of the function, "supermodular".
  static const char* KindName() { return "supermodular"; }

 protected:
  friend class SetFunctionSkeleton<F, Kind>;
  friend class MatrixBasedSetFunction<F, Rows, Kind>;

  // Refuses, in this order, a matrix that is not square ("Matrix is %ldx%ld
  // but must be square.") and one with n outside [1, INT_MAX] ("Invalid
  // argument, ground_set_size=%ld.").
  static void CheckSquare(const internal::MessageSite& site, long rows, long cols) {
    if (rows != cols) {
      internal::ThrowInvalidArgument(site, "Matrix is %ldx%ld but must be square.", rows, cols);
    }
    if (rows < 1 || rows > INT_MAX) {
      internal::ThrowInvalidArgument(site, "Invalid argument, ground_set_size=%ld.", rows);
    }
  }

  // The members of a set in their order; when sparse also their flags.
  struct State {
    std::vector<int> elements;
    std::vector<unsigned char> member;
  };

  template <typename ForEach>
  State StateOf(ForEach&& for_each) const {
    State state;
    if constexpr (!Rows::kDense) state.member.assign(static_cast<std::size_t>(Size()), 0);
    for_each([&state](int a) {
      state.elements.push_back(a);
      if constexpr (!Rows::kDense) state.member[static_cast<std::size_t>(a)] = 1;
    });
    return state;
  }
  void Absorb(int v, State& state) const {
    state.elements.push_back(v);
    if constexpr (!Rows::kDense) state.member[static_cast<std::size_t>(v)] = 1;
  }
  double ElementValue(int v) const {
    return this->scale_ * static_cast<double>(diagonal_[static_cast<std::size_t>(v)]);
  }

  // The pair walk over the members (rows visited in the members' order;
  // sparse: each row's stored entries in storage order, those whose column is
  // a member).
  double RawValueOf(const State& state) const {
    double sum = 0.0;
    for (const int a : state.elements) {
      const auto add = [this, a, &sum](int b, T x) {
        if (!symmetric_) {
          sum += static_cast<double>(x);
        } else if (a < b) {
          sum += static_cast<double>(T(2) * x);
        } else if (a == b) {
          sum += static_cast<double>(x);
        }
      };
      if constexpr (Rows::kDense) {
        const T* row = this->rows_.Row(a);
        for (const int b : state.elements) add(b, row[b]);
      } else {
        this->rows_.ForEachEntry(a, [&state, &add](int b, T x) {
          if (state.member[static_cast<std::size_t>(b)]) add(b, x);
        });
      }
    }
    return sum;
  }
  // M(v, v) + the pair terms of v with the members other than v.
  double RawGainOver(int v, const State& state) const {
    double sum = static_cast<double>(diagonal_[static_cast<std::size_t>(v)]);
    if constexpr (Rows::kDense) {
      const T* row = this->rows_.Row(v);
      const T* column = Column(v);
      for (const int a : state.elements) {
        if (a == v) continue;
        sum += symmetric_ ? static_cast<double>(T(2) * row[a])
                          : static_cast<double>(row[a] + column[a]);
      }
    } else {
      const unsigned char* member = state.member.data();
      ForEachPairTerm(v, [v, member, &sum](int u, double term) {
        if (u != v && member[u]) sum += term;
      });
    }
    return sum;
  }

  int Size() const { return this->rows_.Elements(); }
  const T* Column(int v) const { return (symmetric_ ? this->rows_ : transpose_).Row(v); }

  // Sparse: visit(u, term) for the stored entries of row v (term M(v, u),
  // doubled when symmetric) and, unless symmetric, of column v (term M(u, v)).
  template <typename Visit>
  void ForEachPairTerm(int v, Visit&& visit) const {
    this->rows_.ForEachEntry(v, [this, &visit](int u, T x) {
      visit(u, symmetric_ ? static_cast<double>(T(2) * x) : static_cast<double>(x));
    });
    if (!symmetric_) {
      transpose_.ForEachEntry(v, [&visit](int u, T x) { visit(u, static_cast<double>(x)); });
    }
  }

  // g[u] += the pair terms of v for every u in [0, n).
  void AddPairTermsToAll(int v, double* g) const {
    if constexpr (Rows::kDense) {
      const int n = Size();
      const T* row = this->rows_.Row(v);
      const T* column = Column(v);
      for (int u = 0; u < n; ++u) {
        g[u] += symmetric_ ? static_cast<double>(T(2) * row[u])
                           : static_cast<double>(row[u] + column[u]);
      }
    } else {
      ForEachPairTerm(v, [g](int u, double term) { g[u] += term; });
    }
  }

  // g[u] += (or, with kRemove, -=) the pair terms of v for every u whose flag
  // in `member` is `target`, other than v.
  template <bool kRemove>
  void UpdatePairTerms(int v, const unsigned char* member, unsigned char target, double* g) const {
    const int n = Size();
    if constexpr (Rows::kDense) {
      // Branch-free over u, so that the loop vectorizes: the others add 0.
      const T* row = this->rows_.Row(v);
      const T* column = Column(v);
      for (int u = 0; u < n; ++u) {
        const double term = symmetric_ ? static_cast<double>(T(2) * row[u])
                                       : static_cast<double>(row[u] + column[u]);
        if constexpr (kRemove) {
          g[u] -= member[u] == target ? term : 0.0;
        } else {
          g[u] += member[u] == target ? term : 0.0;
        }
      }
    } else {
      const double sign = kRemove ? -1.0 : 1.0;
      ForEachPairTerm(v, [v, member, target, g, sign](int u, double term) {
        if (u != v && member[u] == target) g[u] += sign * term;
      });
    }
  }

  // The diagonal, the symmetric flag and, unless symmetric, the transpose,
  // from rows_ and its transpose.
  void Index(Rows transpose, bool symmetric) {
    const int n = Size();
    diagonal_.assign(static_cast<std::size_t>(n), T(0));
    for (int v = 0; v < n; ++v) {
      if constexpr (Rows::kDense) {
        diagonal_[static_cast<std::size_t>(v)] = this->rows_.Row(v)[v];
      } else {
        this->rows_.ForEachEntry(v, [this, v](int u, T x) {
          if (u == v) diagonal_[static_cast<std::size_t>(v)] = x;
        });
      }
    }
    symmetric_ = symmetric;
    if (!symmetric_) transpose_ = std::move(transpose);
  }

  Rows transpose_;  // empty when symmetric
  std::vector<T> diagonal_;
  bool symmetric_ = false;
};

// Growing state for A: g[u] for u not in A, the members, the raw value.
template <typename F, typename Rows>
class SumSumDispersionCore<F, Rows>::GrowingContextExternal final
    : public internal::GrowingContextExternalSkeleton<GrowingContextExternal, F> {
  using Skeleton = internal::GrowingContextExternalSkeleton<GrowingContextExternal, F>;

 public:
  // The empty set: g[u] = M(u, u).
  explicit GrowingContextExternal(const F* function)
      : Skeleton(function), gains_(function->diagonal_.size()) {
    ResetToEmptySet();
  }

  // scale * g[v]; no matrix access.
  double DisjointGainOf(int v) const {
    return this->function_->scale_ * gains_[static_cast<std::size_t>(v)];
  }
  // Raw value += g[v]; g of every element grows by the pair terms of v (the
  // caller promises v not in A, and g of members is not read). Always true.
  bool AddElement(int v) {
    raw_value_ += gains_[static_cast<std::size_t>(v)];
    this->function_->AddPairTermsToAll(v, gains_.data());
    return true;
  }
  // Raw value += g[v]; g[u] of every u outside A grows by the pair terms of v
  // (v included: it is not in A). Always true.
  bool AddElementTo(const Set& A, int v) {
    raw_value_ += gains_[static_cast<std::size_t>(v)];
    kept_.clear();
    for (const int a : A) kept_.push_back(gains_[static_cast<std::size_t>(a)]);
    this->function_->AddPairTermsToAll(v, gains_.data());
    auto kept = kept_.begin();
    for (const int a : A) gains_[static_cast<std::size_t>(a)] = *kept++;
    return true;
  }
  // The empty set, then A's elements added and inserted one by one in A's
  // order, so that g of each member stays as it was when it joined.
  // O(|A| n).
  void AssignContext(const Set& A) override {
    ResetToEmptySet();
    UnorderedHashSet members(A.GroundSetSize());
    for (const int a : A) {
      AddElementTo(members, a);
      members.insert(a);
    }
  }
  void ResetToEmptySet() override {
    const auto& diagonal = this->function_->diagonal_;
    for (std::size_t u = 0; u < gains_.size(); ++u) gains_[u] = static_cast<double>(diagonal[u]);
    raw_value_ = 0.0;
  }
  double CurrentValue() const override { return this->function_->scale_ * raw_value_; }

  const std::vector<double>& Gains() const { return gains_; }

 private:
  std::vector<double> gains_;
  std::vector<double> kept_;  // g of the members while an addition runs
  double raw_value_ = 0.0;
};

// Shrinking state for A: g[u] = f(A) - f(A - u) for members u.
template <typename F, typename Rows>
class SumSumDispersionCore<F, Rows>::ShrinkingContextExternal final
    : public internal::ShrinkingContextExternalSkeleton<ShrinkingContextExternal, F> {
  using Skeleton = internal::ShrinkingContextExternalSkeleton<ShrinkingContextExternal, F>;

 public:
  explicit ShrinkingContextExternal(const F* function)
      : Skeleton(function),
        losses_(function->diagonal_.size(), 0.0),
        members_(function->diagonal_.size(), 0) {}

  // O(|A| n) dense, O(stored entries of A's rows and columns) sparse.
  void AssignContext(const Set& A) override {
    const F& f = *this->function_;
    const State state = f.StateOf([&A](auto&& visit) {
      for (int a : A) visit(a);
    });
    std::fill(members_.begin(), members_.end(), 0);
    for (const int a : state.elements) members_[static_cast<std::size_t>(a)] = 1;
    const auto& diagonal = f.diagonal_;
    for (std::size_t u = 0; u < losses_.size(); ++u) losses_[u] = static_cast<double>(diagonal[u]);
    const std::vector<unsigned char> everyone(losses_.size(), 1);
    for (const int b : state.elements) {
      // v's own term is restored: the pair terms are those with the others.
      const double own = losses_[static_cast<std::size_t>(b)];
      f.template UpdatePairTerms<false>(b, everyone.data(), 1, losses_.data());
      losses_[static_cast<std::size_t>(b)] = own;
    }
    raw_value_ = f.RawValueOf(state);
  }
  // scale * g[v].
  double SubsetLossOf(int v) const {
    return this->function_->scale_ * losses_[static_cast<std::size_t>(v)];
  }
  // Raw value -= g[v]; g of the remaining members shrinks by the pair terms of
  // v. Nothing changes when v is not a member.
  void RemoveElement(const Set& /*A*/, int v) {
    if (!members_[static_cast<std::size_t>(v)]) return;
    raw_value_ -= losses_[static_cast<std::size_t>(v)];
    members_[static_cast<std::size_t>(v)] = 0;
    this->function_->template UpdatePairTerms<true>(v, members_.data(), 1, losses_.data());
  }
  double CurrentValue() const override { return this->function_->scale_ * raw_value_; }

  const std::vector<double>& Losses() const { return losses_; }

 private:
  std::vector<double> losses_;
  std::vector<unsigned char> members_;
  double raw_value_ = 0.0;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SUMSUMDISPERSIONCORE_H_
