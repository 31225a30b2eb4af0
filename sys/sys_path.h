#ifndef SYS_SYS_PATH_H
#define SYS_SYS_PATH_H

// Paths as texts, where the running program stands, and the directories that it may use. The separator is '/', a path
// is absolute when it begins with one, and a directory that an operation of this topic makes ends in one where not said
// otherwise. Results go into size bytes at pDest, which must not be null unless said otherwise.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Splits a path: /x/y.z/file.tar.gz gives the directory "/x/y.z/", the name "file.tar" and the extension ".gz". The
// directory is everything up to the last '/'. The extension begins at the last '.' behind it, unless that is the first
// character of the name. The drive is always empty. Each output may be null; the others are cut to their sizes, the
// extension to nameSize, or, with nameSize 0, not at all: its buffer must hold it then. A null path, or exhausted
// memory with a path of more than 1,023 characters, leaves all outputs as they were. Outputs may overlap the path.
void SYS_SplitPath(const char* path, char* pDrive, uint32_t driveSize, char* pDir, uint32_t dirSize, char* pName,
                   uint32_t nameSize, char* pExtension);

// Composes a path: the directory, a '/' where it lacks one, the name, and the extension with a '.' where it lacks one.
// drive is ignored, dir and extension may be null, and a null name ends the path after the directory. A null pDest is
// ignored.
void SYS_MakePath(char* pDest, uint32_t size, const char* drive, const char* dir, const char* name,
                  const char* extension);

// Turns every '\' of the path into '/', in place.
void SYS_NormalizeSlashes(char* path);

// Returns 1 when the path begins with '/', else 0, also for null.
int32_t SYS_IsAbsolutePath(const char* path);

// Places a relative path beside a base: behind the directory of a base that is a readable file, else right behind the
// whole base, which should end in '/' then. An empty or absolute relative path stands alone. All size bytes are
// written.
void SYS_JoinPath(const char* base, const char* relative, char* pDest, uint32_t size);

// Gives the extension of a path with its '.', or its name without extension, as SYS_SplitPath does; empty when it does
// not fit whole, and for a null path.
void SYS_GetFileExtension(const char* path, char* pDest, uint32_t size);
void SYS_GetFileBaseName(const char* path, char* pDest, uint32_t size);

// Gives the absolute path of the running program with its symbolic links resolved, or the empty text when the platform
// does not know it.
void SYS_GetExePath(char* pDest, uint32_t size);

// Gives the directory of SYS_GetExePath, cut to 255 characters, and a '/' where it lacks one; empty when there is none.
void SYS_GetExeDir(char* pDest, uint32_t size);

// Gives the path of the running process as the platform's process table has it, links not resolved; empty when it does
// not fit whole or is not known. SYS_GetExeDirByPid gives its directory, as SYS_GetExeDir does, when it is shorter than
// 512.
void SYS_GetExePathByPid(char* pDest, uint32_t size);
void SYS_GetExeDirByPid(char* pDest, uint32_t size);

// Gives the directory for temporary files: the value of TMPDIR as it is, or "/tmp/" when that is unset. Returns the
// length of the whole text, also when it was cut.
int32_t SYS_GetTempDir(char* pDest, uint32_t size);

// Gives the directory for the application's data, "Library/Application Support/NORDAX" below HOME, without a '/' at its
// end, and creates it with its parents where it is missing. Returns 0, or -1 with pDest as it was when pDest is null,
// size is 0, HOME is unset or empty, or the directory cannot be created. A path of more than 511 characters, or of size
// and more, is cut before it is created.
int32_t SYS_GetAppDataDir(char* pDest, uint32_t size);

// Gives a directory that files can be created in: that of SYS_GetExeDir if a trial shows it to be one, else ".NORDAX"
// below HOME, without a '/' at its end, which is created (0775, less the file-creation mask) where it is missing. Gives
// the first when HOME is unset or empty, and the second even when it cannot be created. The trial leaves nothing
// behind. The last of the size bytes is 0 in any case.
void SYS_GetWritableDir(char* pDest, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif
