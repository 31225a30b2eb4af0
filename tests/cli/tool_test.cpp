// The tool as its caller sees it, on a fake of the probe library that records each call: output to the byte, exit
// status, and the calls in their order.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "tests/cli/run_tool.h"

namespace {

constexpr char GOOD[] =
    "-TIF SWD -Speed 4000 -ScriptFile Prov.pex -Operation Program -SetConfigVal A=1 -SetConfigVal B=2";

// What is printed when the probe is open, and how far a run has come in calls.
const std::string PROBE = "Firmware: Fake V1\nS/N: 12345\n\n";
const std::string BOUND = "GetpFunc(61) GetpFunc(62) GetpFunc(63) GetpFunc(64) GetpFunc(65) GetpFunc(71) ";
const std::string OPENED = "OpenEx GetFirmwareString(256) GetSN ";
const std::string TARGET = OPENED + "TIF_Select(1) SetSpeed(4000) ";
const std::string COMPILED = TARGET + "CompileFile($DIR/Script/Prov.pex) ";
const std::string LOADED = COMPILED + "LoadInstance(code,4096) ";
const std::string PAIRS = LOADED + "RegisterKeyValue(7,B,2) RegisterKeyValue(7,A,1) ";
const std::string ENTRY = PAIRS + "HasEntryPoint(7,Program) ";
const std::string EXECUTED = ENTRY + "ExecuteFunction(7,Program,null,0) ";
const std::string UNLOADED = "UnloadInstance(7) Close(code) ";
const std::string CLOSED = "Close(code) ";
const std::string CLOSED_WITHOUT_CODE = "Close ";

struct SCENARIO {
  std::string Args;
  std::string Behaviour;
  std::string Output;  // What follows the repeated arguments.
  std::string Calls;   // What follows the calls that fetch the engine's functions.
  int Status = 255;
};

class Tool : public testing::Test {
 protected:
  Tool() {
    dir.Place(TOOL_FILE, "tamsel");
    dir.Place(FAKE_DIR "fake_probe.dylib", "libvortaarm.dylib");
  }

  void Expect(const LAUNCH& launch, const std::string& output, const std::string& calls, int status = 255) const {
    SCOPED_TRACE(EchoOf(launch.Args).substr(0, 200) + "with " + launch.Behaviour.substr(0, 200));
    const OUTCOME outcome = Launch(dir, launch);
    EXPECT_EQ(BehindBanner(outcome.Output), EchoOf(launch.Args) + output);
    EXPECT_EQ(outcome.Errors, "");
    EXPECT_EQ(outcome.Status, status);
    EXPECT_EQ(outcome.Calls, BOUND + calls);
  }

  void Expect(const std::vector<SCENARIO>& scenarios) const {
    for (const SCENARIO& row : scenarios) {
      Expect({.File = "tamsel", .Args = Words(row.Args), .Behaviour = row.Behaviour}, row.Output, row.Calls,
             row.Status);
    }
  }

