// Semaphores and events: their waits against real and made-up clocks, and the moments in which a wake-up can be lost.

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "sys/sys_sync.h"
#include "tests/faults.h"
#include "tests/support.h"

namespace {

using MS = std::chrono::milliseconds;

constexpr uint32_t LONG_MS = 20000;       // No test that passes waits this long.
constexpr int64_t CLOCK_SLACK_US = 5000;  // Between the wall clock, which may be slewed, and the one of the tests.

int64_t WallClockUs() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

TEST(Sema, CountsDownToATimeout) {
  SYS_SEMA* pSema = SYS_SEMA_Create(2);
  EXPECT_EQ(SYS_SEMA_Post(pSema), 0);
  for (uint32_t timeoutMs : {0u, LONG_MS, SYS_WAIT_INFINITE}) {
    EXPECT_EQ(SYS_SEMA_Wait(pSema, timeoutMs), 0);
  }
  for (uint32_t timeoutMs : {0, 30}) {
    const int64_t elapsedUs = MeasureUs([&] { EXPECT_EQ(SYS_SEMA_Wait(pSema, timeoutMs), SYS_WAIT_TIMEOUT); });
    EXPECT_GE(elapsedUs, timeoutMs * 1000);
  }
  EXPECT_EQ(SYS_SEMA_Post(pSema), 0);
  SYS_SEMA_Delete(pSema);
}

TEST(Sema, RefusesNullAndNegativeCounts) {
  EXPECT_EQ(SYS_SEMA_Create(-1), nullptr);
  EXPECT_EQ(SYS_SEMA_Create(INT32_MIN), nullptr);
  EXPECT_EQ(SYS_SEMA_Post(nullptr), 1);
  EXPECT_EQ(SYS_SEMA_Wait(nullptr, 0), -1);
  EXPECT_EQ(SYS_SEMA_Wait(nullptr, SYS_WAIT_INFINITE), -1);
  SYS_SEMA_Delete(nullptr);
  FAULTS_REQUIRE();
  const SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM});
  EXPECT_EQ(SYS_SEMA_Create(1), nullptr);
}

// 4295 ms pass 32 bits of nanoseconds by a hair, the longest time-out those of microseconds too. A signal handler that
// runs meanwhile does not end a wait.
TEST(Sema, WaitsForAPostThroughAnyTimeoutAndSignals) {
  struct sigaction action = {};
  struct sigaction previous;
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, &previous);
  for (uint32_t timeoutMs : {4295u, 0xFFFFFFFEu, SYS_WAIT_INFINITE}) {
    SYS_SEMA* pSema = SYS_SEMA_Create(0);
    std::atomic<int32_t> result = -2;
    std::thread waiter([&] { result = SYS_SEMA_Wait(pSema, timeoutMs); });
    for (int i = 0; i < 5; i++) {
      std::this_thread::sleep_for(MS(4));
      pthread_kill(waiter.native_handle(), SIGUSR1);
    }
    EXPECT_EQ(result, -2) << timeoutMs;
    EXPECT_EQ(SYS_SEMA_Post(pSema), 0);
    waiter.join();
    EXPECT_EQ(result, 0) << timeoutMs;
    SYS_SEMA_Delete(pSema);
  }
  sigaction(SIGUSR1, &previous, nullptr);
}

// A queue of plain memory with one producer. Half of the consumers wait a moment at a time; each ends with a 0.
TEST(Sema, GivesOutWhatWasPosted) {
  constexpr int NUM_CONSUMERS = 4;
  SYS_SEMA* pItems = SYS_SEMA_Create(0);
  std::vector<int> items(4000 + NUM_CONSUMERS);
  std::atomic<size_t> numTaken = 0;
  std::atomic<int> sum = 0;
  std::thread producer([&] {
    for (size_t i = 0; i < items.size(); i++) {
      items[i] = i < 4000 ? static_cast<int>(i) + 1 : 0;
      SYS_SEMA_Post(pItems);
    }
  });
  RunThreads(NUM_CONSUMERS, [&](int index) {
    for (int item = -1; item != 0; sum += item) {
      while (SYS_SEMA_Wait(pItems, index % 2 == 0 ? SYS_WAIT_INFINITE : 1) != 0) {
      }
      item = items[numTaken++];
    }
  });
  producer.join();
  EXPECT_EQ(sum, 4000 * 4001 / 2);
  EXPECT_EQ(SYS_SEMA_Wait(pItems, 0), SYS_WAIT_TIMEOUT);
  SYS_SEMA_Delete(pItems);
}

