#ifndef SYS_SYS_FILE_H
#define SYS_SYS_FILE_H

// Files by descriptor: opening, reading and writing, position and length, times, mapping into memory.
//
// A descriptor is the platform's own and belongs to whoever opened it until SYS_FILE_Close; programs that the process
// starts do not inherit it. Pointers must not be null except where said otherwise. Any number of threads may work on
// descriptors of their own; what threads share through one descriptor is its position.

#include <stdint.h>

#include "sys/sys_time.h"

#ifdef __cplusplus
extern "C" {
#endif

// How to open. Without SYS_FILE_READ and SYS_FILE_WRITE a file is opened for reading; bits without a name are ignored.
#define SYS_FILE_READ 0x01u
#define SYS_FILE_WRITE 0x02u
#define SYS_FILE_CREATE 0x10u     // Create the file when it is missing.
#define SYS_FILE_TRUNCATE 0x20u   // Cut a file that exists to length 0; ignored for exclusive creation.
#define SYS_FILE_SEEK_END 0x40u   // Stand at the end, once, right after opening: it does not make every write append.
#define SYS_FILE_EXCLUSIVE 0x80u  // With SYS_FILE_CREATE: fail when the file exists, even as a link to nothing.

// Opens the file at path and returns its descriptor, or -1. A file that this creates is readable by all and writable by
// its owner (0644, less the process's file-creation mask). While the file cannot be opened, for whatever reason, it is
// tried up to numRetries times more, each time after retryDelayMs milliseconds.
int32_t SYS_FILE_OpenEx(const char* path, uint32_t flags, uint32_t numRetries, uint32_t retryDelayMs);

// As SYS_FILE_OpenEx, with one attempt.
int32_t SYS_FILE_Open(const char* path, uint32_t flags);

// As SYS_FILE_Open, for a path as users type it: a '~' at its start stands for the home directory, that is HOME, or
// what the user database holds when HOME is unset; the path with it is cut to 511 characters. With SYS_FILE_CREATE the
// directories that the file needs are created as by SYS_DIR_CreatePath, unless they have more than 511 characters.
// Returns -1 also for a null path, without a home directory, and when a directory cannot be created.
int32_t SYS_FILE_OpenUserPath(const char* path, uint32_t flags);

// Closes the descriptor; -1 is ignored.
void SYS_FILE_Close(int32_t fd);

// Reads up to numBytes bytes at the position, at most INT32_MAX, in one call of the platform. Returns the number of
// bytes, which can be fewer before the end also, 0 at the end, or -1.
int32_t SYS_FILE_Read(int32_t fd, void* pBuffer, uint32_t numBytes);

// Writes up to numBytes bytes at the position, at most INT32_MAX, in one call of the platform. Returns the number of
// bytes written, which can be fewer, or -1.
int32_t SYS_FILE_Write(int32_t fd, const void* pBuffer, uint32_t numBytes);

// Reads up to and including the next line feed or byte 255, at most size - 1 bytes, terminates the text and returns the
// number of bytes; the position is right behind them. A size of 1 or 0 returns 0 and reads nothing. Returns -1 when the
// data ends or a read fails before that: the bytes of the unfinished line are in pBuffer then, without a terminator.
int32_t SYS_FILE_ReadLine(int32_t fd, char* pBuffer, uint32_t size);

// Moves the position by offset bytes from the current position (origin 1), from the end (2) or from the start (any
// other value). Returns the new position, which can be behind the end, or -1 when it would be before the start or fd
// has no position.
int64_t SYS_FILE_Seek(int32_t fd, int32_t offset, int32_t origin);

// Returns the size in bytes, or -1 when fd has none (a pipe, a socket). The position stays.
int64_t SYS_FILE_GetSize(int32_t fd);

// Makes the file length bytes long: cuts it, or appends zero bytes. The position stays. Returns 0 or -1.
int32_t SYS_FILE_Truncate(int32_t fd, int32_t length);

// Gives the times of the last access and the last modification, in local time. Both records may be null. Returns 0, or
// -1 with the records as they were.
int32_t SYS_FILE_GetTimes(int32_t fd, SYS_TIME* pAccessed, SYS_TIME* pModified);

// Maps length bytes of a file that is open for reading and writing, from offset on, into memory: what is written there
// goes to the file and is seen by whoever else has it mapped. offset need not be a multiple of the page size. A file
// that ends before the mapping does is made longer: by a blank as its last byte, with the position behind that and zero
// bytes before it. Returns the address of the byte at offset, or null. The mapping outlives the descriptor and ends
// with SYS_FILE_Unmap.
void* SYS_FILE_Map(int32_t fd, uint64_t offset, uint32_t length);

// Ends a mapping: pAddr is what SYS_FILE_Map returned for this offset and length. Returns 0 or -1.
int32_t SYS_FILE_Unmap(void* pAddr, uint64_t offset, uint32_t length);

// Writes length bytes of a mapping from pAddr on, which may be anywhere in it, back to the file, returns when that is
// done, and lets other mappings of the file see it. Returns 0 or -1.
int32_t SYS_FILE_SyncMap(void* pAddr, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif
