// The main program of the benchmarks that allocate much.

#include <benchmark/benchmark.h>
#if __has_include(<malloc.h>)
#include <malloc.h>
#endif

int main(int argc, char** argv) {
#ifdef M_MMAP_MAX
  // Keeps freed memory in the process: with each round on fresh pages the kernel's work would hide that of the
  // libraries.
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, -1);
#endif
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
