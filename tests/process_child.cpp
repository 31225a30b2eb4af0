// The program that the tests of the process operations start. It tells what it was given, on descriptor 0, in texts
// with their terminators, whose first character says of what kind they are.

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <string>

extern char** environ;

int main(int argc, char** argv) {
  FILE* pOut = fdopen(STDIN_FILENO, "w");
  const auto tell = [=](char kind, const std::string& text) { fprintf(pOut, "%c%s%c", kind, text.c_str(), 0); };
  for (int i = 0; i < argc; i++) {
    tell('A', argv[i]);
  }
  for (char** ppEntry = environ; *ppEntry != nullptr; ppEntry++) {
    tell('E', *ppEntry);
  }
  for (int fd = 0; fd < 12000; fd++) {
    if (fcntl(fd, F_GETFD) >= 0) {
      tell('D', std::to_string(fd));
    }
  }
  sigset_t mask;
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  for (int signal : {SIGHUP, SIGTERM, SIGUSR1, SIGUSR2}) {
    struct sigaction action;
    sigaction(signal, nullptr, &action);
    tell('S', sigismember(&mask, signal) != 0 ? "blocked" : action.sa_handler == SIG_IGN ? "ignored" : "");
  }
  tell('I', std::to_string(getpid()));
  tell('I', std::to_string(getppid()));
  return fclose(pOut);
}
