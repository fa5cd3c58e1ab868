#ifndef VELMOR_SETS_FIXEDSINGLETONSET_H_
#define VELMOR_SETS_FIXEDSINGLETONSET_H_

#include <memory>

#include "sets/RangeSet.h"

namespace velmor {

// The singleton {v} of a ground set of size n, as a constant range; throws
// std::invalid_argument for v outside [0, n).
class FixedSingletonSet : public RangeSet {
 public:
  FixedSingletonSet(int ground_set_size, int v) : RangeSet(ground_set_size) { MakeSingleton(v); }
  std::unique_ptr<Set> clone() const override { return std::make_unique<FixedSingletonSet>(*this); }
};

}  // namespace velmor

#endif  // VELMOR_SETS_FIXEDSINGLETONSET_H_
