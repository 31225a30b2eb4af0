// Formats of both engines, with numbers from the input and a text where a conversion takes one. The oracles: a cut text
// is the beginning of the whole one and ends within its buffer, the full engine's result does not depend on the size,
// and a device sees the same characters.

#include "fuzz/input.h"
#include "util/fmt.h"
#include "util/printf.h"

namespace {

constexpr size_t MAX_CONVERSIONS = 12;
constexpr uint32_t WHOLE_BYTES = 4096;
constexpr char GUARD = '\x5A';

// The arguments of a format: 64-bit slots, each a number of the input or the address of the text.
struct ARGUMENT_LIST {
  uint64_t aSlot[MAX_CONVERSIONS];
};

// What may stand between '%' and the letter differs between the two engines, and which letters take a number.
struct GRAMMAR {
  const char* pFlags;
  const char* pLengths;
  const char* pNumberLetters;
  bool HasAdded;  // '_' takes the next character as its letter.
};

constexpr GRAMMAR FULL = {"-+ #0", "hl", "duxXpc", true};
constexpr GRAMMAR COMPACT = {"", "l", "diuxXpc", false};

size_t SkipAny(const std::string& text, size_t i, const char* characters) {
  return std::min(text.find_first_not_of(characters, i), text.size());
}

// Cuts a format before it takes more arguments than there are, and gives each conversion the kind that it takes.
ARGUMENT_LIST MakeArguments(std::string* pFormat, FUZZ_INPUT numbers, const char* text, const GRAMMAR& grammar) {
  ARGUMENT_LIST list = {};
  size_t count = 0;
  for (size_t i = pFormat->find('%'); i != std::string::npos; i = pFormat->find('%', i)) {
    if (count == MAX_CONVERSIONS) {
      pFormat->resize(i);
      break;
    }
    i = SkipAny(*pFormat, i + 1, grammar.pFlags);
    i = SkipAny(*pFormat, i, "0123456789");
    if (i < pFormat->size() && (*pFormat)[i] == '.') {
      i = SkipAny(*pFormat, i + 1, "0123456789");
    }
    i = SkipAny(*pFormat, i, grammar.pLengths);
    if (i == pFormat->size()) {
      break;
    }
    const char letter = (*pFormat)[i];
    if (letter == 's' || strchr(grammar.pNumberLetters, letter) != nullptr) {
      list.aSlot[count++] = letter == 's' ? reinterpret_cast<uintptr_t>(text) : numbers.Take<uint64_t>();
    }
    i += letter == '_' && grammar.HasAdded ? 2 : 1;
  }
  return list;
}

#define SLOTS(list)                                                                                        \
  list.aSlot[0], list.aSlot[1], list.aSlot[2], list.aSlot[3], list.aSlot[4], list.aSlot[5], list.aSlot[6], \
      list.aSlot[7], list.aSlot[8], list.aSlot[9], list.aSlot[10], list.aSlot[11]

int32_t FormatFull(char* pDest, uint32_t size, const char* format, const ARGUMENT_LIST& list) {
  return UTIL_snprintf(pDest, size, format, SLOTS(list));
}

int32_t FormatCompact(char* pDest, uint32_t size, const char* format, const ARGUMENT_LIST& list) {
  const char* pEnd = FMT_snprintf(pDest, size, format, SLOTS(list));
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

std::string FormatStream(uint32_t size, const char* format, const ARGUMENT_LIST& list) {
  std::string stream;
  std::vector<char> text(size);
  UTIL_PRINTF_BUFFER buffer = {text.data(), static_cast<int32_t>(size), 0};
  UTIL_PRINTF_DEVICE device = {&stream, &buffer, FlushToStream};
  FormatToDevice(&device, format, SLOTS(list));
  return stream;
}

template <typename FORMAT>
void ExpectBeginning(FORMAT format, uint32_t size, const char* pFormat, const ARGUMENT_LIST& list, const char* whole) {
  std::vector<char> cut(size + 1, GUARD);
  format(cut.data(), size, pFormat, list);
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
  const std::string wholeFormat = input.TakeText(1024);
  char acWhole[WHOLE_BYTES];

  std::string full = wholeFormat;
  ARGUMENT_LIST list = MakeArguments(&full, input, text.c_str(), FULL);
  FUZZ_TEXT format(full);
  const int32_t length = FormatFull(acWhole, sizeof(acWhole), format.Get(), list);
  FUZZ_EXPECT(length >= 0);
  FUZZ_EXPECT(FormatFull(nullptr, 0, format.Get(), list) == length);
  ExpectBeginning(FormatFull, size, format.Get(), list, acWhole);
  if (strnlen(acWhole, sizeof(acWhole)) == static_cast<size_t>(length)) {
    FUZZ_EXPECT(FormatStream(size + 1, format.Get(), list) == acWhole);
  }

  std::string compact = wholeFormat;
  list = MakeArguments(&compact, input, text.c_str(), COMPACT);
  FUZZ_TEXT compactFormat(compact);
  FormatCompact(acWhole, sizeof(acWhole), compactFormat.Get(), list);
  ExpectBeginning(FormatCompact, size, compactFormat.Get(), list, acWhole);
  return 0;
}
