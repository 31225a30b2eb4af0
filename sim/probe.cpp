// The library's exported entry points: which probes are attached, which one is selected, and the session with it.
//
// Selecting only notes the choice and tells whether such a probe is attached: callers may ignore that result, so
// opening looks again and refuses with a text. The environment is read when a probe is opened or selected, never
// stored. Closing brings the library back to its first state. Time and chance play no part in anything that the library
// does.

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "probe/vorta.h"
#include "probe/vortaarm.h"
#include "sim/sim.h"

namespace {

constexpr uint32_t MIN_SERIAL_NUMBER = 4;  // Smaller numbers are USB ports.
constexpr uint32_t MAX_SPEED_KHZ = 50000;
constexpr uint32_t SPEED_ADAPTIVE = 0xFFFF;
constexpr char FIRMWARE[] = "Simulated Vorta V1 compiled Jan  5 2026 09:00:00";

struct PROBE {
  uint32_t SerialNumber = 0;
  const char* pNickname = "";  // Empty: none.
  const char* pAddr = "";      // Empty: not on the network.
  int32_t NumModules = 0;      // 0: no hub.
};

// The addresses are from a block reserved for documentation: they can belong to no one's real probe.
constexpr PROBE KNOWN_PROBES[] = {
    {680000001, "Bench", "192.0.2.1", 0},
    {680000002, "Line", "192.0.2.2", 0},
    {690000003, "Hub", "192.0.2.3", 4},
};
constexpr char ATTACHED_BY_DEFAULT[] = "680000001 680000002 690000003";

enum class SELECT_BY { DEFAULT, USB_PORT, SERIAL_NUMBER, NICKNAME, ADDR };

constexpr const char* SELECT_BY_TEXTS[] = {"", "at USB port ", "with serial number ", "with nickname ",
                                           "at IP address "};

struct SELECTION {
  SELECT_BY By = SELECT_BY::DEFAULT;
  uint32_t Number = 0;
  char acText[128] = "";  // What was asked for, also when it was a number.
  bool HasModule = false;
  int32_t Module = 0;
};

struct SESSION {
  bool IsOpen = false;
  bool IsVerbose = false;
  PROBE Probe;
  int32_t Module = TARGET_NO_MODULE;
  VORTA_TEXT_FUNC* pfLog = nullptr;
  VORTA_TEXT_FUNC* pfError = nullptr;
};

SELECTION selection;
SESSION session;
char acText[512];

}  // namespace

const char* SIM_Text(const char* format, ...) {
  va_list args;
  va_start(args, format);
  vsnprintf(acText, sizeof(acText), format, args);
  va_end(args);
  return acText;
}

// Callers print each text as a line of its own, which those that read the output rely on. A text that there is no
// memory to take apart is handed on as it is.
void SIM_Tell(VORTA_TEXT_FUNC* pfTell, const char* text) {
  if (pfTell == nullptr) {
    return;
  }
  char* pCopy = strpbrk(text, "\r\n") != nullptr ? strdup(text) : nullptr;
  if (pCopy == nullptr) {
    pfTell(text);
    return;
  }
  for (char* pLine = pCopy; *pLine != 0;) {
    char* pEnd = pLine + strcspn(pLine, "\r\n");
    const size_t endLength = strncmp(pEnd, "\r\n", 2) == 0 ? 2 : strnlen(pEnd, 1);
    *pEnd = 0;
    pfTell(pLine);
    pLine = pEnd + endLength;
  }
  free(pCopy);
}

void SIM_Log(const char* text) {
  SIM_Tell(session.pfLog, text);
}

void SIM_Trace(const char* text) {
  if (session.IsVerbose) {
    SIM_Log(text);
  }
}

void SIM_Error(const char* text) {
  SIM_Tell(session.pfError, text);
}

uint32_t SIM_Crc32(const void* pData, size_t numBytes) {
  const uint8_t* pByte = static_cast<const uint8_t*>(pData);
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < numBytes; i++) {
    crc ^= pByte[i];
    for (int bit = 0; bit < 8; bit++) {
      crc = (crc >> 1) ^ ((crc & 1u) != 0 ? 0xEDB88320u : 0u);
    }
  }
  return ~crc;
}

