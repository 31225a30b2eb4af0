// A probe library without a probe, for tests: writes each call into a record and does what it is told to.
//
// FAKE_RECORD names the file that gets one line a call: its name without prefix, and its arguments where they tell
// anything. FAKE_BEHAVIOUR holds directives "key=value", separated by semicolons, carried out in their order. STEP is
// a call's name as recorded, and may be followed by # and the number of the call that is meant:
//
//   STEP=number       what the call gives (a text for OpenEx and GetFirmwareString, a number for GetSN)
//   Result=number     what the script's function returns
//   null=index        GetpFunc has no function of that index
//   code=size         size of the compiled code, 0 for none
//   log@STEP=text     the log callback gets a text within the call; so do error@ and, in CompileFile, compile@
//   hold@STEP=path    the call waits for a byte from that file
//   exhaust@STEP=     from the call on the process gets no more memory
//   self@STEP=        the library calls one of its own exported functions
//   find@STEP=name    records which image exports the name
//   memap@STEP=       reads memory through the forwarder that the tool exports
//   leftovers=1       records at the end of the process how many large blocks of memory were not freed (glibc)
//
// It is linked without binding its own names to itself, so that on ELF they reach the tool's forwarders.

#include <dlfcn.h>
#include <fcntl.h>
#include <stdlib.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "probe/script_engine.h"
#include "probe/vorta.h"
#include "probe/vortaarm.h"

namespace {

VORTA_TEXT_FUNC* pfLog;
VORTA_TEXT_FUNC* pfError;
SCRIPT_ERROR_FUNC* pfCompileError;
uint8_t* pCode;
uint32_t codeSize = 4096;

uint8_t CodeByte(uint32_t index) {
  return static_cast<uint8_t>(index * 7 + 1);
}

std::vector<std::pair<std::string, std::string>> Directives() {
  std::vector<std::pair<std::string, std::string>> directives;
  const char* behaviour = getenv("FAKE_BEHAVIOUR");
  std::string rest = behaviour != nullptr ? behaviour : "";
  while (!rest.empty()) {
    const std::string directive = rest.substr(0, rest.find(';'));
    rest.erase(0, directive.size() + 1);
    const size_t equals = directive.find('=');
    directives.emplace_back(directive.substr(0, equals), directive.substr(equals + 1));
  }
  return directives;
}

void Record(const std::string& line) {
  const char* path = getenv("FAKE_RECORD");
  const int file = path != nullptr ? open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666) : -1;
  if (file >= 0) {
    const std::string text = line + "\n";
    if (write(file, text.data(), text.size()) < 0) {
      abort();
    }
    close(file);
  }
}

void WaitForByte(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  char byte;
  if (read(file, &byte, 1) != 1) {
    abort();
  }
  close(file);
}

void RecordImageOf(const std::string& name) {
  void* pSymbol = dlsym(RTLD_DEFAULT, name.c_str());
  Dl_info info = {};
  std::string image = pSymbol != nullptr && dladdr(pSymbol, &info) != 0 ? info.dli_fname : "none";
  Record(name + " is in " + image.substr(image.rfind('/') + 1));
}

void ReadThroughForwarder() {
  using FUNCTION = decltype(VORTA_CORESIGHT_ReadMemAP);
  auto* pfRead = reinterpret_cast<FUNCTION*>(dlsym(RTLD_DEFAULT, "VORTA_CORESIGHT_ReadMemAP"));
  uint32_t value = 0;
  const int32_t result = pfRead != nullptr ? pfRead(3, 0x123456789ABCDEF0, sizeof(value), &value) : -1;
  Record("result " + std::to_string(result) + " value " + std::to_string(value));
}

void Act(const std::string& action, const std::string& value) {
  if (action == "log") {
    pfLog(value.c_str());
  } else if (action == "error") {
    pfError(value.c_str());
  } else if (action == "compile") {
    pfCompileError(value.c_str());
  } else if (action == "hold") {
    WaitForByte(value);
  } else if (action == "exhaust") {
    const rlimit limit = {0, RLIM_INFINITY};
    setrlimit(RLIMIT_AS, &limit);
  } else if (action == "self") {
    VORTAARM_GetSN();
  } else if (action == "find") {
    RecordImageOf(value);
  } else if (action == "memap") {
    ReadThroughForwarder();
  }
}

template <typename ARG>
std::string Describe(const ARG& arg) {
  if constexpr (std::is_arithmetic_v<ARG>) {
    return std::to_string(arg);
  } else {
    return arg;
  }
}

// Records a call and carries out its directives. Returns what they say that it gives, empty when they do not.
template <typename... ARGS>
std::string Step(const std::string& step, const ARGS&... args) {
  static std::map<std::string, int> numCalls;
  const std::string numbered = step + "#" + std::to_string(++numCalls[step]);
  std::string list;
  ((list += (list.empty() ? "" : ",") + Describe(args)), ...);
  Record(sizeof...(args) == 0 ? step : step + "(" + list + ")");
  std::string result;
  for (const auto& [key, value] : Directives()) {
    const size_t at = key.find('@');
    const std::string target = key.substr(at == std::string::npos ? 0 : at + 1);
    if (target != step && target != numbered) {
      continue;
    }
    if (at == std::string::npos) {
      result = value;
    } else {
      Act(key.substr(0, at), value);
    }
  }
  return result;
}

int32_t NumberOf(const std::string& text, int32_t otherwise = 0) {
  return text.empty() ? otherwise : static_cast<int32_t>(atoll(text.c_str()));
}

int32_t Setting(const std::string& name, int32_t otherwise) {
  for (const auto& [key, value] : Directives()) {
    otherwise = key == name ? NumberOf(value) : otherwise;
  }
  return otherwise;
}

