// The script engine: compiles script text into code that the caller owns, and runs instances of such code.
//
// Code is a header and Lua's binary form of the script. Lua trusts the binary form blindly, so the header's checksum is
// verified before Lua sees a byte of it. Every call into Lua that can fail runs protected: an error, memory that runs
// out or a script that runs away ends that one call with an error text and a negative result, never the process. Two
// limits hold for each instance: the memory it may own and the instructions that one call may take. Time spent inside a
// library function (a string pattern that explodes) is not counted.
//
// Lua leaves its functions by longjmp: nothing in this file and in script_api.cpp that Lua calls may own a resource.

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <lua.hpp>

#include "sim/sim.h"

static_assert(LUA_VERSION_NUM == 504, "The sandbox is made for the libraries of Lua 5.4");

namespace {

constexpr size_t MAX_INSTANCE_BYTES = 128 * 1024 * 1024;  // Endless recursion takes 92 MiB before Lua tells it as such.
constexpr int MAX_INSTRUCTIONS = 50'000'000;
constexpr int32_t MAX_INSTANCES = 8;
constexpr uint32_t CODE_MAGIC = 0x31584556;  // "VEX1"

struct CODE_HEADER {
  uint32_t Magic;
  uint32_t NumBytes;  // Of the chunk that follows.
  uint32_t Crc;       // Over that chunk.
};

struct INSTANCE {
  lua_State* pLua;  // Null: the slot is free.
  size_t NumBytesUsed;
};

INSTANCE aInstance[MAX_INSTANCES];

// Lua's allocator. For a new block Lua passes the kind of object in place of an old size.
void* Reallocate(void* pUser, void* pBlock, size_t oldSize, size_t newSize) {
  size_t* pNumUsed = static_cast<size_t*>(pUser);
  oldSize = pBlock != nullptr ? oldSize : 0;
  if (newSize == 0) {
    free(pBlock);
    *pNumUsed -= oldSize;
    return nullptr;
  }
  if (newSize > oldSize && newSize - oldSize > MAX_INSTANCE_BYTES - *pNumUsed) {
    return nullptr;
  }
  void* pNew = realloc(pBlock, newSize);
  if (pNew != nullptr) {
    *pNumUsed = *pNumUsed - oldSize + newSize;
  }
  return pNew;
}

// Messages name a script by its file alone: a long path would push what matters out of the caller's buffer.
const char* FileName(const char* path) {
  const char* pSlash = strrchr(path, '/');
  return pSlash != nullptr ? pSlash + 1 : path;
}

struct SCRIPT_TEXT {
  FILE* pFile;
  char acChunk[4096];
};

const char* ReadScript(lua_State*, void* pUser, size_t* pSize) {
  SCRIPT_TEXT* pText = static_cast<SCRIPT_TEXT*>(pUser);
  *pSize = fread(pText->acChunk, 1, sizeof(pText->acChunk), pText->pFile);
  return pText->acChunk;
}

// Does without what editors and shells may need in front of a script: a byte order mark, and a first line with the
// interpreter, whose end stays, so that lines keep their numbers. Returns what the file goes on with.
int SkipPreamble(FILE* pFile) {
  int c = fgetc(pFile);
  if (c == 0xEF && fgetc(pFile) == 0xBB && fgetc(pFile) == 0xBF) {
    c = fgetc(pFile);
  }
  if (c == '#') {
    while (c != EOF && c != '\n') {
      c = fgetc(pFile);
    }
  }
  return ungetc(c, pFile);
}

// Leaves the script's main function on the stack. A file that cannot be read is told before what Lua makes of the rest.
const char* ParseFile(lua_State* pLua, const char* path) {
  SCRIPT_TEXT text;
  text.pFile = fopen(path, "re");
  if (text.pFile == nullptr) {
    return SIM_Text("%s: %s", FileName(path), strerror(errno));
  }
  const int first = SkipPreamble(text.pFile);
  char acChunkName[256];
  snprintf(acChunkName, sizeof(acChunkName), "@%s", FileName(path));
  const int status = lua_load(pLua, ReadScript, &text, acChunkName, "t");
  const char* error = status == LUA_OK ? nullptr : lua_tostring(pLua, -1);
  if (ferror(text.pFile) != 0) {
    error = SIM_Text("%s: cannot be read", FileName(path));
  } else if (first == LUA_SIGNATURE[0]) {
    error = SIM_Text("%s: compiled already, only script text can be compiled", FileName(path));
  }
  fclose(text.pFile);
  return error;
}

struct CODE_WRITER {
  uint8_t* pChunk;  // Null: only count.
  size_t NumBytes;
};

int WriteCode(lua_State*, const void* pData, size_t numBytes, void* pUser) {
  CODE_WRITER* pWriter = static_cast<CODE_WRITER*>(pUser);
  if (pWriter->pChunk != nullptr) {
    memcpy(pWriter->pChunk + pWriter->NumBytes, pData, numBytes);
  }
  pWriter->NumBytes += numBytes;
  return 0;
}

// Line numbers stay in the code: run-time errors tell where they happened.
const char* HandOutCode(lua_State* pLua, SCRIPT_COMPILE_INFO* pInfo) {
  CODE_WRITER writer = {nullptr, 0};
  lua_dump(pLua, WriteCode, &writer, 0);
  CODE_HEADER header = {CODE_MAGIC, static_cast<uint32_t>(writer.NumBytes), 0};
  const uint32_t numBytes = static_cast<uint32_t>(sizeof(header)) + header.NumBytes;
  uint8_t* pCode = pInfo->pfAlloc != nullptr ? static_cast<uint8_t*>(pInfo->pfAlloc(numBytes)) : nullptr;
  if (pCode == nullptr) {
    return SIM_Text("%s: no memory for %u bytes of code", FileName(pInfo->pPath), numBytes);
  }
  writer = {pCode + sizeof(header), 0};
  lua_dump(pLua, WriteCode, &writer, 0);
  header.Crc = SIM_Crc32(pCode + sizeof(header), header.NumBytes);
  memcpy(pCode, &header, sizeof(header));
  pInfo->pCode = pCode;
  pInfo->CodeSize = numBytes;
  return nullptr;
}

}  // namespace

