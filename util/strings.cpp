// Text operations without state. Lengths are taken with strlen and moved with memcpy, whose wide steps no loop of our
// own would beat; everything else that the C library offers for texts depends on the locale or leaves a cut copy
// unterminated.

#include "util/strings.h"

#include <string.h>

#include <algorithm>

#include "util/crc.h"

namespace {

constexpr uint32_t MAX_KEY_SIZE = 512;

struct FOLD_TABLE {
  char aLower[256];

  constexpr FOLD_TABLE() : aLower{} {
    for (int i = 0; i < 256; i++) {
      aLower[i] = static_cast<char>(i >= 'A' && i <= 'Z' ? i - 'A' + 'a' : i);
    }
  }
};

constexpr FOLD_TABLE FOLD;

constexpr char Fold(char c) {
  return FOLD.aLower[static_cast<uint8_t>(c)];
}

// Plain char is unsigned on some machines; the order of the results is that of signed bytes on all of them.
constexpr int32_t Difference(char a, char b) {
  return static_cast<int8_t>(a) - static_cast<int8_t>(b);
}

const char* NameOf(const void* pEntry) {
  return *static_cast<const char* const*>(pEntry);
}

}  // namespace

int32_t UTIL_CopyString(char* pDest, const char* src, uint32_t size) {
  if (pDest == nullptr || src == nullptr || size == 0) {
    return -1;
  }
  size_t length = strlen(src);
  size_t count = std::min<size_t>(size - 1, length);
  memcpy(pDest, src, count);
  pDest[count] = '\0';
  return static_cast<int32_t>(length + 1);
}

void UTIL_AppendString(char* pDest, const char* src, uint32_t size) {
  size_t used = strlen(pDest);
  if (used >= size) {
    return;
  }
  size_t count = std::min<size_t>(size - used - 1, strlen(src));
  memcpy(pDest + used, src, count);
  pDest[used + count] = '\0';
}

uint32_t UTIL_StrLen(const char* s) {
  return static_cast<uint32_t>(strlen(s));
}

int32_t UTIL_CompareNoCase(const char* a, const char* b) {
  while (*a != '\0' && Fold(*a) == Fold(*b)) {
    a++;
    b++;
  }
  return Difference(Fold(*a), Fold(*b));
}

int32_t UTIL_CompareNoCaseN(const char* a, const char* b, uint64_t count) {
  for (; count != 0; count--, a++, b++) {
    if (Fold(*a) != Fold(*b)) {
      return Difference(Fold(*a), Fold(*b));
    }
    if (*a == '\0') {
      break;
    }
  }
  return 0;
}

void UTIL_ToUpper(char* s) {
  for (; *s != '\0'; s++) {
    if (*s >= 'a' && *s <= 'z') {
      *s = static_cast<char>(*s - 'a' + 'A');
    }
  }
}

int32_t UTIL_FindChar(const char* s, char c) {
  const char* pFound = c == '\0' ? nullptr : strchr(s, c);
  return pFound == nullptr ? -1 : static_cast<int32_t>(pFound - s);
}

void UTIL_ReplaceChar(char* s, char oldChar, char newChar) {
  for (; *s != '\0'; s++) {
    if (*s == oldChar) {
      *s = newChar;
    }
  }
}

void UTIL_AppendSlash(char* path, uint32_t size) {
  size_t length = strlen(path);
  bool hasSlash = length != 0 && (path[length - 1] == '/' || path[length - 1] == '\\');
  if (hasSlash || length + 1 >= size) {
    return;
  }
  path[length] = '/';
  path[length + 1] = '\0';
}

uint32_t UTIL_HashKeyNoCase(const void* pEntry) {
  char acKey[MAX_KEY_SIZE];
  acKey[0] = '\0';
  UTIL_CopyString(acKey, NameOf(pEntry), sizeof(acKey));
  UTIL_ToUpper(acKey);
  return CRC_Calc32Bitwise(acKey, UTIL_StrLen(acKey), 0);
}

int32_t UTIL_IsEqualKeyNoCase(const void* pEntryA, const void* pEntryB) {
  return UTIL_CompareNoCase(NameOf(pEntryA), NameOf(pEntryB)) == 0;
}
