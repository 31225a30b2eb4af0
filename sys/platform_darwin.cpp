// macOS: the dynamic loader's address information and the process table.

#include <dlfcn.h>
#include <libproc.h>
#include <unistd.h>

#include "sys/platform.h"
#include "util/strings.h"

int32_t PLATFORM_GetImagePath(char* pDest, uint32_t size) {
  Dl_info info;
  if (dladdr(reinterpret_cast<const void*>(&PLATFORM_GetImagePath), &info) == 0 || info.dli_fname == nullptr) {
    return -1;
  }
  return UTIL_CopyString(pDest, info.dli_fname, size) > 0 ? 0 : -1;
}

int32_t PLATFORM_GetProcessPath(char* pDest, uint32_t size) {
  const int length = proc_pidpath(getpid(), pDest, size);
  return length > 0 && static_cast<uint32_t>(length) < size ? length : -1;
}
