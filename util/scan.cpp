// Readers without state. Each looks at a character only after all those before it turned out not to be the terminator,
// so that nothing beyond the end of a text is ever read.

#include "util/scan.h"

#include <string.h>

#include "util/digits.h"

namespace {

constexpr bool IsSpace(int32_t c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

constexpr uint32_t NOT_A_DIGIT = 0xFF;

struct DIGIT_TABLE {
  uint8_t aValue[256];

  constexpr DIGIT_TABLE() : aValue{} {
    for (uint32_t c = 0; c < 256; c++) {
      aValue[c] = NOT_A_DIGIT;
    }
    for (uint8_t i = 0; i < 16; i++) {
      aValue[static_cast<uint8_t>(UTIL_DIGITS_LOWER[i])] = i;
      aValue[static_cast<uint8_t>(UTIL_DIGITS_UPPER[i])] = i;
    }
  }
};

constexpr DIGIT_TABLE DIGITS;

// Value of a hexadecimal digit, NOT_A_DIGIT for any other character, the terminator included.
constexpr uint32_t DigitOf(char c) {
  return DIGITS.aValue[static_cast<uint8_t>(c)];
}

const char* SkipSpace(const char* s) {
  while (IsSpace(*s)) {
    s++;
  }
  return s;
}

bool HasHexPrefix(const char* s) {
  return s[0] == '0' && (s[1] == 'x' || s[1] == 'X');
}

// Reads the digits at s; the result is the end of the digits, or null when there is none.
template <uint32_t BASE, typename T>
const char* ReadDigits(const char* s, T* pValue) {
  uint32_t digit = DigitOf(*s);
  if (digit >= BASE) {
    return nullptr;
  }
  T value = 0;
  do {
    value = value * BASE + digit;
    digit = DigitOf(*++s);
  } while (digit < BASE);
  *pValue = value;
  return s;
}

template <typename T>
const char* ReadUnsigned(const char* s, T* pValue, bool isHex) {
  if (HasHexPrefix(s)) {
    return ReadDigits<16>(s + 2, pValue);
  }
  return isHex ? ReadDigits<16>(s, pValue) : ReadDigits<10>(s, pValue);
}

template <typename T>
int32_t ReadNumber(const char** ppCursor, T* pValue, bool isHex) {
  const char* s = SkipSpace(*ppCursor);
  const bool isNegative = *s == '-';
  T value;
  const char* pEnd = ReadUnsigned(s + isNegative, &value, isHex);
  if (pEnd == nullptr) {
    return -1;
  }
  *pValue = isNegative ? 0 - value : value;
  *ppCursor = pEnd;
  return 0;
}

}  // namespace

void UTIL_SkipWhiteSpace(const char** ppCursor) {
  *ppCursor = SkipSpace(*ppCursor);
}

int32_t UTIL_IsWhiteSpace(int32_t c) {
  return IsSpace(c);
}

int32_t UTIL_IsDecimalString(const char* s) {
  while (DigitOf(*s) < 10) {
    s++;
  }
  return *s == '\0';
}

int32_t UTIL_ParseNumber(const char** ppCursor, uint64_t* pValue, int32_t isHex) {
  return ReadNumber(ppCursor, pValue, isHex != 0);
}

int32_t UTIL_ParseU32(const char** ppCursor, uint32_t* pValue) {
  *pValue = 0;
  return ReadNumber(ppCursor, pValue, false);
}

int32_t UTIL_ParseHex64(const char** ppCursor, uint64_t* pValue) {
  return ReadNumber(ppCursor, pValue, true);
}

int32_t UTIL_ParseHex32(const char** ppCursor, uint32_t* pValue) {
  *pValue = 0;
  return ReadNumber(ppCursor, pValue, true);
}

int32_t UTIL_StrToU32(const char* s, uint32_t* pValue) {
  return ReadUnsigned(s, pValue, false) == nullptr ? -1 : 0;
}

const char* UTIL_ParseToken(const char** ppCursor, char* pDest, uint32_t capacity, char delimiter) {
  const char* pWord = SkipSpace(*ppCursor);
  *ppCursor = pWord;
  if (capacity != 0) {
    pDest[0] = '\0';
  }
  const char* pEnd = pWord;
  while (*pEnd != '\0' && *pEnd != '\n' && *pEnd != '\r' && *pEnd != ' ' && *pEnd != delimiter) {
    pEnd++;
  }
  size_t length = static_cast<size_t>(pEnd - pWord);
  if (length >= capacity) {
    return "Maximum string length exceeded";
  }
  if (length == 0) {
    return "Expected a string";
  }
  memcpy(pDest, pWord, length);
  pDest[length] = '\0';
  *ppCursor = pEnd;
  return nullptr;
}

const char* UTIL_ParseString(const char** ppCursor, char* pDest, uint32_t size) {
  const char* s = SkipSpace(*ppCursor);
  const bool isQuoted = *s == '"';
  s += isQuoted;
  const uint32_t room = pDest != nullptr && size != 0 ? size - 1 : 0;
  uint32_t count = 0;
  while (*s != '\0' && *s != '\n' && *s != '\r' && *s != '"' && (isQuoted || *s != ' ')) {
    if (count < room) {
      pDest[count++] = *s;
    }
    s++;
  }
  if (pDest != nullptr && size != 0) {
    pDest[count] = '\0';
  }
  s = SkipSpace(s + (*s == '"'));
  s += *s == ',';
  *ppCursor = s;
  return s;
}
