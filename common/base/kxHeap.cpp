#include "base/kxHeap.h"

#include <cstdlib>
#include <new>

namespace kxHeap {

FailHook g_pfnFailHook = nullptr;

void* Malloc(size_t bytes) { return InjectFailure(bytes) ? nullptr : malloc(bytes); }

void* Realloc(void* p, size_t bytes) { return InjectFailure(bytes) ? nullptr : realloc(p, bytes); }

void Free(void* p) { free(p); }

char* NewArray(size_t bytes) {
    if (InjectFailure(bytes)) throw std::bad_alloc();
    return new char[bytes];
}

void DeleteArray(char* p) { delete[] p; }

}  // namespace kxHeap
