// Every form of the CRC beside zlib's crc32, over 16 bytes, 1 KiB and 1 MiB.

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <vector>

#include "util/crc.h"

namespace {

template <typename CALC>
void Run(benchmark::State& state, CALC calc) {
  const std::vector<uint8_t> data(static_cast<size_t>(state.range(0)), 0x5A);
  for (auto _ : state) {
    benchmark::DoNotOptimize(calc(data.data(), static_cast<uint32_t>(data.size())));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

template <typename CALC>
void Add(const char* name, CALC calc) {
  benchmark::RegisterBenchmark(name, [calc](benchmark::State& state) { Run(state, calc); })
      ->Arg(16)
      ->Arg(1 << 10)
      ->Arg(1 << 20);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Add("CRC_CalcBitwise", [](const uint8_t* p, uint32_t n) { return CRC_CalcBitwise(p, n, 0, 0xEDB88320); });
  Add("CRC_Calc16CCITT", [](const uint8_t* p, uint32_t n) { return CRC_Calc16CCITT(p, n, 0); });
  Add("CRC_Calc32Bitwise", [](const uint8_t* p, uint32_t n) { return CRC_Calc32Bitwise(p, n, 0); });
  Add("CRC_Calc32", [](const uint8_t* p, uint32_t n) { return CRC_Calc32(p, n, 0); });
  Add("CRC_Calc32C", [](const uint8_t* p, uint32_t n) { return CRC_Calc32C(p, n, 0); });
  Add("CRC_Calc32Table", [](const uint8_t* p, uint32_t n) { return CRC_Calc32Table(p, n, 0, 0xD5828281); });
  Add("CRC_CalcFill", [](const uint8_t*, uint32_t n) { return CRC_CalcFill(0xFF, n, 0, 0xEDB88320); });
  Add("CRC_CalcEx", [](const uint8_t* p, uint32_t n) {
    return CRC_CalcEx(p, n, 0, 0x1021, CRC_WIDTH_16 | CRC_MSB_FIRST | CRC_REFLECT_IN);
  });
  Add("zlib crc32", [](const uint8_t* p, uint32_t n) { return static_cast<uint32_t>(crc32(0, p, n)); });
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
