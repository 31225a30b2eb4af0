#ifndef XML_HIVE_H
#define XML_HIVE_H

// The storage of the registry: each root is a hive, an XML document in a file of the application-data directory
// (SYS_GetAppDataDir): NORDAX_REG_HKEY_CLASSES_ROOT.xml, NORDAX_REG_HKEY_CURRENT_USER.xml and
// NORDAX_REG_HKEY_LOCAL_MACHINE.xml.
//
// A hive is loaded when its root is first used, stays in memory while key handles are open on it, and is written back,
// when its text has changed, as the last of them is closed. The write-back replaces the file in one step that lasts
// (SYS_FILE_Replace): after a failure or a kill at any moment the file has its whole old or its whole new text.
// Failures of a write-back are not reported. Of several processes that use a hive each has a copy of its own, and the
// last write-back wins. Any file that XML_LoadFd reads is a hive, whatever its root is named. One that cannot be read
// counts as an empty hive; unless it is empty itself, its first write-back keeps it under its name with ".bad"
// appended.
//
// Hives are the process's, without a lock: everything here and in xml/registry.h belongs to one thread at a time.

#include <stdint.h>

#include "xml/registry.h"
#include "xml/xml.h"

#ifdef __cplusplus
extern "C" {
#endif

// Most bytes that the text of a hive may have. A hive whose text is longer can be loaded and used, but its changes are
// never written: the file keeps what it has.
#define SYS_REG_MAX_HIVE_SIZE 0x100000u

// Bytes that the name of a key or a value has room in, with its terminator.
#define SYS_REG_MAX_NAME_BYTES 512u

// One hive. All zero while it is not loaded; the records are this module's own, for others to read.
typedef struct SYS_REG_HIVE {
  XML_DOC* pDoc;         // Null while the hive is not loaded.
  int32_t Fd;            // The file as it was loaded, open for reading and writing.
  char* pSnapshot;       // The hive's text right after loading; null when it was too long or memory was exhausted.
  uint32_t SnapshotLen;  // Its length in bytes, 0 when there is none.
  uint32_t NumUsers;     // Key handles that are open on the hive.
} SYS_REG_HIVE;

// A key handle. It is created and freed in xml/registry.h, and counts as one user of its hive in between.
struct SYS_REG_KEY {
  SYS_REG_HIVE* pHive;
  XML_ELEMENT* pElement;
};

// Returns 1 for a root, also for one that this system does not have (0x80000003 to 0x80000006), and 0 for all else.
int32_t SYS_REG_IsRoot(SYS_REG_HANDLE handle);

// Gives the element that a root or a key handle stands for, and its hive, which is loaded first when it is not, with no
// users. The directory is created where it is missing, also for a key handle. A file that is missing is created empty
// (0644, less the process's file-creation mask); while it cannot be opened, it is tried three times more, 5 ms apart.
//
// Returns 0 or more on success, the length of the snapshot when this call loaded the hive. Returns a negative result
// with *ppElement null and *ppHive as it was when the directory cannot be had, among others because HOME is unset, or
// its path and the file's name exceed 511 characters together; when the file cannot be opened; when memory is
// exhausted; and, once, in the call that loads a hive whose text is longer than SYS_REG_MAX_HIVE_SIZE, which later
// calls find loaded. Returns -1 with both outputs as they were for null and for the roots that this system does not
// have.
int32_t SYS_REG_GetHive(SYS_REG_HANDLE handle, XML_ELEMENT** ppElement, SYS_REG_HIVE** ppHive);

// Ends the use of a hive by one key handle, which the caller frees. When that was the last one, or force is not 0, the
// hive is written back, unless its text is that of the snapshot, and unloaded: elements, attributes and key handles of
// it are gone. A hive that is not loaded is left alone.
void SYS_REG_ReleaseHive(SYS_REG_HIVE* pHive, int32_t force);

// Writes back and unloads all hives: the only way for changes that were made through roots alone. No key handle may be
// open, since those that are end here.
void SYS_REG_SaveAll(void);

#ifdef __cplusplus
}
#endif

#endif
