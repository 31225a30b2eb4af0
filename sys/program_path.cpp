// Where the running program stands: by its image, with links resolved, and by its process. Paths that pass the working
// sizes are cut as a last resort; links are followed no further than the platform itself would.

#include <string.h>
#include <unistd.h>

#include "sys/platform.h"
#include "sys/sys_path.h"
#include "util/printf.h"
#include "util/strings.h"

namespace {

constexpr uint32_t MAX_PROCESS_PATH = 4096;
constexpr uint32_t MAX_IMAGE_PATH = 2048;
constexpr uint32_t MAX_EXE_PATH = 512;
constexpr uint32_t MAX_EXE_DIR = 256;

// Replaces the path by the target of the link that it names; false when it names none.
bool FollowLink(char* path) {
  char acTarget[MAX_IMAGE_PATH];
  const ssize_t length = readlink(path, acTarget, sizeof(acTarget) - 1);
  if (length <= 0) {
    return false;
  }
  acTarget[length] = '\0';
  char* pLast = SYS_IsAbsolutePath(acTarget) ? nullptr : strrchr(path, '/');
  char* pReplaced = pLast == nullptr ? path : pLast + 1;
  UTIL_CopyString(pReplaced, acTarget, static_cast<uint32_t>(path + MAX_IMAGE_PATH - pReplaced));
  return true;
}

// Finds where the image was started from. A bare name was found through the search path: as a link where programs are
// installed, else the process knows better.
bool FindImage(char* path) {
  if (PLATFORM_GetImagePath(path, MAX_IMAGE_PATH) < 0) {
    return false;
  }
  if (strchr(path, '/') != nullptr) {
    return true;
  }
  char acInstalled[MAX_IMAGE_PATH];
  UTIL_snprintf(acInstalled, sizeof(acInstalled), "/usr/local/bin/%s", path);
  if (!FollowLink(acInstalled)) {
    return PLATFORM_GetProcessPath(path, MAX_IMAGE_PATH) >= 0;
  }
  UTIL_CopyString(path, acInstalled, MAX_IMAGE_PATH);
  return true;
}

// Gives the directory of a path, ending in '/'; empty when there is none.
void CopyDir(const char* path, char* pDest, uint32_t size) {
  char acDir[MAX_EXE_DIR];
  SYS_SplitPath(path, nullptr, 0, acDir, sizeof(acDir), nullptr, 0, nullptr);
  UTIL_CopyString(pDest, acDir, size);
  if (acDir[0] != '\0') {
    UTIL_AppendSlash(pDest, size);
  }
}

}  // namespace

void SYS_GetExePath(char* pDest, uint32_t size) {
  UTIL_CopyString(pDest, "", size);
  char acPath[MAX_IMAGE_PATH];
  if (!FindImage(acPath)) {
    return;
  }
  for (uint32_t i = 0; i < PLATFORM_MAX_LINKS && FollowLink(acPath); i++) {
  }
  UTIL_CopyString(pDest, acPath, size);
}

void SYS_GetExeDir(char* pDest, uint32_t size) {
  char acPath[MAX_EXE_PATH];
  SYS_GetExePath(acPath, sizeof(acPath));
  CopyDir(acPath, pDest, size);
}

void SYS_GetExePathByPid(char* pDest, uint32_t size) {
  char acPath[MAX_PROCESS_PATH];
  const int32_t length = PLATFORM_GetProcessPath(acPath, sizeof(acPath));
  UTIL_CopyString(pDest, length >= 0 && static_cast<uint32_t>(length) < size ? acPath : "", size);
}

void SYS_GetExeDirByPid(char* pDest, uint32_t size) {
  char acPath[MAX_EXE_PATH];
  SYS_GetExePathByPid(acPath, sizeof(acPath));
  CopyDir(acPath, pDest, size);
}
