#ifndef SYS_REPEAT_H
#define SYS_REPEAT_H

// Inside the layer: system calls that a signal must not fail.

#include <errno.h>

// Makes a call until it is not interrupted, and returns its result.
template <typename CALL>
auto Repeat(CALL call) {
  auto result = call();
  while (result < 0 && errno == EINTR) {
    result = call();
  }
  return result;
}

#endif
