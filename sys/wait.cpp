// Waits with poll, which takes any descriptor: select writes out of bounds above FD_SETSIZE. The time that an
// interruption has left is measured on the monotonic clock, which is read only by waits that have an end.

#include "sys/sys_wait.h"

#include <errno.h>
#include <poll.h>
#include <sys/select.h>

#include <algorithm>

#include "sys/sys_file.h"
#include "sys/sys_time.h"

namespace {

int32_t SelectOnce(int32_t fd, int16_t events, int32_t timeoutMs) {
  if (fd >= FD_SETSIZE) {
    errno = EBADF;
    return -1;
  }
  fd_set descriptors;
  FD_ZERO(&descriptors);
  FD_SET(fd, &descriptors);
  timeval limit = {timeoutMs / 1000, timeoutMs % 1000 * 1000};
  return select(fd + 1, events == POLLIN ? &descriptors : nullptr, events == POLLOUT ? &descriptors : nullptr, nullptr,
                timeoutMs < 0 ? nullptr : &limit);
}

int32_t WaitOnce(int32_t fd, int16_t events, int32_t timeoutMs) {
  pollfd entry = {fd, events, 0};
  const int count = poll(&entry, 1, timeoutMs);
  if (count <= 0) {
    return count;
  }
  // Darwin cannot poll every kind of device and then answers as for a closed descriptor; select knows the difference.
  return (entry.revents & POLLNVAL) == 0 ? 1 : SelectOnce(fd, events, timeoutMs);
}

int32_t Wait(int32_t fd, int16_t events, int32_t timeoutMs) {
  if (fd < 0) {  // poll would sleep on it.
    errno = EBADF;
    return -1;
  }
  const uint64_t start = timeoutMs > 0 ? SYS_GetTimeMs() : 0;
  int32_t leftMs = std::max(timeoutMs, -1);
  for (;;) {
    const int32_t result = WaitOnce(fd, events, leftMs);
    if (result >= 0 || errno != EINTR) {
      return result;
    }
    if (timeoutMs > 0) {
      // The difference of two rounded times can be 1 ms too long: better that much late than early.
      const uint64_t elapsedMs = SYS_GetTimeMs() - start;
      const int64_t remainingMs = timeoutMs - static_cast<int64_t>(elapsedMs) + 1;
      leftMs = static_cast<int32_t>(std::clamp<int64_t>(remainingMs, 0, timeoutMs));
    }
  }
}

}  // namespace

int32_t SYS_WaitReadable(int32_t fd, int32_t timeoutMs) {
  return Wait(fd, POLLIN, timeoutMs);
}

int32_t SYS_WaitWritable(int32_t fd, int32_t timeoutMs) {
  return Wait(fd, POLLOUT, timeoutMs);
}

int32_t SYS_ReadTimeout(int32_t fd, void* pBuffer, uint32_t numBytes, int32_t timeoutMs) {
  const int32_t result = SYS_WaitReadable(fd, timeoutMs);
  return result <= 0 ? result : SYS_FILE_Read(fd, pBuffer, numBytes);
}
