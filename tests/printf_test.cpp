// The full engine against a slow model, with random formats and with arguments drawn as the model consumes them.

#include "util/printf.h"

#include <gtest/gtest.h>

#include <array>
#include <regex>
#include <tuple>
#include <vector>

#include "tests/support.h"

namespace {

using SLOTS = std::array<uint64_t, 15>;

// Texts for %s, each at the end of its own memory.
const char* TextArgument(RANDOM& random) {
  static std::array<GUARDED_BLOCK, 4> aBlock;
  static const std::array<const char*, 5> apText = {nullptr, aBlock[0].PlaceText(""), aBlock[1].PlaceText("x"),
                                                    aBlock[2].PlaceText("%d and \xE9"),
                                                    aBlock[3].PlaceText(std::string(70, 'w'))};
  return apText[random.Below(apText.size())];
}

std::string NumberText(uint32_t value, uint32_t base, int32_t flags, int64_t width, int64_t precision) {
  std::string text = DigitsOf(value, base);
  const std::string sign = flags & PRINTF_FLAG_NEGATIVE ? "-"
                           : flags & PRINTF_FLAG_SIGN   ? "+"
                           : flags & PRINTF_FLAG_SPACE  ? " "
                                                        : "";
  if (precision < 0 && flags & PRINTF_FLAG_ZERO) {
    precision = width - static_cast<int64_t>(sign.size());
  }
  while (static_cast<int64_t>(text.size()) < precision) {
    text.insert(0, 1, '0');
  }
  text.insert(0, sign);
  while (static_cast<int64_t>(text.size()) < width) {
    text.insert(flags & PRINTF_FLAG_LEFT ? text.size() : 0, 1, ' ');
  }
  return text;
}

std::string SignedText(uint32_t value, int32_t flags, int64_t width, int64_t precision) {
  return value >> 31 ? NumberText(0 - value, 10, flags | PRINTF_FLAG_NEGATIVE, width, precision)
                     : NumberText(value, 10, flags, width, precision);
}

// Added conversion 's': a text, and a number in a base of the caller's with what the engine says of its length.
int32_t OnTextAndNumber(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, const UTIL_PRINTF_API* pAPI,
                        va_list* pArgs, int32_t flags, int32_t width, int32_t precision) {
  const char* s = va_arg(*pArgs, const char*);
  for (; s != nullptr && *s != '\0'; s++) {
    pAPI->pfStoreChar(pBuffer, pDevice, *s);
  }
  const uint32_t value = va_arg(*pArgs, uint32_t);
  const uint32_t base = va_arg(*pArgs, uint32_t);
  const int32_t count = pAPI->pfPrintUnsigned(pBuffer, pDevice, value, base, flags, width, precision);
  pAPI->pfPrintSigned(pBuffer, pDevice, -count, 10, 0, -1, -1);
  return -1;
}

// Added conversion 'q': a directive of its own.
int32_t OnShowSpec(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, const UTIL_PRINTF_API* pAPI, va_list*,
                   int32_t flags, int32_t width, int32_t precision) {
  for (int32_t value : {flags, width, precision}) {
    pAPI->pfPrintSigned(pBuffer, pDevice, value, 10, 0, 4, -1);
  }
  return 0;
}

UTIL_PRINTF_CONVERSION aAdded[2];
const int32_t aAddResult[] = {UTIL_AddPrintfConversion(&aAdded[0], OnTextAndNumber, 's'),
                              UTIL_AddPrintfConversion(&aAdded[1], OnShowSpec, 'q')};

std::string RandomFormat(RANDOM& random) {
  std::string format;
  for (uint32_t n = 1 + random.Below(5); n > 0; n--) {
    format += random.Text("ab C-0.l_\xE9", random.OneIn(4) ? 40 : 5);
    format += '%' + random.Text("-+ #0", 3);
    format += random.OneIn(2) ? DigitsOf(random.Below(30), 10) : "";
    format += random.OneIn(2) ? '.' + random.Text("0123", 2) : "";
    format += random.Text("hl", 3) + random.Text("_", random.OneIn(3));
    format += "dduuxXpcss%iqonf*"[random.Below(17)];
  }
  if (random.OneIn(3)) {
    format.resize(random.Below(format.size() + 1));
  }
  return format;
}

// A format, the arguments that it consumes, and the text that it gives.
struct SAMPLE {
  explicit SAMPLE(RANDOM& random) : Format(RandomFormat(random)) {
    static const std::regex specRegex(R"(%([-+ #0]*)(\d*)(\.?)(\d*)[hl]*(_?)([\s\S]?))");
    std::string rest = Format;
    for (std::smatch match; std::regex_search(rest, match, specRegex); rest = match.suffix()) {
      Text += match.prefix();
      int32_t flags = 0;
      for (char c : match.str(1)) {
        flags |= 1 << std::string_view("-+ #0").find(c);
      }
      const int32_t width = match.length(2) != 0 ? std::stoi(match.str(2)) : -1;
      const int32_t precision = match.length(3) == 0 ? -1 : std::stoi('0' + match.str(4));
      Text += Convert(random, match.str(5) + match.str(6), flags, width, precision);
    }
    Text += rest;
    std::fill(Slots.begin() + static_cast<ptrdiff_t>(NumUsed), Slots.end(), 0xBAD0BAD0BAD0BAD0);
  }

