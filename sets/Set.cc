#include "sets/Set.h"

#include <ostream>
#include <stdexcept>

#include "utils/error_messages.h"

namespace velmor {

void Set::Reset(int n, bool full) {
  MakeEmptyAndChangeGroundSetSize(n);
  if (full) MakeFull();
}

void Set::Assign(const Set& other) {
  if (this == &other) return;
  MakeEmptyAndChangeGroundSetSize(other.GroundSetSize());
  for (int v : other) insert(v);
}

void Set::Assign(const std::vector<int>& elements, int n) {
  Assign(elements.data(), static_cast<int>(elements.size()), n);
}

void Set::Assign(const std::vector<bool>& bits, int n) {
  MakeEmptyAndChangeGroundSetSize(n);
  for (std::size_t v = 0; v < bits.size(); ++v) {
    if (bits[v]) insert(static_cast<int>(v));
  }
}

void Set::Assign(const int* elements, int count, int n) {
  MakeEmptyAndChangeGroundSetSize(n);
  PrepareToInsertTheFollowingNumberOfItems(count);
  for (int i = 0; i < count; ++i) insert(elements[i]);
}

void Set::Assign(const std::set<int>& elements, int n) {
  MakeEmptyAndChangeGroundSetSize(n);
  PrepareToInsertTheFollowingNumberOfItems(static_cast<int>(elements.size()));
  for (int v : elements) insert(v);
}

void Set::Assign(const std::unordered_set<int>& elements, int n) {
  MakeEmptyAndChangeGroundSetSize(n);
  PrepareToInsertTheFollowingNumberOfItems(static_cast<int>(elements.size()));
  for (int v : elements) insert(v);
}

void Set::insertSet(const Set& other) {
  PrepareToInsertTheFollowingNumberOfItems(other.size());
  for (int v : other) insert(v);
}

void Set::insertSetIgnoreSingleton(const Set& other, int u) {
  PrepareToInsertTheFollowingNumberOfItems(other.size());
  for (int v : other) {
    if (v != u) insert(v);
  }
}

void Set::removeSet(const Set& other) {
  for (int v : other) remove(v);
}

void Set::MakeEmptyAndChangeGroundSetSize(int n) {
  if (n < 0) VELMOR_THROW(std::invalid_argument, "Invalid ground set size %d.", n);
  MakeEmpty();
  n_ = n;
}

void Set::ToVector(std::vector<int>& elements) const {
  elements.clear();
  elements.reserve(static_cast<std::size_t>(count_));
  for (int v : *this) elements.push_back(v);
}

void Set::DebugPrint(std::ostream& stream) const {
  stream << "{n=" << n_ << ", size=" << count_ << ":";
  for (int v : *this) stream << ' ' << v;
  stream << "}\n";
}

}  // namespace velmor
