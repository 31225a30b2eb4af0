#ifndef TESTS_FAULTS_H
#define TESTS_FAULTS_H

// Makes calls of the C library fail on purpose. The linker sends the calls that the layer and the tests make through
// wrappers, which count them and let chosen ones fail. Calls that shared libraries make themselves do not pass here, so
// that the allocations of the C++ library and of the test framework are neither counted nor hit. Blocks from malloc are
// filled with a pattern.
//
// To add a call: its name here, its wrapper in faults.cpp, and its name again in the list in CMakeLists.txt. A call
// that one test alone replaces has its wrapper in that test.

#include <gtest/gtest.h>
#include <stdint.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

// Apple's linker cannot wrap calls: a case that needs faults starts with this line.
#ifdef __APPLE__
#define FAULTS_REQUIRE() GTEST_SKIP() << "the linker cannot wrap calls"
#else
#define FAULTS_REQUIRE() static_cast<void>(0)
#endif

// The thread sanitizer complains of misuse, or ends the process. A case that misuses threads or locks, to see it
// refused, starts with this line.
#ifdef __SANITIZE_THREAD__
#define UNDER_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define UNDER_THREAD_SANITIZER
#endif
#endif
#ifdef UNDER_THREAD_SANITIZER
#define MISUSE_REQUIRE() GTEST_SKIP() << "the thread sanitizer allows no misuse"
#else
#define MISUSE_REQUIRE() static_cast<void>(0)
#endif

// Defines the wrapper of a call, and declares the call itself as Real_name: the names that the linker's option asks
// for, without spelling them as identifiers.
#define FAULT_WRAP(result, name, ...)                                  \
  extern "C" result Real_##name(__VA_ARGS__) __asm__("__real_" #name); \
  extern "C" result Wrap_##name(__VA_ARGS__) __asm__("__wrap_" #name); \
  result Wrap_##name(__VA_ARGS__)

enum class FAULT_CALL {
  ANY,  // Each of these but the heap's. Where a call has a fault of its own too, it is that one which counts.
  // clang-format off: several a line.
  MALLOC,
  REALLOC,
  READ,
  WRITE,
  READLINK,
  OPEN,
  CLOSE,
  LSEEK,
  STAT,
  FSTAT,
  LSTAT,
  REALPATH,
  MKDIR,
  FLOCK,
  FCHMOD,
  FCHOWN,
  FTRUNCATE,
  FSYNC,
  LINK,
  UNLINK,
  RENAME,
  IOCTL,
  CLOSE_RANGE,
  GETDENTS64,
  WAITPID,
  RECV,
  RECVFROM,
  SEND,
  GETSOCKOPT,
  PTHREAD_CREATE,
  PTHREAD_MUTEXATTR_INIT,
  PTHREAD_MUTEX_INIT,
  PTHREAD_MUTEX_DESTROY,
  PTHREAD_COND_INIT,
  PTHREAD_COND_SIGNAL,
  PTHREAD_COND_TIMEDWAIT,
  // clang-format on
  COUNT
};

enum class FAULT_KIND {
  FAIL,   // The call does nothing and reports the error; an interrupted call is one that fails with EINTR.
  SHORT,  // The call moves half of the bytes that were asked for, at least one.
  SKIP,   // The call does nothing and succeeds, as far as it has no result but that.
  KILL,   // The process is killed in place of the call.
  VALUE,  // The call succeeds, and the error is the value that it reads (GETSOCKOPT alone).
  NONE,   // The call does what it always does, after OnHit.
};

struct FAULT {
  FAULT_CALL Call;
  uint32_t First;      // The first call that is hit; 1 is the next one.
  int Error;           // errno of a call that fails; the result of a thread call, 0 included.
  uint32_t Count = 1;  // Calls in a row that are hit, UINT32_MAX for all from there on.
  FAULT_KIND Kind = FAULT_KIND::FAIL;
  std::function<void()> OnHit = nullptr;  // Runs before a call that is hit, itself free of the fault.
};

// One fault, as long as the object lives. Different calls can have a fault at the same time, one call a single one.
class SCOPED_FAULT {
 public:
  explicit SCOPED_FAULT(const FAULT& fault);
  ~SCOPED_FAULT();
  SCOPED_FAULT(const SCOPED_FAULT&) = delete;
  SCOPED_FAULT& operator=(const SCOPED_FAULT&) = delete;

  uint32_t NumCalls() const;  // Calls since the fault was set, those that were hit included.
  bool WasHit() const;

 private:
  FAULT Fault;
};

// Runs body with the 1st, the 2nd, the 3rd call failing and so on, until it gets through without being hit: body gets
// the fault, and after the operation under test asks it whether that had to fail.
template <typename BODY>
void SweepFaults(FAULT_CALL call, int error, BODY body) {
  for (uint32_t n = 1;; n++) {
    SCOPED_TRACE("call " + std::to_string(n) + " fails");
    SCOPED_FAULT fault({call, n, error});
    body(fault);
    if (!fault.WasHit() || testing::Test::HasFatalFailure()) {
      return;
    }
  }
}

// What holds as long as its one object lives.
template <typename OBJECT>
class SCOPED {
 public:
  SCOPED(const SCOPED&) = delete;
  SCOPED& operator=(const SCOPED&) = delete;

  static inline OBJECT* pCurrent;  // Null without an object.

 protected:
  SCOPED() { pCurrent = static_cast<OBJECT*>(this); }
  ~SCOPED() { pCurrent = nullptr; }
};

// The calls are noted, in order; those of the heap are left out.
struct SCOPED_CALL_LOG : SCOPED<SCOPED_CALL_LOG> {
  std::vector<FAULT_CALL> Calls;
};

// The symbolic links are those of the map (path to target), and nothing else is one.
struct SCOPED_LINKS : SCOPED<SCOPED_LINKS> {
  explicit SCOPED_LINKS(std::map<std::string, std::string> targets) : Targets(std::move(targets)) {}

  const std::map<std::string, std::string> Targets;
};

// An address has no other name than its numeric text, and nobody is asked for one.
struct SCOPED_NUMERIC_NAMES : SCOPED<SCOPED_NUMERIC_NAMES> {};

// The list of interfaces is this one, or cannot be read if it is null.
struct SCOPED_INTERFACES : SCOPED<SCOPED_INTERFACES> {
  explicit SCOPED_INTERFACES(struct ifaddrs* pFirst) : pList(pFirst) {}

  struct ifaddrs* const pList;
  int NumHeld = 0;  // Lists handed out and not released.
};

// The wall clock gives these readings, in microseconds since 1970, one a call, and the last one from there on; -1 is a
// clock that cannot be read. Waits of the platform run on its own clock as ever.
struct SCOPED_WALL_CLOCK : SCOPED<SCOPED_WALL_CLOCK> {
  explicit SCOPED_WALL_CLOCK(std::vector<int64_t> readingsUs) : ReadingsUs(std::move(readingsUs)) {}

  const std::vector<int64_t> ReadingsUs;
  size_t NumReads = 0;
};

#endif
