// Names of hosts in both directions, and the machine's interfaces. Lists that the platform hands out are released on
// every path. Nothing is cached: the resolver and the interface table are the platform's to keep up to date.

#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>

#include <algorithm>

#include "sys/platform.h"
#include "sys/socket_internal.h"
#include "sys/sys_socket.h"
#include "util/strings.h"

namespace {

// Finds the first address of the family; false when there is none.
[[nodiscard]] bool FindAddress(const char* host, const char* service, int family, int flags, SOCKET_ADDRESS* pFound) {
  addrinfo hints = {};
  hints.ai_family = family;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags;
  addrinfo* pList = nullptr;
  const bool isFound = getaddrinfo(host, service, &hints, &pList) == 0 && pList != nullptr &&
                       pList->ai_family == family && pList->ai_addrlen <= pFound->Length;
  if (isFound) {
    memcpy(&pFound->Any, pList->ai_addr, pList->ai_addrlen);
  }
  if (pList != nullptr) {
    freeaddrinfo(pList);
  }
  return isFound;
}

}  // namespace

int32_t SYS_SOCKET_ResolveHost(const char* host, const char* service, uint32_t* pAddr) {
  SOCKET_ADDRESS found;
  if (!FindAddress(host, service, AF_INET, 0, &found)) {
    return -1;
  }
  found.Get(pAddr, nullptr);
  return 0;
}

int32_t SYS_SOCKET_ResolveHostV6(const char* host, const char* service, uint8_t* pAddr, int32_t allowMapped) {
  SOCKET_ADDRESS found;
  if (!FindAddress(host, service, AF_INET6, allowMapped != 0 ? AI_V4MAPPED : 0, &found)) {
    return -1;
  }
  found.Get(pAddr, nullptr);
  return 0;
}

namespace {

// The address is an IPv4 number or a pointer to an IPv6 address.
template <typename ADDRESS>
int32_t GetNameInfo(ADDRESS addr, char* pHost, uint32_t hostSize, char* pService, uint32_t serviceSize) {
  SOCKET_ADDRESS address;
  if (address.Set(addr, 0) &&
      getnameinfo(&address.Any, address.Length, pHost, hostSize, pService, serviceSize, 0) == 0) {
    return 0;
  }
  UTIL_CopyString(pHost, "", hostSize);
  UTIL_CopyString(pService, "", serviceSize);
  return -1;
}

}  // namespace

int32_t SYS_SOCKET_GetNameInfo(uint32_t addr, char* pHost, uint32_t hostSize, char* pService, uint32_t serviceSize) {
  return GetNameInfo(addr, pHost, hostSize, pService, serviceSize);
}

int32_t SYS_SOCKET_GetNameInfoV6(const uint8_t* pAddr, char* pHost, uint32_t hostSize, char* pService,
                                 uint32_t serviceSize) {
  return GetNameInfo(pAddr, pHost, hostSize, pService, serviceSize);
}

namespace {

constexpr uint32_t MAX_WHOLE_NAME = 62;
constexpr uint32_t CUT_NAME = 60;
constexpr uint8_t LOCALLY_ADMINISTERED = 0x02;
constexpr uint32_t HWADDR_BYTES = sizeof(SYS_NET_INTERFACE::HWAddr);

static_assert(offsetof(SYS_NET_INTERFACE, HasBroadcast) == 13 && sizeof(SYS_NET_INTERFACE) == 84);

// The family is not looked at: BSD systems give masks without one, and cut the zero bytes at a mask's end.
uint32_t ReadAddress(const sockaddr* pRecord) {
  sockaddr_in v4 = {};
  if (pRecord != nullptr) {
    memcpy(&v4, pRecord, std::min(RecordLength(pRecord, sizeof(v4)), sizeof(v4)));
  }
  return ntohl(v4.sin_addr.s_addr);
}

void CopyName(char* pDest, const char* name) {
  UTIL_CopyString(pDest, name, sizeof(SYS_NET_INTERFACE::Name));
  if (UTIL_StrLen(name) > MAX_WHOLE_NAME) {
    UTIL_CopyString(pDest + CUT_NAME, "...", sizeof(SYS_NET_INTERFACE::Name) - CUT_NAME);
  }
}

// Linux names further addresses of an interface with a label behind a ':', which no interface has in its own name.
bool IsSameInterface(const char* linkName, const char* name) {
  const size_t length = strlen(linkName);
  return strncmp(linkName, name, length) == 0 && (name[length] == '\0' || name[length] == ':');
}

// Finds the entry with the interface's hardware address, or null. The search goes once round the list, from pStart: the
// entries of successive interfaces come in the same order, so that it mostly ends where it begins.
const ifaddrs* FindLink(const ifaddrs* pList, const ifaddrs* pStart, const char* name) {
  const ifaddrs* p = pStart;
  do {
    if (PLATFORM_GetLinkAddress(p) != nullptr && IsSameInterface(p->ifa_name, name)) {
      return p;
    }
    p = p->ifa_next != nullptr ? p->ifa_next : pList;
  } while (p != pStart);
  return nullptr;
}

void CopyLinkAddress(const ifaddrs* pLink, uint32_t options, uint8_t* pDest) {
  const uint8_t* pAddr = PLATFORM_GetLinkAddress(pLink);
  const bool isLocal = (pAddr[0] & LOCALLY_ADMINISTERED) != 0;
  if (!isLocal || (options & SYS_NET_SKIP_LOCAL_HWADDR) == 0) {
    memcpy(pDest, pAddr, HWADDR_BYTES);
  }
}

}  // namespace

int32_t SYS_GetNetInterfaces(SYS_NET_INTERFACE* paInterfaces, uint32_t capacity, uint32_t options) {
  std::fill_n(paInterfaces, capacity, SYS_NET_INTERFACE{});
  ifaddrs* pList = nullptr;
  if (getifaddrs(&pList) != 0) {
    return 0;
  }
  uint32_t count = 0;
  const ifaddrs* pStart = pList;
  for (const ifaddrs* p = pList; p != nullptr; p = p->ifa_next) {
    if (p->ifa_addr == nullptr || p->ifa_addr->sa_family != AF_INET) {
      continue;
    }
    if (count < capacity) {
      SYS_NET_INTERFACE* pInterface = &paInterfaces[count];
      pInterface->Addr = ReadAddress(p->ifa_addr);
      pInterface->Mask = ReadAddress(p->ifa_netmask);
      pInterface->HasBroadcast = (p->ifa_flags & IFF_BROADCAST) != 0;
      CopyName(pInterface->Name, p->ifa_name);
      if (const ifaddrs* pLink = FindLink(pList, pStart, p->ifa_name); pLink != nullptr) {
        CopyLinkAddress(pLink, options, pInterface->HWAddr);
        pStart = pLink;
      }
    }
    count++;
  }
  freeifaddrs(pList);
  return static_cast<int32_t>(count);
}

int32_t SYS_GetNetInterfacesSimple(SYS_NET_INTERFACE* paInterfaces, uint32_t capacity) {
  return SYS_GetNetInterfaces(paInterfaces, capacity, 0);
}
