#ifndef SYS_SOCKET_INTERNAL_H
#define SYS_SOCKET_INTERNAL_H

// Inside the layer: what the sources of the sockets share, above all the step between the layer's addresses and ports
// and the platform's address records.

#include <errno.h>
#include <netinet/in.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>

// BSD systems keep a record's length in the record itself, and some of their operations go by it.
template <typename SOCKADDR>
void SetRecordLength([[maybe_unused]] SOCKADDR* pRecord, [[maybe_unused]] size_t length) {
  if constexpr (requires { pRecord->sa_len; }) {
    pRecord->sa_len = static_cast<uint8_t>(length);
  }
}

template <typename SOCKADDR>
size_t RecordLength([[maybe_unused]] const SOCKADDR* pRecord, size_t fullLength) {
  if constexpr (requires { pRecord->sa_len; }) {
    return pRecord->sa_len;
  } else {
    return fullLength;
  }
}

// An address record of either family. A new one is empty (no family, all zero), with the length that a call which fills
// it expects.
struct SOCKET_ADDRESS {
  union {
    sockaddr_in6 V6;  // The largest comes first, so that all of it starts as zero.
    sockaddr_in V4;
    sockaddr Any;
  };
  socklen_t Length;

  SOCKET_ADDRESS() : V6{}, Length(sizeof(V6)) {}

  [[nodiscard]] bool Set(uint32_t addr, uint32_t port) {
    V4.sin_addr.s_addr = htonl(addr);
    V4.sin_port = htons(static_cast<uint16_t>(port));
    return Finish(AF_INET, sizeof(V4), port);
  }

  [[nodiscard]] bool Set(const uint8_t* pAddr, uint32_t port) {
    memcpy(&V6.sin6_addr, pAddr, sizeof(V6.sin6_addr));
    V6.sin6_port = htons(static_cast<uint16_t>(port));
    return Finish(AF_INET6, sizeof(V6), port);
  }

  // Both outputs may be null. An address of the other family counts as 0.
  void Get(uint32_t* pAddr, uint32_t* pPort) const {
    if (pAddr != nullptr) {
      *pAddr = Any.sa_family == AF_INET ? ntohl(V4.sin_addr.s_addr) : 0;
    }
    GetPort(pPort);
  }

  void Get(uint8_t* pAddr, uint32_t* pPort) const {
    if (pAddr != nullptr) {
      const in6_addr none = {};
      memcpy(pAddr, Any.sa_family == AF_INET6 ? &V6.sin6_addr : &none, sizeof(none));
    }
    GetPort(pPort);
  }

 private:
  // A port that was cut to 16 bits would be another port.
  bool Finish(sa_family_t family, socklen_t length, uint32_t port) {
    Any.sa_family = family;
    Length = length;
    SetRecordLength(&Any, length);
    if (port > UINT16_MAX) {
      errno = EINVAL;
      return false;
    }
    return true;
  }

  void GetPort(uint32_t* pPort) const {
    if (pPort == nullptr) {
      return;
    }
    *pPort = Any.sa_family == AF_INET ? ntohs(V4.sin_port) : Any.sa_family == AF_INET6 ? ntohs(V6.sin6_port) : 0;
  }
};

inline int32_t SetSocketOption(int32_t sock, int level, int option, int value) {
  return setsockopt(sock, level, option, &value, sizeof(value));
}

#endif
