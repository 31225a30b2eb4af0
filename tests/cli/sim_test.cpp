// The tool on the simulated probe, with the scripts that come with it and with faulty ones: what is printed, the exit
// status, and what is in the device afterwards.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <set>
#include <sstream>

#include "tests/cli/run_tool.h"

namespace {

constexpr size_t FLASH_SIZE = 0x10000;
constexpr size_t RECORD_OFFSET = 0xF000;
constexpr char KEY[] = "00112233445566778899AABBccddeeff";

const std::string TARGET_ARGS = "-TIF SWD -Speed 4000 ";

std::string ProbeText(const std::string& serialNumber = "680000001") {
  return "Firmware: Simulated Vorta V1 compiled Jan  5 2026 09:00:00\nS/N: " + serialNumber + "\n\n";
}

std::string Little(uint32_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) {
    bytes += static_cast<char>(value >> shift);
  }
  return bytes;
}

uint32_t SlowCrc32(const std::string& bytes) {
  uint32_t crc = 0xFFFFFFFF;
  for (const char c : bytes) {
    for (uint32_t bit = 0; bit < 8; bit++) {
      const bool isOdd = ((crc ^ (static_cast<uint32_t>(c) >> bit)) & 1) != 0;
      crc = (crc >> 1) ^ (isOdd ? 0xEDB88320 : 0);
    }
  }
  return ~crc;
}

// What a device holds once it has its identity.
std::string FlashWith(uint32_t serial, std::string device) {
  device.resize(32);
  std::string record = "PROV" + Little(1) + Little(serial) + device;
  for (int i = 0; i < 16; i++) {
    record += static_cast<char>(i * 0x11);
  }
  record += Little(SlowCrc32(record));
  return std::string(FLASH_SIZE, '\xFF').replace(RECORD_OFFSET, record.size(), record);
}

std::string Provision(const std::string& operation, const std::string& serial, const std::string& device) {
  return TARGET_ARGS + "-ScriptFile Provision.pex -Operation " + operation + " -SetConfigVal Serial=" + serial +
         " -SetConfigVal Device=" + device + " -SetConfigVal Key=" + KEY;
}

std::multiset<std::string> Lines(const std::string& text) {
  std::multiset<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.insert(line);
  }
  return lines;
}

class SimulatedProbe : public testing::Test {
 protected:
  SimulatedProbe() {
    dir.Place(TOOL_FILE, "tamsel");
    dir.Place(SIM_FILE, "libvortaarm.dylib");
    dir.Place(SCRIPT_DIR, "Script");
  }

  OUTCOME Run(const std::string& file, const std::string& args) const {
    LAUNCH launch = {.File = file, .Args = Words(args)};
    launch.Environment["NORDAX_SIM_FLASH"] = dir.At("flash");
    if (!attached.empty()) {
      launch.Environment["NORDAX_SIM_PROBES"] = attached;
    }
    return Launch(dir, launch);
  }

  OUTCOME RunShell(const std::string& commands) const {
    dir.Write("run", "#!/bin/sh\n" + commands);
    std::filesystem::permissions(dir.At("run"), std::filesystem::perms::owner_all);
    return Run("run", "");
  }

  void Expect(const std::string& args, const std::string& output, int status) const {
    SCOPED_TRACE(args);
    const OUTCOME outcome = Run("tamsel", args);
    EXPECT_EQ(BehindBanner(outcome.Output), EchoOf(Words(args)) + output);
    EXPECT_EQ(outcome.Errors, "");
    EXPECT_EQ(outcome.Status, status);
  }

  // A run of a function of the script Test.pex.
  void ExpectScript(const std::string& text, const std::string& output, int status) const {
    SCOPED_TRACE(text);
    dir.Write("Script/Test.pex", text);
    Expect(TARGET_ARGS + "-ScriptFile Test.pex -Operation Run", ProbeText() + output, status);
  }

  const TEMP_DIR dir;
  std::string attached;
};

