// Text operations beside what the C library and the compiler offer for the same purpose. The peers differ in what they
// promise (locale, order, range checks, termination); the work is the same.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <string>

#include "util/bits.h"
#include "util/scan.h"
#include "util/strings.h"

namespace {

char acDest[4096];

std::string MakeText(benchmark::State& state) {
  return std::string(static_cast<size_t>(state.range(0)), 'k');
}

void CopyString(benchmark::State& state) {
  const std::string text = MakeText(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(UTIL_CopyString(acDest, text.c_str(), sizeof(acDest)));
    benchmark::ClobberMemory();
  }
}

void StrlenMemcpy(benchmark::State& state) {
  const std::string text = MakeText(state);
  for (auto _ : state) {
    const char* s = text.c_str();
    benchmark::DoNotOptimize(s);
    memcpy(acDest, s, strlen(s) + 1);
    benchmark::ClobberMemory();
  }
}

BENCHMARK(CopyString)->Arg(8)->Arg(64)->Arg(1024);
BENCHMARK(StrlenMemcpy)->Arg(8)->Arg(64)->Arg(1024);

template <typename COMPARE>
void Compare(benchmark::State& state, COMPARE compare) {
  const std::string a(static_cast<size_t>(state.range(0)), 'k');
  const std::string b(static_cast<size_t>(state.range(0)), 'K');
  for (auto _ : state) {
    benchmark::DoNotOptimize(compare(a.c_str(), b.c_str()));
  }
}

void CompareNoCase(benchmark::State& state) {
  Compare(state, UTIL_CompareNoCase);
}

void Strncasecmp(benchmark::State& state) {
  Compare(state, [](const char* a, const char* b) { return strncasecmp(a, b, SIZE_MAX); });
}

BENCHMARK(CompareNoCase)->Arg(4)->Arg(16)->Arg(64);
BENCHMARK(Strncasecmp)->Arg(4)->Arg(16)->Arg(64);

constexpr const char* NUMBERS[] = {"7", "4000", "305419896", "18446744073709551615"};

void ParseNumber(benchmark::State& state) {
  for (auto _ : state) {
    const char* cursor = NUMBERS[state.range(0)];
    benchmark::DoNotOptimize(cursor);
    uint64_t value = 0;
    UTIL_ParseNumber(&cursor, &value, 0);
    benchmark::DoNotOptimize(value);
  }
}

void Strtoull(benchmark::State& state) {
  for (auto _ : state) {
    const char* cursor = NUMBERS[state.range(0)];
    benchmark::DoNotOptimize(cursor);
    char* pEnd;
    benchmark::DoNotOptimize(strtoull(cursor, &pEnd, 10));
  }
}

BENCHMARK(ParseNumber)->DenseRange(0, 3);
BENCHMARK(Strtoull)->DenseRange(0, 3);

void ReverseBits32(benchmark::State& state) {
  uint32_t value = 0x12345678;
  for (auto _ : state) {
    value = UTIL_ReverseBits32(value) + 1;
    benchmark::DoNotOptimize(value);
  }
}

// The byte swap that every compiler has built in, and three steps within the bytes.
void BuiltinSwap(benchmark::State& state) {
  uint32_t value = 0x12345678;
  for (auto _ : state) {
    value = __builtin_bswap32(value);
    value = (value & 0x0F0F0F0F) << 4 | (value >> 4 & 0x0F0F0F0F);
    value = (value & 0x33333333) << 2 | (value >> 2 & 0x33333333);
    value = ((value & 0x55555555) << 1 | (value >> 1 & 0x55555555)) + 1;
    benchmark::DoNotOptimize(value);
  }
}

BENCHMARK(ReverseBits32);
BENCHMARK(BuiltinSwap);

}  // namespace

BENCHMARK_MAIN();
