// Line input, by itself: the one object of the layer that refers to libedit, so that only programs which read lines
// are linked with it and load it. The history is libedit's and lasts as long as the process.

#include <editline/readline.h>
#include <stdlib.h>

#include "sys/sys_services.h"
#include "util/strings.h"

int32_t SYS_ReadLine(const char* prompt, char* pBuffer, uint32_t size) {
  UTIL_CopyString(pBuffer, "", size);
  char* pLine = readline(prompt);
  if (pLine == nullptr) {
    return -1;
  }
  UTIL_CopyString(pBuffer, pLine, size);
  if (pLine[0] != '\0') {
    add_history(pLine);  // Takes a copy.
  }
  free(pLine);
  return 0;
}
