// Every write goes through Claim, which alone turns offset and count into a last index, checks it and moves the marks
// of the content. Indices are computed in 64 bits: one that does not fit 32 is out of bounds like any other.

#include "util/dynbuffer.h"

#include <string.h>

#include <algorithm>

#include "sys/sys_memory.h"
#include "util/bits.h"
#include "util/printf.h"

namespace {

constexpr uint32_t MESSAGE_BYTES = 256;

void Report(const DYNBUFFER* pBuffer, const char* format, uint32_t value) {
  char acMessage[MESSAGE_BYTES];
  UTIL_snprintf(acMessage, sizeof(acMessage), format, value);
  if (pBuffer->pfOnError != nullptr) {
    pBuffer->pfOnError(acMessage);
  }
}

void FillNew(const DYNBUFFER* pBuffer, uint8_t* pDest, uint32_t numBytes) {
  if (pBuffer->FillByte >= 0) {
    memset(pDest, pBuffer->FillByte, numBytes);
  }
}

uint32_t AppendPos(const DYNBUFFER* pBuffer) {
  return pBuffer->HasData != 0 ? pBuffer->LastIndex + 1 : 0;
}

}  // namespace

int32_t DYNBUFFER_Init(DYNBUFFER* pBuffer, DYNBUFFER_ERROR_FUNC* pfOnError, uint32_t maximum, uint32_t initialSize,
                       int32_t fillByte) {
  *pBuffer = {};
  pBuffer->pfOnError = pfOnError;
  if (initialSize > DYNBUFFER_MAX_BYTES) {
    return DYNBUFFER_ERROR_NO_MEMORY;
  }
  // A block of no bytes could be null.
  pBuffer->pData = static_cast<uint8_t*>(SYS_Alloc(std::max(initialSize, 1u)));
  if (pBuffer->pData == nullptr) {
    return DYNBUFFER_ERROR_NO_MEMORY;
  }
  pBuffer->Maximum = maximum;
  pBuffer->Capacity = initialSize;
  pBuffer->FillByte = fillByte;
  FillNew(pBuffer, pBuffer->pData, initialSize);
  return 0;
}

int32_t DYNBUFFER_DeInit(DYNBUFFER* pBuffer) {
  if (pBuffer->pData != nullptr) {
    SYS_Free(pBuffer->pData);
    *pBuffer = {};
  }
  return 0;
}

int32_t DYNBUFFER_Reserve(DYNBUFFER* pBuffer, uint32_t index) {
  const uint32_t capacity = pBuffer->Capacity;
  if (index < capacity) {
    return 0;
  }
  const uint32_t maximum = std::min(pBuffer->Maximum, DYNBUFFER_MAX_BYTES);
  if (index >= maximum) {
    Report(pBuffer, "Debugger accesses memory in dynamic buffer at offset 0x%08X which is out of array bounds.", index);
    return DYNBUFFER_ERROR_OUT_OF_BOUNDS;
  }
  const uint32_t newCapacity = std::min(std::max(index + 1, capacity * 2), maximum);
  // Not SYS_Realloc, which need not leave the old storage in place.
  auto* pNew = static_cast<uint8_t*>(SYS_Alloc(newCapacity));
  if (pNew == nullptr) {
    Report(pBuffer, "Cannot allocate %d bytes of memory for dynamic buffer", newCapacity);
    return DYNBUFFER_ERROR_NO_MEMORY;
  }
  memcpy(pNew, pBuffer->pData, capacity);
  SYS_Free(pBuffer->pData);
  FillNew(pBuffer, pNew + capacity, newCapacity - capacity);
  pBuffer->pData = pNew;
  pBuffer->Capacity = newCapacity;
  return 0;
}

void DYNBUFFER_Clear(DYNBUFFER* pBuffer) {
  pBuffer->LastIndex = 0;
  pBuffer->HasData = 0;
  pBuffer->Error = 0;
}

int32_t DYNBUFFER_GetLen(const DYNBUFFER* pBuffer) {
  return pBuffer->Error < 0 ? pBuffer->Error : static_cast<int32_t>(AppendPos(pBuffer));
}

