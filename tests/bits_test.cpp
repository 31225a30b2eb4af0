#include "util/bits.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/support.h"

namespace {

uint32_t ReversedBits(uint32_t value, uint32_t numBits) {
  uint32_t result = 0;
  for (uint32_t i = 0; i < numBits; i++) {
    result = result << 1 | (value >> i & 1);
  }
  return result;
}

// Comes first: CTest runs each case in a process of its own, and here the table must not be there yet.
TEST(ReverseBits, TwoThreadsMayBuildTheTableAtOnce) {
  std::atomic<int> numReady = 0;
  uint32_t aResult[2] = {};
  auto run = [&](uint32_t* pResult) {
    numReady++;
    while (numReady != 2) {
    }
    for (uint32_t value = 1; value < 0x10000; value <<= 1) {
      *pResult |= UTIL_ReverseBits16(value) ^ ReversedBits(value, 16);
    }
  };
  std::thread other(run, &aResult[1]);
  run(&aResult[0]);
  other.join();
  EXPECT_EQ(aResult[0] | aResult[1], 0u);
}

TEST(ReverseBits, MatchesTheSlowWayForEveryValue) {
  RANDOM random(1);
  for (uint32_t value = 0; value < 0x10000; value++) {
    const uint32_t more = random.Next32() << 16 | value;
    ASSERT_EQ(UTIL_ReverseBits8(more), ReversedBits(value, 8)) << value;
    ASSERT_EQ(UTIL_ReverseBits16(more), ReversedBits(value, 16)) << value;
    ASSERT_EQ(UTIL_ReverseBits32(more), ReversedBits(more, 32)) << more;
  }
}

TEST(StoreBytes, IsLittleEndianAndAsLongAsItSays) {
  GUARDED_BLOCK block;
  char* p = block.Take(15);
  UTIL_StoreU16(p + 1, 0x2211);
  UTIL_StoreU32(p + 3, 0x66554433);
  UTIL_StoreU64(p + 7, 0xEEDDCCBBAA998877);
  EXPECT_EQ(std::string(p, 15), "\xA5\x11\x22\x33\x44\x55\x66\x77\x88\x99\xAA\xBB\xCC\xDD\xEE");
  EXPECT_TRUE(block.IsIntact());
}

}  // namespace