// Tells whether the code is where it was made, and whole.
std::string DescribeCode(const void* p) {
  bool isSame = p == pCode;
  for (uint32_t i = 0; isSame && p != nullptr && i < codeSize; i++) {
    isSame = pCode[i] == CodeByte(i);
  }
  return !isSame ? "damaged code" : p != nullptr ? "code" : "no code";
}

int32_t CompileFile(SCRIPT_COMPILE_INFO* pInfo) {
  pfCompileError = pInfo->pfOnError;
  const bool isClean = pInfo->pCode == nullptr && pInfo->CodeSize == 0;
  const std::string result = Step("CompileFile", isClean ? pInfo->pPath : "record not clean");
  codeSize = static_cast<uint32_t>(Setting("code", 4096));
  pCode = codeSize != 0 ? static_cast<uint8_t*>(pInfo->pfAlloc(codeSize)) : nullptr;
  if (codeSize != 0 && pCode == nullptr) {
    Record("no memory");
    return -1;
  }
  for (uint32_t i = 0; i < codeSize; i++) {
    pCode[i] = CodeByte(i);
  }
  pInfo->pCode = pCode;
  pInfo->CodeSize = codeSize;
  return NumberOf(result);
}

int32_t LoadInstance(const void* p, uint32_t size) {
  return NumberOf(Step("LoadInstance", DescribeCode(p), size), 7);
}

int32_t UnloadInstance(int32_t handle) {
  return NumberOf(Step("UnloadInstance", handle));
}

int32_t HasEntryPoint(int32_t handle, const char* name) {
  return NumberOf(Step("HasEntryPoint", handle, name), 1);
}

int32_t ExecuteFunction(int32_t handle, const char* name, int32_t* pResult, void* pReserved, uint32_t reserved) {
  const char* reservedText = pReserved == nullptr ? "null" : "not null";
  const int32_t result = NumberOf(Step("ExecuteFunction", handle, name, reservedText, reserved));
  *pResult = Setting("Result", 0);
  return result;
}

int32_t RegisterKeyValue(int32_t handle, const char* key, const char* value) {
  return NumberOf(Step("RegisterKeyValue", handle, key, value));
}

int32_t ReadMemAP(uint32_t apIndex, uint64_t addr, uint32_t numBytes, void* pData) {
  std::fill_n(static_cast<uint8_t*>(pData), numBytes, uint8_t{1});
  return NumberOf(Step("ReadMemAP", apIndex, addr, numBytes));
}

}  // namespace

void* VORTA_GetpFunc(uint32_t index) {
  static const std::map<uint32_t, void*> functions = {
      {58, reinterpret_cast<void*>(&ReadMemAP)},       {61, reinterpret_cast<void*>(&CompileFile)},
      {62, reinterpret_cast<void*>(&LoadInstance)},    {63, reinterpret_cast<void*>(&UnloadInstance)},
      {64, reinterpret_cast<void*>(&HasEntryPoint)},   {65, reinterpret_cast<void*>(&ExecuteFunction)},
      {71, reinterpret_cast<void*>(&RegisterKeyValue)}};
  Step("GetpFunc", index);
  return functions.contains(index) && Setting("null", 0) != static_cast<int32_t>(index) ? functions.at(index) : nullptr;
}

int32_t VORTAARM_SelectIP(const char* addr, int32_t port) {
  return NumberOf(Step("SelectIP", addr, port));
}

int32_t VORTAARM_SelectUSB(uint32_t port) {
  return NumberOf(Step("SelectUSB", port));
}

int32_t VORTAARM_EMU_SelectByUSBSN(uint32_t serialNumber) {
  return NumberOf(Step("EMU_SelectByUSBSN", serialNumber));
}

int32_t VORTA_EMU_SelectByUSBNickname(const char* nickname) {
  return NumberOf(Step("EMU_SelectByUSBNickname", nickname));
}

int32_t VORTAARM_ExecCommand(const char* command, char* pError, int32_t errorSize) {
  const char* errorText = pError == nullptr ? "null" : "not null";
  return NumberOf(Step("ExecCommand", command, errorText, errorSize));
}

const char* VORTA_OpenEx(VORTA_TEXT_FUNC* pfNewLog, VORTA_TEXT_FUNC* pfNewError) {
  static std::string error;
  pfLog = pfNewLog;
  pfError = pfNewError;
  error = Step("OpenEx");
  return error.empty() ? nullptr : error.c_str();
}

void VORTAARM_GetFirmwareString(char* pBuffer, int32_t size) {
  const std::string given = Step("GetFirmwareString", size);
  const std::string text = (given.empty() ? "Fake V1" : given).substr(0, static_cast<size_t>(size) - 1);
  std::copy_n(text.c_str(), text.size() + 1, pBuffer);
}

// Not inlined: self@ is to go the way of any call between libraries.
__attribute__((noinline)) uint32_t VORTAARM_GetSN(void) {
  return static_cast<uint32_t>(NumberOf(Step("GetSN"), 12345));
}

int32_t VORTA_TIF_Select(int32_t tif) {
  return NumberOf(Step("TIF_Select", tif));
}

void VORTA_SetSpeed(uint32_t speed) {
  Step("SetSpeed", speed);
}

// Forgets the code, which is the tool's now to free.
void VORTA_Close(void) {
  if (pCode != nullptr) {
    Step("Close", DescribeCode(pCode));
  } else {
    Step("Close");
  }
  pCode = nullptr;
}

#ifdef __GLIBC__

__attribute__((destructor)) static void RecordLeftovers() {
  if (Setting("leftovers", 0) != 0) {
    Record("left(" + std::to_string(mallinfo2().hblks) + ")");
  }
}

#endif
