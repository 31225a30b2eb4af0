#ifndef TESTS_CLI_RUN_TOOL_H
#define TESTS_CLI_RUN_TOOL_H

// Runs programs in a temporary directory. Paths of the programs and libraries come from the build.

#include <fcntl.h>

#include <map>
#include <regex>
#include <sstream>

#include "tests/sandbox.h"

// What every run of the tool prints first, with its time of compilation hidden.
constexpr char BANNER[] = "NORDAX Tamsel V9.42\nCompiled <time>\n";

struct LAUNCH {
  std::string File;                    // Path of the program below the directory.
  std::vector<std::string> Args = {};  // What follows the program's name.
  std::map<std::string, std::string> Environment = {};
  std::string Name = "";        // The program's name as the caller typed it. Empty: its whole path.
  std::string WorkingDir = "";  // Below the directory.
};

// Copies a file or folder to a place below the directory, and makes the folders on the way.
inline void Place(const TEMP_DIR& dir, const std::string& source, const std::string& name) {
  std::filesystem::create_directories(std::filesystem::path(dir / name).parent_path());
  std::filesystem::copy(source, dir / name, std::filesystem::copy_options::recursive);
}

// Returns what the program prints, errors included, with the directory as "$DIR", and as the last line how it ended.
inline std::string RunProgram(const TEMP_DIR& dir, LAUNCH launch) {
  constexpr unsigned LONGEST_S = 60;
  const std::string output = dir / "output";
  const std::string file = dir / launch.File;
  launch.Args.insert(launch.Args.begin(), launch.Name.empty() ? file : launch.Name);
  std::vector<std::string> environment;
  for (const auto& [name, value] : launch.Environment) {
    environment.push_back(name + "=" + value);
  }
  const auto pointers = [](std::vector<std::string>& texts) {
    std::vector<char*> list;
    std::transform(texts.begin(), texts.end(), std::back_inserter(list), [](std::string& text) { return text.data(); });
    list.push_back(nullptr);
    return list;
  };
  const pid_t child = fork();
  if (child == 0) {
    const int outputFile = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    dup2(outputFile, STDOUT_FILENO);
    dup2(outputFile, STDERR_FILENO);
    alarm(LONGEST_S);
    if (chdir((dir / launch.WorkingDir).c_str()) == 0) {
      execve(file.c_str(), pointers(launch.Args).data(), pointers(environment).data());
    }
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  static const std::regex buildTime("\nCompiled [A-Z][a-z]{2} [ 1-3]\\d \\d{4} \\d\\d:\\d\\d:\\d\\d\n");
  std::string text = std::regex_replace(ReadFile(output), buildTime, "\nCompiled <time>\n");
  for (size_t at; (at = text.find(dir.Path)) != std::string::npos;) {
    text.replace(at, dir.Path.size(), "$DIR");
  }
  const bool hasExited = WIFEXITED(status);
  return text + (hasExited ? "exit " : "signal ") + std::to_string(hasExited ? WEXITSTATUS(status) : WTERMSIG(status)) +
         "\n";
}

// The words of a text, separated by single blanks.
inline std::vector<std::string> Words(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

// What the tool prints to repeat its arguments.
inline std::string EchoOf(const std::vector<std::string>& args) {
  std::string echo = "Command line: ";
  for (const std::string& arg : args) {
    echo += arg + " ";
  }
  return args.empty() ? "" : echo + "\n";
}

#endif
