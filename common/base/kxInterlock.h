// The process-wide interlock: one mutex behind the library's interlocked increments and
// decrements (the reference counts of shared string blocks).
//
// Thread safety: the functions may be called from any thread at any time, before main too.
#pragma once

#include <pthread.h>

#include <cstdint>

// Statically initialised, never destroyed.
extern pthread_mutex_t gInterlockMutex;

// Add one to / take one from *p under gInterlockMutex and return the new value. Inline: they
// sit on the copy path of every shared string.
inline int32_t kxInterlockedIncrement(int32_t* p) {
    pthread_mutex_lock(&gInterlockMutex);
    int32_t v = ++*p;
    pthread_mutex_unlock(&gInterlockMutex);
    return v;
}

inline int32_t kxInterlockedDecrement(int32_t* p) {
    pthread_mutex_lock(&gInterlockMutex);
    int32_t v = --*p;
    pthread_mutex_unlock(&gInterlockMutex);
    return v;
}
