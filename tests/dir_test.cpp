#include "sys/sys_dir.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>

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
    AddFile(".file", "12345");
    AddFile("readonly", "1", 0444);
    AddFile("..group", "", 0460);
    mkdir((*this / "dir").c_str(), 0755);
    mkdir((*this / "readonlydir").c_str(), 0555);
    mkfifo((*this / "fifo").c_str(), 0644);
    for (const auto& [name, target] : {std::pair{"tofile", ".file"}, {"todir", "dir"}, {"dangling", "nothing"}}) {
      EXPECT_EQ(symlink(target, (*this / name).c_str()), 0);
    }
  }
};

int NextFd() {
  const int fd = dup(0);
  close(fd);
  return fd;
}

TEST(Path, TellsWhatIsThereAndRemovesIt) {
  const KINDS dir;
  static constexpr struct {
    const char* Name;
    int32_t FileExists;
    int32_t DirExists;
    int32_t Attributes;
    int32_t DirOfPathExists;  // With a name behind it.
  } aCase[] = {
      {".file", 1, 0, 0, 1},        {"readonly", 1, 0, 1, 1}, {"..group", 1, 0, 0, 1},
      {"tofile", 1, 0, 0, 1},       {"dir", 0, 1, 16, 1},     {"todir", 0, 1, 16, 1},
      {"readonlydir", 0, 1, 17, 1}, {"fifo", 0, 0, -1, 1},    {"dangling", 0, 0, -1, 0},
  };
  const int nextFd = NextFd();
  for (const auto& test : aCase) {
    const std::string path = dir / test.Name;
    EXPECT_EQ(SYS_FILE_Exists(path.c_str()), test.FileExists) << path;
    EXPECT_EQ(SYS_DIR_Exists(path.c_str()), test.DirExists) << path;
    EXPECT_EQ(SYS_FILE_GetAttributes(path.c_str()), test.Attributes) << path;
    EXPECT_EQ(SYS_DirOfPathExists((path + "/x").c_str()), test.DirOfPathExists) << path;
  }
  EXPECT_EQ(NextFd(), nextFd);
  EXPECT_EQ(SYS_FILE_GetAttributes(nullptr), 0);
  for (const std::string& path : {std::string("x"), std::string("/x"), std::string(5000, 'd') + "/x"}) {
    EXPECT_EQ(SYS_DirOfPathExists(path.c_str()), 0);
  }
  chmod((dir / "readonly").c_str(), 0);
  chmod((dir / "dir").c_str(), 0311);
  EXPECT_EQ(RunUnprivileged([&] {
              return SYS_FILE_Exists((dir / "readonly").c_str()) + SYS_DIR_Exists((dir / "dir").c_str()) +
                     SYS_DirOfPathExists((dir / "dir/x").c_str());
            }),
            0);
  chmod((dir / "dir").c_str(), 0755);
  EXPECT_EQ(SYS_FILE_Delete((dir / "nothing").c_str()), 0);
  EXPECT_EQ(SYS_FILE_Delete((dir / "tofile").c_str()), 0);
  EXPECT_EQ(SYS_FILE_Rename((dir / "readonly").c_str(), (dir / ".file").c_str()), 0);
  EXPECT_EQ(SYS_FILE_Rename((dir / "readonly").c_str(), (dir / ".file").c_str()), -1);
  EXPECT_EQ(SYS_GetLastError(), ENOENT);
  EXPECT_EQ(SYS_DIR_Remove((dir / "readonlydir").c_str()), 0);
  EXPECT_EQ(SYS_DIR_Remove(dir.Path.c_str()), -1);
  EXPECT_EQ(dir.List(), (std::vector<std::string>{"..group", ".file", "dangling", "dir/", "fifo", "todir"}));
}

TEST(CreatePath, CreatesWhatIsMissingAsDeepAsItMayAndCutsNoName) {
  const std::string name(250, 'n');
  std::string deep = "d";
  for (int i = 1; i < 127; i++) {
    deep += "/d";
  }
  const struct {
    std::string Path;
    int32_t Depth;  // The directory that exists counts too.
    int32_t Result;
    size_t NumCreated;
  } aCase[] = {
      {"a/b/c", 4, 0, 3},     {"a/b/c", 3, -1, 0},      {"link/b/c/", 3, 0, 2},
      {"there", 1, 0, 0},     {"there", 0, -1, 0},      {"there/", -1, -1, 0},
      {"file", 9, -1, 0},     {"file/b", 9, -1, 0},     {"a/file/b", 9, 0, 3},
      {"dangling", 9, -1, 0}, {"dangling/b", 9, -1, 0}, {"there/a//b///", 9, 0, 2},
      {deep, 128, 0, 127},    {deep + "/d", 0, -1, 0},  {name + '/' + name + "/ccccccccccccccc/x", 9, -1, 0},
  };
  for (const auto& test : aCase) {
    const TEMP_DIR dir;
    mkdir((dir / "there").c_str(), 0755);
    dir.AddFile("file");
    ASSERT_EQ(symlink("there", (dir / "link").c_str()), 0);
    ASSERT_EQ(symlink("nothing", (dir / "dangling").c_str()), 0);
    const std::string path = dir / test.Path;
    EXPECT_EQ(
        test.Path.size() > 250 ? SYS_DIR_CreatePath(path.c_str()) : SYS_DIR_CreatePathDepth(path.c_str(), test.Depth),
        test.Result)
        << test.Path;
    EXPECT_EQ(dir.List().size(), 4 + test.NumCreated) << test.Path;
  }
  for (const auto& [path, result] :
       {std::pair{"/", 0}, {"//", 0}, {".", 0}, {"", -1}, {static_cast<const char*>(nullptr), -1}}) {
    EXPECT_EQ(SYS_DIR_CreatePath(path), result);
  }
}