  const TEMP_DIR dir;
};

TEST_F(Tool, EndsAtTheFirstFailure) {
  const std::string pairFailure = PROBE + "Failed to register key-value pair ";
  Expect({
      {GOOD, "", PROBE, EXECUTED + UNLOADED, 0},
      {GOOD, "OpenEx=No probe found", "ERROR: No probe found\n", "OpenEx "},
      {"", "", PROBE + "No TIF selected\n", OPENED + CLOSED_WITHOUT_CODE},
      {"-Speed 4000", "", PROBE + "No TIF selected\n", OPENED + CLOSED_WITHOUT_CODE},
      {"-TIF SWD", "TIF_Select=1", PROBE + "Failed to select TIF\n", OPENED + "TIF_Select(1) Close "},
      {"-TIF SWD", "TIF_Select=-1", PROBE + "Failed to select TIF\n", OPENED + "TIF_Select(1) Close "},
      {"-TIF SWD", "", PROBE + "No TIF speed selected\n", OPENED + "TIF_Select(1) Close "},
      {"-TIF SWD -Speed 65534", "", PROBE + "No TIF speed selected\n", OPENED + "TIF_Select(1) Close "},
      {"-TIF SWD -Speed 4000 -Operation Program", "", PROBE + "Failed to open script file: '<Empty>'\n",
       TARGET + CLOSED_WITHOUT_CODE},
      {GOOD, "LoadInstance=-5", PROBE + "Failed to load script file instance: 'Prov.pex'\n", LOADED + CLOSED},
      {GOOD, "RegisterKeyValue=-1", pairFailure + "B=2\n", LOADED + "RegisterKeyValue(7,B,2) " + UNLOADED},
      {GOOD, "RegisterKeyValue#2=-1", pairFailure + "A=1\n", PAIRS + UNLOADED},
      {"-TIF SWD -Speed 4000 -ScriptFile Prov.pex -SetConfigVal B=2", "HasEntryPoint=0",
       PROBE + "Specified script file does not have an entry point with name ''\n",
       LOADED + "RegisterKeyValue(7,B,2) HasEntryPoint(7,) " + UNLOADED},
      {GOOD, "ExecuteFunction=-1", PROBE + "Failed to execute function 'Program' from script file\n",
       EXECUTED + UNLOADED},
      {GOOD, "ExecuteFunction=-1;Result=-7", PROBE + "Failed to execute function 'Program' from script file\n",
       EXECUTED + UNLOADED},
      // Functions that the engine lacks.
      {GOOD, "null=61", PROBE + "Failed to compile script file\n", TARGET + CLOSED_WITHOUT_CODE},
      {GOOD, "null=62", PROBE + "Failed to load script file instance: 'Prov.pex'\n", COMPILED + CLOSED},
      {GOOD, "null=63", PROBE, EXECUTED + CLOSED, 0},
      {GOOD, "null=64", PROBE + "Specified script file does not have an entry point with name 'Program'\n",
       PAIRS + UNLOADED},
      {GOOD, "null=65", PROBE + "Failed to execute function 'Program' from script file\n", ENTRY + UNLOADED},
      {GOOD, "null=71", PROBE + "Failed to register key-value pair B=2\n", LOADED + UNLOADED},
  });
  for (const char* result : {"-1", "0", "2"}) {
    Expect({{GOOD, std::string("HasEntryPoint=") + result,
             PROBE + "Specified script file does not have an entry point with name 'Program'\n", ENTRY + UNLOADED}});
  }
  for (const char* result : {"-1", "-2147483648"}) {
    Expect({{GOOD, std::string("Result=") + result,
             PROBE + "Script file function 'Program' returned with error code " + result + "\n", EXECUTED + UNLOADED}});
  }
}

TEST_F(Tool, TakesResultsThatAreNotNegativeForSuccess) {
  const std::string behaviour =
      "CompileFile=1;RegisterKeyValue=2;ExecuteFunction=3;Result=2147483647;UnloadInstance=-1;GetSN=4294967295;"
      "GetFirmwareString=100% %s ";
  std::string calls = EXECUTED + UNLOADED;
  Expect({{GOOD, behaviour, "Firmware: 100% %s \nS/N: 4294967295\n\n", calls, 0}});
  for (size_t at = calls.find("(7"); at != std::string::npos; at = calls.find("(7")) {
    calls.replace(at, 2, "(0");
  }
  Expect({{GOOD, "LoadInstance=0", PROBE, calls, 0}});
}

// The text of the compiler decides, not its result; and the code is released in any case.
TEST_F(Tool, ReportsTheFirstCompileError) {
  const std::string failure = PROBE + "Failed to compile script file";
  const std::string longText(300, 'x');
  const auto quoted = [&](const std::string& text) { return failure + ": '" + text + "'\n"; };
  const struct {
    std::string Behaviour;
    std::string Output;
  } rows[] = {
      {"CompileFile=-1", failure + "\n"},
      {"CompileFile=-1;compile@CompileFile=line 1: %d", quoted("line 1: %d")},
      {"compile@CompileFile=first;compile@CompileFile=second", quoted("first")},
      {"compile@CompileFile=;compile@CompileFile=second", quoted("")},
      {"compile@CompileFile=" + longText, quoted(longText.substr(0, 127))},
  };
  for (const auto& row : rows) {
    Expect({{GOOD, row.Behaviour, row.Output, COMPILED + CLOSED},
            {GOOD, row.Behaviour + ";code=0", row.Output, COMPILED + CLOSED_WITHOUT_CODE}});
  }
  Expect({{GOOD, "code=0;LoadInstance=-1", PROBE + "Failed to load script file instance: 'Prov.pex'\n",
           COMPILED + "LoadInstance(no code,0) " + CLOSED_WITHOUT_CODE}});
}

// The callbacks print one line each in the order of events. An error makes the run fail, unless it comes after the
// script's function has run.
TEST_F(Tool, PrintsWhatTheLibraryTells) {
  const struct {
    const char* pStep;
    std::string Before;
    std::string After;
    int Status;
  } rows[] = {
      {"OpenEx", "", PROBE, 255},
      {"GetFirmwareString", "", PROBE, 255},
      {"GetSN", "Firmware: Fake V1\n", "S/N: 12345\n\n", 255},
      {"TIF_Select", PROBE, "", 255},
      {"SetSpeed", PROBE, "", 255},
      {"CompileFile", PROBE, "", 255},
      {"LoadInstance", PROBE, "", 255},
      {"RegisterKeyValue#2", PROBE, "", 255},
      {"HasEntryPoint", PROBE, "", 255},
      {"ExecuteFunction", PROBE, "", 255},
      {"UnloadInstance", PROBE, "", 0},
      {"Close", PROBE, "", 0},
  };
  const std::string calls = EXECUTED + UNLOADED;
  for (const auto& row : rows) {
    const std::string at = std::string("@") + row.pStep + "=";
    const std::string log = "log" + at + "50% %s;";
    const std::string error = "error" + at + "bad;";
    const std::string logLine = "Vorta log: 50% %s\n";
    Expect({{GOOD, log + log, row.Before + logLine + logLine + row.After, calls, 0},
            {GOOD, log + error + log, row.Before + logLine + "Vorta error: bad\n" + logLine + row.After, calls,
             row.Status}});
  }
  // A failure ends the run whether or not the library told of it, and has its own message.
  Expect({{GOOD, "error@OpenEx=bad;OpenEx=No probe", "Vorta error: bad\nERROR: No probe\n", "OpenEx "},
          {GOOD, "error@ExecuteFunction=bad;Result=-3",
           PROBE + "Vorta error: bad\nScript file function 'Program' returned with error code -3\n", calls}});
}

TEST_F(Tool, SelectsWhatTheOptionsSay) {
  const std::string noTif = PROBE + "No TIF selected\n";
  const std::string end = OPENED + CLOSED_WITHOUT_CODE;
  const std::pair<const char*, const char*> selections[] = {
      {"-USB 0", "SelectUSB(0) "},
      {"-usb 3", "SelectUSB(3) "},
      {"-USB 4", "EMU_SelectByUSBSN(4) "},
      {"-USB 4294967295", "EMU_SelectByUSBSN(4294967295) "},
      {"-USB MyProbe", "EMU_SelectByUSBNickname(MyProbe) "},
      {"-IP 10.0.0.1:19020", "SelectIP(10.0.0.1:19020,0) "},
      {"-USB 123 -IP 10.0.0.1", "SelectIP(10.0.0.1,0) "},
      {"-IP 10.0.0.1 -USB 123", "EMU_SelectByUSBSN(123) "},
      {"-USB 123 -USB Name", "EMU_SelectByUSBNickname(Name) "},
      {"-USB Name -USB 1", "SelectUSB(1) "},
      {"-Module 0", "ExecCommand(SelectModule=0,null,0) "},
      {"-Module 2 -IP host", "SelectIP(host,0) ExecCommand(SelectModule=2,null,0) "},
      {"-Module 4294967295", "ExecCommand(SelectModule=-1,null,0) "},
  };
  for (const auto& [pArgs, pCalls] : selections) {
    // What selections give is not looked at.
    Expect({{pArgs, "SelectUSB=-1;EMU_SelectByUSBSN=-1;EMU_SelectByUSBNickname=-1;SelectIP=-1;ExecCommand=-1", noTif,
             pCalls + end}});
  }
  const std::string noScript = PROBE + "Failed to open script file: '<Empty>'\n";
  Expect({{"-If jtag -Speed ADAPTIVE", "", noScript, OPENED + "TIF_Select(0) SetSpeed(65535) Close "},
          {"-tif 2-wire -speed 0x10kHz", "", noScript, OPENED + "TIF_Select(10) SetSpeed(16) Close "},
          {"-Speed -1 -TIF SWD -TIF icsp", "", noScript, OPENED + "TIF_Select(4) SetSpeed(4294967295) Close "}});
}

TEST_F(Tool, RefusesABadCommandLine) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
      {{"-TIF", "SWD", " \t-Help", "x"}, "Unknown command line option: -Help"},
      {{""}, "Unknown command line option: "},
      {{"-Operation", "-TIF", "SWD"}, "Unknown command line option: SWD"},
      {{"-TIF", "SWD", "-uSB"}, "Missing parameter after command line option '-uSB'"},
      {{"-setconfigval", "A1"}, "-SetConfigVal: Syntax error"},
      {{"-SetConfigVal", "=1"}, "-SetConfigVal: Syntax error"},
      {{"-SetConfigVal", "A="}, "-SetConfigVal: Syntax error"},
      {{"-if", "Swd2", "-Unknown", "x"}, "Option '-If': Unknown interface 'Swd2'"},
      {{"-Tif", ""}, "Option '-TIF': Unknown interface ''"},
      {{"-speed", "fast"}, "Option '-Speed': Invalid value"},
      {{"-USB", ""}, "ERROR while parsing value for usb."},
      {{"-Module", "M1"}, "ERROR while parsing value for <ModuleIndex>."},
  };
  for (const auto& [args, message] : rows) {
    Expect({.File = "tamsel", .Args = args}, message + "\nError while parsing command line\n", "");
  }
}

