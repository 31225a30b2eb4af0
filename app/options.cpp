// Owns the settings of the session and the option table. Handlers see their own table entry, so that messages name an
// option as the table spells it; the parse loop alone knows how the user typed it.

#include "app/options.h"

#include <stdio.h>
#include <string.h>

#include "util/scan.h"
#include "util/strings.h"

namespace {

SESSION_SETTINGS settings;
OTALLOC* pPairArena;

struct INTERFACE_NAME {
  const char* pName;
  uint32_t Number;
};

constexpr INTERFACE_NAME INTERFACES[] = {
    {"JTAG", 0}, {"SWD", 1}, {"UART", 3},  {"FINE", 3},          {"2-wire-JTAG-PIC32", 4}, {"ICSP", 4},
    {"SPI", 5},  {"C2", 6},  {"cJTAG", 7}, {"MC2WJTAG_TDI", 10}, {"2-wire", 10},
};

int32_t HandleOperation(const CMDLINE_OPTION*, const char* value) {
  UTIL_CopyString(settings.acOperation, value, sizeof(settings.acOperation));
  return 0;
}

int32_t HandleScriptFile(const CMDLINE_OPTION*, const char* value) {
  UTIL_CopyString(settings.acScriptFile, value, sizeof(settings.acScriptFile));
  return 0;
}

// Copies length characters into the arena, terminated; null when memory is exhausted.
const char* KeepText(const char* s, uint32_t length) {
  auto* pCopy = static_cast<char*>(OTALLOC_Alloc(pPairArena, length + 1));
  if (pCopy != nullptr) {
    memcpy(pCopy, s, length);  // The arena is zero-filled.
  }
  return pCopy;
}

int32_t FailPair(const CMDLINE_OPTION* pOption, const char* reason) {
  printf("%s: %s\n", pOption->pName, reason);
  return -1;
}

int32_t HandleSetConfigVal(const CMDLINE_OPTION* pOption, const char* value) {
  static constexpr char NO_MEMORY[] = "Failed to allocate memory";
  static constexpr char SYNTAX_ERROR[] = "Syntax error";

  auto* pNode = static_cast<CONFIG_VAL_NODE*>(OTALLOC_Alloc(pPairArena, sizeof(CONFIG_VAL_NODE)));
  if (pNode == nullptr) {
    return FailPair(pOption, NO_MEMORY);
  }
  const int32_t keyLen = UTIL_FindChar(value, '=');
  if (keyLen <= 0) {
    return FailPair(pOption, SYNTAX_ERROR);
  }
  pNode->pKey = KeepText(value, static_cast<uint32_t>(keyLen));
  if (pNode->pKey == nullptr) {
    return FailPair(pOption, NO_MEMORY);
  }
  const char* text = value + keyLen + 1;
  if (*text == '\0') {
    return FailPair(pOption, SYNTAX_ERROR);
  }
  pNode->pValue = KeepText(text, UTIL_StrLen(text));
  if (pNode->pValue == nullptr) {
    return FailPair(pOption, NO_MEMORY);
  }
  pNode->pNext = settings.pConfigVals;
  settings.pConfigVals = pNode;
  return 0;
}

int32_t HandleTIF(const CMDLINE_OPTION* pOption, const char* value) {
  for (const INTERFACE_NAME& entry : INTERFACES) {
    if (UTIL_CompareNoCase(value, entry.pName) == 0) {
      settings.TIF = entry.Number;
      return 0;
    }
  }
  printf("Option '%s': Unknown interface '%s'\n", pOption->pName, value);
  return -1;
}

int32_t HandleSpeed(const CMDLINE_OPTION* pOption, const char* value) {
  uint32_t speed = SPEED_ADAPTIVE;
  if (UTIL_CompareNoCase(value, "adaptive") != 0 && UTIL_ParseU32(&value, &speed) < 0) {
    printf("Option '%s': Invalid value\n", pOption->pName);
    return -1;
  }
  settings.Speed = speed;
  return 0;
}

int32_t HandleIP(const CMDLINE_OPTION*, const char* value) {
  settings.HostIF = HOST_IF_IP;
  UTIL_CopyString(settings.acIPAddr, value, sizeof(settings.acIPAddr));
  return 0;
}

int32_t HandleUSB(const CMDLINE_OPTION*, const char* value) {
  settings.HostIF = HOST_IF_USB;
  if (!UTIL_IsDecimalString(value)) {
    UTIL_CopyString(settings.acNickname, value, sizeof(settings.acNickname));
    settings.USBSelectMode = USB_SELECT_BY_NICKNAME;
    return 0;
  }
  uint32_t number;
  if (UTIL_StrToU32(value, &number) < 0) {
    printf("ERROR while parsing value for usb.\n");
    return -1;
  }
  settings.USBNumber = static_cast<int32_t>(number);
  settings.USBSelectMode = USB_SELECT_BY_NUMBER;
  return 0;
}

int32_t HandleModule(const CMDLINE_OPTION*, const char* value) {
  uint32_t index;
  if (UTIL_ParseU32(&value, &index) < 0) {
    printf("ERROR while parsing value for <ModuleIndex>.\n");
    return -1;
  }
  settings.ModuleIndex = index;
  settings.HasModule = 1;
  return 0;
}

constexpr CMDLINE_OPTION OPTIONS[] = {
    {HandleOperation, "-Operation", 1,
     "Specify operation to perform. Available operations depend on specified script file"},
    {HandleScriptFile, "-ScriptFile", 1, "Script file to be used for current session"},
    {HandleSetConfigVal, "-SetConfigVal", 1, "Sets a key-value pair. Usage: -SetCconfigVal \"<Key>=<Val>\""},
    {HandleTIF, "-TIF", 1, "Selects the target interface to be used"},
    {HandleTIF, "-If", 1, "Selects the target interface to be used"},
    {HandleSpeed, "-Speed", 1, "Sets the target interface speed to be used"},
    {HandleIP, "-IP", 1, "Selects TCP/IP host interface to be used. Usage: -IP <IPAddr>"},
    {HandleUSB, "-USB", 1, "Selects USB host interface to be used. Usage: -USB [<SN>]"},
    {HandleModule, "-Module", 1,
     "Selects the module to communicate with (Rondel Hub only). Usage: -Module <ModuleIndex>"},
};

const CMDLINE_OPTION* FindOption(const char* name) {
  for (const CMDLINE_OPTION& option : OPTIONS) {
    if (UTIL_CompareNoCase(name, option.pName) == 0) {
      return &option;
    }
  }
  return nullptr;
}

}  // namespace

void CMDLINE_Init(OTALLOC* pArena) {
  settings = {};
  settings.TIF = TIF_NONE;
  settings.Speed = SPEED_NONE;
  settings.HostIF = HOST_IF_USB;
  pPairArena = pArena;
}

int32_t CMDLINE_Parse(int argc, char** argv) {
  for (int i = 1; i < argc; i += 2) {
    const char* name = argv[i];
    UTIL_SkipWhiteSpace(&name);
    const CMDLINE_OPTION* pOption = FindOption(name);
    if (pOption == nullptr) {
      printf("Unknown command line option: %s\n", name);
      return -1;
    }
    if (i + 1 == argc) {
      printf("Missing parameter after command line option '%s'\n", name);
      return -1;
    }
    if (pOption->pfHandler(pOption, argv[i + 1]) < 0) {
      return -1;
    }
  }
  return 0;
}

SESSION_SETTINGS* CMDLINE_GetSettings(void) {
  return &settings;
}
