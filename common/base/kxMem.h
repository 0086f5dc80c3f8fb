// kxMem: checked heap calls that take the caller's source file and line and log what they did.
//
// Convention: each returns a status (base/kxStatus.h):
//   0                   done
//   KX_E_BAD_ARGUMENT   size 0, a null pointer argument, or a null current block (logged, sev 4)
//   KX_E_OUT_OF_MEMORY  the heap refused (logged, severity 4)
// Successful calls with a file write an informational trace (code KX_S_INFORMATION, severity 0,
// dropped unless informational messages are on). A null file means no caller information: no
// trace, and the failure messages take their short form.
//
// Thread safety: as thread-safe as the system heap.
#pragma once

#include "base/kxStatus.h"


namespace kxMem {

// pOut is the address of the caller's pointer (e.g. `char* p; Alloc(n, &p, ...)`); it is
// written only on success. Blocks are malloc blocks: free them with Free (or free()).
long Alloc(unsigned long size, void* pOut, const char* file, int line);
// pInOut is the address of the caller's pointer, which must hold a block. On failure the
// caller's pointer still holds the old, untouched block.
long Realloc(unsigned long size, void* pInOut, const char* file, int line);
long Free(void* p, const char* file, int line);

}  // namespace kxMem

// The usual way to call them, with the caller's position.
#define KX_MEM_ALLOC(size, pOut) kxMem::Alloc((size), (pOut), __FILE__, __LINE__)
#define KX_MEM_REALLOC(size, pInOut) kxMem::Realloc((size), (pInOut), __FILE__, __LINE__)
#define KX_MEM_FREE(p) kxMem::Free((p), __FILE__, __LINE__)
