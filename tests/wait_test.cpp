#include "sys/sys_wait.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>

#include "sys/sys_file.h"
#include "tests/faults.h"
#include "tests/support.h"

namespace {

// What interrupts the wait: see poll below.
uint32_t numInterruptions;
int lastTimeoutMs;

}  // namespace

// Stands before the C library's. An interrupted call takes 3 ms.
extern "C" int poll(pollfd* pEntries, nfds_t numEntries, int timeoutMs) {
  if (numInterruptions > 0) {
    numInterruptions--;
    EXPECT_TRUE((timeoutMs == -1 && lastTimeoutMs == -1) ||
                (timeoutMs >= 0 && timeoutMs <= std::max(lastTimeoutMs - 2, 0)));
    lastTimeoutMs = timeoutMs;
    usleep(3000);
    errno = EINTR;
    return -1;
  }
  static const auto pfReal = reinterpret_cast<decltype(&poll)>(dlsym(RTLD_NEXT, "poll"));
  return pfReal(pEntries, numEntries, timeoutMs);
}

namespace {

struct PIPE {
  PIPE() { EXPECT_EQ(pipe(aFd), 0); }
  ~PIPE() {
    SYS_FILE_Close(aFd[0]);
    SYS_FILE_Close(aFd[1]);
  }
  void CloseEnd(int i) {
    close(aFd[i]);
    aFd[i] = -1;
  }
  int aFd[2];
};

// A call on an end or an error does not block, so a wait must not either.
TEST(Wait, TellsReadinessAndEndsFromTimeOut) {
  PIPE data;
  EXPECT_GE(MeasureUs([&] { EXPECT_EQ(SYS_WaitReadable(data.aFd[0], 20), 0); }), 20000);
  fcntl(data.aFd[1], F_SETFL, O_NONBLOCK);
  EXPECT_EQ(SYS_WaitWritable(data.aFd[1], 0), 1);
  const std::string block(0x1000, 'x');
  while (write(data.aFd[1], block.data(), block.size()) > 0) {
  }
  EXPECT_EQ(SYS_WaitWritable(data.aFd[1], 5), 0);
  for (const int32_t timeoutMs : {0, 1000, INT32_MAX, -1, INT32_MIN}) {
    EXPECT_EQ(SYS_WaitReadable(data.aFd[0], timeoutMs), 1);
  }
  data.CloseEnd(0);
  EXPECT_EQ(SYS_WaitWritable(data.aFd[1], -1), 1);
}

TEST(ReadTimeout, ReadsOnceWhatIsThere) {
  PIPE data;
  char acBuffer[8] = "old";
  EXPECT_EQ(SYS_ReadTimeout(data.aFd[0], acBuffer, sizeof(acBuffer), 1), 0);
  EXPECT_EQ(write(data.aFd[1], "abcde", 5), 5);
  data.CloseEnd(1);
  for (const int32_t numBytes : {2, 3, 0}) {
    EXPECT_EQ(SYS_ReadTimeout(data.aFd[0], acBuffer, numBytes == 2 ? 2 : sizeof(acBuffer), -1), numBytes);
  }
  EXPECT_EQ(SYS_ReadTimeout(-1, acBuffer, sizeof(acBuffer), 0), -1);
  EXPECT_STREQ(acBuffer, "cde");
}

TEST(Wait, TakesAnyOpenDescriptorAndRefusesOthers) {
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, 5000);
  setrlimit(RLIMIT_NOFILE, &limit);
  const PIPE data;
  const int fd = fcntl(data.aFd[0], F_DUPFD_CLOEXEC, 4000);  // Beyond the sets of select, where the limit allows it.
  EXPECT_EQ(SYS_WaitReadable(fd, 0), fd < 0 ? -1 : 0);
  close(fd);
  for (const int32_t closed : {fd, 100000, -1, INT32_MIN}) {
    for (const int32_t timeoutMs : {-1, 0, 100000}) {
      errno = 0;
      EXPECT_EQ(SYS_WaitReadable(closed, timeoutMs), -1) << closed;
      EXPECT_EQ(errno, EBADF);
      EXPECT_EQ(SYS_WaitWritable(closed, timeoutMs), -1) << closed;
    }
  }
}

TEST(Wait, IsNeitherEndedNorProlongedBySignals) {
  FAULTS_REQUIRE();
  PIPE data;
  for (const int timeoutMs : {2, 120}) {
    numInterruptions = 10;
    lastTimeoutMs = timeoutMs + 2;
    EXPECT_GE(MeasureUs([&] { EXPECT_EQ(SYS_WaitReadable(data.aFd[0], timeoutMs), 0); }), timeoutMs * 1000);
    EXPECT_EQ(numInterruptions, 0u);
  }
  data.CloseEnd(1);
  numInterruptions = 2;
  lastTimeoutMs = -1;
  EXPECT_EQ(SYS_WaitReadable(data.aFd[0], -1), 1);
}

}  // namespace
