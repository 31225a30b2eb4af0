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
#include <utility>

namespace {

constexpr size_t NUM_CALLS = static_cast<size_t>(FAULT_CALL::COUNT);

constexpr int DIRT = 0xA5;  // Fills new blocks: fresh memory is often zero, which hides that nobody cleared it.

std::atomic<uint32_t> aNumCalls[NUM_CALLS];
const FAULT* apFault[NUM_CALLS];
const SCOPED_LINKS* pLinks;
SCOPED_CALL_LOG* pLog;
SCOPED_INTERFACES* pInterfaces;
SCOPED_WALL_CLOCK* pWallClock;
bool areNamesNumeric;

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
  if (pLog != nullptr) {
    pLog->Calls.push_back(call);
  }
  const OUTCOME ofAny = EnterOne(FAULT_CALL::ANY);
  const OUTCOME own = EnterOne(call);
  return own != OUTCOME::PASS ? own : ofAny;
}

// The outcome of a call that has no result but success.
template <typename CALL>
int EnterPlain(FAULT_CALL call, CALL real) {
  const OUTCOME outcome = Enter(call);
  return outcome == OUTCOME::PASS ? real() : outcome == OUTCOME::SKIP ? 0 : -1;
}

// The same for calls that return their error.
template <typename CALL>
int EnterThreadCall(FAULT_CALL call, CALL real) {
  return Enter(call) == OUTCOME::PASS ? real() : errno;
}

size_t Shorten(size_t numBytes) {
  return std::max<size_t>(numBytes / 2, std::min<size_t>(numBytes, 1));
}

ssize_t ReadFakeLink(const char* path, char* pDest, size_t size) {
  auto found = pLinks->Targets.find(path);
  if (found == pLinks->Targets.end()) {
    errno = EINVAL;
    return -1;
  }
  return static_cast<ssize_t>(found->second.copy(pDest, size));
}

#endif

}  // namespace

#ifndef __APPLE__

FAULT_WRAP(void*, malloc, size_t size) {
  void* p = Enter(FAULT_CALL::MALLOC) == OUTCOME::PASS ? Real_malloc(size) : nullptr;
  return p != nullptr ? memset(p, DIRT, size) : nullptr;
}

FAULT_WRAP(void*, realloc, void* p, size_t size) {
  return Enter(FAULT_CALL::REALLOC) == OUTCOME::PASS ? Real_realloc(p, size) : nullptr;
}

FAULT_WRAP(ssize_t, read, int fd, void* pBuffer, size_t numBytes) {
  const OUTCOME outcome = Enter(FAULT_CALL::READ);
  return outcome == OUTCOME::FAIL ? -1
                                  : Real_read(fd, pBuffer, outcome == OUTCOME::SHORT ? Shorten(numBytes) : numBytes);
}

FAULT_WRAP(ssize_t, write, int fd, const void* pBuffer, size_t numBytes) {
  const OUTCOME outcome = Enter(FAULT_CALL::WRITE);
  return outcome == OUTCOME::FAIL ? -1
                                  : Real_write(fd, pBuffer, outcome == OUTCOME::SHORT ? Shorten(numBytes) : numBytes);
}

