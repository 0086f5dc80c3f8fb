// The library's interlocked increment and decrement, and the reference-count operations that
// the shared string blocks are built on.
//
// Both are atomic read-modify-write operations on a 32-bit integer: no lock is taken, so they
// cost a few nanoseconds, never block, and may be used from any thread at any time, before main
// too, and on memory shared with other processes.
//
// Thread safety: see each function.
#pragma once

#include <sys/single_threaded.h>

#include <cstdint>

// Adds one to / takes one from *p and returns the new value, as one atomic operation with full
// ordering (like the Win32 calls they stand in for). Safe on memory that other threads or other
// processes change at the same time.
inline int32_t kxInterlockedIncrement(int32_t* p) {
    return __atomic_add_fetch(p, 1, __ATOMIC_SEQ_CST);
}

inline int32_t kxInterlockedDecrement(int32_t* p) {
    return __atomic_sub_fetch(p, 1, __ATOMIC_SEQ_CST);
}

// Reference counts of blocks private to this process (shared string blocks). While the process
// has a single thread nobody else can see the count, so a plain add is exact and the atomic
// operation is skipped; as soon as a second thread exists (the C library clears the flag before
// pthread_create returns, and never sets it again) every change is atomic. Never use these on
// memory shared with another process.
inline void kxRefIncrement(int32_t* p) {
    if (__libc_single_threaded)
        ++*p;
    else
        __atomic_add_fetch(p, 1, __ATOMIC_RELAXED);
}

// Returns the new count. Release order on the way down and acquire order when it reaches zero,
// so that the thread which frees the block sees every write the others made to it.
inline int32_t kxRefDecrement(int32_t* p) {
    if (__libc_single_threaded) return --*p;
    return __atomic_sub_fetch(p, 1, __ATOMIC_ACQ_REL);
}
