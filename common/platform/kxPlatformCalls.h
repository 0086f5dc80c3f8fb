// Seam for fault injection in tests: the system calls that CopyFileA and KMutex make where a
// failure changes the path taken (a failed mapping, a short write, a failed shared-memory call).
// Production code never changes these. Tests may replace entries only while no other thread
// uses the functions concerned, and must restore them (g_kxPlatformCalls = kxPlatformDefaultCalls()).
#pragma once

#include <sys/types.h>

#include <cstddef>

struct KPlatformCalls {
    void* (*mmap)(void* address, size_t length, int prot, int flags, int fd, off_t offset);
    int (*munmap)(void* address, size_t length);
    ssize_t (*read)(int fd, void* buffer, size_t count);
    ssize_t (*write)(int fd, const void* buffer, size_t count);
    int (*shm_open)(const char* name, int flags, mode_t mode);
    int (*ftruncate)(int fd, off_t length);
};

// The real system calls.
KPlatformCalls kxPlatformDefaultCalls();

// The calls in use; initialised to kxPlatformDefaultCalls().
extern KPlatformCalls g_kxPlatformCalls;
