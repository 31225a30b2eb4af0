// Linux: /proc, and what its C library adds to POSIX.

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <limits.h>
#include <netpacket/packet.h>
#include <pthread.h>
#include <semaphore.h>
#include <stddef.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include "sys/platform.h"
#include "sys/repeat.h"
#include "sys/sys_memory.h"
#include "util/scan.h"
#include "util/strings.h"

struct SYS_SEMA {
  sem_t Object;
};

namespace {

// Reads a link whole; a target that does not fit is a failure, since a cut one names another file.
int32_t ReadLink(const char* path, char* pDest, uint32_t size) {
  const ssize_t length = readlink(path, pDest, size);
  if (length <= 0 || length >= static_cast<ssize_t>(size)) {
    return -1;
  }
  pDest[length] = '\0';
  return static_cast<int32_t>(length);
}

}  // namespace

// The dynamic loader only knows argv[0] here, which may be relative or made up; the process table knows better.
int32_t PLATFORM_GetImagePath(char* pDest, uint32_t size) {
  return PLATFORM_GetProcessPath(pDest, size) < 0 ? -1 : 0;
}

int32_t PLATFORM_GetProcessPath(char* pDest, uint32_t size) {
  return ReadLink("/proc/self/exe", pDest, size);
}

// The child runs in the caller's memory, on the stack below this frame, which it must not leave. The analyzer knows
// vfork only as a way to load a program at once; what the child does here keeps to what a child may do.
int32_t PLATFORM_StartChild(void (*pfRun)(const void*), const void* pArg) {
  const pid_t pid = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
  if (pid == 0) {
    pfRun(pArg);  // NOLINT(clang-analyzer-unix.Vfork)
    _exit(EXIT_FAILURE);
  }
  return pid;
}

namespace {

// Closes what the process table lists. The kernel goes through the list by number, so that closing while reading loses
// none.
bool CloseListed(int32_t first) {
  close(first);  // Leaves a descriptor for the list itself where all are in use.
  const int list = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (list < 0) {
    return false;
  }
  alignas(dirent64) char acEntries[4096];
  ssize_t numBytes;
  while ((numBytes = getdents64(list, acEntries, sizeof(acEntries))) > 0) {
    for (ssize_t pos = 0; pos < numBytes;) {
      const auto* pEntry = reinterpret_cast<const dirent64*>(acEntries + pos);
      uint32_t number;
      if (UTIL_StrToU32(pEntry->d_name, &number) == 0) {
        const auto fd = static_cast<int32_t>(number);
        if (fd >= first && fd != list) {
          close(fd);
        }
      }
      pos += pEntry->d_reclen;
    }
  }
  close(list);
  return numBytes == 0;
}

}  // namespace

int32_t PLATFORM_CloseFrom(int32_t first) {
  // Kernels before 5.9 do not have the call, and some sandboxes refuse it.
  if (close_range(static_cast<unsigned>(first), UINT_MAX, 0) == 0 || CloseListed(first)) {
    return 0;
  }
  struct rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) < 0) {
    return -1;
  }
  for (int32_t fd = first; static_cast<rlim_t>(fd) < limit.rlim_cur; fd++) {
    close(fd);
  }
  return 0;
}

int32_t PLATFORM_CreateSocket(int32_t family, int32_t type) {
  return socket(family, type | SOCK_CLOEXEC, 0);
}

int32_t PLATFORM_AcceptSocket(int32_t sock) {
  return accept4(sock, nullptr, nullptr, SOCK_CLOEXEC);
}

const int PLATFORM_SEND_FLAGS = MSG_NOSIGNAL;
const int PLATFORM_LINGER_SECONDS = SO_LINGER;

const uint8_t* PLATFORM_GetLinkAddress(const ifaddrs* pEntry) {
  constexpr uint32_t ADDRESS_BYTES = 6;
  if (pEntry->ifa_addr == nullptr || pEntry->ifa_addr->sa_family != AF_PACKET) {
    return nullptr;
  }
  const auto* pRecord = reinterpret_cast<const uint8_t*>(pEntry->ifa_addr);
  return pRecord[offsetof(sockaddr_ll, sll_halen)] == ADDRESS_BYTES ? pRecord + offsetof(sockaddr_ll, sll_addr)
                                                                    : nullptr;
}

