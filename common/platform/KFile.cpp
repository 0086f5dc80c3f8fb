#include "platform/KFile.h"

#include <cstdint>
#include <cstring>

#include "base/kxLog.h"
#include "platform/KFileNameCache.h"
#include "platform/KFileUnix.h"

namespace {

// Tag in the first word of a remote handle record.
constexpr uint32_t kRemoteHandleTag = 0xFEFFFEFF;

KFile::RemoteFactory g_pfnRemoteFactory = nullptr;

}  // namespace

KFile::~KFile() { Reset(); }

KFile::RemoteFactory KFile::SetRemoteFactory(RemoteFactory factory) {
    const RemoteFactory previous = g_pfnRemoteFactory;
    g_pfnRemoteFactory = factory;
    return previous;
}

void KFile::Reset() {
    delete m_pImpl;
    m_pImpl = nullptr;
}

bool KFile::_IsLocalServer(const std::string& host) { return KFileNameCache::IsLocalServer(host); }

unsigned long KFile::CreateFileA(const char* lpFileName, unsigned long dwDesiredAccess,
                                 unsigned long dwShareMode,
                                 _SECURITY_ATTRIBUTES* lpSecurityAttributes,
                                 unsigned long dwCreationDisposition,
                                 unsigned long dwFlagsAndAttributes, KFileABC*) {
    Reset();
    std::string name = lpFileName != nullptr ? lpFileName : "";
    const size_t colon = name.find(':');
    if (colon != std::string::npos) {
        if (_IsLocalServer(name.substr(0, colon))) {
            name.erase(0, colon + 1);
        } else {
            if (g_pfnRemoteFactory == nullptr) {
                if (m_bLogErrors)
                    kxLogPrintfA(KX_E_REFUSED, kxLogSevFailure,
                                 "%s: remote files are not available <%s>.", "KFile::CreateFileA",
                                 name.c_str());
                return static_cast<unsigned long>(KX_E_REFUSED);
            }
            m_pImpl = g_pfnRemoteFactory();
            if (m_pImpl == nullptr) return static_cast<unsigned long>(KX_E_OUT_OF_MEMORY);
            m_pImpl->SetNFSCredentials(m_nUid, m_Gids);
        }
    }
    if (m_pImpl == nullptr) m_pImpl = new KFileUnix(m_pEnv);
    m_pImpl->SetLogErrors(m_bLogErrors);
    return m_pImpl->CreateFileA(name.c_str(), dwDesiredAccess, dwShareMode, lpSecurityAttributes,
                                dwCreationDisposition, dwFlagsAndAttributes, nullptr);
}

void* KFile::SetHandle(void* handle) {
    Reset();
    struct stat st;
    const int fd = static_cast<int>(reinterpret_cast<intptr_t>(handle));
    if (reinterpret_cast<uintptr_t>(handle) <= 0x7FFFFFFF && m_pEnv->Fstat(fd, &st) == 0) {
        m_pImpl = new KFileUnix(m_pEnv);
    } else if (handle != nullptr && reinterpret_cast<uintptr_t>(handle) > 0xFFFF &&
               g_pfnRemoteFactory != nullptr) {
        uint32_t tag;
        memcpy(&tag, handle, sizeof tag);
        if (tag == kRemoteHandleTag) {
            m_pImpl = g_pfnRemoteFactory();
            if (m_pImpl != nullptr) m_pImpl->SetNFSCredentials(m_nUid, m_Gids);
        }
    }
    if (m_pImpl == nullptr) return nullptr;
    m_pImpl->SetLogErrors(m_bLogErrors);
    return m_pImpl->SetHandle(handle);
}

bool KFile::IsRemote() const {
    return m_pImpl != nullptr && dynamic_cast<KFileUnix*>(m_pImpl) == nullptr;
}

bool KFile::IsOpen() const { return m_pImpl != nullptr && m_pImpl->IsOpen(); }
bool KFile::IsPreExisting() const { return m_pImpl != nullptr && m_pImpl->IsPreExisting(); }
const char* KFile::GetFileName() const { return m_pImpl ? m_pImpl->GetFileName() : nullptr; }

void KFile::CloseHandle() {
    if (m_pImpl) m_pImpl->CloseHandle();
}

