#ifndef SYS_SYS_SOCKET_H
#define SYS_SYS_SOCKET_H

// Sockets: TCP and UDP over IPv4 and IPv6, name resolution both ways, and the list of the machine's IPv4 interfaces.
//
// A socket is the platform's descriptor, closed on exec, and the caller's from the operation that returns it until
// SYS_SOCKET_Close. An IPv4 address is a number in host byte order: 192.168.0.1 is 0xC0A80001. An IPv6 address is 16
// bytes in network byte order; flow information and scope are 0 when sending and dropped when receiving, so that
// link-local addresses cannot be reached. A port is a number in host byte order; one above 65,535 is refused (-1,
// EINVAL), and 0 lets the platform choose where a port is bound.
//
// Results are 0 or a count of bytes on success and -1 on failure where nothing else is said. SYS_GetLastError tells
// more after each negative result but those of name resolution. No operation raises the broken-pipe signal on a stream
// socket that was made or accepted here: sending to a closed connection fails with EPIPE. Calls that a signal
// interrupts are not repeated, waits excepted. Pointers must not be null except where said otherwise. The operations
// keep no state: a socket may be used from several threads as the platform allows it, one receiving while another
// sends.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// What transfers and SYS_SOCKET_GetError return for an error of the platform. ReceiveFrom stands for both families. All
// other operations, ReceiveAll and SendTo among them, give -1 for every error.
//
//                Receive  ReceiveFrom  GetError  Send
//   EAGAIN          -2        -2          -2      -2
//   ETIMEDOUT       -3        -3          -3      -1
//   ENETRESET       -4        -4          -1      -1
//   ECONNRESET      -1        -1          -4      -1
//   EINTR           -5        -1          -5      -1
//   any other       -1        -1          -1      -1
#define SYS_SOCKET_ERROR (-1)
#define SYS_SOCKET_WOULD_BLOCK (-2)  // Not now: the socket is non-blocking, or its time-out has run out.
#define SYS_SOCKET_TIMED_OUT (-3)    // The platform has given the connection up.
#define SYS_SOCKET_RESET (-4)
#define SYS_SOCKET_INTERRUPTED (-5)  // A signal came.

// Creation.

// Creates a stream socket with TCP_NODELAY on; the one for IPv6 takes no IPv4 traffic (IPV6_V6ONLY). Returns the
// socket, or -1.
int32_t SYS_SOCKET_CreateTCP(void);
int32_t SYS_SOCKET_CreateTCPv6(void);

// Creates a datagram socket; the one for IPv6 takes no IPv4 traffic. Returns the socket, or -1.
int32_t SYS_SOCKET_CreateUDP(void);
int32_t SYS_SOCKET_CreateUDPv6(void);

// Closes a socket. Without lingering, data not yet sent still goes out in the background.
void SYS_SOCKET_Close(int32_t sock);

// Shuts receiving (how is 0), sending (1) or both (2) down. Any other value, and failure, change nothing.
void SYS_SOCKET_Shutdown(int32_t sock, uint32_t how);

// Options. What they set is the platform's to check: a negative size or time may be refused.

// Lets a port be bound again while connections of an earlier owner linger (SO_REUSEADDR).
int32_t SYS_SOCKET_SetReuseAddr(int32_t sock);

// Allows datagrams to broadcast addresses (SO_BROADCAST).
int32_t SYS_SOCKET_SetBroadcast(int32_t sock);

// Has an idle connection probed from time to time, so that a vanished peer is noticed (SO_KEEPALIVE).
int32_t SYS_SOCKET_SetKeepAlive(int32_t sock);

// Sets the size of the receive buffer (SO_RCVBUF). Linux reserves twice that much.
int32_t SYS_SOCKET_SetRxBufSize(int32_t sock, int32_t numBytes);

// Makes SYS_SOCKET_Close wait for unsent data. The time is rounded to whole seconds, at least 1 and at most 65,535; a
// negative one counts as 1 second. With a time of 0 closing drops unsent data and resets the connection. Returns 0,
// also on failure.
int32_t SYS_SOCKET_SetLinger(int32_t sock, int32_t timeMs);

// Turns lingering off. Returns 0, also on failure.
int32_t SYS_SOCKET_ClearLinger(int32_t sock);

