#ifndef UTIL_SINK_H
#define UTIL_SINK_H

// Inside the layer: where both formatting engines put their characters when the text goes into a plain buffer. What
// does not fit is counted and dropped, a run at a time. Beside UTIL_PrintfStoreChar, which stores single characters
// through a device, this is the only place that checks a buffer's bound.

#include <stdint.h>
#include <string.h>

// Finds where the plain text of a format ends: at a '%' or at the terminator. Short stretches are looked through
// character by character. For a longer one the end of the whole format is found first, once for each format, so that
// the C library's wide search does the rest without reading beyond it.
class UTIL_PLAIN_TEXT {
 public:
  const char* FindEnd(const char* s) {
    for (uint32_t i = 0; i < SHORT_RUN; i++, s++) {
      if (*s == '%' || *s == '\0') {
        return s;
      }
    }
    if (pFormatEnd == nullptr) {
      pFormatEnd = s + strlen(s);
    }
    const void* pPercent = memchr(s, '%', static_cast<size_t>(pFormatEnd - s));
    return pPercent == nullptr ? pFormatEnd : static_cast<const char*>(pPercent);
  }

 private:
  static constexpr uint32_t SHORT_RUN = 16;

  const char* pFormatEnd = nullptr;
};

struct UTIL_SINK {
  char* pBuffer;
  uint32_t Room;   // Characters that the buffer holds beside the terminator.
  uint32_t Count;  // Characters produced, at most MAX_COUNT: a count that wrapped would index outside the buffer.

  static constexpr uint32_t MAX_COUNT = INT32_MAX;

  // size counts the whole buffer, at most INT32_MAX; a buffer of size 0 is never written to.
  UTIL_SINK(char* pDest, uint32_t size, uint32_t count)
      : pBuffer(pDest), Room(size == 0 ? 0 : size - 1), Count(count) {}

  // Appends numChars characters and returns where the caller must write them, or null when they do not all fit and
  // nothing was appended.
  char* Claim(uint64_t numChars) {
    if (Count > Room || numChars > Room - Count) [[unlikely]] {
      return nullptr;
    }
    char* pDest = pBuffer + Count;
    Count += static_cast<uint32_t>(numChars);
    return pDest;
  }

  void PutChar(char c) {
    if (Count < Room) [[likely]] {
      pBuffer[Count] = c;
    }
    Count += Count < MAX_COUNT;
  }

  void PutRun(const char* s, uint64_t numChars) {
    if (uint64_t fitting = Clip(numChars); fitting != 0) {
      memcpy(pBuffer + Count, s, fitting);
    }
    Skip(numChars);
  }

  void PutFill(char c, uint64_t numChars) {
    if (uint64_t fitting = Clip(numChars); fitting != 0) {
      memset(pBuffer + Count, c, fitting);
    }
    Skip(numChars);
  }

 private:
  uint64_t Clip(uint64_t numChars) const {
    uint64_t free = Count < Room ? Room - Count : 0;
    return numChars < free ? numChars : free;
  }

  void Skip(uint64_t numChars) {
    Count = numChars < MAX_COUNT - Count ? Count + static_cast<uint32_t>(numChars) : MAX_COUNT;
  }
};

#endif
