#include "xml/registry.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <utility>

#include "tests/faults.h"
#include "tests/registry_support.h"
#include "tests/support.h"
#include "xml/hive.h"

namespace {

// A text with all its zero bytes but the one at its end.
template <size_t SIZE>
std::string Bytes(const char (&text)[SIZE]) {
  return {text, SIZE - 1};
}

struct SCOPED_KEY {
  explicit SCOPED_KEY(SYS_REG_HANDLE handle) : Handle(handle) {}
  ~SCOPED_KEY() { SYS_REG_CloseKey(Handle); }
  SCOPED_KEY(const SCOPED_KEY&) = delete;
  SCOPED_KEY& operator=(const SCOPED_KEY&) = delete;
  operator SYS_REG_HANDLE() const { return Handle; }
  const SYS_REG_HANDLE Handle;
};

// A key's names from below the root to it, with a slash before each.
std::string PathOf(SYS_REG_HANDLE key) {
  std::string path;
  for (const XML_ELEMENT* pElement = key->pElement; pElement->pParent != nullptr; pElement = pElement->pParent) {
    path.insert(0, std::string("/") + pElement->pName);
  }
  return path;
}

uint32_t Set(SYS_REG_HANDLE key, const std::string& name, uint32_t type, const std::string& data) {
  GUARDED_BLOCK block(data.size() + 1);
  const bool isText = type == SYS_REG_TYPE_SZ || type == SYS_REG_TYPE_EXPAND_SZ;
  const char* pData = isText ? block.PlaceText(data) : block.Place(data);
  return SYS_REG_SetValue(key, name.c_str(), type, pData, isText ? 0 : static_cast<uint32_t>(data.size()));
}

struct QUERY {
  uint32_t Result;
  uint32_t Type;
  std::string Data;

