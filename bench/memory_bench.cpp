// The arena beside malloc with free and the standard library's monotonic resource: a million requests of one size, each
// of them written to at its start, and released at the end. A second set fills an arena up to 1 GiB, to see that a
// request costs the same however many blocks there are. The hash tree follows, beside std::unordered_map.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <iterator>
#include <memory_resource>
#include <random>
#include <unordered_map>
#include <vector>

#include "util/hashtree.h"
#include "util/otalloc.h"

namespace {

constexpr uint32_t NUM_REQUESTS = 1000000;

void Touch(void* p) {
  *static_cast<uint64_t*>(p) = 1;
  benchmark::DoNotOptimize(p);
}

void CountRequests(benchmark::State& state, uint64_t perRound) {
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * perRound));
}

void Otalloc(benchmark::State& state) {
  for (auto _ : state) {
    OTALLOC* pArena = OTALLOC_Create();
    for (uint32_t i = 0; i < NUM_REQUESTS; i++) {
      Touch(OTALLOC_Alloc(pArena, static_cast<uint32_t>(state.range(0))));
    }
    OTALLOC_Destroy(pArena);
  }
  CountRequests(state, NUM_REQUESTS);
}

void Monotonic(benchmark::State& state) {
  for (auto _ : state) {
    std::pmr::monotonic_buffer_resource arena;
    for (uint32_t i = 0; i < NUM_REQUESTS; i++) {
      Touch(arena.allocate(static_cast<size_t>(state.range(0)), 8));
    }
  }
  CountRequests(state, NUM_REQUESTS);
}

// Zero-filled as an arena's memory is, which the resource leaves to its user.
void MonotonicZeroed(benchmark::State& state) {
  for (auto _ : state) {
    std::pmr::monotonic_buffer_resource arena;
    for (uint32_t i = 0; i < NUM_REQUESTS; i++) {
      Touch(memset(arena.allocate(static_cast<size_t>(state.range(0)), 8), 0, static_cast<size_t>(state.range(0))));
    }
  }
  CountRequests(state, NUM_REQUESTS);
}

void MallocFree(benchmark::State& state) {
  std::vector<void*> blocks(NUM_REQUESTS);
  for (auto _ : state) {
    for (void*& p : blocks) {
      p = malloc(static_cast<size_t>(state.range(0)));
      Touch(p);
    }
    for (void* p : blocks) {
      free(p);
    }
  }
  CountRequests(state, NUM_REQUESTS);
}

BENCHMARK(Otalloc)->Arg(24)->Arg(64)->Arg(200)->Unit(benchmark::kMillisecond);
BENCHMARK(Monotonic)->Arg(24)->Arg(64)->Arg(200)->Unit(benchmark::kMillisecond);
BENCHMARK(MonotonicZeroed)->Arg(24)->Arg(64)->Arg(200)->Unit(benchmark::kMillisecond);
BENCHMARK(MallocFree)->Arg(24)->Arg(64)->Arg(200)->Unit(benchmark::kMillisecond);

// Creates an arena of the given number of MiB, in blocks that all have some room left.
OTALLOC* GrowArena(int64_t numMiB) {
  OTALLOC* pArena = OTALLOC_Create();
  for (int64_t used = 0; used < numMiB << 20; used += 200 + 1000) {
    OTALLOC_Alloc(pArena, 1000);
    OTALLOC_Alloc(pArena, 200);
  }
  return pArena;
}

// Requests of several sizes in an arena that is large already.
void OtallocGrown(benchmark::State& state) {
  constexpr uint32_t SIZES[] = {24, 200, 64, 1120, 40};
  // So that all sizes of the arena run on memory that the process has.
  OTALLOC_Destroy(GrowArena(state.range(0) + 200));
  OTALLOC* pArena = GrowArena(state.range(0));
  for (auto _ : state) {
    for (uint32_t size : SIZES) {
      Touch(OTALLOC_Alloc(pArena, size));
    }
  }
  CountRequests(state, std::size(SIZES));
  OTALLOC_Destroy(pArena);
}

BENCHMARK(OtallocGrown)->Arg(4)->Arg(64)->Arg(1024)->Iterations(100000);

struct ITEM {
  uint32_t Key;
  uint32_t Value;
};

// A mixer, so that neighbouring keys land apart (the finaliser of MurmurHash3).
uint32_t Mix(uint32_t key) {
  key = (key ^ key >> 16) * 0x85EBCA6B;
  key = (key ^ key >> 13) * 0xC2B2AE35;
  return key ^ key >> 16;
}

uint32_t HashItem(const void* pItem) {
  return Mix(static_cast<const ITEM*>(pItem)->Key);
}

int32_t CompareItems(const void* pItem, const void* pKey) {
  return static_cast<const ITEM*>(pItem)->Key != static_cast<const ITEM*>(pKey)->Key;
}

// Even keys are there, odd ones are not.
std::vector<ITEM> MakeKeys(int64_t count, bool isHit) {
  std::vector<ITEM> keys;
  for (int64_t i = 0; i < count; i++) {
    keys.push_back({static_cast<uint32_t>(2 * i + !isHit), static_cast<uint32_t>(i)});
  }
  std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
  return keys;
}

template <bool IS_HIT>
void HashTreeFind(benchmark::State& state) {
  std::vector<ITEM> items = MakeKeys(state.range(0), true);
  HASHTREE* pTree = HASHTREE_Create(HashItem, CompareItems);
  for (ITEM& item : items) {
    HASHTREE_Add(pTree, &item);
  }
  const std::vector<ITEM> keys = MakeKeys(state.range(0), IS_HIT);
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(HASHTREE_Find(pTree, &keys[i]));
    i = i + 1 == keys.size() ? 0 : i + 1;
  }
  HASHTREE_Destroy(pTree);
}

struct MIXED_HASH {
  size_t operator()(uint32_t key) const { return Mix(key); }
};

template <bool IS_HIT>
void UnorderedMapFind(benchmark::State& state) {
  std::vector<ITEM> items = MakeKeys(state.range(0), true);
  std::unordered_map<uint32_t, ITEM*, MIXED_HASH> map;
  for (ITEM& item : items) {
    map.emplace(item.Key, &item);
  }
  const std::vector<ITEM> keys = MakeKeys(state.range(0), IS_HIT);
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.find(keys[i].Key));
    i = i + 1 == keys.size() ? 0 : i + 1;
  }
}

BENCHMARK(HashTreeFind<true>)->Name("HashTreeHit")->Arg(16)->Arg(1000)->Arg(1000000);
BENCHMARK(UnorderedMapFind<true>)->Name("UnorderedMapHit")->Arg(16)->Arg(1000)->Arg(1000000);
BENCHMARK(HashTreeFind<false>)->Name("HashTreeMiss")->Arg(16)->Arg(1000)->Arg(1000000);
BENCHMARK(UnorderedMapFind<false>)->Name("UnorderedMapMiss")->Arg(16)->Arg(1000)->Arg(1000000);

}  // namespace
