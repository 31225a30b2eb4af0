// How a forwarder is made: parameters of every number and type arrive unchanged, and so does the result.

#include "probe/forward.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

// Stands for the library: one entry point at a time.
void* pTarget;

struct TEST_ENTRY {
  static constexpr int32_t MISSING = 0;
  static void* Find() { return pTarget; }
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

namespace {

double TakeWide(int8_t a, const char* b, double c, uint64_t d, int16_t e, float f, void* g, uint32_t h, int64_t i,
                uint8_t j, double k, int32_t l, const void* m, uint16_t n, uint64_t o) {
  received = ALL_ARGS(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o);
  return 0.1;
}

TEST(Forward, PassesArgumentsAndResultUnchanged) {
  char text[] = "text";
  const ALL_ARGS args(-128, text, -0.0, UINT64_MAX, -32768, 1e-40f, text, 0xDEADBEEF, INT64_MIN, 255, 1e308, INT32_MIN,
                      nullptr, 65535, 0x123456789ABCDEF0);
  pTarget = reinterpret_cast<void*>(&TakeWide);
  EXPECT_EQ(std::apply(ForwardWide, args), 0.1);
  EXPECT_EQ(received, args);
}

TEST(Forward, GivesZeroUntilThereIsAnAddress) {
  pTarget = nullptr;
  ForwardNothing();
  EXPECT_EQ(ForwardText(1), nullptr);
  void (*pfCount)() = [] { numCalls++; };
  pTarget = reinterpret_cast<void*>(pfCount);
  ForwardNothing();
  pTarget = nullptr;
  ForwardNothing();
  EXPECT_EQ(numCalls, 2u);
}

}  // namespace