TEST(Event, LetsOneWaitThroughHoweverOftenItIsSet) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 1);
  for (uint32_t timeoutMs : {0u, LONG_MS, SYS_WAIT_INFINITE}) {
    EXPECT_EQ(SYS_EVENT_Wait(pEvent, timeoutMs), 0);
    const int64_t elapsedUs = MeasureUs([&] { EXPECT_EQ(SYS_EVENT_Wait(pEvent, 30), SYS_WAIT_TIMEOUT); });
    EXPECT_GE(elapsedUs, 30000 - CLOCK_SLACK_US);
    SYS_EVENT_Set(pEvent);
    SYS_EVENT_Set(pEvent);
  }
  SYS_EVENT_Delete(pEvent);
  pEvent = SYS_EVENT_Create(0, 0);
  EXPECT_EQ(SYS_EVENT_Wait(pEvent, 0), SYS_WAIT_TIMEOUT) << "a place that was left set";
  SYS_EVENT_Delete(pEvent);
}

TEST(Event, RefusesModesAndHandlesOfNothing) {
  for (int32_t mode : {1, -1, INT32_MIN}) {
    EXPECT_EQ(SYS_EVENT_Create(mode, 0), SYS_EVENT_INVALID);
  }
  SYS_EVENT* pDeleted = SYS_EVENT_Create(0, 1);
  SYS_EVENT_Delete(pDeleted);
  SYS_EVENT* pNull = nullptr;
  for (SYS_EVENT* pEvent : {pNull, SYS_EVENT_INVALID, pDeleted}) {
    SYS_EVENT_Set(pEvent);
    EXPECT_EQ(SYS_EVENT_Wait(pEvent, 0), -1);
    EXPECT_EQ(SYS_EVENT_Wait(pEvent, SYS_WAIT_INFINITE), -1);
    SYS_EVENT_Delete(pEvent);
  }
}

TEST(Event, FormsEachDeadlineFromTheWallClock) {
  FAULTS_REQUIRE();
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  const int64_t nowUs = WallClockUs();
  {
    SCOPED_WALL_CLOCK clock({nowUs - 10 * int64_t{LONG_MS} * 1000});
    EXPECT_EQ(SYS_EVENT_Wait(pEvent, LONG_MS), SYS_WAIT_TIMEOUT);
  }
  {
    SCOPED_WALL_CLOCK clock({nowUs + 50000 - 0xFFFFFFFE * int64_t{1000}});
    EXPECT_EQ(SYS_EVENT_Wait(pEvent, 0xFFFFFFFE), SYS_WAIT_TIMEOUT);
    EXPECT_GE(WallClockUs(), nowUs + 50000);
  }
  {
    // Three wake-ups without a set: each starts a new time-out, the fourth cannot.
    SCOPED_WALL_CLOCK clock({5000000, 6000000, 7000000, -1});
    const SCOPED_FAULT fault({FAULT_CALL::PTHREAD_COND_TIMEDWAIT, 1, 0, 3});
    EXPECT_EQ(SYS_EVENT_Wait(pEvent, LONG_MS), -1);
    EXPECT_EQ(clock.NumReads, 4u);
  }
  {
    const SCOPED_FAULT fault({FAULT_CALL::PTHREAD_COND_TIMEDWAIT, 1, EINVAL});
    EXPECT_EQ(SYS_EVENT_Wait(pEvent, LONG_MS), -1);
  }
  SYS_EVENT_Set(pEvent);
  EXPECT_EQ(SYS_EVENT_Wait(pEvent, LONG_MS), 0) << "still whole, and not locked";
  SYS_EVENT_Delete(pEvent);
}

