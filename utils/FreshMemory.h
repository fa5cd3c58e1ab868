#ifndef VELMOR_UTILS_FRESHMEMORY_H_
#define VELMOR_UTILS_FRESHMEMORY_H_

#include <cstddef>

namespace velmor {

// Large fresh buffers. Touching a fresh page for the first time costs a page
// fault, and on virtual machines each fault also leaves the guest.
// PrepareFreshMemory has the kernel set up every whole page of [data, data +
// bytes) for writing in one call per part, the parts on `threads` threads,
// before the buffer is first written. Every large fresh result (a matrix read
// from a file that cannot be mapped, a similarity built from features) is
// prepared this way. Measured on this project's 2-core virtual machines for
// the 1.6 GB similarity of 20000 x 32 features: the same whole-run time as
// advising huge pages and taking the faults (2.5-2.8 s either way over
// alternating runs), with the kernel's work done in these calls instead of
// in the faults.
//
// Buffers below kFreshMemoryThreshold bytes are left alone. Only advice: the
// content is unchanged, the buffer is usable whatever the kernel answers, and
// where it lacks the call nothing happens. errno is left as it was.
inline constexpr std::size_t kFreshMemoryThreshold = std::size_t{64} << 20;
void PrepareFreshMemory(void* data, std::size_t bytes, int threads = 1);

}  // namespace velmor

#endif  // VELMOR_UTILS_FRESHMEMORY_H_
