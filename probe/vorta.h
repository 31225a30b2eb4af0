#ifndef PROBE_VORTA_H
#define PROBE_VORTA_H

// Forwarders for the probe library's entry points of the VORTA_ family.
//
// Each has the name, parameters and result of an entry point, passes all of them through unchanged, and returns what
// the library returns. The first call of any forwarder loads the library (probe/loader.h); without it, or without the
// entry point, the process ends with status 1. An entry point without an address gives 0. What the calls mean beyond
// what is said here is the library's business. The first call of each forwarder must be over before other threads make
// theirs.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Receives one text, valid during the call. The library may call it from within any of its functions.
typedef void VORTA_TEXT_FUNC(const char* text);

// Returns the library's internal function of that index, or null when it has none.
void* VORTA_GetpFunc(uint32_t index);

// Selects the probe to open by its USB nickname.
int32_t VORTA_EMU_SelectByUSBNickname(const char* nickname);

// Opens the selected probe. Both callbacks stay in use until the probe is closed. Returns null on success, else a text
// of the library's that says why not.
const char* VORTA_OpenEx(VORTA_TEXT_FUNC* pfLog, VORTA_TEXT_FUNC* pfError);

// Closes the probe.
void VORTA_Close(void);

// Selects the target interface by its number. Returns 0 on success.
int32_t VORTA_TIF_Select(int32_t tif);

// Sets the speed of the target interface; 65535 selects adaptive clocking.
void VORTA_SetSpeed(uint32_t speed);

// Reads numBytes bytes at addr through the access port apIndex into pData: single items, or memory. Both reach
// functions that the library has no names for, and return -262 when it lacks them.
int32_t VORTA_CORESIGHT_ReadItemAPSpace(uint32_t apIndex, uint64_t addr, uint32_t numBytes, void* pData);
int32_t VORTA_CORESIGHT_ReadMemAP(uint32_t apIndex, uint64_t addr, uint32_t numBytes, void* pData);

#ifdef __cplusplus
}
#endif

#endif
