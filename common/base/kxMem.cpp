#include "base/kxMem.h"

#include <cstdint>

#include "base/kxHeap.h"
#include "base/kxLog.h"

namespace {

// The pointer as the bad-argument message shows it ("0x%X": its low 32 bits).
unsigned Low32(const void* p) { return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p)); }

long BadArgument(const char* fn, unsigned long size, const void* pMemPtr, const char* file,
                 int line) {
    if (file != nullptr)
        kxLogPrintfA(KX_E_BAD_ARGUMENT, kxLogSevFailure,
                     "%s: invalid size %d or pMemPtr 0x%X for '%s:%d'", fn, static_cast<int>(size),
                     Low32(pMemPtr), file, line);
    else
        kxLogPrintfA(KX_E_BAD_ARGUMENT, kxLogSevFailure, "%s: invalid size %d or pMemPtr 0x%X", fn,
                     static_cast<int>(size), Low32(pMemPtr));
    return KX_E_BAD_ARGUMENT;
}

}  // namespace

namespace kxMem {

long Alloc(unsigned long size, void* pOut, const char* file, int line) {
    static const char kFn[] = "kxMem::Alloc";
    if (size == 0 || pOut == nullptr) return BadArgument(kFn, size, pOut, file, line);
    void* block = kxHeap::Malloc(size);
    if (block == nullptr) {
        if (file != nullptr)
            kxLogPrintfA(KX_E_OUT_OF_MEMORY, kxLogSevFailure,
                         "%s: error allocating %d bytes for '%s:%d'", kFn, static_cast<int>(size),
                         file, line);
        else
            kxLogPrintfA(KX_E_OUT_OF_MEMORY, kxLogSevFailure, "%s: error allocating %d bytes", kFn,
                         static_cast<int>(size));
        return KX_E_OUT_OF_MEMORY;
    }
    *static_cast<void**>(pOut) = block;
    if (file != nullptr)
        kxLogPrintfA(KX_S_INFORMATION, kxLogSevInfo, "%s: allocated %d bytes at 0x%p for '%s:%d'",
                     kFn, static_cast<int>(size), block, file, line);
    return KX_OK;
}

long Realloc(unsigned long size, void* pInOut, const char* file, int line) {
    static const char kFn[] = "kxMem::Realloc";
    if (size == 0 || pInOut == nullptr || *static_cast<void**>(pInOut) == nullptr)
        return BadArgument(kFn, size, pInOut, file, line);
    void* block = kxHeap::Realloc(*static_cast<void**>(pInOut), size);
    if (block == nullptr) {
        if (file != nullptr)
            kxLogPrintfA(KX_E_OUT_OF_MEMORY, kxLogSevFailure,
                         "%s: error re-allocating %d bytes for '%s:%d'", kFn,
                         static_cast<int>(size), file, line);
        else
            kxLogPrintfA(KX_E_OUT_OF_MEMORY, kxLogSevFailure, "%s: error re-allocating %d bytes",
                         kFn, static_cast<int>(size));
        return KX_E_OUT_OF_MEMORY;
    }
    *static_cast<void**>(pInOut) = block;
    if (file != nullptr)
        kxLogPrintfA(KX_S_INFORMATION, kxLogSevInfo,
                     "%s: re-allocated %d bytes at 0x%p for '%s:%d'", kFn, static_cast<int>(size),
                     block, file, line);
    return KX_OK;
}

long Free(void* p, const char* file, int line) {
    static const char kFn[] = "kxMem::Free";
    if (p == nullptr) {
        if (file != nullptr)
            kxLogPrintfA(KX_E_BAD_ARGUMENT, kxLogSevFailure, "%s: invalid ptr 0x%p for '%s:%d'",
                         kFn, p, file, line);
        else
            kxLogPrintfA(KX_E_BAD_ARGUMENT, kxLogSevFailure, "%s: invalid ptr 0x%p", kFn, p);
        return KX_E_BAD_ARGUMENT;
    }
    kxHeap::Free(p);
    if (file != nullptr)
        kxLogPrintfA(KX_S_INFORMATION, kxLogSevInfo, "%s: freed buffer at 0x%p for '%s:%d'", kFn,
                     p, file, line);
    return KX_OK;
}

}  // namespace kxMem
