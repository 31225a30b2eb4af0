#ifndef UTIL_FMT_H
#define UTIL_FMT_H

// The compact formatting engine: no flags, but 64-bit numbers and small hexadecimal letters.
//
// A conversion directive is '%', width, precision, length and a letter:
//   width      decimal digits: the least number of characters, always filled up with blanks before the number
//   precision  '.' and decimal digits: the least number of digits, filled up with zeros
//   length     two 'l' or more: the number is 64 bits wide, else 32
//   letter     d i     a signed decimal number; '-' comes before the blanks and does not count for the width
//              u       an unsigned decimal number
//              x X     an unsigned hexadecimal number in small letters or in capitals
//              p       a 64-bit address in small letters, in a field of 8 when it fits 32 bits, else of the width
//              c       one character
//              s       a text; null produces nothing
//              others  nothing, without consuming an argument: '-', '+', ' ', '#' and 'h' are such letters
// "%%" is a percent sign. c and s ignore width and precision. A format that ends inside a directive ends the output
// there.
//
// Texts that do not fit are cut to size - 1 characters, at most INT32_MAX - 1, and always terminated. format must not
// be null. Any number of threads may format at once, each into a buffer of its own.

#include <stdarg.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Formats into the size bytes at pDest, which should be at least 1; with size 0 nothing is written. Returns the address
// of the terminator. FMT_vsnprintf takes its arguments from *pArgs, which is left behind the last one taken.
char* FMT_snprintf(char* pDest, uint32_t size, const char* format, ...);
char* FMT_vsnprintf(char* pDest, uint32_t size, const char* format, va_list* pArgs);

#ifdef __cplusplus
}
#endif

#endif
