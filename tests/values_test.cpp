#include "util/values.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <tuple>
#include <vector>

#include "tests/support.h"

namespace {

using WRITER = std::function<int64_t(char* pBuffer, uint32_t size)>;

// Expects the result at every size of the buffer, as much of the text as it holds, and nothing outside it.
void ExpectText(const std::string& text, int64_t result, const WRITER& write) {
  GUARDED_BLOCK block;
  for (uint32_t size = 0; size <= text.size() + 2; size++) {
    char* pBuffer = block.Take(size);
    EXPECT_EQ(write(pBuffer, size), result) << text << " in " << size;
    EXPECT_TRUE(block.IsIntact()) << text << " in " << size;
    if (size != 0) {
      EXPECT_EQ(std::string_view(pBuffer), text.substr(0, size - 1)) << "in " << size;
    }
  }
}

std::string TextOf(const WRITER& write) {
  char acText[128];
  EXPECT_LT(write(acText, sizeof(acText)), static_cast<int64_t>(sizeof(acText)));
  return acText;
}

std::string SizeText(uint64_t numBytes) {
  return TextOf([=](char* pBuffer, uint32_t size) { return UTIL_FormatSize(numBytes, pBuffer, size); });
}

constexpr uint64_t KB = 1024;
constexpr uint64_t MB = KB * 1024;
constexpr uint64_t GB = MB * 1024;

TEST(FormatSize, GivesTheKnownTextsAtEveryBufferSize) {
  static const struct {
    uint64_t NumBytes;
    const char* pText;
  } aCase[] = {
      {0, "0 Bytes"},
      {1, "1 Byte"},
      {512, "512 Bytes"},
      {1023, "1023 Bytes"},
      {1025, "1025 Bytes"},
      {1536, "1.5 KB"},
      {512 * KB, "512 KB"},
      {MB + KB / 2, "1024.5 KB"},
      {MB + MB / 2, "1.5 MB"},
      {GB + GB / 2, "1.5 GB"},
      {3 * GB, "3 GB"},
      {4 * GB + 1, "4294967297 Bytes"},
      {4 * GB + KB, "4194305 KB"},
      {(uint64_t{1} << 52) + KB, "4398046511105 KB"},
      {(uint64_t{1} << 62) + MB / 2, "4398046511104.5 MB"},
      {(uint64_t{1} << 63) + GB / 2, "8589934592.5 GB"},
      {uint64_t{1} << 63, "8589934592 GB"},
      {0 - GB, "17179869183 GB"},
      {UINT64_MAX, "18446744073709551615 Bytes"},
  };
  for (const auto& test : aCase) {
    ExpectText(test.pText, static_cast<int64_t>(strlen(test.pText)),
               [&](char* pBuffer, uint32_t size) { return UTIL_FormatSize(test.NumBytes, pBuffer, size); });
  }
}

// The text says exactly the number, and no larger unit could have.
TEST(FormatSize, LosesNothingAndTakesTheLargestUnit) {
  static const std::map<std::string, uint64_t> units = {{"GB", GB}, {"MB", MB}, {"KB", KB}, {"Bytes", 1}, {"Byte", 1}};
  RANDOM random(33);
  for (int round = 0; round < 200000; round++) {
    const uint64_t numBytes = random.OneIn(2) ? random.Value() : uint64_t{random.Below(5000)} << random.Below(52);
    const std::string text = SizeText(numBytes);
    const size_t blank = text.find(' ');
    const size_t point = std::min(text.find('.'), blank);
    const uint64_t unit = units.at(text.substr(blank + 1));
    ASSERT_TRUE(point == blank || (unit != 1 && text.substr(point, blank - point) == ".5")) << text;
    ASSERT_EQ(std::stoull(text.substr(0, point)) * unit + (point == blank ? 0 : unit / 2), numBytes) << text;
    ASSERT_EQ(text.ends_with("Byte"), numBytes == 1);
    for (const auto& [name, larger] : units) {
      ASSERT_FALSE(larger > unit && numBytes >= larger && numBytes % (larger / 2) == 0) << text << " in " << name;
    }
  }
}

std::string Padded(uint64_t value, size_t numDigits) {
  const std::string digits = std::to_string(value);
  return std::string(numDigits - std::min(numDigits, digits.size()), '0') + digits;
}

// Takes the units off one after the other, the largest first.
std::string ModelOfDuration(uint64_t us) {
  const auto take = [&us](uint64_t unit) {
    const uint64_t count = us / unit;
    us -= count * unit;
    return count;
  };
  const uint64_t hours = take(3600000000);
  const uint64_t minutes = take(60000000);
  const uint64_t seconds = take(1000000);
  const uint64_t ms = take(1000);
  std::string text;
  if (hours != 0) {
    text = std::to_string(hours) + ":";
  }
  if (hours != 0 || minutes != 0) {
    text += Padded(minutes, hours != 0 ? 2 : 1) + ":";
  }
  return text + Padded(seconds, text.empty() ? 1 : 2) + "." + Padded(ms, 3) + " " + Padded(us, 3);
}

TEST(FormatDuration, MatchesTheModelUpTo64Bits) {
  RANDOM random(34);
  for (int round = 0; round < 20000; round++) {
    const uint64_t us = random.OneIn(2) ? random.Value() : random.Next64() >> (20 + random.Below(44));
    const WRITER write = [=](char* pBuffer, uint32_t size) { return UTIL_FormatDuration(us, pBuffer, size); };
    ASSERT_EQ(TextOf(write), ModelOfDuration(us));
  }
  static const std::pair<uint64_t, const char*> aCase[] = {
      {0, "0.000 000"},
      {59999999, "59.999 999"},
      {61000000, "1:01.000 000"},
      {3600000000, "1:00:00.000 000"},
      {3723004005, "1:02:03.004 005"},
      {UINT64_MAX, "5124095576:01:49.551 615"},
  };
  for (const auto& [us, text] : aCase) {
    ExpectText(text, static_cast<int64_t>(strlen(text)),
               [us = us](char* pBuffer, uint32_t size) { return UTIL_FormatDuration(us, pBuffer, size); });
  }
}

TEST(FormatNetmask, AcceptsOneRunOfLeadingOnesAndWritesAnyMask) {
  for (int32_t prefix = 0; prefix <= 32; prefix++) {
    const uint32_t mask = static_cast<uint32_t>(~uint64_t{0} << (32 - prefix));
    EXPECT_EQ(UTIL_FormatNetmask(mask, nullptr, 16), prefix == 0 || prefix == 32 ? -1 : prefix);
    for (int32_t bit = 0; bit < 32; bit++) {
      const uint32_t other = mask ^ 1U << bit;
      const bool isNext = bit == 32 - prefix - 1 && prefix != 31;
      const bool isLast = bit == 32 - prefix && prefix != 1;
      EXPECT_EQ(UTIL_FormatNetmask(other, nullptr, 0), isNext ? prefix + 1 : isLast ? prefix - 1 : -1) << other;
    }
  }
  static const std::tuple<uint32_t, int32_t, const char*> aCase[] = {
      {0, -1, "0.0.0.0"},
      {0x80000000, 1, "128.0.0.0"},
      {0xFFFFFF00, 24, "255.255.255.0"},
      {0xFF00FF00, -1, "255.0.255.0"},
      {0x01020304, -1, "1.2.3.4"},
      {0xFFFFFFFF, -1, "255.255.255.255"},
  };
  for (const auto& [mask, result, text] : aCase) {
    ExpectText(text, result,
               [mask = mask](char* pBuffer, uint32_t size) { return UTIL_FormatNetmask(mask, pBuffer, size); });
  }
}

TEST(FormatAddress, GivesTheKnownTextsAtEveryBufferSize) {
  static const uint8_t aAddr[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0xFF, 0xAB, 0xCD, 0xEF, 0x90, 1, 2, 3, 0xFE};
  static const std::tuple<const char*, int64_t, WRITER> aCase[] = {
      {"192.168.0.254", 13, [](char* p, uint32_t size) { return UTIL_FormatIPv4(0xFE00A8C0, p, size); }},
      {"255.255.255.255", 15, [](char* p, uint32_t size) { return UTIL_FormatIPv4(UINT32_MAX, p, size); }},
      {"1.2.3.200:80", 13, [](char* p, uint32_t size) { return UTIL_FormatIPv4Endpoint(0xC8030201, 80, p, size); }},
      {"0.0.0.0:4294967295", 19,
       [](char* p, uint32_t size) { return UTIL_FormatIPv4Endpoint(0, UINT32_MAX, p, size); }},
      {"2001:0DB8:0000:00FF:ABCD:EF90:0102:03FE", 39,
       [](char* p, uint32_t size) { return UTIL_FormatIPv6(aAddr, p, size); }},
      {"20:01:0D:B8:00:00", 17, [](char* p, uint32_t size) { return UTIL_FormatHWAddr(aAddr, ':', p, size); }},
  };
  for (const auto& [text, result, write] : aCase) {
    ExpectText(text, result, write);
  }
}

TEST(FormatRegionSizes, MatchesTheModelAtEveryBufferSize) {
  RANDOM random(35);
  for (int round = 0; round < 300; round++) {
    std::vector<std::vector<UTIL_BLOCK_RUN>> regions(random.Below(5));
    std::vector<const UTIL_BLOCK_RUN*> pointers;
    uint64_t total = 0;
    std::string text;
    for (auto& region : regions) {
      uint64_t numBytes = 0;
      for (uint32_t run = random.Below(4); run > 0; run--) {
        region.push_back({random.Next32() >> random.Below(31) | 1, random.Next32() >> random.Below(32), 7});
        numBytes += uint64_t{region.back().Count} * region.back().BlockSize;
      }
      const bool isAbsent = region.empty() && random.OneIn(2);
      region.push_back({0, 4096, 7});
      pointers.push_back(isAbsent ? nullptr : region.data());
      text += (text.empty() ? "" : " + ") + SizeText(numBytes);
      total += numBytes;
    }
    ExpectText(text.empty() ? "-" : text, static_cast<uint32_t>(total), [&](char* pBuffer, uint32_t size) {
      return UTIL_FormatRegionSizes(pointers.data(), static_cast<uint32_t>(pointers.size()), pBuffer, size);
    });
  }
}

TEST(FormatRegionSizes, GivesTheTotalWithoutABufferAndWrapsItAlone) {
  static const UTIL_BLOCK_RUN aLarge[] = {{3, 0x40000000, 0}, {2, 0x40000000, 0}, {0, 0, 0}};
  static const UTIL_BLOCK_RUN aSmall[] = {{4, 16384, 0}, {0, 0, 0}};
  static const UTIL_BLOCK_RUN* const apRegions[] = {aLarge, aSmall};
  char acText[64];
  EXPECT_EQ(UTIL_FormatRegionSizes(apRegions, 2, nullptr, 0), 0x40010000U);
  EXPECT_EQ(UTIL_FormatRegionSizes(apRegions, 2, acText, sizeof(acText)), 0x40010000U);
  EXPECT_STREQ(acText, "5 GB + 64 KB");
  EXPECT_EQ(UTIL_FormatRegionSizes(nullptr, 0, acText, 16), 0U);
  EXPECT_STREQ(acText, "-");
}

TEST(FormatHex, WritesFixedWidthsInEitherCase) {
  RANDOM random(36);
  for (int round = 0; round < 500; round++) {
    const uint64_t value = random.Value();
    const std::string digits = DigitsOf(value, 16);
    const std::string wide = std::string(16 - digits.size(), '0') + digits;
    const std::string fitting = wide.starts_with("00000000") ? wide.substr(8) : wide;
    std::string lower = fitting;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return c >= 'A' ? c - 'A' + 'a' : c; });
    const auto length = static_cast<int64_t>(fitting.size());
    ExpectText(wide.substr(8), 8, [&](char* pBuffer, uint32_t size) {
      return UTIL_FormatHex32(pBuffer, size, static_cast<uint32_t>(value));
    });
    ExpectText(wide, 16, [&](char* pBuffer, uint32_t size) { return UTIL_FormatHex64(pBuffer, size, value); });
    ExpectText("0x" + fitting, length + 2,
               [&](char* pBuffer, uint32_t size) { return UTIL_FormatHexPrefixed(pBuffer, size, value); });
    for (const auto& [flags, text] :
         std::map<uint32_t, std::string>{{0, "0x" + fitting},
                                         {UTIL_HEX_NO_PREFIX, fitting},
                                         {UTIL_HEX_LOWER_CASE, "0x" + lower},
                                         {UTIL_HEX_NO_PREFIX | UTIL_HEX_LOWER_CASE, lower}}) {
      ExpectText(text, static_cast<int64_t>(text.size()), [&, flags = flags](char* pBuffer, uint32_t size) {
        return UTIL_FormatHexValue(pBuffer, size, value, flags);
      });
    }
  }
}

