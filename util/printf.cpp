// One interpreter with two kinds of output: a plain buffer takes runs of characters, a device sees its buffer after
// each single one, since it must be flushed at the character that fills it. All state of a call is in the call and in
// the caller's buffer record; the list of added conversions is the only state that lasts. It has no lock: adding comes
// first.

#include "util/printf.h"

#include <string.h>

#include <algorithm>

#include "util/digits.h"
#include "util/sink.h"

namespace {

UTIL_PRINTF_CONVERSION* pFirstConversion;

constexpr UTIL_PRINTF_API PRINTF_API = {UTIL_PrintfStoreChar, UTIL_PrintfUnsigned, UTIL_PrintfSigned};

constexpr int32_t ABSENT = -1;

struct DIRECTIVE {
  int32_t Flags;
  int32_t Width;
  int32_t Precision;
};

// Asked anew each time: a flush may switch its device off.
bool IsFlushed(const UTIL_PRINTF_DEVICE* pDevice) {
  return pDevice != nullptr && pDevice->pfFlush != nullptr;
}

// Output into a plain buffer: a sink, kept in registers while the format runs and exchanged with the caller's record
// only around the handlers of added conversions.
class BUFFER_OUTPUT : public UTIL_SINK {
 public:
  explicit BUFFER_OUTPUT(UTIL_PRINTF_BUFFER* pRecord, UTIL_PRINTF_DEVICE* pUnflushed = nullptr)
      : UTIL_SINK(Load(pRecord)), pBufferRecord(pRecord), pDevice(pUnflushed) {}

  void CallHandler(const UTIL_PRINTF_CONVERSION* pConversion, va_list* pArgs, const DIRECTIVE& directive) {
    Store();
    pConversion->pfHandler(pBufferRecord, pDevice, &PRINTF_API, pArgs, directive.Flags, directive.Width,
                           directive.Precision);
    *static_cast<UTIL_SINK*>(this) = Load(pBufferRecord);  // The record is the handler's to change as a whole.
  }

  void Store() { pBufferRecord->Cnt = static_cast<int32_t>(Count); }

  void Terminate() {
    Store();
    if (pBufferRecord->BufferSize > 0) {
      pBuffer[std::min(Count, Room)] = '\0';
    }
  }

 private:
  static UTIL_SINK Load(const UTIL_PRINTF_BUFFER* pRecord) {
    return UTIL_SINK(pRecord->pBuffer, static_cast<uint32_t>(std::max(pRecord->BufferSize, 0)),
                     static_cast<uint32_t>(std::max(pRecord->Cnt, 0)));
  }

  UTIL_PRINTF_BUFFER* pBufferRecord;
  UTIL_PRINTF_DEVICE* pDevice;
};

// Output through a device that flushes: every character takes the way of UTIL_PrintfStoreChar.
class DEVICE_OUTPUT {
 public:
  DEVICE_OUTPUT(UTIL_PRINTF_BUFFER* pRecord, UTIL_PRINTF_DEVICE* pFlushed) : pBuffer(pRecord), pDevice(pFlushed) {}

  char* Claim(uint64_t) { return nullptr; }

  void PutChar(char c) { UTIL_PrintfStoreChar(pBuffer, pDevice, c); }

  void PutRun(const char* s, uint64_t numChars) {
    for (uint64_t i = 0; i < numChars; i++) {
      PutChar(s[i]);
    }
  }

  void PutFill(char c, uint64_t numChars) {
    for (uint64_t i = 0; i < numChars; i++) {
      PutChar(c);
    }
  }

  void CallHandler(const UTIL_PRINTF_CONVERSION* pConversion, va_list* pArgs, const DIRECTIVE& directive) {
    pConversion->pfHandler(pBuffer, pDevice, &PRINTF_API, pArgs, directive.Flags, directive.Width, directive.Precision);
  }

  void Store() {}

  void Terminate() {
    if (pBuffer->BufferSize <= 0) {
      return;
    }
    const int32_t end = std::min(pBuffer->Cnt, pBuffer->BufferSize - 1);
    pBuffer->pBuffer[end] = '\0';
    if (end > 0 && end + 1 < pBuffer->BufferSize && IsFlushed(pDevice)) {
      pDevice->pfFlush(pDevice);
    }
  }

