// Sockets: moving bytes, and what a failure is called. Every length is kept within the range of the results, and every
// send asks the platform not to raise the broken-pipe signal.

#include "sys/platform.h"
#include "sys/repeat.h"
#include "sys/socket_internal.h"
#include "sys/sys_socket.h"

namespace {

// What an error is to each operation; it is SYS_SOCKET_ERROR to all when it has no row.
struct ERROR_ROW {
  int Error;
  int32_t Receive;
  int32_t ReceiveFrom;
  int32_t GetError;
  int32_t Send;
};

constexpr ERROR_ROW ERRORS[] = {
    {EAGAIN, SYS_SOCKET_WOULD_BLOCK, SYS_SOCKET_WOULD_BLOCK, SYS_SOCKET_WOULD_BLOCK, SYS_SOCKET_WOULD_BLOCK},
    {ETIMEDOUT, SYS_SOCKET_TIMED_OUT, SYS_SOCKET_TIMED_OUT, SYS_SOCKET_TIMED_OUT, SYS_SOCKET_ERROR},
    {ENETRESET, SYS_SOCKET_RESET, SYS_SOCKET_RESET, SYS_SOCKET_ERROR, SYS_SOCKET_ERROR},
    {ECONNRESET, SYS_SOCKET_ERROR, SYS_SOCKET_ERROR, SYS_SOCKET_RESET, SYS_SOCKET_ERROR},
    {EINTR, SYS_SOCKET_INTERRUPTED, SYS_SOCKET_ERROR, SYS_SOCKET_INTERRUPTED, SYS_SOCKET_ERROR},
};
static_assert(EAGAIN == EWOULDBLOCK);

int32_t MapError(int error, int32_t ERROR_ROW::*pColumn) {
  for (const ERROR_ROW& row : ERRORS) {
    if (row.Error == error) {
      return row.*pColumn;
    }
  }
  return SYS_SOCKET_ERROR;
}

// Turns the platform's result into the layer's.
int32_t Finish(ssize_t result, int32_t ERROR_ROW::*pColumn) {
  return result >= 0 ? static_cast<int32_t>(result) : MapError(errno, pColumn);
}

}  // namespace

int32_t SYS_SOCKET_GetError(int32_t sock) {
  int error = 0;
  socklen_t size = sizeof(error);
  if (getsockopt(sock, SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
    return SYS_SOCKET_ERROR;
  }
  if (error == 0) {
    return 0;
  }
  errno = error;
  return MapError(error, &ERROR_ROW::GetError);
}

int32_t SYS_SOCKET_Receive(int32_t sock, void* pBuffer, uint32_t numBytes) {
  return Finish(recv(sock, pBuffer, ClipLength(numBytes), 0), &ERROR_ROW::Receive);
}

int32_t SYS_SOCKET_ReceiveAll(int32_t sock, void* pBuffer, uint32_t numBytes) {
  if (numBytes > INT32_MAX) {
    errno = EINVAL;
    return -1;
  }
  // Not MSG_WAITALL, which passes over a signal when some bytes have come, and reports it when none have.
  for (uint32_t count = 0; count < numBytes;) {
    const ssize_t received = recv(sock, static_cast<uint8_t*>(pBuffer) + count, numBytes - count, 0);
    if (received <= 0) {
      return -1;
    }
    count += static_cast<uint32_t>(received);
  }
  return static_cast<int32_t>(numBytes);
}

int32_t SYS_SOCKET_Send(int32_t sock, const void* pBuffer, uint32_t numBytes) {
  return Finish(send(sock, pBuffer, ClipLength(numBytes), PLATFORM_SEND_FLAGS), &ERROR_ROW::Send);
}

namespace {

// The address is an IPv4 number or a pointer to an IPv6 address.
template <typename ADDRESS>
int32_t SendTo(int32_t sock, const void* pBuffer, uint32_t numBytes, ADDRESS addr, uint32_t port) {
  SOCKET_ADDRESS peer;
  if (!peer.Set(addr, port)) {
    return -1;
  }
  return static_cast<int32_t>(sendto(sock, pBuffer, ClipLength(numBytes), PLATFORM_SEND_FLAGS, &peer.Any, peer.Length));
}

}  // namespace

int32_t SYS_SOCKET_SendTo(int32_t sock, const void* pBuffer, uint32_t numBytes, uint32_t addr, uint32_t port) {
  return SendTo(sock, pBuffer, numBytes, addr, port);
}

int32_t SYS_SOCKET_SendToV6(int32_t sock, const void* pBuffer, uint32_t numBytes, const uint8_t* pAddr, uint32_t port) {
  return SendTo(sock, pBuffer, numBytes, pAddr, port);
}

namespace {

template <typename ADDRESS>
int32_t ReceiveFrom(int32_t sock, void* pBuffer, uint32_t numBytes, ADDRESS* pAddr, uint32_t* pPort) {
  SOCKET_ADDRESS peer;
  const ssize_t result = recvfrom(sock, pBuffer, ClipLength(numBytes), 0, &peer.Any, &peer.Length);
  peer.Get(pAddr, pPort);
  return Finish(result, &ERROR_ROW::ReceiveFrom);
}

}  // namespace

int32_t SYS_SOCKET_ReceiveFrom(int32_t sock, void* pBuffer, uint32_t numBytes, uint32_t* pAddr, uint32_t* pPort) {
  return ReceiveFrom(sock, pBuffer, numBytes, pAddr, pPort);
}

int32_t SYS_SOCKET_ReceiveFromV6(int32_t sock, void* pBuffer, uint32_t numBytes, uint8_t* pAddr, uint32_t* pPort) {
  return ReceiveFrom(sock, pBuffer, numBytes, pAddr, pPort);
}
