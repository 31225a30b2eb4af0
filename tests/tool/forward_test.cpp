// How a forwarder is made: every type and number of parameters arrives unchanged, and the target is looked up once.

#include "probe/forward.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

// Stands for the library: one entry point at a time.
void* pTarget;
uint32_t numLookups;

struct TEST_ENTRY {
  static constexpr int32_t MISSING = 0;
  static void* Find() {
    numLookups++;
    return pTarget;
  }
};

template <int>
struct UNNAMED_ENTRY : TEST_ENTRY {
  static constexpr int32_t MISSING = -262;
};

using ALL_ARGS = std::tuple<int8_t, const char*, double, uint64_t, int16_t, float, void*, uint32_t, int64_t, uint8_t,
                            double, int32_t, const void*, uint16_t, uint64_t>;

ALL_ARGS received;
uint32_t numCalls;

}  // namespace

FORWARD_TO(TEST_ENTRY, double, ForwardWide, int8_t, const char*, double, uint64_t, int16_t, float, void*, uint32_t,
           int64_t, uint8_t, double, int32_t, const void*, uint16_t, uint64_t)
FORWARD_TO(TEST_ENTRY, void, ForwardNothing)
FORWARD_TO(TEST_ENTRY, const char*, ForwardText, uint32_t)
FORWARD_TO(UNNAMED_ENTRY<1>, int32_t, ForwardUnnamed, uint32_t)

namespace {

double TakeWide(int8_t a, const char* b, double c, uint64_t d, int16_t e, float f, void* g, uint32_t h, int64_t i,
                uint8_t j, double k, int32_t l, const void* m, uint16_t n, uint64_t o) {
  received = ALL_ARGS(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o);
  return 0.1;
}

void TakeNothing() {
  numCalls++;
}

int32_t AddOne(uint32_t value) {
  return static_cast<int32_t>(value) + 1;
}

TEST(Forward, PassesArgumentsAndResultUnchanged) {
  char text[] = "text";
  const ALL_ARGS args(-128, text, -0.0, UINT64_MAX, -32768, 1e-40f, text, 0xDEADBEEF, INT64_MIN, 255, 1e308, INT32_MIN,
                      nullptr, 65535, 0x123456789ABCDEF0);
  pTarget = reinterpret_cast<void*>(&TakeWide);
  EXPECT_EQ(std::apply(ForwardWide, args), 0.1);
  EXPECT_EQ(received, args);
}

TEST(Forward, LooksUpOnceAndAgainWhileThereIsNoAddress) {
  numLookups = 0;
  numCalls = 0;
  pTarget = nullptr;
  ForwardNothing();
  EXPECT_EQ(ForwardText(1), nullptr);
  EXPECT_EQ(ForwardUnnamed(1), -262);
  EXPECT_EQ(ForwardUnnamed(1), -262);
  EXPECT_EQ(numLookups, 4u);
  pTarget = reinterpret_cast<void*>(&AddOne);
  EXPECT_EQ(ForwardUnnamed(1), 2);
  pTarget = reinterpret_cast<void*>(&TakeNothing);
  ForwardNothing();
  pTarget = nullptr;
  ForwardNothing();
  EXPECT_EQ(numCalls, 2u);
  EXPECT_EQ(ForwardUnnamed(41), 42);
  EXPECT_EQ(numLookups, 6u);
}

}  // namespace
