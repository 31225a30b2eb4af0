// Keys are elements of a hive's document, found by walking down from the element of a root or of another key. None is
// created that the document's reader would refuse.

#include "xml/registry.h"

#include "sys/sys_memory.h"
#include "util/scan.h"
#include "util/strings.h"
#include "xml/hive.h"
#include "xml/xml.h"

namespace {

// Reads one name of a path, and the separator behind it, into the SYS_REG_MAX_NAME_BYTES bytes at pDest. Returns
// whether it fits.
bool ReadKeyName(const char** ppPath, char* pDest) {
  uint32_t length = 0;
  pDest[0] = '\0';
  UTIL_SkipWhiteSpace(ppPath);
  while (**ppPath != '\0' && **ppPath != '\\') {
    if (UTIL_ParseToken(ppPath, pDest + length, SYS_REG_MAX_NAME_BYTES - length, '\\') != nullptr) {
      return false;
    }
    length += UTIL_StrLen(pDest + length);
    UTIL_SkipWhiteSpace(ppPath);
  }
  *ppPath += **ppPath == '\\';
  return true;
}

uint32_t DepthOf(const XML_ELEMENT* pElement) {
  uint32_t depth = 0;
  while (pElement->pParent != nullptr) {
    pElement = pElement->pParent;
    depth++;
  }
  return depth;
}

XML_ELEMENT* FindOrCreateChild(XML_DOC* pDoc, XML_ELEMENT* pParent, const char* name, bool isCreating) {
  XML_ELEMENT* pChild = XML_FindChild(pDoc, pParent, name);
  if (pChild != nullptr || !isCreating || UTIL_StrLen(name) > XML_MAX_NAME_LEN || DepthOf(pParent) >= XML_MAX_DEPTH) {
    return pChild;
  }
  return XML_AddChild(pDoc, pParent, name);
}

XML_ELEMENT* Walk(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* path, bool isCreating) {
  char acName[SYS_REG_MAX_NAME_BYTES];
  while (pElement != nullptr) {
    if (!ReadKeyName(&path, acName)) {
      return nullptr;
    }
    if (acName[0] == '\0') {
      break;
    }
    XML_MakeName(acName);
    pElement = FindOrCreateChild(pDoc, pElement, acName, isCreating);
  }
  return pElement;
}

SYS_REG_HANDLE OpenOrCreate(SYS_REG_HANDLE handle, const char* path, bool isCreating) {
  XML_ELEMENT* pElement;
  SYS_REG_HIVE* pHive;
  if (path == nullptr || SYS_REG_GetHive(handle, &pElement, &pHive) < 0) {
    return nullptr;
  }
  pElement = Walk(pHive->pDoc, pElement, path, isCreating);
  if (pElement == nullptr) {
    return nullptr;
  }
  auto* pKey = static_cast<SYS_REG_KEY*>(SYS_Alloc(sizeof(SYS_REG_KEY)));
  if (pKey != nullptr) {
    *pKey = {pHive, pElement};
    pHive->NumUsers++;
  }
  return pKey;
}

}  // namespace

SYS_REG_HANDLE SYS_REG_OpenKey(SYS_REG_HANDLE handle, const char* path) {
  return OpenOrCreate(handle, path, false);
}

SYS_REG_HANDLE SYS_REG_CreateKey(SYS_REG_HANDLE handle, const char* path) {
  return OpenOrCreate(handle, path, true);
}

void SYS_REG_CloseKey(SYS_REG_HANDLE handle) {
  if (handle != nullptr && SYS_REG_IsRoot(handle) == 0) {
    SYS_REG_ReleaseHive(handle->pHive, 0);
    SYS_Free(handle);
  }
}

uint32_t SYS_REG_EnumKey(SYS_REG_HANDLE handle, uint32_t index, char* pBuffer, uint32_t size) {
  UTIL_CopyString(pBuffer, "", size);
  XML_ELEMENT* pElement;
  SYS_REG_HIVE* pHive;
  if (pBuffer == nullptr || SYS_REG_GetHive(handle, &pElement, &pHive) < 0) {
    return SYS_REG_ERROR;
  }
  XML_ELEMENT* pChild = XML_GetFirstChild(pHive->pDoc, pElement);
  for (; pChild != nullptr && index != 0; index--) {
    pChild = XML_GetNext(pHive->pDoc, pChild);
  }
  return XML_GetName(pHive->pDoc, pChild, pBuffer, size) < 0 ? SYS_REG_ERROR : SYS_REG_OK;
}
