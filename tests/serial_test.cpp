#include "sys/sys_serial.h"

#include <dirent.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/ioctl.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/faults.h"
#include "tests/pty.h"
#include "tests/sandbox.h"
#include "tests/support.h"

// A case that opens a pseudo terminal as a port starts with this line.
#ifdef __APPLE__
#define PORT_REQUIRE() GTEST_SKIP() << "pseudo terminals do not take arbitrary rates"
#else
#define PORT_REQUIRE() static_cast<void>(0)
#include <link.h>

// The kernel's own settings, whose header excludes <termios.h>.
struct termios2 {
  tcflag_t c_iflag;
  tcflag_t c_oflag;
  tcflag_t c_cflag;
  tcflag_t c_lflag;
  cc_t c_line;
  cc_t c_cc[19];
  speed_t c_ispeed;
  speed_t c_ospeed;
};
#endif

namespace {

constexpr char MESSAGE[] = "ERROR while writing port settings.\n";

termios* pRecordedSettings;  // Stands for the settings of all terminals.
const TEMP_DIR* pTerminals;  // Stands for the system's list of terminals.

// A list of terminals, as long as the object lives.
class TERMINAL_LIST : public TEMP_DIR {
 public:
  TERMINAL_LIST() { pTerminals = this; }
  ~TERMINAL_LIST() { pTerminals = nullptr; }
};

}  // namespace

#ifndef __APPLE__

FAULT_WRAP(DIR*, opendir, const char* path) {
  const bool isList = strcmp(path, "/sys/class/tty") == 0 && pTerminals != nullptr;
  return Real_opendir(isList ? pTerminals->Path.c_str() : path);
}

FAULT_WRAP(int, tcgetattr, int fd, termios* pSettings) {
  if (pRecordedSettings == nullptr) {
    return Real_tcgetattr(fd, pSettings);
  }
  *pSettings = *pRecordedSettings;
  return 0;
}

FAULT_WRAP(int, tcsetattr, int fd, int when, const termios* pSettings) {
  if (pRecordedSettings == nullptr) {
    return Real_tcsetattr(fd, when, pSettings);
  }
  EXPECT_EQ(when, TCSANOW);
  *pRecordedSettings = *pSettings;
  return 0;
}

#endif

