// The tool as its caller sees it, on a fake of the probe library that prints each call: its output to the byte among
// the calls, and its exit status. A line that waited in a buffer would be behind the call that follows it.

#include <gtest/gtest.h>

#include <utility>

#include "tests/cli/run_tool.h"

namespace {

using ROW = std::pair<std::string, std::string>;
using TEXTS = std::vector<std::string>;

const TEXTS GOOD =
    Words("-TIF SWD -Speed 4000 -ScriptFile Prov.pex -Operation Program -SetConfigVal A=1 -SetConfigVal B=2");

// What is printed when the probe is opened, and when it is closed behind a failure or a success.
const std::string OPENED = "> OpenEx\n> GetFirmwareString(256)\nFirmware: Fake V1\n> GetSN\nS/N: 12345\n\n";
const std::string FAILED = "exit 255\n";
const std::string CLOSED_EMPTY = "> Close(no code)\n" + FAILED;
const std::string CLOSED = "> Close(code)\n" + FAILED;
const std::string UNLOADED = "> UnloadInstance(7)\n" + CLOSED;
const std::string SUCCEEDED = "> UnloadInstance(7)\n> Close(code)\nexit 0\n";

// What a run prints before it selects a probe.
std::string Begin(const TEXTS& args) {
  return BANNER + std::string("> GetpFunc(61)\n> GetpFunc(62)\n> GetpFunc(63)\n> GetpFunc(64)\n> GetpFunc(65)\n") +
         "> GetpFunc(71)\n" + EchoOf(args);
}

const std::string GOOD_RUN =
    Begin(GOOD) + OPENED +
    "> TIF_Select(1)\n> SetSpeed(4000)\n> CompileFile($DIR/Script/Prov.pex)\n> LoadInstance(code,1000000)\n"
    "> RegisterKeyValue(7,B,2)\n> RegisterKeyValue(7,A,1)\n> HasEntryPoint(7,Program)\n"
    "> ExecuteFunction(7,Program,null,0)\n" +
    SUCCEEDED;

// The good run up to a call, without it or with it.
std::string Before(const std::string& call) {
  return GOOD_RUN.substr(0, GOOD_RUN.find("> " + call));
}
std::string Through(const std::string& call) {
  return GOOD_RUN.substr(0, GOOD_RUN.find('\n', GOOD_RUN.find("> " + call)) + 1);
}

class Tool : public testing::Test {
 protected:
  Tool() {
    Place(dir, TOOL_FILE, "tamsel");
    Place(dir, FAKE_FILE, "libvortaarm.dylib");
  }

  std::string RunWith(const TEXTS& args, const std::string& behaviour = "") const {
    return RunProgram(dir, {.File = "tamsel", .Args = args, .Environment = {{"FAKE_BEHAVIOUR", behaviour}}});
  }

