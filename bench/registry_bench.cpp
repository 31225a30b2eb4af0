// The registry beside two ways to keep settings: GLib's key files and an SQLite table. Each holds values in groups of
// ten. One session opens the store, changes a value, reads one and closes, with all the same promises about what a loss
// of power leaves: GKeyFile is written with g_file_set_contents_full, consistent and durable, SQLite runs with
// synchronous=FULL. On a disk the flushes are nearly all of it; the same in memory, where there is such a file system,
// shows what the rest costs. Opening alone, and single values of an open store, follow.

#include <benchmark/benchmark.h>
#include <glib.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <string.h>

#include <filesystem>
#include <memory>
#include <string>

#include "xml/registry.h"

namespace {

constexpr int VALUES_PER_GROUP = 10;
constexpr const char TEXT[] = "/home/user/projects/firmware/build/image.hex";

std::string GroupOf(int64_t index) {
  return "Group" + std::to_string(index / VALUES_PER_GROUP);
}

std::string NameOf(int64_t index) {
  return "Value" + std::to_string(index % VALUES_PER_GROUP);
}

// A directory on the disk or in memory, which is also the home.
class PLACE {
 public:
  explicit PLACE(bool isMemory) {
    Path = (isMemory ? "/dev/shm" : std::filesystem::temp_directory_path().string()) + "/registry_bench.XXXXXX";
    Path = mkdtemp(Path.data());
    setenv("HOME", Path.c_str(), 1);
  }
  ~PLACE() { std::filesystem::remove_all(Path); }
  PLACE(const PLACE&) = delete;
  PLACE& operator=(const PLACE&) = delete;

  std::string Path;
};

// Each store: opens itself, sets and gets a value as often as wanted, and closes itself for good.
class REGISTRY {
 public:
  explicit REGISTRY(const PLACE&) : Root(SYS_REG_CreateKey(HKEY_CURRENT_USER, "Software\\Bench")) {}
  ~REGISTRY() { SYS_REG_CloseKey(Root); }
  REGISTRY(const REGISTRY&) = delete;
  REGISTRY& operator=(const REGISTRY&) = delete;

  void Set(const std::string& group, const std::string& name, const std::string& text) {
    const SYS_REG_HANDLE key = SYS_REG_CreateKey(Root, group.c_str());
    SYS_REG_SetValue(key, name.c_str(), SYS_REG_TYPE_SZ, text.c_str(), 0);
    SYS_REG_CloseKey(key);
  }

  size_t Get(const std::string& group, const std::string& name) {
    const SYS_REG_HANDLE key = SYS_REG_OpenKey(Root, group.c_str());
    char acText[256];
    uint32_t size = sizeof(acText);
    SYS_REG_QueryValue(key, name.c_str(), nullptr, acText, &size);
    SYS_REG_CloseKey(key);
    return size;
  }

 private:
  const SYS_REG_HANDLE Root;
};

class KEY_FILE {
 public:
  explicit KEY_FILE(const PLACE& place) : Path(place.Path + "/bench.ini"), pFile(g_key_file_new()) {
    g_key_file_load_from_file(pFile, Path.c_str(), G_KEY_FILE_NONE, nullptr);
  }
  ~KEY_FILE() {
    if (IsChanged) {
      gsize length = 0;
      char* pText = g_key_file_to_data(pFile, &length, nullptr);
      constexpr int FLAGS = G_FILE_SET_CONTENTS_CONSISTENT | G_FILE_SET_CONTENTS_DURABLE;
      g_file_set_contents_full(Path.c_str(), pText, static_cast<gssize>(length),
                               static_cast<GFileSetContentsFlags>(FLAGS), 0644, nullptr);
      g_free(pText);
    }
    g_key_file_free(pFile);
  }
  KEY_FILE(const KEY_FILE&) = delete;
  KEY_FILE& operator=(const KEY_FILE&) = delete;

  void Set(const std::string& group, const std::string& name, const std::string& text) {
    g_key_file_set_string(pFile, group.c_str(), name.c_str(), text.c_str());
    IsChanged = true;
  }

  size_t Get(const std::string& group, const std::string& name) {
    char* pText = g_key_file_get_string(pFile, group.c_str(), name.c_str(), nullptr);
    const size_t length = strlen(pText);
    g_free(pText);
    return length;
  }

