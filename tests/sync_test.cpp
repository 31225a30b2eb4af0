// The tables of mutexes and events under load, and mutexes against real and made-up clocks.

#include "sys/sys_sync.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <map>
#include <thread>
#include <vector>

#include "tests/faults.h"
#include "tests/support.h"

namespace {

constexpr size_t NUM_SLOTS = 64;
constexpr uint32_t LONG_MS = 20000;       // No test that passes waits this long.
constexpr int64_t CLOCK_SLACK_US = 5000;  // Between the wall clock, which may be slewed, and the one of the tests.

// Runs a call in a thread of its own, and returns its result.
template <typename CALL>
int32_t InOtherThread(CALL call) {
  return std::async(std::launch::async, call).get();
}

struct MUTEXES {
  using HANDLE = SYS_MUTEX*;
  static HANDLE Create() { return SYS_MUTEX_Create("test"); }
  static void Delete(HANDLE handle) { SYS_MUTEX_Delete(&handle); }
  static bool IsNone(HANDLE handle) { return handle == nullptr; }
  static bool Works(HANDLE handle) { return SYS_MUTEX_Lock(handle, 0) == 0 && SYS_MUTEX_Unlock(handle) == 0; }
};

struct EVENTS {
  using HANDLE = SYS_EVENT*;
  static HANDLE Create() { return SYS_EVENT_Create(0, 0); }
  static void Delete(HANDLE handle) { SYS_EVENT_Delete(handle); }
  static bool IsNone(HANDLE handle) { return handle == SYS_EVENT_INVALID; }
  static bool Works(HANDLE handle) {
    SYS_EVENT_Set(handle);
    return SYS_EVENT_Wait(handle, 0) == 0;
  }
};

template <typename KIND>
class Slots : public testing::Test {
 protected:
  using HANDLE = typename KIND::HANDLE;

  // Takes what there is, in the table's order.
  static std::vector<HANDLE> TakeAll() {
    std::vector<HANDLE> handles;
    for (HANDLE handle = KIND::Create(); !KIND::IsNone(handle); handle = KIND::Create()) {
      handles.push_back(handle);
    }
    return handles;
  }

  // Whatever a test does, all places are free in the end.
  void TearDown() override {
    const std::vector<HANDLE> handles = TakeAll();
    EXPECT_EQ(handles.size(), NUM_SLOTS);
    for (HANDLE handle : handles) {
      KIND::Delete(handle);
    }
  }
};

using KINDS = testing::Types<MUTEXES, EVENTS>;
TYPED_TEST_SUITE(Slots, KINDS);

TYPED_TEST(Slots, AreSixtyFourAndTheFirstFreeOneComesAgain) {
  const auto handles = this->TakeAll();
  ASSERT_EQ(handles.size(), NUM_SLOTS);
  for (size_t i : {63, 20, 10}) {
    TypeParam::Delete(handles[i]);
    EXPECT_FALSE(TypeParam::Works(handles[i]));
  }
  for (size_t i : {10, 20, 63}) {
    EXPECT_EQ(TypeParam::Create(), handles[i]);
    EXPECT_TRUE(TypeParam::Works(handles[i]));
  }
  for (auto handle : handles) {
    TypeParam::Delete(handle);
  }
}

// Sixteen threads want up to 96 of 64 objects.
TYPED_TEST(Slots, HaveOneOwnerEach) {
  std::map<typename TypeParam::HANDLE, std::atomic<bool>> isTaken;
  for (auto handle : this->TakeAll()) {
    isTaken[handle] = false;
  }
  for (const auto& [handle, unused] : isTaken) {
    TypeParam::Delete(handle);
  }
  std::atomic<int> numFaults = 0;
  RunThreads(16, [&](int seed) {
    RANDOM random(static_cast<uint32_t>(seed));
    for (int round = 0; round < 100; round++) {
      std::vector<typename TypeParam::HANDLE> own;
      for (uint32_t n = random.Below(7); n > 0; n--) {
        auto handle = TypeParam::Create();
        if (!TypeParam::IsNone(handle)) {
          numFaults += isTaken.at(handle).exchange(true) || !TypeParam::Works(handle);
          own.push_back(handle);
        }
      }
      for (auto handle : own) {
        isTaken.at(handle) = false;
        TypeParam::Delete(handle);
      }
    }
  });
  EXPECT_EQ(numFaults, 0);
}

TYPED_TEST(Slots, AreFreeAgainWhenThePlatformRefusesAnObject) {
  FAULTS_REQUIRE();
  for (FAULT_CALL call :
       {FAULT_CALL::PTHREAD_MUTEXATTR_INIT, FAULT_CALL::PTHREAD_MUTEX_INIT, FAULT_CALL::PTHREAD_COND_INIT}) {
    SweepFaults(call, ENOMEM, [](const SCOPED_FAULT& fault) {
      auto handle = TypeParam::Create();
      EXPECT_EQ(TypeParam::IsNone(handle), fault.WasHit());
      if (!TypeParam::IsNone(handle)) {
        TypeParam::Delete(handle);
      }
    });
  }
}

// What is still being made, or already being unmade, neither works nor is handed out nor is deleted twice.
TYPED_TEST(Slots, HideObjectsThatAreNotWhole) {
  FAULTS_REQUIRE();
  const auto first = TypeParam::Create();
  TypeParam::Delete(first);
  int numHits = 0;
  const auto expectHidden = [&] {
    numHits++;
    EXPECT_FALSE(TypeParam::Works(first));
    TypeParam::Delete(first);
    const auto other = TypeParam::Create();
    EXPECT_NE(other, first);
    TypeParam::Delete(other);
  };
  const SCOPED_FAULT making({FAULT_CALL::PTHREAD_MUTEX_INIT, 1, 0, 1, FAULT_KIND::NONE, expectHidden});
  const SCOPED_FAULT unmaking({FAULT_CALL::PTHREAD_MUTEX_DESTROY, 2, 0, 1, FAULT_KIND::NONE, expectHidden});
  EXPECT_EQ(TypeParam::Create(), first);
  EXPECT_TRUE(TypeParam::Works(first));
  TypeParam::Delete(first);
  EXPECT_EQ(numHits, 2);
}

// A mutex that another thread holds as long as the object lives.
class HELD_MUTEX {
 public:
  HELD_MUTEX() { IsHeld.get_future().wait(); }
  ~HELD_MUTEX() {
    Release.set_value();
    Holder.join();
    SYS_MUTEX_Delete(&pMutex);
  }

