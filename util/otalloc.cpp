// The chain of blocks and the search for room in it. Placement is first fit over the whole chain, whatever the request,
// but full blocks must not be walked again for each one: the arena remembers, by size of the request, how far into the
// chain a search may start. That only ever moves forward, since room in a block never comes back.
//
// A block is zeroed in small steps shortly before its payload is handed out: a small arena costs no more than the pages
// that it uses, and a large one finds in the cache what it is about to write.

#include "util/otalloc.h"

#include <string.h>

#include <algorithm>
#include <bit>

#include "sys/sys.h"

namespace {

constexpr uint32_t ALIGNMENT_BYTES = 8;
constexpr uint32_t MAX_SIZE_BYTES = 0xFFFFFFF8;
constexpr uint32_t ZERO_STEP_BYTES = 4096;

// Sizes below EXACT_LIMIT_BYTES have a class each; above, every power of two is divided into eight.
constexpr uint32_t EXACT_LIMIT_BYTES = 1024;
constexpr uint32_t NUM_EXACT_CLASSES = EXACT_LIMIT_BYTES / ALIGNMENT_BYTES;

constexpr uint32_t AlignUp(uint32_t size) {
  return (size + ALIGNMENT_BYTES - 1) & ~(ALIGNMENT_BYTES - 1);
}

constexpr uint32_t ExponentOf(uint32_t size) {
  return static_cast<uint32_t>(std::bit_width(size)) - 1;
}

constexpr uint32_t ClassOf(uint32_t rounded) {
  if (rounded < EXACT_LIMIT_BYTES) {
    return rounded / ALIGNMENT_BYTES;
  }
  const uint32_t exponent = ExponentOf(rounded);
  return NUM_EXACT_CLASSES + (exponent - ExponentOf(EXACT_LIMIT_BYTES)) * 8 + (rounded >> (exponent - 3) & 7);
}

// Smallest size of the class that the size belongs to.
constexpr uint32_t ClassFloor(uint32_t rounded) {
  if (rounded < EXACT_LIMIT_BYTES) {
    return rounded;
  }
  const uint32_t shift = ExponentOf(rounded) - 3;
  return rounded >> shift << shift;
}

constexpr uint32_t NUM_CLASSES = ClassOf(OTALLOC_BLOCK_SIZE) + 1;

struct BLOCK : OTALLOC {
  uint32_t Zeroed;  // Payload bytes that are zero or handed out.
};

// Where the search for a request of one class begins: no block before pBase has room for any of them, and none before
// pExact for one of ExactSize or more. The latter spares walking over blocks that have room for the smallest request of
// the class, but not for the one that keeps being made.
struct START {
  BLOCK* pBase;
  BLOCK* pExact;
  uint32_t ExactSize;

  BLOCK* Of(uint32_t rounded) const { return rounded >= ExactSize ? pExact : pBase; }
};

// The first block of an arena, which is its handle, and what belongs to the arena as a whole.
struct ARENA {
  BLOCK First;
  BLOCK* pLast;
  START aStart[NUM_CLASSES];
};

ARENA* ArenaOf(OTALLOC* pInstance) {
  return reinterpret_cast<ARENA*>(pInstance);
}

BLOCK* NextOf(const BLOCK* pBlock) {
  return static_cast<BLOCK*>(pBlock->pNext);
}

uint32_t FreeIn(const BLOCK* pBlock) {
  return pBlock->Capacity - pBlock->Used;
}

// Creates a block behind a header of the given size, which begins with a BLOCK.
BLOCK* CreateBlock(uint32_t headerSize, uint32_t capacity) {
  if (capacity > UINT32_MAX - headerSize) {
    return nullptr;
  }
  auto* pBlock = static_cast<BLOCK*>(SYS_Alloc(headerSize + capacity));
  if (pBlock != nullptr) {
    *pBlock = {};
    pBlock->pData = reinterpret_cast<uint8_t*>(pBlock) + headerSize;
    pBlock->Capacity = capacity;
  }
  return pBlock;
}

void* Carve(BLOCK* pBlock, uint32_t rounded) {
  uint8_t* pResult = pBlock->pData + pBlock->Used;
  pBlock->Used += rounded;
  if (pBlock->Used > pBlock->Zeroed) {
    const uint32_t end = std::min(std::max(pBlock->Used, pBlock->Zeroed + ZERO_STEP_BYTES), pBlock->Capacity);
    memset(pBlock->pData + pBlock->Zeroed, 0, end - pBlock->Zeroed);
    pBlock->Zeroed = end;
  }
  return pResult;
}

void* CarveFromNewBlock(ARENA* pArena, uint32_t capacity, uint32_t rounded) {
  BLOCK* pBlock = CreateBlock(sizeof(BLOCK), capacity);
  if (pBlock == nullptr) {
    return nullptr;
  }
  pArena->pLast->pNext = pBlock;
  pArena->pLast = pBlock;
  return Carve(pBlock, rounded);
}

// The whole way of a request, for those that find no zeroed room at once.
[[gnu::noinline]] void* SearchAndCarve(ARENA* pArena, uint32_t size) {
  if (size > MAX_SIZE_BYTES) {
    return nullptr;
  }
  const uint32_t rounded = AlignUp(size);
  if (size >= OTALLOC_BLOCK_SIZE) {
    return CarveFromNewBlock(pArena, rounded, rounded);
  }
  START& start = pArena->aStart[ClassOf(rounded)];
  const uint32_t floor = ClassFloor(rounded);
  while (FreeIn(start.pBase) < floor && start.pBase->pNext != nullptr) {
    start.pBase = NextOf(start.pBase);
  }
  for (BLOCK* pBlock = start.Of(rounded); pBlock != nullptr; pBlock = NextOf(pBlock)) {
    if (FreeIn(pBlock) >= rounded) {
      start.pExact = pBlock;
      start.ExactSize = rounded;
      return Carve(pBlock, rounded);
    }
  }
  return CarveFromNewBlock(pArena, OTALLOC_BLOCK_SIZE, rounded);
}

}  // namespace

OTALLOC* OTALLOC_Create(void) {
  BLOCK* pFirst = CreateBlock(sizeof(ARENA), OTALLOC_BLOCK_SIZE);
  if (pFirst == nullptr) {
    return nullptr;
  }
  ARENA* pArena = ArenaOf(pFirst);
  pArena->pLast = pFirst;
  for (START& start : pArena->aStart) {
    start = {pFirst, pFirst, 0};
  }
  return pFirst;
}

void* OTALLOC_Alloc(OTALLOC* pInstance, uint32_t size) {
  ARENA* pArena = ArenaOf(pInstance);
  if (size < OTALLOC_BLOCK_SIZE) [[likely]] {
    const uint32_t rounded = AlignUp(size);
    BLOCK* pBlock = pArena->aStart[ClassOf(rounded)].Of(rounded);
    const uint32_t used = pBlock->Used;
    if (uint64_t{used} + rounded <= pBlock->Zeroed) [[likely]] {
      pBlock->Used = used + rounded;
      return pBlock->pData + used;
    }
  }
  return SearchAndCarve(pArena, size);
}

void OTALLOC_Destroy(OTALLOC* pInstance) {
  while (pInstance != nullptr) {
    OTALLOC* pNext = pInstance->pNext;
    SYS_Free(pInstance);
    pInstance = pNext;
  }
}
