// Creation, options, connections and addresses. Everything stays on the loopback interface, with ports that the
// platform chooses. A broken-pipe signal, which no operation may raise, would end the program.

#include <errno.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string>

#include "tests/socket_support.h"

namespace {

// No more descriptors, as long as the object lives; polling one stays possible.
class SCOPED_DESCRIPTOR_LIMIT {
 public:
  SCOPED_DESCRIPTOR_LIMIT() {
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none = {1, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~SCOPED_DESCRIPTOR_LIMIT() { setrlimit(RLIMIT_NOFILE, &before); }

 private:
  rlimit before;
};

int32_t AcceptTimeout(int32_t sock) {
  return SYS_SOCKET_AcceptTimeout(sock, -1);
}

TEST(CreateSocket, GivesFamilyTypeAndOptions) {
  static constexpr struct {
    int32_t (*pfCreate)();
    int Family;
    int Type;
  } aCase[] = {
      {SYS_SOCKET_CreateTCP, AF_INET, SOCK_STREAM},
      {SYS_SOCKET_CreateTCPv6, AF_INET6, SOCK_STREAM},
      {SYS_SOCKET_CreateUDP, AF_INET, SOCK_DGRAM},
      {SYS_SOCKET_CreateUDPv6, AF_INET6, SOCK_DGRAM},
  };
  for (const auto& test : aCase) {
    if (test.Family == AF_INET6 && !HasV6()) {
      continue;
    }
    SOCKET sock(test.pfCreate());
    ASSERT_GE(sock, 0);
    sockaddr_storage own = {};
    socklen_t size = sizeof(own);
    getsockname(sock, reinterpret_cast<sockaddr*>(&own), &size);
    EXPECT_EQ(own.ss_family, test.Family);
    EXPECT_EQ(OptionOf(sock, SOL_SOCKET, SO_TYPE), test.Type);
    EXPECT_EQ(fcntl(sock, F_GETFD), FD_CLOEXEC);
    if (test.Type == SOCK_STREAM) {
      EXPECT_NE(OptionOf(sock, IPPROTO_TCP, TCP_NODELAY), 0);
    }
    if (test.Family == AF_INET6) {
      EXPECT_NE(OptionOf(sock, IPPROTO_IPV6, IPV6_V6ONLY), 0);
    }
    SCOPED_DESCRIPTOR_LIMIT limit;
    EXPECT_EQ(test.pfCreate(), -1);
    EXPECT_EQ(errno, EMFILE);
  }
}

TEST(SocketOptions, ReachThePlatform) {
  static constexpr struct {
    int32_t (*pfSet)(int32_t);
    int Option;
  } aCase[] = {
      {SYS_SOCKET_SetReuseAddr, SO_REUSEADDR},
      {SYS_SOCKET_SetBroadcast, SO_BROADCAST},
      {SYS_SOCKET_SetKeepAlive, SO_KEEPALIVE},
  };
  for (const auto& test : aCase) {
    SOCKET sock(test.Option == SO_BROADCAST ? SYS_SOCKET_CreateUDP() : SYS_SOCKET_CreateTCP());
    EXPECT_EQ(OptionOf(sock, SOL_SOCKET, test.Option), 0);
    EXPECT_EQ(test.pfSet(sock), 0);
    EXPECT_NE(OptionOf(sock, SOL_SOCKET, test.Option), 0);
    EXPECT_EQ(test.pfSet(-1), -1);
  }
  SOCKET sock(SYS_SOCKET_CreateTCP());
  EXPECT_EQ(SYS_SOCKET_SetRxBufSize(sock, 20000), 0);
  const int size = OptionOf(sock, SOL_SOCKET, SO_RCVBUF);
  EXPECT_TRUE(size == 20000 || size == 40000) << size;
  EXPECT_EQ(SYS_SOCKET_SetRxBufSize(-1, 20000), -1);
}

TEST(SetLinger, RoundsToWholeSecondsButNeverTo0) {
#ifdef SO_LINGER_SEC
  constexpr int OPTION = SO_LINGER_SEC;
#else
  constexpr int OPTION = SO_LINGER;
#endif
  static constexpr struct {
    int32_t Ms;
    int Seconds;
  } aCase[] = {
      {0, 0},
      {1, 1},
      {499, 1},
      {999, 1},
      {1000, 1},
      {1499, 1},
      {1500, 2},
      {2499, 2},
      {-1, 1},
      {-5000, 1},
      {INT32_MIN, 1},
      {65534499, 65534},
#ifndef SO_LINGER_SEC  // Times that fit the other platform's shorter field.
      {65534500, 65535},
      {65536000, 65535},
      {INT32_MAX, 65535},
#endif
  };
  SOCKET sock(SYS_SOCKET_CreateTCP());
  for (const auto& test : aCase) {
    EXPECT_EQ(SYS_SOCKET_SetLinger(sock, test.Ms), 0);
    const auto value = OptionOf<linger>(sock, SOL_SOCKET, OPTION);
    EXPECT_NE(value.l_onoff, 0);
    EXPECT_EQ(value.l_linger, test.Seconds) << test.Ms;
  }
  EXPECT_EQ(SYS_SOCKET_ClearLinger(sock), 0);
  EXPECT_EQ(OptionOf<linger>(sock, SOL_SOCKET, OPTION).l_onoff, 0);
  EXPECT_EQ(SYS_SOCKET_SetLinger(-1, 1), 0);
  EXPECT_EQ(SYS_SOCKET_ClearLinger(-1), 0);
}

TEST(SetTimeouts, SplitsMillisecondsAndReportsTheReceiveTimeout) {
  static constexpr struct {
    int32_t SendMs;
    int32_t ReceiveMs;
    int32_t Result;
  } aCase[] = {{2500, 0, 0}, {0, 2500, 0}, {1000, 100, 0}, {500, -1500, -1}, {-1500, 3700, 0}, {INT32_MAX, 0, 0}};
  for (const auto& test : aCase) {
    SOCKET sock(SYS_SOCKET_CreateTCP());
    EXPECT_EQ(SYS_SOCKET_SetTimeouts(sock, test.SendMs, test.ReceiveMs), test.Result);
    for (const auto& [option, ms] : {std::pair(SO_SNDTIMEO, test.SendMs), std::pair(SO_RCVTIMEO, test.ReceiveMs)}) {
      const auto value = OptionOf<timeval>(sock, SOL_SOCKET, option);
      // The kernel's clock may be as coarse as 10 ms.
      EXPECT_NEAR(static_cast<double>(value.tv_sec) * 1000 + static_cast<double>(value.tv_usec) / 1000, std::max(ms, 0),
                  ms == INT32_MAX ? 10 : 0);
    }
  }
  EXPECT_EQ(SYS_SOCKET_SetTimeouts(-1, 0, 0), -1);
}

TEST(SetNonBlocking, ChangesThatModeAlone) {
  SOCKET sock(SYS_SOCKET_CreateUDP());
  fcntl(sock, F_SETFL, O_APPEND);
  const int before = fcntl(sock, F_GETFL);
  EXPECT_EQ(before & O_NONBLOCK, 0);
  EXPECT_EQ(SYS_SOCKET_SetNonBlocking(sock), 0);
  EXPECT_EQ(fcntl(sock, F_GETFL), before | O_NONBLOCK);
  EXPECT_EQ(SYS_SOCKET_SetBlocking(sock), 0);
  EXPECT_EQ(fcntl(sock, F_GETFL), before);
  EXPECT_EQ(SYS_SOCKET_SetNonBlocking(-1), -1);
  EXPECT_EQ(SYS_SOCKET_SetBlocking(-1), -1);
}

TEST(Shutdown, ClosesTheDirectionAsked) {
  for (uint32_t how : {0u, 1u, 2u, 3u, 0x80000000u, UINT32_MAX}) {
    CONNECTION connection;
    SYS_SOCKET_Shutdown(connection.Client, how);
    const bool canSend = how == 0 || how > 2;
    const bool canReceive = how == 1 || how > 2;
    EXPECT_EQ(SYS_SOCKET_Send(connection.Client, "x", 1), canSend ? 1 : -1);
    EXPECT_EQ(SYS_SOCKET_WaitReadable(connection.Server, canSend ? -1 : 0), 1);
    EXPECT_EQ(SYS_SOCKET_WaitReadable(connection.Client, 0), !canReceive);
  }
}

TEST(Listen, BindsBothFamilies) {
  for (FAMILY family : Families()) {
    SOCKET first = family.Create();
    SOCKET second = family.Create();
    ASSERT_EQ(family.Listen(first), 0);
    EXPECT_NE(OptionOf(first, SOL_SOCKET, SO_ACCEPTCONN), 0);
    EXPECT_EQ(OptionOf(first, SOL_SOCKET, SO_REUSEADDR) != 0, !family.IsV6);
    const uint32_t port = PortOf(first);
    EXPECT_NE(port, 0u);
    EXPECT_EQ(
        family.IsV6 ? SYS_SOCKET_ListenV6(second, LOOPBACK_V6, port, 1) : SYS_SOCKET_Listen(second, LOOPBACK, port, 1),
        -1);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_EQ(family.IsV6 ? SYS_SOCKET_ListenV6(second, ANY_V6, 0, 1) : SYS_SOCKET_Listen(second, 0, 0, 1), 0);
    SOCKET client = family.Create();
    EXPECT_EQ(family.Connect(client, PortOf(second)), 0);
  }
  SOCKET datagrams(SYS_SOCKET_CreateUDP());
  EXPECT_EQ(SYS_SOCKET_Listen(datagrams, LOOPBACK, 0, 1), -1);
  EXPECT_EQ(SYS_SOCKET_Listen(-1, LOOPBACK, 0, 1), -1);
}

TEST(Accept, GivesTheOptionsOfACreatedSocket) {
  for (auto pfAccept : {SYS_SOCKET_Accept, AcceptTimeout}) {
    for (FAMILY family : Families()) {
      SOCKET listener = family.Create();
      SOCKET client = family.Create();
      const int off = 0;  // Some platforms would pass it on to the new socket.
      setsockopt(listener, IPPROTO_TCP, TCP_NODELAY, &off, sizeof(off));
      ASSERT_EQ(family.Listen(listener), 0);
      ASSERT_EQ(family.Connect(client, PortOf(listener)), 0);
      SOCKET server(pfAccept(listener));
      EXPECT_NE(OptionOf(server, IPPROTO_TCP, TCP_NODELAY), 0);
      EXPECT_EQ(fcntl(server, F_GETFD), FD_CLOEXEC);
    }
    SOCKET idle(SYS_SOCKET_CreateTCP());
    EXPECT_EQ(pfAccept(idle), -1);
    EXPECT_EQ(pfAccept(-1), -1);
    CONNECTION connection;
    SOCKET client(SYS_SOCKET_CreateTCP());
    ASSERT_EQ(SYS_SOCKET_Connect(client, LOOPBACK, PortOf(connection.Listener)), 0);
    SCOPED_DESCRIPTOR_LIMIT limit;
    EXPECT_EQ(pfAccept(connection.Listener), -1);
  }
}

TEST(AcceptTimeout, TellsThatNobodyCame) {
  SOCKET listener(SYS_SOCKET_CreateTCP());
  ASSERT_EQ(SYS_SOCKET_Listen(listener, LOOPBACK, 0, 1), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(SYS_SOCKET_AcceptTimeout(listener, 30), SYS_SOCKET_WOULD_BLOCK);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(29));
  EXPECT_EQ(SYS_SOCKET_AcceptTimeout(listener, 0), SYS_SOCKET_WOULD_BLOCK);
  SYS_SOCKET_SetNonBlocking(listener);
  EXPECT_EQ(SYS_SOCKET_Accept(listener), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST(Connect, TellsTheOutcomeOfANonBlockingOneLater) {
  for (FAMILY family : Families()) {
    for (bool isListening : {true, false}) {
      CONNECTION other(family);
      SOCKET client = family.Create();
      const uint32_t port = PortOf(isListening ? other.Listener : other.Client);
      ASSERT_EQ(SYS_SOCKET_SetNonBlocking(client), 0);
      ASSERT_EQ(family.Connect(client, port), -1);
      ASSERT_EQ(errno, EINPROGRESS);
      EXPECT_EQ(SYS_SOCKET_WaitWritable(client, -1), 1);
      errno = 0;
      EXPECT_EQ(SYS_SOCKET_GetError(client), isListening ? 0 : SYS_SOCKET_ERROR);
      EXPECT_EQ(errno, isListening ? 0 : ECONNREFUSED);
      EXPECT_EQ(SYS_SOCKET_GetError(client), 0);
    }
  }
}

TEST(Ports, OfMoreThan16BitsAreRefused) {
  SOCKET sock(SYS_SOCKET_CreateTCP());
  SOCKET v6(SYS_SOCKET_CreateTCPv6());
  SOCKET datagrams(SYS_SOCKET_CreateUDP());
  SOCKET receiver(SYS_SOCKET_CreateUDP());
  ASSERT_EQ(SYS_SOCKET_BindUDP(receiver, LOOPBACK, 0), 0);
  ASSERT_EQ(SYS_SOCKET_Connect(datagrams, LOOPBACK, PortOf(receiver)), 0);
  for (uint32_t port : {65536u, 65536u + PortOf(receiver), UINT32_MAX}) {
    const int32_t aResult[] = {
        (errno = 0, SYS_SOCKET_Listen(sock, LOOPBACK, port, 1)),
        SYS_SOCKET_ListenV6(v6, LOOPBACK_V6, port, 1),
        SYS_SOCKET_Connect(sock, LOOPBACK, port),
        SYS_SOCKET_ConnectV6(v6, LOOPBACK_V6, port),
        SYS_SOCKET_BindUDP(sock, LOOPBACK, port),
        SYS_SOCKET_SendTo(datagrams, "x", 1, LOOPBACK, port),
        SYS_SOCKET_SendToV6(datagrams, "x", 1, LOOPBACK_V6, port),
    };
    EXPECT_EQ(std::count(std::begin(aResult), std::end(aResult), -1), std::ssize(aResult));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(PortOf(sock), 0u);
  }
}

TEST(Addresses, NameBothEnds) {
  for (FAMILY family : Families()) {
    CONNECTION connection(family);
    const uint32_t serverPort = PortOf(connection.Listener);
    const uint32_t clientPort = PortOf(connection.Client);
    // To the other family the address is 0, and the port still right.
    const uint32_t expected = family.IsV6 ? 0 : LOOPBACK;
    const std::string expectedV6(16, '\0');
    uint32_t addr = 1;
    uint32_t port = 1;
    EXPECT_EQ(SYS_SOCKET_GetLocalAddr(connection.Client, &addr, &port), 0);
    EXPECT_EQ(addr, expected);
    EXPECT_EQ(port, clientPort);
    addr = 1;
    EXPECT_EQ(SYS_SOCKET_GetLocalIP(connection.Client, &addr), 0);
    EXPECT_EQ(addr, expected);
    EXPECT_EQ(SYS_SOCKET_GetPeerAddr(connection.Server, &addr, &port), 0);
    EXPECT_EQ(addr, expected);
    EXPECT_EQ(port, clientPort);
    uint8_t aAddr[17] = {1, 2, 3};
    aAddr[16] = 0xA5;
    EXPECT_EQ(SYS_SOCKET_GetPeerAddrV6(connection.Client, aAddr, &port), 0);
    EXPECT_EQ(memcmp(aAddr, family.IsV6 ? LOOPBACK_V6 : ANY_V6, 16), 0);
    EXPECT_EQ(aAddr[16], 0xA5);
    EXPECT_EQ(port, serverPort);
  }
}

TEST(Addresses, AreOptionalAnd0AfterAFailure) {
  SOCKET idle(SYS_SOCKET_CreateTCP());
  for (int32_t sock : {-1, static_cast<int32_t>(idle)}) {
    uint32_t aOut[] = {1, 2, 3, 4, 5, 6, 7};
    uint8_t aAddr[16] = {1, 2, 3};
    EXPECT_EQ(SYS_SOCKET_GetLocalAddr(sock, &aOut[0], &aOut[1]), sock < 0 ? -1 : 0);
    EXPECT_EQ(SYS_SOCKET_GetLocalIP(sock, &aOut[2]), sock < 0 ? -1 : 0);
    SYS_SOCKET_GetLocalPort(sock, &aOut[3]);
    EXPECT_EQ(SYS_SOCKET_GetPeerAddr(sock, &aOut[4], &aOut[5]), -1);
    EXPECT_EQ(SYS_SOCKET_GetPeerAddrV6(sock, aAddr, &aOut[6]), -1);
    EXPECT_EQ(std::count(std::begin(aOut), std::end(aOut), 0u), std::ssize(aOut));
    EXPECT_EQ(memcmp(aAddr, ANY_V6, sizeof(aAddr)), 0);
  }
  CONNECTION connection;
  EXPECT_EQ(SYS_SOCKET_GetLocalAddr(connection.Client, nullptr, nullptr), 0);
  EXPECT_EQ(SYS_SOCKET_GetLocalIP(connection.Client, nullptr), 0);
  EXPECT_EQ(SYS_SOCKET_GetPeerAddr(connection.Client, nullptr, nullptr), 0);
  EXPECT_EQ(SYS_SOCKET_GetPeerAddrV6(connection.Client, nullptr, nullptr), 0);
}

}  // namespace