 private:
  const std::string Path;
  GKeyFile* const pFile;
  bool IsChanged = false;
};

class DATABASE {
 public:
  explicit DATABASE(const PLACE& place) {
    sqlite3_open((place.Path + "/bench.db").c_str(), &pBase);
    Run("PRAGMA synchronous=FULL");
    Run("CREATE TABLE IF NOT EXISTS v(g TEXT, n TEXT, t TEXT, PRIMARY KEY(g, n)) WITHOUT ROWID");
    sqlite3_prepare_v2(pBase, "INSERT OR REPLACE INTO v VALUES(?, ?, ?)", -1, &pSet, nullptr);
    sqlite3_prepare_v2(pBase, "SELECT t FROM v WHERE g = ? AND n = ?", -1, &pGet, nullptr);
    Run("BEGIN");
  }
  ~DATABASE() {
    Run("COMMIT");
    sqlite3_finalize(pSet);
    sqlite3_finalize(pGet);
    sqlite3_close(pBase);
  }
  DATABASE(const DATABASE&) = delete;
  DATABASE& operator=(const DATABASE&) = delete;

  void Set(const std::string& group, const std::string& name, const std::string& text) {
    Bind(pSet, 1, group);
    Bind(pSet, 2, name);
    Bind(pSet, 3, text);
    sqlite3_step(pSet);
    sqlite3_reset(pSet);
  }

  size_t Get(const std::string& group, const std::string& name) {
    Bind(pGet, 1, group);
    Bind(pGet, 2, name);
    sqlite3_step(pGet);
    const auto size = static_cast<size_t>(sqlite3_column_bytes(pGet, 0));
    sqlite3_reset(pGet);
    return size;
  }

 private:
  void Run(const char* command) { sqlite3_exec(pBase, command, nullptr, nullptr, nullptr); }

  static void Bind(sqlite3_stmt* pStatement, int index, const std::string& text) {
    sqlite3_bind_text(pStatement, index, text.c_str(), static_cast<int>(text.size()), nullptr);
  }

  sqlite3* pBase = nullptr;
  sqlite3_stmt* pSet = nullptr;
  sqlite3_stmt* pGet = nullptr;
};

template <typename STORE>
void Fill(const PLACE& place, int64_t numValues) {
  STORE store(place);
  for (int64_t i = 0; i < numValues; i++) {
    store.Set(GroupOf(i), NameOf(i), TEXT);
  }
}

// Arguments: number of values, whether in memory.
template <typename STORE>
void Session(benchmark::State& state) {
  const bool isMemory = state.range(1) != 0;
  if (isMemory && !std::filesystem::is_directory("/dev/shm")) {
    state.SkipWithError("no file system in memory");
    return;
  }
  const PLACE place(isMemory);
  Fill<STORE>(place, state.range(0));
  int64_t count = 0;
  for (auto _ : state) {
    STORE store(place);
    const int64_t index = count++ * 7 % state.range(0);
    store.Set(GroupOf(index), NameOf(index), TEXT + std::to_string(count));
    benchmark::DoNotOptimize(store.Get(GroupOf(index / 2), NameOf(index / 2)));
  }
}

template <typename STORE>
void Open(benchmark::State& state) {
  const PLACE place(false);
  Fill<STORE>(place, state.range(0));
  for (auto _ : state) {
    STORE store(place);
    benchmark::DoNotOptimize(store.Get(GroupOf(0), NameOf(0)));
  }
}

// Works on the values of an open store, one a round, in steps of seven. The work also gets the number of the round.
template <typename STORE, typename WORK>
void OnOpenStore(benchmark::State& state, WORK work) {
  const PLACE place(false);
  Fill<STORE>(place, state.range(0));
  STORE store(place);
  int64_t count = 0;
  for (auto _ : state) {
    const int64_t index = count++ * 7 % state.range(0);
    work(store, GroupOf(index), NameOf(index), count);
  }
}

template <typename STORE>
void Get(benchmark::State& state) {
  OnOpenStore<STORE>(state, [](STORE& store, const std::string& group, const std::string& name, int64_t) {
    benchmark::DoNotOptimize(store.Get(group, name));
  });
}

template <typename STORE>
void Set(benchmark::State& state) {
  OnOpenStore<STORE>(state, [](STORE& store, const std::string& group, const std::string& name, int64_t count) {
    store.Set(group, name, count % 2 != 0 ? "one" : "two");
  });
}

#define BENCH_ALL(what, ...)                      \
  BENCHMARK_TEMPLATE(what, REGISTRY) __VA_ARGS__; \
  BENCHMARK_TEMPLATE(what, KEY_FILE) __VA_ARGS__; \
  BENCHMARK_TEMPLATE(what, DATABASE) __VA_ARGS__

BENCH_ALL(Session, ->ArgsProduct({{10, 1000, 5000}, {0, 1}})->UseRealTime()->Unit(benchmark::kMicrosecond));
BENCH_ALL(Open, ->Arg(10)->Arg(1000)->Arg(5000)->UseRealTime()->Unit(benchmark::kMicrosecond));
BENCH_ALL(Get, ->Arg(10)->Arg(1000)->Arg(5000));
BENCH_ALL(Set, ->Arg(10)->Arg(1000)->Arg(5000));

}  // namespace

BENCHMARK_MAIN();
