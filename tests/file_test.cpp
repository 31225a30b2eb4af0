#include "sys/sys_file.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <stdio.h>
#include <sys/mman.h>

#include <chrono>
#include <thread>

#include "sys/local_time.h"
#include "tests/faults.h"
#include "tests/sandbox.h"
#include "tests/support.h"

namespace {

// A descriptor that closes itself.
struct SCOPED_FD {
  explicit SCOPED_FD(int fd) : Fd(fd) {}
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
  for (uint32_t flags = 0; flags < 0x200; flags++) {
    for (const bool exists : {false, true}) {
      SCOPED_TRACE(testing::Message() << "flags " << flags << (exists ? ", exists" : ", missing"));
      unlink(path.c_str());
      if (exists) {
        dir.AddFile("file", "12345", 0600);
      }
      const bool create = (flags & 16) != 0;
      const bool exclusive = create && (flags & 128) != 0;
      const off_t size = exists && ((flags & 32) == 0 || exclusive) ? 5 : 0;
      const SCOPED_FD fd(SYS_FILE_Open(path.c_str(), flags));
      struct stat status;
      if (exists ? exclusive : !create) {
        EXPECT_EQ(fd, -1);
        EXPECT_EQ(errno, exists ? EEXIST : ENOENT);
        EXPECT_TRUE(!exists || (stat(path.c_str(), &status) == 0 && status.st_size == 5));
        continue;
      }
      ASSERT_GE(fd, 0);
      ASSERT_EQ(fstat(fd, &status), 0);
      EXPECT_EQ(status.st_size, size);
      EXPECT_EQ(status.st_mode & 07777, exists ? 0600u : 0644u);
      EXPECT_EQ(lseek(fd, 0, SEEK_CUR), (flags & 64) != 0 ? size : 0);
      EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
      static constexpr int aAccess[] = {O_RDONLY, O_RDONLY, O_WRONLY, O_RDWR};
      EXPECT_EQ(fcntl(fd, F_GETFL) & (O_ACCMODE | O_APPEND | O_NONBLOCK), aAccess[flags & 3]);
    }
  }
  umask(oldMask);
}

TEST(FileOpen, TakesALinkToNothingAsExistingOnlyWhenExclusive) {
  const TEMP_DIR dir;
  ASSERT_EQ(symlink("target", (dir / "link").c_str()), 0);
  EXPECT_EQ(SYS_FILE_Open((dir / "link").c_str(), NEW_FILE | SYS_FILE_EXCLUSIVE), -1);
  const SCOPED_FD fd(SYS_FILE_Open((dir / "link").c_str(), NEW_FILE));
  EXPECT_EQ(dir.List(), (std::vector<std::string>{"link", "target"}));
}

TEST(FileOpenEx, SleepsBeforeEachRetryAndStopsAtTheFirstSuccess) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const std::string path = dir.AddFile("file", "content");
  static constexpr struct {
    uint32_t NumFailures;
    uint32_t NumRetries;
    uint32_t DelayMs;
    uint32_t NumAttempts;
    bool Succeeds;
  } aCase[] = {{0, 0, 5, 1, true},  {9, 0, 60000, 1, false}, {9, 3, 5, 4, false}, {3, 3, 5, 4, true},
               {1, 3, 20, 2, true}, {0, 9, 60000, 1, true},  {4, 3, 0, 4, false}, {100, 200, 0, 101, true}};
  for (const auto& test : aCase) {
    SCOPED_FAULT fault({FAULT_CALL::OPEN, 1, EBUSY, test.NumFailures});
    const auto start = std::chrono::steady_clock::now();
    const SCOPED_FD fd(SYS_FILE_OpenEx(path.c_str(), SYS_FILE_READ | SYS_FILE_SEEK_END, test.NumRetries, test.DelayMs));
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(fault.NumCalls(), test.NumAttempts);
    EXPECT_GE(elapsed, std::chrono::milliseconds((test.NumAttempts - 1) * test.DelayMs));
    EXPECT_EQ(fd >= 0, test.Succeeds);
    if (test.Succeeds) {
      EXPECT_EQ(SYS_FILE_Seek(fd, 0, 1), 7);
    } else {
      EXPECT_EQ(errno, EBUSY);
    }
  }
}