TEST_F(Tool, LooksForScriptsBesideItself) {
  const std::string options = "-TIF SWD -Speed 4000 -ScriptFile ";
  const struct {
    const char* pName;
    const char* pPath;
    const char* pNameInUse;
  } rows[] = {
      {"sub/x.pex", "$DIR/Script/sub/x.pex", "sub/x.pex"},
      {"../x.pex", "$DIR/Script/../x.pex", "../x.pex"},
      {"/tmp/x.pex", "/tmp/x.pex", "/tmp/x.pex"},
      {"-Speed", "$DIR/Script/-Speed", "-Speed"},
      {"pcode_tamsel_st_stm32f74_F75.PEX", "$DIR/Script/PCode_Tamsel_ST_STM32F72_F73_F74_F75.pex",
       "PCode_Tamsel_ST_STM32F72_F73_F74_F75.pex"},
      {"/tmp/PCode_Tamsel_TI_CC2744_PG2_HSM.pex", "/tmp/PCode_Tamsel_TI_CC2744_PG2_HSM.pex",
       "/tmp/PCode_Tamsel_TI_CC2744_PG2_HSM.pex"},
  };
  std::filesystem::create_directories(dir.At("links"));
  std::filesystem::create_symlink("../tamsel", dir.At("links/provision"));
  for (const auto& row : rows) {
    const std::string output = PROBE + "Failed to load script file instance: '" + row.pNameInUse + "'\n";
    const std::string calls = TARGET + "CompileFile(" + row.pPath + ") LoadInstance(code,4096) " + CLOSED;
    LAUNCH launch = {.File = "tamsel", .Args = Words(options + row.pName), .Behaviour = "LoadInstance=-1"};
    Expect(launch, output, calls);
    launch.Name = "tamsel";  // As found in the PATH.
    launch.WorkingDir = "links";
    Expect(launch, output, calls);
    launch.File = "links/provision";  // Through a link, whose own directory has neither library nor scripts.
    Expect(launch, output, calls);
  }
}

