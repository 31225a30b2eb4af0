// Where storage grows and where it stops; what operations in any order leave behind is the fuzz target's matter.

#include "util/dynbuffer.h"

#include <errno.h>
#include <gtest/gtest.h>

#include "tests/faults.h"
#include "tests/support.h"

namespace {

std::string lastMessage;

int32_t NoteMessage(const char* message) {
  lastMessage = message;
  return 1;
}

std::string ContentOf(const DYNBUFFER& buffer) {
  return std::string(reinterpret_cast<char*>(buffer.pData), buffer.Capacity);
}

TEST(Dynbuffer, GrowsAsItMustAndStopsAtTheMaximum) {
  static constexpr int32_t REFUSED = DYNBUFFER_ERROR_OUT_OF_BOUNDS;
  static constexpr struct {
    uint32_t Offset;
    uint32_t NumBytes;
    int32_t Result;
    uint32_t Capacity;
    int32_t Length;
  } aCase[] = {{1, 3, 0, 4, 4},          {4, 1, 0, 8, 5},          {18, 1, 0, 19, 19},
               {0, 2, 0, 19, 19},        {19, 1, 0, 20, 20},       {UINT32_MAX, 0, 0, 20, 20},
               {20, 1, REFUSED, 20, 20}, {0, 21, REFUSED, 20, 20}, {UINT32_MAX, 2, REFUSED, 20, 20}};
  DYNBUFFER buffer;
  ASSERT_EQ(DYNBUFFER_Init(&buffer, nullptr, 20, 4, 0), 0);
  std::string content(20, '\0');
  for (const auto& test : aCase) {
    EXPECT_EQ(DYNBUFFER_Fill(&buffer, test.Offset, 'f', test.NumBytes), test.Result);
    EXPECT_EQ(DYNBUFFER_GetLen(&buffer), test.Length);
    if (test.Result == 0 && test.NumBytes != 0) {
      content.replace(test.Offset, test.NumBytes, test.NumBytes, 'f');
    }
    EXPECT_EQ(ContentOf(buffer), content.substr(0, test.Capacity)) << test.Offset;
  }
  EXPECT_EQ(DYNBUFFER_Write(&buffer, UINT32_MAX, "", 0), 0);
  EXPECT_EQ(DYNBUFFER_Add(&buffer, "x", 1), REFUSED);
  EXPECT_EQ(DYNBUFFER_GetLen(&buffer), REFUSED);
  DYNBUFFER_Clear(&buffer);
  EXPECT_TRUE(DYNBUFFER_GetLen(&buffer) == 0 && buffer.LastIndex == 0 && buffer.HasData == 0);
  EXPECT_EQ(DYNBUFFER_Add(&buffer, "xyz", 3), 0);
  EXPECT_EQ(DYNBUFFER_Write(&buffer, 1, "Y", 1), 0);
  EXPECT_EQ(ContentOf(buffer), "xYz" + content.substr(3));
  DYNBUFFER_DeInit(&buffer);
}

TEST(Dynbuffer, StoresNumbersAndKeepsThemWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  DYNBUFFER buffer;
  memset(&buffer, 0xA5, sizeof(buffer));
  EXPECT_EQ(DYNBUFFER_Init(&buffer, NoteMessage, UINT32_MAX, DYNBUFFER_MAX_BYTES + 1, 0), DYNBUFFER_ERROR_NO_MEMORY);
  {
    SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM});
    ASSERT_EQ(DYNBUFFER_Init(&buffer, NoteMessage, UINT32_MAX, 30, 0), DYNBUFFER_ERROR_NO_MEMORY);
  }
  EXPECT_EQ(DYNBUFFER_AddU8(&buffer, 1), DYNBUFFER_ERROR_OUT_OF_BOUNDS);
  DYNBUFFER_DeInit(&buffer);
  EXPECT_EQ(buffer.pfOnError, NoteMessage);

  ASSERT_EQ(DYNBUFFER_Init(&buffer, NoteMessage, UINT32_MAX, 30, 0), 0);
  EXPECT_EQ(DYNBUFFER_AddU8(&buffer, 0x01), 0);
  EXPECT_EQ(DYNBUFFER_AddU16(&buffer, 0x1312), 1);
  EXPECT_EQ(DYNBUFFER_AddU32(&buffer, 0x27262524), 3);
  EXPECT_EQ(DYNBUFFER_AddU64(&buffer, 0x3F3E3D3C3B3A3938), 7);
  EXPECT_EQ(DYNBUFFER_WriteU64(&buffer, 22, 0x7F7E7D7C7B7A7978), 0);
  EXPECT_EQ(DYNBUFFER_WriteU32(&buffer, 18, 0x67666564), 0);
  EXPECT_EQ(DYNBUFFER_WriteU16(&buffer, 16, 0x5352), 0);
  {
    SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM, UINT32_MAX});
    EXPECT_EQ(DYNBUFFER_Reserve(&buffer, 30), DYNBUFFER_ERROR_NO_MEMORY);
    EXPECT_EQ(lastMessage, "Cannot allocate 60 bytes of memory for dynamic buffer");
    for (uint32_t numBytes : {1u, UINT32_MAX}) {  // What wraps in 32 bits is told as the highest index.
      EXPECT_EQ(DYNBUFFER_Fill(&buffer, DYNBUFFER_MAX_BYTES, 0, numBytes), DYNBUFFER_ERROR_OUT_OF_BOUNDS);
      EXPECT_EQ(lastMessage, std::string("Debugger accesses memory in dynamic buffer at offset 0x") +
                                 (numBytes == 1 ? "7FFFFFFF" : "FFFFFFFF") + " which is out of array bounds.");
    }
    EXPECT_EQ(DYNBUFFER_GetLen(&buffer), 30);  // Neither is noted.
    EXPECT_EQ(DYNBUFFER_AddU16(&buffer, 0), DYNBUFFER_ERROR_NO_MEMORY);
    EXPECT_EQ(DYNBUFFER_WriteU8(&buffer, 15, 0x40), 0);  // Fits, and leaves the error.
  }
  EXPECT_EQ(DYNBUFFER_GetLen(&buffer), DYNBUFFER_ERROR_NO_MEMORY);
  EXPECT_EQ(ContentOf(buffer), "\x01\x12\x13$%&'89:;<=>?@RSdefgxyz{|}~\x7F");
  DYNBUFFER_DeInit(&buffer);
  EXPECT_TRUE(buffer.pData == nullptr && buffer.Capacity == 0 && buffer.pfOnError == nullptr);
}

}  // namespace
