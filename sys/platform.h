#ifndef SYS_PLATFORM_H
#define SYS_PLATFORM_H

// Inside the layer: what each platform does in its own way, in the layer's terms. One source a platform implements the
// whole list; everything else in the layer is POSIX and common. Results are 0 or -1 where not said otherwise.

#include <stdint.h>

#ifdef __APPLE__
constexpr uint32_t PLATFORM_MAX_LINKS = 32;  // Symbolic links followed in one path.
#else
constexpr uint32_t PLATFORM_MAX_LINKS = 40;
#endif

// Gives the file of the running program's image: absolute, or a bare name when the platform knows no more.
int32_t PLATFORM_GetImagePath(char* pDest, uint32_t size);

// Gives the absolute path of the running process. Returns its length, or -1 when it is not known or does not fit.
int32_t PLATFORM_GetProcessPath(char* pDest, uint32_t size);

#endif
