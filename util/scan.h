#ifndef UTIL_SCAN_H
#define UTIL_SCAN_H

// Reading numbers, words and quoted texts out of a text.
//
// Most operations work on a cursor: the address of a pointer into a text, which they move past what they have read.
// White space is exactly the four characters space, tab, line feed and carriage return. Numbers have no range check:
// digits are accumulated in the width of the result, which wraps silently. The first character that does not belong to
// what is read ends it and stays unread. Unless said otherwise the result is 0 for success and -1 for failure, pointers
// must not be null, and any number of threads may call any operation.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Moves the cursor over white space.
void UTIL_SkipWhiteSpace(const char** ppCursor);

// Returns 1 when c is white space, else 0.
int32_t UTIL_IsWhiteSpace(int32_t c);

// Returns 1 when every character of s is a decimal digit, which is also so for the empty text, else 0.
int32_t UTIL_IsDecimalString(const char* s);

// Reads a number: optional white space, an optional '-', and decimal digits, or "0x" ("0X") and hexadecimal digits.
// With isHex not 0 the digits are hexadecimal also without the prefix. At least one digit is required, and '+' is none.
// A number with '-' is stored negated, in two's complement. On failure cursor and value stay as they were.
int32_t UTIL_ParseNumber(const char** ppCursor, uint64_t* pValue, int32_t isHex);

// Reads a number as UTIL_ParseNumber does with isHex 0, and stores its low 32 bits. On failure the cursor stays and 0
// is stored.
int32_t UTIL_ParseU32(const char** ppCursor, uint32_t* pValue);

// Reads a number as UTIL_ParseNumber does with isHex 1. On failure cursor and value stay as they were.
int32_t UTIL_ParseHex64(const char** ppCursor, uint64_t* pValue);

// As UTIL_ParseHex64, in 32 bits. On failure the cursor stays and 0 is stored.
int32_t UTIL_ParseHex32(const char** ppCursor, uint32_t* pValue);

// Reads a number at the very start of s, without white space or sign: decimal digits, or "0x" ("0X") and hexadecimal
// digits. What follows the digits is not looked at. On failure the value stays as it was.
int32_t UTIL_StrToU32(const char* s, uint32_t* pValue);

// Reads a word into the capacity bytes at pDest. White space before it is skipped; it ends before a space, a line feed,
// a carriage return, the delimiter or the end of the text, but not before a tab. Returns null on success, else a
// message for the user, a constant: "Maximum string length exceeded" when the word does not fit, "Expected a string"
// when there is none. After a failure pDest is empty (a capacity of 0 is never written to) and the cursor stands after
// the white space.
const char* UTIL_ParseToken(const char** ppCursor, char* pDest, uint32_t capacity, char delimiter);

// Reads a text and the separator after it. White space before it is skipped. A text that begins with a double quote
// ends at the next one, which is consumed; another one ends at a space, or at a double quote, which is consumed too.
// Either also ends before a line feed, a carriage return or the end, and a tab never ends it. White space after it and
// one comma are consumed. The characters go into the size bytes at pDest, cut to size - 1; pDest may be null. Returns
// the new position, which is also stored in the cursor.
const char* UTIL_ParseString(const char** ppCursor, char* pDest, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif
