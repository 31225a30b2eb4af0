// The compact engine against a slow model, with random formats and with arguments drawn as the model consumes them.

#include "util/fmt.h"

#include <gtest/gtest.h>

#include <array>
#include <regex>
#include <tuple>

#include "tests/support.h"

namespace {

using SLOTS = std::array<uint64_t, 8>;

const char* TextArgument(RANDOM& random) {
  static std::array<GUARDED_BLOCK, 2> aBlock;
  static const std::array<const char*, 3> apText = {nullptr, aBlock[0].PlaceText("%d"),
                                                    aBlock[1].PlaceText(std::string(50, 'w'))};
  return apText[random.Below(apText.size())];
}

std::string NumberText(uint64_t value, uint32_t base, std::string_view digits, size_t width, size_t precision) {
  std::string text = DigitsOf(value, base, digits);
  text.insert(0, std::max(precision, text.size()) - text.size(), '0');
  return text.insert(0, std::max(width, text.size()) - text.size(), ' ');
}

std::string RandomFormat(RANDOM& random) {
  std::string format;
  for (uint32_t n = 1 + random.Below(5); n > 0; n--) {
    format += random.Text("ab C-0.l\xE9", random.OneIn(4) ? 40 : 5) + '%';
    format += random.OneIn(2) ? DigitsOf(random.Below(30), 10) : "";
    format += random.OneIn(2) ? '.' + random.Text("0123", 2) : "";
    format += random.Text("l", 3);
    format += "diuuxXpcss%-+h*q_"[random.Below(17)];
  }
  if (random.OneIn(3)) {
    format.resize(random.Below(format.size() + 1));
  }
  return format;
}

// A format, the arguments that it consumes, and the text that it gives.
struct SAMPLE {
  explicit SAMPLE(RANDOM& random) : Format(RandomFormat(random)) {
    static const std::regex specRegex(R"(%(?:(%)|(\d*)(?:\.(\d*))?(l*)([\s\S]?)))");
    std::string rest = Format;
    for (std::smatch match; std::regex_search(rest, match, specRegex); rest = match.suffix()) {
      Text += match.prefix().str() + match.str(1);
      Text += Convert(random, match.str(5), match.length(4) >= 2, std::stoul('0' + match.str(2)),
                      std::stoul('0' + match.str(3)));
    }
    Text += rest;
    std::fill(Slots.begin() + static_cast<ptrdiff_t>(NumUsed), Slots.end(), 0xBAD0BAD0BAD0BAD0);
  }

  std::string Format;
  std::string Text;
  SLOTS Slots{};

 private:
  std::string Convert(RANDOM& random, const std::string& letter, bool is64Bit, size_t width, size_t precision) {
    if (letter.empty() || std::string("diuxXpcs").find(letter) == std::string::npos) {
      return "";
    }
    uint64_t& slot = Slots[NumUsed++];
    slot = random.Value();
    const uint64_t value = is64Bit || letter == "p" ? slot : static_cast<uint32_t>(slot);
    if (letter == "s") {
      const char* s = TextArgument(random);
      slot = reinterpret_cast<uintptr_t>(s);
      return s == nullptr ? "" : s;
    } else if (letter == "c") {
      return std::string(1, static_cast<char>(slot));
    } else if (letter == "p") {
      return NumberText(value, 16, "0123456789abcdef", value >> 32 == 0 ? 8 : width, precision);
    } else if (letter == "x" || letter == "X") {
      return NumberText(value, 16, letter == "x" ? "0123456789abcdef" : "0123456789ABCDEF", width, precision);
    }
    const uint64_t top = uint64_t{1} << (is64Bit ? 63 : 31);
    const bool isNegative = letter != "u" && value >= top;
    return (isNegative ? "-" : "") +
           NumberText(isNegative ? top - (value - top) : value, 10, "0123456789", width, precision);
  }

  size_t NumUsed = 0;
};

TEST(Fmt, GivesTheModelsTextInEveryBufferSize) {
  RANDOM random(1);
  GUARDED_BLOCK formatBlock;
  GUARDED_BLOCK destBlock;
  for (int round = 0; round < 20000; round++) {
    const SAMPLE sample(random);
    const char* format = formatBlock.PlaceText(sample.Format);
    SCOPED_TRACE("[" + sample.Format + "]");
    for (uint32_t size = 0; size <= sample.Text.size() + 2; size++) {
      char* pDest = destBlock.Take(size);
      const char* pEnd =
          std::apply([&](auto... args) { return FMT_snprintf(pDest, size, format, args...); }, sample.Slots);
      const std::string expected = sample.Text.substr(0, size == 0 ? 0 : size - 1);
      ASSERT_EQ(pEnd, pDest + expected.size());
      ASSERT_EQ(std::string(pDest, expected.size()), expected);
      ASSERT_TRUE(size == 0 || *pEnd == '\0');
      ASSERT_TRUE(destBlock.IsIntact());
    }
  }
}

TEST(Fmt, CutsFieldsOfAnyWidth) {
  char acText[8];
  EXPECT_EQ(FMT_snprintf(acText, sizeof(acText), "a%99999999999d%.4294967290u%s", 1, 2u, "xyz"), acText + 7);
  EXPECT_STREQ(acText, "a      ");
}

// Formats three times from one list of arguments.
std::string ContinueList(const char* format, ...) {
  char acText[3][16];
  va_list args;
  va_start(args, format);
  for (char* pText : acText) {
    FMT_vsnprintf(pText, sizeof(acText[0]), format, &args);
  }
  va_end(args);
  return std::string(acText[0]) + ' ' + acText[1] + ' ' + acText[2];
}

TEST(Fmt, LeavesTheArgumentListBehindTheLastOneTaken) {
  EXPECT_EQ(ContinueList("%d%s%llu", 1, "a", 2ull, 3, "b", 4ull, 5, "c", 6ull), "1a2 3b4 5c6");
}

}  // namespace
