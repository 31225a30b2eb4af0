// The reader: one pass over a text that ends in a zero byte, which no class of characters contains, so that every scan
// stops there without knowing the length. Nested content is read in a loop, with the way back in the elements' parent
// links; the depth only counts. Every name and value is copied once, into the arena, and the text is not kept.

#include <string.h>

#include "xml/node.h"
#include "xml/xml.h"

namespace {

constexpr int32_t ERROR_NO_MEMORY = -1;
constexpr int32_t ERROR_NO_TAG = -2;
constexpr int32_t ERROR_NAME = -3;
constexpr int32_t ERROR_CLOSING_TOP = -4;
constexpr int32_t ERROR_CLOSING_NAME = -5;
constexpr int32_t ERROR_TAG_END = -6;
constexpr int32_t ERROR_DEPTH = -8;

constexpr size_t COMMENT_START_LEN = 4;

const char* SkipSpace(const char* p) {
  while (XML_IsClass(*p, XML_CLASS_SPACE)) {
    p++;
  }
  return p;
}

bool IsNameChar(char c) {
  return XML_IsClass(c, XML_CLASS_NAME);
}

// Names are half of a hive's text, hence the steps of four and the attribute.
[[gnu::always_inline]] inline const char* SkipName(const char* p) {
  while (IsNameChar(p[0])) {
    if (!IsNameChar(p[1])) {
      return p + 1;
    }
    if (!IsNameChar(p[2])) {
      return p + 2;
    }
    if (!IsNameChar(p[3])) {
      return p + 3;
    }
    p += 4;
  }
  return p;
}

bool IsComment(const char* p) {
  return p[0] == '<' && p[1] == '!' && p[2] == '-' && p[3] == '-';
}

// Finds the end of a comment, given what follows its start; null when there is none.
const char* FindCommentEnd(const char* const pStart) {
  const char* p = pStart;
  while ((p = strchr(p, '>')) != nullptr) {
    if (p - pStart >= 2 && p[-1] == '-' && p[-2] == '-') {
      return p + 1;
    }
    p++;
  }
  return nullptr;
}

}  // namespace

int32_t XML_SkipWS(const char** ppPos) {
  const char* p = SkipSpace(*ppPos);
  if (!IsComment(p)) {
    *ppPos = p;
    return 0;
  }
  p += COMMENT_START_LEN;
  const char* pEnd = FindCommentEnd(p);
  if (pEnd == nullptr) {
    *ppPos = p + strlen(p);
    return -1;
  }
  *ppPos = SkipSpace(pEnd);
  return 1;
}

int32_t XML_SkipAll(const char** ppPos) {
  int32_t result = 1;
  while (result == 1) {
    result = XML_SkipWS(ppPos);
  }
  return result;
}

namespace {

// The position in the text.
struct CURSOR {
  const char* pPos;

  // Skips white space and comments; a comment without an end leads to the end of the text.
  void Skip() {
    const char* p = SkipSpace(pPos);
    if (IsComment(p)) [[unlikely]] {
      XML_SkipAll(&p);
    }
    pPos = p;
  }

  // Steps over a text, in any case. Returns whether it was there.
  template <size_t SIZE>
  bool Take(const char (&text)[SIZE]) {
    if (UTIL_CompareNoCaseN(pPos, text, SIZE - 1) != 0) {
      return false;
    }
    pPos += SIZE - 1;
    return true;
  }

  bool Take(char c) {
    if (*pPos != c) {
      return false;
    }
    pPos++;
    return true;
  }

