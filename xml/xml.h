#ifndef XML_XML_H
#define XML_XML_H

// XML documents as trees of elements with attributes: read from a file or a text, built, searched, changed and saved.
//
// Only as much of XML as configuration files need. An element holds attributes and elements, not text between them.
// Names consist of ASCII letters, digits, '_' and '-', not beginning with '-'. A value is every byte between its double
// quotes: nothing is escaped or decoded, neither when it is read nor when it is written. Names are compared without
// regard to the case of ASCII letters. Building takes names and values as they come: what is to be read back must keep
// to the rule for names (XML_MakeName makes it so), to XML_MAX_NAME_LEN, and to values without a double quote.
//
// A document owns an arena, and in it every element, attribute, name and value; all of it lives until XML_FreeDoc, also
// what was replaced or removed. Records come from this module alone. Their fields may be read and links followed, which
// is how attributes are listed; changing them is the module's business.
//
// Operations on elements and attributes take the document that these belong to, and look at it only to allocate memory.
// Where it is needed and null, or where an element, attribute, name or buffer is null, the result is null or -1 unless
// said otherwise. Texts copied into a buffer are cut to its size - 1 bytes and terminated; a size of 0 writes nothing.
// When memory is exhausted an operation fails and the tree stays as it was. A document belongs to one thread at a time;
// different documents may be used at the same time.

#include <stdint.h>

#include "util/otalloc.h"

