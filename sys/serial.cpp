// Serial ports: opening with the settings of a raw line, and the list's records. Reading and writing are those of any
// descriptor; rates and the search for ports are the platform's. The speeds within the terminal settings are left
// alone, since they stand for a few standard rates only.

#include "sys/sys_serial.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <termios.h>

#include "sys/platform.h"
#include "sys/repeat.h"
#include "sys/sys_file.h"
#include "sys/sys_memory.h"
#include "sys/sys_wait.h"
#include "util/printf.h"
#include "util/strings.h"

namespace {

constexpr uint32_t MAX_DEVICE_PATH = 128;
constexpr uint32_t MAX_PORT_NAME = 64;

// What a raw line has switched off and on. Flags in neither list stay as the port has them.
constexpr tcflag_t INPUT_OFF = IGNPAR | PARMRK | INPCK | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXOFF | IMAXBEL;
constexpr tcflag_t INPUT_ON = IGNBRK;
constexpr tcflag_t OUTPUT_OFF = ONLCR | OCRNL | ONOCR | ONLRET | OFILL;
constexpr tcflag_t CONTROL_OFF = CSIZE | CSTOPB | PARENB | CRTSCTS;
constexpr tcflag_t CONTROL_ON = CS8 | CREAD | CLOCAL;
constexpr tcflag_t LOCAL_OFF =
    ECHO | ECHOE | ECHOK | ECHOKE | ECHONL | ECHOPRT | ECHOCTL | ISIG | ICANON | IEXTEN | PENDIN;
constexpr cc_t READ_TIMEOUT_DS = 1;  // Tenths of a second.

// A device path that were cut would name another device.
int32_t OpenDevice(const char* deviceName) {
  char acPath[MAX_DEVICE_PATH];
  if (UTIL_snprintf(acPath, sizeof(acPath), "/dev/%s", deviceName) >= static_cast<int32_t>(sizeof(acPath))) {
    errno = ENAMETOOLONG;
    return -1;
  }
  // Does not wait for a carrier.
  return Repeat([&acPath] { return open(acPath, O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK); });
}

void MakeRaw(int32_t fd) {
  termios settings = {};
  tcgetattr(fd, &settings);
  settings.c_iflag = (settings.c_iflag & ~INPUT_OFF) | INPUT_ON;
  settings.c_oflag &= ~OUTPUT_OFF;
  settings.c_cflag = (settings.c_cflag & ~CONTROL_OFF) | CONTROL_ON;
  settings.c_lflag &= ~LOCAL_OFF;
  settings.c_cc[VMIN] = 0;
  settings.c_cc[VTIME] = READ_TIMEOUT_DS;
  tcsetattr(fd, TCSANOW, &settings);
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
}

// Of all the steps only the rate decides, as the one that drivers refuse.
int32_t Configure(int32_t fd, uint32_t baudrate) {
  ioctl(fd, TIOCEXCL);
  MakeRaw(fd);
  if (SYS_COM_SetBaudrate(fd, baudrate) < 0) {
    const int error = errno;
    puts("ERROR while writing port settings.");
    errno = error;
    return -1;
  }
  tcflush(fd, TCIOFLUSH);
  return 0;
}

}  // namespace

SYS_COM_HANDLE* SYS_COM_Open(const char* deviceName, uint32_t baudrate) {
  const int32_t fd = OpenDevice(deviceName);
  if (fd < 0) {
    return nullptr;
  }
  SYS_COM_HANDLE* pHandle = nullptr;
  if (Configure(fd, baudrate) == 0) {
    pHandle = static_cast<SYS_COM_HANDLE*>(SYS_Alloc(sizeof(SYS_COM_HANDLE)));
  }
  if (pHandle == nullptr) {
    const int error = errno;
    SYS_FILE_Close(fd);
    errno = error;
    return nullptr;
  }
  pHandle->Fd = fd;
  return pHandle;
}

int32_t SYS_COM_SetBaudrate(int32_t fd, uint32_t baudrate) {
  if (baudrate == 0) {  // Terminals hang up at this rate.
    errno = EINVAL;
    return -1;
  }
  return PLATFORM_SetBaudrate(fd, baudrate);
}

int32_t SYS_COM_Read(SYS_COM_HANDLE* pHandle, void* pBuffer, uint32_t numBytes, int32_t timeoutMs) {
  return SYS_ReadTimeout(pHandle->Fd, pBuffer, numBytes, timeoutMs);
}

int32_t SYS_COM_Write(SYS_COM_HANDLE* pHandle, const void* pBuffer, uint32_t numBytes) {
  return SYS_FILE_Write(pHandle->Fd, pBuffer, numBytes);
}

void SYS_COM_Close(SYS_COM_HANDLE* pHandle) {
  if (pHandle != nullptr) {
    SYS_FILE_Close(pHandle->Fd);
    SYS_Free(pHandle);
  }
}

namespace {

struct PORT_LIST {
  SYS_COM_PORT_NAME* paPorts;
  uint32_t Capacity;
  uint32_t NumPorts;
};

void AddPort(const char* deviceName, void* pContext) {
  auto* pList = static_cast<PORT_LIST*>(pContext);
  if (pList->NumPorts < pList->Capacity) {
    char* pName = pList->paPorts[pList->NumPorts].acName;
    UTIL_CopyString(pName, deviceName, MAX_PORT_NAME);
    pName[MAX_PORT_NAME] = '\0';
  }
  pList->NumPorts++;
}

}  // namespace

int32_t SYS_COM_Enumerate(SYS_COM_PORT_NAME* paPorts, uint32_t capacity) {
  PORT_LIST list = {paPorts, capacity, 0};
  PLATFORM_ListSerialPorts(AddPort, &list);
  return static_cast<int32_t>(list.NumPorts);
}