  bool operator==(const QUERY&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const QUERY& query) {
  return stream << query.Result << ' ' << query.Type << ' ' << testing::PrintToString(query.Data);
}

// Reads a value whole, into a buffer of its size.
QUERY Query(SYS_REG_HANDLE key, const std::string& name) {
  QUERY query = {0, 0, ""};
  char cNone = 0;
  uint32_t size = 0;
  query.Result = SYS_REG_QueryValue(key, name.c_str(), &query.Type, &cNone, &size);
  if (query.Result == SYS_REG_MORE_DATA) {
    size = size != 0 ? size : query.Type == SYS_REG_TYPE_DWORD ? 4 : 8;
    GUARDED_BLOCK block(size);
    const char* pData = block.Take(size);
    query.Result = SYS_REG_QueryValue(key, name.c_str(), nullptr, block.Take(size), &size);
    query.Data.assign(pData, size);
  }
  return query;
}

// ---- Keys ----

TEST(Key, IsFoundByTheWordsOfItsPath) {
  static const std::pair<std::string, const char*> aPaths[] = {
      {"Software\\NORDAX\\Tamsel", "/Software/NORDAX/Tamsel"},
      {"", ""},
      {" \t\r\n", ""},
      {"\\A", ""},
      {"A\\\\B", "/A"},
      {"A\\ \\B", "/A"},
      {"A\\", "/A"},
      {"My Key", "/MyKey"},
      {" \t My\r\n Key \t\\ B ", "/MyKey/B"},
      {"My\tKey", "/My_Key"},
      {"a\t", "/a_"},
      {"a \tb", "/ab"},
      {"a.b", "/a_b"},
      {"-a-", "/_a-"},
      {"a/b", "/a_b"},
      {"\"A\"", "/_A_"},
      {"\xC3\xA4", "/__"},
      {"9\\<>", "/9/__"},
  };
  for (const auto& [path, expected] : aPaths) {
    SCOPED_TRACE(path);
    const REGISTRY_HOME home;
    const SYS_REG_HANDLE missing = SYS_REG_OpenKey(HKEY_CURRENT_USER, path.c_str());
    EXPECT_EQ(missing == nullptr, expected[0] != '\0');
    SYS_REG_CloseKey(missing);
    const SCOPED_KEY created(SYS_REG_CreateKey(HKEY_CURRENT_USER, path.c_str()));
    ASSERT_NE(created.Handle, nullptr);
    EXPECT_EQ(PathOf(created), expected);
    const SCOPED_KEY opened(SYS_REG_OpenKey(HKEY_CURRENT_USER, path.c_str()));
    ASSERT_NE(opened.Handle, nullptr);
    EXPECT_EQ(opened.Handle->pElement, created.Handle->pElement);
  }
}

TEST(Key, IsTheSameInAnyCaseAndFromAnyKeyAbove) {
  const REGISTRY_HOME home;
  const SCOPED_KEY outer(SYS_REG_CreateKey(HKEY_CURRENT_USER, "Outer"));
  const SCOPED_KEY inner(SYS_REG_CreateKey(outer, "Mid\\Inner"));
  for (const auto& [from, path] : {std::pair<SYS_REG_HANDLE, const char*>{HKEY_CURRENT_USER, "OUTER\\mid\\innER"},
                                   {outer, "MID\\INNER"},
                                   {inner, ""}}) {
    const SCOPED_KEY opened(SYS_REG_OpenKey(from, path));
    const SCOPED_KEY created(SYS_REG_CreateKey(from, path));
    EXPECT_EQ(opened.Handle->pElement, inner.Handle->pElement);
    EXPECT_EQ(created.Handle->pElement, inner.Handle->pElement);
  }
  EXPECT_EQ(SYS_REG_OpenKey(HKEY_LOCAL_MACHINE, "Outer"), nullptr);
  EXPECT_EQ(SYS_REG_OpenKey(outer, "Inner"), nullptr);
  EXPECT_EQ(SYS_REG_OpenKey(inner, "Outer"), nullptr);
}

TEST(Key, HasANameThatCanBeReadBack) {
  const REGISTRY_HOME home;
  const std::string longest(255, 'k');
  for (const std::string& name : {longest, longest + 'k', std::string(511, 'k'), std::string(512, 'k')}) {
    const std::string path = "A\\ " + name.substr(0, 100) + ' ' + name.substr(100);
    const SYS_REG_HANDLE key = SYS_REG_CreateKey(HKEY_CURRENT_USER, path.c_str());
    EXPECT_EQ(key != nullptr, name == longest) << name.size();
    SYS_REG_CloseKey(key);
    SYS_REG_SaveAll();
    const SCOPED_KEY again(SYS_REG_OpenKey(HKEY_CURRENT_USER, path.c_str()));
    EXPECT_EQ(again.Handle != nullptr, name == longest) << name.size();
  }
  EXPECT_EQ(home.Text(),
            std::string(DECLARATION) + "<Registry>\r\n  <A>\r\n    <" + longest + "/>\r\n  </A>\r\n</Registry>\r\n");
}

TEST(Key, LiesNoDeeperThanCanBeReadBack) {
  const REGISTRY_HOME home;
  std::string path;
  for (int i = 0; i < 100; i++) {
    path += "k\\";
  }
  EXPECT_EQ(SYS_REG_CreateKey(HKEY_CURRENT_USER, (path + "k").c_str()), nullptr);
  EXPECT_TRUE(StoreText(path.c_str(), "x", "1"));
  {
    const SCOPED_KEY deepest(SYS_REG_OpenKey(HKEY_CURRENT_USER, path.c_str()));
    ASSERT_NE(deepest.Handle, nullptr);
    EXPECT_EQ(Query(deepest, "x"), (QUERY{SYS_REG_OK, SYS_REG_TYPE_SZ, Bytes("1\0")}));
    EXPECT_EQ(SYS_REG_CreateKey(deepest, "k"), nullptr);
  }
  EXPECT_FALSE(std::filesystem::exists(home.HivePath() + ".bad"));
}

TEST(EnumKey, GivesTheNamesInOrder) {
  const REGISTRY_HOME home;
  const SCOPED_KEY key(SYS_REG_CreateKey(HKEY_CURRENT_USER, "A"));
  GUARDED_BLOCK block;
  EXPECT_EQ(SYS_REG_EnumKey(key, 0, block.Take(5), 5), SYS_REG_ERROR);
  for (const char* name : {"first", "second", "FIRST", "third\\below"}) {
    SYS_REG_CloseKey(SYS_REG_CreateKey(key, name));
  }
  const std::string aNames[] = {"first", "second", "third"};
  for (uint32_t index = 0; index < 5; index++) {
    for (const uint32_t size : {0, 1, 5, 100}) {
      char* pName = block.Take(size);
      EXPECT_EQ(SYS_REG_EnumKey(key, index, pName, size), index < 3 ? SYS_REG_OK : SYS_REG_ERROR);
      EXPECT_TRUE(size == 0 || pName == (index < 3 ? aNames[index].substr(0, size - 1) : "")) << pName;
      EXPECT_TRUE(block.IsIntact());
    }
  }
  char acName[2] = "x";
  EXPECT_EQ(SYS_REG_EnumKey(HKEY_CURRENT_USER, 0, acName, sizeof(acName)), SYS_REG_OK);
  EXPECT_STREQ(acName, "A");
  EXPECT_EQ(SYS_REG_EnumKey(nullptr, 0, acName, sizeof(acName)), SYS_REG_ERROR);
  EXPECT_STREQ(acName, "");
}

// Each operation with what it must refuse; none of it may create a file.
TEST(Registry, RefusesMissingArgumentsAndUnknownRoots) {
  const REGISTRY_HOME home;
  char acText[8];
  uint32_t size = sizeof(acText);
  for (const uint32_t root : {0u, 0x80000003u, 0x80000004u, 0x80000005u, 0x80000006u}) {
    const SYS_REG_HANDLE handle = SYS_REG_ROOT(root);
    auto* pElement = reinterpret_cast<XML_ELEMENT*>(acText);
    auto* pHive = reinterpret_cast<SYS_REG_HIVE*>(acText);
    EXPECT_EQ(SYS_REG_GetHive(handle, &pElement, &pHive), -1);
    EXPECT_EQ(static_cast<void*>(pElement), acText);
    EXPECT_EQ(static_cast<void*>(pHive), acText);
    EXPECT_EQ(SYS_REG_OpenKey(handle, ""), nullptr);
    EXPECT_EQ(SYS_REG_CreateKey(handle, "A"), nullptr);
    EXPECT_EQ(SYS_REG_EnumKey(handle, 0, acText, sizeof(acText)), SYS_REG_ERROR);
    EXPECT_EQ(SYS_REG_SetValue(handle, "x", SYS_REG_TYPE_SZ, "1", 0), SYS_REG_ERROR);
    EXPECT_EQ(SYS_REG_QueryValue(handle, "x", nullptr, nullptr, nullptr), SYS_REG_ERROR);
    EXPECT_EQ(SYS_REG_DeleteValue(handle, "x"), SYS_REG_ERROR);
    EXPECT_EQ(SYS_REG_ClearSubKey(handle, "x"), SYS_REG_ERROR);
    SYS_REG_CloseKey(handle);
  }
  EXPECT_EQ(home.Dir.List(), std::vector<std::string>{});
  EXPECT_EQ(SYS_REG_OpenKey(HKEY_CURRENT_USER, nullptr), nullptr);
  EXPECT_EQ(SYS_REG_CreateKey(HKEY_CURRENT_USER, nullptr), nullptr);
  EXPECT_EQ(SYS_REG_EnumKey(HKEY_CURRENT_USER, 0, nullptr, 8), SYS_REG_ERROR);
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(SYS_REG_SetValue(HKEY_CURRENT_USER, name, SYS_REG_TYPE_SZ, "1", 0), SYS_REG_ERROR);
    EXPECT_EQ(SYS_REG_QueryValue(HKEY_CURRENT_USER, name, nullptr, acText, &size), SYS_REG_ERROR);
    EXPECT_EQ(SYS_REG_DeleteValue(HKEY_CURRENT_USER, name), SYS_REG_ERROR);
    EXPECT_EQ(SYS_REG_ClearSubKey(HKEY_CURRENT_USER, name), SYS_REG_ERROR);
  }
  EXPECT_EQ(SYS_REG_SetValue(HKEY_CURRENT_USER, "x", SYS_REG_TYPE_SZ, "1", 0), SYS_REG_OK);
  EXPECT_EQ(SYS_REG_QueryValue(HKEY_CURRENT_USER, "x", nullptr, acText, nullptr), SYS_REG_ERROR);
  SYS_REG_DeleteValue(HKEY_CURRENT_USER, "x");
}

// ---- Values ----

TEST(ValueName, IsMadeOfTheWordsOfItsText) {
  static const std::pair<std::string, std::string> aNames[] = {
      {"Path", "Path"},
      {" \t\r\nPath \n", "Path"},
      {"My Path", "MyPath"},
      {"\"Path\"", "Path"},
      {"\"Path", "Path"},
      {"Path\"x\"y", "Pathxy"},
      {"a ,b , c", "abc"},
      {"a, b", ""},
      {"a , \"b\",", "ab"},
      {"-a", ""},
      {"a,b", ""},
      {"a,,b", ""},
      {"\"a b\"", ""},
      {"a\tb", ""},
      {"a.b", ""},
      {"a=b", ""},
      {"\xC3\xA4", ""},
      {"9-_", "9-_"},
      {std::string(511, 'n'), std::string(511, 'n')},
      {std::string(600, 'n'), std::string(511, 'n')},
      {std::string(300, 'n') + ' ' + std::string(300, 'n'), std::string(511, 'n')},
      {"a_NORDAXRegType", ""},
      {"a_NordaxRegMltStr1", ""},
      {"a_NORDAX_NORDAXRegx", ""},
      {"NORDAXReg", "NORDAXReg"},
  };
  for (const auto& [text, expected] : aNames) {
    SCOPED_TRACE(text);
    const REGISTRY_HOME home;
    EXPECT_EQ(Set(HKEY_CURRENT_USER, text, SYS_REG_TYPE_SZ, "1"), expected.empty() ? SYS_REG_ERROR : SYS_REG_OK);
    SYS_REG_SaveAll();
    EXPECT_EQ(home.Text(), expected.empty() ? ""
                                            : DECLARATION + ("<Registry " + expected) + "=\"1\" " + expected +
                                                  "_NORDAXRegType=\"SYS_REG_TYPE_SZ\"/>\r\n");
    EXPECT_EQ(Query(HKEY_CURRENT_USER, text).Result, expected.empty() ? SYS_REG_NOT_FOUND : SYS_REG_OK);
    EXPECT_EQ(SYS_REG_DeleteValue(HKEY_CURRENT_USER, text.c_str()), expected.empty() ? SYS_REG_ERROR : SYS_REG_OK);
  }
}

TEST(ValueName, ThatHasNoWordSucceedsAndDoesNothing) {
  const REGISTRY_HOME home;
  for (const char* name : {" ", "\"\"", "\t\"", "\"\" , \"\""}) {
    uint32_t type = 77;
    uint32_t size = 1;
    char c = 'x';
    EXPECT_EQ(SYS_REG_SetValue(HKEY_CURRENT_USER, name, SYS_REG_TYPE_BINARY, "1", 1), SYS_REG_OK);
    EXPECT_EQ(SYS_REG_QueryValue(HKEY_CURRENT_USER, name, &type, &c, &size), SYS_REG_OK);
    EXPECT_TRUE(type == 77 && size == 1 && c == 'x');
    EXPECT_EQ(SYS_REG_DeleteValue(HKEY_CURRENT_USER, name), SYS_REG_OK);
    EXPECT_EQ(SYS_REG_ClearSubKey(HKEY_CURRENT_USER, name), SYS_REG_OK);
  }
  SYS_REG_SaveAll();
  EXPECT_EQ(home.Text(), "");
}

TEST(Value, IsStoredAndReadByItsType) {
  static const struct {
    uint32_t Type;
    std::string Data;
    const char* Text;  // Null when it is refused.
    std::string Back;
  } aCases[] = {
      {SYS_REG_TYPE_SZ, "/tmp", "/tmp", Bytes("/tmp\0")},
      {SYS_REG_TYPE_EXPAND_SZ, "", "", Bytes("\0")},
      {SYS_REG_TYPE_SZ, "<a>&'\r\n\t\x01\xFF", "<a>&'\r\n\t\x01\xFF", Bytes("<a>&'\r\n\t\x01\xFF\0")},
      {SYS_REG_TYPE_SZ, "a\"b", nullptr, ""},
      {SYS_REG_TYPE_DWORD, Bytes("\x05\0\0\0"), "0x00000005", Bytes("\x05\0\0\0")},
      {SYS_REG_TYPE_DWORD, Bytes("\xEF\xBE\xAD\xDE\xFF"), "0xDEADBEEF", Bytes("\xEF\xBE\xAD\xDE")},
      {SYS_REG_TYPE_DWORD, Bytes("\x01\x80"), "0x00008001", Bytes("\x01\x80\0\0")},
      {SYS_REG_TYPE_DWORD, "", "0x00000000", Bytes("\0\0\0\0")},
      {SYS_REG_TYPE_QWORD, Bytes("\x02\0\0\0\x01\0\0\0!"), "0x0000000100000002", Bytes("\x02\0\0\0\x01\0\0\0")},
      {SYS_REG_TYPE_QWORD, Bytes("\xFF\xFF\xFF\xFF\xFE\xFF\xFF\xFF"), "0xFFFFFFFEFFFFFFFF",
       Bytes("\xFF\xFF\xFF\xFF\xFE\xFF\xFF\xFF")},
      {SYS_REG_TYPE_QWORD, Bytes("\x07"), "0x0000000000000007", Bytes("\x07\0\0\0\0\0\0\0")},
      {SYS_REG_TYPE_MULTI_SZ, Bytes("a\0bc\0d\0\0"), "a", Bytes("a\0bc\0d\0\0")},
      {SYS_REG_TYPE_MULTI_SZ, Bytes("\0\0"), "", Bytes("\0\0")},
      {SYS_REG_TYPE_MULTI_SZ, Bytes("\0a\0\0"), "", Bytes("\0a\0\0")},
      {SYS_REG_TYPE_MULTI_SZ, "", nullptr, ""},
      {SYS_REG_TYPE_MULTI_SZ, Bytes("\0"), nullptr, ""},
      {SYS_REG_TYPE_MULTI_SZ, Bytes("a\0bc\0d\0"), nullptr, ""},
      {SYS_REG_TYPE_MULTI_SZ, Bytes("a\0bc\0d"), nullptr, ""},
      {SYS_REG_TYPE_MULTI_SZ, Bytes("a\0\0b\0\0"), nullptr, ""},
      {SYS_REG_TYPE_MULTI_SZ, Bytes("a\0\0\0"), nullptr, ""},
      {SYS_REG_TYPE_MULTI_SZ, Bytes("a\0b\"\0\0"), nullptr, ""},
      {SYS_REG_TYPE_BINARY, "ab", nullptr, ""},
      {0, "ab", nullptr, ""},
      {5, "ab", nullptr, ""},
      {12, "ab", nullptr, ""},
      {SYS_REG_TYPE_UNKNOWN, "ab", nullptr, ""},
  };
  for (const auto& test : aCases) {
    SCOPED_TRACE(testing::Message() << test.Type << ' ' << testing::PrintToString(test.Data));
    const REGISTRY_HOME home;
    const SCOPED_KEY key(SYS_REG_CreateKey(HKEY_CURRENT_USER, "A"));
    EXPECT_EQ(Set(key, "x", test.Type, test.Data), test.Text != nullptr ? SYS_REG_OK : SYS_REG_ERROR);
    const XML_ATTR* pAttr = key.Handle->pElement->pFirstAttr;
    if (test.Text == nullptr) {
      EXPECT_EQ(pAttr, nullptr);
      continue;
    }
    EXPECT_STREQ(pAttr->pValue, test.Text);
    EXPECT_EQ(Query(key, "X"), (QUERY{SYS_REG_OK, test.Type, test.Back}));
    // Into buffers of any size.
    const bool isText = test.Type == SYS_REG_TYPE_SZ || test.Type == SYS_REG_TYPE_EXPAND_SZ;
    const bool isNumber = test.Type == SYS_REG_TYPE_DWORD || test.Type == SYS_REG_TYPE_QWORD;
    for (uint32_t capacity = 0; capacity < test.Back.size() + 2; capacity++) {
      const bool fits = capacity >= test.Back.size();
      std::string expected(capacity, GUARDED_BLOCK::PATTERN);
      if (fits) {
        expected.replace(0, test.Back.size(), test.Back);
      } else if (isText && capacity != 0) {
        expected = test.Back.substr(0, capacity - 1) + '\0';
      }
      GUARDED_BLOCK block;
      char* pData = block.Take(capacity);
      uint32_t size = capacity;
      EXPECT_EQ(SYS_REG_QueryValue(key, "x", nullptr, pData, &size), fits ? SYS_REG_OK : SYS_REG_MORE_DATA);
      EXPECT_EQ(size, fits || !isNumber ? test.Back.size() : capacity);
      EXPECT_EQ(std::string(pData, capacity), expected);
      EXPECT_TRUE(block.IsIntact());
    }
  }
}

TEST(Value, TakesNullForNoData) {
  const REGISTRY_HOME home;
  for (const auto& [type, size, expected] :
       {std::tuple(SYS_REG_TYPE_SZ, 5u, true), std::tuple(SYS_REG_TYPE_DWORD, 0u, true),
        std::tuple(SYS_REG_TYPE_DWORD, 4u, false), std::tuple(SYS_REG_TYPE_QWORD, 1u, false),
        std::tuple(SYS_REG_TYPE_MULTI_SZ, 0u, false), std::tuple(SYS_REG_TYPE_MULTI_SZ, 2u, false)}) {
    EXPECT_EQ(SYS_REG_SetValue(HKEY_CURRENT_USER, "x", type, nullptr, size), expected ? SYS_REG_OK : SYS_REG_ERROR);
    EXPECT_EQ(SYS_REG_DeleteValue(HKEY_CURRENT_USER, "x"), expected ? SYS_REG_OK : SYS_REG_ERROR);
  }
}

TEST(Value, IsReadFromFilesOfAnyHand) {
  static const struct {
    const char* Attributes;
    QUERY Expected;
  } aCases[] = {
      {"x='1'", {SYS_REG_NOT_FOUND, 0, ""}},
      {"x=\"1\"", {SYS_REG_NOT_FOUND, 0, ""}},
      {"X_nordaxREGtype=\"sys_reg_type_sz\" X=\"1\"", {SYS_REG_OK, SYS_REG_TYPE_SZ, Bytes("1\0")}},
      {"x_NORDAXRegType=\"SYS_REG_TYPE_SZ\"", {SYS_REG_ERROR, SYS_REG_TYPE_SZ, ""}},
      {"x=\"1\" x_NORDAXRegType=\"\"", {SYS_REG_ERROR, SYS_REG_TYPE_UNKNOWN, ""}},
      {"x=\"1\" x_NORDAXRegType=\"???\"", {SYS_REG_ERROR, SYS_REG_TYPE_UNKNOWN, ""}},
      {"x=\"1\" x_NORDAXRegType=\"SYS_REG_TYPE_BINARY\"", {SYS_REG_ERROR, SYS_REG_TYPE_BINARY, ""}},
      {"x=\"12\" x_NORDAXRegType=\"SYS_REG_TYPE_DWORD\"", {SYS_REG_OK, SYS_REG_TYPE_DWORD, Bytes("\x12\0\0\0")}},
      {"x=\" -0xAz\" x_NORDAXRegType=\"SYS_REG_TYPE_DWORD\"",
       {SYS_REG_OK, SYS_REG_TYPE_DWORD, Bytes("\xF6\xFF\xFF\xFF")}},
      {"x=\"none\" x_NORDAXRegType=\"SYS_REG_TYPE_DWORD\"", {SYS_REG_OK, SYS_REG_TYPE_DWORD, Bytes("\0\0\0\0")}},
      {"x=\"\" x_NORDAXRegType=\"SYS_REG_TYPE_QWORD\"", {SYS_REG_OK, SYS_REG_TYPE_QWORD, Bytes("\0\0\0\0\0\0\0\0")}},
      {"x=\"a\" x_NORDAXRegMltStr2=\"c\" x_NORDAXRegMltStr1=\"\" x_NORDAXRegMltStr4=\"e\" "
       "x_NORDAXRegType=\"SYS_REG_TYPE_MULTI_SZ\"",
       {SYS_REG_OK, SYS_REG_TYPE_MULTI_SZ, Bytes("a\0\0c\0\0")}},
      {"x=\"1\" x=\"2\" x_NORDAXRegType=\"SYS_REG_TYPE_SZ\" x_NORDAXRegType=\"?\"",
       {SYS_REG_OK, SYS_REG_TYPE_SZ, Bytes("1\0")}},
  };
  for (const auto& test : aCases) {
    SCOPED_TRACE(test.Attributes);
    const REGISTRY_HOME home;
    home.Write(std::string("<R ") + test.Attributes + "/>");
    EXPECT_EQ(Query(HKEY_CURRENT_USER, "x"), test.Expected);
    uint32_t type = 0;
    const uint32_t result = SYS_REG_QueryValue(HKEY_CURRENT_USER, "x", &type, nullptr, nullptr);
    const bool isUnknown = test.Expected.Type == SYS_REG_TYPE_UNKNOWN;
    EXPECT_EQ(result, isUnknown || test.Expected.Result == SYS_REG_NOT_FOUND ? test.Expected.Result : SYS_REG_OK);
    EXPECT_EQ(type, test.Expected.Type);
    // Whatever was there gives way, and does not come back.
    EXPECT_EQ(SYS_REG_DeleteValue(HKEY_CURRENT_USER, "x"), result == SYS_REG_OK ? SYS_REG_OK : SYS_REG_ERROR);
    EXPECT_TRUE(result != SYS_REG_OK || Query(HKEY_CURRENT_USER, "x").Result == SYS_REG_NOT_FOUND);
    for (const std::string& data : {Bytes("1\0\0"), Bytes("1\0b\0\0"), Bytes("1\0b\0c\0d\0\0")}) {
      EXPECT_EQ(Set(HKEY_CURRENT_USER, "x", SYS_REG_TYPE_MULTI_SZ, data), SYS_REG_OK);
      EXPECT_EQ(Query(HKEY_CURRENT_USER, "x"), (QUERY{SYS_REG_OK, SYS_REG_TYPE_MULTI_SZ, data}));
    }
    EXPECT_EQ(SYS_REG_DeleteValue(HKEY_CURRENT_USER, "x"), SYS_REG_OK);
    EXPECT_EQ(Query(HKEY_CURRENT_USER, "x"), (QUERY{SYS_REG_NOT_FOUND, 0, ""}));
  }
}

TEST(Value, ThatReplacesSeveralTextsLeavesAllButTheFirst) {
  const REGISTRY_HOME home;
  const auto attributes = [&] {
    SYS_REG_SaveAll();
    const std::string text = home.Text();
    const size_t start = text.find("<Registry") + 9;
    return text.substr(start, text.find("/>") - start);
  };
  Set(HKEY_CURRENT_USER, "x", SYS_REG_TYPE_MULTI_SZ, Bytes("a\0b\0c\0\0"));
  EXPECT_EQ(attributes(),
            " x=\"a\" x_NORDAXRegMltStr1=\"b\" x_NORDAXRegMltStr2=\"c\" x_NORDAXRegType=\"SYS_REG_TYPE_MULTI_SZ\"");
  Set(HKEY_CURRENT_USER, "x", SYS_REG_TYPE_SZ, "d");
  EXPECT_EQ(attributes(),
            " x=\"d\" x_NORDAXRegMltStr1=\"b\" x_NORDAXRegMltStr2=\"c\" x_NORDAXRegType=\"SYS_REG_TYPE_SZ\"");
  Set(HKEY_CURRENT_USER, "x", SYS_REG_TYPE_MULTI_SZ, Bytes("e\0f\0\0"));
  EXPECT_EQ(attributes(), " x=\"e\" x_NORDAXRegMltStr1=\"f\" x_NORDAXRegType=\"SYS_REG_TYPE_MULTI_SZ\"");
  Set(HKEY_CURRENT_USER, "x", SYS_REG_TYPE_SZ, "g");
  EXPECT_EQ(SYS_REG_DeleteValue(HKEY_CURRENT_USER, "x"), SYS_REG_OK);
  EXPECT_EQ(attributes(), " x_NORDAXRegMltStr1=\"f\"");
  Set(HKEY_CURRENT_USER, "x", SYS_REG_TYPE_MULTI_SZ, Bytes("h\0\0"));
  EXPECT_EQ(attributes(), " x=\"h\" x_NORDAXRegType=\"SYS_REG_TYPE_MULTI_SZ\"");
  EXPECT_EQ(SYS_REG_DeleteValue(HKEY_CURRENT_USER, "x"), SYS_REG_OK);
  EXPECT_EQ(SYS_REG_DeleteValue(HKEY_CURRENT_USER, "x"), SYS_REG_ERROR);
  EXPECT_EQ(attributes(), "");
}

TEST(ClearSubKey, RemovesTheValuesOfOneKeyAlone) {
  const REGISTRY_HOME home;
  const SCOPED_KEY key(SYS_REG_CreateKey(HKEY_CURRENT_USER, "A"));
  for (const char* path : {"", "MyKey", "MyKey\\Below", "Other"}) {
    const SCOPED_KEY sub(SYS_REG_CreateKey(key, path));
    Set(sub, "x", SYS_REG_TYPE_SZ, "1");
    Set(sub, "y", SYS_REG_TYPE_MULTI_SZ, Bytes("a\0b\0\0"));
  }
  for (const char* name : {"missing", "Below", "A", "mykey \"\""}) {
    EXPECT_EQ(SYS_REG_ClearSubKey(key, name), SYS_REG_OK);
    for (const char* path : {"", "MyKey", "MyKey\\Below", "Other"}) {
      const SCOPED_KEY sub(SYS_REG_OpenKey(key, path));
      const bool isCleared = name[0] == 'm' && name[1] == 'y' && std::string(path) == "MyKey";
      EXPECT_EQ(sub.Handle->pElement->pFirstAttr == nullptr, isCleared) << path;
    }
  }
}

TEST(TypeFromName, KnowsTheNamesInTheFilesAlone) {
  EXPECT_EQ(SYS_REG_TypeFromName("SYS_REG_TYPE_EXPAND_SZ"), SYS_REG_TYPE_EXPAND_SZ);
  EXPECT_EQ(SYS_REG_TypeFromName("sys_reg_type_qword"), SYS_REG_TYPE_QWORD);
  for (const char* text : {static_cast<const char*>(nullptr), "", "SYS_REG_TYPE_", "SYS_REG_TYPE_SZ ", "???"}) {
    EXPECT_EQ(SYS_REG_TypeFromName(text), SYS_REG_TYPE_UNKNOWN);
  }
}

// With more and more bytes left in the document's memory, until they suffice.
TEST(SetValue, IsWholeOrGoneWhenMemoryIsExhausted) {
  FAULTS_REQUIRE();
  const QUERY old = {SYS_REG_OK, SYS_REG_TYPE_SZ, Bytes("old\0")};
  const QUERY gone = {SYS_REG_NOT_FOUND, 0, ""};
  for (const auto& [type, data] :
       {std::pair(SYS_REG_TYPE_DWORD, Bytes("\x01\0\0\0")), std::pair(SYS_REG_TYPE_MULTI_SZ, Bytes("a\0b\0c\0\0"))}) {
    uint32_t aNum[2] = {};
    for (uint32_t left = 0;; left += 8) {
      const REGISTRY_HOME home;
      const SCOPED_KEY key(SYS_REG_CreateKey(HKEY_CURRENT_USER, "A"));
      Set(key, "x", SYS_REG_TYPE_SZ, "old");
      OTALLOC* pArena = key.Handle->pHive->pDoc->pArena;
      ASSERT_NE(OTALLOC_Alloc(pArena, pArena->Capacity - pArena->Used - left), nullptr);
      const SCOPED_FAULT exhausted({FAULT_CALL::MALLOC, 1, ENOMEM, UINT32_MAX});
      const uint32_t result = Set(key, "x", type, data);
      const QUERY back = Query(key, "x");
      if (result == SYS_REG_OK) {
        EXPECT_EQ(back, (QUERY{SYS_REG_OK, type, data}));
        break;
      }
      EXPECT_TRUE(back == old || back == gone) << back;
      aNum[back == gone]++;
    }
    EXPECT_EQ(aNum[0] != 0, type == SYS_REG_TYPE_DWORD);
    EXPECT_GE(aNum[1], 3u);
  }
}

// ---- Random operations beside a model ----

// What a registry must give back: values by lower-case name, by the lower-case path of their key.
using MODEL = std::map<std::string, std::map<std::string, QUERY>>;

constexpr const char* KEY_NAMES[] = {"Alpha", "ALPHA", "b-1", "B-1", "_", "my key", "MyKey", "x.y", "x_y"};
constexpr const char* VALUE_NAMES[] = {"Path", "PATH", "n-0", "_", "List", "lis t", "\"Quoted\"", "bad.name"};

std::string ModelName(const std::string& name, bool isKey) {
  std::string made;
  for (const char c : name) {
    if (c == '.' && isKey) {
      made += '_';
    } else if (c != ' ' && c != '"') {
      made += static_cast<char>(tolower(c));
    }
  }
  return made;
}

class RANDOM_REGISTRY {
 public:
  explicit RANDOM_REGISTRY(uint32_t seed) : Random(seed) { Model[""]; }

