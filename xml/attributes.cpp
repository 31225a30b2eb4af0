// The attribute list of an element. A value that is set again gets new storage: what the old one took of the arena is
// not reused, so that a caller's pointer to the old text stays good.

#include <string.h>

#include "xml/node.h"
#include "xml/xml.h"

namespace {

int32_t ReplaceValue(XML_DOC* pDoc, XML_ATTR* pAttr, const char* value, size_t length) {
  char* p = XML_Request(pDoc->pArena, uint64_t{length} + 1);
  if (p == nullptr) {
    return -1;
  }
  pAttr->pValue = XML_PlaceText(p, value, length);
  pAttr->ValueLen = static_cast<uint32_t>(length);
  return 0;
}

}  // namespace

int32_t XML_SetAttr(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, const char* value) {
  if (pDoc == nullptr || pElement == nullptr || name == nullptr || name[0] == '\0') {
    return -1;
  }
  if (value == nullptr) {
    value = "";
  }
  const size_t nameLength = strlen(name);
  XML_ATTR* pLast = nullptr;
  for (XML_ATTR* pAttr = pElement->pFirstAttr; pAttr != nullptr; pAttr = pAttr->pNext) {
    if (XML_IsSameName(pAttr->pName, pAttr->NameLen, name, nameLength)) {
      return ReplaceValue(pDoc, pAttr, value, strlen(value));
    }
    pLast = pAttr;
  }
  XML_ATTR* pNew = XML_NewAttr(pDoc->pArena, name, nameLength, value, strlen(value));
  if (pNew == nullptr) {
    return -1;
  }
  XML_LinkAttr(pElement, pLast, pNew);
  return 0;
}

XML_ATTR* XML_FindAttr(XML_DOC* pDoc, const XML_ELEMENT* pElement, const char* name) {
  (void)pDoc;
  if (pElement == nullptr || name == nullptr) {
    return nullptr;
  }
  const size_t length = strlen(name);
  XML_ATTR* pAttr = pElement->pFirstAttr;
  while (pAttr != nullptr && !XML_IsSameName(pAttr->pName, pAttr->NameLen, name, length)) {
    pAttr = pAttr->pNext;
  }
  return pAttr;
}

XML_ATTR* XML_GetFirstAttr(XML_DOC* pDoc, const XML_ELEMENT* pElement, char* pBuffer, uint32_t size) {
  (void)pDoc;
  XML_ATTR* pAttr = pElement == nullptr ? nullptr : pElement->pFirstAttr;
  if (pAttr != nullptr && pBuffer != nullptr) {
    UTIL_CopyString(pBuffer, pAttr->pName, size);
  }
  return pAttr;
}

int32_t XML_RemoveAttr(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name) {
  if (pElement == nullptr) {
    return -1;
  }
  XML_ATTR* pAttr = XML_FindAttr(pDoc, pElement, name);
  if (pAttr == nullptr) {
    return 1;
  }
  *(pAttr->pPrev != nullptr ? &pAttr->pPrev->pNext : &pElement->pFirstAttr) = pAttr->pNext;
  if (pAttr->pNext != nullptr) {
    pAttr->pNext->pPrev = pAttr->pPrev;
  }
  return 0;
}

int32_t XML_GetAttrValue(XML_DOC* pDoc, const XML_ATTR* pAttr, char* pBuffer, uint32_t size) {
  (void)pDoc;
  if (pAttr == nullptr || pBuffer == nullptr) {
    return -1;
  }
  UTIL_CopyString(pBuffer, pAttr->pValue, size);
  return static_cast<int32_t>(pAttr->ValueLen);
}
