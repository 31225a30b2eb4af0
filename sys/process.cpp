// Other programs: starting, waiting, stopping, and the desktop's open command.
//
// An attached child starts in the caller's memory where the platform can do that (PLATFORM_StartChild): in a large
// process, copying the page tables costs many times the rest of a start. Until the child is another program it
// therefore writes nothing but its own stack and errno, and calls nothing that may take a lock or memory. All signals
// are blocked until no handler of the caller is left in it.
//
// posix_spawn keeps the same rules, but reports a file that is not executable in the caller and takes the child away,
// where callers here have an id to wait for; and it has nothing for detached programs.

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sys/platform.h"
#include "sys/repeat.h"
#include "sys/sys_memory.h"
#include "sys/sys_process.h"
#include "util/scan.h"
#include "util/sink.h"

namespace {

constexpr uint32_t FIXED_ENTRIES = 8;
constexpr uint32_t FIXED_TEXT_BYTES = 64;
constexpr uint32_t COMMAND_BYTES = 512;
constexpr uint32_t EXIT_CODE_STOPPED = 0xFFFFFFFF;

// A program's argument vector: the path, the arguments, null. It takes memory from the heap when the fixed parts are
// too small.
class ARGUMENTS {
 public:
  ARGUMENTS() = default;
  ~ARGUMENTS() {
    if (pChars != acFixed) {
      SYS_Free(pChars);
    }
    if (ppEntries != apFixed) {
      SYS_Free(ppEntries);
    }
  }
  ARGUMENTS(const ARGUMENTS&) = delete;
  ARGUMENTS& operator=(const ARGUMENTS&) = delete;

  // Splits the text (may be null) into arguments; false when memory is exhausted.
  [[nodiscard]] bool Set(const char* path, const char* text) {
    const uint64_t length = text == nullptr ? 0 : strlen(text);
    const uint64_t count = length == 0 ? 0 : CountTokens(text);
    if (!Reserve(count + 2, length + 1)) {
      return false;
    }
    ppEntries[0] = const_cast<char*>(path);
    ppEntries[count + 1] = nullptr;
    // Each argument but the last one leaves a separator behind, so that there is room for all terminators.
    char* pToken = pChars;
    for (uint64_t i = 1; i <= count; i++) {
      ppEntries[i] = pToken;
      UTIL_ParseString(&text, pToken, static_cast<uint32_t>(pChars + length + 1 - pToken));
      pToken += strlen(pToken) + 1;
    }
    return true;
  }

  char* const* Get() const { return ppEntries; }

 private:
  static uint64_t CountTokens(const char* text) {
    uint64_t count = 0;
    do {
      UTIL_ParseString(&text, nullptr, 0);
      count++;
    } while (*text != '\0');
    return count;
  }

  static void* Allocate(uint64_t numBytes) {
    return numBytes > UINT32_MAX ? nullptr : SYS_Alloc(static_cast<uint32_t>(numBytes));
  }

  bool Reserve(uint64_t numEntries, uint64_t numChars) {
    if (numEntries > FIXED_ENTRIES) {
      ppEntries = static_cast<char**>(Allocate(numEntries * sizeof(char*)));
    }
    if (numChars > FIXED_TEXT_BYTES && ppEntries != nullptr) {
      pChars = static_cast<char*>(Allocate(numChars));
    }
    return ppEntries != nullptr && pChars != nullptr;
  }

  char* apFixed[FIXED_ENTRIES];
  char acFixed[FIXED_TEXT_BYTES];
  char** ppEntries = apFixed;
  char* pChars = acFixed;
};

// What a child needs to become the program; it only reads it.
struct START {
  const SYS_PROC_DESC* pDesc;
  char* const* ppArgs;
  sigset_t SignalMask;
};

[[noreturn]] void Die() {
  kill(getpid(), SIGKILL);
  _exit(SIGKILL);
}

// An interrupted call has closed the descriptor all the same.
bool Close(int fd) {
  return close(fd) == 0 || errno == EINTR;
}

void CloseDescriptors(const SYS_PROC_DESC& desc) {
  if ((desc.CloseOutput != 0 && !Close(STDOUT_FILENO)) || (desc.CloseError != 0 && !Close(STDERR_FILENO)) ||
      PLATFORM_CloseFrom(STDERR_FILENO + 1) < 0) {
    Die();
  }
}

// Loading the program would drop the handlers too, but a signal that is pending strikes once it is no longer blocked.
void RestoreSignals(const sigset_t& mask) {
  struct sigaction byDefault = {};
  byDefault.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; signal++) {
    struct sigaction action;
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN) {
      sigaction(signal, &byDefault, nullptr);
    }
  }
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

[[noreturn]] void BecomeProgram(const START& start, char* const* ppEnvironment) {
  RestoreSignals(start.SignalMask);
  execve(start.pDesc->pPath, start.ppArgs, ppEnvironment);
  Die();
}

