// Locks, semaphores and events beside what the platform and the C++ library offer for the same: one uncontended round,
// a lock that four threads fight for, and a message that two threads pass back and forth.

#include <benchmark/benchmark.h>
#include <semaphore.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "sys/sys_sync.h"

namespace {

class LAYER_MUTEX {
 public:
  ~LAYER_MUTEX() { SYS_MUTEX_Delete(&pMutex); }
  void lock() { SYS_MUTEX_Lock(pMutex, SYS_WAIT_INFINITE); }
  void unlock() { SYS_MUTEX_Unlock(pMutex); }

 private:
  SYS_MUTEX* pMutex = SYS_MUTEX_Create(nullptr);
};

class LAYER_SEMA {
 public:
  ~LAYER_SEMA() { SYS_SEMA_Delete(pSema); }
  void Post() { SYS_SEMA_Post(pSema); }
  void Wait() { SYS_SEMA_Wait(pSema, SYS_WAIT_INFINITE); }

 private:
  SYS_SEMA* pSema = SYS_SEMA_Create(0);
};

#ifndef __APPLE__  // Has no unnamed semaphores.
class PLATFORM_SEMA {
 public:
  PLATFORM_SEMA() { sem_init(&object, 0, 0); }
  ~PLATFORM_SEMA() { sem_destroy(&object); }
  void Post() { sem_post(&object); }
  void Wait() { sem_wait(&object); }

 private:
  sem_t object;
};
#endif

class LAYER_EVENT {
 public:
  ~LAYER_EVENT() { SYS_EVENT_Delete(pEvent); }
  void Post() { SYS_EVENT_Set(pEvent); }
  void Wait() { SYS_EVENT_Wait(pEvent, SYS_WAIT_INFINITE); }

 private:
  SYS_EVENT* pEvent = SYS_EVENT_Create(0, 0);
};

// The same event as a program without the layer writes it.
class CONDITION_EVENT {
 public:
  void Post() {
    {
      std::lock_guard<std::mutex> guard(mutex);
      isSet = true;
    }
    condition.notify_one();
  }
  void Wait() {
    std::unique_lock<std::mutex> guard(mutex);
    condition.wait(guard, [this] { return isSet; });
    isSet = false;
  }

 private:
  std::mutex mutex;
  std::condition_variable condition;
  bool isSet = false;
};

template <typename MUTEX>
void Lock(benchmark::State& state) {
  static MUTEX mutex;
  static int64_t counter;
  for (auto _ : state) {
    mutex.lock();
    benchmark::DoNotOptimize(++counter);
    mutex.unlock();
  }
}

template <typename OBJECT>
void PostAndWait(benchmark::State& state) {
  OBJECT object;
  for (auto _ : state) {
    object.Post();
    object.Wait();
  }
}

template <typename OBJECT>
void PingPong(benchmark::State& state) {
  OBJECT ping;
  OBJECT pong;
  bool isOver = false;
  std::thread other([&] {
    for (ping.Wait(); !isOver; ping.Wait()) {
      pong.Post();
    }
  });
  for (auto _ : state) {
    ping.Post();
    pong.Wait();
  }
  isOver = true;
  ping.Post();
  other.join();
}

BENCHMARK_TEMPLATE(Lock, LAYER_MUTEX);
BENCHMARK_TEMPLATE(Lock, std::recursive_mutex);
BENCHMARK_TEMPLATE(Lock, LAYER_MUTEX)->Threads(4)->UseRealTime();
BENCHMARK_TEMPLATE(Lock, std::recursive_mutex)->Threads(4)->UseRealTime();
BENCHMARK_TEMPLATE(PostAndWait, LAYER_SEMA);
#ifndef __APPLE__
BENCHMARK_TEMPLATE(PostAndWait, PLATFORM_SEMA);
#endif
BENCHMARK_TEMPLATE(PostAndWait, LAYER_EVENT);
BENCHMARK_TEMPLATE(PostAndWait, CONDITION_EVENT);
BENCHMARK_TEMPLATE(PingPong, LAYER_SEMA)->UseRealTime();
#ifndef __APPLE__
BENCHMARK_TEMPLATE(PingPong, PLATFORM_SEMA)->UseRealTime();
#endif
BENCHMARK_TEMPLATE(PingPong, LAYER_EVENT)->UseRealTime();
BENCHMARK_TEMPLATE(PingPong, CONDITION_EVENT)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
