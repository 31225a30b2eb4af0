#include "xml/hive.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>

#include "sys/sys_memory.h"
#include "tests/faults.h"
#include "tests/registry_support.h"
#include "tests/support.h"

namespace {

constexpr char OWN_FILE[] = "NORDAX_REG_HKEY_CURRENT_USER.xml ";
constexpr char BOTH_FILES[] = "NORDAX_REG_HKEY_CURRENT_USER.xml NORDAX_REG_HKEY_CURRENT_USER.xml.bad ";

SYS_REG_HIVE* HiveOf(SYS_REG_HANDLE handle, int32_t* pResult = nullptr) {
  XML_ELEMENT* pElement = nullptr;
  SYS_REG_HIVE* pHive = nullptr;
  const int32_t result = SYS_REG_GetHive(handle, &pElement, &pHive);
  if (pResult != nullptr) {
    *pResult = result;
  }
  EXPECT_EQ(pElement == nullptr, result < 0);
  return pHive;
}

TEST(Hive, IsAnEmptyFileUntilSomethingIsStored) {
  const REGISTRY_HOME home;
  const struct {
    SYS_REG_HANDLE Root;
    const char* name;
  } aRoots[] = {
      {HKEY_CLASSES_ROOT, "CLASSES_ROOT"}, {HKEY_CURRENT_USER, "CURRENT_USER"}, {HKEY_LOCAL_MACHINE, "LOCAL_MACHINE"}};
  for (const auto& root : aRoots) {
    const SYS_REG_HANDLE key = SYS_REG_OpenKey(root.Root, "");
    ASSERT_NE(key, nullptr);
    SYS_REG_CloseKey(key);
    EXPECT_EQ(std::filesystem::file_size(home.HivePath(root.name)), 0u);
  }
  for (const auto& root : aRoots) {
    SYS_REG_CloseKey(SYS_REG_CreateKey(root.Root, root.name));
    EXPECT_EQ(ReadFile(home.HivePath(root.name)), HiveWith(root.name));
  }
}

TEST(Hive, HasTheLayoutThatIsDocumented) {
  const REGISTRY_HOME home;
  const SYS_REG_HANDLE key = SYS_REG_CreateKey(HKEY_CURRENT_USER, "Software\\NORDAX\\Tamsel");
  SYS_REG_SetValue(key, "Path", SYS_REG_TYPE_SZ, "/tmp", 0);
  SYS_REG_SetValue(key, "Count", SYS_REG_TYPE_DWORD, "\x05\0\0\0", 4);
  SYS_REG_SetValue(key, "List", SYS_REG_TYPE_MULTI_SZ, "a\0b\0", 5);
  SYS_REG_CloseKey(key);
  EXPECT_EQ(home.Text(), std::string(DECLARATION) +
                             "<Registry>\r\n"
                             "  <Software>\r\n"
                             "    <NORDAX>\r\n"
                             "      <Tamsel Path=\"/tmp\" Path_NORDAXRegType=\"SYS_REG_TYPE_SZ\" Count=\"0x00000005\""
                             " Count_NORDAXRegType=\"SYS_REG_TYPE_DWORD\" List=\"a\" List_NORDAXRegMltStr1=\"b\""
                             " List_NORDAXRegType=\"SYS_REG_TYPE_MULTI_SZ\"/>\r\n"
                             "    </NORDAX>\r\n"
                             "  </Software>\r\n"
                             "</Registry>\r\n");
}

TEST(Hive, IsWrittenWhenItsLastKeyIsClosed) {
  const REGISTRY_HOME home;
  const SYS_REG_HANDLE first = SYS_REG_CreateKey(HKEY_CURRENT_USER, "A");
  const SYS_REG_HANDLE second = SYS_REG_CreateKey(first, "B");
  SYS_REG_HIVE* pHive = HiveOf(first);
  EXPECT_EQ(pHive, HiveOf(HKEY_CURRENT_USER));
  EXPECT_EQ(pHive->NumUsers, 2u);
  SYS_REG_CloseKey(first);
  EXPECT_EQ(home.Text(), "");
  EXPECT_EQ(SYS_REG_SetValue(second, "x", SYS_REG_TYPE_SZ, "1", 0), 0u);
  SYS_REG_CloseKey(second);
  EXPECT_EQ(home.Text(), std::string(DECLARATION) +
                             "<Registry>\r\n  <A>\r\n    <B x=\"1\" x_NORDAXRegType="
                             "\"SYS_REG_TYPE_SZ\"/>\r\n  </A>\r\n</Registry>\r\n");
  EXPECT_EQ(pHive->pDoc, nullptr);
  SYS_REG_ReleaseHive(pHive, 0);
  EXPECT_EQ(pHive->NumUsers, 0u);
}

TEST(Hive, ThatIsUsedThroughItsRootAloneIsWrittenWithAllOthers) {
  const REGISTRY_HOME home;
  EXPECT_EQ(SYS_REG_SetValue(HKEY_CURRENT_USER, "x", SYS_REG_TYPE_SZ, "1", 0), 0u);
  SYS_REG_HIVE* pHive = HiveOf(HKEY_CURRENT_USER);
  SYS_REG_ReleaseHive(pHive, 0);
  EXPECT_EQ(pHive->NumUsers, 0u);
  EXPECT_NE(pHive->pDoc, nullptr);
  EXPECT_EQ(home.Text(), "");
  SYS_REG_SaveAll();
  EXPECT_EQ(home.Text(), std::string(DECLARATION) + "<Registry x=\"1\" x_NORDAXRegType=\"SYS_REG_TYPE_SZ\"/>\r\n");
}

TEST(Hive, TellsTheLengthOfItsSnapshotWhenItIsLoaded) {
  const REGISTRY_HOME home;
  const std::string text = HiveWith("A");
  home.Write(text);
  int32_t result = 0;
  const SYS_REG_HIVE* pHive = HiveOf(HKEY_CURRENT_USER, &result);
  EXPECT_EQ(result, static_cast<int32_t>(text.size()));
  ASSERT_EQ(pHive->SnapshotLen, text.size());
  EXPECT_EQ(std::string(pHive->pSnapshot, pHive->SnapshotLen), text);
  HiveOf(HKEY_CURRENT_USER, &result);
  EXPECT_EQ(result, 0);
}

TEST(Hive, IsNotTouchedUnlessItsTextChanges) {
  const REGISTRY_HOME home;
  for (const char* text : {"<!-- edited --><reg><A x = \"1\"/></reg>", "no document", " ", "<A><B x=\"1\"><C"}) {
    home.Write(text);
    struct stat before;
    struct stat after;
    ASSERT_EQ(stat(home.HivePath().c_str(), &before), 0);
    const SYS_REG_HANDLE key = SYS_REG_OpenKey(HKEY_CURRENT_USER, "");
    ASSERT_NE(key, nullptr);
    SYS_REG_SetValue(key, "x", SYS_REG_TYPE_SZ, "1", 0);
    SYS_REG_DeleteValue(key, "x");
    SYS_REG_CloseKey(key);
    ASSERT_EQ(stat(home.HivePath().c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(home.Text(), text);
    EXPECT_EQ(home.Files(), OWN_FILE);
  }
}

TEST(Hive, IsWrittenAnewWhateverItWasLike) {
  static constexpr char NEW_TREE[] =
      "<Registry>\r\n  <K x=\"1\" x_NORDAXRegType=\"SYS_REG_TYPE_SZ\"/>\r\n</Registry>\r\n";
  static constexpr struct {
    const char* text;
    const char* Tree;
    bool IsBad;
  } aCases[] = {
      {"<Other y=\"2\"><K z=\"3\">",  // Cut.
       "<Other y=\"2\">\r\n  <K z=\"3\" x=\"1\" x_NORDAXRegType=\"SYS_REG_TYPE_SZ\"/>\r\n</Other>\r\n", false},
      {"<!-- much longer than the new text is going to be, by far and by far and by far and by far and by far and by "
       "far and by far and by far and by far and by far and by far --><Registry/>",
       NEW_TREE, false},
      {"", NEW_TREE, false},
      {"no document", NEW_TREE, true},
      {"<?xml version=\"1.0\" ?><!-- nothing -->", NEW_TREE, true},
      {"<A></B>", NEW_TREE, true},
      {"<A><B", NEW_TREE, true},
      {"\n", NEW_TREE, true},
  };
  for (const auto& test : aCases) {
    SCOPED_TRACE(test.text);
    const REGISTRY_HOME home;
    home.Write(test.text);
    EXPECT_TRUE(StoreText("K", "x", "1"));
    EXPECT_EQ(home.Text(), std::string(DECLARATION) + test.Tree);
    EXPECT_EQ(home.Files(), test.IsBad ? BOTH_FILES : OWN_FILE);
    EXPECT_EQ(ReadFile(home.HivePath() + ".bad"), test.IsBad ? test.text : "");
  }
}

TEST(Hive, KeepsTheLastBadFile) {
  const REGISTRY_HOME home;
  for (const char* text : {"bad", "worse"}) {
    home.Write(text);
    EXPECT_TRUE(StoreText("A", "x", "1"));
    EXPECT_TRUE(StoreText("A", "x", "2"));
    EXPECT_EQ(ReadFile(home.HivePath() + ".bad"), text);
  }
}

TEST(Hive, StaysTheFileThatItWasLoadedFrom) {
  const REGISTRY_HOME home;
  home.Write(HiveWith("A"));
  const std::string real = home.Dir / "real.xml";
  std::filesystem::rename(home.HivePath(), real);
  chmod(real.c_str(), 0600);
  std::filesystem::create_symlink(real, home.HivePath());
  const SYS_REG_HANDLE key = SYS_REG_CreateKey(HKEY_CURRENT_USER, "B");
  const REGISTRY_HOME other;
  SYS_REG_CloseKey(key);
  EXPECT_EQ(other.Dir.List(), std::vector<std::string>{});
  EXPECT_TRUE(std::filesystem::is_symlink(home.HivePath()));
  EXPECT_EQ(ReadFile(real), std::string(DECLARATION) + "<Registry>\r\n  <A/>\r\n  <B/>\r\n</Registry>\r\n");
  EXPECT_EQ(std::filesystem::status(real).permissions(), std::filesystem::perms(0600));
}

TEST(Hive, LeavesPipesAndDevicesAlone) {
  const REGISTRY_HOME home;
  std::filesystem::create_directories(home.HiveDir());
  ASSERT_EQ(mkfifo(home.HivePath().c_str(), 0666), 0);
  const std::string device = home.HivePath("DEVICE");
  ASSERT_EQ(mkfifo(device.c_str(), 0666), 0);  // Behind a link it is what /dev/null would be, and nobody misses it.
  ASSERT_EQ(symlink(device.c_str(), home.HivePath("LOCAL_MACHINE").c_str()), 0);
  for (const SYS_REG_HANDLE root : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE}) {
    EXPECT_EQ(SYS_REG_SetValue(root, "x", SYS_REG_TYPE_SZ, "1", 0), 0u);
  }
  SYS_REG_SaveAll();
  EXPECT_TRUE(std::filesystem::is_fifo(home.HivePath()));
  EXPECT_TRUE(std::filesystem::is_fifo(device));
}

TEST(Hive, NeedsADirectory) {
  const TEMP_DIR dir;
  const std::string file = dir.AddFile("file");
  const std::string longHome = dir.Path + std::string(511 - dir.Path.size() - 60, '/');
  for (const char* value : {static_cast<const char*>(nullptr), file.c_str(), longHome.c_str()}) {
    const SCOPED_ENV home("HOME", value);
    int32_t result = 0;
    HiveOf(HKEY_CURRENT_USER, &result);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(SYS_REG_CreateKey(HKEY_CURRENT_USER, "A"), nullptr);
    EXPECT_EQ(SYS_REG_SetValue(HKEY_CURRENT_USER, "x", SYS_REG_TYPE_SZ, "1", 0), SYS_REG_ERROR);
  }
  for (const auto& entry : std::filesystem::recursive_directory_iterator(dir.Path)) {
    EXPECT_TRUE(entry.is_directory() || entry.path() == file) << entry.path();
  }
}

TEST(Hive, DirectoryComesBackWhileAKeyIsOpen) {
  const REGISTRY_HOME home;
  const SYS_REG_HANDLE key = SYS_REG_CreateKey(HKEY_CURRENT_USER, "A");
  std::filesystem::remove_all(home.Dir / "Library");
  EXPECT_EQ(SYS_REG_SetValue(key, "x", SYS_REG_TYPE_SZ, "1", 0), 0u);
  SYS_REG_CloseKey(key);
  EXPECT_EQ(home.Text(), HiveWith("A x=\"1\" x_NORDAXRegType=\"SYS_REG_TYPE_SZ\""));
}

TEST(Hive, TurnsBackslashesOfItsPathIntoSlashes) {
  const REGISTRY_HOME home;
  const std::string path = home.Dir / "a\\b";
  const SCOPED_ENV env("HOME", path.c_str());
  std::filesystem::create_directories(home.Dir / "a/b/Library/Application Support/NORDAX");
  EXPECT_TRUE(StoreText("A", "x", "1"));
  EXPECT_TRUE(
      std::filesystem::exists(home.Dir / "a/b/Library/Application Support/NORDAX/NORDAX_REG_HKEY_CURRENT_USER.xml"));
}

TEST(Hive, HoldsExactlyItsLimit) {
  const REGISTRY_HOME home;
  const size_t overhead = HiveWith("A x=\"\" x_NORDAXRegType=\"SYS_REG_TYPE_SZ\"").size();
  EXPECT_TRUE(StoreText("A", "x", std::string(SYS_REG_MAX_HIVE_SIZE - overhead, 'v')));
  EXPECT_EQ(home.Text().size(), SYS_REG_MAX_HIVE_SIZE);
  const std::string text = home.Text();
  EXPECT_TRUE(StoreText("A", "x", std::string(SYS_REG_MAX_HIVE_SIZE - overhead + 1, 'v')));
  EXPECT_EQ(home.Text(), text);
  EXPECT_EQ(home.Files(), OWN_FILE);
}

TEST(Hive, ThatIsTooLongFailsOnceAndIsNotWritten) {
  const REGISTRY_HOME home;
  const std::string text = HiveWith("A x=\"" + std::string(SYS_REG_MAX_HIVE_SIZE, 'v') + "\"");
  home.Write(text);
  int32_t result = 0;
  HiveOf(HKEY_CURRENT_USER, &result);
  EXPECT_LT(result, 0);
  EXPECT_TRUE(StoreText("A", "y", "1"));
  EXPECT_EQ(home.Text(), text);
  // With the long value gone there is room again.
  EXPECT_EQ(SYS_REG_OpenKey(HKEY_CURRENT_USER, ""), nullptr);
  EXPECT_EQ(SYS_REG_ClearSubKey(HKEY_CURRENT_USER, "A"), SYS_REG_OK);
  EXPECT_TRUE(StoreText("A", "y", "1"));
  EXPECT_EQ(home.Text(), HiveWith("A y=\"1\" y_NORDAXRegType=\"SYS_REG_TYPE_SZ\""));
}

TEST(Hive, IsOpenedAgainWhenThatFailsAtFirst) {
  FAULTS_REQUIRE();
  const REGISTRY_HOME home;
  for (const uint32_t numFailures : {3, 4}) {
    const SCOPED_FAULT fault({FAULT_CALL::OPEN, 1, EMFILE, numFailures});
    const auto start = std::chrono::steady_clock::now();
    int32_t result = 0;
    HiveOf(HKEY_CURRENT_USER, &result);
    EXPECT_EQ(fault.NumCalls(), 4u);
    EXPECT_EQ(result < 0, numFailures == 4);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(15));
    SYS_REG_SaveAll();
  }
}

// ---- Failures and kills ----

// A hive for the cases below to change the value A\x of, over and over.
class VICTIM {
 public:
  explicit VICTIM(const std::string& oldText = Text("1")) { Reset(oldText); }

