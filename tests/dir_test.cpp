#include "sys/sys_dir.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <functional>
#include <map>
#include <set>
#include <thread>

#include "sys/sys_path.h"
#include "tests/sandbox.h"
#include "tests/support.h"

namespace {

// What the reading of directories is made to do; see readdir below.
bool hidesTypes;
int failsAfter = -1;  // Entries until reads fail; -1 for never.

}  // namespace

// Stands before the C library's: some file systems do not tell the types of their entries, and disks fail.
extern "C" dirent* readdir(DIR* pDir) {
  static const auto pfReal = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
  if (failsAfter == 0) {
    errno = EIO;
    return nullptr;
  }
  failsAfter -= failsAfter > 0;
  dirent* pItem = pfReal(pDir);
  if (pItem != nullptr && hidesTypes) {
    pItem->d_type = DT_UNKNOWN;
  }
  return pItem;
}

namespace {

// A directory with one of each kind.
class KINDS : public TEMP_DIR {
 public:
  KINDS() {
    AddFile("file", "12345");
    AddFile("readonly", "1", 0444);
    AddFile("group", "", 0460);
    AddFile("closed", "", 0);
    for (const auto& [name, mode] : std::map<const char*, mode_t>{{"dir", 0755}, {"readonlydir", 0555}}) {
      mkdir((*this / name).c_str(), mode);
    }
    mkfifo((*this / "fifo").c_str(), 0644);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (*this / "socket").copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    close(fd);
    for (const auto& [name, target] : std::map<const char*, const char*>{
             {"tofile", "file"}, {"todir", "dir"}, {"tofifo", "fifo"}, {"dangling", "nothing"}, {"loop", "loop"}}) {
      EXPECT_EQ(symlink(target, (*this / name).c_str()), 0);
    }
  }
};

TEST(Path, TellsWhatIsThere) {
  const KINDS dir;
  static constexpr struct {
    const char* Name;
    int32_t FileExists;
    int32_t DirExists;
    int32_t Attributes;
  } aCase[] = {
      {"file", 1, 0, 0},     {"readonly", 1, 0, 1}, {"group", 1, 0, 0},     {"dir", 0, 1, 16},
      {"dir/", 0, 1, 16},    {"tofile", 1, 0, 0},   {"todir", 0, 1, 16},    {"readonlydir", 0, 1, 17},
      {"fifo", 0, 0, -1},    {"tofifo", 0, 0, -1},  {"socket", 0, 0, -1},   {"/dev/null", 0, 0, -1},
      {"nothing", 0, 0, -1}, {"", 0, 1, 16},        {"dangling", 0, 0, -1}, {"file/", 0, 0, -1},
      {"file/x", 0, 0, -1},  {"loop", 0, 0, -1},    {"dir/..", 0, 1, 16},
  };
  for (const auto& test : aCase) {
    const std::string path = test.Name[0] == '/' ? test.Name : dir / test.Name;
    EXPECT_EQ(SYS_FILE_Exists(path.c_str()), test.FileExists) << path;
    EXPECT_EQ(SYS_DIR_Exists(path.c_str()), test.DirExists) << path;
    EXPECT_EQ(SYS_FILE_GetAttributes(path.c_str()), test.Attributes) << path;
  }
  EXPECT_EQ(SYS_FILE_GetAttributes((dir / "closed").c_str()), 1);
  EXPECT_EQ(SYS_FILE_GetAttributes(nullptr), 0);
  EXPECT_EQ(SYS_FILE_GetAttributes((dir / "nothing").c_str()), -1);
  EXPECT_EQ(SYS_GetLastError(), ENOENT);
}

TEST(Path, ExistsForThoseWhoMayReadIt) {
  const TEMP_DIR dir;
  const std::string file = dir.AddFile("closed", "", 0);
  const std::string closedDir = dir / "closeddir";
  mkdir(closedDir.c_str(), 0311);
  EXPECT_EQ(RunUnprivileged([&] {
              return SYS_FILE_Exists(file.c_str()) | SYS_DIR_Exists(closedDir.c_str()) << 1 |
                     SYS_DirOfPathExists((closedDir + "/x").c_str()) << 2 |
                     (SYS_FILE_GetAttributes(file.c_str()) == 1) << 3 |
                     (SYS_FILE_GetAttributes(closedDir.c_str()) == 16) << 4;
            }),
            0x18);
  chmod(closedDir.c_str(), 0755);
}

TEST(DirOfPathExists, OpensTheDirectoryPart) {
  const KINDS dir;
  for (const auto& [name, expected] : std::map<std::string, int32_t>{{"x", 1},
                                                                     {"dir/x", 1},
                                                                     {"dir/", 1},
                                                                     {"dir//x", 1},
                                                                     {"todir/x", 1},
                                                                     {"file/x", 1},
                                                                     {"fifo/x", 1},
                                                                     {"none/x", 0},
                                                                     {"dangling/x", 0},
                                                                     {std::string(5000, 'd') + "/x", 0}}) {
    EXPECT_EQ(SYS_DirOfPathExists((dir / name).c_str()), expected) << name;
  }
  for (const char* path : {"", "x", "/x", "/", "."}) {
    EXPECT_EQ(SYS_DirOfPathExists(path), 0) << path;
  }
  EXPECT_EQ(SYS_DirOfPathExists("./x"), 1);
}

TEST(Path, IsDeletedRenamedAndRemoved) {
  const KINDS dir;
  for (const char* name : {"file", "tofifo", "nothing", "dir", "loop"}) {
    EXPECT_EQ(SYS_FILE_Delete((dir / name).c_str()), 0);
  }
  EXPECT_EQ(SYS_FILE_Rename((dir / "readonly").c_str(), (dir / "group").c_str()), 0);
  EXPECT_EQ(SYS_FILE_Rename((dir / "nothing").c_str(), (dir / "group").c_str()), -1);
  EXPECT_EQ(SYS_GetLastError(), ENOENT);
  EXPECT_EQ(SYS_DIR_Remove((dir / "readonlydir").c_str()), 0);
  EXPECT_EQ(SYS_DIR_Remove(dir.Path.c_str()), -1);
  EXPECT_EQ(SYS_GetLastError(), ENOTEMPTY);
  EXPECT_EQ(SYS_DIR_Remove((dir / "group").c_str()), -1);
  EXPECT_EQ(dir.List(),
            (std::vector<std::string>{"closed", "dangling", "dir/", "fifo", "group", "socket", "todir", "tofile"}));
  EXPECT_EQ(ReadFile(dir / "group"), "1");
}

// The rule, one level after the other.
int32_t CreateModel(std::string path, int32_t depth) {
  if (depth < 1) {
    return -1;
  }
  if (path.size() > 1 && path.back() == '/') {
    path.pop_back();
  }
  struct stat status;
  if (stat(path.c_str(), &status) == 0) {
    return S_ISDIR(status.st_mode) ? 0 : -1;
  }
  if (errno != ENOENT || path.empty()) {
    return -1;
  }
  std::string parent = path.substr(0, path.rfind('/') + 1);
  if (parent.size() > 1) {
    parent.pop_back();
  }
  if (!parent.empty() && CreateModel(parent, depth - 1) < 0) {
    return -1;
  }
  return mkdir(path.c_str(), 0777);
}

TEST(CreatePath, CreatesWhatIsMissingAsDeepAsItMay) {
  RANDOM random(53);
  char acOldDir[4096];
  ASSERT_EQ(SYS_GetCwd(acOldDir, sizeof(acOldDir)), 0);
  for (int round = 0; round < 120; round++) {
    std::string relative;
    for (uint32_t i = random.Below(7); i > 0; i--) {
      static constexpr const char* NAMES[] = {"a", "b", "c", "file", "link", "dangling", "toodir"};
      relative += std::string(NAMES[random.OneIn(3) ? random.Below(7) : random.Below(3)]) + (i > 1 ? "/" : "");
    }
    const bool isAbsolute = random.OneIn(2);
    relative += random.OneIn(4) && !relative.empty() ? "/" : "";
    const auto depth = static_cast<int32_t>(random.Below(9)) - 1;
    TEMP_DIR aDir[2];
    int32_t aResult[2];
    for (int i = 0; i < 2; i++) {
      aDir[i].AddFile("file");
      std::filesystem::create_directories(aDir[i] / "a/b");
      ASSERT_EQ(symlink("a", (aDir[i] / "link").c_str()), 0);
      ASSERT_EQ(symlink("nothing", (aDir[i] / "dangling").c_str()), 0);
      ASSERT_EQ(SYS_SetCwd(aDir[i].Path.c_str()), 0);
      const std::string path = isAbsolute ? aDir[i] / relative : relative;
      aResult[i] = i == 0 ? CreateModel(path, depth) : SYS_DIR_CreatePathDepth(path.c_str(), depth);
    }
    ASSERT_EQ(aResult[0], aResult[1]) << relative << ", depth " << depth;
    ASSERT_EQ(aDir[0].List(), aDir[1].List()) << relative << ", depth " << depth;
    ASSERT_EQ(SYS_SetCwd(acOldDir), 0);
  }
  EXPECT_EQ(SYS_SetCwd((std::string(acOldDir) + "/nothing").c_str()), -1);
}

TEST(CreatePath, TakesUntidyPaths) {
  const TEMP_DIR dir;
  for (const char* path : {"a//b", "c///", "d/./e", "f/../g", "h//i///j//", "k/."}) {
    EXPECT_EQ(SYS_DIR_CreatePath((dir / path).c_str()), 0) << path;
    EXPECT_EQ(SYS_DIR_Exists((dir / path).c_str()), 1) << path;
  }
  EXPECT_EQ(SYS_DIR_CreatePath("/"), 0);
  EXPECT_EQ(SYS_DIR_CreatePath("//"), 0);
  EXPECT_EQ(SYS_DIR_CreatePath("."), 0);
  EXPECT_EQ(SYS_DIR_CreatePath(""), -1);
  EXPECT_EQ(SYS_DIR_CreatePath(nullptr), -1);
  EXPECT_EQ(SYS_DIR_CreatePathDepth(dir.Path.c_str(), 0), -1);
  EXPECT_EQ(SYS_DIR_CreatePathDepth(dir.Path.c_str(), INT32_MIN), -1);
}

TEST(CreatePath, HasLimitsButCutsNoName) {
  const TEMP_DIR dir;
  std::string deep = dir.Path;
  for (int i = 0; i < 127; i++) {
    deep += "/d";
  }
  EXPECT_EQ(SYS_DIR_CreatePath((deep + "/x").c_str()), -1) << "128 levels and the one that exists";
  EXPECT_TRUE(dir.List().empty());
  EXPECT_EQ(SYS_DIR_CreatePath(deep.c_str()), 0);
  EXPECT_EQ(dir.List().size(), 127u);
  const std::string longParent = dir / std::string(250, 'a') + '/' + std::string(250, 'b') + "/cccccccccccccccccc";
  EXPECT_EQ(SYS_DIR_CreatePath((longParent + "/x").c_str()), -1);
  EXPECT_EQ(dir.List().size(), 127u);
  std::filesystem::create_directories(longParent);
  EXPECT_EQ(SYS_DIR_CreatePath((longParent + "/x").c_str()), 0);
  EXPECT_EQ(SYS_DIR_CreatePath((longParent + "/x").c_str()), 0);
  EXPECT_EQ(dir.List().size(), 131u);
}

TEST(CreatePath, LetsTheMaskDecideAndOthersCreateToo) {
  const TEMP_DIR dir;
  const mode_t oldMask = umask(0027);
  EXPECT_EQ(SYS_DIR_CreatePath((dir / "mask").c_str()), 0);
  umask(oldMask);
  struct stat status;
  ASSERT_EQ(stat((dir / "mask").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0750u);
  for (int round = 0; round < 15; round++) {
    const std::string path = dir / std::to_string(round) + "/a/b/c/d/e";
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) {
      threads.emplace_back([&path] { EXPECT_EQ(SYS_DIR_CreatePath(path.c_str()), 0); });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
}

// Entries as a listing reports them, by name, and what is done with each.
struct LISTER {
  int32_t List(const std::string& path) {
    Entries.clear();
    pDir = path.c_str();
    return SYS_DIR_List(pDir, this, [](const SYS_DIR_ENTRY* pEntry, void* pContext) {
      auto* pSelf = static_cast<LISTER*>(pContext);
      EXPECT_EQ(pEntry->pDir, pSelf->pDir);
      EXPECT_TRUE(pSelf->Entries.emplace(pEntry->pName, *pEntry).second) << pEntry->pName;
      if (pSelf->OnEntry) {
        pSelf->OnEntry(pEntry->pName);
      }
      errno = EIO;
      return -1;
    });
  }

  std::set<std::string> Names() const {
    std::set<std::string> names;
    for (const auto& [name, entry] : Entries) {
      names.insert(name);
    }
    return names;
  }

  const char* pDir;
  std::map<std::string, SYS_DIR_ENTRY> Entries;
  std::function<void(const std::string&)> OnEntry;
};

TEST(List, ReportsFilesAndDirectoriesWithOrWithoutTypesFromTheFileSystem) {
  const KINDS dir;
  const SCOPED_ENV zone("TZ", "AAA-5:30");
  const timespec times[] = {{0, 0}, {1785542399, 999999999}};
  ASSERT_EQ(utimensat(AT_FDCWD, (dir / "file").c_str(), times, 0), 0);
  for (hidesTypes = false;; hidesTypes = true) {
    for (const std::string& path : {dir.Path, dir.Path + '/'}) {
      LISTER lister;
      EXPECT_EQ(lister.List(path), 6);
      EXPECT_EQ(lister.Names(), (std::set<std::string>{"closed", "dir", "file", "group", "readonly", "readonlydir"}));
      EXPECT_EQ(SYS_DIR_List(path.c_str(), nullptr, nullptr), 6);
      for (const auto& [name, entry] : lister.Entries) {
        EXPECT_EQ(entry.Attributes, SYS_FILE_GetAttributes((dir / name).c_str())) << name;
      }
      const SYS_DIR_ENTRY& file = lister.Entries["file"];
      EXPECT_EQ(file.Size, 5u);
      const uint16_t aTime[] = {2026, 8, 1, 5, 29, 59, 0};
      EXPECT_EQ(memcmp(&file.Time, aTime, sizeof(aTime)), 0);
    }
    if (hidesTypes) {
      break;
    }
  }
  hidesTypes = false;
  EXPECT_EQ(SYS_DIR_List((dir / "dir").c_str(), nullptr, nullptr), 0);
  for (const char* name : {"nothing", "file", "dangling"}) {
    EXPECT_EQ(SYS_DIR_List((dir / name).c_str(), nullptr, nullptr), -1);
  }
  EXPECT_EQ(SYS_GetLastError(), ENOENT);
}

TEST(List, LetsTheCallbackDoAsItLikes) {
  const TEMP_DIR dir;
  std::set<std::string> names;
  // More than the C library reads at a time.
  const int numFiles = 700;
  for (int i = 0; i < numFiles; i++) {
    const std::string name = std::string(50, 'n') + std::to_string(i);
    names.insert(name);
    dir.AddFile(name);
  }
  char acOldDir[4096];
  ASSERT_EQ(SYS_GetCwd(acOldDir, sizeof(acOldDir)), 0);
  ASSERT_EQ(SYS_SetCwd(dir.Path.c_str()), 0);
  LISTER lister;
  lister.OnEntry = [&](const std::string& name) {
    if (name.ends_with('0')) {
      EXPECT_EQ(SYS_DIR_List(dir.Path.c_str(), nullptr, nullptr), numFiles);
    }
    SYS_SetCwd("/");  // The relative path of the listing leads elsewhere from now on.
  };
  EXPECT_EQ(lister.List("."), numFiles);
  EXPECT_EQ(lister.Names(), names);
  ASSERT_EQ(SYS_SetCwd(acOldDir), 0);
  // Whatever has been read ahead, the entries that are gone are left out.
  lister.OnEntry = [&](const std::string& name) {
    for (const std::string& other : names) {
      if (other != name) {
        unlink((dir / other).c_str());
      }
    }
    names = {name};
  };
  EXPECT_EQ(lister.List(dir.Path), 1);
  EXPECT_EQ(lister.Names(), names);
}

TEST(List, FailsWhenTheDirectoryCannotBeReadToItsEnd) {
  const KINDS dir;
  const int numEntries = 13 + 2;
  for (int i = 0; i <= numEntries; i++) {
    failsAfter = i;
    EXPECT_EQ(SYS_DIR_List(dir.Path.c_str(), nullptr, nullptr), -1);
    EXPECT_EQ(SYS_GetLastError(), EIO);
  }
  failsAfter = numEntries + 1;
  EXPECT_EQ(SYS_DIR_List(dir.Path.c_str(), nullptr, nullptr), 6);
  failsAfter = -1;
}

TEST(List, LeavesOutEntriesWithTooLongPaths) {
  const TEMP_DIR dir;
  const std::string middle = dir / std::string(150, 'a') + '/' + std::string(150, 'b') + '/';
  const std::string path = middle + std::string(500 - middle.size(), 'c');
  std::filesystem::create_directories(path);
  for (size_t length : {9, 10, 11, 200}) {
    std::ofstream(path + '/' + std::string(length, 'f'));
  }
  for (const std::string& name : {path, path + '/'}) {
    LISTER lister;
    EXPECT_EQ(lister.List(name), 2);
    EXPECT_EQ(lister.Names(), (std::set<std::string>{std::string(9, 'f'), std::string(10, 'f')}));
    EXPECT_EQ(SYS_DIR_List(name.c_str(), nullptr, nullptr), 4);
  }
  for (size_t numSlashes : {10, 11, 12, 600}) {
    LISTER lister;
    EXPECT_EQ(lister.List(path + std::string(numSlashes, '/')), 0);
  }
}

TEST(GetCwd, FitsWholeOrFails) {
  const TEMP_DIR dir;
  char acOldDir[4096];
  ASSERT_EQ(SYS_GetCwd(acOldDir, sizeof(acOldDir)), 0);
  ASSERT_EQ(SYS_SetCwd(dir.Path.c_str()), 0);
  GUARDED_BLOCK block;
  for (uint32_t size = 0; size < dir.Path.size() + 3; size++) {
    char* pBuffer = block.Take(size);
    const bool fits = size > dir.Path.size();
    EXPECT_EQ(SYS_GetCwd(pBuffer, size), fits ? 0 : -1);
    EXPECT_TRUE(size == 0 || pBuffer == (fits ? dir.Path : "")) << size;
    EXPECT_TRUE(block.IsIntact());
  }
  SYS_DIR_Remove(dir.Path.c_str());
  EXPECT_EQ(SYS_GetCwd(block.Take(512), 512), -1);
  EXPECT_EQ(SYS_GetLastError(), ENOENT);
  ASSERT_EQ(SYS_SetCwd(acOldDir), 0);
}

}  // namespace