  std::string Format;
  std::string Text;
  SLOTS Slots{};

 private:
  uint32_t Number(RANDOM& random) { return static_cast<uint32_t>(Slots[NumUsed++] = random.Value()); }

  std::string String(RANDOM& random) {
    const char* s = TextArgument(random);
    Slots[NumUsed++] = reinterpret_cast<uintptr_t>(s);
    return s == nullptr ? "" : s;
  }

  // The letter has '_' before it when only an added conversion may serve it.
  std::string Convert(RANDOM& random, const std::string& letter, int32_t flags, int32_t width, int32_t precision) {
    if (letter == "d") {
      return SignedText(Number(random), flags, width, precision);
    } else if (letter == "u" || letter == "x" || letter == "X") {
      return NumberText(Number(random), letter == "u" ? 10 : 16, flags, width, precision);
    } else if (letter == "p") {
      return NumberText(Number(random), 16, flags, -1, 8);
    } else if (letter == "c") {
      return std::string(1, static_cast<char>(Number(random)));
    } else if (letter == "s") {
      return String(random);
    } else if (letter == "_s") {
      const std::string text = String(random);
      const uint32_t value = Number(random);
      const uint32_t base = 2 + random.Below(15);
      Slots[NumUsed++] = base;
      const std::string number = NumberText(value, base, flags, width, precision);
      return text + number + '-' + std::to_string(number.size());
    } else if (letter == "q" || letter == "_q") {
      return SignedText(static_cast<uint32_t>(flags), 0, 4, -1) + SignedText(static_cast<uint32_t>(width), 0, 4, -1) +
             SignedText(static_cast<uint32_t>(precision), 0, 4, -1);
    }
    return letter == "%" ? letter : "";
  }

  size_t NumUsed = 0;
};

int32_t PrintCore(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const bool isWhole = pDevice != nullptr && pDevice->pBuffer == pBuffer && pBuffer->Cnt == 0;
  int32_t result =
      isWhole ? UTIL_vprintfDevice(pDevice, format, args) : UTIL_PrintfCore(pBuffer, pDevice, format, args);
  va_end(args);
  return result;
}

TEST(Printf, GivesTheModelsTextInEveryBufferSize) {
  RANDOM random(1);
  GUARDED_BLOCK formatBlock;
  GUARDED_BLOCK destBlock;
  for (int round = 0; round < 20000; round++) {
    const SAMPLE sample(random);
    const char* format = formatBlock.PlaceText(sample.Format);
    for (uint32_t size = 0; size <= sample.Text.size() + 2; size++) {
      // Into a plain buffer, or behind what a buffer record counts, which may be more than it holds.
      const uint32_t before = random.OneIn(2) ? 0 : random.Below(size + 3);
      char* pDest = destBlock.Take(size);
      UTIL_PRINTF_BUFFER buffer = {pDest, static_cast<int32_t>(size), static_cast<int32_t>(before)};
      UTIL_PRINTF_DEVICE device = {nullptr, &buffer, nullptr};  // Without a flush function it is as good as none.
      const int32_t result = std::apply(
          [&](auto... args) {
            return before == 0 ? UTIL_snprintf(pDest, size, format, args...)
                               : PrintCore(&buffer, random.OneIn(2) ? &device : nullptr, format, args...);
          },
          sample.Slots);
      const std::string expected = std::string(before, GUARDED_BLOCK::PATTERN) + sample.Text;
      ASSERT_EQ(static_cast<size_t>(result), expected.size()) << '[' << format << "] in " << size;
      ASSERT_TRUE(destBlock.IsIntact());
      if (size != 0) {
        const size_t stored = std::min<size_t>(expected.size(), size - 1);
        ASSERT_EQ(std::string(pDest, stored), expected.substr(0, stored)) << '[' << format << "] in " << size;
        ASSERT_EQ(pDest[stored], '\0');
      }
    }
  }
}

// A device that notes what its buffer holds at each flush, and empties it or not.
struct STREAM {
  UTIL_PRINTF_BUFFER Buffer;
  UTIL_PRINTF_DEVICE Device = {this, &Buffer, OnFlush};
  bool IsDraining = true;
  std::vector<std::string> Flushes = {};

