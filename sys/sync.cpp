// Mutexes and events in tables, and the way to the platform's semaphores.
//
// A slot's state alone says what may be done with it. Who changes it from free to CHANGING owns the slot, makes
// the object and then declares it READY; who changes it from READY to CHANGING unmakes it and then frees the slot.
// Operations touch objects in READY slots only, so that none is ever seen half made, and two deletions of one object do
// not meet.
//
// Deadlines are points of the wall clock in microseconds, 64 bits wide. That no thread holds or waits for what is being
// deleted is the caller's business, with one exception: see SYS_EVENT_Delete.

#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <sys/time.h>
#include <time.h>

#include <atomic>

#include "sys/platform.h"
#include "sys/sys_sync.h"
#include "util/strings.h"

// Slots do not share cache lines, so that threads with different locks do not slow each other down.
struct alignas(64) SYS_MUTEX {
  std::atomic<uint32_t> State;
  char acName[32];
  pthread_mutex_t Mutex;
  pthread_mutexattr_t Attributes;
};

struct alignas(64) SYS_EVENT {
  std::atomic<uint32_t> State;
  uint32_t Signalled;  // 0 or 1, under Mutex.
  pthread_mutex_t Mutex;
  pthread_cond_t Condition;
  std::atomic<uint32_t> NumSetters;  // Calls of SYS_EVENT_Set under way.
};

namespace {

constexpr uint32_t NUM_SLOTS = 64;

SYS_MUTEX aMutex[NUM_SLOTS];
SYS_EVENT aEvent[NUM_SLOTS];
std::atomic<uint32_t> spinLock;

enum SLOT_STATE : uint32_t { FREE, READY, CHANGING };

constexpr int64_t US_PER_SECOND = 1000000;
constexpr int64_t US_PER_MS = 1000;
constexpr int64_t NS_PER_US = 1000;
constexpr timespec POLL_PAUSE = {0, 1000000};

template <typename OBJECT>
bool ChangeState(OBJECT* pObject, uint32_t from, uint32_t to) {
  return pObject->State.compare_exchange_strong(from, to);
}

// Returns the first free slot, with the caller as its owner, or null.
template <typename OBJECT>
OBJECT* ClaimSlot(OBJECT (&aSlot)[NUM_SLOTS]) {
  for (OBJECT& slot : aSlot) {
    if (slot.State.load(std::memory_order_relaxed) == FREE && ChangeState(&slot, FREE, CHANGING)) {
      return &slot;
    }
  }
  return nullptr;
}

// Tells a handle from anything else: null, SYS_EVENT_INVALID, and what belongs to somebody else.
template <typename OBJECT>
bool IsSlot(const OBJECT* pObject, const OBJECT (&aSlot)[NUM_SLOTS]) {
  const uintptr_t distance = reinterpret_cast<uintptr_t>(pObject) - reinterpret_cast<uintptr_t>(aSlot);
  return distance < sizeof(aSlot) && distance % sizeof(OBJECT) == 0;
}

bool IsReady(const SYS_MUTEX* pMutex) {
  return IsSlot(pMutex, aMutex) && pMutex->State.load(std::memory_order_acquire) == READY;
}

bool IsReady(const SYS_EVENT* pEvent) {
  return IsSlot(pEvent, aEvent) && pEvent->State.load(std::memory_order_acquire) == READY;
}

// Returns the time since 1970, or -1 when the clock cannot be read.
int64_t ReadWallClockUs() {
  timeval now;
  if (gettimeofday(&now, nullptr) != 0) {
    return -1;
  }
  return now.tv_sec * US_PER_SECOND + now.tv_usec;
}

// Returns the point that lies timeoutMs ahead, or -1, which is always past, when the clock cannot be read.
int64_t GetDeadlineUs(uint32_t timeoutMs) {
  const int64_t nowUs = ReadWallClockUs();
  return nowUs < 0 ? -1 : nowUs + timeoutMs * US_PER_MS;
}

bool MakeMutex(SYS_MUTEX* pMutex) {
  if (pthread_mutexattr_init(&pMutex->Attributes) != 0) {
    return false;
  }
  if (pthread_mutexattr_settype(&pMutex->Attributes, PTHREAD_MUTEX_RECURSIVE) != 0 ||
      pthread_mutex_init(&pMutex->Mutex, &pMutex->Attributes) != 0) {
    pthread_mutexattr_destroy(&pMutex->Attributes);
    return false;
  }
  return true;
}

}  // namespace

