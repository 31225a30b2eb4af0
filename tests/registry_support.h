#ifndef TESTS_REGISTRY_SUPPORT_H
#define TESTS_REGISTRY_SUPPORT_H

// A home for the registry, and what its tests read from there.

#include <filesystem>
#include <numeric>
#include <set>
#include <string>

#include "tests/sandbox.h"
#include "xml/hive.h"
#include "xml/registry.h"

// An empty home directory, as long as the object lives. Hives that are loaded at its end are written back and unloaded.
class REGISTRY_HOME {
 public:
  REGISTRY_HOME() : Env("HOME", Dir.Path.c_str()) {}
  ~REGISTRY_HOME() { SYS_REG_SaveAll(); }
  REGISTRY_HOME(const REGISTRY_HOME&) = delete;
  REGISTRY_HOME& operator=(const REGISTRY_HOME&) = delete;

  std::string HiveDir() const { return Dir / "Library/Application Support/NORDAX"; }
  std::string HivePath(const std::string& root = "CURRENT_USER") const {
    return HiveDir() + "/NORDAX_REG_HKEY_" + root + ".xml";
  }
  std::string Text() const { return ReadFile(HivePath()); }

  // Makes a text the file of the current user's hive, which must not be loaded.
  void Write(const std::string& text) const {
    std::filesystem::create_directories(HiveDir());
    std::ofstream(HivePath(), std::ios::binary) << text;
  }

  // Names of the files in the hives' directory, in order, each followed by a blank.
  std::string Files() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(HiveDir())) {
      names.insert(entry.path().filename().string() + ' ');
    }
    return std::accumulate(names.begin(), names.end(), std::string());
  }

  const TEMP_DIR Dir;

 private:
  const SCOPED_ENV Env;
};

inline constexpr char DECLARATION[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n";

// The text of a hive whose root holds one empty element.
inline std::string HiveWith(const std::string& element) {
  return DECLARATION + ("<Registry>\r\n  <" + element) + "/>\r\n</Registry>\r\n";
}

// Opens or creates a key of the current user, stores a text and closes the key. Returns whether all of it succeeded.
inline bool StoreText(const char* key, const char* name, const std::string& text) {
  const SYS_REG_HANDLE handle = SYS_REG_CreateKey(HKEY_CURRENT_USER, key);
  const bool isStored = handle != nullptr && SYS_REG_SetValue(handle, name, SYS_REG_TYPE_SZ, text.c_str(), 0) == 0;
  SYS_REG_CloseKey(handle);
  return isStored;
}

#endif