  static void OnFlush(UTIL_PRINTF_DEVICE* pDevice) {
    auto* pStream = static_cast<STREAM*>(pDevice->pContext);
    UTIL_PRINTF_BUFFER& buffer = pStream->Buffer;
    pStream->Flushes.emplace_back(buffer.pBuffer, static_cast<size_t>(std::min(buffer.Cnt, buffer.BufferSize - 1)));
    buffer.Cnt = pStream->IsDraining ? 0 : buffer.Cnt;
  }
};

TEST(PrintfDevice, IsFlushedWheneverFullAndOnceMoreForTheRest) {
  RANDOM random(3);
  GUARDED_BLOCK destBlock;
  for (int round = 0; round < 6000; round++) {
    const SAMPLE sample(random);
    const size_t size = 1 + random.Below(12);
    std::string held(random.Below(size + 1), GUARDED_BLOCK::PATTERN);
    char* pDest = destBlock.Take(size);
    STREAM stream = {{pDest, static_cast<int32_t>(size), static_cast<int32_t>(held.size())}};
    stream.IsDraining = !random.OneIn(4);

    std::vector<std::string> flushes;
    auto flush = [&] {
      flushes.push_back(held.substr(0, size - 1));
      held.resize(stream.IsDraining ? 0 : held.size());
    };
    if (held.size() + 1 == size) {
      flush();
    }
    for (char c : sample.Text) {
      held += c;
      if (held.size() + 1 == size) {
        flush();
      }
    }
    if (!held.empty() && held.size() + 1 < size) {
      flush();
    }

    const int32_t result = std::apply(
        [&](auto... args) { return PrintCore(&stream.Buffer, &stream.Device, sample.Format.c_str(), args...); },
        sample.Slots);
    ASSERT_EQ(stream.Flushes, flushes) << sample.Format << " with " << size;
    ASSERT_EQ(static_cast<size_t>(result), held.size()) << sample.Format << " with " << size;
    ASSERT_TRUE(destBlock.IsIntact());
  }
}

TEST(Printf, CountsNoFurtherThanAResultCanTell) {
  char acText[8];
  EXPECT_EQ(UTIL_snprintf(acText, sizeof(acText), "ab%2147483640dcd%99999999999u%s", 1, 2u, "xyz"), INT32_MAX);
  EXPECT_STREQ(acText, "ab     ");
  EXPECT_EQ(UTIL_snprintf(acText, sizeof(acText), "%0.2147483647d%.2147483647u", -1, 1u), INT32_MAX);
  EXPECT_STREQ(acText, "-000000");
  EXPECT_EQ(UTIL_snprintf(acText, UINT32_MAX, "%s", "abc"), 3);
  EXPECT_STREQ(acText, "abc");
}

TEST(Printf, KeepsTheFirstConversionOfALetter) {
  EXPECT_EQ(aAddResult[0] | aAddResult[1], 0);
  EXPECT_EQ(aAdded[1].pNext, &aAdded[0]);
  UTIL_PRINTF_CONVERSION node = {nullptr, nullptr, '?'};
  EXPECT_EQ(UTIL_AddPrintfConversion(&node, OnShowSpec, 's'), -1);
  EXPECT_EQ(node.Char, '?');
}

}  // namespace
