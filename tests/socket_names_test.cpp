// Name resolution, with numeric names and the machine's own only, and the list of interfaces.

#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#ifndef __APPLE__
#include <netpacket/packet.h>
#endif
#include <stdio.h>

#include <fstream>
#include <iterator>
#include <list>
#include <string>

#include "tests/faults.h"
#include "tests/socket_support.h"
#include "tests/support.h"

namespace {

TEST(ResolveHost, StoresTheFirstAddressOrNothing) {
  static constexpr struct {
    const char* Host;
    const char* Service;
    int32_t Result;
    uint32_t Addr;
  } aCase[] = {
      {"127.0.0.1", nullptr, 0, LOOPBACK},
      {"192.168.0.1", "80", 0, 0xC0A80001},
      {"255.255.255.255", "0", 0, 0xFFFFFFFF},
      {"0.0.0.0", nullptr, 0, 0},
      {"localhost", nullptr, 0, LOOPBACK},
      {"localhost", "65535", 0, LOOPBACK},
      {"127.0.0.1", "no-such-service", -1, 0},
      {"::1", nullptr, -1, 0},
      {nullptr, nullptr, -1, 0},
  };
  for (const auto& test : aCase) {
    uint32_t addr = 0xA5A5A5A5;
    EXPECT_EQ(SYS_SOCKET_ResolveHost(test.Host, test.Service, &addr), test.Result);
    EXPECT_EQ(addr, test.Result == 0 ? test.Addr : 0xA5A5A5A5);
  }
}

TEST(ResolveHostV6, MapsIPv4AddressesOnlyWhenAsked) {
  static constexpr struct {
    const char* Host;
    const char* Service;
    int32_t AllowMapped;
    const char* Expected;
  } aCase[] = {
      {"::1", nullptr, 0, "::1"},
      {"2001:db8::a:b", "80", 1, "2001:db8::a:b"},
      {"192.168.0.1", nullptr, 1, "::ffff:192.168.0.1"},
      {"192.168.0.1", nullptr, -2, "::ffff:192.168.0.1"},
      {"192.168.0.1", nullptr, 0, nullptr},
      {"::1", "no-such-service", 0, nullptr},
  };
  for (const auto& test : aCase) {
    uint8_t aAddr[16];
    uint8_t aExpected[16];
    memset(aAddr, 0xA5, sizeof(aAddr));
    memset(aExpected, 0xA5, sizeof(aExpected));
    EXPECT_EQ(SYS_SOCKET_ResolveHostV6(test.Host, test.Service, aAddr, test.AllowMapped),
              test.Expected == nullptr ? -1 : inet_pton(AF_INET6, test.Expected, aExpected) - 1);
    EXPECT_EQ(memcmp(aAddr, aExpected, sizeof(aAddr)), 0) << test.Host;
  }
}

TEST(GetNameInfo, GivesWholeTextsOrNone) {
  FAULTS_REQUIRE();
  static constexpr uint8_t ADDRESS_V6[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x12, 0x34};
  SCOPED_NUMERIC_NAMES names;
  for (bool isV6 : {false, true}) {
    auto getNameInfo = [&](char* pHost, uint32_t hostSize, char* pService, uint32_t serviceSize) {
      return isV6 ? SYS_SOCKET_GetNameInfoV6(ADDRESS_V6, pHost, hostSize, pService, serviceSize)
                  : SYS_SOCKET_GetNameInfo(0xC0000201, pHost, hostSize, pService, serviceSize);
    };
    const std::string expected = isV6 ? "2001:db8::1234" : "192.0.2.1";
    const auto fittingSize = static_cast<uint32_t>(expected.size() + 1);
    GUARDED_BLOCK hostBlock;
    GUARDED_BLOCK serviceBlock;
    for (uint32_t hostSize : {fittingSize + 10, fittingSize, fittingSize - 1, 1u}) {
      for (uint32_t serviceSize : {2u, 1u}) {
        char* pHost = hostBlock.Take(hostSize);
        char* pService = serviceBlock.Take(serviceSize);
        const bool doesFit = hostSize >= fittingSize && serviceSize == 2;
        EXPECT_EQ(getNameInfo(pHost, hostSize, pService, serviceSize), doesFit ? 0 : -1);
        EXPECT_EQ(pHost, doesFit ? expected : "");
        EXPECT_STREQ(pService, doesFit ? "0" : "");
      }
    }
    char* pHost = hostBlock.Take(fittingSize);
    EXPECT_EQ(getNameInfo(pHost, fittingSize, nullptr, 0), 0);
    EXPECT_EQ(pHost, expected);
    char* pService = serviceBlock.Take(2);
    EXPECT_EQ(getNameInfo(nullptr, 0, pService, 2), 0);
    EXPECT_STREQ(pService, "0");
  }
}

// What the machine calls its loopback address is its own business.
TEST(GetNameInfo, AsksForANameFirst) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(LOOPBACK);
  char acExpected[NI_MAXHOST];
  ASSERT_EQ(getnameinfo(reinterpret_cast<const sockaddr*>(&address), sizeof(address), acExpected, sizeof(acExpected),
                        nullptr, 0, 0),
            0);
  char acHost[NI_MAXHOST];
  EXPECT_EQ(SYS_SOCKET_GetNameInfo(LOOPBACK, acHost, sizeof(acHost), nullptr, 0), 0);
  EXPECT_STREQ(acHost, acExpected);
}