unsigned long KFile::GetFileSize(unsigned long* high) {
    if (m_pImpl) return m_pImpl->GetFileSize(high);
    if (high) *high = 0;
    return 0;
}

bool KFile::GetFileSizeEx(_LARGE_INTEGER* size) {
    if (m_pImpl) return m_pImpl->GetFileSizeEx(size);
    if (size) {
        size->LowPart = 0;
        size->HighPart = 0;
    }
    return false;
}

bool KFile::ReadFile(void* buffer, unsigned long n, unsigned long* read, _OVERLAPPED* ov) {
    if (m_pImpl) return m_pImpl->ReadFile(buffer, n, read, ov);
    if (read) *read = 0;
    return false;
}

bool KFile::WriteFile(const void* buffer, unsigned long n, unsigned long* written,
                      _OVERLAPPED* ov) {
    if (m_pImpl) return m_pImpl->WriteFile(buffer, n, written, ov);
    if (written) *written = 0;
    return false;
}

unsigned long KFile::SetFilePointer(long distance, long* high, unsigned long method) {
    return m_pImpl ? m_pImpl->SetFilePointer(distance, high, method) : 0xFFFFFFFFul;
}

bool KFile::SetEndOfFile() { return m_pImpl != nullptr && m_pImpl->SetEndOfFile(); }

long KFile::GetWinFindData(const char* name, _WIN32_FIND_DATAA* data) {
    if (m_pImpl) return m_pImpl->GetWinFindData(name, data);
    if (data) memset(data, 0, sizeof *data);
    return KX_E_REFUSED;
}

void* KFile::MapFile(_SECURITY_ATTRIBUTES* sa, unsigned long protect, unsigned long high,
                     unsigned long low, const char* name) {
    return m_pImpl ? m_pImpl->MapFile(sa, protect, high, low, name) : nullptr;
}

void* KFile::GetFileMapping() const { return m_pImpl ? m_pImpl->GetFileMapping() : nullptr; }

bool KFile::FlushViewOfFile(void* address, unsigned long bytes) const {
    return m_pImpl != nullptr && m_pImpl->FlushViewOfFile(address, bytes);
}

long KFile::UnMapFile() { return m_pImpl ? m_pImpl->UnMapFile() : KX_E_REFUSED; }

bool KFile::SetFileTime(const _FILETIME* c, const _FILETIME* a, const _FILETIME* w) {
    return m_pImpl != nullptr && m_pImpl->SetFileTime(c, a, w);
}

bool KFile::GetFileTime(_FILETIME* c, _FILETIME* a, _FILETIME* w) {
    if (m_pImpl) return m_pImpl->GetFileTime(c, a, w);
    for (_FILETIME* t : {c, a, w})
        if (t) *t = _FILETIME{0, 0};
    return false;
}

bool KFile::IsDir(const char* name) { return m_pImpl != nullptr && m_pImpl->IsDir(name); }

void* KFile::MapViewOfFile(unsigned long access, unsigned long offHigh, unsigned long offLow,
                           unsigned long bytes) {
    return m_pImpl ? m_pImpl->MapViewOfFile(access, offHigh, offLow, bytes) : nullptr;
}

bool KFile::UnmapViewOfFile(const void* address) {
    return m_pImpl != nullptr && m_pImpl->UnmapViewOfFile(address);
}

void* KFile::CreateFileMappingA(_SECURITY_ATTRIBUTES* sa, unsigned long protect,
                                unsigned long high, unsigned long low, const char* name) {
    return m_pImpl ? m_pImpl->CreateFileMappingA(sa, protect, high, low, name) : nullptr;
}

int KFile::fstat(struct stat* buffer) { return m_pImpl ? m_pImpl->fstat(buffer) : -1; }

void KFile::SetNFSCredentials(int uid, const std::vector<int>& gids) {
    KFileABC::SetNFSCredentials(uid, gids);
    if (m_pImpl) m_pImpl->SetNFSCredentials(uid, gids);
}

long KFile::TryLockFile(bool exclusive) {
    return m_pImpl ? m_pImpl->TryLockFile(exclusive) : KX_E_REFUSED;
}

long KFile::UnlockFile() { return m_pImpl ? m_pImpl->UnlockFile() : KX_E_REFUSED; }
