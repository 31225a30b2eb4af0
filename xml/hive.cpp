// Owns the table of hives. A slot is either all zero or loaded; the file that it was loaded from is remembered, since
// the environment that named it may change before the write-back. Whether something changed is told by the text alone,
// so that no operation on the document needs to report it.

#include "xml/hive.h"

#include <string.h>

#include <iterator>

#include "sys/sys.h"
#include "util/printf.h"
#include "util/strings.h"

namespace {

constexpr const char* FILE_NAMES[] = {
    "NORDAX_REG_HKEY_CLASSES_ROOT.xml",
    "NORDAX_REG_HKEY_CURRENT_USER.xml",
    "NORDAX_REG_HKEY_LOCAL_MACHINE.xml",
};
constexpr const char ROOT_NAME[] = "Registry";
constexpr const char BAD_SUFFIX[] = ".bad";
constexpr uint32_t MAX_PATH_BYTES = 512;
constexpr uint32_t NUM_OPEN_RETRIES = 3;
constexpr uint32_t OPEN_RETRY_DELAY_MS = 5;
constexpr uintptr_t FIRST_ROOT = 0x80000000;
constexpr uintptr_t LAST_ROOT = 0x80000006;

struct SLOT : SYS_REG_HIVE {
  uint32_t IsBad;  // The file holds something that is no document.
  char acPath[MAX_PATH_BYTES];
};

SLOT aSlots[std::size(FILE_NAMES)];

}  // namespace

int32_t SYS_REG_IsRoot(SYS_REG_HANDLE handle) {
  const auto value = reinterpret_cast<uintptr_t>(handle);
  return value >= FIRST_ROOT && value <= LAST_ROOT ? 1 : 0;
}

namespace {

// Puts the path of a hive's file together. One that does not fit whole would name another file, perhaps one for two
// hives. Two separators at its start name a network share, and stay as they are.
bool FormPath(const char* dir, const char* fileName, char* pDest) {
  if (UTIL_snprintf(pDest, MAX_PATH_BYTES, "%s/%s", dir, fileName) >= static_cast<int32_t>(MAX_PATH_BYTES)) {
    return false;
  }
  const bool isShare = (pDest[0] == '/' || pDest[0] == '\\') && pDest[1] == pDest[0];
  SYS_NormalizeSlashes(isShare ? pDest + 2 : pDest);
  return true;
}

// Returns the document's text in a block of SYS_REG_MAX_HIVE_SIZE bytes, to be freed with SYS_Free, and its length;
// null and a negative length when the text is longer or memory is exhausted. The block costs the pages that the text
// fills.
char* MakeText(XML_DOC* pDoc, int32_t* pLength) {
  *pLength = -1;
  auto* pText = static_cast<char*>(SYS_Alloc(SYS_REG_MAX_HIVE_SIZE));
  if (pText == nullptr) {
    return nullptr;
  }
  *pLength = XML_Save(pDoc, pText, SYS_REG_MAX_HIVE_SIZE, 0);
  if (*pLength < 0) {
    SYS_FreeAndClear(reinterpret_cast<void**>(&pText));
  }
  return pText;
}

int32_t TakeSnapshot(SLOT& slot) {
  int32_t length;
  char* pText = MakeText(slot.pDoc, &length);
  if (pText == nullptr) {
    return length;
  }
  slot.pSnapshot = static_cast<char*>(SYS_Alloc(static_cast<uint32_t>(length)));
  if (slot.pSnapshot != nullptr) {
    slot.SnapshotLen = static_cast<uint32_t>(length);
    memcpy(slot.pSnapshot, pText, slot.SnapshotLen);
  }
  SYS_Free(pText);
  return static_cast<int32_t>(slot.SnapshotLen);
}

// Returns the document of a file, an empty one when the file is none, or null.
XML_DOC* LoadDoc(int32_t fd, uint32_t* pIsBad) {
  XML_DOC* pDoc = XML_LoadFd(fd);
  *pIsBad = pDoc == nullptr && SYS_FILE_GetSize(fd) != 0;
  return pDoc != nullptr ? pDoc : XML_CreateDoc(ROOT_NAME);
}

// Returns the length of the snapshot, or a negative result, upon which the slot can be loaded all the same.
int32_t Load(SLOT& slot, const char* path) {
  const int32_t fd =
      SYS_FILE_OpenEx(path, SYS_FILE_READ | SYS_FILE_WRITE | SYS_FILE_CREATE, NUM_OPEN_RETRIES, OPEN_RETRY_DELAY_MS);
  if (fd < 0) {
    return -1;
  }
  uint32_t isBad;
  XML_DOC* pDoc = LoadDoc(fd, &isBad);
  if (pDoc == nullptr) {
    SYS_FILE_Close(fd);
    return -1;
  }
  slot.pDoc = pDoc;
  slot.Fd = fd;
  slot.IsBad = isBad;
  UTIL_CopyString(slot.acPath, path, sizeof(slot.acPath));
  return TakeSnapshot(slot);
}

}  // namespace

int32_t SYS_REG_GetHive(SYS_REG_HANDLE handle, XML_ELEMENT** ppElement, SYS_REG_HIVE** ppHive) {
  const bool isRoot = SYS_REG_IsRoot(handle) != 0;
  const uintptr_t index = reinterpret_cast<uintptr_t>(handle) - FIRST_ROOT;
  if (handle == nullptr || (isRoot && index >= std::size(aSlots))) {
    return -1;
  }
  *ppElement = nullptr;
  char acDir[MAX_PATH_BYTES];
  if (SYS_GetAppDataDir(acDir, sizeof(acDir)) < 0) {
    return -1;
  }
  if (!isRoot) {
    *ppElement = handle->pElement;
    *ppHive = handle->pHive;
    return 0;
  }
  char acPath[MAX_PATH_BYTES];
  if (!FormPath(acDir, FILE_NAMES[index], acPath)) {
    return -1;
  }
  SLOT& slot = aSlots[index];
  const int32_t result = slot.pDoc != nullptr ? 0 : Load(slot, acPath);
  if (result >= 0) {
    *ppElement = XML_GetRoot(slot.pDoc);
    *ppHive = &slot;
  }
  return result;
}

namespace {

void WriteBack(const SLOT& slot) {
  int32_t length;
  char* pText = MakeText(slot.pDoc, &length);
  if (pText == nullptr) {
    return;
  }
  const auto numBytes = static_cast<uint32_t>(length);
  if (slot.pSnapshot == nullptr || slot.SnapshotLen != numBytes || memcmp(slot.pSnapshot, pText, numBytes) != 0) {
    SYS_FILE_Replace(slot.acPath, pText, numBytes, slot.IsBad != 0 ? BAD_SUFFIX : nullptr, slot.Fd);
  }
  SYS_Free(pText);
}

}  // namespace

void SYS_REG_ReleaseHive(SYS_REG_HIVE* pHive, int32_t force) {
  if (pHive->pDoc == nullptr) {
    return;
  }
  if (force == 0 && pHive->NumUsers != 1) {
    pHive->NumUsers -= pHive->NumUsers != 0;
    return;
  }
  SLOT& slot = *static_cast<SLOT*>(pHive);
  WriteBack(slot);
  XML_FreeDoc(slot.pDoc);
  SYS_FILE_Close(slot.Fd);
  SYS_Free(slot.pSnapshot);
  slot = {};
}

void SYS_REG_SaveAll(void) {
  for (SLOT& slot : aSlots) {
    SYS_REG_ReleaseHive(&slot, 1);
  }
}
