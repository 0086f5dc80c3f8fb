#include "platform/KFileUnix.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "base/kxLog.h"
#include "platform/kxPlatformErrors.h"

namespace {

// The name of a closed handle; shared by all of them and never freed.
char g_DummyBuffer[1] = "";

constexpr unsigned long kReadRights = 0x80120089ul;
constexpr unsigned long kWriteRights = 0x40120116ul;

uint64_t ToTicks(time_t seconds) {
    return (static_cast<uint64_t>(seconds) + kxFileTimeEpochSeconds) * kxFileTimeTicksPerSecond;
}

void StoreTicks(_FILETIME* ft, uint64_t ticks) {
    ft->dwLowDateTime = static_cast<uint32_t>(ticks);
    ft->dwHighDateTime = static_cast<uint32_t>(ticks >> 32);
}

// Seconds since the Unix epoch of a FILETIME, in 32-bit arithmetic as the callers expect.
time_t ToSeconds(const _FILETIME& ft) {
    const uint64_t ticks = (static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
    return static_cast<time_t>(static_cast<uint32_t>(ticks / kxFileTimeTicksPerSecond) -
                               static_cast<uint32_t>(kxFileTimeEpochSeconds));
}

}  // namespace

KFileUnix::KFileUnix(kxEnv* env) : m_pEnv(kxEnv::Or(env)), m_pszFileName(g_DummyBuffer) {}

KFileUnix::~KFileUnix() {
    CloseHandle();
    m_nUid = 0;
    m_Gids.assign(1, 0);
}

void KFileUnix::Fail(long status, const char* format, ...) const {
    if (!m_bLogErrors) return;
    va_list args;
    va_start(args, format);
    kxLogvPrintfA(status, kxLogSevFailure, format, args);
    va_end(args);
}

unsigned long KFileUnix::CreateFileA(const char* lpFileName, unsigned long dwDesiredAccess,
                                     unsigned long, _SECURITY_ATTRIBUTES* lpSecurityAttributes,
                                     unsigned long dwCreationDisposition, unsigned long,
                                     KFileABC*) {
    static const char kFn[] = "KFileUnix::CreateFileA";
    if (!CloseHandleInternal(true)) return static_cast<unsigned long>(errno);
    const char* name = lpFileName != nullptr ? lpFileName : "";

    const bool read = (dwDesiredAccess & kReadRights) != 0;
    const bool write = (dwDesiredAccess & kWriteRights) != 0;
    int flags = O_RDONLY;
    if ((read && write) || (dwDesiredAccess & GENERIC_ALL) != 0) flags = O_RDWR;
    else if (write) flags = O_WRONLY;
    // Descriptors are not handed to programs this process starts.
    flags |= O_CLOEXEC;

    bool tryExistingFirst = false;
    switch (dwCreationDisposition) {
    case CREATE_NEW: flags |= O_CREAT | O_EXCL; break;
    case CREATE_ALWAYS: flags |= O_CREAT | O_TRUNC; tryExistingFirst = true; break;
    case OPEN_EXISTING: break;
    case OPEN_ALWAYS: flags |= O_CREAT; tryExistingFirst = true; break;
    case TRUNCATE_EXISTING: flags |= O_TRUNC; break;
    default:
        Fail(KX_E_BAD_ARGUMENT, "%s: unknown dwCreationDisposition passed %d <%s>.", kFn,
             static_cast<int>(dwCreationDisposition), name);
        return static_cast<unsigned long>(KX_E_BAD_ARGUMENT);
    }

    bool preExisting = false;
    int fd = -1;
    if (tryExistingFirst) {
        fd = m_pEnv->Open(name, flags & ~O_CREAT, 0);
        preExisting = fd != -1;
    }
    if (fd == -1) {
        const uintptr_t bits = reinterpret_cast<uintptr_t>(lpSecurityAttributes);
        const mode_t mode = bits >= 1 && bits <= 0777 ? static_cast<mode_t>(bits) : 0660;
        fd = m_pEnv->Open(name, flags, mode);
    }
    if (fd == -1) {
        const int err = errno;
        const long status = kxPlatformStatus(err, KX_E_FILE_OPEN);
        Fail(status, "%s: error %d opening file handle <%s>.", kFn, err, name);
        errno = err;
        return static_cast<unsigned long>(status);
    }
    m_fd = fd;
    m_bPreExisting = preExisting;
    const size_t n = strlen(name);
    m_pszFileName = new char[n + 1];
    memcpy(m_pszFileName, name, n + 1);
    return 0;
}

void KFileUnix::CloseHandle() { CloseHandleInternal(true); }

bool KFileUnix::CloseHandleInternal(bool unmapFirst) {
    if (unmapFirst) UnMapFile();
    bool ok = true;
    if (m_fd != -1) {
        if (m_pEnv->Close(m_fd) != 0) {
            ok = false;
            const int err = errno;
            Fail(KX_E_FILE_CLOSE, "%s: error %d closing file handle <%s>.",
                 "KFileUnix::CloseHandle", err, m_pszFileName);
            errno = err;
        }
        m_fd = -1;
    }
    if (m_pszFileName != g_DummyBuffer) delete[] m_pszFileName;
    m_pszFileName = g_DummyBuffer;
    m_bPreExisting = false;
    return ok;
}

unsigned long KFileUnix::GetFileSize(unsigned long* lpFileSizeHigh) {
    static const char kFn[] = "KFileUnix::GetFileSize";
    if (m_fd == -1) {
        Fail(KX_E_BAD_ARGUMENT, "%s:  no file handle open.", kFn);
        return 0xFFFFFFFFul;
    }
    struct stat st;
    if (m_pEnv->Fstat(m_fd, &st) != 0) {
        Fail(KX_E_FILE_STAT, "%s: fstat call failed.", kFn);
        return 0xFFFFFFFFul;
    }
    if (lpFileSizeHigh != nullptr) *lpFileSizeHigh = 0;
    return static_cast<uint32_t>(st.st_size);
}

bool KFileUnix::GetFileSizeEx(_LARGE_INTEGER* lpFileSize) {
    static const char kFn[] = "KFileUnix::GetFileSizeEx";
    if (m_fd == -1 || lpFileSize == nullptr) {
        Fail(KX_E_BAD_ARGUMENT, "%s:  no file handle open.", kFn);
        return false;
    }
    lpFileSize->LowPart = 0;
    lpFileSize->HighPart = 0;
    struct stat st;
    if (m_pEnv->Fstat(m_fd, &st) != 0) {
        Fail(KX_E_FILE_STAT, "%s: fstat call failed.", kFn);
        return false;
    }
    lpFileSize->LowPart = static_cast<uint32_t>(st.st_size);
    return true;
}

bool KFileUnix::ReadFile(void* lpBuffer, unsigned long nBytes, unsigned long* lpRead,
                         _OVERLAPPED*) {
    static const char kFn[] = "KFileUnix::ReadFile";
    if (m_fd == -1 || lpBuffer == nullptr) {
        Fail(KX_E_BAD_ARGUMENT, "%s:  no file handle open or buffer null.", kFn);
        return false;
    }
    const ssize_t n = m_pEnv->Read(m_fd, lpBuffer, nBytes);
    if (n == -1) {
        const int err = errno;
        Fail(KX_E_FILE_READ, "%s: read failed, %d <%s>.", kFn, err, m_pszFileName);
        errno = err;
        return false;
    }
    if (lpRead != nullptr) *lpRead = static_cast<unsigned long>(n);
    return true;
}

bool KFileUnix::WriteFile(const void* lpBuffer, unsigned long nBytes, unsigned long* lpWritten,
                          _OVERLAPPED*) {
    static const char kFn[] = "KFileUnix::WriteFile";
    if (m_fd == -1 || lpBuffer == nullptr) {
        Fail(KX_E_BAD_ARGUMENT, "%s:  no file handle open or buffer null.", kFn);
        return false;
    }
    const ssize_t n = m_pEnv->Write(m_fd, lpBuffer, nBytes);
    if (n == -1) {
        const int err = errno;
        Fail(KX_E_FILE_WRITE, "%s: write failed, %d <%s>.", kFn, err, m_pszFileName);
        errno = err;
        return false;
    }
    if (lpWritten != nullptr) *lpWritten = static_cast<unsigned long>(n);
    return true;
}

unsigned long KFileUnix::SetFilePointer(long lDistanceToMove, long* lpDistanceToMoveHigh,
                                        unsigned long dwMoveMethod) {
    static const char kFn[] = "KFileUnix::SetFilePointer";
    if (m_fd == -1) {
        Fail(KX_E_BAD_ARGUMENT, "%s:  no file handle open.", kFn);
        return 0xFFFFFFFFul;
    }
    int whence;
    switch (dwMoveMethod) {
    case FILE_BEGIN: whence = SEEK_SET; break;
    case FILE_CURRENT: whence = SEEK_CUR; break;
    case FILE_END: whence = SEEK_END; break;
    default:
        Fail(KX_E_BAD_ARGUMENT, "%s: unknown dwMoveMethod passed %d.", kFn,
             static_cast<int>(dwMoveMethod));
        return 0xFFFFFFFFul;
    }
    const uint32_t low = static_cast<uint32_t>(lDistanceToMove);
    uint32_t high = static_cast<int32_t>(low) < 0 ? 0xFFFFFFFFu : 0;
    if (lpDistanceToMoveHigh != nullptr) high |= static_cast<uint32_t>(*lpDistanceToMoveHigh);
    const int64_t distance = static_cast<int64_t>((static_cast<uint64_t>(high) << 32) | low);
    const off_t pos = m_pEnv->Lseek(m_fd, static_cast<off_t>(distance), whence);
    if (pos == -1) {
        Fail(KX_E_FILE_STAT, "%s: lseek call failed.", kFn);
        return 0xFFFFFFFFul;
    }
    if (lpDistanceToMoveHigh != nullptr)
        *lpDistanceToMoveHigh = static_cast<int32_t>(static_cast<uint64_t>(pos) >> 32);
    return static_cast<uint32_t>(pos);
}

bool KFileUnix::SetEndOfFile() {
    static const char kFn[] = "KFileUnix::SetEndOfFile";
    if (m_fd == -1) {
        Fail(KX_E_BAD_ARGUMENT, "%s:  no file handle open.", kFn);
        return false;
    }
    const off_t pos = m_pEnv->Lseek(m_fd, 0, SEEK_CUR);
    if (pos == -1 || m_pEnv->Ftruncate(m_fd, pos) != 0) {
        Fail(KX_E_FILE_STAT, "%s: truncate call failed.", kFn);
        return false;
    }
    return true;
}

long KFileUnix::GetWinFindData(const char* name, _WIN32_FIND_DATAA* data) {
    if (name == nullptr || data == nullptr) return KX_E_BAD_ARGUMENT;
    memset(data, 0, sizeof *data);
    struct stat st;
    if (m_pEnv->Stat(name, &st) != 0) return KX_E_FILE_FIND;
    if (S_ISDIR(st.st_mode)) data->dwFileAttributes |= FILE_ATTRIBUTE_DIRECTORY;
    data->ftLastAccessTime.dwLowDateTime = static_cast<uint32_t>(st.st_atime);
    data->ftLastWriteTime.dwLowDateTime = static_cast<uint32_t>(st.st_mtime);
    data->nFileSizeLow = static_cast<uint32_t>(st.st_size);
    const char* slash = strrchr(name, '/');
    const char* backslash = strrchr(name, '\\');
    const char* sep = slash > backslash ? slash : backslash;
    const char* part = sep != nullptr ? sep + 1 : name;
    const size_t n = strlen(part);
    if (n + 1 >= 261) return KX_E_BAD_NAME;
    memcpy(data->cFileName, part, n + 1);
    return KX_OK;
}

bool KFileUnix::IsDir(const char* name) {
    static const char kFn[] = "KFileUnix::IsDir";
    struct stat st;
    if (m_fd != -1) {
        if (m_pEnv->Fstat(m_fd, &st) != 0) {
            Fail(KX_E_FILE_OPEN, "%s: fstat failed %d <%s>.", kFn, errno, m_pszFileName);
            return false;
        }
    } else if (name == nullptr || m_pEnv->Stat(name, &st) != 0) {
        Fail(KX_E_FILE_OPEN, "%s: stat failed %d <%s>.", kFn, errno, name ? name : "");
        return false;
    }
    return S_ISDIR(st.st_mode);
}

int KFileUnix::fstat(struct stat* buffer) {
    if (buffer == nullptr || m_fd == -1) {
        Fail(KX_E_BAD_ARGUMENT, "%s:  no file handle open or bad buffer pointer.",
             "KFileUnix::fstat");
        return -1;
    }
    return m_pEnv->Fstat(m_fd, buffer);
}

void* KFileUnix::SetHandle(void* handle) {
    const int fd = static_cast<int>(reinterpret_cast<intptr_t>(handle));
    // A handle with no descriptor yet takes a duplicate of its own: dup2 onto -1 could
    // never succeed.
    if (m_fd == -1) {
        m_fd = m_pEnv->DupCloexec(fd);
        return reinterpret_cast<void*>(static_cast<intptr_t>(m_fd));
    }
    return reinterpret_cast<void*>(static_cast<intptr_t>(m_pEnv->Dup2(fd, m_fd)));
}

bool KFileUnix::GetFileTime(_FILETIME*, _FILETIME* lastAccess, _FILETIME* lastWrite) {
    static const char kFn[] = "KFileUnix::GetFileTime";
    if (m_fd == -1) {
        Fail(KX_E_BAD_ARGUMENT, "%s:  no file handle open.", kFn);
        return false;
    }
    struct stat st;
    if (m_pEnv->Fstat(m_fd, &st) != 0) {
        Fail(KX_E_FILE_TIME, "%s: fstat failed %d <%s>.", kFn, errno, m_pszFileName);
        return false;
    }
    if (lastAccess != nullptr) StoreTicks(lastAccess, ToTicks(st.st_atime));
    if (lastWrite != nullptr) StoreTicks(lastWrite, ToTicks(st.st_mtime));
    return true;
}

bool KFileUnix::SetFileTime(const _FILETIME*, const _FILETIME* lastAccess,
                            const _FILETIME* lastWrite) {
    static const char kFn[] = "KFileUnix::SetFileTime";
    if (m_fd == -1) {
        Fail(KX_E_BAD_ARGUMENT, "%s:  no file handle open.", kFn);
        return false;
    }
    struct stat st;
    if (m_pEnv->Fstat(m_fd, &st) != 0) {
        Fail(KX_E_FILE_TIME, "%s: fstat failed %d <%s>.", kFn, errno, m_pszFileName);
        return false;
    }
    struct utimbuf times;
    times.actime = lastAccess != nullptr ? ToSeconds(*lastAccess) : st.st_atime;
    times.modtime = lastWrite != nullptr ? ToSeconds(*lastWrite) : st.st_mtime;
    if (m_pEnv->Utime(m_pszFileName, &times) != 0) {
        Fail(KX_E_FILE_TIME, "%s: utime call failed.", kFn);
        return false;
    }
    return true;
}

void* KFileUnix::CreateFileMappingA(_SECURITY_ATTRIBUTES*, unsigned long, unsigned long,
                                    unsigned long, const char* lpName) {
    m_nMapFlags = lpName != nullptr ? MAP_SHARED : MAP_PRIVATE;
    return reinterpret_cast<void*>(1);
}

void* KFileUnix::MapFile(_SECURITY_ATTRIBUTES*, unsigned long flProtect, unsigned long,
                         unsigned long dwMaximumSizeLow, const char* lpName) {
    static const char kFn[] = "KFileUnix::MapFile";
    UnMapFile();
    if (m_fd == -1) {
        Fail(KX_E_BAD_ARGUMENT, "%s:  no file handle open", kFn);
        return m_pMapping;
    }
    m_nMapFlags = 0;
    unsigned long access = 0;
    if (flProtect & PAGE_READONLY) access = FILE_MAP_READ;
    if (flProtect & PAGE_READWRITE) access = FILE_MAP_ALL_ACCESS;
    if (flProtect & PAGE_WRITECOPY) {
        Fail(KX_E_BAD_ARGUMENT, "%s:  PAGE_WRITECOPY option not supported.", kFn);
        return nullptr;
    }
    m_nMapFlags |= lpName != nullptr ? MAP_SHARED : MAP_PRIVATE;
    const unsigned long size = GetFileSize(nullptr);
    if (size != 0xFFFFFFFFul && size < dwMaximumSizeLow &&
        m_pEnv->Ftruncate(m_fd, static_cast<off_t>(dwMaximumSizeLow)) != 0) {
        Fail(KX_E_FILE_MAP, "%s: error mapping file %d.", kFn, errno);
        return nullptr;
    }
    void* address = MapViewOfFile(access, 0, 0, dwMaximumSizeLow);
    if (address == nullptr) Fail(KX_E_FILE_MAP, "%s: error mapping file %d.", kFn, errno);
    return address;
}

void* KFileUnix::MapViewOfFile(unsigned long dwDesiredAccess, unsigned long,
                               unsigned long dwFileOffsetLow, unsigned long dwNumberOfBytesToMap) {
    static const char kFn[] = "KFileUnix::MapViewOfFile";
    size_t length = dwNumberOfBytesToMap;
    if (length == 0) length = GetFileSize(nullptr);
    int prot = PROT_NONE;
    if (dwDesiredAccess == FILE_MAP_READ) prot = PROT_READ;
    else if (dwDesiredAccess == FILE_MAP_WRITE || dwDesiredAccess == FILE_MAP_ALL_ACCESS)
        prot = PROT_READ | PROT_WRITE;
    else
        kxLogPrintfA(KX_E_BAD_ARGUMENT, kxLogSevFailure,
                     "%s: Desired access does not appear to be a FILE_MAP_XXX constant", kFn);
    if (m_nMapFlags != 16 && m_nMapFlags != MAP_SHARED && m_nMapFlags != MAP_PRIVATE)
        kxLogPrintfA(KX_E_BAD_ARGUMENT, kxLogSevFailure,
                     "%s: Mapping flags does not appear to be a MAP_XXX constant", kFn);
    void* address = m_pEnv->Mmap(nullptr, length, prot, m_nMapFlags, m_fd,
                                           static_cast<off_t>(static_cast<uint32_t>(dwFileOffsetLow)));
    if (address == MAP_FAILED) return nullptr;
    m_pMapping = address;
    m_nMappedLength = length;
    return address;
}

bool KFileUnix::FlushViewOfFile(void* address, unsigned long bytes) const {
    if (m_pMapping == nullptr && address == nullptr) return true;
    if (address == nullptr) address = m_pMapping;
    const size_t length = bytes != 0 ? bytes : m_nMappedLength;
    if (m_pEnv->Msync(address, length, MS_SYNC) != 0) {
        Fail(KX_E_FILE_FLUSH, "%s:  failure flushing file, %d.", "KFileUnix::FlushViewOfFile",
             errno);
        return false;
    }
    return true;
}

bool KFileUnix::UnmapViewOfFile(const void* address) {
    static const char kFn[] = "KFileUnix::MapViewOfFile";
    void* view = const_cast<void*>(address);
    int r = m_pEnv->Msync(view, m_nMappedLength, MS_SYNC);
    if (r != 0)
        kxLogPrintfA(r, kxLogSevFailure, "%s:  failure flushing mapped file, %d.", kFn, errno);
    r = m_pEnv->Munmap(view, m_nMappedLength);
    if (r != 0) {
        kxLogPrintfA(r, kxLogSevFailure, "%s:  failure unmapping file, %d.", kFn, errno);
        return false;
    }
    m_pMapping = nullptr;
    m_nMappedLength = 0;
    return true;
}

long KFileUnix::UnMapFile() {
    long status = KX_OK;
    if (m_pMapping != nullptr && !UnmapViewOfFile(m_pMapping)) {
        status = KX_E_FILE_FLUSH;
        Fail(status, "%s:  failure unmapping file, %d.", "KFileUnix::UnMapFile", errno);
    }
    m_pMapping = nullptr;
    m_nMappedLength = 0;
    return status;
}

long KFileUnix::TryLockFile(bool exclusive) {
    if (m_fd == -1) return KX_E_REFUSED;
    struct flock lock;
    memset(&lock, 0, sizeof lock);
    lock.l_type = exclusive ? F_WRLCK : F_RDLCK;
    lock.l_whence = SEEK_SET;
    if (m_pEnv->FcntlLock(m_fd, F_OFD_SETLK, &lock) == 0) return KX_OK;
    return kxPlatformStatus(errno, KX_E_FILE_LOCK);
}

long KFileUnix::UnlockFile() {
    if (m_fd == -1) return KX_E_REFUSED;
    struct flock lock;
    memset(&lock, 0, sizeof lock);
    lock.l_type = F_UNLCK;
    lock.l_whence = SEEK_SET;
    return m_pEnv->FcntlLock(m_fd, F_OFD_SETLK, &lock) == 0 ? KX_OK : KX_E_FILE_LOCK;
}
