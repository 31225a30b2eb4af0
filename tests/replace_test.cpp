#include "sys/sys_replace.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include "tests/faults.h"
#include "tests/sandbox.h"
#include "tests/support.h"

namespace {

using NAMES = std::vector<std::string>;

int32_t Replace(const std::string& path, const std::string& content, const char* keepSuffix = nullptr, int oldFd = -1) {
  return SYS_FILE_Replace(path.c_str(), content.data(), static_cast<uint32_t>(content.size()), keepSuffix, oldFd);
}

struct stat StatusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status;
}

TEST(FileReplace, KeepsPermissionsAndOwner) {
  const TEMP_DIR dir;
  for (const mode_t mode : {0600, 0644, 0440, 0777}) {
    const std::string path = dir.AddFile("file", "old", mode);
    ASSERT_TRUE(geteuid() != 0 || chown(path.c_str(), 1234, mode == 0600 ? getegid() : 4321) == 0);
    const struct stat old = StatusOf(path);
    // What a call that was killed has left has other permissions.
    dir.AddFile("file.new", "left behind, and longer", 0666);
    EXPECT_EQ(Replace(path, "new"), 0);
    const struct stat status = StatusOf(path);
    EXPECT_EQ(std::tie(status.st_mode, status.st_uid, status.st_gid), std::tie(old.st_mode, old.st_uid, old.st_gid));
    EXPECT_EQ(ReadFile(path), "new");
    unlink(path.c_str());
  }
}

// What follows belongs to root if the tests run as root, and to the same user otherwise.
TEST(FileReplace, ReplacesAFileOfSomebodyElseAndWhatTheyLeftBehind) {
  const TEMP_DIR dir;
  chmod(dir.Path.c_str(), 0777);
  const std::string path = dir.AddFile("file", "old", 0666);
  dir.AddFile("file.new", "left behind", 0);
  EXPECT_EQ(RunUnprivileged([&] { return Replace(path, "new"); }), 0);
  EXPECT_EQ(ReadFile(path), "new");
  EXPECT_EQ(dir.List(), NAMES{"file"});
}

TEST(FileReplace, FollowsLinksAndKeepsTheFileThatIsKnown) {
  const TEMP_DIR dir;
  const std::string target = dir / "elsewhere/target";
  mkdir((dir / "elsewhere").c_str(), 0755);
  ASSERT_EQ(symlink("elsewhere/target", (dir / "link").c_str()), 0);
  const std::filesystem::path oldDir = std::filesystem::current_path();
  std::filesystem::current_path(dir.Path);
  for (const char* content : {"first", "second", "third"}) {
    EXPECT_EQ(Replace("link", content, ".old"), 0);
    EXPECT_EQ(ReadFile(target), content);
  }
  std::filesystem::current_path(oldDir);
  EXPECT_EQ(ReadFile(target + ".old"), "second");
  // Only the file that the descriptor shows is kept.
  const int fd = open(target.c_str(), O_RDONLY);
  EXPECT_EQ(Replace(target, "fourth", ".old", fd), 0);
  EXPECT_EQ(ReadFile(target + ".old"), "third");
  EXPECT_EQ(Replace(target, "fifth", ".old", fd), 0);
  EXPECT_EQ(ReadFile(target + ".old"), "third");
  close(fd);
  EXPECT_EQ(dir.List(), (NAMES{"elsewhere/", "elsewhere/target", "elsewhere/target.old", "link"}));
}

TEST(FileReplace, LeavesEverythingAsItIsWhenItCannot) {
  const TEMP_DIR dir;
  const std::string longName(252, 'n');
  for (const char* name : {"file", "blocked", "trapped", longName.c_str()}) {
    dir.AddFile(name, "old");
  }
  mkdir((dir / "dir").c_str(), 0755);
  mkdir((dir / "file.bad").c_str(), 0755);
  mkfifo((dir / "pipe").c_str(), 0666);
  mkfifo((dir / "blocked.new").c_str(), 0666);
  ASSERT_EQ(symlink("file", (dir / "trapped.new").c_str()), 0);
  ASSERT_EQ(symlink("pipe", (dir / "pipelink").c_str()), 0);
  const NAMES before = dir.List();
  for (const char* name : {"dir", "blocked", "pipe", "pipelink", "trapped", "missing/file", "file", longName.c_str()}) {
    EXPECT_EQ(Replace(dir / name, "new", ".bad"), -1) << name;
  }
  EXPECT_EQ(dir.List(), before);
  EXPECT_EQ(ReadFile(dir / "file") + ReadFile(dir / "trapped") + ReadFile(dir / longName), "oldoldold");
  EXPECT_TRUE(std::filesystem::is_fifo(dir / "pipe"));
}

