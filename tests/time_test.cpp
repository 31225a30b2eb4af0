#include "sys/sys_time.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <time.h>
#ifdef __linux__
#include <sys/syscall.h>
#endif

#include <atomic>
#include <functional>
#include <utility>

#include "sys/local_time.h"
#include "sys/platform.h"
#include "tests/faults.h"
#include "tests/sandbox.h"
#include "tests/support.h"

namespace {

constexpr uint64_t NS_PER_MS = 1000000;
constexpr uint64_t NS_PER_S = 1000000000;

// A monotonic clock that only sleeping moves, in place of the platform's once it is on. It stays on: cases run it in a
// fresh process.
struct {
  bool IsOn;
  uint64_t NowNs;
  std::function<void()> AfterRead;                  // Runs once, between a reading and its use.
  std::function<int(uint64_t durationNs)> OnSleep;  // Returns the error number of a sleep, 0 for none.
} fake;

}  // namespace

// The program's own definitions come before the C library's, as long as that is a shared library.
#ifdef __linux__

extern "C" int clock_gettime(clockid_t clock, timespec* pNow) noexcept {
  if (!fake.IsOn || clock != CLOCK_MONOTONIC) {
    return static_cast<int>(syscall(SYS_clock_gettime, clock, pNow));
  }
  *pNow = {static_cast<time_t>(fake.NowNs / NS_PER_S), static_cast<long>(fake.NowNs % NS_PER_S)};
  if (fake.AfterRead) {
    std::exchange(fake.AfterRead, nullptr)();
  }
  return 0;
}

extern "C" int nanosleep(const timespec* pDuration, timespec* pLeft) {
  if (!fake.IsOn) {
    return static_cast<int>(syscall(SYS_nanosleep, pDuration, pLeft));
  }
  errno = fake.OnSleep(static_cast<uint64_t>(pDuration->tv_sec) * NS_PER_S + static_cast<uint64_t>(pDuration->tv_nsec));
  return errno == 0 ? 0 : -1;
}

#endif