// The platform may wake the very thread whose time-out runs out right then, and no other.
TEST(Event, HandsOnAWakeUpThatATimeoutSwallowed) {
  FAULTS_REQUIRE();
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  auto waiter = std::async(std::launch::async, [=] { return SYS_EVENT_Wait(pEvent, SYS_WAIT_INFINITE); });
  EXPECT_EQ(waiter.wait_for(MS(50)), std::future_status::timeout);
  const auto setUnheard = [=] {
    const SCOPED_FAULT swallowed({FAULT_CALL::PTHREAD_COND_SIGNAL, 1, 0});
    SYS_EVENT_Set(pEvent);
  };
  {
    const SCOPED_FAULT fault({FAULT_CALL::PTHREAD_COND_TIMEDWAIT, 1, ETIMEDOUT, 1, FAULT_KIND::FAIL, setUnheard});
    EXPECT_EQ(SYS_EVENT_Wait(pEvent, 0), SYS_WAIT_TIMEOUT);
  }
  EXPECT_EQ(waiter.wait_for(MS(LONG_MS)), std::future_status::ready);
  SYS_EVENT_Set(pEvent);
  EXPECT_EQ(waiter.get(), 0);
  SYS_EVENT_Delete(pEvent);
}

// Each set waits until it has been taken: one that gets lost stops the test, one that is taken twice shows in the sum.
// The waiters end with a 0.
TEST(Event, HasEachSetTakenOnce) {
  constexpr int NUM_WAITERS = 3;
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  SYS_EVENT* pTaken = SYS_EVENT_Create(0, 0);
  int message = 0;
  int sum = 0;
  std::thread setter([&] {
    for (int i = 1; i <= 2000 + NUM_WAITERS; i++) {
      message = i <= 2000 ? i : 0;
      SYS_EVENT_Set(pEvent);
      ASSERT_EQ(SYS_EVENT_Wait(pTaken, LONG_MS), 0) << i;
    }
  });
  RunThreads(NUM_WAITERS, [&](int index) {
    for (int taken = -1; taken != 0;) {
      if (SYS_EVENT_Wait(pEvent, index == 0 ? SYS_WAIT_INFINITE : static_cast<uint32_t>(index - 1)) == 0) {
        taken = message;
        sum += taken;
        SYS_EVENT_Set(pTaken);
      }
    }
  });
  setter.join();
  EXPECT_EQ(sum, 2000 * 2001 / 2);
  SYS_EVENT_Delete(pEvent);
  SYS_EVENT_Delete(pTaken);
}

// Who waits for one result owns the event, and deletes it while the set may still be on its way out.
TEST(Event, MayBeDeletedRightAfterTheWait) {
  SYS_SEMA* pRequests = SYS_SEMA_Create(0);
  std::atomic<SYS_EVENT*> pResult = nullptr;
  std::thread worker([&] {
    while (SYS_SEMA_Wait(pRequests, SYS_WAIT_INFINITE) == 0 && pResult != nullptr) {
      SYS_EVENT_Set(pResult);
    }
  });
  for (int i = 0; i < 3000; i++) {
    SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
    ASSERT_NE(pEvent, SYS_EVENT_INVALID);
    pResult = pEvent;
    SYS_SEMA_Post(pRequests);
    ASSERT_EQ(SYS_EVENT_Wait(pEvent, LONG_MS), 0);
    SYS_EVENT_Delete(pEvent);
  }
  pResult = nullptr;
  SYS_SEMA_Post(pRequests);
  worker.join();
  SYS_SEMA_Delete(pRequests);
}

}  // namespace