namespace {

PROBE DescribeProbe(uint32_t serialNumber) {
  for (const PROBE& known : KNOWN_PROBES) {
    if (known.SerialNumber == serialNumber) {
      return known;
    }
  }
  return {serialNumber};
}

bool IsSelected(const PROBE& probe, uint32_t port) {
  switch (selection.By) {
    case SELECT_BY::DEFAULT:
      return port == 0;
    case SELECT_BY::USB_PORT:
      return port == selection.Number;
    case SELECT_BY::SERIAL_NUMBER:
      return probe.SerialNumber == selection.Number;
    case SELECT_BY::NICKNAME:
      return probe.pNickname[0] != 0 && strcmp(probe.pNickname, selection.acText) == 0;
    case SELECT_BY::ADDR:
      return probe.pAddr[0] != 0 && strcmp(probe.pAddr, selection.acText) == 0;
  }
  return false;
}

// Reads the whole list of attached probes, so that a mistake in it shows whichever probe is selected.
const char* FindSelectedProbe(PROBE* pProbe) {
  constexpr char SEPARATORS[] = ", ";
  const char* text = getenv("NORDAX_SIM_PROBES");
  text = text != nullptr ? text : ATTACHED_BY_DEFAULT;
  bool isFound = false;
  uint32_t port = 0;
  for (text += strspn(text, SEPARATORS); *text != 0; text += strspn(text, SEPARATORS)) {
    const size_t length = strcspn(text, SEPARATORS);
    const unsigned long long number = strspn(text, "0123456789") == length ? strtoull(text, nullptr, 10) : 0;
    if (number < MIN_SERIAL_NUMBER || number > UINT32_MAX) {
      return SIM_Text("NORDAX_SIM_PROBES: '%.*s' is no serial number", static_cast<int>(length), text);
    }
    const PROBE probe = DescribeProbe(static_cast<uint32_t>(number));
    if (!isFound && IsSelected(probe, port)) {
      *pProbe = probe;
      isFound = true;
    }
    port++;
    text += length;
  }
  return isFound ? nullptr
                 : SIM_Text("No probe %s%s%sfound", SELECT_BY_TEXTS[static_cast<size_t>(selection.By)],
                            selection.acText, selection.By == SELECT_BY::DEFAULT ? "" : " ");
}

const char* FindSelectedModule(const PROBE& probe, int32_t* pModule) {
  *pModule = probe.NumModules != 0 ? 0 : TARGET_NO_MODULE;
  if (!selection.HasModule) {
    return nullptr;
  }
  if (selection.Module < 0 || selection.Module >= probe.NumModules) {
    return SIM_Text("Probe %u has %d modules: there is no module %d", probe.SerialNumber, probe.NumModules,
                    selection.Module);
  }
  *pModule = selection.Module;
  return nullptr;
}

int32_t Select(SELECT_BY by, uint32_t number, const char* text) {
  if (session.IsOpen) {
    return -1;
  }
  selection.By = by;
  selection.Number = number;
  snprintf(selection.acText, sizeof(selection.acText), "%s", text != nullptr ? text : "");
  PROBE probe;
  return FindSelectedProbe(&probe) == nullptr ? 0 : -1;
}

// The two internal functions behind the index function. Access port 0 is the one that the target has; an access port
// that is not there reads as zero, which is how hardware tells it.

int32_t ReadItemAPSpace(uint32_t apIndex, uint64_t addr, uint32_t numBytes, void* pData) {
  constexpr uint64_t ADDR_IDR = 0xFC;
  constexpr uint32_t IDR_AHB_AP = 0x24770011;
  uint32_t id = 0;
  if (TARGET_ReadId(&id) != nullptr || pData == nullptr || numBytes != sizeof(uint32_t) ||
      addr % sizeof(uint32_t) != 0) {
    return -1;
  }
  const uint32_t value = apIndex == 0 && addr == ADDR_IDR ? IDR_AHB_AP : 0;
  memcpy(pData, &value, sizeof(value));
  return 0;
}

int32_t ReadMemAP(uint32_t apIndex, uint64_t addr, uint32_t numBytes, void* pData) {
  const uint8_t* pFlash = nullptr;
  if (apIndex != 0 || pData == nullptr || TARGET_Read(addr, numBytes, &pFlash) != nullptr) {
    return -1;
  }
  memcpy(pData, pFlash, numBytes);
  return 0;
}

struct INDEXED_FUNC {
  uint32_t Index;
  void* pFunc;
};

const INDEXED_FUNC INDEXED_FUNCS[] = {
    {57, reinterpret_cast<void*>(&ReadItemAPSpace)},
    {58, reinterpret_cast<void*>(&ReadMemAP)},
    {SCRIPT_INDEX_COMPILE_FILE, reinterpret_cast<void*>(&ENGINE_CompileFile)},
    {SCRIPT_INDEX_LOAD_INSTANCE, reinterpret_cast<void*>(&ENGINE_LoadInstance)},
    {SCRIPT_INDEX_UNLOAD_INSTANCE, reinterpret_cast<void*>(&ENGINE_UnloadInstance)},
    {SCRIPT_INDEX_HAS_ENTRY_POINT, reinterpret_cast<void*>(&ENGINE_HasEntryPoint)},
    {SCRIPT_INDEX_EXECUTE_FUNCTION, reinterpret_cast<void*>(&ENGINE_ExecuteFunction)},
    {SCRIPT_INDEX_REGISTER_KEY_VALUE, reinterpret_cast<void*>(&ENGINE_RegisterKeyValue)},
};

}  // namespace

