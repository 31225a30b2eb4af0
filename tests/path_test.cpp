#include "sys/sys_path.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "tests/faults.h"
#include "tests/support.h"

namespace {

struct PARTS {
  std::string Path;
  std::string Dir;
  std::string Name;
  std::string Extension;
};

const PARTS PATHS[] = {{"/x/y.z/file.tar.gz", "/x/y.z/", "file.tar", ".gz"},
                       {"file.txt", "", "file", ".txt"},
                       {"/a/.cfg", "/a/", ".cfg", ""},
                       {".profile", "", ".profile", ""},
                       {"a.d/file", "a.d/", "file", ""},
                       {"/a/.x.y", "/a/", ".x", ".y"},
                       {"name.", "", "name", "."},
                       {"/a.b/", "/a.b/", "", ""},
                       {"/", "/", "", ""},
                       {"..", "", ".", "."},
                       {"", "", "", ""}};

// One of the outputs overlaps the path, or none when that is number 0.
TEST(SplitPath, CutsEachPartToItsSizeAlsoOverThePath) {
  GUARDED_BLOCK aBlock[4];
  for (const PARTS& parts : PATHS) {
    for (uint32_t i = 0; i < 20 * 20 * 4; i++) {
      const uint32_t dirSize = i % 20;
      const uint32_t nameSize = 1 + i / 20 % 20;
      const uint32_t overlapping = i / 400;
      char* aDest[4] = {aBlock[0].Take(32), aBlock[1].Take(dirSize), aBlock[2].Take(nameSize),
                        aBlock[3].Take(nameSize)};
      memcpy(aDest[0], parts.Path.c_str(), parts.Path.size() + 1);
      char acDrive[4] = "old";
      aDest[overlapping] = aDest[0] + (overlapping != 0 ? i % 8 : 0);
      SYS_SplitPath(aDest[0], acDrive, 0, aDest[1], dirSize, aDest[2], nameSize, aDest[3]);
      ASSERT_STREQ(acDrive, "");
      ASSERT_TRUE(dirSize == 0 || aDest[1] == parts.Dir.substr(0, dirSize - 1)) << parts.Path;
      ASSERT_EQ(aDest[2], parts.Name.substr(0, nameSize - 1)) << parts.Path;
      ASSERT_EQ(aDest[3], parts.Extension.substr(0, nameSize - 1)) << parts.Path;
      ASSERT_TRUE(aBlock[1].IsIntact() && aBlock[2].IsIntact() && aBlock[3].IsIntact());
      SYS_SplitPath(nullptr, acDrive, 0, aDest[1], dirSize, aDest[2], nameSize, aDest[3]);
      ASSERT_EQ(aDest[2], parts.Name.substr(0, nameSize - 1)) << "null changes nothing";
      // The operations for one part give it whole or not at all.
      SYS_GetFileBaseName(parts.Path.c_str(), aDest[2], nameSize);
      ASSERT_EQ(aDest[2], parts.Name.size() < nameSize ? parts.Name : "") << parts.Path;
      SYS_GetFileExtension(parts.Path.c_str(), aDest[3], nameSize);
      ASSERT_EQ(aDest[3], parts.Extension.size() < nameSize ? parts.Extension : "") << parts.Path;
    }
    SYS_SplitPath(parts.Path.c_str(), nullptr, 0, nullptr, 0, nullptr, 0, nullptr);
  }
}

TEST(SplitPath, LeavesTheOutputsWhenALongPathFindsNoMemory) {
  FAULTS_REQUIRE();
  for (size_t length : {1022, 1023, 1024, 5000}) {
    const std::string path = '/' + std::string(length - 5, 'd') + "/n.e";
    SweepFaults(FAULT_CALL::MALLOC, ENOMEM, [&](const SCOPED_FAULT& fault) {
      std::string dir(6000, '?');
      char acName[8] = "old";
      char acExtension[8] = "old";
      SYS_SplitPath(path.c_str(), nullptr, 0, dir.data(), 6000, acName, sizeof(acName), acExtension);
      EXPECT_EQ(dir.substr(0, 3), fault.WasHit() ? "???" : "/dd");
      EXPECT_STREQ(acName, fault.WasHit() ? "old" : "n");
      EXPECT_STREQ(acExtension, fault.WasHit() ? "old" : ".e");
      EXPECT_TRUE(fault.WasHit() || strlen(dir.c_str()) == length - 3);
    });
  }
}

TEST(MakePath, ComposesInEverySize) {
  static constexpr struct {
    const char* Dir;
    const char* Name;
    const char* Extension;
    const char* Path;
  } aCase[] = {
      {"/a/b", "file", "txt", "/a/b/file.txt"},
      {"/a/b/", "file", ".txt", "/a/b/file.txt"},
      {"", "file", "txt", "file.txt"},
      {nullptr, "file", nullptr, "file"},
      {"/a", nullptr, "txt", "/a/"},
      {"/", "x", "", "/x."},
      {nullptr, nullptr, nullptr, ""},
      {"a", "", "t", "a/.t"},
  };
  GUARDED_BLOCK block;
  for (const auto& test : aCase) {
    for (uint32_t size = 0; size < 20; size++) {
      char* pDest = block.Take(size);
      SYS_MakePath(pDest, size, "C:", test.Dir, test.Name, test.Extension);
      EXPECT_TRUE(size == 0 || pDest == std::string(test.Path).substr(0, size - 1)) << test.Path << " in " << size;
      EXPECT_TRUE(block.IsIntact());
    }
  }
  SYS_MakePath(nullptr, 8, nullptr, "a", "b", "c");
}

TEST(Path, KnowsAbsolutePathsAndTurnsSlashes) {
  EXPECT_EQ(SYS_IsAbsolutePath(nullptr), 0);
  EXPECT_EQ(SYS_IsAbsolutePath(""), 0);
  EXPECT_EQ(SYS_IsAbsolutePath("a/"), 0);
  EXPECT_EQ(SYS_IsAbsolutePath("\\a"), 0);
  EXPECT_EQ(SYS_IsAbsolutePath("/"), 1);
  char acPath[] = "\\a/b\\\\c";
  SYS_NormalizeSlashes(acPath);
  EXPECT_STREQ(acPath, "/a/b//c");
}

TEST(JoinPath, TakesTheDirectoryOfAFileOrTheBaseAsItIs) {
  const std::string dir = testing::TempDir() + "nordax_path_test." + std::to_string(getpid());
  std::filesystem::create_directory(dir);
  const std::string file = dir + "/base.xml";
  std::ofstream(file) << "x";
  const struct {
    std::string Base;
    std::string Relative;
    std::string Path;
  } aCase[] = {
      {"/exe/Script/", "x.pex", "/exe/Script/x.pex"},
      {"/exe/", "/abs/x.pex", "/abs/x.pex"},
      {"/exe/", "", ""},
      {"", "x", "x"},
      {file, "other.xml", dir + "/other.xml"},
      {dir, "x", dir + "x"},
      {dir + "/none", "x", dir + "/nonex"},
  };
  GUARDED_BLOCK block;
  for (const auto& test : aCase) {
    for (uint32_t size = 0; size < test.Path.size() + 4; size++) {
      char* pDest = block.Take(size);
      SYS_JoinPath(test.Base.c_str(), test.Relative.c_str(), pDest, size);
      std::string expected = test.Path.substr(0, size == 0 ? 0 : size - 1);
      expected.resize(size);
      EXPECT_EQ(std::string(pDest, size), expected) << test.Path << " in " << size;
      EXPECT_TRUE(block.IsIntact());
    }
  }
  std::filesystem::remove_all(dir);
}

using PATH_FUNC = void(char*, uint32_t);

std::string Get(PATH_FUNC* pfGet, uint32_t size = 6000) {
  std::string text(size, '?');
  pfGet(text.data(), size);
  return text.c_str();
}

TEST(ExePath, IsThisProgram) {
  const std::string path = Get(SYS_GetExePath);
  char* pReal = realpath(path.c_str(), nullptr);
  EXPECT_EQ(path, pReal);
  free(pReal);
  const std::string dir = path.substr(0, path.rfind('/') + 1);
  EXPECT_EQ(path, dir + "path_test");
  EXPECT_EQ(Get(SYS_GetExeDir), dir);
  EXPECT_TRUE(std::filesystem::equivalent(path, Get(SYS_GetExePathByPid)));
  EXPECT_TRUE(std::filesystem::equivalent(dir, Get(SYS_GetExeDirByPid)));
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
    std::string ProcessPath;
    std::string ProcessDir;
  } aCase[] = {
      {{{IMAGE, "/a/tool"}}, "/a/tool", "/a/", "/a/tool", "/a/"},
      {{{IMAGE, "/a/tool"}, {"/a/tool", "../b/real"}, {"/a/../b/real", "/c/d"}, {"/c/d", "e/f"}},
       "/c/e/f",
       "/c/e/",
       "/a/tool",
       "/a/"},
      {{{IMAGE, "/a/x"}, {"/a/x", "y"}, {"/a/y", "x"}}, "/a/x", "/a/", "/a/x", "/a/"},
      {{{IMAGE, "tool"}}, "tool", "", "tool", ""},
      {{{IMAGE, "tool"}, {"/usr/local/bin/tool", "/opt/t"}}, "/opt/t", "/opt/", "tool", ""},
      {{{IMAGE, longDir + "t"}},
       longDir + "t",
       longDir.substr(0, 255) + '/',
       longDir + "t",
       longDir.substr(0, 255) + '/'},
      {{{IMAGE, tooLong}}, "", "", tooLong, ""},
      {{}, "", "", "", ""},
  };
  for (const auto& test : aCase) {
    SCOPED_LINKS links(test.Links);
    EXPECT_EQ(Get(SYS_GetExePath), test.ExePath);
    EXPECT_EQ(Get(SYS_GetExeDir), test.ExeDir);
    EXPECT_EQ(Get(SYS_GetExePathByPid), test.ProcessPath);
    EXPECT_EQ(Get(SYS_GetExeDirByPid), test.ProcessDir);
  }
}

}  // namespace