  void Step() {
    SCOPED_KEY key(OpenSome());
    if (key.Handle == nullptr) {
      return;
    }
    const std::string path = CurrentPath;
    const char* name = VALUE_NAMES[Random.Below(std::size(VALUE_NAMES))];
    const std::string modelName = ModelName(name, false);
    switch (Random.Below(10)) {
      case 0:
        EXPECT_EQ(SYS_REG_DeleteValue(key, name), Model[path].erase(modelName) != 0 ? SYS_REG_OK : SYS_REG_ERROR);
        break;
      case 1:
        Clear(key, path);
        break;
      case 2:
      case 3:
        ExpectValue(key, path, name);
        break;
      default:
        Store(key, path, name, modelName);
    }
  }

  // Compares everything, and goes through all the keys that there are.
  void Check() {
    for (const auto& [path, values] : Model) {
      const SCOPED_KEY key(SYS_REG_OpenKey(HKEY_CURRENT_USER, path.c_str()));
      ASSERT_NE(key.Handle, nullptr) << path;
      for (const char* name : VALUE_NAMES) {
        ExpectValue(key, path, name);
      }
      char acName[256];
      for (uint32_t i = 0; SYS_REG_EnumKey(key, i, acName, sizeof(acName)) == SYS_REG_OK; i++) {
        EXPECT_EQ(Model.count(Join(path, ModelName(acName, true))), 1u) << path << ' ' << acName;
      }
    }
  }

