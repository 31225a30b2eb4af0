#ifndef SYS_SYS_DIR_H
#define SYS_SYS_DIR_H

// Files and directories by path: what is there, creating, renaming and removing it, listing a directory, the working
// directory of the process.
//
// Symbolic links are followed where not said otherwise. Pointers must not be null except where said otherwise. Any
// number of threads may call any operation; what another thread or process does to the same files meanwhile may show in
// the results.

#include <stdint.h>

#include "sys/sys_time.h"

#ifdef __cplusplus
extern "C" {
#endif

// Attributes of files. A set of these bits, 0 for a writable regular file, or -1 for what is neither a regular file nor
// a directory (a device, a socket, a pipe).
#define SYS_FILE_ATTR_READ_ONLY 0x01  // None of the three write-permission bits is set, whoever asks.
#define SYS_FILE_ATTR_DIRECTORY 0x10

// One entry of a directory. It lives, with its texts, for the time of the callback that it is handed to.
typedef struct SYS_DIR_ENTRY {
  SYS_TIME Time;       // Last modification, in local time; milliseconds are 0.
  const char* pName;   // Name without directory.
  const char* pDir;    // The directory's path as the caller gave it.
  uint64_t Size;       // In bytes.
  int32_t Attributes;  // As above.
} SYS_DIR_ENTRY;

// Takes one entry of a directory. The result is ignored.
typedef int32_t SYS_DIR_FUNC(const SYS_DIR_ENTRY* pEntry, void* pContext);

// Returns 1 when the path names a regular file, or a directory, that the process's user may read, else 0.
int32_t SYS_FILE_Exists(const char* path);
int32_t SYS_DIR_Exists(const char* path);

// Returns 1 when whatever the directory part of the path names can be opened for reading, else 0; also 0 for null, and
// for a path without a directory part or with the root alone as that.
int32_t SYS_DirOfPathExists(const char* path);

// Returns the attributes of what the path names, 0 for a null path, or -1 when there is nothing or it cannot be looked
// at.
int32_t SYS_FILE_GetAttributes(const char* path);

// Removes a file, or a symbolic link itself. Returns 0 in every case.
int32_t SYS_FILE_Delete(const char* path);

// Gives a file or directory another path on the same file system and replaces, in one step, a file that has that path.
// Links are renamed themselves. Returns 0 or -1.
int32_t SYS_FILE_Rename(const char* oldPath, const char* newPath);

// Removes an empty directory. Returns 0 or -1.
int32_t SYS_DIR_Remove(const char* path);

// Creates a directory and all parents that are missing, open to everybody as far as the process's file-creation mask
// lets them (0777). Returns 0 when the directory is there in the end, also when it was before or somebody else created
// it at the same time, and -1 when path is null or empty, when one of the parents or the path itself is no directory,
// or when one cannot be created. Parents are created when their paths have at most 511 characters.
//
// depth limits how far it goes: it is the number of paths, this one and its parents one by one, that may be looked at
// until one is found that exists (the empty parent of a relative path needs none). When it runs out, nothing is created
// and the result is -1. SYS_DIR_CreatePath goes 128 deep.
int32_t SYS_DIR_CreatePath(const char* path);
int32_t SYS_DIR_CreatePathDepth(const char* path, int32_t depth);

// Calls pfOnEntry with pContext for each regular file and each directory in the directory at path, in the platform's
// order, and returns their number, or -1 when the directory cannot be opened or read. "." and "..", symbolic links and
// everything else are left out, as are entries that have vanished by the time they are looked at and those whose path
// would have more than 511 characters. With a null pfOnEntry entries are only counted, by their names and types alone.
// The callback may change the directory, list others, and change the working directory.
int32_t SYS_DIR_List(const char* path, void* pContext, SYS_DIR_FUNC* pfOnEntry);

// Gives the working directory. Returns 0, or -1 with an empty text when it is not known or does not fit whole.
int32_t SYS_GetCwd(char* pBuffer, uint32_t size);

// Makes path the working directory of the whole process. Returns 0 or -1.
int32_t SYS_SetCwd(const char* path);

// Returns the error number (errno) that the last failure on this thread left. It means nothing after a success.
int32_t SYS_GetLastError(void);

#ifdef __cplusplus
}
#endif

#endif