TEST(File, RepeatsWhatSignalsInterrupt) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  SCOPED_FAULT openFault({FAULT_CALL::OPEN, 1, EINTR, 3});
  SCOPED_FAULT readFault({FAULT_CALL::READ, 1, EINTR, 3});
  SCOPED_FAULT writeFault({FAULT_CALL::WRITE, 1, EINTR, 3});
  const SCOPED_FD fd(SYS_FILE_Open((dir / "file").c_str(), NEW_FILE));
  EXPECT_EQ(openFault.NumCalls(), 4u);
  EXPECT_EQ(SYS_FILE_Write(fd, "abc", 3), 3);
  EXPECT_EQ(writeFault.NumCalls(), 4u);
  EXPECT_EQ(SYS_FILE_Seek(fd, 0, 0), 0);
  char acText[4] = "";
  EXPECT_EQ(SYS_FILE_Read(fd, acText, 4), 3);
  EXPECT_EQ(readFault.NumCalls(), 4u);
  EXPECT_STREQ(acText, "abc");
}

TEST(File, ReadsAndWritesInOneCall) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const SCOPED_FD fd(SYS_FILE_Open(dir.AddFile("file", "0123456789").c_str(), READ_WRITE));
  char acText[16];
  {
    SCOPED_FAULT readFault({FAULT_CALL::READ, 1, 0, 1, FAULT_KIND::SHORT});
    SCOPED_FAULT writeFault({FAULT_CALL::WRITE, 1, 0, 1, FAULT_KIND::SHORT});
    EXPECT_EQ(SYS_FILE_Read(fd, acText, 8), 4);
    EXPECT_EQ(SYS_FILE_Write(fd, "abcd", 4), 2);
    EXPECT_EQ(readFault.NumCalls() + writeFault.NumCalls(), 2u);
  }
  EXPECT_EQ(ReadFile(dir / "file"), "0123ab6789");
  // More than the result can tell is no error, and no negative count.
  void* pLarge = mmap(nullptr, UINT32_MAX, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON | MAP_NORESERVE, -1, 0);
  ASSERT_NE(pLarge, MAP_FAILED);
  EXPECT_EQ(SYS_FILE_Read(fd, pLarge, UINT32_MAX), 4);
  const SCOPED_FD device(SYS_FILE_Open("/dev/null", SYS_FILE_WRITE));
  EXPECT_GT(SYS_FILE_Write(device, pLarge, UINT32_MAX), INT32_MAX / 2);
  munmap(pLarge, UINT32_MAX);
  EXPECT_EQ(SYS_FILE_Read(fd, acText, 1), 0);
  EXPECT_EQ(SYS_FILE_Write(fd, acText, 0), 0);
  const SCOPED_FD readOnly(SYS_FILE_Open((dir / "file").c_str(), SYS_FILE_READ));
  EXPECT_EQ(SYS_FILE_Write(readOnly, acText, 1), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(SYS_FILE_Read(-1, acText, 1), -1);
}

// What reading byte by byte gives.
struct LINE {
  int32_t Result;
  std::string Bytes;
};

LINE ReadLineModel(const std::string& text, size_t* pPos, uint32_t size) {
  LINE line = {};
  while (line.Bytes.size() + 1 < size) {
    if (*pPos == text.size()) {
      line.Result = -1;
      return line;
    }
    line.Bytes += text[(*pPos)++];
    if (line.Bytes.back() == '\n' || line.Bytes.back() == '\xFF') {
      break;
    }
  }
  line.Result = static_cast<int32_t>(line.Bytes.size());
  return line;
}

