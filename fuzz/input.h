#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

// For fuzz targets: takes an input apart, and ends the process with a message when an oracle says no.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#define FUZZ_EXPECT(condition)                                        \
  do {                                                                \
    if (!(condition)) {                                               \
      fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
      abort();                                                        \
    }                                                                 \
  } while (0)

class FUZZ_INPUT {
 public:
  FUZZ_INPUT(const uint8_t* pData, size_t numBytes) : pNext(pData), numLeft(numBytes) {}

  bool IsEmpty() const { return numLeft == 0; }

  // The next bytes as a number; missing bytes are 0.
  template <typename T>
  T Take() {
    T value = 0;
    const size_t count = std::min(numLeft, sizeof(value));
    memcpy(&value, pNext, count);
    Skip(count);
    return value;
  }

  // A text of at most maxLength characters: up to the next zero byte, which is consumed.
  std::string TakeText(size_t maxLength) {
    const size_t limit = std::min(numLeft, maxLength);
    const size_t length = strnlen(reinterpret_cast<const char*>(pNext), limit);
    std::string text(reinterpret_cast<const char*>(pNext), length);
    Skip(length < limit ? length + 1 : length);
    return text;
  }

 private:
  void Skip(size_t count) {
    pNext += count;
    numLeft -= count;
  }

  const uint8_t* pNext;
  size_t numLeft;
};

// A text on the heap in a block of exactly its size, so that the address sanitizer sees any read beyond its end.
class FUZZ_TEXT {
 public:
  explicit FUZZ_TEXT(const std::string& text) : block(text.begin(), text.end()) {
    block.push_back('\0');
    block.shrink_to_fit();
  }

  char* Get() { return block.data(); }

 private:
  std::vector<char> block;
};

#endif
