// Numbers and truth values as attribute texts.

#include <stdio.h>
#include <stdlib.h>

#include "util/printf.h"
#include "util/scan.h"
#include "xml/xml.h"

namespace {

constexpr uint32_t INTEGER_BYTES = 12;  // "-2147483648" with its terminator.
constexpr uint32_t DOUBLE_BYTES = 32;

template <typename T>
int32_t SetInteger(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, const char* format, T value) {
  char acText[INTEGER_BYTES];
  UTIL_snprintf(acText, sizeof(acText), format, value);
  return XML_SetAttr(pDoc, pElement, name, acText);
}

}  // namespace

int32_t XML_SetAttrBool(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, uint32_t value) {
  return XML_SetAttr(pDoc, pElement, name, value != 0 ? "1" : "0");
}

int32_t XML_SetAttrU32(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, uint32_t value) {
  return SetInteger(pDoc, pElement, name, "%u", value);
}

int32_t XML_SetAttrHex(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, uint32_t value) {
  return SetInteger(pDoc, pElement, name, "0x%X", value);
}

int32_t XML_SetAttrI32(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, int32_t value) {
  return SetInteger(pDoc, pElement, name, "%d", value);
}

int32_t XML_SetAttrDouble(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, double value) {
  char acText[DOUBLE_BYTES];
  snprintf(acText, sizeof(acText), "%.17g", value);
  return XML_SetAttr(pDoc, pElement, name, acText);
}

int32_t XML_GetAttrBool(XML_DOC* pDoc, const XML_ATTR* pAttr, uint8_t* pValue) {
  uint32_t number = 0;
  const int32_t result = pValue == nullptr ? -1 : XML_GetAttrU32(pDoc, pAttr, &number);
  if (result == 0) {
    *pValue = number != 0;
  }
  return result;
}

int32_t XML_GetAttrU32(XML_DOC* pDoc, const XML_ATTR* pAttr, uint32_t* pValue) {
  (void)pDoc;
  return pAttr == nullptr || pValue == nullptr ? -1 : UTIL_StrToU32(pAttr->pValue, pValue);
}

int32_t XML_GetAttrInt(XML_DOC* pDoc, const XML_ATTR* pAttr, int32_t* pValue) {
  (void)pDoc;
  if (pAttr == nullptr || pValue == nullptr) {
    return -1;
  }
  *pValue = static_cast<int32_t>(strtol(pAttr->pValue, nullptr, 10));
  return 0;
}

int32_t XML_GetAttrDouble(XML_DOC* pDoc, const XML_ATTR* pAttr, double* pValue) {
  (void)pDoc;
  if (pAttr == nullptr || pValue == nullptr) {
    return -1;
  }
  *pValue = strtod(pAttr->pValue, nullptr);
  return 0;
}
