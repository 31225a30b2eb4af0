// Owns the bit-reversal table: entry i is i with its 16 bits in reverse order, four entries to a 64-bit word, the
// lowest entry in the lowest bits. It is all zero until the first reversal builds it. Entry 65,535 is its own reverse
// and is stored last, with release order: a reader that sees it sees the whole table. Threads that build at the same
// time store the same words, so none of them has to wait.

#include "util/bits.h"

#include <atomic>

namespace {

constexpr uint32_t NUM_WORDS = 0x10000 / 4;

std::atomic<uint64_t> aReversed[NUM_WORDS];

constexpr uint32_t Reverse16(uint32_t value) {
  value = (value & 0x5555) << 1 | (value >> 1 & 0x5555);
  value = (value & 0x3333) << 2 | (value >> 2 & 0x3333);
  value = (value & 0x0F0F) << 4 | (value >> 4 & 0x0F0F);
  return (value & 0x00FF) << 8 | (value >> 8 & 0x00FF);
}

// The entries of one word share the reverse of their upper 14 bits; 00, 01, 10 and 11 below them reverse to the top.
constexpr uint64_t MakeWord(uint32_t index) {
  return Reverse16(index * 4) * 0x0001000100010001u | 0xC000400080000000u;
}

void BuildTable() {
  for (uint32_t i = 0; i < NUM_WORDS - 1; i++) {
    aReversed[i].store(MakeWord(i), std::memory_order_relaxed);
  }
  aReversed[NUM_WORDS - 1].store(MakeWord(NUM_WORDS - 1), std::memory_order_release);
}

void RequireTable() {
  if (aReversed[NUM_WORDS - 1].load(std::memory_order_acquire) == 0) [[unlikely]] {
    BuildTable();
  }
}

uint32_t Lookup(uint32_t value) {
  uint64_t word = aReversed[value >> 2].load(std::memory_order_relaxed);
  return static_cast<uint16_t>(word >> (value & 3) * 16);
}

template <typename T>
void Store(void* pDest, T value) {
  auto* pByte = static_cast<uint8_t*>(pDest);
  for (uint32_t i = 0; i < sizeof(T); i++) {
    pByte[i] = static_cast<uint8_t>(value >> 8 * i);
  }
}

}  // namespace

uint32_t UTIL_ReverseBits8(uint32_t value) {
  RequireTable();
  return Lookup(value & 0xFF) >> 8;
}

uint32_t UTIL_ReverseBits16(uint32_t value) {
  RequireTable();
  return Lookup(value & 0xFFFF);
}

uint32_t UTIL_ReverseBits32(uint32_t value) {
  RequireTable();
  return Lookup(value & 0xFFFF) << 16 | Lookup(value >> 16);
}

void UTIL_StoreU16(void* pDest, uint16_t value) {
  Store(pDest, value);
}

void UTIL_StoreU32(void* pDest, uint32_t value) {
  Store(pDest, value);
}

void UTIL_StoreU64(void* pDest, uint64_t value) {
  Store(pDest, value);
}
