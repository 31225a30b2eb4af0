// Linux: /proc, and what its C library adds to POSIX.

#include <unistd.h>

#include "sys/platform.h"

namespace {

// Reads a link whole; a target that does not fit is a failure, since a cut one names another file.
int32_t ReadLink(const char* path, char* pDest, uint32_t size) {
  const ssize_t length = readlink(path, pDest, size);
  if (length <= 0 || length >= static_cast<ssize_t>(size)) {
    return -1;
  }
  pDest[length] = '\0';
  return static_cast<int32_t>(length);
}

}  // namespace

// The dynamic loader only knows argv[0] here, which may be relative or made up; the process table knows better.
int32_t PLATFORM_GetImagePath(char* pDest, uint32_t size) {
  return PLATFORM_GetProcessPath(pDest, size) < 0 ? -1 : 0;
}

int32_t PLATFORM_GetProcessPath(char* pDest, uint32_t size) {
  return ReadLink("/proc/self/exe", pDest, size);
}
