// Files by descriptor. Calls that a signal interrupts are repeated, closing excepted, and lengths are kept to what the
// 32-bit results can tell. Nothing is buffered: the position is always the platform's.

#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "sys/local_time.h"
#include "sys/repeat.h"
#include "sys/sys_dir.h"
#include "sys/sys_file.h"
#include "util/strings.h"

namespace {

constexpr mode_t NEW_FILE_MODE = 0644;
constexpr uint32_t MAX_USER_PATH = 512;
constexpr uint32_t PASSWORD_ENTRY_BYTES = 4096;  // The most that platforms recommend.
constexpr uint32_t LINE_CHUNK_BYTES = 256;

int TranslateFlags(uint32_t flags) {
  int result = O_CLOEXEC;
  if ((flags & SYS_FILE_WRITE) != 0) {
    result |= (flags & SYS_FILE_READ) != 0 ? O_RDWR : O_WRONLY;
  } else {
    result |= O_RDONLY;
  }
  if ((flags & SYS_FILE_CREATE) != 0) {
    result |= O_CREAT;
    if ((flags & SYS_FILE_EXCLUSIVE) != 0) {
      return result | O_EXCL;
    }
  }
  return (flags & SYS_FILE_TRUNCATE) != 0 ? result | O_TRUNC : result;
}

int32_t OpenOnce(const char* path, int flags) {
  return Repeat([=] { return open(path, flags, NEW_FILE_MODE); });
}

}  // namespace

int32_t SYS_FILE_OpenEx(const char* path, uint32_t flags, uint32_t numRetries, uint32_t retryDelayMs) {
  const int platformFlags = TranslateFlags(flags);
  int32_t fd = OpenOnce(path, platformFlags);
  for (uint32_t i = 0; fd < 0 && i < numRetries; i++) {
    if (retryDelayMs != 0) {
      SYS_Sleep(retryDelayMs);
    }
    fd = OpenOnce(path, platformFlags);
  }
  if (fd >= 0 && (flags & SYS_FILE_SEEK_END) != 0) {
    lseek(fd, 0, SEEK_END);
  }
  return fd;
}

int32_t SYS_FILE_Open(const char* path, uint32_t flags) {
  return SYS_FILE_OpenEx(path, flags, 0, 0);
}

namespace {

// Puts the home directory and the rest of a path behind it into the MAX_USER_PATH bytes at pDest.
bool ExpandHome(const char* rest, char* pDest) {
  const char* home = getenv("HOME");
  char acEntry[PASSWORD_ENTRY_BYTES];
  passwd entry;
  if (home == nullptr) {
    passwd* pFound = nullptr;
    const int error = getpwuid_r(getuid(), &entry, acEntry, sizeof(acEntry), &pFound);
    if (pFound == nullptr || pFound->pw_dir == nullptr) {
      errno = error != 0 ? error : ENOENT;
      return false;
    }
    home = pFound->pw_dir;
  }
  UTIL_CopyString(pDest, home, MAX_USER_PATH);
  UTIL_AppendString(pDest, rest, MAX_USER_PATH);
  return true;
}

// Creates the directory that a file of this path stands in.
bool CreateParent(const char* path) {
  const char* pSlash = strrchr(path, '/');
  const size_t length = pSlash == nullptr ? 0 : static_cast<size_t>(pSlash - path) + 1;
  if (length == 0 || length >= MAX_USER_PATH) {
    errno = ENOENT;
    return false;
  }
  char acDir[MAX_USER_PATH];
  UTIL_CopyString(acDir, path, static_cast<uint32_t>(length) + 1);
  return SYS_DIR_CreatePath(acDir) == 0;
}

}  // namespace

int32_t SYS_FILE_OpenUserPath(const char* path, uint32_t flags) {
  if (path == nullptr) {
    errno = EFAULT;
    return -1;
  }
  char acPath[MAX_USER_PATH];
  if (path[0] == '~') {
    if (!ExpandHome(path + 1, acPath)) {
      return -1;
    }
    path = acPath;
  }
  const int32_t fd = SYS_FILE_Open(path, flags);
  // Almost always the directory is there already: it is looked at only when the file could not be created. A path that
  // ends in '/' is refused as a directory's, once its directory is there.
  const bool mayLackParent = errno == ENOENT || errno == EISDIR;
  if (fd >= 0 || !mayLackParent || (flags & SYS_FILE_CREATE) == 0 || !CreateParent(path)) {
    return fd;
  }
  return SYS_FILE_Open(path, flags);
}

