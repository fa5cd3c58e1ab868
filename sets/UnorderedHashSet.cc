#include "sets/UnorderedHashSet.h"

#include <cstdio>
#include <ostream>
#include <stdexcept>

#include "utils/error_messages.h"

namespace velmor {
namespace {

// Truncation of x + 0.5.
int RoundHalfUp(float x) { return static_cast<int>(x + 0.5f); }

}  // namespace

UnorderedHashSet::UnorderedHashSet(int ground_set_size) : Set(ground_set_size) {
  ResetTable(kInitialLength);
}

UnorderedHashSet& UnorderedHashSet::operator=(const UnorderedHashSet& other) {
  Assign(other);
  return *this;
}

std::unique_ptr<Set> UnorderedHashSet::clone() const {
  return std::make_unique<UnorderedHashSet>(*this);
}

void UnorderedHashSet::UpdateThresholds() {
  const auto length = static_cast<float>(table_.size());
  growth_threshold_ = RoundHalfUp(growth_load_factor_ * length);
  if (growth_threshold_ == static_cast<int>(table_.size())) --growth_threshold_;
  shrink_threshold_ = RoundHalfUp(shrink_load_factor_ * length);
}

void UnorderedHashSet::ResetTable(std::size_t length) {
  table_.assign(length, 0u);
  bits_ = 0;
  while ((std::size_t{1} << bits_) < length) ++bits_;
  mask_ = static_cast<uint32_t>(length - 1);
  shift_ = 32 - bits_;
  UpdateThresholds();
  count_ = 0;
}

void UnorderedHashSet::Rehash(std::size_t new_length) {
  if (new_length < 9 || new_length == table_.size()) return;
  std::vector<uint32_t> old_table;
  old_table.swap(table_);
  ResetTable(new_length);
  // The new table is at most half full, so plain probing suffices.
  for (uint32_t stored : old_table) {
    if (stored == 0) continue;
    table_[FindSlot(static_cast<int>(stored - 1))] = stored;
    ++count_;
  }
}

bool UnorderedHashSet::InsertUnchecked(int v) {
  uint32_t slot = FindSlot(v);
  if (table_[slot] != 0) return false;
  if (count_ >= growth_threshold_) {
    Rehash(table_.size() * 2);
    slot = FindSlot(v);
  }
  table_[slot] = static_cast<uint32_t>(v) + 1;
  ++count_;
  return true;
}

bool UnorderedHashSet::insert(int v) {
  if (v < 0 || v >= n_) {
    VELMOR_THROW(std::invalid_argument, "Element %d invalid for set with |V|=%d.", v, n_);
  }
  return InsertUnchecked(v);
}

bool UnorderedHashSet::remove(int v) {
  if (v < 0 || v >= n_) {
    VELMOR_THROW(std::invalid_argument, "Element %d invalid for set with |V|=%d.", v, n_);
  }
  uint32_t hole = FindSlot(v);
  if (table_[hole] == 0) return false;
  // Backward-shift deletion: pull later entries of the run into the hole when
  // their home slot does not lie cyclically in (hole, j].
  for (uint32_t j = (hole + 1) & mask_; table_[j] != 0; j = (j + 1) & mask_) {
    const uint32_t home = HomeSlot(table_[j]);
    const bool move = hole < j ? (home <= hole || home > j) : (home <= hole && home > j);
    if (move) {
      table_[hole] = table_[j];
      hole = j;
    }
  }
  table_[hole] = 0;
  --count_;
  if (count_ < shrink_threshold_) Rehash(table_.size() / 2);
  return true;
}

bool UnorderedHashSet::contains(int v) const {
  if (v < 0 || v >= n_) return false;
  return table_[FindSlot(v)] != 0;
}

void UnorderedHashSet::insertSet(const Set& other) {
  // Elements of a set over a larger ground set are checked before any change.
  if (other.GroundSetSize() > n_) {
    for (int v : other) {
      if (v >= n_) {
        VELMOR_THROW(std::invalid_argument, "Element %d invalid for set with |V|=%d.", v, n_);
      }
    }
  }
  PrepareToInsertTheFollowingNumberOfItems(other.size());
  for (int v : other) InsertUnchecked(v);
}

void UnorderedHashSet::insertSetIgnoreSingleton(const Set& other, int u) {
  if (other.GroundSetSize() > n_) {
    for (int v : other) {
      if (v != u && v >= n_) {
        VELMOR_THROW(std::invalid_argument, "Element %d invalid for set with |V|=%d.", v, n_);
      }
    }
  }
  PrepareToInsertTheFollowingNumberOfItems(other.size());
  for (int v : other) {
    if (v != u) InsertUnchecked(v);
  }
}

void UnorderedHashSet::PrepareToInsertTheFollowingNumberOfItems(int k) {
  const long long target = static_cast<long long>(count_) + k;
  std::size_t length = table_.size();
  while (target >= RoundHalfUp(0.5f * static_cast<float>(length))) {
    if ((length & (std::size_t{1} << 30)) != 0) {
      VELMOR_THROW(std::invalid_argument,
                   "Unable to create hash table with current %ld-bit data type.", 32L);
    }
    length *= 2;
  }
  Rehash(length);
}

void UnorderedHashSet::MakeEmpty() {
  growth_load_factor_ = 0.5f;
  shrink_load_factor_ = 0.125f;
  ResetTable(kInitialLength);
}

void UnorderedHashSet::MakeFull() {
  MakeEmpty();
  PrepareToInsertTheFollowingNumberOfItems(n_);
  for (int v = 0; v < n_; ++v) table_[FindSlot(v)] = static_cast<uint32_t>(v) + 1;
  count_ = n_;
}

void UnorderedHashSet::MakeSingleton(int v) {
  if (v < 0 || v >= n_) {
    VELMOR_THROW(std::invalid_argument, "Element %d invalid for this set with |V|=%d.", v, n_);
  }
  MakeEmpty();
  InsertUnchecked(v);
}

Set::Cursor UnorderedHashSet::CursorBegin() const { return CursorNext(-1); }

Set::Cursor UnorderedHashSet::CursorNext(Cursor cursor) const {
  const auto length = static_cast<Cursor>(table_.size());
  for (++cursor; cursor < length; ++cursor) {
    if (table_[static_cast<std::size_t>(cursor)] != 0) break;
  }
  return cursor;
}

void UnorderedHashSet::DebugPrint(std::ostream& stream) const {
  char line[256];
  std::snprintf(line, sizeof(line), "Hash table size = %lu, num_elements = %d, load = %f\n",
                static_cast<unsigned long>(table_.size()), count_,
                static_cast<double>(count_) / static_cast<double>(table_.size()));
  stream << line;
  std::snprintf(line, sizeof(line), "current growth (shrink) load factor = %f (%f)\n",
                static_cast<double>(growth_load_factor_), static_cast<double>(shrink_load_factor_));
  stream << line;
  std::snprintf(line, sizeof(line), "current growth (shrink) trigger threshold = %d (%d)\n",
                growth_threshold_, shrink_threshold_);
  stream << line;
}

}  // namespace velmor
