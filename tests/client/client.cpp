// A client in C++: its own containers and exceptions beside the layer's records.

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "util/crc.h"
#include "util/fmt.h"
#include "util/otalloc.h"
#include "util/scan.h"

namespace {

uint32_t Parse(const std::string& text) {
  const char* cursor = text.c_str();
  uint32_t value = 0;
  if (UTIL_ParseU32(&cursor, &value) < 0) {
    throw std::invalid_argument(text);
  }
  return value;
}

bool Refuses(const std::string& text) {
  try {
    Parse(text);
  } catch (const std::invalid_argument&) {
    return true;
  }
  return false;
}

}  // namespace

int main() {
  const std::unique_ptr<OTALLOC, decltype(&OTALLOC_Destroy)> arena(OTALLOC_Create(), OTALLOC_Destroy);
  auto* pText = static_cast<char*>(OTALLOC_Alloc(arena.get(), 32));
  const std::string check = "123456789";
  FMT_snprintf(pText, 32, "%08x", CRC_Calc32(check.data(), static_cast<uint32_t>(check.size()), 0));
  std::puts(pText);
  return std::string(pText) == "2dfd2d88" && Parse("0x10") == 16 && Refuses("none") ? 0 : 1;
}
