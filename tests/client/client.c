// A client in C: finds words again whatever their case, in an arena, and tells where it stands.

#include <stdio.h>
#include <string.h>

#include "sys/sys.h"
#include "util/hashtree.h"
#include "util/otalloc.h"
#include "util/printf.h"
#include "util/strings.h"

static int32_t CompareWords(const void* pItem, const void* pKey) {
  return !UTIL_IsEqualKeyNoCase(pItem, pKey);
}

int main(void) {
  char acDir[512];
  char acText[600];
  const char* key = "THERMOSTAT";
  OTALLOC* pArena = OTALLOC_Create();
  HASHTREE* pTree = HASHTREE_Create(UTIL_HashKeyNoCase, CompareWords);
  const char** ppWord = OTALLOC_Alloc(pArena, sizeof(*ppWord));
  *ppWord = "Thermostat";
  HASHTREE_Add(pTree, ppWord);
  const int isFound = HASHTREE_Find(pTree, &key) == ppWord;
  HASHTREE_Destroy(pTree);
  OTALLOC_Destroy(pArena);

  SYS_GetExeDir(acDir, sizeof(acDir));
  UTIL_snprintf(acText, sizeof(acText), "%s %04X", acDir, 0xABu);
  puts(acText);
  return isFound && SYS_IsAbsolutePath(acDir) && strcmp(acText + strlen(acDir), " 00AB") == 0 ? 0 : 1;
}
