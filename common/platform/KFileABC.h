// KFileABC: the abstract file handle with a Win32-shaped interface that every file access of
// the library goes through. KFileUnix implements it for local files, the remote handle for
// files on an NFS server; KFile is the facade that picks one of them per opened name.
//
// Convention: each operation keeps its Win32 shape. CreateFileA, GetWinFindData and UnMapFile
// return a status (0 success, else a code below); the others return a Win32 truth value, a size
// or an address, and report failures through one log record (severity 4, the status as its id)
// while the log-errors flag is set.
//
// Thread safety: a handle is used by one thread at a time; it holds no lock.
#pragma once

#include <sys/stat.h>

#include <vector>

#include "base/kxStatus.h"
#include "base/kxWin32Types.h"

// Also returned by the file handles (base/kxStatus.h): KX_E_FILE_FIND (stat failed in
// GetWinFindData), KX_E_NOT_FOUND (open failed: no such file), KX_E_BAD_NAME (name part too
// long for cFileName).
constexpr long KX_E_FILE_OPEN = kxStatus(0xE0020101);       // open failed (not "not found")
constexpr long KX_E_FILE_STAT = kxStatus(0xE0020103);       // fstat, lseek or truncate failed
constexpr long KX_E_FILE_READ = kxStatus(0xE0020104);
constexpr long KX_E_FILE_WRITE = kxStatus(0xE0020105);
constexpr long KX_E_FILE_CLOSE = kxStatus(0xE002010A);
constexpr long KX_E_FILE_TIME = kxStatus(0xE0FF0106);       // fstat or utime in the time calls
constexpr long KX_E_FILE_MAP = kxStatus(0xE0020401);        // mapping failed
constexpr long KX_E_FILE_FLUSH = kxStatus(0xE0020403);      // flush or unmap failed
constexpr long KX_E_FILE_LOCK = kxStatus(0xE0020203);       // TryLockFile: the lock call failed

class KFileABC {
public:
    virtual ~KFileABC() = default;
    KFileABC(const KFileABC&) = delete;
    KFileABC& operator=(const KFileABC&) = delete;

    // Opens or creates a file (dispositions CREATE_NEW ... TRUNCATE_EXISTING). 0 or a status.
    virtual unsigned long CreateFileA(const char* lpFileName, unsigned long dwDesiredAccess,
                                      unsigned long dwShareMode,
                                      _SECURITY_ATTRIBUTES* lpSecurityAttributes,
                                      unsigned long dwCreationDisposition,
                                      unsigned long dwFlagsAndAttributes,
                                      KFileABC* hTemplateFile) = 0;
    virtual bool IsOpen() const = 0;
    // True when CreateFileA with CREATE_ALWAYS or OPEN_ALWAYS found the file already there.
    virtual bool IsPreExisting() const = 0;
    virtual const char* GetFileName() const = 0;
    virtual void CloseHandle() = 0;
    // Low 32 bits of the size, 0xFFFFFFFF on failure; the high part is always reported as 0.
    virtual unsigned long GetFileSize(unsigned long* lpFileSizeHigh) = 0;
    virtual bool GetFileSizeEx(_LARGE_INTEGER* lpFileSize) = 0;
    // One read/write call of the full count: short counts are returned as they are.
    virtual bool ReadFile(void* lpBuffer, unsigned long nBytes, unsigned long* lpRead,
                          _OVERLAPPED* lpOverlapped) = 0;
    virtual bool WriteFile(const void* lpBuffer, unsigned long nBytes, unsigned long* lpWritten,
                           _OVERLAPPED* lpOverlapped) = 0;
    // New position's low 32 bits (high part through lpDistanceToMoveHigh), 0xFFFFFFFF on failure.
    virtual unsigned long SetFilePointer(long lDistanceToMove, long* lpDistanceToMoveHigh,
                                         unsigned long dwMoveMethod) = 0;
    virtual bool SetEndOfFile() = 0;
    virtual long GetWinFindData(const char* name, _WIN32_FIND_DATAA* data) = 0;
    // Maps the whole file (growing it to dwMaximumSizeLow first); the address or null.
    virtual void* MapFile(_SECURITY_ATTRIBUTES* sa, unsigned long flProtect,
                          unsigned long dwMaximumSizeHigh, unsigned long dwMaximumSizeLow,
                          const char* lpName) = 0;
    virtual void* GetFileMapping() const = 0;
    virtual bool FlushViewOfFile(void* address, unsigned long bytes) const = 0;
    virtual long UnMapFile() = 0;
    virtual bool SetFileTime(const _FILETIME* creation, const _FILETIME* lastAccess,
                             const _FILETIME* lastWrite) = 0;
    virtual bool GetFileTime(_FILETIME* creation, _FILETIME* lastAccess,
                             _FILETIME* lastWrite) = 0;
    virtual bool IsDir(const char* name) = 0;
    virtual void* MapViewOfFile(unsigned long dwDesiredAccess, unsigned long dwFileOffsetHigh,
                                unsigned long dwFileOffsetLow,
                                unsigned long dwNumberOfBytesToMap) = 0;
    virtual bool UnmapViewOfFile(const void* address) = 0;
    virtual void* SetHandle(void* handle) = 0;
    virtual void* CreateFileMappingA(_SECURITY_ATTRIBUTES* sa, unsigned long flProtect,
                                     unsigned long dwMaximumSizeHigh,
                                     unsigned long dwMaximumSizeLow, const char* lpName) = 0;
    virtual int fstat(struct stat* buffer) = 0;
    // Stores the credentials a remote handle presents (user id and group list).
    virtual void SetNFSCredentials(int uid, const std::vector<int>& gids);

    // Whole-file advisory lock held by this open handle: two handles exclude each other even
    // within one process, threads sharing one handle do not, and the system drops the lock when
    // the handle is closed or its process dies. Never waits.
    // 0 taken; KX_S_WAIT_TIMEOUT another handle holds a conflicting lock; KX_E_FILE_LOCK the
    // call failed; KX_E_REFUSED a handle that cannot lock (no file open, remote files).
    // A shared lock needs read access, an exclusive one write access.
    virtual long TryLockFile(bool exclusive);
    virtual long UnlockFile();

    void SetLogErrors(bool on) { m_bLogErrors = on; }
    bool GetLogErrors() const { return m_bLogErrors; }

protected:
    KFileABC() = default;

    int m_nUid = 0;
    std::vector<int> m_Gids{0};
    // When false no operation writes a log record; results are unchanged.
    bool m_bLogErrors = true;
};
