#include "sys/sys_process.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <vector>

#include "sys/platform.h"
#include "tests/faults.h"
#include "tests/support.h"

extern char** environ;

namespace {

using TEXTS = std::vector<std::string>;

struct PIPE {
  int Read;
  int Write;

  PIPE() {
    int aFd[2] = {-1, -1};
    EXPECT_EQ(pipe(aFd), 0);
    Read = aFd[0];
    Write = aFd[1];
  }
  ~PIPE() {
    close(Read);
    CloseWrite();
  }
  PIPE(const PIPE&) = delete;
  PIPE& operator=(const PIPE&) = delete;

  void CloseWrite() {
    close(Write);
    Write = -1;
  }

  // What comes until nobody can write any more.
  std::string Drain() {
    CloseWrite();
    std::string bytes;
    char acChunk[4096];
    ssize_t count;
    while ((count = read(Read, acChunk, sizeof(acChunk))) > 0 || (count < 0 && errno == EINTR)) {
      bytes.append(acChunk, static_cast<size_t>(std::max<ssize_t>(count, 0)));
    }
    return bytes;
  }
};

// As long as the object lives, standard input is another descriptor.
class SCOPED_INPUT {
 public:
  explicit SCOPED_INPUT(int fd) : saved(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)) { dup2(fd, STDIN_FILENO); }
  ~SCOPED_INPUT() {
    dup2(saved, STDIN_FILENO);
    close(saved);
  }
  SCOPED_INPUT(const SCOPED_INPUT&) = delete;
  SCOPED_INPUT& operator=(const SCOPED_INPUT&) = delete;

 private:
  const int saved;
};

SYS_PROC_DESC Desc(const char* path, const char* args = nullptr) {
  SYS_PROC_DESC desc = {};
  desc.pPath = path;
  desc.pArgs = args;
  return desc;
}

int32_t Start(const char* path, const char* args = nullptr) {
  const SYS_PROC_DESC desc = Desc(path, args);
  return SYS_PROC_Create(&desc);
}

