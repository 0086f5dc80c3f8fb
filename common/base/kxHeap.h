// The heap as the foundation types see it: every block that kxMem, KCPlex and KCString take
// from the system comes through here, so that tests can make chosen requests fail.
//
// Thread safety: the hooks may be changed only while no other thread allocates through here.
#pragma once

#include <cstddef>

namespace kxHeap {

// Test seam. When set, called once before each request (malloc, realloc, chunk or string
// block) with the bytes asked for; returning true makes that request fail as if the heap were
// exhausted. Null in production.
using FailHook = bool (*)(size_t bytes);
extern FailHook g_pfnFailHook;

inline bool InjectFailure(size_t bytes) { return g_pfnFailHook != nullptr && g_pfnFailHook(bytes); }

// malloc / realloc / free, with the seam in front of the first two.
void* Malloc(size_t bytes);
void* Realloc(void* p, size_t bytes);
void Free(void* p);

// Array new of bytes; throws std::bad_alloc on failure (or when the seam says so).
char* NewArray(size_t bytes);
void DeleteArray(char* p);

}  // namespace kxHeap
