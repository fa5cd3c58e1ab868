#ifndef VELMOR_SETS_FIXEDEMPTYSET_H_
#define VELMOR_SETS_FIXEDEMPTYSET_H_

#include <memory>

#include "sets/RangeSet.h"

namespace velmor {

// The empty set of a ground set of size n, as a constant range.
class FixedEmptySet : public RangeSet {
 public:
  explicit FixedEmptySet(int ground_set_size = 0) : RangeSet(ground_set_size) {}
  std::unique_ptr<Set> clone() const override { return std::make_unique<FixedEmptySet>(*this); }
};

}  // namespace velmor

#endif  // VELMOR_SETS_FIXEDEMPTYSET_H_
