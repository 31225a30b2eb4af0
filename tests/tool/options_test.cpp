// Pairs without memory. What options mean shows in the tests of the tool as a whole.

#include "app/options.h"

#include <errno.h>
#include <gtest/gtest.h>

#include "tests/faults.h"

namespace {

TEST(Options, PairsFailWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  OTALLOC* const pArena = OTALLOC_Create();
  CMDLINE_Init(pArena);
  // Without room in the first block, node, key and value need a block each.
  pArena->Used = pArena->Capacity;
  const std::string text(OTALLOC_BLOCK_SIZE, 'x');
  std::string pair = text + "=" + text;
  char acName[] = "-setconfigval";
  char* aArgs[] = {nullptr, acName, pair.data(), nullptr};
  uint32_t numFailures = 0;
  SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [&](const SCOPED_FAULT& fault) {
    testing::internal::CaptureStdout();
    const int32_t result = CMDLINE_Parse(3, aArgs);
    const std::string message = testing::internal::GetCapturedStdout();
    const CONFIG_VAL_NODE* pFirst = CMDLINE_GetSettings()->pConfigVals;
    if (fault.WasHit()) {
      numFailures++;
      EXPECT_EQ(message, "-SetConfigVal: Failed to allocate memory\n");
      EXPECT_EQ(result, -1);
      EXPECT_EQ(pFirst, nullptr);
    } else {
      EXPECT_EQ(result, 0);
      EXPECT_TRUE(pFirst != nullptr && pFirst->pKey == text && pFirst->pValue == text && pFirst->pNext == nullptr);
    }
    for (OTALLOC* pBlock = pArena; pBlock != nullptr; pBlock = pBlock->pNext) {
      pBlock->Used = pBlock->Capacity;
    }
  });
  EXPECT_EQ(numFailures, 3u);
  CMDLINE_Init(pArena);
  EXPECT_EQ(CMDLINE_GetSettings()->pConfigVals, nullptr);
  OTALLOC_Destroy(pArena);
}

}  // namespace
