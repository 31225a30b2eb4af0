#include "util/crc.h"

#include <gtest/gtest.h>

#include "tests/support.h"
#include "util/bits.h"

namespace {

// The form that takes single bits is the reference for the others.
TEST(Crc, EveryFormGivesWhatSingleBitsDo) {
  static constexpr uint32_t aPolynomial[] = {0xEDB88320, 0x82F63B78, 0, 1, 0x80000000};
  static constexpr uint32_t aShift[] = {0, 16, 24, 0};
  RANDOM random(1);
  GUARDED_BLOCK block;
  for (int round = 0; round < 10000; round++) {
    std::string data = random.Bytes(random.Below(40));
    const char* p = block.Place(data);  // The length decides on the alignment.
    const auto length = static_cast<uint32_t>(data.size());
    const auto start = static_cast<uint32_t>(random.Value());
    const uint32_t polynomial = random.OneIn(4) ? random.Next32() : aPolynomial[random.Below(5)];
    ASSERT_EQ(CRC_Calc32Bitwise(p, length, start), CRC_CalcBitwise(p, length, start, 0xEDB88320));
    ASSERT_EQ(CRC_Calc16CCITT(p, length, start), CRC_CalcBitwise(p, length, start, 0x8408) & 0xFFFF);
    // The table changes its polynomial from one call to the next.
    ASSERT_EQ(CRC_Calc32Table(p, length, start, polynomial), CRC_CalcBitwise(p, length, start, polynomial));
    ASSERT_EQ(CRC_Calc32(p, length, start), CRC_CalcBitwise(p, length, start, 0xEDB88320));
    ASSERT_EQ(CRC_Calc32C(p, length, start), CRC_CalcBitwise(p, length, start, 0x82F63B78));
    const std::string fill(length, '\xB1');
    ASSERT_EQ(CRC_CalcFill(0xB1, length, start, polynomial), CRC_CalcBitwise(fill.data(), length, start, polynomial));
    const uint32_t flags = random.Below(16);
    const uint32_t shift = aShift[flags & 3];
    const uint32_t result = CRC_CalcEx(p, length, start, polynomial, flags);
    if (flags & CRC_REFLECT_IN) {
      std::transform(data.begin(), data.end(), data.begin(),
                     [](char c) { return static_cast<char>(UTIL_ReverseBits8(static_cast<uint8_t>(c))); });
    }
    const auto reversed = [shift](uint32_t value) { return UTIL_ReverseBits32(value) >> shift; };
    const uint32_t expected =
        length == 0             ? start
        : flags & CRC_MSB_FIRST ? reversed(CRC_CalcBitwise(data.data(), length, reversed(start), reversed(polynomial)))
                                : CRC_CalcBitwise(data.data(), length, start, polynomial);
    ASSERT_EQ(result, expected) << "flags " << flags;
  }
}

TEST(Crc, GivesThePublishedCheckValues) {
  static constexpr uint32_t HIGH_BIT_FIRST = CRC_MSB_FIRST | CRC_REFLECT_IN;
  EXPECT_EQ(CRC_CalcBitwise("123456789", 9, UINT32_MAX, 0xEDB88320), ~0xCBF43926);
  EXPECT_EQ(CRC_CalcBitwise("123456789", 9, 0xFFFF, 0xA001), 0x4B37u);
  EXPECT_EQ(CRC_CalcEx("123456789", 9, UINT32_MAX, 0x04C11DB7, HIGH_BIT_FIRST), 0x0376E6E7u);
  EXPECT_EQ(CRC_CalcEx("123456789", 9, 0xFFFF, 0x1021, CRC_WIDTH_16 | HIGH_BIT_FIRST), 0x29B1u);
  EXPECT_EQ(CRC_CalcEx("123456789", 9, 0, 0x07, CRC_WIDTH_8 | HIGH_BIT_FIRST), 0xF4u);
}

}  // namespace
