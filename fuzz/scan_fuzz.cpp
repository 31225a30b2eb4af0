// Numbers, words and quoted texts out of any text. The oracles: the C library's conversion for numbers, a cursor that
// only moves forward and never beyond the end, and outputs that stay within their buffers.

#include "fuzz/input.h"
#include "util/scan.h"

namespace {

constexpr char GUARD = '\x5A';

bool IsWhite(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool IsDigit(char c, bool isHex) {
  return (c >= '0' && c <= '9') || (isHex && ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')));
}

// Reads a number the plain way, wrapping in 64 bits.
bool ReadNumber(const std::string& text, bool isHex, size_t* pPos, uint64_t* pValue) {
  size_t i = 0;
  while (i < text.size() && IsWhite(text[i])) {
    i++;
  }
  const bool isNegative = i < text.size() && text[i] == '-';
  i += isNegative;
  if (i + 1 < text.size() && text[i] == '0' && (text[i + 1] == 'x' || text[i + 1] == 'X')) {
    isHex = true;
    i += 2;
  }
  const size_t start = i;
  uint64_t value = 0;
  for (; i < text.size() && IsDigit(text[i], isHex); i++) {
    value = value * (isHex ? 16 : 10) + strtoull(text.substr(i, 1).c_str(), nullptr, 16);
  }
  *pPos = i;
  *pValue = isNegative ? 0 - value : value;
  return i != start;
}

void CheckNumbers(const std::string& text) {
  FUZZ_TEXT block(text);
  for (int isHex = 0; isHex < 2; isHex++) {
    size_t pos = 0;
    uint64_t expected = 0;
    const bool isNumber = ReadNumber(text, isHex != 0, &pos, &expected);
    const char* cursor = block.Get();
    uint64_t value = 12345;
    FUZZ_EXPECT((UTIL_ParseNumber(&cursor, &value, isHex) == 0) == isNumber);
    FUZZ_EXPECT(cursor == block.Get() + (isNumber ? pos : 0));
    FUZZ_EXPECT(value == (isNumber ? expected : 12345));

    uint32_t low = 12345;
    cursor = block.Get();
    FUZZ_EXPECT(((isHex ? UTIL_ParseHex32 : UTIL_ParseU32)(&cursor, &low) == 0) == isNumber);
    FUZZ_EXPECT(low == (isNumber ? static_cast<uint32_t>(expected) : 0));
    FUZZ_EXPECT(cursor == block.Get() + (isNumber ? pos : 0));
    if (isHex != 0) {
      cursor = block.Get();
      FUZZ_EXPECT((UTIL_ParseHex64(&cursor, &value) == 0) == isNumber);
      FUZZ_EXPECT(value == (isNumber ? expected : 12345));
    } else {
      const bool isPlain = isNumber && !IsWhite(text[0]) && text[0] != '-';
      low = 12345;
      FUZZ_EXPECT((UTIL_StrToU32(block.Get(), &low) == 0) == isPlain);
      FUZZ_EXPECT(low == (isPlain ? static_cast<uint32_t>(expected) : 12345));
    }
  }
  const bool isDecimal = std::all_of(text.begin(), text.end(), [](char c) { return IsDigit(c, false); });
  FUZZ_EXPECT(UTIL_IsDecimalString(block.Get()) == isDecimal);
}

void CheckToken(const std::string& text, uint32_t capacity, char delimiter) {
  FUZZ_TEXT block(text);
  std::vector<char> word(capacity + 1, GUARD);
  const char* cursor = block.Get();
  const char* pError = UTIL_ParseToken(&cursor, word.data(), capacity, delimiter);
  FUZZ_EXPECT(word[capacity] == GUARD);
  FUZZ_EXPECT(cursor <= block.Get() + text.size());
  if (pError == nullptr) {
    const std::string read = word.data();
    FUZZ_EXPECT(!read.empty() && read.size() < capacity);
    FUZZ_EXPECT(std::string(cursor - read.size(), cursor) == read);
    FUZZ_EXPECT(*cursor == '\0' || *cursor == ' ' || *cursor == '\n' || *cursor == '\r' || *cursor == delimiter);
  }
}

void CheckStrings(const std::string& text, uint32_t size) {
  FUZZ_TEXT block(text);
  const char* cursor = block.Get();
  const char* pEnd = block.Get() + text.size();
  // Each call moves on, but for one before a line end that it must not consume.
  for (const char* pLast = nullptr; cursor < pEnd && cursor != pLast;) {
    pLast = cursor;
    std::vector<char> part(size + 1, GUARD);
    FUZZ_EXPECT(UTIL_ParseString(&cursor, part.data(), size) == cursor);
    FUZZ_EXPECT(part[size] == GUARD);
    FUZZ_EXPECT(size == 0 || strnlen(part.data(), size) < size);
    FUZZ_EXPECT(cursor >= pLast && cursor <= pEnd);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t numBytes) {
  FUZZ_INPUT input(pData, numBytes);
  const uint32_t size = input.Take<uint8_t>();
  const char delimiter = input.Take<char>();
  const std::string text = input.TakeText(4096);
  CheckNumbers(text);
  CheckToken(text, size, delimiter);
  CheckStrings(text, size);
  return 0;
}
