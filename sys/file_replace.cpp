// The new content goes into a file of its own until all of it is on the medium, and a rename puts it in place. That
// file has one fixed name: after a kill there is one file left at most, and the next call takes it over. A lock on it
// keeps two calls from writing into the same file; the rename takes the locked file away from under its name, so that
// whoever gets the lock looks whether it still holds the file of that name.

#include "sys/sys_replace.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sys/platform.h"
#include "sys/repeat.h"
#include "sys/sys_file.h"
#include "sys/sys_time.h"
#include "util/printf.h"

namespace {

constexpr char NEW_SUFFIX[] = ".new";
constexpr mode_t UNFINISHED_MODE = 0600;
constexpr mode_t PERMISSION_BITS = 07777;
constexpr uint32_t LOCK_WAIT_MS = 10;
constexpr uint32_t MAX_LOCK_WAITS = 1000;

struct REPLACEMENT {
  char acPath[PATH_MAX];     // The old file itself, no link to it.
  char acNewPath[PATH_MAX];  // The new one, until it takes the old one's place.
  struct stat Old;
  struct stat New;
  int Fd;  // The new file, locked.
};

bool Concat(const char* path, const char* suffix, char* pDest) {
  if (UTIL_snprintf(pDest, PATH_MAX, "%s%s", path, suffix) >= PATH_MAX) {
    errno = ENAMETOOLONG;
    return false;
  }
  return true;
}

// Fills in path and status of the file that a path leads to.
bool Resolve(const char* path, REPLACEMENT& task) {
  if (lstat(path, &task.Old) < 0) {
    return false;
  }
  if (!S_ISLNK(task.Old.st_mode)) {
    return Concat(path, "", task.acPath);
  }
  return realpath(path, task.acPath) != nullptr && lstat(task.acPath, &task.Old) == 0;
}

// A file that is missing is created empty, which answers what permissions a new file has, and where a link to nothing
// leads.
bool FindOld(const char* path, REPLACEMENT& task) {
  if (!Resolve(path, task)) {
    const int32_t fd = errno == ENOENT ? SYS_FILE_Open(path, SYS_FILE_WRITE | SYS_FILE_CREATE) : -1;
    if (fd < 0) {
      return false;
    }
    SYS_FILE_Close(fd);
    if (!Resolve(path, task)) {
      return false;
    }
  }
  // Renaming over a device or a pipe would put an end to it.
  if (!S_ISREG(task.Old.st_mode)) {
    errno = EINVAL;
    return false;
  }
  return Concat(task.acPath, NEW_SUFFIX, task.acNewPath);
}

int OpenNew(const char* path) {
  constexpr int FLAGS = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  return Repeat([=] { return open(path, FLAGS, UNFINISHED_MODE); });
}

enum class LOCK { HELD, LOST, BUSY, FAILED };

// Locks the open file and makes sure that it still has its name.
LOCK Lock(REPLACEMENT& task) {
  if (flock(task.Fd, LOCK_EX | LOCK_NB) < 0 && errno == EWOULDBLOCK) {
    return LOCK::BUSY;
  }
  // Any other failure tells of a file system without locks.
  struct stat named;
  if (fstat(task.Fd, &task.New) < 0) {
    return LOCK::FAILED;
  }
  if (!S_ISREG(task.New.st_mode)) {
    errno = EINVAL;
    return LOCK::FAILED;
  }
  if (lstat(task.acNewPath, &named) < 0) {
    return errno == ENOENT ? LOCK::LOST : LOCK::FAILED;
  }
  return named.st_ino == task.New.st_ino && named.st_dev == task.New.st_dev ? LOCK::HELD : LOCK::LOST;
}

// Opens the new file for this call alone.
bool ClaimNew(REPLACEMENT& task) {
  for (uint32_t numWaits = 0; numWaits < MAX_LOCK_WAITS; numWaits++) {
    task.Fd = OpenNew(task.acNewPath);
    if (task.Fd < 0 && errno == EACCES && numWaits == 0 && unlink(task.acNewPath) == 0) {
      continue;  // Somebody else's, who was killed before giving it to the owner of the old file.
    }
    if (task.Fd < 0) {
      return false;
    }
    const LOCK lock = Lock(task);
    if (lock == LOCK::HELD) {
      return true;
    }
    const int error = errno;
    SYS_FILE_Close(task.Fd);
    if (lock == LOCK::FAILED) {
      errno = error;
      return false;
    }
    if (lock == LOCK::BUSY) {
      SYS_Sleep(LOCK_WAIT_MS);
    }
  }
  errno = EBUSY;
  return false;
}

// Comes before the content, which nobody may read who could not read the old one. Only some users may give a file away,
// and to some groups only: otherwise the file stays the user's own, which is no failure.
bool CopyPermissions(const REPLACEMENT& task) {
  const struct stat& old = task.Old;
  if (old.st_uid != task.New.st_uid || old.st_gid != task.New.st_gid) {
    constexpr uid_t SAME_USER = static_cast<uid_t>(-1);
    static_cast<void>(fchown(task.Fd, old.st_uid, old.st_gid) == 0 || fchown(task.Fd, SAME_USER, old.st_gid) == 0);
  }
  return ((old.st_mode ^ task.New.st_mode) & PERMISSION_BITS) == 0 ||
         fchmod(task.Fd, old.st_mode & PERMISSION_BITS) == 0;
}

bool WriteNew(const REPLACEMENT& task, const void* pData, uint32_t numBytes) {
  if (!CopyPermissions(task) || (task.New.st_size != 0 && SYS_FILE_Truncate(task.Fd, 0) < 0)) {
    return false;
  }
  const char* p = static_cast<const char*>(pData);
  while (numBytes != 0) {
    const int32_t numWritten = SYS_FILE_Write(task.Fd, p, numBytes);
    if (numWritten <= 0) {
      return false;
    }
    p += numWritten;
    numBytes -= static_cast<uint32_t>(numWritten);
  }
  return PLATFORM_Flush(task.Fd) == 0;
}

// Gives the old file a second name, so that it has the first one until it is replaced. Where the file system knows no
// second names it is renamed.
bool ReplaceAndKeep(const char* path, const char* newPath, const char* suffix) {
  char acKeep[PATH_MAX];
  if (!Concat(path, suffix, acKeep)) {
    return false;
  }
  unlink(acKeep);
  if (link(path, acKeep) == 0) {
    return rename(newPath, path) == 0;
  }
  if (errno != EPERM && errno != ENOTSUP && errno != EOPNOTSUPP && errno != EMLINK) {
    return false;
  }
  if (rename(path, acKeep) < 0) {
    return false;
  }
  if (rename(newPath, path) == 0) {
    return true;
  }
  const int error = errno;
  rename(acKeep, path);
  errno = error;
  return false;
}

// Only the file that the caller knows is kept: another process may have put one of its own in that place meanwhile, and
// keeping that would cost the one that was kept then.
bool IsToBeKept(const REPLACEMENT& task, const char* keepSuffix, int32_t oldFd) {
  struct stat known;
  struct stat current;  // Looked at anew, under the lock.
  if (keepSuffix == nullptr) {
    return false;
  }
  if (oldFd < 0 || fstat(oldFd, &known) < 0 || lstat(task.acPath, &current) < 0) {
    return true;  // In doubt nothing is lost.
  }
  return known.st_ino == current.st_ino && known.st_dev == current.st_dev;
}

bool PutInPlace(const REPLACEMENT& task, const char* keepSuffix, int32_t oldFd) {
  return IsToBeKept(task, keepSuffix, oldFd) ? ReplaceAndKeep(task.acPath, task.acNewPath, keepSuffix)
                                             : rename(task.acNewPath, task.acPath) == 0;
}

// Flushes the directory that a file is in, whose path is cut.
int32_t FlushDir(char* path) {
  char* pSlash = strrchr(path, '/');
  if (pSlash != nullptr) {
    pSlash[pSlash == path ? 1 : 0] = '\0';
  }
  const int32_t fd = SYS_FILE_Open(pSlash != nullptr ? path : ".", SYS_FILE_READ);
  if (fd < 0) {
    return -1;
  }
  const int32_t result = PLATFORM_Flush(fd);
  const int error = errno;
  SYS_FILE_Close(fd);
  errno = error;
  return result;
}

}  // namespace

int32_t SYS_FILE_Replace(const char* path, const void* pData, uint32_t numBytes, const char* keepSuffix,
                         int32_t oldFd) {
  REPLACEMENT task;
  if (!FindOld(path, task) || !ClaimNew(task)) {
    return -1;
  }
  const bool isDone = WriteNew(task, pData, numBytes) && PutInPlace(task, keepSuffix, oldFd);
  const int error = errno;
  if (!isDone) {
    unlink(task.acNewPath);
  }
  SYS_FILE_Close(task.Fd);
  if (!isDone) {
    errno = error;
    return -1;
  }
  return FlushDir(task.acPath);
}
