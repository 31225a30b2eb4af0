#include "sys/sys_process.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "sys/platform.h"
#include "tests/faults.h"
#include "tests/sandbox.h"
#include "tests/support.h"
#include "util/scan.h"

extern char** environ;

namespace {

using TEXTS = std::vector<std::string>;

int32_t Start(const char* path, const char* args, bool isDetached = false) {
  SYS_PROC_DESC desc = {};
  desc.pPath = path;
  desc.pArgs = args;
  desc.Detach = isDetached;
  return SYS_PROC_Create(&desc);
}

// Waits for a program; -1 when that fails.
int64_t ExitCodeOf(int32_t pid) {
  uint32_t exitCode;
  return SYS_PROC_Wait(pid, &exitCode) == 0 ? int64_t{exitCode} : -1;
}

// Waits for the end of any child without taking note of it; false when there is none.
bool AwaitChild() {
  siginfo_t info;
  return waitid(P_ALL, 0, &info, WEXITED | WNOWAIT) == 0;
}

// Runs body in a process of its own: what it changes for good stays there. The exit code is 0 when nothing failed.
template <typename BODY>
int32_t Fork(BODY body) {
  const pid_t pid = fork();
  if (pid == 0) {
    body();
    _exit(testing::Test::HasFailure());
  }
  return pid;
}

// Returns what is written to descriptor 0 by programs that body starts.
template <typename BODY>
std::string OutputOf(BODY body) {
  int aPipe[2];
  EXPECT_EQ(pipe(aPipe), 0);
  dup2(aPipe[1], STDIN_FILENO);
  close(aPipe[1]);
  body();
  dup2(aPipe[0], STDIN_FILENO);
  close(aPipe[0]);
  return ReadFile("/dev/stdin");
}

// Starts the telling program and takes down its report, by the kind; P is the result of the start.
std::map<char, TEXTS> Tell(SYS_PROC_DESC desc) {
  desc.pPath = CHILD_PATH;
  int32_t pid = 0;
  std::istringstream output(OutputOf([&] { pid = SYS_PROC_Create(&desc); }));
  std::map<char, TEXTS> report = {{'P', {std::to_string(pid)}}};
  for (std::string text; std::getline(output, text, '\0');) {
    report[text[0]].push_back(text.substr(1));
  }
  EXPECT_EQ(ExitCodeOf(pid), desc.Detach != 0 ? -1 : 0);
  EXPECT_FALSE(AwaitChild());
  return report;
}

TEST(Arguments, AreSplitAsTextsAreReadAndTakeMemoryOnlyWhenTheyAreMany) {
  RANDOM random(54);
  TEXTS texts = {"  ", "1 2 3 4 5 " + std::string(53, '6'), "1 2 3 4 5 6 7", std::string(64, 'x'),
                 std::string(99999, 'x')};
  for (int i = 0; i < 40; i++) {
    texts.push_back(random.Text("ab,\" \t\n\r \"", random.OneIn(2) ? 16 : 80));
  }
  FAULTS_REQUIRE();
  SYS_PROC_DESC desc = {};
  EXPECT_TRUE(SYS_PROC_Create(&desc) == 0 && Tell(desc)['A'] == TEXTS{CHILD_PATH});
  for (const std::string& text : texts) {
    TEXTS expected = {CHILD_PATH};
    for (const char* p = text.c_str(); *p != '\0';) {
      std::string token(100000, ' ');
      UTIL_ParseString(&p, token.data(), 100000);
      expected.push_back(token.c_str());
    }
    desc.pArgs = text.c_str();
    EXPECT_EQ(Tell(desc)['A'], expected) << text.substr(0, 80);
    uint32_t numBlocks = 0;
    SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [&](const SCOPED_FAULT& fault) {
      const bool isStarted = Start("/dev/null", desc.pArgs) != 0;
      numBlocks = fault.NumCalls();
      EXPECT_NE(isStarted, fault.WasHit());
      EXPECT_EQ(waitpid(-1, nullptr, 0) > 0, isStarted);
    });
    EXPECT_EQ(numBlocks, (expected.size() > 7) + (text.size() > 63)) << text.substr(0, 80);
  }
}

TEXTS Sorted(TEXTS texts) {
  std::sort(texts.begin(), texts.end());
  return texts;
}

