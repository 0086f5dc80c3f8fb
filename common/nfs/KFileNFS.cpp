// KFileNFS: opening, closing, reading, writing, positions, sizes, times, queries and locks.
// The emulated mappings are in KFileNFSView.cpp.
#include "nfs/KFileNFS.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <new>

using kxNFSUtils::DirEntry;
using kxNFSUtils::NFSBrowse;

namespace {

// Splits "host:path" at the first ':'; false when there is none.
bool SplitName(const char* name, std::string& host, std::string& path) {
    if (name == nullptr) return false;
    const char* colon = strchr(name, ':');
    if (colon == nullptr) return false;
    host.assign(name, static_cast<size_t>(colon - name));
    path.assign(colon + 1);
    return true;
}

void StoreTicks(_FILETIME* t, uint64_t ticks) {
    if (t != nullptr) *t = kxFileTimeFromTicks(ticks);
}

// A _FILETIME value as a Unix time; times before 1970 become 0.
timespec ToTimespec(uint64_t ticks) {
    timespec ts{};
    if (ticks < kxFileTimeUnixEpoch) return ts;
    const uint64_t since = ticks - kxFileTimeUnixEpoch;
    ts.tv_sec = static_cast<time_t>(since / kxFileTimeTicksPerSecond);
    ts.tv_nsec = static_cast<long>(since % kxFileTimeTicksPerSecond * 100);
    return ts;
}

mode_t TypeBits(uint32_t type) {
    switch (type) {
    case 1: return S_IFREG;
    case 2: return S_IFDIR;
    case 3: return S_IFBLK;
    case 4: return S_IFCHR;
    case 5: return S_IFLNK;
    case 6: return S_IFSOCK;
    case 7: return S_IFIFO;
    default: return 0;
    }
}

}  // namespace

KFileNFS::~KFileNFS() { CloseHandle(); }

unsigned long KFileNFS::Fail(long status) {
    CloseHandle();
    return static_cast<unsigned long>(status);
}

long KFileNFS::LastError(long fallback) const {
    const long code = m_pBrowse ? m_pBrowse->GetLastObjectError() : 0;
    return code != 0 ? code : fallback;
}

unsigned long KFileNFS::CreateFileA(const char* lpFileName, unsigned long dwDesiredAccess,
                                    unsigned long, _SECURITY_ATTRIBUTES*,
                                    unsigned long dwCreationDisposition, unsigned long,
                                    KFileABC*) {
    CloseHandle();
    m_bPreExisting = false;
    std::string host, path;
    if (!SplitName(lpFileName, host, path) || dwCreationDisposition < CREATE_NEW ||
        dwCreationDisposition > TRUNCATE_EXISTING)
        return static_cast<unsigned long>(KX_E_BAD_ARGUMENT);
    m_strName = lpFileName;
    m_strHost = host;
    m_strPath = path;
    if (dwDesiredAccess & (GENERIC_READ | GENERIC_ALL)) m_dwAccess |= kAccessRead;
    if (dwDesiredAccess & (GENERIC_WRITE | GENERIC_ALL)) m_dwAccess |= kAccessWrite;

    NFSBrowse* browse = nullptr;
    const long connected = kxNFSUtils::CreateNFSBrowse(browse, host, m_nUid, m_Gids, nullptr,
                                                       kxNFSUtils::eUseTCPThenUDP);
    m_pBrowse.reset(browse);
    if (connected != KX_OK || !m_pBrowse)
        return Fail(connected != KX_OK ? connected : KX_E_FILE_OPEN);

    m_pEntry.reset(m_pBrowse->Open(path, false, false));
    if (m_pEntry) {
        m_bPreExisting = true;
        const bool isDir = m_pEntry->type == kxNFSUtils::kDirEntryDirectory;
        switch (dwCreationDisposition) {
        case CREATE_NEW:
            return Fail(KX_E_REFUSED);
        case CREATE_ALWAYS: {
            if (isDir) return Fail(KX_E_NFS_WRONG_TYPE);
            // The normalised path the walk ended at names the parent and the old object.
            const std::string& where = m_pEntry->serverPath;
            const size_t slash = where.rfind('/');
            const std::string parentPath =
                slash == std::string::npos ? "" : slash == 0 ? "/" : where.substr(0, slash);
            std::unique_ptr<DirEntry> parent(m_pBrowse->Open(parentPath, false, false));
            if (!parent || !m_pBrowse->DeleteObject(*parent, *m_pEntry))
                return Fail(LastError(KX_E_FILE_OPEN));
            m_pEntry.reset(m_pBrowse->Open(path, true, false));
            if (!m_pEntry) return Fail(LastError(KX_E_FILE_OPEN));
            break;
        }
        case TRUNCATE_EXISTING:
            if (isDir) return Fail(KX_E_NFS_WRONG_TYPE);
            m_qwPosition = 0;
            if (!SetEndOfFile()) return Fail(KX_E_REFUSED);
            break;
        default:
            break;
        }
        m_bOpen = true;
        return 0;
    }

    // Only a missing name counts as "does not exist"; any other failure is reported as it is
    // rather than answered with an attempt to create.
    const long why = m_pBrowse->GetLastObjectError();
    if (why != KX_E_NFS_NOENT) return Fail(why != 0 ? why : KX_E_FILE_OPEN);
    if (dwCreationDisposition == OPEN_EXISTING || dwCreationDisposition == TRUNCATE_EXISTING)
        return Fail(KX_E_REFUSED);
    m_pEntry.reset(m_pBrowse->Open(path, true, false));
    if (!m_pEntry) return Fail(LastError(KX_E_FILE_OPEN));
    m_bOpen = true;
    return 0;
}

