// Owns the shared CRC table and the polynomial that it was built for. All forms step one reflected register: they
// differ in how many of the eight one-bit steps of a byte they take at once. Entry 1 of a built table is never 0 for a
// polynomial with a highest bit, which marks a table that was never built.

#include "util/crc.h"

#include "util/bits.h"

namespace {

constexpr uint32_t POLYNOMIAL_CRC32 = 0xEDB88320;
constexpr uint32_t POLYNOMIAL_CRC32C = 0x82F63B78;
constexpr uint32_t POLYNOMIAL_CCITT = 0x8408;

uint32_t aSharedTable[256];
uint32_t sharedPolynomial;

constexpr uint32_t StepBits(uint32_t crc, uint32_t polynomial, uint32_t numBits) {
  for (uint32_t i = 0; i < numBits; i++) {
    crc = crc >> 1 ^ (polynomial & (0u - (crc & 1)));
  }
  return crc;
}

// Register after numBits steps from each start value below 1 << numBits.
struct NIBBLE_TABLE {
  uint32_t aEntry[16];

  constexpr explicit NIBBLE_TABLE(uint32_t polynomial) : aEntry{} {
    for (uint32_t i = 0; i < 16; i++) {
      aEntry[i] = StepBits(i, polynomial, 4);
    }
  }

  constexpr uint32_t StepByte(uint32_t crc) const {
    crc = aEntry[crc & 0xF] ^ crc >> 4;
    return aEntry[crc & 0xF] ^ crc >> 4;
  }
};

// What each single bit of a byte does to the register in eight steps. The steps are linear: a byte's effect is the sum
// of that of its bits.
struct BIT_EFFECTS {
  uint32_t aEffect[8];

  constexpr explicit BIT_EFFECTS(uint32_t polynomial) : aEffect{} {
    for (uint32_t bit = 0; bit < 8; bit++) {
      aEffect[bit] = StepBits(1u << bit, polynomial, 8);
    }
  }
};

void RequireTable(uint32_t polynomial) {
  if (aSharedTable[1] != 0 && sharedPolynomial == polynomial) {
    return;
  }
  for (uint32_t i = 0; i < 256; i++) {
    aSharedTable[i] = StepBits(i, polynomial, 8);
  }
  sharedPolynomial = polynomial;
}

uint32_t StepByte(uint32_t crc) {
  return aSharedTable[crc & 0xFF] ^ crc >> 8;
}

uint32_t StepWord(uint32_t crc) {
  return StepByte(StepByte(StepByte(StepByte(crc))));
}

uint32_t LoadU32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}

}  // namespace

uint32_t CRC_CalcBitwise(const void* pData, uint32_t numBytes, uint32_t start, uint32_t polynomial) {
  const auto* p = static_cast<const uint8_t*>(pData);
  uint32_t crc = start;
  for (uint32_t i = 0; i < numBytes; i++) {
    crc = StepBits(crc ^ p[i], polynomial, 8);
  }
  return crc;
}

uint32_t CRC_Calc16CCITT(const void* pData, uint32_t numBytes, uint32_t start) {
  static constexpr NIBBLE_TABLE table(POLYNOMIAL_CCITT);
  const auto* p = static_cast<const uint8_t*>(pData);
  uint32_t crc = start;
  for (uint32_t i = 0; i < numBytes; i++) {
    crc = table.StepByte(crc ^ p[i]);
  }
  return crc & 0xFFFF;
}

uint32_t CRC_Calc32Bitwise(const void* pData, uint32_t numBytes, uint32_t start) {
  static constexpr BIT_EFFECTS effects(POLYNOMIAL_CRC32);
  const auto* p = static_cast<const uint8_t*>(pData);
  uint32_t crc = start;
  for (uint32_t i = 0; i < numBytes; i++) {
    const uint32_t index = crc ^ p[i];
    crc >>= 8;
    for (uint32_t bit = 0; bit < 8; bit++) {
      crc ^= effects.aEffect[bit] & (0u - (index >> bit & 1));
    }
  }
  return crc;
}

uint32_t CRC_Calc32Table(const void* pData, uint32_t numBytes, uint32_t start, uint32_t polynomial) {
  RequireTable(polynomial);
  const auto* p = static_cast<const uint8_t*>(pData);
  uint32_t crc = start;
  for (; numBytes >= 8; numBytes -= 8, p += 8) {
    crc = StepWord(crc ^ LoadU32(p));
    crc = StepWord(crc ^ LoadU32(p + 4));
  }
  for (; numBytes != 0; numBytes--, p++) {
    crc = StepByte(crc ^ *p);
  }
  return crc;
}

uint32_t CRC_Calc32(const void* pData, uint32_t numBytes, uint32_t start) {
  return CRC_Calc32Table(pData, numBytes, start, POLYNOMIAL_CRC32);
}

uint32_t CRC_Calc32C(const void* pData, uint32_t numBytes, uint32_t start) {
  return CRC_Calc32Table(pData, numBytes, start, POLYNOMIAL_CRC32C);
}

uint32_t CRC_CalcFill(uint8_t value, uint32_t count, uint32_t start, uint32_t polynomial) {
  RequireTable(polynomial);
  uint32_t word = value * 0x01010101u;
  uint32_t crc = start;
  for (; count >= 4; count -= 4) {
    crc = StepWord(crc ^ word);
  }
  for (; count != 0; count--) {
    crc = StepByte(crc ^ value);
  }
  return crc;
}

uint32_t CRC_CalcEx(const void* pData, uint32_t numBytes, uint32_t start, uint32_t polynomial, uint32_t flags) {
  if (numBytes == 0) {
    return start;
  }
  static constexpr uint8_t aShift[4] = {0, 16, 24, 0};
  const uint32_t shift = aShift[flags & 3];
  const bool msbFirst = (flags & CRC_MSB_FIRST) != 0;
  const bool reflectIn = (flags & CRC_REFLECT_IN) != 0;
  if (msbFirst) {
    polynomial = UTIL_ReverseBits32(polynomial) >> shift;
    start = UTIL_ReverseBits32(start) >> shift;
  }
  const NIBBLE_TABLE table(polynomial);
  const auto* p = static_cast<const uint8_t*>(pData);
  uint32_t crc = start;
  for (uint32_t i = 0; i < numBytes; i++) {
    crc = table.StepByte(crc ^ (reflectIn ? UTIL_ReverseBits8(p[i]) : p[i]));
  }
  return msbFirst ? UTIL_ReverseBits32(crc) >> shift : crc;
}