 private:
  UTIL_PRINTF_BUFFER* pBuffer;
  UTIL_PRINTF_DEVICE* pDevice;
};

constexpr bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

constexpr int32_t FlagOf(char c) {
  switch (c) {
    case '-':
      return PRINTF_FLAG_LEFT;
    case '+':
      return PRINTF_FLAG_SIGN;
    case ' ':
      return PRINTF_FLAG_SPACE;
    case '#':
      return PRINTF_FLAG_ALT;
    case '0':
      return PRINTF_FLAG_ZERO;
    default:
      return 0;
  }
}

// Reads what stands between '%' and the letter.
DIRECTIVE ReadDirective(const char** ppFormat) {
  const char* s = *ppFormat;
  DIRECTIVE directive = {0, ABSENT, ABSENT};
  if (*s > '9' && *s != 'h' && *s != 'l') {  // Nothing, as in most.
    return directive;
  }
  for (int32_t flag; (flag = FlagOf(*s)) != 0; s++) {
    directive.Flags |= flag;
  }
  if (IsDigit(*s)) {
    directive.Width = UTIL_ReadFormatNumber(&s);
  }
  if (*s == '.') {
    s++;
    directive.Precision = UTIL_ReadFormatNumber(&s);
  }
  while (*s == 'h' || *s == 'l') {
    s++;
  }
  *ppFormat = s;
  return directive;
}

constexpr char SignOf(int32_t flags) {
  if (flags & PRINTF_FLAG_NEGATIVE) {
    return '-';
  }
  if (flags & PRINTF_FLAG_SIGN) {
    return '+';
  }
  return flags & PRINTF_FLAG_SPACE ? ' ' : '\0';
}

// Appends a number and returns how many characters that made, also beyond 32 bits.
template <typename OUTPUT>
int64_t PutNumber(OUTPUT& output, uint32_t value, uint32_t base, const DIRECTIVE& directive) {
  const uint32_t numDigits = UTIL_CountDigits(value, base);
  if (directive.Flags == 0 && directive.Width == ABSENT && directive.Precision == ABSENT) {
    if (char* pDest = output.Claim(numDigits); pDest != nullptr) {
      UTIL_WriteDigits(pDest + numDigits, value, base, UTIL_DIGITS_UPPER);
      return numDigits;
    }
  }
  const char sign = SignOf(directive.Flags);
  const int64_t open = int64_t{directive.Width} - (sign != '\0') - numDigits;
  int64_t numZeros = int64_t{directive.Precision} - numDigits;
  if (directive.Precision == ABSENT && (directive.Flags & PRINTF_FLAG_ZERO) != 0) {
    numZeros = open;
  }
  numZeros = std::max<int64_t>(numZeros, 0);
  const int64_t numSpaces = std::max<int64_t>(open - numZeros, 0);
  const bool isLeft = (directive.Flags & PRINTF_FLAG_LEFT) != 0;
  const int64_t total = numSpaces + (sign != '\0') + numZeros + numDigits;

  if (char* pDest = output.Claim(static_cast<uint64_t>(total)); pDest != nullptr) {
    char* pDigits = isLeft ? pDest : pDest + numSpaces;
    if (numSpaces != 0) {
      memset(isLeft ? pDest + total - numSpaces : pDest, ' ', static_cast<size_t>(numSpaces));
    }
    if (sign != '\0') {
      *pDigits++ = sign;
    }
    if (numZeros != 0) {
      memset(pDigits, '0', static_cast<size_t>(numZeros));
    }
    UTIL_WriteDigits(pDigits + numZeros + numDigits, value, base, UTIL_DIGITS_UPPER);
    return total;
  }
  output.PutFill(' ', isLeft ? 0 : static_cast<uint64_t>(numSpaces));
  output.PutFill(sign, sign != '\0');
  output.PutFill('0', static_cast<uint64_t>(numZeros));
  UTIL_EmitDigits(value, base, UTIL_DIGITS_UPPER, [&output](char digit) { output.PutChar(digit); });
  output.PutFill(' ', isLeft ? static_cast<uint64_t>(numSpaces) : 0);
  return total;
}

// Gives the magnitude of a number, and puts its sign into the flags.
uint32_t TakeSign(int32_t value, int32_t* pFlags) {
  if (value >= 0) {
    return static_cast<uint32_t>(value);
  }
  *pFlags |= PRINTF_FLAG_NEGATIVE;
  return 0 - static_cast<uint32_t>(value);
}

template <typename OUTPUT>
void PutAddedConversion(OUTPUT& output, char letter, va_list* pArgs, const DIRECTIVE& directive) {
  for (const UTIL_PRINTF_CONVERSION* p = pFirstConversion; p != nullptr; p = p->pNext) {
    if (p->Char == letter) {
      output.CallHandler(p, pArgs, directive);
      return;
    }
  }
}

// Reads and carries out the directive behind a '%', and returns where it ends.
//
// Numbers are fetched as int whatever length the format gives: arguments travel in slots of 64 bits on every machine
// that this is built for, and the low half of a slot is what counts.
template <typename OUTPUT>
const char* PutConversion(OUTPUT& output, const char* s, va_list* pArgs) {
  DIRECTIVE directive = ReadDirective(&s);
  uint32_t value;
  switch (*s) {
    case '\0':
      return s;
    case '%':
      output.PutChar('%');
      break;
    case 'd':
      value = TakeSign(va_arg(*pArgs, int), &directive.Flags);
      PutNumber(output, value, 10, directive);
      break;
    case 'u':
      PutNumber(output, va_arg(*pArgs, unsigned), 10, directive);
      break;
    case 'x':
    case 'X':
      PutNumber(output, va_arg(*pArgs, unsigned), 16, directive);
      break;
    case 'p':
      PutNumber(output, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(va_arg(*pArgs, void*))), 16,
                {directive.Flags, ABSENT, 8});
      break;
    case 'c':
      output.PutChar(static_cast<char>(va_arg(*pArgs, int)));
      break;
    case 's':
      if (const char* pText = va_arg(*pArgs, const char*); pText != nullptr) {
        output.PutRun(pText, strlen(pText));
      }
      break;
    case '_':
      if (*++s == '\0') {
        return s;
      }
      PutAddedConversion(output, *s, pArgs, directive);
      break;
    default:
      PutAddedConversion(output, *s, pArgs, directive);
      break;
  }
  return s + 1;
}

