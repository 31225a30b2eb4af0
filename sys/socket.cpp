// Sockets: creation, options and readiness. Which options a new socket gets is the layer's promise; whether the
// platform accepts them is not checked, since a socket without them still works.

#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>

#include "sys/platform.h"
#include "sys/socket_internal.h"
#include "sys/sys_socket.h"
#include "sys/sys_wait.h"

namespace {

constexpr int32_t MS_PER_S = 1000;
constexpr int32_t US_PER_MS = 1000;
constexpr int32_t MAX_LINGER_S = UINT16_MAX;  // What the narrowest platform keeps.

}  // namespace

int32_t SYS_SOCKET_CreateTCP(void) {
  const int32_t sock = PLATFORM_CreateSocket(AF_INET, SOCK_STREAM);
  if (sock >= 0) {
    SetSocketOption(sock, IPPROTO_TCP, TCP_NODELAY, 1);
  }
  return sock;
}

int32_t SYS_SOCKET_CreateTCPv6(void) {
  const int32_t sock = PLATFORM_CreateSocket(AF_INET6, SOCK_STREAM);
  if (sock >= 0) {
    SetSocketOption(sock, IPPROTO_TCP, TCP_NODELAY, 1);
    SetSocketOption(sock, IPPROTO_IPV6, IPV6_V6ONLY, 1);
  }
  return sock;
}

int32_t SYS_SOCKET_CreateUDP(void) {
  return PLATFORM_CreateSocket(AF_INET, SOCK_DGRAM);
}

int32_t SYS_SOCKET_CreateUDPv6(void) {
  const int32_t sock = PLATFORM_CreateSocket(AF_INET6, SOCK_DGRAM);
  if (sock >= 0) {
    SetSocketOption(sock, IPPROTO_IPV6, IPV6_V6ONLY, 1);
  }
  return sock;
}

void SYS_SOCKET_Close(int32_t sock) {
  close(sock);
}

void SYS_SOCKET_Shutdown(int32_t sock, uint32_t how) {
  static_assert(SHUT_RD == 0 && SHUT_WR == 1 && SHUT_RDWR == 2);
  if (how <= SHUT_RDWR) {
    shutdown(sock, static_cast<int>(how));
  }
}

int32_t SYS_SOCKET_SetReuseAddr(int32_t sock) {
  return SetSocketOption(sock, SOL_SOCKET, SO_REUSEADDR, 1);
}

int32_t SYS_SOCKET_SetBroadcast(int32_t sock) {
  return SetSocketOption(sock, SOL_SOCKET, SO_BROADCAST, 1);
}

int32_t SYS_SOCKET_SetKeepAlive(int32_t sock) {
  return SetSocketOption(sock, SOL_SOCKET, SO_KEEPALIVE, 1);
}

int32_t SYS_SOCKET_SetRxBufSize(int32_t sock, int32_t numBytes) {
  return SetSocketOption(sock, SOL_SOCKET, SO_RCVBUF, numBytes);
}

int32_t SYS_SOCKET_SetLinger(int32_t sock, int32_t timeMs) {
  linger value = {};
  value.l_onoff = 1;
  if (timeMs != 0) {
    // Wider than the time, which may be the largest there is. A time cut to 16 bits could become 0, a reset.
    const int64_t rounded = (int64_t{timeMs} + MS_PER_S / 2) / MS_PER_S;
    value.l_linger = static_cast<int>(std::clamp<int64_t>(rounded, 1, MAX_LINGER_S));
  }
  setsockopt(sock, SOL_SOCKET, PLATFORM_LINGER_SECONDS, &value, sizeof(value));
  return 0;
}

int32_t SYS_SOCKET_ClearLinger(int32_t sock) {
  const linger value = {};
  setsockopt(sock, SOL_SOCKET, PLATFORM_LINGER_SECONDS, &value, sizeof(value));
  return 0;
}

namespace {

int32_t SetTimeout(int32_t sock, int option, int32_t timeMs) {
  timeval value = {};
  value.tv_sec = timeMs / MS_PER_S;
  value.tv_usec = timeMs % MS_PER_S * US_PER_MS;
  return setsockopt(sock, SOL_SOCKET, option, &value, sizeof(value));
}

}  // namespace

int32_t SYS_SOCKET_SetTimeouts(int32_t sock, int32_t sendMs, int32_t receiveMs) {
  SetTimeout(sock, SO_SNDTIMEO, sendMs);
  return SetTimeout(sock, SO_RCVTIMEO, receiveMs);
}

namespace {

int32_t SetStatusFlag(int32_t sock, int flag, bool isOn) {
  const int flags = fcntl(sock, F_GETFL);
  return flags < 0 ? -1 : fcntl(sock, F_SETFL, isOn ? flags | flag : flags & ~flag);
}

}  // namespace

int32_t SYS_SOCKET_SetBlocking(int32_t sock) {
  return SetStatusFlag(sock, O_NONBLOCK, false);
}

int32_t SYS_SOCKET_SetNonBlocking(int32_t sock) {
  return SetStatusFlag(sock, O_NONBLOCK, true);
}

int32_t SYS_SOCKET_IsDataAvailable(int32_t sock) {
  // Peeking would take a pending error away from SYS_SOCKET_GetError, and polling takes the end for data.
  int numBytes = 0;
  return ioctl(sock, FIONREAD, &numBytes) == 0 && numBytes > 0;
}

int32_t SYS_SOCKET_WaitReadable(int32_t sock, int32_t timeoutMs) {
  return SYS_WaitReadable(sock, timeoutMs);
}

int32_t SYS_SOCKET_WaitWritable(int32_t sock, int32_t timeoutMs) {
  return SYS_WaitWritable(sock, timeoutMs);
}
