// A value is a group of attributes on its key's element: the text under the value's own name, the second and further
// ones of several texts under numbered names, and the name of the type, which alone makes the value exist. Nothing is
// stored that the document's reader would not give back: it decodes nothing, so that names and texts beyond its rules
// are refused here.

#include <string.h>

#include <algorithm>
#include <iterator>

#include "util/bits.h"
#include "util/printf.h"
#include "util/scan.h"
#include "util/strings.h"
#include "xml/hive.h"
#include "xml/registry.h"
#include "xml/xml.h"

namespace {

constexpr uint32_t MAX_ATTR_NAME_BYTES = SYS_REG_MAX_NAME_BYTES + 32;
constexpr uint32_t MAX_NUMBER_BYTES = 24;
constexpr const char RESERVED[] = "_NORDAXReg";
constexpr const char TYPE_FORMAT[] = "%s_NORDAXRegType";
constexpr const char EXTRA_FORMAT[] = "%s_NORDAXRegMltStr%d";

constexpr const char* TYPE_NAMES[] = {
    "SYS_REG_TYPE_SZ",
    "SYS_REG_TYPE_EXPAND_SZ",
    "SYS_REG_TYPE_BINARY",
    "SYS_REG_TYPE_DWORD",
    nullptr,
    nullptr,
    "SYS_REG_TYPE_MULTI_SZ",
    nullptr,
    nullptr,
    nullptr,
    "SYS_REG_TYPE_QWORD",
};

// A value's name, and the key that it belongs to.
struct VALUE {
  XML_DOC* pDoc;
  XML_ELEMENT* pElement;
  char acName[SYS_REG_MAX_NAME_BYTES];  // As read, empty when the text had no word in it.
};

// A name that is made out of a value's name.
struct ATTR_NAME {
  char acText[MAX_ATTR_NAME_BYTES];
};

// Reads the words of a text into the SYS_REG_MAX_NAME_BYTES bytes at pDest.
void ReadValueName(const char* text, char* pDest) {
  uint32_t length = 0;
  pDest[0] = '\0';
  UTIL_SkipWhiteSpace(&text);
  while (*text != '\0') {
    UTIL_ParseString(&text, pDest + length, SYS_REG_MAX_NAME_BYTES - length);
    length += UTIL_StrLen(pDest + length);
    UTIL_SkipWhiteSpace(&text);
  }
}

bool Resolve(SYS_REG_HANDLE handle, const char* name, VALUE& value) {
  SYS_REG_HIVE* pHive;
  if (name == nullptr || name[0] == '\0' || SYS_REG_GetHive(handle, &value.pElement, &pHive) < 0) {
    return false;
  }
  value.pDoc = pHive->pDoc;
  ReadValueName(name, value.acName);
  return true;
}

ATTR_NAME TypeAttr(const VALUE& value) {
  ATTR_NAME name;
  UTIL_snprintf(name.acText, sizeof(name.acText), TYPE_FORMAT, value.acName);
  return name;
}

// The text number index of several, from 1 on; the one before has the value's own name.
ATTR_NAME ExtraAttr(const VALUE& value, uint32_t index) {
  ATTR_NAME name;
  UTIL_snprintf(name.acText, sizeof(name.acText), EXTRA_FORMAT, value.acName, index);
  return name;
}

XML_ATTR* FindAttr(const VALUE& value, const char* name) {
  return XML_FindAttr(value.pDoc, value.pElement, name);
}

// A file that somebody has edited may have an attribute several times: the next one would come to light.
void RemoveAttr(const VALUE& value, const char* name) {
  while (XML_RemoveAttr(value.pDoc, value.pElement, name) == 0) {
  }
}

void RemoveExtras(const VALUE& value, uint32_t firstIndex) {
  for (uint32_t i = firstIndex;; i++) {
    const ATTR_NAME name = ExtraAttr(value, i);
    if (FindAttr(value, name.acText) == nullptr) {
      return;
    }
    RemoveAttr(value, name.acText);
  }
}

void RemoveTextAndType(const VALUE& value) {
  RemoveAttr(value, value.acName);
  RemoveAttr(value, TypeAttr(value).acText);
}

bool SetAttr(const VALUE& value, const char* name, const char* text) {
  return XML_SetAttr(value.pDoc, value.pElement, name, text) == 0;
}

// The type is usually the same as before, and storage of what is replaced is not reused.
bool SetType(const VALUE& value, uint32_t type) {
  const ATTR_NAME name = TypeAttr(value);
  const XML_ATTR* pAttr = FindAttr(value, name.acText);
  return (pAttr != nullptr && SYS_REG_TypeFromName(pAttr->pValue) == type) ||
         SetAttr(value, name.acText, TYPE_NAMES[type - 1]);
}

bool IsStorableName(const char* name) {
  char acCopy[SYS_REG_MAX_NAME_BYTES];
  UTIL_CopyString(acCopy, name, sizeof(acCopy));
  XML_MakeName(acCopy);
  if (strcmp(acCopy, name) != 0) {
    return false;
  }
  for (const char* p = strchr(name, '_'); p != nullptr; p = strchr(p + 1, '_')) {
    if (UTIL_CompareNoCaseN(p, RESERVED, sizeof(RESERVED) - 1) == 0) {
      return false;
    }
  }
  return true;
}

bool IsStorableText(const char* text) {
  return strchr(text, '"') == nullptr;
}

// Sets the type, which makes the value exist, and takes everything back when that fails.
uint32_t Finish(const VALUE& value, uint32_t type, bool isComplete) {
  if (isComplete && SetType(value, type)) {
    return SYS_REG_OK;
  }
  RemoveTextAndType(value);
  return SYS_REG_ERROR;
}

uint32_t StoreText(const VALUE& value, uint32_t type, const char* text) {
  if (!IsStorableText(text) || !SetAttr(value, value.acName, text)) {
    return SYS_REG_ERROR;
  }
  return Finish(value, type, true);
}

uint32_t StoreNumber(const VALUE& value, uint32_t type, const void* pData, uint32_t size) {
  if (pData == nullptr && size != 0) {
    return SYS_REG_ERROR;
  }
  const uint32_t width = type == SYS_REG_TYPE_DWORD ? 4 : 8;
  uint64_t number = 0;
  for (uint32_t i = 0; i < std::min(size, width); i++) {
    number |= uint64_t{static_cast<const uint8_t*>(pData)[i]} << (8 * i);
  }
  const auto high = static_cast<uint32_t>(number >> 32);
  const auto low = static_cast<uint32_t>(number);
  char acNumber[MAX_NUMBER_BYTES];
  if (width == 4) {
    UTIL_snprintf(acNumber, sizeof(acNumber), "0x%08X", low);
  } else {
    UTIL_snprintf(acNumber, sizeof(acNumber), "0x%08X%08X", high, low);
  }
  return StoreText(value, type, acNumber);
}

// Returns the text behind this one, or null when that does not begin in the data.
const char* NextText(const char* text, const char* pEnd) {
  const auto* p = static_cast<const char*>(memchr(text, '\0', static_cast<size_t>(pEnd - text)));
  return p != nullptr && p + 1 < pEnd ? p + 1 : nullptr;
}

// Whether the data are texts up to the second terminator in a row, which is their last byte, and can all be stored.
bool AreStorableTexts(const char* pData, uint32_t size) {
  const char* pEnd = pData + size;
  for (const char* text = pData; text != nullptr; text = NextText(text, pEnd)) {
    if (text != pData && *text == '\0') {
      return text + 1 == pEnd;
    }
    if (NextText(text, pEnd) == nullptr || !IsStorableText(text)) {
      return false;
    }
  }
  return false;
}

uint32_t StoreTexts(const VALUE& value, const char* pData, uint32_t size) {
  if (pData == nullptr || size == 0 || !AreStorableTexts(pData, size)) {
    return SYS_REG_ERROR;
  }
  RemoveTextAndType(value);
  RemoveExtras(value, 1);
  bool isComplete = SetAttr(value, value.acName, pData);
  uint32_t index = 1;
  for (const char* text = pData + strlen(pData) + 1; isComplete && *text != '\0'; text += strlen(text) + 1) {
    isComplete = SetAttr(value, ExtraAttr(value, index).acText, text);
    index++;
  }
  // Numbers beyond a gap, which only somebody's editing leaves, would join these.
  RemoveExtras(value, isComplete ? index : 1);
  return Finish(value, SYS_REG_TYPE_MULTI_SZ, isComplete);
}

}  // namespace

