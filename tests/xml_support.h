#ifndef TESTS_XML_SUPPORT_H
#define TESTS_XML_SUPPORT_H

// What the tests of documents share: documents that free themselves, and trees as texts, with their links checked.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "xml/xml.h"

struct FREE_DOC {
  void operator()(XML_DOC* pDoc) const { XML_FreeDoc(pDoc); }
};

using DOC = std::unique_ptr<XML_DOC, FREE_DOC>;

// A document without an element, to read texts into.
inline DOC MakeEmptyDoc() {
  DOC doc(XML_CreateDoc("x"));
  doc->pRoot = nullptr;
  return doc;
}

// Appends what an element's children or the top-level elements look like: name(name=value ...){children}, each followed
// by a blank.
inline void AppendChain(std::string* pText, const XML_ELEMENT* pFirst, const XML_ELEMENT* pParent) {
  const XML_ELEMENT* pPrev = nullptr;
  for (const XML_ELEMENT* p = pFirst; p != nullptr; pPrev = p, p = p->pNext) {
    ASSERT_TRUE(p->pParent == pParent && p->pPrev == pPrev) << p->pName;
    ASSERT_EQ(strlen(p->pName), p->NameLen);
    *pText += p->pName;
    if (p->pText != nullptr) {
      pText->append(":").append(p->pText, p->TextLen);
    }
    const XML_ATTR* pPrevAttr = nullptr;
    for (const XML_ATTR* pAttr = p->pFirstAttr; pAttr != nullptr; pPrevAttr = pAttr, pAttr = pAttr->pNext) {
      ASSERT_EQ(pAttr->pPrev, pPrevAttr) << p->pName;
      ASSERT_TRUE(strlen(pAttr->pName) == pAttr->NameLen && strlen(pAttr->pValue) == pAttr->ValueLen) << pAttr->pName;
      pText->append(pPrevAttr == nullptr ? "(" : " ").append(pAttr->pName).append("=").append(pAttr->pValue);
    }
    *pText += pPrevAttr == nullptr ? "" : ")";
    if (p->pFirstChild != nullptr) {
      *pText += "{";
      AppendChain(pText, p->pFirstChild, p);
      *pText += "}";
    }
    *pText += " ";
  }
}

inline std::string TreeOf(const XML_DOC* pDoc) {
  std::string text;
  AppendChain(&text, pDoc->pRoot, nullptr);
  return text;
}

inline std::string TreeOf(const DOC& doc) {
  return TreeOf(doc.get());
}

// Leaves room for numBytes bytes in the document's arena, which must still have its first block alone.
inline void LeaveRoom(XML_DOC* pDoc, uint32_t numBytes) {
  OTALLOC_Alloc(pDoc->pArena, pDoc->pArena->Capacity - pDoc->pArena->Used - numBytes);
}

#endif