TEST(CreatePath, LetsTheMaskDecideAndOthersCreateToo) {
  const TEMP_DIR dir;
  const mode_t oldMask = umask(0027);
  for (int round = 0; round < 15; round++) {
    const std::string path = dir / std::to_string(round) + "/a/b/c/d/e";
    RunThreads(4, [&](int) { EXPECT_EQ(SYS_DIR_CreatePath(path.c_str()), 0); });
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms{0750});
  }
  umask(oldMask);
}

std::map<std::string, SYS_DIR_ENTRY> entries;  // Of the latest listing.
std::function<void(const std::string&)> onEntry;

int32_t List(const std::string& path) {
  entries.clear();
  return SYS_DIR_List(path.c_str(), &entries, [](const SYS_DIR_ENTRY* pEntry, void* pContext) {
    EXPECT_EQ(pContext, &entries);
    EXPECT_TRUE(entries.emplace(pEntry->pName, *pEntry).second) << pEntry->pName;
    if (onEntry) {
      onEntry(pEntry->pName);
    }
    errno = EIO;
    return -1;
  });
}

TEST(List, ReportsFilesAndDirectoriesWithOrWithoutTypesFromTheFileSystem) {
  const KINDS dir;
  ASSERT_EQ(truncate((dir / ".file").c_str(), off_t{5} << 30), 0);
  tzset();  // The operation must look at the zone again.
  const SCOPED_ENV zone("TZ", "AAA-5:30");
  const timespec times[] = {{0, 0}, {1785542399, 999999999}};
  ASSERT_EQ(utimensat(AT_FDCWD, (dir / ".file").c_str(), times, 0), 0);
  const int nextFd = NextFd();
  for (const bool areHidden : {false, true}) {
    hidesTypes = areHidden;
    EXPECT_EQ(List(dir.Path), 5);
    for (const char* name : {".file", "..group", "dir", "readonly", "readonlydir"}) {
      EXPECT_EQ(entries[name].pDir, dir.Path.c_str()) << name;
      EXPECT_EQ(entries[name].Attributes, SYS_FILE_GetAttributes((dir / name).c_str())) << name;
    }
    EXPECT_EQ(entries[".file"].Size, uint64_t{5} << 30);
    const SYS_TIME time = {2026, 8, 1, 5, 29, 59, 0};
    EXPECT_EQ(memcmp(&entries[".file"].Time, &time, sizeof(time)), 0);
    const int numItems = 9 + 2;
    for (int i = 0; i <= numItems + 1; i++) {
      failsAfter = i;
      EXPECT_EQ(SYS_DIR_List((dir / "").c_str(), nullptr, nullptr), i <= numItems ? -1 : 5);
    }
    failsAfter = -1;
  }
  hidesTypes = false;
  EXPECT_EQ(SYS_DIR_List((dir / "nothing").c_str(), nullptr, nullptr), -1);
  EXPECT_EQ(NextFd(), nextFd);
}

// The relative path of the listing leads elsewhere from the first entry on, and some entries are gone, whatever has
// been read ahead.
TEST(List, LetsTheCallbackDoAsItLikes) {
  const TEMP_DIR dir;
  for (char c = 'a'; c < 'k'; c++) {
    dir.AddFile({c});
  }
  const std::filesystem::path oldDir = std::filesystem::current_path();
  std::filesystem::current_path(dir.Path);
  onEntry = [&](const std::string& name) {
    std::filesystem::current_path(oldDir);
    for (char c = 'f'; c < 'k'; c++) {
      EXPECT_TRUE(name[0] == c || unlink((dir / std::string(1, c)).c_str()) == 0 || errno == ENOENT);
    }
  };
  const int32_t result = List(".");
  EXPECT_EQ(result, entries.rbegin()->first < "f" ? 5 : 6);
  onEntry = nullptr;
}

TEST(List, LeavesOutEntriesWithTooLongPaths) {
  const TEMP_DIR dir;
  const std::string middle = dir / std::string(150, 'a') + '/' + std::string(150, 'b') + '/';
  const std::string path = middle + std::string(500 - middle.size(), 'c');
  std::filesystem::create_directories(path);
  for (size_t length : {9, 10, 11, 200}) {
    std::ofstream(path + '/' + std::string(length, 'f'));
  }
  for (const auto& [numSlashes, numEntries] : {std::pair{0, 2}, {1, 2}, {2, 1}, {11, 0}, {600, 0}}) {
    const std::string name = path + std::string(static_cast<size_t>(numSlashes), '/');
    EXPECT_EQ(List(name), numEntries) << numSlashes;
    EXPECT_EQ(SYS_DIR_List(name.c_str(), nullptr, nullptr), 4) << "without a callback nothing has a path";
  }
}

TEST(GetCwd, FitsWholeOrFails) {
  const std::string dir = std::filesystem::current_path();
  GUARDED_BLOCK block;
  for (uint32_t size = 0; size < dir.size() + 3; size++) {
    char* pBuffer = block.Take(size);
    const bool fits = size > dir.size();
    EXPECT_EQ(SYS_GetCwd(pBuffer, size), fits ? 0 : -1);
    EXPECT_TRUE(size == 0 || pBuffer == (fits ? dir : "")) << size;
  }
}

}  // namespace
