// A client in C: calls one operation of each module, so that a header which only C++ accepts, or a name without C
// linkage, does not go unnoticed.

#include <stdio.h>
#include <string.h>

#include "sys/sys.h"
#include "util/bits.h"
#include "util/crc.h"
#include "util/dynbuffer.h"
#include "util/fmt.h"
#include "util/hashtree.h"
#include "util/otalloc.h"
#include "util/printf.h"
#include "util/scan.h"
#include "util/strings.h"
#include "util/values.h"
#include "xml/hive.h"
#include "xml/registry.h"
#include "xml/xml.h"

static int numFailures;

static void Expect(int isTrue, const char* what) {
  if (!isTrue) {
    printf("failed: %s\n", what);
    numFailures++;
  }
}

static int32_t CompareKeys(const void* pItem, const void* pKey) {
  return !UTIL_IsEqualKeyNoCase(pItem, pKey);
}

static void TestText(void) {
  char acText[16];
  const char* cursor = " 0x10,";
  uint32_t value = 0;
  Expect(UTIL_CopyString(acText, "abc", sizeof(acText)) == 4, "strings");
  Expect(UTIL_snprintf(acText, sizeof(acText), "%04X", 0xABu) == 4 && strcmp(acText, "00AB") == 0, "printf");
  Expect(*FMT_snprintf(acText, sizeof(acText), "%x", 0xABu) == 0 && strcmp(acText, "ab") == 0, "fmt");
  Expect(UTIL_ParseU32(&cursor, &value) == 0 && value == 16 && *cursor == ',', "scan");
  Expect(UTIL_FormatSize(1536, acText, sizeof(acText)) == 6 && strcmp(acText, "1.5 KB") == 0, "values");
  Expect(UTIL_ReverseBits8(1) == 0x80, "bits");
  Expect(CRC_Calc32("123456789", 9, 0) == 0x2DFD2D88, "crc");
}

static void TestMemory(void) {
  const char* entry = "Key";
  const char* key = "KEY";
  OTALLOC* pArena = OTALLOC_Create();
  HASHTREE* pTree = HASHTREE_Create(UTIL_HashKeyNoCase, CompareKeys);
  void* p = SYS_Alloc(8);
  Expect(OTALLOC_Alloc(pArena, 8) != NULL, "otalloc");
  HASHTREE_Add(pTree, &entry);
  Expect(HASHTREE_Find(pTree, &key) == &entry, "hashtree");
  Expect(p != NULL, "memory");
  SYS_FreeAndClear(&p);
  HASHTREE_Destroy(pTree);
  DYNBUFFER buffer;
  Expect(DYNBUFFER_Init(&buffer, NULL, 64, 16, 0) == 0 && DYNBUFFER_AddU32(&buffer, 1) == 0, "dynbuffer");
  DYNBUFFER_DeInit(&buffer);
  XML_DOC* pDoc = XML_CreateDoc("Registry");
  Expect(XML_SetAttrU32(pDoc, XML_GetRoot(pDoc), "Count", 5) == 0, "xml");
  XML_FreeDoc(pDoc);
  Expect(SYS_REG_TypeFromName("SYS_REG_TYPE_QWORD") == SYS_REG_TYPE_QWORD, "registry");
  OTALLOC_Destroy(pArena);
}

static void TestSystem(void) {
  char acDir[512];
  SYS_GetExeDir(acDir, sizeof(acDir));
  Expect(SYS_IsAbsolutePath(acDir) == 1, "path");
  Expect(SYS_DIR_Exists("/") == 1 && SYS_FILE_Open("/", 0x93u) == -1 && SYS_WaitReadable(-1, 0) == -1, "files");
  uint32_t addr;
  Expect(SYS_SOCKET_ResolveHost("127.0.0.1", NULL, &addr) == 0 && addr == 0x7F000001u, "socket");
  Expect(SYS_GetNumCPUs() >= 1, "time");
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 1);
  Expect(pEvent != SYS_EVENT_INVALID && SYS_EVENT_Wait(pEvent, 0) == 0, "sync");
  SYS_EVENT_Delete(pEvent);
  Expect(SYS_THREAD_SetName("c client") == 0, "thread");
  Expect(SYS_COM_Enumerate(NULL, 0) >= 0, "serial");
  Expect(SYS_Fabs(-1) == 1, "services");
  Expect(SYS_PROC_Wait(0, NULL) == -1, "process");
}

int main(void) {
  TestText();
  TestMemory();
  TestSystem();
  return numFailures != 0;
}
