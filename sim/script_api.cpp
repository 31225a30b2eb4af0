// What a script sees: Lua's libraries as far as they are safe, its key=value pairs, its target, and a voice.
//
// Everything here runs protected and reports by raising a Lua error, which carries the script's file and line. A script
// reaches no file, no other program, no clock and no binary code, and nothing that it leaves behind runs after its
// call.

#include <string.h>

#include <lua.hpp>

#include "sim/sim.h"

namespace {

// The registry's key for the pairs; scripts only see them through Config.
constexpr char PAIRS[] = "sim.pairs";

// Runs once in a fresh state, with the table of pairs, and gives the script's global table: one of its own, through
// which the libraries can be read. Finalizers are refused since they run when the instance ends, where no limit would
// stop them. Random numbers start from the same seed in every run.
constexpr char SANDBOX[] = R"lua(
local values = ...
local next, rawget, type, setmetatable = next, rawget, type, setmetatable

Config = setmetatable({}, {
  __index = values,
  __newindex = function() error("Config cannot be changed by the script", 2) end,
  __pairs = function() return function(_, key) return next(values, key) end end,
  __metatable = false,
})

_ENV.setmetatable = function(object, meta)
  if type(meta) == "table" and rawget(meta, "__gc") ~= nil then
    error("scripts have no finalizers (__gc)", 2)
  end
  return setmetatable(object, meta)
end

math.randomseed(1)
string.dump = nil
getmetatable("").__metatable = false
collectgarbage, dofile, load, loadfile, rawset, warn, xpcall = nil

_G = setmetatable({}, { __index = _G, __metatable = false })
return _G
)lua";

void Check(lua_State* pLua, const char* error) {
  if (error != nullptr) {
    luaL_error(pLua, "%s", error);
  }
}

// A negative number becomes one that is outside the flash.
uint64_t CheckU64(lua_State* pLua, int arg) {
  return static_cast<uint64_t>(luaL_checkinteger(pLua, arg));
}

// Takes any number of values of any type, as print does everywhere.
int LogText(lua_State* pLua) {
  const int numArgs = lua_gettop(pLua);
  luaL_Buffer text;
  luaL_buffinit(pLua, &text);
  for (int arg = 1; arg <= numArgs; arg++) {
    if (arg > 1) {
      luaL_addchar(&text, '\t');
    }
    luaL_tolstring(pLua, arg, nullptr);
    luaL_addvalue(&text);
  }
  luaL_pushresult(&text);
  SIM_Log(lua_tostring(pLua, -1));
  return 0;
}

int ReportError(lua_State* pLua) {
  SIM_Error(luaL_checkstring(pLua, 1));
  return 0;
}

int CalcCrc32(lua_State* pLua) {
  size_t numBytes = 0;
  const char* pData = luaL_checklstring(pLua, 1, &numBytes);
  lua_pushinteger(pLua, SIM_Crc32(pData, numBytes));
  return 1;
}

int ReadTargetId(lua_State* pLua) {
  uint32_t id = 0;
  Check(pLua, TARGET_ReadId(&id));
  lua_pushinteger(pLua, id);
  return 1;
}

void SetInteger(lua_State* pLua, const char* name, lua_Integer value) {
  lua_pushinteger(pLua, value);
  lua_setfield(pLua, -2, name);
}

int GetTargetInfo(lua_State* pLua) {
  lua_newtable(pLua);
  lua_pushstring(pLua, TARGET_NAME);
  lua_setfield(pLua, -2, "Name");
  SetInteger(pLua, "FlashBase", TARGET_FLASH_BASE);
  SetInteger(pLua, "FlashSize", TARGET_FLASH_SIZE_BYTES);
  SetInteger(pLua, "SectorSize", TARGET_SECTOR_SIZE_BYTES);
  SetInteger(pLua, "WriteUnit", TARGET_WRITE_UNIT_BYTES);
  return 1;
}

int EraseFlash(lua_State* pLua) {
  const uint64_t addr = CheckU64(pLua, 1);
  Check(pLua, TARGET_Erase(addr, CheckU64(pLua, 2)));
  return 0;
}

