// Programs get an environment of the test's own, so that nothing of the user's reaches them. Only the options of the
// sanitizers are added: a finding has an exit status of its own, and a leak is a finding.

#include "tests/cli/run_tool.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <regex>
#include <sstream>

#ifdef __linux__
#include <link.h>
#include <sched.h>
#include <sys/mount.h>
#endif

namespace {

namespace fs = std::filesystem;

constexpr int64_t TIMEOUT_MS = 60000;
constexpr int CANNOT_START = 127;

#ifdef __linux__

constexpr char SANITIZER_OPTIONS[] = "exitcode=99:detect_leaks=1";

// The mount, without which programs do not find their own path, is in a name space of the process: it ends with it.
bool EnterRoot(const std::string& root) {
  return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("/proc", (root + "/proc").c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0 && chroot(root.c_str()) == 0;
}

void CopyLibraries(const TEMP_DIR& dir) {
  const auto copyLibrary = [](dl_phdr_info* pInfo, size_t, void* pDir) {
    const std::string library = pInfo->dlpi_name;
    if (library.starts_with('/')) {
      static_cast<const TEMP_DIR*>(pDir)->Place(library, library.substr(1));
    }
    return 0;
  };
  TEMP_DIR* pDir = const_cast<TEMP_DIR*>(&dir);  // The C library's prototype has no const.
  dl_iterate_phdr(copyLibrary, pDir);
}

#else

constexpr char SANITIZER_OPTIONS[] = "exitcode=99";

bool EnterRoot(const std::string&) {
  return false;
}

void CopyLibraries(const TEMP_DIR&) {}

#endif

int64_t Now() {
  using std::chrono::milliseconds;
  return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

std::string Replace(std::string text, const std::string& what, const std::string& by) {
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
    text.replace(at, what.size(), by);
  }
  return text;
}

}  // namespace

TEMP_DIR::TEMP_DIR() {
  std::string name = (fs::canonical(fs::temp_directory_path()) / "nordax-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    ADD_FAILURE() << "no temporary directory: " << name;
  }
  path = name;
}

TEMP_DIR::~TEMP_DIR() {
  std::error_code ignored;
  fs::remove_all(path, ignored);
}

void TEMP_DIR::Place(const fs::path& source, const std::string& name) const {
  fs::create_directories(fs::path(At(name)).parent_path());
  fs::copy(source, At(name), fs::copy_options::recursive);
}

void TEMP_DIR::Write(const std::string& name, const std::string& text) const {
  fs::create_directories(fs::path(At(name)).parent_path());
  std::ofstream(At(name), std::ios::binary) << text;
}

std::string TEMP_DIR::Read(const std::string& name) const {
  std::ifstream file(At(name), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool TEMP_DIR::MakeRoot() const {
  fs::create_directories(At("proc"));
  CopyLibraries(*this);
  const pid_t child = fork();
  if (child == 0) {
    _exit(EnterRoot(path) ? 0 : CANNOT_START);
  }
  int status = -1;
  return waitpid(child, &status, 0) == child && status == 0;
}

PROCESS::PROCESS(const TEMP_DIR& directory, const LAUNCH& launch)
    : dir(directory), pErrors(std::tmpfile()), deadline(Now() + TIMEOUT_MS) {
  static int numRecords = 0;
  record = "record" + std::to_string(numRecords++);
  const std::string inside = launch.IsRoot ? "" : dir.Path();
  const std::string file = inside + "/" + launch.File;
  std::vector<std::string> args = launch.Args;
  args.insert(args.begin(), launch.Name.empty() ? file : launch.Name);
  std::vector<std::string> environment = {"FAKE_RECORD=" + inside + "/" + record, "FAKE_BEHAVIOUR=" + launch.Behaviour};
  for (const char* sanitizer : {"ASAN", "UBSAN", "TSAN"}) {
    environment.push_back(std::string(sanitizer) + "_OPTIONS=" + SANITIZER_OPTIONS);
  }
  for (const auto& [name, value] : launch.Environment) {
    environment.push_back(name + "=" + value);
  }
  int pipeEnds[2] = {-1, -1};
  if (pErrors == nullptr || pipe(pipeEnds) != 0) {
    ADD_FAILURE() << "no pipe";
    return;
  }
  fcntl(pipeEnds[0], F_SETFD, FD_CLOEXEC);
  fcntl(pipeEnds[1], F_SETFD, FD_CLOEXEC);
  pid = fork();
  if (pid == 0) {
    dup2(pipeEnds[1], STDOUT_FILENO);
    dup2(fileno(pErrors), STDERR_FILENO);
    const std::string workingDir = inside + "/" + launch.WorkingDir;
    if ((!launch.IsRoot || EnterRoot(dir.Path())) && chdir(workingDir.c_str()) == 0) {
      execve(file.c_str(), Pointers(args).data(), Pointers(environment).data());
    }
    _exit(CANNOT_START);
  }
  close(pipeEnds[1]);
  output = pipeEnds[0];
}

PROCESS::~PROCESS() {
  if (pid > 0) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  close(output);
  if (pErrors != nullptr) {
    fclose(pErrors);
  }
}

// Returns whether there may be more.
bool PROCESS::ReadMore() {
  pollfd entry = {output, POLLIN, 0};
  const int64_t left = deadline - Now();
  if (left <= 0 || poll(&entry, 1, static_cast<int>(left)) <= 0) {
    ADD_FAILURE() << "the program hangs after this output:\n" << outcome.Output;
    kill(pid, SIGKILL);
    return false;
  }
  char acChunk[4096];
  const ssize_t numBytes = read(output, acChunk, sizeof(acChunk));
  outcome.Output.append(acChunk, numBytes > 0 ? static_cast<size_t>(numBytes) : 0);
  return numBytes > 0;
}

bool PROCESS::WaitFor(const std::string& text) {
  while (outcome.Output.find(text) == std::string::npos) {
    if (!ReadMore()) {
      return false;
    }
  }
  return true;
}

OUTCOME PROCESS::Finish() {
  while (ReadMore()) {
  }
  int status = 0;
  waitpid(pid, &status, 0);
  pid = -1;
  outcome.Status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  rewind(pErrors);
  char acLine[4096];
  while (fgets(acLine, sizeof(acLine), pErrors) != nullptr) {
    outcome.Errors += acLine;
  }
  outcome.Calls = Replace(Replace(dir.Read(record), dir.Path(), "$DIR"), "\n", " ");
  return outcome;
}

std::vector<std::string> Words(const std::string& text) {
  std::vector<std::string> words;
  std::istringstream stream(text);
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

std::string BehindBanner(const std::string& output) {
  static const std::regex banner(
      "NORDAX Tamsel V9\\.42\nCompiled [A-Z][a-z]{2} [ 1-3]\\d \\d{4} \\d\\d:\\d\\d:\\d\\d\n");
  std::smatch match;
  if (!std::regex_search(output, match, banner, std::regex_constants::match_continuous)) {
    ADD_FAILURE() << "no banner in this output:\n" << output;
    return output;
  }
  return match.suffix();
}

std::string EchoOf(const std::vector<std::string>& args) {
  std::string echo = args.empty() ? "" : "Command line: ";
  for (const std::string& arg : args) {
    echo += arg + " ";
  }
  return args.empty() ? echo : echo + "\n";
}
