// Copies of size-prefixed records against a model, at random places in one buffer that must not change elsewhere.

#include "probe/api_struct.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support.h"

namespace {

constexpr size_t BUFFER_BYTES = 0x4000;
constexpr uint32_t PREFIX_BYTES = 4;
constexpr uint32_t MAX_RECORD_BYTES = 4100;

// The size's four bytes may overlap with those of the other record: both are what they are when all is written.
uint32_t SizeAt(const std::string& buffer, size_t offset) {
  uint32_t size;
  memcpy(&size, buffer.data() + offset, sizeof(size));
  return size;
}

void CopyInModel(std::string& buffer, size_t dest, size_t src) {
  const uint32_t destSize = SizeAt(buffer, dest);
  if (destSize < PREFIX_BYTES || destSize > MAX_RECORD_BYTES || destSize % 4 != 0) {
    return;
  }
  const uint32_t srcSize = std::max(SizeAt(buffer, src), PREFIX_BYTES);
  std::string payload = buffer.substr(src + PREFIX_BYTES, std::min(srcSize, destSize) - PREFIX_BYTES);
  payload.resize(destSize - PREFIX_BYTES);
  buffer.replace(dest + PREFIX_BYTES, payload.size(), payload);
}

uint32_t RandomSize(RANDOM& random) {
  static constexpr uint32_t SIZES[] = {0,  1,    3,    4,    5,    6,    8,          12,
                                       20, 4096, 4099, 4100, 4101, 4104, 0x80000000, 0xFFFFFFFC};
  switch (random.Below(3)) {
    case 0:
      return SIZES[random.Below(std::size(SIZES))];
    case 1:
      return random.Below(64) * 4;
    default:
      return random.Below(MAX_RECORD_BYTES + 8);
  }
}

TEST(ApiStruct, CopiesWhatBothHaveAndClearsTheRest) {
  RANDOM random(1);
  for (int round = 0; round < 20000; round++) {
    std::string buffer = random.Bytes(64);
    while (buffer.size() < BUFFER_BYTES) {
      buffer += buffer;
    }
    const size_t dest = random.Below(BUFFER_BYTES / 4);
    const size_t src = random.OneIn(2) ? dest + random.Below(64) : BUFFER_BYTES / 2 + random.Below(64);
    const uint32_t destSize = RandomSize(random);
    const uint32_t srcSize = RandomSize(random);
    memcpy(buffer.data() + src, &srcSize, sizeof(srcSize));
    memcpy(buffer.data() + dest, &destSize, sizeof(destSize));
    std::string expected = buffer;
    CopyInModel(expected, dest, src);
    UTIL_CopyAPIStruct(buffer.data() + dest, buffer.data() + src, "API");
    ASSERT_TRUE(buffer == expected) << destSize << " at " << dest << " from " << srcSize << " at " << src;
  }
}

}  // namespace
