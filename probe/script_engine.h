#ifndef PROBE_SCRIPT_ENGINE_H
#define PROBE_SCRIPT_ENGINE_H

// The script engine of the probe library: functions without names, handed out one by one by their index.
//
// A script file is compiled into code, an instance is made from the code, and functions of the instance are called by
// name. Results below 0 tell of a failure. The engine is used by one thread at a time.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SCRIPT_INDEX_COMPILE_FILE 61u
#define SCRIPT_INDEX_LOAD_INSTANCE 62u
#define SCRIPT_INDEX_UNLOAD_INSTANCE 63u
#define SCRIPT_INDEX_HAS_ENTRY_POINT 64u
#define SCRIPT_INDEX_EXECUTE_FUNCTION 65u
#define SCRIPT_INDEX_REGISTER_KEY_VALUE 71u

// Receives the text of a compile error, valid during the call.
typedef void SCRIPT_ERROR_FUNC(const char* text);

// Returns numBytes bytes, or null when memory is exhausted.
typedef void* SCRIPT_ALLOC_FUNC(uint32_t numBytes);

// What the compile function is given, and where it leaves the code.
typedef struct SCRIPT_COMPILE_INFO {
  const char* pPath;             // Path of the script file.
  SCRIPT_ERROR_FUNC* pfOnError;  // Called for each error.
  SCRIPT_ALLOC_FUNC* pfAlloc;    // Where the memory of the code comes from.
  void* pCode;                   // Null before the call. The compiled code, the caller's to free, also after a failure.
  uint32_t CodeSize;             // 0 before the call. Size of the code in bytes.
} SCRIPT_COMPILE_INFO;

// Compiles a script file.
typedef int32_t SCRIPT_COMPILE_FILE_FUNC(SCRIPT_COMPILE_INFO* pInfo);

// Makes an instance from compiled code, which must stay where it is while the instance lives. Returns its handle, 0 or
// more.
typedef int32_t SCRIPT_LOAD_INSTANCE_FUNC(const void* pCode, uint32_t codeSize);

// Releases an instance.
typedef int32_t SCRIPT_UNLOAD_INSTANCE_FUNC(int32_t handle);

// Returns 1 when the instance has a function of that name; any other result says that it has none.
typedef int32_t SCRIPT_HAS_ENTRY_POINT_FUNC(int32_t handle, const char* name);

// Runs a function of the instance and stores what it returns in *pResult. The last two are null and 0.
typedef int32_t SCRIPT_EXECUTE_FUNCTION_FUNC(int32_t handle, const char* name, int32_t* pResult, void* pReserved,
                                             uint32_t reserved);

// Gives the instance a key=value pair.
typedef int32_t SCRIPT_REGISTER_KEY_VALUE_FUNC(int32_t handle, const char* key, const char* value);

// The engine's functions. One that the library lacks is null.
typedef struct SCRIPT_ENGINE {
  SCRIPT_COMPILE_FILE_FUNC* pfCompileFile;
  SCRIPT_LOAD_INSTANCE_FUNC* pfLoadInstance;
  SCRIPT_UNLOAD_INSTANCE_FUNC* pfUnloadInstance;
  SCRIPT_HAS_ENTRY_POINT_FUNC* pfHasEntryPoint;
  SCRIPT_EXECUTE_FUNCTION_FUNC* pfExecuteFunction;
  SCRIPT_REGISTER_KEY_VALUE_FUNC* pfRegisterKeyValue;
} SCRIPT_ENGINE;

// Obtains the engine's functions from the probe library, which this loads if need be (probe/loader.h).
void SCRIPT_BindEngine(SCRIPT_ENGINE* pEngine);

#ifdef __cplusplus
}
#endif

#endif
