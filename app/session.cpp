// The session: one straight run without loops or retries. Owns what the probe library's callbacks leave behind. The
// first failure prints its message and ends the run; what was acquired by then is released in reverse order, each by
// the function that acquired it. The callbacks may come from within any call into the library, and on a thread of the
// library's: they print one line and set a flag, without a lock.

#include "app/session.h"

#include <stdarg.h>
#include <stdio.h>

#include <atomic>

#include "app/build_stamp.h"
#include "app/identity.h"
#include "app/options.h"
#include "probe/script_engine.h"
#include "probe/script_file.h"
#include "probe/vorta.h"
#include "probe/vortaarm.h"
#include "sys/sys.h"
#include "util/fmt.h"
#include "util/strings.h"

namespace {

constexpr int32_t EXIT_OK = 0;
constexpr int32_t EXIT_FAILED = -1;

constexpr uint32_t NUM_USB_PORTS = 4;  // A number given for USB is a port below this, else a serial number.
constexpr uint32_t TEXT_BYTES = 256;

// Set from whatever thread the library calls back on.
std::atomic<bool> hasLibraryError;

char acCompileError[128];
bool hasCompileError;

[[gnu::format(printf, 1, 2)]] int32_t Fail(const char* format, ...) {
  va_list args;
  va_start(args, format);
  vprintf(format, args);
  va_end(args);
  return EXIT_FAILED;
}

void OnLog(const char* text) {
  printf("Vorta log: %s\n", text);
}

void OnError(const char* text) {
  printf("Vorta error: %s\n", text);
  hasLibraryError.store(true, std::memory_order_relaxed);
}

// Keeps the first text only; any call at all marks the compilation as failed.
void OnCompileError(const char* text) {
  if (!hasCompileError) {
    UTIL_CopyString(acCompileError, text, sizeof(acCompileError));
  }
  hasCompileError = true;
}

void* AllocCode(uint32_t numBytes) {
  return SYS_Alloc(numBytes);
}

void EchoCommandLine(int argc, char** argv) {
  if (argc < 2) {
    return;
  }
  printf("Command line: ");
  for (int i = 1; i < argc; i++) {
    printf("%s ", argv[i]);
  }
  printf("\n");
}

// A selection that the library refuses shows when the probe is opened, so the results are not looked at.
void SelectProbe(const SESSION_SETTINGS& settings) {
  const auto number = static_cast<uint32_t>(settings.USBNumber);
  if (settings.HostIF == HOST_IF_IP) {
    VORTAARM_SelectIP(settings.acIPAddr, 0);
  } else if (settings.USBSelectMode == USB_SELECT_BY_NICKNAME) {
    VORTA_EMU_SelectByUSBNickname(settings.acNickname);
  } else if (settings.USBSelectMode == USB_SELECT_BY_NUMBER && number < NUM_USB_PORTS) {
    VORTAARM_SelectUSB(number);
  } else if (settings.USBSelectMode == USB_SELECT_BY_NUMBER) {
    VORTAARM_EMU_SelectByUSBSN(number);
  }
  if (settings.HasModule) {
    char acCommand[TEXT_BYTES];
    FMT_snprintf(acCommand, sizeof(acCommand), "SelectModule=%d", settings.ModuleIndex);
    VORTAARM_ExecCommand(acCommand, nullptr, 0);
  }
}

void PrintProbe() {
  char acFirmware[TEXT_BYTES] = "";
  VORTAARM_GetFirmwareString(acFirmware, sizeof(acFirmware));
  acFirmware[sizeof(acFirmware) - 1] = '\0';  // A library that fills it whole may leave it open.
  printf("Firmware: %s\n", acFirmware);
  printf("S/N: %u\n\n", VORTAARM_GetSN());
}

int32_t SelectTarget(const SESSION_SETTINGS& settings) {
  if (settings.TIF == TIF_NONE) {
    return Fail("No TIF selected\n");
  }
  if (VORTA_TIF_Select(static_cast<int32_t>(settings.TIF)) != 0) {
    return Fail("Failed to select TIF\n");
  }
  if (settings.Speed == SPEED_NONE) {
    return Fail("No TIF speed selected\n");
  }
  VORTA_SetSpeed(settings.Speed);
  return EXIT_OK;
}

int32_t Compile(const SCRIPT_ENGINE& engine, SCRIPT_COMPILE_INFO* pInfo) {
  const bool isCompiled = engine.pfCompileFile != nullptr && engine.pfCompileFile(pInfo) >= 0 && !hasCompileError;
  if (isCompiled) {
    return EXIT_OK;
  }
  if (hasCompileError) {
    return Fail("Failed to compile script file: '%s'\n", acCompileError);
  }
  return Fail("Failed to compile script file\n");
}

int32_t RegisterPairs(const SCRIPT_ENGINE& engine, int32_t handle, const CONFIG_VAL_NODE* pFirst) {
  for (const CONFIG_VAL_NODE* p = pFirst; p != nullptr; p = p->pNext) {
    if (engine.pfRegisterKeyValue == nullptr || engine.pfRegisterKeyValue(handle, p->pKey, p->pValue) < 0) {
      return Fail("Failed to register key-value pair %s=%s\n", p->pKey, p->pValue);
    }
  }
  return EXIT_OK;
}

int32_t Execute(const SCRIPT_ENGINE& engine, int32_t handle, const char* operation) {
  if (engine.pfHasEntryPoint == nullptr || engine.pfHasEntryPoint(handle, operation) != 1) {
    return Fail("Specified script file does not have an entry point with name '%s'\n", operation);
  }
  int32_t result = 0;
  if (engine.pfExecuteFunction == nullptr || engine.pfExecuteFunction(handle, operation, &result, nullptr, 0) < 0) {
    return Fail("Failed to execute function '%s' from script file\n", operation);
  }
  if (result < 0) {
    return Fail("Script file function '%s' returned with error code %d\n", operation, result);
  }
  return hasLibraryError.load(std::memory_order_relaxed) ? EXIT_FAILED : EXIT_OK;
}

int32_t RunInstance(const SCRIPT_ENGINE& engine, const SESSION_SETTINGS& settings, const SCRIPT_COMPILE_INFO& code) {
  const int32_t handle = engine.pfLoadInstance == nullptr ? -1 : engine.pfLoadInstance(code.pCode, code.CodeSize);
  if (handle < 0) {
    return Fail("Failed to load script file instance: '%s'\n", settings.acScriptFile);
  }
  int32_t exitCode = RegisterPairs(engine, handle, settings.pConfigVals);
  if (exitCode == EXIT_OK) {
    exitCode = Execute(engine, handle, settings.acOperation);
  }
  if (engine.pfUnloadInstance != nullptr) {
    engine.pfUnloadInstance(handle);
  }
  return exitCode;
}

// Finds the script's path in acPath, to which *pInfo refers, and leaves the compiled code in *pInfo: the caller may
// free it only when the probe is closed.
int32_t RunScript(const SCRIPT_ENGINE& engine, SESSION_SETTINGS* pSettings, char* acPath, SCRIPT_COMPILE_INFO* pInfo) {
  if (pSettings->acScriptFile[0] == '\0') {
    return Fail("Failed to open script file: '<Empty>'\n");
  }
  SCRIPT_ResolveFile(pSettings->acScriptFile, acPath);
  const int32_t exitCode = Compile(engine, pInfo);
  return exitCode == EXIT_OK ? RunInstance(engine, *pSettings, *pInfo) : exitCode;
}

int32_t RunOnProbe(const SCRIPT_ENGINE& engine, SESSION_SETTINGS* pSettings) {
  SelectProbe(*pSettings);
  const char* pError = VORTA_OpenEx(OnLog, OnError);
  if (pError != nullptr) {
    return Fail("ERROR: %s\n", pError);
  }
  PrintProbe();
  char acPath[SCRIPT_PATH_BYTES];
  SCRIPT_COMPILE_INFO code = {acPath, OnCompileError, AllocCode, nullptr, 0};
  int32_t exitCode = SelectTarget(*pSettings);
  if (exitCode == EXIT_OK) {
    exitCode = RunScript(engine, pSettings, acPath, &code);
  }
  VORTA_Close();
  SYS_Free(code.pCode);
  return exitCode;
}

int32_t RunInArena(const SCRIPT_ENGINE& engine, OTALLOC* pArena, int argc, char** argv) {
  CMDLINE_Init(pArena);
  EchoCommandLine(argc, argv);
  if (CMDLINE_Parse(argc, argv) < 0) {
    return Fail("Error while parsing command line\n");
  }
  return RunOnProbe(engine, CMDLINE_GetSettings());
}

}  // namespace

int32_t SESSION_Run(int argc, char** argv) {
  printf("%s\n", IDENTITY_GetBanner());
  printf("Compiled %s\n", BUILD_STAMP);

  SCRIPT_ENGINE engine;
  SCRIPT_BindEngine(&engine);

  OTALLOC* pArena = OTALLOC_Create();
  if (pArena == nullptr) {
    return Fail("Failed to create OTALLOC instance\n");
  }
  const int32_t exitCode = RunInArena(engine, pArena, argc, argv);
  OTALLOC_Destroy(pArena);
  return exitCode;
}