TEST_F(Tool, CutsTextsToTheirFieldsButRepeatsThemWhole) {
  const std::string text(100000, 'x');
  const std::vector<std::string> args = {"-TIF",          "SWD",       "-Speed",        "1",
                                         "-ScriptFile",   "/" + text,  "-Operation",    text,
                                         "-SetConfigVal", "K=" + text, "-SetConfigVal", text + "=V"};
  const std::string path = "/" + text.substr(0, 510);
  const std::string script = OPENED + "TIF_Select(1) SetSpeed(1) CompileFile(" + path + ") LoadInstance(code,4096) ";
  Expect({.File = "tamsel", .Args = args, .Behaviour = "HasEntryPoint=0"},
         PROBE + "Specified script file does not have an entry point with name '" + text.substr(0, 127) + "'\n",
         script + "RegisterKeyValue(7," + text + ",V) RegisterKeyValue(7,K," + text + ") HasEntryPoint(7," +
             text.substr(0, 127) + ") " + UNLOADED);
  Expect({.File = "tamsel", .Args = args, .Behaviour = "LoadInstance=-1"},
         PROBE + "Failed to load script file instance: '" + path + "'\n", script + CLOSED);
  const std::string refusal = "ERROR: " + text + "\n";
  Expect({.File = "tamsel", .Args = {"-USB", text}, .Behaviour = "OpenEx=" + text}, refusal,
         "EMU_SelectByUSBNickname(" + text.substr(0, 31) + ") OpenEx ");
  Expect({.File = "tamsel", .Args = {"-IP", text}, .Behaviour = "error@OpenEx=" + text},
         "Vorta error: " + text + "\n" + PROBE + "No TIF selected\n",
         "SelectIP(" + text.substr(0, 127) + ",0) " + OPENED + CLOSED_WITHOUT_CODE);
  Expect({{"", "GetFirmwareString=" + text, "Firmware: " + text.substr(0, 255) + "\nS/N: 12345\n\nNo TIF selected\n",
           OPENED + CLOSED_WITHOUT_CODE}});
}

