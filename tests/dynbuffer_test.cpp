// The buffer against a model that is told where storage must grow, and the limits of its arithmetic.

#include "util/dynbuffer.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/faults.h"
#include "tests/support.h"

namespace {

constexpr int UNKNOWN = -1;

std::string lastMessage;

int32_t NoteMessage(const char* message) {
  lastMessage = message;
  return 1;
}

std::string OutOfBoundsText(uint64_t index) {
  const std::string digits = DigitsOf(index, 16);
  return "Debugger accesses memory in dynamic buffer at offset 0x" + std::string(8 - digits.size(), '0') + digits +
         " which is out of array bounds.";
}

struct MODEL {
  uint64_t Maximum;
  int FillByte;
  std::vector<int> Storage;  // UNKNOWN where nothing was ever stored.
  uint64_t Length = 0;
  int32_t Error = 0;
  std::string Message = {};  // The last one.

  int32_t Reserve(uint64_t index) {
    if (index < Storage.size()) {
      return 0;
    }
    if (index >= Maximum) {
      Message = OutOfBoundsText(std::min<uint64_t>(index, UINT32_MAX));
      return DYNBUFFER_ERROR_OUT_OF_BOUNDS;
    }
    Storage.resize(std::min(std::max(index + 1, 2 * uint64_t{Storage.size()}), Maximum), FillByte);
    return 0;
  }

  int32_t Write(uint64_t offset, const std::string& bytes, bool isNoted = true) {
    if (bytes.empty()) {
      return 0;
    }
    const int32_t result = Reserve(offset + bytes.size() - 1);
    if (result < 0) {
      Error = isNoted ? result : Error;
      return result;
    }
    std::transform(bytes.begin(), bytes.end(), Storage.begin() + static_cast<ptrdiff_t>(offset),
                   [](char c) { return static_cast<uint8_t>(c); });
    Length = std::max<uint64_t>(Length, offset + bytes.size());
    return 0;
  }