TEST_F(SimulatedProbe, KeepsWhatIsProgrammed) {
  const std::string image = "flash/flash-680000001.bin";
  Expect(Provision("Verify", "42", "Sensor"),
         ProbeText() +
             "Vorta error: The record differs at 0x0800F000\n"
             "Script file function 'Verify' returned with error code -3\n",
         255);
  EXPECT_EQ(dir.Read(image), std::string(FLASH_SIZE, '\xFF'));
  for (const uint32_t serial : {42u, 4294967295u}) {
    const std::string number = std::to_string(serial);
    Expect(Provision("Program", number, "Sensor"),
           ProbeText() + "Vorta log: Programmed serial " + number + ", device Sensor\n", 0);
    EXPECT_EQ(dir.Read(image), FlashWith(serial, "Sensor"));
    Expect(Provision("Verify", number, "Sensor"),
           ProbeText() + "Vorta log: Verified serial " + number + ", device Sensor\n", 0);
  }
  Expect(Provision("Verify", "4294967295", "Sensos"),
         ProbeText() +
             "Vorta error: The record differs at 0x0800F011\n"
             "Script file function 'Verify' returned with error code -3\n",
         255);
  const std::string info = ProbeText() + "Vorta log: Target SIM-M4, ID 0x4BA00477, 64 KiB of flash at 0x08000000\n";
  const std::string readInfo = "-If JTAG -Speed adaptive -ScriptFile Provision.pex -Operation ReadInfo";
  Expect(readInfo, info + "Vorta log: Serial 4294967295, device Sensor\n", 0);
  Expect(TARGET_ARGS + "-ScriptFile Provision.pex -Operation Erase", ProbeText() + "Vorta log: Record erased\n", 0);
  EXPECT_EQ(dir.Read(image), std::string(FLASH_SIZE, '\xFF'));
  Expect(readInfo,
         info +
             "Vorta error: The device holds no valid record\n"
             "Script file function 'ReadInfo' returned with error code -4\n",
         255);
}

TEST_F(SimulatedProbe, RefusesWhatIsNotThere) {
  const std::pair<std::string, std::string> rows[] = {
      {"-USB 3", "ERROR: No probe at USB port 3 found\n"},
      {"-USB 680000003", "ERROR: No probe with serial number 680000003 found\n"},
      {"-USB Bank", "ERROR: No probe with nickname Bank found\n"},
      {"-IP 10.0.0.1", "ERROR: No probe at IP address 10.0.0.1 found\n"},
      {"-USB Bench -Module 0", "ERROR: Probe 680000001 has 0 modules: there is no module 0\n"},
      {"-IP 192.0.2.3 -Module 4", "ERROR: Probe 690000003 has 4 modules: there is no module 4\n"},
      {"-USB Line -TIF C2", ProbeText("680000002") +
                                "Vorta error: Target SIM-M4 has no interface 6, only JTAG (0) and SWD (1)\n"
                                "Failed to select TIF\n"},
      {"-TIF SWD -Speed 0 -ScriptFile Minimal.pex -Operation Hello",  // The rest runs, and the run has failed.
       ProbeText() + "Vorta error: Speed 0 kHz is not possible, only 1 to 50000 kHz or adaptive\n"
                     "Vorta log: Hello, target\nVorta log: The target answers with ID 0x2BA01477\n"},
      {TARGET_ARGS + "-ScriptFile None.pex -Operation Hello",
       ProbeText() + "Failed to compile script file: 'None.pex: No such file or directory'\n"},
      {TARGET_ARGS + "-ScriptFile Minimal.pex -Operation Hallo",
       ProbeText() + "Specified script file does not have an entry point with name 'Hallo'\n"},
      {TARGET_ARGS + "-ScriptFile Minimal.pex -SetConfigVal A=1 -SetConfigVal A=1 -Operation Hello",
       ProbeText() + "Vorta error: 'A' is given twice\nFailed to register key-value pair A=1\n"},
  };
  for (const auto& [args, output] : rows) {
    Expect(args, output, 255);
  }
  EXPECT_FALSE(std::filesystem::exists(dir.At("flash")));
}

TEST_F(SimulatedProbe, LeavesTheDeviceAloneWhenAPairIsWrong) {
  const std::string program = TARGET_ARGS + "-ScriptFile Provision.pex -Operation Program";
  const std::string serial = " -SetConfigVal Serial=1";
  const std::string device = " -SetConfigVal Device=Sensor";
  const std::string key = " -SetConfigVal Key=" + std::string(KEY);
  const std::string serialRule = "Pair 'Serial' must be a number from 1 to 4294967295";
  const struct {
    std::string Pairs;
    std::string Message;
    int Result;
  } rows[] = {
      {device + key, "Pair 'Serial' is missing", -1},
      {serial + key, "Pair 'Device' is missing", -1},
      {serial + device, "Pair 'Key' is missing", -1},
      {serial + " -SetConfigVal device=Sensor" + key, "Unknown pair 'device'", -2},
      {" -SetConfigVal Serial=0" + device + key, serialRule, -2},
      {" -SetConfigVal Serial=0x1" + device + key, serialRule, -2},
      {" -SetConfigVal Serial=4294967296" + device + key, serialRule, -2},
      {serial + " -SetConfigVal Device=" + std::string(32, 'x') + key,
       "Pair 'Device' must have 1 to 31 printable characters", -2},
      {serial + device + key + "0", "Pair 'Key' must have 32 hexadecimal digits", -2},
  };
  for (const auto& row : rows) {
    Expect(program + row.Pairs,
           ProbeText() + "Vorta error: " + row.Message + "\nScript file function 'Program' returned with error code " +
               std::to_string(row.Result) + "\n",
           255);
  }
  EXPECT_FALSE(std::filesystem::exists(dir.At("flash")));
}