constexpr const char* aMonth[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

TEST(FormatDate, WritesWhatIsInRangeAndTellsWhenItWasCut) {
  static const std::pair<UTIL_DATE, const char*> aCase[] = {
      {{2026, 5, 6, 12, 32}, "06. May 2026 12:32"},
      {{1, 1, 1, 0, 0}, "01. Jan    1 00:00"},
      {{9999, 2, 31, 23, 59}, "31. Feb 9999 23:59"},
      {{UINT16_MAX, 12, 31, 0, 1}, "31. Dec 65535 00:01"},
  };
  for (const auto& [date, text] : aCase) {
    const auto length = static_cast<uint32_t>(strlen(text));
    ExpectText(text, 1, [&, pDate = &date](char* pBuffer, uint32_t size) {
      return UTIL_FormatDate(pBuffer, size, pDate) == (size > length ? static_cast<int32_t>(length) : -2);
    });
  }
  for (uint16_t month = 1; month <= 12; month++) {
    const UTIL_DATE date = {2000, month, 10, 1, 2};
    EXPECT_EQ(TextOf([&](char* p, uint32_t size) { return UTIL_FormatDate(p, size, &date); }),
              std::string("10. ") + aMonth[month - 1] + " 2000 01:02");
  }
}

TEST(FormatDate, RefusesOtherArgumentsWithoutWriting) {
  static const UTIL_DATE aCase[] = {
      {0, 1, 1, 0, 0},    {2026, 0, 1, 0, 0},  {2026, 13, 1, 0, 0}, {2026, 65535, 1, 0, 0},
      {2026, 1, 0, 0, 0}, {2026, 1, 32, 0, 0}, {2026, 1, 1, 24, 0}, {2026, 1, 1, 0, 60},
  };
  char acText[32] = "old";
  for (const UTIL_DATE& date : aCase) {
    EXPECT_EQ(UTIL_FormatDate(acText, sizeof(acText), &date), -3);
    EXPECT_EQ(UTIL_FormatDate(nullptr, sizeof(acText), &date), -1);
  }
  EXPECT_EQ(UTIL_FormatDate(acText, sizeof(acText), nullptr), -1);
  EXPECT_STREQ(acText, "old");
}

TEST(FormatFirmwareDate, ChecksTheMonthAlone) {
  static const std::tuple<uint32_t, int32_t, const char*> aCase[] = {
      {20260506, 0, "2026 May 06"},
      {20261299, 0, "2026 Dec 99"},
      {100, 0, "0000 Jan 00"},
      {4294960131, 0, "429496 Jan 31"},
      {0, -1, "(FW returned invalid version)"},
      {20261301, -1, "(FW returned invalid version)"},
      {20260031, -1, "(FW returned invalid version)"},
  };
  for (const auto& [date, result, text] : aCase) {
    ExpectText(text, result,
               [date = date](char* pBuffer, uint32_t size) { return UTIL_FormatFirmwareDate(date, pBuffer, size); });
    EXPECT_EQ(UTIL_FormatFirmwareDate(date, nullptr, 16), result);
  }
}

// Counts versions up one by one, as their maker would.
TEST(FormatVersion, MatchesTheModelForAllVersions) {
  GUARDED_BLOCK block;
  int32_t numWrong = 0;
  std::string revision;
  for (uint32_t version = 0; version < 100000; version++) {
    const uint32_t step = version % 100;
    if (step == 0) {
      revision.clear();
    } else if (step == 1) {
      revision = "a";
    } else if (step <= 26) {
      revision[0]++;
    } else if (step == 27) {
      revision = "z01";
    } else {
      revision = "z" + Padded(std::stoull(revision.substr(1)) + 1, 2);
    }
    const std::string digits = Padded(version, 5);
    char* pText = block.Take(8);
    UTIL_FormatVersion(pText, version);
    numWrong += pText != digits.substr(0, 1) + "." + digits.substr(1, 2) + revision || !block.IsIntact();
  }
  EXPECT_EQ(numWrong, 0);
  static const std::pair<uint32_t, const char*> aCase[] = {
      {94200, "9.42"}, {94201, "9.42a"}, {94226, "9.42z"}, {94227, "9.42z01"}, {94299, "9.42z73"}};
  for (const auto& [version, text] : aCase) {
    char acText[8];
    UTIL_FormatVersion(acText, version);
    EXPECT_STREQ(acText, text);
  }
}

// A directory with a file in it, both writable at first.
class FormatFileError : public testing::Test {
 protected:
  FormatFileError() {
    std::string pattern = testing::TempDir() + "values_test_XXXXXX";
    Dir = mkdtemp(pattern.data());
    File = Dir + "/file";
    std::ofstream(File) << "text";
  }
  ~FormatFileError() override { std::filesystem::remove_all(Dir); }

  // Expects the message, the result and an error number that is left alone.
  static void Expect(const std::string& path, const char* verb, const std::string& reason, int32_t result) {
    const int error = errno;
    const std::string text = std::string("Could not ") + verb + " file [" + path + "]" + reason;
    ExpectText(text, result, [&](char* pBuffer, uint32_t size) {
      errno = error;
      const int32_t isReadOnly = UTIL_FormatFileError(path.c_str(), verb, pBuffer, size);
      EXPECT_EQ(errno, error);
      return isReadOnly;
    });
  }

  std::string Dir;
  std::string File;
};

constexpr char DENIED[] = "\nAccess is denied!";
constexpr char READ_ONLY[] = "\nFile has read only attribute!";
constexpr char NO_DRIVE[] = "\nInvalid drive!";
constexpr char NOT_A_NAME[] = "\nThe filename syntax is incorrect!";

TEST_F(FormatFileError, TellsWhyARealOperationFailed) {
  ASSERT_LT(open((Dir + "/missing").c_str(), O_RDONLY), 0);
  Expect(Dir + "/missing", "open", "\nFile not found!", 0);
  ASSERT_LT(open((Dir + "/missing/file").c_str(), O_RDONLY), 0);
  Expect(Dir + "/missing/file", "open", "\nFile not found!", 0);
  ASSERT_LT(open((File + "/file").c_str(), O_RDONLY), 0);
  Expect(File + "/file", "open", "\nPath not found!", 0);
  ASSERT_LT(open(Dir.c_str(), O_WRONLY), 0);
  Expect(Dir, "write", "!", 0);
  char acTarget[8];
  ASSERT_LT(readlink(File.c_str(), acTarget, sizeof(acTarget)), 0);
  Expect(File, "read", NOT_A_NAME, 0);
  const std::string longName = Dir + "/" + std::string(300, 'x');
  ASSERT_LT(open(longName.c_str(), O_RDONLY), 0);
  Expect(longName, "create", NOT_A_NAME, 0);
  const std::string pipe = Dir + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  ASSERT_LT(open(pipe.c_str(), O_WRONLY | O_NONBLOCK), 0);
  Expect(pipe, "open", NO_DRIVE, 0);
}

// Running a file without permission to do so is refused to everybody, the superuser included.
TEST_F(FormatFileError, TellsReadOnlyFilesFromDeniedAccess) {
  ASSERT_EQ(chmod(File.c_str(), 0600), 0);
  ASSERT_LT(access(File.c_str(), X_OK), 0);
  Expect(File, "run", DENIED, 0);
  ASSERT_EQ(chmod(File.c_str(), 0444), 0);
  ASSERT_LT(access(File.c_str(), X_OK), 0);
  Expect(File, "run", READ_ONLY, 1);
  errno = EACCES;
  Expect(Dir + "/missing", "open", DENIED, 0);
  errno = EACCES;
  Expect("/dev/null", "open", DENIED, 0);
  errno = EACCES;
  Expect(Dir, "write", DENIED, 0);
}

TEST_F(FormatFileError, TranslatesErrorNumbers) {
  ASSERT_EQ(chmod(File.c_str(), 0444), 0);
  static const std::pair<int, const char*> aCase[] = {
      {0, "!"},
      {ENOENT, "\nFile not found!"},
      {ENOTDIR, "\nPath not found!"},
      {EACCES, READ_ONLY},
      {EPERM, READ_ONLY},
      {EROFS, READ_ONLY},
      {ENXIO, NO_DRIVE},
      {ENODEV, NO_DRIVE},
      {EINVAL, NOT_A_NAME},
      {ENAMETOOLONG, NOT_A_NAME},
      {EILSEQ, NOT_A_NAME},
      {EIO, "!"},
      {ENOSPC, "!"},
      {3, "!"},
      {123, "!"},
  };
  for (const auto& [error, reason] : aCase) {
    errno = error;
    Expect(File, "open", reason, reason == READ_ONLY);
  }
}

}  // namespace
