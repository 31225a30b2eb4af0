// The C library's heap, and the one place that says when it refuses a block.

#include <stdlib.h>

#include "sys/sys_memory.h"
#include "util/printf.h"

namespace {

// Puts the diagnostic together where a debugger finds it; the layer prints nothing.
void NoteFailure(uint32_t size) {
  char acMessage[64];
  UTIL_snprintf(acMessage, sizeof(acMessage), "Failed to allocate 0x%08X bytes of memory!", size);
}

}  // namespace

void* SYS_Alloc(uint32_t size) {
  void* p = malloc(size);
  if (p == nullptr) {
    NoteFailure(size);
  }
  return p;
}

void SYS_Free(void* p) {
  free(p);
}

void* SYS_Realloc(void* p, uint32_t size) {
  // A size of 0 may free the block and give null, which a caller would take for a failure that left the block alone.
  void* pNew = realloc(p, size != 0 ? size : 1);
  if (pNew == nullptr) {
    NoteFailure(size);
  }
  return pNew;
}

void SYS_FreeAndClear(void** pp) {
  if (pp != nullptr) {
    SYS_Free(*pp);
    *pp = nullptr;
  }
}
