// Size-prefixed records of different versions. Sizes are fetched bytewise, since nothing says that a record is aligned.

#include "probe/api_struct.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "util/printf.h"

namespace {

constexpr uint32_t PREFIX_BYTES = sizeof(uint32_t);
constexpr uint32_t MAX_PAYLOAD_BYTES = 4096;

uint32_t SizeOf(const void* pRecord) {
  uint32_t size;
  memcpy(&size, pRecord, sizeof(size));
  return size;
}

// Puts the diagnostic together where a debugger finds it; nothing is printed.
void NoteIllegalSize(const char* name, uint32_t payload) {
  char acMessage[256];
  UTIL_snprintf(acMessage, sizeof(acMessage), "UTIL_CopyAPIStruct(): Illegal size of struct %s: %d bytes.", name,
                payload);
}

}  // namespace

void UTIL_CopyAPIStruct(void* pDest, const void* pSrc, const char* name) {
  const uint32_t destPayload = SizeOf(pDest) - PREFIX_BYTES;
  if (destPayload > MAX_PAYLOAD_BYTES || destPayload % 4 != 0) {
    NoteIllegalSize(name, destPayload);
    return;
  }
  const uint32_t srcPayload = std::max(SizeOf(pSrc), PREFIX_BYTES) - PREFIX_BYTES;
  const uint32_t common = std::min(destPayload, srcPayload);
  auto* pPayload = static_cast<uint8_t*>(pDest) + PREFIX_BYTES;
  memmove(pPayload, static_cast<const uint8_t*>(pSrc) + PREFIX_BYTES, common);
  memset(pPayload + common, 0, destPayload - common);
}
