#include "xml/hive.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "tests/faults.h"
#include "tests/registry_support.h"
#include "tests/support.h"

namespace {

using std::string_literals::operator""s;

const std::string OWN_NAME = "NORDAX_REG_HKEY_CURRENT_USER.xml";
const std::string OWN_FILE = OWN_NAME + " ";
const std::string BOTH_FILES = OWN_FILE + OWN_NAME + ".bad ";

int32_t GetUserHive(SYS_REG_HIVE** ppHive) {
  XML_ELEMENT notNull;
  XML_ELEMENT* pElement = &notNull;
  const int32_t result = SYS_REG_GetHive(HKEY_CURRENT_USER, &pElement, ppHive);
  EXPECT_EQ(pElement == nullptr, result < 0);
  return result;
}

TEST(Hive, IsAnEmptyFileUntilSomethingIsStored) {
  const REGISTRY_HOME home;
  for (const auto& [root, name] :
       {std::pair(HKEY_CLASSES_ROOT, "CLASSES_ROOT"), std::pair(HKEY_CURRENT_USER, "CURRENT_USER"),
        std::pair(HKEY_LOCAL_MACHINE, "LOCAL_MACHINE")}) {
    SYS_REG_CloseKey(SYS_REG_OpenKey(root, ""));
    EXPECT_EQ(std::filesystem::file_size(home.HivePath(name)), 0u);
    SYS_REG_CloseKey(SYS_REG_CreateKey(root, name));
    EXPECT_EQ(ReadFile(home.HivePath(name)), HiveWith(name));
  }
}

TEST(Hive, IsWrittenWhenItsLastKeyIsClosed) {
  const REGISTRY_HOME home;
  const SYS_REG_HANDLE first = SYS_REG_CreateKey(HKEY_CURRENT_USER, "Tamsel");
  const SYS_REG_HANDLE second = SYS_REG_OpenKey(first, "");
  SYS_REG_SetValue(second, "Path", SYS_REG_TYPE_SZ, "/tmp", 0);
  SYS_REG_SetValue(second, "Count", SYS_REG_TYPE_DWORD, "\xEF\xBE\xAD\0", 4);
  SYS_REG_SetValue(second, "Big", SYS_REG_TYPE_QWORD, "\2\0\0\0\xFF\0\0\0!", 9);
  SYS_REG_SetValue(second, "List", SYS_REG_TYPE_MULTI_SZ, "a\0b\0", 5);
  SYS_REG_HIVE* pHive;
  EXPECT_EQ(GetUserHive(&pHive), 0);
  SYS_REG_CloseKey(first);
  EXPECT_EQ(home.Text(), "");
  SYS_REG_CloseKey(second);
  const std::string text = HiveWith(
      "Tamsel Path=\"/tmp\" Path_NORDAXRegType=\"SYS_REG_TYPE_SZ\" Count=\"0x00ADBEEF\""
      " Count_NORDAXRegType=\"SYS_REG_TYPE_DWORD\" Big=\"0x000000FF00000002\" Big_NORDAXRegType=\"SYS_REG_TYPE_QWORD\""
      " List=\"a\" List_NORDAXRegMltStr1=\"b\" List_NORDAXRegType=\"SYS_REG_TYPE_MULTI_SZ\"");
  EXPECT_EQ(home.Text(), text);

  // Used through its root alone it has no users, and is written with all others.
  EXPECT_EQ(pHive->pDoc, nullptr);
  SYS_REG_ReleaseHive(pHive, 0);
  EXPECT_EQ(GetUserHive(&pHive), static_cast<int32_t>(text.size()));
  EXPECT_EQ(std::string(pHive->pSnapshot, pHive->SnapshotLen), text);
  EXPECT_EQ(SYS_REG_SetValue(HKEY_CURRENT_USER, "x", SYS_REG_TYPE_SZ, "1", 0), 0u);
  SYS_REG_ReleaseHive(pHive, 0);
  EXPECT_TRUE(pHive->NumUsers == 0 && GetUserHive(&pHive) == 0);
  EXPECT_EQ(home.Text(), text);
  SYS_REG_SaveAll();
  EXPECT_NE(home.Text(), text);
}

constexpr char X_VALUE[] = " x=\"1\" x_NORDAXRegType=\"SYS_REG_TYPE_SZ\"";

// Of files that are no document the last one is kept.
TEST(Hive, IsWrittenAnewOnlyWhenItsTextChanges) {
  const std::string newTree = std::string("<Registry>\r\n  <K") + X_VALUE + "/>\r\n</Registry>\r\n";
  const struct {
    std::string Text;
    std::string NewTree;
    bool IsBad = false;
  } CASES[] = {
      {"<Other y=\"2\"><K z=\"3\">", "<Other y=\"2\">\r\n  <K z=\"3\"" + (X_VALUE + "/>\r\n</Other>\r\n"s)},
      {"<!-- " + std::string(500, '-') + " --><Registry/>", newTree},
      {"", newTree},
      {"no document", newTree, true},
      {"<?xml version=\"1.0\" ?><!-- nothing -->", newTree, true},
      {"\n", newTree, true},
      {"<A></B>", newTree, true},
  };
  const REGISTRY_HOME home;
  for (const auto& test : CASES) {
    SCOPED_TRACE(test.Text);
    home.Write(test.Text);
    const SYS_REG_HANDLE key = SYS_REG_OpenKey(HKEY_CURRENT_USER, "");
    SYS_REG_SetValue(key, "x", SYS_REG_TYPE_SZ, "1", 0);
    SYS_REG_DeleteValue(key, "x");
    SYS_REG_CloseKey(key);
    EXPECT_EQ(home.Text(), test.Text);

    const std::string badBefore = ReadFile(home.HivePath() + ".bad");
    EXPECT_TRUE(StoreText("K", "x", "2") && StoreText("K", "x", "1"));
    EXPECT_EQ(home.Text(), DECLARATION + test.NewTree);
    EXPECT_EQ(ReadFile(home.HivePath() + ".bad"), test.IsBad ? test.Text : badBefore);
  }
}

TEST(Hive, NeedsADirectory) {
  const REGISTRY_HOME home;
  SYS_REG_HIVE* pHive;
  const std::string file = home.Dir.AddFile("file");
  const std::string longHome = home.Dir.Path + std::string(511 - home.Dir.Path.size() - 60, '/');
  for (const char* value : {static_cast<const char*>(nullptr), file.c_str(), longHome.c_str()}) {
    const SCOPED_ENV env("HOME", value);
    EXPECT_EQ(GetUserHive(&pHive), -1);
    EXPECT_FALSE(StoreText("A", "x", "1"));
  }
  // Where it was when the hive was loaded counts. One that goes away comes back while a key is open.
  const SYS_REG_HANDLE key = SYS_REG_CreateKey(HKEY_CURRENT_USER, "A");
  std::filesystem::remove_all(home.Dir / "Library");
  EXPECT_EQ(SYS_REG_SetValue(key, "x", SYS_REG_TYPE_SZ, "1", 0), 0u);
  const REGISTRY_HOME other;
  SYS_REG_CloseKey(key);
  EXPECT_EQ(home.Text(), HiveWith("A"s + X_VALUE));
  EXPECT_EQ(other.Dir.List(), std::vector<std::string>{});
  // Backslashes in its path stand for slashes.
  std::filesystem::create_directories(home.Dir / "a/b");
  std::filesystem::rename(home.Dir / "Library", home.Dir / "a/b/Library");
  const SCOPED_ENV env("HOME", (home.Dir / "a\\b").c_str());
  EXPECT_TRUE(StoreText("B", "x", "1"));
  EXPECT_NE(ReadFile(home.Dir / "a/b/Library/Application Support/NORDAX/" + OWN_NAME).find("<B"), std::string::npos);
}

TEST(Hive, HoldsExactlyItsLimit) {
  const REGISTRY_HOME home;
  const size_t room = SYS_REG_MAX_HIVE_SIZE - HiveWith("A x=\"\" x_NORDAXRegType=\"SYS_REG_TYPE_SZ\"").size();
  EXPECT_TRUE(StoreText("A", "x", std::string(room, 'v')));
  const std::string text = home.Text();
  EXPECT_EQ(text.size(), SYS_REG_MAX_HIVE_SIZE);
  EXPECT_TRUE(StoreText("A", "x", std::string(room + 1, 'v')));
  EXPECT_EQ(home.Text(), text);

  // One that is too long fails once, and is not written before there is room again.
  const std::string tooLong = HiveWith("A x=\"" + std::string(SYS_REG_MAX_HIVE_SIZE, 'v') + "\"");
  home.Write(tooLong);
  SYS_REG_HIVE* pHive;
  EXPECT_LT(GetUserHive(&pHive), 0);
  EXPECT_TRUE(StoreText("A", "y", "1"));
  EXPECT_EQ(home.Text(), tooLong);
  EXPECT_EQ(SYS_REG_OpenKey(HKEY_CURRENT_USER, ""), nullptr);
  EXPECT_EQ(SYS_REG_ClearSubKey(HKEY_CURRENT_USER, "A"), SYS_REG_OK);
  EXPECT_TRUE(StoreText("A", "x", "1"));
  EXPECT_EQ(home.Text(), HiveWith("A"s + X_VALUE));
  EXPECT_EQ(home.Files(), OWN_FILE);
}

TEST(Hive, IsOpenedAgainWhenThatFailsAtFirst) {
  FAULTS_REQUIRE();
  const REGISTRY_HOME home;
  const SCOPED_FAULT fault({FAULT_CALL::OPEN, 1, EMFILE, 3});
  SYS_REG_HIVE* pHive;
  EXPECT_GE(GetUserHive(&pHive), 0);
  EXPECT_EQ(fault.NumCalls(), 4u);
}

// ---- Failures and kills ----

// A hive to change the value A\x of, while something goes wrong, beside another key that must not get lost.
class VICTIM {
 public:
  explicit VICTIM(const std::string& oldText) : OldText(oldText) { Reset(); }

