// Owns the starting points of the two tick counts. Readings stay in nanoseconds up to the last step, which cuts them to
// the unit asked for. Sleeping is common to the platforms: the one primitive that sleeps until a moment, and would not
// need the remainder, is missing on one of them.

#include "sys/sys_time.h"

#include <errno.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <iterator>

#include "sys/local_time.h"
#include "sys/platform.h"

namespace {

// Reading of the clock when the count started; 0 until then. Nothing else depends on them, so relaxed order is enough.
std::atomic<uint64_t> tickBaseUs;
std::atomic<uint64_t> tickBaseMs;

constexpr uint64_t NS_PER_US = 1000;
constexpr uint64_t NS_PER_MS = 1000 * NS_PER_US;
constexpr uint64_t NS_PER_S = 1000 * NS_PER_MS;

constexpr int YEAR_BASE = 1900;

constexpr uint32_t DATE_TIME_CHARS = 20;

uint64_t ReadClockNs() {
  return PLATFORM_ClockToNs(PLATFORM_ReadClock());
}

// Returns the time from base to now, and starts the count at now unless it has started. The thread that started it may
// have read the clock later than this one: then no time has passed yet, which must not come out as a wrapped number.
uint64_t CountFrom(std::atomic<uint64_t>& base, uint64_t now) {
  uint64_t start = base.load(std::memory_order_relaxed);
  if (start == 0 && base.compare_exchange_strong(start, now, std::memory_order_relaxed)) {
    return 0;
  }
  return now > start ? now - start : 0;
}

void FillTime(const struct tm* pParts, SYS_TIME* pTime) {
  *pTime = {};
  if (pParts == nullptr || pParts->tm_year < -YEAR_BASE || pParts->tm_year > UINT16_MAX - YEAR_BASE) {
    return;
  }
  pTime->Year = static_cast<uint16_t>(pParts->tm_year + YEAR_BASE);
  pTime->Month = static_cast<uint16_t>(pParts->tm_mon + 1);
  pTime->Day = static_cast<uint16_t>(pParts->tm_mday);
  pTime->Hour = static_cast<uint16_t>(pParts->tm_hour);
  pTime->Minute = static_cast<uint16_t>(pParts->tm_min);
  pTime->Second = static_cast<uint16_t>(pParts->tm_sec);
}

// Returns 1 to 12, or 0.
uint32_t FindMonth(const char* text) {
  for (uint32_t month = 1; month <= std::size(TIME_MONTHS); month++) {
    if (memcmp(text, TIME_MONTHS[month - 1], 3) == 0) {
      return month;
    }
  }
  return 0;
}

// Characters are signed here on all machines; numbers wrap when a character is no digit.
constexpr uint32_t Digit(char c) {
  return static_cast<uint32_t>(static_cast<int8_t>(c) - '0');
}

constexpr uint32_t TwoDigits(const char* s) {
  return Digit(s[0]) * 10 + Digit(s[1]);
}

constexpr uint32_t OneOrTwoDigits(const char* s) {
  return s[0] == ' ' ? Digit(s[1]) : TwoDigits(s);
}

}  // namespace

uint64_t SYS_GetTickUs(void) {
  return CountFrom(tickBaseUs, ReadClockNs() / NS_PER_US);
}

uint64_t SYS_GetElapsedUs(uint64_t t0) {
  return SYS_GetTickUs() - t0;
}

uint32_t SYS_GetTickMs(void) {
  return static_cast<uint32_t>(CountFrom(tickBaseMs, ReadClockNs() / NS_PER_MS));
}

uint64_t SYS_GetTimeMs(void) {
  return ReadClockNs() / NS_PER_MS;
}

void SYS_Sleep(uint32_t milliseconds) {
  const int error = errno;
  const uint64_t startNs = ReadClockNs();
  CountFrom(tickBaseUs, startNs / NS_PER_US);
  const uint64_t durationNs = milliseconds * NS_PER_MS;
  uint64_t elapsedNs = 0;
  do {
    const uint64_t leftNs = durationNs - elapsedNs;
    const timespec left = {static_cast<time_t>(leftNs / NS_PER_S), static_cast<long>(leftNs % NS_PER_S)};
    if (nanosleep(&left, nullptr) == 0 || errno != EINTR) {
      break;
    }
    // What nanosleep reports as left does not count the time that signal handlers took.
    elapsedNs = ReadClockNs() - startNs;
  } while (elapsedNs < durationNs);
  errno = error;
}

void TIME_FillLocal(time_t seconds, SYS_TIME* pTime) {
  struct tm parts;
  FillTime(localtime_r(&seconds, &parts), pTime);
}

void SYS_GetLocalTime(SYS_TIME* pTime) {
  if (pTime != nullptr) {
    tzset();  // The re-entrant conversion itself need not look at the zone again.
    TIME_FillLocal(time(nullptr), pTime);
  }
}

void SYS_GetUTCTime(SYS_TIME* pTime) {
  if (pTime != nullptr) {
    const time_t seconds = time(nullptr);
    struct tm parts;
    FillTime(gmtime_r(&seconds, &parts), pTime);
  }
}

int32_t SYS_ParseDateTime(const char* text, uint32_t* pDate, uint32_t* pTime) {
  char acText[DATE_TIME_CHARS];
  memset(acText, '0', sizeof(acText));
  memcpy(acText, text, strnlen(text, sizeof(acText)));
  if (pDate != nullptr) {
    const uint32_t month = FindMonth(acText);
    if (month == 0) {
      return -1;
    }
    *pDate = TwoDigits(acText + 9) * 10000 + month * 100 + OneOrTwoDigits(acText + 4);
  }
  if (pTime != nullptr) {
    *pTime = OneOrTwoDigits(acText + 12) * 10000 + TwoDigits(acText + 15) * 100 + TwoDigits(acText + 18);
  }
  return 0;
}

int32_t SYS_GetNumCPUs(void) {
  return std::max(PLATFORM_GetNumCPUs(), 1);
}