  const TEMP_DIR dir;
};

TEST_F(Tool, EndsAtTheFirstFailure) {
  const std::string noTif = "Failed to select TIF\n" + CLOSED_EMPTY;
  const std::string noCode = "Failed to compile script file";
  const std::string noInstance = "Failed to load script file instance: 'Prov.pex'\n" + CLOSED;
  const std::string noPair = "Failed to register key-value pair ";
  const std::string noEntry = "Specified script file does not have an entry point with name 'Program'\n" + UNLOADED;
  const std::string noRun = "Failed to execute function 'Program' from script file\n" + UNLOADED;
  const std::string returned = "Script file function 'Program' returned with error code ";
  const std::string x(300, 'x');
  std::vector<ROW> rows = {
      {"error@OpenEx=bad;OpenEx=No probe", Through("OpenEx") + "Vorta error: bad\nERROR: No probe\n" + FAILED},
      {"TIF_Select=1", Through("TIF") + noTif},
      {"TIF_Select=-1", Through("TIF") + noTif},
      {"CompileFile=-1,0", Through("Comp") + noCode + "\n" + CLOSED_EMPTY},
      {"GetpFunc#1=null", Before("Comp") + noCode + "\n" + CLOSED_EMPTY},
      // The text of the compiler decides, not its result; and the code is released in any case.
      {"CompileFile=-1;compile@CompileFile=1: %d", Through("Comp") + noCode + ": '1: %d'\n" + CLOSED},
      {"compile@CompileFile=;compile@CompileFile=second", Through("Comp") + noCode + ": ''\n" + CLOSED},
      {"compile@CompileFile=" + x, Through("Comp") + noCode + ": '" + x.substr(0, 127) + "'\n" + CLOSED},
      {"LoadInstance=-5", Through("Load") + noInstance},
      {"GetpFunc#2=null", Before("Load") + noInstance},
      {"RegisterKeyValue=-1", Through("RegisterKeyValue(7,B") + noPair + "B=2\n" + UNLOADED},
      {"RegisterKeyValue#2=-1", Through("RegisterKeyValue(7,A") + noPair + "A=1\n" + UNLOADED},
      {"GetpFunc#6=null", Before("RegisterKeyValue") + noPair + "B=2\n" + UNLOADED},
      {"HasEntryPoint=0", Through("Has") + noEntry},
      {"HasEntryPoint=2", Through("Has") + noEntry},
      {"GetpFunc#4=null", Before("Has") + noEntry},
      {"ExecuteFunction=-1,-7", Through("Exec") + noRun},
      {"GetpFunc#5=null", Before("Exec") + noRun},
      {"ExecuteFunction=0,-1", Through("Exec") + returned + "-1\n" + UNLOADED},
      {"GetpFunc#3=null", Before("Unload") + "> Close(code)\nexit 0\n"},
  };
  if (!CLI_SANITIZED) {  // Memory can be limited.
    rows.emplace_back("exhaust@GetpFunc#6=", Begin({}) + "Failed to create OTALLOC instance\n" + FAILED);
    rows.emplace_back("exhaust@SetSpeed=", Through("Comp") + "no memory\n" + noCode + "\n" + CLOSED_EMPTY);
  }
  for (const auto& [behaviour, output] : rows) {
    EXPECT_EQ(RunWith(GOOD, behaviour), output) << behaviour;
  }
}

// An error makes the run fail, unless it comes after the script's function has run.
TEST_F(Tool, PrintsWhatTheLibraryTells) {
  for (const std::string step :
       {"OpenEx", "GetFirmwareString", "GetSN", "TIF_Select", "SetSpeed", "CompileFile", "LoadInstance",
        "RegisterKeyValue", "HasEntryPoint", "ExecuteFunction", "UnloadInstance", "Close"}) {
    const std::string log = "log@" + step + "=50% %s;";
    const std::regex call("> " + step + ".*\n");
    EXPECT_EQ(RunWith(GOOD, log + log), std::regex_replace(GOOD_RUN, call, "$&Vorta log: 50% %s\nVorta log: 50% %s\n"));
    std::string told = std::regex_replace(GOOD_RUN, call, "$&Vorta error: bad\nVorta log: 50% %s\n");
    if (step != "UnloadInstance" && step != "Close") {
      told = std::regex_replace(told, std::regex("exit 0"), "exit 255");
    }
    EXPECT_EQ(RunWith(GOOD, "error@" + step + "=bad;" + log), told);
  }
}

TEST_F(Tool, TakesResultsThatAreNotNegativeForSuccess) {
  const std::string text(255, '%');
  std::string expected = std::regex_replace(GOOD_RUN, std::regex("\\(7([,)])"), "(0$1");
  expected = std::regex_replace(expected, std::regex("Fake V1"), text);
  expected = std::regex_replace(expected, std::regex("12345"), "4294967295");
  EXPECT_EQ(RunWith(GOOD,
                    "CompileFile=1;LoadInstance=0;RegisterKeyValue=2;ExecuteFunction=3,2147483647;"
                    "UnloadInstance=-1;GetSN=4294967295;GetFirmwareString=" +
                        text + "cut"),
            expected);
}

TEST_F(Tool, SelectsTheProbeAndTheTarget) {
  for (const auto& [args, calls] : {ROW("", ""),
                                    {"-usb 3", "> SelectUSB(3)\n"},
                                    {"-USB 0004", "> EMU_SelectByUSBSN(4)\n"},
                                    {"-USB 4294967295 -Speed 1", "> EMU_SelectByUSBSN(4294967295)\n"},
                                    {"-USB 1 -USB 0x5", "> EMU_SelectByUSBNickname(0x5)\n"},
                                    {"-USB Probe -IP 1.2.3.4:5", "> SelectIP(1.2.3.4:5,0)\n"},
                                    {"-IP 1.2.3.4:5 -USB Probe -USB 0", "> SelectUSB(0)\n"},
                                    {"-IP h -Module -1", "> SelectIP(h,0)\n> ExecCommand(SelectModule=-1,null,0)\n"},
                                    {"-Module 0", "> ExecCommand(SelectModule=0,null,0)\n"}}) {
    // What selections give is not looked at.
    EXPECT_EQ(RunWith(Words(args), "SelectUSB=-1;EMU_SelectByUSBNickname=-1;SelectIP=-1;ExecCommand=-1"),
              Begin(Words(args)) + calls + OPENED + "No TIF selected\n" + CLOSED_EMPTY);
  }
  for (const std::string target : {"JTAG 0", "swd 1", "UART 3", "Fine 3", "ICSP 4", "2-WIRE-JTAG-pic32 4", "SPI 5",
                                   "c2 6", "cJTAG 7", "mc2wjtag_tdi 10", "2-wire 10"}) {
    const TEXTS args = Words("-Speed aDAPTIVE -Operation x -TIF C2 -If " + Words(target)[0]);
    EXPECT_EQ(RunWith(args), Begin(args) + OPENED + "> TIF_Select(" + Words(target)[1] + ")\n> SetSpeed(65535)\n" +
                                 "Failed to open script file: '<Empty>'\n" + CLOSED_EMPTY);
  }
  const TEXTS args = Words("-TIF SWD -Speed 65534 -ScriptFile x");
  EXPECT_EQ(RunWith(args), Begin(args) + OPENED + "> TIF_Select(1)\nNo TIF speed selected\n" + CLOSED_EMPTY);
}

// What is cut is repeated whole, in one piece: it is more than the output's buffer holds.
TEST_F(Tool, CutsTextsToTheirFields) {
  const std::string x(70000, 'x');
  const std::string path = "/" + x.substr(0, 510);
  const std::string name = x.substr(0, 127);
  const TEXTS args = {"-TIF", "SWD",  "-Speed", "-0X1kHz",       "-ScriptFile", "/" + x,         "-Operation",
                      x,      "-USB", x,        "-SetConfigVal", "k==v",        "-SetConfigVal", x + "= "};
  EXPECT_EQ(RunWith(args), Begin(args) + "> EMU_SelectByUSBNickname(" + x.substr(0, 31) + ")\n" + OPENED +
                               "> TIF_Select(1)\n> SetSpeed(4294967295)\n> CompileFile(" + path +
                               ")\n> LoadInstance(code,1000000)\n" + "> RegisterKeyValue(7," + x +
                               ", )\n> RegisterKeyValue(7,k,=v)\n> HasEntryPoint(7," + name +
                               ")\n> ExecuteFunction(7," + name + ",null,0)\n" + SUCCEEDED);
  EXPECT_EQ(RunWith({"-IP", x}, "OpenEx=" + x),
            Begin({"-IP", x}) + "> SelectIP(" + name + ",0)\n> OpenEx\nERROR: " + x + "\n" + FAILED);
}

// The first error ends it all. White space before an option does not count, case neither.
TEST_F(Tool, RefusesABadCommandLine) {
  for (const auto& [args, message] :
       {std::pair<TEXTS, std::string>({" \t\r\n-Help", "x"}, "Unknown command line option: -Help"),
        {{""}, "Unknown command line option: "},
        {{"-Operation", "-TIF", "SWD"}, "Unknown command line option: SWD"},
        {{"-Speed ", "1"}, "Unknown command line option: -Speed "},
        {{"-IP", "two words", "\n-uSB"}, "Missing parameter after command line option '-uSB'"},
        {{"-TIF", "SWD", "-IP", "h", "-Speed", "1", "-setconfigval", "A1", "-x"}, "-SetConfigVal: Syntax error"},
        {{"-SetConfigVal", "=1"}, "-SetConfigVal: Syntax error"},
        {{"-SetConfigVal", "A="}, "-SetConfigVal: Syntax error"},
        {{"-if", "Swd2"}, "Option '-If': Unknown interface 'Swd2'"},
        {{"-Tif", ""}, "Option '-TIF': Unknown interface ''"},
        {{"-speed", "adaptive "}, "Option '-Speed': Invalid value"},
        {{"-USB", ""}, "ERROR while parsing value for usb."},
        {{"-Module", "M1"}, "ERROR while parsing value for <ModuleIndex>."}}) {
    EXPECT_EQ(RunWith(args), Begin(args) + message + "\nError while parsing command line\n" + FAILED);
  }
}

TEST_F(Tool, LooksForScriptsBesideItself) {
  std::filesystem::create_directories(dir / "links");
  std::filesystem::create_symlink("../tamsel", dir / "links/provision");
  const std::string retired = "pcode_tamsel_st_stm32f74_F75.PEX";
  const std::string x(511, 'x');
  TEXTS args = GOOD;
  for (const auto& [name, inUse] : {ROW(retired, "PCode_Tamsel_ST_STM32F72_F73_F74_F75.pex"),
                                    {"PCode_Tamsel_TI_CC2744_PG2_HSM.pex", "PCode_Tamsel_TI_CC2745_PG2_HSM.pex"},
                                    {"CGA3D5K.PEX", "CGA3D5K.PEX"},  // Has the hash of the retired name.
                                    {"./" + retired, "./" + retired},
                                    {x, x}}) {
    args[5] = name;
    const std::string path = "$DIR/Script/" + inUse.substr(0, 511 - (dir / "Script/").size());
    const std::string expected = Begin(args) + OPENED + "> TIF_Select(1)\n> SetSpeed(4000)\n> CompileFile(" + path +
                                 ")\n> LoadInstance(code,1000000)\nFailed to load script file instance: '" + inUse +
                                 "'\n" + CLOSED;
    LAUNCH launch = {.File = "tamsel", .Args = args, .Environment = {{"FAKE_BEHAVIOUR", "LoadInstance=-1"}}};
    EXPECT_EQ(RunProgram(dir, launch), expected);
    launch.Name = "tamsel";  // As found in the PATH.
    launch.WorkingDir = "links";
    EXPECT_EQ(RunProgram(dir, launch), expected);
    launch.File = "links/provision";  // Through a link, whose own directory has neither library nor scripts.
    EXPECT_EQ(RunProgram(dir, launch), expected);
  }
}

// The tool ends where it needs the entry point, and says which one it is and what the loader says.
TEST_F(Tool, EndsWithStatus1WithoutAnEntryPoint) {
#ifdef __APPLE__
  GTEST_SKIP() << "a changed program would not start";
#endif
  std::string tool = ReadFile(dir / "tamsel");
  for (const std::string call : {"Close", "TIF_Select", "GetpFunc"}) {
    const std::string symbol = "VORTA_" + call;  // The tool is made to look for another name.
    const std::string missing = "VORTA_?" + call.substr(1);
    for (size_t at; (at = tool.find(symbol + '\0')) != std::string::npos;) {
      tool.replace(at, missing.size(), missing);
    }
    dir.AddFile("tamsel", tool, 0755);
    const std::string library = "$DIR/libvortaarm.dylib";
    std::string output = RunWith(GOOD);
    // It ends at once, and releases nothing.
    output.erase(std::min(output.find("memory is left\n"), output.size()), sizeof("memory is left"));
    EXPECT_EQ(output, Before(call) + "Function not found: " + missing + " (" + library +
                          ": undefined symbol: " + missing + "). Exiting now.\nexit 1\n");
  }
}

TEST_F(Tool, EndsWithStatus1WithoutTheLibrary) {
  if (std::filesystem::exists("/Applications/NORDAX")) {
    GTEST_SKIP() << "the library that is installed here would be found";
  }
  std::filesystem::remove(dir / "libvortaarm.dylib");
  EXPECT_EQ(RunWith({"-Unknown"}), BANNER + std::string("Could not open Vorta shared library. Exiting now.\nexit 1\n"));
}

TEST_F(Tool, OpensStandardStreamsThatAreClosed) {
  dir.AddFile("run", "#!/bin/sh\nexec ./tamsel -USB 1 0<&- 2>&-\n", 0755);
  EXPECT_EQ(RunProgram(dir, {.File = "run", .Environment = {{"FAKE_BEHAVIOUR", ""}}}), RunWith({"-USB", "1"}));
}

// The library's calls of its own functions may go through the tool's forwarders, and come back to it once.
TEST_F(Tool, ServesTheLibraryItself) {
  const std::string names = "VORTAARM_GetSN in $DIR/tamsel\nSESSION_Run in no image\n> GetSN\n";
  const std::string read = "> ReadMemAP(3,1311768467463790320,4)\nresult 5 value 16843009\n";
  const std::string rest = GOOD_RUN.substr(Through("OpenEx").size());
  EXPECT_EQ(RunWith(GOOD, "self@OpenEx=;self@OpenEx="),
            Through("OpenEx") + names + "> GetpFunc(58)\n" + read + names + read + rest);
  // A function that is missing is asked for again.
  const std::string missing = names + "> GetpFunc(58)\nresult -262 value 0\n";
  EXPECT_EQ(RunWith(GOOD, "self@OpenEx=;self@OpenEx=;GetpFunc#7=null;GetpFunc#8=null"),
            Through("OpenEx") + missing + missing + rest);
}

}  // namespace
