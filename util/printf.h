#ifndef UTIL_PRINTF_H
#define UTIL_PRINTF_H

// The full formatting engine: flags, width and precision, output devices, and conversions that its users add.
//
// A conversion directive is '%', flags, width, precision, length and a letter:
//   flags      any of '-' (padding after the digits), '+' and ' ' (sign of numbers that are not negative), '0' (zeros
//              up to the width when no precision is given, also with '-') and '#' (no effect)
//   width      decimal digits: the least number of characters, filled up with blanks
//   precision  '.' and decimal digits (none is 0): the least number of digits, filled up with zeros
//   length     any of 'h' and 'l': no effect
//   letter     d         a signed decimal number
//              u         an unsigned decimal number
//              x X       an unsigned hexadecimal number, in capitals with both
//              p         an address: the low 32 bits, in exactly eight hexadecimal digits
//              c         one character
//              s         a text; null and the empty text produce nothing
//              %         a percent sign
//              _         the letter after it is looked up among the added conversions only
//              others    looked up among the added conversions; without one nothing is produced and no argument
//                        consumed
// c, s and % ignore flags, width and precision. All numbers are taken as 32 bits: of a wider argument the low half
// counts. Width and precision are never taken from the arguments. A format that ends inside a directive ends the
// output there.
//
// Texts are always terminated and never pass the end of their buffer; results count what the whole text needs, up to
// INT32_MAX. Pointers must not be null except where said otherwise. Any number of threads may format at once, each into
// buffers of its own; adding conversions is not guarded and belongs before that.

#include <stdarg.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define PRINTF_FLAG_LEFT 0x01
#define PRINTF_FLAG_SIGN 0x02
#define PRINTF_FLAG_SPACE 0x04
#define PRINTF_FLAG_ALT 0x08
#define PRINTF_FLAG_ZERO 0x10
#define PRINTF_FLAG_NEGATIVE 0x20  // Set by the engine alone: the value is the magnitude of a negative number.

// A buffer to format into, owned by the caller.
typedef struct UTIL_PRINTF_BUFFER {
  char* pBuffer;       // Where the characters go.
  int32_t BufferSize;  // Size of the buffer in bytes with room for the terminator, 1 or more.
  int32_t Cnt;  // 0 or more: characters produced, also those that did not fit. The next one goes here; 0 at the start.
} UTIL_PRINTF_BUFFER;

// An output device, owned by the caller: drains its buffer whenever it is full, and once more at the end of a format
// that left something in it.
typedef struct UTIL_PRINTF_DEVICE UTIL_PRINTF_DEVICE;
struct UTIL_PRINTF_DEVICE {
  void* pContext;                                // The owner's; the engine never looks at it.
  UTIL_PRINTF_BUFFER* pBuffer;                   // The buffer that the device drains.
  void (*pfFlush)(UTIL_PRINTF_DEVICE* pDevice);  // Passes the buffer's Cnt characters on and sets Cnt to where the next
                                                 // one goes, usually 0. Null: the device is a plain buffer.
};

// What the handler of an added conversion produces its output with: the three functions of this name below.
typedef struct UTIL_PRINTF_API {
  void (*pfStoreChar)(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, char c);
  int32_t (*pfPrintUnsigned)(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, uint32_t value, uint32_t base,
                             int32_t flags, int32_t width, int32_t precision);
  int32_t (*pfPrintSigned)(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, int32_t value, uint32_t base,
                           int32_t flags, int32_t width, int32_t precision);
} UTIL_PRINTF_API;

// Handler of an added conversion. It takes its own arguments from *pArgs, and the format goes on with the one after
// them. pDevice may be null; width and precision are -1 where the format has none. The result is ignored.
typedef int32_t UTIL_PRINTF_HANDLER(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice,
                                    const UTIL_PRINTF_API* pAPI, va_list* pArgs, int32_t flags, int32_t width,
                                    int32_t precision);

// An added conversion. The node is the caller's and must live as long as formatting may use it.
typedef struct UTIL_PRINTF_CONVERSION {
  struct UTIL_PRINTF_CONVERSION* pNext;
  UTIL_PRINTF_HANDLER* pfHandler;
  char Char;
} UTIL_PRINTF_CONVERSION;

// Formats into the size bytes at pDest. Returns the length of the whole text without its terminator: a result of size
// or more tells that the text was cut. With size 0 nothing is written, pDest may be null, and the length is all that
// comes out.
int32_t UTIL_snprintf(char* pDest, uint32_t size, const char* format, ...);
int32_t UTIL_vsnprintf(char* pDest, uint32_t size, const char* format, va_list args);

// Formats through the device into the device's buffer. Returns the buffer's Cnt at the end.
int32_t UTIL_vprintfDevice(UTIL_PRINTF_DEVICE* pDevice, const char* format, va_list args);

// Formats behind the first Cnt characters of the buffer, through the device unless it is null. Returns Cnt at the end.
int32_t UTIL_PrintfCore(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, const char* format, va_list args);

// Adds a conversion for letter: fills pNode, which serves this one letter only, and puts it before those added earlier.
// Returns 0, or -1 when the letter has one already, which leaves the node untouched. There is no removal, and a
// built-in letter is reached with '_' only.
int32_t UTIL_AddPrintfConversion(UTIL_PRINTF_CONVERSION* pNode, UTIL_PRINTF_HANDLER* pfHandler, char letter);

// Appends one character, or counts it when the buffer is full, and flushes the device (may be null) when that filled
// it.
void UTIL_PrintfStoreChar(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, char c);

// Appends a number in a base of 2 to 16, as a conversion with these flags, width and precision (-1 for none) does.
// pDevice may be null. Returns the number of characters produced, stored or not.
int32_t UTIL_PrintfUnsigned(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, uint32_t value, uint32_t base,
                            int32_t flags, int32_t width, int32_t precision);
int32_t UTIL_PrintfSigned(UTIL_PRINTF_BUFFER* pBuffer, UTIL_PRINTF_DEVICE* pDevice, int32_t value, uint32_t base,
                          int32_t flags, int32_t width, int32_t precision);

#ifdef __cplusplus
}
#endif

#endif
