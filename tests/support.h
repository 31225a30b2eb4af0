#ifndef TESTS_SUPPORT_H
#define TESTS_SUPPORT_H

// What the module tests share: memory with a guarded end, random input, the same in every run, and threads at once.

#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// Memory that ends right before a page which nobody may touch: a read or write behind it ends the test, with a
// sanitizer and without. What lies before the part in use holds a pattern that tells of writes there.
class GUARDED_BLOCK {
 public:
  static constexpr char PATTERN = '\xA5';

  explicit GUARDED_BLOCK(size_t capacity = 0x1000)
      : PageSize(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
        NumBytes((capacity + MARGIN + PageSize - 1) / PageSize * PageSize),
        pStart(static_cast<char*>(
            mmap(nullptr, NumBytes + PageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0))) {
    mprotect(pStart + NumBytes, PageSize, PROT_NONE);
  }

  ~GUARDED_BLOCK() { munmap(pStart, NumBytes + PageSize); }

  GUARDED_BLOCK(const GUARDED_BLOCK&) = delete;
  GUARDED_BLOCK& operator=(const GUARDED_BLOCK&) = delete;

  // Returns the last size bytes, filled with the pattern.
  char* Take(size_t size) {
    pTaken = pStart + NumBytes - size;
    memset(pTaken - MARGIN, PATTERN, MARGIN + size);
    return pTaken;
  }

  // Copies bytes, or a text with its terminator, to the end of the block.
  char* Place(std::string_view bytes) {
    char* p = Take(bytes.size());
    bytes.copy(p, bytes.size());
    return p;
  }
  char* PlaceText(const std::string& text) { return Place({text.c_str(), text.size() + 1}); }

  // Whether nothing was written before the part in use.
  bool IsIntact() const {
    return std::all_of(pTaken - MARGIN, pTaken, [](char c) { return c == PATTERN; });
  }

 private:
  static constexpr size_t MARGIN = 64;

  const size_t PageSize;
  const size_t NumBytes;
  char* const pStart;
  char* pTaken = nullptr;
};

// The engine alone is the same everywhere; the library's distributions are not.
class RANDOM {
 public:
  explicit RANDOM(uint32_t seed) : engine(seed) {}

  uint32_t Next32() { return static_cast<uint32_t>(engine()); }
  uint64_t Next64() { return uint64_t{Next32()} << 32 | Next32(); }
  uint32_t Below(size_t limit) { return static_cast<uint32_t>(engine() % limit); }
  bool OneIn(uint32_t n) { return Below(n) == 0; }

  // A number of any width, often right beside a power of 2, 256 or 10, either sign.
  uint64_t Value() {
    uint64_t value = Next64() >> Below(64);
    if (!OneIn(3)) {
      const uint64_t base = OneIn(3) ? 2 : OneIn(2) ? 256 : 10;
      value = 1;
      for (uint32_t n = Below(base == 2 ? 64 : base == 256 ? 8 : 20); n > 0; n--) {
        value *= base;
      }
      value += Below(3) - uint64_t{1};
    }
    return OneIn(4) ? 0 - value : value;
  }

  std::string Text(std::string_view alphabet, size_t maxLength) {
    std::string text(Below(maxLength + 1), ' ');
    std::generate(text.begin(), text.end(), [&] { return alphabet[Below(alphabet.size())]; });
    return text;
  }

  std::string Bytes(size_t numBytes) {
    std::string bytes(numBytes, ' ');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(engine()); });
    return bytes;
  }

 private:
  std::mt19937 engine;
};

// The digits of a number, one division at a time.
inline std::string DigitsOf(uint64_t value, uint32_t base, std::string_view digits = "0123456789ABCDEF") {
  std::string text;
  do {
    text.insert(text.begin(), digits[value % base]);
    value /= base;
  } while (value != 0);
  return text;
}

// How long a call takes.
template <typename CALL>
int64_t MeasureUs(CALL call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start).count();
}

// Runs body in several threads at once, with the thread's index.
template <typename BODY>
void RunThreads(int count, BODY body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; i++) {
    threads.emplace_back(body, i);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

#endif