#ifdef __cplusplus
extern "C" {
#endif

#define XML_MAX_DEPTH 100       // The reader refuses content nested deeper; a top-level element's content has depth 1.
#define XML_MAX_NAME_LEN 255    // Longest element name, in bytes, that the reader accepts.
#define XML_SAVE_NO_DECL 0x01u  // XML_Save: leave out the XML declaration.
#define XML_MAX_SAVE_BYTES 0x100000u  // Longest text that XML_Save makes.

typedef struct XML_DOC XML_DOC;
typedef struct XML_ELEMENT XML_ELEMENT;
typedef struct XML_ATTR XML_ATTR;

struct XML_DOC {
  XML_ELEMENT* pRoot;  // First of the top-level elements, null while there is none.
  OTALLOC* pArena;     // Holds everything, usually this record too.
};

struct XML_ELEMENT {
  const char* pName;
  uint32_t NameLen;
  const char* pText;  // Text to be saved with the element, the caller's own; null when there is none.
  uint32_t TextLen;
  XML_ATTR* pFirstAttr;  // In the order of reading or adding, as all lists.
  XML_ELEMENT* pParent;  // Null for top-level elements.
  XML_ELEMENT* pPrev;
  XML_ELEMENT* pNext;
  XML_ELEMENT* pFirstChild;
};

struct XML_ATTR {
  const char* pName;
  const char* pValue;  // Never null.
  uint32_t NameLen;
  uint32_t ValueLen;
  XML_ATTR* pPrev;
  XML_ATTR* pNext;
};

// ---- Documents ----

// Creates a document with one element of the given name. Returns null when the name is null or empty.
XML_DOC* XML_CreateDoc(const char* rootName);

// Reads the whole file behind an open descriptor, wherever its position is, which is left behind what was read. The
// text ends at the first zero byte. Returns null when the file is empty, cannot be read or positioned, is no text that
// XML_Parse accepts, or holds no element.
XML_DOC* XML_LoadFd(int32_t fd);

// As XML_LoadFd, for the file at path.
XML_DOC* XML_LoadFile(const char* path);

// Frees a document and all that belongs to it. Returns 0, also for null.
int32_t XML_FreeDoc(XML_DOC* pDoc);

XML_ELEMENT* XML_GetRoot(XML_DOC* pDoc);

// ---- Reading text ----

// Moves the position over white space (tab, line feed, carriage return, space), one comment if there is one, and white
// space again. Returns 1 when there was a comment, 0 when there was none, -1 when it has no end: the position is then
// that of the terminator.
int32_t XML_SkipWS(const char** ppPos);

// Moves the position over any number of comments with white space around them. Returns 0, or -1 as XML_SkipWS.
int32_t XML_SkipAll(const char** ppPos);

// Reads elements from a text and appends them to the children of pParent, or to the top-level elements when that is
// null. Reading ends behind the closing tag of pParent, or at the terminator: elements still open there count as
// closed. depth tells how deeply the content is nested, 0 at the top level. A null pDoc gives -1.
//
//   content      = { [ declaration ] [ doctype ] element }
//   declaration  = "<?xml" version "=" quoted 1.<digit> [ "encoding" "=" quoted UTF-8 ]
//                  [ "standalone" "=" quoted yes ] "?>"
//   doctype      = "<!DOCTYPE", anything up to the next ">" or to the end of the text
//   element      = "<" name attributes ( "/" ">" | ">" content "<" "/" name ">" )
//   attributes   = { name "=" [ '"' anything up to the next '"' '"' ] }
//
// White space and comments may stand between any two of these; keywords may have any case. Several top-level elements
// are accepted, and names of attributes that occur twice. What is not told by a result:
// - A declaration that breaks off counts as read up to where it does.
// - A value without an opening quote is empty and takes up nothing; one without a closing quote is empty and takes up
//   the rest of the text.
// - An attribute without name or "=", or one for which memory is exhausted, ends the list, and the element has no
//   attributes at all. Reading goes on right there, which fails unless the tag ends.
//
// Returns 0, or the first error, upon which reading stops near *ppPos; elements read before it stay in the tree:
//   -1  memory is exhausted
//   -2  something else than "<" where an element or a closing tag should begin
//   -3  an element name is empty or longer than XML_MAX_NAME_LEN
//   -4  a closing tag at the top level
//   -5  a closing tag with another name than that of the open element
//   -6  no ">" at the end of a tag
//   -8  content nested deeper than XML_MAX_DEPTH (elements without content may stand one level deeper)
int32_t XML_Parse(XML_DOC* pDoc, const char** ppPos, XML_ELEMENT* pParent, uint32_t depth);

// ---- Navigation ----

// Returns the first element of that name from pStart on along the next siblings, pStart included, or null.
XML_ELEMENT* XML_FindSibling(XML_DOC* pDoc, XML_ELEMENT* pStart, const char* name);

// As XML_FindSibling, among the top-level elements.
XML_ELEMENT* XML_FindTop(XML_DOC* pDoc, const char* name);

XML_ELEMENT* XML_GetFirstChild(XML_DOC* pDoc, XML_ELEMENT* pElement);
XML_ELEMENT* XML_GetNext(XML_DOC* pDoc, XML_ELEMENT* pElement);

// As XML_FindSibling, among the children of pElement.
XML_ELEMENT* XML_FindChild(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name);

// Copies the element's name into the size bytes at pBuffer and returns the length of the whole name.
int32_t XML_GetName(XML_DOC* pDoc, const XML_ELEMENT* pElement, char* pBuffer, uint32_t size);

// ---- Building ----

// Appends an element to the children of pParent and returns it. Returns null also when the name is empty. The unique
// form returns the first child of that name instead when there is one.
XML_ELEMENT* XML_AddChild(XML_DOC* pDoc, XML_ELEMENT* pParent, const char* name);
XML_ELEMENT* XML_AddChildUnique(XML_DOC* pDoc, XML_ELEMENT* pParent, const char* name);

// As the above, among the siblings of pElement, before and behind it.
XML_ELEMENT* XML_AddSibling(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name);
XML_ELEMENT* XML_AddSiblingUnique(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name);

// Gives a text to the first element of that name among the siblings of pElement, before and behind it, and returns that
// element. The text is not copied: it must stay as it is until the document is freed or gets another one. Returns null
// also when there is no such element, or name or text is empty. Saving writes the text into the element, byte for byte,
// but the reader accepts none: such a document cannot be read back.
XML_ELEMENT* XML_SetText(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, const char* text);

// Turns a text into a name, in place: '-' at its start, and every byte that names do not have, become '_'.
void XML_MakeName(char* s);

// ---- Attributes ----

// Gives a value to the attribute of that name; appends one when the element has none. A null value is the empty text.
// Returns 0, or -1 also when the name is empty.
int32_t XML_SetAttr(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, const char* value);

// Returns the first attribute of that name, or null.
XML_ATTR* XML_FindAttr(XML_DOC* pDoc, const XML_ELEMENT* pElement, const char* name);

// Returns the element's first attribute, or null. When there is one and pBuffer is not null, its name is copied into
// the size bytes there.
XML_ATTR* XML_GetFirstAttr(XML_DOC* pDoc, const XML_ELEMENT* pElement, char* pBuffer, uint32_t size);

// Takes the first attribute of that name out of the element; its record stays readable. Returns 0, 1 when there is no
// such attribute or the name is null, or -1 when pElement is null.
int32_t XML_RemoveAttr(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name);

// Copies the value into the size bytes at pBuffer and returns the length of the whole value.
int32_t XML_GetAttrValue(XML_DOC* pDoc, const XML_ATTR* pAttr, char* pBuffer, uint32_t size);

// ---- Saving ----

// Writes the document as text into the size bytes at pBuffer, without a terminator. The text of a tree is always the
// same: a declaration that ends in LF, then one line for each tag, indented by two blanks a level and ended by CR LF,
// with the attributes on it. Elements without children take one line.
//
// flags: XML_SAVE_NO_DECL; other bits are ignored. Returns the number of bytes. Failures:
//   -1  pDoc or pBuffer is null
//   -2  the text is longer than size, and its first size bytes are at pBuffer; or memory is exhausted, and nothing is
//   -3  the text is longer than XML_MAX_SAVE_BYTES; nothing is written
int32_t XML_Save(XML_DOC* pDoc, char* pBuffer, uint32_t size, uint32_t flags);

// ---- Typed values ----

// XML_SetAttr with a number as text: "1" for any value but 0 and "0" for that; decimal digits; "0x" and capital
// hexadecimal digits without leading zeros; decimal digits with a sign when negative; 17 significant digits in the C
// library's form (%.17g, with the decimal point of the process's locale), from which the same number is read again.
// Return -1 when an argument is null.
int32_t XML_SetAttrBool(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, uint32_t value);
int32_t XML_SetAttrU32(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, uint32_t value);
int32_t XML_SetAttrHex(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, uint32_t value);
int32_t XML_SetAttrI32(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, int32_t value);
int32_t XML_SetAttrDouble(XML_DOC* pDoc, XML_ELEMENT* pElement, const char* name, double value);

// Read a number at the start of an attribute's value. XML_GetAttrBool and XML_GetAttrU32 take what UTIL_StrToU32 takes:
// decimal digits, or "0x" and hexadecimal digits, nothing before them; the truth value is 1 unless the number is 0.
// XML_GetAttrInt takes decimal digits and XML_GetAttrDouble a number with fraction and exponent as strtol and strtod
// do, after white space and a sign; a text without a number reads as 0, and of an integer beyond 32 bits, up to 64,
// the low 32 bits count. Return 0, or -1 with *pValue as it was: when an argument is null, and the first two when there
// is no number.
int32_t XML_GetAttrBool(XML_DOC* pDoc, const XML_ATTR* pAttr, uint8_t* pValue);
int32_t XML_GetAttrU32(XML_DOC* pDoc, const XML_ATTR* pAttr, uint32_t* pValue);
int32_t XML_GetAttrInt(XML_DOC* pDoc, const XML_ATTR* pAttr, int32_t* pValue);
int32_t XML_GetAttrDouble(XML_DOC* pDoc, const XML_ATTR* pAttr, double* pValue);

#ifdef __cplusplus
}
#endif

#endif
