// Every form against polynomial division one bit at a time, over random ranges that end in front of a guard page.

#include "util/crc.h"

#include <gtest/gtest.h>

#include "tests/support.h"

namespace {

uint32_t Reversed(uint32_t value, uint32_t width) {
  uint32_t result = 0;
  for (uint32_t i = 0; i < width; i++) {
    result |= (value >> i & 1) << (width - 1 - i);
  }
  return result;
}

// The CRC in its textbook form: bits enter at the top, those of a byte from its top or from its bottom.
uint32_t TextbookCrc(std::string_view data, uint32_t width, uint32_t start, uint32_t polynomial, bool isLowBitFirst) {
  const uint32_t mask = UINT32_MAX >> (32 - width);
  uint32_t crc = start & mask;
  for (char c : data) {
    for (uint32_t i = 0; i < 8; i++) {
      const uint32_t bit = static_cast<uint8_t>(c) >> (isLowBitFirst ? i : 7 - i) & 1;
      const uint32_t top = crc >> (width - 1) ^ bit;
      crc = (crc << 1 & mask) ^ (top != 0 ? polynomial & mask : 0);
    }
  }
  return crc;
}

uint32_t ReflectedCrc(std::string_view data, uint32_t start, uint32_t polynomial, bool isHighBitFirst = false) {
  return Reversed(TextbookCrc(data, 32, Reversed(start, 32), Reversed(polynomial, 32), !isHighBitFirst), 32);
}

TEST(Crc, EveryFormGivesWhatLongDivisionDoes) {
  static constexpr uint32_t aPolynomial[] = {0xEDB88320, 0x82F63B78, 0x8408, 0xA001, 0x8C, 0, 1, 0x80000000};
  RANDOM random(1);
  GUARDED_BLOCK block;
  for (int round = 0; round < 20000; round++) {
    const std::string data = random.Bytes(random.Below(random.OneIn(10) ? 300 : 40));
    const char* p = block.Place(data);  // The length decides on the alignment.
    const auto length = static_cast<uint32_t>(data.size());
    const auto start = static_cast<uint32_t>(random.Value());
    const uint32_t polynomial = random.OneIn(4) ? random.Next32() : aPolynomial[random.Below(8)];
    ASSERT_EQ(CRC_CalcBitwise(p, length, start, polynomial), ReflectedCrc(data, start, polynomial));
    ASSERT_EQ(CRC_Calc32Table(p, length, start, polynomial), ReflectedCrc(data, start, polynomial)) << polynomial;
    ASSERT_EQ(CRC_Calc32Bitwise(p, length, start), ReflectedCrc(data, start, 0xEDB88320));
    ASSERT_EQ(CRC_Calc16CCITT(p, length, start), ReflectedCrc(data, start, 0x8408) & 0xFFFF);
    // The table changes its polynomial from one call to the next.
    ASSERT_EQ(CRC_Calc32(p, length, start), ReflectedCrc(data, start, 0xEDB88320));
    ASSERT_EQ(CRC_Calc32C(p, length, start), ReflectedCrc(data, start, 0x82F63B78));
    // A range in two pieces.
    const uint32_t head = random.Below(length + 1);
    ASSERT_EQ(CRC_Calc32Table(p + head, length - head, CRC_Calc32Table(p, head, start, polynomial), polynomial),
              ReflectedCrc(data, start, polynomial));
    const auto value = static_cast<uint8_t>(random.Next32());
    ASSERT_EQ(CRC_CalcFill(value, length, start, polynomial),
              ReflectedCrc(std::string(length, static_cast<char>(value)), start, polynomial));
  }
}

TEST(CrcEx, GivesWhatLongDivisionDoesInEveryForm) {
  static constexpr uint32_t aWidth[] = {32, 16, 8, 32};
  RANDOM random(2);
  GUARDED_BLOCK block;
  for (int round = 0; round < 20000; round++) {
    const std::string data = random.Bytes(1 + random.Below(30));
    const auto start = static_cast<uint32_t>(random.Value());
    const uint32_t polynomial = random.Next32();
    const uint32_t flags = random.Below(16);
    const bool isReflectIn = (flags & CRC_REFLECT_IN) != 0;
    const uint32_t expected = flags & CRC_MSB_FIRST
                                  ? TextbookCrc(data, aWidth[flags & 3], start, polynomial, !isReflectIn)
                                  : ReflectedCrc(data, start, polynomial, isReflectIn);
    ASSERT_EQ(CRC_CalcEx(block.Place(data), static_cast<uint32_t>(data.size()), start, polynomial, flags), expected)
        << "flags " << flags;
    ASSERT_EQ(CRC_CalcEx(nullptr, 0, start, polynomial, flags), start);
  }
}

TEST(Crc, GivesThePublishedCheckValues) {
  static constexpr struct {
    const char* Name;
    uint32_t Polynomial;
    uint32_t Flags;
    uint32_t Start;
    uint32_t FinalXor;
    uint32_t Check;
  } aCase[] = {
      {"CRC-32", 0xEDB88320, 0, UINT32_MAX, UINT32_MAX, 0xCBF43926},
      {"CRC-32C", 0x82F63B78, 0, UINT32_MAX, UINT32_MAX, 0xE3069283},
      {"CRC-32/BZIP2", 0x04C11DB7, CRC_MSB_FIRST | CRC_REFLECT_IN, UINT32_MAX, UINT32_MAX, 0xFC891918},
      {"CRC-32/MPEG-2", 0x04C11DB7, CRC_MSB_FIRST | CRC_REFLECT_IN, UINT32_MAX, 0, 0x0376E6E7},
      {"CRC-16/KERMIT", 0x8408, CRC_WIDTH_16, 0, 0, 0x2189},
      {"CRC-16/X-25", 0x8408, CRC_WIDTH_16, 0xFFFF, 0xFFFF, 0x906E},
      {"CRC-16/ARC", 0xA001, CRC_WIDTH_16, 0, 0, 0xBB3D},
      {"CRC-16/MODBUS", 0xA001, CRC_WIDTH_16, 0xFFFF, 0, 0x4B37},
      {"CRC-16/XMODEM", 0x1021, CRC_WIDTH_16 | CRC_MSB_FIRST | CRC_REFLECT_IN, 0, 0, 0x31C3},
      {"CRC-16/IBM-3740", 0x1021, CRC_WIDTH_16 | CRC_MSB_FIRST | CRC_REFLECT_IN, 0xFFFF, 0, 0x29B1},
      {"CRC-8/SMBUS", 0x07, CRC_WIDTH_8 | CRC_MSB_FIRST | CRC_REFLECT_IN, 0, 0, 0xF4},
      {"CRC-8/MAXIM-DOW", 0x8C, CRC_WIDTH_8, 0, 0, 0xA1},
  };
  for (const auto& test : aCase) {
    EXPECT_EQ(CRC_CalcEx("123456789", 9, test.Start, test.Polynomial, test.Flags) ^ test.FinalXor, test.Check)
        << test.Name;
  }
  EXPECT_EQ(CRC_Calc32("123456789", 9, 0), 0x2DFD2D88u);
  EXPECT_EQ(CRC_Calc32C("123456789", 9, 0), 0x58E3FA20u);
  EXPECT_EQ(CRC_Calc16CCITT("123456789", 9, 0), 0x2189u);
  EXPECT_EQ(CRC_CalcFill(0xFF, 4, 0, 0xEDB88320), 0xDEBB20E3u);
}

}  // namespace
