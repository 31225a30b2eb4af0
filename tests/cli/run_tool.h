#ifndef TESTS_CLI_RUN_TOOL_H
#define TESTS_CLI_RUN_TOOL_H

// Runs a program in a temporary directory of its own and catches all that it does. Paths of the programs and libraries
// come from the build.

#include <stdint.h>
#include <sys/types.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

// A directory that is gone with the object.
class TEMP_DIR {
 public:
  TEMP_DIR();
  ~TEMP_DIR();
  TEMP_DIR(const TEMP_DIR&) = delete;
  TEMP_DIR& operator=(const TEMP_DIR&) = delete;

  // Absolute, without links, and without a slash at the end.
  const std::string& Path() const { return path; }
  std::string At(const std::string& name) const { return path + "/" + name; }

  // Copies a file or folder to a place in the directory, and makes the folders on the way.
  void Place(const std::filesystem::path& source, const std::string& name) const;
  void Write(const std::string& name, const std::string& text) const;
  std::string Read(const std::string& name) const;  // Empty when there is no such file.

  // Copies the C library and whatever else the programs of the build are linked to, so that they can run with the
  // directory as their root. Returns whether that is permitted here.
  bool MakeRoot() const;

 private:
  std::string path;
};

struct LAUNCH {
  std::string File;                    // Path of the program in the temporary directory.
  std::vector<std::string> Args = {};  // What follows the program's name.
  std::string Behaviour = "";          // Directives for fake_probe.cpp.
  std::string Name = "";               // The program's name as the caller typed it. Empty: its whole path.
  std::string WorkingDir = "";         // In the temporary directory.
  bool IsRoot = false;                 // The temporary directory is the program's root directory (MakeRoot).
  std::map<std::string, std::string> Environment = {};
};

struct OUTCOME {
  std::string Output;
  std::string Errors;  // Standard error, where sanitizers report: nothing belongs there.
  std::string Calls;   // Record of the fake, its lines joined by blanks, the temporary directory as "$DIR".
  int Status = -1;     // Exit status; 1000 and the signal's number when a signal ended the program.
};

// A running program. It must not run for more than a minute in all.
class PROCESS {
 public:
  PROCESS(const TEMP_DIR& dir, const LAUNCH& launch);
  ~PROCESS();
  PROCESS(const PROCESS&) = delete;
  PROCESS& operator=(const PROCESS&) = delete;

  // Waits until the output so far has the text. Returns whether it ever had.
  bool WaitFor(const std::string& text);
  OUTCOME Finish();

 private:
  bool ReadMore();

  const TEMP_DIR& dir;
  std::string record;
  OUTCOME outcome;
  std::FILE* pErrors;
  int64_t deadline;
  int output = -1;
  pid_t pid = -1;
};

inline OUTCOME Launch(const TEMP_DIR& dir, const LAUNCH& launch) {
  return PROCESS(dir, launch).Finish();
}

// The words of a text, separated by single blanks.
std::vector<std::string> Words(const std::string& text);

// Splits the output of the tool: checks the two lines that every run begins with and gives the rest.
std::string BehindBanner(const std::string& output);

// What the tool prints to repeat its arguments.
std::string EchoOf(const std::vector<std::string>& args);

#endif
