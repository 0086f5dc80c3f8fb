// KFileNFS: emulated memory mappings. A view is a heap copy of part of the file, read in one
// NFSBrowse::Read and written back in one Write.
#include <algorithm>
#include <new>

#include "nfs/KFileNFS.h"

void KFileNFS::DropView() {
    m_pView.reset();
    m_dwViewSize = 0;
    m_qwViewOffset = 0;
    m_bReadOnlyView = false;
}

void* KFileNFS::CreateFileMappingA(_SECURITY_ATTRIBUTES*, unsigned long, unsigned long,
                                   unsigned long, const char*) {
    return Connected() ? reinterpret_cast<void*>(1) : nullptr;
}

void* KFileNFS::MapFile(_SECURITY_ATTRIBUTES* sa, unsigned long flProtect,
                        unsigned long dwMaximumSizeHigh, unsigned long dwMaximumSizeLow,
                        const char* lpName) {
    CreateFileMappingA(sa, flProtect, dwMaximumSizeHigh, dwMaximumSizeLow, lpName);
    // As for local files, PAGE_READWRITE wins over the others.
    unsigned long access = 0;
    if (flProtect & (PAGE_READONLY | PAGE_WRITECOPY)) access = FILE_MAP_READ;
    if (flProtect & PAGE_READWRITE) access = 0;
    return MapViewOfFile(access, 0, 0, dwMaximumSizeLow);
}

void* KFileNFS::MapViewOfFile(unsigned long dwDesiredAccess, unsigned long dwFileOffsetHigh,
                              unsigned long dwFileOffsetLow, unsigned long dwNumberOfBytesToMap) {
    DropView();
    if (!Connected()) return nullptr;
    const uint64_t offset = (static_cast<uint64_t>(static_cast<uint32_t>(dwFileOffsetHigh)) << 32) |
                            static_cast<uint32_t>(dwFileOffsetLow);
    uint64_t size = dwNumberOfBytesToMap;
    if (size == 0) {
        RefreshAttributes();
        size = m_pEntry->size > offset ? m_pEntry->size - offset : 0;
    }
    if (size == 0 || size > kMaxView) return nullptr;

    m_pView.reset(new (std::nothrow) uint8_t[size]());
    if (!m_pView) return nullptr;
    m_dwViewSize = static_cast<uint32_t>(size);
    m_qwViewOffset = offset;
    m_bReadOnlyView = dwDesiredAccess == FILE_MAP_READ || !(m_dwAccess & kAccessWrite);
    const unsigned long got = m_pBrowse->Read(*m_pEntry, reinterpret_cast<char*>(m_pView.get()),
                                              static_cast<long long>(offset), m_dwViewSize);
    if (got < m_dwViewSize) {
        // Part of the buffer was never read: writing it back would put zeros over the file.
        m_bReadOnlyView = true;
        return nullptr;
    }
    return m_pView.get();
}

bool KFileNFS::FlushViewOfFile(void* address, unsigned long bytes) const {
    if (m_pView && m_bReadOnlyView) return true;
    if (!Connected() || !m_pView) return false;
    if (address != nullptr && address != m_pView.get()) return false;
    const uint32_t count =
        bytes == 0 || bytes > m_dwViewSize ? m_dwViewSize : static_cast<uint32_t>(bytes);
    const unsigned long put =
        m_pBrowse->Write(*m_pEntry, reinterpret_cast<const char*>(m_pView.get()),
                         static_cast<long long>(m_qwViewOffset), count);
    if (put != 0) {
        m_pEntry->size = std::max<uint64_t>(m_pEntry->size, m_qwViewOffset + put);
        m_bAttributesStale = true;
    }
    return put == count;
}

bool KFileNFS::UnmapViewOfFile(const void* address) {
    if (!m_pView || (address != nullptr && address != m_pView.get())) return false;
    if (!FlushViewOfFile(const_cast<void*>(address), m_dwViewSize)) return false;
    DropView();
    return true;
}

long KFileNFS::UnMapFile() {
    if (!m_pView) return KX_OK;
    return UnmapViewOfFile(m_pView.get()) ? KX_OK : KX_E_REFUSED;
}