  int32_t Add(const std::string& bytes) {
    const auto pos = static_cast<int32_t>(Length);
    const int32_t result = Write(Length, bytes);
    return result < 0 ? result : pos;
  }
};

std::string LittleEndian(uint64_t value, size_t numBytes) {
  std::string bytes;
  for (; numBytes > 0; numBytes--, value >>= 8) {
    bytes += static_cast<char>(value);
  }
  return bytes;
}

int32_t AddNumber(DYNBUFFER* pBuffer, uint64_t value, size_t width) {
  return width == 1   ? DYNBUFFER_AddU8(pBuffer, static_cast<uint8_t>(value))
         : width == 2 ? DYNBUFFER_AddU16(pBuffer, static_cast<uint16_t>(value))
         : width == 4 ? DYNBUFFER_AddU32(pBuffer, static_cast<uint32_t>(value))
                      : DYNBUFFER_AddU64(pBuffer, value);
}

int32_t WriteNumber(DYNBUFFER* pBuffer, uint32_t offset, uint64_t value, size_t width) {
  return width == 1   ? DYNBUFFER_WriteU8(pBuffer, offset, static_cast<uint8_t>(value))
         : width == 2 ? DYNBUFFER_WriteU16(pBuffer, offset, static_cast<uint16_t>(value))
         : width == 4 ? DYNBUFFER_WriteU32(pBuffer, offset, static_cast<uint32_t>(value))
                      : DYNBUFFER_WriteU64(pBuffer, offset, value);
}

void ExpectEqual(const DYNBUFFER& buffer, const MODEL& model) {
  ASSERT_EQ(buffer.Capacity, model.Storage.size());
  ASSERT_EQ(buffer.Error, model.Error);
  ASSERT_EQ(lastMessage, model.Message);
  ASSERT_EQ(buffer.HasData, model.Length != 0);
  ASSERT_EQ(buffer.LastIndex, model.Length == 0 ? 0 : model.Length - 1);
  ASSERT_EQ(DYNBUFFER_GetLen(&buffer), model.Error < 0 ? model.Error : static_cast<int32_t>(model.Length));
  for (size_t i = 0; i < model.Storage.size(); i++) {
    ASSERT_TRUE(model.Storage[i] == UNKNOWN || buffer.pData[i] == model.Storage[i]) << "byte " << i;
  }
}

// One operation on both. Offsets and counts crowd at the ends of content, storage and range.
void Step(DYNBUFFER* pBuffer, MODEL& model, RANDOM& random) {
  const std::string bytes = random.Bytes(random.OneIn(5) ? 0 : random.Below(random.OneIn(20) ? 3000 : 40));
  const auto count = static_cast<uint32_t>(bytes.size());
  const uint64_t near[] = {model.Length, model.Storage.size(), model.Maximum, 0};
  const uint32_t offset = random.OneIn(20) ? UINT32_MAX - random.Below(50)
                                           : static_cast<uint32_t>(near[random.Below(4)] + random.Below(20)) -
                                                 std::min(random.Below(20), static_cast<uint32_t>(model.Length));
  const uint64_t value = random.Value();
  const size_t width = size_t{1} << random.Below(4);
  switch (random.Below(8)) {
    case 0:
      ASSERT_EQ(DYNBUFFER_Write(pBuffer, offset, bytes.data(), count), model.Write(offset, bytes));
      break;
    case 1:
      ASSERT_EQ(DYNBUFFER_Fill(pBuffer, offset, 0x7E, count), model.Write(offset, std::string(count, 0x7E), false));
      break;
    case 2:
      ASSERT_EQ(DYNBUFFER_Add(pBuffer, bytes.data(), count), std::min(model.Add(bytes), 0));
      break;
    case 3:
      ASSERT_EQ(DYNBUFFER_AddGetPos(pBuffer, bytes.data(), count), model.Add(bytes));
      break;
    case 4:
      ASSERT_EQ(AddNumber(pBuffer, value, width), model.Add(LittleEndian(value, width)));
      break;
    case 5:
      ASSERT_EQ(WriteNumber(pBuffer, offset, value, width), model.Write(offset, LittleEndian(value, width)));
      break;
    case 6:
      ASSERT_EQ(DYNBUFFER_Reserve(pBuffer, offset), model.Reserve(offset));
      break;
    default:
      if (random.OneIn(4)) {
        DYNBUFFER_Clear(pBuffer);
        model.Length = 0;
        model.Error = 0;
      }
  }
}

TEST(Dynbuffer, BehavesLikeTheModel) {
  RANDOM random(1);
  constexpr uint32_t MAXIMA[] = {0, 1, 5, 64, 300, 5000, 20000};
  constexpr uint32_t INITIAL_SIZES[] = {0, 1, 4, 16, 100};
  for (int round = 0; round < 400; round++) {
    const uint32_t maximum = MAXIMA[random.Below(std::size(MAXIMA))];
    const uint32_t initialSize = INITIAL_SIZES[random.Below(std::size(INITIAL_SIZES))];
    const int fillByte = random.OneIn(2) ? UNKNOWN : static_cast<int>(random.Below(256));
    DYNBUFFER buffer;
    lastMessage = "";
    ASSERT_EQ(DYNBUFFER_Init(&buffer, NoteMessage, maximum, initialSize, fillByte), 0);
    MODEL model{maximum, fillByte, std::vector<int>(initialSize, fillByte)};
    for (int step = 0; step < 60; step++) {
      ASSERT_NO_FATAL_FAILURE(Step(&buffer, model, random)) << "round " << round << " step " << step;
      ASSERT_NO_FATAL_FAILURE(ExpectEqual(buffer, model)) << "round " << round << " step " << step;
    }
    EXPECT_EQ(DYNBUFFER_DeInit(&buffer), 0);
    EXPECT_TRUE(buffer.pData == nullptr && buffer.Capacity == 0 && buffer.pfOnError == nullptr);
    EXPECT_EQ(DYNBUFFER_DeInit(&buffer), 0);
  }
}

TEST(Dynbuffer, StopsAtTheLastIndexThatResultsCanTell) {
  DYNBUFFER buffer;
  ASSERT_EQ(DYNBUFFER_Init(&buffer, NoteMessage, UINT32_MAX, 16, 0), 0);
  DYNBUFFER_AddU8(&buffer, 'x');
  struct {
    uint32_t Offset;
    uint32_t NumBytes;
    uint64_t LastIndex;
  } constexpr CASES[] = {
      {DYNBUFFER_MAX_BYTES, 1, DYNBUFFER_MAX_BYTES},
      {DYNBUFFER_MAX_BYTES - 1, 2, DYNBUFFER_MAX_BYTES},
      {0, UINT32_MAX, UINT32_MAX - 1},
      {2, UINT32_MAX, UINT32_MAX},  // What wraps in 32 bits is told as the highest index.
      {UINT32_MAX, UINT32_MAX, UINT32_MAX},
      {UINT32_MAX, 2, UINT32_MAX},
  };
  for (const auto& testCase : CASES) {
    EXPECT_EQ(DYNBUFFER_Fill(&buffer, testCase.Offset, 0, testCase.NumBytes), DYNBUFFER_ERROR_OUT_OF_BOUNDS);
    EXPECT_EQ(lastMessage, OutOfBoundsText(testCase.LastIndex));
    EXPECT_EQ(DYNBUFFER_GetLen(&buffer), 1);
  }
  EXPECT_EQ(DYNBUFFER_WriteU64(&buffer, UINT32_MAX - 3, 0), DYNBUFFER_ERROR_OUT_OF_BOUNDS);
  EXPECT_EQ(DYNBUFFER_GetLen(&buffer), DYNBUFFER_ERROR_OUT_OF_BOUNDS);
  DYNBUFFER_Clear(&buffer);
  EXPECT_EQ(DYNBUFFER_GetLen(&buffer), 0);
  DYNBUFFER_DeInit(&buffer);
  EXPECT_EQ(DYNBUFFER_Init(&buffer, NoteMessage, UINT32_MAX, DYNBUFFER_MAX_BYTES + 1, 0), DYNBUFFER_ERROR_NO_MEMORY);
}

TEST(Dynbuffer, KeepsStorageAndContentWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  DYNBUFFER buffer;
  ASSERT_EQ(DYNBUFFER_Init(&buffer, NoteMessage, 1000, 8, 0), 0);
  ASSERT_EQ(DYNBUFFER_AddU64(&buffer, 0x1122334455667788), 0);
  const uint8_t* pData = buffer.pData;
  {
    SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM, UINT32_MAX});
    EXPECT_EQ(DYNBUFFER_Fill(&buffer, 8, 0, 1), DYNBUFFER_ERROR_NO_MEMORY);
    EXPECT_EQ(lastMessage, "Cannot allocate 16 bytes of memory for dynamic buffer");
    EXPECT_EQ(DYNBUFFER_Reserve(&buffer, 99), DYNBUFFER_ERROR_NO_MEMORY);
    EXPECT_EQ(lastMessage, "Cannot allocate 100 bytes of memory for dynamic buffer");
    EXPECT_EQ(DYNBUFFER_GetLen(&buffer), 8);  // Neither is noted.
    EXPECT_EQ(DYNBUFFER_AddU16(&buffer, 0), DYNBUFFER_ERROR_NO_MEMORY);
    EXPECT_EQ(DYNBUFFER_WriteU8(&buffer, 7, 0xFF), 0);  // Fits, and leaves the error.
  }
  EXPECT_EQ(DYNBUFFER_GetLen(&buffer), DYNBUFFER_ERROR_NO_MEMORY);
  EXPECT_TRUE(buffer.pData == pData && buffer.Capacity == 8 && buffer.LastIndex == 7);
  EXPECT_EQ(memcmp(pData, "\x88\x77\x66\x55\x44\x33\x22\xFF", 8), 0);
  EXPECT_EQ(DYNBUFFER_AddU8(&buffer, 1), 8);
  DYNBUFFER_DeInit(&buffer);
}

TEST(Dynbuffer, RefusesEverythingAfterAFailedInit) {
  FAULTS_REQUIRE();
  DYNBUFFER buffer;
  memset(&buffer, 0xA5, sizeof(buffer));
  {
    SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM});
    ASSERT_EQ(DYNBUFFER_Init(&buffer, NoteMessage, 1000, 8, 0), DYNBUFFER_ERROR_NO_MEMORY);
  }
  EXPECT_EQ(buffer.pData, nullptr);
  EXPECT_EQ(buffer.pfOnError, NoteMessage);
  EXPECT_EQ(DYNBUFFER_AddU8(&buffer, 1), DYNBUFFER_ERROR_OUT_OF_BOUNDS);
  EXPECT_EQ(DYNBUFFER_Add(&buffer, nullptr, 0), 0);
  EXPECT_EQ(DYNBUFFER_DeInit(&buffer), 0);
  EXPECT_EQ(buffer.pfOnError, NoteMessage);
}

}  // namespace