bool HasChildren() {
  siginfo_t info;
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

// Waits for the end without taking note of it.
void AwaitEnd(int32_t pid) {
  siginfo_t info;
  waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
}

// Waits for a program; -1 when that fails.
int64_t ExitCodeOf(int32_t pid) {
  uint32_t exitCode;
  return SYS_PROC_Wait(pid, &exitCode) == 0 ? int64_t{exitCode} : -1;
}

// Runs body in a process of its own: what it changes for good stays there. Returns the exit code.
int64_t InChild(const std::function<int()>& body) {
  const pid_t pid = fork();
  if (pid == 0) {
    _exit(body());
  }
  return ExitCodeOf(pid);
}

struct REPORT {
  TEXTS Args;
  TEXTS Environment;
  TEXTS Descriptors;
  TEXTS Signals;  // How SIGHUP, SIGTERM, SIGUSR1 and SIGUSR2 are handled.
  TEXTS Ids;      // The program's and its parent's.
  int32_t Pid;    // What the start returned.
};

// Starts the telling program and takes down its report.
REPORT Tell(SYS_PROC_DESC desc) {
  PIPE pipe;
  desc.pPath = CHILD_PATH;
  REPORT report;
  {
    SCOPED_INPUT input(pipe.Write);
    report.Pid = SYS_PROC_Create(&desc);
  }
  EXPECT_GT(report.Pid, 0);
  const std::string bytes = pipe.Drain();
  size_t pos = 0;
  const auto take = [&] {
    const std::string text = bytes.c_str() + std::min(pos, bytes.size());
    pos += text.size() + 1;
    return text;
  };
  for (TEXTS* pTexts : {&report.Args, &report.Environment, &report.Descriptors, &report.Signals, &report.Ids}) {
    pTexts->resize(static_cast<size_t>(atoi(take().c_str())));
    std::generate(pTexts->begin(), pTexts->end(), take);
  }
  EXPECT_EQ(ExitCodeOf(report.Pid), desc.Detach != 0 ? -1 : 0);
  EXPECT_FALSE(HasChildren());
  return report;
}

// Arguments.

// The rule once more, with the standard library's searches.
TEXTS Split(const std::string& text) {
  const auto find = [&](size_t found) { return std::min(found, text.size()); };
  TEXTS tokens;
  for (size_t pos = 0; pos < text.size();) {
    pos = find(text.find_first_not_of(" \t\r\n", pos));
    const bool isQuoted = text[pos] == '"';
    pos += isQuoted;
    const size_t end = find(text.find_first_of(isQuoted ? "\"\r\n" : " \"\r\n", pos));
    tokens.push_back(text.substr(pos, end - pos));
    pos = find(text.find_first_not_of(" \t\r\n", end + (text[end] == '"')));
    pos += text[pos] == ',';
  }
  return tokens;
}

TEXTS ArgsOf(const char* text) {
  TEXTS args = Tell(Desc(nullptr, text)).Args;
  EXPECT_EQ(args.empty() ? "" : args[0], CHILD_PATH);
  args.erase(args.begin(), args.begin() + !args.empty());
  return args;
}

TEST(Arguments, AreSplitAsTextsAreRead) {
  EXPECT_EQ(ArgsOf(nullptr), TEXTS{});
  const std::pair<std::string, TEXTS> CASES[] = {{"", {}},
                                                 {"a \"b c\" d", {"a", "b c", "d"}},
                                                 {"  ", {""}},
                                                 {"a ,b", {"a", "b"}},
                                                 {"a,b, c,", {"a,b,", "c,"}},
                                                 {"\"\"\"\" \"open", {"", "", "open"}},
                                                 {"a\"b\"c", {"a", "b", "c"}},
                                                 {"1 2 3 4 5 6", {"1", "2", "3", "4", "5", "6"}},
                                                 {"1 2 3 4 5 6 7", {"1", "2", "3", "4", "5", "6", "7"}},
                                                 {"tab\tstays\nline\rends", {"tab\tstays", "line", "ends"}},
                                                 {std::string(63, 'x'), {std::string(63, 'x')}},
                                                 {std::string(64, 'x'), {std::string(64, 'x')}},
                                                 {std::string(100000, 'x'), {std::string(100000, 'x')}}};
  for (const auto& [text, args] : CASES) {
    EXPECT_EQ(ArgsOf(text.c_str()), args) << text.substr(0, 80);
  }
  RANDOM random(54);
  for (int i = 0; i < 60; i++) {
    const std::string text = random.Text("ab,\" \t\n\r \"", random.OneIn(2) ? 16 : 80);
    EXPECT_EQ(ArgsOf(text.c_str()), Split(text)) << text;
  }
}

TEST(Arguments, TakeMemoryOnlyWhenTheyAreMany) {
  FAULTS_REQUIRE();
  const std::pair<std::string, uint32_t> CASES[] = {{"1 2 3 4 5 " + std::string(53, '6'), 0},
                                                    {"1 2 3 4 5 6 7", 1},
                                                    {std::string(64, 'x'), 1},
                                                    {"1 2 3 4 5 6 " + std::string(52, '7'), 2}};
  for (const auto& [text, numBlocks] : CASES) {
    SCOPED_FAULT counter({FAULT_CALL::MALLOC, UINT32_MAX, 0});
    const int32_t pid = Start("/dev/null", text.c_str());
    EXPECT_EQ(counter.NumCalls(), numBlocks) << text;
    SYS_PROC_Wait(pid, nullptr);
  }
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [&](SCOPED_FAULT& fault) {
    const int32_t pid = Start("/dev/null", CASES[3].first.c_str());
    EXPECT_EQ(pid != 0, !fault.WasHit());
    EXPECT_EQ(HasChildren(), pid != 0);
    SYS_PROC_Wait(pid, nullptr);
  });
  EXPECT_EQ(Start(nullptr), 0);
}

// What a program is given.

TEST(Start, GivesTheEnvironmentToDetachedProgramsOnly) {
  setenv("HANDED", "over", 1);
  SYS_PROC_DESC desc = {};
  EXPECT_EQ(Tell(desc).Environment, TEXTS{});
  desc.Detach = 1;
  TEXTS own;
  for (char** ppEntry = environ; *ppEntry != nullptr; ppEntry++) {
    own.push_back(*ppEntry);
  }
  EXPECT_EQ(Tell(desc).Environment, own);
}