namespace {

// Makes room for numBytes bytes, at least one, at offset and counts them as content, for the caller to write.
int32_t Claim(DYNBUFFER* pBuffer, uint32_t offset, uint32_t numBytes) {
  const uint64_t lastIndex = uint64_t{offset} + numBytes - 1;
  if (lastIndex >= pBuffer->Capacity) [[unlikely]] {
    const uint32_t index = static_cast<uint32_t>(std::min<uint64_t>(lastIndex, UINT32_MAX));
    if (const int32_t result = DYNBUFFER_Reserve(pBuffer, index); result < 0) {
      return result;
    }
  }
  pBuffer->LastIndex = std::max(pBuffer->LastIndex, static_cast<uint32_t>(lastIndex));
  pBuffer->HasData = 1;
  return 0;
}

// As Claim, for the writes whose failure stays in the record.
int32_t ClaimOrNote(DYNBUFFER* pBuffer, uint32_t offset, uint32_t numBytes) {
  const int32_t result = Claim(pBuffer, offset, numBytes);
  if (result < 0) {
    pBuffer->Error = result;
  }
  return result;
}

void Store(uint8_t* pDest, uint8_t value) {
  *pDest = value;
}

void Store(uint8_t* pDest, uint16_t value) {
  UTIL_StoreU16(pDest, value);
}

void Store(uint8_t* pDest, uint32_t value) {
  UTIL_StoreU32(pDest, value);
}

void Store(uint8_t* pDest, uint64_t value) {
  UTIL_StoreU64(pDest, value);
}

template <typename T>
int32_t WriteNumber(DYNBUFFER* pBuffer, uint32_t offset, T value) {
  const int32_t result = ClaimOrNote(pBuffer, offset, sizeof(T));
  if (result == 0) {
    Store(pBuffer->pData + offset, value);
  }
  return result;
}

// The result of an append: where its bytes stand, or its error.
int32_t PosOrError(uint32_t pos, int32_t result) {
  return result < 0 ? result : static_cast<int32_t>(pos);
}

template <typename T>
int32_t AddNumber(DYNBUFFER* pBuffer, T value) {
  const uint32_t pos = AppendPos(pBuffer);
  return PosOrError(pos, WriteNumber(pBuffer, pos, value));
}

}  // namespace

int32_t DYNBUFFER_Write(DYNBUFFER* pBuffer, uint32_t offset, const void* pSrc, uint32_t numBytes) {
  if (numBytes == 0) {
    return 0;
  }
  const int32_t result = ClaimOrNote(pBuffer, offset, numBytes);
  if (result == 0) {
    memcpy(pBuffer->pData + offset, pSrc, numBytes);
  }
  return result;
}

int32_t DYNBUFFER_Fill(DYNBUFFER* pBuffer, uint32_t offset, uint8_t value, uint32_t numBytes) {
  if (numBytes == 0) {
    return 0;
  }
  const int32_t result = Claim(pBuffer, offset, numBytes);
  if (result == 0) {
    memset(pBuffer->pData + offset, value, numBytes);
  }
  return result;
}

int32_t DYNBUFFER_Add(DYNBUFFER* pBuffer, const void* pSrc, uint32_t numBytes) {
  return DYNBUFFER_Write(pBuffer, AppendPos(pBuffer), pSrc, numBytes);
}

int32_t DYNBUFFER_AddGetPos(DYNBUFFER* pBuffer, const void* pSrc, uint32_t numBytes) {
  const uint32_t pos = AppendPos(pBuffer);
  return PosOrError(pos, DYNBUFFER_Write(pBuffer, pos, pSrc, numBytes));
}

int32_t DYNBUFFER_AddU8(DYNBUFFER* pBuffer, uint8_t value) {
  return AddNumber(pBuffer, value);
}

int32_t DYNBUFFER_AddU16(DYNBUFFER* pBuffer, uint16_t value) {
  return AddNumber(pBuffer, value);
}

int32_t DYNBUFFER_AddU32(DYNBUFFER* pBuffer, uint32_t value) {
  return AddNumber(pBuffer, value);
}

int32_t DYNBUFFER_AddU64(DYNBUFFER* pBuffer, uint64_t value) {
  return AddNumber(pBuffer, value);
}

int32_t DYNBUFFER_WriteU8(DYNBUFFER* pBuffer, uint32_t offset, uint8_t value) {
  return WriteNumber(pBuffer, offset, value);
}

int32_t DYNBUFFER_WriteU16(DYNBUFFER* pBuffer, uint32_t offset, uint16_t value) {
  return WriteNumber(pBuffer, offset, value);
}

int32_t DYNBUFFER_WriteU32(DYNBUFFER* pBuffer, uint32_t offset, uint32_t value) {
  return WriteNumber(pBuffer, offset, value);
}

int32_t DYNBUFFER_WriteU64(DYNBUFFER* pBuffer, uint32_t offset, uint64_t value) {
  return WriteNumber(pBuffer, offset, value);
}
