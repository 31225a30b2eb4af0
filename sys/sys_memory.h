#ifndef SYS_SYS_MEMORY_H
#define SYS_SYS_MEMORY_H

// The heap of the whole system. Blocks come with the platform's alignment and belong to the caller until SYS_Free; a
// block of size 0 may be null.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Returns a block of size bytes with undefined content, or null when memory is exhausted.
void* SYS_Alloc(uint32_t size);

// Frees a block; null is ignored.
void SYS_Free(void* p);

// Returns a block of size bytes with the content of p (may be null) as far as it fits, and frees p. Returns null when
// memory is exhausted, and p stays as it was.
void* SYS_Realloc(void* p, uint32_t size);

// Frees the block that *pp points to and sets *pp to null. Both pp and *pp may be null.
void SYS_FreeAndClear(void** pp);

#ifdef __cplusplus
}
#endif

#endif
