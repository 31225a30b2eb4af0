// Small services of the platform. Line input and mathematics, which need libraries of their own, are in
// console_input.cpp and mathematics.cpp. Nothing undoes the switch of the terminal: the shell restores its own
// settings.

#include "sys/sys_services.h"

#include <errno.h>
#include <pwd.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <syslog.h>
#include <termios.h>
#include <unistd.h>

#include "sys/platform.h"
#include "sys/sys_file.h"
#include "sys/sys_memory.h"
#include "util/strings.h"

namespace {

bool isSleepPrevented;
uint32_t sleepAssertion;
bool isConsolePrepared;

constexpr uint32_t MAX_HOST_NAME = 256;
constexpr uint32_t MAX_LOGIN_NAME = 256;
constexpr uint32_t DEFAULT_ENTRY_BYTES = 16384;
constexpr uint32_t MAX_ENTRY_BYTES = 1024 * 1024;

}  // namespace

void SYS_PreventSleep(void) {
  if (!isSleepPrevented) {
    isSleepPrevented = true;
    sleepAssertion = PLATFORM_PreventIdleSleep();
  }
}

void SYS_AllowSleep(void) {
  if (isSleepPrevented) {
    PLATFORM_AllowIdleSleep(sleepAssertion);
    isSleepPrevented = false;
  }
}

int32_t SYS_GetRandomBytes(void* pBuffer, uint32_t numBytes) {
  const int32_t fd = SYS_FILE_Open("/dev/random", SYS_FILE_READ);
  if (fd < 0) {
    return -1;
  }
  SYS_FILE_Read(fd, pBuffer, numBytes);
  SYS_FILE_Close(fd);
  return 0;
}

int32_t SYS_GetChar(void) {
  int c = getchar();
  while (c == EOF && ferror(stdin) != 0 && errno == EINTR) {
    clearerr(stdin);
    c = getchar();
  }
  return static_cast<int8_t>(c);
}

namespace {

void PrepareConsole() {
  termios settings;
  if (tcgetattr(STDIN_FILENO, &settings) == 0) {
    settings.c_lflag &= ~static_cast<tcflag_t>(ICANON);
    tcsetattr(STDIN_FILENO, TCSANOW, &settings);
  }
  setvbuf(stdin, nullptr, _IONBF, 0);
}

}  // namespace

int32_t SYS_GetPendingInput(void) {
  if (!isConsolePrepared) {
    PrepareConsole();
    isConsolePrepared = true;
  }
  int numBytes = 0;
  return ioctl(STDIN_FILENO, FIONREAD, &numBytes) < 0 ? 0 : numBytes;
}

void SYS_Syslog(const char* message) {
  syslog(LOG_USER | LOG_DEBUG, "%128s", message);
}

int32_t SYS_GetHostName(char* pBuffer, uint32_t size) {
  // The platform may leave a name that it cuts without a terminator.
  char acName[MAX_HOST_NAME + 1] = "";
  gethostname(acName, MAX_HOST_NAME);
  UTIL_CopyString(pBuffer, acName, size);
  return 0;
}

namespace {

// Reads the password entry of an account. Returns the memory that it stands in, for the caller to free, or null. The
// platform's size is a recommendation that a long entry exceeds.
void* ReadPasswordEntry(const char* login, passwd* pEntry) {
  const long recommended = sysconf(_SC_GETPW_R_SIZE_MAX);
  uint32_t size = recommended > 0 ? static_cast<uint32_t>(recommended) : DEFAULT_ENTRY_BYTES;
  for (; size <= MAX_ENTRY_BYTES; size *= 2) {
    auto* pWork = static_cast<char*>(SYS_Alloc(size));
    if (pWork == nullptr) {
      return nullptr;
    }
    passwd* pFound = nullptr;
    const int error = getpwnam_r(login, pEntry, pWork, size, &pFound);
    if (error == 0 && pFound != nullptr) {
      return pWork;
    }
    SYS_Free(pWork);
    if (error != ERANGE) {
      return nullptr;
    }
  }
  return nullptr;
}

const char* NameInEntry(const passwd* pEntry) {
  char* pFullName = pEntry->pw_gecos;
  if (pFullName == nullptr || pFullName[0] == '\0') {
    return pEntry->pw_name;
  }
  UTIL_ReplaceChar(pFullName, ',', '\0');  // Office and telephone numbers follow.
  return pFullName;
}

}  // namespace

int32_t SYS_GetUserName(char* pBuffer, uint32_t* pSize) {
  if (pBuffer == nullptr || pSize == nullptr) {
    return 0;
  }
  const uint32_t size = *pSize;
  UTIL_CopyString(pBuffer, "", size);
  *pSize = 0;
  char acLogin[MAX_LOGIN_NAME];
  if (getlogin_r(acLogin, sizeof(acLogin)) != 0) {
    return 0;
  }
  passwd entry;
  void* pWork = ReadPasswordEntry(acLogin, &entry);
  if (pWork == nullptr) {
    return 0;
  }
  const char* name = NameInEntry(&entry);
  if (name != nullptr) {
    UTIL_CopyString(pBuffer, name, size);
    *pSize = UTIL_StrLen(name);
  }
  SYS_Free(pWork);
  return 0;
}

int32_t SYS_MakeUIElement(void) {
  return PLATFORM_BecomeUIElement();
}
