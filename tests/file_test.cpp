#include "sys/sys_file.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include "tests/faults.h"
#include "tests/sandbox.h"
#include "tests/support.h"

namespace {

// A descriptor that closes itself.
struct SCOPED_FD {
  explicit SCOPED_FD(int fd) : Fd(fd) {}
  SCOPED_FD(const std::string& path, uint32_t flags) : Fd(SYS_FILE_Open(path.c_str(), flags)) {}
  ~SCOPED_FD() { SYS_FILE_Close(Fd); }
  SCOPED_FD(const SCOPED_FD&) = delete;
  SCOPED_FD& operator=(const SCOPED_FD&) = delete;
  operator int() const { return Fd; }
  const int Fd;
};

constexpr uint32_t READ_WRITE = SYS_FILE_READ | SYS_FILE_WRITE;
constexpr uint32_t NEW_FILE = READ_WRITE | SYS_FILE_CREATE;

TEST(FileOpen, DoesWhatEveryCombinationOfFlagsAsksFor) {
  const TEMP_DIR dir;
  const std::string path = dir / "file";
  const mode_t oldMask = umask(0);
  for (uint32_t flags = 0; flags < 0x400; flags++) {
    const bool exists = (flags & 0x200) != 0;
    SCOPED_TRACE(flags);
    unlink(path.c_str());
    if (exists) {
      dir.AddFile("file", "12345", 0600);
    }
    const bool create = (flags & 16) != 0;
    const bool exclusive = create && (flags & 128) != 0;
    const SCOPED_FD fd(path, flags & ~0x200u);
    if (exists ? exclusive : !create) {
      EXPECT_EQ(fd, -1);
      EXPECT_EQ(ReadFile(path), exists ? "12345" : "");
      continue;
    }
    struct stat status;
    ASSERT_EQ(fstat(fd, &status), 0);
    EXPECT_EQ(status.st_size, exists && (flags & 32) == 0 ? 5 : 0);
    EXPECT_EQ(status.st_mode & 07777, exists ? 0600u : 0644u);
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), (flags & 64) != 0 ? status.st_size : 0);
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    static constexpr int aAccess[] = {O_RDONLY, O_RDONLY, O_WRONLY, O_RDWR};
    EXPECT_EQ(fcntl(fd, F_GETFL) & (O_ACCMODE | O_APPEND), aAccess[flags & 3]);
  }
  umask(oldMask);
}

TEST(FileOpenEx, SleepsBeforeEachRetryAndStopsAtTheFirstSuccess) {
  FAULTS_REQUIRE();
  static constexpr struct {
    uint32_t NumFailures;
    uint32_t NumRetries;
    uint32_t DelayMs;
    uint32_t NumAttempts;
  } aCase[] = {{0, 9, 60000, 1}, {9, 0, 60000, 1}, {9, 3, 5, 4}, {1, 1, 50, 2}, {100, 200, 0, 101}};
  for (const auto& test : aCase) {
    SCOPED_FAULT fault({FAULT_CALL::OPEN, 1, EBUSY, test.NumFailures});
    const int64_t elapsedUs = MeasureUs([&] {
      const SCOPED_FD fd(SYS_FILE_OpenEx("/", SYS_FILE_READ, test.NumRetries, test.DelayMs));
      EXPECT_EQ(fd >= 0, test.NumAttempts > test.NumFailures);
    });
    EXPECT_EQ(fault.NumCalls(), test.NumAttempts);
    EXPECT_GE(elapsedUs, (test.NumAttempts - 1) * test.DelayMs * 1000);
  }
}

TEST(File, RepeatsWhatSignalsInterruptButNotWhatIsShort) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  SCOPED_FAULT openFault({FAULT_CALL::OPEN, 1, EINTR, 3});
  SCOPED_FAULT truncateFault({FAULT_CALL::FTRUNCATE, 1, EINTR, 3});
  const SCOPED_FD fd(dir / "file", NEW_FILE);
  EXPECT_EQ(SYS_FILE_Truncate(fd, 3), 0);
  char acText[9] = "";
  for (const auto& [kind, numBytes] : {std::pair{FAULT_KIND::FAIL, 8}, std::pair{FAULT_KIND::SHORT, 4}}) {
    SCOPED_FAULT readFault({FAULT_CALL::READ, 1, EINTR, 3, kind});
    SCOPED_FAULT writeFault({FAULT_CALL::WRITE, 1, EINTR, 3, kind});
    EXPECT_EQ(SYS_FILE_Seek(fd, 0, 0), 0);
    EXPECT_EQ(SYS_FILE_Write(fd, "abcdefgh", 8), numBytes);
    EXPECT_EQ(SYS_FILE_Seek(fd, 0, 0), 0);
    EXPECT_EQ(SYS_FILE_Read(fd, acText, 8), numBytes);
    EXPECT_STREQ(acText, "abcdefgh");
  }
  SCOPED_FAULT secondRead({FAULT_CALL::READ, 2, EIO});
  EXPECT_EQ(SYS_FILE_Seek(fd, 0, 0), 0);
  EXPECT_EQ(SYS_FILE_ReadLine(fd, acText, 8), 7) << "needs one";
}

