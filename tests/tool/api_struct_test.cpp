// Copies of size-prefixed records against a model, at random places in one buffer that must not change elsewhere.

#include "probe/api_struct.h"

#include <gtest/gtest.h>

#include "tests/support.h"

namespace {

TEST(ApiStruct, CopiesWhatBothHaveAndClearsTheRest) {
  constexpr size_t BUFFER_BYTES = 0x4000;
  static constexpr uint32_t LIMITS[] = {0, 1, 3, 4, 5, 8, 4096, 4099, 4100, 4101, 4104, 0x80000000, 0xFFFFFFFC};
  RANDOM random(1);
  const auto placeSize = [&](std::string& buffer, size_t at) {
    const uint32_t size = random.OneIn(3) ? LIMITS[random.Below(std::size(LIMITS))] : random.Below(300) * 4;
    memcpy(buffer.data() + at, &size, sizeof(size));
  };
  const auto sizeAt = [](const std::string& buffer, size_t at) {
    uint32_t size;
    memcpy(&size, buffer.data() + at, sizeof(size));
    return size;
  };
  const std::string start = random.Bytes(BUFFER_BYTES);
  for (int round = 0; round < 5000; round++) {
    std::string buffer = start;
    const size_t dest = 32 + random.Below(BUFFER_BYTES / 4);
    const size_t src = random.OneIn(2) ? dest - 32 + random.Below(64) : BUFFER_BYTES / 2 + random.Below(64);
    placeSize(buffer, src);  // May overlap with the other: both are what they are when all is written.
    placeSize(buffer, dest);
    std::string expected = buffer;
    const uint32_t destSize = sizeAt(buffer, dest);
    const uint32_t srcSize = std::max(sizeAt(buffer, src), 4u);
    if (destSize >= 4 && destSize <= 4100 && destSize % 4 == 0) {
      std::string payload = buffer.substr(src + 4, std::min(srcSize, destSize) - 4);
      payload.resize(destSize - 4);
      expected.replace(dest + 4, payload.size(), payload);
    }
    UTIL_CopyAPIStruct(buffer.data() + dest, buffer.data() + src, "API");
    ASSERT_TRUE(buffer == expected) << destSize << " at " << dest << " from " << srcSize << " at " << src;
  }
}

}  // namespace
