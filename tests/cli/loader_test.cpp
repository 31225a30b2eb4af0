// Where the probe library is looked for.

#include <gtest/gtest.h>

#include "tests/cli/run_tool.h"

namespace {

using PLACE = std::pair<std::string, int>;  // A path, and what the loader returns when it opens.

// Expects that a client tries these two directories, where they are not empty, and then the install directory, up to
// the place where the library is, for each place and for none.
void ExpectPlaces(const TEMP_DIR& dir, LAUNCH launch, const std::string& imageDir, const std::string& processDir) {
  SCOPED_TRACE(launch.File + " as " + launch.Name);
  std::vector<PLACE> places;
  for (const auto& [folder, result] : {PLACE(imageDir, 1), PLACE(processDir, 2)}) {
    if (!folder.empty()) {
      places.emplace_back(folder + "libvortaarm.dylib", result);
      places.emplace_back(folder + "../../../libvortaarm.dylib", result);
    }
  }
  places.emplace_back("/Applications/NORDAX/Vorta/libvortaarm.dylib", 3);
  places.emplace_back("/Applications/NORDAX/Vorta/libvortaarm.5.dylib", 4);
  std::string tried;
  for (size_t i = 0; i < places.size(); i++) {
    tried += places[i].first + "\n";
    launch.Args = {std::to_string(i + 1)};
    EXPECT_EQ(RunProgram(dir, launch), tried + std::to_string(places[i].second) + "\n0\n0\nexit 0\n");
  }
  const std::string notFound = tried + "Could not open Vorta shared library.";
  launch.Args = {"0"};
  EXPECT_EQ(RunProgram(dir, launch), notFound + "\n-1\n" + notFound + "\n-1\n" + notFound + " Exiting now.\nexit 1\n");
}

TEST(Loader, GoesByHowTheProgramWasStarted) {
  const TEMP_DIR dir;
  Place(dir, LOADER_CLIENT_FILE, "real/client");
  std::filesystem::create_directories(dir / "link");
  std::filesystem::create_symlink("../real/client", dir / "link/client");
  ExpectPlaces(dir, {.File = "link/client"}, "$DIR/link/", "$DIR/real/");
  ExpectPlaces(dir, {.File = "real/client", .Name = "./client", .WorkingDir = "real"}, "./", "$DIR/real/");
  // Found in the PATH: a name without a directory does not mean the working directory, nor what is above it.
  ExpectPlaces(dir, {.File = "real/client", .Name = "client", .WorkingDir = "link"}, "", "$DIR/real/");
  // The program's name is what follows the last slash or backslash.
  Place(dir, LOADER_CLIENT_FILE, "odd\\x/y\\client");
  ExpectPlaces(dir, {.File = "odd\\x/y\\client"}, "$DIR/odd\\x/y\\", "$DIR/odd\\x/y\\");
}

// A path is used up to 511 characters, the program's and the longest one that is tried: none is taken for a cut one.
TEST(Loader, LeavesOutPathsThatAreTooLong) {
  constexpr size_t LONGEST = 511;
  const std::string name = "client-of-twenty-six-chars";
  for (const size_t length : {LONGEST, LONGEST + 1}) {
    const TEMP_DIR dir;
    std::string folder(length - dir.Path.size() - 2 - name.size(), 'x');
    folder[100] = '/';
    folder[250] = '/';
    Place(dir, LOADER_CLIENT_FILE, folder + "/" + name);
    const std::string found = length == LONGEST ? "$DIR/" + folder + "/" : "";
    ExpectPlaces(dir, {.File = folder + "/" + name}, found, found);
  }
}

}  // namespace
