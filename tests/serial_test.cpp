#include "sys/sys_serial.h"

#include <dirent.h>
#include <errno.h>
#include <sys/ioctl.h>

#include <numeric>
#include <thread>
#include <tuple>

#include "tests/faults.h"
#include "tests/pty.h"
#include "tests/sandbox.h"
#include "tests/support.h"

#ifndef __APPLE__  // Where pseudo terminals do not take arbitrary rates, and the list of ports cannot be replaced.

// The kernel's own settings, whose header excludes <termios.h>.
struct termios2 {
  tcflag_t aFlags[4];
  cc_t acControl[20];
  speed_t c_ispeed;
  speed_t c_ospeed;
};

namespace {

constexpr uint32_t RATE = 3000017;  // No standard rate.
const char* pathOfTerminals;        // Stands for the system's list of terminals if not null.
uint8_t oldSettings;                // Every byte of what any terminal's settings seem to be,
termios newSettings;                // and what they were set to last.

}  // namespace

FAULT_WRAP(DIR*, opendir, const char* path) {
  const bool isList = strcmp(path, "/sys/class/tty") == 0 && pathOfTerminals != nullptr;
  return Real_opendir(isList ? pathOfTerminals : path);
}

FAULT_WRAP(int, tcgetattr, int, termios* pSettings) {
  memset(pSettings, oldSettings, sizeof(*pSettings));
  return 0;
}

FAULT_WRAP(int, tcsetattr, int fd, int when, const termios* pSettings) {
  EXPECT_EQ(when, TCSANOW);
  newSettings = *pSettings;
  return Real_tcsetattr(fd, when, pSettings);
}

namespace {

auto NumDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

const char* NameOf(const PTY& line) {
  return line.Path.c_str() + strlen("/dev/");
}

// Opens the line, also while its last exclusive use lasts.
SYS_COM_HANDLE* Open(const PTY& line) {
  ioctl(line.Slave, TIOCNXCL);
  return SYS_COM_Open(NameOf(line), RATE);
}

TEST(SerialOpen, TurnsTheFlagsOfARawLineAndNoOthers) {
  static constexpr std::tuple<tcflag_t termios::*, tcflag_t, tcflag_t> aOffAndOn[] = {
      {&termios::c_iflag, IGNPAR | PARMRK | INPCK | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXOFF | IMAXBEL, IGNBRK},
      {&termios::c_oflag, ONLCR | OCRNL | ONOCR | ONLRET | OFILL, 0},
      {&termios::c_cflag, CSIZE | CSTOPB | PARENB | CRTSCTS, CS8 | CREAD | CLOCAL},
      {&termios::c_lflag, ECHO | ECHOE | ECHOK | ECHOKE | ECHONL | ECHOPRT | ECHOCTL | ISIG | ICANON | IEXTEN | PENDIN,
       0},
  };
  PTY line;
  for (uint8_t before : {0xFF, 0}) {
    oldSettings = before;
    SYS_COM_Close(Open(line));
    for (const auto& [pGroup, off, on] : aOffAndOn) {
      const tcflag_t expected = before != 0 ? ~off | on : on;
      EXPECT_EQ(newSettings.*pGroup, expected) << std::hex << (newSettings.*pGroup ^ expected);
    }
    for (int i = 0; i < NCCS; i++) {
      EXPECT_EQ(newSettings.c_cc[i], i == VMIN ? 0 : i == VTIME ? 1 : before) << i;
    }
  }
}

TEST(SerialOpen, KeepsTheLineToItselfButIsNotControlledByIt) {
  PTY line;
  chmod(line.Path.c_str(), 0666);
  EXPECT_EQ(RunUnprivileged([&] {
              setsid();
              SYS_COM_HANDLE* pHandle = Open(line);
              const bool isControlled = pHandle == nullptr || tcgetsid(pHandle->Fd) >= 0;
              return SYS_COM_Open(NameOf(line), RATE) != nullptr || isControlled ? 0 : errno;
            }),
            EBUSY);
}

TEST(SerialOpen, FailsForItsNameTheRateAndMemoryAlone) {
  PTY line;
  const std::string name = NameOf(line);
  const FAULT none = {FAULT_CALL::OPEN, 1, 0, 0};
  // The first request is that for exclusive use; three more set the rate and look what became of it.
  const std::tuple<std::string, uint32_t, FAULT, int> aCase[] = {
      {std::string(122, 'x'), RATE, none, ENOENT},
      {std::string(123, 'x'), RATE, none, ENAMETOOLONG},
      {name, 0, none, EINVAL},
      {name, RATE, {FAULT_CALL::OPEN, 1, EINTR}, 0},
      {name, RATE, {FAULT_CALL::IOCTL, 1, EIO}, 0},
      {name, RATE, {FAULT_CALL::IOCTL, 2, EIO}, EIO},
      {name, RATE, {FAULT_CALL::IOCTL, 3, EIO}, EIO},
      {name, RATE, {FAULT_CALL::IOCTL, 4, EIO}, EIO},
      {name, RATE, {FAULT_CALL::MALLOC, 1, ENOMEM}, ENOMEM},
  };
  const auto numBefore = NumDescriptors();
  for (const auto& [device, baudrate, fault, expected] : aCase) {
    ioctl(line.Slave, TIOCNXCL);
    testing::internal::CaptureStdout();
    SCOPED_FAULT scopedFault(fault);
    SYS_COM_HANDLE* pHandle = SYS_COM_Open(device.c_str(), baudrate);
    const int error = pHandle == nullptr ? errno : 0;
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              expected == EINVAL || expected == EIO ? "ERROR while writing port settings.\n" : "");
    EXPECT_EQ(error, expected) << device;
    SYS_COM_Close(pHandle);
    EXPECT_EQ(NumDescriptors(), numBefore);
  }
}