namespace {

// Runs body where nobody has asked for the time yet: all cases that do ask run this way, so that this process has not.
void RunInFreshProcess(const std::function<void()>& body) {
  EXPECT_EQ(RunUnprivileged([&] { return body(), testing::Test::HasFailure(); }), 0);
}

TEST(MonotonicClock, ConvertsTicksOfAnyLengthExactly) {
  __extension__ using WIDE = unsigned __int128;
  RANDOM random(51);
  for (int round = 0; round < 100000; round++) {
    const uint32_t numerator = random.Next32() >> random.Below(32);
    const uint32_t denominator = random.OneIn(50) ? 0 : random.Next32() >> random.Below(32);
    const uint64_t numTicks = random.Value();
    const WIDE ns = denominator == 0 ? WIDE{numTicks} : WIDE{numTicks} * numerator / denominator;
    if (ns <= UINT64_MAX) {
      ASSERT_EQ(PLATFORM_ClockToNs({numTicks, numerator, denominator}), static_cast<uint64_t>(ns))
          << numTicks << " * " << numerator << " / " << denominator;
    }
  }
}

// The fake clock takes any part of a sleep before a signal ends it, or more than all when the handler takes its time.
void CheckSleep(RANDOM& random) {
  const auto ms = static_cast<uint32_t>(random.Value());
  const uint64_t endNs = fake.NowNs + ms * NS_PER_MS;
  fake.OnSleep = [&](uint64_t durationNs) {
    EXPECT_LE(durationNs, ms * NS_PER_MS);
    EXPECT_EQ(fake.NowNs + durationNs, endNs);
    const bool isInterrupted = !random.OneIn(10);
    fake.NowNs += isInterrupted ? random.Next64() % (durationNs + 1000) : durationNs;
    return isInterrupted ? EINTR : 0;
  };
  errno = ENOENT;
  SYS_Sleep(ms);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_GE(fake.NowNs, endNs);
}

TEST(TickCounts, RunFromTheirFirstUseEachByItself) {
  FAULTS_REQUIRE();
  for (uint32_t round = 0; round < 50; round++) {
    RunInFreshProcess([round] {
      RANDOM random(round);
      fake.IsOn = true;
      fake.NowNs = NS_PER_S;
      uint64_t baseUs = 0;
      if (random.OneIn(2)) {
        // A thread that has read the clock before the one that starts the count, and goes on after it, counts no time.
        fake.AfterRead = [] {
          fake.NowNs += NS_PER_S;
          EXPECT_EQ(SYS_GetTickUs(), 0U);
        };
        EXPECT_EQ(SYS_GetTickUs(), 0U);
        baseUs = fake.NowNs / 1000;
      }
      uint64_t baseMs = 0;
      for (int step = 0; step < 30; step++) {
        fake.NowNs += random.Next64() >> (8 + random.Below(56));  // Within a unit, or past 32 bits of milliseconds.
        const uint64_t us = fake.NowNs / 1000;
        const uint64_t ms = fake.NowNs / NS_PER_MS;
        const uint32_t call = random.Below(5);
        baseUs = call > 1 && baseUs == 0 ? us : baseUs;
        baseMs = call == 1 && baseMs == 0 ? ms : baseMs;
        if (call == 4) {
          CheckSleep(random);
          continue;
        }
        const uint64_t aExpected[] = {ms, static_cast<uint32_t>(ms - baseMs), us - baseUs, us - baseUs - 7};
        EXPECT_EQ(call == 0   ? SYS_GetTimeMs()
                  : call == 1 ? SYS_GetTickMs()
                  : call == 2 ? SYS_GetTickUs()
                              : SYS_GetElapsedUs(7),
                  aExpected[call]);
      }
      int numSleeps = 0;
      fake.OnSleep = [&](uint64_t) { return ++numSleeps == 1 ? EINVAL : 0; };
      SYS_Sleep(10);
      EXPECT_EQ(numSleeps, 1) << "it is refused, not interrupted";
    });
  }
}

TEST(TickCounts, AgreeAmongThreadsThatStartThem) {
  RunInFreshProcess([] {
    std::atomic<int> numWaiting{4};
    RunThreads(numWaiting, [&](int) {
      for (numWaiting--; numWaiting != 0;) {
      }
      uint64_t lastUs = 0;
      uint32_t lastMs = 0;
      for (int n = 0; n < 2000; n++) {
        const uint64_t us = SYS_GetTickUs();
        const uint32_t ms = SYS_GetTickMs();
        EXPECT_GE(us, lastUs);
        EXPECT_GE(ms, lastMs);
        lastUs = us;
        lastMs = ms;
      }
    });
  });
}

bool AreEqual(const SYS_TIME& a, const SYS_TIME& b) {
  return memcmp(&a, &b, sizeof(a)) == 0;
}

TEST(LocalTime, FollowsTheZoneAndIsZeroWhereTheYearDoesNotFit) {
  static constexpr char SUMMER[] = "CET-1CEST,M3.5.0,M10.5.0/3";
  static constexpr struct {
    const char* pZone;
    time_t Seconds;
    SYS_TIME Local;
  } aCase[] = {
      {SUMMER, 1774745999, {2026, 3, 29, 1, 59, 59, 0}},
      {SUMMER, 1774746000, {2026, 3, 29, 3, 0, 0, 0}},
      {SUMMER, -2, {1970, 1, 1, 0, 59, 58, 0}},
      {"UTC0", 2005949145599, {65535, 12, 31, 23, 59, 59, 0}},
      {"UTC0", 2005949145600, {}},
      {"UTC0", -62167219200, {0, 1, 1, 0, 0, 0, 0}},
      {"UTC0", -62167219201, {}},
      {"UTC0", INT64_MAX, {}},
  };
  for (const auto& test : aCase) {
    const SCOPED_ENV zone("TZ", test.pZone);
    tzset();
    SYS_TIME time;
    memset(&time, 0xFF, sizeof(time));
    TIME_FillLocal(test.Seconds, &time);
    EXPECT_TRUE(AreEqual(time, test.Local)) << test.Seconds;
  }
}

TEST(CalendarTime, IsThePresentInAZoneThatHasJustChanged) {
  for (const char* zoneText : {"AAA-5:30", "BBB3"}) {
    const SCOPED_ENV zone("TZ", zoneText);
    SYS_TIME local;
    SYS_TIME utc;
    time_t now;
    do {
      now = time(nullptr);
      SYS_GetLocalTime(&local);
      SYS_GetUTCTime(&utc);
    } while (time(nullptr) != now);
    tzset();
    SYS_TIME expected;
    TIME_FillLocal(now, &expected);
    EXPECT_TRUE(AreEqual(local, expected)) << zoneText;
    TIME_FillLocal(now + timezone, &expected);
    EXPECT_TRUE(AreEqual(utc, expected)) << zoneText;
  }
  SYS_GetLocalTime(nullptr);
  SYS_GetUTCTime(nullptr);
  EXPECT_GE(SYS_GetNumCPUs(), 1);
}

TEST(ParseDateTime, TakesDigitsAsTheyStandAndChecksTheMonthOnlyForADate) {
  static constexpr struct {
    const char* pText;
    int32_t Result;  // For a date; a time alone is always read.
    uint32_t Date;
    uint32_t Time;
  } aCase[] = {
      {"Nov  5 2026  9:07:03 and more", 0, 261105, 90703},
      {"Aug?99?xx07?99?99?99", 0, 70899, 999999},  // Separators and the century are not looked at.
      {"May 1\xB0 2010 0/:00:00", 0, 100500 + 10 - 128, UINT32_MAX - 9999},
      {"Oct 12 203", 0, 301012, 0},
      {"Oct 12 2026 1", 0, 261012, 100000},
      {"dec 31 2099 23:59:59", -1, 11, 235959},
      {"De", -1, 11, 0},
  };
  GUARDED_BLOCK block;
  for (const auto& test : aCase) {
    const char* pText = block.PlaceText(test.pText);
    uint32_t date = 11;
    uint32_t time = 22;
    EXPECT_EQ(SYS_ParseDateTime(pText, &date, &time), test.Result) << pText;
    EXPECT_EQ(time, test.Result == 0 ? test.Time : 22) << pText;
    EXPECT_EQ(SYS_ParseDateTime(pText, nullptr, &time), 0);
    EXPECT_EQ(SYS_ParseDateTime(pText, &date, nullptr), test.Result);
    EXPECT_EQ(date, test.Date) << pText;
    EXPECT_EQ(time, test.Time) << pText;
  }
}

TEST(ParseDateTime, KnowsTheMonths) {
  const std::string months = "JanFebMarAprMayJunJulAugSepOctNovDec";
  for (uint32_t month = 1; month <= 12; month++) {
    uint32_t date = 0;
    EXPECT_EQ(SYS_ParseDateTime((months.substr(month * 3 - 3, 3) + " 31 2045").c_str(), &date, nullptr), 0);
    EXPECT_EQ(date, 450031 + month * 100);
  }
}

}  // namespace
