// An interpreter apart from the full engine's on purpose: the two differ in what a '0', a sign, a letter case and a
// length mean, and each caller's output depends on which one it uses. They share the sink and the digits alone.

#include "util/fmt.h"

#include <string.h>

#include <algorithm>

#include "util/digits.h"
#include "util/sink.h"

namespace {

constexpr uint32_t ADDRESS_WIDTH = 8;

struct DIRECTIVE {
  uint32_t Width;
  uint32_t Precision;
  bool Is64Bit;
};

DIRECTIVE ReadDirective(const char** ppFormat) {
  const char* s = *ppFormat;
  DIRECTIVE directive = {};
  directive.Width = static_cast<uint32_t>(UTIL_ReadFormatNumber(&s));
  if (*s == '.') {
    s++;
    directive.Precision = static_cast<uint32_t>(UTIL_ReadFormatNumber(&s));
  }
  const char* pLength = s;
  while (*s == 'l') {
    s++;
  }
  directive.Is64Bit = s - pLength >= 2;
  *ppFormat = s;
  return directive;
}

template <typename T>
void PutDigits(UTIL_SINK& sink, T value, uint32_t base, const char* digits, const DIRECTIVE& directive) {
  const uint32_t numDigits = UTIL_CountDigits(value, base);
  const uint32_t numZeros = directive.Precision > numDigits ? directive.Precision - numDigits : 0;
  const uint32_t numSpaces = directive.Width > numDigits + numZeros ? directive.Width - numDigits - numZeros : 0;
  if (char* pDest = sink.Claim(uint64_t{numSpaces} + numZeros + numDigits); pDest != nullptr) {
    if (numSpaces != 0) {
      memset(pDest, ' ', numSpaces);
    }
    if (numZeros != 0) {
      memset(pDest + numSpaces, '0', numZeros);
    }
    UTIL_WriteDigits(pDest + numSpaces + numZeros + numDigits, value, base, digits);
    return;
  }
  sink.PutFill(' ', numSpaces);
  sink.PutFill('0', numZeros);
  UTIL_EmitDigits(value, base, digits, [&sink](char digit) { sink.PutChar(digit); });
}

void PutNumber(UTIL_SINK& sink, uint64_t value, uint32_t base, const char* digits, const DIRECTIVE& directive) {
  if (value <= UINT32_MAX) {  // Most are, and narrow divisions are cheaper.
    PutDigits(sink, static_cast<uint32_t>(value), base, digits, directive);
  } else {
    PutDigits(sink, value, base, digits, directive);
  }
}

void PutSigned(UTIL_SINK& sink, int64_t value, const DIRECTIVE& directive) {
  uint64_t magnitude = static_cast<uint64_t>(value);
  if (value < 0) {
    sink.PutChar('-');
    magnitude = 0 - magnitude;
  }
  PutNumber(sink, magnitude, 10, UTIL_DIGITS_UPPER, directive);
}

void PutAddress(UTIL_SINK& sink, uint64_t value, DIRECTIVE directive) {
  if (value <= UINT32_MAX) {
    directive.Width = ADDRESS_WIDTH;
  }
  PutNumber(sink, value, 16, UTIL_DIGITS_LOWER, directive);
}

uint64_t NextUnsigned(va_list* pArgs, bool is64Bit) {
  return is64Bit ? va_arg(*pArgs, uint64_t) : va_arg(*pArgs, uint32_t);
}

int64_t NextSigned(va_list* pArgs, bool is64Bit) {
  return is64Bit ? va_arg(*pArgs, int64_t) : va_arg(*pArgs, int32_t);
}

// Reads and carries out the directive behind a '%', and returns where it ends.
const char* PutConversion(UTIL_SINK& sink, const char* s, va_list* pArgs) {
  if (*s == '%') {
    sink.PutChar('%');
    return s + 1;
  }
  const DIRECTIVE directive = ReadDirective(&s);
  switch (*s) {
    case '\0':
      return s;
    case 'd':
    case 'i':
      PutSigned(sink, NextSigned(pArgs, directive.Is64Bit), directive);
      break;
    case 'u':
      PutNumber(sink, NextUnsigned(pArgs, directive.Is64Bit), 10, UTIL_DIGITS_UPPER, directive);
      break;
    case 'x':
      PutNumber(sink, NextUnsigned(pArgs, directive.Is64Bit), 16, UTIL_DIGITS_LOWER, directive);
      break;
    case 'X':
      PutNumber(sink, NextUnsigned(pArgs, directive.Is64Bit), 16, UTIL_DIGITS_UPPER, directive);
      break;
    case 'p':
      PutAddress(sink, NextUnsigned(pArgs, true), directive);
      break;
    case 'c':
      sink.PutChar(static_cast<char>(va_arg(*pArgs, int)));
      break;
    case 's':
      if (const char* pText = va_arg(*pArgs, const char*); pText != nullptr) {
        sink.PutRun(pText, strlen(pText));
      }
      break;
    default:
      break;
  }
  return s + 1;
}

}  // namespace

char* FMT_snprintf(char* pDest, uint32_t size, const char* format, ...) {
  va_list args;
  va_start(args, format);
  char* pEnd = FMT_vsnprintf(pDest, size, format, &args);
  va_end(args);
  return pEnd;
}

// Flattened: with everything in one function the sink stays in registers.
[[gnu::flatten]] char* FMT_vsnprintf(char* pDest, uint32_t size, const char* format, va_list* pArgs) {
  UTIL_SINK sink(pDest, std::min<uint32_t>(size, INT32_MAX), 0);
  UTIL_PLAIN_TEXT plain;
  for (const char* s = format; *s != '\0';) {
    if (*s == '%') {
      s = PutConversion(sink, s + 1, pArgs);
    } else {
      const char* pEnd = plain.FindEnd(s);
      sink.PutRun(s, static_cast<uint64_t>(pEnd - s));
      s = pEnd;
    }
  }
  if (size == 0) {
    return pDest;
  }
  char* pEnd = pDest + std::min(sink.Count, sink.Room);
  *pEnd = '\0';
  return pEnd;
}