PLATFORM_CLOCK PLATFORM_ReadClock() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return {static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec), 1, 1};
}

int32_t PLATFORM_GetNumCPUs() {
  return static_cast<int32_t>(sysconf(_SC_NPROCESSORS_ONLN));
}

namespace {

constexpr uint32_t MS_PER_SECOND = 1000;
constexpr int64_t NS_PER_MS = 1000000;
constexpr int64_t NS_PER_SECOND = 1000000000;

// The thread sanitizer's; null without it. It does not know sem_clockwait, and would take what such a wait hands over
// for a race.
extern "C" [[gnu::weak]] void AcquireForSanitizer(void* p) __asm__("__tsan_acquire");

}  // namespace

SYS_SEMA* PLATFORM_CreateSema(uint32_t initialCount) {
  auto* pSema = static_cast<SYS_SEMA*>(SYS_Alloc(sizeof(SYS_SEMA)));
  if (pSema != nullptr && sem_init(&pSema->Object, 0, initialCount) != 0) {
    SYS_Free(pSema);
    return nullptr;
  }
  return pSema;
}

void PLATFORM_DeleteSema(SYS_SEMA* pSema) {
  sem_destroy(&pSema->Object);
  SYS_Free(pSema);
}

int32_t PLATFORM_PostSema(SYS_SEMA* pSema) {
  return sem_post(&pSema->Object);
}

namespace {

// Returns the point of the monotonic clock that lies timeoutMs ahead.
timespec GetMonotonicDeadline(uint32_t timeoutMs) {
  timespec deadline;
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += timeoutMs / MS_PER_SECOND;
  deadline.tv_nsec += timeoutMs % MS_PER_SECOND * NS_PER_MS;
  if (deadline.tv_nsec >= NS_PER_SECOND) {
    deadline.tv_sec++;
    deadline.tv_nsec -= NS_PER_SECOND;
  }
  return deadline;
}

int WaitUntil(sem_t* pSema, const timespec* pDeadline) {
  const int result = Repeat([=] { return sem_clockwait(pSema, CLOCK_MONOTONIC, pDeadline); });
  if (result == 0 && AcquireForSanitizer != nullptr) {
    AcquireForSanitizer(pSema);
  }
  return result;
}

int32_t WaitLong(sem_t* pSema, uint32_t timeoutMs) {
  if (timeoutMs == SYS_WAIT_INFINITE) {
    return Repeat([=] { return sem_wait(pSema); });
  }
  const timespec deadline = GetMonotonicDeadline(timeoutMs);
  if (WaitUntil(pSema, &deadline) == 0) {
    return 0;
  }
  return errno == ETIMEDOUT ? SYS_WAIT_TIMEOUT : -1;
}

}  // namespace

int32_t PLATFORM_WaitSema(SYS_SEMA* pSema, uint32_t timeoutMs) {
  // A count that is there costs no look at the clock.
  return sem_trywait(&pSema->Object) == 0 ? 0 : WaitLong(&pSema->Object, timeoutMs);
}

int32_t PLATFORM_SetThreadName(const char* name) {
  char acName[PLATFORM_MAX_THREAD_NAME + 1];
  UTIL_CopyString(acName, name, sizeof(acName));
  return pthread_setname_np(pthread_self(), acName) == 0 ? 0 : -1;
}

int32_t PLATFORM_GetThreadName(char* pDest) {
  return pthread_getname_np(pthread_self(), pDest, PLATFORM_MAX_THREAD_NAME + 1) == 0 ? 0 : -1;
}

int32_t PLATFORM_Flush(int32_t fd) {
  return Repeat([fd] { return fsync(fd); }) == 0 || errno == EINVAL ? 0 : -1;
}
