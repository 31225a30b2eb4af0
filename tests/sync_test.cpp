// The tables of mutexes and events under load, and mutexes against real and made-up clocks.

#include "sys/sys_sync.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <map>
#include <vector>

#include "tests/faults.h"
#include "tests/support.h"

namespace {

struct KIND {
  void* pNone;
  void* (*pfCreate)();
  void (*pfDelete)(void*);
  int32_t (*pfUse)(void*);  // 0 for an object that works, and -1 for a handle that is refused.
};

const KIND MUTEXES = {nullptr, []() -> void* { return SYS_RMUTEX_Create(); },
                      [](void* p) { SYS_RMUTEX_Delete(static_cast<SYS_MUTEX*>(p)); },
                      [](void* p) {
                        const int32_t result = SYS_MUTEX_Lock(static_cast<SYS_MUTEX*>(p), 0);
                        return result != 0 ? result : SYS_MUTEX_Unlock(static_cast<SYS_MUTEX*>(p));
                      }};

const KIND EVENTS = {SYS_EVENT_INVALID, []() -> void* { return SYS_EVENT_Create(0, 0); },
                     [](void* p) { SYS_EVENT_Delete(static_cast<SYS_EVENT*>(p)); },
                     [](void* p) {
                       SYS_EVENT_Set(static_cast<SYS_EVENT*>(p));
                       return SYS_EVENT_Wait(static_cast<SYS_EVENT*>(p), 0);
                     }};

class Slots : public testing::TestWithParam<KIND> {};
INSTANTIATE_TEST_SUITE_P(Kinds, Slots, testing::Values(MUTEXES, EVENTS));

// Sixteen threads want up to 96 of 64 objects.
TEST_P(Slots, HaveOneOwnerEachAndTheFirstFreeOneComesAgain) {
  const KIND kind = GetParam();
  std::map<void*, std::atomic<bool>> isTaken;  // In the table's order.
  for (int i = 0; i < 64; i++) {
    isTaken[kind.pfCreate()] = false;
  }
  EXPECT_EQ(kind.pfCreate(), kind.pNone);
  for (const auto& [handle, unused] : isTaken) {
    kind.pfDelete(handle);
    EXPECT_EQ(kind.pfUse(handle), -1);
  }
  std::atomic<int> numFaults = 0;
  RunThreads(16, [&](int seed) {
    for (int round = 0; round < 100; round++) {
      std::vector<void*> own((seed + round) % 7);
      for (auto& handle : own) {
        handle = kind.pfCreate();
        numFaults += handle != kind.pNone && (isTaken.at(handle).exchange(true) || kind.pfUse(handle) != 0);
      }
      for (auto handle : own) {
        if (handle != kind.pNone) {
          isTaken.at(handle) = false;
          kind.pfDelete(handle);
        }
      }
    }
  });
  EXPECT_EQ(numFaults, 0);
  for (const auto& [handle, unused] : isTaken) {
    EXPECT_EQ(kind.pfCreate(), handle);
  }
  for (const auto& [handle, unused] : isTaken) {
    kind.pfDelete(handle);
  }
}

// What is still being made, or already being unmade, neither works nor is handed out nor is deleted twice.
TEST_P(Slots, HideObjectsThatAreNotWholeAndAreFreeAfterARefusal) {
  FAULTS_REQUIRE();
  const KIND kind = GetParam();
  const auto first = kind.pfCreate();
  kind.pfDelete(first);
  for (FAULT_CALL call :
       {FAULT_CALL::PTHREAD_MUTEXATTR_INIT, FAULT_CALL::PTHREAD_MUTEX_INIT, FAULT_CALL::PTHREAD_COND_INIT}) {
    SweepFaults(call, ENOMEM, [=](const SCOPED_FAULT& fault) {
      auto handle = kind.pfCreate();
      EXPECT_EQ(handle, fault.WasHit() ? kind.pNone : first);
      kind.pfDelete(handle);
    });
  }
  int numHits = 0;
  const auto expectHidden = [&] {
    numHits++;
    EXPECT_EQ(kind.pfUse(first), -1);
    kind.pfDelete(first);
    const auto other = kind.pfCreate();
    EXPECT_NE(other, first);
    kind.pfDelete(other);
  };
  const SCOPED_FAULT making({FAULT_CALL::PTHREAD_MUTEX_INIT, 1, 0, 1, FAULT_KIND::NONE, expectHidden});
  const SCOPED_FAULT unmaking({FAULT_CALL::PTHREAD_MUTEX_DESTROY, 2, 0, 1, FAULT_KIND::NONE, expectHidden});
  EXPECT_EQ(kind.pfCreate(), first);
  EXPECT_EQ(kind.pfUse(first), 0);
  kind.pfDelete(first);
  EXPECT_EQ(numHits, 2);
}

TEST(Mutex, IsFreeAfterAsManyUnlocksAsLocks) {
  SYS_MUTEX* pMutex = SYS_RMUTEX_Create();
  EXPECT_TRUE(SYS_MUTEX_Lock(pMutex, SYS_WAIT_INFINITE) == 0 && SYS_MUTEX_Lock(pMutex, 0) == 0);
  SYS_RMUTEX_Lock(pMutex);
  for (uint32_t timeoutMs : {0, 0, 40}) {
    std::async(std::launch::async, [=] {
      const int64_t elapsedUs = MeasureUs([=] { EXPECT_EQ(SYS_MUTEX_Lock(pMutex, timeoutMs), SYS_WAIT_TIMEOUT); });
      EXPECT_GE(elapsedUs, timeoutMs == 0 ? 1000 : timeoutMs * 900) << "by a clock that may be slewed";
    }).get();
    EXPECT_EQ(SYS_MUTEX_Unlock(pMutex), 0);
  }
  EXPECT_EQ(std::async(std::launch::async, MUTEXES.pfUse, pMutex).get(), 0);
  SYS_RMUTEX_Delete(pMutex);
  MISUSE_REQUIRE();
  pMutex = SYS_RMUTEX_Create();
  EXPECT_EQ(SYS_MUTEX_Unlock(pMutex), 1);
  SYS_RMUTEX_Delete(pMutex);
}

// The first reading makes the deadline; each later one follows a refused attempt.
TEST(Mutex, DecidesByTheWallClock) {
  FAULTS_REQUIRE();
  constexpr int64_t MAX_US = 0xFFFFFFFE * int64_t{1000};
  const std::pair<uint32_t, std::vector<int64_t>> ROWS[] = {
      {1999, {5500000, 6499999, 4000000, 7499000, 7499001}},
      {0xFFFFFFFE, {5000000, 5000000 + MAX_US, 5000001 + MAX_US}},
      {1000, {5000000, 5001000, -1}},
      {1000, {-1, 5000000}},
  };
  SYS_MUTEX* pMutex = SYS_RMUTEX_Create();
  SYS_RMUTEX_Lock(pMutex);
  for (const auto& [timeoutMs, readings] : ROWS) {
    SCOPED_WALL_CLOCK clock(readings);
    EXPECT_EQ(std::async(std::launch::async, SYS_MUTEX_Lock, pMutex, timeoutMs).get(), SYS_WAIT_TIMEOUT);
    EXPECT_EQ(clock.NumReads, readings.size()) << timeoutMs;
  }
  SYS_RMUTEX_Unlock(pMutex);
  SYS_RMUTEX_Delete(pMutex);
}

TEST(Mutex, LetsOneThreadInAtATime) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("0123456789012345678901234567890123456789");
  // Where a debugger finds it: behind the in-use word.
  EXPECT_STREQ(reinterpret_cast<const char*>(pMutex) + sizeof(uint32_t), "0123456789012345678901234567890");
  int counter = 0;
  RunThreads(4, [&](int index) {
    for (int i = 0; i < 2000; i++) {
      // A poller sleeps long beside threads that never pause: it comes rarely.
      const bool isTimed = index == 0 && i % 100 == 0;
      EXPECT_EQ(SYS_MUTEX_Lock(pMutex, isTimed ? 20000 : SYS_WAIT_INFINITE), 0);
      counter++;
      EXPECT_TRUE(SYS_MUTEX_Unlock(pMutex) == 0 && SYS_SpinBarrier() == 0);
    }
  });
  EXPECT_EQ(counter, 8000);
  SYS_MUTEX_Delete(&pMutex);
  EXPECT_EQ(pMutex, nullptr);
}

