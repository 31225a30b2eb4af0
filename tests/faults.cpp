// The wrappers and what they share: a counter and a fault for each call. Wrappers run on any thread, faults come and go
// while no other thread makes the calls in question.

#include "tests/faults.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <type_traits>

namespace {

constexpr size_t NUM_CALLS = static_cast<size_t>(FAULT_CALL::COUNT);

constexpr int DIRT = 0xA5;  // Fills new blocks: fresh memory is often zero, which hides that nobody cleared it.

std::atomic<uint32_t> aNumCalls[NUM_CALLS];
const FAULT* apFault[NUM_CALLS];

#ifndef __APPLE__

enum class OUTCOME { PASS, FAIL, SHORT, SKIP, VALUE };

// Counts a call and decides what becomes of it; sets errno when that is failure.
OUTCOME EnterOne(FAULT_CALL call) {
  const auto index = static_cast<size_t>(call);
  const uint32_t number = ++aNumCalls[index];
  const FAULT* pFault = apFault[index];
  if (pFault == nullptr || number < pFault->First || number - pFault->First >= pFault->Count) {
    return OUTCOME::PASS;
  }
  if (pFault->OnHit != nullptr) {
    apFault[index] = nullptr;
    pFault->OnHit();
    apFault[index] = pFault;
  }
  switch (pFault->Kind) {
    case FAULT_KIND::NONE:
      return OUTCOME::PASS;
    case FAULT_KIND::SHORT:
      return OUTCOME::SHORT;
    case FAULT_KIND::SKIP:
      return OUTCOME::SKIP;
    case FAULT_KIND::VALUE:
      errno = pFault->Error;
      return OUTCOME::VALUE;
    case FAULT_KIND::KILL:
      kill(getpid(), SIGKILL);
      [[fallthrough]];
    default:
      errno = pFault->Error;
      return OUTCOME::FAIL;
  }
}

OUTCOME Enter(FAULT_CALL call) {
  if (call == FAULT_CALL::MALLOC || call == FAULT_CALL::REALLOC) {
    return EnterOne(call);
  }
  if (SCOPED_CALL_LOG::pCurrent != nullptr) {
    SCOPED_CALL_LOG::pCurrent->Calls.push_back(call);
  }
  const OUTCOME ofAny = EnterOne(FAULT_CALL::ANY);
  const OUTCOME own = EnterOne(call);
  return own != OUTCOME::PASS ? own : ofAny;
}

// What a call gives that does not get through.
template <typename RESULT>
RESULT Refuse(OUTCOME outcome) {
  if constexpr (std::is_pointer_v<RESULT>) {
    return nullptr;
  } else {
    return outcome == OUTCOME::SKIP ? 0 : -1;
  }
}

// Moves the bytes that it is to move, half of them, or none.
template <typename CALL>
ssize_t Transfer(FAULT_CALL call, size_t numBytes, CALL real) {
  switch (Enter(call)) {
    case OUTCOME::FAIL:
      return -1;
    case OUTCOME::SHORT:
      return real(std::max<size_t>(numBytes / 2, std::min<size_t>(numBytes, 1)));
    default:
      return real(numBytes);
  }
}

#endif

}  // namespace

#ifndef __APPLE__

// A call that nothing but its outcome distinguishes from others; thread calls return their error.
#define UNPACK(...) __VA_ARGS__
#define PLAIN(call, result, name, parameters, arguments)                               \
  FAULT_WRAP(result, name, UNPACK parameters) {                                        \
    const OUTCOME outcome = Enter(FAULT_CALL::call);                                   \
    return outcome == OUTCOME::PASS ? Real_##name arguments : Refuse<result>(outcome); \
  }
#define THREAD(call, name, parameters, arguments)                                    \
  FAULT_WRAP(int, name, UNPACK parameters) {                                         \
    return Enter(FAULT_CALL::call) == OUTCOME::PASS ? Real_##name arguments : errno; \
  }

