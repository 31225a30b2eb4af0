// Numbers by example, since the fuzz target has a model of them, and words against slow models. The end of each text is
// guarded.

#include "util/scan.h"

#include <gtest/gtest.h>

#include "tests/support.h"

namespace {

// Puts a text into memory with a guarded end, and tells afterwards how far a cursor has come.
struct INPUT {
  GUARDED_BLOCK Block;
  const char* pText = nullptr;
  const char* pCursor = nullptr;

  const char** Set(const std::string& text) {
    pText = pCursor = Block.PlaceText(text);
    return &pCursor;
  }
  size_t Position() const { return static_cast<size_t>(pCursor - pText); }
};

TEST(Scan, TellsWhiteSpaceAndDigits) {
  for (int32_t c = -256; c < 0x300; c++) {
    EXPECT_EQ(UTIL_IsWhiteSpace(c), c == ' ' || c == '\t' || c == '\n' || c == '\r') << c;
    const std::string text = {'5', static_cast<char>(c), '5', '\0'};
    EXPECT_EQ(UTIL_IsDecimalString(text.c_str()), text[1] == '\0' || (text[1] >= '0' && text[1] <= '9')) << c;
  }
}

TEST(ParseNumber, FollowsTheRulesAndWraps) {
  static constexpr struct {
    const char* Text;
    int32_t IsHex;
    uint64_t Value;
    size_t Length;  // 0 where there is no number.
  } aCase[] = {
      {"0129,", 0, 129, 4},
      {"12aFg", 2, 0x12AF, 4},
      {"abcdefABCDEF/:@G", 2, 0xABCDEFABCDEF, 12},
      {" \t\r\n-12a", 0, 0 - uint64_t{12}, 7},
      {"-0X9fx", 0, 0 - uint64_t{0x9F}, 5},
      {"18446744073709551617", 0, 1, 20},
      {"\v1", 0, 0, 0},
      {"- 1", 0, 0, 0},
      {" 0x", 0, 0, 0},
  };
  INPUT input;
  for (const auto& test : aCase) {
    uint64_t value = 99;
    EXPECT_EQ(UTIL_ParseNumber(input.Set(test.Text), &value, test.IsHex), test.Length != 0 ? 0 : -1) << test.Text;
    EXPECT_EQ(value, test.Length != 0 ? test.Value : 99) << test.Text;
    EXPECT_EQ(input.Position(), test.Length) << test.Text;
  }
  uint32_t value = 99;  // The one without cursor, white space and sign.
  EXPECT_TRUE(UTIL_StrToU32(" 1", &value) == -1 && UTIL_StrToU32("-1", &value) == -1 && value == 99);
}

TEST(ParseWords, FollowTheRulesInEverySize) {
  RANDOM random(5);
  INPUT input;
  GUARDED_BLOCK destBlock;
  const auto afterSpace = [](const std::string& text, size_t start) {
    return std::min(text.find_first_not_of(" \t\n\r", start), text.size());
  };
  for (int round = 0; round < 30000; round++) {
    const std::string text = random.Text("   \t\n\r\v\"\"',,=ab\xE9", 12);
    SCOPED_TRACE("[" + text + "]");
    const uint32_t size = random.Below(8);
    size_t start = afterSpace(text, 0);
    UTIL_SkipWhiteSpace(input.Set(text));
    ASSERT_EQ(input.Position(), start);

    const char delimiter = random.OneIn(5) ? '\0' : "=,\ta"[random.Below(4)];
    std::string word = text.substr(start, text.find_first_of(std::string("\n\r ") + delimiter, start) - start);
    const char* pExpected = word.size() >= size ? "Maximum string length exceeded"
                            : word.empty()      ? "Expected a string"
                                                : nullptr;
    char* pDest = destBlock.Take(size);
    ASSERT_STREQ(UTIL_ParseToken(input.Set(text), pDest, size, delimiter), pExpected);
    ASSERT_EQ(input.Position(), pExpected == nullptr ? start + word.size() : start);
    ASSERT_TRUE(size == 0 || pDest == (pExpected == nullptr ? word : "")) << pDest;
    ASSERT_TRUE(destBlock.IsIntact());

    const bool isQuoted = text[start] == '"';
    start += isQuoted;
    size_t end = std::min(text.find_first_of(isQuoted ? "\n\r\"" : "\n\r\" ", start), text.size());
    word = text.substr(start, end - start);
    end = afterSpace(text, end + (text[end] == '"'));
    end += text[end] == ',';
    pDest = random.OneIn(8) ? nullptr : destBlock.Take(size);
    ASSERT_EQ(UTIL_ParseString(input.Set(text), pDest, size), input.pCursor);
    ASSERT_EQ(input.Position(), end);
    ASSERT_TRUE(pDest == nullptr || size == 0 || pDest == word.substr(0, size - 1)) << pDest;
    ASSERT_TRUE(destBlock.IsIntact());
  }
}

}  // namespace
