#include "sys/sys_services.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <syslog.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/faults.h"
#include "tests/pty.h"
#include "tests/support.h"

namespace {

// What the platform would say, and what it was asked.
std::vector<std::string> calls;
const char* pHostName;
const char* pLogin;  // Null for none.
passwd account;      // The entry of pLogin.
bool hasAccount;
size_t entrySize;  // What the entry needs.

}  // namespace

#ifndef __APPLE__

FAULT_WRAP(int, gethostname, char* pDest, size_t size) {
  if (pHostName == nullptr) {
    return -1;
  }
  memcpy(pDest, pHostName, std::min(size, strlen(pHostName) + 1));
  return size > strlen(pHostName) ? 0 : -1;
}

FAULT_WRAP(int, getlogin_r, char* pDest, size_t size) {
  return pLogin != nullptr && snprintf(pDest, size, "%s", pLogin) < static_cast<int>(size) ? 0 : ENXIO;
}

FAULT_WRAP(int, getpwnam_r, const char* name, passwd* pEntry, char* pWork, size_t size, passwd** ppFound) {
  *ppFound = nullptr;
  calls.push_back(name);
  memset(pWork, 'w', size);
  if (size < entrySize) {
    return ERANGE;
  }
  *pEntry = account;
  if (account.pw_gecos != nullptr) {
    pEntry->pw_gecos = strcpy(pWork, account.pw_gecos);
  }
  *ppFound = hasAccount ? pEntry : nullptr;
  return 0;
}

FAULT_WRAP(void, syslog, int priority, const char* format, ...) {
  char acText[512];
  va_list args;
  va_start(args, format);
  vsnprintf(acText, sizeof(acText), format, args);
  va_end(args);
  calls.push_back(std::to_string(priority) + ' ' + acText);
}

// The names of C++ functions are those that the compiler makes.
FAULT_WRAP(uint32_t, _Z25PLATFORM_PreventIdleSleepv, void) {
  static uint32_t lastAssertion;
  calls.push_back("prevent " + std::to_string(++lastAssertion));
  return lastAssertion;
}

FAULT_WRAP(void, _Z23PLATFORM_AllowIdleSleepj, uint32_t assertion) {
  calls.push_back("allow " + std::to_string(assertion));
}

#endif

namespace {

std::vector<std::string> TakeCalls() {
  return std::exchange(calls, {});
}

TEST(Sleep, IsPreventedOnceHoweverOftenItIsAskedFor) {
  FAULTS_REQUIRE();
  SYS_AllowSleep();
  EXPECT_EQ(TakeCalls(), std::vector<std::string>{});
  for (const char* number : {"1", "2"}) {
    SYS_PreventSleep();
    SYS_PreventSleep();
    EXPECT_EQ(TakeCalls(), std::vector<std::string>{std::string("prevent ") + number});
    SYS_AllowSleep();
    SYS_AllowSleep();
    EXPECT_EQ(TakeCalls(), std::vector<std::string>{std::string("allow ") + number});
  }
}

TEST(RandomBytes, FillTheBufferAndNoMore) {
  GUARDED_BLOCK block;
  for (uint32_t size : {0u, 1u, 7u, 4096u}) {
    EXPECT_EQ(SYS_GetRandomBytes(block.Take(size), size), 0);
    EXPECT_TRUE(block.IsIntact());
  }
  std::string first(32, 'x');
  std::string second(32, 'x');
  EXPECT_EQ(SYS_GetRandomBytes(first.data(), 32), 0);
  EXPECT_EQ(SYS_GetRandomBytes(second.data(), 32), 0);
  EXPECT_NE(first, second);
  EXPECT_NE(first.substr(16), std::string(16, 'x'));
}

TEST(RandomBytes, ComeFromASingleRead) {
  FAULTS_REQUIRE();
  const int next = dup(STDIN_FILENO);
  close(next);
  std::string bytes(64, 'x');
  {
    SCOPED_FAULT fault({FAULT_CALL::READ, 1, 0, 1, FAULT_KIND::SHORT});
    EXPECT_EQ(SYS_GetRandomBytes(bytes.data(), 64), 0);
    EXPECT_EQ(fault.NumCalls(), 1u);
    EXPECT_NE(bytes.substr(0, 32), std::string(32, 'x'));
    EXPECT_EQ(bytes.substr(32), std::string(32, 'x'));
  }
  SCOPED_FAULT fault({FAULT_CALL::OPEN, 1, EMFILE});
  EXPECT_EQ(SYS_GetRandomBytes(bytes.data(), 64), -1);
  EXPECT_EQ(bytes.substr(32), std::string(32, 'x'));
  EXPECT_EQ(dup(STDIN_FILENO), next);
  close(next);
}

// A process that has the terminal for its standard input and output, and reports in text through a pipe.
class CONSOLE_PROCESS {
 public:
  template <typename BODY>
  explicit CONSOLE_PROCESS(const PTY& terminal, BODY body) {
    int aPipe[2];
    EXPECT_EQ(pipe(aPipe), 0);
    fflush(stdout);
    Pid = fork();
    if (Pid == 0) {
      alarm(2 * PTY::PATIENCE_MS / 1000);
      setenv("TERM", "dumb", 1);
      setenv("HOME", "/nonexistent", 1);  // Where the user would have other key bindings.
      unsetenv("EDITRC");
      for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(terminal.Slave, fd);
      }
      body(aPipe[1]);
      _exit(0);
    }
    close(aPipe[1]);
    Pipe = aPipe[0];
  }

