// Semaphores and events: their waits against real and made-up clocks, and the moments in which a wake-up can be lost.

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "sys/sys_sync.h"
#include "tests/faults.h"
#include "tests/support.h"

namespace {

using MS = std::chrono::milliseconds;

constexpr uint32_t LONG_MS = 20999;  // No test that passes waits this long.

TEST(Sema, CountsDownToATimeout) {
  SYS_SEMA* pSema = SYS_SEMA_Create(2);
  EXPECT_EQ(SYS_SEMA_Post(pSema), 0);
  for (uint32_t timeoutMs : {0u, LONG_MS, SYS_WAIT_INFINITE}) {
    EXPECT_EQ(SYS_SEMA_Wait(pSema, timeoutMs), 0);
  }
  EXPECT_EQ(SYS_SEMA_Wait(pSema, 0), SYS_WAIT_TIMEOUT);
  EXPECT_GE(MeasureUs([=] { EXPECT_EQ(SYS_SEMA_Wait(pSema, 30), SYS_WAIT_TIMEOUT); }), 30000);
  SYS_SEMA_Delete(pSema);
  SYS_SEMA_Delete(nullptr);
  EXPECT_EQ(SYS_SEMA_Create(-1), nullptr);
  EXPECT_TRUE(SYS_SEMA_Post(nullptr) == 1 && SYS_SEMA_Wait(nullptr, 0) == -1);
  FAULTS_REQUIRE();
  const SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM});
  EXPECT_EQ(SYS_SEMA_Create(1), nullptr);
}

// 4295 ms pass 32 bits of nanoseconds by a hair, the next one carries into another second, and the others leave what
// narrower or signed numbers hold. A signal handler that runs meanwhile does not end a wait.
TEST(Sema, WaitsForAPostThroughAnyTimeoutAndSignals) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, nullptr);
  SYS_SEMA* pSema = SYS_SEMA_Create(0);
  for (uint32_t timeoutMs : {4295u, LONG_MS, 0x80000001u, 0xFFFFFFFEu, SYS_WAIT_INFINITE}) {
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
  }
  SYS_SEMA_Delete(pSema);
}

TEST(Event, LetsOneWaitThroughHoweverOftenItIsSet) {
  EXPECT_TRUE(SYS_EVENT_Create(1, 0) == SYS_EVENT_INVALID && SYS_EVENT_Create(-1, 0) == SYS_EVENT_INVALID);
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 1);
  for (uint32_t timeoutMs : {0u, LONG_MS, SYS_WAIT_INFINITE}) {
    EXPECT_EQ(SYS_EVENT_Wait(pEvent, timeoutMs), 0);
    const int64_t elapsedUs = MeasureUs([=] { EXPECT_EQ(SYS_EVENT_Wait(pEvent, 30), SYS_WAIT_TIMEOUT); });
    EXPECT_GE(elapsedUs, 27000) << "by a clock that may be slewed";
    SYS_EVENT_Set(pEvent);
    SYS_EVENT_Set(pEvent);
  }
  SYS_EVENT_Delete(pEvent);
}

TEST(Event, FormsEachDeadlineFromTheWallClock) {
  FAULTS_REQUIRE();
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const int64_t nowUs = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
  for (uint32_t timeoutMs : {LONG_MS, 0xFFFFFFFEu}) {
    SCOPED_WALL_CLOCK clock({nowUs + 100000 - timeoutMs * int64_t{1000}});
    EXPECT_EQ(SYS_EVENT_Wait(pEvent, timeoutMs), SYS_WAIT_TIMEOUT);
  }
  {
    // Three wake-ups without a set: each starts a new time-out, the fourth cannot.
    SCOPED_WALL_CLOCK clock({5000000, 6000000, 7000000, -1});
    const SCOPED_FAULT fault({FAULT_CALL::PTHREAD_COND_TIMEDWAIT, 1, 0, 3});
    EXPECT_EQ(SYS_EVENT_Wait(pEvent, LONG_MS), -1);
    EXPECT_EQ(clock.NumReads, 4u);
  }
  const SCOPED_FAULT fault({FAULT_CALL::PTHREAD_COND_TIMEDWAIT, 1, EINVAL});
  EXPECT_EQ(SYS_EVENT_Wait(pEvent, LONG_MS), -1);
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
// The three waiters end with a 0.
TEST(Event, HasEachSetTakenOnce) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  SYS_SEMA* pTaken = SYS_SEMA_Create(0);
  int message = 0;
  int sum = 0;
  RunThreads(4, [&](int index) {
    for (int i = 2000; index == 3 && i > -3; i--) {
      message = std::max(i, 0);
      SYS_EVENT_Set(pEvent);
      ASSERT_EQ(SYS_SEMA_Wait(pTaken, i % 2 == 0 ? LONG_MS : SYS_WAIT_INFINITE), 0) << i;
    }
    for (int taken = -1; index != 3 && taken != 0;) {
      if (SYS_EVENT_Wait(pEvent, index == 0 ? SYS_WAIT_INFINITE : static_cast<uint32_t>(index - 1)) == 0) {
        taken = message;
        sum += taken;
        SYS_SEMA_Post(pTaken);
      }
    }
  });
  EXPECT_EQ(sum, 2000 * 2001 / 2);
  SYS_EVENT_Delete(pEvent);
  SYS_SEMA_Delete(pTaken);
}

// Who waits for one result owns the event, and deletes it while the set may still be on its way out.
TEST(Event, MayBeDeletedRightAfterTheWait) {
  FAULTS_REQUIRE();
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  std::future<void> owner;
  const SCOPED_FAULT fault({FAULT_CALL::PTHREAD_COND_SIGNAL, 1, 0, 1, FAULT_KIND::NONE, [&] {
                              owner = std::async(std::launch::async, [=] {
                                EXPECT_EQ(SYS_EVENT_Wait(pEvent, LONG_MS), 0);
                                SYS_EVENT_Delete(pEvent);
                              });
                              EXPECT_EQ(owner.wait_for(MS(50)), std::future_status::timeout);
                            }});
  SYS_EVENT_Set(pEvent);
  owner.get();
}

}  // namespace