TEST_F(SimulatedProbe, ReportsWhatIsWrongWithAScript) {
  const std::string trace = "Vorta log: stack traceback:\nVorta log: \t";
  const std::string inRun = trace + "Test.pex:2: in function <Test.pex:1>\nVorta log: \t[C]: in ?\n";
  const std::string notRun = "Failed to execute function 'Run' from script file\n";
  const std::string noInteger = "Vorta error: Function 'Run' did not return a 32-bit integer but ";
  const struct {
    std::string Script;
    std::string Output;
    int Status = 255;
  } rows[] = {
      {"function Run()\n  Log(1) Error('odd') print(2, 3)\nend", "Vorta log: 1\nVorta error: odd\nVorta log: 2\t3\n"},
      {"function Run() Log('a\\r\\n\\nb\\rc\\n') end", "Vorta log: a\nVorta log: \nVorta log: b\nVorta log: c\n", 0},
      {"function Run() Error('\\na\\n\\n') end", "Vorta error: \nVorta error: a\nVorta error: \n"},
      {"function Run() return -2147483648 end", "Script file function 'Run' returned with error code -2147483648\n"},
      {"function Run() return 2147483647.0 end", "", 0},
      {"function Run() return 2147483648 end", noInteger + "2147483648\n" + notRun},
      {"function Run() return 0.5 end", noInteger + "0.5\n" + notRun},
      {"function Run() return '1' end", noInteger + "1\n" + notRun},
      {"\xEF\xBB\xBF#!/bin/lua\n)", "Failed to compile script file: 'Test.pex:2: unexpected symbol near ')''\n"},
      {"#!/bin/lua\r\nfunction Run() end", "", 0},
      {"local [[a\nb]]", "Failed to compile script file: 'Test.pex:2: <name> expected near '[[a'\n"},
      {"Run = print()", "Vorta log: \nSpecified script file does not have an entry point with name 'Run'\n"},
      {"error('no')", "Vorta error: Test.pex:1: no\n" + trace +
                          "[C]: in function 'error'\nVorta log: \tTest.pex:1: in main chunk\nVorta log: \t[C]: in ?\n"
                          "Failed to load script file instance: 'Test.pex'\n"},
      {"function Run()\n  Nothing()\nend",
       "Vorta error: Test.pex:2: attempt to call a nil value (global 'Nothing')\n" + inRun + notRun},
      {"function Run()\n  while true do pcall(function() while true do end end) end\nend",
       "Vorta error: Test.pex:2: stopped after 50000000 instructions\n" + inRun + notRun},
      {"local function Recurse() return 1 + Recurse() end\nfunction Run() Log(select(2, pcall(Recurse))) end",
       "Vorta log: Test.pex:1: stack overflow\n", 0},
      {"function Run() Log(pcall(function() Config.A = 1 end)) end",
       "Vorta log: false\tTest.pex:1: Config cannot be changed by the script\n", 0},
  };
  for (const auto& row : rows) {
    ExpectScript(row.Script, row.Output, row.Status);
  }
}

