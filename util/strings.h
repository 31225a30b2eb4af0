#ifndef UTIL_STRINGS_H
#define UTIL_STRINGS_H

// Bounded, locale-free handling of 8-bit texts.
//
// A text ends in a zero byte. A size always counts the whole buffer with room for that byte: a bounded operation never
// writes beyond it, cuts what does not fit, and leaves a terminated text. Case is that of the ASCII letters only.
// Pointers must not be null except where said otherwise, source and destination must not overlap, and nothing is
// allocated or kept. Any number of threads may call any operation on texts of their own.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Copies src into the size bytes at pDest, cut to size - 1 characters. Returns the size that a full copy needs, that is
// the length of src + 1: a result above size tells that the copy was cut. Returns -1 and writes nothing when pDest or
// src is null or size is 0.
int32_t UTIL_CopyString(char* pDest, const char* src, uint32_t size);

// Appends as much of src to the text at pDest as its size bytes hold. When the text there already fills or overfills
// size, nothing is written.
void UTIL_AppendString(char* pDest, const char* src, uint32_t size);

// Returns the number of characters before the terminator.
uint32_t UTIL_StrLen(const char* s);

// Compares two texts without regard to case: 0 when they are equal, otherwise the difference a - b of the first
// characters that differ, in lower case and taken as signed bytes (so that 0x80 to 0xFF come before all ASCII
// characters).
int32_t UTIL_CompareNoCase(const char* a, const char* b);

// As UTIL_CompareNoCase, for the first count characters at most; a count of 0 gives 0.
int32_t UTIL_CompareNoCaseN(const char* a, const char* b, uint64_t count);

// Turns the letters a to z of s into capitals, in place.
void UTIL_ToUpper(char* s);

// Returns the index of the first c in s, or -1. The terminator is never found.
int32_t UTIL_FindChar(const char* s, char c);

// Replaces every oldChar in s by newChar, in place. A newChar of 0 ends the text at the first place.
void UTIL_ReplaceChar(char* s, char oldChar, char newChar);

// Makes the path in the size bytes at path end in a separator: appends '/' unless it ends in '/' or '\' already. An
// empty path becomes "/". A path without room for one more character stays as it is.
void UTIL_AppendSlash(char* path, uint32_t size);

// Callbacks for a HASHTREE whose entries are records that begin with a pointer to their name (const char*).
//
// UTIL_HashKeyNoCase returns a hash that is the same for names that differ in case alone: the CRC-32 (polynomial
// 0xEDB88320, start 0, not inverted) of the first 511 characters in capitals. UTIL_IsEqualKeyNoCase returns 1 when the
// two names are equal without regard to case, else 0; mind that the compare callback of a HASHTREE gives 0 for equal.
uint32_t UTIL_HashKeyNoCase(const void* pEntry);
int32_t UTIL_IsEqualKeyNoCase(const void* pEntryA, const void* pEntryB);

#ifdef __cplusplus
}
#endif

#endif