void KFileNFS::CloseHandle() {
    if (m_bLocked) UnlockFile();
    m_bLocked = false;
    DropView();
    m_dwAccess = 0;
    m_bOpen = false;
    m_qwPosition = 0;
    m_bAttributesStale = false;
    m_strName.clear();
    m_strPath.clear();
    m_strHost.clear();
    m_pEntry.reset();
    m_pBrowse.reset();
}

void KFileNFS::RefreshAttributes() {
    if (!m_bAttributesStale || !Connected()) return;
    // GETATTR leaves the handle, paths and preferred sizes alone; on failure the entry keeps
    // what this handle knows (its own size changes included).
    if (m_pBrowse->GetAttributes(*m_pEntry)) m_bAttributesStale = false;
}

unsigned long KFileNFS::GetFileSize(unsigned long* lpFileSizeHigh) {
    if (lpFileSizeHigh != nullptr) *lpFileSizeHigh = 0;
    if (!m_pEntry) return 0;
    RefreshAttributes();
    if (lpFileSizeHigh != nullptr) *lpFileSizeHigh = static_cast<uint32_t>(m_pEntry->size >> 32);
    return static_cast<uint32_t>(m_pEntry->size);
}

bool KFileNFS::GetFileSizeEx(_LARGE_INTEGER* lpFileSize) {
    if (!m_pEntry) return false;
    if (lpFileSize == nullptr) return true;
    RefreshAttributes();
    lpFileSize->QuadPart = static_cast<int64_t>(m_pEntry->size);
    return true;
}

bool KFileNFS::ReadFile(void* lpBuffer, unsigned long nBytes, unsigned long* lpRead,
                        _OVERLAPPED*) {
    if (lpRead != nullptr) *lpRead = 0;
    if (!(m_dwAccess & kAccessRead) || !Connected()) return false;
    const unsigned long got = m_pBrowse->Read(*m_pEntry, static_cast<char*>(lpBuffer),
                                              static_cast<long long>(m_qwPosition), nBytes);
    if (lpRead != nullptr) *lpRead = got;
    m_qwPosition += got;
    return got == nBytes;
}

bool KFileNFS::WriteFile(const void* lpBuffer, unsigned long nBytes, unsigned long* lpWritten,
                         _OVERLAPPED*) {
    if (lpWritten != nullptr) *lpWritten = 0;
    if (!(m_dwAccess & kAccessWrite) || !Connected()) return false;
    const unsigned long put = m_pBrowse->Write(*m_pEntry, static_cast<const char*>(lpBuffer),
                                               static_cast<long long>(m_qwPosition), nBytes);
    if (lpWritten != nullptr) *lpWritten = put;
    m_qwPosition += put;
    if (put != 0) {
        m_pEntry->size = std::max(m_pEntry->size, m_qwPosition);
        m_bAttributesStale = true;
    }
    return put == nBytes;
}