  static std::string Text(const std::string& value, bool hasOther = true) {
    const std::string element = "A x=\"" + value + "\" x_NORDAXRegType=\"SYS_REG_TYPE_SZ\"";
    return HiveWith(element + (hasOther ? "/>\r\n  <B y=\"kept\"" : ""));
  }

  // Looks at what an attempt to store a value has left: the whole old text, or the whole new one; and a file that was
  // no document, or that may not have been readable, can be there under the other name, with the value alone in the new
  // one. The next change is none the worse for it. Returns whether the text was the old one.
  bool CheckAfter(const std::string& attempted, bool mayBeUnread = false) {
    SYS_REG_SaveAll();
    const std::string text = Home.Text();
    const bool isOld = text == OldText;
    if (!isOld && (OldText == "bad" || (mayBeUnread && text != Text(attempted)))) {
      EXPECT_EQ(text, Text(attempted, false));
      EXPECT_EQ(ReadFile(Home.HivePath() + ".bad"), OldText);
    } else if (!isOld) {
      EXPECT_EQ(text, Text(attempted));
    }
    EXPECT_TRUE(StoreText("A", "x", "next"));
    EXPECT_EQ(Home.Text(), Text("next", text.find("kept") != std::string::npos));
    EXPECT_EQ(Home.Files(), BOTH_FILES);
    Reset();
    return isOld;
  }

