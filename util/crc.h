#ifndef UTIL_CRC_H
#define UTIL_CRC_H

// Cyclic redundancy checks over byte ranges.
//
// Common to all: pData may have any alignment, and may be null when numBytes is 0; a length of 0 returns the start
// value (of which CRC_Calc16CCITT returns 16 bits). start is the value that the CRC register starts with, so that a
// long range can be computed in pieces, each from the result of the one before. Nothing is inverted: a caller whose CRC
// wants it passes an inverted start value and inverts the result (CRC-32 of IEEE 802.3, as in ISO 3309: start
// 0xFFFFFFFF, result ^ 0xFFFFFFFF). polynomial is in reflected form (bit 31, 15 or 7 down to bit 0 are the powers 0
// upwards) except where said otherwise.
//
// CRC_Calc32Table, CRC_Calc32, CRC_Calc32C and CRC_CalcFill share one table that is rebuilt whenever the polynomial
// changes: calls from several threads must not overlap unless the table was built before and all use its polynomial.
// The other operations may run on any number of threads.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Flags of CRC_CalcEx: the width (32 bits when neither is given), and the order of the bits.
#define CRC_WIDTH_16 0x01u
#define CRC_WIDTH_8 0x02u
#define CRC_REFLECT_IN 0x04u
#define CRC_MSB_FIRST 0x08u

// Returns the CRC for any polynomial of up to 32 bits, one bit at a time.
uint32_t CRC_CalcBitwise(const void* pData, uint32_t numBytes, uint32_t start, uint32_t polynomial);

// Returns the 16-bit CRC with the polynomial x^16 + x^12 + x^5 + 1 of ITU-T V.41, reflected (0x8408), four bits at a
// time.
uint32_t CRC_Calc16CCITT(const void* pData, uint32_t numBytes, uint32_t start);

// Returns the 32-bit CRC with the polynomial of IEEE 802.3 (0xEDB88320) without a table: for short ranges such as
// names, and where the shared table must stay as it is.
uint32_t CRC_Calc32Bitwise(const void* pData, uint32_t numBytes, uint32_t start);

// Returns the 32-bit CRC for any polynomial with the shared table. A change of polynomial costs the rebuilding of the
// table (1 KiB), so long ranges gain most.
uint32_t CRC_Calc32Table(const void* pData, uint32_t numBytes, uint32_t start, uint32_t polynomial);

// CRC_Calc32Table with the polynomial of IEEE 802.3 (0xEDB88320), and with Castagnoli's (0x82F63B78, as in RFC 3720).
uint32_t CRC_Calc32(const void* pData, uint32_t numBytes, uint32_t start);
uint32_t CRC_Calc32C(const void* pData, uint32_t numBytes, uint32_t start);

// Returns the CRC of count bytes that all have the given value, as CRC_Calc32Table would over such a range.
uint32_t CRC_CalcFill(uint8_t value, uint32_t count, uint32_t start, uint32_t polynomial);

// Returns the CRC in the form that flags selects:
// - CRC_WIDTH_16 or CRC_WIDTH_8 gives a 16- or 8-bit CRC; both or neither give a 32-bit one;
// - CRC_MSB_FIRST says that polynomial and start are given most significant bit first (0x1021 for
//   x^16 + x^12 + x^5 + 1), and returns the result in that order too;
// - CRC_REFLECT_IN reverses the bits of every byte before it is used.
// A reflected CRC (CRC-32, CRC-16/KERMIT) needs no flag but its width and the reflected polynomial; a classic one that
// sends the most significant bit first (CRC-16/XMODEM) takes both CRC_MSB_FIRST and CRC_REFLECT_IN.
uint32_t CRC_CalcEx(const void* pData, uint32_t numBytes, uint32_t start, uint32_t polynomial, uint32_t flags);

#ifdef __cplusplus
}
#endif

#endif