int WriteFlash(lua_State* pLua) {
  const uint64_t addr = CheckU64(pLua, 1);
  size_t numBytes = 0;
  const char* pData = luaL_checklstring(pLua, 2, &numBytes);
  Check(pLua, TARGET_Write(addr, pData, numBytes));
  return 0;
}

int ReadFlash(lua_State* pLua) {
  const uint64_t addr = CheckU64(pLua, 1);
  const uint64_t numBytes = CheckU64(pLua, 2);
  const uint8_t* pFlash = nullptr;
  Check(pLua, TARGET_Read(addr, numBytes, &pFlash));
  lua_pushlstring(pLua, reinterpret_cast<const char*>(pFlash), numBytes);
  return 1;
}

// Gives true, or false and the address of the first byte that differs.
int VerifyFlash(lua_State* pLua) {
  const uint64_t addr = CheckU64(pLua, 1);
  size_t numBytes = 0;
  const char* pData = luaL_checklstring(pLua, 2, &numBytes);
  const uint8_t* pFlash = nullptr;
  Check(pLua, TARGET_Read(addr, numBytes, &pFlash));
  size_t numSame = 0;
  while (numSame < numBytes && pFlash[numSame] == static_cast<uint8_t>(pData[numSame])) {
    numSame++;
  }
  if (numSame == numBytes) {
    lua_pushboolean(pLua, 1);
    return 1;
  }
  lua_pushboolean(pLua, 0);
  lua_pushinteger(pLua, static_cast<lua_Integer>(addr + numSame));
  return 2;
}

constexpr luaL_Reg LIBRARIES[] = {
    {LUA_GNAME, luaopen_base},       {LUA_STRLIBNAME, luaopen_string}, {LUA_TABLIBNAME, luaopen_table},
    {LUA_MATHLIBNAME, luaopen_math}, {LUA_UTF8LIBNAME, luaopen_utf8},
};

constexpr luaL_Reg GLOBAL_FUNCS[] = {
    {"Log", LogText}, {"print", LogText}, {"Error", ReportError}, {"Crc32", CalcCrc32}, {nullptr, nullptr},
};

constexpr luaL_Reg TARGET_FUNCS[] = {
    {"ReadId", ReadTargetId},
    {"GetInfo", GetTargetInfo},
    {nullptr, nullptr},
};

constexpr luaL_Reg FLASH_FUNCS[] = {
    {"Erase", EraseFlash}, {"Write", WriteFlash}, {"Read", ReadFlash}, {"Verify", VerifyFlash}, {nullptr, nullptr},
};

}  // namespace

void SCRIPT_OpenLibraries(lua_State* pLua) {
  for (const luaL_Reg& library : LIBRARIES) {
    luaL_requiref(pLua, library.name, library.func, 1);
  }
  lua_pushglobaltable(pLua);
  luaL_setfuncs(pLua, GLOBAL_FUNCS, 0);
  luaL_newlib(pLua, TARGET_FUNCS);
  lua_setglobal(pLua, "Target");
  luaL_newlib(pLua, FLASH_FUNCS);
  lua_setglobal(pLua, "Flash");
  if (luaL_loadbuffer(pLua, SANDBOX, strlen(SANDBOX), "=sandbox") != LUA_OK) {
    lua_error(pLua);
  }
  luaL_getsubtable(pLua, LUA_REGISTRYINDEX, PAIRS);
  lua_call(pLua, 1, 1);
  lua_rawseti(pLua, LUA_REGISTRYINDEX, LUA_RIDX_GLOBALS);
}

// A key given twice is refused: no script should have to guess which of two serial numbers was meant.
void SCRIPT_AddPair(lua_State* pLua, const char* key, const char* value) {
  luaL_getsubtable(pLua, LUA_REGISTRYINDEX, PAIRS);
  if (lua_getfield(pLua, -1, key) != LUA_TNIL) {
    luaL_error(pLua, "'%s' is given twice", key);
  }
  lua_pushstring(pLua, value);
  lua_setfield(pLua, -3, key);
}
