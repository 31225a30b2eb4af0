#include "util/printf.h"

#include <gtest/gtest.h>

#include "tests/support.h"

namespace {

int32_t PrintToDevice(UTIL_PRINTF_DEVICE* pDevice, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int32_t result = UTIL_vprintfDevice(pDevice, format, args);
  va_end(args);
  return result;
}

// Notes what the buffer holds, and empties it.
void OnFlush(UTIL_PRINTF_DEVICE* pDevice) {
  UTIL_PRINTF_BUFFER& buffer = *pDevice->pBuffer;
  *static_cast<std::string*>(pDevice->pContext) += std::string(buffer.pBuffer, static_cast<size_t>(buffer.Cnt)) + '|';
  buffer.Cnt = 0;
}

// Expects a text in every size of a buffer, behind what is there before, which may be more than the buffer holds.
template <typename... ARGS>
void ExpectText(RANDOM& random, const std::string& text, const std::string& format, ARGS... args) {
  SCOPED_TRACE("[" + format + "]");
  GUARDED_BLOCK formatBlock;
  GUARDED_BLOCK destBlock;
  const char* pFormat = formatBlock.PlaceText(format);
  for (uint32_t size = 0; size <= text.size() + 2; size++) {
    const uint32_t before = random.OneIn(2) ? 0 : random.Below(size + 3);
    const bool isFlushed = random.OneIn(3);
    std::string held(before, GUARDED_BLOCK::PATTERN);
    std::string expectedFlushed;
    const auto flushIf = [&](bool isDue) {
      if (isDue && isFlushed) {
        expectedFlushed += held + '|';
        held.clear();
      }
    };
    flushIf(held.size() + 1 == size);
    for (char c : text) {
      held += c;
      flushIf(held.size() + 1 == size);
    }
    const std::string expected = held.substr(0, size == 0 ? 0 : size - 1);
    flushIf(!held.empty() && held.size() + 1 < size);

    char* pDest = destBlock.Take(size);
    std::string flushed;
    UTIL_PRINTF_BUFFER buffer = {pDest, static_cast<int32_t>(size), static_cast<int32_t>(before)};
    UTIL_PRINTF_DEVICE device = {&flushed, &buffer, isFlushed ? OnFlush : nullptr};
    const int32_t result = before == 0 && !isFlushed ? UTIL_snprintf(pDest, size, pFormat, args...)
                                                     : PrintToDevice(&device, pFormat, args...);
    ASSERT_EQ(static_cast<size_t>(result), held.size()) << "in " << size;
    ASSERT_EQ(flushed, expectedFlushed) << "in " << size;
    ASSERT_EQ(std::string(pDest, expected.size()), expected) << "in " << size;
    ASSERT_TRUE(size == 0 || pDest[expected.size()] == '\0') << "in " << size;
    ASSERT_TRUE(destBlock.IsIntact());
  }
}

std::string Padded(std::string text, int64_t width, char fill, bool isLeft = false) {
  const int64_t missing = std::max<int64_t>(width - static_cast<int64_t>(text.size()), 0);
  return text.insert(isLeft ? text.size() : 0, static_cast<size_t>(missing), fill);
}

std::string NumberText(int64_t value, uint32_t base, uint32_t flags, int64_t width, int64_t precision) {
  const bool isNegative = value < 0;
  const std::string sign = isNegative ? "-" : flags & PRINTF_FLAG_SIGN ? "+" : flags & PRINTF_FLAG_SPACE ? " " : "";
  if (precision < 0 && flags & PRINTF_FLAG_ZERO) {
    precision = width - static_cast<int64_t>(sign.size());
  }
  const std::string digits = DigitsOf(static_cast<uint64_t>(isNegative ? -value : value), base);
  return Padded(sign + Padded(digits, precision, '0'), width, ' ', flags & PRINTF_FLAG_LEFT);
}

// Added conversion: a number in a base of the caller's, with what the engine says of its length.
int32_t OnNumber(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, const UTIL_PRINTF_API* pAPI, va_list* pArgs,
                 int32_t flags, int32_t width, int32_t precision) {
  const uint32_t value = va_arg(*pArgs, uint32_t);
  const uint32_t base = va_arg(*pArgs, uint32_t);
  const int32_t count = pAPI->pfPrintUnsigned(pBuffer, pDevice, value, base, flags, width, precision);
  pAPI->pfStoreChar(pBuffer, pDevice, ':');
  pAPI->pfPrintSigned(pBuffer, pDevice, -count, 10, 0, 4, -1);
  return -1;
}

UTIL_PRINTF_CONVERSION aAdded[3];
const int32_t aAddResult[] = {UTIL_AddPrintfConversion(&aAdded[0], OnNumber, 's'),
                              UTIL_AddPrintfConversion(&aAdded[1], OnNumber, 'q'),
                              UTIL_AddPrintfConversion(&aAdded[2], nullptr, 's')};

TEST(Printf, WritesNumbersLikeTheModel) {
  EXPECT_TRUE(aAddResult[0] == 0 && aAddResult[1] == 0 && aAddResult[2] == -1 && aAdded[2].Char == '\0');
  RANDOM random(1);
  for (int round = 0; round < 400; round++) {
    const uint32_t flags = random.OneIn(2) ? random.Below(32) : 0;
    const int32_t width = random.OneIn(2) ? static_cast<int32_t>(1 + random.Below(30)) : -1;
    const int32_t precision = random.OneIn(2) ? static_cast<int32_t>(random.Below(24)) : -1;
    std::string spec = "%";
    for (uint32_t i = 0; i < 5; i++) {
      spec += std::string_view("-+ #0").substr(i, flags >> i & 1);
    }
    spec += width < 0 ? "" : std::to_string(width);
    spec += precision < 0 ? "" : ".";
    spec += precision <= 0 ? "" : std::to_string(precision);

    const uint64_t value = random.Value();
    const auto low = static_cast<uint32_t>(value);
    const uint32_t base = 2 + random.Below(15);
    const std::string added = NumberText(low, base, flags, width, precision);
    const std::pair<const char*, std::string> aConversion[] = {
        {"d", NumberText(static_cast<int32_t>(low), 10, flags, width, precision)},
        {"hu", NumberText(low, 10, flags, width, precision)},
        {"llX", NumberText(low, 16, flags, width, precision)},
        {"p", NumberText(low, 16, flags, -1, 8)},
        {"lq", added + ':' + Padded('-' + std::to_string(added.size()), 4, ' ')},
    };
    std::string text;
    std::string format;
    for (const auto& [letter, number] : aConversion) {
      const std::string plain = random.Text("ab C-0.l_\xE9", random.OneIn(9) ? 25 : 5);
      text += plain + number;
      format += plain + spec + letter;
    }
    ExpectText(random, text, format, value, value, value, value, value, base);
  }
}

TEST(Printf, FollowsItsRules) {
  const char* const none = nullptr;
  RANDOM random(2);
  for (int round = 0; round < 50; round++) {
    ExpectText(random, "a|text|%d|||AB|    7", "%c|%s|%9.2s|%s|%s|%x|%05.d", 'a' + 256, "text", "%d", none, "", 0xAB,
               7);
    ExpectText(random, "%d _ 7:  -1 3", "%-5.3l%%i%n%*d%8.2f%hlo%_d%__ %_ _ %_s %u", 7, 10, 3);
    for (const char* end : {"", "%", "%-", "%7", "%.", "%.4h", "%_"}) {
      ExpectText(random, "a text that is longer than a short run",
                 "a text that is %s than a short run" + std::string(end), "longer");
    }
  }
}

TEST(Printf, CountsNoFurtherThanAResultCanTell) {
  char acText[8];
  EXPECT_EQ(UTIL_snprintf(acText, sizeof(acText), "ab%2147483640dcd%u%+2147483647_s", 1, 2u, 3u, 10), INT32_MAX);
  EXPECT_STREQ(acText, "ab     ");
  EXPECT_EQ(UTIL_snprintf(acText, sizeof(acText), "%0.2147483647d%.2147483647u", -1, 1u), INT32_MAX);
  EXPECT_STREQ(acText, "-000000");
  EXPECT_EQ(UTIL_snprintf(acText, sizeof(acText), "%99999999999999999999u", 1u), INT32_MAX);
  EXPECT_EQ(UTIL_snprintf(acText, UINT32_MAX, "%s", "abc"), 3);
  EXPECT_STREQ(acText, "abc");
}

}  // namespace
