// KCPlex: the header of one raw chunk in a chain of chunks. The chunk's payload follows the
// header directly.
//
// Thread safety: none; the owner of the chain serialises access.
#pragma once

class KCPlex {
public:
    KCPlex* pNext;

    // Array-news a chunk of count * elementSize payload bytes plus the header and links it in
    // front of head. Returns the new chunk; throws std::bad_alloc when the heap refuses.
    static KCPlex* Create(KCPlex*& head, unsigned count, unsigned elementSize);

    // Array-deletes this chunk and every chunk after it.
    void FreeDataChain();

    void* data() { return this + 1; }
};