  SYS_MUTEX* pMutex = SYS_MUTEX_Create(nullptr);

 private:
  void Hold() {
    SYS_MUTEX_Lock(pMutex, SYS_WAIT_INFINITE);
    IsHeld.set_value();
    Release.get_future().wait();
    SYS_MUTEX_Unlock(pMutex);
  }

  std::promise<void> IsHeld;
  std::promise<void> Release;
  std::thread Holder{&HELD_MUTEX::Hold, this};
};

TEST(Mutex, KeepsThirtyOneCharactersOfItsName) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("0123456789012345678901234567890123456789");
  // Where a debugger finds it: behind the in-use word.
  EXPECT_STREQ(reinterpret_cast<const char*>(pMutex) + sizeof(uint32_t), "0123456789012345678901234567890");
  SYS_MUTEX_Delete(&pMutex);
  EXPECT_EQ(pMutex, nullptr);
}

TEST(Mutex, IsFreeAfterAsManyUnlocksAsLocks) {
  SYS_MUTEX* pMutex = SYS_RMUTEX_Create();
  EXPECT_EQ(SYS_MUTEX_Lock(pMutex, SYS_WAIT_INFINITE), 0);
  EXPECT_EQ(SYS_MUTEX_Lock(pMutex, 0), 0);
  SYS_RMUTEX_Lock(pMutex);
  for (int i = 0; i < 3; i++) {
    EXPECT_EQ(InOtherThread([=] { return SYS_MUTEX_Lock(pMutex, 0); }), SYS_WAIT_TIMEOUT);
    EXPECT_EQ(SYS_MUTEX_Unlock(pMutex), 0);
  }
  EXPECT_EQ(InOtherThread([=] { return SYS_MUTEX_Lock(pMutex, 0) + SYS_MUTEX_Unlock(pMutex); }), 0);
  SYS_RMUTEX_Delete(pMutex);
}

TEST(Mutex, IsNotUnlockedByWhoDoesNotHoldIt) {
  MISUSE_REQUIRE();
  HELD_MUTEX held;
  EXPECT_EQ(SYS_MUTEX_Unlock(held.pMutex), 1);
  SYS_RMUTEX_Unlock(held.pMutex);
  EXPECT_EQ(SYS_MUTEX_Lock(held.pMutex, 0), SYS_WAIT_TIMEOUT);
  SYS_MUTEX* pFree = SYS_MUTEX_Create("free");
  EXPECT_EQ(SYS_MUTEX_Unlock(pFree), 1);
  SYS_MUTEX_Delete(&pFree);
}

TEST(Mutex, RefusesHandlesOfNothing) {
  SYS_MUTEX* pDeleted = SYS_MUTEX_Create("deleted");
  SYS_RMUTEX_Delete(pDeleted);
  SYS_MUTEX* pNull = nullptr;
  for (SYS_MUTEX* pMutex : {pNull, pDeleted}) {
    SYS_MUTEX* pSame = pMutex;
    SYS_MUTEX_Delete(&pSame);
    EXPECT_EQ(pSame, pMutex);
    SYS_RMUTEX_Delete(pMutex);
    SYS_RMUTEX_Lock(pMutex);
    SYS_RMUTEX_Unlock(pMutex);
    EXPECT_EQ(SYS_MUTEX_Lock(pMutex, SYS_WAIT_INFINITE), -1);
    EXPECT_EQ(SYS_MUTEX_Lock(pMutex, 0), -1);
    EXPECT_EQ(SYS_MUTEX_Unlock(pMutex), 1);
  }
  SYS_MUTEX_Delete(nullptr);
}