TEST_F(Tool, RegistersThousandsOfPairsNewestFirst) {
  std::vector<std::string> args = Words("-TIF SWD -Speed 4000 -ScriptFile Prov.pex -Operation Program");
  std::string pairs;
  for (int i = 0; i < 5000; i++) {
    const std::string number = std::to_string(i);
    args.insert(args.end(), {"-SetConfigVal", "Key" + number + "== Value=" + number});
    pairs.insert(0, "RegisterKeyValue(7,Key" + number + ",= Value=" + number + ") ");
  }
  Expect({.File = "tamsel", .Args = args}, PROBE,
         LOADED + pairs + "HasEntryPoint(7,Program) ExecuteFunction(7,Program,null,0) " + UNLOADED, 0);
}

TEST_F(Tool, FailsWithoutMemory) {
#if CLI_SANITIZED || defined(__APPLE__)
  GTEST_SKIP() << "memory cannot be limited here";
#endif
  const OUTCOME outcome = Launch(dir, {.File = "tamsel", .Args = Words(GOOD), .Behaviour = "exhaust@GetpFunc#6="});
  EXPECT_EQ(BehindBanner(outcome.Output), "Failed to create OTALLOC instance\n");
  EXPECT_EQ(outcome.Status, 255);
  EXPECT_EQ(outcome.Calls, BOUND);
  Expect({{GOOD, "exhaust@CompileFile=;code=100000000", PROBE + "Failed to compile script file\n",
           COMPILED + "no memory " + CLOSED_WITHOUT_CODE}});
}