unsigned long KFileNFS::SetFilePointer(long lDistanceToMove, long* lpDistanceToMoveHigh,
                                       unsigned long dwMoveMethod) {
    if (!Connected()) {
        if (lpDistanceToMoveHigh != nullptr) *lpDistanceToMoveHigh = 0;
        return 0;
    }
    const uint32_t low = static_cast<uint32_t>(lDistanceToMove);
    uint32_t high = static_cast<int32_t>(low) < 0 ? 0xFFFFFFFFu : 0;
    if (lpDistanceToMoveHigh != nullptr) high |= static_cast<uint32_t>(*lpDistanceToMoveHigh);
    const uint64_t distance = (static_cast<uint64_t>(high) << 32) | low;
    switch (dwMoveMethod) {
    case FILE_BEGIN: m_qwPosition = distance; break;
    case FILE_CURRENT: m_qwPosition += distance; break;
    case FILE_END:
        RefreshAttributes();
        m_qwPosition = m_pEntry->size - distance;
        break;
    default: break;
    }
    if (lpDistanceToMoveHigh != nullptr)
        *lpDistanceToMoveHigh = static_cast<int32_t>(m_qwPosition >> 32);
    return static_cast<uint32_t>(m_qwPosition);
}

bool KFileNFS::SetEndOfFile() {
    if (!Connected()) return false;
    const uint64_t oldSize = m_pEntry->size;
    m_pEntry->size = m_qwPosition;
    if (!m_pBrowse->SetAttributes(*m_pEntry, NFSBrowse::kSetSize)) {
        m_pEntry->size = oldSize;
        return false;
    }
    m_bAttributesStale = true;
    return true;
}

bool KFileNFS::SetFileTime(const _FILETIME*, const _FILETIME* lastAccess,
                           const _FILETIME* lastWrite) {
    if (!Connected()) return false;
    uint32_t selection = 0;
    const uint64_t oldAccess = m_pEntry->accessTime;
    const uint64_t oldWrite = m_pEntry->writeTime;
    if (lastAccess != nullptr) {
        m_pEntry->accessTime = kxFileTimeToTicks(*lastAccess);
        selection |= NFSBrowse::kSetAccessTime;
    }
    if (lastWrite != nullptr) {
        m_pEntry->writeTime = kxFileTimeToTicks(*lastWrite);
        selection |= NFSBrowse::kSetWriteTime;
    }
    if (selection == 0) return true;
    if (!m_pBrowse->SetAttributes(*m_pEntry, selection)) {
        m_pEntry->accessTime = oldAccess;
        m_pEntry->writeTime = oldWrite;
        return false;
    }
    return true;
}

bool KFileNFS::GetFileTime(_FILETIME* creation, _FILETIME* lastAccess, _FILETIME* lastWrite) {
    if (!m_pEntry) return false;
    RefreshAttributes();
    StoreTicks(creation, 0);
    StoreTicks(lastAccess, m_pEntry->accessTime);
    StoreTicks(lastWrite, m_pEntry->writeTime);
    return true;
}

NFSBrowse* KFileNFS::ConnectionFor(const std::string& host,
                                   std::unique_ptr<NFSBrowse>& temporary) {
    if (m_pBrowse && host == m_strHost) return m_pBrowse.get();
    NFSBrowse* browse = nullptr;
    if (kxNFSUtils::CreateNFSBrowse(browse, host, m_nUid, m_Gids, nullptr,
                                    kxNFSUtils::eUseTCPThenUDP) != KX_OK)
        browse = nullptr;
    temporary.reset(browse);
    return browse;
}