 private:
  static std::string Join(const std::string& path, const std::string& name) {
    return path.empty() ? name : path + '\\' + name;
  }

  // Opens or creates a key, often one that is missing, and notes its path.
  SYS_REG_HANDLE OpenSome() {
    std::string path;
    CurrentPath = "";
    std::vector<std::string> paths;
    for (uint32_t depth = Random.Below(4); depth > 0; depth--) {
      const char* name = KEY_NAMES[Random.Below(std::size(KEY_NAMES))];
      path = Join(path, name);
      CurrentPath = Join(CurrentPath, ModelName(name, true));
      paths.push_back(CurrentPath);
    }
    if (Random.OneIn(2)) {
      for (const std::string& created : paths) {
        Model[created];
      }
      return SYS_REG_CreateKey(HKEY_CURRENT_USER, path.c_str());
    }
    const SYS_REG_HANDLE key = SYS_REG_OpenKey(HKEY_CURRENT_USER, path.c_str());
    EXPECT_EQ(key != nullptr, Model.count(CurrentPath) != 0) << path;
    return key;
  }

  void ExpectValue(SYS_REG_HANDLE key, const std::string& path, const char* name) {
    const auto& values = Model[path];
    const auto found = values.find(ModelName(name, false));
    EXPECT_EQ(Query(key, name), found == values.end() ? QUERY({SYS_REG_NOT_FOUND, 0, ""}) : found->second)
        << path << ' ' << name;
  }