TEST(Start, DetachedProgramsAreNotTheCallers) {
  const std::string own = std::to_string(SYS_GetProcessId());
  SYS_PROC_DESC desc = {};
  const REPORT attached = Tell(desc);
  EXPECT_EQ(attached.Ids, (TEXTS{std::to_string(attached.Pid), own}));
  desc.Detach = 1;
  const REPORT detached = Tell(desc);
  EXPECT_NE(detached.Ids[0], std::to_string(detached.Pid));
  EXPECT_NE(detached.Ids[1], own);
}

TEST(Start, ClosesTheOutputsThatAreNotWanted) {
  for (uint8_t detach : {0, 1}) {
    SYS_PROC_DESC desc = {};
    desc.Detach = detach;
    EXPECT_EQ(Tell(desc).Descriptors, (TEXTS{"0", "1", "2"}));
    desc.CloseOutput = 1;
    EXPECT_EQ(Tell(desc).Descriptors, (TEXTS{"0", "2"}));
    desc.CloseError = 0x80;
    EXPECT_EQ(Tell(desc).Descriptors, (TEXTS{"0"}));
    desc.CloseOutput = 0;
    EXPECT_EQ(Tell(desc).Descriptors, (TEXTS{"0", "1"}));
  }
  EXPECT_EQ(InChild([] {
              SYS_PROC_DESC desc = Desc("/bin/sh", "-c :");
              desc.CloseOutput = 1;
              close(STDOUT_FILENO);
              return static_cast<int>(ExitCodeOf(SYS_PROC_Create(&desc)));
            }),
            SIGKILL);
}

volatile pid_t handlerPid;
std::atomic<int> numStrayHandlers;

void OnSignal(int) {
  if (getpid() != handlerPid) {
    numStrayHandlers++;
  }
}

TEST(Start, LeavesSignalsAsTheyAre) {
  signal(SIGUSR1, OnSignal);
  signal(SIGUSR2, SIG_IGN);
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGHUP);
  sigprocmask(SIG_BLOCK, &mask, nullptr);
  for (uint8_t detach : {0, 1}) {
    SYS_PROC_DESC desc = {};
    desc.Detach = detach;
    EXPECT_EQ(Tell(desc).Signals, (TEXTS{"blocked", "", "", "ignored"}));
  }
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_TRUE(sigismember(&mask, SIGHUP) && !sigismember(&mask, SIGTERM) && !sigismember(&mask, SIGUSR1));
  EXPECT_EQ(signal(SIGUSR1, SIG_DFL), OnSignal);
}

// Signals rain on the whole process group, new processes included: these may die of them, but must not run a handler.
TEST(Start, RunsNoHandlerOfTheCallerInTheChild) {
  EXPECT_EQ(InChild([] {
              setpgid(0, 0);
              handlerPid = getpid();
              signal(SIGUSR1, OnSignal);
              std::atomic<bool> isDone = false;
              std::thread rain([&] {
                while (!isDone) {
                  kill(0, SIGUSR1);
                }
              });
              bool isRight = true;
              for (int i = 0; i < 100; i++) {
                SYS_PROC_DESC desc = Desc("/bin/sh", "-c :");
                desc.Detach = i % 2 != 0;
                const int64_t exitCode = ExitCodeOf(SYS_PROC_Create(&desc));
                isRight = isRight && (desc.Detach != 0 ? exitCode == -1 : exitCode == 0 || exitCode == SIGUSR1);
              }
              isDone = true;
              rain.join();
              return isRight && numStrayHandlers == 0 ? 0 : 1;
            }),
            0);
}