TEST(Start, GivesAProgramWhatItIsToHave) {
  const auto handler = [](int) {};
  signal(SIGUSR1, handler);
  signal(SIGUSR2, SIG_IGN);
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGHUP);
  sigprocmask(SIG_BLOCK, &mask, nullptr);
  const TEXTS environment(environ, std::find(environ, environ + 10000, nullptr));
  for (bool isDetached : {false, true}) {
    SYS_PROC_DESC desc = {};
    desc.Detach = isDetached;
    auto report = Tell(desc);
    EXPECT_EQ(Sorted(report['E']), isDetached ? Sorted(environment) : TEXTS{});
    EXPECT_EQ(report['S'], (TEXTS{"blocked", "", "", "ignored"}));
    EXPECT_EQ(report['I'].at(0) == report['P'][0], !isDetached);
    EXPECT_EQ(report['I'].at(1) == std::to_string(SYS_GetProcessId()), !isDetached);
    EXPECT_EQ(report['D'], (TEXTS{"0", "1", "2"}));
    desc.CloseOutput = 1;
    EXPECT_EQ(Tell(desc)['D'], (TEXTS{"0", "2"}));
    desc.CloseError = 0x80;
    EXPECT_EQ(Tell(desc)['D'], TEXTS{"0"});
  }
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_TRUE(sigismember(&mask, SIGHUP) && !sigismember(&mask, SIGTERM) && !sigismember(&mask, SIGUSR1));
  FAULTS_REQUIRE();
  // A signal that comes before the program has been loaded may end the child, but must not run the caller's handler.
  const SCOPED_FAULT raised({FAULT_CALL::CLOSE_RANGE, 1, 0, 1, FAULT_KIND::NONE, [] { kill(getpid(), SIGUSR1); }});
  EXPECT_EQ(ExitCodeOf(Start("/bin/sh", "-c :")), SIGUSR1);
  EXPECT_EQ(signal(SIGUSR1, SIG_DFL), handler);
}

// A pending request must take effect neither in the child nor before the helper has been waited for.
TEST(Start, IsNoPlaceToCancelAThread) {
  static int32_t pid = 0;
  static bool isCancelledLater = true;
  std::thread([] {
    pthread_cancel(pthread_self());
    pid = Start("/bin/sh", "-c :", true);
    pthread_testcancel();
    isCancelledLater = false;
  }).join();
  EXPECT_TRUE(pid > 0 && !AwaitChild() && isCancelledLater);
}

TEST(Start, FailsWithoutRoomForAProcess) {
  const int isRight = RunUnprivileged([] {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_NPROC, &none);
    return Start("/bin/sh", "-c :") == 0 && Start("/bin/sh", "-c :", true) == 0 && !AwaitChild();
  });
  EXPECT_EQ(isRight, 1);
}

// The ways of closing descriptors, one behind the other: the kernel's call, the list of those in use, and one by one.
TEST(Descriptors, AreClosedInEveryWayAlsoWhenNoneIsFree) {
  for (int way = 0; way < 3; way++) {
    const SCOPED_FAULT kernelCall({FAULT_CALL::CLOSE_RANGE, way > 0 ? 1 : UINT32_MAX, ENOSYS, UINT32_MAX});
    const SCOPED_FAULT list({FAULT_CALL::GETDENTS64, way > 1 ? 1 : UINT32_MAX, EIO, UINT32_MAX});
    const int32_t pid = Fork([=] {
      rlimit limit;
      getrlimit(RLIMIT_NOFILE, &limit);
      limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 10200);
      const auto numFiles = static_cast<int>(limit.rlim_cur);
      setrlimit(RLIMIT_NOFILE, &limit);
      while (dup(STDERR_FILENO) >= 0) {
      }
      limit.rlim_cur = way < 2 ? STDERR_FILENO + 2 : limit.rlim_cur;  // The others are above it now.
      setrlimit(RLIMIT_NOFILE, &limit);
      EXPECT_EQ(SYS_PROC_CloseInheritedFiles(), 0);
      for (int fd = 0; fd < numFiles; fd++) {
        EXPECT_EQ(fcntl(fd, F_GETFD) >= 0, fd <= STDERR_FILENO) << fd;
      }
    });
    EXPECT_EQ(ExitCodeOf(pid), 0);
  }
}

TEST(Wait, TellsHowAProgramEnded) {
  const std::tuple<const char*, const char*, int64_t> CASES[] = {{"/bin/sh", "-c \"exit 255\"", 255},
                                                                 {"/bin/sh", "-c \"kill -TERM $$\"", SIGTERM},
                                                                 {"/no/such/program", "1 2 3 4 5 6 7", SIGKILL}};
  for (const auto& [path, args, exitCode] : CASES) {
    EXPECT_EQ(ExitCodeOf(Start(path, args)), exitCode) << args;
    EXPECT_GT(Start(path, args, true), 0) << args;
    EXPECT_FALSE(AwaitChild()) << args;
  }
  const int32_t outputless = Fork([] {
    SYS_PROC_DESC desc = {};
    desc.pPath = "/bin/sh";
    desc.CloseOutput = 1;
    close(STDOUT_FILENO);
    EXPECT_EQ(ExitCodeOf(SYS_PROC_Create(&desc)), SIGKILL);
  });
  EXPECT_EQ(ExitCodeOf(outputless), 0);
}