void* VORTA_GetpFunc(uint32_t index) {
  for (const INDEXED_FUNC& func : INDEXED_FUNCS) {
    if (func.Index == index) {
      return func.pFunc;
    }
  }
  return nullptr;
}

int32_t VORTAARM_SelectIP(const char* addr, int32_t port) {
  (void)port;  // Every port number leads to the one simulated server of that address.
  return Select(SELECT_BY::ADDR, 0, addr);
}

int32_t VORTAARM_SelectUSB(uint32_t port) {
  return Select(SELECT_BY::USB_PORT, port, SIM_Text("%u", port));
}

int32_t VORTAARM_EMU_SelectByUSBSN(uint32_t serialNumber) {
  return Select(SELECT_BY::SERIAL_NUMBER, serialNumber, SIM_Text("%u", serialNumber));
}

int32_t VORTA_EMU_SelectByUSBNickname(const char* nickname) {
  return Select(SELECT_BY::NICKNAME, 0, nickname);
}

namespace {

const char* RunCommand(const char* command) {
  constexpr char SELECT_MODULE[] = "SelectModule=";
  if (command == nullptr || strncasecmp(command, SELECT_MODULE, strlen(SELECT_MODULE)) != 0) {
    return SIM_Text("Unknown command '%s'", command != nullptr ? command : "");
  }
  const char* text = command + strlen(SELECT_MODULE);
  char* pEnd = nullptr;
  const long long module = strtoll(text, &pEnd, 10);
  if (pEnd == text || *pEnd != 0 || module < INT32_MIN || module > INT32_MAX) {
    return SIM_Text("'%s' is no module index", text);
  }
  if (session.IsOpen) {
    return "The module cannot change while the probe is open";
  }
  selection.HasModule = true;
  selection.Module = static_cast<int32_t>(module);
  return nullptr;
}

}  // namespace

int32_t VORTAARM_ExecCommand(const char* command, char* pError, int32_t errorSize) {
  const char* error = RunCommand(command);
  if (pError != nullptr && errorSize > 0) {
    snprintf(pError, static_cast<size_t>(errorSize), "%s", error != nullptr ? error : "");
  }
  return error == nullptr ? 0 : -1;
}

const char* VORTA_OpenEx(VORTA_TEXT_FUNC* pfLog, VORTA_TEXT_FUNC* pfError) {
  if (session.IsOpen) {
    return "A probe is open already";
  }
  SESSION opened;
  const char* error = FindSelectedProbe(&opened.Probe);
  if (error == nullptr) {
    error = FindSelectedModule(opened.Probe, &opened.Module);
  }
  if (error != nullptr) {
    return error;
  }
  const char* verbose = getenv("NORDAX_SIM_VERBOSE");
  opened.IsVerbose = verbose != nullptr && strcmp(verbose, "1") == 0;
  opened.IsOpen = true;
  opened.pfLog = pfLog;
  opened.pfError = pfError;
  session = opened;
  TARGET_Attach(session.Probe.SerialNumber, session.Module);
  SIM_Trace(SIM_Text("Probe %u opened", session.Probe.SerialNumber));
  return nullptr;
}

void VORTAARM_GetFirmwareString(char* pBuffer, int32_t size) {
  if (pBuffer != nullptr && size > 0) {
    snprintf(pBuffer, static_cast<size_t>(size), "%s", session.IsOpen ? FIRMWARE : "");
  }
}

uint32_t VORTAARM_GetSN(void) {
  return session.IsOpen ? session.Probe.SerialNumber : 0;
}

int32_t VORTA_TIF_Select(int32_t tif) {
  const char* error = session.IsOpen ? TARGET_SelectInterface(tif) : "No probe is open";
  if (error != nullptr) {
    SIM_Error(error);
    return -1;
  }
  return 0;
}

void VORTA_SetSpeed(uint32_t speed) {
  if (speed == 0) {
    SIM_Error(SIM_Text("Speed 0 kHz is not possible, only 1 to %u kHz or adaptive", MAX_SPEED_KHZ));
  } else if (speed == SPEED_ADAPTIVE) {
    SIM_Trace("Speed: adaptive");
  } else if (speed > MAX_SPEED_KHZ) {
    SIM_Log(SIM_Text("Speed %u kHz is lowered to %u kHz", speed, MAX_SPEED_KHZ));
  } else {
    SIM_Trace(SIM_Text("Speed: %u kHz", speed));
  }
}

void VORTA_Close(void) {
  if (!session.IsOpen) {
    return;
  }
  ENGINE_UnloadAll();
  TARGET_Detach();
  SIM_Trace(SIM_Text("Probe %u closed", session.Probe.SerialNumber));
  session = SESSION();
  selection = SELECTION();
}
