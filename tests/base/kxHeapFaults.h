// Makes chosen heap requests of the foundation types fail, through the process Env.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>

#include "base/kxEnv.h"

namespace kxtest {

// While alive, the request numbered `failAt` (0-based, counted from construction) fails, and
// with `failAfter` also every later one. failAt < 0 fails nothing but still counts.
class HeapFaults : public kxEnvWrapper {
public:
    explicit HeapFaults(long failAt, bool failAfter = false)
        : m_failAt(failAt), m_failAfter(failAfter), m_scope(this) {
        s_count = 0;
    }
    HeapFaults(const HeapFaults&) = delete;
    HeapFaults& operator=(const HeapFaults&) = delete;

    // Requests seen so far.
    static long Count() { return s_count; }

    void* Malloc(size_t bytes) override {
        return Refuse() ? nullptr : kxEnvWrapper::Malloc(bytes);
    }
    void* Realloc(void* p, size_t bytes) override {
        return Refuse() ? nullptr : kxEnvWrapper::Realloc(p, bytes);
    }

private:
    bool Refuse() {
        const long n = s_count++;
        const bool refuse = m_failAt >= 0 && (n == m_failAt || (m_failAfter && n > m_failAt));
        if (refuse) errno = ENOMEM;
        return refuse;
    }
    const long m_failAt;
    const bool m_failAfter;
    kxScopedEnv m_scope;  // last: installed once the rest is ready
    static inline std::atomic<long> s_count{0};
};

}  // namespace kxtest