TEST(Start, WorksOnAllThreadsAtOnce) {
  std::atomic<int> numRight = 0;
  std::vector<std::thread> threads;
  for (int i = 1; i <= 4; i++) {
    threads.emplace_back([&numRight, i] {
      const std::string args = "-c \"exit " + std::to_string(i) + "\"";
      for (int n = 0; n < 20; n++) {
        numRight += ExitCodeOf(Start("/bin/sh", args.c_str())) == i;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(numRight, 80);
}

// A pending request must take effect neither in the child nor before the helper has been waited for.
TEST(Start, IsNoPlaceToCancelAThread) {
  EXPECT_EQ(InChild([] {
              static SYS_PROC_DESC desc = Desc("/bin/sh", "-c :");
              desc.Detach = 1;
              static int32_t pid;
              std::thread thread([] {
                pthread_cancel(pthread_self());
                pid = SYS_PROC_Create(&desc);
                pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
              });
              thread.join();
              return pid > 0 && !HasChildren() ? 0 : 1;
            }),
            0);
}

// The user's limit is what makes a start fail, and it does not hold for root: a user without any other process is used.
// The limit grows until there is room for one process, which is not enough for a helper and a program.
TEST(Start, FailsWithoutRoomForAProcess) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs a user of its own";
  }
  constexpr int SKIPPED = 77;
  const int64_t exitCode = InChild([] {
    SYS_PROC_DESC desc = Desc("/bin/sh", "-c \"echo runs >&0\"");
    PIPE pipe;
    SCOPED_INPUT input(pipe.Write);
    if (setuid(61234) != 0) {
      return SKIPPED;
    }
    rlimit limit;
    getrlimit(RLIMIT_NPROC, &limit);
    for (limit.rlim_cur = 1; limit.rlim_cur < 10; limit.rlim_cur++) {
      setrlimit(RLIMIT_NPROC, &limit);
      desc.Detach = 1;
      const int32_t detached = SYS_PROC_Create(&desc);
      desc.Detach = 0;
      const int32_t attached = SYS_PROC_Create(&desc);
      if ((detached != 0) != (attached != 0) || HasChildren() != (attached != 0)) {
        return 1;
      }
      if (attached != 0) {
        dup2(STDERR_FILENO, STDIN_FILENO);
        return ExitCodeOf(attached) == 0 && !HasChildren() && pipe.Drain() == "runs\n" ? 0 : 2;
      }
    }
    return 3;
  });
  if (exitCode == SKIPPED) {
    GTEST_SKIP() << "cannot become another user";
  }
  EXPECT_EQ(exitCode, 0);
}

// Descriptors: the ways of closing them, one behind the other.

class CloseDescriptors : public testing::TestWithParam<int> {
 protected:
  CloseDescriptors()
      : kernelCall({FAULT_CALL::CLOSE_RANGE, GetParam() > 0 ? 1 : UINT32_MAX, ENOSYS, UINT32_MAX}),
        list({FAULT_CALL::GETDENTS64, GetParam() > 1 ? 1 : UINT32_MAX, EIO, UINT32_MAX}) {
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 10200);
    setrlimit(RLIMIT_NOFILE, &limit);
    numFiles = static_cast<int>(limit.rlim_cur) - 100;
  }

  ~CloseDescriptors() override { SYS_PROC_CloseInheritedFiles(); }

  void OpenFiles(int count) {
    int fd = open("/dev/null", O_RDONLY);
    while (--count > 0 && fd >= 0) {
      fd = dup(fd);
    }
  }

  SCOPED_FAULT kernelCall;
  SCOPED_FAULT list;
  int numFiles;
};

INSTANTIATE_TEST_SUITE_P(Ways, CloseDescriptors, testing::Values(0, 1, 2));

TEST_P(CloseDescriptors, OfAChildButNotOfTheCaller) {
  OpenFiles(numFiles);
  const int highest = numFiles;
  for (int fd = 100; fd < highest; fd += fd < 4000 ? 3 : 1) {
    close(fd);
  }
  SYS_PROC_DESC desc = {};
  EXPECT_EQ(Tell(desc).Descriptors, (TEXTS{"0", "1", "2"}));
  EXPECT_TRUE(fcntl(99, F_GETFD) >= 0 && fcntl(101, F_GETFD) >= 0 && fcntl(highest, F_GETFD) >= 0);
  desc.Detach = 1;
  EXPECT_EQ(Tell(desc).Descriptors, (TEXTS{"0", "1", "2"}));
}

TEST_P(CloseDescriptors, OfTheProcessAlsoWhenNoneIsFree) {
  for (bool hasInput : {true, false}) {
    EXPECT_EQ(InChild([&] {
                OpenFiles(INT32_MAX);
                if (GetParam() < 2) {
                  const rlimit limit = {STDERR_FILENO + 2, STDERR_FILENO + 2};  // The others are above it now.
                  setrlimit(RLIMIT_NOFILE, &limit);
                }
                if (!hasInput) {
                  close(STDIN_FILENO);
                }
                bool isRight = SYS_PROC_CloseInheritedFiles() == 0;
                for (int fd = 0; fd < numFiles + 100; fd++) {
                  isRight = isRight && (fcntl(fd, F_GETFD) >= 0) == (fd == 0 ? hasInput : fd <= STDERR_FILENO);
                }
                return isRight ? 0 : 1;
              }),
              0);
  }
}

// The end of a program.

TEST(Wait, TellsHowAProgramEnded) {
  const struct {
    const char* Path;
    const char* Args;
    int64_t ExitCode;
  } CASES[] = {{"/bin/sh", "-c \"exit 3\"", 3},
               {"/bin/sh", "-c \"exit 255\"", 255},
               {"/bin/sh", "-c \"kill -TERM $$\"", SIGTERM},
               {"/dev/null", nullptr, SIGKILL},
               {"/no/such/program", "1 2 3 4 5 6 7", SIGKILL},
               {"", nullptr, SIGKILL}};
  for (const auto& test : CASES) {
    EXPECT_EQ(ExitCodeOf(Start(test.Path, test.Args)), test.ExitCode) << test.Path;
    SYS_PROC_DESC desc = Desc(test.Path, test.Args);
    desc.Detach = 1;
    EXPECT_GT(SYS_PROC_Create(&desc), 0) << test.Path;
    EXPECT_FALSE(HasChildren()) << test.Path;
  }
}

TEST(Wait, TellsWhetherAProgramRuns) {
  PIPE pipe;
  int32_t pid;
  {
    SCOPED_INPUT input(pipe.Read);
    pid = Start("/bin/cat");
  }
  uint32_t exitCode = 77;
  EXPECT_EQ(SYS_PROC_GetExitCode(pid, &exitCode), 1);
  EXPECT_EQ(SYS_PROC_GetExitCode(pid, nullptr), 1);
  EXPECT_EQ(exitCode, 77u);
  pipe.CloseWrite();
  AwaitEnd(pid);
  EXPECT_EQ(SYS_PROC_GetExitCode(pid, &exitCode), 0);
  EXPECT_EQ(exitCode, 0u);
  exitCode = 77;
  EXPECT_EQ(SYS_PROC_GetExitCode(pid, &exitCode), -1);
  EXPECT_EQ(SYS_PROC_Wait(pid, &exitCode), -1);
  EXPECT_EQ(exitCode, 77u);
}

#ifndef __APPLE__
TEST(Wait, ReportsAProgramThatStoppedWhileItIsTraced) {
  const pid_t pid = fork();
  if (pid == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0) {
      raise(SIGSTOP);
    }
    _exit(77);
  }
  const int64_t exitCode = ExitCodeOf(pid);
  if (exitCode == 77) {
    GTEST_SKIP() << "tracing is not permitted";
  }
  EXPECT_EQ(exitCode, 0xFFFFFFFF);
  kill(pid, SIGKILL);
  EXPECT_EQ(ExitCodeOf(pid), SIGKILL);
}
#endif

