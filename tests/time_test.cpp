#include "sys/sys_time.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/syscall.h>
#endif

#include <atomic>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "sys/local_time.h"
#include "sys/platform.h"
#include "tests/support.h"

namespace {

constexpr uint64_t NS_PER_MS = 1000000;
constexpr uint64_t NS_PER_S = 1000000000;

// A monotonic clock that only sleeping moves, in place of the platform's as long as the object lives. What it shows
// stays behind in the tick counts: a case runs it in a fresh process.
class FAKE_CLOCK {
 public:
  explicit FAKE_CLOCK(uint64_t nowNs);
  ~FAKE_CLOCK();
  FAKE_CLOCK(const FAKE_CLOCK&) = delete;
  FAKE_CLOCK& operator=(const FAKE_CLOCK&) = delete;

  uint64_t NowNs;
  std::function<void()> AfterRead;                  // Runs once, between a reading and its use.
  std::function<int(uint64_t durationNs)> OnSleep;  // Returns the error number of a sleep, 0 for none.
};

FAKE_CLOCK* pFakeClock;

FAKE_CLOCK::FAKE_CLOCK(uint64_t nowNs) : NowNs(nowNs) {
  pFakeClock = this;
}

FAKE_CLOCK::~FAKE_CLOCK() {
  pFakeClock = nullptr;
}

}  // namespace

// The program's own definitions come before the C library's, as long as that is a shared library.
#ifdef __linux__

extern "C" int clock_gettime(clockid_t clock, timespec* pNow) noexcept {
  if (pFakeClock == nullptr || clock != CLOCK_MONOTONIC) {
    return static_cast<int>(syscall(SYS_clock_gettime, clock, pNow));
  }
  *pNow = {static_cast<time_t>(pFakeClock->NowNs / NS_PER_S), static_cast<long>(pFakeClock->NowNs % NS_PER_S)};
  if (pFakeClock->AfterRead) {
    std::exchange(pFakeClock->AfterRead, nullptr)();
  }
  return 0;
}

extern "C" int nanosleep(const timespec* pDuration, timespec* pLeft) {
  if (pFakeClock == nullptr || !pFakeClock->OnSleep) {
    return static_cast<int>(syscall(SYS_nanosleep, pDuration, pLeft));
  }
  errno = pFakeClock->OnSleep(static_cast<uint64_t>(pDuration->tv_sec) * NS_PER_S +
                              static_cast<uint64_t>(pDuration->tv_nsec));
  return errno == 0 ? 0 : -1;
}

#define FAKE_CLOCK_REQUIRE() static_cast<void>(0)
#else
#define FAKE_CLOCK_REQUIRE() GTEST_SKIP() << "the C library's calls cannot be replaced"
#endif

namespace {

// A new process is silent about what failed in it: passes that on, for the message of the case.
void PrintFailures() {
  const testing::TestResult& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
  for (int i = 0; i < result.total_part_count(); i++) {
    const testing::TestPartResult& part = result.GetTestPartResult(i);
    fprintf(stderr, "%s:%d: %s\n", part.file_name(), part.line_number(), part.message());
  }
}

// Runs body in a new process, in which nobody has asked for the time yet.
void RunInFreshProcess(const std::function<void()>& body) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        body();
        PrintFailures();
        exit(testing::Test::HasFailure());
      },
      testing::ExitedWithCode(0), "");
}

TEST(MonotonicClock, ConvertsTicksOfAnyLengthExactly) {
  __extension__ using WIDE = unsigned __int128;
  RANDOM random(51);
  for (int round = 0; round < 100000; round++) {
    const uint32_t numerator = random.Next32() >> random.Below(32);
    const uint32_t denominator = random.Next32() >> random.Below(32);
    const uint64_t numTicks = random.Value();
    const WIDE ns = denominator == 0 ? WIDE{numTicks} : WIDE{numTicks} * numerator / denominator;
    if (ns <= UINT64_MAX) {
      ASSERT_EQ(PLATFORM_ClockToNs({numTicks, numerator, denominator}), static_cast<uint64_t>(ns))
          << numTicks << " * " << numerator << " / " << denominator;
    }
  }
  EXPECT_EQ(PLATFORM_ClockToNs({24000000, 125, 3}), NS_PER_S);
  EXPECT_EQ(PLATFORM_ClockToNs({5, 0, 0}), 5U);
}