SYS_MUTEX* SYS_MUTEX_Create(const char* name) {
  SYS_MUTEX* pMutex = ClaimSlot(aMutex);
  if (pMutex == nullptr) {
    return nullptr;
  }
  UTIL_CopyString(pMutex->acName, name != nullptr ? name : "", sizeof(pMutex->acName));
  if (!MakeMutex(pMutex)) {
    pMutex->State.store(FREE);
    return nullptr;
  }
  pMutex->State.store(READY);
  return pMutex;
}

namespace {

bool DeleteMutex(SYS_MUTEX* pMutex) {
  if (!IsSlot(pMutex, aMutex) || !ChangeState(pMutex, READY, CHANGING)) {
    return false;
  }
  pthread_mutex_destroy(&pMutex->Mutex);
  pthread_mutexattr_destroy(&pMutex->Attributes);
  pMutex->State.store(FREE);
  return true;
}

}  // namespace

void SYS_MUTEX_Delete(SYS_MUTEX** ppMutex) {
  if (ppMutex != nullptr && DeleteMutex(*ppMutex)) {
    *ppMutex = nullptr;
  }
}

namespace {

// Not every platform has a timed lock, hence the polling. Kept out of the plain lock, which would save registers for
// it.
[[gnu::noinline]] int32_t PollLock(pthread_mutex_t* pMutex, uint32_t timeoutMs) {
  const int64_t deadlineUs = GetDeadlineUs(timeoutMs);
  for (;;) {
    const int error = pthread_mutex_trylock(pMutex);
    if (error != EBUSY) {
      return error == 0 ? 0 : -1;
    }
    nanosleep(&POLL_PAUSE, nullptr);
    const int64_t nowUs = ReadWallClockUs();
    if (nowUs < 0 || nowUs > deadlineUs) {
      return SYS_WAIT_TIMEOUT;
    }
  }
}

}  // namespace

int32_t SYS_MUTEX_Lock(SYS_MUTEX* pMutex, uint32_t timeoutMs) {
  if (!IsReady(pMutex)) {
    return -1;
  }
  if (timeoutMs != SYS_WAIT_INFINITE) {
    return PollLock(&pMutex->Mutex, timeoutMs);
  }
  return pthread_mutex_lock(&pMutex->Mutex) == 0 ? 0 : -1;
}

int32_t SYS_MUTEX_Unlock(SYS_MUTEX* pMutex) {
  return IsReady(pMutex) && pthread_mutex_unlock(&pMutex->Mutex) == 0 ? 0 : 1;
}

SYS_MUTEX* SYS_RMUTEX_Create(void) {
  return SYS_MUTEX_Create(nullptr);
}

void SYS_RMUTEX_Delete(SYS_MUTEX* pMutex) {
  DeleteMutex(pMutex);
}

void SYS_RMUTEX_Lock(SYS_MUTEX* pMutex) {
  SYS_MUTEX_Lock(pMutex, SYS_WAIT_INFINITE);
}

void SYS_RMUTEX_Unlock(SYS_MUTEX* pMutex) {
  SYS_MUTEX_Unlock(pMutex);
}

SYS_SEMA* SYS_SEMA_Create(int32_t initialCount) {
  return initialCount < 0 ? nullptr : PLATFORM_CreateSema(static_cast<uint32_t>(initialCount));
}

void SYS_SEMA_Delete(SYS_SEMA* pSema) {
  if (pSema != nullptr) {
    PLATFORM_DeleteSema(pSema);
  }
}

int32_t SYS_SEMA_Post(SYS_SEMA* pSema) {
  return pSema == nullptr ? 1 : PLATFORM_PostSema(pSema);
}

int32_t SYS_SEMA_Wait(SYS_SEMA* pSema, uint32_t timeoutMs) {
  return pSema == nullptr ? -1 : PLATFORM_WaitSema(pSema, timeoutMs);
}

namespace {

bool MakeEvent(SYS_EVENT* pEvent) {
  if (pthread_mutex_init(&pEvent->Mutex, nullptr) != 0) {
    return false;
  }
  if (pthread_cond_init(&pEvent->Condition, nullptr) != 0) {
    pthread_mutex_destroy(&pEvent->Mutex);
    return false;
  }
  return true;
}

}  // namespace

