#ifndef APP_OPTIONS_H
#define APP_OPTIONS_H

// The command line: options, each followed by one value, in any order.

#include <stdint.h>

#include "util/otalloc.h"

#ifdef __cplusplus
extern "C" {
#endif

// Values of SESSION_SETTINGS.
#define TIF_NONE 0xFFFFFFFFu
#define SPEED_NONE 65534u
#define SPEED_ADAPTIVE 65535u
#define HOST_IF_USB 1u
#define HOST_IF_IP 2u
#define USB_SELECT_NONE 0u
#define USB_SELECT_BY_NUMBER 1u
#define USB_SELECT_BY_NICKNAME 2u

// A key=value pair of -SetConfigVal, in the arena of the session.
typedef struct CONFIG_VAL_NODE {
  const char* pKey;
  const char* pValue;
  struct CONFIG_VAL_NODE* pNext;  // Pair given before this one, null for the first.
} CONFIG_VAL_NODE;

// What the command line asks for. Texts are cut to their fields.
typedef struct SESSION_SETTINGS {
  char acScriptFile[512];        // Name or path of the script, empty when none was given.
  char acOperation[128];         // Script function to run, empty when none was given.
  char acIPAddr[128];            // The probe's network address as typed.
  char acNickname[32];           // The probe's USB nickname.
  CONFIG_VAL_NODE* pConfigVals;  // The pairs, the one given last first; null when there is none.
  uint32_t USBSelectMode;        // USB_SELECT_...: how the probe is chosen on USB.
  uint32_t TIF;                  // Number of the target interface, or TIF_NONE.
  uint32_t Speed;                // Speed as the probe library takes it, SPEED_ADAPTIVE, or SPEED_NONE.
  uint32_t HostIF;               // HOST_IF_...: how the probe is reached.
  int32_t USBNumber;             // USB port index when below 4 (unsigned), else serial number.
  uint32_t ModuleIndex;          // Module of a hub, if HasModule is 1.
  uint32_t HasModule;            // 1 once a module was given, else 0.
} SESSION_SETTINGS;

// An entry of the option table. A handler takes its own entry and the value, and returns 0, or -1 after printing why
// not.
typedef struct CMDLINE_OPTION CMDLINE_OPTION;
typedef int32_t CMDLINE_HANDLER(const CMDLINE_OPTION* pOption, const char* value);
struct CMDLINE_OPTION {
  CMDLINE_HANDLER* pfHandler;
  const char* pName;
  uint32_t Flags;     // 1: takes a value, as every option does.
  const char* pHelp;  // For a listing of the options, which nothing prints.
};

// Sets the settings to their defaults and says which arena holds the pairs; it must outlive the settings.
void CMDLINE_Init(OTALLOC* pArena);

// Takes the arguments behind the program name into the settings. Returns 0, also without any option. The first error is
// printed on standard output in one line and gives -1; options before it have taken effect.
int32_t CMDLINE_Parse(int argc, char** argv);

// Returns the settings, one record for the process.
SESSION_SETTINGS* CMDLINE_GetSettings(void);

#ifdef __cplusplus
}
#endif

#endif
