// The directories that the environment and the program's own place give. Nothing is remembered: the environment may
// change between two calls.

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "sys/repeat.h"
#include "sys/sys_dir.h"
#include "sys/sys_file.h"
#include "sys/sys_path.h"
#include "util/printf.h"
#include "util/strings.h"

namespace {

// An empty text is no directory either: with it, the root directory would be filled.
const char* GetHome() {
  const char* home = getenv("HOME");
  return home == nullptr || home[0] == '\0' ? nullptr : home;
}

}  // namespace

int32_t SYS_GetTempDir(char* pDest, uint32_t size) {
  const char* dir = getenv("TMPDIR");
  if (dir == nullptr) {
    dir = "/tmp/";
  }
  UTIL_CopyString(pDest, dir, size);
  return static_cast<int32_t>(strlen(dir));
}

int32_t SYS_GetAppDataDir(char* pDest, uint32_t size) {
  const char* home = GetHome();
  if (pDest == nullptr || size == 0 || home == nullptr) {
    errno = pDest == nullptr || size == 0 ? EINVAL : ENOENT;
    return -1;
  }
  char acDir[512];
  UTIL_snprintf(acDir, std::min<uint32_t>(size, sizeof(acDir)), "%s/Library/Application Support/NORDAX", home);
  if (SYS_DIR_CreatePath(acDir) < 0) {
    return -1;
  }
  UTIL_CopyString(pDest, acDir, size);
  return 0;
}

namespace {

constexpr uint32_t MAX_WRITABLE_DIR = 1024;
constexpr mode_t HOME_DIR_MODE = 0775;

// Permission bits do not tell (the file system may be read-only, the user the superuser), so a file is created.
bool CanCreateFilesIn(const char* dir) {
  char acFile[MAX_WRITABLE_DIR + 16];
  const int fd = Repeat([&acFile, dir] {
    UTIL_snprintf(acFile, sizeof(acFile), "%s/NORDAXXXXXXX", dir);
    return mkostemp(acFile, O_CLOEXEC);
  });
  if (fd < 0) {
    return false;
  }
  SYS_FILE_Close(fd);
  SYS_FILE_Delete(acFile);
  return true;
}

}  // namespace

void SYS_GetWritableDir(char* pDest, uint32_t size) {
  char acDir[MAX_WRITABLE_DIR];
  SYS_GetExeDir(acDir, sizeof(acDir));
  const char* home = GetHome();
  // Without a known place of the program the trial would take the root directory.
  if (home != nullptr && (acDir[0] == '\0' || !CanCreateFilesIn(acDir))) {
    UTIL_snprintf(acDir, sizeof(acDir), "%s/.NORDAX", home);
    mkdir(acDir, HOME_DIR_MODE);
  }
  UTIL_CopyString(pDest, acDir, size);
  if (size != 0) {
    pDest[size - 1] = '\0';
  }
}
