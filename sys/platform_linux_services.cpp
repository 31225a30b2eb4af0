// Linux: serial ports and the desktop. Terminal settings are the kernel's own, whose header and <termios.h> exclude
// each other. Idle sleep and icons have no interface that all desktops share, and are left alone.

#include <asm/termbits.h>
#include <dirent.h>
#include <errno.h>
#include <limits.h>
#include <string.h>
#include <sys/ioctl.h>

#include "sys/platform.h"
#include "util/strings.h"

namespace {

constexpr tcflag_t STANDARD_RATES = CBAUD | CIBAUD;

// A rate that is further off garbles what is received.
constexpr int64_t MAX_RATE_ERROR_PERCENT = 3;

}  // namespace

// Drivers take the nearest rate that they know, or a default, and succeed; the settings then tell which one it is.
int32_t PLATFORM_SetBaudrate(int32_t fd, uint32_t baudrate) {
  termios2 settings;
  if (ioctl(fd, TCGETS2, &settings) < 0) {
    return -1;
  }
  settings.c_cflag = (settings.c_cflag & ~STANDARD_RATES) | BOTHER;  // Without one for input that is the same.
  settings.c_ospeed = baudrate;
  if (ioctl(fd, TCSETS2, &settings) < 0 || ioctl(fd, TCGETS2, &settings) < 0) {
    return -1;
  }
  const int64_t difference = int64_t{settings.c_ospeed} - baudrate;
  if ((difference < 0 ? -difference : difference) * 100 > baudrate * MAX_RATE_ERROR_PERCENT) {
    errno = EINVAL;
    return -1;
  }
  return 0;
}

namespace {

bool IsUSBSerialPort(const char* name) {
  return strncmp(name, "ttyUSB", 6) == 0 || strncmp(name, "ttyACM", 6) == 0;
}

// Replaces the name by that of the port which comes after it, numbers counted as such; false when it is the last. The
// directory has no order: looking through it once more for each of the few ports needs no memory to sort them in.
bool FindNextPort(DIR* pDir, char* pName, uint32_t size) {
  char acNext[NAME_MAX + 1] = "";
  rewinddir(pDir);
  while (const dirent* pEntry = readdir(pDir)) {
    const char* name = pEntry->d_name;
    if (IsUSBSerialPort(name) && strverscmp(name, pName) > 0 && (acNext[0] == '\0' || strverscmp(name, acNext) < 0)) {
      UTIL_CopyString(acNext, name, sizeof(acNext));
    }
  }
  UTIL_CopyString(pName, acNext, size);
  return acNext[0] != '\0';
}

}  // namespace

void PLATFORM_ListSerialPorts(void (*pfOnPort)(const char* deviceName, void* pContext), void* pContext) {
  DIR* pDir = opendir("/sys/class/tty");
  if (pDir == nullptr) {
    return;
  }
  char acName[NAME_MAX + 1] = "";
  while (FindNextPort(pDir, acName, sizeof(acName))) {
    pfOnPort(acName, pContext);
  }
  closedir(pDir);
}

uint32_t PLATFORM_PreventIdleSleep() {
  return 0;
}

void PLATFORM_AllowIdleSleep(uint32_t) {}

int32_t PLATFORM_BecomeUIElement() {
  return 0;
}
