// Sockets beside the platform's bare calls, on the loopback interface: throughput of a stream in blocks of 64 KiB,
// round trips of one byte and of one datagram, all within one thread, so that the scheduler stays out of it; and the
// list of interfaces beside reading and releasing the platform's own.

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <vector>

#include "sys/sys_socket.h"

namespace {

constexpr uint32_t LOOPBACK = 0x7F000001;
constexpr uint32_t BLOCK_BYTES = 64 * 1024;

struct LAYER {
  static int64_t Send(int32_t sock, const void* p, uint32_t numBytes) { return SYS_SOCKET_Send(sock, p, numBytes); }
  static int64_t Receive(int32_t sock, void* p, uint32_t numBytes) { return SYS_SOCKET_Receive(sock, p, numBytes); }
  static int64_t SendTo(int32_t sock, const void* p, uint32_t numBytes, uint32_t port) {
    return SYS_SOCKET_SendTo(sock, p, numBytes, LOOPBACK, port);
  }
  static int64_t ReceiveFrom(int32_t sock, void* p, uint32_t numBytes, uint32_t* pPort) {
    uint32_t addr;
    return SYS_SOCKET_ReceiveFrom(sock, p, numBytes, &addr, pPort);
  }
};

struct BARE {
  static int64_t Send(int32_t sock, const void* p, uint32_t numBytes) { return send(sock, p, numBytes, 0); }
  static int64_t Receive(int32_t sock, void* p, uint32_t numBytes) { return recv(sock, p, numBytes, 0); }
  static int64_t SendTo(int32_t sock, const void* p, uint32_t numBytes, uint32_t port) {
    sockaddr_in peer = {};
    peer.sin_family = AF_INET;
    peer.sin_addr.s_addr = htonl(LOOPBACK);
    peer.sin_port = htons(static_cast<uint16_t>(port));
    return sendto(sock, p, numBytes, 0, reinterpret_cast<const sockaddr*>(&peer), sizeof(peer));
  }
  static int64_t ReceiveFrom(int32_t sock, void* p, uint32_t numBytes, uint32_t* pPort) {
    sockaddr_in peer;
    socklen_t size = sizeof(peer);
    const int64_t result = recvfrom(sock, p, numBytes, 0, reinterpret_cast<sockaddr*>(&peer), &size);
    *pPort = ntohs(peer.sin_port);
    return result;
  }
};

uint32_t PortOf(int32_t sock) {
  uint32_t port;
  SYS_SOCKET_GetLocalPort(sock, &port);
  return port;
}

// Both sides get the same sockets, so that only the transfer differs.
struct CONNECTION {
  int32_t Listener = SYS_SOCKET_CreateTCP();
  int32_t Client = SYS_SOCKET_CreateTCP();
  int32_t Server = -1;

  CONNECTION() {
    SYS_SOCKET_Listen(Listener, LOOPBACK, 0, 1);
    SYS_SOCKET_Connect(Client, LOOPBACK, PortOf(Listener));
    Server = SYS_SOCKET_Accept(Listener);
  }
  ~CONNECTION() {
    for (int32_t sock : {Server, Client, Listener}) {
      SYS_SOCKET_Close(sock);
    }
  }
};

template <typename CALLS>
void Throughput(benchmark::State& state) {
  CONNECTION connection;
  SYS_SOCKET_SetNonBlocking(connection.Client);
  std::vector<char> block(BLOCK_BYTES, 'x');
  int64_t count = 0;
  for (auto _ : state) {
    int64_t left = CALLS::Send(connection.Client, block.data(), BLOCK_BYTES);
    if (left < 0) {
      state.SkipWithError("sending failed");
      break;
    }
    count += left;
    while (left > 0) {
      left -= CALLS::Receive(connection.Server, block.data(), BLOCK_BYTES);
    }
  }
  state.SetBytesProcessed(count);
  state.SetItemsProcessed(count / BLOCK_BYTES);
}

template <typename CALLS>
void RoundTrip(benchmark::State& state) {
  CONNECTION connection;
  char cByte = 'x';
  for (auto _ : state) {
    CALLS::Send(connection.Client, &cByte, 1);
    CALLS::Receive(connection.Server, &cByte, 1);
    CALLS::Send(connection.Server, &cByte, 1);
    CALLS::Receive(connection.Client, &cByte, 1);
  }
}

template <typename CALLS>
void DatagramRoundTrip(benchmark::State& state) {
  const int32_t client = SYS_SOCKET_CreateUDP();
  const int32_t server = SYS_SOCKET_CreateUDP();
  SYS_SOCKET_BindUDP(server, LOOPBACK, 0);
  const uint32_t serverPort = PortOf(server);
  char acBuffer[64] = {};
  uint32_t port = 0;
  for (auto _ : state) {
    CALLS::SendTo(client, acBuffer, sizeof(acBuffer), serverPort);
    CALLS::ReceiveFrom(server, acBuffer, sizeof(acBuffer), &port);
    CALLS::SendTo(server, acBuffer, sizeof(acBuffer), port);
    CALLS::ReceiveFrom(client, acBuffer, sizeof(acBuffer), &port);
  }
  SYS_SOCKET_Close(client);
  SYS_SOCKET_Close(server);
}

BENCHMARK(Throughput<LAYER>);
BENCHMARK(Throughput<BARE>);
BENCHMARK(RoundTrip<LAYER>);
BENCHMARK(RoundTrip<BARE>);
BENCHMARK(DatagramRoundTrip<LAYER>);
BENCHMARK(DatagramRoundTrip<BARE>);

void Interfaces(benchmark::State& state) {
  SYS_NET_INTERFACE aInterface[64];
  for (auto _ : state) {
    benchmark::DoNotOptimize(SYS_GetNetInterfacesSimple(aInterface, 64));
    benchmark::ClobberMemory();
  }
}

void Getifaddrs(benchmark::State& state) {
  for (auto _ : state) {
    ifaddrs* pList = nullptr;
    benchmark::DoNotOptimize(getifaddrs(&pList));
    freeifaddrs(pList);
  }
}

BENCHMARK(Interfaces);
BENCHMARK(Getifaddrs);

}  // namespace

BENCHMARK_MAIN();
