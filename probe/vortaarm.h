#ifndef PROBE_VORTAARM_H
#define PROBE_VORTAARM_H

// Forwarders for the probe library's entry points of the VORTAARM_ family. What probe/vorta.h says of its forwarders
// holds for these too.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Selects the probe to open by its network address as a text; port 0 is the library's default.
int32_t VORTAARM_SelectIP(const char* addr, int32_t port);

// Selects the probe to open by its USB port index, 0 to 3.
int32_t VORTAARM_SelectUSB(uint32_t port);

// Selects the probe to open by its serial number.
int32_t VORTAARM_EMU_SelectByUSBSN(uint32_t serialNumber);

// Carries out a command text. An error text goes into the errorSize bytes at pError, which may be null with size 0.
int32_t VORTAARM_ExecCommand(const char* command, char* pError, int32_t errorSize);

// Gives the firmware text of the open probe in the size bytes at pBuffer.
void VORTAARM_GetFirmwareString(char* pBuffer, int32_t size);

// Returns the serial number of the open probe.
uint32_t VORTAARM_GetSN(void);

#ifdef __cplusplus
}
#endif

#endif