TEST(MonotonicClock, RunsAtTheSpeedOfItsUnits) {
  const uint64_t startMs = SYS_GetTimeMs();
  const uint64_t startUs = SYS_GetTickUs();
  const uint32_t startTick = SYS_GetTickMs();
  SYS_Sleep(20);
  const uint32_t tick = SYS_GetTickMs() - startTick;
  const uint64_t us = SYS_GetElapsedUs(startUs);
  const uint64_t ms = SYS_GetTimeMs() - startMs;
  EXPECT_GE(tick, 20U);
  EXPECT_GE(us / 1000 + 1, tick);
  EXPECT_GE(ms + 1, us / 1000);
}

TEST(TickCounts, StartAtZeroEachByItself) {
  RunInFreshProcess([] {
    EXPECT_EQ(SYS_GetTickUs(), 0U);
    SYS_Sleep(10);
    EXPECT_GE(SYS_GetTickUs(), 10000U);
    EXPECT_EQ(SYS_GetTickMs(), 0U);
    SYS_Sleep(3);
    const uint32_t ms = SYS_GetTickMs();
    EXPECT_GE(ms, 3U);
    EXPECT_GE(SYS_GetTickUs(), ms * uint64_t{1000} + 9000);
  });
}

TEST(TickCounts, AreStartedBySleepingAndByAskingForElapsedTime) {
  RunInFreshProcess([] {
    SYS_Sleep(5);
    EXPECT_GE(SYS_GetTickUs(), 5000U);
  });
  RunInFreshProcess([] {
    EXPECT_EQ(SYS_GetElapsedUs(7), uint64_t{0} - 7);
    SYS_Sleep(1);
    EXPECT_GE(SYS_GetTickUs(), 1000U);
  });
  RunInFreshProcess([] {
    SYS_GetTimeMs();  // Claims no base for the others.
    EXPECT_EQ(SYS_GetTickMs(), 0U);
    EXPECT_EQ(SYS_GetTickUs(), 0U);
  });
}

TEST(TickCounts, KeepTheirWidths) {
  FAKE_CLOCK_REQUIRE();
  RunInFreshProcess([] {
    FAKE_CLOCK clock(12345678);
    EXPECT_EQ(SYS_GetTickMs(), 0U);
    EXPECT_EQ(SYS_GetTickUs(), 0U);
    clock.NowNs += UINT32_MAX * NS_PER_MS;
    EXPECT_EQ(SYS_GetTickMs(), UINT32_MAX);
    EXPECT_EQ(SYS_GetTickUs(), UINT32_MAX * uint64_t{1000});
    clock.NowNs += 3 * NS_PER_MS + 321;
    EXPECT_EQ(SYS_GetTickMs(), 2U);
    EXPECT_EQ(SYS_GetElapsedUs(UINT32_MAX * uint64_t{1000}), 3000U);
    EXPECT_EQ(SYS_GetTimeMs(), UINT32_MAX + uint64_t{3} + 12);
  });
}

// The loser has read the clock before the winner, and goes on only after the winner has started the count.
TEST(TickCounts, CountNoTimeForAThreadThatReadTheClockBeforeTheWinner) {
  FAKE_CLOCK_REQUIRE();
  RunInFreshProcess([] {
    FAKE_CLOCK clock(NS_PER_S);
    clock.AfterRead = [&] {
      clock.NowNs += 5 * NS_PER_MS;
      EXPECT_EQ(SYS_GetTickUs(), 0U);
      clock.AfterRead = [&] { EXPECT_EQ(SYS_GetTickMs(), 0U); };
      EXPECT_EQ(SYS_GetTickUs(), 0U);
    };
    EXPECT_EQ(SYS_GetTickUs(), 0U);
    clock.NowNs -= NS_PER_MS;
    EXPECT_EQ(SYS_GetTickMs(), 0U);
    clock.NowNs += 2 * NS_PER_MS;
    EXPECT_EQ(SYS_GetTickUs(), 1000U);
    EXPECT_EQ(SYS_GetTickMs(), 1U);
  });
}

