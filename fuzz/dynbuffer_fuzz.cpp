// Operations with offsets of the whole range. The oracle is a byte array that never grows: its length is the
// maximum, and whether a write is accepted follows from where it ends.

#include "fuzz/input.h"
#include "util/dynbuffer.h"

namespace {

constexpr uint8_t FILL_BYTE = 0x5A;

uint32_t numMessages;

int32_t CountMessage(const char* message) {
  numMessages += strlen(message) != 0;
  return 0;
}

struct MODEL {
  std::vector<uint8_t> Bytes;  // As far as the buffer may grow.
  uint64_t Length = 0;
  int32_t Error = 0;
  uint32_t NumMessages = 0;

  int32_t Write(uint64_t offset, const std::vector<uint8_t>& bytes, bool isNoted = true) {
    if (bytes.empty()) {
      return 0;
    }
    if (offset + bytes.size() > Bytes.size()) {
      NumMessages++;
      Error = isNoted ? DYNBUFFER_ERROR_OUT_OF_BOUNDS : Error;
      return DYNBUFFER_ERROR_OUT_OF_BOUNDS;
    }
    std::copy(bytes.begin(), bytes.end(), Bytes.begin() + static_cast<int64_t>(offset));
    Length = std::max<uint64_t>(Length, offset + bytes.size());
    return 0;
  }

  int32_t Reserve(uint32_t index, uint32_t capacity) {
    const bool isInBounds = index < capacity || index < Bytes.size();
    NumMessages += !isInBounds;
    return isInBounds ? 0 : DYNBUFFER_ERROR_OUT_OF_BOUNDS;
  }

  int32_t Add(const std::vector<uint8_t>& bytes) {
    const auto pos = static_cast<int32_t>(Length);
    const int32_t result = Write(Length, bytes);
    return result < 0 ? result : pos;
  }
};

std::vector<uint8_t> LittleEndian(uint64_t value, size_t numBytes) {
  std::vector<uint8_t> bytes;
  for (; numBytes > 0; numBytes--, value >>= 8) {
    bytes.push_back(static_cast<uint8_t>(value));
  }
  return bytes;
}

// Small numbers mostly, and those around the ends of the range.
uint32_t TakeOffset(FUZZ_INPUT& input, const MODEL& model) {
  const auto value = input.Take<uint16_t>();
  switch (input.Take<uint8_t>() % 4) {
    case 0:
      return value;
    case 1:
      return static_cast<uint32_t>(model.Length) - 8 + value % 16;
    case 2:
      return static_cast<uint32_t>(model.Bytes.size()) - 8 + value % 16;
    default:
      return UINT32_MAX - value;
  }
}

int32_t AddNumber(DYNBUFFER* pBuffer, uint64_t value, uint32_t numBytes) {
  switch (numBytes) {
    case 1:
      return DYNBUFFER_AddU8(pBuffer, static_cast<uint8_t>(value));
    case 2:
      return DYNBUFFER_AddU16(pBuffer, static_cast<uint16_t>(value));
    case 4:
      return DYNBUFFER_AddU32(pBuffer, static_cast<uint32_t>(value));
    default:
      return DYNBUFFER_AddU64(pBuffer, value);
  }
}

int32_t WriteNumber(DYNBUFFER* pBuffer, uint32_t offset, uint64_t value, uint32_t numBytes) {
  switch (numBytes) {
    case 1:
      return DYNBUFFER_WriteU8(pBuffer, offset, static_cast<uint8_t>(value));
    case 2:
      return DYNBUFFER_WriteU16(pBuffer, offset, static_cast<uint16_t>(value));
    case 4:
      return DYNBUFFER_WriteU32(pBuffer, offset, static_cast<uint32_t>(value));
    default:
      return DYNBUFFER_WriteU64(pBuffer, offset, value);
  }
}

void Step(DYNBUFFER* pBuffer, MODEL& model, FUZZ_INPUT& input) {
  const auto operation = input.Take<uint8_t>();
  const uint32_t offset = TakeOffset(input, model);
  const std::vector<uint8_t> bytes(input.Take<uint16_t>() % 600, input.Take<uint8_t>());
  const auto count = static_cast<uint32_t>(bytes.size());
  const auto value = input.Take<uint64_t>();
  const uint32_t width = 1u << (operation / 8 % 4);
  switch (operation % 8) {
    case 0:
      FUZZ_EXPECT(DYNBUFFER_Write(pBuffer, offset, bytes.data(), count) == model.Write(offset, bytes));
      break;
    case 1:
      FUZZ_EXPECT(DYNBUFFER_Fill(pBuffer, offset, count != 0 ? bytes[0] : 0, count) ==
                  model.Write(offset, bytes, false));
      break;
    case 2:
      FUZZ_EXPECT(DYNBUFFER_AddGetPos(pBuffer, bytes.data(), count) == model.Add(bytes));
      break;
    case 3:
      FUZZ_EXPECT(DYNBUFFER_Add(pBuffer, bytes.data(), count) == std::min(model.Add(bytes), 0));
      break;
    case 4:
      FUZZ_EXPECT(AddNumber(pBuffer, value, width) == model.Add(LittleEndian(value, width)));
      break;
    case 5:
      FUZZ_EXPECT(WriteNumber(pBuffer, offset, value, width) == model.Write(offset, LittleEndian(value, width)));
      break;
    case 6:
      FUZZ_EXPECT(DYNBUFFER_Reserve(pBuffer, offset) == model.Reserve(offset, pBuffer->Capacity));
      break;
    default:
      DYNBUFFER_Clear(pBuffer);
      // What was written stays in the storage, for gaps to show.
      model.Length = 0;
      model.Error = 0;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t numBytes) {
  FUZZ_INPUT input(pData, numBytes);
  const uint32_t maximum = input.Take<uint16_t>();
  const uint32_t initialSize = std::min<uint32_t>(input.Take<uint16_t>(), maximum);
  MODEL model = {std::vector<uint8_t>(maximum, FILL_BYTE)};
  DYNBUFFER buffer;
  numMessages = 0;
  FUZZ_EXPECT(DYNBUFFER_Init(&buffer, CountMessage, maximum, initialSize, FILL_BYTE) == 0);
  while (!input.IsEmpty()) {
    Step(&buffer, model, input);
    FUZZ_EXPECT(DYNBUFFER_GetLen(&buffer) == (model.Error < 0 ? model.Error : static_cast<int32_t>(model.Length)));
    FUZZ_EXPECT(buffer.Capacity <= maximum || buffer.Capacity == initialSize);
    FUZZ_EXPECT(numMessages == model.NumMessages);
    FUZZ_EXPECT(buffer.Capacity == 0 || memcmp(buffer.pData, model.Bytes.data(), buffer.Capacity) == 0);
  }
  DYNBUFFER_DeInit(&buffer);
  return 0;
}
