// Files and directories by path. The status of a file is read once, and attributes come from its mode bits, never from
// what the current user may do: to the superuser everything is writable.

#include "sys/sys_dir.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sys/local_time.h"
#include "sys/repeat.h"

namespace {

constexpr size_t MAX_PATH_LENGTH = 511;
constexpr int32_t MAX_CREATE_DEPTH = 128;
constexpr mode_t NEW_DIR_MODE = 0777;
constexpr mode_t ANY_WRITE = 0222;

int32_t AttributesOf(mode_t mode) {
  if (!S_ISREG(mode) && !S_ISDIR(mode)) {
    return -1;
  }
  return (S_ISDIR(mode) ? SYS_FILE_ATTR_DIRECTORY : 0) | ((mode & ANY_WRITE) == 0 ? SYS_FILE_ATTR_READ_ONLY : 0);
}

bool IsReadable(const char* path, mode_t type) {
  struct stat status;
  return stat(path, &status) == 0 && (status.st_mode & S_IFMT) == type && access(path, R_OK) == 0;
}

}  // namespace

int32_t SYS_FILE_Exists(const char* path) {
  return IsReadable(path, S_IFREG);
}

int32_t SYS_DIR_Exists(const char* path) {
  return IsReadable(path, S_IFDIR);
}

int32_t SYS_DirOfPathExists(const char* path) {
  const char* pSlash = path == nullptr ? nullptr : strrchr(path, '/');
  char acDir[PATH_MAX];
  if (pSlash == nullptr || pSlash == path || static_cast<size_t>(pSlash - path) >= sizeof(acDir)) {
    return 0;
  }
  memcpy(acDir, path, static_cast<size_t>(pSlash - path));
  acDir[pSlash - path] = '\0';
  // A pipe would wait for its writer.
  const int fd = Repeat([&acDir] { return open(acDir, O_RDONLY | O_NONBLOCK | O_CLOEXEC); });
  if (fd < 0) {
    return 0;
  }
  close(fd);
  return 1;
}

int32_t SYS_FILE_GetAttributes(const char* path) {
  if (path == nullptr) {
    return 0;
  }
  struct stat status;
  return stat(path, &status) == 0 ? AttributesOf(status.st_mode) : -1;
}

int32_t SYS_FILE_Delete(const char* path) {
  unlink(path);
  return 0;
}

int32_t SYS_FILE_Rename(const char* oldPath, const char* newPath) {
  return rename(oldPath, newPath);
}

int32_t SYS_DIR_Remove(const char* path) {
  return rmdir(path);
}

int32_t SYS_DIR_CreatePath(const char* path) {
  return SYS_DIR_CreatePathDepth(path, MAX_CREATE_DEPTH);
}

namespace {

// Returns 0 when path names a directory, else -1 with ENOENT when it may still become one.
int32_t CheckDir(const char* path) {
  struct stat status;
  if (stat(path, &status) < 0) {
    return -1;
  }
  if (!S_ISDIR(status.st_mode)) {
    errno = ENOTDIR;
    return -1;
  }
  return 0;
}

// The length of the path of a directory's parent without its last slash; 0 for the parent of a relative path of one
// name.
size_t ParentLength(const char* path) {
  size_t length = strlen(path);
  while (length > 1 && path[length - 1] == '/') {
    length--;
  }
  while (length > 0 && path[length - 1] != '/') {
    length--;
  }
  while (length > 1 && path[length - 1] == '/') {
    length--;
  }
  return length;
}

}  // namespace

int32_t SYS_DIR_CreatePathDepth(const char* path, int32_t depth) {
  if (path == nullptr || path[0] == '\0' || depth < 1) {
    errno = EINVAL;
    return -1;
  }
  if (CheckDir(path) == 0) {
    return 0;
  }
  if (errno != ENOENT) {
    return -1;
  }
  // A longer path is left to mkdir as a whole: its parent, cut, would be another directory.
  const size_t length = ParentLength(path);
  if (length > 0 && length <= MAX_PATH_LENGTH) {
    char acParent[MAX_PATH_LENGTH + 1];
    memcpy(acParent, path, length);
    acParent[length] = '\0';
    if (SYS_DIR_CreatePathDepth(acParent, depth - 1) < 0) {
      return -1;
    }
  }
  return mkdir(path, NEW_DIR_MODE) == 0 || (errno == EEXIST && CheckDir(path) == 0) ? 0 : -1;
}

namespace {

// A listing in progress.
struct LISTING {
  int Fd;
  const char* pDir;
  size_t MaxNameLength;
  SYS_DIR_FUNC* pfOnEntry;
  void* pContext;
};

size_t MaxNameLength(const char* dir) {
  const size_t dirLength = strlen(dir);
  const size_t prefixLength = dirLength + (dirLength > 0 && dir[dirLength - 1] == '/' ? 0 : 1);
  return prefixLength < MAX_PATH_LENGTH ? MAX_PATH_LENGTH - prefixLength : 0;
}

bool IsDots(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Hands one entry to the callback; false when it is none that counts. Status is read relative to the open directory,
// which spares putting a path together and resolving it, for the same result.
bool Report(const LISTING& listing, const dirent& item) {
  struct stat status;
  bool hasStatus = false;
  if (item.d_type == DT_UNKNOWN) {
    if (fstatat(listing.Fd, item.d_name, &status, AT_SYMLINK_NOFOLLOW) < 0 ||
        (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode))) {
      return false;
    }
    hasStatus = true;
  } else if (item.d_type != DT_REG && item.d_type != DT_DIR) {
    return false;
  }
  if (listing.pfOnEntry == nullptr) {
    return true;
  }
  if (strlen(item.d_name) > listing.MaxNameLength) {
    return false;
  }
  if (!hasStatus && fstatat(listing.Fd, item.d_name, &status, 0) < 0) {
    return false;
  }
  SYS_DIR_ENTRY entry;
  TIME_FillLocal(status.st_mtime, &entry.Time);
  entry.pName = item.d_name;
  entry.pDir = listing.pDir;
  entry.Size = static_cast<uint64_t>(status.st_size);
  entry.Attributes = AttributesOf(status.st_mode);
  listing.pfOnEntry(&entry, listing.pContext);
  return true;
}

}  // namespace

int32_t SYS_DIR_List(const char* path, void* pContext, SYS_DIR_FUNC* pfOnEntry) {
  DIR* pDir;
  do {
    pDir = opendir(path);
  } while (pDir == nullptr && errno == EINTR);
  if (pDir == nullptr) {
    return -1;
  }
  tzset();  // Once for all entries: localtime_r alone need not notice another time zone.
  const LISTING listing = {dirfd(pDir), path, MaxNameLength(path), pfOnEntry, pContext};
  int32_t count = 0;
  errno = 0;
  for (const dirent* pItem = readdir(pDir); pItem != nullptr; pItem = readdir(pDir)) {
    if (!IsDots(pItem->d_name) && Report(listing, *pItem)) {
      count++;
    }
    errno = 0;  // What the entry or the callback left must not look like a failed read of the directory.
  }
  const int error = errno;
  closedir(pDir);
  if (error != 0) {
    errno = error;
    return -1;
  }
  return count;
}

int32_t SYS_GetCwd(char* pBuffer, uint32_t size) {
  if (getcwd(pBuffer, size) != nullptr) {
    return 0;
  }
  if (size != 0) {
    pBuffer[0] = '\0';
  }
  return -1;
}

int32_t SYS_SetCwd(const char* path) {
  return chdir(path);
}

int32_t SYS_GetLastError(void) {
  return errno;
}
