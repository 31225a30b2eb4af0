#ifndef SYS_REPEAT_H
#define SYS_REPEAT_H

// Inside the layer: system calls that a signal must not fail, and how many bytes one of them may be asked for.

#include <errno.h>
#include <stddef.h>
#include <stdint.h>

// Makes a call until it is not interrupted, and returns its result.
template <typename CALL>
auto Repeat(CALL call) {
  auto result = call();
  while (result < 0 && errno == EINTR) {
    result = call();
  }
  return result;
}

// What the 32-bit result of one transfer can tell; Darwin refuses more.
inline size_t ClipLength(uint32_t numBytes) {
  return numBytes < INT32_MAX ? numBytes : INT32_MAX;
}

#endif
