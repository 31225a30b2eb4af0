// Threads: what reaches a new one, what its id is good for, and what a failed creation leaves behind.

#include "sys/sys_thread.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <bit>
#include <string>
#include <thread>

#include "sys/platform.h"
#include "sys/sys_sync.h"
#include "tests/faults.h"
#include "tests/support.h"

static int lastDetachState;

// In place of the C library's: threads stay joinable, as a detached one shows its exit value to nobody.
extern "C" int pthread_attr_setdetachstate(pthread_attr_t*, int state) {
  lastDetachState = state;
  return 0;
}

namespace {

struct REPORT {
  std::string Name;
  int64_t Id = 0;
};

void* Report(void* pArg) {
  char acName[128] = "no name";
  SYS_THREAD_GetName(acName, sizeof(acName));
  *static_cast<REPORT*>(pArg) = {acName, SYS_THREAD_GetCurrentId()};
  return nullptr;
}

void* AwaitEvent(void* pArg) {
  SYS_EVENT_Wait(static_cast<SYS_EVENT*>(pArg), SYS_WAIT_INFINITE);
  return nullptr;
}

TEST(Thread, HasTheNameAndIdThatItsCreatorKnows) {
  std::thread([] {
    EXPECT_EQ(SYS_THREAD_SetName("creator"), 0);
    const std::string longName(200, 'n');
    for (const char* name : {static_cast<const char*>(nullptr), "", "short", "fifteen letters", longName.c_str()}) {
      std::string original = name == nullptr ? "" : name;
      const std::string expected = original.substr(0, PLATFORM_MAX_THREAD_NAME);
      const char* transient = name == nullptr ? nullptr : original.c_str();
      const auto flag = static_cast<uint8_t>(original.size());
      REPORT simple;
      REPORT described;
      int64_t stored = 0;
      const int64_t id = SYS_THREAD_Create(Report, &simple, name == nullptr ? nullptr : &stored, transient);
      EXPECT_EQ(lastDetachState, PTHREAD_CREATE_DETACHED);
      SYS_THREAD_DESC desc = {Report, &described, 0, transient, 0, 0, flag};
      EXPECT_EQ(SYS_THREAD_CreateEx(&desc), 0);
      EXPECT_EQ(lastDetachState, flag == 0 ? PTHREAD_CREATE_JOINABLE : PTHREAD_CREATE_DETACHED);
      original.assign(original.size(), '?');
      EXPECT_TRUE(SYS_THREAD_Join(id) == 0 && SYS_THREAD_Join(desc.Handle) == 0);
      EXPECT_TRUE(simple.Id == id && stored == (name == nullptr ? 0 : id));
      EXPECT_TRUE(described.Id == desc.Handle && described.Id == desc.ThreadId);
      EXPECT_TRUE(simple.Name == expected && described.Name == expected) << expected;
    }
    GUARDED_BLOCK block;
    for (uint32_t size = 1; size < 12; size++) {
      char* pBuffer = block.Take(size);
      EXPECT_EQ(SYS_THREAD_GetName(pBuffer, size), 0);
      EXPECT_TRUE(pBuffer == std::string("creator").substr(0, size - 1) && block.IsIntact());
    }
    EXPECT_TRUE(SYS_THREAD_GetName(block.Take(0), 0) == -1 && SYS_THREAD_GetName(nullptr, 10) == -1);
    EXPECT_EQ(SYS_THREAD_SetName(nullptr), -1);
  }).join();
}

TEST(Thread, RunsAFunctionWithoutArgument) {
  int64_t stored = 0;
  const int64_t id = SYS_THREAD_CreateSimple([]() -> int32_t { return -5; }, &stored, "simple");
  void* pExitValue = nullptr;
  EXPECT_EQ(pthread_join(std::bit_cast<pthread_t>(id), &pExitValue), 0);
  EXPECT_TRUE(std::bit_cast<intptr_t>(pExitValue) == -5 && stored == id);
}

TEST(Thread, RefusesIdsThatAreNoGood) {
  for (int64_t id : {0, -1}) {
    EXPECT_TRUE(SYS_THREAD_Join(id) == -1 && SYS_THREAD_Detach(id) == -1 && SYS_THREAD_Cancel(id) == ESRCH);
    uint32_t code = 0;
    EXPECT_TRUE(SYS_THREAD_GetExitCode(id, &code) == 1 && SYS_THREAD_GetExitCode(id, nullptr) == 1);
    EXPECT_EQ(code, 259u);
  }
  MISUSE_REQUIRE();
  SYS_EVENT* pEnd = SYS_EVENT_Create(0, 0);
  const int64_t id = SYS_THREAD_Create(AwaitEvent, pEnd, nullptr, nullptr);
  EXPECT_TRUE(SYS_THREAD_Detach(id) == 0 && SYS_THREAD_Detach(id) == -1 && SYS_THREAD_Join(id) == -1);
  EXPECT_EQ(SYS_THREAD_Join(SYS_THREAD_GetCurrentId()), -1);
  SYS_EVENT_Set(pEnd);
}

// The waiter dies holding the event's lock, unless somebody sees to it.
TEST(Thread, LeavesAnEventUsableWhenItIsCancelledInAWait) {
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
  const int64_t id = SYS_THREAD_Create(AwaitEvent, pEvent, nullptr, nullptr);
  EXPECT_TRUE(SYS_THREAD_Cancel(id) == 0 && SYS_THREAD_Join(id) == 0);
  SYS_EVENT_Set(pEvent);
  EXPECT_EQ(SYS_EVENT_Wait(pEvent, 0), 0);
  SYS_EVENT_Delete(pEvent);
}

TEST(Thread, IsNotStartedWithoutWhatItNeeds) {
  int64_t id = 77;
  const auto expectRefused = [&](SYS_THREAD_FUNC* pfStart, uint8_t reserved) {
    SYS_THREAD_DESC desc = {pfStart, nullptr, 0, "name", 77, reserved, 0};
    EXPECT_TRUE(SYS_THREAD_CreateEx(&desc) == -1 && desc.Handle == -1 && desc.ThreadId == 77);
    EXPECT_TRUE(reserved != 0 || (SYS_THREAD_Create(pfStart, nullptr, &id, "name") == -1 && id == 77));
  };
  EXPECT_EQ(SYS_THREAD_CreateEx(nullptr), -1);
  EXPECT_TRUE(SYS_THREAD_CreateSimple(nullptr, &id, nullptr) == -1 && id == 77);
  expectRefused(nullptr, 0);
  expectRefused(Report, 1);
  FAULTS_REQUIRE();
  for (FAULT_CALL call : {FAULT_CALL::MALLOC, FAULT_CALL::PTHREAD_CREATE}) {
    const SCOPED_FAULT fault({call, 1, EAGAIN, UINT32_MAX});
    expectRefused(Report, 0);
  }
}

}  // namespace
