#ifndef UTIL_BITS_H
#define UTIL_BITS_H

// Bit and byte order: reversal of the bits in a value, and stores in a fixed byte order.
//
// The reversals look their result up in a table of 128 KiB that the first call of any of them builds. Any number of
// threads may call any operation at any time, also while the table is being built.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Returns the low 8 bits of value in reverse order; the bits above them are ignored.
uint32_t UTIL_ReverseBits8(uint32_t value);

// Returns the low 16 bits of value in reverse order; the bits above them are ignored.
uint32_t UTIL_ReverseBits16(uint32_t value);

// Returns the 32 bits of value in reverse order.
uint32_t UTIL_ReverseBits32(uint32_t value);

// Stores value at pDest, least significant byte first, whatever the byte order of the machine: 2, 4 or 8 bytes.
// pDest may have any alignment and must not be null.
void UTIL_StoreU16(void* pDest, uint16_t value);
void UTIL_StoreU32(void* pDest, uint32_t value);
void UTIL_StoreU64(void* pDest, uint64_t value);

#ifdef __cplusplus
}
#endif

#endif
