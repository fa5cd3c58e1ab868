#ifndef VELMOR_UTILS_FRESHMEMORY_H_
#define VELMOR_UTILS_FRESHMEMORY_H_

#include <cstddef>

namespace velmor {

// Large fresh buffers. Touching a fresh page for the first time costs a page
// fault, and on virtual machines each fault also leaves the guest: taking
// them one by one while a 1.6 GB matrix is written costs seconds.
// PrepareFreshMemory has the kernel set up every whole page of [data, data +
// bytes) for writing in one call per part, the parts on `threads` threads.
// Measured on the virtual machines this project runs on, for 1.6 GB set up
// and then written once from two threads: about 1 s this way, 2.8 s by
// faults, and 1.8-2.4 s with huge pages (which are cheap to touch but, once
// the host has taken back the memory, slow to get), so small pages it is.
//
// Buffers below kFreshMemoryThreshold bytes are left alone. Only advice: the
// content is unchanged, the buffer is usable whatever the kernel answers, and
// where it lacks the call nothing happens. errno is left as it was.
inline constexpr std::size_t kFreshMemoryThreshold = std::size_t{64} << 20;
void PrepareFreshMemory(void* data, std::size_t bytes, int threads = 1);

}  // namespace velmor

#endif  // VELMOR_UTILS_FRESHMEMORY_H_