std::string TextOf(const uint8_t* p) {
  char acText[18];
  snprintf(acText, sizeof(acText), "%02x:%02x:%02x:%02x:%02x:%02x", p[0], p[1], p[2], p[3], p[4], p[5]);
  return acText;
}

TEST(NetInterfaces, AreThoseOfTheMachine) {
  SYS_NET_INTERFACE aInterface[64];
  const int32_t count = SYS_GetNetInterfacesSimple(aInterface, std::size(aInterface));
  EXPECT_EQ(SYS_GetNetInterfaces(nullptr, 0, 0), count);
  ASSERT_GT(count, 0);
  bool hasLoopback = false;
  for (const SYS_NET_INTERFACE* p = aInterface; p < aInterface + std::min(count, 64); p++) {
    EXPECT_NE(if_nametoindex(p->Name), 0u);
    hasLoopback |= p->Addr == LOOPBACK && p->Mask == 0xFF000000 && p->HasBroadcast == 0;
    std::string address;
    if (std::ifstream("/sys/class/net/" + std::string(p->Name) + "/address") >> address && address.size() == 17) {
      EXPECT_EQ(TextOf(p->HWAddr), address);
    }
  }
  EXPECT_TRUE(hasLoopback);
}

#ifndef __APPLE__

// A list of interfaces as the platform gives it, and beside it the records that should come of it.
class FAKE_INTERFACES {
 public:
  void AddLink(const std::string& name, const std::string& bytes) {
    auto* pRecord = Add<sockaddr_ll>(name, AF_PACKET, 0);
    pRecord->sll_halen = static_cast<uint8_t>(bytes.size());
    bytes.copy(reinterpret_cast<char*>(pRecord->sll_addr), sizeof(pRecord->sll_addr));
  }
  void AddAddress(const std::string& name, uint32_t addr, const uint32_t* pMask, unsigned flags) {
    Add<sockaddr_in>(name, AF_INET, flags)->sin_addr.s_addr = htonl(addr);
    if (pMask != nullptr) {
      auto* pRecord = reinterpret_cast<sockaddr_in*>(&records.emplace_back());
      pRecord->sin_addr.s_addr = htonl(*pMask);
      entries.back().ifa_netmask = reinterpret_cast<sockaddr*>(pRecord);
    }
  }
  void AddV6(const std::string& name) { Add<sockaddr_in6>(name, AF_INET6, IFF_BROADCAST); }
  void AddBare(const std::string& name) {
    Add<sockaddr_in>(name, AF_INET, 0);
    entries.back().ifa_addr = nullptr;
  }
  ifaddrs* First() { return &entries.front(); }

 private:
  template <typename RECORD>
  RECORD* Add(const std::string& name, sa_family_t family, unsigned flags) {
    auto* pRecord = &records.emplace_back();
    pRecord->ss_family = family;
    ifaddrs entry = {};
    entry.ifa_name = names.emplace_back(name).data();
    entry.ifa_flags = flags;
    entry.ifa_addr = reinterpret_cast<sockaddr*>(pRecord);
    entries.push_back(entry);
    if (entries.size() > 1) {
      std::prev(entries.end(), 2)->ifa_next = &entries.back();
    }
    return reinterpret_cast<RECORD*>(pRecord);
  }

