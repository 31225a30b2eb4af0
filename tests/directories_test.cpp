#include <gtest/gtest.h>

#include "sys/sys_path.h"
#include "tests/faults.h"
#include "tests/sandbox.h"
#include "tests/support.h"

namespace {

TEST(TempDir, IsWhatTheEnvironmentSays) {
  for (const char* value : {"relative/", static_cast<const char*>(nullptr)}) {
    const SCOPED_ENV tmpDir("TMPDIR", value);
    const std::string expected = value != nullptr ? value : "/tmp/";
    char acDir[8];
    EXPECT_EQ(SYS_GetTempDir(acDir, sizeof(acDir)), static_cast<int32_t>(expected.size()));
    EXPECT_EQ(acDir, expected.substr(0, sizeof(acDir) - 1));
  }
}

TEST(AppDataDir, IsCreatedBelowHomeAndCutToTheBufferAndTo511Characters) {
  const TEMP_DIR dir;
  const std::string file = dir.AddFile("file");
  GUARDED_BLOCK block;
  for (const std::string& path : {dir.Path, dir / std::string(240, 'h') + '/' + std::string(230, 'h')}) {
    const SCOPED_ENV home("HOME", path.c_str());
    const std::string full = path + "/Library/Application Support/NORDAX";
    const auto length = static_cast<uint32_t>(full.size());
    for (uint32_t size : {length - 20, length, length + 1, length + 500}) {
      const std::string expected = full.substr(0, std::min(size, 512u) - 1);
      char* pDest = block.Take(size);
      EXPECT_EQ(SYS_GetAppDataDir(pDest, size), 0) << size;
      EXPECT_EQ(pDest, expected);
      EXPECT_TRUE(std::filesystem::is_directory(expected));
    }
    EXPECT_EQ(SYS_GetAppDataDir(block.Take(0), 0), -1);
    EXPECT_EQ(SYS_GetAppDataDir(nullptr, 512), -1);
  }
  for (const char* value : {file.c_str(), static_cast<const char*>(nullptr)}) {
    const SCOPED_ENV home("HOME", value);
    char acDir[512] = "old";
    EXPECT_EQ(SYS_GetAppDataDir(acDir, sizeof(acDir)), -1);
    EXPECT_STREQ(acDir, "old");
  }
}

// As a user without privileges finds it for a program in a directory of its own.
TEST(WritableDir, IsTheProgramsIfFilesCanBeCreatedThereAndBelowHomeOtherwise) {
  FAULTS_REQUIRE();
  const TEMP_DIR dir;
  const std::string bin = dir / "bin/";
  const std::string home = dir / "home";
  mkdir(bin.c_str(), 0777);
  mkdir(home.c_str(), 0777);
  chmod(home.c_str(), 0777);
  const std::string longHome = '/' + std::string(1100, 'h');
  const struct {
    mode_t BinMode;
    const char* Home;
    std::string Expected;
  } aCase[] = {{0777, home.c_str(), bin},
               {0555, home.c_str(), home + "/.NORDAX"},
               {0555, nullptr, bin},
               {0555, longHome.c_str(), longHome.substr(0, 1023)}};
  for (const auto& test : aCase) {
    chmod(bin.c_str(), test.BinMode);
    const SCOPED_ENV homeEnv("HOME", test.Home);
    const SCOPED_LINKS links({{"/proc/self/exe", bin + "program"}});
    EXPECT_EQ(RunUnprivileged([&] {
                umask(0);
                const int nextFd = dup(0);
                close(nextFd);
                char acDir[1024];
                SYS_GetWritableDir(acDir, sizeof(acDir));
                return (acDir == test.Expected ? 0 : 1) + (dup(0) == nextFd ? 0 : 2);
              }),
              0)
        << test.Expected;
    EXPECT_EQ(std::filesystem::exists(home + "/.NORDAX"), &test != &aCase[0]);
  }
  EXPECT_EQ(std::filesystem::status(home + "/.NORDAX").permissions(), std::filesystem::perms{0775});
  EXPECT_EQ(dir.List(), (std::vector<std::string>{"bin/", "home/", "home/.NORDAX/"}));
}

}  // namespace
