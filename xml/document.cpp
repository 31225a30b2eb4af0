// Documents as a whole, the way through them, and the building of elements. Elements are made complete before they are
// linked, so that a failure leaves no trace in the tree; what it took of the arena stays taken.

#include <string.h>

#include <algorithm>

#include "sys/sys_file.h"
#include "sys/sys_memory.h"
#include "xml/node.h"
#include "xml/xml.h"

namespace {

constexpr uint32_t MAX_READ_BYTES = 0x40000000;

XML_DOC* NewDoc() {
  OTALLOC* pArena = OTALLOC_Create();
  if (pArena == nullptr) {
    return nullptr;
  }
  auto* pDoc = static_cast<XML_DOC*>(OTALLOC_Alloc(pArena, sizeof(XML_DOC)));  // Always fits the first block.
  pDoc->pArena = pArena;
  return pDoc;
}

bool IsEmpty(const char* s) {
  return s == nullptr || s[0] == '\0';
}

}  // namespace

XML_DOC* XML_CreateDoc(const char* rootName) {
  if (IsEmpty(rootName)) {
    return nullptr;
  }
  XML_DOC* pDoc = NewDoc();
  if (pDoc == nullptr) {
    return nullptr;
  }
  pDoc->pRoot = XML_NewElement(pDoc->pArena, rootName, strlen(rootName));
  if (pDoc->pRoot == nullptr) {
    XML_FreeDoc(pDoc);
    return nullptr;
  }
  return pDoc;
}

namespace {

// Reads up to size bytes; a file that has become shorter meanwhile just ends earlier. Returns the number of bytes, or
// -1.
int64_t ReadAll(int32_t fd, char* pDest, uint32_t size) {
  uint32_t numRead = 0;
  while (numRead < size) {
    const int32_t result = SYS_FILE_Read(fd, pDest + numRead, std::min(size - numRead, MAX_READ_BYTES));
    if (result < 0) {
      return -1;
    }
    if (result == 0) {
      break;
    }
    numRead += static_cast<uint32_t>(result);
  }
  return numRead;
}

// Returns the text of a file, to be freed with SYS_Free, or null when there is none.
char* ReadText(int32_t fd) {
  const int64_t size = SYS_FILE_GetSize(fd);
  if (size <= 0 || size >= UINT32_MAX || SYS_FILE_Seek(fd, 0, 0) != 0) {
    return nullptr;
  }
  auto* pText = static_cast<char*>(SYS_Alloc(static_cast<uint32_t>(size) + 1));
  if (pText == nullptr) {
    return nullptr;
  }
  const int64_t length = ReadAll(fd, pText, static_cast<uint32_t>(size));
  if (length < 0) {
    SYS_Free(pText);
    return nullptr;
  }
  pText[length] = '\0';
  return pText;
}

}  // namespace

XML_DOC* XML_LoadFd(int32_t fd) {
  char* pText = ReadText(fd);
  if (pText == nullptr) {
    return nullptr;
  }
  XML_DOC* pDoc = NewDoc();
  const char* pPos = pText;
  const int32_t result = XML_Parse(pDoc, &pPos, nullptr, 0);
  SYS_Free(pText);
  if (result < 0 || pDoc->pRoot == nullptr) {
    XML_FreeDoc(pDoc);
    return nullptr;
  }
  return pDoc;
}

XML_DOC* XML_LoadFile(const char* path) {
  const int32_t fd = path == nullptr ? -1 : SYS_FILE_Open(path, SYS_FILE_READ);
  if (fd < 0) {
    return nullptr;
  }
  XML_DOC* pDoc = XML_LoadFd(fd);
  SYS_FILE_Close(fd);
  return pDoc;
}

int32_t XML_FreeDoc(XML_DOC* pDoc) {
  if (pDoc != nullptr) {
    OTALLOC_Destroy(pDoc->pArena);
  }
  return 0;
}

XML_ELEMENT* XML_GetRoot(XML_DOC* pDoc) {
  return pDoc == nullptr ? nullptr : pDoc->pRoot;
}