namespace {

// The descriptor that the next open will get: the same before and after when nothing leaked.
int NextDescriptor() {
  const int fd = dup(STDIN_FILENO);
  close(fd);
  return fd;
}

struct OPENED {
  SYS_COM_HANDLE* pHandle;
  int Error;
  std::string Output;
};

OPENED Open(const std::string& name, uint32_t baudrate = 115200) {
  testing::internal::CaptureStdout();
  errno = 0;
  SYS_COM_HANDLE* pHandle = SYS_COM_Open(name.c_str(), baudrate);
  const int error = errno;
  return {pHandle, error, testing::internal::GetCapturedStdout()};
}

std::string ReadAll(SYS_COM_HANDLE* pHandle, size_t numBytes) {
  std::string bytes;
  char acBytes[100];
  int32_t count;
  while (bytes.size() < numBytes && (count = SYS_COM_Read(pHandle, acBytes, sizeof(acBytes), PTY::PATIENCE_MS)) > 0) {
    bytes.append(acBytes, static_cast<size_t>(count));
  }
  return bytes;
}

std::string AllBytes() {
  std::string bytes(256, ' ');
  for (size_t i = 0; i < bytes.size(); i++) {
    bytes[i] = static_cast<char>(i);
  }
  return bytes;
}

TEST(SerialOpen, TurnsTheFlagsOfARawLineAndNoOthers) {
  FAULTS_REQUIRE();
  constexpr tcflag_t ALL = ~tcflag_t{0};
  const struct {
    tcflag_t termios::*pGroup;
    tcflag_t Off;
    tcflag_t On;
  } aCase[] = {
      {&termios::c_iflag, IGNPAR | PARMRK | INPCK | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXOFF | IMAXBEL, IGNBRK},
      {&termios::c_oflag, ONLCR | OCRNL | ONOCR | ONLRET | OFILL, 0},
      {&termios::c_cflag, CSIZE | CSTOPB | PARENB | CRTSCTS, CS8 | CREAD | CLOCAL},
      {&termios::c_lflag, ECHO | ECHOE | ECHOK | ECHOKE | ECHONL | ECHOPRT | ECHOCTL | ISIG | ICANON | IEXTEN | PENDIN,
       0},
  };
  PTY line;
  for (bool isSet : {true, false}) {
    termios settings;
    memset(&settings, isSet ? 0xFF : 0, sizeof(settings));
    const termios before = settings;
    line.Release();
    pRecordedSettings = &settings;
    SYS_COM_Close(Open(line.Name()).pHandle);
    pRecordedSettings = nullptr;
    for (const auto& test : aCase) {
      const tcflag_t expected = isSet ? (ALL & ~test.Off) | test.On : test.On;
      EXPECT_EQ(settings.*test.pGroup, expected) << std::hex << (settings.*test.pGroup ^ expected);
    }
    for (int i = 0; i < NCCS; i++) {
      EXPECT_EQ(settings.c_cc[i], i == VMIN ? 0 : i == VTIME ? 1 : before.c_cc[i]) << i;
    }
    EXPECT_EQ(cfgetospeed(&settings), cfgetospeed(&before));
  }
}

TEST(SerialOpen, PassesEveryByteBothWaysWhateverTheLineWasBefore) {
  PORT_REQUIRE();
  PTY line;
  termios settings = line.Settings();
  settings.c_iflag |= IGNPAR | PARMRK | INPCK | ISTRIP | INLCR | ICRNL | IXON | IXOFF | IMAXBEL;
  settings.c_oflag |= OPOST | ONLCR | OCRNL | ONOCR | ONLRET;
  settings.c_lflag |= ECHO | ECHOE | ECHOK | ECHOKE | ECHONL | ECHOPRT | ECHOCTL | ISIG | ICANON | IEXTEN;
  ASSERT_EQ(tcsetattr(line.Slave, TCSANOW, &settings), 0);
  line.Send("stale\n");
  ASSERT_TRUE(line.ReceiveUntil([](const std::string& echo) { return echo.find("stale") != std::string::npos; }));
  const OPENED port = Open(line.Name());
  ASSERT_NE(port.pHandle, nullptr);
  EXPECT_EQ(port.Output, "");

  const std::string bytes = AllBytes();
  line.Send(bytes);
  EXPECT_EQ(ReadAll(port.pHandle, bytes.size()), bytes);
  EXPECT_EQ(SYS_COM_Write(port.pHandle, bytes.data(), 256), 256);
  EXPECT_TRUE(line.ReceiveUntil([&](const std::string& received) { return received.ends_with(bytes); }));
  EXPECT_EQ(line.Received.find("\x11\x12\x13"), line.Received.rfind("\x11\x12\x13")) << "there was an echo";
  SYS_COM_Close(port.pHandle);
}

TEST(SerialOpen, KeepsTheLineToItself) {
  PORT_REQUIRE();
  PTY line;
  chmod(line.Path.c_str(), 0666);
  const OPENED port = Open(line.Name());
  ASSERT_NE(port.pHandle, nullptr);
  EXPECT_EQ(fcntl(port.pHandle->Fd, F_GETFD), FD_CLOEXEC);
#ifdef TIOCGEXCL
  int isExclusive = 0;
  EXPECT_EQ(ioctl(line.Slave, TIOCGEXCL, &isExclusive), 0);
  EXPECT_EQ(isExclusive, 1);
#endif
  EXPECT_EQ(RunUnprivileged([&] { return SYS_COM_Open(line.Name().c_str(), 9600) == nullptr ? errno : 0; }), EBUSY);
  SYS_COM_Close(port.pHandle);
}

TEST(SerialOpen, DoesNotTakeTheControllingTerminal) {
  PORT_REQUIRE();
  PTY line;
  chmod(line.Path.c_str(), 0666);
  EXPECT_EQ(RunUnprivileged([&] {
              setsid();
              SYS_COM_HANDLE* pHandle = SYS_COM_Open(line.Name().c_str(), 9600);
              return pHandle != nullptr && tcgetsid(pHandle->Fd) < 0 ? 0 : 1;
            }),
            0);
}

TEST(SerialOpen, IsSilentWhenThereIsNoSuchDevice) {
  const int next = NextDescriptor();
  const struct {
    std::string Name;
    int Error;
  } aCase[] = {
      {"nordax.no.such.port", ENOENT},
      {std::string(122, 'x'), ENOENT},
      {std::string(123, 'x'), ENAMETOOLONG},
      {"null" + std::string(5000, '/'), ENAMETOOLONG},
      {"", EISDIR},
  };
  for (const auto& test : aCase) {
    const OPENED port = Open(test.Name);
    EXPECT_EQ(port.pHandle, nullptr);
    EXPECT_EQ(port.Error, test.Error) << test.Name;
    EXPECT_EQ(port.Output, "");
  }
  EXPECT_EQ(NextDescriptor(), next);
}

TEST(SerialOpen, SaysWhenTheRateIsRefused) {
  PTY line;
  const int next = NextDescriptor();
  for (const OPENED& port : {Open("null"), Open(line.Name(), 0)}) {
    EXPECT_EQ(port.pHandle, nullptr);
    EXPECT_EQ(port.Output, MESSAGE);
  }
  EXPECT_EQ(NextDescriptor(), next);
}

TEST(SerialOpen, FailsAtTheRateAndAtMemoryAlone) {
  FAULTS_REQUIRE();
  PTY line;
  const int next = NextDescriptor();
  // The first request is that for exclusive use; three more set the rate and look what became of it.
  for (uint32_t n = 1; n <= 5; n++) {
    line.Release();
    SCOPED_FAULT fault({FAULT_CALL::IOCTL, n, EIO});
    const OPENED port = Open(line.Name());
    const bool isRefused = n >= 2 && n <= 4;
    EXPECT_EQ(port.pHandle == nullptr, isRefused) << n;
    EXPECT_EQ(port.Output, isRefused ? MESSAGE : "");
    EXPECT_TRUE(!isRefused || port.Error == EIO);
    SYS_COM_Close(port.pHandle);
    EXPECT_EQ(NextDescriptor(), next);
  }
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [&](const SCOPED_FAULT& fault) {
    line.Release();
    errno = 0;
    SYS_COM_HANDLE* pHandle = SYS_COM_Open(line.Name().c_str(), 9600);
    EXPECT_EQ(pHandle == nullptr, fault.WasHit());
    EXPECT_TRUE(pHandle != nullptr || errno == ENOMEM);
    SYS_COM_Close(pHandle);
    EXPECT_EQ(NextDescriptor(), next);
  });
  line.Release();
  SCOPED_FAULT interrupted({FAULT_CALL::OPEN, 1, EINTR, 2});
  const OPENED port = Open(line.Name());
  EXPECT_NE(port.pHandle, nullptr);
  SYS_COM_Close(port.pHandle);
}