  std::list<ifaddrs> entries;
  std::list<sockaddr_storage> records;
  std::list<std::string> names;
};

SYS_NET_INTERFACE MakeRecord(const std::string& name, uint32_t addr, const uint32_t* pMask, bool hasBroadcast,
                             const std::string& hwAddr, uint32_t options) {
  SYS_NET_INTERFACE record = {};
  record.Addr = addr;
  record.Mask = pMask == nullptr ? 0 : *pMask;
  record.HasBroadcast = hasBroadcast;
  if (hwAddr.size() == 6 && !((options & 2) != 0 && (hwAddr[0] & 2) != 0)) {
    hwAddr.copy(reinterpret_cast<char*>(record.HWAddr), 6);
  }
  (name.size() <= 62 ? name : name.substr(0, 60) + "...").copy(record.Name, 63);
  return record;
}

TEST(NetInterfaces, KeepOrderAndBoundsWhateverTheListIsLike) {
  RANDOM random(5);
  for (int round = 0; round < 2000; round++) {
    FAKE_INTERFACES interfaces;
    std::vector<SYS_NET_INTERFACE> expected;
    const uint32_t options = random.OneIn(2) ? random.Next32() : 0;
    const uint32_t numInterfaces = random.Below(5);
    std::vector<std::string> names;
    std::vector<std::string> links;
    for (uint32_t i = 0; i < numInterfaces; i++) {
      constexpr uint32_t LENGTHS[] = {1, 4, 15, 59, 60, 61, 62, 63, 64, 70, 300};
      names.push_back(std::string(LENGTHS[random.Below(std::size(LENGTHS))], 'n') + static_cast<char>('a' + i));
      constexpr uint32_t LINK_BYTES[] = {0, 6, 6, 6, 5, 8};
      links.push_back(random.Bytes(LINK_BYTES[random.Below(std::size(LINK_BYTES))]));
      if (!links[i].empty()) {
        interfaces.AddLink(names[i], links[i]);
      }
    }
    interfaces.AddBare("bare");
    for (uint32_t n = random.Below(8); n > 0 && numInterfaces > 0; n--) {
      const uint32_t i = random.Below(numInterfaces);
      if (random.OneIn(4)) {
        interfaces.AddV6(names[i]);
        continue;
      }
      const std::string name = names[i] + (random.OneIn(4) ? ":1" : "");
      const uint32_t addr = random.Next32();
      const uint32_t mask = 0xFFFFFFFF << random.Below(32);
      const uint32_t* pMask = random.OneIn(5) ? nullptr : &mask;
      const unsigned flags = random.OneIn(2) ? IFF_BROADCAST | IFF_UP : IFF_LOOPBACK;
      interfaces.AddAddress(name, addr, pMask, flags);
      expected.push_back(MakeRecord(name, addr, pMask, (flags & IFF_BROADCAST) != 0, links[i], options));
    }

    SCOPED_INTERFACES fake(interfaces.First());
    const auto total = static_cast<int32_t>(expected.size());
    const uint32_t capacity = random.Below(10);
    const size_t numBytes = capacity * sizeof(SYS_NET_INTERFACE);
    expected.resize(capacity);
    GUARDED_BLOCK block(numBytes);
    char* pRecords = block.Take(numBytes);
    ASSERT_EQ(SYS_GetNetInterfaces(reinterpret_cast<SYS_NET_INTERFACE*>(pRecords), capacity, options), total);
    ASSERT_EQ(std::string_view(pRecords, numBytes),
              std::string_view(reinterpret_cast<const char*>(expected.data()), numBytes));
    ASSERT_TRUE(block.IsIntact());
    ASSERT_EQ(fake.NumHeld, 0);
  }
}

TEST(NetInterfaces, AreNoneWhenTheListCannotBeRead) {
  SCOPED_INTERFACES fake(nullptr);
  SYS_NET_INTERFACE record = {1, 1, 1, 1, 1, {1}, {1}};
  EXPECT_EQ(SYS_GetNetInterfaces(&record, 1, 0), 0);
  EXPECT_EQ(record.Addr, 0u);
  EXPECT_STREQ(record.Name, "");
  EXPECT_EQ(fake.NumHeld, 0);
}

#endif

}  // namespace
