// Files as memory. The platform maps whole pages; a caller's offset may lie anywhere in one, so that each address here
// is that of a page and a distance from it.

#include <errno.h>
#include <sys/mman.h>
#include <unistd.h>

#include "sys/sys_file.h"

namespace {

uint64_t PageSize() {
  return static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

// Makes a file that is shorter than size bytes that long, by writing its last byte.
bool Extend(int32_t fd, uint64_t size) {
  const int64_t currentSize = SYS_FILE_GetSize(fd);
  if (currentSize >= 0 && static_cast<uint64_t>(currentSize) >= size) {
    return true;
  }
  return lseek(fd, static_cast<off_t>(size - 1), SEEK_SET) >= 0 && SYS_FILE_Write(fd, " ", 1) == 1;
}

}  // namespace

void* SYS_FILE_Map(int32_t fd, uint64_t offset, uint32_t length) {
  const uint64_t distance = offset % PageSize();
  const uint64_t mapOffset = offset - distance;
  const uint64_t mapLength = distance + length;
  if (mapLength == 0 || offset > INT64_MAX - uint64_t{length}) {
    errno = EINVAL;
    return nullptr;
  }
  if (!Extend(fd, mapOffset + mapLength)) {
    return nullptr;
  }
  void* pMap = mmap(nullptr, mapLength, PROT_READ | PROT_WRITE, MAP_SHARED, fd, static_cast<off_t>(mapOffset));
  return pMap == MAP_FAILED ? nullptr : static_cast<char*>(pMap) + distance;
}

int32_t SYS_FILE_Unmap(void* pAddr, uint64_t offset, uint32_t length) {
  const uint64_t distance = offset % PageSize();
  return munmap(static_cast<char*>(pAddr) - distance, distance + length);
}

int32_t SYS_FILE_SyncMap(void* pAddr, uint32_t length) {
  const uint64_t distance = reinterpret_cast<uintptr_t>(pAddr) % PageSize();
  return msync(static_cast<char*>(pAddr) - distance, distance + length, MS_SYNC | MS_INVALIDATE);
}