// The same from a file, where the position must end up right behind the line, and from a pipe, which gives nothing
// back.
TEST(FileReadLine, TakesTheBytesOfOneLineAndNoMore) {
  RANDOM random(51);
  const TEMP_DIR dir;
  GUARDED_BLOCK block;
  for (int round = 0; round < 150; round++) {
    // Lines of a few bytes, or of several hundred.
    std::string text = random.Bytes(random.Below(2000));
    const uint32_t spacing = random.OneIn(2) ? 4 : 400;
    for (char& c : text) {
      c = random.OneIn(spacing) ? (random.OneIn(2) ? '\n' : '\xFF') : static_cast<char>(random.Below(10));
    }
    const SCOPED_FD file(SYS_FILE_Open(dir.AddFile("file", text).c_str(), SYS_FILE_READ));
    int aPipe[2];
    ASSERT_EQ(pipe(aPipe), 0);
    const SCOPED_FD pipeEnd(aPipe[0]);
    ASSERT_EQ(write(aPipe[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(aPipe[1]);
    for (size_t pos = 0;;) {
      const uint32_t size = random.OneIn(3) ? random.Below(12) : random.Below(900);
      const LINE expected = ReadLineModel(text, &pos, size);
      for (const int fd : {file.Fd, pipeEnd.Fd}) {
        char* pBuffer = block.Take(size);
        ASSERT_EQ(SYS_FILE_ReadLine(fd, pBuffer, size), expected.Result);
        ASSERT_EQ(std::string(pBuffer, expected.Bytes.size()), expected.Bytes);
        for (size_t i = expected.Bytes.size(); i < size; i++) {
          ASSERT_EQ(pBuffer[i], expected.Result >= 0 && i == expected.Bytes.size() ? '\0' : GUARDED_BLOCK::PATTERN);
        }
        ASSERT_TRUE(block.IsIntact());
      }
      ASSERT_EQ(lseek(file, 0, SEEK_CUR), static_cast<off_t>(pos));
      if (expected.Result < 0) {
        break;
      }
    }
  }
}

TEST(FileReadLine, FailsWithTheReadAndNeedsFewOfThem) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const std::string line = std::string(99, 'x') + '\n';
  const SCOPED_FD fd(SYS_FILE_Open(dir.AddFile("file", line + line).c_str(), SYS_FILE_READ));
  char acLine[200];
  SweepFaults(FAULT_CALL::READ, EIO, [&](const SCOPED_FAULT& fault) {
    SYS_FILE_Seek(fd, 0, 0);
    const int32_t result = SYS_FILE_ReadLine(fd, acLine, sizeof(acLine));
    EXPECT_EQ(result, fault.WasHit() ? -1 : 100);
    EXPECT_LE(fault.NumCalls(), 1u);
  });
}

// The kernel makes these up: they report size 0.
TEST(FileReadLine, ReadsFilesWithoutASize) {
  std::ifstream stream("/proc/self/mounts");
  if (!stream) {
    GTEST_SKIP() << "no such file here";
  }
  const SCOPED_FD fd(SYS_FILE_Open("/proc/self/mounts", SYS_FILE_READ));
  char acLine[4096];
  for (std::string line; std::getline(stream, line);) {
    ASSERT_EQ(SYS_FILE_ReadLine(fd, acLine, sizeof(acLine)), static_cast<int32_t>(line.size()) + 1);
    EXPECT_EQ(acLine, line + '\n');
  }
  EXPECT_EQ(SYS_FILE_ReadLine(fd, acLine, sizeof(acLine)), -1);
}

TEST(File, HasPositionsAndSizesOf64Bits) {
  const TEMP_DIR dir;
  const SCOPED_FD fd(SYS_FILE_Open((dir / "file").c_str(), NEW_FILE));
  const off_t size = off_t{5} << 30;
  ASSERT_EQ(ftruncate(fd, size), 0);
  EXPECT_EQ(SYS_FILE_Seek(fd, INT32_MAX, 0), INT32_MAX);
  EXPECT_EQ(SYS_FILE_Seek(fd, INT32_MAX, 1), int64_t{INT32_MAX} * 2);
  EXPECT_EQ(SYS_FILE_Seek(fd, INT32_MAX, 1), int64_t{INT32_MAX} * 3);
  EXPECT_EQ(SYS_FILE_GetSize(fd), size);
  EXPECT_EQ(SYS_FILE_Seek(fd, INT32_MIN, 1), int64_t{INT32_MAX} * 2 - 1) << "from where it was";
  EXPECT_EQ(SYS_FILE_Seek(fd, -1, 2), size - 1);
  for (int32_t origin : {0, 3, -1, INT32_MAX}) {
    EXPECT_EQ(SYS_FILE_Seek(fd, 7, origin), 7);
  }
  EXPECT_EQ(SYS_FILE_Seek(fd, -8, 1), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(SYS_FILE_Seek(fd, 0, 1), 7);
  EXPECT_EQ(SYS_FILE_Truncate(fd, 3), 0);
  EXPECT_EQ(SYS_FILE_GetSize(fd), 3);
  EXPECT_EQ(SYS_FILE_Truncate(fd, INT32_MAX), 0);
  EXPECT_EQ(SYS_FILE_GetSize(fd), INT32_MAX);
  EXPECT_EQ(SYS_FILE_Truncate(fd, -1), -1);
  EXPECT_EQ(SYS_FILE_Seek(fd, 0, 1), 7);
}

TEST(File, HasNoPositionAndNoSizeInAPipe) {
  int aPipe[2];
  ASSERT_EQ(pipe(aPipe), 0);
  EXPECT_EQ(SYS_FILE_Seek(aPipe[0], 0, 0), -1);
  EXPECT_EQ(SYS_FILE_GetSize(aPipe[0]), -1);
  EXPECT_EQ(errno, ESPIPE);
  EXPECT_EQ(SYS_FILE_Truncate(aPipe[1], 0), -1);
  EXPECT_EQ(SYS_FILE_Map(aPipe[1], 0, 1), nullptr);
  SYS_FILE_Close(aPipe[0]);
  SYS_FILE_Close(aPipe[1]);
  SYS_FILE_Close(-1);
}

std::string Text(const SYS_TIME& time) {
  char acText[64];
  snprintf(acText, sizeof(acText), "%u-%02u-%02u %02u:%02u:%02u.%u", time.Year, time.Month, time.Day, time.Hour,
           time.Minute, time.Second, time.Milliseconds);
  return acText;
}

TEST(FileGetTimes, AreLocal) {
  const TEMP_DIR dir;
  const SCOPED_FD fd(SYS_FILE_Open((dir / "file").c_str(), NEW_FILE));
  static constexpr struct {
    time_t Seconds;
    const char* Local;
  } aCase[] = {
      {0, "1970-01-01 05:30:00.0"},           // Winter.
      {1785542399, "2026-08-01 06:29:59.0"},  // Summer.
      {1798741799, "2026-12-31 23:59:59.0"},
      {1798741800, "2027-01-01 00:00:00.0"},
  };
  const SCOPED_ENV zone("TZ", "AAA-5:30BBB-6:30,M4.1.0,M10.1.0");
  for (const auto& test : aCase) {
    const timespec times[] = {{test.Seconds, 999999999}, {test.Seconds + 3600, 0}};
    ASSERT_EQ(futimens(fd, times), 0);
    SYS_TIME accessed;
    SYS_TIME modified;
    ASSERT_EQ(SYS_FILE_GetTimes(fd, &accessed, nullptr), 0);
    ASSERT_EQ(SYS_FILE_GetTimes(fd, nullptr, &modified), 0);
    EXPECT_EQ(Text(accessed), test.Local);
    EXPECT_EQ(SYS_FILE_GetTimes(fd, &modified, &accessed), 0);
    EXPECT_EQ(Text(modified), test.Local);
    EXPECT_NE(Text(accessed), test.Local);
    EXPECT_EQ(SYS_FILE_GetTimes(-1, &modified, &accessed), -1);
    EXPECT_EQ(Text(modified), test.Local);
  }
  SYS_TIME time;
  for (time_t seconds : {INT64_MAX, INT64_MIN, int64_t{100000} * 365 * 86400, int64_t{-3000} * 366 * 86400}) {
    TIME_FillLocal(seconds, &time);
    EXPECT_EQ(Text(time), "0-00-00 00:00:00.0");
  }
}

TEST(FileMap, IsTheFileFromAnyOffset) {
  RANDOM random(52);
  const TEMP_DIR dir;
  const auto pageSize = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  for (int round = 0; round < 100; round++) {
    std::string content = random.Bytes(random.Below(pageSize * 4));
    const SCOPED_FD fd(SYS_FILE_Open(dir.AddFile("file", content).c_str(), READ_WRITE));
    const uint64_t offset = random.Below(pageSize * 5);
    const uint32_t length = 1 + random.Below(pageSize * 2);
    auto* pMap = static_cast<char*>(SYS_FILE_Map(fd, offset, length));
    ASSERT_NE(pMap, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(pMap) % pageSize, offset % pageSize);
    if (content.size() < offset + length) {
      content.resize(offset + length - 1);
      content += ' ';
      EXPECT_EQ(SYS_FILE_Seek(fd, 0, 1), static_cast<int64_t>(content.size()));
    } else {
      EXPECT_EQ(SYS_FILE_Seek(fd, 0, 1), 0);
    }
    EXPECT_EQ(ReadFile(dir / "file"), content);
    EXPECT_EQ(std::string(pMap, length), content.substr(offset, length));
    const uint32_t written = random.Below(length);
    pMap[written] = content[offset + written] = 'w';
    EXPECT_EQ(SYS_FILE_SyncMap(pMap + written, 1), 0);
    EXPECT_EQ(SYS_FILE_SyncMap(pMap, length), 0);
    EXPECT_EQ(ReadFile(dir / "file"), content);
    EXPECT_EQ(SYS_FILE_Unmap(pMap, offset, length), 0);
    EXPECT_EQ(SYS_FILE_SyncMap(pMap, length), -1) << "it is unmapped";
  }
}

TEST(FileMap, RefusesWithoutChangingTheFile) {
  const TEMP_DIR dir;
  const std::string path = dir.AddFile("file", "content");
  const SCOPED_FD fd(SYS_FILE_Open(path.c_str(), READ_WRITE));
  for (uint64_t offset : {uint64_t{1} << 63, UINT64_MAX, UINT64_MAX - 4095, (uint64_t{1} << 63) - 9}) {
    EXPECT_EQ(SYS_FILE_Map(fd, offset, 10), nullptr) << offset;
  }
  EXPECT_EQ(SYS_FILE_Map(fd, 4 << 20, 0), nullptr);
  const SCOPED_FD readOnly(SYS_FILE_Open(path.c_str(), SYS_FILE_READ));
  EXPECT_EQ(SYS_FILE_Map(readOnly, 0, 7), nullptr);
  EXPECT_EQ(SYS_FILE_Map(readOnly, 0, 8), nullptr);
  EXPECT_EQ(SYS_FILE_Map(-1, 0, 1), nullptr);
  EXPECT_EQ(ReadFile(path), "content");
}

TEST(FileMap, FailsWhenTheFileCannotGrow) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const SCOPED_FD fd(SYS_FILE_Open(dir.AddFile("file", "content").c_str(), READ_WRITE));
  SweepFaults(FAULT_CALL::WRITE, ENOSPC, [&](const SCOPED_FAULT& fault) {
    void* p = SYS_FILE_Map(fd, 3, 9);
    EXPECT_EQ(p == nullptr, fault.WasHit());
    EXPECT_TRUE(p == nullptr || SYS_FILE_Unmap(p, 3, 9) == 0);
  });
}

bool IsSameFile(int fd, const char* path) {
  struct stat a;
  struct stat b;
  return fstat(fd, &a) == 0 && stat(path, &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

TEST(FileOpenUserPath, PutsTheHomeDirectoryForATilde) {
  const TEMP_DIR dir;
  {
    const SCOPED_ENV home("HOME", dir.Path.c_str());
    for (const char* path : {"~/file", "~file", "~/new/deep/er/file"}) {
      const SCOPED_FD fd(SYS_FILE_OpenUserPath(path, NEW_FILE));
      EXPECT_TRUE(IsSameFile(fd, (dir.Path + (path + 1)).c_str())) << path;
      unlink((dir.Path + (path + 1)).c_str());
    }
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"new/", "new/deep/", "new/deep/er/"}));
    const SCOPED_FD plain(SYS_FILE_OpenUserPath((dir / "plain~").c_str(), NEW_FILE));
    EXPECT_GE(plain, 0);
    EXPECT_EQ(SYS_FILE_OpenUserPath("~/none/file", READ_WRITE), -1);
    EXPECT_EQ(SYS_FILE_OpenUserPath("~/plain~/file", NEW_FILE), -1);
    EXPECT_EQ(SYS_FILE_OpenUserPath("~/plain~", NEW_FILE | SYS_FILE_EXCLUSIVE), -1);
    EXPECT_EQ(SYS_FILE_OpenUserPath(nullptr, NEW_FILE), -1);
    EXPECT_EQ(SYS_FILE_OpenUserPath("", NEW_FILE), -1);
    EXPECT_EQ(dir.List().size(), 4u);
  }
  const SCOPED_ENV home("HOME", nullptr);
  const passwd* pEntry = getpwuid(getuid());
  const SCOPED_FD fd(SYS_FILE_OpenUserPath("~", SYS_FILE_READ));
  EXPECT_EQ(fd >= 0, pEntry != nullptr && access(pEntry->pw_dir, R_OK) == 0);
  EXPECT_TRUE(fd < 0 || IsSameFile(fd, pEntry->pw_dir));
}

TEST(FileOpenUserPath, CutsToItsBufferOnlyWhatATildeMadeLonger) {
  const TEMP_DIR dir;
  const std::string base = dir / std::string(200, 'a') + '/' + std::string(200, 'b');
  std::filesystem::create_directories(base);
  const SCOPED_ENV home("HOME", base.c_str());
  for (size_t length : {509, 510, 511, 512, 520}) {
    const std::string rest = '/' + std::string(length - base.size() - 1, 'f');
    const SCOPED_FD fd(SYS_FILE_OpenUserPath(('~' + rest).c_str(), NEW_FILE));
    EXPECT_TRUE(IsSameFile(fd, (base + rest).substr(0, 511).c_str())) << length;
  }
  const SCOPED_FD whole(SYS_FILE_OpenUserPath((base + '/' + std::string(150, 'w')).c_str(), NEW_FILE));
  EXPECT_GE(whole, 0);
  const SCOPED_ENV longHome("HOME", std::string(600, 'h').c_str());
  EXPECT_EQ(SYS_FILE_OpenUserPath("~/x", SYS_FILE_READ), -1);
}

TEST(FileOpenUserPath, CreatesNoDirectoryUnderACutName) {
  const TEMP_DIR dir;
  const std::string deep = dir / std::string(250, 'a') + '/' + std::string(250, 'b');
  const size_t before = dir.List().size();
  EXPECT_EQ(SYS_FILE_OpenUserPath((deep + "/ccccccccccccccccccccc/file").c_str(), NEW_FILE), -1);
  EXPECT_EQ(dir.List().size(), before);
  std::filesystem::create_directories(deep + "/ccccccccccccccccccccc");
  const SCOPED_FD fd(SYS_FILE_OpenUserPath((deep + "/ccccccccccccccccccccc/file").c_str(), NEW_FILE));
  EXPECT_GE(fd, 0);
  EXPECT_EQ(dir.List().size(), before + 4);
}

}  // namespace
