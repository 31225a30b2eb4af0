// The readers against models made of regular expressions and the standard library, over texts whose end is guarded.

#include "util/scan.h"

#include <gtest/gtest.h>

#include <regex>

#include "tests/support.h"

namespace {

constexpr std::string_view NUMBER_CHARS = "  \t\n\r\v--+00xX19afFgG,";
constexpr std::string_view WORD_CHARS = "   \t\n\r\v\"\"',,=ab\xE9";

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

TEST(Scan, WhiteSpaceIsFourCharacters) {
  for (int32_t c = -256; c < 0x300; c++) {
    EXPECT_EQ(UTIL_IsWhiteSpace(c), c == ' ' || c == '\t' || c == '\n' || c == '\r') << c;
  }
  RANDOM random(1);
  INPUT input;
  for (int round = 0; round < 3000; round++) {
    const std::string text = random.Text(" \t\n\r\v\fx", 8);
    UTIL_SkipWhiteSpace(input.Set(text));
    EXPECT_EQ(input.Position(), std::min(text.find_first_not_of(" \t\n\r"), text.size()));
    const std::string digits = random.Text("0123456789012345678901234567890123456789/:", 5);
    EXPECT_EQ(UTIL_IsDecimalString(*input.Set(digits)), digits.find_first_of("/:") == std::string::npos) << digits;
  }
}

// What a text holds by the rules of the cursor readers; Length is 0 when there is no number. The digits wrap.
struct NUMBER {
  uint64_t Value = 0;
  size_t Length = 0;

  NUMBER(const std::string& text, bool isHex) {
    static const std::regex decimalRegex("[ \t\n\r]*(-?)(?:0[xX]([0-9a-fA-F]+)|(?!0[xX])([0-9]+))");
    static const std::regex hexRegex("[ \t\n\r]*(-?)(?:0[xX]|(?!0[xX]))([0-9a-fA-F]+)");
    std::smatch match;
    if (!std::regex_search(text, match, isHex ? hexRegex : decimalRegex, std::regex_constants::match_continuous)) {
      return;
    }
    Length = static_cast<size_t>(match.length());
    const int base = match.length(2) != 0 ? 16 : 10;
    for (char digit : match.str(base == 16 ? 2 : 3)) {
      Value = Value * static_cast<uint64_t>(base) + strtoull(std::string(1, digit).c_str(), nullptr, base);
    }
    Value = match.length(1) != 0 ? 0 - Value : Value;
  }
};

// Value and cursor after success and after failure.
template <typename T>
void ExpectRead(INPUT& input, const std::string& text, int32_t (*pfRead)(const char**, T*), const NUMBER& number,
                T onFailure) {
  T value = static_cast<T>(99);
  EXPECT_EQ(pfRead(input.Set(text), &value), number.Length != 0 ? 0 : -1) << '[' << text << ']';
  EXPECT_EQ(value, number.Length != 0 ? static_cast<T>(number.Value) : onFailure) << '[' << text << ']';
  EXPECT_EQ(input.Position(), number.Length) << '[' << text << ']';
}

TEST(ParseNumber, FollowsTheRulesAndWraps) {
  RANDOM random(2);
  INPUT input;
  for (int round = 0; round < 30000 && !testing::Test::HasFailure(); round++) {
    std::string text = random.Text(" \t", random.OneIn(2)) + random.Text("-", random.OneIn(2));
    text += (random.OneIn(3) ? "0x" : "") + random.Text("0123456789", random.OneIn(3) ? 30 : 0);
    text += random.Text(NUMBER_CHARS, 8);
    const NUMBER decimal(text, false);
    const NUMBER hex(text, true);
    ExpectRead<uint64_t>(
        input, text, [](auto... args) { return UTIL_ParseNumber(args..., 0); }, decimal, 99);
    ExpectRead<uint64_t>(
        input, text, [](auto... args) { return UTIL_ParseNumber(args..., 2); }, hex, 99);
    ExpectRead<uint64_t>(input, text, UTIL_ParseHex64, hex, 99);
    ExpectRead<uint32_t>(input, text, UTIL_ParseU32, decimal, 0);
    ExpectRead<uint32_t>(input, text, UTIL_ParseHex32, hex, 0);
    // The one without cursor, white space and sign.
    const bool isPlain = decimal.Length != 0 && text.find_first_of(" \t\n\r-") != 0;
    uint32_t value = 99;
    EXPECT_EQ(UTIL_StrToU32(*input.Set(text), &value), isPlain ? 0 : -1) << '[' << text << ']';
    EXPECT_EQ(value, isPlain ? static_cast<uint32_t>(decimal.Value) : 99) << '[' << text << ']';
  }
}

TEST(ParseToken, FollowsTheRulesInEveryCapacity) {
  RANDOM random(4);
  INPUT input;
  GUARDED_BLOCK destBlock;
  for (int round = 0; round < 30000; round++) {
    const std::string text = random.Text(WORD_CHARS, 10);
    const char delimiter = random.OneIn(5) ? '\0' : "=,\ta"[random.Below(4)];
    const uint32_t capacity = random.Below(8);
    const size_t start = std::min(text.find_first_not_of(" \t\n\r"), text.size());
    const std::string word = text.substr(start, text.find_first_of(std::string("\n\r ") + delimiter, start) - start);
    const char* pExpected = word.size() >= capacity ? "Maximum string length exceeded"
                            : word.empty()          ? "Expected a string"
                                                    : nullptr;
    char* pDest = destBlock.Take(capacity);
    ASSERT_STREQ(UTIL_ParseToken(input.Set(text), pDest, capacity, delimiter), pExpected) << '[' << text << ']';
    ASSERT_EQ(input.Position(), pExpected == nullptr ? start + word.size() : start) << '[' << text << ']';
    if (capacity != 0) {
      ASSERT_EQ(pDest, pExpected == nullptr ? word : "") << '[' << text << ']';
    }
    ASSERT_TRUE(destBlock.IsIntact());
  }
}

TEST(ParseString, FollowsTheRulesInEverySize) {
  RANDOM random(5);
  INPUT input;
  GUARDED_BLOCK destBlock;
  for (int round = 0; round < 30000; round++) {
    const std::string text = random.Text(WORD_CHARS, 12);
    const uint32_t size = random.Below(8);
    size_t start = std::min(text.find_first_not_of(" \t\n\r"), text.size());
    const bool isQuoted = text[start] == '"';
    start += isQuoted;
    size_t end = std::min(text.find_first_of(isQuoted ? "\n\r\"" : "\n\r\" ", start), text.size());
    const std::string word = text.substr(start, end - start);
    end += text[end] == '"';
    end = std::min(text.find_first_not_of(" \t\n\r", end), text.size());
    end += text[end] == ',';
    char* pDest = random.OneIn(8) ? nullptr : destBlock.Take(size);
    const char* pEnd = UTIL_ParseString(input.Set(text), pDest, size);
    ASSERT_EQ(pEnd, input.pCursor);
    ASSERT_EQ(input.Position(), end) << '[' << text << ']';
    if (pDest != nullptr && size != 0) {
      ASSERT_EQ(pDest, word.substr(0, size - 1)) << '[' << text << ']';
      ASSERT_TRUE(destBlock.IsIntact());
    }
  }
}

}  // namespace