  ~CONSOLE_PROCESS() {
    close(Pipe);
    waitpid(Pid, nullptr, 0);
  }

  CONSOLE_PROCESS(const CONSOLE_PROCESS&) = delete;
  CONSOLE_PROCESS& operator=(const CONSOLE_PROCESS&) = delete;

  // The next lines of the report.
  void ExpectReport(std::initializer_list<std::string> lines) const {
    for (const std::string& expected : lines) {
      std::string line;
      char c;
      while (read(Pipe, &c, 1) == 1 && c != '\n') {
        line += c;
      }
      EXPECT_EQ(line, expected);
    }
  }

 private:
  pid_t Pid;
  int Pipe;
};

TEST(ReadLine, EditsRemembersAndCuts) {
  static constexpr struct {
    const char* Prompt;
    uint32_t Size;
    const char* Keys;
    const char* Report;
  } aCase[] = {
      {"1> ", 16, "first\r", "0 first"},
      {"2> ", 4, "abcdef\r", "0 abc"},
      {"3> ", 16, "\r", "0 "},
      {"4> ", 16, "\x10\r", "0 abcdef"},            // One line back: uncut, and the empty one not kept.
      {"5> ", 16, "\x10\x10\x10\r", "0 first"},     // The line from the history counts once more.
      {"6> ", 7, "?bcdef\x01\x04<\r", "0 <bcdef"},  // To the start, and over the first letter.
      {"7> ", 1, "long\r", "0 "},
      {"8> ", 0, "long\r", "0 ?"},
      {"9> ", 16, "\x04", "-1 "},
  };
  PTY terminal;
  CONSOLE_PROCESS process(terminal, [](int report) {
    for (const auto& test : aCase) {
      char acLine[17] = "????????????????";
      const int32_t result = SYS_ReadLine(test.Prompt, acLine, test.Size);
      const bool isIntact = std::string(acLine + test.Size).ends_with(std::string(16 - test.Size, '?'));
      dprintf(report, "%d %s%s\n", result, test.Size == 0 ? "?" : acLine, isIntact ? "" : " and beyond");
    }
  });
  for (const auto& test : aCase) {
    const auto hasPrompt = [&](const std::string& output) { return output.find(test.Prompt) != std::string::npos; };
    ASSERT_TRUE(terminal.ReceiveUntil(hasPrompt)) << terminal.Received;
    ASSERT_TRUE(terminal.WaitUntilNotCanonical());
    terminal.Send(test.Keys);
    process.ExpectReport({test.Report});
  }
}

TEST(ReadLine, TakesInputThatIsNoTerminal) {
  PTY terminal;
  CONSOLE_PROCESS process(terminal, [](int report) {
    int aInput[2];
    EXPECT_EQ(pipe(aInput), 0);
    dprintf(aInput[1], "one\n\ntwo");
    close(aInput[1]);
    dup2(aInput[0], STDIN_FILENO);
    for (int i = 0; i < 4; i++) {
      char acLine[16] = "old";
      const int32_t result = SYS_ReadLine(nullptr, acLine, sizeof(acLine));
      dprintf(report, "%d %s\n", result, acLine);
    }
  });
  process.ExpectReport({"0 one", "0 ", "0 two", "-1 "});
}

