#ifndef XML_REGISTRY_H
#define XML_REGISTRY_H

// A registry: keys in three trees, and values in the keys, kept in files of the user (xml/hive.h).
//
// Handles stand for keys: the three roots, which are always there, and those that SYS_REG_OpenKey and SYS_REG_CreateKey
// return, which belong to the caller until SYS_REG_CloseKey. What operations change reaches the file when the last
// handle of its tree is closed; what was changed through a root alone, with none opened and closed after it, by
// SYS_REG_SaveAll. Everything belongs to one thread at a time.
//
// Key names consist of ASCII letters, digits, '_' and '-', not beginning with '-', and have at most 255 characters. A
// path is made of names separated by '\'. In it white space is dropped, but a tab inside a word counts as a character,
// and every other character that names do not have, and '-' at the start of one, stands for '_': "My Key" and "MyKey"
// are one name, "a.b" and "a_b" too. The first empty name ends the path, whatever follows. Keys lie at most 100 deep.
//
// Names of values consist of the same characters and have at most 511 of them; longer ones are cut. In the text that
// gives a name white space between words is dropped, with one comma in it, and words may stand in double quotes, in
// which blanks count. Names with "_NORDAXReg" in them are the registry's own. Case does not matter in any name.
//
// Every operation fails, with SYS_REG_ERROR or null, when its handle is null or one of the roots that this system does
// not have (0x80000003 to 0x80000006), or when the hive cannot be had (SYS_REG_GetHive); the operations on values also
// when the name is null or empty, while a text that has no word in it makes them succeed and do nothing. Pointers must
// not be null except where said otherwise.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Types of values.
#define SYS_REG_TYPE_SZ 1u         // Text.
#define SYS_REG_TYPE_EXPAND_SZ 2u  // Text, meant to have variables in it; nothing here looks at them.
#define SYS_REG_TYPE_BINARY 3u     // Known by name, not supported.
#define SYS_REG_TYPE_DWORD 4u      // Unsigned number of 32 bits, in 4 bytes, lowest first.
#define SYS_REG_TYPE_MULTI_SZ 7u   // Texts one after the other, each with its terminator, and one more terminator.
#define SYS_REG_TYPE_QWORD 11u     // Unsigned number of 64 bits, in 8 bytes, lowest first.
#define SYS_REG_TYPE_UNKNOWN 0xFFFFFFFFu  // The file has something else.

// Results.
#define SYS_REG_OK 0u
#define SYS_REG_ERROR 1u
#define SYS_REG_NOT_FOUND 2u
#define SYS_REG_MORE_DATA 234u

typedef struct SYS_REG_KEY SYS_REG_KEY;
typedef SYS_REG_KEY* SYS_REG_HANDLE;

// The roots. Their handles are numbers.
#ifdef __cplusplus
#define SYS_REG_ROOT(number) (reinterpret_cast<SYS_REG_HANDLE>(uintptr_t{number}))
#else
#define SYS_REG_ROOT(number) ((SYS_REG_HANDLE)(uintptr_t)(number))
#endif
#define HKEY_CLASSES_ROOT SYS_REG_ROOT(0x80000000u)
#define HKEY_CURRENT_USER SYS_REG_ROOT(0x80000001u)
#define HKEY_LOCAL_MACHINE SYS_REG_ROOT(0x80000002u)

// Returns a handle to the key at path below the given one, or null also when there is none, a name has more than 511
// characters, path is null or memory is exhausted. An empty path gives another handle to the same key.
SYS_REG_HANDLE SYS_REG_OpenKey(SYS_REG_HANDLE handle, const char* path);

// As SYS_REG_OpenKey, and creates the keys that are missing. Fails also when one would have a name of more than 255
// characters or lie too deep, which its file could not be read with. Keys created before a failure stay.
SYS_REG_HANDLE SYS_REG_CreateKey(SYS_REG_HANDLE handle, const char* path);

// Ends the use of a handle. The last one of a tree writes the tree's file, if something has changed: it is then
// replaced in one step, or stays as it was when that fails, which is not reported. Null and roots are ignored.
void SYS_REG_CloseKey(SYS_REG_HANDLE handle);

// Copies the name of a key's sub-key number index, from 0 in the order of creation, into the size bytes at pBuffer, cut
// to size - 1 characters. Returns SYS_REG_OK, or SYS_REG_ERROR with an empty text when there is no such key or pBuffer
// is null.
uint32_t SYS_REG_EnumKey(SYS_REG_HANDLE handle, uint32_t index, char* pBuffer, uint32_t size);

// Stores a value; one that has the name already is replaced. Of texts the terminator ends pData, and size is not looked
// at. For numbers, bytes that are missing count as 0 and those beyond the width are ignored. Several texts must be
// ended by the second terminator in a row and fill size exactly: of them only the first may be empty, so that no text
// at all is two terminators. A null pData counts as an empty text, and as no bytes when size is 0.
//
// Returns SYS_REG_OK, or SYS_REG_ERROR with nothing changed when the name has other characters than those above or is
// the registry's own, a text has a double quote in it, the data are not as the type wants them or the type is none that
// can be stored. Also returns SYS_REG_ERROR when memory is exhausted: the value is as it was then, or gone.
uint32_t SYS_REG_SetValue(SYS_REG_HANDLE handle, const char* name, uint32_t type, const void* pData, uint32_t size);

// Reads a value. pType, unless it is null, gets its type. With a pData that is not null, *pSize is the size of the
// buffer there, and gets the number of bytes of the value with all terminators; without, pSize is not looked at.
// Returns
//   SYS_REG_OK         the type and, when asked for, the data are there;
//   SYS_REG_NOT_FOUND  there is no such value, and the outputs are as they were;
//   SYS_REG_MORE_DATA  the buffer is too small. *pSize is the size that is needed, but as it was for numbers. As much
//                      of a text as fits is there with a terminator, of other types nothing.
//   SYS_REG_ERROR      an argument is missing, the value is incomplete in the file, or its type is unknown
//                      (SYS_REG_TYPE_UNKNOWN) or, with pData, not supported.
// A number whose text is none is 0.
uint32_t SYS_REG_QueryValue(SYS_REG_HANDLE handle, const char* name, uint32_t* pType, void* pData, uint32_t* pSize);

// Removes a value. Returns SYS_REG_ERROR also when there is none or its type is unknown.
uint32_t SYS_REG_DeleteValue(SYS_REG_HANDLE handle, const char* name);

// Removes all values from the direct sub-key of that name, read as the name of a value. The sub-key stays, and so do
// its own sub-keys. Returns SYS_REG_OK also when there is none.
uint32_t SYS_REG_ClearSubKey(SYS_REG_HANDLE handle, const char* name);

// Returns the type whose name in the files is text, such as "SYS_REG_TYPE_SZ", or SYS_REG_TYPE_UNKNOWN, also for null.
uint32_t SYS_REG_TypeFromName(const char* text);

#ifdef __cplusplus
}
#endif

#endif
