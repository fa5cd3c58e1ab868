#ifndef VELMOR_UTILS_PARALLELPARTS_H_
#define VELMOR_UTILS_PARALLELPARTS_H_

// Work split into a fixed number of parts run at once, one thread each: the
// caller decides what a part is (usually a contiguous range of rows, see
// PartBegin), so results that are combined in part order do not depend on
// which thread ran what.

#include <cstdint>
#include <thread>
#include <vector>

namespace velmor {

// Runs scan(part) for every part in [0, parts): part 0 on the calling thread,
// the others on threads of their own, or on the calling thread too when the
// system will not start another thread. Returns when all have ended.
// REQUIRES: scan does not throw (catch inside and report through the part's
// own result).
template <typename Scan>
void RunInParts(int parts, const Scan& scan) {
  std::vector<std::thread> helpers;
  int started = 1;
  try {
    helpers.reserve(static_cast<std::size_t>(parts > 1 ? parts - 1 : 0));
    for (; started < parts; ++started) helpers.emplace_back(scan, started);
  } catch (...) {
    // Fewer threads than parts: the rest run below.
  }
  for (int part = started; part < parts; ++part) scan(part);
  scan(0);
  for (std::thread& helper : helpers) helper.join();
}

// The first index of part `part` when [0, count) is cut into `parts`
// contiguous ranges of nearly equal size; part p is [PartBegin(p),
// PartBegin(p + 1)).
inline std::int64_t PartBegin(std::int64_t count, int parts, int part) {
  return static_cast<std::int64_t>(static_cast<__int128>(count) * part / parts);
}

}  // namespace velmor

#endif  // VELMOR_UTILS_PARALLELPARTS_H_
