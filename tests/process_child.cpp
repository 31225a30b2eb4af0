// The program that the tests of the process operations start: tells what it was given, on descriptor 0, as a list of
// texts with their terminators. Each kind comes as its count followed by that many texts.

#include <dirent.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

extern char** environ;

namespace {

void Tell(const std::vector<std::string>& texts) {
  std::string report = std::to_string(texts.size()) + '\0';
  for (const std::string& text : texts) {
    report += text + '\0';
  }
  for (size_t pos = 0; pos < report.size();) {
    const ssize_t count = write(STDIN_FILENO, report.data() + pos, report.size() - pos);
    if (count < 0) {
      _exit(1);
    }
    pos += static_cast<size_t>(count);
  }
}

}  // namespace

int main(int argc, char** argv) {
  Tell({argv, argv + argc});

  std::vector<std::string> environment;
  for (char** ppEntry = environ; *ppEntry != nullptr; ppEntry++) {
    environment.push_back(*ppEntry);
  }
  Tell(environment);

  std::vector<std::string> descriptors;
  DIR* pList = opendir("/dev/fd");
  while (const dirent* pEntry = readdir(pList)) {
    if (pEntry->d_name[0] != '.' && atoi(pEntry->d_name) != dirfd(pList)) {
      descriptors.push_back(pEntry->d_name);
    }
  }
  closedir(pList);
  Tell(descriptors);

  std::vector<std::string> signals;
  sigset_t mask;
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  for (int signal : {SIGHUP, SIGTERM, SIGUSR1, SIGUSR2}) {
    struct sigaction action;
    sigaction(signal, nullptr, &action);
    signals.push_back(sigismember(&mask, signal) != 0 ? "blocked" : action.sa_handler == SIG_IGN ? "ignored" : "");
  }
  Tell(signals);

  Tell({std::to_string(getpid()), std::to_string(getppid())});
}
