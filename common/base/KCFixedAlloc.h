// KCFixedAlloc: hands out blocks of one fixed size, carved from chunks that are kept until
// FreeAll or destruction. Freed blocks go onto a free list for reuse.
//
// Thread safety: Alloc, Free and FreeAll may be called from any thread; each holds the
// allocator's critical section for its whole work (chunk allocation included).
#pragma once

#include <cstdint>

#include "base/KCPlex.h"
#include "base/KCriticalSection.h"

class KCFixedAlloc {
public:
    // Element sizes below a pointer are raised to a pointer (a free element holds the link).
    KCFixedAlloc(unsigned elementSize, unsigned elementsPerChunk);
    // FreeAll: every block handed out becomes invalid.
    ~KCFixedAlloc();
    KCFixedAlloc(const KCFixedAlloc&) = delete;
    KCFixedAlloc& operator=(const KCFixedAlloc&) = delete;

    // A block of elementSize bytes, or null when a new chunk was needed and could not be made
    // (logged as "KCFixedAlloc::Alloc: memory exception allocating %d bytes", status
    // KX_E_UNHANDLED_EXCEPTION, severity 3). The elements of a fresh chunk come out in
    // ascending address order. Blocks are aligned as far as the element size allows.
    void* Alloc();
    // Returns a block from this allocator to the free list; null does nothing.
    void Free(void* p);
    // Frees all chunks at once, blocks in use included.
    void FreeAll();

    unsigned GetElementSize() const { return m_nAllocSize; }

private:
    uint32_t m_nAllocSize;  // bytes per element
    uint32_t m_nBlockSize;  // elements per chunk
    KCPlex* m_pBlocks;      // chain of chunks
    void* m_pNodeFree;      // first free element; each free element's first word links the next
    KCriticalSection m_protect;
};