int32_t ENGINE_CompileFile(SCRIPT_COMPILE_INFO* pInfo) {
  if (pInfo == nullptr || pInfo->pPath == nullptr) {
    return -1;
  }
  size_t numUsed = 0;
  lua_State* pLua = lua_newstate(Reallocate, &numUsed);
  if (pLua == nullptr) {
    return -1;
  }
  const char* error = ParseFile(pLua, pInfo->pPath);
  if (error == nullptr) {
    error = HandOutCode(pLua, pInfo);
  }
  if (error != nullptr) {
    SIM_Tell(pInfo->pfOnError, error);
  }
  lua_close(pLua);
  return error == nullptr ? 0 : -1;
}

namespace {

lua_State* FindInstance(int32_t handle) {
  lua_State* pLua = handle >= 0 && handle < MAX_INSTANCES ? aInstance[handle].pLua : nullptr;
  if (pLua == nullptr) {
    SIM_Error(SIM_Text("There is no script instance %d", handle));
  }
  return pLua;
}

// From the first time on it strikes at every instruction, so that a script cannot catch the error and carry on.
void StopRunaway(lua_State* pLua, lua_Debug*) {
  lua_sethook(pLua, StopRunaway, LUA_MASKCOUNT, 1);
  luaL_where(pLua, 0);
  lua_pushfstring(pLua, "stopped after %d instructions", MAX_INSTRUCTIONS);
  lua_concat(pLua, 2);
  lua_error(pLua);
}

// Runs where the error was raised, while the call stack can still be told. There is none when no script was running.
int ReportFailure(lua_State* pLua) {
  SIM_Error(luaL_tolstring(pLua, 1, nullptr));
  lua_Debug caller;
  if (lua_getstack(pLua, 2, &caller) != 0) {
    luaL_traceback(pLua, pLua, nullptr, 1);
    SIM_Log(lua_tostring(pLua, -1));
  }
  return 1;
}

// Runs pfBody, which gets pArg as a light userdata. Nothing else calls Lua with an instance's state.
bool RunProtected(lua_State* pLua, lua_CFunction pfBody, void* pArg) {
  lua_settop(pLua, 0);
  lua_pushcfunction(pLua, ReportFailure);
  lua_pushcfunction(pLua, pfBody);
  lua_pushlightuserdata(pLua, pArg);
  lua_sethook(pLua, StopRunaway, LUA_MASKCOUNT, MAX_INSTRUCTIONS);
  const int status = lua_pcall(pLua, 1, 0, 1);
  if (status != LUA_OK && status != LUA_ERRRUN) {
    SIM_Error(lua_tostring(pLua, -1));  // No memory, not even for the report: Lua has these texts ready.
  }
  lua_settop(pLua, 0);
  return status == LUA_OK;
}

bool IsCode(const void* pCode, uint32_t codeSize) {
  CODE_HEADER header;
  if (pCode == nullptr || codeSize < sizeof(header)) {
    return false;
  }
  memcpy(&header, pCode, sizeof(header));
  return header.Magic == CODE_MAGIC && header.NumBytes == codeSize - sizeof(header) &&
         header.Crc == SIM_Crc32(static_cast<const uint8_t*>(pCode) + sizeof(header), header.NumBytes);
}

struct CHUNK {
  const char* pData;
  size_t NumBytes;
};

int LoadScript(lua_State* pLua) {
  const CHUNK* pChunk = static_cast<const CHUNK*>(lua_touserdata(pLua, 1));
  SCRIPT_OpenLibraries(pLua);
  if (luaL_loadbufferx(pLua, pChunk->pData, pChunk->NumBytes, "=code", "b") != LUA_OK) {
    lua_error(pLua);
  }
  lua_call(pLua, 0, 0);
  return 0;
}

}  // namespace