uint32_t SYS_REG_SetValue(SYS_REG_HANDLE handle, const char* name, uint32_t type, const void* pData, uint32_t size) {
  VALUE value;
  if (!Resolve(handle, name, value)) {
    return SYS_REG_ERROR;
  }
  if (value.acName[0] == '\0') {
    return SYS_REG_OK;
  }
  if (!IsStorableName(value.acName)) {
    return SYS_REG_ERROR;
  }
  const auto* pText = static_cast<const char*>(pData);
  switch (type) {
    case SYS_REG_TYPE_SZ:
    case SYS_REG_TYPE_EXPAND_SZ:
      return StoreText(value, type, pText != nullptr ? pText : "");
    case SYS_REG_TYPE_DWORD:
    case SYS_REG_TYPE_QWORD:
      return StoreNumber(value, type, pData, size);
    case SYS_REG_TYPE_MULTI_SZ:
      return StoreTexts(value, pText, size);
    default:
      return SYS_REG_ERROR;
  }
}

namespace {

uint32_t QueryType(const VALUE& value, uint32_t* pType) {
  const XML_ATTR* pAttr = FindAttr(value, TypeAttr(value).acText);
  if (pAttr == nullptr) {
    return SYS_REG_NOT_FOUND;
  }
  *pType = SYS_REG_TypeFromName(pAttr->pValue);
  return *pType == SYS_REG_TYPE_UNKNOWN ? SYS_REG_ERROR : SYS_REG_OK;
}

uint32_t QueryText(const XML_ATTR* pAttr, char* pData, uint32_t* pSize) {
  const uint32_t capacity = *pSize;
  *pSize = pAttr->ValueLen + 1;
  UTIL_CopyString(pData, pAttr->pValue, capacity);
  return capacity < *pSize ? SYS_REG_MORE_DATA : SYS_REG_OK;
}

uint32_t QueryNumber(const XML_ATTR* pAttr, uint32_t width, void* pData, uint32_t* pSize) {
  if (*pSize < width) {
    return SYS_REG_MORE_DATA;
  }
  *pSize = width;
  const char* text = pAttr->pValue;
  if (width == 4) {
    uint32_t number = 0;
    UTIL_ParseHex32(&text, &number);
    UTIL_StoreU32(pData, number);
  } else {
    uint64_t number = 0;
    UTIL_ParseHex64(&text, &number);
    UTIL_StoreU64(pData, number);
  }
  return SYS_REG_OK;
}

// Calls pfOnText for the first and all further texts of a value.
template <typename FUNC>
void ForEachText(const VALUE& value, const XML_ATTR* pAttr, FUNC pfOnText) {
  for (uint32_t i = 1; pAttr != nullptr; i++) {
    pfOnText(pAttr);
    pAttr = FindAttr(value, ExtraAttr(value, i).acText);
  }
}

uint32_t QueryTexts(const VALUE& value, const XML_ATTR* pFirst, char* pData, uint32_t* pSize) {
  const uint32_t capacity = *pSize;
  uint32_t size = 1;
  ForEachText(value, pFirst, [&](const XML_ATTR* pAttr) { size += pAttr->ValueLen + 1; });
  *pSize = size;
  if (capacity < size) {
    return SYS_REG_MORE_DATA;
  }
  ForEachText(value, pFirst, [&](const XML_ATTR* pAttr) {
    memcpy(pData, pAttr->pValue, size_t{pAttr->ValueLen} + 1);
    pData += pAttr->ValueLen + 1;
  });
  *pData = '\0';
  return SYS_REG_OK;
}

uint32_t QueryData(const VALUE& value, uint32_t type, void* pData, uint32_t* pSize) {
  const XML_ATTR* pAttr = FindAttr(value, value.acName);
  if (pAttr == nullptr) {
    return SYS_REG_ERROR;
  }
  switch (type) {
    case SYS_REG_TYPE_SZ:
    case SYS_REG_TYPE_EXPAND_SZ:
      return QueryText(pAttr, static_cast<char*>(pData), pSize);
    case SYS_REG_TYPE_DWORD:
      return QueryNumber(pAttr, 4, pData, pSize);
    case SYS_REG_TYPE_QWORD:
      return QueryNumber(pAttr, 8, pData, pSize);
    case SYS_REG_TYPE_MULTI_SZ:
      return QueryTexts(value, pAttr, static_cast<char*>(pData), pSize);
    default:
      return SYS_REG_ERROR;
  }
}

}  // namespace

