// The heap as the foundation types see it: every block that kxMem, KCPlex and KCString take
// from the system comes through here, and through the process Env (base/kxEnv.h), so that tests
// make chosen requests fail with a kxScopedEnv whose Malloc/Realloc return null.
//
// Thread safety: as malloc; see kxEnv.h for changing the process Env.
#pragma once

#include <cstddef>

namespace kxHeap {

// For blocks served from a pool rather than the heap (KCString's string blocks): true when the
// process Env refuses a heap request of `bytes`, so that tests can fail those like any other
// request. Under the real system it is false without asking anything; under another Env it asks
// that Env's Malloc for the bytes and hands them straight back (one request).
bool InjectFailure(size_t bytes);

// malloc / realloc / free of the process Env.
void* Malloc(size_t bytes);
void* Realloc(void* p, size_t bytes);
void Free(void* p);

// Bytes from Malloc; throws std::bad_alloc when the request fails. Release with DeleteArray.
char* NewArray(size_t bytes);
void DeleteArray(char* p);

}  // namespace kxHeap