// The map of retired script names is the one large block that stays, once it is there.
TEST_F(Tool, FreesItsMemoryOnEveryPath) {
#if CLI_SANITIZED || !defined(__GLIBC__)
  GTEST_SKIP() << "blocks cannot be counted here";
#endif
  const std::string directives = "leftovers=1;code=1000000";
  const std::string code = COMPILED + "LoadInstance(code,1000000) ";
  const std::string noCode = PROBE + "Failed to compile script file\n";
  const std::string noInstance = PROBE + "Failed to load script file instance: 'Prov.pex'\n";
  Expect({{"-USB 1 -If", directives,
           "Missing parameter after command line option '-If'\nError while parsing command line\n", "left(0) "},
          {"", directives + ";OpenEx=No probe", "ERROR: No probe\n", "OpenEx left(0) "},
          {"", directives, PROBE + "No TIF selected\n", OPENED + "Close left(0) "},
          {GOOD, directives + ";CompileFile=-1", noCode, COMPILED + "Close(code) left(1) "},
          {GOOD, directives + ";LoadInstance=-1", noInstance, code + "Close(code) left(1) "},
          {"-TIF SWD -Speed 4000 -ScriptFile Prov.pex", directives, PROBE,
           code + "HasEntryPoint(7,) ExecuteFunction(7,,null,0) UnloadInstance(7) Close(code) left(1) ", 0}});
}

