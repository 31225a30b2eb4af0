#ifndef SYS_SYS_THREAD_H
#define SYS_SYS_THREAD_H

// Threads, by the platform's own thread id.
//
// A detached thread cleans up after itself, and its id is good only while it runs. A joinable one keeps its id until it
// is joined or detached, one of which must happen once. 0 and -1 name no thread and are refused; any other value that
// is not a good id is for the platform to find out, which may end the process. Any thread may call any operation. The
// platform's error number says nothing about failures here.
//
// A name is cut to 15 characters on Linux and 63 on macOS. A thread that got none has the empty name, whatever the name
// of its creator.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// What SYS_THREAD_GetExitCode reports, whether the thread runs or not.
#define SYS_STILL_ACTIVE 259

// What a thread runs. The result is the thread's exit value.
typedef void* SYS_THREAD_FUNC(void* pArg);
typedef int32_t SYS_THREAD_SIMPLE_FUNC(void);

// What SYS_THREAD_CreateEx is to start, and what came of it. The new thread may run before the outputs are written.
typedef struct SYS_THREAD_DESC {
  SYS_THREAD_FUNC* pfStart;
  void* pArg;         // Handed to pfStart as it is.
  int64_t Handle;     // Output: the thread's id; -1 when no thread was started.
  const char* pName;  // May be null. It is copied before the creation returns.
  int64_t ThreadId;   // Output: the thread's id; unchanged when no thread was started.
  uint8_t Reserved;   // Must be 0.
  uint8_t Detach;     // 0: the thread is joinable. Else it is detached.
} SYS_THREAD_DESC;

// Starts a detached thread that runs pfStart with pArg. Returns its id, which is also stored at pThreadId (may be
// null), possibly after the thread has begun or even ended. Returns -1 and stores nothing when pfStart is null, memory
// is exhausted or the platform refuses a thread. The name may be null; it is copied before the creation returns.
int64_t SYS_THREAD_Create(SYS_THREAD_FUNC* pfStart, void* pArg, int64_t* pThreadId, const char* name);

// As SYS_THREAD_Create, for a function without argument; its result, with its sign, is the exit value.
int64_t SYS_THREAD_CreateSimple(SYS_THREAD_SIMPLE_FUNC* pfStart, int64_t* pThreadId, const char* name);

// Starts a thread as described. Returns 0, or -1 when pDesc or its function is null, the reserved byte is not 0, memory
// is exhausted or the platform refuses a thread.
int32_t SYS_THREAD_CreateEx(SYS_THREAD_DESC* pDesc);

// Waits for a joinable thread to end, and drops its exit value. Returns 0, or -1 when the thread is detached or the
// caller itself.
int32_t SYS_THREAD_Join(int64_t threadId);

// Turns a joinable thread into a detached one. Returns 0, or -1 when it is detached already.
int32_t SYS_THREAD_Detach(int64_t threadId);

// Asks a thread to end. It does so at its next cancellation point: SYS_EVENT_Wait and the pause of SYS_MUTEX_Lock are
// such, SYS_SEMA_Wait on Linux alone. Neither the thread's mutexes are unlocked nor anything of its own is freed.
// Returns 0, or the platform's error number, ESRCH for an id of no thread.
int32_t SYS_THREAD_Cancel(int64_t threadId);

// Stores SYS_STILL_ACTIVE at pCode (may be null) and returns 1, for any thread, running or not: the platform gives an
// exit value to a join alone.
int32_t SYS_THREAD_GetExitCode(int64_t threadId, uint32_t* pCode);

// Names the calling thread. Returns 0, or -1 when the name is null or the platform refuses.
int32_t SYS_THREAD_SetName(const char* name);

// Copies the name of the calling thread into size bytes at pBuffer, cut to them. Returns 0; or -1, with nothing
// written, when pBuffer is null, size is 0 or the platform refuses.
int32_t SYS_THREAD_GetName(char* pBuffer, uint32_t size);

// Returns the id of the calling thread.
int64_t SYS_THREAD_GetCurrentId(void);

#ifdef __cplusplus
}
#endif

#endif
