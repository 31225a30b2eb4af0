#ifndef APP_BUILD_STAMP_H
#define APP_BUILD_STAMP_H

// When the program was put together, as "May  6 2026 12:32:33": the local time, the day padded with a blank. The build
// writes the source anew whenever a part of the program has changed. With SOURCE_DATE_EPOCH in the build's environment
// it is that time, in UTC, so that equal sources give equal programs.

#ifdef __cplusplus
extern "C" {
#endif

extern const char BUILD_STAMP[];

#ifdef __cplusplus
}
#endif

#endif
