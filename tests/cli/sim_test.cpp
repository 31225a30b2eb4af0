// The tool on the simulated probe, with the scripts that come with it and with faulty ones: what is printed, the exit
// status, and what is in the device afterwards.

#include <gtest/gtest.h>

#include <memory>

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

class SimulatedProbe : public testing::Test {
 protected:
  SimulatedProbe() {
    dir.Place(TOOL_FILE, "tamsel");
    dir.Place(SIM_FILE, "libvortaarm.dylib");
    dir.Place(SCRIPT_DIR, "Script");
  }

  LAUNCH LaunchOf(const std::string& args) const {
    LAUNCH launch = {.File = "tamsel", .Args = Words(args)};
    launch.Environment["NORDAX_SIM_FLASH"] = dir.At("flash");
    if (!attached.empty()) {
      launch.Environment["NORDAX_SIM_PROBES"] = attached;
    }
    return launch;
  }

  static void ExpectOutcome(const OUTCOME& outcome, const std::string& args, const std::string& output, int status) {
    EXPECT_EQ(BehindBanner(outcome.Output), EchoOf(Words(args)) + output);
    EXPECT_EQ(outcome.Errors, "");
    EXPECT_EQ(outcome.Status, status);
  }

  void Expect(const std::string& args, const std::string& output, int status) const {
    SCOPED_TRACE(args);
    ExpectOutcome(Launch(dir, LaunchOf(args)), args, output, status);
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
  const struct {
    std::string Args;
    std::string Output;
  } rows[] = {
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
      {TARGET_ARGS + "-ScriptFile Minimal.pex",
       ProbeText() + "Specified script file does not have an entry point with name ''\n"},
  };
  for (const auto& row : rows) {
    Expect(row.Args, row.Output, 255);
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
  const std::string notRun = "Failed to execute function 'Run' from script file\n";
  ExpectScript("function Run()\n  Log(1) Error('odd') print(2, 3)\nend",
               "Vorta log: 1\nVorta error: odd\nVorta log: 2\t3\n", 255);
  ExpectScript("function Run() return -2147483648 end",
               "Script file function 'Run' returned with error code -2147483648\n", 255);
  ExpectScript("function Run() return 2147483647 end", "", 0);
  ExpectScript("function Run()\n  Flash.Erase(\n",
               "Failed to compile script file: 'Test.pex:3: unexpected symbol near <eof>'\n", 255);
  ExpectScript("Run = print()", "Vorta log: \nSpecified script file does not have an entry point with name 'Run'\n",
               255);
  ExpectScript("error('no')",
               "Vorta error: Test.pex:1: no\nVorta log: stack traceback:\n\t[C]: in function 'error'\n"
               "\tTest.pex:1: in main chunk\n\t[C]: in ?\nFailed to load script file instance: 'Test.pex'\n",
               255);
  ExpectScript("function Run()\n  Nothing()\nend",
               "Vorta error: Test.pex:2: attempt to call a nil value (global 'Nothing')\nVorta log: stack traceback:\n"
               "\tTest.pex:2: in function <Test.pex:1>\n\t[C]: in ?\n" +
                   notRun,
               255);
}

TEST_F(SimulatedProbe, RunsSixteenToolsAtOnce) {
  constexpr uint32_t NUM_TOOLS = 16;
  constexpr uint32_t FIRST_SERIAL_NUMBER = 800000000;
  for (uint32_t i = 0; i < NUM_TOOLS; i++) {
    attached += std::to_string(FIRST_SERIAL_NUMBER + i) + ",";
  }
  for (const auto& [operation, log] : {std::pair("Program", "Programmed"), std::pair("Verify", "Verified")}) {
    std::vector<std::string> args;
    std::vector<std::unique_ptr<PROCESS>> processes;
    for (uint32_t i = 0; i < NUM_TOOLS; i++) {
      const std::string selection = "-USB " + std::to_string(FIRST_SERIAL_NUMBER + i) + " ";
      args.push_back(selection + Provision(operation, std::to_string(1000 + i), "Device" + std::to_string(i)));
      processes.push_back(std::make_unique<PROCESS>(dir, LaunchOf(args[i])));
    }
    for (uint32_t i = 0; i < NUM_TOOLS; i++) {
      SCOPED_TRACE(args[i]);
      const std::string serialNumber = std::to_string(FIRST_SERIAL_NUMBER + i);
      const std::string device = "Device" + std::to_string(i);
      ExpectOutcome(processes[i]->Finish(), args[i],
                    ProbeText(serialNumber) + "Vorta log: " + log + " serial " + std::to_string(1000 + i) +
                        ", device " + device + "\n",
                    0);
      EXPECT_EQ(dir.Read("flash/flash-" + serialNumber + ".bin"), FlashWith(1000 + i, device));
    }
  }
}

}  // namespace
