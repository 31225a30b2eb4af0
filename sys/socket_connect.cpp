// Sockets: making connections and naming their ends. An interrupted call is the caller's to judge: a connection goes on
// being made after one, and a second call would fail.

#include <netinet/tcp.h>

#include "sys/platform.h"
#include "sys/socket_internal.h"
#include "sys/sys_socket.h"

namespace {

typedef int ADDRESS_FUNC(int, const sockaddr*, socklen_t);
typedef int NAME_FUNC(int, sockaddr*, socklen_t*);

// Calls bind or connect. The address is an IPv4 number or a pointer to an IPv6 address.
template <typename ADDRESS>
int32_t CallWith(ADDRESS_FUNC* pfCall, int32_t sock, ADDRESS addr, uint32_t port) {
  SOCKET_ADDRESS address;
  return address.Set(addr, port) ? pfCall(sock, &address.Any, address.Length) : -1;
}

}  // namespace

int32_t SYS_SOCKET_Listen(int32_t sock, uint32_t addr, uint32_t port, int32_t backlog) {
  if (SYS_SOCKET_SetReuseAddr(sock) != 0 || CallWith(bind, sock, addr, port) != 0) {
    return -1;
  }
  return listen(sock, backlog);
}

int32_t SYS_SOCKET_ListenV6(int32_t sock, const uint8_t* pAddr, uint32_t port, int32_t backlog) {
  return CallWith(bind, sock, pAddr, port) == 0 ? listen(sock, backlog) : -1;
}

int32_t SYS_SOCKET_Accept(int32_t sock) {
  const int32_t peer = PLATFORM_AcceptSocket(sock);
  if (peer >= 0) {
    SetSocketOption(peer, IPPROTO_TCP, TCP_NODELAY, 1);
  }
  return peer;
}

int32_t SYS_SOCKET_AcceptTimeout(int32_t sock, int32_t timeoutMs) {
  const int32_t isReady = SYS_SOCKET_WaitReadable(sock, timeoutMs);
  if (isReady <= 0) {
    return isReady < 0 ? SYS_SOCKET_ERROR : SYS_SOCKET_WOULD_BLOCK;
  }
  return SYS_SOCKET_Accept(sock);
}

int32_t SYS_SOCKET_Connect(int32_t sock, uint32_t addr, uint32_t port) {
  return CallWith(connect, sock, addr, port);
}

int32_t SYS_SOCKET_ConnectV6(int32_t sock, const uint8_t* pAddr, uint32_t port) {
  return CallWith(connect, sock, pAddr, port);
}

namespace {

// The record stays empty when the call fails, so that the outputs become 0.
template <typename ADDRESS>
int32_t GetName(NAME_FUNC* pfGetName, int32_t sock, ADDRESS* pAddr, uint32_t* pPort) {
  SOCKET_ADDRESS name;
  const int32_t result = pfGetName(sock, &name.Any, &name.Length);
  name.Get(pAddr, pPort);
  return result;
}

}  // namespace

int32_t SYS_SOCKET_GetLocalAddr(int32_t sock, uint32_t* pAddr, uint32_t* pPort) {
  return GetName(getsockname, sock, pAddr, pPort);
}

int32_t SYS_SOCKET_GetLocalIP(int32_t sock, uint32_t* pAddr) {
  return SYS_SOCKET_GetLocalAddr(sock, pAddr, nullptr);
}

void SYS_SOCKET_GetLocalPort(int32_t sock, uint32_t* pPort) {
  SYS_SOCKET_GetLocalAddr(sock, nullptr, pPort);
}

int32_t SYS_SOCKET_GetPeerAddr(int32_t sock, uint32_t* pAddr, uint32_t* pPort) {
  return GetName(getpeername, sock, pAddr, pPort);
}

int32_t SYS_SOCKET_GetPeerAddrV6(int32_t sock, uint8_t* pAddr, uint32_t* pPort) {
  return GetName(getpeername, sock, pAddr, pPort);
}

int32_t SYS_SOCKET_BindUDP(int32_t sock, uint32_t addr, uint32_t port) {
  return CallWith(bind, sock, addr, port);
}
