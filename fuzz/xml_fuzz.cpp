// Any text to a tree, saved and read again. The oracles: links that lead back, and the same tree and the same text
// after the way through the writer, whenever the text was accepted and the tree does not exceed what the writer writes.

#include "fuzz/input.h"
#include "xml/xml.h"

namespace {

std::vector<char> saveBuffer(XML_MAX_SAVE_BYTES);
XML_DOC* pFirst;
XML_DOC* pSecond;

void CheckAttributes(const XML_ELEMENT* pElement) {
  const XML_ATTR* pPrev = nullptr;
  for (const XML_ATTR* p = pElement->pFirstAttr; p != nullptr; pPrev = p, p = p->pNext) {
    FUZZ_EXPECT(p->pPrev == pPrev);
    FUZZ_EXPECT(strlen(p->pName) == p->NameLen && strlen(p->pValue) == p->ValueLen && p->NameLen != 0);
  }
}

void CheckChain(const XML_ELEMENT* pHead, const XML_ELEMENT* pParent) {
  const XML_ELEMENT* pPrev = nullptr;
  for (const XML_ELEMENT* p = pHead; p != nullptr; pPrev = p, p = p->pNext) {
    FUZZ_EXPECT(p->pParent == pParent && p->pPrev == pPrev);
    FUZZ_EXPECT(strlen(p->pName) == p->NameLen && p->NameLen != 0 && p->NameLen <= XML_MAX_NAME_LEN);
    CheckAttributes(p);
    CheckChain(p->pFirstChild, p);
  }
}

bool IsSameAttribute(const XML_ATTR* a, const XML_ATTR* b) {
  return strcmp(a->pName, b->pName) == 0 && strcmp(a->pValue, b->pValue) == 0;
}

void CheckSame(const XML_ELEMENT* a, const XML_ELEMENT* b) {
  for (; a != nullptr && b != nullptr; a = a->pNext, b = b->pNext) {
    FUZZ_EXPECT(strcmp(a->pName, b->pName) == 0);
    const XML_ATTR* pAttrA = a->pFirstAttr;
    const XML_ATTR* pAttrB = b->pFirstAttr;
    for (; pAttrA != nullptr && pAttrB != nullptr; pAttrA = pAttrA->pNext, pAttrB = pAttrB->pNext) {
      FUZZ_EXPECT(IsSameAttribute(pAttrA, pAttrB));
    }
    FUZZ_EXPECT(pAttrA == pAttrB);
    CheckSame(a->pFirstChild, b->pFirstChild);
  }
  FUZZ_EXPECT(a == b);
}

// Reads a text into a document that is used over and over until its first block is full: making a new one takes far
// longer than reading.
XML_DOC* Read(XML_DOC*& pDoc, const std::string& text, int32_t* pResult) {
  FUZZ_TEXT block(text);
  if (pDoc == nullptr || pDoc->pArena->pNext != nullptr) {
    XML_FreeDoc(pDoc);
    pDoc = XML_CreateDoc("x");
  }
  pDoc->pRoot = nullptr;
  const char* pPos = block.Get();
  *pResult = XML_Parse(pDoc, &pPos, nullptr, 0);
  FUZZ_EXPECT(pPos >= block.Get() && pPos <= block.Get() + text.size());
  FUZZ_EXPECT(*pResult != 0 || *pPos == '\0');
  CheckChain(pDoc->pRoot, nullptr);
  return pDoc;
}

// Returns whether the document fits the writer.
bool Save(XML_DOC* pDoc, uint32_t flags, std::string* pText) {
  const int32_t result = XML_Save(pDoc, saveBuffer.data(), static_cast<uint32_t>(saveBuffer.size()), flags);
  FUZZ_EXPECT(result >= 0 || result == -3);
  pText->assign(saveBuffer.data(), static_cast<size_t>(result < 0 ? 0 : result));
  return result >= 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t numBytes) {
  FUZZ_INPUT input(pData, numBytes);
  const uint32_t flags = input.Take<uint8_t>() % 2;
  int32_t result = 0;
  std::string saved;
  XML_DOC* pDoc = Read(pFirst, input.TakeText(numBytes), &result);
  if (result == 0 && Save(pDoc, flags, &saved)) {
    std::string savedAgain;
    XML_DOC* pReloaded = Read(pSecond, saved, &result);
    FUZZ_EXPECT(result == 0);
    CheckSame(pDoc->pRoot, pReloaded->pRoot);
    FUZZ_EXPECT(Save(pReloaded, flags, &savedAgain) && savedAgain == saved);
  }
  return 0;
}
