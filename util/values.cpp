// Texts of values, all through the full engine. That one takes numbers as 32 bits: a number that may be wider is put
// into digits by the compact engine first and goes in as a text. Nothing is kept between calls.

#include "util/values.h"

#include <errno.h>

#include <algorithm>
#include <bit>
#include <iterator>

#include "sys/local_time.h"
#include "sys/sys_dir.h"
#include "util/fmt.h"
#include "util/printf.h"
#include "util/strings.h"

namespace {

struct SIZE_UNIT {
  uint32_t NumBits;  // The unit is 2 to the power of this.
  const char* pName;
};

constexpr SIZE_UNIT SIZE_UNITS[] = {{30, "GB"}, {20, "MB"}, {10, "KB"}};

constexpr uint64_t US_PER_MS = 1000;
constexpr uint64_t US_PER_S = 1000 * US_PER_MS;
constexpr uint64_t US_PER_MINUTE = 60 * US_PER_S;
constexpr uint64_t US_PER_HOUR = 60 * US_PER_MINUTE;

constexpr uint32_t MAX_SIZE_TEXT = 64;

constexpr char DENIED[] = "\nAccess is denied!";
constexpr char NOT_A_NAME[] = "\nThe filename syntax is incorrect!";
constexpr char NO_DRIVE[] = "\nInvalid drive!";

// Why file operations fail, as far as a user can do something about it.
struct FILE_ERROR {
  int32_t Error;
  const char* pReason;
};

constexpr FILE_ERROR FILE_ERRORS[] = {
    {ENOENT, "\nFile not found!"},
    {ENOTDIR, "\nPath not found!"},
    {EACCES, DENIED},
    {EPERM, DENIED},
    {EROFS, DENIED},
    {ENXIO, NO_DRIVE},
    {ENODEV, NO_DRIVE},
    {EINVAL, NOT_A_NAME},
    {ENAMETOOLONG, NOT_A_NAME},
    {EILSEQ, NOT_A_NAME},
};

// The digits of a number of 64 bits.
class NUMBER_TEXT {
 public:
  explicit NUMBER_TEXT(uint64_t value) { FMT_snprintf(acDigits, sizeof(acDigits), "%llu", value); }
  const char* Get() const { return acDigits; }

 private:
  char acDigits[24];
};

}  // namespace

int32_t UTIL_FormatSize(uint64_t numBytes, char* pBuffer, uint32_t size) {
  for (const SIZE_UNIT& unit : SIZE_UNITS) {
    const uint64_t numHalves = numBytes >> (unit.NumBits - 1);
    if (numHalves >= 2 && numHalves << (unit.NumBits - 1) == numBytes) {
      const char* fraction = numHalves % 2 == 0 ? "" : ".5";
      return UTIL_snprintf(pBuffer, size, "%s%s %s", NUMBER_TEXT(numHalves / 2).Get(), fraction, unit.pName);
    }
  }
  return UTIL_snprintf(pBuffer, size, "%s Byte%s", NUMBER_TEXT(numBytes).Get(), numBytes == 1 ? "" : "s");
}

int32_t UTIL_FormatDuration(uint64_t microseconds, char* pBuffer, uint32_t size) {
  const uint64_t numHours = microseconds / US_PER_HOUR;
  const uint32_t minutes = static_cast<uint32_t>(microseconds / US_PER_MINUTE % 60);
  const uint32_t s = static_cast<uint32_t>(microseconds / US_PER_S % 60);
  const uint32_t ms = static_cast<uint32_t>(microseconds / US_PER_MS % 1000);
  const uint32_t us = static_cast<uint32_t>(microseconds % 1000);
  if (numHours != 0) {
    return UTIL_snprintf(pBuffer, size, "%s:%02u:%02u.%03u %03u", NUMBER_TEXT(numHours).Get(), minutes, s, ms, us);
  }
  if (minutes != 0) {
    return UTIL_snprintf(pBuffer, size, "%u:%02u.%03u %03u", minutes, s, ms, us);
  }
  return UTIL_snprintf(pBuffer, size, "%u.%03u %03u", s, ms, us);
}

