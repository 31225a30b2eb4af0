#ifndef SIM_SIM_H
#define SIM_SIM_H

// What the four sources of the simulated probe library share; none of it is exported. The library stands alone: with
// the tool it has only the prototypes of probe/ in common, so that no fault can hide by being on both sides. It is
// meant for one thread, as the library that it stands for.
//
// An operation that can fail gives a text: null for success, else what went wrong, valid until the next SIM_Text.

#include <stddef.h>
#include <stdint.h>

#include "probe/script_engine.h"
#include "probe/vorta.h"

struct lua_State;

// --- Texts and checksums (probe.cpp) ---

// Formats into the library's one text buffer, cut to 511 characters, and returns it.
const char* SIM_Text(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Hands a text to a callback, which may be null, in a call for each line. Lines end with LF, CR LF or CR; at the end of
// the text there may be one, which no further line follows.
void SIM_Tell(VORTA_TEXT_FUNC* pfTell, const char* text);

// Tell the callbacks given to VORTA_OpenEx. Without an open probe nothing happens. SIM_Trace is a log line that only a
// verbose session shows.
void SIM_Log(const char* text);
void SIM_Trace(const char* text);
void SIM_Error(const char* text);

// CRC-32 as in Ethernet and zip: reflected, polynomial 0xEDB88320, start and final XOR 0xFFFFFFFF.
uint32_t SIM_Crc32(const void* pData, size_t numBytes);

// --- The target (target.cpp): one microcontroller behind every probe and every module of a hub ---

// Constants of the simulated device. Erasing goes by whole sectors, writing by whole units.
inline constexpr char TARGET_NAME[] = "SIM-M4";
inline constexpr uint32_t TARGET_FLASH_BASE = 0x08000000u;
inline constexpr uint32_t TARGET_FLASH_SIZE_BYTES = 64u * 1024u;
inline constexpr uint32_t TARGET_SECTOR_SIZE_BYTES = 4096u;
inline constexpr uint32_t TARGET_WRITE_UNIT_BYTES = 8u;

// No module: the probe is no hub.
inline constexpr int32_t TARGET_NO_MODULE = -1;

// Says which target the following operations act on. Touches no file: the flash image is opened on first use.
void TARGET_Attach(uint32_t serialNumber, int32_t module);

// Lets go of the target and of its flash image.
void TARGET_Detach();

// Selects JTAG (0) or SWD (1). Fails for every other interface; the one selected before stays.
const char* TARGET_SelectInterface(int32_t tif);

// Gives the identification code that the target answers with on the selected interface.
const char* TARGET_ReadId(uint32_t* pId);

// Flash operations. Addresses are the target's, sizes in bytes. Each fails without an open probe or a selected
// interface, outside the flash, when another process holds the image, or with the file system's reason. Refused
// arguments change nothing; where the file system fails, some of the sectors may have changed. Data from TARGET_Read
// stays valid until the next flash operation.
const char* TARGET_Erase(uint64_t addr, uint64_t numBytes);
const char* TARGET_Write(uint64_t addr, const void* pData, uint64_t numBytes);
const char* TARGET_Read(uint64_t addr, uint64_t numBytes, const uint8_t** ppData);

// --- What scripts see (script_api.cpp) ---

// Give a fresh Lua state its libraries and objects, and one key=value pair. Both raise Lua errors, so they are called
// protected. The script's globals start as an empty table through which the libraries can be read.
void SCRIPT_OpenLibraries(lua_State* pLua);
void SCRIPT_AddPair(lua_State* pLua, const char* key, const char* value);

// --- The script engine (engine.cpp), behind VORTA_GetpFunc ---

SCRIPT_COMPILE_FILE_FUNC ENGINE_CompileFile;
SCRIPT_LOAD_INSTANCE_FUNC ENGINE_LoadInstance;
SCRIPT_UNLOAD_INSTANCE_FUNC ENGINE_UnloadInstance;
SCRIPT_HAS_ENTRY_POINT_FUNC ENGINE_HasEntryPoint;
SCRIPT_EXECUTE_FUNCTION_FUNC ENGINE_ExecuteFunction;
SCRIPT_REGISTER_KEY_VALUE_FUNC ENGINE_RegisterKeyValue;

// Ends every instance that is still loaded.
void ENGINE_UnloadAll();

#endif
