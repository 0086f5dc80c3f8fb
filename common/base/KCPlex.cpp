#include "base/KCPlex.h"

#include <new>

#include "base/kxHeap.h"

KCPlex* KCPlex::Create(KCPlex*& head, unsigned count, unsigned elementSize) {
    // The header is one pointer (4 bytes on i386, 8 on the 64-bit target).
    size_t bytes = static_cast<size_t>(count) * elementSize + sizeof(KCPlex);
    auto* chunk = reinterpret_cast<KCPlex*>(kxHeap::NewArray(bytes));
    chunk->pNext = head;
    head = chunk;
    return chunk;
}

void KCPlex::FreeDataChain() {
    KCPlex* chunk = this;
    while (chunk != nullptr) {
        KCPlex* next = chunk->pNext;
        kxHeap::DeleteArray(reinterpret_cast<char*>(chunk));
        chunk = next;
    }
}