TEST(Wait, GoesOnAfterSignals) {
  FAULTS_REQUIRE();
  const int32_t pid = Start("/bin/sh", "-c \"exit 3\"");
  {
    const SCOPED_FAULT fault({FAULT_CALL::WAITPID, 1, EINTR, 3});
    EXPECT_EQ(ExitCodeOf(pid), 3);
    EXPECT_EQ(fault.NumCalls(), 4u);
  }
  SYS_PROC_DESC desc = Desc("/bin/sh", "-c :");
  desc.Detach = 1;
  {
    const SCOPED_FAULT fault({FAULT_CALL::WAITPID, 1, EINTR, 3});
    EXPECT_GT(SYS_PROC_Create(&desc), 0);
    EXPECT_EQ(fault.NumCalls(), 4u);
  }
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(SYS_PROC_Create(&desc), 0);
  signal(SIGCHLD, SIG_DFL);
}

TEST(Kill, EndsAProgramAndLeavesNothing) {
  PIPE pipe;
  SCOPED_INPUT input(pipe.Read);
  const int32_t running = Start("/bin/cat");
  EXPECT_EQ(SYS_PROC_Kill(running), 0);
  EXPECT_EQ(SYS_PROC_Kill(running), -1);
  const int32_t ended = Start("/dev/null");
  AwaitEnd(ended);
  EXPECT_EQ(SYS_PROC_Kill(ended), 0);
  EXPECT_FALSE(HasChildren());
}

