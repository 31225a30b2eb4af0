// The registry on any hive file: what was stored is there until it is removed, also in the file that is written, and
// that file reads back as it is. The input is the text of a hive up to a zero byte, and operations: one byte for what,
// and for the type of a value, then texts for the key, the name and the data, each up to a zero byte.

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <utility>

#include "fuzz/input.h"
#include "util/scan.h"
#include "xml/hive.h"
#include "xml/registry.h"

namespace {

struct STORED {
  uint32_t Type;
  std::string Data;
};

// By the path of the key and the name, both in lower case; without data for what must not be there.
using MODEL = std::map<std::pair<std::string, std::string>, STORED>;

constexpr uint32_t MISSING = 0;

// In memory where the system has that: every input is written and flushed.
class HOME {
 public:
  HOME() {
    std::error_code ignored;
    const bool hasMemory = std::filesystem::is_directory("/dev/shm", ignored);
    Path = (hasMemory ? "/dev/shm" : std::filesystem::temp_directory_path().string()) + "/registry_fuzz.XXXXXX";
    FUZZ_EXPECT(mkdtemp(Path.data()) != nullptr);
    setenv("HOME", Path.c_str(), 1);
    HiveDir = Path + "/Library/Application Support/NORDAX";
    HivePath = HiveDir + "/NORDAX_REG_HKEY_CURRENT_USER.xml";
    std::filesystem::create_directories(HiveDir);
  }
  ~HOME() {
    std::error_code ignored;
    std::filesystem::remove_all(Path, ignored);
  }

  std::string Read() const {
    std::ifstream file(HivePath, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::string Path;
  std::string HiveDir;
  std::string HivePath;
};

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c); });
  return text;
}

std::string PathOf(SYS_REG_HANDLE key) {
  std::string path;
  for (const XML_ELEMENT* pElement = key->pElement; pElement->pParent != nullptr; pElement = pElement->pParent) {
    path.insert(0, '/' + Lower(pElement->pName));
  }
  return path;
}

// The name of a value as it is read out of a text.
std::string NameOf(const std::string& text) {
  std::string name;
  const char* p = text.c_str();
  for (UTIL_SkipWhiteSpace(&p); *p != '\0'; UTIL_SkipWhiteSpace(&p)) {
    char acWord[512];
    UTIL_ParseString(&p, acWord, sizeof(acWord));
    name += acWord;
  }
  return Lower(name.substr(0, 511));
}

// What a query gives for data that were stored.
std::string AsRead(uint32_t type, std::string data) {
  if (type == SYS_REG_TYPE_DWORD || type == SYS_REG_TYPE_QWORD) {
    data.resize(type == SYS_REG_TYPE_DWORD ? 4 : 8);
  } else if (type != SYS_REG_TYPE_MULTI_SZ) {
    data = std::string(data.c_str()) + '\0';
  }
  return data;
}

void ExpectValue(SYS_REG_HANDLE key, const std::string& name, const STORED& stored) {
  uint32_t type = MISSING;
  const uint32_t result = SYS_REG_QueryValue(key, name.c_str(), &type, nullptr, nullptr);
  FUZZ_EXPECT(result == (stored.Type == MISSING ? SYS_REG_NOT_FOUND : SYS_REG_OK) && type == stored.Type);
  auto size = static_cast<uint32_t>(stored.Data.size());
  std::vector<char> data(size);
  FUZZ_EXPECT(size == 0 || (SYS_REG_QueryValue(key, name.c_str(), nullptr, data.data(), &size) == SYS_REG_OK &&
                            std::string(data.data(), size) == stored.Data));
}

