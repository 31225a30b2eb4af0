// Linked into the programs that tools/check-arm64 runs: an emulator runs one program, and what that starts in turn is
// for the host's kernel, which cannot run it. Here programs of the target are handed to another emulator. Nothing of
// size is on the stack, which is small in some of the callers; each of them has a process of its own. System calls are
// made directly, past the wrappers that let them fail in tests.

#define _GNU_SOURCE
#include <elf.h>
#include <fcntl.h>
#include <stdarg.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

enum { MAX_ARGS = 4096 };

static int IsForTarget(const char* path) {
  Elf64_Ehdr header = {0};
  const long file = syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC);
  const long numBytes = syscall(SYS_read, file, &header, sizeof(header));
  syscall(SYS_close, file);
  return numBytes == sizeof(header) && header.e_machine == EM_AARCH64;
}

int execve(const char* path, char* const* ppArgs, char* const* ppEnvironment) {
  const char* const apFirst[] = {EMULATOR, "-L", LIBRARIES, "-0", ppArgs[0], path};
  static const char* apArgs[MAX_ARGS];
  int numArgs = sizeof(apFirst) / sizeof(apFirst[0]);
  if (!IsForTarget(path) || syscall(SYS_faccessat, AT_FDCWD, path, X_OK) != 0) {
    return (int)syscall(SYS_execve, path, ppArgs, ppEnvironment);
  }
  memcpy(apArgs, apFirst, sizeof(apFirst));
  for (char* const* pp = ppArgs + 1; *pp != NULL && numArgs < MAX_ARGS - 1; pp++) {
    apArgs[numArgs++] = *pp;
  }
  apArgs[numArgs] = NULL;
  return (int)syscall(SYS_execve, EMULATOR, apArgs, ppEnvironment);
}

int execv(const char* path, char* const* ppArgs) {
  return execve(path, ppArgs, environ);
}

int execl(const char* path, const char* arg, ...) {
  static const char* apArgs[MAX_ARGS];
  va_list args;
  apArgs[0] = arg;
  va_start(args, arg);
  for (int i = 0; i < MAX_ARGS - 1 && apArgs[i] != NULL; i++) {
    apArgs[i + 1] = va_arg(args, const char*);
  }
  va_end(args);
  return execv(path, (char* const*)apArgs);
}
