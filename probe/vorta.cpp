// The forwarders of the VORTA_ family: one line an entry point. An entry point that the tool does not call itself needs
// no declaration in the header.

#include "probe/vorta.h"

#include "probe/forward.h"

FORWARD(void, VORTA_Close)
FORWARD(int32_t, VORTA_EMU_SelectByUSBNickname, const char*)
FORWARD(void*, VORTA_GetpFunc, uint32_t)
FORWARD(const char*, VORTA_OpenEx, VORTA_TEXT_FUNC*, VORTA_TEXT_FUNC*)
FORWARD(void, VORTA_SetSpeed, uint32_t)
FORWARD(int32_t, VORTA_TIF_Select, int32_t)

// Entry points that have an index in place of a name.
FORWARD_INDEXED(57, VORTA_CORESIGHT_ReadItemAPSpace, uint32_t, uint64_t, uint32_t, void*)
FORWARD_INDEXED(58, VORTA_CORESIGHT_ReadMemAP, uint32_t, uint64_t, uint32_t, void*)