// clang-format off: one a line.
PLAIN(REALLOC, void*, realloc, (void* p, size_t size), (p, size))
PLAIN(LSEEK, off_t, lseek, (int fd, off_t offset, int origin), (fd, offset, origin))
PLAIN(STAT, int, stat, (const char* path, struct stat* pStatus), (path, pStatus))
PLAIN(FSTAT, int, fstat, (int fd, struct stat* pStatus), (fd, pStatus))
PLAIN(LSTAT, int, lstat, (const char* path, struct stat* pStatus), (path, pStatus))
PLAIN(REALPATH, char*, realpath, (const char* path, char* pDest), (path, pDest))
PLAIN(MKDIR, int, mkdir, (const char* path, mode_t mode), (path, mode))
PLAIN(FLOCK, int, flock, (int fd, int operation), (fd, operation))
PLAIN(FCHMOD, int, fchmod, (int fd, mode_t mode), (fd, mode))
PLAIN(FCHOWN, int, fchown, (int fd, uid_t owner, gid_t group), (fd, owner, group))
PLAIN(FTRUNCATE, int, ftruncate, (int fd, off_t length), (fd, length))
PLAIN(FSYNC, int, fsync, (int fd), (fd))
PLAIN(LINK, int, link, (const char* oldPath, const char* newPath), (oldPath, newPath))
PLAIN(UNLINK, int, unlink, (const char* path), (path))
PLAIN(RENAME, int, rename, (const char* oldPath, const char* newPath), (oldPath, newPath))
PLAIN(CLOSE_RANGE, int, close_range, (unsigned first, unsigned last, int flags), (first, last, flags))
PLAIN(GETDENTS64, ssize_t, getdents64, (int fd, void* pBuffer, size_t size), (fd, pBuffer, size))
PLAIN(WAITPID, pid_t, waitpid, (pid_t pid, int* pStatus, int options), (pid, pStatus, options))
PLAIN(RECV, ssize_t, recv, (int fd, void* p, size_t size, int flags), (fd, p, size, flags))
PLAIN(RECVFROM, ssize_t, recvfrom, (int fd, void* p, size_t size, int flags, sockaddr* pAddr, socklen_t* pSize),
      (fd, p, size, flags, pAddr, pSize))
PLAIN(SEND, ssize_t, send, (int fd, const void* p, size_t size, int flags), (fd, p, size, flags))
THREAD(PTHREAD_CREATE, pthread_create, (pthread_t * p, const pthread_attr_t* pAttr, void* (*pf)(void*), void* pArg),
       (p, pAttr, pf, pArg))
THREAD(PTHREAD_MUTEXATTR_INIT, pthread_mutexattr_init, (pthread_mutexattr_t * p), (p))
THREAD(PTHREAD_MUTEX_INIT, pthread_mutex_init, (pthread_mutex_t * p, const pthread_mutexattr_t* pAttr), (p, pAttr))
THREAD(PTHREAD_MUTEX_DESTROY, pthread_mutex_destroy, (pthread_mutex_t * p), (p))
THREAD(PTHREAD_COND_INIT, pthread_cond_init, (pthread_cond_t * p, const pthread_condattr_t* pAttr), (p, pAttr))
THREAD(PTHREAD_COND_SIGNAL, pthread_cond_signal, (pthread_cond_t * p), (p))
// clang-format on

FAULT_WRAP(void*, malloc, size_t size) {
  void* p = Enter(FAULT_CALL::MALLOC) == OUTCOME::PASS ? Real_malloc(size) : nullptr;
  return p != nullptr ? memset(p, DIRT, size) : nullptr;
}

FAULT_WRAP(ssize_t, read, int fd, void* pBuffer, size_t numBytes) {
  return Transfer(FAULT_CALL::READ, numBytes, [=](size_t count) { return Real_read(fd, pBuffer, count); });
}

FAULT_WRAP(ssize_t, write, int fd, const void* pBuffer, size_t numBytes) {
  return Transfer(FAULT_CALL::WRITE, numBytes, [=](size_t count) { return Real_write(fd, pBuffer, count); });
}

FAULT_WRAP(ssize_t, readlink, const char* path, char* pDest, size_t size) {
  if (Enter(FAULT_CALL::READLINK) == OUTCOME::FAIL) {
    return -1;
  }
  if (SCOPED_LINKS::pCurrent == nullptr) {
    return Real_readlink(path, pDest, size);
  }
  const auto& targets = SCOPED_LINKS::pCurrent->Targets;
  const auto found = targets.find(path);
  errno = EINVAL;
  return found != targets.end() ? static_cast<ssize_t>(found->second.copy(pDest, size)) : -1;
}

FAULT_WRAP(int, open, const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(args, unsigned) : 0;
  va_end(args);
  return Enter(FAULT_CALL::OPEN) == OUTCOME::FAIL ? -1 : Real_open(path, flags, mode);
}

