// KBuffer: an owned byte buffer that knows how many of its allocated bytes hold data.
//
// The block always comes from and goes back to kxMem (the system heap). The buffer never
// grows by itself and never reallocates in place: Resize makes a new block, copies the used
// bytes and frees the old one. Resizing operations take the caller's name, under which their
// failures are logged ("%s: error allocating %d bytes", "%s: error releasing buffer").
//
// Convention: operations return a status (base/kxStatus.h): 0, KX_E_BAD_ARGUMENT, or the
// status of the kxMem call that failed. A failed allocation leaves the old contents untouched
// and sets the failed flag (AllocationFailed); the next successful one clears it.
//
// Thread safety: none; one buffer belongs to one thread at a time.
#pragma once

#include <cstdint>

class KBuffer {
public:
    // size 0 gives an empty buffer (no block); otherwise size bytes, none used.
    explicit KBuffer(unsigned long size = 0);
    // Same size as the source, with its used bytes copied.
    KBuffer(const KBuffer& src);
    KBuffer& operator=(const KBuffer& src);
    ~KBuffer();

    // To newSize bytes, keeping min(newSize, bytes used) bytes of data. The same size changes
    // nothing; 0 frees the block. caller (null: "KBuffer::Resize") names the log messages.
    long Resize(unsigned long newSize, const char* caller);
    // Resize to size + extra, rounded up to a multiple of granularity unless it is 0.
    long IncreaseBufferSize(unsigned long extra, unsigned long granularity, const char* caller);

    // data + offset, or null when there is no block or offset + length passes the allocated
    // size (not the used bytes).
    unsigned char* GetPtr(unsigned long offset = 0, unsigned long length = 0);
    const unsigned char* GetPtr(unsigned long offset = 0, unsigned long length = 0) const;

    unsigned long GetSize() const { return m_dwSize; }
    unsigned long GetBytesUsed() const { return m_dwBytesUsed; }
    bool AllocationFailed() const { return m_bAllocFailed != 0; }

    // KX_E_BAD_ARGUMENT when the count would pass the allocated size.
    long SetBytesUsed(unsigned long n);
    long IncreaseBytesUsed(unsigned long n);

    // Hands the block to the caller (who frees it with kxMem::Free) and empties the buffer.
    // Stores the allocated size through pSize when given.
    void* TakeOwnership(unsigned long* pSize);

    // Frees the block, then adopts p (a kxMem/malloc block of n bytes) when both are non-zero.
    // The adopted block counts 0 bytes used: call SetBytesUsed to count its content (kept so
    // on purpose). Returns the status of freeing the old block when that failed.
    long Assign(void* p, unsigned long n);
    // Frees the block, then takes over other's block, size and bytes used; other is emptied
    // either way. Returns 0.
    long Assign(KBuffer& other);
    // Copies text with its terminator (size and bytes used strlen + 1); null empties.
    long Assign(const char* text);

    // Zeroes all fields without freeing (after the block was handed over elsewhere).
    void ResetMemberVariables();

private:
    void CopyFrom(const KBuffer& src, const char* caller);

    unsigned char* m_pData;
    uint32_t m_dwSize;
    uint32_t m_dwBytesUsed;
    uint8_t m_bAllocFailed;
};

#if KX_TARGET_32BIT
static_assert(sizeof(KBuffer) == 16, "pointer, size, bytes used, flag");
#endif
