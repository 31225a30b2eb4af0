#ifndef SYS_SYS_REPLACE_H
#define SYS_SYS_REPLACE_H

// Giving a file a new content in one step that lasts: whoever looks at the file, also after the process was killed or
// the machine lost power at any moment, finds the whole old content or the whole new one.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Makes the numBytes bytes at pData (may be null when numBytes is 0) the content of the file at path, which is created
// when it is missing. They are written to a file beside it, named as it is with ".new" appended, and flushed to the
// medium; that file then takes the place of the old one, and the directory is flushed too. Permission bits are those of
// the old file, and so are owner and group as far as the user may give files away; access control lists, extended
// attributes and further hard links stay with the old content. A symbolic link stays one, and the file that it leads to
// is replaced. What a process that was killed left under the name of the new file is used up by the next call.
//
// With a keepSuffix that is not null, the old file stays beside the new one, named as it is with the suffix appended; a
// file that has that name is removed. With oldFd not -1 that is so only if the file is still the one open there. On a
// file system without hard links the name is missing for the moment between the two renames.
//
// Threads and processes that replace one file at the same time take turns, the last one winning; a call waits for the
// others up to ten seconds.
//
// Returns 0, or -1: the old content is there unchanged when the path names something else than a regular file, when a
// file cannot be created in its directory, is not writable or has the name of the new file and cannot be opened, when
// there is no room, when the other calls do not end, or when the old file cannot be kept; the new content is there, but
// may be lost with the power, when only the directory could not be flushed.
int32_t SYS_FILE_Replace(const char* path, const void* pData, uint32_t numBytes, const char* keepSuffix, int32_t oldFd);

#ifdef __cplusplus
}
#endif

#endif
