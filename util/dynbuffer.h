#ifndef UTIL_DYNBUFFER_H
#define UTIL_DYNBUFFER_H

// Growable byte buffer with a hard maximum.
//
// The record belongs to the caller and owns its storage from DYNBUFFER_Init to DYNBUFFER_DeInit. Bytes are appended or
// written at offsets; where a write reaches beyond the storage, the storage grows to at least twice its size, up to the
// maximum, and moves. The content is bytes 0 to the highest one written, gaps included; readers take it from pData,
// with the length that DYNBUFFER_GetLen tells. Numbers are stored with their lowest byte first, on every machine.
//
// Every write (Write, Fill, Add and their typed forms) either succeeds, with 0 unless said otherwise, or returns
//   DYNBUFFER_ERROR_NO_MEMORY      memory for the storage is exhausted;
//   DYNBUFFER_ERROR_OUT_OF_BOUNDS  its last byte would lie at or beyond the maximum.
// A write that failed leaves content and storage as they were and, DYNBUFFER_Fill excepted, its error in the record,
// where it stays until DYNBUFFER_Clear or DYNBUFFER_DeInit; later writes work all the same when they fit. A write of no
// bytes succeeds, changes nothing and does not look at its source or offset. Pointers must not be null except where
// said otherwise, sources must not lie in the buffer, and a buffer belongs to one thread at a time.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DYNBUFFER_ERROR_NO_MEMORY (-2)
#define DYNBUFFER_ERROR_OUT_OF_BOUNDS (-3)

// No buffer holds more bytes than this, whatever its maximum, so that lengths and positions fit the results.
#define DYNBUFFER_MAX_BYTES 0x7FFFFFFFu

// Is handed the text of each error as it occurs, for the user to see; the text is gone after the call. The result is
// ignored.
typedef int32_t DYNBUFFER_ERROR_FUNC(const char* message);

typedef struct DYNBUFFER {
  uint8_t* pData;                   // Storage; null before DYNBUFFER_Init succeeded and after DYNBUFFER_DeInit.
  uint32_t Maximum;                 // Bytes up to which the storage may grow.
  uint32_t Capacity;                // Bytes of storage.
  uint32_t LastIndex;               // Index of the highest byte written; 0 also when there is none.
  uint32_t HasData;                 // 1 once a write has succeeded, else 0.
  int32_t Error;                    // Error of the last write that failed; 0 when none did.
  int32_t FillByte;                 // 0 to 255: value of bytes that come into existence. Negative: they are undefined.
  DYNBUFFER_ERROR_FUNC* pfOnError;  // May be null.
} DYNBUFFER;

// Sets up a buffer with initialSize bytes of storage, which may be 0 and may exceed maximum: offsets inside the storage
// are never out of bounds. Any former content of the record is forgotten. Returns 0, or DYNBUFFER_ERROR_NO_MEMORY when
// memory is exhausted or initialSize exceeds DYNBUFFER_MAX_BYTES: the record then holds nothing but the callback (which
// is not called), writes to it fail, and there is nothing to release.
int32_t DYNBUFFER_Init(DYNBUFFER* pBuffer, DYNBUFFER_ERROR_FUNC* pfOnError, uint32_t maximum, uint32_t initialSize,
                       int32_t fillByte);

// Frees the storage and zeroes the record, callback included; a record without storage stays as it is. Returns 0.
int32_t DYNBUFFER_DeInit(DYNBUFFER* pBuffer);

// Makes the storage reach up to the byte at index. The content stays as it is, and so does the error in the record.
// Returns 0 or one of the errors above.
int32_t DYNBUFFER_Reserve(DYNBUFFER* pBuffer, uint32_t index);

// Empties the buffer and clears its error. The storage stays, with the bytes in it: a gap that later writes leave shows
// them again.
void DYNBUFFER_Clear(DYNBUFFER* pBuffer);

// Returns the length of the content in bytes, or the record's error when there is one.
int32_t DYNBUFFER_GetLen(const DYNBUFFER* pBuffer);

// Copies numBytes bytes to offset.
int32_t DYNBUFFER_Write(DYNBUFFER* pBuffer, uint32_t offset, const void* pSrc, uint32_t numBytes);

// Sets numBytes bytes at offset to value. The record takes no note of a failure.
int32_t DYNBUFFER_Fill(DYNBUFFER* pBuffer, uint32_t offset, uint8_t value, uint32_t numBytes);

// Appends numBytes bytes right behind the content.
int32_t DYNBUFFER_Add(DYNBUFFER* pBuffer, const void* pSrc, uint32_t numBytes);

// As DYNBUFFER_Add; returns the offset at which the bytes stand.
int32_t DYNBUFFER_AddGetPos(DYNBUFFER* pBuffer, const void* pSrc, uint32_t numBytes);

// Append a number of 1, 2, 4 or 8 bytes; return the offset at which it stands.
int32_t DYNBUFFER_AddU8(DYNBUFFER* pBuffer, uint8_t value);
int32_t DYNBUFFER_AddU16(DYNBUFFER* pBuffer, uint16_t value);
int32_t DYNBUFFER_AddU32(DYNBUFFER* pBuffer, uint32_t value);
int32_t DYNBUFFER_AddU64(DYNBUFFER* pBuffer, uint64_t value);

// Write a number of 1, 2, 4 or 8 bytes at offset.
int32_t DYNBUFFER_WriteU8(DYNBUFFER* pBuffer, uint32_t offset, uint8_t value);
int32_t DYNBUFFER_WriteU16(DYNBUFFER* pBuffer, uint32_t offset, uint16_t value);
int32_t DYNBUFFER_WriteU32(DYNBUFFER* pBuffer, uint32_t offset, uint32_t value);
int32_t DYNBUFFER_WriteU64(DYNBUFFER* pBuffer, uint32_t offset, uint64_t value);

#ifdef __cplusplus
}
#endif

#endif
