// The tool on the simulated probe, with the scripts that come with it and with faulty ones: what is printed, the exit
// status, and what is in the device afterwards.

#include <gtest/gtest.h>
#include <sys/file.h>

#include "tests/cli/run_tool.h"

namespace {

const std::string ERASED(0x10000, '\xFF');
const std::string TARGET = "-TIF SWD -Speed 4000 ";
const std::string SCRIPT = TARGET + "-ScriptFile Provision.pex -Operation ";
const std::string PAIRS = " -SetConfigVal Device=Sensor -SetConfigVal Key=00112233445566778899AABBccddeeff";
const std::string VALUES = PAIRS + " -SetConfigVal Serial=";
const std::string PROBE = "Firmware: Simulated Vorta V1 compiled Jan  5 2026 09:00:00\nS/N: 680000001\n\n";

class SimulatedProbe : public testing::Test {
 protected:
  SimulatedProbe() {
    Place(dir, TOOL_FILE, "tamsel");
    Place(dir, SIM_FILE, "libvortaarm.dylib");
    Place(dir, SCRIPT_DIR, "Script");
  }

  std::string RunShell(const std::string& commands) const {
    return RunProgram(dir, {.File = dir.AddFile("run", "#!/bin/sh\n" + commands, 0755).substr(dir.Path.size() + 1),
                            .Environment = environment});
  }

  // A run with arguments, or with a script in their place.
  void Expect(const std::string& run, const std::string& output, int status) const {
    const bool hasArgs = run.starts_with('-');
    dir.AddFile("Script/Test.pex", run);
    const std::vector<std::string> args = Words(hasArgs ? run : TARGET + "-ScriptFile Test.pex -Operation Run");
    EXPECT_EQ(RunProgram(dir, {.File = "tamsel", .Args = args, .Environment = environment}),
              BANNER + EchoOf(args) + (output.starts_with("ERROR: ") ? "" : PROBE) + output + "exit " +
                  std::to_string(status) + "\n");
  }

  std::string Flash() const { return ReadFile(dir / "flash/flash-680000001.bin"); }

  const TEMP_DIR dir;
  std::map<std::string, std::string> environment = {{"NORDAX_SIM_FLASH", dir / "flash"}};
};

TEST_F(SimulatedProbe, KeepsWhatIsProgrammed) {
  const std::string info = "-If JTAG -Speed adaptive -ScriptFile Provision.pex -Operation ReadInfo";
  const std::string target = "Vorta log: Target SIM-M4, ID 0x4BA00477, 64 KiB of flash at 0x08000000\n";
  const std::string failed = "Script file function 'Verify' returned with error code -3\n";
  Expect(SCRIPT + "Verify" + VALUES + "42", "Vorta error: The record differs at 0x0800F000\n" + failed, 255);
  EXPECT_TRUE(Flash() == ERASED);
  std::string flash = ERASED;
  flash.replace(0xF000, 64, 64, '\0').replace(0xF000, 18, "PROV\1\0\0\0\xFF\xFF\xFF\xFFSensor", 18);
  flash.replace(0xF02C, 20, "\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xAA\xBB\xCC\xDD\xEE\xFF\xD9\x90\x1A\x7B", 20);
  for (const std::string streams : {"", "0<&-", "1>&-", "0<&- 1>&-"}) {  // Of those closed none becomes the flash.
    Expect(SCRIPT + "Program" + VALUES + "42", "Vorta log: Programmed serial 42, device Sensor\n", 0);
    EXPECT_TRUE(RunShell("./tamsel " + SCRIPT + "Program" + VALUES + "4294967295 " + streams).ends_with("exit 0\n"));
    EXPECT_TRUE(Flash() == flash) << streams;
  }
  Expect(SCRIPT + "Verify" + VALUES + "4294967295", "Vorta log: Verified serial 4294967295, device Sensor\n", 0);
  Expect(SCRIPT + "Verify" + VALUES + "4294967039", "Vorta error: The record differs at 0x0800F009\n" + failed, 255);
  Expect(info, target + "Vorta log: Serial 4294967295, device Sensor\n", 0);
  Expect(SCRIPT + "Erase", "Vorta log: Record erased\n", 0);
  EXPECT_TRUE(Flash() == ERASED);
  Expect(info,
         target +
             "Vorta error: The device holds no valid record\nScript file function 'ReadInfo' returned with error code "
             "-4\n",
         255);
}

TEST_F(SimulatedProbe, RefusesWhatIsNotThereOrWrong) {
  const std::string malformed = "\nScript file function 'Program' returned with error code -2\n";
  const std::string serialRule = "Vorta error: Pair 'Serial' must be a number from 1 to 4294967295" + malformed;
  const std::string trace = "Vorta log: stack traceback:\nVorta log: \t";
  const std::string noResult = "Vorta error: Function 'Run' did not return a 32-bit integer but ";
  const std::string notRun = "\nFailed to execute function 'Run' from script file\n";
  for (const auto& [run, output] :
       {std::pair<std::string, std::string>("-USB 3", "ERROR: No probe at USB port 3 found\n"),
        {"-USB Bank", "ERROR: No probe with nickname Bank found\n"},
        {"-IP 10.0.0.1", "ERROR: No probe at IP address 10.0.0.1 found\n"},
        {"-USB Bench -Module 0", "ERROR: Probe 680000001 has 0 modules: there is no module 0\n"},
        {"-IP 192.0.2.3 -Module 4", "ERROR: Probe 690000003 has 4 modules: there is no module 4\n"},
        {"-TIF C2", "Vorta error: Target SIM-M4 has no interface 6, only JTAG (0) and SWD (1)\nFailed to select TIF\n"},
        {"-TIF SWD -Speed 0 -ScriptFile Minimal.pex -Operation Hello",  // The rest runs, and the run has failed.
         "Vorta error: Speed 0 kHz is not possible, only 1 to 50000 kHz or adaptive\nVorta log: Hello, target\n"
         "Vorta log: The target answers with ID 0x2BA01477\n"},
        {TARGET + "-ScriptFile None.pex", "Failed to compile script file: 'None.pex: No such file or directory'\n"},
        {SCRIPT + "Program" + VALUES + "1 -SetConfigVal Serial=1",
         "Vorta error: 'Serial' is given twice\nFailed to register key-value pair Serial=1\n"},
        {SCRIPT + "Program" + PAIRS,
         "Vorta error: Pair 'Serial' is missing\nScript file function 'Program' returned with error code -1\n"},
        {SCRIPT + "Program" + PAIRS + " -SetConfigVal serial=1", "Vorta error: Unknown pair 'serial'" + malformed},
        {SCRIPT + "Program" + VALUES + "0", serialRule},
        {SCRIPT + "Program" + VALUES + "4294967296", serialRule},
        {SCRIPT + "Program -SetConfigVal Serial=1 -SetConfigVal Device=" + std::string(32, 'x'),
         "Vorta error: Pair 'Device' must have 1 to 31 printable characters" + malformed},
        {SCRIPT + "Program -SetConfigVal Serial=1" + PAIRS + "0",
         "Vorta error: Pair 'Key' must have 32 hexadecimal digits" + malformed},
        {"function Run() Log(1) print(2, 3) Error('a\\r\\n\\nb\\rc\\n') end",
         "Vorta log: 1\nVorta log: 2\t3\nVorta error: a\nVorta error: \nVorta error: b\nVorta error: c\n"},
        {"function Run() return -2147483648 end", "Script file function 'Run' returned with error code -2147483648\n"},
        {"function Run() return 2147483648 end", noResult + "2147483648" + notRun},
        {"function Run() return '1' end", noResult + "1" + notRun},
        {"\xEF\xBB\xBF#!/bin/lua\n)", "Failed to compile script file: 'Test.pex:2: unexpected symbol near ')''\n"},
        {"Run = print()", "Vorta log: \nSpecified script file does not have an entry point with name 'Run'\n"},
        {"error('no')", "Vorta error: Test.pex:1: no\n" + trace +
                            "[C]: in function 'error'\nVorta log: \tTest.pex:1: in main chunk\nVorta log: \t[C]: in "
                            "?\nFailed to load script file instance: 'Test.pex'\n"},
        {"function Run()\n  while true do pcall(function() while true do end end) end\nend",
         "Vorta error: Test.pex:2: stopped after 50000000 instructions\n" + trace +
             "Test.pex:2: in function <Test.pex:1>\nVorta log: \t[C]: in ?" + notRun},
        {"local function F() return 1 + F() end\nfunction Run() Error(select(2, pcall(F))) end",
         "Vorta error: Test.pex:1: stack overflow\n"}}) {
    Expect(run, output, 255);
  }
  EXPECT_FALSE(std::filesystem::exists(dir / "flash"));
}

TEST_F(SimulatedProbe, KeepsScriptsFromMisusingTheFlash) {
  const std::string outside = " are outside the flash, which has 65536 bytes at 0x08000000";
  std::string script = "#!/bin/lua\r\nlocal function Try(f, ...) Log(select(2, pcall(f, ...))) end\nfunction Run()\n";
  std::string output;
  for (const auto& [call, message] :
       {std::pair<std::string, std::string>("Flash.Write, 0x08000008, ('\x0F'):rep(8)", ""),
        {"Flash.Write, 0x08000008, ('\x0E'):rep(8)", ""},
        {"Flash.Write, 0x08000000, ('\x0E'):rep(15) .. '\x1E'", "the flash at 0x0800000F is not erased"},
        {"Flash.Write, 0x08000004, ('x'):rep(8)", "8 bytes at 0x08000004: address and size must be multiples of 8"},
        {"Flash.Erase, 0x08000000, 4088", "4088 bytes at 0x08000000: address and size must be multiples of 4096"},
        {"Flash.Read, 0x0800FFFF, 2", "2 bytes at 0x0800FFFF" + outside},
        {"Flash.Read, 0x07FFFFFF, 1", "1 bytes at 0x07FFFFFF" + outside},
        {"Flash.Read, 0x08000001, -1", "18446744073709551615 bytes at 0x08000001" + outside},
        {"function() Config.A = 1 end", "Test.pex:12: Config cannot be changed by the script"}}) {
    script += "  Try(" + call + ")\n";
    output += "Vorta log: " + message + "\n";
  }
  Expect(script + "return 2147483647.0 end", output, 0);
  EXPECT_TRUE(Flash() == std::string(ERASED).replace(8, 8, 8, '\x0E'));
  const int file = open((dir / "flash/flash-680000001.bin").c_str(), O_RDWR | O_CLOEXEC);
  EXPECT_EQ(flock(file, LOCK_EX), 0);
  Expect("function Run() Error(select(2, pcall(Flash.Read, 0x08000000, 1))) end",
         "Vorta error: $DIR/flash/flash-680000001.bin is in use by another process\n", 255);
  close(file);
}

TEST_F(SimulatedProbe, GivesEachProbeAndModuleAFlashOfItsOwn) {
  for (const std::string operation : {"Program", "Verify"}) {
    std::string commands = "(";
    int serial = 1000;
    for (const std::string probe : {"", "-USB 1", "-USB 2", "-USB Hub -Module 2", "-IP 192.0.2.3 -Module 3"}) {
      commands += "./tamsel " + SCRIPT + operation + VALUES + std::to_string(serial++) + " " + probe + " &\n";
    }
    EXPECT_EQ(RunShell(commands + "wait) | grep -c '^Vorta log: .* serial 100[0-4], device Sensor$'"), "5\nexit 0\n");
  }
  EXPECT_TRUE(std::filesystem::exists(dir / "flash/flash-690000003-0.bin"));
}

}  // namespace
