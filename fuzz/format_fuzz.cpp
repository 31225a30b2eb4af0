// Formats of both engines. Every argument is the address of a text, which is also a number to those conversions that
// want one, so that any format has arguments that fit. The oracles: a cut text is the beginning of the whole one and
// ends within its buffer, the full engine's result does not depend on the size, and a device sees the same characters.

#include "fuzz/input.h"
#include "util/fmt.h"
#include "util/printf.h"

namespace {

constexpr size_t MAX_CONVERSIONS = 16;
constexpr uint32_t WHOLE_BYTES = 4096;
constexpr char GUARD = '\x5A';

// Cuts a format before it takes more arguments than it is given.
std::string LimitConversions(std::string format) {
  size_t count = 0;
  for (size_t i = 0; i < format.size(); i++) {
    if (format[i] == '%' && ++count > MAX_CONVERSIONS) {
      return format.substr(0, i);
    }
  }
  return format;
}

#define ARGUMENTS(a) a, a, a, a, a, a, a, a, a, a, a, a, a, a, a, a

int32_t FormatFull(char* pDest, uint32_t size, const char* format, const char* a) {
  return UTIL_snprintf(pDest, size, format, ARGUMENTS(a));
}

int32_t FormatCompact(char* pDest, uint32_t size, const char* format, const char* a) {
  const char* pEnd = FMT_snprintf(pDest, size, format, ARGUMENTS(a));
  FUZZ_EXPECT(*pEnd == '\0');
  return static_cast<int32_t>(pEnd - pDest);
}

void FlushToStream(UTIL_PRINTF_DEVICE* pDevice) {
  auto* pStream = static_cast<std::string*>(pDevice->pContext);
  pStream->append(pDevice->pBuffer->pBuffer, static_cast<size_t>(pDevice->pBuffer->Cnt));
  pDevice->pBuffer->Cnt = 0;
}

void FormatToDevice(UTIL_PRINTF_DEVICE* pDevice, const char* format, ...) {
  va_list args;
  va_start(args, format);
  UTIL_vprintfDevice(pDevice, format, args);
  va_end(args);
}

std::string FormatStream(uint32_t size, const char* format, const char* a) {
  std::string stream;
  std::vector<char> text(size);
  UTIL_PRINTF_BUFFER buffer = {text.data(), static_cast<int32_t>(size), 0};
  UTIL_PRINTF_DEVICE device = {&stream, &buffer, FlushToStream};
  FormatToDevice(&device, format, ARGUMENTS(a));
  return stream;
}

template <typename FORMAT>
void ExpectBeginning(FORMAT format, uint32_t size, const char* pFormat, const char* a, const char* whole) {
  std::vector<char> cut(size + 1, GUARD);
  format(cut.data(), size, pFormat, a);
  FUZZ_EXPECT(cut[size] == GUARD);
  const size_t length = strnlen(cut.data(), size);
  FUZZ_EXPECT(length < size);
  FUZZ_EXPECT(length == std::min<size_t>(strlen(whole), size - 1));
  FUZZ_EXPECT(memcmp(cut.data(), whole, length) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t numBytes) {
  FUZZ_INPUT input(pData, numBytes);
  const uint32_t size = input.Take<uint8_t>() + 1u;
  const std::string text = input.TakeText(64);
  FUZZ_TEXT format(LimitConversions(input.TakeText(1024)));
  char acWhole[WHOLE_BYTES];

  const int32_t length = FormatFull(acWhole, sizeof(acWhole), format.Get(), text.c_str());
  FUZZ_EXPECT(length >= 0);
  FUZZ_EXPECT(FormatFull(nullptr, 0, format.Get(), text.c_str()) == length);
  ExpectBeginning(FormatFull, size, format.Get(), text.c_str(), acWhole);
  if (length < static_cast<int32_t>(sizeof(acWhole)) &&
      strnlen(acWhole, sizeof(acWhole)) == static_cast<size_t>(length)) {
    FUZZ_EXPECT(FormatStream(size + 1, format.Get(), text.c_str()) == acWhole);
  }

  FormatCompact(acWhole, sizeof(acWhole), format.Get(), text.c_str());
  ExpectBeginning(FormatCompact, size, format.Get(), text.c_str(), acWhole);
  return 0;
}
