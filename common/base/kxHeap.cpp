#include "base/kxHeap.h"

#include <new>

#include "base/kxEnv.h"

namespace kxHeap {

bool InjectFailure(size_t bytes) {
    kxEnv* env = kxEnv::Default();
    if (env == kxEnv::Posix()) return false;
    void* p = env->Malloc(bytes);
    if (p == nullptr) return true;
    env->Free(p);
    return false;
}

void* Malloc(size_t bytes) { return kxEnv::Default()->Malloc(bytes); }

void* Realloc(void* p, size_t bytes) { return kxEnv::Default()->Realloc(p, bytes); }

void Free(void* p) { kxEnv::Default()->Free(p); }

char* NewArray(size_t bytes) {
    // malloc(0) may answer null on success; a block of one byte never does.
    void* p = kxEnv::Default()->Malloc(bytes != 0 ? bytes : 1);
    if (p == nullptr) throw std::bad_alloc();
    return static_cast<char*>(p);
}

void DeleteArray(char* p) { kxEnv::Default()->Free(p); }

}  // namespace kxHeap
