// Where scripts are found, and the names that have successors.

#include "probe/script_file.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <array>
#include <optional>

#include "sys/sys.h"
#include "tests/faults.h"
#include "tests/support.h"
#include "util/strings.h"

namespace {

constexpr char RETIRED[] = "PCode_Tamsel_ST_STM32F74_F75.pex";
constexpr char SUCCESSOR[] = "PCode_Tamsel_ST_STM32F72_F73_F74_F75.pex";

std::string ScriptDir() {
  char acDir[SCRIPT_PATH_BYTES];
  SYS_GetExeDir(acDir, sizeof(acDir));
  return std::string(acDir) + "Script/";
}

// Expects that the name is used under another one, and that relative names are found beside the program.
void ExpectInUse(const std::string& name, const std::string& inUse) {
  SCOPED_TRACE(name);
  GUARDED_BLOCK nameBlock;
  GUARDED_BLOCK pathBlock;
  char* pName = nameBlock.Take(SCRIPT_PATH_BYTES);
  char* pPath = pathBlock.Take(SCRIPT_PATH_BYTES);
  UTIL_CopyString(pName, name.c_str(), SCRIPT_PATH_BYTES);
  SCRIPT_ResolveFile(pName, pPath);
  const std::string path = inUse.starts_with('/') ? inUse : ScriptDir() + inUse;
  EXPECT_EQ(pName, inUse.substr(0, SCRIPT_PATH_BYTES - 1));
  EXPECT_EQ(pPath, path.substr(0, SCRIPT_PATH_BYTES - 1));
  EXPECT_TRUE(nameBlock.IsIntact() && pathBlock.IsIntact());
}

uint32_t HashOf(const std::string& name) {
  const char* pName = name.c_str();
  return UTIL_HashKeyNoCase(&pName);
}

// Ends the text with 4 bytes that give it the hash; none when these would not keep their values in capitals. A CRC is
// linear in the bits of the text, so that each of the 32 bits changes the hash in a way of its own.
std::optional<std::string> WithHash(const std::string& text, uint32_t hash) {
  struct ROW {
    uint32_t Change;
    uint32_t Bits;
  };
  // No single bit turns these into the end of the text or a small letter.
  const std::string base = text + "\xC0\xC0\xC0\xC0";
  // Gaussian elimination: row i is the one whose highest bit is i.
  std::array<ROW, 32> rows;
  rows.fill({0, 0});
  const auto reduce = [&](ROW row) {
    for (uint32_t bit = 32; bit-- > 0;) {
      if ((row.Change >> bit & 1) != 0 && rows[bit].Change != 0) {
        row.Change ^= rows[bit].Change;
        row.Bits ^= rows[bit].Bits;
      }
    }
    return row;
  };
  const auto flip = [&](uint32_t bits) {
    std::string flipped = base;
    for (size_t i = 0; i < 4; i++) {
      flipped[text.size() + i] = static_cast<char>(flipped[text.size() + i] ^ static_cast<char>(bits >> (8 * i)));
    }
    return flipped;
  };
  for (uint32_t bit = 0; bit < 32; bit++) {
    const ROW row = reduce({HashOf(base) ^ HashOf(flip(1u << bit)), 1u << bit});
    rows[static_cast<size_t>(31 - __builtin_clz(row.Change))] = row;
  }
  const std::string found = flip(reduce({HashOf(base) ^ hash, 0}).Bits);
  const bool isUsable = found.find('\0') == std::string::npos && HashOf(found) == hash;
  return isUsable ? std::optional(found) : std::nullopt;
}

TEST(ScriptFile, NamesStayAsTheyAreWithoutMemoryForTheMap) {
  FAULTS_REQUIRE();
  SCOPED_FAULT fault({FAULT_CALL::MALLOC, 1, ENOMEM});
  char acName[SCRIPT_PATH_BYTES] = "";
  char acPath[SCRIPT_PATH_BYTES];
  UTIL_CopyString(acName, RETIRED, sizeof(acName));
  SCRIPT_ResolveFile(acName, acPath);
  EXPECT_STREQ(acName, fault.WasHit() ? RETIRED : SUCCESSOR);  // No memory is needed when the map is there already.
  ExpectInUse(RETIRED, SUCCESSOR);
}

TEST(ScriptFile, RetiredNamesHaveSuccessors) {
  ExpectInUse("pcode_tamsel_st_stm32f74_f75.PEX", SUCCESSOR);
  ExpectInUse("PCODE_TAMSEL_TI_CC2744_pg2_hsm.pex", "PCode_Tamsel_TI_CC2745_PG2_HSM.pex");
  const std::string retired = RETIRED;
  for (const std::string& name :
       {retired + "x", retired.substr(1), "./" + retired, "/tmp/" + retired, " " + retired, std::string(SUCCESSOR)}) {
    ExpectInUse(name, name);
  }
}

TEST(ScriptFile, NamesWithTheHashOfARetiredOneKeepTheirOwn) {
  uint32_t numFound = 0;
  for (char first = 'A'; first <= 'Z'; first++) {
    const std::optional<std::string> name = WithHash(std::string("SCRIPT_") + first, HashOf(RETIRED));
    if (name.has_value()) {
      numFound++;
      ExpectInUse(*name, *name);
    }
  }
  EXPECT_GT(numFound, 0u);
}

TEST(ScriptFile, PathsAreCut) {
  const size_t room = SCRIPT_PATH_BYTES - 1 - ScriptDir().size();
  for (const size_t length : {room - 1, room, room + 1, size_t{SCRIPT_PATH_BYTES - 1}}) {
    ExpectInUse(std::string(length, 'x'), std::string(length, 'x'));
    const std::string path = std::string(length - 1, 'x').insert(0, 1, '/');
    ExpectInUse(path, path);
  }
}

}  // namespace