// A set event looks like the start of an object at its second word.
TEST(Handles, OfNothingAndOfOthersAreRefusedUntouched) {
  alignas(64) static uint32_t aForeign[64] = {1, 1};
  SYS_MUTEX* pMutex = SYS_RMUTEX_Create();
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 1);
  for (void* pHandle : std::vector<void*>{nullptr, SYS_EVENT_INVALID, aForeign, pMutex, pEvent,
                                          reinterpret_cast<uint32_t*>(pEvent) + 1}) {
    if (auto* pOther = static_cast<SYS_MUTEX*>(pHandle); pOther != pMutex) {
      SYS_MUTEX_Delete(&pOther);
      EXPECT_TRUE(SYS_MUTEX_Lock(pOther, SYS_WAIT_INFINITE) == -1 && SYS_MUTEX_Unlock(pOther) == 1);
      EXPECT_EQ(pOther, pHandle);
    }
    if (auto* pOther = static_cast<SYS_EVENT*>(pHandle); pOther != pEvent) {
      SYS_EVENT_Delete(pOther);
      EXPECT_EQ(EVENTS.pfUse(pOther), -1);
    }
  }
  SYS_MUTEX_Delete(nullptr);
  EXPECT_TRUE(MUTEXES.pfUse(pMutex) == 0 && SYS_EVENT_Wait(pEvent, 0) == 0 && aForeign[0] == 1);
  SYS_RMUTEX_Delete(pMutex);
  SYS_EVENT_Delete(pEvent);
}

}  // namespace