TEST(SerialBaudrate, IsAnyThatTheDriverTakesWithin3Percent) {
  // A rate, what a driver without it takes instead, and whether that is near enough.
  static constexpr std::tuple<uint32_t, uint32_t, bool> aCase[] = {{100000, 97000, true},  {100000, 96999, false},
                                                                   {100000, 103000, true}, {100000, 103001, false},
                                                                   {UINT32_MAX, 1, false}, {1, UINT32_MAX, false}};
  PTY line;
  SYS_COM_Close(Open(line));
  termios2 settings;
  EXPECT_TRUE(ioctl(line.Slave, TCGETS2, &settings) == 0 && settings.c_ospeed == RATE);
  for (const auto& [wanted, other, isTaken] : aCase) {
    EXPECT_EQ(SYS_COM_SetBaudrate(line.Slave, wanted), 0);
    ioctl(line.Slave, TCGETS2, &settings);
    EXPECT_TRUE(settings.c_ospeed == wanted && settings.c_ispeed == wanted) << settings.c_ospeed;
    settings.c_ospeed = other;
    SCOPED_FAULT fault({FAULT_CALL::IOCTL, 3, 0, 1, FAULT_KIND::NONE, [&] { ioctl(line.Slave, TCSETS2, &settings); }});
    errno = 0;
    EXPECT_EQ(SYS_COM_SetBaudrate(line.Slave, wanted), isTaken ? 0 : -1) << wanted << other;
    EXPECT_EQ(errno, isTaken ? 0 : EINVAL);
  }
  EXPECT_EQ(SYS_COM_SetBaudrate(-1, RATE), -1);
}

TEST(SerialTransfer, PassesEveryByteBothWaysAndWaitsAsLongAsItIsTold) {
  PTY line;
  line.Send("stale\n");
  ASSERT_TRUE(line.ReceiveUntil([](const std::string& echo) { return echo.find("stale") != std::string::npos; }));
  SYS_COM_HANDLE* pHandle = Open(line);
  ASSERT_NE(pHandle, nullptr);
  EXPECT_EQ(fcntl(pHandle->Fd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(pHandle->Fd, F_GETFL) & O_NONBLOCK, 0);
  char received = '?';
  EXPECT_GE(MeasureUs([&] { EXPECT_EQ(SYS_COM_Read(pHandle, &received, 1, 30), 0); }), 30000);

  std::string bytes(256, '\0');
  std::iota(bytes.begin(), bytes.end(), '\0');
  std::jthread sender([&] {
    usleep(20000);
    line.Send(bytes);
  });
  for (char sent : bytes) {
    ASSERT_EQ(SYS_COM_Read(pHandle, &received, 1, sent == '\0' ? -1 : PTY::PATIENCE_MS), 1);
    ASSERT_EQ(received, sent);
  }
  EXPECT_EQ(SYS_COM_Write(pHandle, bytes.data(), 256), 256);
  EXPECT_TRUE(line.ReceiveUntil([&](const std::string& out) { return out.ends_with(bytes); }));
  SYS_COM_Close(pHandle);
}

TEST(SerialEnumerate, ListsTheUSBPortsInTheOrderOfTheirNumbers) {
  const std::vector<std::string> names = {"ttyACM0", "ttyACM1",  "ttyUSB0",
                                          "ttyUSB2", "ttyUSB10", "ttyUSB" + std::string(57, '7')};
  TEMP_DIR terminals;
  terminals.AddFile(names.back() + "7");
  for (const char* name :
       {"ttyUSB10", "ttyS0", "ttyUSB2", "ttyACM1", "xttyUSB0", "ttyUSB0", "ttyusb3", "ttyACM0", "ttyUS", "ttyAMA0"}) {
    terminals.AddFile(name);
  }
  const auto numBefore = NumDescriptors();
  pathOfTerminals = terminals.Path.c_str();
  for (uint32_t capacity = 0; capacity < names.size() + 2; capacity++) {
    SYS_COM_PORT_NAME aPorts[10];
    SYS_COM_PORT_NAME aExpected[10];
    memset(aPorts, '?', sizeof(aPorts));
    memset(aExpected, '?', sizeof(aExpected));
    for (uint32_t i = 0; i < std::min<size_t>(capacity, names.size()); i++) {
      strcpy(aExpected[i].acName, names[i].c_str());
      aExpected[i].acName[64] = '\0';
    }
    EXPECT_EQ(SYS_COM_Enumerate(aPorts, capacity), static_cast<int32_t>(names.size()));
    EXPECT_EQ(memcmp(aPorts, aExpected, sizeof(aPorts)), 0) << capacity;
  }
  pathOfTerminals = "/no such directory";
  EXPECT_EQ(SYS_COM_Enumerate(nullptr, 0), 0);
  pathOfTerminals = nullptr;
  EXPECT_EQ(NumDescriptors(), numBefore);
}

}  // namespace

#endif
