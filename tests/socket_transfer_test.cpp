// Moving bytes over the loopback interface, and what each failure is called: provoked for real where that is possible,
// else by failing calls. A broken-pipe signal, which no operation may raise, would end the program.

#include <errno.h>
#include <signal.h>
#include <sys/time.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <thread>

#include "tests/faults.h"
#include "tests/socket_support.h"
#include "tests/support.h"

namespace {

// A signal every few milliseconds, whose handler lets calls be interrupted.
class SCOPED_SIGNALS {
 public:
  SCOPED_SIGNALS() {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, &before);
    const itimerval interval = {{0, 3000}, {0, 3000}};
    setitimer(ITIMER_REAL, &interval, nullptr);
  }
  ~SCOPED_SIGNALS() {
    const itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
  }

 private:
  struct sigaction before;
};

// Sends until the socket takes no more.
void Fill(int32_t sock) {
  const std::string bytes(1 << 16, 'x');
  ASSERT_EQ(SYS_SOCKET_SetNonBlocking(sock), 0);
  int32_t result;
  do {
    result = SYS_SOCKET_Send(sock, bytes.data(), static_cast<uint32_t>(bytes.size()));
  } while (result > 0);
  EXPECT_EQ(result, SYS_SOCKET_WOULD_BLOCK);
  ASSERT_EQ(SYS_SOCKET_SetBlocking(sock), 0);
}

// Makes the socket's end close with a reset instead of an orderly end.
void Reset(SOCKET& sock) {
  SYS_SOCKET_SetLinger(sock, 0);
  sock.Close();
}

TEST(Stream, CarriesBytesBothWaysAtOnce) {
  for (FAMILY family : Families()) {
    CONNECTION connection(family);
    const std::string bytes = RANDOM(1).Bytes(3000000);
    auto send = [&](int32_t sock) {
      RANDOM random(2);
      for (size_t sent = 0; sent < bytes.size();) {
        const size_t numBytes = std::min<size_t>(bytes.size() - sent, 1 + random.Below(100000));
        const int32_t result = SYS_SOCKET_Send(sock, bytes.data() + sent, static_cast<uint32_t>(numBytes));
        ASSERT_GT(result, 0);
        sent += static_cast<size_t>(result);
      }
      SYS_SOCKET_Shutdown(sock, 1);
    };
    std::thread clientSender(send, static_cast<int32_t>(connection.Client));
    std::thread serverSender(send, static_cast<int32_t>(connection.Server));
    std::string whole(bytes.size(), '\0');
    std::thread serverReceiver([&] {
      RANDOM random(4);
      for (size_t received = 0; received < whole.size();) {
        const size_t numBytes = std::min<size_t>(whole.size() - received, 1 + random.Below(100000));
        ASSERT_EQ(SYS_SOCKET_ReceiveAll(connection.Server, whole.data() + received, static_cast<uint32_t>(numBytes)),
                  static_cast<int32_t>(numBytes));
        received += numBytes;
      }
    });
    std::string pieces;
    char acBuffer[7000];
    int32_t result;
    while ((result = SYS_SOCKET_Receive(connection.Client, acBuffer, sizeof(acBuffer))) > 0) {
      pieces.append(acBuffer, static_cast<size_t>(result));
    }
    EXPECT_EQ(result, 0);
    clientSender.join();
    serverSender.join();
    serverReceiver.join();
    EXPECT_TRUE(pieces == bytes);
    EXPECT_TRUE(whole == bytes);
    EXPECT_EQ(SYS_SOCKET_Receive(connection.Server, acBuffer, 1), 0);
  }
}

TEST(Stream, WouldBlockWhenNonBlockingOrOutOfTime) {
  CONNECTION connection;
  char acBuffer[8];
  SYS_SOCKET_SetNonBlocking(connection.Client);
  EXPECT_EQ(SYS_SOCKET_Receive(connection.Client, acBuffer, sizeof(acBuffer)), SYS_SOCKET_WOULD_BLOCK);
  EXPECT_EQ(SYS_SOCKET_ReceiveAll(connection.Client, acBuffer, sizeof(acBuffer)), -1);
  EXPECT_EQ(SYS_SOCKET_GetError(connection.Client), 0);
  Fill(connection.Client);
  EXPECT_EQ(SYS_SOCKET_WaitWritable(connection.Client, 0), 0);
  ASSERT_EQ(SYS_SOCKET_SetTimeouts(connection.Client, 10, 10), 0);
  EXPECT_EQ(SYS_SOCKET_Send(connection.Client, "x", 1), SYS_SOCKET_WOULD_BLOCK);
  EXPECT_EQ(SYS_SOCKET_Receive(connection.Client, acBuffer, sizeof(acBuffer)), SYS_SOCKET_WOULD_BLOCK);
  connection.Server.Close();
}