template <typename OUTPUT>
void Format(OUTPUT output, const char* format, va_list* pArgs) {
  UTIL_PLAIN_TEXT plain;
  for (const char* s = format; *s != '\0';) {
    if (*s == '%') {
      s = PutConversion(output, s + 1, pArgs);
    } else {
      const char* pEnd = plain.FindEnd(s);
      output.PutRun(s, static_cast<uint64_t>(pEnd - s));
      s = pEnd;
    }
  }
  output.Terminate();
}

// Flattened: with everything in one function the sink stays in registers, which halves the time of a short text.
[[gnu::flatten]] int32_t FormatText(char* pDest, uint32_t size, const char* format, va_list* pArgs) {
  UTIL_PRINTF_BUFFER buffer = {pDest, static_cast<int32_t>(std::min<uint32_t>(size, INT32_MAX)), 0};
  Format(BUFFER_OUTPUT(&buffer), format, pArgs);
  return buffer.Cnt;
}

}  // namespace

int32_t UTIL_snprintf(char* pDest, uint32_t size, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int32_t length = FormatText(pDest, size, format, &args);
  va_end(args);
  return length;
}

int32_t UTIL_vsnprintf(char* pDest, uint32_t size, const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int32_t length = FormatText(pDest, size, format, &copy);
  va_end(copy);
  return length;
}

int32_t UTIL_vprintfDevice(UTIL_PRINTF_DEVICE* pDevice, const char* format, va_list args) {
  return UTIL_PrintfCore(pDevice->pBuffer, pDevice, format, args);
}

int32_t UTIL_PrintfCore(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, const char* format, va_list args) {
  // A va_list parameter may be an array that has decayed: only a copy has an address of the right type to hand on.
  va_list copy;
  va_copy(copy, args);
  if (IsFlushed(pDevice)) {
    if (pBuffer->Cnt == pBuffer->BufferSize - 1) {
      pDevice->pfFlush(pDevice);
    }
    Format(DEVICE_OUTPUT(pBuffer, pDevice), format, &copy);
  } else {
    Format(BUFFER_OUTPUT(pBuffer, pDevice), format, &copy);
  }
  va_end(copy);
  return pBuffer->Cnt;
}

int32_t UTIL_AddPrintfConversion(UTIL_PRINTF_CONVERSION* pNode, UTIL_PRINTF_HANDLER* pfHandler, char letter) {
  for (const UTIL_PRINTF_CONVERSION* p = pFirstConversion; p != nullptr; p = p->pNext) {
    if (p->Char == letter) {
      return -1;
    }
  }
  *pNode = {pFirstConversion, pfHandler, letter};
  pFirstConversion = pNode;
  return 0;
}

void UTIL_PrintfStoreChar(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, char c) {
  const int32_t index = pBuffer->Cnt;
  if (index == INT32_MAX) {
    return;
  }
  pBuffer->Cnt = index + 1;
  if (index + 1 >= pBuffer->BufferSize) {
    return;
  }
  pBuffer->pBuffer[index] = c;
  if (IsFlushed(pDevice) && index + 2 == pBuffer->BufferSize) {
    pDevice->pfFlush(pDevice);
  }
}

int32_t UTIL_PrintfUnsigned(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, uint32_t value, uint32_t base,
                            int32_t flags, int32_t width, int32_t precision) {
  const DIRECTIVE directive = {flags, width, precision};
  int64_t total;
  if (IsFlushed(pDevice)) {
    DEVICE_OUTPUT output(pBuffer, pDevice);
    total = PutNumber(output, value, base, directive);
  } else {
    BUFFER_OUTPUT output(pBuffer);
    total = PutNumber(output, value, base, directive);
    output.Store();
  }
  return static_cast<int32_t>(std::min<int64_t>(total, INT32_MAX));
}

int32_t UTIL_PrintfSigned(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, int32_t value, uint32_t base,
                          int32_t flags, int32_t width, int32_t precision) {
  const uint32_t magnitude = TakeSign(value, &flags);
  return UTIL_PrintfUnsigned(pBuffer, pDevice, magnitude, base, flags, width, precision);
}
