#include "sets/RangeSet.h"

#include <stdexcept>

#include "utils/error_messages.h"

namespace velmor {

RangeSet& RangeSet::operator=(const RangeSet& other) {
  n_ = other.n_;
  count_ = other.count_;
  begin_ = other.begin_;
  end_ = other.end_;
  return *this;
}

void RangeSet::Assign(const Set& other) {
  if (this == &other) return;
  int low = other.GroundSetSize(), high = -1;
  for (int v : other) {
    low = v < low ? v : low;
    high = v > high ? v : high;
  }
  if (other.size() > 0 && high - low + 1 != other.size()) {
    VELMOR_THROW(std::invalid_argument, "Can not insert to this set.");
  }
  n_ = other.GroundSetSize();
  if (other.size() == 0) {
    MakeEmpty();
  } else {
    SetRange(low, high + 1);
  }
}

std::unique_ptr<Set> RangeSet::clone() const { return std::make_unique<RangeSet>(*this); }

bool RangeSet::insert(int) { VELMOR_THROW(std::invalid_argument, "Can not insert to this set."); }

bool RangeSet::remove(int) { VELMOR_THROW(std::invalid_argument, "Can not remove from this set."); }

void RangeSet::insertSet(const Set&) {
  VELMOR_THROW(std::invalid_argument, "Can not insert to this set.");
}

void RangeSet::removeSet(const Set&) {
  VELMOR_THROW(std::invalid_argument, "Can not remove from this set.");
}

void RangeSet::insertSetIgnoreSingleton(const Set& other, int u) {
  if (other.size() != 1 || !other.contains(u)) {
    VELMOR_THROW(std::invalid_argument, "Can not insert to this set.");
  }
}

void RangeSet::MakeEmpty() {
  begin_ = end_ = 0;
  count_ = 0;
}

void RangeSet::MakeFull() {
  begin_ = 0;
  end_ = n_;
  count_ = n_;
}

void RangeSet::MakeSingleton(int v) {
  if (v < 0 || v >= n_) VELMOR_THROW(std::invalid_argument, "Element invalid %d for this set.", v);
  begin_ = v;
  end_ = v + 1;
  count_ = 1;
}

void RangeSet::SetRange(int b, int e) {
  if (b < 0 || b > e || e > n_) {
    VELMOR_THROW(std::invalid_argument, "Can not assign such a range [%d,%d) to a RangeSet.", b, e);
  }
  if (b == e) {
    MakeEmpty();
    return;
  }
  begin_ = b;
  end_ = e;
  count_ = e - b;
}

}  // namespace velmor
