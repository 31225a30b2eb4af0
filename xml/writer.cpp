// The writer: one pass over the tree into a growable buffer, which is copied to the caller once the whole text is
// there. The pass goes up by the parent links, so that neither a deep tree nor two writers at a time need anything but
// the call's own state, and ends with the first piece that finds no room.

#include <string.h>

#include <algorithm>

#include "util/dynbuffer.h"
#include "xml/xml.h"

namespace {

constexpr uint32_t INITIAL_BYTES = 4096;
constexpr char DECLARATION[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n";

char* Put(char* p, const void* pSrc, size_t numBytes) {
  memcpy(p, pSrc, numBytes);
  return p + numBytes;
}

// The buffer's fields are used directly: room is claimed for a whole piece of text, and the piece written in place.
struct WRITER {
  DYNBUFFER Buffer;
  uint32_t Length;
  int32_t Error;

  // Returns where to write numBytes bytes, at least one, or null.
  char* Claim(uint64_t numBytes) {
    const uint64_t lastIndex = Length + numBytes - 1;
    if (lastIndex >= Buffer.Capacity) [[unlikely]] {
      Error = DYNBUFFER_Reserve(&Buffer, static_cast<uint32_t>(std::min<uint64_t>(lastIndex, UINT32_MAX)));
      if (Error < 0) {
        return nullptr;
      }
    }
    char* p = reinterpret_cast<char*>(Buffer.pData) + Length;
    Length += static_cast<uint32_t>(numBytes);
    return p;
  }
};

template <size_t SIZE>
bool Write(WRITER& writer, const char (&text)[SIZE]) {
  char* p = writer.Claim(SIZE - 1);
  return p != nullptr && Put(p, text, SIZE - 1) != nullptr;
}

bool WriteAttributes(WRITER& writer, const XML_ATTR* pAttr) {
  for (; pAttr != nullptr; pAttr = pAttr->pNext) {
    char* p = writer.Claim(uint64_t{pAttr->NameLen} + pAttr->ValueLen + 4);
    if (p == nullptr) {
      return false;
    }
    *p++ = ' ';
    p = Put(p, pAttr->pName, pAttr->NameLen);
    p = Put(p, "=\"", 2);
    p = Put(p, pAttr->pValue, pAttr->ValueLen);
    *p = '"';
  }
  return true;
}

bool WriteTagStart(WRITER& writer, const XML_ELEMENT* pElement, uint32_t level) {
  const uint64_t indent = uint64_t{level} * 2;
  char* p = writer.Claim(indent + 1 + pElement->NameLen);
  if (p == nullptr) {
    return false;
  }
  memset(p, ' ', indent);
  p += indent;
  *p++ = '<';
  Put(p, pElement->pName, pElement->NameLen);
  return WriteAttributes(writer, pElement->pFirstAttr);
}

bool WriteClosingTag(WRITER& writer, const XML_ELEMENT* pElement, uint32_t level) {
  const uint64_t indent = uint64_t{level} * 2;
  char* p = writer.Claim(indent + pElement->NameLen + 5);
  if (p == nullptr) {
    return false;
  }
  memset(p, ' ', indent);
  p = Put(p + indent, "</", 2);
  p = Put(p, pElement->pName, pElement->NameLen);
  Put(p, ">\r\n", 3);
  return true;
}

// Writes what ends the opening tag, up to the end of the line or, with a text alone, to the closing tag.
bool WriteTagEnd(WRITER& writer, const XML_ELEMENT* pElement) {
  const bool hasText = pElement->pText != nullptr;
  const bool hasChildren = pElement->pFirstChild != nullptr;
  if (!hasText && !hasChildren) {
    return Write(writer, "/>\r\n");
  }
  const uint32_t textLength = hasText ? pElement->TextLen : 0;
  char* p = writer.Claim(uint64_t{textLength} + (hasChildren ? 3 : 1));
  if (p == nullptr) {
    return false;
  }
  *p++ = '>';
  if (hasText) {
    p = Put(p, pElement->pText, textLength);
  }
  if (hasChildren) {
    Put(p, "\r\n", 2);
    return true;
  }
  return WriteClosingTag(writer, pElement, 0);
}

bool WriteTree(WRITER& writer, const XML_ELEMENT* pElement) {
  uint32_t level = 0;
  while (pElement != nullptr) {
    if (!WriteTagStart(writer, pElement, level) || !WriteTagEnd(writer, pElement)) {
      return false;
    }
    if (pElement->pFirstChild != nullptr) {
      pElement = pElement->pFirstChild;
      level++;
      continue;
    }
    while (pElement->pNext == nullptr && level > 0) {
      pElement = pElement->pParent;
      level--;
      if (!WriteClosingTag(writer, pElement, level)) {
        return false;
      }
    }
    pElement = pElement->pNext;
  }
  return true;
}

}  // namespace

int32_t XML_Save(XML_DOC* pDoc, char* pBuffer, uint32_t size, uint32_t flags) {
  if (pDoc == nullptr || pBuffer == nullptr) {
    return -1;
  }
  WRITER writer = {};
  if (const int32_t result = DYNBUFFER_Init(&writer.Buffer, nullptr, XML_MAX_SAVE_BYTES, INITIAL_BYTES, 0);
      result < 0) {
    return result;
  }
  const bool withDeclaration = (flags & XML_SAVE_NO_DECL) == 0;
  int32_t result;
  if ((!withDeclaration || Write(writer, DECLARATION)) && WriteTree(writer, pDoc->pRoot)) {
    memcpy(pBuffer, writer.Buffer.pData, std::min(writer.Length, size));
    result = writer.Length <= size ? static_cast<int32_t>(writer.Length) : -2;
  } else {
    result = writer.Error;
  }
  DYNBUFFER_DeInit(&writer.Buffer);
  return result;
}
