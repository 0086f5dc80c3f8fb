#include "base/kxInterlock.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>
#include <vector>

namespace {

// Every increment hands back a value no other caller got, and none is lost.
TEST(KxInterlock, ThreadsNeverLoseOrRepeatAnIncrement) {
    int32_t counter = 0;
    constexpr int kThreads = 4, kEach = 50000;
    std::vector<std::vector<int32_t>> seen(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            seen[t].reserve(kEach);
            for (int i = 0; i < kEach; ++i) seen[t].push_back(kxInterlockedIncrement(&counter));
        });
    for (auto& th : threads) th.join();
    EXPECT_EQ(kThreads * kEach, counter);
    std::vector<bool> hit(kThreads * kEach + 1, false);
    for (const auto& values : seen)
        for (int32_t v : values) {
            ASSERT_TRUE(v >= 1 && v <= kThreads * kEach) << v;
            EXPECT_FALSE(hit[v]) << "value handed out twice: " << v;
            hit[v] = true;
        }
    counter = 0;
    EXPECT_EQ(-1, kxInterlockedDecrement(&counter));
}

// No lock private to a process is involved: a counter in shared memory stays exact when two
// processes change it at once.
TEST(KxInterlock, ProcessesSharingACounterLoseNothing) {
    void* mem = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(MAP_FAILED, mem);
    int32_t* counter = static_cast<int32_t*>(mem);
    *counter = 0;
    constexpr int kEach = 200000;
    pid_t kids[2];
    for (pid_t& kid : kids) {
        kid = fork();
        if (kid == 0) {
            for (int i = 0; i < kEach; ++i) kxInterlockedIncrement(counter);
            _exit(0);
        }
    }
    for (int i = 0; i < kEach; ++i) kxInterlockedDecrement(counter);
    for (pid_t kid : kids) waitpid(kid, nullptr, 0);
    EXPECT_EQ(kEach, *counter);
    munmap(mem, 4096);
}

}  // namespace