int32_t UTIL_FormatNetmask(uint32_t netmask, char* pBuffer, uint32_t size) {
  if (pBuffer != nullptr) {
    UTIL_FormatIPv4(__builtin_bswap32(netmask), pBuffer, size);
  }
  const int numOnes = std::countl_one(netmask);
  const bool isPrefix = numOnes >= 1 && numOnes <= 31 && netmask << numOnes == 0;
  return isPrefix ? numOnes : -1;
}

int32_t UTIL_FormatIPv4(uint32_t addr, char* pBuffer, uint32_t size) {
  return UTIL_snprintf(pBuffer, size, "%u.%u.%u.%u", addr & 0xFF, addr >> 8 & 0xFF, addr >> 16 & 0xFF, addr >> 24);
}

int32_t UTIL_FormatIPv4Endpoint(uint32_t addr, uint32_t port, char* pBuffer, uint32_t size) {
  return 1 + UTIL_snprintf(pBuffer, size, "%u.%u.%u.%u:%u", addr & 0xFF, addr >> 8 & 0xFF, addr >> 16 & 0xFF,
                           addr >> 24, port);
}

int32_t UTIL_FormatIPv6(const uint8_t* pAddr, char* pBuffer, uint32_t size) {
  return UTIL_snprintf(pBuffer, size, "%02X%02X:%02X%02X:%02X%02X:%02X%02X:%02X%02X:%02X%02X:%02X%02X:%02X%02X",
                       pAddr[0], pAddr[1], pAddr[2], pAddr[3], pAddr[4], pAddr[5], pAddr[6], pAddr[7], pAddr[8],
                       pAddr[9], pAddr[10], pAddr[11], pAddr[12], pAddr[13], pAddr[14], pAddr[15]);
}

int32_t UTIL_FormatHWAddr(const uint8_t* pAddr, char separator, char* pBuffer, uint32_t size) {
  return UTIL_snprintf(pBuffer, size, "%02X%c%02X%c%02X%c%02X%c%02X%c%02X", pAddr[0], separator, pAddr[1], separator,
                       pAddr[2], separator, pAddr[3], separator, pAddr[4], separator, pAddr[5]);
}

namespace {

uint64_t SizeOfRegion(const UTIL_BLOCK_RUN* pRun) {
  uint64_t numBytes = 0;
  for (; pRun != nullptr && pRun->Count != 0; pRun++) {
    numBytes += uint64_t{pRun->Count} * pRun->BlockSize;
  }
  return numBytes;
}

}  // namespace

uint32_t UTIL_FormatRegionSizes(const UTIL_BLOCK_RUN* const* apRegions, uint32_t numRegions, char* pBuffer,
                                uint32_t size) {
  if (numRegions == 0) {
    UTIL_CopyString(pBuffer, "-", size);
    return 0;
  }
  uint32_t total = 0;
  uint32_t used = 0;
  for (uint32_t i = 0; i < numRegions; i++) {
    const uint64_t numBytes = SizeOfRegion(apRegions[i]);
    total += static_cast<uint32_t>(numBytes);
    char acSize[MAX_SIZE_TEXT];
    UTIL_FormatSize(numBytes, acSize, sizeof(acSize));
    used += static_cast<uint32_t>(UTIL_snprintf(pBuffer + used, size - used, "%s%s", i == 0 ? "" : " + ", acSize));
    used = std::min(used, size);  // From there on texts find no room at all.
  }
  return total;
}

int32_t UTIL_FormatHex32(char* pBuffer, uint32_t size, uint32_t value) {
  return UTIL_snprintf(pBuffer, size, "%08X", value);
}

int32_t UTIL_FormatHex64(char* pBuffer, uint32_t size, uint64_t value) {
  return UTIL_snprintf(pBuffer, size, "%08X%08X", static_cast<uint32_t>(value >> 32), static_cast<uint32_t>(value));
}

namespace {

void ToLower(char* s) {
  for (; *s != '\0'; s++) {
    if (*s >= 'A' && *s <= 'Z') {
      *s = static_cast<char>(*s - 'A' + 'a');
    }
  }
}

}  // namespace