SYS_EVENT* SYS_EVENT_Create(int32_t mode, int32_t initialState) {
  SYS_EVENT* pEvent = mode == 0 ? ClaimSlot(aEvent) : nullptr;
  if (pEvent == nullptr) {
    return SYS_EVENT_INVALID;
  }
  if (!MakeEvent(pEvent)) {
    pEvent->State.store(FREE);
    return SYS_EVENT_INVALID;
  }
  pEvent->Signalled = initialState != 0;
  pEvent->State.store(READY);
  return pEvent;
}

void SYS_EVENT_Delete(SYS_EVENT* pEvent) {
  if (!IsSlot(pEvent, aEvent) || !ChangeState(pEvent, READY, CHANGING)) {
    return;
  }
  // The wait that a set lets through can end, and its thread come here, before the set has woken anybody.
  while (pEvent->NumSetters.load() != 0) {
    sched_yield();
  }
  pthread_cond_destroy(&pEvent->Condition);
  pthread_mutex_destroy(&pEvent->Mutex);
  pEvent->Signalled = 0;
  pEvent->State.store(FREE);
}

void SYS_EVENT_Set(SYS_EVENT* pEvent) {
  if (!IsSlot(pEvent, aEvent)) {
    return;
  }
  // Counted before the slot is looked at, as SYS_EVENT_Delete changes the slot before it looks at the count: one of the
  // two sees the other.
  pEvent->NumSetters.fetch_add(1);
  if (pEvent->State.load() == READY && pthread_mutex_lock(&pEvent->Mutex) == 0) {
    pEvent->Signalled = 1;
    if (pthread_mutex_unlock(&pEvent->Mutex) == 0) {
      pthread_cond_signal(&pEvent->Condition);
    }
  }
  pEvent->NumSetters.fetch_sub(1);
}

namespace {

void UnlockEvent(void* pEvent) {
  pthread_mutex_unlock(&static_cast<SYS_EVENT*>(pEvent)->Mutex);
}

// Returns an error number. A thread that is cancelled here holds the mutex again, and must not take it along.
int WaitOnCondition(SYS_EVENT* pEvent, const timespec* pDeadline) {
  int error;
  pthread_cleanup_push(UnlockEvent, pEvent);
  error = pDeadline == nullptr ? pthread_cond_wait(&pEvent->Condition, &pEvent->Mutex)
                               : pthread_cond_timedwait(&pEvent->Condition, &pEvent->Mutex, pDeadline);
  pthread_cleanup_pop(0);
  return error;
}

// Waits for one wake-up, whatever its cause.
int32_t WaitOnce(SYS_EVENT* pEvent, uint32_t timeoutMs) {
  if (timeoutMs == SYS_WAIT_INFINITE) {
    return WaitOnCondition(pEvent, nullptr) == 0 ? 0 : -1;
  }
  const int64_t deadlineUs = GetDeadlineUs(timeoutMs);
  if (deadlineUs < 0) {
    return -1;
  }
  const timespec deadline = {deadlineUs / US_PER_SECOND, deadlineUs % US_PER_SECOND * NS_PER_US};
  const int error = WaitOnCondition(pEvent, &deadline);
  return error == 0 ? 0 : error == ETIMEDOUT ? SYS_WAIT_TIMEOUT : -1;
}

int32_t WaitLocked(SYS_EVENT* pEvent, uint32_t timeoutMs) {
  while (pEvent->Signalled == 0) {
    const int32_t result = WaitOnce(pEvent, timeoutMs);
    if (result != 0) {
      // A wait that runs out may have swallowed the wake-up of a set that came right then. The event stays set for the
      // next wait, so another thread that sleeps already has to be told.
      if (pEvent->Signalled != 0) {
        pthread_cond_signal(&pEvent->Condition);
      }
      return result;
    }
  }
  pEvent->Signalled = 0;
  return 0;
}

}  // namespace

int32_t SYS_EVENT_Wait(SYS_EVENT* pEvent, uint32_t timeoutMs) {
  if (!IsReady(pEvent) || pthread_mutex_lock(&pEvent->Mutex) != 0) {
    return -1;
  }
  const int32_t result = WaitLocked(pEvent, timeoutMs);
  return pthread_mutex_unlock(&pEvent->Mutex) == 0 ? result : -1;
}

int32_t SYS_SpinBarrier(void) {
  uint32_t expected = 0;
  while (!spinLock.compare_exchange_weak(expected, 1, std::memory_order_acq_rel, std::memory_order_relaxed)) {
    expected = 0;
  }
  spinLock.exchange(0, std::memory_order_acq_rel);
  return 0;
}
