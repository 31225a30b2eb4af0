#include <gtest/gtest.h>

#include "sys/sys_path.h"
#include "tests/sandbox.h"
#include "tests/support.h"

namespace {

TEST(TempDir, IsWhatTheEnvironmentSays) {
  GUARDED_BLOCK block;
  for (const char* value : {"/var/folders/tmp", "relative/", "", static_cast<const char*>(nullptr)}) {
    const SCOPED_ENV tmpDir("TMPDIR", value);
    const std::string expected = value != nullptr ? value : "/tmp/";
    for (uint32_t size = 0; size < 20; size++) {
      char* pDest = block.Take(size);
      EXPECT_EQ(SYS_GetTempDir(pDest, size), static_cast<int32_t>(expected.size()));
      EXPECT_TRUE(size == 0 || pDest == expected.substr(0, size - 1));
      EXPECT_TRUE(block.IsIntact());
    }
  }
}

TEST(AppDataDir, IsCreatedBelowHome) {
  const TEMP_DIR dir;
  const SCOPED_ENV home("HOME", dir.Path.c_str());
  const std::string full = dir / "Library/Application Support/NORDAX";
  const std::vector<std::string> tree = {"Library/", "Library/Application Support/",
                                         "Library/Application Support/NORDAX/"};
  for (uint32_t size : {2000, 512, 100}) {
    std::string text(size, '?');
    EXPECT_EQ(SYS_GetAppDataDir(text.data(), size), 0);
    EXPECT_STREQ(text.c_str(), full.c_str());
    EXPECT_EQ(dir.List(), tree);
  }
}

TEST(AppDataDir, IsCutToTheBufferAndTo511Characters) {
  const TEMP_DIR dir;
  const std::string longHome = dir / std::string(240, 'h') + '/' + std::string(230, 'h');
  GUARDED_BLOCK block;
  for (const std::string& path : {dir.Path, longHome}) {
    const SCOPED_ENV home("HOME", path.c_str());
    const std::string full = path + "/Library/Application Support/NORDAX";
    const auto length = static_cast<uint32_t>(full.size());
    for (uint32_t size : {length - 20, length, length + 1, length + 100}) {
      const std::string expected = full.substr(0, std::min(size, 512u) - 1);
      char* pDest = block.Take(size);
      EXPECT_EQ(SYS_GetAppDataDir(pDest, size), 0) << size;
      EXPECT_EQ(pDest, expected);
      EXPECT_TRUE(std::filesystem::is_directory(expected));
      EXPECT_TRUE(block.IsIntact());
    }
  }
}

TEST(AppDataDir, FailsWithoutAHomeThatItCanUse) {
  const TEMP_DIR dir;
  const std::string file = dir.AddFile("file");
  char acDir[512] = "old";
  {
    const SCOPED_ENV home("HOME", file.c_str());
    EXPECT_EQ(SYS_GetAppDataDir(acDir, sizeof(acDir)), -1);
  }
  {
    const SCOPED_ENV home("HOME", dir.Path.c_str());
    EXPECT_EQ(SYS_GetAppDataDir(acDir, 0), -1);
    EXPECT_EQ(SYS_GetAppDataDir(nullptr, sizeof(acDir)), -1);
  }
  const SCOPED_ENV home("HOME", nullptr);
  EXPECT_EQ(SYS_GetAppDataDir(acDir, sizeof(acDir)), -1);
  EXPECT_STREQ(acDir, "old");
  EXPECT_EQ(dir.List(), std::vector<std::string>{"file"});
}

constexpr char OUTPUT_ENV[] = "NORDAX_TEST_OUTPUT";

// This program, run again by the cases below from another directory: writes what the operation gives to the file that
// the environment names, and ends before any test starts.
[[maybe_unused]] const bool ranAsChild = [] {
  const char* output = getenv(OUTPUT_ENV);
  if (output != nullptr) {
    char acDir[1024];
    SYS_GetWritableDir(acDir, sizeof(acDir));
    std::ofstream(output) << acDir;
    exit(0);
  }
  return false;
}();

// Copies this program to a directory of its own, runs it there as a user without privileges, and returns what it gave.
std::string RunWritableDir(const TEMP_DIR& dir, mode_t binMode, const char* home) {
  char acExe[4096];
  SYS_GetExePath(acExe, sizeof(acExe));
  const std::string bin = dir / "bin";
  std::filesystem::create_directory(bin);
  std::filesystem::copy_file(acExe, bin + "/program", std::filesystem::copy_options::overwrite_existing);
  chmod((bin + "/program").c_str(), 0755);
  chmod(bin.c_str(), binMode);
  std::filesystem::create_directory(dir / "out");
  chmod((dir / "out").c_str(), 0777);
  const std::string output = dir / "out/text";
  const SCOPED_ENV outputEnv(OUTPUT_ENV, output.c_str());
  const SCOPED_ENV homeEnv("HOME", home);
  EXPECT_EQ(RunUnprivileged([&] {
              umask(0);
              return execl((bin + "/program").c_str(), "program", nullptr);
            }),
            0);
  const std::string text = ReadFile(output);
  std::filesystem::remove_all(dir / "out");
  chmod(bin.c_str(), 0755);
  std::filesystem::remove(bin + "/program");
  return text;
}

TEST(WritableDir, IsTheProgramsIfFilesCanBeCreatedThere) {
  const TEMP_DIR dir;
  EXPECT_EQ(RunWritableDir(dir, 0777, dir.Path.c_str()), dir / "bin/");
  EXPECT_EQ(dir.List(), std::vector<std::string>{"bin/"}) << "nothing is left there";
}

TEST(WritableDir, IsBelowHomeOtherwise) {
  const TEMP_DIR dir;
  const std::string home = dir / "home";
  std::filesystem::create_directory(home);
  chmod(home.c_str(), 0777);
  for (int round = 0; round < 2; round++) {
    EXPECT_EQ(RunWritableDir(dir, 0555, home.c_str()), home + "/.NORDAX");
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"bin/", "home/", "home/.NORDAX/"}));
    struct stat status;
    ASSERT_EQ(stat((home + "/.NORDAX").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0775u);
  }
  EXPECT_EQ(RunWritableDir(dir, 0555, nullptr), dir / "bin/") << "without a home";
  const std::string longHome = '/' + std::string(1100, 'h');
  EXPECT_EQ(RunWritableDir(dir, 0555, longHome.c_str()), longHome.substr(0, 1023)) << "its buffer is the limit";
}

TEST(WritableDir, IsCutToItsBuffer) {
  TEMP_DIR home;
  SCOPED_ENV env("HOME", home.Path.c_str());
  GUARDED_BLOCK block;
  char acDir[1024];
  SYS_GetWritableDir(acDir, sizeof(acDir));
  for (uint32_t size = 0; size < strlen(acDir) + 3; size++) {
    char* pDest = block.Take(size);
    SYS_GetWritableDir(pDest, size);
    EXPECT_TRUE(size == 0 || (pDest == std::string(acDir).substr(0, size - 1) && pDest[size - 1] == '\0'));
    EXPECT_TRUE(block.IsIntact());
  }
}

}  // namespace
