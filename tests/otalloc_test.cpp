// The arena against a model that searches the whole chain for each request, and the heap beneath it.

#include "util/otalloc.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <vector>

#include "sys/sys.h"
#include "tests/faults.h"
#include "tests/support.h"

namespace {

constexpr uint32_t BLOCK_BYTES = OTALLOC_BLOCK_SIZE;

struct MODEL_BLOCK {
  uint32_t Used;
  uint32_t Capacity;

  bool operator==(const MODEL_BLOCK&) const = default;
};

using MODEL = std::vector<MODEL_BLOCK>;

std::ostream& operator<<(std::ostream& out, const MODEL_BLOCK& block) {
  return out << block.Used << '/' << block.Capacity;
}

MODEL ChainOf(const OTALLOC* pArena) {
  MODEL chain;
  for (; pArena != nullptr; pArena = pArena->pNext) {
    chain.push_back({pArena->Used, pArena->Capacity});
  }
  return chain;
}

bool IsZero(const uint8_t* p, uint32_t numBytes) {
  return numBytes == 0 || (p[0] == 0 && memcmp(p, p + 1, numBytes - 1) == 0);
}

class Otalloc : public testing::Test {
 protected:
  ~Otalloc() override { OTALLOC_Destroy(pArena); }

  // Makes one request of the arena and of the model and compares place, content and chain.
  void Request(uint32_t size) {
    const uint32_t rounded = (size + 7) / 8 * 8;
    size_t index = 0;
    while (index < Model.size() && (size >= BLOCK_BYTES || Model[index].Capacity - Model[index].Used < rounded)) {
      index++;
    }
    if (index == Model.size()) {
      Model.push_back({0, std::max(rounded, BLOCK_BYTES)});
    }
    const uint32_t offset = Model[index].Used;
    Model[index].Used += rounded;

    auto* p = static_cast<uint8_t*>(OTALLOC_Alloc(pArena, size));
    const OTALLOC* pBlock = pArena;
    for (; index > 0 && pBlock != nullptr; index--) {
      pBlock = pBlock->pNext;
    }
    ASSERT_TRUE(pBlock != nullptr && p == pBlock->pData + offset) << size;
    ASSERT_EQ(reinterpret_cast<uintptr_t>(p) % 8, 0u);
    ASSERT_EQ(ChainOf(pArena), Model) << size;
    ASSERT_TRUE(IsZero(p, rounded)) << size;
    memset(p, 0xFF, rounded);
  }

  OTALLOC* pArena = OTALLOC_Create();
  MODEL Model = {{0, BLOCK_BYTES}};
};

// Requests of all sizes leave gaps of all sizes in a long chain, for later ones to fit or not.
TEST_F(Otalloc, FindsTheFirstGapInALongChain) {
  RANDOM random(1);
  for (int round = 0; round < 15000; round++) {
    ASSERT_NO_FATAL_FAILURE(Request(random.Below(random.OneIn(8) ? 5000 : 70)));
  }
  for (int round = 0; round < 60; round++) {  // About a fifth of a block: the fifth one fits or just does not.
    ASSERT_NO_FATAL_FAILURE(Request(0xC0000 + random.Below(0x1A000)));
  }
  for (int round = 0; round < 3000; round++) {
    const uint32_t size = random.Next32() >> (11 + random.Below(20));
    ASSERT_NO_FATAL_FAILURE(Request(Model.size() < 30 ? size : size % 2000));
  }
  EXPECT_GE(Model.size(), 30u);
}

TEST_F(Otalloc, GivesLargeRequestsABlockOfTheirOwn) {
  // The second one fits the empty first block exactly.
  for (uint32_t size : {0u, BLOCK_BYTES - 7, 3u, 0u, 3u, BLOCK_BYTES - 8, BLOCK_BYTES - 1, BLOCK_BYTES, BLOCK_BYTES + 1,
                        16u, 5'000'000u, 16u, 0u, BLOCK_BYTES - 40, 40u, 1u}) {
    ASSERT_NO_FATAL_FAILURE(Request(size));
  }
  EXPECT_EQ(OTALLOC_Alloc(pArena, 0xFFFFFFF9), nullptr);
  EXPECT_EQ(OTALLOC_Alloc(pArena, UINT32_MAX), nullptr);
  EXPECT_EQ(ChainOf(pArena), Model);
}

TEST_F(Otalloc, StaysAsItWasWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  Request(BLOCK_BYTES - 100);
  for (uint32_t size : {200u, BLOCK_BYTES, 3 * BLOCK_BYTES}) {
    {
      SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM, UINT32_MAX});
      EXPECT_EQ(OTALLOC_Alloc(pArena, size), nullptr);
      EXPECT_TRUE(fault.WasHit());
      EXPECT_EQ(ChainOf(pArena), Model);
      Request(8);  // Still fits.
    }
    Request(size);
  }
}

TEST_F(Otalloc, IsCreatedOrNot) {
  FAULTS_REQUIRE();
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [](const SCOPED_FAULT& fault) {
    OTALLOC* pOther = OTALLOC_Create();
    ASSERT_EQ(pOther == nullptr, fault.WasHit());
    OTALLOC_Destroy(pOther);  // Null is ignored.
  });
}

TEST(Memory, TellsOfRefusedBlocksAndClearsWhatItFrees) {
  FAULTS_REQUIRE();
  void* p = SYS_Alloc(10);
  ASSERT_NE(p, nullptr);
  memcpy(p, "012345678", 10);
  {
    SCOPED_FAULT alloc({FAULT_CALL::MALLOC, 1, ENOMEM});
    SCOPED_FAULT realloc({FAULT_CALL::REALLOC, 1, ENOMEM});
    EXPECT_EQ(SYS_Alloc(10), nullptr);
    EXPECT_EQ(SYS_Realloc(p, 100), nullptr);
  }
  p = SYS_Realloc(p, 20000);
  EXPECT_STREQ(static_cast<char*>(p), "012345678");
  SYS_FreeAndClear(&p);
  EXPECT_EQ(p, nullptr);
  SYS_FreeAndClear(&p);
  SYS_FreeAndClear(nullptr);
  SYS_Free(nullptr);
}

}  // namespace
