#ifndef VELMOR_SETS_FIXEDGROUNDSET_H_
#define VELMOR_SETS_FIXEDGROUNDSET_H_

#include <memory>

#include "sets/RangeSet.h"

namespace velmor {

// The whole ground set V = [0, n), as a constant range.
class FixedGroundSet : public RangeSet {
 public:
  explicit FixedGroundSet(int ground_set_size = 0) : RangeSet(ground_set_size) { MakeFull(); }
  std::unique_ptr<Set> clone() const override { return std::make_unique<FixedGroundSet>(*this); }
};

}  // namespace velmor

#endif  // VELMOR_SETS_FIXEDGROUNDSET_H_