TEST_F(SimulatedProbe, KeepsScriptsFromMisusingTheFlash) {
  const std::string unaligned = ": address and size must be multiples of ";
  const std::string outside = " are outside the flash, which has 65536 bytes at 0x08000000";
  const std::pair<std::string, std::string> rows[] = {
      {"Write, 0x08000008, ('\x0F'):rep(8)", ""},
      {"Write, 0x08000008, ('\x0E'):rep(8)", ""},
      {"Write, 0x08000000, ('\x0E'):rep(15) .. '\x1E'", "the flash at 0x0800000F is not erased"},
      {"Write, 0x08000004, ('x'):rep(8)", "8 bytes at 0x08000004" + unaligned + "8"},
      {"Write, 0x08000000, 'x'", "1 bytes at 0x08000000" + unaligned + "8"},
      {"Erase, 0x08000000, 4095", "4095 bytes at 0x08000000" + unaligned + "4096"},
      {"Erase, 0x08010000, 4096", "4096 bytes at 0x08010000" + outside},
      {"Read, 0x0800FFFF, 2", "2 bytes at 0x0800FFFF" + outside},
      {"Read, 0x07FFFFFF, 1", "1 bytes at 0x07FFFFFF" + outside},
      {"Read, 0x08000000, -1", "18446744073709551615 bytes at 0x08000000" + outside},
  };
  std::string script = "local function Try(f, ...) Log(select(2, pcall(f, ...))) end\nfunction Run()\n";
  std::string output;
  for (const auto& [call, message] : rows) {
    script += "  Try(Flash." + call + ")\n";
    output += "Vorta log: " + message + "\n";
  }
  ExpectScript(script + "end", output, 0);
  const std::string image = "flash/flash-680000001.bin";
  EXPECT_EQ(dir.Read(image), std::string(FLASH_SIZE, '\xFF').replace(8, 8, 8, '\x0E'));

  const int file = open(dir.At(image).c_str(), O_RDWR);
  EXPECT_EQ(flock(file, LOCK_EX), 0);
  ExpectScript("function Run() Log(select(2, pcall(Flash.Read, 0x08000000, 1))) end",
               "Vorta log: " + dir.At(image) + " is in use by another process\n", 0);
  close(file);
}

TEST_F(SimulatedProbe, GivesEveryProbeAndModuleAFlashOfItsOwn) {
  const std::pair<std::string, std::string> rows[] = {
      {"", "680000001"},
      {"-USB 1 ", "680000002"},
      {"-USB 2 ", "690000003-0"},
      {"-USB Hub -Module 2 ", "690000003-2"},
      {"-IP 192.0.2.3 -Module 3 ", "690000003-3"},
  };
  for (const auto& [selection, name] : rows) {
    Expect(selection + Provision("Program", "7", name),
           ProbeText(name.substr(0, 9)) + "Vorta log: Programmed serial 7, device " + name + "\n", 0);
  }
  for (const auto& [selection, name] : rows) {
    EXPECT_EQ(dir.Read("flash/flash-" + name + ".bin"), FlashWith(7, name));
  }
}

TEST_F(SimulatedProbe, KeepsTheOutputOutOfTheFlashWhenStandardStreamsAreClosed) {
  for (const std::string closed : {"0<&-", "1>&-", "0<&- 1>&-"}) {
    SCOPED_TRACE(closed);
    EXPECT_EQ(RunShell("exec ./tamsel " + Provision("Program", "7", "Sensor") + " " + closed).Status, 0);
    EXPECT_EQ(dir.Read("flash/flash-680000001.bin"), FlashWith(7, "Sensor"));
  }
}

// The tools share one output, where each line must stay in one piece.
TEST_F(SimulatedProbe, RunsSixteenToolsAtOnce) {
  constexpr uint32_t NUM_TOOLS = 16;
  constexpr uint32_t FIRST_SERIAL_NUMBER = 800000000;
  const std::string plain = Run("tamsel", "").Output;
  const std::string banner = plain.substr(0, plain.size() - BehindBanner(plain).size());
  for (const auto& [operation, log] : {std::pair("Program", "Programmed"), std::pair("Verify", "Verified")}) {
    attached.clear();
    std::string commands;
    std::string expected;
    for (uint32_t i = 0; i < NUM_TOOLS; i++) {
      const std::string serialNumber = std::to_string(FIRST_SERIAL_NUMBER + i);
      const std::string device = "Device" + std::to_string(i);
      const std::string args = "-USB " + serialNumber + " " + Provision(operation, std::to_string(1000 + i), device);
      attached += serialNumber + ",";
      commands += "./tamsel " + args + " || echo failed &\n";
      expected += banner + EchoOf(Words(args)) + ProbeText(serialNumber) + "Vorta log: " + log + " serial " +
                  std::to_string(1000 + i) + ", device " + device + "\n";
    }
    const OUTCOME outcome = RunShell(commands + "wait\n");
    EXPECT_EQ(Lines(outcome.Output), Lines(expected));
    EXPECT_EQ(outcome.Errors, "");
    for (uint32_t i = 0; i < NUM_TOOLS; i++) {
      EXPECT_EQ(dir.Read("flash/flash-" + std::to_string(FIRST_SERIAL_NUMBER + i) + ".bin"),
                FlashWith(1000 + i, "Device" + std::to_string(i)));
    }
  }
}

}  // namespace