// A supervising program sees each line when it happens: the library waits until it has been read.
TEST_F(Tool, PrintsEachLineAtOnce) {
  const std::string gate = dir.At("gate");
  ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
  const int gateFile = open(gate.c_str(), O_RDWR | O_CLOEXEC);
  const struct {
    std::string Behaviour;
    std::string Seen;
  } rows[] = {
      {"hold@GetpFunc#1=", "\nCompiled "},
      {"hold@OpenEx=", EchoOf(Words(GOOD))},
      {"hold@TIF_Select=", PROBE},
      {"log@ExecuteFunction=1 of 2;hold@ExecuteFunction=", "Vorta log: 1 of 2\n"},
      {"error@Close=late;hold@Close=", "Vorta error: late\n"},
      {"LoadInstance=-1;hold@Close=", "Failed to load script file instance: 'Prov.pex'\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Behaviour);
    PROCESS process(dir, {.File = "tamsel", .Args = Words(GOOD), .Behaviour = row.Behaviour + gate});
    EXPECT_TRUE(process.WaitFor(row.Seen));
    ASSERT_EQ(write(gateFile, "x", 1), 1);
    EXPECT_EQ(process.Finish().Errors, "");
  }
  close(gateFile);
}

TEST_F(Tool, EndsWithStatus1WithoutTheLibrary) {
  const bool isRoot = dir.MakeRoot();
  if (!isRoot) {
    GTEST_SKIP() << "what the machine has installed would be found: changing the root directory is not permitted";
  }
  std::filesystem::remove(dir.At("libvortaarm.dylib"));
  for (const char* args : {"", GOOD, "-Unknown"}) {
    const OUTCOME outcome = Launch(dir, {.File = "tamsel", .Args = Words(args), .IsRoot = true});
    EXPECT_EQ(BehindBanner(outcome.Output), "Could not open Vorta shared library. Exiting now.\n");
    EXPECT_EQ(outcome.Errors, "");
    EXPECT_EQ(outcome.Status, 1);
  }
}

// The tool ends where it needs the entry point, and says which one it is and what the loader says.
TEST_F(Tool, EndsWithStatus1WithoutAnEntryPoint) {
  const struct {
    std::string Symbol;
    std::string Args;
    std::string Output;
    std::string Calls;
  } rows[] = {
      {"VORTA_GetpFunc", "", "", ""},
      {"VORTAARM_SelectIP", "-IP host", "", BOUND},
      {"VORTAARM_SelectUSB", "-USB 1", "", BOUND},
      {"VORTAARM_EMU_SelectByUSBSN", "-USB 4", "", BOUND},
      {"VORTA_EMU_SelectByUSBNickname", "-USB x", "", BOUND},
      {"VORTAARM_ExecCommand", "-Module 1", "", BOUND},
      {"VORTA_OpenEx", "", "", BOUND},
      {"VORTAARM_GetFirmwareString", "", "", BOUND + "OpenEx "},
      {"VORTAARM_GetSN", "", "Firmware: Fake V1\n", BOUND + "OpenEx GetFirmwareString(256) "},
      {"VORTA_TIF_Select", "-TIF SWD", PROBE, BOUND + OPENED},
      {"VORTA_SetSpeed", "-TIF SWD -Speed 1", PROBE, BOUND + OPENED + "TIF_Select(1) "},
      {"VORTA_Close", GOOD, PROBE, BOUND + EXECUTED + "UnloadInstance(7) "},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Symbol);
    std::filesystem::remove(dir.At("libvortaarm.dylib"));
    dir.Place(FAKE_DIR "lacks_" + row.Symbol + ".dylib", "libvortaarm.dylib");
    const OUTCOME outcome = Launch(dir, {.File = "tamsel", .Args = Words(row.Args)});
    const std::string output = BehindBanner(outcome.Output);
    const std::string begin = EchoOf(Words(row.Args)) + row.Output + "Function not found: " + row.Symbol + " (";
    const std::string end = "). Exiting now.\n";
    ASSERT_TRUE(output.starts_with(begin) && output.ends_with(end)) << output;
    const std::string reason = output.substr(begin.size(), output.size() - begin.size() - end.size());
    EXPECT_NE(reason.find("libvortaarm.dylib"), std::string::npos) << reason;
    EXPECT_NE(reason.find(row.Symbol), std::string::npos) << reason;
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), std::count(begin.begin(), begin.end(), '\n') + 1);
    EXPECT_EQ(outcome.Calls, row.Calls);
    EXPECT_EQ(outcome.Errors, "");
    EXPECT_EQ(outcome.Status, 1);
  }
}

// The library's calls of its own functions may go through the tool's forwarders, and come back to it once.
TEST_F(Tool, ServesTheLibraryItself) {
  const std::string rest = "GetFirmwareString(256) GetSN Close ";
  const std::string noTif = PROBE + "No TIF selected\n";
  const std::string read = "GetpFunc(58) ReadMemAP(3,1311768467463790320,4) ";
  Expect({
      {"", "self@OpenEx=;self@OpenEx=", noTif, "OpenEx GetSN GetSN " + rest},
      {"", "find@OpenEx=VORTAARM_GetSN;find@OpenEx=VORTA_Close", noTif,
       "OpenEx VORTAARM_GetSN is in tamsel VORTA_Close is in tamsel " + rest},
      {"", "find@OpenEx=SESSION_Run;find@OpenEx=UTIL_snprintf", noTif,
       "OpenEx SESSION_Run is in none UTIL_snprintf is in none " + rest},
      {"", "memap@OpenEx=;memap@OpenEx=;ReadMemAP=5", noTif,
       "OpenEx " + read + "result 5 value 16843009 " + read.substr(13) + "result 5 value 16843009 " + rest},
      // A function that is missing is asked for again.
      {"", "memap@OpenEx=;memap@OpenEx=;null=58", noTif,
       "OpenEx GetpFunc(58) result -262 value 0 GetpFunc(58) result -262 value 0 " + rest},
  });
}

}  // namespace