TEST(PendingInput, CountsKeysWithoutTheReturnKey) {
  PTY terminal;
  const termios before = terminal.Settings();
  terminal.Send("k");
  ASSERT_TRUE(terminal.ReceiveUntil([](const std::string& echo) { return echo == "k"; }));
  CONSOLE_PROCESS process(terminal, [](int report) {
    dprintf(report, "%d\n", SYS_GetPendingInput());
    dprintf(report, "%d\n", SYS_GetChar());
    int32_t count = 0;
    for (int leftMs = PTY::PATIENCE_MS; count < 3 && leftMs > 0; leftMs--) {
      usleep(1000);
      count = SYS_GetPendingInput();
    }
    for (; count > 0; count--) {
      dprintf(report, "%d\n", SYS_GetPendingInput());
      dprintf(report, "%d\n", SYS_GetChar());
    }
    dprintf(report, "%d\n", SYS_GetPendingInput());
  });
  process.ExpectReport({"1", "107"});
  termios expected = before;
  expected.c_lflag &= ~static_cast<tcflag_t>(ICANON);
  const termios after = terminal.Settings();
  EXPECT_EQ(after.c_lflag, expected.c_lflag);
  EXPECT_EQ(after.c_iflag, expected.c_iflag);
  EXPECT_EQ(after.c_oflag, expected.c_oflag);
  EXPECT_EQ(after.c_cflag, expected.c_cflag);
  EXPECT_EQ(memcmp(after.c_cc, expected.c_cc, sizeof(expected.c_cc)), 0);
  terminal.Send("a\x80\xFF");
  process.ExpectReport({"3", "97", "2", "-128", "1", "-1", "0"});
}

// The line editor saves and restores the terminal's settings.
TEST(PendingInput, LeavesTheTerminalSwitchedForGood) {
  PTY terminal;
  CONSOLE_PROCESS process(terminal, [](int report) {
    char acLine[16];
    SYS_ReadLine("1> ", acLine, sizeof(acLine));
    dprintf(report, "%d\n", SYS_GetPendingInput());
    SYS_ReadLine("2> ", acLine, sizeof(acLine));
    termios settings;
    tcgetattr(STDIN_FILENO, &settings);
    dprintf(report, "%s %s\n", acLine, (settings.c_lflag & ICANON) != 0 ? "canonical" : "single keys");
  });
  for (const char* prompt : {"1> ", "2> "}) {
    ASSERT_TRUE(terminal.ReceiveUntil([=](const std::string& out) { return out.find(prompt) != std::string::npos; }));
    ASSERT_TRUE(terminal.WaitUntilNotCanonical());
    terminal.Send("x\r");
    process.ExpectReport({prompt[0] == '1' ? "0" : "x single keys"});
  }
}

TEST(PendingInput, FindsNoneWithoutATerminal) {
  PTY terminal;
  CONSOLE_PROCESS process(terminal, [](int report) {
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dprintf(report, "%d %d %d\n", SYS_GetPendingInput(), SYS_GetChar(), SYS_GetChar());
  });
  process.ExpectReport({"0 -1 -1"});
}

TEST(GetChar, OutlastsSignals) {
  PTY terminal;
  CONSOLE_PROCESS process(terminal, [](int report) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval interval = {{0, 2000}, {0, 2000}};
    setitimer(ITIMER_REAL, &interval, nullptr);
    dprintf(report, "waiting\n");
    for (int i = 0; i < 3; i++) {
      dprintf(report, "%d\n", SYS_GetChar());
    }
  });
  process.ExpectReport({"waiting"});
  usleep(30000);
  terminal.Send("a\n\x04");
  process.ExpectReport({"97", "10", "-1"});
}

TEST(Syslog, PadsTheMessage) {
  FAULTS_REQUIRE();
  for (const std::string& message : {std::string("started %s"), std::string(200, 'm'), std::string()}) {
    SYS_Syslog(message.c_str());
    const std::string padding(message.size() < 128 ? 128 - message.size() : 0, ' ');
    EXPECT_EQ(TakeCalls(), std::vector<std::string>{std::to_string(LOG_USER | LOG_DEBUG) + ' ' + padding + message});
  }
}

