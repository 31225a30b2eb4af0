#include "sys/sys_wait.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "sys/sys_file.h"
#include "tests/faults.h"

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
  void Write(const std::string& bytes) const {
    EXPECT_EQ(write(aFd[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  int aFd[2];
};

double ElapsedMs(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// Interrupts whatever this thread waits in, every few milliseconds. Other threads block the signal.
class SIGNAL_STORM {
 public:
  SIGNAL_STORM() {
    numSignals = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { numSignals++; };
    sigaction(SIGALRM, &action, &OldAction);
    const itimerval interval = {{0, 3000}, {0, 3000}};
    setitimer(ITIMER_REAL, &interval, nullptr);
  }
  ~SIGNAL_STORM() {
    const itimerval none = {};
    setitimer(ITIMER_REAL, &none, nullptr);
    sigaction(SIGALRM, &OldAction, nullptr);
  }
  static std::atomic<int> numSignals;

 private:
  struct sigaction OldAction;
};

std::atomic<int> SIGNAL_STORM::numSignals;

template <typename BODY>
std::thread StartWithoutSignals(BODY body) {
  sigset_t all;
  sigset_t old;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &old);
  std::thread thread(body);
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  return thread;
}

TEST(Wait, TellsReadyFromTimeOut) {
  PIPE data;
  EXPECT_EQ(SYS_WaitReadable(data.aFd[0], 0), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(SYS_WaitReadable(data.aFd[0], 20), 0);
  EXPECT_GE(ElapsedMs(start), 20);
  EXPECT_EQ(SYS_WaitWritable(data.aFd[1], 0), 1);
  data.Write("x");
  for (int32_t timeoutMs : {0, 1000, INT32_MAX, -1, INT32_MIN}) {
    EXPECT_EQ(SYS_WaitReadable(data.aFd[0], timeoutMs), 1);
  }
}

TEST(Wait, SeesAFullPipeBecomeWritable) {
  PIPE data;
  fcntl(data.aFd[1], F_SETFL, O_NONBLOCK);
  const std::string block(0x1000, 'x');
  while (write(data.aFd[1], block.data(), block.size()) > 0) {
  }
  EXPECT_EQ(SYS_WaitWritable(data.aFd[1], 5), 0);
  char acBlock[0x2000];
  EXPECT_GT(read(data.aFd[0], acBlock, sizeof(acBlock)), 0);
  EXPECT_EQ(SYS_WaitWritable(data.aFd[1], -1), 1);
}

// A call on these does not block, so a wait must not either.
TEST(Wait, CountsEndsAndErrorsAsReady) {
  PIPE toReader;
  toReader.CloseEnd(1);
  EXPECT_EQ(SYS_WaitReadable(toReader.aFd[0], -1), 1);
  PIPE toWriter;
  toWriter.CloseEnd(0);
  EXPECT_EQ(SYS_WaitWritable(toWriter.aFd[1], -1), 1);
  int aSocket[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, aSocket), 0);
  EXPECT_EQ(SYS_WaitReadable(aSocket[0], 0), 0);
  close(aSocket[1]);
  EXPECT_EQ(SYS_WaitReadable(aSocket[0], -1), 1);
  close(aSocket[0]);
  const int device = open("/dev/null", O_RDWR);
  EXPECT_EQ(SYS_WaitReadable(device, -1), 1);
  EXPECT_EQ(SYS_WaitWritable(device, -1), 1);
  close(device);
}

TEST(Wait, FailsWithoutADescriptor) {
  PIPE data;
  const int closed = data.aFd[0];
  data.CloseEnd(0);
  for (int32_t fd : {closed, 100000, -1, INT32_MIN}) {
    for (int32_t timeoutMs : {-1, 0, 100000}) {
      errno = 0;
      EXPECT_EQ(SYS_WaitReadable(fd, timeoutMs), -1) << fd;
      EXPECT_EQ(errno, EBADF);
      EXPECT_EQ(SYS_WaitWritable(fd, timeoutMs), -1) << fd;
    }
  }
}

TEST(Wait, TakesDescriptorsBeyondTheSetsOfSelect) {
  rlimit old;
  getrlimit(RLIMIT_NOFILE, &old);
  rlimit limit = old;
  limit.rlim_cur = std::max<rlim_t>(old.rlim_cur, 5000);
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
    GTEST_SKIP() << "no such descriptors here";
  }
  PIPE data;
  const int fd = fcntl(data.aFd[0], F_DUPFD_CLOEXEC, 4000);
  ASSERT_GE(fd, 4000);
  EXPECT_EQ(SYS_WaitReadable(fd, 0), 0);
  data.Write("x");
  EXPECT_EQ(SYS_WaitReadable(fd, 1000), 1);
  close(fd);
  EXPECT_EQ(SYS_WaitReadable(fd, 1000), -1);
  setrlimit(RLIMIT_NOFILE, &old);
}

TEST(Wait, IsNeitherEndedNorProlongedBySignals) {
  PIPE data;
  SIGNAL_STORM storm;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(SYS_WaitReadable(data.aFd[0], 60), 0);
  EXPECT_GE(ElapsedMs(start), 60);
  EXPECT_GE(SIGNAL_STORM::numSignals, 1);
  // Were the time-out started anew by each signal, this would never return.
  for (int32_t timeoutMs : {-1, 100000}) {
    const int signalsBefore = SIGNAL_STORM::numSignals;
    std::thread writer = StartWithoutSignals([&] {
      while (SIGNAL_STORM::numSignals < signalsBefore + 5) {
        usleep(1000);
      }
      data.Write("x");
    });
    char c;
    EXPECT_EQ(SYS_ReadTimeout(data.aFd[0], &c, 1, timeoutMs), 1);
    writer.join();
  }
}

TEST(ReadTimeout, ReadsOnceWhatIsThere) {
  PIPE data;
  char acBuffer[8] = "old";
  EXPECT_EQ(SYS_ReadTimeout(data.aFd[0], acBuffer, sizeof(acBuffer), 1), 0);
  EXPECT_STREQ(acBuffer, "old");
  data.Write("abcde");
  EXPECT_EQ(SYS_ReadTimeout(data.aFd[0], acBuffer, 2, 0), 2);
  EXPECT_EQ(SYS_ReadTimeout(data.aFd[0], acBuffer, sizeof(acBuffer), -1), 3);
  EXPECT_EQ(std::string(acBuffer, 3), "cde");
  data.CloseEnd(1);
  EXPECT_EQ(SYS_ReadTimeout(data.aFd[0], acBuffer, sizeof(acBuffer), -1), 0);
  EXPECT_EQ(SYS_ReadTimeout(-1, acBuffer, sizeof(acBuffer), 0), -1);
}

TEST(ReadTimeout, RepeatsAnInterruptedReadAndPassesOnAFailedOne) {
  FAULTS_REQUIRE();
  PIPE data;
  data.Write("x");
  char c;
  {
    SCOPED_FAULT fault({FAULT_CALL::READ, 1, EIO});
    EXPECT_EQ(SYS_ReadTimeout(data.aFd[0], &c, 1, 0), -1);
    EXPECT_EQ(errno, EIO);
  }
  SCOPED_FAULT fault({FAULT_CALL::READ, 1, EINTR, 2});
  EXPECT_EQ(SYS_ReadTimeout(data.aFd[0], &c, 1, 0), 1);
  EXPECT_EQ(fault.NumCalls(), 3u);
}

}  // namespace
