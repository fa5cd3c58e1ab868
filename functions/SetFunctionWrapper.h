#ifndef VELMOR_FUNCTIONS_SETFUNCTIONWRAPPER_H_
#define VELMOR_FUNCTIONS_SETFUNCTIONWRAPPER_H_

// What the functions that wrap one set function f share (the contraction and
// the combinatorial CMI wrappers, F, of kind Kind): an owned f, whose copies
// are clones, its ground set, a multiplier m applied to every value, and the
// sizes of f's matrix.

#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "functions/SetFunctionSkeleton.h"
#include "sets/Set.h"
#include "sets/UnorderedHashSet.h"

namespace velmor {

template <typename F, typename Kind>
class SetFunctionWrapper : public SetFunctionSkeleton<F, Kind> {
 public:
  int GroundSetSize() const override { return n_; }
  int NumberOfLandmarks() const override { return function_->NumberOfLandmarks(); }
  long MatrixRows() const override { return function_->MatrixRows(); }
  long MatrixColumns() const override { return function_->MatrixColumns(); }
  long MatrixStoredEntries() const override { return function_->MatrixStoredEntries(); }

  const Kind& WrappedFunction() const { return *function_; }
  double Multiplier() const { return multiplier_; }

 protected:
  // Takes f over; refuses a null f with "Invalid argument, the wrapped
  // function must be present.", located at `site`.
  void Wrap(const internal::MessageSite& site, std::unique_ptr<Kind> f) {
    if (f == nullptr) {
      internal::ThrowInvalidArgument(site,
                                     "Invalid argument, the wrapped function must be present.");
    }
    function_ = internal::ClonedPointer<Kind>(std::move(f));
    n_ = function_->GroundSetSize();
  }
  // Refuses a set over another ground set than f's ("Invalid ground set
  // size, %d != %d.") and returns a copy of it over f's ground set, with its
  // membership flags.
  UnorderedHashSet Adopt(const internal::MessageSite& site, const Set& set,
                         std::vector<unsigned char>& flags) const {
    if (set.GroundSetSize() != n_) {
      internal::ThrowInvalidArgument(site, "Invalid ground set size, %d != %d.",
                                     set.GroundSetSize(), n_);
    }
    UnorderedHashSet copy(n_);
    copy.Assign(set);
    flags.assign(static_cast<std::size_t>(n_), 0);
    for (const int v : copy) flags[static_cast<std::size_t>(v)] = 1;
    return copy;
  }
  // Refuses a NaN or infinite multiplier with "Invalid argument, multiplier
  // (=%e) must be finite.", then keeps it.
  void SetMultiplier(const internal::MessageSite& site, double multiplier) {
    if (!std::isfinite(multiplier)) {
      internal::ThrowInvalidArgument(site, "Invalid argument, multiplier (=%e) must be finite.",
                                     multiplier);
    }
    multiplier_ = multiplier;
  }

  // S u A over f's ground set: a copy of S, room made for A's elements, then
  // A's elements inserted in A's order.
  static UnorderedHashSet UnionWith(const UnorderedHashSet& S, const Set& A) {
    UnorderedHashSet result(S);
    result.PrepareToInsertTheFollowingNumberOfItems(A.size());
    for (const int a : A) result.insert(a);
    return result;
  }

  internal::ClonedPointer<Kind> function_;
  double multiplier_ = 1.0;
  int n_ = 0;
};

}  // namespace velmor

#endif  // VELMOR_FUNCTIONS_SETFUNCTIONWRAPPER_H_
