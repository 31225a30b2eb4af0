// Sockets on the loopback interface, with ports that the platform chooses and names that need no network. A broken-pipe
// signal, which no operation may raise, would end the program.

#include "sys/sys_socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/tcp.h>
#ifndef __APPLE__
#include <netpacket/packet.h>
#endif
#include <sys/time.h>

#include <tuple>
#include <utility>

#include "sys/platform.h"
#include "sys/socket_internal.h"
#include "tests/faults.h"
#include "tests/support.h"

namespace {

using ints = std::vector<int32_t>;

constexpr uint32_t LOOPBACK = 0x7F000001;
constexpr uint8_t LOOPBACK_V6[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
constexpr uint8_t NONE_V6[16] = {};

struct SOCKET {
  explicit SOCKET(int32_t fd) : Fd(fd) {}
  ~SOCKET() { Close(); }
  SOCKET(const SOCKET&) = delete;
  SOCKET& operator=(const SOCKET&) = delete;
  operator int32_t() const { return Fd; }
  void Close() { SYS_SOCKET_Close(std::exchange(Fd, -1)); }

  int32_t Fd;
};

uint32_t PortOf(int32_t sock) {
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

// The families that this machine has, as whether they are IPv6.
std::vector<bool> Families() {
  SOCKET_ADDRESS own;
  SOCKET sock(socket(AF_INET6, SOCK_STREAM, 0));
  return {own.Set(LOOPBACK_V6, 0) && bind(sock, &own.Any, own.Length) == 0, false};
}

struct CONNECTION {
  explicit CONNECTION(bool isV6 = false, bool hasTimeout = false)
      : Listener(isV6 ? SYS_SOCKET_CreateTCPv6() : SYS_SOCKET_CreateTCP()),
        Client(isV6 ? SYS_SOCKET_CreateTCPv6() : SYS_SOCKET_CreateTCP()),
        Server(-1) {
    SetSocketOption(Listener, IPPROTO_TCP, TCP_NODELAY, 0);  // Some platforms would pass it on to the new socket.
    EXPECT_EQ(isV6 ? SYS_SOCKET_ListenV6(Listener, NONE_V6, 0, 4) : SYS_SOCKET_Listen(Listener, 0, 0, 4), 0);
    const uint32_t port = PortOf(Listener);
    EXPECT_EQ(isV6 ? SYS_SOCKET_ConnectV6(Client, LOOPBACK_V6, port) : SYS_SOCKET_Connect(Client, LOOPBACK, port), 0);
    Server.Fd = hasTimeout ? SYS_SOCKET_AcceptTimeout(Listener, -1) : SYS_SOCKET_Accept(Listener);
  }

  SOCKET Listener, Client, Server;
};

TEST(SocketOptions, ReachThePlatform) {
  SOCKET sock(SYS_SOCKET_CreateUDP());
  for (const auto& [pfSet, option] :
       {std::pair(&SYS_SOCKET_SetReuseAddr, SO_REUSEADDR), std::pair(&SYS_SOCKET_SetBroadcast, SO_BROADCAST),
        std::pair(&SYS_SOCKET_SetKeepAlive, SO_KEEPALIVE)}) {
    EXPECT_EQ(OptionOf(sock, SOL_SOCKET, option), 0);
    EXPECT_EQ(pfSet(sock), 0);
    EXPECT_NE(OptionOf(sock, SOL_SOCKET, option), 0);
  }
  EXPECT_EQ(SYS_SOCKET_SetRxBufSize(sock, 20000), 0);
  EXPECT_EQ(OptionOf(sock, SOL_SOCKET, SO_RCVBUF) % 20000, 0);

  fcntl(sock, F_SETFL, O_APPEND);
  const int before = fcntl(sock, F_GETFL);
  EXPECT_EQ(SYS_SOCKET_SetNonBlocking(sock), 0);
  EXPECT_EQ(fcntl(sock, F_GETFL), before | O_NONBLOCK);
  EXPECT_EQ(SYS_SOCKET_SetBlocking(sock), 0);
  EXPECT_EQ(fcntl(sock, F_GETFL), before);
}

TEST(SocketOptions, RoundTimesToWhatThePlatformTakes) {
  SOCKET sock(SYS_SOCKET_CreateTCP());
  const auto lingering = [&] { return OptionOf<linger>(sock, SOL_SOCKET, PLATFORM_LINGER_SECONDS); };
  std::vector<std::pair<int32_t, int>> secondsOfMs = {{0, 0}, {1, 1}, {1499, 1}, {1500, 2}, {2499, 2}, {-5000, 1}};
#ifndef SO_LINGER_SEC  // Times that fit the other platform's shorter field.
  secondsOfMs.insert(secondsOfMs.end(), {{65534499, 65534}, {65536000, 65535}, {INT32_MAX, 65535}});
#endif
  for (const auto& [ms, seconds] : secondsOfMs) {
    EXPECT_EQ(SYS_SOCKET_SetLinger(sock, ms), 0);
    EXPECT_EQ(lingering().l_linger, seconds) << ms;
  }
  EXPECT_EQ(SYS_SOCKET_ClearLinger(sock), 0);
  EXPECT_EQ(lingering().l_onoff, 0);

  const auto timeoutMs = [&](int option) {
    const auto value = OptionOf<timeval>(sock, SOL_SOCKET, option);
    return value.tv_sec * 1000 + value.tv_usec / 1000;
  };
  for (const auto& [sendMs, receiveMs] : {std::pair(0, 3700), {2500, 0}, {-1500, 100}, {1000, -1500}}) {
    EXPECT_EQ(SYS_SOCKET_SetTimeouts(sock, sendMs, receiveMs), receiveMs < 0 ? -1 : 0);
    EXPECT_EQ(timeoutMs(SO_SNDTIMEO), sendMs < 0 ? 2500 : sendMs);  // One that is refused changes nothing.
    EXPECT_EQ(timeoutMs(SO_RCVTIMEO), receiveMs < 0 ? 100 : receiveMs);
  }
}

TEST(Shutdown, ClosesTheDirectionAsked) {
  for (uint32_t how : {0u, 1u, 2u, 3u, UINT32_MAX}) {
    CONNECTION connection;
    SYS_SOCKET_Shutdown(connection.Client, how);
    const bool canSend = how == 0 || how > 2;
    const bool canReceive = how == 1 || how > 2;
    EXPECT_EQ(SYS_SOCKET_Send(connection.Client, "x", 1), canSend ? 1 : -1);
    EXPECT_EQ(SYS_SOCKET_WaitReadable(connection.Server, canSend ? -1 : 0), 1);
    EXPECT_EQ(SYS_SOCKET_WaitReadable(connection.Client, 0), !canReceive);
  }
}

TEST(Listener, HoldsItsPortAndWaitsAsLongAsItIsTold) {
  for (bool isV6 : Families()) {
    CONNECTION other(isV6);
    SOCKET sock(isV6 ? SYS_SOCKET_CreateTCPv6() : SYS_SOCKET_CreateTCP());
    const uint32_t port = PortOf(other.Listener);
    EXPECT_EQ(isV6 ? SYS_SOCKET_ListenV6(sock, LOOPBACK_V6, port, 1) : SYS_SOCKET_Listen(sock, LOOPBACK, port, 1), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    errno = 0;
    EXPECT_EQ(SYS_SOCKET_Listen(sock, LOOPBACK, 65536, 1), -1);
    EXPECT_EQ(SYS_SOCKET_Connect(sock, LOOPBACK, 65536 + port), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(OptionOf(other.Listener, SOL_SOCKET, SO_REUSEADDR) != 0, !isV6);
    EXPECT_GE(MeasureUs([&] { EXPECT_EQ(SYS_SOCKET_AcceptTimeout(other.Listener, 30), -2); }), 29000);
    EXPECT_EQ(SYS_SOCKET_WaitWritable(other.Listener, 0), 0);
    EXPECT_EQ(SYS_SOCKET_WaitWritable(other.Client, 0), 1);
  }
  EXPECT_EQ(SYS_SOCKET_AcceptTimeout(-1, 0), -1);
}

TEST(Connection, HasOptionsAndAddressesAndBreaksWithoutASignal) {
  for (bool isV6 : Families()) {
    for (bool isServerLeft : {false, true}) {
      CONNECTION connection(isV6, isServerLeft);
      SOCKET& left = isServerLeft ? connection.Server : connection.Client;
      SOCKET& gone = isServerLeft ? connection.Client : connection.Server;
      EXPECT_NE(OptionOf(left, IPPROTO_TCP, TCP_NODELAY), 0);
      EXPECT_TRUE(!isV6 || OptionOf(left, IPPROTO_IPV6, IPV6_V6ONLY) != 0);
      EXPECT_EQ(fcntl(left, F_GETFD), FD_CLOEXEC);
      EXPECT_EQ(fcntl(left, F_GETFL) & O_NONBLOCK, 0);
      EXPECT_EQ(SYS_SOCKET_GetLocalIP(connection.Listener, nullptr), 0);
      const uint32_t gonePort = PortOf(gone);
      for (bool isOpen : {true, false}) {
        uint32_t aAddr[] = {1, 1, 1};
        uint32_t aPort[] = {1, 1, 1};
        uint8_t aAddrV6[16] = {1};
        const ints results = {
            SYS_SOCKET_GetLocalAddr(gone, &aAddr[0], &aPort[0]), SYS_SOCKET_GetLocalIP(gone, &aAddr[1]),
            SYS_SOCKET_GetPeerAddr(left, &aAddr[2], &aPort[1]),  SYS_SOCKET_GetPeerAddr(left, nullptr, nullptr),
            SYS_SOCKET_GetPeerAddrV6(left, aAddrV6, &aPort[2]),  SYS_SOCKET_GetPeerAddrV6(left, nullptr, nullptr),
        };
        EXPECT_EQ(results, ints(6, isOpen ? 0 : -1));
        EXPECT_EQ(std::count(aPort, aPort + 3, isOpen ? gonePort : 0), 3);
        // To the other family the address is 0, and the port still right.
        EXPECT_EQ(std::count(aAddr, aAddr + 3, isOpen && !isV6 ? LOOPBACK : 0), 3);
        EXPECT_EQ(memcmp(aAddrV6, isOpen && isV6 ? LOOPBACK_V6 : NONE_V6, 16), 0);
        SYS_SOCKET_SetLinger(gone, 0);
        gone.Close();  // With a reset instead of an orderly end.
        EXPECT_EQ(SYS_SOCKET_WaitReadable(left, -1), 1);
      }
      EXPECT_EQ(SYS_SOCKET_IsDataAvailable(left), 0);
      EXPECT_EQ(SYS_SOCKET_GetError(left), SYS_SOCKET_RESET);
      EXPECT_EQ(errno, ECONNRESET);
      EXPECT_EQ(SYS_SOCKET_GetError(left), 0);
      EXPECT_EQ(SYS_SOCKET_Send(left, "x", 1), -1);
      EXPECT_EQ(errno, EPIPE);
      EXPECT_EQ(SYS_SOCKET_SendTo(left, "x", 1, LOOPBACK, 1), -1);
    }
  }
}

TEST(Stream, CarriesBytesOfAnyNumberUntilItsEnd) {
  CONNECTION connection;
  constexpr uint32_t NUM_BYTES = 1000000;
  const std::string bytes = RANDOM(1).Bytes(NUM_BYTES);
  std::thread sender(
      [&] { EXPECT_EQ(SYS_SOCKET_Send(connection.Client, bytes.data(), NUM_BYTES), int32_t{NUM_BYTES}); });
  std::string received(NUM_BYTES, '\0');
  for (uint32_t half : {0u, NUM_BYTES / 2}) {
    EXPECT_EQ(SYS_SOCKET_ReceiveAll(connection.Server, &received[half], NUM_BYTES / 2), int32_t{NUM_BYTES / 2});
  }
  sender.join();
  EXPECT_TRUE(received == bytes);

  ASSERT_EQ(SYS_SOCKET_Send(connection.Client, "01234", 5), 5);
  EXPECT_EQ(SYS_SOCKET_Receive(connection.Server, &received[0], 3), 3);
  EXPECT_EQ(SYS_SOCKET_IsDataAvailable(connection.Server), 1);
  EXPECT_EQ(SYS_SOCKET_Receive(connection.Server, &received[3], 9), 2);
  EXPECT_EQ(received.substr(0, 5), "01234");
  EXPECT_EQ(SYS_SOCKET_IsDataAvailable(connection.Server), 0);
  EXPECT_EQ(SYS_SOCKET_Send(connection.Client, "0123", 4), 4);
  connection.Client.Close();
  EXPECT_EQ(SYS_SOCKET_ReceiveAll(connection.Server, &received[0], 10), -1);
  EXPECT_EQ(SYS_SOCKET_IsDataAvailable(connection.Server), 0);
  EXPECT_EQ(SYS_SOCKET_Receive(connection.Server, &received[0], 10), 0);
  EXPECT_EQ(SYS_SOCKET_ReceiveAll(-1, nullptr, 0), 0);
  EXPECT_EQ(SYS_SOCKET_ReceiveAll(-1, nullptr, 1u << 31), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(Errors, AreMappedForEachOperation) {
  FAULTS_REQUIRE();
  const std::pair<int, ints> aCase[] = {
      {EAGAIN, {-2, -1, -2, -2, -2, -2}},    {ETIMEDOUT, {-3, -1, -3, -3, -1, -3}},
      {ENETRESET, {-4, -1, -4, -4, -1, -1}}, {ECONNRESET, {-1, -1, -1, -1, -1, -4}},
      {EINTR, {-5, -1, -1, -1, -1, -5}},     {ENETDOWN, {-1, -1, -1, -1, -1, -1}},
  };
  SOCKET sock(SYS_SOCKET_CreateUDP());
  char acBuffer[4];
  for (const auto& [error, expected] : aCase) {
    SCOPED_FAULT recvFault({FAULT_CALL::RECV, 1, error, UINT32_MAX});
    SCOPED_FAULT recvfromFault({FAULT_CALL::RECVFROM, 1, error, UINT32_MAX});
    SCOPED_FAULT sendFault({FAULT_CALL::SEND, 1, error, UINT32_MAX});
    SCOPED_FAULT getsockoptFault({FAULT_CALL::GETSOCKOPT, 1, error, 1, FAULT_KIND::VALUE});
    const ints results = {SYS_SOCKET_Receive(sock, acBuffer, 4),
                          SYS_SOCKET_ReceiveAll(sock, acBuffer, 4),
                          SYS_SOCKET_ReceiveFrom(sock, acBuffer, 4, nullptr, nullptr),
                          SYS_SOCKET_ReceiveFromV6(sock, acBuffer, 4, nullptr, nullptr),
                          SYS_SOCKET_Send(sock, acBuffer, 4),
                          SYS_SOCKET_GetError(sock)};
    EXPECT_EQ(results, expected) << error;
    EXPECT_EQ(errno, error);
  }
  SCOPED_FAULT unreadable({FAULT_CALL::GETSOCKOPT, 1, EINTR});
  EXPECT_EQ(SYS_SOCKET_GetError(sock), -1);
}

TEST(Datagrams, ComeWholeWithTheirSender) {
  const std::string bytes = RANDOM(3).Bytes(9000);
  for (bool isV6 : Families()) {
    SOCKET receiver(isV6 ? SYS_SOCKET_CreateUDPv6() : SYS_SOCKET_CreateUDP());
    SOCKET sender(isV6 ? SYS_SOCKET_CreateUDPv6() : SYS_SOCKET_CreateUDP());
    EXPECT_TRUE(!isV6 || OptionOf(sender, IPPROTO_IPV6, IPV6_V6ONLY) != 0);
    EXPECT_EQ(isV6 ? SYS_SOCKET_ListenV6(receiver, NONE_V6, 0, 1) : SYS_SOCKET_Listen(receiver, 0, 0, 1), -1);
    const uint32_t port = PortOf(receiver);  // It is bound all the same.
    EXPECT_EQ(SYS_SOCKET_BindUDP(SOCKET(SYS_SOCKET_CreateUDP()), 0, port), isV6 ? 0 : -1);
    EXPECT_EQ(SYS_SOCKET_SendTo(sender, "x", 1, LOOPBACK, 65536 + port), -1);
    uint32_t addr = 1;
    uint8_t aAddrV6[16] = {1};
    uint32_t senderPort = 1;
    std::string received(999, '\0');
    const auto receive = [&] {
      return isV6 ? SYS_SOCKET_ReceiveFromV6(receiver, received.data(), 999, aAddrV6, &senderPort)
                  : SYS_SOCKET_ReceiveFrom(receiver, received.data(), 999, &addr, &senderPort);
    };
    SYS_SOCKET_SetTimeouts(receiver, 0, 30);
    EXPECT_GE(MeasureUs([&] { EXPECT_EQ(receive(), SYS_SOCKET_WOULD_BLOCK); }), 20000);
    EXPECT_EQ(senderPort + (isV6 ? aAddrV6[0] : addr), 0u);
    for (uint32_t numBytes : {0u, 1u, 9000u}) {
      EXPECT_EQ(isV6 ? SYS_SOCKET_SendToV6(sender, bytes.data(), numBytes, LOOPBACK_V6, port)
                     : SYS_SOCKET_SendTo(sender, bytes.data(), numBytes, LOOPBACK, port),
                static_cast<int32_t>(numBytes));
      const uint32_t expected = std::min(numBytes, 999u);
      EXPECT_EQ(receive(), static_cast<int32_t>(expected));
      EXPECT_EQ(received.substr(0, expected), bytes.substr(0, expected));
      EXPECT_TRUE(isV6 ? memcmp(aAddrV6, LOOPBACK_V6, 16) == 0 : addr == LOOPBACK);
      EXPECT_EQ(senderPort, PortOf(sender));
    }
  }
}

TEST(ResolveHost, StoresTheFirstAddressOrNothing) {
  constexpr uint32_t OLD = 0xA5A5A5A5;
  // A host and a service, its IPv4 address, its IPv6 address, and the same with mapping.
  static constexpr std::tuple<const char*, const char*, uint32_t, const char*, const char*> aCase[] = {
      {"192.168.0.1", "80", 0xC0A80001, nullptr, "::ffff:192.168.0.1"},
      {"192.168.0.1", "no-such-service", OLD, nullptr, nullptr},
      {"2001:db8::a:b", nullptr, OLD, "2001:db8::a:b", "2001:db8::a:b"},
      {nullptr, nullptr, OLD, nullptr, nullptr},
  };
  for (const auto& [host, service, v4, v6, mapped] : aCase) {
    uint32_t addr = OLD;
    EXPECT_EQ(SYS_SOCKET_ResolveHost(host, service, &addr), v4 == OLD ? -1 : 0);
    EXPECT_EQ(addr, v4);
    for (int32_t allowMapped : {0, 1, -2}) {
      const char* expected = allowMapped == 0 ? v6 : mapped;
      uint8_t aAddr[16] = {1, 2, 3};
      uint8_t aExpected[16] = {1, 2, 3};
      EXPECT_EQ(SYS_SOCKET_ResolveHostV6(host, service, aAddr, allowMapped),
                expected == nullptr ? -1 : inet_pton(AF_INET6, expected, aExpected) - 1);
      EXPECT_EQ(memcmp(aAddr, aExpected, sizeof(aAddr)), 0);
    }
  }
}

TEST(GetNameInfo, GivesANameOrElseNumbersWholeOrNotAtAll) {
  char acName[NI_MAXHOST];
  EXPECT_EQ(SYS_SOCKET_GetNameInfo(LOOPBACK, acName, NI_MAXHOST, nullptr, 0), 0);
  const in_addr loopback = {htonl(LOOPBACK)};
  const hostent* pHost = gethostbyaddr(&loopback, sizeof(loopback), AF_INET);
  EXPECT_STREQ(acName, pHost != nullptr ? pHost->h_name : "127.0.0.1");

  FAULTS_REQUIRE();
  static constexpr uint8_t ADDRESS_V6[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x12, 0x34};
  SCOPED_NUMERIC_NAMES names;
  for (const std::string name : {"2001:db8::1234", "192.0.2.1"}) {
    const auto fitting = static_cast<uint32_t>(name.size() + 1);
    for (uint32_t hostSize : {fitting, fitting - 1, 0u}) {
      char acHost[16] = "old";
      char acService[4] = "old";
      const bool doesFit = hostSize != fitting - 1;
      EXPECT_EQ(name[0] == '2' ? SYS_SOCKET_GetNameInfoV6(ADDRESS_V6, acHost, hostSize, acService, 2)
                               : SYS_SOCKET_GetNameInfo(0xC0000201, acHost, hostSize, acService, 2),
                doesFit ? 0 : -1);
      EXPECT_EQ(acHost, hostSize == 0 ? "old" : doesFit ? name : "");
      EXPECT_STREQ(acService, doesFit ? "0" : "");
    }
  }
}

TEST(NetInterfaces, IncludeTheLoopbackInterface) {
  SYS_NET_INTERFACE aInterface[64];
  const int32_t count = SYS_GetNetInterfacesSimple(aInterface, 64);
  EXPECT_TRUE(std::any_of(aInterface, aInterface + std::min(count, 64), [](const SYS_NET_INTERFACE& record) {
    return record.Addr == LOOPBACK && record.Mask == 0xFF000000 && record.HasBroadcast == 0;
  }));
}

#ifndef __APPLE__

TEST(NetInterfaces, KeepOrderAndBoundsWhateverTheListIsLike) {
  constexpr uint32_t COUNT = 12;
  const std::string names[] = {"e", "e1", std::string(62, 'a'), std::string(63, 'b')};
  const std::string hwAddrs[] = {"\002local", "\001fixed", "8 bytes.", ""};
  RANDOM random(5);
  for (int round = 0; round < 1000; round++) {
    const uint32_t options = random.OneIn(2) ? random.Next32() : 0;
    const uint32_t shift = random.Below(COUNT);
    std::vector<SYS_NET_INTERFACE> expected;
    ifaddrs aEntry[COUNT];
    std::string aName[COUNT];
    sockaddr_in aMask[COUNT] = {};
    sockaddr_in aAddr[COUNT];
    sockaddr_ll aLink[COUNT] = {};
    for (uint32_t i = 0; i < COUNT; i++) {
      const uint32_t slot = (i + shift) % COUNT;  // Hardware addresses, no address, IPv6, the others.
      const uint32_t n = slot < 4 ? slot : random.Below(4);
      const sa_family_t family = slot < 4 ? AF_PACKET : slot == 4 ? AF_UNSPEC : slot == 5 ? AF_INET6 : AF_INET;
      SYS_NET_INTERFACE record = {random.Next32(), random.Next32(), 0, 0, random.OneIn(2), {}, {}};
      aAddr[i] = {family, 0, {htonl(record.Addr)}, {}};
      aMask[i].sin_addr.s_addr = htonl(record.Mask);
      aLink[i].sll_family = AF_PACKET;
      aLink[i].sll_halen = static_cast<uint8_t>(hwAddrs[n].size());
      hwAddrs[n].copy(reinterpret_cast<char*>(aLink[i].sll_addr), sizeof(aLink[i].sll_addr));
      auto* pAddr = reinterpret_cast<sockaddr*>(&aAddr[i]);
      pAddr = family == AF_PACKET ? reinterpret_cast<sockaddr*>(&aLink[i]) : family == AF_UNSPEC ? nullptr : pAddr;
      auto* pMask = random.OneIn(5) ? nullptr : reinterpret_cast<sockaddr*>(&aMask[i]);
      const unsigned flags = record.HasBroadcast != 0 ? IFF_BROADCAST : IFF_UP;
      aName[i] = names[n] + (family == AF_INET && random.OneIn(4) ? ":1" : "");
      aEntry[i] = {i + 1 < COUNT ? &aEntry[i + 1] : nullptr, aName[i].data(), flags, pAddr, pMask, {}, nullptr};
      if (family == AF_INET) {
        record.Mask = pMask != nullptr ? record.Mask : 0;
        const bool isLeftOut = hwAddrs[n].size() != 6 || (options & hwAddrs[n][0] & 2) != 0;
        hwAddrs[n].copy(reinterpret_cast<char*>(record.HWAddr), isLeftOut ? 0 : 6);
        (aName[i].size() <= 62 ? aName[i] : aName[i].substr(0, 60) + "...").copy(record.Name, 63);
        expected.push_back(record);
      }
    }
    SCOPED_INTERFACES fake(random.OneIn(100) ? nullptr : aEntry);
    const size_t total = fake.pList == nullptr ? 0 : expected.size();
    const uint32_t capacity = random.Below(10);
    expected.resize(total);
    expected.resize(capacity);
    GUARDED_BLOCK block;
    auto* paRecords = reinterpret_cast<SYS_NET_INTERFACE*>(block.Take(capacity * sizeof(SYS_NET_INTERFACE)));
    const int32_t count = options == 0 ? SYS_GetNetInterfacesSimple(paRecords, capacity)
                                       : SYS_GetNetInterfaces(paRecords, capacity, options);
    ASSERT_EQ(count, static_cast<int32_t>(total));
    ASSERT_EQ(memcmp(paRecords, expected.data(), capacity * sizeof(SYS_NET_INTERFACE)), 0);
    ASSERT_EQ(fake.NumHeld, 0);
  }
}

#endif

}  // namespace
