#include "sys/sys_replace.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include "tests/faults.h"
#include "tests/sandbox.h"
#include "tests/support.h"

namespace {

using NAMES = std::vector<std::string>;

int32_t Replace(const std::string& path, const std::string& content, const char* keepSuffix = nullptr) {
  return SYS_FILE_Replace(path.c_str(), content.data(), static_cast<uint32_t>(content.size()), keepSuffix, -1);
}

struct stat StatusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status;
}

TEST(FileReplace, GivesAFileExactlyTheNewContent) {
  const TEMP_DIR dir;
  const std::string path = dir / "file";
  const mode_t oldMask = umask(027);
  for (const size_t size : {0, 1, 100000, 10, 0}) {
    const std::string content(size, 'x');
    EXPECT_EQ(Replace(path, content), 0);
    EXPECT_EQ(ReadFile(path), content);
    EXPECT_EQ(StatusOf(path).st_mode & 07777, 0640u);
  }
  umask(oldMask);
  EXPECT_EQ(SYS_FILE_Replace(path.c_str(), nullptr, 0, nullptr, -1), 0);
  const std::filesystem::path oldDir = std::filesystem::current_path();
  std::filesystem::current_path(dir.Path);
  EXPECT_EQ(Replace("file", "relative"), 0);
  std::filesystem::current_path(oldDir);
  EXPECT_EQ(ReadFile(path), "relative");
  EXPECT_EQ(dir.List(), NAMES{"file"});
}

TEST(FileReplace, KeepsPermissionsAndOwner) {
  const TEMP_DIR dir;
  for (const mode_t mode : {0600, 0644, 0666, 0440, 0777}) {
    const std::string path = dir.AddFile("file", "old", mode);
    if (geteuid() == 0) {
      ASSERT_EQ(chown(path.c_str(), 1234, 4321), 0);
    }
    const struct stat old = StatusOf(path);
    // What a call that was killed has left has other permissions.
    dir.AddFile("file.new", "left behind, and longer", 0666);
    EXPECT_EQ(Replace(path, "new"), 0);
    const struct stat status = StatusOf(path);
    EXPECT_EQ(status.st_mode, old.st_mode);
    EXPECT_EQ(status.st_uid, old.st_uid);
    EXPECT_EQ(status.st_gid, old.st_gid);
    EXPECT_EQ(ReadFile(path), "new");
    EXPECT_EQ(dir.List(), NAMES{"file"});
    unlink(path.c_str());
  }
}

// What follows belongs to root if the tests run as root, and to the same user otherwise.
TEST(FileReplace, ReplacesAFileOfSomebodyElseAndWhatTheyLeftBehind) {
  const TEMP_DIR dir;
  chmod(dir.Path.c_str(), 0777);
  const std::string path = dir.AddFile("file", "old", 0666);
  dir.AddFile("file.new", "left behind", 0);
  EXPECT_EQ(RunUnprivileged([&] { return Replace(path, "new") == 0 ? 0 : errno; }), 0);
  EXPECT_EQ(ReadFile(path), "new");
  EXPECT_EQ(StatusOf(path).st_mode & 07777, 0666u);
  EXPECT_EQ(dir.List(), NAMES{"file"});
}

TEST(FileReplace, ReplacesWhatALinkLeadsTo) {
  const TEMP_DIR dir;
  mkdir((dir / "elsewhere").c_str(), 0755);
  ASSERT_EQ(symlink("elsewhere/target", (dir / "link").c_str()), 0);
  ASSERT_EQ(symlink("link", (dir / "link2").c_str()), 0);
  for (const char* content : {"created", "replaced"}) {
    EXPECT_EQ(Replace(dir / "link2", content, ".old"), 0);
    EXPECT_EQ(ReadFile(dir / "elsewhere/target"), content);
  }
  EXPECT_EQ(dir.List(), (NAMES{"elsewhere/", "elsewhere/target", "elsewhere/target.old", "link", "link2"}));
  EXPECT_EQ(ReadFile(dir / "elsewhere/target.old"), "created");
}

TEST(FileReplace, KeepsTheOldFileUnderASuffix) {
  const TEMP_DIR dir;
  const std::string path = dir.AddFile("file", "first", 0640);
  const ino_t inode = StatusOf(path).st_ino;
  EXPECT_EQ(Replace(path, "second", ".bad"), 0);
  EXPECT_EQ(StatusOf(path + ".bad").st_ino, inode);
  EXPECT_EQ(Replace(path, "third", ".bad"), 0);
  EXPECT_EQ(ReadFile(path), "third");
  EXPECT_EQ(ReadFile(path + ".bad"), "second");
  EXPECT_EQ(dir.List(), (NAMES{"file", "file.bad"}));
}

TEST(FileReplace, RenamesTheOldFileWhereThereAreNoLinks) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const std::string path = dir.AddFile("file", "old");
  const SCOPED_FAULT fault({FAULT_CALL::LINK, 1, EPERM});
  EXPECT_EQ(Replace(path, "new", ".bad"), 0);
  EXPECT_EQ(ReadFile(path), "new");
  EXPECT_EQ(ReadFile(path + ".bad"), "old");
}