int32_t ENGINE_LoadInstance(const void* pCode, uint32_t codeSize) {
  int32_t handle = 0;
  while (handle < MAX_INSTANCES && aInstance[handle].pLua != nullptr) {
    handle++;
  }
  if (handle == MAX_INSTANCES || !IsCode(pCode, codeSize)) {
    SIM_Error(handle == MAX_INSTANCES ? "Too many script instances" : "This is no compiled script");
    return -1;
  }
  INSTANCE* pInstance = &aInstance[handle];
  pInstance->NumBytesUsed = 0;
  pInstance->pLua = lua_newstate(Reallocate, &pInstance->NumBytesUsed);
  if (pInstance->pLua == nullptr) {
    SIM_Error("No memory for a script instance");
    return -1;
  }
  CHUNK chunk = {static_cast<const char*>(pCode) + sizeof(CODE_HEADER), codeSize - sizeof(CODE_HEADER)};
  if (!RunProtected(pInstance->pLua, LoadScript, &chunk)) {
    ENGINE_UnloadInstance(handle);
    return -1;
  }
  return handle;
}

int32_t ENGINE_UnloadInstance(int32_t handle) {
  lua_State* pLua = FindInstance(handle);
  if (pLua == nullptr) {
    return -1;
  }
  lua_close(pLua);
  aInstance[handle].pLua = nullptr;
  return 0;
}

namespace {

struct CALL {
  const char* pName;
  bool HasFunction;
  int32_t Result;
};

// Entry points are what the script itself defines: the libraries' functions are none.
bool PushFunction(lua_State* pLua, CALL* pCall) {
  lua_pushglobaltable(pLua);
  lua_pushstring(pLua, pCall->pName);
  pCall->HasFunction = lua_rawget(pLua, -2) == LUA_TFUNCTION;
  return pCall->HasFunction;
}

int FindFunction(lua_State* pLua) {
  PushFunction(pLua, static_cast<CALL*>(lua_touserdata(pLua, 1)));
  return 0;
}

int CallFunction(lua_State* pLua) {
  CALL* pCall = static_cast<CALL*>(lua_touserdata(pLua, 1));
  if (!PushFunction(pLua, pCall)) {
    luaL_error(pLua, "The script has no function '%s'", pCall->pName);
  }
  lua_call(pLua, 0, 1);
  if (lua_isnil(pLua, -1)) {
    return 0;
  }
  int isInteger = 0;
  const lua_Integer result = lua_tointegerx(pLua, -1, &isInteger);
  if (lua_type(pLua, -1) != LUA_TNUMBER || isInteger == 0 || result < INT32_MIN || result > INT32_MAX) {
    luaL_error(pLua, "Function '%s' did not return a 32-bit integer but %s", pCall->pName,
               luaL_tolstring(pLua, -1, nullptr));
  }
  pCall->Result = static_cast<int32_t>(result);
  return 0;
}

}  // namespace

int32_t ENGINE_HasEntryPoint(int32_t handle, const char* name) {
  lua_State* pLua = FindInstance(handle);
  CALL call = {name, false, 0};
  return pLua != nullptr && name != nullptr && RunProtected(pLua, FindFunction, &call) && call.HasFunction ? 1 : 0;
}

int32_t ENGINE_ExecuteFunction(int32_t handle, const char* name, int32_t* pResult, void*, uint32_t) {
  lua_State* pLua = FindInstance(handle);
  CALL call = {name, false, 0};
  if (pLua == nullptr || name == nullptr || pResult == nullptr || !RunProtected(pLua, CallFunction, &call)) {
    return -1;
  }
  *pResult = call.Result;
  return 0;
}

namespace {

struct PAIR {
  const char* pKey;
  const char* pValue;
};

int AddPair(lua_State* pLua) {
  const PAIR* pPair = static_cast<const PAIR*>(lua_touserdata(pLua, 1));
  SCRIPT_AddPair(pLua, pPair->pKey, pPair->pValue);
  return 0;
}

}  // namespace

int32_t ENGINE_RegisterKeyValue(int32_t handle, const char* key, const char* value) {
  lua_State* pLua = FindInstance(handle);
  PAIR pair = {key, value};
  return pLua != nullptr && key != nullptr && value != nullptr && RunProtected(pLua, AddPair, &pair) ? 0 : -1;
}

void ENGINE_UnloadAll() {
  for (int32_t handle = 0; handle < MAX_INSTANCES; handle++) {
    if (aInstance[handle].pLua != nullptr) {
      ENGINE_UnloadInstance(handle);
    }
  }
}
