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

class Otalloc : public testing::Test {
 protected:
  struct BLOCK {
    uint32_t Used;
    uint32_t Capacity;
  };

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
    for (const BLOCK& block : Model) {
      ASSERT_TRUE(pBlock != nullptr && pBlock->Used == block.Used && pBlock->Capacity == block.Capacity) << size;
      ASSERT_TRUE(&block != &Model[index] || p == pBlock->pData + offset) << size;
      pBlock = pBlock->pNext;
    }
    ASSERT_EQ(pBlock, nullptr);
    ASSERT_TRUE(reinterpret_cast<uintptr_t>(p) % 8 == 0 &&
                std::all_of(p, p + rounded, [](uint8_t byte) { return byte == 0; }))
        << size;
    memset(p, 0xFF, rounded);
  }

  OTALLOC* pArena = OTALLOC_Create();
  std::vector<BLOCK> Model = {{0, BLOCK_BYTES}};
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
}

TEST_F(Otalloc, GivesLargeRequestsABlockOfTheirOwn) {
  for (uint32_t size : {BLOCK_BYTES, 0u, BLOCK_BYTES - 7, 3u, 3u, BLOCK_BYTES - 8, BLOCK_BYTES - 1, BLOCK_BYTES + 1,
                        16u, 5'000'000u, 0u, BLOCK_BYTES - 40, 40u, 1u}) {
    ASSERT_NO_FATAL_FAILURE(Request(size));
  }
  for (uint32_t size : {0xFFFFFFF8, 0xFFFFFFF9, UINT32_MAX}) {
    EXPECT_EQ(OTALLOC_Alloc(pArena, size), nullptr);
    ASSERT_NO_FATAL_FAILURE(Request(1));
  }
}

TEST_F(Otalloc, TellsOfRefusedBlocksAndClearsWhatItFrees) {
  FAULTS_REQUIRE();
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [](const SCOPED_FAULT& fault) {
    OTALLOC* pOther = OTALLOC_Create();
    ASSERT_EQ(pOther == nullptr, fault.WasHit());
    OTALLOC_Destroy(pOther);  // Null is ignored.
  });
  for (uint32_t size : {BLOCK_BYTES - 3, BLOCK_BYTES}) {
    Request(1);
    SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM});
    EXPECT_EQ(OTALLOC_Alloc(pArena, size), nullptr);
    Request(size);
  }
  void* p = SYS_Realloc(SYS_Alloc(10), 0);
  ASSERT_NE(p, nullptr);
  {
    SCOPED_FAULT fault({FAULT_CALL::REALLOC, 1, ENOMEM});
    EXPECT_EQ(SYS_Realloc(p, 100), nullptr);
  }
  SYS_FreeAndClear(&p);
  EXPECT_EQ(p, nullptr);
  SYS_FreeAndClear(nullptr);
}

}  // namespace