  // Steps over a name and returns its length, 0 when there is none.
  size_t TakeName() {
    const char* pStart = pPos;
    if (XML_IsClass(*pPos, XML_CLASS_START)) {
      pPos = SkipName(pPos);
    }
    return static_cast<size_t>(pPos - pStart);
  }
};

struct READER : CURSOR {
  XML_DOC* pDoc;
  XML_ELEMENT* pBase;    // Reading ends with the content of this element, null at the top level.
  XML_ELEMENT* pParent;  // The element whose content is being read.
  XML_ELEMENT* pLast;    // Its child read last, null at its start.
  uint32_t Depth;
};

// ---- Declaration and document type ----

template <size_t SIZE>
bool SkipAndTake(CURSOR& cursor, const char (&text)[SIZE]) {
  cursor.Skip();
  return cursor.Take(text);
}

// Steps over: = "value".
template <size_t SIZE>
bool TakeQuoted(CURSOR& cursor, const char (&value)[SIZE]) {
  return SkipAndTake(cursor, "=") && SkipAndTake(cursor, "\"") && SkipAndTake(cursor, value) &&
         SkipAndTake(cursor, "\"");
}

bool TakeVersion(CURSOR& cursor) {
  if (!SkipAndTake(cursor, "version") || !SkipAndTake(cursor, "=") || !SkipAndTake(cursor, "\"") ||
      !SkipAndTake(cursor, "1.") || *cursor.pPos < '0' || *cursor.pPos > '9') {
    return false;
  }
  cursor.pPos++;
  return SkipAndTake(cursor, "\"");
}

// Where the declaration breaks off, its rest is left to be refused as content.
void SkipDeclaration(CURSOR& cursor) {
  if (!cursor.Take("<?xml") || !TakeVersion(cursor) ||
      (SkipAndTake(cursor, "encoding") && !TakeQuoted(cursor, "UTF-8")) ||
      (SkipAndTake(cursor, "standalone") && !TakeQuoted(cursor, "yes"))) {
    return;
  }
  SkipAndTake(cursor, "?>");
}

void SkipDocType(CURSOR& cursor) {
  if (!cursor.Take("<!DOCTYPE")) {
    return;
  }
  const char* pEnd = strchr(cursor.pPos, '>');
  cursor.pPos = pEnd != nullptr ? pEnd + 1 : cursor.pPos + strlen(cursor.pPos);
}

void SkipProlog(CURSOR& cursor) {
  cursor.Skip();
  if (cursor.pPos[0] != '<' || (cursor.pPos[1] != '?' && cursor.pPos[1] != '!')) [[likely]] {
    return;
  }
  SkipDeclaration(cursor);
  cursor.Skip();
  SkipDocType(cursor);
  cursor.Skip();
}

// ---- Tags ----

// Steps over a value, which begins behind its quote, and the quote at its end. Returns where the value ends.
const char* TakeValue(CURSOR& cursor) {
  const char* pStart = cursor.pPos;
  const char* pEnd = strchr(pStart, '"');
  if (pEnd == nullptr) [[unlikely]] {
    cursor.pPos = pStart + strlen(pStart);
    return pStart;
  }
  cursor.pPos = pEnd + 1;
  return pEnd;
}

// Copies name="value in one go and terminates the two where "=" and the closing quote stand.
XML_ATTR* CopyTightAttribute(OTALLOC* pArena, const char* pName, size_t nameLength, const char* pValueEnd) {
  const size_t length = static_cast<size_t>(pValueEnd - pName);
  char* p = XML_Request(pArena, sizeof(XML_ATTR) + uint64_t{length} + 1);
  if (p == nullptr) [[unlikely]] {
    return nullptr;
  }
  auto* pAttr = reinterpret_cast<XML_ATTR*>(p);
  p += sizeof(XML_ATTR);
  pAttr->pName = XML_PlaceText(p, pName, length);
  p[nameLength] = '\0';
  pAttr->pValue = p + nameLength + 2;
  pAttr->NameLen = static_cast<uint32_t>(nameLength);
  pAttr->ValueLen = static_cast<uint32_t>(length - nameLength - 2);
  return pAttr;
}

XML_ATTR* ReadAttribute(CURSOR& cursor, OTALLOC* pArena) {
  const char* pName = cursor.pPos;
  const size_t nameLength = cursor.TakeName();
  if (nameLength == 0) {
    return nullptr;
  }
  if (cursor.pPos[0] == '=' && cursor.pPos[1] == '"') [[likely]] {
    cursor.pPos += 2;
    return CopyTightAttribute(pArena, pName, nameLength, TakeValue(cursor));
  }
  cursor.Skip();
  if (!cursor.Take('=')) {
    return nullptr;
  }
  cursor.Skip();
  if (!cursor.Take('"')) {
    return XML_NewAttr(pArena, pName, nameLength, "", 0);
  }
  const char* pValue = cursor.pPos;
  const char* pValueEnd = TakeValue(cursor);
  return XML_NewAttr(pArena, pName, nameLength, pValue, static_cast<size_t>(pValueEnd - pValue));
}

// Works on a copy of the cursor, which stays in registers.
CURSOR ReadAttributes(CURSOR cursor, OTALLOC* pArena, XML_ELEMENT* pElement) {
  XML_ATTR* pLast = nullptr;
  for (;;) {
    cursor.Skip();
    if (*cursor.pPos == '>' || *cursor.pPos == '/') {
      return cursor;
    }
    XML_ATTR* pAttr = ReadAttribute(cursor, pArena);
    if (pAttr == nullptr) {
      pElement->pFirstAttr = nullptr;
      return cursor;
    }
    XML_LinkAttr(pElement, pLast, pAttr);
    pLast = pAttr;
  }
}

bool TakeTagEnd(READER& reader) {
  reader.Skip();
  return reader.Take('>');
}

// Reads an opening tag behind its name, and goes on to the element's content unless the tag closes it too.
int32_t ReadOpeningTag(READER& reader, const char* name, size_t length) {
  XML_ELEMENT* pElement = XML_NewElement(reader.pDoc->pArena, name, length);
  if (pElement == nullptr) {
    return ERROR_NO_MEMORY;
  }
  static_cast<CURSOR&>(reader) = ReadAttributes(reader, reader.pDoc->pArena, pElement);
  XML_Link(reader.pDoc, reader.pParent, reader.pLast, pElement);
  reader.pLast = pElement;
  reader.Skip();
  const bool hasContent = !reader.Take('/');
  if (!TakeTagEnd(reader)) {
    return ERROR_TAG_END;
  }
  if (hasContent) {
    if (reader.Depth == XML_MAX_DEPTH) {
      return ERROR_DEPTH;
    }
    reader.Depth++;
    reader.pParent = pElement;
    reader.pLast = nullptr;
  }
  return 0;
}

// Reads a closing tag behind its name, and goes back to the content that its element stands in.
int32_t ReadClosingTag(READER& reader, const char* name, size_t length) {
  XML_ELEMENT* pElement = reader.pParent;
  if (pElement == nullptr) {
    return ERROR_CLOSING_TOP;
  }
  if (!XML_IsSameName(name, length, pElement->pName, pElement->NameLen)) {
    return ERROR_CLOSING_NAME;
  }
  if (!TakeTagEnd(reader)) {
    return ERROR_TAG_END;
  }
  reader.Depth--;
  reader.pParent = pElement->pParent;
  reader.pLast = pElement;
  return 0;
}

int32_t ReadContent(READER& reader) {
  for (;;) {
    SkipProlog(reader);
    if (*reader.pPos == '\0') {
      return 0;
    }
    if (!reader.Take('<')) {
      return ERROR_NO_TAG;
    }
    reader.Skip();
    const bool isClosing = reader.Take('/');
    if (isClosing) {
      reader.Skip();
    }
    const char* pName = reader.pPos;
    const size_t length = reader.TakeName();
    if (length == 0 || length > XML_MAX_NAME_LEN) {
      return ERROR_NAME;
    }
    const bool isEnd = isClosing && reader.pParent == reader.pBase;
    const int32_t result = isClosing ? ReadClosingTag(reader, pName, length) : ReadOpeningTag(reader, pName, length);
    if (result < 0 || isEnd) {
      return result;
    }
  }
}

}  // namespace

int32_t XML_Parse(XML_DOC* pDoc, const char** ppPos, XML_ELEMENT* pParent, uint32_t depth) {
  if (pDoc == nullptr) {
    return ERROR_NO_MEMORY;
  }
  if (depth > XML_MAX_DEPTH) {
    return ERROR_DEPTH;
  }
  XML_ELEMENT* pLast = pParent != nullptr ? XML_LastChild(pParent) : XML_LastOf(pDoc->pRoot);
  READER reader = {{*ppPos}, pDoc, pParent, pParent, pLast, depth};
  const int32_t result = ReadContent(reader);
  *ppPos = reader.pPos;
  return result;
}