TEST(TickCounts, AgreeAmongThreadsThatStartThem) {
  RunInFreshProcess([] {
    constexpr int NUM_READINGS = 2000;
    const uint64_t start = SYS_GetTimeMs();
    std::atomic<int> numWaiting{4};
    std::atomic<uint64_t> largest{0};
    std::vector<std::thread> threads;
    for (int i = numWaiting; i > 0; i--) {
      threads.emplace_back([&] {
        for (numWaiting--; numWaiting != 0;) {
        }
        uint64_t lastUs = 0;
        uint32_t lastMs = 0;
        for (int n = 0; n < NUM_READINGS; n++) {
          const uint64_t us = SYS_GetTickUs();
          const uint32_t ms = SYS_GetTickMs();
          EXPECT_GE(us, lastUs);
          EXPECT_GE(ms, lastMs);
          lastUs = us;
          lastMs = ms;
        }
        for (uint64_t seen = largest; seen < lastUs && !largest.compare_exchange_weak(seen, lastUs);) {
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_LE(largest, (SYS_GetTimeMs() - start + 1) * 1000);
    EXPECT_GE(SYS_GetTickUs(), largest);
  });
}

// The clock takes any part of a sleep before a signal ends it, and handlers take time of their own.
TEST(Sleep, SleepsTheRestAfterEachSignal) {
  FAKE_CLOCK_REQUIRE();
  RunInFreshProcess([] {
    RANDOM random(52);
    for (const uint32_t ms : {0U, 1U, 100U, 4294967U, 4294968U, UINT32_MAX}) {
      for (int round = 0; round < 200; round++) {
        FAKE_CLOCK clock(random.Next64() >> 4);
        const uint64_t endNs = clock.NowNs + ms * NS_PER_MS;
        uint64_t handlerNs = 0;
        uint32_t numSignals = random.Below(20);
        clock.OnSleep = [&](uint64_t durationNs) {
          EXPECT_EQ(clock.NowNs + durationNs, endNs);
          if (numSignals == 0) {
            clock.NowNs += durationNs;
            return 0;
          }
          numSignals--;
          handlerNs = random.Below(3) * random.Below(1000);
          clock.NowNs += random.Next64() % (durationNs + 1) + handlerNs;
          return EINTR;
        };
        errno = ENOENT;
        SYS_Sleep(ms);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_GE(clock.NowNs, endNs);
        EXPECT_LE(clock.NowNs, endNs + handlerNs);
      }
    }
  });
}

TEST(Sleep, EndsWhenThePlatformRefusesIt) {
  FAKE_CLOCK_REQUIRE();
  RunInFreshProcess([] {
    FAKE_CLOCK clock(1);
    int numSleeps = 0;
    clock.OnSleep = [&](uint64_t) {
      numSleeps++;
      return EINVAL;
    };
    SYS_Sleep(10);
    EXPECT_EQ(numSleeps, 1);
  });
}

volatile sig_atomic_t numAlarms;

TEST(Sleep, IsNotShortenedByTimerSignals) {
  struct sigaction action = {};
  struct sigaction oldAction;
  action.sa_handler = [](int) { numAlarms = numAlarms + 1; };
  ASSERT_EQ(sigaction(SIGALRM, &action, &oldAction), 0);
  const itimerval timer = {{0, 2000}, {0, 2000}};
  ASSERT_EQ(setitimer(ITIMER_REAL, &timer, nullptr), 0);
  for (const uint32_t ms : {1U, 30U, 60U}) {
    timespec start;
    timespec end;
    clock_gettime(CLOCK_MONOTONIC, &start);
    SYS_Sleep(ms);
    clock_gettime(CLOCK_MONOTONIC, &end);
    EXPECT_GE((end.tv_sec - start.tv_sec) * int64_t{1000000000} + end.tv_nsec - start.tv_nsec, ms * int64_t{1000000});
  }
  const itimerval off = {};
  setitimer(ITIMER_REAL, &off, nullptr);
  sigaction(SIGALRM, &oldAction, nullptr);
  EXPECT_GT(numAlarms, 0);
}

// The local time zone as long as the object lives. Telling the C library of it is the product's task, afterwards ours.
class SCOPED_ZONE {
 public:
  explicit SCOPED_ZONE(const char* zone) {
    if (const char* pOld = getenv("TZ")) {
      Old = pOld;
    }
    setenv("TZ", zone, 1);
  }
  ~SCOPED_ZONE() {
    if (Old.empty()) {
      unsetenv("TZ");
    } else {
      setenv("TZ", Old.c_str(), 1);
    }
    tzset();
  }
  SCOPED_ZONE(const SCOPED_ZONE&) = delete;
  SCOPED_ZONE& operator=(const SCOPED_ZONE&) = delete;

 private:
  std::string Old;
};

std::string TextOf(const SYS_TIME& time) {
  char acText[64];
  snprintf(acText, sizeof(acText), "%04d-%02d-%02d %02d:%02d:%02d.%d", time.Year, time.Month, time.Day, time.Hour,
           time.Minute, time.Second, time.Milliseconds);
  return acText;
}

bool IsLeapYear(int year) {
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// Counts the days off, year by year and month by month.
SYS_TIME ModelOfTime(time_t seconds) {
  static constexpr int aNumDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  int64_t days = seconds / 86400;
  const int64_t rest = seconds % 86400;
  int year = 1970;
  for (; days >= 365 + IsLeapYear(year); year++) {
    days -= 365 + IsLeapYear(year);
  }
  int month = 1;
  for (; days >= aNumDays[month - 1] + (month == 2 && IsLeapYear(year)); month++) {
    days -= aNumDays[month - 1] + (month == 2 && IsLeapYear(year));
  }
  const auto narrow = [](int64_t value) { return static_cast<uint16_t>(value); };
  return {
      narrow(year), narrow(month), narrow(days + 1), narrow(rest / 3600), narrow(rest / 60 % 60), narrow(rest % 60), 0};
}

TEST(LocalTime, FollowsDaylightSavingTime) {
  const SCOPED_ZONE zone("CET-1CEST,M3.5.0,M10.5.0/3");
  tzset();
  static const std::pair<time_t, const char*> aCase[] = {
      {0, "1970-01-01 01:00:00.0"},          {1774745999, "2026-03-29 01:59:59.0"},
      {1774746000, "2026-03-29 03:00:00.0"}, {1792889999, "2026-10-25 02:59:59.0"},
      {1792890000, "2026-10-25 02:00:00.0"}, {1798757999, "2026-12-31 23:59:59.0"},
      {1798758000, "2027-01-01 00:00:00.0"}, {1709164800, "2024-02-29 01:00:00.0"},
      {-2, "1970-01-01 00:59:58.0"},
  };
  for (const auto& [seconds, text] : aCase) {
    SYS_TIME time;
    memset(&time, 0xFF, sizeof(time));
    TIME_FillLocal(seconds, &time);
    EXPECT_EQ(TextOf(time), text);
  }
}

TEST(LocalTime, IsZeroWhereTheYearDoesNotFit) {
  const SCOPED_ZONE zone("UTC0");
  tzset();
  static const std::pair<time_t, const char*> aCase[] = {
      {2005949145599, "65535-12-31 23:59:59.0"}, {2005949145600, "0000-00-00 00:00:00.0"},
      {-62167219200, "0000-01-01 00:00:00.0"},   {-62167219201, "0000-00-00 00:00:00.0"},
      {INT64_MAX, "0000-00-00 00:00:00.0"},      {INT64_MIN, "0000-00-00 00:00:00.0"},
  };
  for (const auto& [seconds, text] : aCase) {
    SYS_TIME time;
    TIME_FillLocal(seconds, &time);
    EXPECT_EQ(TextOf(time), text) << seconds;
  }
}

TEST(CalendarTime, IsThePresentInAZoneThatHasJustChanged) {
  static const std::pair<const char*, int> aCase[] = {{"AAA-5:30", 19800}, {"BBB3", -10800}, {"CCC0", 0}};
  for (const auto& [zoneText, offset] : aCase) {
    const SCOPED_ZONE zone(zoneText);
    SYS_TIME local;
    SYS_TIME utc;
    time_t now;
    do {
      now = time(nullptr);
      SYS_GetLocalTime(&local);
      SYS_GetUTCTime(&utc);
    } while (time(nullptr) != now);
    EXPECT_EQ(TextOf(utc), TextOf(ModelOfTime(now)));
    EXPECT_EQ(TextOf(local), TextOf(ModelOfTime(now + offset))) << zoneText;
  }
  SYS_GetLocalTime(nullptr);
  SYS_GetUTCTime(nullptr);
}

TEST(ParseDateTime, GivesTheKnownNumbers) {
  static const struct {
    const char* pText;
    uint32_t Date;
    uint32_t Time;
  } aCase[] = {
      {"Nov  5 2026 09:07:03", 261105, 90703},
      {"Nov 05 2026 09:07:03", 261105, 90703},
      {"Dec 31 2099 23:59:59", 991231, 235959},
      {"Jan  1 2000  0:00:00", 101, 0},
      {"Feb 29 1904  1:02:03 and more", 40229, 10203},
      {"Aug?99?xx07?99?99?99", 70899, 999999},  // Separators and the century are not looked at.
      {"May 1: 2010 0/:00:00", 100520, UINT32_MAX - 9999},
      {"Jun", 600, 0},
      {"Jul 12 203", 300712, 0},
      {"Oct 12 2026 1", 261012, 100000},
  };
  GUARDED_BLOCK block;
  for (const auto& test : aCase) {
    uint32_t date = 1;
    uint32_t time = 1;
    EXPECT_EQ(SYS_ParseDateTime(block.PlaceText(test.pText), &date, &time), 0);
    EXPECT_EQ(date, test.Date) << test.pText;
    EXPECT_EQ(time, test.Time) << test.pText;
    date = 1;
    EXPECT_EQ(SYS_ParseDateTime(test.pText, &date, nullptr), 0);
    EXPECT_EQ(date, test.Date);
  }
}

TEST(ParseDateTime, ChecksTheMonthOnlyForADate) {
  GUARDED_BLOCK block;
  for (const char* text : {"dec 31 2099 23:59:59", "DEC 31 2099 23:59:59", "Abc 31 2099 23:59:59", "De", "", "0an"}) {
    uint32_t date = 11;
    uint32_t time = 22;
    const char* pText = block.PlaceText(text);
    EXPECT_EQ(SYS_ParseDateTime(pText, &date, &time), -1) << text;
    EXPECT_EQ(SYS_ParseDateTime(pText, &date, nullptr), -1) << text;
    EXPECT_EQ(date, 11U);
    EXPECT_EQ(time, 22U);
    EXPECT_EQ(SYS_ParseDateTime(pText, nullptr, &time), 0) << text;
    EXPECT_EQ(time, strlen(text) > 3 ? 235959U : 0U);
    EXPECT_EQ(SYS_ParseDateTime(pText, nullptr, nullptr), 0);
  }
}

TEST(ParseDateTime, ReadsBackEveryDate) {
  static constexpr const char* aMonth[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  RANDOM random(53);
  for (int round = 0; round < 20000; round++) {
    const uint32_t month = 1 + random.Below(12);
    const uint32_t day = 1 + random.Below(31);
    const uint32_t year = random.Below(10000);
    const uint32_t hour = random.Below(24);
    const uint32_t minute = random.Below(60);
    const uint32_t second = random.Below(60);
    char acText[64];
    snprintf(acText, sizeof(acText), random.OneIn(2) ? "%s %2u %04u %2u:%02u:%02u" : "%s %02u %04u %02u:%02u:%02u",
             aMonth[month - 1], day, year, hour, minute, second);
    uint32_t date;
    uint32_t time;
    ASSERT_EQ(SYS_ParseDateTime(acText, &date, &time), 0);
    ASSERT_EQ(date, year % 100 * 10000 + month * 100 + day) << acText;
    ASSERT_EQ(time, hour * 10000 + minute * 100 + second) << acText;
  }
}

TEST(NumCPUs, IsWhatTheMachineHas) {
  EXPECT_GE(SYS_GetNumCPUs(), 1);
  EXPECT_LE(SYS_GetNumCPUs(), sysconf(_SC_NPROCESSORS_CONF));
}

}  // namespace