// Limits how long one send and one receive block, in milliseconds; 0 means without limit. One that runs out of time
// gives SYS_SOCKET_WOULD_BLOCK. The result is that of the receive time-out alone. Times below 0 are refused, except
// that Linux takes whole seconds below 0 for "do not wait".
int32_t SYS_SOCKET_SetTimeouts(int32_t sock, int32_t sendMs, int32_t receiveMs);

// Choose whether operations wait. Sockets are made blocking.
int32_t SYS_SOCKET_SetBlocking(int32_t sock);
int32_t SYS_SOCKET_SetNonBlocking(int32_t sock);

// Readiness.

// Returns 1 if at least one byte can be read without blocking, else 0; neither the end of the stream nor an error
// counts as data. A pending error stays pending.
int32_t SYS_SOCKET_IsDataAvailable(int32_t sock);

// Wait as SYS_WaitReadable and SYS_WaitWritable do: 1 ready, which includes the end of the stream, an error and a
// connection to accept; 0 when timeoutMs have passed, -1 on failure. A negative time waits without limit.
int32_t SYS_SOCKET_WaitReadable(int32_t sock, int32_t timeoutMs);
int32_t SYS_SOCKET_WaitWritable(int32_t sock, int32_t timeoutMs);

// Connections.

// Binds a stream socket to an address of this machine (0, or 16 zero bytes, for all) and listens. backlog is the number
// of connections that may wait to be accepted, within the platform's limits. Only SYS_SOCKET_Listen sets SO_REUSEADDR
// first. After a failure the socket may be bound; it is still the caller's to close.
int32_t SYS_SOCKET_Listen(int32_t sock, uint32_t addr, uint32_t port, int32_t backlog);
int32_t SYS_SOCKET_ListenV6(int32_t sock, const uint8_t* pAddr, uint32_t port, int32_t backlog);

// Takes the next connection, waiting for one if the listening socket is blocking. Returns its socket, with TCP_NODELAY
// on, or -1. On macOS it is non-blocking when the listening socket is, on Linux never.
int32_t SYS_SOCKET_Accept(int32_t sock);

// The same, waiting timeoutMs at most (negative: without limit). Returns the socket, -1, or -2 when no connection came
// in time. When another thread takes the connection first, or its peer gives up, a blocking socket waits for the next
// one regardless of the time.
int32_t SYS_SOCKET_AcceptTimeout(int32_t sock, int32_t timeoutMs);

// Connects a stream socket, or sets the peer of a datagram socket. A non-blocking stream socket gives -1 with
// EINPROGRESS, and so does an interrupted call with EINTR: the connection is still being made then. Once the socket is
// writable, SYS_SOCKET_GetError tells the outcome.
int32_t SYS_SOCKET_Connect(int32_t sock, uint32_t addr, uint32_t port);
int32_t SYS_SOCKET_ConnectV6(int32_t sock, const uint8_t* pAddr, uint32_t port);

// Addresses in use. Outputs may be null, and hold 0 after a failure. Asked for an address of the other family, an
// operation gives address 0 and the port.

// Give a socket's own address and port.
int32_t SYS_SOCKET_GetLocalAddr(int32_t sock, uint32_t* pAddr, uint32_t* pPort);
int32_t SYS_SOCKET_GetLocalIP(int32_t sock, uint32_t* pAddr);

// Gives a socket's own port, for both families.
void SYS_SOCKET_GetLocalPort(int32_t sock, uint32_t* pPort);

// Give address and port of the peer that a socket is connected to; -1 when it is not.
int32_t SYS_SOCKET_GetPeerAddr(int32_t sock, uint32_t* pAddr, uint32_t* pPort);
int32_t SYS_SOCKET_GetPeerAddrV6(int32_t sock, uint8_t* pAddr, uint32_t* pPort);

// Transfer. One call moves 2^31 - 1 bytes at most.

// Reads the socket's pending error, which clears it: returns 0 when there is none, else its code; -1 also when it
// cannot be read. SYS_GetLastError returns the error itself then.
int32_t SYS_SOCKET_GetError(int32_t sock);

// Receives what is there, numBytes at most, waiting for the first byte if the socket is blocking. Returns the number of
// bytes, 0 when the peer has closed or numBytes is 0, or a code.
int32_t SYS_SOCKET_Receive(int32_t sock, void* pBuffer, uint32_t numBytes);

// Receives until numBytes have come. Returns numBytes (0 at once for 0), or -1 as soon as the peer has closed or one
// receive has failed, be it for a time-out or a signal; how much of the buffer is filled then is not told. A numBytes
// of 2^31 or more is refused (-1, EINVAL).
int32_t SYS_SOCKET_ReceiveAll(int32_t sock, void* pBuffer, uint32_t numBytes);

