#include "util/bits.h"

#include <gtest/gtest.h>

#include <atomic>

#include "tests/support.h"

namespace {

uint32_t ReversedBits(uint32_t value, uint32_t numBits) {
  uint32_t result = 0;
  for (uint32_t i = 0; i < numBits; i++) {
    result = result << 1 | (value >> i & 1);
  }
  return result;
}

// Two threads at once, and CTest runs each case in a process of its own: here both build the table.
TEST(ReverseBits, MatchesTheSlowWayWhoeverBuildsTheTable) {
  std::atomic<int> numReady = 0;
  RunThreads(2, [&numReady](int seed) {
    RANDOM random(static_cast<uint32_t>(seed));
    numReady++;
    while (numReady != 2) {
    }
    for (uint32_t value = 0x10000; value-- > 0;) {  // What is built last comes first.
      const uint32_t more = random.Next32() << 16 | value;
      ASSERT_EQ(UTIL_ReverseBits16(more), ReversedBits(value, 16)) << value;
      ASSERT_EQ(UTIL_ReverseBits8(more), ReversedBits(value, 8)) << value;
      ASSERT_EQ(UTIL_ReverseBits32(more), ReversedBits(more, 32)) << more;
    }
  });
}

}  // namespace
