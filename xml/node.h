#ifndef XML_NODE_H
#define XML_NODE_H

// Inside the module: how records lie in the arena, how they are linked, and what names are made of.
//
// A record and its texts are one request to the arena. An element is followed by a hint at its last child, which is why
// records come from this module alone: without it, every append would walk all the children.

#include <stdint.h>
#include <string.h>

#include "util/otalloc.h"
#include "util/strings.h"
#include "xml/xml.h"

struct XML_NODE : XML_ELEMENT {
  XML_ELEMENT* pLastChild;  // A child behind which no, or few, others follow; null when not known.
};

constexpr uint8_t XML_CLASS_SPACE = 1;  // White space.
constexpr uint8_t XML_CLASS_NAME = 2;   // What names consist of.
constexpr uint8_t XML_CLASS_START = 4;  // What names begin with.

struct XML_CLASS_TABLE {
  uint8_t aClass[256];

  constexpr XML_CLASS_TABLE() : aClass{} {
    for (uint32_t c = 0; c < 256; c++) {
      const bool isLetter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
      if (isLetter || (c >= '0' && c <= '9') || c == '_') {
        aClass[c] = XML_CLASS_NAME | XML_CLASS_START;
      }
    }
    aClass[uint8_t{'-'}] = XML_CLASS_NAME;
    for (const char* p = " \t\r\n"; *p != '\0'; p++) {
      aClass[static_cast<uint8_t>(*p)] = XML_CLASS_SPACE;
    }
  }
};

[[gnu::visibility("hidden")]] inline constexpr XML_CLASS_TABLE XML_CLASSES;

inline bool XML_IsClass(char c, uint8_t classes) {
  return (XML_CLASSES.aClass[static_cast<uint8_t>(c)] & classes) != 0;
}

// Compares names, which are not empty. Those of one list often have a length and a beginning in common, and differ in
// their last characters.
inline bool XML_IsSameName(const char* a, size_t lengthA, const char* b, size_t lengthB) {
  constexpr int CASE_BIT = 'a' ^ 'A';
  if (lengthA != lengthB || ((a[lengthA - 1] ^ b[lengthA - 1]) & ~CASE_BIT) != 0) {
    return false;
  }
  return memcmp(a, b, lengthA) == 0 || UTIL_CompareNoCaseN(a, b, lengthA) == 0;
}

// Copies a text that need not be terminated to pDest and terminates it there.
inline const char* XML_PlaceText(char* pDest, const char* s, size_t length) {
  memcpy(pDest, s, length);
  pDest[length] = '\0';
  return pDest;
}

// Returns a request of numBytes bytes, or null also when so many bytes cannot be asked for.
inline char* XML_Request(OTALLOC* pArena, uint64_t numBytes) {
  return numBytes > UINT32_MAX ? nullptr : static_cast<char*>(OTALLOC_Alloc(pArena, static_cast<uint32_t>(numBytes)));
}

// Returns an element that is not linked yet, or null.
inline XML_ELEMENT* XML_NewElement(OTALLOC* pArena, const char* name, size_t length) {
  char* p = XML_Request(pArena, sizeof(XML_NODE) + uint64_t{length} + 1);
  if (p == nullptr) {
    return nullptr;
  }
  auto* pElement = reinterpret_cast<XML_NODE*>(p);
  pElement->pName = XML_PlaceText(p + sizeof(XML_NODE), name, length);
  pElement->NameLen = static_cast<uint32_t>(length);
  return pElement;
}

// Returns an attribute that is not linked yet, or null.
inline XML_ATTR* XML_NewAttr(OTALLOC* pArena, const char* name, size_t nameLength, const char* value,
                             size_t valueLength) {
  char* p = XML_Request(pArena, sizeof(XML_ATTR) + uint64_t{nameLength} + 1 + valueLength + 1);
  if (p == nullptr) {
    return nullptr;
  }
  auto* pAttr = reinterpret_cast<XML_ATTR*>(p);
  p += sizeof(XML_ATTR);
  pAttr->pName = XML_PlaceText(p, name, nameLength);
  pAttr->pValue = XML_PlaceText(p + nameLength + 1, value, valueLength);
  pAttr->NameLen = static_cast<uint32_t>(nameLength);
  pAttr->ValueLen = static_cast<uint32_t>(valueLength);
  return pAttr;
}

inline XML_NODE* XML_NodeOf(XML_ELEMENT* pElement) {
  return static_cast<XML_NODE*>(pElement);
}

// Follows the links to the end of a chain, which may be empty.
inline XML_ELEMENT* XML_LastOf(XML_ELEMENT* pElement) {
  while (pElement != nullptr && pElement->pNext != nullptr) {
    pElement = pElement->pNext;
  }
  return pElement;
}

// Returns the last child, or null when there is none.
inline XML_ELEMENT* XML_LastChild(XML_ELEMENT* pParent) {
  XML_ELEMENT* pHint = XML_NodeOf(pParent)->pLastChild;
  return XML_LastOf(pHint != nullptr ? pHint : pParent->pFirstChild);
}

// Appends an attribute to the list of an element, whose last one is pLast, null for an empty list.
inline void XML_LinkAttr(XML_ELEMENT* pElement, XML_ATTR* pLast, XML_ATTR* pAttr) {
  pAttr->pPrev = pLast;
  *(pLast != nullptr ? &pLast->pNext : &pElement->pFirstAttr) = pAttr;
}

// Links an element behind pLast, null when it is the first one of its chain, below pParent, null at the top level.
inline void XML_Link(XML_DOC* pDoc, XML_ELEMENT* pParent, XML_ELEMENT* pLast, XML_ELEMENT* pElement) {
  pElement->pParent = pParent;
  pElement->pPrev = pLast;
  if (pLast != nullptr) {
    pLast->pNext = pElement;
  } else if (pParent != nullptr) {
    pParent->pFirstChild = pElement;
  } else {
    pDoc->pRoot = pElement;
  }
  if (pParent != nullptr) {
    XML_NodeOf(pParent)->pLastChild = pElement;
  }
}

#endif