TEST(HostName, IsCutAndTerminatedInEverySize) {
  FAULTS_REQUIRE();
  GUARDED_BLOCK block;
  for (const std::string& name : {std::string("machine"), std::string(255, 'n'), std::string(300, 'n')}) {
    pHostName = name.c_str();
    for (uint32_t size : {0u, 1u, 7u, 8u, 9u, 255u, 256u, 1000u}) {
      char* pName = block.Take(size);
      EXPECT_EQ(SYS_GetHostName(pName, size), 0);
      EXPECT_TRUE(size == 0 || pName == name.substr(0, std::min(size - 1, 256u))) << name << " in " << size;
      EXPECT_TRUE(block.IsIntact());
    }
  }
  pHostName = nullptr;
  char acName[8] = "old";
  EXPECT_EQ(SYS_GetHostName(acName, sizeof(acName)), 0);
  EXPECT_STREQ(acName, "");
}

std::string GetUserName(uint32_t size, uint32_t* pLength) {
  GUARDED_BLOCK block;
  char* pName = block.Take(size);
  *pLength = size;
  EXPECT_EQ(SYS_GetUserName(pName, pLength), 0);
  EXPECT_TRUE(block.IsIntact());
  return size == 0 ? "" : pName;
}

class UserName : public testing::Test {
 protected:
  void SetUp() override {
    FAULTS_REQUIRE();
    pLogin = "jane";
    account = {};
    account.pw_name = acAccount;
    account.pw_gecos = acFullName;
    hasAccount = true;
    entrySize = 100;
    calls.clear();
  }

  void SetFullName(const char* name) { snprintf(acFullName, sizeof(acFullName), "%s", name); }

  char acAccount[8] = "jane";
  char acFullName[64] = "Jane Doe,Room 1,555-1234";
};

TEST_F(UserName, IsThePersonsOrTheAccounts) {
  static constexpr struct {
    const char* FullName;
    const char* Name;
  } aCase[] = {
      {"Jane Doe,Room 1,555", "Jane Doe"}, {"Jane Doe", "Jane Doe"}, {"", "jane"}, {",,,", ""}, {nullptr, "jane"},
  };
  for (const auto& test : aCase) {
    if (test.FullName == nullptr) {
      account.pw_gecos = nullptr;
    } else {
      SetFullName(test.FullName);
    }
    const std::string name = test.Name;
    for (uint32_t size = 0; size < 12; size++) {
      uint32_t length;
      EXPECT_EQ(GetUserName(size, &length), name.substr(0, size == 0 ? 0 : size - 1));
      EXPECT_EQ(length, name.size());
    }
  }
  EXPECT_EQ(TakeCalls().back(), "jane");
}

TEST_F(UserName, IsEmptyWhenThePlatformHasNone) {
  for (const auto& takeAway : std::vector<std::function<void()>>{[&] { hasAccount = false; }, [&] { pLogin = nullptr; },
                                                                 [&] { account = {}; }}) {
    SetUp();
    takeAway();
    uint32_t length;
    EXPECT_EQ(GetUserName(8, &length), "");
    EXPECT_EQ(length, 0u);
  }
  char acName[8] = "old";
  uint32_t size = sizeof(acName);
  EXPECT_EQ(SYS_GetUserName(nullptr, &size), 0);
  EXPECT_EQ(SYS_GetUserName(acName, nullptr), 0);
  EXPECT_STREQ(acName, "old");
  EXPECT_EQ(size, sizeof(acName));
}

TEST_F(UserName, TriesALongEntryWithMoreMemory) {
  uint32_t length;
  entrySize = 100000;
  EXPECT_EQ(GetUserName(16, &length), "Jane Doe");
  entrySize = SIZE_MAX;
  EXPECT_EQ(GetUserName(16, &length), "");
  EXPECT_LT(TakeCalls().size(), 40u);
  entrySize = 100000;
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [&](const SCOPED_FAULT& fault) {
    char acName[16] = "old";
    length = sizeof(acName);
    EXPECT_EQ(SYS_GetUserName(acName, &length), 0);
    EXPECT_STREQ(acName, fault.WasHit() ? "" : "Jane Doe");
    EXPECT_EQ(length, fault.WasHit() ? 0u : 8u);
  });
}

TEST(Services, PassOnWhatThePlatformDoes) {
#ifndef __APPLE__
  EXPECT_EQ(SYS_MakeUIElement(), 0);
#endif
  EXPECT_EQ(SYS_Log10(1000), 3);
  EXPECT_EQ(SYS_Pow(2, -2), 0.25);
  EXPECT_EQ(SYS_Fabs(-1.5), 1.5);
}

}  // namespace