// From a file, where the position must end up right behind the line, and from a pipe, which gives nothing back.
TEST(FileReadLine, TakesTheBytesOfOneLineAndNoMore) {
  RANDOM random(51);
  const TEMP_DIR dir;
  GUARDED_BLOCK block;
  for (int round = 0; round < 150; round++) {
    std::string text;
    for (uint32_t i = random.Below(9); i > 0; i--) {
      text += std::string(random.Below(random.OneIn(2) ? 6 : 600), 'x') + (random.OneIn(2) ? "\n" : "\xFF");
    }
    text.resize(text.size() + random.Below(300), 'x');
    const SCOPED_FD file(dir.AddFile("file", text), SYS_FILE_READ);
    int aPipe[2];
    ASSERT_EQ(pipe(aPipe), 0);
    const SCOPED_FD pipeEnd(aPipe[0]);
    ASSERT_EQ(write(aPipe[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(aPipe[1]);
    for (size_t pos = 0; pos <= text.size();) {
      const uint32_t size = random.OneIn(3) ? random.Below(12) : random.Below(900);
      const size_t end = std::min(text.find_first_of("\n\xFF", pos), text.size()) + 1;
      const size_t count = std::min<size_t>(end - pos, size > 1 ? size - 1 : 0);
      std::string line = text.substr(pos, count);
      const int32_t expected = line.size() == count ? static_cast<int32_t>(count) : -1;
      line.resize(expected >= 0 && size > 0 ? count + 1 : line.size());
      for (const int fd : {file.Fd, pipeEnd.Fd}) {
        char* pBuffer = block.Take(size);
        ASSERT_EQ(SYS_FILE_ReadLine(fd, pBuffer, size), expected);
        ASSERT_EQ(std::string(pBuffer, line.size()), line);
      }
      pos += count;
      ASSERT_EQ(lseek(file, 0, SEEK_CUR), static_cast<off_t>(std::min(pos, text.size())));
    }
  }
}

TEST(File, HasPositionsAndSizesOf64Bits) {
  const TEMP_DIR dir;
  const SCOPED_FD fd(dir / "file", NEW_FILE);
  const off_t size = off_t{5} << 30;
  ASSERT_EQ(ftruncate(fd, size), 0);
  EXPECT_EQ(SYS_FILE_Seek(fd, INT32_MAX, 0), INT32_MAX);
  EXPECT_EQ(SYS_FILE_Seek(fd, INT32_MAX, 1), int64_t{INT32_MAX} * 2);
  EXPECT_EQ(SYS_FILE_GetSize(fd), size);
  EXPECT_EQ(SYS_FILE_Seek(fd, INT32_MIN, 1), INT32_MAX - 1) << "from where it was";
  EXPECT_EQ(SYS_FILE_Seek(fd, -1, 2), size - 1);
  EXPECT_EQ(SYS_FILE_Seek(fd, 7, 3), 7);
  EXPECT_EQ(SYS_FILE_Seek(fd, -8, 1), -1);
  EXPECT_EQ(SYS_FILE_Truncate(fd, -1), -1);
}

TEST(FileGetTimes, AreLocal) {
  const TEMP_DIR dir;
  const SCOPED_FD fd(dir / "file", NEW_FILE);
  tzset();  // The operation must look at the zone again.
  const SCOPED_ENV zone("TZ", "AAA-5:30");
  const timespec times[] = {{1798741799, 999999999}, {1798741800, 0}};
  ASSERT_EQ(futimens(fd, times), 0);
  SYS_TIME aTime[2];
  EXPECT_EQ(SYS_FILE_GetTimes(fd, &aTime[0], nullptr), 0);
  EXPECT_EQ(SYS_FILE_GetTimes(fd, nullptr, &aTime[1]), 0);
  EXPECT_EQ(SYS_FILE_GetTimes(-1, &aTime[0], &aTime[1]), -1);
  const SYS_TIME aExpected[] = {{2026, 12, 31, 23, 59, 59, 0}, {2027, 1, 1, 0, 0, 0, 0}};
  EXPECT_EQ(memcmp(aTime, aExpected, sizeof(aTime)), 0);
}

TEST(FileMap, IsTheFileFromAnyOffset) {
  RANDOM random(52);
  const TEMP_DIR dir;
  for (int round = 0; round < 100; round++) {
    const uint64_t offset = random.Below(20000);
    const uint32_t length = 1 + random.Below(8000);
    std::string content = random.Bytes(random.OneIn(3) ? offset + length : random.Below(16000));
    const SCOPED_FD fd(dir.AddFile("file", content), READ_WRITE);
    auto* pMap = static_cast<char*>(SYS_FILE_Map(fd, offset, length));
    ASSERT_NE(pMap, nullptr);
    if (content.size() < offset + length) {
      content.resize(offset + length - 1);
      content += ' ';
    }
    EXPECT_EQ(std::string(pMap, length), content.substr(offset, length));
    const uint32_t written = random.Below(length);
    pMap[written] = content[offset + written] = 'w';
    EXPECT_EQ(SYS_FILE_SyncMap(pMap + written, 1), 0);
    EXPECT_EQ(ReadFile(dir / "file"), content);
    EXPECT_EQ(SYS_FILE_Unmap(pMap, offset, length), 0);
    EXPECT_EQ(SYS_FILE_SyncMap(pMap + length - 1, 1), -1) << "it is unmapped";
  }
}

TEST(FileMap, RefusesWithoutChangingTheFile) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const SCOPED_FD fd(dir.AddFile("file", "content"), READ_WRITE);
  for (uint64_t offset : {UINT64_MAX, UINT64_MAX - 4095, (uint64_t{1} << 63) - 9}) {
    EXPECT_EQ(SYS_FILE_Map(fd, offset, 10), nullptr) << offset;
  }
  EXPECT_EQ(SYS_FILE_Map(fd, 4 << 20, 0), nullptr);
  for (const FAULT_CALL call : {FAULT_CALL::WRITE, FAULT_CALL::LSEEK}) {
    const SCOPED_FAULT fault({call, 1, ENOSPC});
    EXPECT_EQ(SYS_FILE_Map(fd, 3, 9), nullptr);
  }
  EXPECT_EQ(ReadFile(dir / "file"), "content");
}

bool IsSameFile(int fd, const std::string& path) {
  struct stat a;
  struct stat b;
  return fstat(fd, &a) == 0 && stat(path.c_str(), &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

TEST(FileOpenUserPath, PutsTheHomeDirectoryForATilde) {
  const TEMP_DIR dir;
  const SCOPED_ENV home("HOME", dir.Path.c_str());
  for (const char* path : {"~file", "~/new/deep/er/file"}) {
    const SCOPED_FD fd(SYS_FILE_OpenUserPath(path, NEW_FILE));
    EXPECT_TRUE(IsSameFile(fd, dir.Path + (path + 1))) << path;
    unlink((dir.Path + (path + 1)).c_str());
  }
  const std::string plain = dir.AddFile("plain~");
  const SCOPED_FD same(SYS_FILE_OpenUserPath(plain.c_str(), NEW_FILE));
  EXPECT_TRUE(IsSameFile(same, plain));
  EXPECT_EQ(SYS_FILE_OpenUserPath("~/none/file", READ_WRITE), -1);
  for (const char* path : {"~/dir/", "~/plain~/file", "", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(SYS_FILE_OpenUserPath(path, NEW_FILE), -1);
  }
  EXPECT_EQ(dir.List(), (std::vector<std::string>{"dir/", "new/", "new/deep/", "new/deep/er/", "plain~"}));
  const SCOPED_ENV noHome("HOME", nullptr);
  const passwd* pEntry = getpwuid(getuid());
  const SCOPED_FD fd(SYS_FILE_OpenUserPath("~", SYS_FILE_READ));
  EXPECT_EQ(fd >= 0, pEntry != nullptr && access(pEntry->pw_dir, R_OK) == 0);
  EXPECT_TRUE(fd < 0 || IsSameFile(fd, pEntry->pw_dir));
}

TEST(FileOpenUserPath, CutsToItsBufferOnlyWhatATildeMadeLonger) {
  const TEMP_DIR dir;
  const std::string base = dir / std::string(200, 'a') + '/' + std::string(250, 'b');
  std::filesystem::create_directories(base);
  const SCOPED_ENV home("HOME", base.c_str());
  for (size_t length : {511, 520}) {
    const std::string rest = '/' + std::string(length - base.size() - 1, 'f');
    const SCOPED_FD fd(SYS_FILE_OpenUserPath(('~' + rest).c_str(), NEW_FILE));
    EXPECT_TRUE(IsSameFile(fd, (base + rest).substr(0, 511))) << length;
  }
  const std::string deep = base + '/' + std::string(100, 'c');
  EXPECT_EQ(SYS_FILE_OpenUserPath((deep + "/file").c_str(), NEW_FILE), -1);
  EXPECT_EQ(dir.List().size(), 3u) << "no directory under a cut name";
  std::filesystem::create_directory(deep);
  const SCOPED_FD whole(SYS_FILE_OpenUserPath((deep + "/file").c_str(), NEW_FILE));
  EXPECT_GE(whole, 0);
}

}  // namespace
