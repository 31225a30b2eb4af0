#ifndef SYS_SYS_SYNC_H
#define SYS_SYS_SYNC_H

// What threads wait for: recursive mutexes, counting semaphores and auto-reset events.
//
// Waits take a time-out in milliseconds of which every value is meant as it stands (49 days are no overflow), except
// that SYS_WAIT_INFINITE waits without limit. They return 0 for success, SYS_WAIT_TIMEOUT when the time has run out,
// and -1 for any other failure. A time-out of 0 asks without waiting.
//
// Mutexes and events stand in two tables of 64 for the whole process: creating one allocates nothing, and fails while
// 64 of its kind exist. A handle is valid from its creation until its deletion; by then no thread may hold the mutex or
// wait for the object. A handle that is null or whose object is deleted is refused as said below, until a later
// creation hands out the same place again. Any thread may call any operation, also several at once for one object. What
// a thread wrote before it unlocked, posted or set is seen by the thread that gets the lock, the count or the event.
// The platform's error number says nothing about failures here.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SYS_WAIT_INFINITE 0xFFFFFFFFu
#define SYS_WAIT_TIMEOUT 258

typedef struct SYS_MUTEX SYS_MUTEX;
typedef struct SYS_SEMA SYS_SEMA;
typedef struct SYS_EVENT SYS_EVENT;

// What SYS_EVENT_Create returns when it fails. The other operations take it for null.
#ifdef __cplusplus
#define SYS_EVENT_INVALID (reinterpret_cast<SYS_EVENT*>(intptr_t{-1}))
#else
#define SYS_EVENT_INVALID ((SYS_EVENT*)(intptr_t)-1)
#endif

// Mutexes. The thread that holds one may lock it again, and has to unlock it as often.

// Returns an unlocked mutex, or null when 64 exist or the platform refuses one. The name (may be null) shows up in a
// debugger only, with its first 31 characters.
SYS_MUTEX* SYS_MUTEX_Create(const char* name);

// Deletes the mutex that *ppMutex names, and sets *ppMutex to null. Both may be null. The handle of a deleted mutex
// stays as it is.
void SYS_MUTEX_Delete(SYS_MUTEX** ppMutex);

// Locks a mutex, at once when it is free or the caller's own. With a time-out it is tried once a millisecond: a lock
// comes up to that much late, a time-out of 0 pauses once before it reports, and the wall clock decides, so that
// setting the clock ahead ends a wait and setting it back prolongs it. Returns -1 for a null or deleted handle, and
// when the platform refuses.
int32_t SYS_MUTEX_Lock(SYS_MUTEX* pMutex, uint32_t timeoutMs);

// Unlocks a mutex once. Returns 0, or 1 for a null or deleted handle and when the caller does not hold it.
int32_t SYS_MUTEX_Unlock(SYS_MUTEX* pMutex);

// The same mutexes without name, time-out and result: null and deleted handles are ignored. SYS_RMUTEX_Delete leaves
// the caller's handle alone.
SYS_MUTEX* SYS_RMUTEX_Create(void);
void SYS_RMUTEX_Delete(SYS_MUTEX* pMutex);
void SYS_RMUTEX_Lock(SYS_MUTEX* pMutex);
void SYS_RMUTEX_Unlock(SYS_MUTEX* pMutex);

// Semaphores. Their number is limited by memory alone, and a deleted handle must not be used any more.

// Returns a semaphore with a count, or null when the count is negative or memory is exhausted. On macOS the creation
// takes time in proportion to the count.
SYS_SEMA* SYS_SEMA_Create(int32_t initialCount);

// Deletes a semaphore; null is ignored.
void SYS_SEMA_Delete(SYS_SEMA* pSema);

// Adds one to the count, which lets one waiting thread go on. Returns 0; 1 for null; -1 when the count is at its limit
// (2147483647 on Linux).
int32_t SYS_SEMA_Post(SYS_SEMA* pSema);

// Waits until the count is not 0, and takes one from it. The time-out does not depend on the wall clock. Returns -1 for
// null.
int32_t SYS_SEMA_Wait(SYS_SEMA* pSema, uint32_t timeoutMs);

// Events. One is set or not; a wait that finds it set resets it, so that one set lets one wait through, now or later.

// Returns an event that is set when initialState is not 0; or SYS_EVENT_INVALID, not null, when mode is not 0, 64
// events exist or the platform refuses one.
SYS_EVENT* SYS_EVENT_Create(int32_t mode, int32_t initialState);

// Deletes an event; null and deleted handles are ignored. A SYS_EVENT_Set whose wait is through may still be running in
// another thread: it is waited for, so that the thread that waited may delete the event right away.
void SYS_EVENT_Delete(SYS_EVENT* pEvent);

// Sets an event, and lets one waiting thread go on. Setting it again before a wait has taken it changes nothing. Null
// and deleted handles are ignored.
void SYS_EVENT_Set(SYS_EVENT* pEvent);

// Waits until the event is set, and resets it. The wall clock decides: a clock set ahead ends a wait. The time-out
// starts anew when another thread takes the event that woke this one. Returns -1 for a null or deleted handle, and when
// the clock or the platform fails; like a wait that runs out it leaves the event as it is.
int32_t SYS_EVENT_Wait(SYS_EVENT* pEvent, uint32_t timeoutMs);

// Passes through the one spin lock of the process, and returns 0: what other threads wrote before they passed is seen
// after it.
int32_t SYS_SpinBarrier(void);

#ifdef __cplusplus
}
#endif

#endif