TEST(Mutex, ReportsATimeoutNoSoonerThanItIsDue) {
  HELD_MUTEX held;
  for (uint32_t timeoutMs : {0, 40}) {
    const int64_t elapsedUs = MeasureUs([&] { EXPECT_EQ(SYS_MUTEX_Lock(held.pMutex, timeoutMs), SYS_WAIT_TIMEOUT); });
    EXPECT_GE(elapsedUs, timeoutMs == 0 ? 1000 : timeoutMs * 1000 - CLOCK_SLACK_US);
  }
}

// The first reading makes the deadline; each later one follows a refused attempt.
TEST(Mutex, DecidesByTheWallClock) {
  FAULTS_REQUIRE();
  constexpr int64_t HOUR_US = 3600 * int64_t{1000000};
  constexpr int64_t MAX_US = 0xFFFFFFFE * int64_t{1000};
  const struct {
    uint32_t TimeoutMs;
    std::vector<int64_t> ReadingsUs;
  } aRow[] = {
      {0, {5000000, 5000000, 5000001}},
      {1, {5999999, 6000998, 6000999, 6001000}},
      {1999, {5500000, 6499999, 7498999, 7499000, 7499001}},
      {3600000, {HOUR_US, 2 * HOUR_US, HOUR_US - 1, 2 * HOUR_US + 1}},
      {0xFFFFFFFE, {5000000, 5000000 + MAX_US, 5000001 + MAX_US}},
      {1000, {5000000, 5001000, -1}},
      {1000, {-1, 5000000}},
      {1000, {-1, -1}},
  };
  HELD_MUTEX held;
  for (const auto& row : aRow) {
    SCOPED_WALL_CLOCK clock(row.ReadingsUs);
    EXPECT_EQ(SYS_MUTEX_Lock(held.pMutex, row.TimeoutMs), SYS_WAIT_TIMEOUT);
    EXPECT_EQ(clock.NumReads, row.ReadingsUs.size()) << row.TimeoutMs;
  }
}

TEST(Mutex, LetsOneThreadInAtATime) {
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("counter");
  int counter = 0;
  RunThreads(4, [&](int index) {
    for (int i = 0; i < 2000; i++) {
      // A poller sleeps long beside threads that never pause: it comes rarely.
      const bool isTimed = index == 0 && i % 100 == 0;
      EXPECT_EQ(SYS_MUTEX_Lock(pMutex, isTimed ? LONG_MS : SYS_WAIT_INFINITE), 0);
      counter++;
      EXPECT_EQ(SYS_MUTEX_Unlock(pMutex), 0);
    }
  });
  EXPECT_EQ(counter, 8000);
  SYS_MUTEX_Delete(&pMutex);
}

TEST(SpinBarrier, LetsEverybodyThrough) {
  std::atomic<int> numPassed = 0;
  RunThreads(4, [&](int) {
    for (int i = 0; i < 1000; i++) {
      numPassed += SYS_SpinBarrier() == 0;
    }
  });
  EXPECT_EQ(numPassed, 4000);
}

TEST(Handles, OfOthersAreRefusedUntouched) {
  alignas(64) static uint32_t aForeign[64] = {1, 1};
  SYS_MUTEX* pMutex = SYS_MUTEX_Create("m");
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 1);
  for (void* pForeign : {static_cast<void*>(aForeign), static_cast<void*>(pEvent),
                         static_cast<void*>(reinterpret_cast<char*>(pMutex) + 4)}) {
    auto* pOther = static_cast<SYS_MUTEX*>(pForeign);
    EXPECT_EQ(SYS_MUTEX_Lock(pOther, 0), -1);
    EXPECT_EQ(SYS_MUTEX_Unlock(pOther), 1);
    SYS_MUTEX_Delete(&pOther);
    EXPECT_EQ(pOther, pForeign);
  }
  auto* pOther = reinterpret_cast<SYS_EVENT*>(pMutex);
  EXPECT_EQ(SYS_EVENT_Wait(pOther, 0), -1);
  SYS_EVENT_Set(pOther);
  SYS_EVENT_Delete(pOther);
  EXPECT_EQ(SYS_MUTEX_Lock(pMutex, 0), 0);
  EXPECT_EQ(SYS_MUTEX_Unlock(pMutex), 0);
  EXPECT_EQ(SYS_EVENT_Wait(pEvent, 0), 0);
  EXPECT_EQ(aForeign[0], 1u);
  SYS_MUTEX_Delete(&pMutex);
  SYS_EVENT_Delete(pEvent);
}

}  // namespace
