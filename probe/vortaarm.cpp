// The forwarders of the VORTAARM_ family: one line an entry point. An entry point that the tool does not call itself
// needs no declaration in the header.

#include "probe/vortaarm.h"

#include "probe/forward.h"

FORWARD(int32_t, VORTAARM_EMU_SelectByUSBSN, uint32_t)
FORWARD(int32_t, VORTAARM_ExecCommand, const char*, char*, int32_t)
FORWARD(void, VORTAARM_GetFirmwareString, char*, int32_t)
FORWARD(uint32_t, VORTAARM_GetSN)
FORWARD(int32_t, VORTAARM_SelectIP, const char*, int32_t)
FORWARD(int32_t, VORTAARM_SelectUSB, uint32_t)
