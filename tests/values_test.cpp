#include "util/values.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <tuple>
#include <vector>

#include "tests/support.h"

namespace {

using std::bind;
using std::placeholders::_1;
using std::placeholders::_2;

using WRITER = std::function<int64_t(char* pBuffer, uint32_t size)>;

// Expects the result at every size of the buffer, as much of the text as it holds, and nothing outside it.
void ExpectText(const std::string& text, int64_t result, const WRITER& write) {
  GUARDED_BLOCK block;
  for (uint32_t size = 0; size <= text.size() + 2; size++) {
    char* pBuffer = block.Take(size);
    EXPECT_EQ(write(pBuffer, size), result) << text << " in " << size;
    EXPECT_TRUE(block.IsIntact()) << text << " in " << size;
    EXPECT_TRUE(size == 0 || pBuffer == text.substr(0, size - 1)) << text << " in " << size;
  }
}

constexpr uint8_t ADDRESS[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0xFF, 0xAB, 0xCD, 0xEF, 0x90, 1, 2, 3, 0xFE};

constexpr UTIL_BLOCK_RUN LARGE[] = {{1, 0x40000000, 0}, {0x80000, 0x4000, 0}, {0, 4096, 7}};
constexpr UTIL_BLOCK_RUN SMALL[] = {{4, 16384, 0}, {0, 0, 0}};
constexpr const UTIL_BLOCK_RUN* REGIONS[] = {LARGE, nullptr, SMALL, SMALL + 1};

TEST(Values, GiveTheKnownTextsAtEveryBufferSize) {
  static const std::tuple<std::string, WRITER, int32_t> aCase[] = {
      {"0 Bytes", bind(UTIL_FormatSize, 0, _1, _2), 7},
      {"512 Bytes", bind(UTIL_FormatSize, 512, _1, _2), 9},
      {"1 Byte", bind(UTIL_FormatSize, 1, _1, _2), 6},
      {"3.5 GB", bind(UTIL_FormatSize, 0xE0000000, _1, _2), 6},
      {"1024.5 KB", bind(UTIL_FormatSize, 0x100200, _1, _2), 9},
      {"4294967297 Bytes", bind(UTIL_FormatSize, 0x100000001, _1, _2), 16},
      {"4398046511104.5 MB", bind(UTIL_FormatSize, 0x4000000000080000, _1, _2), 18},
      {"18446744073709551615 Bytes", bind(UTIL_FormatSize, UINT64_MAX, _1, _2), 26},
      {"0.000 000", bind(UTIL_FormatDuration, 0, _1, _2), 9},
      {"1:00.000 000", bind(UTIL_FormatDuration, 60'000'000, _1, _2), 12},
      {"59:59.999 999", bind(UTIL_FormatDuration, 3'599'999'999, _1, _2), 13},
      {"1:02:03.004 005", bind(UTIL_FormatDuration, 3'723'004'005, _1, _2), 15},
      {"5124095576:01:49.551 615", bind(UTIL_FormatDuration, UINT64_MAX, _1, _2), 24},
      {"192.168.0.254", bind(UTIL_FormatIPv4, 0xFE00A8C0, _1, _2), 13},
      {"2001:0DB8:0000:00FF:ABCD:EF90:0102:03FE", bind(UTIL_FormatIPv6, ADDRESS, _1, _2), 39},
      {"20-01-0D-B8-00-00", bind(UTIL_FormatHWAddr, ADDRESS, '-', _1, _2), 17},
      {"0000A0CD", bind(UTIL_FormatHex32, _1, _2, 0xA0CD), 8},
      {"F00000000000A0CD", bind(UTIL_FormatHex64, _1, _2, 0xF00000000000A0CD), 16},
      {"0xFFFFFFFF", bind(UTIL_FormatHexPrefixed, _1, _2, UINT32_MAX), 10},
      {"0x0000000100000000", bind(UTIL_FormatHexPrefixed, _1, _2, 0x100000000), 18},
      {"0000A0CF", bind(UTIL_FormatHexValue, _1, _2, 0xA0CF, UTIL_HEX_NO_PREFIX), 8},
      {"f00000000000a0cf",
       bind(UTIL_FormatHexValue, _1, _2, 0xF00000000000A0CF, UTIL_HEX_NO_PREFIX | UTIL_HEX_LOWER_CASE), 16},
      {"128.0.0.0", bind(UTIL_FormatNetmask, 0x80000000, _1, _2), 1},
      {"255.255.240.0", bind(UTIL_FormatNetmask, 0xFFFFF000, _1, _2), 20},
      {"255.255.255.254", bind(UTIL_FormatNetmask, 0xFFFFFFFE, _1, _2), 31},
      {"255.255.255.255", bind(UTIL_FormatNetmask, 0xFFFFFFFF, _1, _2), -1},
      {"0.0.0.0", bind(UTIL_FormatNetmask, 0, _1, _2), -1},
      {"255.255.254.1", bind(UTIL_FormatNetmask, 0xFFFFFE01, _1, _2), -1},
      {"1.2.3.200:80", bind(UTIL_FormatIPv4Endpoint, 0xC8030201, 80, _1, _2), 13},
      {"0.0.0.0:4294967295", bind(UTIL_FormatIPv4Endpoint, 0, UINT32_MAX, _1, _2), 19},
      {"0000 Jan 00", bind(UTIL_FormatFirmwareDate, 100, _1, _2), 0},
      {"429496 Dec 95", bind(UTIL_FormatFirmwareDate, 4294961295, _1, _2), 0},
      {"(FW returned invalid version)", bind(UTIL_FormatFirmwareDate, 20261301, _1, _2), -1},
      {"(FW returned invalid version)", bind(UTIL_FormatFirmwareDate, 20260031, _1, _2), -1},
      {"9 GB + 0 Bytes + 64 KB + 0 Bytes", bind(UTIL_FormatRegionSizes, REGIONS, 4, _1, _2), 0x40010000},
      {"-", bind(UTIL_FormatRegionSizes, nullptr, 0, _1, _2), 0},
  };
  for (const auto& [text, write, result] : aCase) {
    ExpectText(text, result, write);
  }
  EXPECT_EQ(UTIL_FormatNetmask(0xFFFFF000, nullptr, 16), 20);
  EXPECT_EQ(UTIL_FormatFirmwareDate(20260506, nullptr, 16), 0);
  EXPECT_EQ(UTIL_FormatFirmwareDate(20261301, nullptr, 16), -1);
  EXPECT_EQ(UTIL_FormatRegionSizes(REGIONS, 2, nullptr, 0), 0x40000000U);
}

TEST(FormatDate, WritesWhatIsInRangeAndTellsWhenItWasCut) {
  static const std::pair<UTIL_DATE, std::string> aCase[] = {{{1, 1, 1, 0, 0}, "01. Jan    1 00:00"},
                                                            {{UINT16_MAX, 12, 31, 23, 59}, "31. Dec 65535 23:59"}};
  for (const auto& [date, text] : aCase) {
    ExpectText(text, 1, [pDate = &date, length = text.size()](char* pBuffer, uint32_t size) {
      return UTIL_FormatDate(pBuffer, size, pDate) == (size > length ? static_cast<int32_t>(length) : -2);
    });
  }
  static constexpr UTIL_DATE aRefused[] = {{0, 1, 1, 0, 0},  {1, 0, 1, 0, 0},  {1, 13, 1, 0, 0}, {1, 1, 0, 0, 0},
                                           {1, 1, 32, 0, 0}, {1, 1, 1, 24, 0}, {1, 1, 1, 0, 60}};
  char acText[32] = "old";
  for (const UTIL_DATE& date : aRefused) {
    EXPECT_EQ(UTIL_FormatDate(acText, sizeof(acText), &date), -3);
  }
  EXPECT_EQ(UTIL_FormatDate(nullptr, sizeof(acText), &aCase[0].first), -1);
  EXPECT_EQ(UTIL_FormatDate(acText, sizeof(acText), nullptr), -1);
  EXPECT_STREQ(acText, "old");
}

TEST(FormatVersion, HasALetterAndDigitsForTheRevision) {
  GUARDED_BLOCK block;
  static constexpr std::pair<uint32_t, const char*> aCase[] = {
      {0, "0.00"}, {12001, "1.20a"}, {94226, "9.42z"}, {94227, "9.42z01"}, {94236, "9.42z10"}, {99999, "9.99z73"}};
  for (const auto& [version, text] : aCase) {
    char* pText = block.Take(8);
    UTIL_FormatVersion(pText, version);
    EXPECT_STREQ(pText, text);
  }
}

TEST(FormatFileError, TellsTheReasonAndLeavesTheErrorNumber) {
  static const std::pair<const char*, std::vector<int>> aReadOnlyCase[] = {
      {"\nFile has read only attribute!", {EACCES, EPERM, EROFS}},
      {"\nFile not found!", {ENOENT}},
      {"\nPath not found!", {ENOTDIR}},
      {"\nInvalid drive!", {ENXIO, ENODEV}},
      {"\nThe filename syntax is incorrect!", {EINVAL, ENAMETOOLONG, EILSEQ}},
      {"!", {0, EIO}},
  };
  std::string path = testing::TempDir() + "values_test_XXXXXX";
  const auto expect = [&path](int error, const std::string& reason) {
    const bool isReadOnly = reason.find("read only") != std::string::npos;
    ExpectText("Could not open file [" + path + "]" + reason, isReadOnly, [&](char* pBuffer, uint32_t size) {
      errno = error;
      const int32_t result = UTIL_FormatFileError(path.c_str(), "open", pBuffer, size);
      EXPECT_EQ(errno, error);
      return result;
    });
  };
  close(mkstemp(path.data()));
  chmod(path.c_str(), 0444);
  for (const auto& [reason, errors] : aReadOnlyCase) {
    for (int error : errors) {
      expect(error, reason);
    }
  }
  chmod(path.c_str(), 0600);
  expect(EACCES, "\nAccess is denied!");
  unlink(path.c_str());
  expect(EACCES, "\nAccess is denied!");
}

}  // namespace