void RunAttached(const void* pArg) {
  const START& start = *static_cast<const START*>(pArg);
  CloseDescriptors(*start.pDesc);
  char* const apEmpty[] = {nullptr};
  BecomeProgram(start, apEmpty);
}

void RunOrphan(const void* pArg) {
  BecomeProgram(*static_cast<const START*>(pArg), environ);
}

// The helper keeps its signals blocked: were it ended early, the orphan would lose the memory that it still uses.
[[noreturn]] void RunHelper(const void* pArg) {
  CloseDescriptors(*static_cast<const START*>(pArg)->pDesc);
  PLATFORM_StartChild(RunOrphan, pArg);
  Die();
}

// The orphan's environment is the caller's as it is at this moment: only a copy of the memory keeps another thread from
// changing it before the program is loaded. (An attached program's environment is empty.)
int32_t ForkHelper(const START* pStart) {
  const pid_t pid = fork();
  if (pid == 0) {
    RunHelper(pStart);
  }
  return pid;
}

// waitpid for one process; anything else that its ids can stand for is refused.
int32_t WaitFor(int32_t pid, int* pStatus, int options) {
  if (pid <= 0) {
    errno = ECHILD;
    return -1;
  }
  return Repeat([=] { return waitpid(pid, pStatus, options); });
}

// Starts the child, and sees the helper off where there is one; its id, or 0. A request to cancel the thread has to
// wait: in the child it would take the caller's thread apart, and later it would leave the helper behind.
int32_t Start(START* pStart) {
  const bool isDetached = pStart->pDesc->Detach != 0;
  sigset_t all;
  sigfillset(&all);
  int cancelState;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
  pthread_sigmask(SIG_SETMASK, &all, &pStart->SignalMask);
  const int32_t pid = isDetached ? ForkHelper(pStart) : PLATFORM_StartChild(RunAttached, pStart);
  pthread_sigmask(SIG_SETMASK, &pStart->SignalMask, nullptr);
  int status;
  const bool isStarted = pid > 0 && (!isDetached || WaitFor(pid, &status, 0) == pid);
  pthread_setcancelstate(cancelState, &cancelState);
  return isStarted ? pid : 0;
}

}  // namespace

int32_t SYS_PROC_Create(const SYS_PROC_DESC* pDesc) {
  ARGUMENTS arguments;
  if (pDesc->pPath == nullptr || !arguments.Set(pDesc->pPath, pDesc->pArgs)) {
    return 0;
  }
  START start = {pDesc, arguments.Get(), {}};
  return Start(&start);
}

namespace {

void StoreExitCode(int status, uint32_t* pExitCode) {
  if (pExitCode == nullptr) {
    return;
  }
  if (WIFEXITED(status)) {
    *pExitCode = static_cast<uint32_t>(WEXITSTATUS(status));
  } else {
    *pExitCode = WIFSIGNALED(status) ? static_cast<uint32_t>(WTERMSIG(status)) : EXIT_CODE_STOPPED;
  }
}

}  // namespace

int32_t SYS_PROC_GetExitCode(int32_t pid, uint32_t* pExitCode) {
  int status;
  const int32_t result = WaitFor(pid, &status, WNOHANG);
  if (result > 0) {
    StoreExitCode(status, pExitCode);
    return 0;
  }
  return result == 0 ? 1 : -1;
}

int32_t SYS_PROC_Wait(int32_t pid, uint32_t* pExitCode) {
  int status;
  if (WaitFor(pid, &status, 0) < 0) {
    return -1;
  }
  StoreExitCode(status, pExitCode);
  return 0;
}

int32_t SYS_PROC_Kill(int32_t pid) {
  // Ids up to 0 stand for whole groups of processes, the caller's own among them.
  if (pid <= 0) {
    errno = ESRCH;
    return -1;
  }
  return kill(pid, SIGTERM) == 0 ? SYS_PROC_Wait(pid, nullptr) : -1;
}

int32_t SYS_PROC_CloseInheritedFiles(void) {
  return PLATFORM_CloseFrom(STDERR_FILENO + 1);
}

int32_t SYS_ShellOpen(const char* target) {
  char acCommand[COMMAND_BYTES];
  UTIL_SINK sink(acCommand, sizeof(acCommand), 0);
  sink.PutRun(PLATFORM_OPEN_COMMAND, strlen(PLATFORM_OPEN_COMMAND));
  sink.PutRun(" \"", 2);
  for (; *target != '\0'; target++) {
    if (strchr("\"$`\\", *target) != nullptr) {
      sink.PutChar('\\');
    }
    sink.PutChar(*target);
  }
  sink.PutChar('"');
  if (sink.Count > sink.Room) {
    errno = ENAMETOOLONG;
    return -1;
  }
  acCommand[sink.Count] = '\0';
  return system(acCommand);
}

void SYS_Exit(int32_t exitCode) {
  _exit(exitCode);
}

int32_t SYS_GetProcessId(void) {
  return getpid();
}