TEST(FileReplace, LeavesEverythingAsItIsWhenItCannot) {
  const TEMP_DIR dir;
  const std::string longName(252, 'n');
  dir.AddFile("file", "old");
  dir.AddFile(longName, "old");
  for (const char* name : {"dir", "file.bad", "blocked.new"}) {
    mkdir((dir / name).c_str(), 0755);
  }
  dir.AddFile("blocked", "old");
  dir.AddFile("trapped", "old");
  ASSERT_EQ(symlink("blocked", (dir / "trapped.new").c_str()), 0);
  ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0666), 0);
  ASSERT_EQ(symlink("pipe", (dir / "pipelink").c_str()), 0);
  const NAMES before = dir.List();
  for (const std::string& name :
       {std::string("dir"), std::string("pipe"), std::string("pipelink"), std::string("blocked"),
        std::string("trapped"), longName, std::string("missing/file"), std::string(""), std::string("file/x")}) {
    EXPECT_EQ(Replace(name.empty() ? name : dir / name, "new"), -1) << name;
  }
  EXPECT_EQ(Replace(dir / "file", "new", ".bad"), -1);
  EXPECT_EQ(dir.List(), before);
  for (const std::string& name : {std::string("file"), std::string("blocked"), std::string("trapped"), longName}) {
    EXPECT_EQ(ReadFile(dir / name), "old");
  }
  EXPECT_TRUE(std::filesystem::is_fifo(dir / "pipe"));
}

TEST(FileReplace, FlushesTheContentBeforeItIsInPlaceAndTheDirectoryAfter) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const std::string path = dir.AddFile("file", "old");
  NAMES steps;
  {
    const SCOPED_CALL_LOG log;
    EXPECT_EQ(Replace(path, "new", ".bad"), 0);
    for (const FAULT_CALL call : log.Calls) {
      const char* name = call == FAULT_CALL::WRITE    ? "write"
                         : call == FAULT_CALL::FSYNC  ? "flush"
                         : call == FAULT_CALL::LINK   ? "keep"
                         : call == FAULT_CALL::RENAME ? "rename"
                                                      : nullptr;
      if (name != nullptr) {
        steps.push_back(name);
      }
    }
  }
  EXPECT_EQ(steps, (NAMES{"write", "flush", "keep", "rename", "flush"}));
}

TEST(FileReplace, RepeatsInterruptedAndShortCalls) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const std::string path = dir.AddFile("file", "old");
  const std::string content = RANDOM(1).Bytes(1000);
  for (const FAULT_CALL call : {FAULT_CALL::OPEN, FAULT_CALL::WRITE, FAULT_CALL::FSYNC}) {
    const SCOPED_FAULT fault({call, 1, EINTR, 3});
    EXPECT_EQ(Replace(path, content), 0);
    EXPECT_TRUE(fault.WasHit());
    EXPECT_EQ(ReadFile(path), content);
    unlink(path.c_str());
  }
  const SCOPED_FAULT fault({FAULT_CALL::WRITE, 1, 0, UINT32_MAX, FAULT_KIND::SHORT});
  EXPECT_EQ(Replace(path, content), 0);
  EXPECT_GE(fault.NumCalls(), 10u);
  EXPECT_EQ(ReadFile(path), content);
}

TEST(FileReplace, ReportsADirectoryThatCannotBeFlushed) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const std::string path = dir.AddFile("file", "old");
  const SCOPED_FAULT fault({FAULT_CALL::FSYNC, 2, EIO});
  EXPECT_EQ(Replace(path, "new"), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(ReadFile(path), "new");
}

// A file system without locks, another call at work, and one that has just put its file in place.
TEST(FileReplace, TakesTurns) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const std::string path = dir.AddFile("file", "old");
  for (const FAULT& fault : {FAULT{FAULT_CALL::FLOCK, 1, ENOLCK}, FAULT{FAULT_CALL::FLOCK, 1, EWOULDBLOCK, 3},
                             FAULT{FAULT_CALL::LSTAT, 2, ENOENT, 3}}) {
    const SCOPED_FAULT scoped(fault);
    const std::string content = std::to_string(static_cast<int>(fault.Call)) + std::to_string(fault.Error);
    EXPECT_EQ(Replace(path, content), 0);
    EXPECT_EQ(scoped.NumCalls(), fault.First - 1 + fault.Count + (fault.Error != ENOLCK));
    EXPECT_EQ(ReadFile(path), content);
    EXPECT_EQ(dir.List(), NAMES{"file"});
  }
}

TEST(FileReplace, IsWholeForReadersWhileProcessesRace) {
  FAULTS_REQUIRE();
  constexpr size_t SIZE = 200000;
  const TEMP_DIR dir;
  const std::string path = dir.AddFile("file", std::string(SIZE, 'o'));
  std::vector<pid_t> children;
  for (char c = 'a'; c < 'd'; c++) {
    const pid_t child = fork();
    if (child == 0) {
      const SCOPED_FAULT noFlush({FAULT_CALL::FSYNC, 1, 0, UINT32_MAX, FAULT_KIND::SKIP});
      int numFailures = 0;
      for (int i = 0; i < 30; i++) {
        numFailures += Replace(path, std::string(SIZE, c)) < 0;
      }
      _exit(numFailures);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
      const std::string content = ReadFile(path);
      ASSERT_EQ(content, std::string(SIZE, content.empty() ? '?' : content[0]));
    }
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(dir.List(), NAMES{"file"});
}

}  // namespace