void SYS_FILE_Close(int32_t fd) {
  if (fd >= 0) {
    close(fd);  // Never repeated: after an interruption the descriptor is gone, and may be another thread's already.
  }
}

int32_t SYS_FILE_Read(int32_t fd, void* pBuffer, uint32_t numBytes) {
  return static_cast<int32_t>(Repeat([=] { return read(fd, pBuffer, ClipLength(numBytes)); }));
}

int32_t SYS_FILE_Write(int32_t fd, const void* pBuffer, uint32_t numBytes) {
  return static_cast<int32_t>(Repeat([=] { return write(fd, pBuffer, ClipLength(numBytes)); }));
}

namespace {

// Whether the position can be moved back over bytes that were read. Files of size 0 are left out: those that the kernel
// makes up while they are read may lose what was read.
bool CanReadAhead(int32_t fd) {
  struct stat status;
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0;
}

bool IsLineEnd(char c) {
  return c == '\n' || c == '\xFF';
}

}  // namespace

int32_t SYS_FILE_ReadLine(int32_t fd, char* pBuffer, uint32_t size) {
  if (size <= 1) {
    UTIL_CopyString(pBuffer, "", size);
    return 0;
  }
  // From a pipe or a terminal more than the line must not be taken, so each byte costs a call there.
  char acChunk[LINE_CHUNK_BYTES];
  const uint32_t maxChunk = CanReadAhead(fd) ? LINE_CHUNK_BYTES : 1;
  uint32_t numStored = 0;
  while (numStored < size - 1) {
    const int32_t numRead = SYS_FILE_Read(fd, acChunk, std::min(maxChunk, size - 1 - numStored));
    if (numRead <= 0) {
      return -1;
    }
    const char* pChunkEnd = acChunk + numRead;
    const char* pLineEnd = std::find_if(acChunk, acChunk + numRead, IsLineEnd);
    const char* pEnd = pLineEnd != pChunkEnd ? pLineEnd + 1 : pChunkEnd;
    memcpy(pBuffer + numStored, acChunk, static_cast<size_t>(pEnd - acChunk));
    numStored += static_cast<uint32_t>(pEnd - acChunk);
    if (pEnd != pChunkEnd && lseek(fd, pEnd - pChunkEnd, SEEK_CUR) < 0) {
      return -1;
    }
    if (pLineEnd != pChunkEnd) {
      break;
    }
  }
  pBuffer[numStored] = '\0';
  return static_cast<int32_t>(numStored);
}

int64_t SYS_FILE_Seek(int32_t fd, int32_t offset, int32_t origin) {
  return lseek(fd, offset, origin == 1 ? SEEK_CUR : origin == 2 ? SEEK_END : SEEK_SET);
}

int64_t SYS_FILE_GetSize(int32_t fd) {
  struct stat status;
  if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
    return status.st_size;
  }
  // The status of a disk tells no size, its end does.
  const off_t position = lseek(fd, 0, SEEK_CUR);
  if (position < 0) {
    return -1;
  }
  const off_t size = lseek(fd, 0, SEEK_END);
  lseek(fd, position, SEEK_SET);
  return size;
}

int32_t SYS_FILE_Truncate(int32_t fd, int32_t length) {
  return Repeat([=] { return ftruncate(fd, length); });
}

int32_t SYS_FILE_GetTimes(int32_t fd, SYS_TIME* pAccessed, SYS_TIME* pModified) {
  struct stat status;
  if (fstat(fd, &status) < 0) {
    return -1;
  }
  tzset();
  if (pAccessed != nullptr) {
    TIME_FillLocal(status.st_atime, pAccessed);
  }
  if (pModified != nullptr) {
    TIME_FillLocal(status.st_mtime, pModified);
  }
  return 0;
}
