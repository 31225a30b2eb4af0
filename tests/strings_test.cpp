#include "util/strings.h"

#include <gtest/gtest.h>

#include "tests/support.h"
#include "util/crc.h"

namespace {

constexpr std::string_view LETTERS = "aAbBzZ@[`{ \x7F\x80\xC1\xE1\xFF";

TEST(CopyString, CutsToEverySizeAndTellsTheFullOne) {
  GUARDED_BLOCK srcBlock;
  GUARDED_BLOCK destBlock;
  for (uint32_t length = 0; length < 20; length++) {
    const std::string text = std::string("0123456789abcdefghij").substr(0, length);
    const char* src = srcBlock.PlaceText(text);
    for (uint32_t size = 1; size < 24; size++) {
      char* pDest = destBlock.Take(size);
      EXPECT_EQ(UTIL_CopyString(pDest, src, size), static_cast<int32_t>(length + 1));
      EXPECT_EQ(pDest, text.substr(0, size - 1));
      EXPECT_TRUE(destBlock.IsIntact());
    }
  }
  char acText[] = "old";
  EXPECT_EQ(UTIL_CopyString(acText, nullptr, sizeof(acText)), -1);
  EXPECT_EQ(UTIL_CopyString(acText, "new", 0), -1);
  EXPECT_EQ(UTIL_CopyString(nullptr, "new", 4), -1);
  EXPECT_STREQ(acText, "old");
}

// The size may be smaller than the text that is there; then not a byte may change.
TEST(AppendString, AppendsWhatFitsAndLeavesAnOverfullTextAlone) {
  GUARDED_BLOCK srcBlock;
  GUARDED_BLOCK destBlock;
  for (uint32_t used = 0; used < 10; used++) {
    for (uint32_t added = 0; added < 10; added++) {
      for (uint32_t size = 0; size < 22; size++) {
        const std::string before(used, 'u');
        const uint32_t blockSize = std::max(size, used + 1);
        char* pDest = destBlock.Take(blockSize);
        memcpy(pDest, before.c_str(), used + 1);
        UTIL_AppendString(pDest, srcBlock.PlaceText(std::string(added, 'a')), size);
        const uint32_t room = size > used ? size - used - 1 : 0;
        ASSERT_EQ(pDest, before + std::string(std::min(added, room), 'a')) << used << '+' << added << " in " << size;
        ASSERT_TRUE(destBlock.IsIntact());
      }
    }
  }
}

char FoldedChar(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}

std::string Upper(std::string text) {
  for (char& c : text) {
    c = c >= 'a' && c <= 'z' ? static_cast<char>(c & ~0x20) : c;
  }
  return text;
}

int32_t CompareModel(const std::string& a, const std::string& b, uint64_t count) {
  for (size_t i = 0; i < count && i <= a.size() && i <= b.size(); i++) {
    if (FoldedChar(a.c_str()[i]) != FoldedChar(b.c_str()[i])) {
      return static_cast<int8_t>(FoldedChar(a.c_str()[i])) - static_cast<int8_t>(FoldedChar(b.c_str()[i]));
    }
  }
  return 0;
}

TEST(CompareNoCase, OrdersFoldedSignedBytesUpToTheEndOrTheCount) {
  RANDOM random(1);
  GUARDED_BLOCK aBlock[2];
  for (uint32_t round = 0; round < 0x20000; round++) {
    // First every pair of single bytes, then longer texts that agree for a while.
    std::string a(round < 0x10000, static_cast<char>(round >> 8));
    std::string b(round < 0x10000, static_cast<char>(round));
    if (round >= 0x10000) {
      const std::string common = random.Text(LETTERS, 6);
      a = common + random.Text(LETTERS, 3);
      b = common + random.Text(LETTERS, 3);
      std::transform(b.begin(), b.end(), b.begin(), [&](char c) { return random.OneIn(2) ? FoldedChar(c) : c; });
    }
    const char* pA = aBlock[0].PlaceText(a);
    const char* pB = aBlock[1].PlaceText(b);
    ASSERT_EQ(UTIL_CompareNoCase(pA, pB), CompareModel(a, b, UINT64_MAX)) << a << ' ' << b;
    ASSERT_EQ(UTIL_CompareNoCaseN(pA, pB, UINT64_MAX), CompareModel(a, b, UINT64_MAX)) << a << ' ' << b;
    // Without terminators: nothing beyond the count may be looked at.
    const uint64_t count = random.Below(std::min(a.size(), b.size()) + 1);
    ASSERT_EQ(UTIL_CompareNoCaseN(aBlock[0].Place(a.substr(0, count)), aBlock[1].Place(b.substr(0, count)), count),
              CompareModel(a, b, count));
  }
}

TEST(Strings, EditInPlaceWhatTheyNameAndNothingElse) {
  RANDOM random(2);
  GUARDED_BLOCK block;
  for (int round = 0; round < 2000; round++) {
    const std::string text = random.Text(LETTERS, 20);
    const char oldChar = random.OneIn(10) ? '\0' : LETTERS[random.Below(LETTERS.size())];
    const char newChar = LETTERS[random.Below(LETTERS.size())];
    char* s = block.PlaceText(text);
    const size_t found = oldChar == '\0' ? std::string::npos : text.find(oldChar);
    ASSERT_EQ(UTIL_FindChar(s, oldChar), found == std::string::npos ? -1 : static_cast<int32_t>(found));
    ASSERT_EQ(UTIL_StrLen(s), text.size());
    std::string expected = text;
    std::replace(expected.begin(), expected.end(), oldChar, newChar);
    UTIL_ReplaceChar(s, oldChar, newChar);
    ASSERT_EQ(s, expected);
    UTIL_ToUpper(s);
    ASSERT_EQ(s, Upper(expected));
    ASSERT_TRUE(block.IsIntact());
  }
}

TEST(AppendSlash, AppendsOneWhereItIsMissingAndFits) {
  static constexpr struct {
    const char* Path;
    uint32_t Size;
    const char* Result;
  } aCase[] = {{"abc", 5, "abc/"},    {"abc", 4, "abc"}, {"abc", 2, "abc"}, {"abc/", 8, "abc/"},
               {"abc\\", 8, "abc\\"}, {"", 2, "/"},      {"", 1, ""},       {"", 0, ""}};
  GUARDED_BLOCK block;
  for (const auto& test : aCase) {
    const uint32_t length = UTIL_StrLen(test.Path);
    char* path = block.Take(std::max(test.Size, length + 1));
    memcpy(path, test.Path, length + 1);
    UTIL_AppendSlash(path, test.Size);
    EXPECT_STREQ(path, test.Result) << test.Path << " in " << test.Size;
  }
}

TEST(KeyNoCase, HashIsTheCrcOfTheFirst511CharactersInCapitals) {
  RANDOM random(3);
  for (size_t length : {0, 1, 7, 510, 511, 512, 513, 3000}) {
    const std::string text = (random.Text(LETTERS, 4000) + std::string(4000, 'z')).substr(0, length);
    std::string folded = text;
    std::transform(folded.begin(), folded.end(), folded.begin(), FoldedChar);
    const std::string upper = Upper(text.substr(0, 511));
    const char* aKey[] = {text.c_str(), folded.c_str()};
    const uint32_t expected = CRC_CalcBitwise(upper.data(), static_cast<uint32_t>(upper.size()), 0, 0xEDB88320);
    EXPECT_EQ(UTIL_HashKeyNoCase(&aKey[0]), expected) << length;
    EXPECT_EQ(UTIL_HashKeyNoCase(&aKey[1]), expected) << length;
    EXPECT_EQ(UTIL_IsEqualKeyNoCase(&aKey[0], &aKey[1]), 1);
    folded += '.';
    aKey[1] = folded.c_str();
    EXPECT_EQ(UTIL_IsEqualKeyNoCase(&aKey[0], &aKey[1]), 0);
  }
}

}  // namespace
