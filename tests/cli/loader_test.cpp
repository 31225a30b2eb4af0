// Where the probe library is looked for. Programs run with the temporary directory as their root where that is
// permitted: only there can the install directory be tried, and what the machine has there does not count.

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/cli/run_tool.h"

namespace {

namespace fs = std::filesystem;

constexpr char NOT_FOUND[] =
    "Could not open Vorta shared library.\n-1\n"
    "Could not open Vorta shared library.\n-1\n"
    "Could not open Vorta shared library. Exiting now.\n";

class Loader : public testing::Test {
 protected:
  Loader() {
    dir.Place(LOADER_CLIENT_FILE, "real/a/b/c/client");
    dir.Place(FAKE_DIR "fake_probe.dylib", "fake");
  }

  void AddLibrary(const std::string& name) const {
    fs::create_directories(fs::path(dir.At(name)).parent_path());
    fs::create_hard_link(dir.At("fake"), dir.At(name));
  }

  // What the client prints when it finds the library.
  std::string Found(int result, const std::string& path) const {
    return std::to_string(result) + "\n0\n" + path + "\n";
  }

  void ExpectOutput(LAUNCH launch, const std::string& output) const {
    launch.IsRoot = isRoot;
    const OUTCOME outcome = Launch(dir, launch);
    EXPECT_EQ(outcome.Output, output);
    EXPECT_EQ(outcome.Errors, "");
    EXPECT_EQ(outcome.Status, output == NOT_FOUND ? 1 : 0);
  }

  const TEMP_DIR dir;
  const bool isRoot = dir.MakeRoot();
  const std::string root = isRoot ? "" : dir.Path();  // What paths begin with, as the program sees them.
};

// Every combination of places, once with nothing and once with a file that is no library in the others.
TEST_F(Loader, TakesTheFirstOfSixPlaces) {
  struct PLACE {
    int Result;
    const char* pFile;
    const char* pOpened;
  };
  static constexpr PLACE PLACES[] = {
      {1, "link/a/b/c/libvortaarm.dylib", "/link/a/b/c/libvortaarm.dylib"},
      {1, "link/libvortaarm.dylib", "/link/a/b/c/../../../libvortaarm.dylib"},
      {2, "real/a/b/c/libvortaarm.dylib", "/real/a/b/c/libvortaarm.dylib"},
      {2, "real/libvortaarm.dylib", "/real/a/b/c/../../../libvortaarm.dylib"},
      {3, "Applications/NORDAX/Vorta/libvortaarm.dylib", "/Applications/NORDAX/Vorta/libvortaarm.dylib"},
      {4, "Applications/NORDAX/Vorta/libvortaarm.5.dylib", "/Applications/NORDAX/Vorta/libvortaarm.5.dylib"},
  };
  const size_t numPlaces = isRoot ? std::size(PLACES) : 4;
  fs::create_directories(dir.At("link/a/b/c"));
  fs::create_symlink("../../../../real/a/b/c/client", dir.At("link/a/b/c/client"));
  for (uint32_t mask = isRoot ? 0 : 1; mask < 1u << numPlaces; mask++) {
    for (const bool hasOtherFiles : {false, true}) {
      SCOPED_TRACE("places " + std::to_string(mask) + (hasOtherFiles ? " among other files" : ""));
      std::string expected = NOT_FOUND;
      for (size_t i = numPlaces; i-- > 0;) {
        fs::remove(dir.At(PLACES[i].pFile));
        if ((mask >> i & 1) != 0) {
          AddLibrary(PLACES[i].pFile);
          expected = Found(PLACES[i].Result, root + PLACES[i].pOpened);
        } else if (hasOtherFiles) {
          dir.Write(PLACES[i].pFile, "no library");
        }
      }
      ExpectOutput({.File = "link/a/b/c/client"}, expected);
    }
  }
  if (!isRoot) {
    GTEST_SKIP() << "the install directory is not tried: changing the root directory is not permitted";
  }
}

TEST_F(Loader, GoesByHowTheProgramWasStarted) {
  AddLibrary("real/a/b/c/libvortaarm.dylib");
  AddLibrary("libvortaarm.dylib");
  fs::create_directories(dir.At("else/where/else"));
  dir.Place(LOADER_CLIENT_FILE, "odd/x\\client");
  AddLibrary("odd/x\\libvortaarm.dylib");
  AddLibrary("odd/libvortaarm.dylib");
  const struct {
    LAUNCH Launch;
    int Result;
    std::string Opened;
  } rows[] = {
      {{.File = "real/a/b/c/client", .Name = "./client", .WorkingDir = "real/a/b/c"}, 1, "./libvortaarm.dylib"},
      {{.File = "real/a/b/c/client", .Name = "c/client", .WorkingDir = "real/a/b"}, 1, "c/libvortaarm.dylib"},
      // Found in the PATH: a name without a directory does not mean the working directory, nor what is above it.
      {{.File = "real/a/b/c/client", .Name = "client", .WorkingDir = "else/where/else"},
       2,
       root + "/real/a/b/c/libvortaarm.dylib"},
      // The program's name is what follows the last slash or backslash.
      {{.File = "odd/x\\client"}, 1, root + "/odd/x\\libvortaarm.dylib"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Launch.Name + " in " + row.Launch.WorkingDir);
    ExpectOutput(row.Launch, Found(row.Result, row.Opened));
  }
  fs::remove(dir.At("real/a/b/c/libvortaarm.dylib"));
  if (isRoot) {
    ExpectOutput({.File = "real/a/b/c/client", .Name = "client", .WorkingDir = "else/where/else"}, NOT_FOUND);
  }
}

// A path is used up to 511 characters, the program's as well as the library's: no other place is taken for a cut one.
TEST_F(Loader, LeavesOutPathsThatAreTooLong) {
  constexpr size_t LONGEST_DIR = 511 - (sizeof("libvortaarm.dylib") - 1);
  for (const size_t length : {LONGEST_DIR, LONGEST_DIR + 1, size_t{600}}) {
    SCOPED_TRACE(length);
    std::string folder = std::to_string(length) + "/";
    while (root.size() + 1 + folder.size() < length) {
      const size_t left = length - root.size() - 1 - folder.size();
      folder += std::string(left > 200 ? 100 : left - 1, 'x') + "/";
      AddLibrary(folder + "libvortaarm.dylib");
    }
    dir.Place(LOADER_CLIENT_FILE, folder + "client");
    if (length <= LONGEST_DIR) {
      ExpectOutput({.File = folder + "client"}, Found(1, root + "/" + folder + "libvortaarm.dylib"));
    } else if (isRoot) {
      ExpectOutput({.File = folder + "client"}, NOT_FOUND);
    }
  }
}

}  // namespace
