#ifndef UTIL_VALUES_H
#define UTIL_VALUES_H

// Values as texts for people: sizes, durations, addresses, hexadecimal numbers, dates, versions, and why a file
// operation failed.
//
// Each operation writes into the size bytes at pBuffer. A text that does not fit is cut to size - 1 characters and
// always terminated; with size 0 nothing is written, and pBuffer may be null. Where not said otherwise the result is
// the length of the whole text, so that a result of size or more tells that it was cut. Numbers come out whole,
// whatever their width. Other pointers must not be null except where said otherwise, nothing is allocated or kept, and
// any number of threads may call any operation.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Flags of UTIL_FormatHexValue.
#define UTIL_HEX_NO_PREFIX 0x01u
#define UTIL_HEX_LOWER_CASE 0x02u

// A minute on the calendar.
typedef struct UTIL_DATE {
  uint16_t Year;    // In full, 1 or more.
  uint16_t Month;   // 1 to 12.
  uint16_t Day;     // 1 to 31, whatever the month.
  uint16_t Hour;    // 0 to 23.
  uint16_t Minute;  // 0 to 59.
} UTIL_DATE;

// A run of blocks of one size. A region is an array of runs that ends with a run whose Count is 0.
typedef struct UTIL_BLOCK_RUN {
  uint32_t Count;      // Number of blocks; 0 ends the region.
  uint32_t BlockSize;  // Bytes of each block.
  uint32_t Reserved;   // Never looked at here.
} UTIL_BLOCK_RUN;

// Formats a number of bytes in the largest of the units GB, MB and KB (powers of 1,024) of which it is a whole or half
// multiple, and at least one, such as "512 KB" or "1.5 GB"; any other number in bytes, such as "1025 Bytes" and "1
// Byte". Nothing is rounded.
int32_t UTIL_FormatSize(uint64_t numBytes, char* pBuffer, uint32_t size);

// Formats a duration as hours, minutes, seconds, milliseconds and microseconds, such as "1:02:03.004 005". Hours are
// left out when they are 0, minutes when hours are and they are 0 too: "0.000 000" is the shortest.
int32_t UTIL_FormatDuration(uint64_t microseconds, char* pBuffer, uint32_t size);

// Formats an IPv4 netmask, its first octet in the most significant byte, as "255.255.255.0". pBuffer may be null with
// any size. Returns the prefix length, 1 to 31, or -1 when the mask has no leading one, no zero, or a one after a zero;
// the text is written in every case.
int32_t UTIL_FormatNetmask(uint32_t netmask, char* pBuffer, uint32_t size);

// Formats an IPv4 address in network order as it lies in memory of a little-endian machine, its first octet in the
// least significant byte: 0x0100A8C0 is "192.168.0.1". The endpoint is the address with a port, such as
// "192.168.0.1:80"; its result is 1 more than the length of the whole text, the size that it needs.
int32_t UTIL_FormatIPv4(uint32_t addr, char* pBuffer, uint32_t size);
int32_t UTIL_FormatIPv4Endpoint(uint32_t addr, uint32_t port, char* pBuffer, uint32_t size);

// Formats the 16 bytes of an IPv6 address in network order as eight groups of four hexadecimal digits in capitals, none
// of them shortened or left out.
int32_t UTIL_FormatIPv6(const uint8_t* pAddr, char* pBuffer, uint32_t size);

// Formats the 6 bytes of a hardware address as two hexadecimal digits in capitals each, with the separator between
// them.
int32_t UTIL_FormatHWAddr(const uint8_t* pAddr, char separator, char* pBuffer, uint32_t size);

// Formats the sizes of numRegions regions as UTIL_FormatSize does, with " + " between them, such as "512 KB + 64 KB"; a
// null pointer in apRegions is a region of 0 bytes. Without regions the text is "-", or empty when that does not fit
// whole. apRegions may be null then. Returns the sum of all sizes, also when the text was cut; it wraps at 32 bits.
uint32_t UTIL_FormatRegionSizes(const UTIL_BLOCK_RUN* const* apRegions, uint32_t numRegions, char* pBuffer,
                                uint32_t size);

// Format value in 8 or 16 hexadecimal digits, in capitals and without a prefix.
int32_t UTIL_FormatHex32(char* pBuffer, uint32_t size, uint32_t value);
int32_t UTIL_FormatHex64(char* pBuffer, uint32_t size, uint64_t value);

// Formats value as "0x" and 8 hexadecimal digits in capitals, 16 when it exceeds 32 bits. UTIL_HEX_NO_PREFIX leaves out
// the "0x", UTIL_HEX_LOWER_CASE gives small letters. UTIL_FormatHexPrefixed is the same with flags 0.
int32_t UTIL_FormatHexValue(char* pBuffer, uint32_t size, uint64_t value, uint32_t flags);
int32_t UTIL_FormatHexPrefixed(char* pBuffer, uint32_t size, uint64_t value);

// Formats a date as "06. May 2026 12:32"; a year below 1,000 is filled up with blanks. Returns the length of the text,
// -1 when pBuffer or pDate is null, -2 when the text does not fit and was cut, or -3 when a field is outside its range
// and nothing was written.
int32_t UTIL_FormatDate(char* pBuffer, uint32_t size, const UTIL_DATE* pDate);

// Formats the date of a firmware, the decimal number yyyymmdd, as "2026 May 06". Returns 0, or -1 with the text "(FW
// returned invalid version)" when the month is none; the day is not checked. Either text is cut to size; pBuffer may be
// null with any size.
int32_t UTIL_FormatFirmwareDate(uint32_t date, char* pBuffer, uint32_t size);

// Formats a message about the file operation that has just failed on this thread: "Could not open file [name]", and in
// a line of its own the reason where SYS_GetLastError gives one that a user can act on, else an exclamation mark. To be
// called right after the failure; it leaves the error number as it was.
//
// verb is what could not be done, such as "open" or "write". Returns 1 when access was denied and fileName now is a
// file or directory without any write permission, else 0.
int32_t UTIL_FormatFileError(const char* fileName, const char* verb, char* pBuffer, uint32_t size);

// Formats a version below 100,000, such as 94201: 10,000 for each major, 100 for each minor and 1 for each revision.
// The text is the major, a point, two digits of minor, and the revision: nothing for 0, a letter for 1 to 26 ("9.42a"
// to "9.42z"), 'z' and two digits from there on ("9.42z01" for 27). pBuffer must have 8 bytes.
void UTIL_FormatVersion(char* pBuffer, uint32_t version);

#ifdef __cplusplus
}
#endif

#endif