long KFileNFS::GetWinFindData(const char* name, _WIN32_FIND_DATAA* data) {
    if (name == nullptr || data == nullptr) return KX_E_BAD_ARGUMENT;
    memset(data, 0, sizeof *data);
    std::string host, path;
    if (!SplitName(name, host, path)) return KX_E_FILE_FIND;
    std::unique_ptr<NFSBrowse> temporary;
    NFSBrowse* browse = ConnectionFor(host, temporary);
    if (browse == nullptr) return KX_E_FILE_FIND;
    std::unique_ptr<DirEntry> entry(browse->Open(path, false, false));
    if (!entry) return KX_E_FILE_FIND;
    return entry->CopyToWin32FindData(data);
}

bool KFileNFS::IsDir(const char* name) {
    std::string host, path;
    if (!SplitName(name, host, path)) return false;
    std::unique_ptr<NFSBrowse> temporary;
    NFSBrowse* browse = ConnectionFor(host, temporary);
    if (browse == nullptr) return false;
    std::unique_ptr<DirEntry> entry(browse->Open(path, false, false));
    return entry && entry->type == kxNFSUtils::kDirEntryDirectory;
}

void* KFileNFS::SetHandle(void* handle) {
    if (handle == nullptr) return nullptr;
    uint32_t tag;
    memcpy(&tag, handle, sizeof tag);
    if (tag != DirEntry::kMagic) return nullptr;
    if (!m_pEntry) {
        m_pEntry.reset(new (std::nothrow) DirEntry);
        if (!m_pEntry) return nullptr;
    }
    *m_pEntry = *static_cast<const DirEntry*>(handle);
    m_bAttributesStale = false;
    return m_pEntry.get();
}

int KFileNFS::fstat(struct stat* buffer) {
    if (!m_pEntry || buffer == nullptr) return -1;
    RefreshAttributes();
    const DirEntry& e = *m_pEntry;
    memset(buffer, 0, sizeof *buffer);
    buffer->st_mode = TypeBits(e.type) | static_cast<mode_t>(e.mode & 07777);
    buffer->st_nlink = e.nlink;
    buffer->st_uid = e.uid;
    buffer->st_gid = e.gid;
    buffer->st_size = static_cast<off_t>(e.size);
    buffer->st_blocks = static_cast<blkcnt_t>(e.used / 512);
    buffer->st_blksize = static_cast<blksize_t>(e.readPreferred != 0 ? e.readPreferred : 4096);
    buffer->st_ino = static_cast<ino_t>(e.fileId);
    buffer->st_dev = static_cast<dev_t>(e.fsId);
    buffer->st_atim = ToTimespec(e.accessTime);
    buffer->st_mtim = ToTimespec(e.writeTime);
    buffer->st_ctim = ToTimespec(e.changeTime);
    return 0;
}

long KFileNFS::TryLockFile(bool exclusive) {
    if (!Connected()) return KX_E_REFUSED;
    if (!(m_dwAccess & (exclusive ? kAccessWrite : kAccessRead))) return KX_E_FILE_LOCK;
    if (m_pBrowse->LockFile(*m_pEntry, true, exclusive)) {
        m_bLocked = true;
        m_qwLockedSize = m_pEntry->size;
        return KX_OK;
    }
    // Held elsewhere (or not yet grantable): worth trying again, as a busy local lock is.
    const long why = m_pBrowse->GetLastObjectError();
    return why == KX_E_NLM_DENIED || why == KX_E_NLM_BLOCKED || why == KX_E_NLM_GRACE_PERIOD
               ? KX_S_WAIT_TIMEOUT
               : KX_E_FILE_LOCK;
}

long KFileNFS::UnlockFile() {
    if (!Connected()) return KX_E_REFUSED;
    // The range must be the one locked: the lock manager computes it from the entry's size,
    // which this handle's writes may have changed since.
    DirEntry locked = *m_pEntry;
    locked.size = m_qwLockedSize;
    const bool ok = m_pBrowse->LockFile(locked, false, false);
    if (ok) m_bLocked = false;
    return ok ? KX_OK : KX_E_FILE_LOCK;
}

uint32_t KFileNFS::GetFileType() const {
    return m_pEntry ? m_pEntry->type : kxNFSUtils::kDirEntryInvalid;
}

uint64_t KFileNFS::GetFileSystemId() const { return m_pEntry ? m_pEntry->fsId : 0; }

uint64_t KFileNFS::GetFileId() const { return m_pEntry ? m_pEntry->fileId : 0; }