TEST(Wait, GoesOnAfterSignals) {
  FAULTS_REQUIRE();
  for (bool isDetached : {false, true}) {
    const SCOPED_FAULT fault({FAULT_CALL::WAITPID, 1, EINTR, 3});
    const int32_t pid = Start("/bin/sh", "-c \"exit 3\"", isDetached);
    EXPECT_EQ(ExitCodeOf(pid), isDetached ? -1 : 3);
    EXPECT_EQ(fault.NumCalls(), isDetached ? 5u : 4u);
  }
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(Start("/bin/sh", "-c :", true), 0);
  signal(SIGCHLD, SIG_DFL);
}

// Of the ids of groups, Kill is not given -1: a fault would reach the whole machine.
TEST(Kill, EndsAProgramAndNoGroupAndLeavesNothing) {
  setpgid(0, 0);
  const int32_t running = Start("/bin/sleep", "60");
  uint32_t exitCode = 77;
  EXPECT_TRUE(SYS_PROC_GetExitCode(running, &exitCode) == 1 && SYS_PROC_GetExitCode(running, nullptr) == 1);
  for (int32_t group : {0, -running, INT32_MIN}) {
    EXPECT_EQ(SYS_PROC_Kill(group), -1);
  }
  EXPECT_EQ(SYS_PROC_Kill(running), 0);
  EXPECT_EQ(SYS_PROC_Kill(running), -1);
  const int32_t ended = Start("/dev/null", nullptr);
  AwaitChild();
  for (int32_t group : {0, -1, -getpid()}) {
    EXPECT_TRUE(SYS_PROC_Wait(group, &exitCode) == -1 && SYS_PROC_GetExitCode(group, &exitCode) == -1);
  }
  EXPECT_EQ(exitCode, 77u);
  EXPECT_EQ(SYS_PROC_GetExitCode(ended, &exitCode), 0);
  EXPECT_EQ(exitCode, uint32_t{SIGKILL});
  EXPECT_TRUE(SYS_PROC_GetExitCode(ended, nullptr) == -1 && SYS_PROC_Wait(ended, nullptr) == -1);
  signal(SIGTERM, SIG_IGN);
  EXPECT_EQ(OutputOf([] { EXPECT_EQ(SYS_PROC_Kill(Start("/bin/sh", "-c \"sleep 0.1; echo end >&0\"")), 0); }), "end\n");
  signal(SIGTERM, SIG_DFL);
}

// The desktop is a script here that notes down what it was given, its number of arguments first.
TEST(ShellOpen, PassesTheTargetAsItStandsOrNotAtAll) {
  const TEMP_DIR dir;
  dir.AddFile(PLATFORM_OPEN_COMMAND, "#!/bin/sh\nprintf '%s.%s' \"$#\" \"$1\" > \"${0%/*}/note\"\nexit 3\n", 0755);
  const SCOPED_ENV path("PATH", (dir.Path + ":/usr/bin:/bin").c_str());
  const SCOPED_ENV locale("LC_ALL", "C");
  std::string allBytes = "$HOME `echo x` \\\\ \\$ \"; echo \"";
  for (int c = 1; c < 256; c++) {
    allBytes += static_cast<char>(c);
  }
  const size_t room = 511 - strlen(PLATFORM_OPEN_COMMAND) - strlen(" \"\"");
  const std::string half(room / 2, '"');
  for (const std::string& target : {std::string(), allBytes, std::string(room, 'a'), half, half + "ab",
                                    std::string(room - 1, 'a') + '$', std::string(5000, 'a')}) {
    const bool isPassed = target.size() <= room && !target.ends_with("a$") && !target.ends_with("ab");
    dir.AddFile("note");
    const int32_t status = SYS_ShellOpen(target.c_str());
    EXPECT_TRUE(isPassed ? WIFEXITED(status) && WEXITSTATUS(status) == 3 : status == -1 && errno == ENAMETOOLONG);
    EXPECT_EQ(ReadFile(dir / "note"), isPassed ? "1." + target : "");
  }
}

TEST(Exit, EndsAtOnce) {
  const auto body = [] {
    atexit([] { dprintf(STDIN_FILENO, "exit handler"); });
    fputs("buffered", fdopen(STDIN_FILENO, "w"));
    SYS_Exit(0x103);
  };
  EXPECT_EQ(OutputOf([=] { EXPECT_EQ(ExitCodeOf(Fork(body)), 3); }), "");
}

}  // namespace
