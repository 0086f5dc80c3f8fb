// KCFixedAlloc against malloc/free for 80-byte blocks (the smallest string class).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "base/KCFixedAlloc.h"

namespace {

constexpr unsigned kBlock = 80;

void BM_AllocFreePair_KCFixedAlloc(benchmark::State& state) {
    KCFixedAlloc pool(kBlock, 64);
    for (auto _ : state) {
        void* p = pool.Alloc();
        benchmark::DoNotOptimize(p);
        pool.Free(p);
    }
}
BENCHMARK(BM_AllocFreePair_KCFixedAlloc);

void BM_AllocFreePair_Malloc(benchmark::State& state) {
    for (auto _ : state) {
        void* p = malloc(kBlock);
        benchmark::DoNotOptimize(p);
        free(p);
    }
}
BENCHMARK(BM_AllocFreePair_Malloc);

// Many blocks held at once, then all given back: the free list against the heap's bins.
void BM_AllocBatchThenFree_KCFixedAlloc(benchmark::State& state) {
    const size_t batch = static_cast<size_t>(state.range(0));
    KCFixedAlloc pool(kBlock, 64);
    std::vector<void*> held(batch);
    for (auto _ : state) {
        for (auto& p : held) p = pool.Alloc();
        benchmark::DoNotOptimize(held.data());
        for (void* p : held) pool.Free(p);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(batch));
}
BENCHMARK(BM_AllocBatchThenFree_KCFixedAlloc)->Arg(64)->Arg(4096);

void BM_AllocBatchThenFree_Malloc(benchmark::State& state) {
    const size_t batch = static_cast<size_t>(state.range(0));
    std::vector<void*> held(batch);
    for (auto _ : state) {
        for (auto& p : held) p = malloc(kBlock);
        benchmark::DoNotOptimize(held.data());
        for (void* p : held) free(p);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(batch));
}
BENCHMARK(BM_AllocBatchThenFree_Malloc)->Arg(64)->Arg(4096);

// Several threads sharing one allocator (it serialises on its lock) against the heap's
// per-thread caches.
KCFixedAlloc g_sharedPool(kBlock, 64);

void BM_AllocFreeThreads_KCFixedAlloc(benchmark::State& state) {
    for (auto _ : state) {
        void* p = g_sharedPool.Alloc();
        benchmark::DoNotOptimize(p);
        g_sharedPool.Free(p);
    }
}
BENCHMARK(BM_AllocFreeThreads_KCFixedAlloc)->Threads(2);

void BM_AllocFreeThreads_Malloc(benchmark::State& state) {
    for (auto _ : state) {
        void* p = malloc(kBlock);
        benchmark::DoNotOptimize(p);
        free(p);
    }
}
BENCHMARK(BM_AllocFreeThreads_Malloc)->Threads(2);

}  // namespace

BENCHMARK_MAIN();
