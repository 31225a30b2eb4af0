#include "util/fmt.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include "tests/support.h"

namespace {

// Expects as much of the text as every size of the buffer holds, and the address of its end.
template <typename... ARGS>
void ExpectText(const std::string& text, const std::string& format, ARGS... args) {
  GUARDED_BLOCK formatBlock;
  GUARDED_BLOCK destBlock;
  const char* pFormat = formatBlock.PlaceText(format);
  for (uint32_t size = 0; size <= text.size() + 2; size++) {
    char* pDest = destBlock.Take(size);
    const char* pEnd = FMT_snprintf(pDest, size, pFormat, args...);
    const std::string expected = text.substr(0, size == 0 ? 0 : size - 1);
    ASSERT_EQ(pEnd, pDest + expected.size()) << format << " in " << size;
    ASSERT_TRUE(size == 0 || pDest == expected) << format << " in " << size << ": " << pDest;
    ASSERT_TRUE(destBlock.IsIntact()) << format << " in " << size;
  }
}

// A width does not count the sign, and a precision of 0 still gives a digit; the rest is as in the C library.
TEST(Fmt, WritesNumbersAsTheLibraryDoes) {
  RANDOM random(1);
  for (int round = 0; round < 5000; round++) {
    const char letter = "diuxX"[random.Below(5)];
    const bool isSigned = letter == 'd' || letter == 'i';
    const std::string precision = '.' + std::to_string(1 + random.Below(22));
    const std::string field = '%' + (isSigned ? "" : std::to_string(1 + random.Below(30))) + precision;
    const uint64_t value = random.Value();
    const auto low = static_cast<uint32_t>(value);
    const std::string format = '%' + precision + letter + field + "ll" + letter;
    char acText[128];
    snprintf(acText, sizeof(acText), format.c_str(), low, value);
    ExpectText(acText, format, value, value);
  }
}

// Formats twice from one list of arguments.
std::string FormatTwice(const char* format, ...) {
  char acText[2][16];
  va_list args;
  va_start(args, format);
  FMT_vsnprintf(acText[0], sizeof(acText[0]), format, &args);
  FMT_vsnprintf(acText[1], sizeof(acText[1]), format, &args);
  va_end(args);
  return std::string(acText[0]) + ' ' + acText[1];
}

TEST(Fmt, FollowsItsOwnRules) {
  EXPECT_EQ(FormatTwice("%d%s%llu", 1, "a", 2ull, 3, "b", 4ull), "1a2 3b4");
  char acText[8];
  EXPECT_EQ(FMT_snprintf(acText, sizeof(acText), "a%99999999999d%.4294967290u%s", 1, 2u, "xyz"), acText + 7);
  EXPECT_STREQ(acText, "a      ");
  const char* const none = nullptr;
  ExpectText("-   42|-007|V7.08", "%5d|%.3d|V%d.%.2d", -42, -7, 7, 8);
  ExpectText("0|0|     0|   1234", "%u|%.0x|%06.X|%07u", 0, 0, 0, 1234);
  ExpectText("-9223372036854775808 4294967301 -2147483648", "%lld %llld %ld", INT64_MIN, (1LL << 32) + 5, INT32_MIN);
  ExpectText("    12ab|ffffffff| 100000000|  0012ab", "%p|%10p|%10p|%.6p", 0x12ABL, 0xFFFFFFFFL, 1L << 32, 0x12ABL);
  ExpectText("%a|%d||text", "%%%3c|%9s|%.1s|%s", 'a' + 256, "%d", none, "text");
  ExpectText("6dddddd 3", "%-6d%+d% d%#d%hd%o%*d%q %d", 3);
  ExpectText("a text that is longer than a short run, and %, after it",
             "a text that is longer than a short run, %s, after it", "and %");
  for (const char* end : {"%", "%5", "%.", "%.3", "%ll"}) {
    ExpectText("x", std::string("x") + end);
  }
}

}  // namespace
