#include "sys/sys_path.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/faults.h"
#include "tests/support.h"

// Splitting and joining are compared to a model in the fuzz target, whose inputs every test run reads.

namespace {

TEST(SplitPath, LeavesTheOutputsWhenALongPathFindsNoMemory) {
  FAULTS_REQUIRE();
  for (size_t length : {1023, 1024, 5000}) {
    const std::string path = '/' + std::string(length - 5, 'd') + "/n.e";
    SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [&](const SCOPED_FAULT& fault) {
      std::string dir(6000, '?');
      char acName[8] = "old";
      SYS_SplitPath(path.c_str(), nullptr, 0, dir.data(), 6000, acName, sizeof(acName), nullptr);
      EXPECT_EQ(dir.c_str(), fault.WasHit() ? std::string(6000, '?') : path.substr(0, length - 3));
      EXPECT_STREQ(acName, fault.WasHit() ? "old" : "n");
    });
  }
  SYS_SplitPath(nullptr, nullptr, 0, nullptr, 0, nullptr, 0, nullptr);
}

TEST(Path, IsSplitComposedAndTurned) {
  char acPath[32] = "/a/file.txt";
  char acPart[5] = "old";
  SYS_SplitPath(acPath, nullptr, 0, nullptr, 0, acPath + 7, 5, acPart);
  EXPECT_STREQ(acPath, "/a/filefile");
  EXPECT_STREQ(acPart, ".txt");
  SYS_GetFileBaseName("/a/file.x", acPart, 5);
  EXPECT_STREQ(acPart, "file");
  SYS_GetFileBaseName("/a/file.x", acPart, 4);
  EXPECT_STREQ(acPart, "");
  SYS_MakePath(acPath, 0, nullptr, nullptr, nullptr, nullptr);
  EXPECT_STREQ(acPath, "/a/filefile");
  SYS_MakePath(acPath, sizeof(acPath), "C:", "/a/b", "file", "txt");
  EXPECT_STREQ(acPath, "/a/b/file.txt");
  SYS_MakePath(acPath, sizeof(acPath), nullptr, nullptr, "file", nullptr);
  EXPECT_STREQ(acPath, "file");
  SYS_MakePath(acPath, sizeof(acPath), nullptr, "\\a", nullptr, "txt");
  SYS_NormalizeSlashes(acPath);
  EXPECT_STREQ(acPath, "/a/");
  SYS_MakePath(nullptr, 8, nullptr, "a", "b", "c");
  EXPECT_EQ(SYS_IsAbsolutePath(acPath), 1);
  EXPECT_EQ(SYS_IsAbsolutePath("a/"), 0);
  EXPECT_EQ(SYS_IsAbsolutePath(nullptr), 0);
}

std::string Get(void (*pfGet)(char*, uint32_t), uint32_t size = 6000) {
  std::string text(size, '?');
  pfGet(text.data(), size);
  return text.c_str();
}

TEST(ExePath, IsThisProgram) {
  const std::string path = Get(SYS_GetExePath);
  EXPECT_EQ(std::filesystem::path(path).filename(), "path_test");
  EXPECT_EQ(std::filesystem::canonical(path), path);
  EXPECT_TRUE(std::filesystem::equivalent(path, Get(SYS_GetExePathByPid)));
  const auto length = static_cast<uint32_t>(Get(SYS_GetExePathByPid).size());
  EXPECT_EQ(Get(SYS_GetExePathByPid, length), "");
  EXPECT_EQ(Get(SYS_GetExePathByPid, length + 1).size(), length);
  EXPECT_EQ(Get(SYS_GetExePath, 4), path.substr(0, 3));
}

TEST(ExePath, FollowsLinksToTheEndButNotForEver) {
  FAULTS_REQUIRE();
  static constexpr char IMAGE[] = "/proc/self/exe";
  const std::string longDir = '/' + std::string(300, 'd') + '/';
  const std::string tooLong = '/' + std::string(2100, 'd');
  const struct {
    std::map<std::string, std::string> Links;
    std::string ExePath;
    std::string ExeDir;
  } aCase[] = {
      {{{IMAGE, "/a/b"}, {"/a/b", "../c/d"}, {"/a/../c/d", "/e/f"}, {"/e/f", "g/h"}}, "/e/g/h", "/e/g/"},
      {{{IMAGE, "/a/x"}, {"/a/x", "y"}, {"/a/y", "x"}}, "/a/x", "/a/"},
      {{{IMAGE, "tool"}}, "tool", ""},
      {{{IMAGE, "tool"}, {"/usr/local/bin/tool", "/opt/t"}}, "/opt/t", "/opt/"},
      {{{IMAGE, longDir + "t"}}, longDir + "t", longDir.substr(0, 255) + '/'},
      {{{IMAGE, tooLong.substr(0, 2048)}}, "", ""},
      {{{IMAGE, "/x"}, {"/x", tooLong}}, tooLong.substr(0, 2047), "/"},
      {{}, "", ""},
  };
  for (const auto& test : aCase) {
    const SCOPED_LINKS links(test.Links);
    EXPECT_EQ(Get(SYS_GetExePath), test.ExePath);
    EXPECT_EQ(Get(SYS_GetExeDir), test.ExeDir);
    EXPECT_EQ(Get(SYS_GetExePathByPid), test.Links.empty() ? "" : test.Links.at(IMAGE));
  }
  const SCOPED_LINKS links({{IMAGE, "/a/tool"}, {"/a/tool", "b"}});
  EXPECT_EQ(Get(SYS_GetExeDirByPid), "/a/");
}

}  // namespace
