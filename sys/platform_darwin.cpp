// macOS: the dynamic loader, the process table, the kernel's clock and counters, Grand Central Dispatch.

#include <dispatch/dispatch.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <libproc.h>
#include <mach/mach_time.h>
#include <net/if_dl.h>
#include <pthread.h>
#include <stddef.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include "sys/platform.h"
#include "sys/repeat.h"
#include "util/strings.h"

int32_t PLATFORM_GetImagePath(char* pDest, uint32_t size) {
  Dl_info info;
  if (dladdr(reinterpret_cast<const void*>(&PLATFORM_GetImagePath), &info) == 0 || info.dli_fname == nullptr) {
    return -1;
  }
  return UTIL_CopyString(pDest, info.dli_fname, size) > 0 ? 0 : -1;
}

int32_t PLATFORM_GetProcessPath(char* pDest, uint32_t size) {
  const int length = proc_pidpath(getpid(), pDest, size);
  return length > 0 && static_cast<uint32_t>(length) < size ? length : -1;
}

int32_t PLATFORM_StartChild(void (*pfRun)(const void*), const void* pArg) {
  const pid_t pid = fork();  // vfork is deprecated, and no different on newer systems.
  if (pid == 0) {
    pfRun(pArg);
    _exit(EXIT_FAILURE);
  }
  return pid;
}

int32_t PLATFORM_CloseFrom(int32_t first) {
  const pid_t pid = getpid();
  const int size = proc_pidinfo(pid, PROC_PIDLISTFDS, 0, nullptr, 0);
  if (size < static_cast<int>(sizeof(proc_fdinfo))) {
    return -1;
  }
  // A list that is cut may lack descriptors of any number, so that it is read whole; not into the heap, which another
  // thread may have locked when the child was made.
  void* pList = mmap(nullptr, static_cast<size_t>(size), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
  if (pList == MAP_FAILED) {
    return -1;
  }
  const int numBytes = proc_pidinfo(pid, PROC_PIDLISTFDS, 0, pList, size);
  const bool isWhole = numBytes >= static_cast<int>(sizeof(proc_fdinfo)) && numBytes <= size;
  const int count = isWhole ? numBytes / static_cast<int>(sizeof(proc_fdinfo)) : 0;
  for (int i = 0; i < count; i++) {
    const int32_t fd = static_cast<const proc_fdinfo*>(pList)[i].proc_fd;
    if (fd >= first) {
      close(fd);
    }
  }
  munmap(pList, static_cast<size_t>(size));
  return isWhole ? 0 : -1;
}

namespace {

// A program that is started by another thread right before gets the descriptor all the same: there is no way to make
// socket and flag in one step.
void PrepareSocket(int32_t sock, bool isStream) {
  fcntl(sock, F_SETFD, FD_CLOEXEC);
  if (isStream) {
    const int on = 1;
    setsockopt(sock, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof(on));
  }
}

}  // namespace

int32_t PLATFORM_CreateSocket(int32_t family, int32_t type) {
  const int32_t sock = socket(family, type, 0);
  if (sock >= 0) {
    PrepareSocket(sock, type == SOCK_STREAM);
  }
  return sock;
}

int32_t PLATFORM_AcceptSocket(int32_t sock) {
  const int32_t peer = accept(sock, nullptr, nullptr);
  if (peer >= 0) {
    PrepareSocket(peer, true);
  }
  return peer;
}

const int PLATFORM_SEND_FLAGS = 0;
const int PLATFORM_LINGER_SECONDS = SO_LINGER_SEC;  // SO_LINGER alone counts ticks here.

// The address follows the interface's name, and both together may be longer than the record's type says.
const uint8_t* PLATFORM_GetLinkAddress(const ifaddrs* pEntry) {
  constexpr uint32_t ADDRESS_BYTES = 6;
  if (pEntry->ifa_addr == nullptr || pEntry->ifa_addr->sa_family != AF_LINK) {
    return nullptr;
  }
  const auto* pRecord = reinterpret_cast<const uint8_t*>(pEntry->ifa_addr);
  const uint32_t nameLength = pRecord[offsetof(sockaddr_dl, sdl_nlen)];
  return pRecord[offsetof(sockaddr_dl, sdl_alen)] == ADDRESS_BYTES
             ? pRecord + offsetof(sockaddr_dl, sdl_data) + nameLength
             : nullptr;
}

PLATFORM_CLOCK PLATFORM_ReadClock() {
  mach_timebase_info_data_t ratio;
  if (mach_timebase_info(&ratio) != KERN_SUCCESS) {
    ratio = {};
  }
  return {mach_absolute_time(), ratio.numer, ratio.denom};
}

int32_t PLATFORM_GetNumCPUs() {
  int32_t count = 0;
  size_t size = sizeof(count);
  return sysctlbyname("hw.logicalcpu", &count, &size, nullptr, 0) == 0 ? count : -1;
}

namespace {

dispatch_semaphore_t ToDispatch(SYS_SEMA* pSema) {
  return reinterpret_cast<dispatch_semaphore_t>(pSema);
}

}  // namespace

// A semaphore that is released with a smaller count than it was created with ends the process: hence a creation with 0.
SYS_SEMA* PLATFORM_CreateSema(uint32_t initialCount) {
  dispatch_semaphore_t sema = dispatch_semaphore_create(0);
  for (; sema != nullptr && initialCount != 0; initialCount--) {
    dispatch_semaphore_signal(sema);
  }
  return reinterpret_cast<SYS_SEMA*>(sema);
}

void PLATFORM_DeleteSema(SYS_SEMA* pSema) {
  dispatch_release(ToDispatch(pSema));
}

int32_t PLATFORM_PostSema(SYS_SEMA* pSema) {
  dispatch_semaphore_signal(ToDispatch(pSema));
  return 0;
}

int32_t PLATFORM_WaitSema(SYS_SEMA* pSema, uint32_t timeoutMs) {
  if (timeoutMs == SYS_WAIT_INFINITE) {
    return dispatch_semaphore_wait(ToDispatch(pSema), DISPATCH_TIME_FOREVER) == 0 ? 0 : -1;
  }
  const int64_t timeoutNs = int64_t{timeoutMs} * static_cast<int64_t>(NSEC_PER_MSEC);
  const dispatch_time_t deadline = dispatch_time(DISPATCH_TIME_NOW, timeoutNs);
  return dispatch_semaphore_wait(ToDispatch(pSema), deadline) == 0 ? 0 : SYS_WAIT_TIMEOUT;
}

int32_t PLATFORM_SetThreadName(const char* name) {
  char acName[PLATFORM_MAX_THREAD_NAME + 1];
  UTIL_CopyString(acName, name, sizeof(acName));
  return pthread_setname_np(acName) == 0 ? 0 : -1;
}

int32_t PLATFORM_GetThreadName(char* pDest) {
  return pthread_getname_np(pthread_self(), pDest, PLATFORM_MAX_THREAD_NAME + 1) == 0 ? 0 : -1;
}

// fsync leaves what it has written in the drive's cache; some file systems know nothing better. A pipe or a socket
// fails with ENOTSUP, which fsync's manual calls EINVAL.
int32_t PLATFORM_Flush(int32_t fd) {
  const bool isFlushed =
      Repeat([fd] { return fcntl(fd, F_FULLFSYNC); }) == 0 || Repeat([fd] { return fsync(fd); }) == 0;
  return isFlushed || errno == EINVAL || errno == ENOTSUP ? 0 : -1;
}
