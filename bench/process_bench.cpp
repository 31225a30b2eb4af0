// Starting a program and waiting for its end, beside posix_spawn with the same work in the child (only standard input,
// output and error left open), and beside fork. All of it once in a small process and once in one with 1 GiB in use.
// Most of the time is the program's own, and varies: figures worth comparing need repetitions that are interleaved at
// random.

#include <benchmark/benchmark.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sys/sys_process.h"

namespace {

constexpr char PROGRAM[] = "/usr/bin/true";
constexpr char ARGS_TEXT[] = "any thing";
constexpr const char* ARGS[] = {PROGRAM, "any", "thing", nullptr};
constexpr const char* ENVIRONMENT[] = {nullptr};

pid_t StartLayer(uint8_t detach) {
  SYS_PROC_DESC desc = {};
  desc.pPath = PROGRAM;
  desc.pArgs = ARGS_TEXT;
  desc.Detach = detach;
  return SYS_PROC_Create(&desc);
}

pid_t StartSpawn() {
  pid_t pid = 0;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
#ifndef __APPLE__
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
#endif
  posix_spawn(&pid, PROGRAM, &actions, nullptr, const_cast<char**>(ARGS), const_cast<char**>(ENVIRONMENT));
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

pid_t StartFork() {
  const pid_t pid = fork();
  if (pid == 0) {
    SYS_PROC_CloseInheritedFiles();
    execve(PROGRAM, const_cast<char**>(ARGS), const_cast<char**>(ENVIRONMENT));
    _exit(1);
  }
  return pid;
}

// Memory that the process uses, in MiB, as long as the object lives.
class MEMORY {
 public:
  explicit MEMORY(int64_t numMiB) : numBytes(static_cast<size_t>(numMiB) << 20) {
    if (numBytes != 0) {
      p = mmap(nullptr, numBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
      memset(p, 1, numBytes);
    }
  }
  ~MEMORY() {
    if (numBytes != 0) {
      munmap(p, numBytes);
    }
  }
  MEMORY(const MEMORY&) = delete;
  MEMORY& operator=(const MEMORY&) = delete;

 private:
  const size_t numBytes;
  void* p = nullptr;
};

template <typename START>
void Run(benchmark::State& state, START start) {
  const MEMORY memory(state.range(0));
  for (auto _ : state) {
    const pid_t pid = start();
    int status;
    if (pid <= 0 || waitpid(pid, &status, 0) != pid || status != 0) {
      state.SkipWithError("the program did not run");
      break;
    }
  }
}

// The program itself runs beside the next start, so that this one has no peer.
void RunDetached(benchmark::State& state) {
  const MEMORY memory(state.range(0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(StartLayer(1));
  }
}

#define PROCESS_BENCH(name, ...)            \
  BENCHMARK_CAPTURE(Run, name, __VA_ARGS__) \
      ->ArgName("MiB")                      \
      ->Arg(0)                              \
      ->Arg(1024)                           \
      ->UseRealTime()                       \
      ->Unit(benchmark::kMicrosecond)

PROCESS_BENCH(layer, [] { return StartLayer(0); });
PROCESS_BENCH(posix_spawn, StartSpawn);
PROCESS_BENCH(fork, StartFork);
BENCHMARK(RunDetached)->ArgName("MiB")->Arg(0)->Arg(1024)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
