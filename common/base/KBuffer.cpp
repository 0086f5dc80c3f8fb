#include "base/KBuffer.h"

#include <cstring>

#include "base/kxMem.h"
#include "base/kxLog.h"

namespace {

// The buffer's own heap calls carry no caller position.
long FreeBlock(void* p, const char* caller) {
    long status = kxMem::Free(p, nullptr, -1);
    if (status != KX_OK)
        kxLogPrintfA(status, kxLogSevFailure, "%s: error releasing buffer", caller);
    return status;
}

long AllocBlock(unsigned long size, unsigned char** pOut, const char* caller) {
    long status = kxMem::Alloc(size, pOut, nullptr, -1);
    if (status != KX_OK)
        kxLogPrintfA(status, kxLogSevFailure, "%s: error allocating %d bytes", caller,
                     static_cast<int>(size));
    return status;
}

}  // namespace

KBuffer::KBuffer(unsigned long size) : m_pData(nullptr), m_dwSize(0), m_dwBytesUsed(0), m_bAllocFailed(0) {
    if (size == 0) return;
    if (AllocBlock(size, &m_pData, "KBuffer(ctor)") == KX_OK)
        m_dwSize = static_cast<uint32_t>(size);
    else
        m_bAllocFailed = 1;
}

KBuffer::KBuffer(const KBuffer& src)
    : m_pData(nullptr), m_dwSize(0), m_dwBytesUsed(0), m_bAllocFailed(0) {
    CopyFrom(src, "KBuffer(copy)");
}

KBuffer& KBuffer::operator=(const KBuffer& src) {
    if (this == &src) return *this;
    if (m_pData != nullptr) FreeBlock(m_pData, "KBuffer(=)");
    ResetMemberVariables();
    CopyFrom(src, "KBuffer(=)");
    return *this;
}

KBuffer::~KBuffer() {
    if (m_pData != nullptr) FreeBlock(m_pData, "KBuffer(dtor)");
}

void KBuffer::CopyFrom(const KBuffer& src, const char* caller) {
    if (src.m_pData == nullptr || src.m_dwSize == 0) return;
    if (AllocBlock(src.m_dwSize, &m_pData, caller) != KX_OK) {
        m_bAllocFailed = 1;
        return;
    }
    memcpy(m_pData, src.m_pData, src.m_dwBytesUsed);
    m_dwSize = src.m_dwSize;
    m_dwBytesUsed = src.m_dwBytesUsed;
}

long KBuffer::Resize(unsigned long newSize, const char* caller) {
    if (caller == nullptr) caller = "KBuffer::Resize";
    if (newSize == m_dwSize) return KX_OK;
    if (newSize == 0) {
        long status = m_pData != nullptr ? FreeBlock(m_pData, caller) : KX_OK;
        ResetMemberVariables();
        return status;
    }
    unsigned char* block = nullptr;
    long status = AllocBlock(newSize, &block, caller);
    if (status != KX_OK) {
        m_bAllocFailed = 1;
        return status;
    }
    if (m_dwBytesUsed != 0) {
        unsigned long keep = newSize < m_dwBytesUsed ? newSize : m_dwBytesUsed;
        memcpy(block, m_pData, keep);
        m_dwBytesUsed = static_cast<uint32_t>(keep);
    }
    status = m_pData != nullptr ? FreeBlock(m_pData, caller) : KX_OK;
    m_pData = block;
    m_dwSize = static_cast<uint32_t>(newSize);
    m_bAllocFailed = 0;
    return status;
}

long KBuffer::IncreaseBufferSize(unsigned long extra, unsigned long granularity,
                                 const char* caller) {
    unsigned long newSize = m_dwSize + extra;
    if (granularity != 0) newSize = (newSize + granularity - 1) / granularity * granularity;
    return Resize(newSize, caller);
}

unsigned char* KBuffer::GetPtr(unsigned long offset, unsigned long length) {
    // Compared by subtraction so that a huge offset or length cannot wrap round.
    if (m_pData == nullptr || offset > m_dwSize || length > m_dwSize - offset) return nullptr;
    return m_pData + offset;
}

const unsigned char* KBuffer::GetPtr(unsigned long offset, unsigned long length) const {
    return const_cast<KBuffer*>(this)->GetPtr(offset, length);
}

long KBuffer::SetBytesUsed(unsigned long n) {
    if (n > m_dwSize) return KX_E_BAD_ARGUMENT;
    m_dwBytesUsed = static_cast<uint32_t>(n);
    return KX_OK;
}

long KBuffer::IncreaseBytesUsed(unsigned long n) {
    if (n > m_dwSize - m_dwBytesUsed) return KX_E_BAD_ARGUMENT;
    m_dwBytesUsed += static_cast<uint32_t>(n);
    return KX_OK;
}

void* KBuffer::TakeOwnership(unsigned long* pSize) {
    void* block = m_pData;
    if (pSize != nullptr) *pSize = m_dwSize;
    ResetMemberVariables();
    return block;
}

long KBuffer::Assign(void* p, unsigned long n) {
    long status = Resize(0, "KBuffer::Assign(void*)");
    if (status < 0) return status;
    if (p != nullptr && n != 0) {
        m_pData = static_cast<unsigned char*>(p);
        m_dwSize = static_cast<uint32_t>(n);
        m_dwBytesUsed = 0;
        m_bAllocFailed = 0;
    }
    return status;
}

long KBuffer::Assign(KBuffer& other) {
    if (&other == this) return KX_OK;
    Resize(0, "KBuffer::Assign(KBuffer)");
    if (other.m_pData != nullptr && other.m_dwSize != 0) {
        m_pData = other.m_pData;
        m_dwSize = other.m_dwSize;
        m_dwBytesUsed = other.m_dwBytesUsed;
    }
    other.ResetMemberVariables();
    return KX_OK;
}

long KBuffer::Assign(const char* text) {
    static const char kFn[] = "KBuffer::Assign(LPCSTR)";
    if (text == nullptr) return Resize(0, kFn);
    unsigned long n = strlen(text) + 1;
    long status = Resize(n, kFn);
    if (status != KX_OK && m_dwSize != n) return status;
    memcpy(m_pData, text, n);
    m_dwBytesUsed = static_cast<uint32_t>(n);
    return status;
}

void KBuffer::ResetMemberVariables() {
    m_pData = nullptr;
    m_dwSize = 0;
    m_dwBytesUsed = 0;
    m_bAllocFailed = 0;
}
