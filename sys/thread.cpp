// Threads of the platform. What a new thread needs travels in one heap block: the creator makes it, the thread frees it
// before it runs anything, so that a thread that is cancelled later leaks nothing. A thread names itself, since not
// every platform names another one.
//
// Exit values are never fetched, and no list of threads is kept: an id is all there is of one.

#include <errno.h>
#include <pthread.h>

#include <bit>

#include "sys/platform.h"
#include "sys/sys_memory.h"
#include "sys/sys_thread.h"
#include "util/strings.h"

namespace {

struct START_RECORD {
  char acName[PLATFORM_MAX_THREAD_NAME + 1];
  SYS_THREAD_FUNC* pfStart;
  void* pArg;
};

// The platform's id is a number or a pointer, and 64 bits wide in either case.
int64_t ToId(pthread_t thread) {
  return std::bit_cast<int64_t>(thread);
}

pthread_t ToThread(int64_t threadId) {
  return std::bit_cast<pthread_t>(threadId);
}

// The platform looks up no id but follows it: these two, which failed creations leave behind, are caught before.
bool IsNoThread(int64_t threadId) {
  return threadId == 0 || threadId == -1;
}

void* EnterThread(void* pArg) {
  auto* pRecord = static_cast<START_RECORD*>(pArg);
  PLATFORM_SetThreadName(pRecord->acName);
  SYS_THREAD_FUNC* pfStart = pRecord->pfStart;
  void* pStartArg = pRecord->pArg;
  SYS_Free(pRecord);
  return pfStart(pStartArg);
}

int32_t StartWithAttributes(const START_RECORD& start, const pthread_attr_t* pAttributes, int64_t* pThreadId) {
  auto* pRecord = static_cast<START_RECORD*>(SYS_Alloc(sizeof(START_RECORD)));
  if (pRecord == nullptr) {
    return -1;
  }
  *pRecord = start;
  pthread_t thread;
  if (pthread_create(&thread, pAttributes, EnterThread, pRecord) != 0) {
    SYS_Free(pRecord);
    return -1;
  }
  *pThreadId = ToId(thread);
  return 0;
}

int32_t StartThread(SYS_THREAD_FUNC* pfStart, void* pArg, const char* name, int detachState, int64_t* pThreadId) {
  pthread_attr_t attributes;
  if (pfStart == nullptr || pthread_attr_init(&attributes) != 0) {
    return -1;
  }
  START_RECORD start = {{}, pfStart, pArg};
  UTIL_CopyString(start.acName, name != nullptr ? name : "", sizeof(start.acName));
  int32_t result = -1;
  if (pthread_attr_setdetachstate(&attributes, detachState) == 0) {
    result = StartWithAttributes(start, &attributes, pThreadId);
  }
  pthread_attr_destroy(&attributes);
  return result;
}

}  // namespace

int64_t SYS_THREAD_Create(SYS_THREAD_FUNC* pfStart, void* pArg, int64_t* pThreadId, const char* name) {
  int64_t threadId;
  if (StartThread(pfStart, pArg, name, PTHREAD_CREATE_DETACHED, &threadId) < 0) {
    return -1;
  }
  if (pThreadId != nullptr) {
    *pThreadId = threadId;
  }
  return threadId;
}

namespace {

void* RunSimple(void* pArg) {
  const int64_t result = std::bit_cast<SYS_THREAD_SIMPLE_FUNC*>(pArg)();
  return std::bit_cast<void*>(result);
}

}  // namespace

int64_t SYS_THREAD_CreateSimple(SYS_THREAD_SIMPLE_FUNC* pfStart, int64_t* pThreadId, const char* name) {
  return SYS_THREAD_Create(pfStart != nullptr ? RunSimple : nullptr, std::bit_cast<void*>(pfStart), pThreadId, name);
}

int32_t SYS_THREAD_CreateEx(SYS_THREAD_DESC* pDesc) {
  if (pDesc == nullptr) {
    return -1;
  }
  pDesc->Handle = -1;
  if (pDesc->Reserved != 0) {
    return -1;
  }
  const int detachState = pDesc->Detach != 0 ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE;
  int64_t threadId;
  if (StartThread(pDesc->pfStart, pDesc->pArg, pDesc->pName, detachState, &threadId) < 0) {
    return -1;
  }
  pDesc->ThreadId = threadId;
  pDesc->Handle = threadId;
  return 0;
}

int32_t SYS_THREAD_Join(int64_t threadId) {
  return !IsNoThread(threadId) && pthread_join(ToThread(threadId), nullptr) == 0 ? 0 : -1;
}

int32_t SYS_THREAD_Detach(int64_t threadId) {
  return !IsNoThread(threadId) && pthread_detach(ToThread(threadId)) == 0 ? 0 : -1;
}

int32_t SYS_THREAD_Cancel(int64_t threadId) {
  return IsNoThread(threadId) ? ESRCH : pthread_cancel(ToThread(threadId));
}

int32_t SYS_THREAD_GetExitCode(int64_t threadId, uint32_t* pCode) {
  (void)threadId;
  if (pCode != nullptr) {
    *pCode = SYS_STILL_ACTIVE;
  }
  return 1;
}

int32_t SYS_THREAD_SetName(const char* name) {
  return name != nullptr ? PLATFORM_SetThreadName(name) : -1;
}

int32_t SYS_THREAD_GetName(char* pBuffer, uint32_t size) {
  char acName[PLATFORM_MAX_THREAD_NAME + 1];
  if (pBuffer == nullptr || size == 0 || PLATFORM_GetThreadName(acName) < 0) {
    return -1;
  }
  UTIL_CopyString(pBuffer, acName, size);
  return 0;
}

int64_t SYS_THREAD_GetCurrentId(void) {
  return ToId(pthread_self());
}
