#ifndef TESTS_SOCKET_SUPPORT_H
#define TESTS_SOCKET_SUPPORT_H

// What the socket tests share: sockets that close themselves, connections over the loopback interface, and the families
// that this machine has there.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <utility>
#include <vector>

#include "sys/sys_socket.h"

constexpr uint32_t LOOPBACK = 0x7F000001;
constexpr uint8_t LOOPBACK_V6[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
constexpr uint8_t ANY_V6[16] = {};

class SOCKET {
 public:
  explicit SOCKET(int32_t fd) : sock(fd) {}
  SOCKET(SOCKET&& other) noexcept : sock(std::exchange(other.sock, -1)) {}
  ~SOCKET() { Close(); }
  operator int32_t() const { return sock; }

  void Close() {
    if (sock >= 0) {
      SYS_SOCKET_Close(std::exchange(sock, -1));
    }
  }

 private:
  int32_t sock;
};

inline uint32_t PortOf(int32_t sock) {
  uint32_t port = 0;
  SYS_SOCKET_GetLocalPort(sock, &port);
  return port;
}

template <typename VALUE = int>
VALUE OptionOf(int32_t sock, int level, int option) {
  VALUE value = {};
  socklen_t size = sizeof(value);
  EXPECT_EQ(getsockopt(sock, level, option, &value, &size), 0);
  return value;
}

// One family's stream operations on the loopback interface.
struct FAMILY {
  bool IsV6;

  SOCKET Create() const { return SOCKET(IsV6 ? SYS_SOCKET_CreateTCPv6() : SYS_SOCKET_CreateTCP()); }
  int32_t Listen(int32_t sock) const {
    return IsV6 ? SYS_SOCKET_ListenV6(sock, LOOPBACK_V6, 0, 4) : SYS_SOCKET_Listen(sock, LOOPBACK, 0, 4);
  }
  int32_t Connect(int32_t sock, uint32_t port) const {
    return IsV6 ? SYS_SOCKET_ConnectV6(sock, LOOPBACK_V6, port) : SYS_SOCKET_Connect(sock, LOOPBACK, port);
  }
};

inline bool HasV6() {
  SOCKET sock(SYS_SOCKET_CreateTCPv6());
  return SYS_SOCKET_ListenV6(sock, LOOPBACK_V6, 0, 1) == 0;
}

inline std::vector<FAMILY> Families() {
  return HasV6() ? std::vector<FAMILY>{{false}, {true}} : std::vector<FAMILY>{{false}};
}

struct CONNECTION {
  SOCKET Listener;
  SOCKET Client;
  SOCKET Server;

  explicit CONNECTION(FAMILY family = {}, int32_t (*pfAccept)(int32_t) = SYS_SOCKET_Accept)
      : Listener(family.Create()), Client(family.Create()), Server(Open(family, pfAccept)) {}

 private:
  int32_t Open(FAMILY family, int32_t (*pfAccept)(int32_t)) {
    EXPECT_EQ(family.Listen(Listener), 0);
    EXPECT_EQ(family.Connect(Client, PortOf(Listener)), 0);
    const int32_t server = pfAccept(Listener);
    EXPECT_GE(server, 0);
    return server;
  }
};

#endif
