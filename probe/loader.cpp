// Owns the handle of the probe library: null until the library is loaded, then never changed. It is closed only where
// the process is about to end.

#include "probe/loader.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "sys/sys.h"
#include "util/printf.h"
#include "util/strings.h"

namespace {

constexpr char FILE_NAME[] = "libvortaarm.dylib";
constexpr char VERSIONED_NAME[] = "libvortaarm.5.dylib";
constexpr uint32_t PATH_BYTES = 512;
constexpr uint32_t ERROR_TEXT_BYTES = 2048;  // Names the library by its path, and what is missing behind that.

void* pLibrary;

// Cuts a path behind its last slash or backslash; without a slash it names no directory and becomes empty.
void CutToDir(char* path) {
  char* pEnd = strrchr(path, '/');
  if (pEnd == nullptr) {
    path[0] = '\0';
    return;
  }
  if (char* pBackslash = strrchr(pEnd, '\\'); pBackslash != nullptr) {
    pEnd = pBackslash;
  }
  pEnd[1] = '\0';
}

void GetImageDir(char* pDir) {
  pDir[0] = '\0';
  Dl_info info;
  if (dladdr(reinterpret_cast<const void*>(&PROBE_LoadLibrary), &info) == 0 || info.dli_fname == nullptr ||
      UTIL_StrLen(info.dli_fname) >= PATH_BYTES) {
    return;
  }
  UTIL_CopyString(pDir, info.dli_fname, PATH_BYTES);
  CutToDir(pDir);
}

void GetProcessDir(char* pDir) {
  SYS_GetExePathByPid(pDir, PATH_BYTES);
  CutToDir(pDir);
}

bool TryOpen(const char* format, const char* a, const char* b = nullptr) {
  char acPath[PATH_BYTES];
  UTIL_snprintf(acPath, sizeof(acPath), format, a, b);
  pLibrary = dlopen(acPath, RTLD_LAZY);
  return pLibrary != nullptr;
}

bool TryOpenNear(const char* dir) {
  return dir[0] != '\0' && (TryOpen("%s%s", dir, FILE_NAME) || TryOpen("%s../../../%s", dir, FILE_NAME));
}

int8_t Search() {
  char acDir[PATH_BYTES];
  GetImageDir(acDir);
  if (TryOpenNear(acDir)) {
    return 1;
  }
  GetProcessDir(acDir);
  if (TryOpenNear(acDir)) {
    return 2;
  }
  if (TryOpen("/Applications/NORDAX/Vorta/%s", FILE_NAME)) {
    return 3;
  }
  if (TryOpen("/Applications/NORDAX/Vorta/%s", VERSIONED_NAME)) {
    return 4;
  }
  return -1;
}

}  // namespace

int8_t PROBE_LoadLibrary(int32_t exitOnFailure) {
  if (pLibrary != nullptr) {
    return 0;
  }
  const int8_t place = Search();
  if (place > 0) {
    return place;
  }
  if (exitOnFailure) {
    printf("Could not open Vorta shared library. Exiting now.\n");
    exit(1);
  }
  printf("Could not open Vorta shared library.\n");
  return -1;
}

void* PROBE_ResolveSymbol(const char* name) {
  PROBE_LoadLibrary(1);
  dlerror();
  void* pSymbol = dlsym(pLibrary, name);
  const char* pError = dlerror();
  if (pError != nullptr) {
    char acError[ERROR_TEXT_BYTES];
    UTIL_CopyString(acError, pError, sizeof(acError));  // Closing the library may free the text.
    dlclose(pLibrary);
    printf("Function not found: %s (%s). Exiting now.\n", name, acError);
    exit(1);
  }
  return pSymbol;
}
