#include "util/strings.h"

#include <gtest/gtest.h>

#include "tests/support.h"
#include "util/crc.h"

namespace {

constexpr std::string_view LETTERS = "aAbBzZ@[`{ \x7F\x80\xC1\xE1\xFF";

// A text to be appended to may be longer than the size tells; then not a byte of it may change.
TEST(Strings, AreCutToEverySize) {
  GUARDED_BLOCK srcBlock;
  GUARDED_BLOCK destBlock;
  for (uint32_t used = 0; used < 8; used++) {
    for (uint32_t size = 0; size < 18; size++) {
      for (uint32_t added = 0; added < 8; added++) {
        const std::string before(used, 'u');
        const std::string text(added, 'a');
        const char* src = srcBlock.PlaceText(text);
        char* pDest = destBlock.Take(size);
        ASSERT_EQ(UTIL_CopyString(pDest, src, size), size == 0 ? -1 : static_cast<int32_t>(added + 1));
        ASSERT_TRUE(size == 0 || pDest == text.substr(0, size - 1)) << added << " in " << size;
        pDest = strcpy(destBlock.Take(std::max(size, used + 1)), before.c_str());
        UTIL_AppendSlash(pDest, size);
        UTIL_AppendSlash(pDest, size);
        ASSERT_EQ(pDest, before + (used + 1 < size ? "/" : "")) << used << " in " << size;
        strcpy(pDest, before.c_str());
        UTIL_AppendString(pDest, src, size);
        ASSERT_EQ(pDest, before + text.substr(0, size > used ? size - used - 1 : 0)) << added << " in " << size;
        ASSERT_TRUE(destBlock.IsIntact());
      }
    }
  }
  char acText[8] = "/\0\0\\";  // What stands before a text is not part of it.
  UTIL_AppendSlash(acText + 1, 2);
  UTIL_AppendSlash(acText + 3, 5);
  EXPECT_STREQ(acText, "//");
  EXPECT_STREQ(acText + 3, "\\");
  EXPECT_EQ(UTIL_CopyString(acText, nullptr, 4), -1);
  EXPECT_EQ(UTIL_CopyString(nullptr, "new", 4), -1);
}

char FoldedChar(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}

int32_t CompareModel(const std::string& a, const std::string& b) {
  size_t i = 0;
  while (i < a.size() && FoldedChar(a[i]) == FoldedChar(b[i])) {
    i++;
  }
  return static_cast<int8_t>(FoldedChar(a[i])) - static_cast<int8_t>(FoldedChar(b[i]));
}

TEST(CompareNoCase, OrdersFoldedSignedBytesUpToTheEndOrTheCount) {
  RANDOM random(1);
  GUARDED_BLOCK aBlock[2];
  for (uint32_t round = 0; round < 50000; round++) {
    std::string a = random.Text(LETTERS, 6);
    std::string b = a + random.Text(LETTERS, 2);
    std::transform(b.begin(), b.end(), b.begin(), [&](char c) { return random.OneIn(2) ? FoldedChar(c) : c; });
    a = (a + random.Bytes(2)).c_str();
    const int32_t expected = CompareModel(a, b);
    const char* pA = aBlock[0].PlaceText(a);
    const char* pB = aBlock[1].PlaceText(b);
    ASSERT_EQ(UTIL_CompareNoCase(pA, pB), expected) << a << ' ' << b;
    ASSERT_EQ(UTIL_CompareNoCaseN(pA, pB, UINT64_MAX), expected) << a << ' ' << b;
    ASSERT_EQ(UTIL_IsEqualKeyNoCase(&pA, &pB), expected == 0) << a << ' ' << b;
    // Without terminators: nothing beyond the count may be looked at.
    const uint64_t count = random.Below(std::min(a.size(), b.size()) + 1);
    a.resize(count);
    b.resize(count);
    ASSERT_EQ(UTIL_CompareNoCaseN(aBlock[0].Place(a), aBlock[1].Place(b), count), CompareModel(a, b));
  }
}

TEST(Strings, ChangeWhatTheyNameAndNothingElse) {
  RANDOM random(2);
  GUARDED_BLOCK block;
  for (int round = 0; round < 2000; round++) {
    std::string text = random.Text(LETTERS, 20);
    const char oldChar = random.OneIn(10) ? '\0' : LETTERS[random.Below(LETTERS.size())];
    char* s = block.PlaceText(text);
    ASSERT_EQ(UTIL_FindChar(s, oldChar), static_cast<int32_t>(text.find(oldChar)));
    UTIL_ReplaceChar(s, oldChar, 'y');
    std::replace(text.begin(), text.end(), oldChar, 'y');
    ASSERT_EQ(s, text);
    UTIL_ToUpper(s);
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c & ~0x20) : c; });
    ASSERT_EQ(s, text);
  }
}

TEST(KeyNoCase, HashIsTheCrcOfTheFirst511CharactersInCapitals) {
  for (uint32_t length : {0u, 1u, 510u, 511u, 512u, 3000u}) {
    const std::string text(length, 'q');
    const char* pText = text.c_str();
    const std::string upper(3000, 'Q');
    EXPECT_EQ(UTIL_HashKeyNoCase(&pText), CRC_Calc32Bitwise(upper.data(), std::min(length, 511u), 0)) << length;
  }
}

}  // namespace
