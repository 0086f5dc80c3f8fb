// KCString against std::string in the same run: copying a 1 KB string (shared block against a
// deep copy; one copy made and dropped, and a thousand copies kept alive together), appending
// small pieces, and formatting; and the 1 KB copy again once the process has had threads.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "base/KCString.h"

namespace {

constexpr int kKilobyte = 1024;

void BM_Copy1K_KCString(benchmark::State& state) {
    KCString source('x', kKilobyte);
    for (auto _ : state) {
        KCString copy(source);
        benchmark::DoNotOptimize(copy.c_str());
    }
}
BENCHMARK(BM_Copy1K_KCString);

void BM_Copy1K_StdString(benchmark::State& state) {
    std::string source(kKilobyte, 'x');
    for (auto _ : state) {
        std::string copy(source);
        benchmark::DoNotOptimize(copy.data());
    }
}
BENCHMARK(BM_Copy1K_StdString);

// Many copies alive at once (names kept in a table): each std::string copy needs its own
// kilobyte of fresh heap, each KCString copy only a reference.
constexpr int kLiveCopies = 1000;

void BM_Copy1KLive_KCString(benchmark::State& state) {
    KCString source('x', kKilobyte);
    std::vector<KCString> table(kLiveCopies);
    for (auto _ : state) {
        for (auto& slot : table) slot = source;
        benchmark::DoNotOptimize(table.data());
        for (auto& slot : table) slot.Empty();
    }
    state.SetItemsProcessed(state.iterations() * kLiveCopies);
}
BENCHMARK(BM_Copy1KLive_KCString);

void BM_Copy1KLive_StdString(benchmark::State& state) {
    std::string source(kKilobyte, 'x');
    std::vector<std::string> table(kLiveCopies);
    for (auto _ : state) {
        for (auto& slot : table) slot = source;
        benchmark::DoNotOptimize(table.data());
        for (auto& slot : table) std::string().swap(slot);
    }
    state.SetItemsProcessed(state.iterations() * kLiveCopies);
}
BENCHMARK(BM_Copy1KLive_StdString);

// 8-byte pieces appended up to the given total length.
void BM_AppendPieces_KCString(benchmark::State& state) {
    const int total = static_cast<int>(state.range(0));
    for (auto _ : state) {
        KCString s;
        for (int n = 0; n < total; n += 8) s += "piece-8!";
        benchmark::DoNotOptimize(s.c_str());
    }
    state.SetBytesProcessed(state.iterations() * total);
}
BENCHMARK(BM_AppendPieces_KCString)->Arg(256)->Arg(512)->Arg(4096);

void BM_AppendPieces_StdString(benchmark::State& state) {
    const int total = static_cast<int>(state.range(0));
    for (auto _ : state) {
        std::string s;
        for (int n = 0; n < total; n += 8) s += "piece-8!";
        benchmark::DoNotOptimize(s.data());
    }
    state.SetBytesProcessed(state.iterations() * total);
}
BENCHMARK(BM_AppendPieces_StdString)->Arg(256)->Arg(512)->Arg(4096);

void BM_Format_KCString(benchmark::State& state) {
    KCString s;
    int i = 0;
    for (auto _ : state) {
        s.Format("%s: item %d of %u at 0x%08x took %.3f ms", "KFile::Read", i, 1000u, 0xBEEFu,
                 1.25 * i);
        benchmark::DoNotOptimize(s.c_str());
        ++i;
    }
}
BENCHMARK(BM_Format_KCString);

// The usual std::string idiom: snprintf into a stack buffer, then build the string.
void BM_Format_StdString(benchmark::State& state) {
    std::string s;
    int i = 0;
    for (auto _ : state) {
        char buffer[256];
        int n = snprintf(buffer, sizeof buffer, "%s: item %d of %u at 0x%08x took %.3f ms",
                         "KFile::Read", i, 1000u, 0xBEEFu, 1.25 * i);
        s.assign(buffer, static_cast<size_t>(n));
        benchmark::DoNotOptimize(s.data());
        ++i;
    }
}
BENCHMARK(BM_Format_StdString);

// The same copy once the process has had a second thread: from then on every reference-count
// change is an atomic instruction (while a process has one thread, plain ones are exact).
// Registered last, since the change lasts for the rest of the process.
void BM_Copy1K_KCString_Threaded(benchmark::State& state) {
    static const bool threaded = [] {
        std::thread([] {}).join();
        return true;
    }();
    benchmark::DoNotOptimize(threaded);
    KCString source('x', kKilobyte);
    for (auto _ : state) {
        KCString copy(source);
        benchmark::DoNotOptimize(copy.c_str());
    }
}
BENCHMARK(BM_Copy1K_KCString_Threaded);

}  // namespace

BENCHMARK_MAIN();
