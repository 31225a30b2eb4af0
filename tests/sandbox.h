#ifndef TESTS_SANDBOX_H
#define TESTS_SANDBOX_H

// What tests of the file system share: a directory of their own, the environment, and a process without privileges.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

// An empty directory with a short path that every user may enter, removed with all that is in it.
class TEMP_DIR {
 public:
  TEMP_DIR() {
    std::string name = std::filesystem::canonical(std::filesystem::temp_directory_path()) / "nordax.XXXXXX";
    Path = mkdtemp(name.data());
    chmod(Path.c_str(), 0755);
  }

  ~TEMP_DIR() {
    std::error_code ignored;
    std::filesystem::remove_all(Path, ignored);
  }

  TEMP_DIR(const TEMP_DIR&) = delete;
  TEMP_DIR& operator=(const TEMP_DIR&) = delete;

  std::string operator/(const std::string& name) const { return Path + '/' + name; }

  std::string AddFile(const std::string& name, const std::string& content = "", mode_t mode = 0644) const {
    std::string path = *this / name;
    std::ofstream(path, std::ios::binary) << content;
    chmod(path.c_str(), mode);
    return path;
  }

  // Paths of everything below, without the directory's own, in order; those of directories end in '/'.
  std::vector<std::string> List() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(Path)) {
      const bool isDir = entry.is_directory() && !entry.is_symlink();
      names.push_back(entry.path().string().substr(Path.size() + 1) + (isDir ? "/" : ""));
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  std::string Path;
};

inline std::string ReadFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// A variable of the environment, null for none, as long as the object lives.
class SCOPED_ENV {
 public:
  SCOPED_ENV(const char* name, const char* value) : Name(name) {
    if (const char* old = getenv(name); old != nullptr) {
      Old = old;
    }
    Set(value);
  }
  ~SCOPED_ENV() {
    Set(Old ? Old->c_str() : nullptr);
    tzset();
  }
  SCOPED_ENV(const SCOPED_ENV&) = delete;
  SCOPED_ENV& operator=(const SCOPED_ENV&) = delete;

 private:
  void Set(const char* value) {
    if (value == nullptr) {
      unsetenv(Name);
    } else {
      setenv(Name, value, 1);
    }
  }

  const char* Name;
  std::optional<std::string> Old;
};

// Runs body in a process of a user without privileges, whoever runs the tests, and returns its result (0 to 255).
template <typename BODY>
int RunUnprivileged(BODY body) {
  const pid_t child = fork();
  if (child == 0) {
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) {
      _exit(255);
    }
    _exit(body());
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

#endif