// Sends as much of numBytes as the platform takes, waiting for room if the socket is blocking. Returns the number of
// bytes or a code.
int32_t SYS_SOCKET_Send(int32_t sock, const void* pBuffer, uint32_t numBytes);

// Datagrams.

// Binds a datagram socket to an IPv4 address of this machine (0 for all). One for IPv6 has its port from the first
// datagram that it sends.
int32_t SYS_SOCKET_BindUDP(int32_t sock, uint32_t addr, uint32_t port);

// Sends one datagram, whole or not at all. Returns numBytes or -1; a full send buffer is a failure too (EAGAIN).
int32_t SYS_SOCKET_SendTo(int32_t sock, const void* pBuffer, uint32_t numBytes, uint32_t addr, uint32_t port);
int32_t SYS_SOCKET_SendToV6(int32_t sock, const void* pBuffer, uint32_t numBytes, const uint8_t* pAddr, uint32_t port);

// Receives one datagram, waiting for it if the socket is blocking; what does not fit into numBytes is lost. Returns the
// number of bytes stored, 0 for an empty datagram, or a code. The sender's address (16 bytes for IPv6) and port may be
// null, and are 0 when nothing was received or the socket is a connected stream.
int32_t SYS_SOCKET_ReceiveFrom(int32_t sock, void* pBuffer, uint32_t numBytes, uint32_t* pAddr, uint32_t* pPort);
int32_t SYS_SOCKET_ReceiveFromV6(int32_t sock, void* pBuffer, uint32_t numBytes, uint8_t* pAddr, uint32_t* pPort);

// Names. Lookups block for as long as the platform's resolver takes, which may be many seconds.

// Looks a host name or a numeric address up for stream use, and stores the first address found. service is the name or
// number of a port, which must exist, or null. After a failure (-1) nothing is stored. With allowMapped not 0 a host
// that has IPv4 addresses only gives one of them as an IPv4-mapped IPv6 address, which the sockets made here cannot
// reach.
int32_t SYS_SOCKET_ResolveHost(const char* host, const char* service, uint32_t* pAddr);
int32_t SYS_SOCKET_ResolveHostV6(const char* host, const char* service, uint8_t* pAddr, int32_t allowMapped);

// Give the name of an address, or its numeric text where it has none, and the service text of port 0, "0". Either
// buffer may be null if its size is 0. A text that does not fit whole is a failure; both texts are empty after one.
int32_t SYS_SOCKET_GetNameInfo(uint32_t addr, char* pHost, uint32_t hostSize, char* pService, uint32_t serviceSize);
int32_t SYS_SOCKET_GetNameInfoV6(const uint8_t* pAddr, char* pHost, uint32_t hostSize, char* pService,
                                 uint32_t serviceSize);

// Interfaces.

// One IPv4 address of an interface.
typedef struct SYS_NET_INTERFACE {
  uint32_t Addr;         // In host byte order.
  uint32_t Mask;         // Network mask in host byte order; 0 also when there is none.
  uint32_t Reserved0;    // 0.
  uint8_t Reserved1;     // 0.
  uint8_t HasBroadcast;  // 1 if the interface can broadcast, else 0.
  uint8_t HWAddr[6];     // Hardware address; 0 when it has none of six bytes or the option leaves it out.
  char Name[64];         // A name of more than 62 characters is cut to 60 and "...".
} SYS_NET_INTERFACE;

// Option: leave hardware addresses out that are locally administered (bit 1 of the first byte), since they do not
// identify a machine.
#define SYS_NET_SKIP_LOCAL_HWADDR 0x02u

// Lists the IPv4 addresses of all interfaces, in the platform's order. An interface with several addresses comes
// several times, one without does not come. All capacity records (paInterfaces may be null if 0) are cleared first.
// Returns the number of addresses that there are, also those beyond the capacity: a result above it calls for a larger
// array. Returns 0 when the list cannot be read.
int32_t SYS_GetNetInterfaces(SYS_NET_INTERFACE* paInterfaces, uint32_t capacity, uint32_t options);

// The same with options 0.
int32_t SYS_GetNetInterfacesSimple(SYS_NET_INTERFACE* paInterfaces, uint32_t capacity);

#ifdef __cplusplus
}
#endif

#endif
