// Console output without state beyond the standard stream.

#include "app/console.h"

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "util/fmt.h"

namespace {

constexpr uint32_t MAX_FORMAT_SIZE = 2048;
constexpr uint32_t TEXT_BYTES = 4096;

bool IsUsable(const char* format) {
  return format != nullptr && strnlen(format, MAX_FORMAT_SIZE) < MAX_FORMAT_SIZE;
}

void Print(const char* text) {
  fputs(text, stdout);
  fflush(stdout);
}

// Prints prefix and formatted text as one line.
void PrintMessage(const char* prefix, const char* format, va_list* pArgs) {
  if (!IsUsable(format)) {
    return;
  }
  char acText[TEXT_BYTES];
  char* pEnd = FMT_snprintf(acText, sizeof(acText), "%s", prefix);
  pEnd = FMT_vsnprintf(pEnd, static_cast<uint32_t>(acText + sizeof(acText) - pEnd), format, pArgs);
  if (pEnd[-1] != '\n') {  // The prefix keeps this in range.
    FMT_snprintf(pEnd, static_cast<uint32_t>(acText + sizeof(acText) - pEnd), "\n");
  }
  Print(acText);
}

}  // namespace

void CONSOLE_PrintText(const char* text) {
  Print(text);
}

void CONSOLE_PrintLine(const char* text) {
  CONSOLE_Printf("%s\r\n", text);
}

void CONSOLE_Printf(const char* format, ...) {
  if (!IsUsable(format)) {
    return;
  }
  char acText[TEXT_BYTES];
  va_list args;
  va_start(args, format);
  FMT_vsnprintf(acText, sizeof(acText), format, &args);
  va_end(args);
  Print(acText);
}

void CONSOLE_Warning(const char* format, ...) {
  va_list args;
  va_start(args, format);
  PrintMessage("WARNING: ", format, &args);
  va_end(args);
}

void CONSOLE_Error(const char* format, ...) {
  va_list args;
  va_start(args, format);
  PrintMessage("ERROR: ", format, &args);
  va_end(args);
}

void CONSOLE_ErrorText(const char* text) {
  Print("ERROR: ");
  Print(text);
  Print("\n");
}