TEST(Stream, EndsWhenThePeerCloses) {
  for (uint32_t numBytes : {4u, 10u}) {
    CONNECTION connection;
    char acBuffer[10];
    ASSERT_EQ(SYS_SOCKET_Send(connection.Server, "0123456789", numBytes), static_cast<int32_t>(numBytes));
    connection.Server.Close();
    EXPECT_EQ(SYS_SOCKET_ReceiveAll(connection.Client, acBuffer, 10), numBytes == 10 ? 10 : -1);
    SYS_SOCKET_SetNonBlocking(connection.Client);
    EXPECT_EQ(SYS_SOCKET_Receive(connection.Client, acBuffer, 10), 0);
    EXPECT_EQ(SYS_SOCKET_Receive(connection.Client, acBuffer, 10), 0);
  }
  EXPECT_EQ(SYS_SOCKET_ReceiveAll(-1, nullptr, 0), 0);
  EXPECT_EQ(SYS_SOCKET_ReceiveAll(-1, nullptr, 1u << 31), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(Stream, FailsWithoutASignalWhenThePeerHasGone) {
  for (FAMILY family : Families()) {
    for (auto pfAccept : {SYS_SOCKET_Accept, +[](int32_t sock) { return SYS_SOCKET_AcceptTimeout(sock, -1); }}) {
      for (bool isServerLeft : {false, true}) {
        CONNECTION connection(family, pfAccept);
        SOCKET& left = isServerLeft ? connection.Server : connection.Client;
        SOCKET& gone = isServerLeft ? connection.Client : connection.Server;
        Reset(gone);
        ASSERT_EQ(SYS_SOCKET_WaitReadable(left, -1), 1);
        EXPECT_EQ(SYS_SOCKET_Send(left, "x", 1), -1);  // Reset.
        EXPECT_EQ(SYS_SOCKET_Send(left, "x", 1), -1);
        EXPECT_EQ(errno, EPIPE);
        EXPECT_EQ(SYS_SOCKET_SendTo(left, "x", 1, LOOPBACK, 1), -1);
        EXPECT_EQ(SYS_SOCKET_SendToV6(left, "x", 1, LOOPBACK_V6, 1), -1);
      }
    }
  }
}

TEST(Reset, IsATypeOfItsOwnToGetErrorAlone) {
  char cByte;
  for (bool isDataFirst : {false, true}) {
    CONNECTION connection;
    if (isDataFirst) {
      SYS_SOCKET_Send(connection.Client, "x", 1);  // Unread data makes for a reset, too.
      ASSERT_EQ(SYS_SOCKET_WaitReadable(connection.Server, -1), 1);
      connection.Server.Close();
    } else {
      Reset(connection.Server);
    }
    ASSERT_EQ(SYS_SOCKET_WaitReadable(connection.Client, -1), 1);
    EXPECT_EQ(SYS_SOCKET_IsDataAvailable(connection.Client), 0);
    EXPECT_EQ(SYS_SOCKET_GetError(connection.Client), SYS_SOCKET_RESET);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(SYS_SOCKET_GetError(connection.Client), 0);
  }
  for (auto pfReceive : {SYS_SOCKET_Receive, SYS_SOCKET_ReceiveAll, +[](int32_t sock, void*pBuffer, uint32_t numBytes) {
                           return SYS_SOCKET_ReceiveFrom(sock, pBuffer, numBytes, nullptr, nullptr);
                         }}) {
    CONNECTION connection;
    Reset(connection.Server);
    ASSERT_EQ(SYS_SOCKET_WaitReadable(connection.Client, -1), 1);
    EXPECT_EQ(pfReceive(connection.Client, &cByte, 1), SYS_SOCKET_ERROR);
    EXPECT_EQ(errno, ECONNRESET);
  }
}

TEST(Signals, EndAReceiveWithItsOwnCodeAndAllElseWithAnError) {
  CONNECTION connection;
  SOCKET datagrams(SYS_SOCKET_CreateUDP());
  ASSERT_EQ(SYS_SOCKET_BindUDP(datagrams, LOOPBACK, 0), 0);
  Fill(connection.Client);
  char acBuffer[8];
  SCOPED_SIGNALS signals;
  EXPECT_EQ(SYS_SOCKET_Receive(connection.Client, acBuffer, sizeof(acBuffer)), SYS_SOCKET_INTERRUPTED);
  const int32_t aResult[] = {
      (errno = 0, SYS_SOCKET_ReceiveAll(connection.Client, acBuffer, sizeof(acBuffer))),
      SYS_SOCKET_Send(connection.Client, acBuffer, sizeof(acBuffer)),
      SYS_SOCKET_ReceiveFrom(datagrams, acBuffer, sizeof(acBuffer), nullptr, nullptr),
      SYS_SOCKET_ReceiveFromV6(datagrams, acBuffer, sizeof(acBuffer), nullptr, nullptr),
      SYS_SOCKET_Accept(connection.Listener),
  };
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(std::count(std::begin(aResult), std::end(aResult), -1), std::ssize(aResult));
}

TEST(Errors, AreMappedForEachOperation) {
  FAULTS_REQUIRE();
  static constexpr struct {
    int Error;
    int32_t Receive;
    int32_t ReceiveFrom;
    int32_t GetError;
    int32_t Send;
  } aCase[] = {
      {EAGAIN, -2, -2, -2, -2},    {EWOULDBLOCK, -2, -2, -2, -2},  {ETIMEDOUT, -3, -3, -3, -1},
      {ENETRESET, -4, -4, -1, -1}, {ECONNRESET, -1, -1, -4, -1},   {EINTR, -5, -1, -5, -1},
      {EPIPE, -1, -1, -1, -1},     {ECONNREFUSED, -1, -1, -1, -1}, {ECONNABORTED, -1, -1, -1, -1},
      {ENOBUFS, -1, -1, -1, -1},   {ENETDOWN, -1, -1, -1, -1},     {INT32_MAX, -1, -1, -1, -1},
  };
  SOCKET sock(SYS_SOCKET_CreateUDP());
  char acBuffer[4];
  for (const auto& test : aCase) {
    SCOPED_TRACE(test.Error);
    SCOPED_FAULT recvFault({FAULT_CALL::RECV, 1, test.Error, UINT32_MAX});
    SCOPED_FAULT recvfromFault({FAULT_CALL::RECVFROM, 1, test.Error, UINT32_MAX});
    SCOPED_FAULT sendFault({FAULT_CALL::SEND, 1, test.Error, UINT32_MAX});
    SCOPED_FAULT getsockoptFault({FAULT_CALL::GETSOCKOPT, 1, test.Error, 1, FAULT_KIND::VALUE});
    uint32_t addr = 1;
    uint32_t port = 1;
    uint8_t aAddr[16] = {1};
    EXPECT_EQ(SYS_SOCKET_Receive(sock, acBuffer, sizeof(acBuffer)), test.Receive);
    EXPECT_EQ(SYS_SOCKET_ReceiveAll(sock, acBuffer, sizeof(acBuffer)), -1);
    EXPECT_EQ(SYS_SOCKET_ReceiveFrom(sock, acBuffer, sizeof(acBuffer), &addr, nullptr), test.ReceiveFrom);
    EXPECT_EQ(SYS_SOCKET_ReceiveFromV6(sock, acBuffer, sizeof(acBuffer), aAddr, &port), test.ReceiveFrom);
    EXPECT_EQ(SYS_SOCKET_Send(sock, acBuffer, sizeof(acBuffer)), test.Send);
    EXPECT_EQ(SYS_SOCKET_GetError(sock), test.GetError);
    EXPECT_EQ(errno, test.Error);
    EXPECT_EQ(addr + port + aAddr[0], 0u);
  }
  SCOPED_FAULT unreadable({FAULT_CALL::GETSOCKOPT, 1, EINTR});
  EXPECT_EQ(SYS_SOCKET_GetError(sock), -1);
}

TEST(IsDataAvailable, CountsBytesAlone) {
  CONNECTION connection;
  EXPECT_EQ(SYS_SOCKET_IsDataAvailable(connection.Listener), 0);
  EXPECT_EQ(SYS_SOCKET_IsDataAvailable(connection.Client), 0);
  EXPECT_EQ(SYS_SOCKET_WaitReadable(connection.Client, 0), 0);
  ASSERT_EQ(SYS_SOCKET_Send(connection.Server, "x", 1), 1);
  connection.Server.Close();
  EXPECT_EQ(SYS_SOCKET_WaitReadable(connection.Client, -1), 1);
  EXPECT_EQ(SYS_SOCKET_IsDataAvailable(connection.Client), 1);
  char cByte;
  EXPECT_EQ(SYS_SOCKET_Receive(connection.Client, &cByte, 1), 1);
  EXPECT_EQ(SYS_SOCKET_WaitReadable(connection.Client, -1), 1);
  EXPECT_EQ(SYS_SOCKET_IsDataAvailable(connection.Client), 0);
  EXPECT_EQ(SYS_SOCKET_IsDataAvailable(-1), 0);
}

TEST(Datagrams, ComeWholeWithTheirSender) {
  SOCKET receiver(SYS_SOCKET_CreateUDP());
  SOCKET sender(SYS_SOCKET_CreateUDP());
  ASSERT_EQ(SYS_SOCKET_BindUDP(receiver, LOOPBACK, 0), 0);
  ASSERT_EQ(SYS_SOCKET_BindUDP(sender, LOOPBACK, 0), 0);
  EXPECT_EQ(SYS_SOCKET_BindUDP(SOCKET(SYS_SOCKET_CreateUDP()), LOOPBACK, PortOf(receiver)), -1);
  const std::string bytes = RANDOM(3).Bytes(9000);
  GUARDED_BLOCK block(9000);
  for (uint32_t numBytes : {0u, 1u, 1000u, 9000u}) {
    for (uint32_t size : {0u, 1u, 999u, 9000u}) {
      ASSERT_EQ(SYS_SOCKET_SendTo(sender, bytes.data(), numBytes, LOOPBACK, PortOf(receiver)),
                static_cast<int32_t>(numBytes));
      ASSERT_EQ(SYS_SOCKET_WaitReadable(receiver, -1), 1);
      EXPECT_EQ(SYS_SOCKET_IsDataAvailable(receiver), numBytes != 0);
      uint32_t addr = 0;
      uint32_t port = 0;
      char* pBuffer = block.Take(size);
      const uint32_t expected = std::min(numBytes, size);
      EXPECT_EQ(SYS_SOCKET_ReceiveFrom(receiver, pBuffer, size, &addr, &port), static_cast<int32_t>(expected));
      EXPECT_EQ(std::string(pBuffer, expected), bytes.substr(0, expected));
      EXPECT_TRUE(block.IsIntact());
      EXPECT_EQ(addr, LOOPBACK);
      EXPECT_EQ(port, PortOf(sender));
    }
  }
  uint32_t addr = 1;
  uint32_t port = 1;
  SYS_SOCKET_SetNonBlocking(receiver);
  EXPECT_EQ(SYS_SOCKET_ReceiveFrom(receiver, nullptr, 0, &addr, &port), SYS_SOCKET_WOULD_BLOCK);
  EXPECT_EQ(addr, 0u);
  EXPECT_EQ(port, 0u);
  EXPECT_EQ(SYS_SOCKET_SendTo(sender, std::string(70000, 'x').data(), 70000, LOOPBACK, PortOf(receiver)), -1);
  EXPECT_EQ(errno, EMSGSIZE);
  EXPECT_EQ(SYS_SOCKET_SendTo(sender, "x", 1, 0xFFFFFFFF, 9), -1);  // Broadcasts have to be allowed first.
  EXPECT_EQ(errno, EACCES);
}

TEST(Datagrams, ComeWithTheirSenderOverIPv6) {
  if (!HasV6()) {
    GTEST_SKIP() << "no IPv6 here";
  }
  SOCKET receiver(SYS_SOCKET_CreateUDPv6());
  SOCKET sender(SYS_SOCKET_CreateUDPv6());
  ASSERT_EQ(SYS_SOCKET_ListenV6(receiver, LOOPBACK_V6, 0, 1), -1);  // Bound all the same.
  char acBuffer[8];
  uint8_t aAddr[16] = {};
  uint32_t addr = 1;
  uint32_t port = 0;
  EXPECT_EQ(SYS_SOCKET_SendToV6(sender, "abc", 3, LOOPBACK_V6, PortOf(receiver)), 3);
  EXPECT_EQ(SYS_SOCKET_ReceiveFromV6(receiver, acBuffer, sizeof(acBuffer), aAddr, &port), 3);
  EXPECT_EQ(std::string(acBuffer, 3), "abc");
  EXPECT_EQ(memcmp(aAddr, LOOPBACK_V6, 16), 0);
  EXPECT_EQ(port, PortOf(sender));
  EXPECT_EQ(SYS_SOCKET_SendToV6(receiver, "defg", 4, aAddr, port), 4);
  EXPECT_EQ(SYS_SOCKET_ReceiveFrom(sender, acBuffer, sizeof(acBuffer), &addr, &port), 4);  // The other family's.
  EXPECT_EQ(addr, 0u);
  EXPECT_EQ(port, PortOf(receiver));
  EXPECT_EQ(SYS_SOCKET_SendTo(sender, "x", 1, LOOPBACK, port), -1);
}

}  // namespace
