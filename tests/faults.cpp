// The wrappers and what they share: a counter and a fault for each call. Wrappers run on any thread, faults come and go
// while no other thread makes the calls in question.

#include "tests/faults.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <utility>

namespace {

constexpr size_t NUM_CALLS = static_cast<size_t>(FAULT_CALL::COUNT);

constexpr int DIRT = 0xA5;  // Fills new blocks: fresh memory is often zero, which hides that nobody cleared it.

std::atomic<uint32_t> aNumCalls[NUM_CALLS];
const FAULT* apFault[NUM_CALLS];
const SCOPED_LINKS* pLinks;

#ifndef __APPLE__

enum class OUTCOME { PASS, FAIL, SHORT };

// Counts a call and decides what becomes of it; sets errno when that is failure.
OUTCOME Enter(FAULT_CALL call) {
  const auto index = static_cast<size_t>(call);
  const uint32_t number = ++aNumCalls[index];
  const FAULT* pFault = apFault[index];
  if (pFault == nullptr || number < pFault->First || number - pFault->First >= pFault->Count) {
    return OUTCOME::PASS;
  }
  if (pFault->Kind == FAULT_KIND::SHORT) {
    return OUTCOME::SHORT;
  }
  errno = pFault->Error;
  return OUTCOME::FAIL;
}

size_t Shorten(size_t numBytes) {
  return std::max<size_t>(numBytes / 2, std::min<size_t>(numBytes, 1));
}

ssize_t ReadFakeLink(const char* path, char* pDest, size_t size) {
  auto found = pLinks->Targets.find(path);
  if (found == pLinks->Targets.end()) {
    errno = EINVAL;
    return -1;
  }
  return static_cast<ssize_t>(found->second.copy(pDest, size));
}

#endif

}  // namespace

#ifndef __APPLE__

// The names that the linker's option asks for, without spelling them as identifiers.
#define FAULT_WRAP(result, name, ...)                                  \
  extern "C" result Real_##name(__VA_ARGS__) __asm__("__real_" #name); \
  extern "C" result Wrap_##name(__VA_ARGS__) __asm__("__wrap_" #name); \
  result Wrap_##name(__VA_ARGS__)

FAULT_WRAP(void*, malloc, size_t size) {
  void* p = Enter(FAULT_CALL::MALLOC) == OUTCOME::PASS ? Real_malloc(size) : nullptr;
  return p != nullptr ? memset(p, DIRT, size) : nullptr;
}

FAULT_WRAP(void*, realloc, void* p, size_t size) {
  return Enter(FAULT_CALL::REALLOC) == OUTCOME::PASS ? Real_realloc(p, size) : nullptr;
}

FAULT_WRAP(ssize_t, read, int fd, void* pBuffer, size_t numBytes) {
  const OUTCOME outcome = Enter(FAULT_CALL::READ);
  return outcome == OUTCOME::FAIL ? -1
                                  : Real_read(fd, pBuffer, outcome == OUTCOME::SHORT ? Shorten(numBytes) : numBytes);
}

FAULT_WRAP(ssize_t, write, int fd, const void* pBuffer, size_t numBytes) {
  const OUTCOME outcome = Enter(FAULT_CALL::WRITE);
  return outcome == OUTCOME::FAIL ? -1
                                  : Real_write(fd, pBuffer, outcome == OUTCOME::SHORT ? Shorten(numBytes) : numBytes);
}

FAULT_WRAP(ssize_t, readlink, const char* path, char* pDest, size_t size) {
  if (Enter(FAULT_CALL::READLINK) == OUTCOME::FAIL) {
    return -1;
  }
  return pLinks != nullptr ? ReadFakeLink(path, pDest, size) : Real_readlink(path, pDest, size);
}

#endif

SCOPED_FAULT::SCOPED_FAULT(const FAULT& fault) : Fault(fault) {
  const auto index = static_cast<size_t>(Fault.Call);
  aNumCalls[index] = 0;
  apFault[index] = &Fault;
}

SCOPED_FAULT::~SCOPED_FAULT() {
  apFault[static_cast<size_t>(Fault.Call)] = nullptr;
}

uint32_t SCOPED_FAULT::NumCalls() const {
  return aNumCalls[static_cast<size_t>(Fault.Call)];
}

bool SCOPED_FAULT::WasHit() const {
  return NumCalls() >= Fault.First;
}

SCOPED_LINKS::SCOPED_LINKS(std::map<std::string, std::string> targets) : Targets(std::move(targets)) {
  pLinks = this;
}

SCOPED_LINKS::~SCOPED_LINKS() {
  pLinks = nullptr;
}
