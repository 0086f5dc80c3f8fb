// Makes chosen heap requests of the foundation types fail, through the kxHeap seam.
#pragma once

#include <atomic>
#include <cstddef>

#include "base/kxHeap.h"

namespace kxtest {

// While alive, the request numbered `failAt` (0-based, counted from construction) fails, and
// with `failAfter` also every later one. failAt < 0 fails nothing but still counts.
class HeapFaults {
public:
    explicit HeapFaults(long failAt, bool failAfter = false) {
        s_count = 0;
        s_failAt = failAt;
        s_failAfter = failAfter;
        kxHeap::g_pfnFailHook = &Hook;
    }
    ~HeapFaults() { kxHeap::g_pfnFailHook = nullptr; }
    HeapFaults(const HeapFaults&) = delete;
    HeapFaults& operator=(const HeapFaults&) = delete;

    // Requests seen so far.
    static long Count() { return s_count; }

private:
    static bool Hook(size_t) {
        long n = s_count++;
        return s_failAt >= 0 && (n == s_failAt || (s_failAfter && n > s_failAt));
    }
    static inline std::atomic<long> s_count{0};
    static inline long s_failAt = -1;
    static inline bool s_failAfter = false;
};

}  // namespace kxtest