#ifndef __APPLE__

uint32_t RateOf(const PTY& line) {
  termios2 settings = {};
  EXPECT_EQ(ioctl(line.Slave, TCGETS2, &settings), 0);
  EXPECT_EQ(settings.c_ispeed, settings.c_ospeed);
  return settings.c_ospeed;
}

TEST(SerialBaudrate, TakesAnyRate) {
  PTY line;
  for (uint32_t baudrate : {1u, 300u, 115200u, 115201u, 250000u, 3000000u, UINT32_MAX}) {
    line.Release();
    const OPENED port = Open(line.Name(), baudrate);
    ASSERT_NE(port.pHandle, nullptr) << baudrate;
    EXPECT_EQ(RateOf(line), baudrate);
    EXPECT_EQ(SYS_COM_SetBaudrate(port.pHandle->Fd, 9600), 0);
    EXPECT_EQ(RateOf(line), 9600u);
    SYS_COM_Close(port.pHandle);
  }
}

// A driver that takes the nearest rate of its own instead.
TEST(SerialBaudrate, CountsARateTooFarOffAsRefused) {
  PTY line;
  const struct {
    uint32_t Wanted;
    uint32_t Actual;
    bool IsTaken;
  } aCase[] = {
      {100000, 97000, true},          {100000, 96999, false},    {100000, 103000, true},
      {100000, 103001, false},        {250000, 230400, false},   {1, 2, false},
      {UINT32_MAX, UINT32_MAX, true}, {UINT32_MAX, 9600, false}, {9600, UINT32_MAX, false},
  };
  for (const auto& test : aCase) {
    const auto takeAnother = [&] {
      termios2 settings;
      ioctl(line.Slave, TCGETS2, &settings);
      settings.c_ospeed = test.Actual;
      ioctl(line.Slave, TCSETS2, &settings);
    };
    SCOPED_FAULT fault({FAULT_CALL::IOCTL, 3, 0, 1, FAULT_KIND::NONE, takeAnother});
    errno = 0;
    EXPECT_EQ(SYS_COM_SetBaudrate(line.Slave, test.Wanted), test.IsTaken ? 0 : -1) << test.Wanted << test.Actual;
    EXPECT_EQ(errno, test.IsTaken ? 0 : EINVAL);
  }
}

#endif