XML_ELEMENT* XML_FindSibling(XML_DOC* pDoc, XML_ELEMENT* pStart, const char* name) {
  (void)pDoc;
  if (name == nullptr) {
    return nullptr;
  }
  const size_t length = strlen(name);
  XML_ELEMENT* pElement = pStart;
  while (pElement != nullptr && !XML_IsSameName(pElement->pName, pElement->NameLen, name, length)) {
    pElement = pElement->pNext;
  }
  return pElement;
}

XML_ELEMENT* XML_FindTop(XML_DOC* pDoc, const char* name) {
  return XML_FindSibling(pDoc, XML_GetRoot(pDoc), name);
}

XML_ELEMENT* XML_GetFirstChild(XML_DOC* pDoc, XML_ELEMENT* pElement) {
  (void)pDoc;
  return pElement == nullptr ? nullptr : pElement->pFirstChild;
}

XML_ELEMENT* XML_GetNext(XML_DOC* pDoc, XML_ELEMENT* pElement) {
  (void)pDoc;
  return pElement == nullptr ? nullptr : pElement->pNext;
}

XML_ELEMENT* XML_FindChild(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name) {
  return XML_FindSibling(pDoc, XML_GetFirstChild(pDoc, pElement), name);
}

int32_t XML_GetName(XML_DOC* pDoc, const XML_ELEMENT* pElement, char* pBuffer, uint32_t size) {
  (void)pDoc;
  if (pElement == nullptr || pBuffer == nullptr) {
    return -1;
  }
  UTIL_CopyString(pBuffer, pElement->pName, size);
  return static_cast<int32_t>(pElement->NameLen);
}

namespace {

XML_ELEMENT* Append(XML_DOC* pDoc, XML_ELEMENT* pParent, XML_ELEMENT* pLast, const char* name) {
  XML_ELEMENT* pElement = XML_NewElement(pDoc->pArena, name, strlen(name));
  if (pElement != nullptr) {
    XML_Link(pDoc, pParent, pLast, pElement);
  }
  return pElement;
}

XML_ELEMENT* FirstSibling(XML_ELEMENT* pElement) {
  if (pElement->pParent != nullptr) {
    return pElement->pParent->pFirstChild;
  }
  while (pElement->pPrev != nullptr) {
    pElement = pElement->pPrev;
  }
  return pElement;
}

}  // namespace

XML_ELEMENT* XML_AddChild(XML_DOC* pDoc, XML_ELEMENT* pParent, const char* name) {
  if (pDoc == nullptr || pParent == nullptr || IsEmpty(name)) {
    return nullptr;
  }
  return Append(pDoc, pParent, XML_LastChild(pParent), name);
}

XML_ELEMENT* XML_AddChildUnique(XML_DOC* pDoc, XML_ELEMENT* pParent, const char* name) {
  XML_ELEMENT* pFound = XML_FindChild(pDoc, pParent, name);
  return pFound != nullptr ? pFound : XML_AddChild(pDoc, pParent, name);
}

XML_ELEMENT* XML_AddSibling(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name) {
  if (pDoc == nullptr || pElement == nullptr || IsEmpty(name)) {
    return nullptr;
  }
  XML_ELEMENT* pParent = pElement->pParent;
  return Append(pDoc, pParent, pParent != nullptr ? XML_LastChild(pParent) : XML_LastOf(pElement), name);
}

XML_ELEMENT* XML_AddSiblingUnique(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name) {
  XML_ELEMENT* pFound = pElement == nullptr ? nullptr : XML_FindSibling(pDoc, FirstSibling(pElement), name);
  return pFound != nullptr ? pFound : XML_AddSibling(pDoc, pElement, name);
}

XML_ELEMENT* XML_SetText(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, const char* text) {
  if (pElement == nullptr || IsEmpty(name) || IsEmpty(text)) {
    return nullptr;
  }
  XML_ELEMENT* pFound = XML_FindSibling(pDoc, FirstSibling(pElement), name);
  if (pFound != nullptr) {
    pFound->pText = text;
    pFound->TextLen = UTIL_StrLen(text);
  }
  return pFound;
}

void XML_MakeName(char* s) {
  if (s[0] == '-') {
    s[0] = '_';
  }
  for (; *s != '\0'; s++) {
    if (!XML_IsClass(*s, XML_CLASS_NAME)) {
      *s = '_';
    }
  }
}
