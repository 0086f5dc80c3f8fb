#include "base/KCFixedAlloc.h"

#include <cstring>

#include "base/kxLog.h"

// Under AddressSanitizer free elements are poisoned, so that a block used after it was given
// back is reported like any heap use-after-free.
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define KX_POISON(p, n) ASAN_POISON_MEMORY_REGION((p), (n))
#define KX_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION((p), (n))
#else
#define KX_POISON(p, n) ((void)(p), (void)(n))
#define KX_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace {

// Free elements are linked through their first word. Element sizes need not be multiples of
// the pointer alignment, so the link is copied rather than dereferenced.
void* NextOf(void* element) {
    void* next;
    memcpy(&next, element, sizeof next);
    return next;
}

void SetNext(void* element, void* next) { memcpy(element, &next, sizeof next); }

}  // namespace

KCFixedAlloc::KCFixedAlloc(unsigned elementSize, unsigned elementsPerChunk)
    : m_nAllocSize(elementSize < sizeof(void*) ? sizeof(void*) : elementSize),
      m_nBlockSize(elementsPerChunk < 1 ? 1 : elementsPerChunk),
      m_pBlocks(nullptr),
      m_pNodeFree(nullptr) {}

KCFixedAlloc::~KCFixedAlloc() { FreeAll(); }

void* KCFixedAlloc::Alloc() {
    // Nothing between Lock and Unlock throws: a failed chunk allocation is caught here.
    m_protect.Lock();
    if (m_pNodeFree == nullptr) {
        KCPlex* chunk;
        try {
            chunk = KCPlex::Create(m_pBlocks, m_nBlockSize, m_nAllocSize);
        } catch (...) {
            kxLogPrintfA(KX_E_UNHANDLED_EXCEPTION, kxLogSevError,
                         "%s: memory exception allocating %d bytes", "KCFixedAlloc::Alloc",
                         static_cast<int>(m_nAllocSize * m_nBlockSize + sizeof(KCPlex)));
            m_protect.Unlock();
            return nullptr;
        }
        // Threaded from the last element down, so the first element is handed out first.
        auto* first = static_cast<unsigned char*>(chunk->data());
        for (unsigned i = m_nBlockSize; i-- > 0;) {
            void* element = first + static_cast<size_t>(i) * m_nAllocSize;
            SetNext(element, m_pNodeFree);
            KX_POISON(element, m_nAllocSize);
            m_pNodeFree = element;
        }
    }
    void* element = m_pNodeFree;
    KX_UNPOISON(element, m_nAllocSize);
    m_pNodeFree = NextOf(element);
    m_protect.Unlock();
    return element;
}

void KCFixedAlloc::Free(void* p) {
    if (p == nullptr) return;
    m_protect.Lock();
    SetNext(p, m_pNodeFree);
    KX_POISON(p, m_nAllocSize);
    m_pNodeFree = p;
    m_protect.Unlock();
}

void KCFixedAlloc::FreeAll() {
    m_protect.Lock();
    for (KCPlex* chunk = m_pBlocks; chunk != nullptr; chunk = chunk->pNext)
        KX_UNPOISON(chunk->data(), static_cast<size_t>(m_nAllocSize) * m_nBlockSize);
    if (m_pBlocks != nullptr) m_pBlocks->FreeDataChain();
    m_pBlocks = nullptr;
    m_pNodeFree = nullptr;
    m_protect.Unlock();
}
