// Paths as texts. Nothing here keeps state, and only SYS_JoinPath looks at the file system.

#include <string.h>

#include <algorithm>

#include "sys/sys_dir.h"
#include "sys/sys_memory.h"
#include "sys/sys_path.h"
#include "util/strings.h"

namespace {

constexpr uint32_t STACK_COPY_BYTES = 1024;

// The parts of a path, as lengths from its start.
struct PATH_PARTS {
  size_t DirLen;
  size_t ExtensionPos;
  size_t Length;
};

PATH_PARTS FindParts(const char* path) {
  PATH_PARTS parts = {};
  parts.Length = strlen(path);
  const char* pSlash = strrchr(path, '/');
  parts.DirLen = pSlash == nullptr ? 0 : static_cast<size_t>(pSlash - path) + 1;
  const char* pName = path + parts.DirLen;
  const char* pDot = strrchr(pName, '.');
  parts.ExtensionPos = pDot == nullptr || pDot == pName ? parts.Length : static_cast<size_t>(pDot - path);
  return parts;
}

void CopyPart(char* pDest, size_t size, const char* src, size_t length) {
  if (pDest == nullptr || size == 0) {
    return;
  }
  const size_t count = std::min(length, size - 1);
  memcpy(pDest, src, count);
  pDest[count] = '\0';
}

// Copies a part that fits whole, else nothing.
void CopyWholePart(char* pDest, uint32_t size, const char* src, size_t length) {
  CopyPart(pDest, size, src, length < size ? length : 0);
}

}  // namespace

void SYS_SplitPath(const char* path, char* pDrive, uint32_t driveSize, char* pDir, uint32_t dirSize, char* pName,
                   uint32_t nameSize, char* pExtension) {
  (void)driveSize;
  if (path == nullptr) {
    return;
  }
  const PATH_PARTS parts = FindParts(path);
  // The outputs may overlap the path, so the parts are taken from a copy.
  char acCopy[STACK_COPY_BYTES];
  char* pCopy = acCopy;
  if (parts.Length >= sizeof(acCopy)) {
    pCopy = static_cast<char*>(SYS_Alloc(static_cast<uint32_t>(parts.Length + 1)));
    if (pCopy == nullptr) {
      return;
    }
  }
  memcpy(pCopy, path, parts.Length + 1);
  CopyPart(pDrive, 1, "", 0);
  CopyPart(pDir, dirSize, pCopy, parts.DirLen);
  CopyPart(pName, nameSize, pCopy + parts.DirLen, parts.ExtensionPos - parts.DirLen);
  CopyPart(pExtension, nameSize != 0 ? nameSize : SIZE_MAX, pCopy + parts.ExtensionPos,
           parts.Length - parts.ExtensionPos);
  if (pCopy != acCopy) {
    SYS_Free(pCopy);
  }
}

void SYS_MakePath(char* pDest, uint32_t size, const char* drive, const char* dir, const char* name,
                  const char* extension) {
  (void)drive;
  if (pDest == nullptr || size == 0) {
    return;
  }
  pDest[0] = '\0';
  if (dir != nullptr) {
    UTIL_AppendString(pDest, dir, size);
  }
  if (pDest[0] != '\0' && pDest[strlen(pDest) - 1] != '/') {
    UTIL_AppendString(pDest, "/", size);
  }
  if (name == nullptr) {
    return;
  }
  UTIL_AppendString(pDest, name, size);
  if (extension != nullptr) {
    UTIL_AppendString(pDest, extension[0] == '.' ? "" : ".", size);
    UTIL_AppendString(pDest, extension, size);
  }
}

void SYS_NormalizeSlashes(char* path) {
  UTIL_ReplaceChar(path, '\\', '/');
}

int32_t SYS_IsAbsolutePath(const char* path) {
  return path != nullptr && path[0] == '/';
}

void SYS_JoinPath(const char* base, const char* relative, char* pDest, uint32_t size) {
  memset(pDest, 0, size);
  if (relative[0] != '\0' && !SYS_IsAbsolutePath(relative)) {
    CopyPart(pDest, size, base, SYS_FILE_Exists(base) ? FindParts(base).DirLen : strlen(base));
  }
  if (size != 0) {
    UTIL_AppendString(pDest, relative, size);
  }
}

void SYS_GetFileExtension(const char* path, char* pDest, uint32_t size) {
  path = path != nullptr ? path : "";
  const PATH_PARTS parts = FindParts(path);
  CopyWholePart(pDest, size, path + parts.ExtensionPos, parts.Length - parts.ExtensionPos);
}

void SYS_GetFileBaseName(const char* path, char* pDest, uint32_t size) {
  path = path != nullptr ? path : "";
  const PATH_PARTS parts = FindParts(path);
  CopyWholePart(pDest, size, path + parts.DirLen, parts.ExtensionPos - parts.DirLen);
}
