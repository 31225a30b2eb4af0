// The tick counts beside the clock that they rest on, and the calendar beside the C library's own conversion.

#include <benchmark/benchmark.h>
#include <time.h>

#include "sys/sys_time.h"

namespace {

void TickUs(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(SYS_GetTickUs());
  }
}

void TickMs(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(SYS_GetTickMs());
  }
}

void ClockGettime(benchmark::State& state) {
  for (auto _ : state) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    benchmark::DoNotOptimize(now);
  }
}

// The clock with what it takes to make one number of its reading.
void ClockGettimeInUs(benchmark::State& state) {
  for (auto _ : state) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    benchmark::DoNotOptimize(static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000);
  }
}

void LocalTime(benchmark::State& state) {
  SYS_TIME now;
  for (auto _ : state) {
    SYS_GetLocalTime(&now);
    benchmark::DoNotOptimize(now);
  }
}

void UTCTime(benchmark::State& state) {
  SYS_TIME now;
  for (auto _ : state) {
    SYS_GetUTCTime(&now);
    benchmark::DoNotOptimize(now);
  }
}

// The one of the C library's conversions that looks the time zone up as well.
void Localtime(benchmark::State& state) {
  for (auto _ : state) {
    const time_t now = time(nullptr);
    benchmark::DoNotOptimize(*localtime(&now));
  }
}

BENCHMARK(TickUs);
BENCHMARK(TickMs);
BENCHMARK(ClockGettime)->Name("clock_gettime");
BENCHMARK(ClockGettimeInUs)->Name("clock_gettime_us");
BENCHMARK(LocalTime);
BENCHMARK(UTCTime);
BENCHMARK(Localtime)->Name("localtime");

}  // namespace

BENCHMARK_MAIN();