int32_t UTIL_FormatHexValue(char* pBuffer, uint32_t size, uint64_t value, uint32_t flags) {
  const char* prefix = (flags & UTIL_HEX_NO_PREFIX) != 0 ? "" : "0x";
  const uint32_t upper = static_cast<uint32_t>(value >> 32);
  const uint32_t lower = static_cast<uint32_t>(value);
  const int32_t length = upper != 0 ? UTIL_snprintf(pBuffer, size, "%s%08X%08X", prefix, upper, lower)
                                    : UTIL_snprintf(pBuffer, size, "%s%08X", prefix, lower);
  if ((flags & UTIL_HEX_LOWER_CASE) != 0 && size != 0) {
    ToLower(pBuffer);
  }
  return length;
}

int32_t UTIL_FormatHexPrefixed(char* pBuffer, uint32_t size, uint64_t value) {
  return UTIL_FormatHexValue(pBuffer, size, value, 0);
}

namespace {

bool IsMonth(uint32_t month) {
  return month >= 1 && month <= std::size(TIME_MONTHS);
}

bool IsDate(const UTIL_DATE& date) {
  return date.Year != 0 && IsMonth(date.Month) && date.Day >= 1 && date.Day <= 31 && date.Hour <= 23 &&
         date.Minute <= 59;
}

}  // namespace

int32_t UTIL_FormatDate(char* pBuffer, uint32_t size, const UTIL_DATE* pDate) {
  if (pBuffer == nullptr || pDate == nullptr) {
    return -1;
  }
  if (!IsDate(*pDate)) {
    return -3;
  }
  const int32_t length = UTIL_snprintf(pBuffer, size, "%02u. %s %4u %02u:%02u", pDate->Day,
                                       TIME_MONTHS[pDate->Month - 1], pDate->Year, pDate->Hour, pDate->Minute);
  return static_cast<uint32_t>(length) < size ? length : -2;
}

int32_t UTIL_FormatFirmwareDate(uint32_t date, char* pBuffer, uint32_t size) {
  const uint32_t month = date / 100 % 100;
  if (!IsMonth(month)) {
    UTIL_CopyString(pBuffer, "(FW returned invalid version)", size);
    return -1;
  }
  if (pBuffer != nullptr) {
    UTIL_snprintf(pBuffer, size, "%04u %s %02u", date / 10000, TIME_MONTHS[month - 1], date % 100);
  }
  return 0;
}

namespace {

const char* ReasonFor(int32_t error) {
  for (const FILE_ERROR& entry : FILE_ERRORS) {
    if (entry.Error == error) {
      return entry.pReason;
    }
  }
  return "!";
}

bool IsReadOnly(const char* fileName) {
  const int32_t attributes = SYS_FILE_GetAttributes(fileName);
  return attributes != -1 && (attributes & SYS_FILE_ATTR_READ_ONLY) != 0;
}

}  // namespace

int32_t UTIL_FormatFileError(const char* fileName, const char* verb, char* pBuffer, uint32_t size) {
  const int32_t error = SYS_GetLastError();
  const char* pReason = ReasonFor(error);
  const bool isReadOnly = pReason == DENIED && IsReadOnly(fileName);
  UTIL_snprintf(pBuffer, size, "Could not %s file [%s]%s", verb, fileName,
                isReadOnly ? "\nFile has read only attribute!" : pReason);
  errno = error;  // Looking at the attributes may have failed in its turn.
  return isReadOnly;
}

void UTIL_FormatVersion(char* pBuffer, uint32_t version) {
  const auto putDigit = [&pBuffer](uint32_t digit) { *pBuffer++ = static_cast<char>('0' + digit); };
  putDigit(version / 10000);
  *pBuffer++ = '.';
  putDigit(version / 1000 % 10);
  putDigit(version / 100 % 10);
  const uint32_t revision = version % 100;
  if (revision > 26) {
    *pBuffer++ = 'z';
    putDigit((revision - 26) / 10);
    putDigit((revision - 26) % 10);
  } else if (revision != 0) {
    *pBuffer++ = static_cast<char>('a' + revision - 1);
  }
  *pBuffer = '\0';
}