  void Clear(SYS_REG_HANDLE key, const std::string& path) {
    const char* name = KEY_NAMES[Random.Below(std::size(KEY_NAMES))];
    EXPECT_EQ(SYS_REG_ClearSubKey(key, name), SYS_REG_OK);
    // This name is read as that of a value: nothing stands for other characters.
    const auto found = Model.find(Join(path, ModelName(name, false)));
    if (found != Model.end()) {
      found->second.clear();
    }
  }

  std::string SomeText() {
    std::string text = Random.Bytes(Random.OneIn(10) ? 2000 : Random.Below(20));
    std::replace(text.begin(), text.end(), '\0', ' ');
    if (!Random.OneIn(10)) {
      std::replace(text.begin(), text.end(), '"', '\'');
    }
    return text;
  }

  void Store(SYS_REG_HANDLE key, const std::string& path, const char* name, const std::string& modelName) {
    static constexpr uint32_t aTypes[] = {1, 2, 4, 7, 11};
    const uint32_t type = aTypes[Random.Below(std::size(aTypes))];
    std::string data;
    std::string back;
    if (type == SYS_REG_TYPE_MULTI_SZ) {
      data = SomeText() + '\0';
      for (uint32_t n = Random.Below(5); n > 0; n--) {
        data += SomeText() + "x" + '\0';
      }
      back = data += '\0';
    } else if (type == SYS_REG_TYPE_DWORD || type == SYS_REG_TYPE_QWORD) {
      back = data = Random.Bytes(type == SYS_REG_TYPE_DWORD ? 4 : 8);
    } else {
      data = SomeText();
      back = data + '\0';
    }
    const bool isNumber = type == SYS_REG_TYPE_DWORD || type == SYS_REG_TYPE_QWORD;
    const bool isRefused = modelName == "bad.name" || (!isNumber && data.find('"') != std::string::npos);
    EXPECT_EQ(Set(key, name, type, data), isRefused ? SYS_REG_ERROR : SYS_REG_OK);
    if (!isRefused) {
      Model[path][modelName] = {SYS_REG_OK, type, back};
    }
  }

  RANDOM Random;
  MODEL Model;
  std::string CurrentPath;  // Of the key opened last, as in the model.
};

TEST(Registry, GivesBackWhatWasStored) {
#ifndef __APPLE__
  const SCOPED_FAULT noFlush({FAULT_CALL::FSYNC, 1, 0, UINT32_MAX, FAULT_KIND::SKIP});
#endif
  for (uint32_t seed = 1; seed <= 8; seed++) {
    SCOPED_TRACE(seed);
    const REGISTRY_HOME home;
    RANDOM_REGISTRY registry(seed);
    for (int round = 0; round < 10; round++) {
      {
        const SCOPED_KEY user(SYS_REG_OpenKey(HKEY_CURRENT_USER, ""));
        for (int i = 0; i < 100; i++) {
          registry.Step();
        }
        registry.Check();
      }
      const SCOPED_KEY user(SYS_REG_OpenKey(HKEY_CURRENT_USER, ""));
      registry.Check();
      EXPECT_EQ(home.Files(), "NORDAX_REG_HKEY_CURRENT_USER.xml ");
      if (HasFailure()) {
        return;
      }
    }
  }
}

}  // namespace