// All processes, -1, are left out: a fault would reach the whole machine.
TEST(Kill, DoesNotReachGroupsOfProcesses) {
  setpgid(0, 0);
  const int32_t pid = Start("/dev/null");
  for (int32_t group : {0, -pid, INT32_MIN}) {
    uint32_t exitCode = 77;
    EXPECT_EQ(SYS_PROC_Wait(group, &exitCode), -1);
    EXPECT_EQ(SYS_PROC_GetExitCode(group, &exitCode), -1);
    EXPECT_EQ(exitCode, 77u);
    EXPECT_EQ(SYS_PROC_Kill(group), -1);
  }
  EXPECT_EQ(SYS_PROC_Wait(-1, nullptr), -1);
  EXPECT_EQ(ExitCodeOf(pid), SIGKILL);
}

// The desktop, which is a script here that notes down what it was given.

class ShellOpen : public testing::Test {
 protected:
  ShellOpen() : dir(testing::TempDir() + "shell_open_" + std::to_string(getpid())), note(dir + "/note") {
    std::filesystem::create_directory(dir);
    const std::string script = dir + "/" + PLATFORM_OPEN_COMMAND;
    std::ofstream(script) << "#!/bin/sh\nprintf '%s.%s' \"$#\" \"$1\" > \"${0%/*}/note\"\nexit 3\n";
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    setenv("PATH", (dir + ":/usr/bin:/bin").c_str(), 1);
    setenv("LC_ALL", "C", 1);
  }
  ~ShellOpen() override { std::filesystem::remove_all(dir); }

  // Returns what the command was given, its number of arguments first; empty when it was not run.
  std::string Open(const std::string& target) {
    std::filesystem::remove(note);
    const int32_t status = SYS_ShellOpen(target.c_str());
    const bool isRefused = status == -1 && errno == ENAMETOOLONG;
    const bool isRun = std::filesystem::exists(note);
    EXPECT_TRUE(isRun ? WIFEXITED(status) && WEXITSTATUS(status) == 3 : isRefused);
    std::ifstream file(note);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  const std::string dir;
  const std::string note;
};

TEST_F(ShellOpen, PassesTheTargetAsItStands) {
  std::string allBytes;
  for (int c = 1; c < 256; c++) {
    allBytes += static_cast<char>(c);
  }
  for (const std::string& target :
       {std::string("https://host/path?a=b&c=d#e"), std::string("/a b/c\"; touch /tmp/x; echo \"d.txt"),
        std::string("$(touch x)`touch x`$HOME \\\\\" \\$ !!"), std::string("'quoted'\\"), std::string(), allBytes}) {
    EXPECT_EQ(Open(target), "1." + target);
  }
}

TEST_F(ShellOpen, RefusesWhatTheCommandCannotHold) {
  const size_t room = 511 - strlen(PLATFORM_OPEN_COMMAND) - strlen(" \"\"");
  for (const std::string& target : {std::string(room, 'a'), std::string(room % 2, 'a') + std::string(room / 2, '"')}) {
    EXPECT_EQ(Open(target), "1." + target);
    EXPECT_EQ(Open(target + 'a'), "");
    EXPECT_EQ(Open(target + std::string(5000, '`')), "");
  }
  EXPECT_EQ(Open(std::string(room - 1, 'a') + '$'), "");
}

TEST(Exit, EndsAtOnce) {
  static PIPE pipe;
  EXPECT_EQ(InChild([] {
              atexit([] { fputs("exit handler", fdopen(pipe.Write, "w")); });
              fputs("buffered", fdopen(pipe.Write, "w"));
              SYS_Exit(0x103);
              return 0;
            }),
            3);
  EXPECT_EQ(pipe.Drain(), "");
}

}  // namespace