// Several texts are given with '|' for the terminators, since a zero byte ends each text of the input.
void Store(FUZZ_INPUT& input, SYS_REG_HANDLE key, const std::string& name, MODEL& model) {
  static constexpr uint32_t TYPES[] = {SYS_REG_TYPE_SZ,    SYS_REG_TYPE_EXPAND_SZ, SYS_REG_TYPE_BINARY,
                                       SYS_REG_TYPE_DWORD, SYS_REG_TYPE_MULTI_SZ,  SYS_REG_TYPE_QWORD};
  const uint32_t type = TYPES[input.Take<uint8_t>() % std::size(TYPES)];
  std::string data = input.TakeText(1000);
  if (type == SYS_REG_TYPE_MULTI_SZ) {
    std::replace(data.begin(), data.end(), '|', '\0');
  }
  const std::vector<char> block(data.c_str(), data.c_str() + data.size() + 1);
  const uint32_t result = SYS_REG_SetValue(key, name.c_str(), type, block.data(), static_cast<uint32_t>(data.size()));
  const std::string modelName = NameOf(name);
  if (result == SYS_REG_OK && !modelName.empty()) {
    const STORED stored = {type, AsRead(type, data)};
    ExpectValue(key, name, stored);
    model[{PathOf(key), modelName}] = stored;
  }
}

void Operate(FUZZ_INPUT& input, MODEL& model) {
  const auto what = input.Take<uint8_t>();
  FUZZ_TEXT path(input.TakeText(1000));
  const std::string name = input.TakeText(1000);
  const SYS_REG_HANDLE key = (what & 0x80) != 0 ? SYS_REG_OpenKey(HKEY_CURRENT_USER, path.Get())
                                                : SYS_REG_CreateKey(HKEY_CURRENT_USER, path.Get());
  if (key == nullptr) {
    return;
  }
  const std::string modelPath = PathOf(key);
  const std::string modelName = NameOf(name);
  switch (what % 6) {
    case 0: {
      const bool isDeleted = SYS_REG_DeleteValue(key, name.c_str()) == SYS_REG_OK;
      const auto known = model.find({modelPath, modelName});
      FUZZ_EXPECT(isDeleted || known == model.end() || known->second.Type == MISSING);
      if (isDeleted && !modelName.empty()) {
        model[{modelPath, modelName}] = {MISSING, ""};
      }
      break;
    }
    case 1:
      if (SYS_REG_ClearSubKey(key, name.c_str()) == SYS_REG_OK) {
        for (auto& [where, stored] : model) {
          if (where.first == modelPath + '/' + modelName) {
            stored = {MISSING, ""};
          }
        }
      }
      break;
    case 2: {
      char acName[8];
      SYS_REG_EnumKey(key, what >> 3, acName, sizeof(acName));
      break;
    }
    default:
      Store(input, key, name, model);
  }
  SYS_REG_CloseKey(key);
}

void ExpectAll(const MODEL& model) {
  for (const auto& [where, stored] : model) {
    std::string path = where.first.substr(std::min<size_t>(where.first.size(), 1));
    std::replace(path.begin(), path.end(), '/', '\\');
    const SYS_REG_HANDLE key = SYS_REG_OpenKey(HKEY_CURRENT_USER, path.c_str());
    FUZZ_EXPECT(key != nullptr);
    ExpectValue(key, where.second, stored);
    SYS_REG_CloseKey(key);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t numBytes) {
  static const HOME home;
  FUZZ_INPUT input(pData, numBytes);
  const std::string text = input.TakeText(SIZE_MAX);
  std::ofstream(home.HivePath, std::ios::binary) << text;

  MODEL model;
  const SYS_REG_HANDLE user = SYS_REG_OpenKey(HKEY_CURRENT_USER, "");
  FUZZ_EXPECT(user != nullptr);
  while (!input.IsEmpty()) {
    Operate(input, model);
  }
  ExpectAll(model);
  SYS_REG_CloseKey(user);

  const std::string written = home.Read();
  XML_ELEMENT* pRoot;
  SYS_REG_HIVE* pHive;
  FUZZ_EXPECT(SYS_REG_GetHive(HKEY_CURRENT_USER, &pRoot, &pHive) >= 0);
  FUZZ_EXPECT(written == text || std::string(pHive->pSnapshot, pHive->SnapshotLen) == written);
  ExpectAll(model);
  SYS_REG_SaveAll();
  FUZZ_EXPECT(home.Read() == written);
  for (const auto& entry : std::filesystem::directory_iterator(home.HiveDir)) {
    FUZZ_EXPECT(entry.path() == home.HivePath || (entry.path() == home.HivePath + ".bad" && written != text));
    unlink(entry.path().c_str());
  }
  return 0;
}
