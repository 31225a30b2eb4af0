// Both formatting engines beside glibc's snprintf and {fmt}'s format_to_n, on texts that the system makes. Each row
// writes the same text four times over; the compact engine takes no part where it writes another one.

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <stdio.h>

#include <string>
#include <tuple>

#include "util/fmt.h"
#include "util/printf.h"

namespace {

char acText[4096];

const std::string longText(1000, 'x');

// One row: the text's formats and arguments. Arguments are reloaded each time, as a caller's would be.
template <typename... ARGS>
void Add(const std::string& row, size_t size, const char* format, const char* compactFormat, const char* fmtFormat,
         ARGS... args) {
  auto add = [&row](const char* engine, auto write) {
    benchmark::RegisterBenchmark((row + "/" + engine).c_str(), [write](benchmark::State& state) {
      for (auto _ : state) {
        write();
        benchmark::ClobberMemory();
      }
    });
  };
  auto values = std::make_tuple(args...);
  benchmark::DoNotOptimize(values);
  add("full", [=] {
    std::apply([&](auto... a) { UTIL_snprintf(acText, static_cast<uint32_t>(size), format, a...); }, values);
  });
  if (compactFormat != nullptr) {
    add("compact", [=] {
      std::apply([&](auto... a) { FMT_snprintf(acText, static_cast<uint32_t>(size), compactFormat, a...); }, values);
    });
  }
  add("glibc", [=] { std::apply([&](auto... a) { snprintf(acText, size, format, a...); }, values); });
  add("fmt", [=] {
    std::apply(
        [&](auto... a) {
          auto result = fmt::format_to_n(acText, size - 1, fmt::runtime(fmtFormat), a...);
          *result.out = '\0';
        },
        values);
  });
}

void AddRows() {
  Add("one text", 256, "Vorta log: %s\n", "Vorta log: %s\n", "Vorta log: {}\n", "Connecting to target via SWD");
  Add("two texts", 256, "Failed to register key-value pair %s=%s\n", "Failed to register key-value pair %s=%s\n",
      "Failed to register key-value pair {}={}\n", "SerialNumber", "0012345678");
  Add("path", 512, "%s%s", "%s%s", "{}{}", "/opt/nordax/bin/", "libvortaarm.dylib");
  Add("size in hex", 64, "Failed to allocate 0x%08X bytes of memory!", nullptr,
      "Failed to allocate 0x{:08X} bytes of memory!", 0x123456u);
  Add("address in hex", 64, "0x%08X%08X", nullptr, "0x{:08X}{:08X}", 0x20000000u, 0x1234ABCDu);
  Add("number", 16, "%u", "%u", "{}", 305419896u);
  Add("IPv4", 32, "%d.%d.%d.%d", "%d.%d.%d.%d", "{}.{}.{}.{}", 192, 168, 0, 17);
  Add("IPv6", 64, "%02X%02X:%02X%02X:%02X%02X:%02X%02X:%02X%02X:%02X%02X:%02X%02X:%02X%02X", nullptr,
      "{:02X}{:02X}:{:02X}{:02X}:{:02X}{:02X}:{:02X}{:02X}:{:02X}{:02X}:{:02X}{:02X}:{:02X}{:02X}:{:02X}{:02X}", 0x20,
      0x01, 0x0D, 0xB8, 0x85, 0xA3, 0, 0, 0, 0, 0x8A, 0x2E, 0x03, 0x70, 0x73, 0x34);
  Add("version", 16, "V%d.%.2d", "V%d.%.2d", "V{}.{:02}", 9, 42);
  Add("duration", 32, "%01d:%02d:%02d.%03d %03d", nullptr, "{:01}:{:02}:{:02}.{:03} {:03}", 1, 2, 3, 4, 5);
  Add("long plain text", 4096, longText.c_str(), longText.c_str(), longText.c_str());
  Add("long text", 4096, "%s", "%s", "{}", longText.c_str());
  Add("cut text", 64, "ERROR: %s\n", "ERROR: %s\n", "ERROR: {}\n", longText.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  AddRows();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
