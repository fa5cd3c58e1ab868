// Preparing fresh memory is advice: whatever the thread count and however the
// buffer lies against page boundaries, every byte keeps its value.
#include "utils/FreshMemory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <vector>

namespace velmor {
namespace {

TEST(FreshMemory, ContentIsKeptForEveryThreadCountAndOffset) {
  const std::size_t bytes = kFreshMemoryThreshold + 12345;
  std::vector<std::uint32_t> buffer(bytes / sizeof(std::uint32_t) + 2);
  std::iota(buffer.begin(), buffer.end(), 7u);
  for (const int threads : {1, 2, 3}) {
    for (const std::size_t offset : {std::size_t{0}, std::size_t{3}}) {
      PrepareFreshMemory(reinterpret_cast<char*>(buffer.data()) + offset, bytes, threads);
      for (std::size_t i = 0; i < buffer.size(); ++i) {
        ASSERT_EQ(buffer[i], 7u + i) << i << " threads " << threads << " offset " << offset;
      }
    }
  }
}

}  // namespace
}  // namespace velmor