  static std::string Text(const std::string& value) {
    return HiveWith("A x=\"" + value + "\" x_NORDAXRegType=\"SYS_REG_TYPE_SZ\"");
  }

  void Reset(const std::string& text) {
    OldText = text;
    Home.Write(text);
    std::ofstream(Home.HivePath() + ".bad") << "an older one";
  }

  // Looks at the file after an attempt to change the value in which something went wrong, and whether the next change
  // is none the worse for it. Returns whether the file had its old text.
  bool CheckAfter(const std::string& attempted) {
    SYS_REG_SaveAll();
    const std::string text = Home.Text();
    const bool isOld = text == OldText;
    EXPECT_TRUE(isOld || text == Text(attempted)) << text;
    OldText = Text("next " + attempted);
    EXPECT_TRUE(StoreText("A", "x", "next " + attempted));
    EXPECT_EQ(Home.Text(), OldText);
    EXPECT_EQ(Home.Files().find(".new"), std::string::npos) << Home.Files();
    return isOld;
  }

  const REGISTRY_HOME Home;

 private:
  std::string OldText;
  const SCOPED_FAULT NoFlush{{FAULT_CALL::FSYNC, 1, 0, UINT32_MAX, FAULT_KIND::SKIP}};
};

TEST(HiveFaults, EachSystemCallThatFailsLeavesTheOldOrTheNewText) {
  FAULTS_REQUIRE();
  for (const auto& [error, count] : {std::pair(EIO, 1u), std::pair(EIO, UINT32_MAX), std::pair(ENOSPC, UINT32_MAX),
                                     std::pair(EACCES, 1u), std::pair(ENOENT, 1u), std::pair(EINTR, 1u)}) {
    VICTIM victim;
    uint32_t numOld = 0;
    for (uint32_t n = 1;; n++) {
      SCOPED_TRACE(testing::Message() << "call " << n << " fails, error " << error << ", count " << count);
      const std::string value = std::to_string(n);
      bool wasHit;
      {
        const SCOPED_FAULT fault({FAULT_CALL::ANY, n, error, count});
        StoreText("A", "x", value);
        wasHit = fault.WasHit();
      }
      numOld += victim.CheckAfter(value);
      if (!wasHit || HasFailure()) {
        EXPECT_GE(n, 20u);
        break;
      }
    }
    EXPECT_GE(numOld, error == EIO && count != 1 ? 15u : 5u);
  }
}

TEST(HiveFaults, EachFlushThatFailsLeavesTheOldOrTheNewText) {
  FAULTS_REQUIRE();
  const REGISTRY_HOME home;
  home.Write(VICTIM::Text("1"));
  SweepFaults(FAULT_CALL::FSYNC, EIO, [&](const SCOPED_FAULT& fault) {
    const std::string value = "call " + std::to_string(fault.NumCalls());
    EXPECT_TRUE(StoreText("A", "x", value));
    EXPECT_EQ(home.Text(), VICTIM::Text(fault.NumCalls() == 1 ? "1" : value));
    EXPECT_EQ(home.Files(), OWN_FILE);
  });
}

TEST(HiveFaults, InterruptedAndShortCallsChangeNothing) {
  FAULTS_REQUIRE();
  VICTIM victim;
  for (const FAULT_CALL call : {FAULT_CALL::OPEN, FAULT_CALL::READ, FAULT_CALL::WRITE}) {
    SweepFaults(call, EINTR, [&](const SCOPED_FAULT&) { EXPECT_TRUE(StoreText("A", "x", "interrupted")); });
    EXPECT_FALSE(victim.CheckAfter("interrupted"));
  }
  for (const FAULT_CALL call : {FAULT_CALL::WRITE, FAULT_CALL::READ}) {
    const std::string value(10000 + static_cast<size_t>(call), 'v');
    {
      const SCOPED_FAULT fault({call, 1, 0, UINT32_MAX, FAULT_KIND::SHORT});
      EXPECT_TRUE(StoreText("A", "x", value));
      EXPECT_GE(fault.NumCalls(), 8u);
    }
    EXPECT_FALSE(victim.CheckAfter(value));
  }
}

// A child process changes the value and is killed at its nth system call, with all writes in one go or in pieces.
TEST(HiveFaults, AKillAtAnyCallLeavesTheOldOrTheNewText) {
  FAULTS_REQUIRE();
  for (const std::string& oldText : {VICTIM::Text("1"), std::string("bad")}) {
    for (const uint32_t numShort : {0u, UINT32_MAX}) {
      VICTIM victim;
      uint32_t aNum[2] = {};  // Of new and of old texts found.
      int status = SIGKILL;
      for (uint32_t n = 1; WIFSIGNALED(status) && !HasFailure(); n++) {
        SCOPED_TRACE(testing::Message() << "killed at call " << n);
        const std::string value = std::to_string(n);
        victim.Reset(oldText);
        const pid_t child = fork();
        if (child == 0) {
          const SCOPED_FAULT kill({FAULT_CALL::ANY, n, 0, 1, FAULT_KIND::KILL});
          const SCOPED_FAULT cut({FAULT_CALL::WRITE, 1, 0, numShort, FAULT_KIND::SHORT});
          StoreText("A", "x", value);
          _exit(0);
        }
        waitpid(child, &status, 0);
        EXPECT_TRUE(oldText != "bad" || victim.Home.Text() == "bad" ||
                    ReadFile(victim.Home.HivePath() + ".bad") == "bad");
        aNum[victim.CheckAfter(value)]++;
      }
      EXPECT_EQ(status, 0);
      EXPECT_GE(aNum[0], 5u);
      EXPECT_GE(aNum[1], 15u);
    }
  }
}

TEST(HiveFaults, ExhaustedMemoryLosesNoMoreThanTheChange) {
  FAULTS_REQUIRE();
  VICTIM victim;
  for (const uint32_t count : {1u, UINT32_MAX}) {
    for (uint32_t n = 1;; n++) {
      SCOPED_TRACE(testing::Message() << "allocation " << n << " fails, " << count);
      const std::string value = std::to_string(n) + std::string(10000, 'v');
      bool wasHit;
      bool isStored;
      {
        const SCOPED_FAULT fault({FAULT_CALL::MALLOC, n, ENOMEM, count});
        isStored = StoreText("A", "x", value);
        wasHit = fault.WasHit();
      }
      const std::string text = victim.Home.Text();
      victim.CheckAfter(value);
      if (!wasHit || HasFailure()) {
        EXPECT_TRUE(isStored);
        EXPECT_EQ(text, VICTIM::Text(value));
        EXPECT_GE(n, 8u);
        break;
      }
    }
  }
}

}  // namespace
