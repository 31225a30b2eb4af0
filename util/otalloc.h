#ifndef UTIL_OTALLOC_H
#define UTIL_OTALLOC_H

// Arena allocator: many small requests are carved out of large blocks, none is freed by itself, and the whole arena is
// released at once.
//
// An arena is a chain of blocks in the order of their creation, and its handle is the first of them. All memory that it
// hands out is zero-filled, aligned to 8 bytes and valid until the arena is destroyed. An arena belongs to one thread
// at a time.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Payload of a standard block, in bytes. A request of this size or more gets a block of its own.
#define OTALLOC_BLOCK_SIZE 0x400000u

typedef struct OTALLOC OTALLOC;
struct OTALLOC {
  uint8_t* pData;     // Payload, behind the block's header.
  OTALLOC* pNext;     // Block created next, null in the last one.
  uint32_t Used;      // Payload bytes handed out.
  uint32_t Capacity;  // Payload bytes in all.
};

// Creates an arena with one empty standard block. Returns null when memory is exhausted.
OTALLOC* OTALLOC_Create(void);

// Returns size bytes, rounded up to a multiple of 8, from the first block with room for them, else from a new block at
// the end of the chain. A size of 0 consumes nothing. Returns null when memory is exhausted or size is nearly 4 GiB,
// and the arena is as it was. pInstance must not be null.
void* OTALLOC_Alloc(OTALLOC* pInstance, uint32_t size);

// Frees the arena with everything that it handed out; null is ignored.
void OTALLOC_Destroy(OTALLOC* pInstance);

#ifdef __cplusplus
}
#endif

#endif