FAULT_WRAP(ssize_t, readlink, const char* path, char* pDest, size_t size) {
  if (Enter(FAULT_CALL::READLINK) == OUTCOME::FAIL) {
    return -1;
  }
  return pLinks != nullptr ? ReadFakeLink(path, pDest, size) : Real_readlink(path, pDest, size);
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

FAULT_WRAP(int, close_range, unsigned first, unsigned last, int flags) {
  return Enter(FAULT_CALL::CLOSE_RANGE) == OUTCOME::PASS ? Real_close_range(first, last, flags) : -1;
}

FAULT_WRAP(ssize_t, getdents64, int fd, void* pBuffer, size_t size) {
  return Enter(FAULT_CALL::GETDENTS64) == OUTCOME::PASS ? Real_getdents64(fd, pBuffer, size) : -1;
}

FAULT_WRAP(pid_t, waitpid, pid_t pid, int* pStatus, int options) {
  return Enter(FAULT_CALL::WAITPID) == OUTCOME::PASS ? Real_waitpid(pid, pStatus, options) : -1;
}

FAULT_WRAP(int, close, int fd) {
  const OUTCOME outcome = Enter(FAULT_CALL::CLOSE);
  const int error = errno;
  const int result = Real_close(fd);  // It is gone also after a failure.
  errno = outcome == OUTCOME::FAIL ? error : errno;
  return outcome == OUTCOME::FAIL ? -1 : result;
}

FAULT_WRAP(off_t, lseek, int fd, off_t offset, int origin) {
  return Enter(FAULT_CALL::LSEEK) == OUTCOME::PASS ? Real_lseek(fd, offset, origin) : -1;
}

FAULT_WRAP(char*, realpath, const char* path, char* pDest) {
  return Enter(FAULT_CALL::REALPATH) == OUTCOME::PASS ? Real_realpath(path, pDest) : nullptr;
}

FAULT_WRAP(int, stat, const char* path, struct stat* pStatus) {
  return Enter(FAULT_CALL::STAT) == OUTCOME::PASS ? Real_stat(path, pStatus) : -1;
}

FAULT_WRAP(int, fstat, int fd, struct stat* pStatus) {
  return Enter(FAULT_CALL::FSTAT) == OUTCOME::PASS ? Real_fstat(fd, pStatus) : -1;
}

FAULT_WRAP(int, lstat, const char* path, struct stat* pStatus) {
  return Enter(FAULT_CALL::LSTAT) == OUTCOME::PASS ? Real_lstat(path, pStatus) : -1;
}

FAULT_WRAP(int, mkdir, const char* path, mode_t mode) {
  return EnterPlain(FAULT_CALL::MKDIR, [=] { return Real_mkdir(path, mode); });
}

FAULT_WRAP(int, flock, int fd, int operation) {
  return EnterPlain(FAULT_CALL::FLOCK, [=] { return Real_flock(fd, operation); });
}

FAULT_WRAP(int, fchmod, int fd, mode_t mode) {
  return EnterPlain(FAULT_CALL::FCHMOD, [=] { return Real_fchmod(fd, mode); });
}

FAULT_WRAP(int, fchown, int fd, uid_t owner, gid_t group) {
  return EnterPlain(FAULT_CALL::FCHOWN, [=] { return Real_fchown(fd, owner, group); });
}

FAULT_WRAP(int, ftruncate, int fd, off_t length) {
  return EnterPlain(FAULT_CALL::FTRUNCATE, [=] { return Real_ftruncate(fd, length); });
}

FAULT_WRAP(int, fsync, int fd) {
  return EnterPlain(FAULT_CALL::FSYNC, [=] { return Real_fsync(fd); });
}

FAULT_WRAP(int, link, const char* oldPath, const char* newPath) {
  return EnterPlain(FAULT_CALL::LINK, [=] { return Real_link(oldPath, newPath); });
}

FAULT_WRAP(int, unlink, const char* path) {
  return EnterPlain(FAULT_CALL::UNLINK, [=] { return Real_unlink(path); });
}

FAULT_WRAP(int, rename, const char* oldPath, const char* newPath) {
  return EnterPlain(FAULT_CALL::RENAME, [=] { return Real_rename(oldPath, newPath); });
}

FAULT_WRAP(ssize_t, recv, int fd, void* pBuffer, size_t numBytes, int flags) {
  return Enter(FAULT_CALL::RECV) == OUTCOME::PASS ? Real_recv(fd, pBuffer, numBytes, flags) : -1;
}

FAULT_WRAP(ssize_t, recvfrom, int fd, void* pBuffer, size_t numBytes, int flags, sockaddr* pAddr, socklen_t* pSize) {
  return Enter(FAULT_CALL::RECVFROM) == OUTCOME::PASS ? Real_recvfrom(fd, pBuffer, numBytes, flags, pAddr, pSize) : -1;
}

FAULT_WRAP(ssize_t, send, int fd, const void* pBuffer, size_t numBytes, int flags) {
  return Enter(FAULT_CALL::SEND) == OUTCOME::PASS ? Real_send(fd, pBuffer, numBytes, flags) : -1;
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
  return Real_getnameinfo(pAddr, size, pHost, hostSize, pService, serviceSize,
                          areNamesNumeric ? flags | NI_NUMERICHOST : flags);
}

FAULT_WRAP(int, getifaddrs, ifaddrs** ppList) {
  if (pInterfaces == nullptr) {
    return Real_getifaddrs(ppList);
  }
  *ppList = pInterfaces->pList;
  pInterfaces->NumHeld += *ppList != nullptr;
  return *ppList == nullptr ? -1 : 0;
}

FAULT_WRAP(void, freeifaddrs, ifaddrs* pList) {
  if (pInterfaces == nullptr) {
    Real_freeifaddrs(pList);
  } else {
    pInterfaces->NumHeld--;
  }
}

FAULT_WRAP(int, pthread_create, pthread_t* pThread, const pthread_attr_t* pAttributes, void* (*pfStart)(void*),
           void* pArg) {
  return EnterThreadCall(FAULT_CALL::PTHREAD_CREATE,
                         [=] { return Real_pthread_create(pThread, pAttributes, pfStart, pArg); });
}

FAULT_WRAP(int, pthread_mutexattr_init, pthread_mutexattr_t* pAttributes) {
  return EnterThreadCall(FAULT_CALL::PTHREAD_MUTEXATTR_INIT, [=] { return Real_pthread_mutexattr_init(pAttributes); });
}

FAULT_WRAP(int, pthread_mutex_init, pthread_mutex_t* pMutex, const pthread_mutexattr_t* pAttributes) {
  return EnterThreadCall(FAULT_CALL::PTHREAD_MUTEX_INIT, [=] { return Real_pthread_mutex_init(pMutex, pAttributes); });
}

FAULT_WRAP(int, pthread_mutex_destroy, pthread_mutex_t* pMutex) {
  return EnterThreadCall(FAULT_CALL::PTHREAD_MUTEX_DESTROY, [=] { return Real_pthread_mutex_destroy(pMutex); });
}

FAULT_WRAP(int, pthread_cond_init, pthread_cond_t* pCondition, const pthread_condattr_t* pAttributes) {
  return EnterThreadCall(FAULT_CALL::PTHREAD_COND_INIT,
                         [=] { return Real_pthread_cond_init(pCondition, pAttributes); });
}

FAULT_WRAP(int, pthread_cond_signal, pthread_cond_t* pCondition) {
  return EnterThreadCall(FAULT_CALL::PTHREAD_COND_SIGNAL, [=] { return Real_pthread_cond_signal(pCondition); });
}

// With a fault set, the mutex is free while OnHit runs, as it is during a wait.
FAULT_WRAP(int, pthread_cond_timedwait, pthread_cond_t* pCondition, pthread_mutex_t* pMutex,
           const timespec* pDeadline) {
  if (apFault[static_cast<size_t>(FAULT_CALL::PTHREAD_COND_TIMEDWAIT)] == nullptr) {
    return Real_pthread_cond_timedwait(pCondition, pMutex, pDeadline);
  }
  pthread_mutex_unlock(pMutex);
  const int result = EnterThreadCall(FAULT_CALL::PTHREAD_COND_TIMEDWAIT, [=] {
    pthread_mutex_lock(pMutex);
    const int waited = Real_pthread_cond_timedwait(pCondition, pMutex, pDeadline);
    pthread_mutex_unlock(pMutex);
    return waited;
  });
  pthread_mutex_lock(pMutex);
  return result;
}

FAULT_WRAP(int, gettimeofday, timeval* pTime, void* pZone) {
  if (pWallClock == nullptr) {
    return Real_gettimeofday(pTime, pZone);
  }
  const int64_t nowUs = pWallClock->Read();
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

SCOPED_LINKS::SCOPED_LINKS(std::map<std::string, std::string> targets) : Targets(std::move(targets)) {
  pLinks = this;
}

SCOPED_LINKS::~SCOPED_LINKS() {
  pLinks = nullptr;
}

SCOPED_CALL_LOG::SCOPED_CALL_LOG() {
  pLog = this;
}

SCOPED_CALL_LOG::~SCOPED_CALL_LOG() {
  pLog = nullptr;
}

SCOPED_NUMERIC_NAMES::SCOPED_NUMERIC_NAMES() {
  areNamesNumeric = true;
}

SCOPED_NUMERIC_NAMES::~SCOPED_NUMERIC_NAMES() {
  areNamesNumeric = false;
}

SCOPED_INTERFACES::SCOPED_INTERFACES(ifaddrs* pFirst) : pList(pFirst) {
  pInterfaces = this;
}

SCOPED_INTERFACES::~SCOPED_INTERFACES() {
  pInterfaces = nullptr;
}

SCOPED_WALL_CLOCK::SCOPED_WALL_CLOCK(std::vector<int64_t> readingsUs) : ReadingsUs(std::move(readingsUs)) {
  pWallClock = this;
}

SCOPED_WALL_CLOCK::~SCOPED_WALL_CLOCK() {
  pWallClock = nullptr;
}

int64_t SCOPED_WALL_CLOCK::Read() {
  return ReadingsUs[std::min(NumReads++, ReadingsUs.size() - 1)];
}
