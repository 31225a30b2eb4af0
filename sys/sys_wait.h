#ifndef SYS_SYS_WAIT_H
#define SYS_SYS_WAIT_H

// Waiting on one descriptor: a file, socket, pipe, terminal or serial port, in blocking mode or not.
//
// A time-out is in milliseconds: 0 only looks, a negative one waits without limit. A signal neither ends nor prolongs a
// wait. A descriptor counts as ready when a call would not block, so also at the end of its data, after its peer has
// gone, and when the call would fail.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Waits until fd can be read, or written. Returns 1 when it is ready, 0 when the time ran out, -1 when fd is not open.
int32_t SYS_WaitReadable(int32_t fd, int32_t timeoutMs);
int32_t SYS_WaitWritable(int32_t fd, int32_t timeoutMs);

// Waits until fd can be read, then reads once, up to numBytes bytes into pBuffer. Returns the number of bytes, 0 when
// the time ran out or the data has ended (SYS_WaitReadable tells one from the other), -1 when the wait or the read
// fails.
int32_t SYS_ReadTimeout(int32_t fd, void* pBuffer, uint32_t numBytes, int32_t timeoutMs);

#ifdef __cplusplus
}
#endif

#endif
