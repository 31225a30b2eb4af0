// Threads: what reaches a new one, what its id is good for, and what a failed creation leaves behind.

#include "sys/sys_thread.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "sys/sys_sync.h"
#include "tests/faults.h"
#include "tests/support.h"

namespace {

#ifdef __APPLE__
constexpr size_t MAX_NAME = 63;
#else
constexpr size_t MAX_NAME = 15;
#endif
constexpr int64_t UNTOUCHED = 0x1234;

std::string CurrentName() {
  char acName[128];
  return SYS_THREAD_GetName(acName, sizeof(acName)) == 0 ? acName : "no name";
}

// What a thread found out about itself.
class REPORT {
 public:
  ~REPORT() { SYS_SEMA_Delete(pDone); }

  static void* Run(void* pArg) {
    auto* pReport = static_cast<REPORT*>(pArg);
    pReport->Name = CurrentName();
    pReport->Id = SYS_THREAD_GetCurrentId();
    SYS_SEMA_Post(pReport->pDone);
    return nullptr;
  }

  void Await() { ASSERT_EQ(SYS_SEMA_Wait(pDone, 20000), 0); }

  std::string Name;
  int64_t Id = 0;

 private:
  SYS_SEMA* pDone = SYS_SEMA_Create(0);
};

// A thread that runs until it is told to end.
class BUSY_THREAD {
 public:
  explicit BUSY_THREAD(bool isDetached) {
    Desc.pfStart = [](void* pArg) -> void* {
      auto* pThread = static_cast<BUSY_THREAD*>(pArg);
      SYS_EVENT_Wait(pThread->pEnd, SYS_WAIT_INFINITE);
      SYS_SEMA_Post(pThread->pEnded);
      return nullptr;
    };
    Desc.pArg = this;
    Desc.Detach = isDetached;
    EXPECT_EQ(SYS_THREAD_CreateEx(&Desc), 0);
  }
  ~BUSY_THREAD() {
    SYS_EVENT_Delete(pEnd);
    SYS_SEMA_Delete(pEnded);
  }

  int64_t Id() const { return Desc.Handle; }
  void End() {
    SYS_EVENT_Set(pEnd);
    ASSERT_EQ(SYS_SEMA_Wait(pEnded, 20000), 0);
  }

  SYS_EVENT* const pEnd = SYS_EVENT_Create(0, 0);