TEST(SerialBaudrate, FailsWithoutAPort) {
  int aPipe[2];
  ASSERT_EQ(pipe(aPipe), 0);
  EXPECT_EQ(SYS_COM_SetBaudrate(aPipe[0], 9600), -1);
  EXPECT_EQ(errno, ENOTTY);
  close(aPipe[0]);
  close(aPipe[1]);
  EXPECT_EQ(SYS_COM_SetBaudrate(-1, 9600), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(SerialTransfer, WaitsAsLongAsItIsTold) {
  PORT_REQUIRE();
  PTY line;
  const OPENED port = Open(line.Name());
  ASSERT_NE(port.pHandle, nullptr);
  char acBytes[8] = "old";
  EXPECT_EQ(SYS_COM_Read(port.pHandle, acBytes, sizeof(acBytes), 0), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(SYS_COM_Read(port.pHandle, acBytes, sizeof(acBytes), 30), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  EXPECT_STREQ(acBytes, "old");

  line.Send("abcde");
  EXPECT_EQ(SYS_COM_Read(port.pHandle, acBytes, 2, 0), 2);
  EXPECT_EQ(SYS_COM_Read(port.pHandle, acBytes + 2, 6, 0), 3);
  EXPECT_EQ(std::string(acBytes, 5), "abcde");

  std::thread sender([&] {
    usleep(20000);
    line.Send("x");
  });
  EXPECT_EQ(SYS_COM_Read(port.pHandle, acBytes, sizeof(acBytes), -1), 1);
  sender.join();

  line.HangUp();
  EXPECT_LE(SYS_COM_Read(port.pHandle, acBytes, sizeof(acBytes), -1), 0);
  EXPECT_EQ(SYS_COM_Write(port.pHandle, "x", 1), -1);
  SYS_COM_Close(port.pHandle);
  SYS_COM_Close(nullptr);
}

#ifndef __APPLE__

// Fills records with a pattern, lists the ports into the first of them, checks every byte, and returns the count.
int32_t ListInto(uint32_t capacity, const std::vector<std::string>& names) {
  GUARDED_BLOCK block;
  auto* paPorts = reinterpret_cast<SYS_COM_PORT_NAME*>(block.Take(capacity * sizeof(SYS_COM_PORT_NAME)));
  const int32_t count = SYS_COM_Enumerate(capacity == 0 ? nullptr : paPorts, capacity);
  for (uint32_t i = 0; i < capacity; i++) {
    std::string expected(sizeof(SYS_COM_PORT_NAME), GUARDED_BLOCK::PATTERN);
    if (i < names.size()) {
      expected.replace(0, names[i].size() + 1, names[i].c_str(), names[i].size() + 1);
      expected[64] = '\0';
    }
    EXPECT_EQ(std::string(paPorts[i].acName, sizeof(SYS_COM_PORT_NAME)), expected) << i << " of " << capacity;
  }
  EXPECT_TRUE(block.IsIntact());
  return count;
}

TEST(SerialEnumerate, ListsTheUSBPortsInTheOrderOfTheirNumbers) {
  TERMINAL_LIST terminals;
  EXPECT_EQ(ListInto(2, {}), 0);
  const std::string longName = "ttyUSB" + std::string(90, '7');
  for (const char* name : {"ttyUSB10", "ttyS0", "ttyUSB2", "ttyACM1", "tty", "console", "xttyUSB0", "ttyUSB0",
                           "ttyusb3", "ttyACM0", "ttyUS", "ttyAMA0", longName.c_str()}) {
    terminals.AddFile(name);
  }
  const std::vector<std::string> names = {"ttyACM0", "ttyACM1",  "ttyUSB0",
                                          "ttyUSB2", "ttyUSB10", longName.substr(0, 63)};
  for (uint32_t capacity = 0; capacity < names.size() + 3; capacity++) {
    EXPECT_EQ(ListInto(capacity, names), static_cast<int32_t>(names.size()));
  }
}

TEST(SerialEnumerate, FindsNothingWhereThereIsNoListOfTerminals) {
  const int next = NextDescriptor();
  {
    TERMINAL_LIST terminals;
    rmdir(terminals.Path.c_str());
    EXPECT_EQ(ListInto(2, {}), 0);
  }
  EXPECT_GE(SYS_COM_Enumerate(nullptr, 0), 0);
  EXPECT_EQ(NextDescriptor(), next);
}

// This program uses the layer, but reads no lines.
TEST(LoadList, IsFreeOfTheLineEditorWithoutLineInput) {
  std::string names;
  const auto addName = [](dl_phdr_info* pInfo, size_t, void* pContext) {
    *static_cast<std::string*>(pContext) += std::string(pInfo->dlpi_name) + '\n';
    return 0;
  };
  dl_iterate_phdr(addName, &names);
  EXPECT_NE(names.find("libc.so"), std::string::npos) << names;
  EXPECT_EQ(names.find("libedit"), std::string::npos) << names;
}

#endif

}  // namespace