  const REGISTRY_HOME Home;

 private:
  void Reset() const {
    Home.Write(OldText);
    std::ofstream(Home.HivePath() + ".bad") << "an older one";
  }

  const std::string OldText;
  const SCOPED_FAULT NoFlush{{FAULT_CALL::FSYNC, 1, 0, UINT32_MAX, FAULT_KIND::SKIP}};
};

TEST(HiveFaults, EachCallThatFailsLeavesTheOldOrTheNewText) {
  FAULTS_REQUIRE();
  for (const FAULT& kind : {FAULT{FAULT_CALL::ANY, 1, EIO}, FAULT{FAULT_CALL::ANY, 1, EIO, UINT32_MAX},
                            FAULT{FAULT_CALL::ANY, 1, ENOSPC, UINT32_MAX}, FAULT{FAULT_CALL::ANY, 1, EACCES},
                            FAULT{FAULT_CALL::ANY, 1, ENOENT}, FAULT{FAULT_CALL::ANY, 1, EINTR},
                            FAULT{FAULT_CALL::MALLOC, 1, ENOMEM}, FAULT{FAULT_CALL::MALLOC, 1, ENOMEM, UINT32_MAX}}) {
    VICTIM victim(VICTIM::Text("old"));
    uint32_t numOld = 0;
    bool wasHit = true;
    for (FAULT fault = kind; wasHit && !HasFailure(); fault.First++) {
      SCOPED_TRACE(testing::Message() << fault.First << " fails, error " << fault.Error << ", count " << fault.Count);
      bool isStored;
      {
        const SCOPED_FAULT scoped(fault);
        isStored = StoreText("A", "x", std::string(5000, 'n'));
        wasHit = scoped.WasHit();
      }
      const bool isOld = victim.CheckAfter(std::string(5000, 'n'), wasHit);
      EXPECT_TRUE(wasHit || (isStored && !isOld && fault.First > (kind.Call == FAULT_CALL::ANY ? 20 : 7)));
      numOld += isOld;
    }
    EXPECT_GE(numOld, kind.Error == EIO && kind.Count != 1 ? 15u : 5u);
  }
}

TEST(HiveFaults, AFlushThatFailsLeavesTheOldText) {
  FAULTS_REQUIRE();
  const REGISTRY_HOME home;
  home.Write(HiveWith("A"));
  const SCOPED_FAULT fault({FAULT_CALL::FSYNC, 1, EIO});
  EXPECT_TRUE(StoreText("A", "x", "1"));
  EXPECT_EQ(home.Text(), HiveWith("A"));
  EXPECT_EQ(home.Files(), OWN_FILE);
}

// A child process changes the value and is killed at its nth system call, with all writes in one go or in pieces.
TEST(HiveFaults, AKillAtAnyCallLeavesTheOldOrTheNewText) {
  FAULTS_REQUIRE();
  for (const std::string& oldText : {VICTIM::Text("old"), "bad"s}) {
    for (const uint32_t numShort : {0u, UINT32_MAX}) {
      VICTIM victim(oldText);
      uint32_t aNum[2] = {};  // Of new and of old texts found.
      int status = SIGKILL;
      for (uint32_t n = 1; WIFSIGNALED(status) && !HasFailure(); n++) {
        SCOPED_TRACE(testing::Message() << "killed at call " << n);
        const pid_t child = fork();
        if (child == 0) {
          const SCOPED_FAULT kill({FAULT_CALL::ANY, n, 0, 1, FAULT_KIND::KILL});
          const SCOPED_FAULT cut({FAULT_CALL::WRITE, 1, 0, numShort, FAULT_KIND::SHORT});
          StoreText("A", "x", "new");
          _exit(0);
        }
        waitpid(child, &status, 0);
        aNum[victim.CheckAfter("new")]++;
      }
      EXPECT_EQ(status, 0);
      EXPECT_GE(aNum[0], 5u);
      EXPECT_GE(aNum[1], 15u);
    }
  }
}

}  // namespace
