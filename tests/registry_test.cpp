#include "xml/registry.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <tuple>

#include "tests/faults.h"
#include "tests/registry_support.h"
#include "tests/support.h"
#include "xml/hive.h"

namespace {

using std::string_literals::operator""s;

struct SCOPED_KEY {
  explicit SCOPED_KEY(SYS_REG_HANDLE handle) : Handle(handle) {}
  ~SCOPED_KEY() { SYS_REG_CloseKey(Handle); }
  SCOPED_KEY(const SCOPED_KEY&) = delete;
  SCOPED_KEY& operator=(const SCOPED_KEY&) = delete;
  operator SYS_REG_HANDLE() const { return Handle; }
  const SYS_REG_HANDLE Handle;
};

uint32_t Set(SYS_REG_HANDLE key, const std::string& name, uint32_t type, const std::string& data) {
  GUARDED_BLOCK block(data.size() + 1);
  const bool isText = type == SYS_REG_TYPE_SZ || type == SYS_REG_TYPE_EXPAND_SZ;
  const char* pData = isText ? block.PlaceText(data) : block.Place(data);
  return SYS_REG_SetValue(key, name.c_str(), type, pData, isText ? 0 : static_cast<uint32_t>(data.size()));
}

using QUERY = std::tuple<uint32_t, uint32_t, std::string>;  // Result, type, data.
const QUERY NOT_FOUND = {SYS_REG_NOT_FOUND, 0, ""};

// Reads a value, into buffers of any size from none to more than enough.
QUERY Query(SYS_REG_HANDLE key, const std::string& name) {
  static GUARDED_BLOCK block;
  const std::string untouched(0x1000, GUARDED_BLOCK::PATTERN);
  QUERY query = {SYS_REG_OK, 0, ""};
  auto& [result, type, data] = query;
  result = SYS_REG_QueryValue(key, name.c_str(), &type, nullptr, nullptr);
  for (uint32_t capacity = 0, size = 1; result == SYS_REG_OK && capacity < size + 2; capacity++) {
    char* pData = block.Take(capacity);
    size = capacity;
    result = SYS_REG_QueryValue(key, name.c_str(), nullptr, pData, &size);
    data.assign(pData, capacity);
    if (result == SYS_REG_MORE_DATA) {
      const bool isText = type == SYS_REG_TYPE_SZ || type == SYS_REG_TYPE_EXPAND_SZ;
      const bool isNumber = type == SYS_REG_TYPE_DWORD || type == SYS_REG_TYPE_QWORD;
      EXPECT_TRUE(isNumber ? size == capacity : size > capacity);
      EXPECT_TRUE(isText ? capacity == 0 || data.back() == '\0' : data == untouched.substr(0, capacity));
      result = SYS_REG_OK;
    } else if (result == SYS_REG_OK) {
      EXPECT_EQ(data.substr(size), untouched.substr(0, capacity - size));
    }
    data.resize(result == SYS_REG_OK ? std::min(size, capacity) : 0);
  }
  return query;
}

// ---- Keys ----

TEST(Key, HasOneNameForAllItsSpellings) {
  const REGISTRY_HOME home;
  for (const auto& [spelling, name] :
       {std::pair("my key", "MYKEY"), std::pair(" \t My\r\n Key \t\\ \\behind the end", "mykey"),
        std::pair("\\behind an empty name", ""), std::pair("My\tKey", "my_key"), std::pair("b.1\\ c", "B_1\\c"),
        std::pair("-a-", "_a-"), std::pair("\"A\"", "_a_"), std::pair("\xC3\xA4", "__")}) {
    const SCOPED_KEY created(SYS_REG_CreateKey(HKEY_CURRENT_USER, spelling));
    const SCOPED_KEY found(SYS_REG_OpenKey(HKEY_CURRENT_USER, name));
    ASSERT_TRUE(created.Handle != nullptr && found.Handle != nullptr) << spelling;
    EXPECT_EQ(created.Handle->pElement, found.Handle->pElement) << spelling;
  }
}

TEST(Key, IsCreatedOnlyIfItCanBeReadBack) {
  const REGISTRY_HOME home;
  std::string deepest;
  for (int depth = 1; depth < 100; depth++) {
    deepest += "k\\";
  }
  for (const auto& [path, isGood] : {std::pair("A\\ " + std::string(100, 'k') + ' ' + std::string(155, 'k'), true),
                                     std::pair("A\\ " + std::string(100, 'k') + ' ' + std::string(156, 'k'), false),
                                     std::pair(std::string(511, 'k'), false), std::pair(std::string(512, 'k'), false),
                                     std::pair(deepest + "k", true), std::pair(deepest + "k\\k", false)}) {
    EXPECT_EQ(StoreText(path.c_str(), "x", "1"), isGood) << path.size();
    const SCOPED_KEY key(SYS_REG_OpenKey(HKEY_CURRENT_USER, path.c_str()));
    EXPECT_EQ(key.Handle != nullptr && Query(key, "x") == QUERY(SYS_REG_OK, SYS_REG_TYPE_SZ, "1\0"s), isGood) << path;
  }
}

TEST(EnumKey, GivesTheNamesInOrder) {
  const REGISTRY_HOME home;
  for (const char* name : {"first", "second", "FIRST", "third\\below"}) {
    SYS_REG_CloseKey(SYS_REG_CreateKey(HKEY_CURRENT_USER, name));
  }
  char acName[6];
  for (const auto& [index, name] : {std::pair(0u, "first"), std::pair(1u, "secon"), std::pair(2u, "third")}) {
    EXPECT_EQ(SYS_REG_EnumKey(HKEY_CURRENT_USER, index, acName, 6), SYS_REG_OK);
    EXPECT_STREQ(acName, name);
  }
  EXPECT_EQ(SYS_REG_EnumKey(HKEY_CURRENT_USER, 3, acName, 6), SYS_REG_ERROR);
  EXPECT_STREQ(acName, "");
}

// None of what is refused may create a file.
TEST(Registry, RefusesMissingArgumentsAndUnknownRoots) {
  const REGISTRY_HOME home;
  char acText[8] = "text";
  uint32_t size = sizeof(acText);
  for (const uint32_t root : {0u, 0x80000003u, 0x80000006u}) {
    const SYS_REG_HANDLE handle = SYS_REG_ROOT(root);
    EXPECT_TRUE(SYS_REG_OpenKey(handle, "") == nullptr && SYS_REG_CreateKey(handle, "A") == nullptr);
    EXPECT_EQ(SYS_REG_EnumKey(handle, 0, acText, size), SYS_REG_ERROR);
    EXPECT_STREQ(acText, "");
    SYS_REG_CloseKey(handle);
  }
  EXPECT_EQ(home.Dir.List(), std::vector<std::string>{});
  const SYS_REG_HANDLE user = HKEY_CURRENT_USER;
  EXPECT_TRUE(SYS_REG_OpenKey(user, nullptr) == nullptr && SYS_REG_EnumKey(user, 0, nullptr, 8) == SYS_REG_ERROR);
  // A name without a word succeeds and does nothing.
  for (const auto& [name, result] : {std::pair(static_cast<const char*>(nullptr), SYS_REG_ERROR),
                                     std::pair("", SYS_REG_ERROR), std::pair("\"\" , \"\"", SYS_REG_OK)}) {
    EXPECT_EQ(SYS_REG_SetValue(user, name, SYS_REG_TYPE_BINARY, "1", 1), result);
    EXPECT_EQ(SYS_REG_QueryValue(user, name, nullptr, acText, &size), result);
    EXPECT_EQ(SYS_REG_DeleteValue(user, name), result);
    EXPECT_EQ(SYS_REG_ClearSubKey(user, name), result);
  }
  for (const auto& [type, numBytes, result] :
       {std::tuple(SYS_REG_TYPE_DWORD, 4u, SYS_REG_ERROR), std::tuple(SYS_REG_TYPE_MULTI_SZ, 2u, SYS_REG_ERROR),
        std::tuple(SYS_REG_TYPE_DWORD, 0u, SYS_REG_OK), std::tuple(SYS_REG_TYPE_SZ, 5u, SYS_REG_OK)}) {
    EXPECT_EQ(SYS_REG_SetValue(user, "x", type, nullptr, numBytes), result);
  }
  EXPECT_EQ(SYS_REG_QueryValue(user, "x", nullptr, acText, nullptr), SYS_REG_ERROR);
}

// ---- Values ----

TEST(Value, IsKnownByTheWordsOfItsName) {
  const REGISTRY_HOME home;
  const struct {
    std::string Spelling;
    std::string Name;  // Empty where a value cannot have it.
  } CASES[] = {
      {" \t\r\nPA TH \n", "path"},
      {"a , \"b\",", "ab"},
      {"Quo\"t\"ed", "quoted"},
      {"9-_", "9-_"},
      {"NORDAXReg", "nordaxreg"},
      {"a_nordaxregx", ""},
      {"-a", ""},
      {"a,b", ""},
      {"\"a b\"", ""},
      {"a\tb", ""},
      {std::string(600, 'n'), std::string(511, 'n')},
  };
  for (const auto& test : CASES) {
    const bool isGood = !test.Name.empty();
    EXPECT_EQ(Set(HKEY_CURRENT_USER, test.Spelling, SYS_REG_TYPE_SZ, test.Name), isGood ? SYS_REG_OK : SYS_REG_ERROR);
    EXPECT_EQ(Query(HKEY_CURRENT_USER, isGood ? test.Name : test.Spelling),
              isGood ? QUERY(SYS_REG_OK, SYS_REG_TYPE_SZ, test.Name + '\0') : NOT_FOUND);
  }
}

// What a query must give back, empty when the data are to be refused.
std::string AsRead(uint32_t type, std::string data) {
  if (type == SYS_REG_TYPE_DWORD || type == SYS_REG_TYPE_QWORD) {
    data.resize(type == SYS_REG_TYPE_DWORD ? 4 : 8);
    return data;
  }
  if (type == SYS_REG_TYPE_SZ || type == SYS_REG_TYPE_EXPAND_SZ) {
    data = data.c_str() + "\0"s;
  } else if (type != SYS_REG_TYPE_MULTI_SZ || data.size() < 2 || data.find("\0\0"s) != data.size() - 2) {
    return "";
  }
  return data.find('"') == std::string::npos ? data : "";
}

TEST(Value, IsGivenBackOrRefused) {
  static constexpr uint32_t TYPES[] = {1, 2, 3, 4, 7, 7, 7, 11, 12, SYS_REG_TYPE_UNKNOWN};
  const REGISTRY_HOME home;
  RANDOM random(61);
  QUERY present = NOT_FOUND;
  for (int round = 0; round < 3000; round++) {
    const uint32_t type = TYPES[random.Below(std::size(TYPES))];
    std::string data = random.OneIn(4) ? random.Bytes(random.Below(12)) : random.Text("ab<&>\n\0\""s, 8);
    data.append(type == SYS_REG_TYPE_MULTI_SZ ? random.Below(4) : 0, '\0');
    const std::string back = AsRead(type, data);
    EXPECT_EQ(Set(HKEY_CURRENT_USER, "x", type, data), back.empty() ? SYS_REG_ERROR : SYS_REG_OK);
    present = back.empty() ? present : QUERY(SYS_REG_OK, type, back);
    ASSERT_EQ(Query(HKEY_CURRENT_USER, "x"), present);
    if (random.OneIn(8)) {
      EXPECT_EQ(SYS_REG_DeleteValue(HKEY_CURRENT_USER, "x"), present == NOT_FOUND ? SYS_REG_ERROR : SYS_REG_OK);
      present = NOT_FOUND;
    }
  }
}

TEST(Value, IsReadFromFilesOfAnyHand) {
  static const std::pair<const char*, QUERY> CASES[] = {
      {"x=\"1\"", NOT_FOUND},
      {"X_nordaxREGtype=\"sys_reg_type_sz\" X=\"1\"", {SYS_REG_OK, SYS_REG_TYPE_SZ, "1\0"s}},
      {"x_NORDAXRegType=\"SYS_REG_TYPE_SZ\"", {SYS_REG_ERROR, SYS_REG_TYPE_SZ, ""}},
      {"x=\"1\" x_NORDAXRegType=\"???\"", {SYS_REG_ERROR, SYS_REG_TYPE_UNKNOWN, ""}},
      {"x=\"1\" x_NORDAXRegType=\"SYS_REG_TYPE_BINARY\"", {SYS_REG_ERROR, SYS_REG_TYPE_BINARY, ""}},
      {"x=\" -0xAz\" x_NORDAXRegType=\"SYS_REG_TYPE_DWORD\"", {SYS_REG_OK, SYS_REG_TYPE_DWORD, "\xF6\xFF\xFF\xFF"}},
      {"x=\"a\" x_NORDAXRegMltStr2=\"c\" x_NORDAXRegMltStr1=\"\" x_NORDAXRegMltStr4=\"e\" "
       "x_NORDAXRegType=\"SYS_REG_TYPE_MULTI_SZ\"",
       {SYS_REG_OK, SYS_REG_TYPE_MULTI_SZ, "a\0\0c\0\0"s}},
      {"x=\"1\" x=\"2\" x_NORDAXRegType=\"SYS_REG_TYPE_SZ\" x_NORDAXRegType=\"?\"",
       {SYS_REG_OK, SYS_REG_TYPE_SZ, "1\0"s}},
  };
  for (const auto& [attributes, expected] : CASES) {
    SCOPED_TRACE(attributes);
    const REGISTRY_HOME home;
    home.Write(std::string("<R ") + attributes + "/>");
    EXPECT_EQ(Query(HKEY_CURRENT_USER, "x"), expected);
    // Whatever was there gives way, and does not come back.
    const bool isKnown = std::get<1>(expected) != 0 && std::get<1>(expected) != SYS_REG_TYPE_UNKNOWN;
    EXPECT_EQ(SYS_REG_DeleteValue(HKEY_CURRENT_USER, "x"), isKnown ? SYS_REG_OK : SYS_REG_ERROR);
    EXPECT_EQ(Query(HKEY_CURRENT_USER, "x"), isKnown ? NOT_FOUND : expected);
    for (const std::string& data : {"1\0\0"s, "1\0b\0\0"s, "1\0b\0c\0d\0\0"s}) {
      EXPECT_EQ(Set(HKEY_CURRENT_USER, "x", SYS_REG_TYPE_MULTI_SZ, data), SYS_REG_OK);
      EXPECT_EQ(Query(HKEY_CURRENT_USER, "x"), QUERY(SYS_REG_OK, SYS_REG_TYPE_MULTI_SZ, data));
    }
  }
}

// With more and more bytes left in the document's memory, until they suffice.
TEST(SetValue, IsWholeOrGoneWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  for (const auto& [type, data] :
       {std::pair(SYS_REG_TYPE_DWORD, "\x01\0\0\0"s), std::pair(SYS_REG_TYPE_MULTI_SZ, "a\0b\0c\0\0"s)}) {
    std::vector<QUERY> outcomes;
    for (uint32_t left = 0; outcomes.empty() || std::get<1>(outcomes.back()) != type; left += 8) {
      const REGISTRY_HOME home;
      const SCOPED_KEY key(SYS_REG_CreateKey(HKEY_CURRENT_USER, "A"));
      Set(key, "x", SYS_REG_TYPE_SZ, "old");
      OTALLOC* pArena = key.Handle->pHive->pDoc->pArena;
      OTALLOC_Alloc(pArena, pArena->Capacity - pArena->Used - left);
      const SCOPED_FAULT exhausted({FAULT_CALL::MALLOC, 1, ENOMEM, UINT32_MAX});
      const uint32_t result = Set(key, "x", type, data);
      outcomes.push_back(Query(key, "x"));
      EXPECT_EQ(result == SYS_REG_OK, outcomes.back() == QUERY(SYS_REG_OK, type, data));
    }
    // A number's text is tried before anything goes.
    const QUERY old = {SYS_REG_OK, SYS_REG_TYPE_SZ, "old\0"s};
    outcomes.pop_back();
    EXPECT_EQ(outcomes.front(), type == SYS_REG_TYPE_DWORD ? old : NOT_FOUND);
    EXPECT_EQ(outcomes.back(), NOT_FOUND);
  }
}

}  // namespace