FAULT_WRAP(int, ioctl, int fd, unsigned long request, ...) {
  va_list args;
  va_start(args, request);
  void* pArg = va_arg(args, void*);
  va_end(args);
  return Enter(FAULT_CALL::IOCTL) == OUTCOME::PASS ? Real_ioctl(fd, request, pArg) : -1;
}

FAULT_WRAP(int, close, int fd) {
  const OUTCOME outcome = Enter(FAULT_CALL::CLOSE);
  const int error = errno;
  const int result = Real_close(fd);  // It is gone also after a failure.
  errno = outcome == OUTCOME::FAIL ? error : errno;
  return outcome == OUTCOME::FAIL ? -1 : result;
}

FAULT_WRAP(int, getsockopt, int fd, int level, int option, void* pValue, socklen_t* pSize) {
  const OUTCOME outcome = Enter(FAULT_CALL::GETSOCKOPT);
  if (outcome == OUTCOME::VALUE) {
    memcpy(pValue, &errno, sizeof(errno));
    return 0;
  }
  return outcome == OUTCOME::PASS ? Real_getsockopt(fd, level, option, pValue, pSize) : -1;
}

FAULT_WRAP(int, getnameinfo, const sockaddr* pAddr, socklen_t size, char* pHost, socklen_t hostSize, char* pService,
           socklen_t serviceSize, int flags) {
  const int forced = SCOPED_NUMERIC_NAMES::pCurrent != nullptr ? NI_NUMERICHOST : 0;
  return Real_getnameinfo(pAddr, size, pHost, hostSize, pService, serviceSize, flags | forced);
}

FAULT_WRAP(int, getifaddrs, ifaddrs** ppList) {
  SCOPED_INTERFACES* pFake = SCOPED_INTERFACES::pCurrent;
  if (pFake == nullptr) {
    return Real_getifaddrs(ppList);
  }
  *ppList = pFake->pList;
  pFake->NumHeld += *ppList != nullptr;
  return *ppList == nullptr ? -1 : 0;
}

FAULT_WRAP(void, freeifaddrs, ifaddrs* pList) {
  if (SCOPED_INTERFACES::pCurrent == nullptr) {
    Real_freeifaddrs(pList);
  } else {
    SCOPED_INTERFACES::pCurrent->NumHeld--;
  }
}

// With a fault set, the mutex is free while OnHit runs, as it is during a wait.
FAULT_WRAP(int, pthread_cond_timedwait, pthread_cond_t* pCondition, pthread_mutex_t* pMutex,
           const timespec* pDeadline) {
  if (apFault[static_cast<size_t>(FAULT_CALL::PTHREAD_COND_TIMEDWAIT)] == nullptr) {
    return Real_pthread_cond_timedwait(pCondition, pMutex, pDeadline);
  }
  pthread_mutex_unlock(pMutex);
  const OUTCOME outcome = Enter(FAULT_CALL::PTHREAD_COND_TIMEDWAIT);
  const int error = errno;
  pthread_mutex_lock(pMutex);
  return outcome == OUTCOME::PASS ? Real_pthread_cond_timedwait(pCondition, pMutex, pDeadline) : error;
}

FAULT_WRAP(int, gettimeofday, timeval* pTime, void* pZone) {
  SCOPED_WALL_CLOCK* pClock = SCOPED_WALL_CLOCK::pCurrent;
  if (pClock == nullptr) {
    return Real_gettimeofday(pTime, pZone);
  }
  const int64_t nowUs = pClock->ReadingsUs[std::min(pClock->NumReads++, pClock->ReadingsUs.size() - 1)];
  pTime->tv_sec = nowUs / 1000000;
  pTime->tv_usec = nowUs % 1000000;
  return nowUs < 0 ? -1 : 0;
}

#endif

SCOPED_FAULT::SCOPED_FAULT(const FAULT& fault) : Fault(fault) {
  const auto index = static_cast<size_t>(Fault.Call);
  aNumCalls[index] = 0;
  apFault[index] = &Fault;
}

SCOPED_FAULT::~SCOPED_FAULT() {
  apFault[static_cast<size_t>(Fault.Call)] = nullptr;
}

uint32_t SCOPED_FAULT::NumCalls() const {
  return aNumCalls[static_cast<size_t>(Fault.Call)];
}

bool SCOPED_FAULT::WasHit() const {
  return NumCalls() >= Fault.First;
}
