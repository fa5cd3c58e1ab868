#include "sets/RealBitSet.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

#include "utils/error_messages.h"

namespace velmor {
namespace {

std::size_t WordsFor(int n) { return (static_cast<std::size_t>(n) + 63) / 64; }

}  // namespace

RealBitSet::RealBitSet(int ground_set_size)
    : Set(ground_set_size), words_(WordsFor(ground_set_size), 0u) {}

RealBitSet& RealBitSet::operator=(const RealBitSet& other) {
  n_ = other.n_;
  count_ = other.count_;
  words_ = other.words_;
  return *this;
}

std::unique_ptr<Set> RealBitSet::clone() const { return std::make_unique<RealBitSet>(*this); }

// Only v >= n is refused with the element message. A negative v is not
// tested here: its word index lies far beyond the words, and the checked word
// access refuses it.
bool RealBitSet::insert(int v) {
  if (v >= n_) {
    VELMOR_THROW(std::invalid_argument, "Element %d invalid for this set with |V|=%d.", v, n_);
  }
  uint64_t& word = words_.at(Word(v));
  const uint64_t mask = uint64_t{1} << Bit(v);
  if ((word & mask) != 0) return false;
  word |= mask;
  ++count_;
  return true;
}

bool RealBitSet::remove(int v) {
  if (v >= n_) {
    VELMOR_THROW(std::invalid_argument, "Element %d invalid for this set with |V|=%d.", v, n_);
  }
  uint64_t& word = words_.at(Word(v));
  const uint64_t mask = uint64_t{1} << Bit(v);
  if ((word & mask) == 0) return false;
  word &= ~mask;
  --count_;
  return true;
}

void RealBitSet::MakeEmpty() {
  std::fill(words_.begin(), words_.end(), 0u);
  count_ = 0;
}

void RealBitSet::MakeFull() {
  std::fill(words_.begin(), words_.end(), ~uint64_t{0});
  if (n_ % 64 != 0) words_.back() = (uint64_t{1} << (n_ % 64)) - 1;
  count_ = n_;
}

void RealBitSet::MakeSingleton(int v) {
  if (v < 0 || v >= n_) {
    VELMOR_THROW(std::invalid_argument, "Element %d invalid for this set with |V|=%d.", v, n_);
  }
  MakeEmpty();
  insert(v);
}

void RealBitSet::MakeEmptyAndChangeGroundSetSize(int n) {
  Set::MakeEmptyAndChangeGroundSetSize(n);
  words_.assign(WordsFor(n), 0u);
}

Set::Cursor RealBitSet::NextSetBit(Cursor from) const {
  if (from >= n_) return n_;
  std::size_t word = static_cast<std::size_t>(from) >> 6;
  uint64_t bits = words_[word] & (~uint64_t{0} << (static_cast<unsigned>(from) & 63u));
  while (bits == 0) {
    if (++word >= words_.size()) return n_;
    bits = words_[word];
  }
  return static_cast<Cursor>(word * 64 + static_cast<std::size_t>(std::countr_zero(bits)));
}

}  // namespace velmor
