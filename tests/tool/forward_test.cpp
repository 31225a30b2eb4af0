// How a forwarder is made: parameters of every number and type arrive unchanged, and so does the result.

#include "probe/forward.h"

#include <gtest/gtest.h>

#include <tuple>

#define ARG_TYPES                                                                                            \
  int8_t, const char*, double, uint64_t, int16_t, float, void*, uint32_t, int64_t, uint8_t, double, int32_t, \
      const void*, uint16_t, uint64_t

namespace {

using ALL_ARGS = std::tuple<ARG_TYPES>;

void* pTarget;  // What the library has: one entry point at a time.
ALL_ARGS received;

struct TEST_ENTRY {
  static constexpr int32_t MISSING = 0;
  static void* Find() { return pTarget; }
};

template <typename... ARGS>
double Take(ARGS... args) {
  received = ALL_ARGS(args...);
  return 0.1;
}

}  // namespace

FORWARD_TO(TEST_ENTRY, double, ForwardWide, ARG_TYPES)
FORWARD_TO(TEST_ENTRY, void, ForwardNothing)

namespace {

TEST(Forward, PassesEverythingUnchangedOnceThereIsAnAddress) {
  char text[] = "text";
  const ALL_ARGS args(-128, text, -0.0, UINT64_MAX, -32768, 1e-40f, text, 0xDEADBEEF, INT64_MIN, 255, 1e308, INT32_MIN,
                      nullptr, 65535, 0x123456789ABCDEF0);
  ForwardNothing();
  EXPECT_EQ(std::apply(ForwardWide, args), 0);
  pTarget = reinterpret_cast<void*>(&Take<ARG_TYPES>);
  EXPECT_EQ(std::apply(ForwardWide, args), 0.1);
  pTarget = nullptr;  // Asked for once alone.
  received = {};
  EXPECT_EQ(std::apply(ForwardWide, args), 0.1);
  EXPECT_EQ(received, args);
}

}  // namespace
