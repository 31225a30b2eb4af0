// Start of the tool, up to the loaded library and the first look at the command line, beside a ten-line C program that
// loads the same library. A start is fork, exec and wait, with the output thrown away.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace {

void Run(benchmark::State& state, const char* path, const char* argument) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  const char* const arguments[] = {path, argument, nullptr};
  for (auto _ : state) {
    pid_t pid;
    int status = 0;
    if (posix_spawn(&pid, path, &actions, nullptr, const_cast<char* const*>(arguments), environ) != 0 ||
        waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) == 1) {
      state.SkipWithError("the program did not run");
      break;
    }
  }
  posix_spawn_file_actions_destroy(&actions);
}

BENCHMARK_CAPTURE(Run, tamsel, TAMSEL_PATH, "-none")->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Run, c program, PEER_PATH, LIBRARY_PATH)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
