// A probe library without a probe, for tests: writes each call among the output of the tool, as a line of its own, and
// does what it is told to. FAKE_BEHAVIOUR holds directives "key=value", separated by semicolons. STEP is a call's name
// without prefix, and may be followed by # and the number of the call that is meant:
//
//   STEP=value        what the call gives: a number or a text, null for GetpFunc. A second number behind a comma is the
//                     size of the code (CompileFile), or what the script's function returns (ExecuteFunction)
//   log@STEP=text     the log callback gets a text within the call; so do error@ and, in CompileFile, compile@
//   exhaust@STEP=     from the call on the process gets no more memory
//   self@STEP=        the library calls functions of its own by the names that it exports
//
// It is linked without binding its own names to itself, so that on ELF they reach the tool's forwarders. It does
// without C++ streams: the tool has no C++ runtime library, which a sanitizer would ask for their types.

#include <dlfcn.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <string>

#include "probe/script_engine.h"
#include "probe/vorta.h"
#include "probe/vortaarm.h"

namespace {

char* pCode;
uint32_t codeSize;
bool isScriptDue;

void Print(const std::string& text) {
  const std::string line = text + "\n";
  if (write(STDOUT_FILENO, line.data(), line.size()) < 0) {
    abort();
  }
}

// Tells which image the names lead to, and calls two of them.
void CallItself(const char*) {
  for (const char* name : {"VORTAARM_GetSN", "SESSION_Run"}) {
    void* pSymbol = dlsym(RTLD_DEFAULT, name);
    Dl_info info = {};
    Print(std::string(name) + " in " + (dladdr(pSymbol, &info) != 0 ? info.dli_fname : "no image"));
  }
  VORTAARM_GetSN();
  void* pSymbol = dlsym(RTLD_DEFAULT, "VORTA_CORESIGHT_ReadMemAP");
  uint32_t value = 0;
  const auto read = reinterpret_cast<decltype(&VORTA_CORESIGHT_ReadMemAP)>(pSymbol);
  const int32_t result = read(3, 0x123456789ABCDEF0, sizeof(value), &value);
  Print("result " + std::to_string(result) + " value " + std::to_string(value));
}

void ExhaustMemory(const char*) {
  const rlimit limit = {0, RLIM_INFINITY};
  setrlimit(RLIMIT_AS, &limit);
}

std::map<std::string, VORTA_TEXT_FUNC*> actions = {{"self", CallItself}, {"exhaust", ExhaustMemory}};

std::string Describe(const char* arg) {
  return arg;
}

template <typename NUMBER>
std::string Describe(NUMBER number) {
  return std::to_string(number);
}

// Prints a call and carries out its directives. Returns the value that it is to give, empty when none is set.
template <typename... ARGS>
std::string Step(const std::string& step, const ARGS&... args) {
  static std::map<std::string, int> numCalls;
  const std::string numbered = step + "#" + std::to_string(++numCalls[step]);
  std::string list;
  ((list += (list.empty() ? "" : ",") + Describe(args)), ...);
  Print("> " + step + (list.empty() ? "" : "(" + list + ")"));
  std::string given;
  for (const char* rest = getenv("FAKE_BEHAVIOUR"); *rest != '\0'; rest += strspn(rest, ";")) {
    const std::string key(rest, strcspn(rest, "="));
    rest += key.size() + 1;
    const std::string value(rest, strcspn(rest, ";"));
    rest += value.size();
    if (key == step || key == numbered) {
      given = value;
    } else if (key.ends_with("@" + step) || key.ends_with("@" + numbered)) {
      actions.at(key.substr(0, key.find('@')))(value.c_str());
    }
  }
  return given;
}

// The number given, and the second one behind a comma, if there are any.
int32_t ResultOf(const std::string& given, int64_t result = 0, int64_t* pSecond = nullptr) {
  const size_t comma = given.find(',');
  if (comma != std::string::npos && pSecond != nullptr) {
    *pSecond = atoll(&given[comma + 1]);
  }
  return static_cast<int32_t>(given.empty() ? result : atoll(given.c_str()));
}

const char* DescribeCode(const void* p) {
  const bool isWhole = p == pCode && (p == nullptr || std::count(pCode, pCode + codeSize, 'c') == codeSize);
  return !isWhole ? "damaged code" : p != nullptr ? "code" : "no code";
}

int32_t CompileFile(SCRIPT_COMPILE_INFO* pInfo) {
  actions["compile"] = pInfo->pfOnError;
  const bool isClean = pInfo->pCode == nullptr && pInfo->CodeSize == 0;
  int64_t size = 1000000;
  const int32_t result = ResultOf(Step("CompileFile", isClean ? pInfo->pPath : "record not clean"), 0, &size);
  codeSize = static_cast<uint32_t>(size);
  pCode = codeSize != 0 ? static_cast<char*>(pInfo->pfAlloc(codeSize)) : nullptr;
  if (codeSize != 0 && pCode == nullptr) {
    Print("no memory");
    return -1;
  }
  std::fill_n(pCode, codeSize, 'c');
  pInfo->pCode = pCode;
  pInfo->CodeSize = codeSize;
  return result;
}

int32_t LoadInstance(const void* p, uint32_t size) {
  return ResultOf(Step("LoadInstance", DescribeCode(p), size), 7);
}

int32_t UnloadInstance(int32_t handle) {
  return ResultOf(Step("UnloadInstance", handle));
}

int32_t HasEntryPoint(int32_t handle, const char* name) {
  return ResultOf(Step("HasEntryPoint", handle, name), 1);
}

int32_t ExecuteFunction(int32_t handle, const char* name, int32_t* pResult, void* pReserved, uint32_t reserved) {
  int64_t functionResult = 0;
  const std::string given = Step("ExecuteFunction", handle, name, pReserved == nullptr ? "null" : "not null", reserved);
  const int32_t result = ResultOf(given, 0, &functionResult);
  *pResult = static_cast<int32_t>(functionResult);
  return result;
}

int32_t RegisterKeyValue(int32_t handle, const char* key, const char* value) {
  return ResultOf(Step("RegisterKeyValue", handle, key, value));
}

int32_t ReadMemAP(uint32_t apIndex, uint64_t addr, uint32_t numBytes, void* pData) {
  memset(pData, 1, numBytes);
  return ResultOf(Step("ReadMemAP", apIndex, addr, numBytes), 5);
}

}  // namespace

void* VORTA_GetpFunc(uint32_t index) {
  static const std::map<uint32_t, void*> functions = {
      {58, reinterpret_cast<void*>(&ReadMemAP)},       {61, reinterpret_cast<void*>(&CompileFile)},
      {62, reinterpret_cast<void*>(&LoadInstance)},    {63, reinterpret_cast<void*>(&UnloadInstance)},
      {64, reinterpret_cast<void*>(&HasEntryPoint)},   {65, reinterpret_cast<void*>(&ExecuteFunction)},
      {71, reinterpret_cast<void*>(&RegisterKeyValue)}};
  return Step("GetpFunc", index).empty() && functions.contains(index) ? functions.at(index) : nullptr;
}

int32_t VORTAARM_SelectIP(const char* addr, int32_t port) {
  return ResultOf(Step("SelectIP", addr, port));
}

int32_t VORTAARM_SelectUSB(uint32_t port) {
  return ResultOf(Step("SelectUSB", port));
}

int32_t VORTAARM_EMU_SelectByUSBSN(uint32_t serialNumber) {
  return ResultOf(Step("EMU_SelectByUSBSN", serialNumber));
}

int32_t VORTA_EMU_SelectByUSBNickname(const char* nickname) {
  return ResultOf(Step("EMU_SelectByUSBNickname", nickname));
}

int32_t VORTAARM_ExecCommand(const char* command, char* pError, int32_t errorSize) {
  return ResultOf(Step("ExecCommand", command, pError == nullptr ? "null" : "not null", errorSize));
}

const char* VORTA_OpenEx(VORTA_TEXT_FUNC* pfLog, VORTA_TEXT_FUNC* pfError) {
  static std::string error;
  actions["log"] = pfLog;
  actions["error"] = pfError;
  error = Step("OpenEx");
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) < 0) {
      Print("What is opened next becomes a standard stream");
    }
  }
  return error.empty() ? nullptr : error.c_str();
}

// Fills the buffer whole, without a terminator, if the text is long enough.
void VORTAARM_GetFirmwareString(char* pBuffer, int32_t size) {
  const std::string given = Step("GetFirmwareString", size);
  strncpy(pBuffer, given.empty() ? "Fake V1" : given.c_str(), static_cast<size_t>(size));
}

// Not inlined: self@ is to go the way of any call between libraries.
__attribute__((noinline)) uint32_t VORTAARM_GetSN(void) {
  return static_cast<uint32_t>(ResultOf(Step("GetSN"), 12345));
}

int32_t VORTA_TIF_Select(int32_t tif) {
  return ResultOf(Step("TIF_Select", tif));
}

void VORTA_SetSpeed(uint32_t speed) {
  Step("SetSpeed", speed);
  isScriptDue = true;
}

// Forgets the code, which is the tool's now to free.
void VORTA_Close(void) {
  Step("Close", DescribeCode(pCode));
  pCode = nullptr;
}

// Large blocks have a mapping each. The tool keeps one, the map of retired script names, once a script was looked for.
#ifdef __GLIBC__
__attribute__((destructor)) static void TellLeaks() {
  if (mallinfo2().hblks > (isScriptDue ? 1 : 0)) {
    Print("memory is left");
  }
}
#endif