uint32_t SYS_REG_QueryValue(SYS_REG_HANDLE handle, const char* name, uint32_t* pType, void* pData, uint32_t* pSize) {
  VALUE value;
  if ((pData != nullptr && pSize == nullptr) || !Resolve(handle, name, value)) {
    return SYS_REG_ERROR;
  }
  if (value.acName[0] == '\0') {
    return SYS_REG_OK;
  }
  uint32_t type;
  const uint32_t result = QueryType(value, &type);
  if (result != SYS_REG_NOT_FOUND && pType != nullptr) {
    *pType = type;
  }
  return result != SYS_REG_OK || pData == nullptr ? result : QueryData(value, type, pData, pSize);
}

uint32_t SYS_REG_DeleteValue(SYS_REG_HANDLE handle, const char* name) {
  VALUE value;
  if (!Resolve(handle, name, value)) {
    return SYS_REG_ERROR;
  }
  if (value.acName[0] == '\0') {
    return SYS_REG_OK;
  }
  uint32_t type;
  if (QueryType(value, &type) != SYS_REG_OK) {
    return SYS_REG_ERROR;
  }
  if (type == SYS_REG_TYPE_MULTI_SZ) {
    RemoveExtras(value, 1);
  }
  RemoveTextAndType(value);
  return SYS_REG_OK;
}

uint32_t SYS_REG_ClearSubKey(SYS_REG_HANDLE handle, const char* name) {
  VALUE value;
  if (!Resolve(handle, name, value)) {
    return SYS_REG_ERROR;
  }
  XML_ELEMENT* pKey = XML_FindChild(value.pDoc, value.pElement, value.acName);
  if (pKey != nullptr) {
    while (const XML_ATTR* pAttr = XML_GetFirstAttr(value.pDoc, pKey, nullptr, 0)) {
      XML_RemoveAttr(value.pDoc, pKey, pAttr->pName);
    }
  }
  return SYS_REG_OK;
}

uint32_t SYS_REG_TypeFromName(const char* text) {
  for (uint32_t i = 0; text != nullptr && i < std::size(TYPE_NAMES); i++) {
    if (TYPE_NAMES[i] != nullptr && UTIL_CompareNoCase(TYPE_NAMES[i], text) == 0) {
      return i + 1;
    }
  }
  return SYS_REG_TYPE_UNKNOWN;
}
