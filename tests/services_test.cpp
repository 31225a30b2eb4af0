#include "sys/sys_services.h"

#include <editline/readline.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <pwd.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/faults.h"
#include "tests/pty.h"
#include "tests/support.h"

namespace {

// What the platform and the line editor would say, and what they were asked.
std::vector<std::string> calls;
const char* pLine;
const char* pHostName;
const char* pLogin;  // Null for none.
passwd account;      // The entry of any login but a stranger's.
size_t entrySize;    // What the entry needs.

}  // namespace

// The editor's own calls are not reached.
char* readline(const char* prompt) {
  calls.push_back(prompt);
  return pLine == nullptr ? nullptr : strdup(pLine);
}

int add_history(const char* line) {
  calls.push_back(line);
  return 0;
}

#ifndef __APPLE__

// Leaves a name that it cuts without a terminator.
FAULT_WRAP(int, gethostname, char* pDest, size_t size) {
  strncpy(pDest, pHostName, size);
  return 0;
}

FAULT_WRAP(int, getlogin_r, char* pDest, size_t size) {
  snprintf(pDest, size, "%s", pLogin != nullptr ? pLogin : "nobody");
  return pLogin != nullptr ? 0 : ENXIO;
}

FAULT_WRAP(int, getpwnam_r, const char* name, passwd* pEntry, char* pWork, size_t size, passwd** ppFound) {
  calls.push_back(name);
  *ppFound = nullptr;
  if (size < entrySize) {
    return ERANGE;
  }
  *pEntry = account;
  if (account.pw_gecos != nullptr) {
    pEntry->pw_gecos = strcpy(pWork, account.pw_gecos);
  }
  *ppFound = pLogin == std::string("stranger") ? nullptr : pEntry;
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
  calls.push_back("prevent");
  return 77;
}

FAULT_WRAP(void, _Z23PLATFORM_AllowIdleSleepj, uint32_t assertion) {
  calls.push_back("allow " + std::to_string(assertion));
}

#endif

