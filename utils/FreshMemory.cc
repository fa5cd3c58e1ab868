#include "utils/FreshMemory.h"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "utils/ParallelParts.h"

namespace velmor {

void PrepareFreshMemory(void* data, std::size_t bytes, int threads) {
#if defined(__linux__) && defined(MADV_POPULATE_WRITE)
  if (bytes < kFreshMemoryThreshold) return;
  constexpr std::uintptr_t kPage = 4096;
  const auto start = reinterpret_cast<std::uintptr_t>(data);
  const std::uintptr_t begin = (start + kPage - 1) & ~(kPage - 1);
  const std::uintptr_t end = (start + bytes) & ~(kPage - 1);
  const auto pages = static_cast<std::int64_t>((end - begin) / kPage);
  const int parts = std::clamp(threads, 1, 64);
  const int saved_errno = errno;
  RunInParts(parts, [&](int part) {
    const std::uintptr_t from =
        begin + kPage * static_cast<std::uintptr_t>(PartBegin(pages, parts, part));
    const std::uintptr_t to =
        begin + kPage * static_cast<std::uintptr_t>(PartBegin(pages, parts, part + 1));
    if (to > from) (void)madvise(reinterpret_cast<void*>(from), to - from, MADV_POPULATE_WRITE);
  });
  errno = saved_errno;
#else
  (void)data;
  (void)bytes;
  (void)threads;
#endif
}

}  // namespace velmor
