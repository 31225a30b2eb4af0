#ifndef UTIL_DIGITS_H
#define UTIL_DIGITS_H

// Inside the layer: the digits of unsigned numbers for both formatting engines. A number is written straight to where
// it belongs, from its last digit backwards once its length is known; only a number that its buffer cuts, or that a
// device takes, goes out digit by digit from the front.

#include <stdint.h>
#include <string.h>

#include <bit>

constexpr char UTIL_DIGITS_UPPER[] = "0123456789ABCDEF";
constexpr char UTIL_DIGITS_LOWER[] = "0123456789abcdef";

struct UTIL_DECIMAL_TABLES {
  char acPair[200];     // "00", "01" up to "99".
  uint64_t aPower[20];  // Powers of ten.

  constexpr UTIL_DECIMAL_TABLES() : acPair{}, aPower{} {
    for (uint32_t i = 0; i < 100; i++) {
      acPair[2 * i] = UTIL_DIGITS_UPPER[i / 10];
      acPair[2 * i + 1] = UTIL_DIGITS_UPPER[i % 10];
    }
    uint64_t power = 1;
    for (uint64_t& entry : aPower) {
      entry = power;
      power *= 10;
    }
  }
};

[[gnu::visibility("hidden")]] inline constexpr UTIL_DECIMAL_TABLES UTIL_DECIMAL;

// Reads a run of decimal digits of a format, none being 0; what exceeds 31 bits counts as the largest number.
inline int32_t UTIL_ReadFormatNumber(const char** ppFormat) {
  const char* s = *ppFormat;
  int64_t value = 0;
  for (; *s >= '0' && *s <= '9'; s++) {
    value = value < INT32_MAX ? value * 10 + (*s - '0') : value;
  }
  *ppFormat = s;
  return value < INT32_MAX ? static_cast<int32_t>(value) : INT32_MAX;
}

// Number of digits of value in a base of 2 to 16; 0 has one.
template <typename T>
inline uint32_t UTIL_CountDigits(T value, uint32_t base) {
  const uint32_t numBits = static_cast<uint32_t>(std::bit_width(static_cast<T>(value | 1)));
  if (base == 16) {
    return (numBits + 3) / 4;
  }
  if (base == 10) {
    uint32_t guess = numBits * 1233 >> 12;  // log10(2) is 1233 / 4096, close enough for 64 bits: right or one too low.
    return guess + ((value | 1) >= UTIL_DECIMAL.aPower[guess]);
  }
  uint32_t count = 1;
  while (value >= base) {
    value /= static_cast<T>(base);
    count++;
  }
  return count;
}

// Writes the digits of value so that the last one stands right before pEnd.
template <typename T>
inline void UTIL_WriteDigits(char* pEnd, T value, uint32_t base, const char* digits) {
  if (base == 10) {
    for (; value >= 100; value /= 100) {
      memcpy(pEnd -= 2, &UTIL_DECIMAL.acPair[value % 100 * 2], 2);
    }
    if (value >= 10) {
      memcpy(pEnd - 2, &UTIL_DECIMAL.acPair[value * 2], 2);
    } else {
      pEnd[-1] = digits[value];
    }
    return;
  }
  if (base == 16) {
    do {
      *--pEnd = digits[value & 15];
      value >>= 4;
    } while (value != 0);
    return;
  }
  do {
    *--pEnd = digits[value % base];
    value /= static_cast<T>(base);
  } while (value != 0);
}

// Hands the digits of value to put, the first one first.
template <typename T, typename PUT>
inline void UTIL_EmitDigits(T value, uint32_t base, const char* digits, PUT put) {
  T power = 1;
  while (value / power >= base) {
    power *= static_cast<T>(base);
  }
  for (; power != 0; power /= static_cast<T>(base)) {
    put(digits[value / power]);
    value %= power;
  }
}

#endif
