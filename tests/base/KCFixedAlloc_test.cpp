#include "base/KCFixedAlloc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "kxHeapFaults.h"
#include "kxLogCapture.h"

namespace {

TEST(KCFixedAlloc, ChunksAreTakenOneAtATimeAndFreeAllStartsOver) {
    KCFixedAlloc pool(80, 64);
    std::vector<char*> blocks;
    for (int i = 0; i < 64; ++i) blocks.push_back(static_cast<char*>(pool.Alloc()));
    for (int i = 1; i < 64; ++i) EXPECT_EQ(blocks[i] - blocks[i - 1], 80) << i;

    kxtest::HeapFaults counter(-1);
    char* sixtyFifth = static_cast<char*>(pool.Alloc());
    EXPECT_EQ(kxtest::HeapFaults::Count(), 1);  // the 65th needed a second chunk
    ASSERT_NE(sixtyFifth, nullptr);
    EXPECT_TRUE(sixtyFifth < blocks.front() || sixtyFifth > blocks.back());
    pool.Alloc();
    EXPECT_EQ(kxtest::HeapFaults::Count(), 1);

    pool.FreeAll();
    EXPECT_NE(pool.Alloc(), nullptr);
    EXPECT_EQ(kxtest::HeapFaults::Count(), 2);  // a new chunk: the old ones are gone
}

TEST(KCFixedAlloc, TinyElementsStillHoldTheFreeListLink) {
    KCFixedAlloc pool(1, 3);
    EXPECT_EQ(pool.GetElementSize(), sizeof(void*));
    std::set<void*> seen;
    for (int i = 0; i < 10; ++i) seen.insert(pool.Alloc());
    EXPECT_EQ(seen.size(), 10u);
}

TEST(KCFixedAlloc, FailedChunkIsLoggedAndGivesNull) {
    kxtest::LogCapture log;
    KCFixedAlloc pool(80, 64);
    {
        kxtest::HeapFaults faults(0);
        EXPECT_EQ(pool.Alloc(), nullptr);
    }
    EXPECT_TRUE(log.Has(KX_E_UNHANDLED_EXCEPTION, "KCFixedAlloc::Alloc: memory exception"));
    // The lock was released: the allocator still works.
    EXPECT_NE(pool.Alloc(), nullptr);
}

TEST(KCFixedAlloc, ThreadsNeverReceiveTheSameBlock) {
    KCFixedAlloc pool(80, 64);
    constexpr int kThreads = 4, kRounds = 2000, kHeld = 16;
    std::vector<std::vector<void*>> owned(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            std::vector<void*> held;
            for (int r = 0; r < kRounds; ++r) {
                for (int i = 0; i < kHeld; ++i) {
                    auto* p = static_cast<uint32_t*>(pool.Alloc());
                    *p = static_cast<uint32_t>(t);  // a block shared by two threads shows here
                    held.push_back(p);
                }
                for (void* p : held) {
                    EXPECT_EQ(*static_cast<uint32_t*>(p), static_cast<uint32_t>(t));
                    pool.Free(p);
                }
                held.clear();
            }
            for (int i = 0; i < kHeld; ++i) owned[t].push_back(pool.Alloc());
        });
    for (auto& th : threads) th.join();
    std::set<void*> all;
    for (auto& v : owned) all.insert(v.begin(), v.end());
    EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kHeld));
}

}  // namespace