 private:
  SYS_SEMA* const pEnded = SYS_SEMA_Create(0);
  SYS_THREAD_DESC Desc = {};
};

TEST(Thread, HasTheNameThatItWasGivenAndNoOther) {
  std::thread([] {
    const std::string longName(200, 'n');
    EXPECT_EQ(SYS_THREAD_SetName("creator"), 0);
    for (const char* name : {static_cast<const char*>(nullptr), "", "short", "fifteen letters", longName.c_str()}) {
      const std::string given = name == nullptr ? "" : name;
      std::string original = given;
      const char* transient = name == nullptr ? nullptr : original.c_str();
      REPORT simple;
      EXPECT_NE(SYS_THREAD_Create(REPORT::Run, &simple, nullptr, transient), -1);
      REPORT described;
      SYS_THREAD_DESC desc = {REPORT::Run, &described, 0, transient, 0, 0, 1};
      EXPECT_EQ(SYS_THREAD_CreateEx(&desc), 0);
      original.assign(given.size(), '?');
      simple.Await();
      described.Await();
      EXPECT_EQ(simple.Name, given.substr(0, MAX_NAME));
      EXPECT_EQ(described.Name, given.substr(0, MAX_NAME));
      EXPECT_EQ(CurrentName(), "creator");
    }
  }).join();
}

TEST(Thread, CanBeNamedAnewAndReadIntoAnyBuffer) {
  std::thread([] {
    const std::string name = std::string("0123456789abcdef").substr(0, 15);
    EXPECT_EQ(SYS_THREAD_SetName((name + std::string(100, 'x')).c_str()), 0);
    EXPECT_EQ(CurrentName(), (name + std::string(100, 'x')).substr(0, MAX_NAME));
    EXPECT_EQ(SYS_THREAD_SetName(name.c_str()), 0);
    GUARDED_BLOCK block;
    for (uint32_t size = 1; size <= 20; size++) {
      const char* pBuffer = block.Take(size);
      EXPECT_EQ(SYS_THREAD_GetName(block.Take(size), size), 0);
      EXPECT_EQ(pBuffer, name.substr(0, size - 1));
      EXPECT_TRUE(block.IsIntact());
    }
    char untouched = '?';
    EXPECT_EQ(SYS_THREAD_GetName(&untouched, 0), -1);
    EXPECT_EQ(SYS_THREAD_GetName(nullptr, 10), -1);
    EXPECT_EQ(SYS_THREAD_SetName(nullptr), -1);
    EXPECT_EQ(untouched, '?');
    EXPECT_EQ(CurrentName(), name);
  }).join();
}

TEST(Thread, HasOneIdForItselfAndItsCreator) {
  REPORT detached;
  int64_t stored = 0;
  const int64_t id = SYS_THREAD_Create(REPORT::Run, &detached, &stored, nullptr);
  detached.Await();
  EXPECT_EQ(detached.Id, id);
  EXPECT_EQ(stored, id);

  REPORT joinable;
  SYS_THREAD_DESC desc = {REPORT::Run, &joinable, 0, nullptr, 0, 0, 0};
  ASSERT_EQ(SYS_THREAD_CreateEx(&desc), 0);
  EXPECT_EQ(SYS_THREAD_Join(desc.Handle), 0);
  EXPECT_EQ(joinable.Id, desc.Handle);
  EXPECT_EQ(joinable.Id, desc.ThreadId);
  EXPECT_NE(joinable.Id, SYS_THREAD_GetCurrentId());
}

SYS_SEMA* pSimpleDone;

TEST(Thread, RunsAFunctionWithoutArgument) {
  pSimpleDone = SYS_SEMA_Create(0);
  int64_t stored = 0;
  const int64_t id = SYS_THREAD_CreateSimple(
      []() -> int32_t {
        SYS_SEMA_Post(pSimpleDone);
        return -1;
      },
      &stored, "simple");
  EXPECT_EQ(SYS_SEMA_Wait(pSimpleDone, 20000), 0);
  EXPECT_EQ(stored, id);
  SYS_SEMA_Delete(pSimpleDone);
}

TEST(Thread, IsStillActiveWhetherItRunsOrNot) {
  for (int64_t id : {SYS_THREAD_GetCurrentId(), int64_t{0}, int64_t{-1}}) {
    uint32_t code = 0;
    EXPECT_EQ(SYS_THREAD_GetExitCode(id, &code), 1);
    EXPECT_EQ(code, 259u);
    EXPECT_EQ(SYS_THREAD_GetExitCode(id, nullptr), 1);
  }
}

TEST(Thread, IsDetachedOnceAndJoinsNotItself) {
  MISUSE_REQUIRE();
  for (bool isDetached : {false, true}) {
    BUSY_THREAD thread(isDetached);
    EXPECT_EQ(SYS_THREAD_Detach(thread.Id()), isDetached ? -1 : 0);
    EXPECT_EQ(SYS_THREAD_Detach(thread.Id()), -1);
    EXPECT_EQ(SYS_THREAD_Join(thread.Id()), -1);
    thread.End();
  }
  EXPECT_EQ(SYS_THREAD_Join(SYS_THREAD_GetCurrentId()), -1);
}

TEST(Thread, RefusesIdsOfNoThread) {
  for (int64_t id : {0, -1}) {
    EXPECT_EQ(SYS_THREAD_Join(id), -1);
    EXPECT_EQ(SYS_THREAD_Detach(id), -1);
    EXPECT_EQ(SYS_THREAD_Cancel(id), ESRCH);
  }
}

// The waiter dies holding the event's lock, unless somebody sees to it.
TEST(Thread, LeavesAnEventUsableWhenItIsCancelledInAWait) {
  BUSY_THREAD thread(false);
  EXPECT_EQ(SYS_THREAD_Cancel(thread.Id()), 0);
  EXPECT_EQ(SYS_THREAD_Join(thread.Id()), 0);
  SYS_EVENT_Set(thread.pEnd);
  EXPECT_EQ(SYS_EVENT_Wait(thread.pEnd, 0), 0);
}

TEST(Thread, IsNotStartedWithoutWhatItNeeds) {
  int64_t id = UNTOUCHED;
  EXPECT_EQ(SYS_THREAD_Create(nullptr, nullptr, &id, nullptr), -1);
  EXPECT_EQ(SYS_THREAD_CreateSimple(nullptr, &id, nullptr), -1);
  EXPECT_EQ(id, UNTOUCHED);
  EXPECT_EQ(SYS_THREAD_CreateEx(nullptr), -1);
  SYS_THREAD_DESC aDesc[] = {
      {nullptr, nullptr, 0, nullptr, UNTOUCHED, 0, 0},
      {REPORT::Run, nullptr, 0, nullptr, UNTOUCHED, 1, 0},
      {REPORT::Run, nullptr, 0, nullptr, UNTOUCHED, 0xFF, 1},
  };
  for (SYS_THREAD_DESC& desc : aDesc) {
    EXPECT_EQ(SYS_THREAD_CreateEx(&desc), -1);
    EXPECT_EQ(desc.Handle, -1);
    EXPECT_EQ(desc.ThreadId, UNTOUCHED);
  }
}

TEST(Thread, LeavesNothingBehindWhenThePlatformRefusesIt) {
  FAULTS_REQUIRE();
  for (FAULT_CALL call : {FAULT_CALL::MALLOC, FAULT_CALL::PTHREAD_CREATE}) {
    int64_t id = UNTOUCHED;
    SYS_THREAD_DESC desc = {REPORT::Run, nullptr, 0, "name", UNTOUCHED, 0, 0};
    const SCOPED_FAULT fault({call, 1, EAGAIN, 2});
    EXPECT_EQ(SYS_THREAD_Create(REPORT::Run, nullptr, &id, "name"), -1);
    EXPECT_EQ(SYS_THREAD_CreateEx(&desc), -1);
    EXPECT_EQ(fault.NumCalls(), 2u);
    EXPECT_EQ(id, UNTOUCHED);
    EXPECT_EQ(desc.Handle, -1);
    EXPECT_EQ(desc.ThreadId, UNTOUCHED);
  }
}

}  // namespace