TEST(FileReplace, IsAllOrNothingWhateverCallFails) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const std::string path = dir / "file";
  std::string steps;
  const int nextFd = dup(0);
  close(nextFd);
  size_t index = 0;
  SweepFaults(FAULT_CALL::ANY, EIO, [&](const SCOPED_FAULT& fault) {
    dir.AddFile("file", "old");
    SCOPED_CALL_LOG log;
    const int32_t result = Replace(path, "new", ".bad");
    const int error = errno;
    const bool isVital =
        fault.WasHit() && log.Calls[index] != FAULT_CALL::FLOCK && log.Calls[index] != FAULT_CALL::CLOSE;
    index++;
    EXPECT_EQ(result, isVital ? -1 : 0);
    EXPECT_TRUE(result == 0 || error != 0);
    const std::string content = ReadFile(path);
    EXPECT_TRUE(content == "new" || (content == "old" && result < 0)) << content;
    EXPECT_EQ(dup(0), nextFd);
    close(nextFd);
    steps.clear();
    for (const FAULT_CALL call : log.Calls) {
      steps += call == FAULT_CALL::WRITE    ? "write "
               : call == FAULT_CALL::FSYNC  ? "flush "
               : call == FAULT_CALL::LINK   ? "keep "
               : call == FAULT_CALL::RENAME ? "rename "
                                            : "";
    }
  });
  EXPECT_EQ(steps, "write flush keep rename flush ");
  dir.AddFile("file", "old");
  const SCOPED_FAULT noLinks({FAULT_CALL::LINK, 1, EPERM});
  const SCOPED_FAULT fault({FAULT_CALL::RENAME, 2, EIO});
  EXPECT_EQ(Replace(path, "new", ".bad"), -1);
  EXPECT_EQ(ReadFile(path), "old");
}

// Interrupted and short calls, file systems without links, locks or flushing, another call at work, and one that has
// just put its file in place, and left one of its own.
TEST(FileReplace, GetsThrough) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const auto takeName = [&] { rename(dir.AddFile("other").c_str(), (dir / "file.new").c_str()); };
  const std::string content = RANDOM(1).Bytes(1000);
  for (const FAULT& fault :
       {FAULT{FAULT_CALL::OPEN, 1, EINTR, 3}, FAULT{FAULT_CALL::WRITE, 1, EINTR, 3},
        FAULT{FAULT_CALL::FSYNC, 1, EINTR, 3}, FAULT{FAULT_CALL::WRITE, 1, 0, UINT32_MAX, FAULT_KIND::SHORT},
        FAULT{FAULT_CALL::LINK, 1, EPERM}, FAULT{FAULT_CALL::FLOCK, 1, ENOLCK, UINT32_MAX},
        FAULT{FAULT_CALL::FSYNC, 1, EINVAL, 2}, FAULT{FAULT_CALL::FLOCK, 1, EWOULDBLOCK, 3},
        FAULT{FAULT_CALL::LSTAT, 2, ENOENT, 3}, FAULT{FAULT_CALL::FLOCK, 1, 0, 1, FAULT_KIND::NONE, takeName}}) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(fault.Call) << ", " << fault.Error);
    const std::string path = dir.AddFile("file", "old");
    const SCOPED_FAULT scoped(fault);
    EXPECT_EQ(Replace(path, content, ".bad"), 0);
    EXPECT_TRUE(scoped.WasHit());
    EXPECT_EQ(ReadFile(path), content);
    EXPECT_EQ(ReadFile(path + ".bad"), "old");
    EXPECT_EQ(dir.List(), (NAMES{"file", "file.bad"}));
  }
}

}  // namespace