namespace {

using TEXTS = std::vector<std::string>;

TEST(Services, PassOnWhatThePlatformDoes) {
  EXPECT_TRUE(SYS_Log10(1000) == 3 && SYS_Pow(2, -2) == 0.25 && SYS_Fabs(-1.5) == 1.5);
  FAULTS_REQUIRE();
  SYS_AllowSleep();
  for (int i = 0; i < 8; i++) {
    i % 4 < 2 ? SYS_PreventSleep() : SYS_AllowSleep();
  }
  EXPECT_EQ(std::exchange(calls, {}), (TEXTS{"prevent", "allow 77", "prevent", "allow 77"}));
  for (const std::string& message : {std::string("started %s"), std::string(200, 'm')}) {
    SYS_Syslog(message.c_str());
    const std::string padding(message.size() < 128 ? 128 - message.size() : 0, ' ');
    EXPECT_EQ(std::exchange(calls, {}), TEXTS{std::to_string(LOG_USER | LOG_DEBUG) + ' ' + padding + message});
  }
}

TEST(RandomBytes, ComeFromASingleRead) {
  FAULTS_REQUIRE();
  const int nextDescriptor = dup(STDIN_FILENO);
  close(nextDescriptor);
  std::string bytes(32, 'x');
  const SCOPED_FAULT shortRead({FAULT_CALL::READ, 1, 0, 1, FAULT_KIND::SHORT});
  const SCOPED_FAULT noOpen({FAULT_CALL::OPEN, 2, EMFILE});
  EXPECT_EQ(SYS_GetRandomBytes(bytes.data(), 32), 0);
  EXPECT_NE(bytes.substr(8, 8), std::string(8, 'x'));
  EXPECT_EQ(SYS_GetRandomBytes(bytes.data() + 16, 16), -1);
  EXPECT_EQ(bytes.substr(16), std::string(16, 'x'));
  EXPECT_EQ(dup(STDIN_FILENO), nextDescriptor);
  close(nextDescriptor);
}

TEST(ReadLine, CutsTheLineButNotTheHistory) {
  GUARDED_BLOCK block;
  for (const char* line : {static_cast<const char*>(nullptr), "", "first"}) {
    pLine = line;
    const std::string text = line == nullptr ? "" : line;
    for (uint32_t size = 0; size < 8; size++) {
      char* pBuffer = block.Take(size);
      EXPECT_EQ(SYS_ReadLine("name? ", pBuffer, size), line == nullptr ? -1 : 0);
      EXPECT_TRUE((size == 0 || pBuffer == text.substr(0, size - 1)) && block.IsIntact()) << text << " in " << size;
      EXPECT_EQ(std::exchange(calls, {}), text.empty() ? TEXTS{"name? "} : (TEXTS{"name? ", text}));
    }
  }
}

TEST(PendingInput, CountsKeysWithoutTheReturnKey) {
  PTY terminal;
  dup2(terminal.Slave, STDIN_FILENO);
  termios expected = terminal.Settings();
  expected.c_lflag &= ~static_cast<tcflag_t>(ICANON);
  terminal.Send("k");
  ASSERT_TRUE(terminal.ReceiveUntil([](const std::string& echo) { return echo == "k"; }));
  EXPECT_EQ(SYS_GetPendingInput(), 1);
  EXPECT_EQ(SYS_GetChar(), 'k');
  const termios settings = terminal.Settings();
  EXPECT_EQ(memcmp(&settings, &expected, sizeof(settings)), 0);
  terminal.Send("a\x80\xFF");
  for (int leftMs = PTY::PATIENCE_MS; SYS_GetPendingInput() < 3 && leftMs > 0; leftMs--) {
    usleep(1000);
  }
  int32_t numLeft = 3;
  for (int32_t c : {97, -128, -1}) {
    EXPECT_EQ(SYS_GetPendingInput(), numLeft--);
    EXPECT_EQ(SYS_GetChar(), c);
  }
  struct sigaction action = {};  // A handler that runs does not end the wait.
  action.sa_handler = [](int) {};
  sigaction(SIGUSR1, &action, nullptr);
  std::thread user([&, reader = pthread_self()] {
    for (int i = 0; i < 4; i++) {
      usleep(5000);
      pthread_kill(reader, SIGUSR1);
    }
    terminal.Send("b");
  });
  EXPECT_EQ(SYS_GetChar(), 'b');
  user.join();
  dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
  errno = EINTR;
  EXPECT_EQ(SYS_GetChar(), -1);
  EXPECT_EQ(SYS_GetPendingInput(), 0);
}

TEST(HostName, IsCutAndTerminatedInEverySize) {
  FAULTS_REQUIRE();
  GUARDED_BLOCK block;
  const std::string name(300, 'n');
  for (size_t length : {7, 300}) {
    pHostName = name.c_str() + 300 - length;
    for (uint32_t size : {0u, 1u, 7u, 8u, 256u, 257u, 1000u}) {
      char* pName = block.Take(size);
      EXPECT_EQ(SYS_GetHostName(pName, size), 0);
      EXPECT_TRUE(size == 0 || pName == name.substr(0, std::min<size_t>({size - 1, 256, length}))) << size;
      EXPECT_TRUE(block.IsIntact());
    }
  }
}

TEST(UserName, IsThePersonsOrTheAccounts) {
  FAULTS_REQUIRE();
  const std::tuple<const char*, const char*, const char*, size_t, std::string> ROWS[] = {
      {"jane", "jane", "", 1, "jane"},
      {"jane", "jane", nullptr, 1, "jane"},
      {"jane", "jane", ",,,", 1, ""},
      {"jane", nullptr, nullptr, 1, ""},
      {nullptr, "jane", "Jane Doe", 1, ""},
      {"stranger", "jane", "Jane Doe", 1, ""},
      {"jane", "jane", "Jane Doe", SIZE_MAX, ""},
      {"jane", "jane", "Jane Doe,Room 1,555", 100000, "Jane Doe"},
  };
  GUARDED_BLOCK block;
  uint32_t length;
  for (const auto& [login, accountName, fullName, size, name] : ROWS) {
    pLogin = login;
    account.pw_name = const_cast<char*>(accountName);
    account.pw_gecos = const_cast<char*>(fullName);
    entrySize = size;
    for (uint32_t room = 0; room < 12; room++) {
      length = room;
      char* pName = block.Take(room);
      EXPECT_EQ(SYS_GetUserName(pName, &length), 0);
      EXPECT_TRUE((room == 0 || pName == name.substr(0, room - 1)) && block.IsIntact()) << name << " in " << room;
      EXPECT_TRUE(length == name.size() && std::exchange(calls, {}).size() < 40);
    }
  }
  char acName[16];
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [&](const SCOPED_FAULT& fault) {
    length = sizeof(acName);
    SYS_GetUserName(acName, &length);
    EXPECT_EQ(length, fault.WasHit() ? 0u : 8u);
    EXPECT_STREQ(acName, fault.WasHit() ? "" : "Jane Doe");
  });
  EXPECT_EQ(calls.back(), "jane");
  length = 5;
  EXPECT_TRUE(SYS_GetUserName(nullptr, &length) == 0 && SYS_GetUserName(acName, nullptr) == 0 && length == 5);
}

}  // namespace
