// KFileUnix: a local file over a POSIX descriptor, with the Win32-shaped interface of KFileABC
// and memory mappings for the log files.
//
// Messages name the operation ("KFileUnix::GetFileSize: ...") and carry the status as their id,
// severity 4; the "no file handle open" texts keep their two spaces after the colon.
//
// Thread safety: one thread at a time per object.
#pragma once

#include <cstddef>

#include "base/kxEnv.h"
#include "platform/KFileABC.h"

class KFileUnix : public KFileABC {
public:
    // env: the system calls of this handle (base/kxEnv.h); null means kxEnv::Default() now.
    explicit KFileUnix(kxEnv* env = nullptr);
    // Closes the file (unmapping first) and resets the credentials.
    ~KFileUnix() override;

    // Access: any of 0x80120089 asks for reading, any of 0x40120116 for writing; both or
    // GENERIC_ALL open read/write. CREATE_ALWAYS and OPEN_ALWAYS try the existing file first
    // (and report it pre-existing). The value of lpSecurityAttributes itself, read as an
    // integer from 1 to 511, is the new file's permission bits (else 0660): deliberate, callers
    // rely on it. Share mode, flags and template are ignored.
    // 0; KX_E_BAD_ARGUMENT unknown disposition; KX_E_NOT_FOUND; KX_E_FILE_OPEN; or the
    // errno of a failed close of the previous file.
    unsigned long CreateFileA(const char* lpFileName, unsigned long dwDesiredAccess,
                              unsigned long dwShareMode, _SECURITY_ATTRIBUTES* lpSecurityAttributes,
                              unsigned long dwCreationDisposition, unsigned long dwFlagsAndAttributes,
                              KFileABC* hTemplateFile) override;
    bool IsOpen() const override { return m_fd != -1; }
    bool IsPreExisting() const override { return m_bPreExisting; }
    const char* GetFileName() const override { return m_pszFileName; }
    void CloseHandle() override;
    unsigned long GetFileSize(unsigned long* lpFileSizeHigh) override;
    // Stores only the low 32 bits of the size.
    bool GetFileSizeEx(_LARGE_INTEGER* lpFileSize) override;
    bool ReadFile(void* lpBuffer, unsigned long nBytes, unsigned long* lpRead,
                  _OVERLAPPED* lpOverlapped) override;
    bool WriteFile(const void* lpBuffer, unsigned long nBytes, unsigned long* lpWritten,
                   _OVERLAPPED* lpOverlapped) override;
    // The high part of the distance is the sign extension of lDistanceToMove OR-ed with
    // *lpDistanceToMoveHigh, so a negative low part always gives a high part of all ones: kept.
    unsigned long SetFilePointer(long lDistanceToMove, long* lpDistanceToMoveHigh,
                                 unsigned long dwMoveMethod) override;
    // Truncates the file at the current position.
    bool SetEndOfFile() override;
    // Times are raw Unix seconds in the low halves, deliberately not FILETIME ticks; creation
    // time 0. 0; KX_E_BAD_ARGUMENT; KX_E_FILE_FIND; KX_E_BAD_NAME. Never logs.
    long GetWinFindData(const char* name, _WIN32_FIND_DATAA* data) override;
    // Unmaps, then maps the whole file: PAGE_READONLY gives a read view, PAGE_READWRITE a
    // read/write one, PAGE_WRITECOPY is refused. A name makes the mapping shared (MAP_SHARED),
    // no name private. Grows the file to dwMaximumSizeLow first (never shrinks); when it cannot
    // (a full disk), nothing is mapped and the failure is logged like a failed mapping: a view
    // reaching past the end of the file would fault on first touch.
    void* MapFile(_SECURITY_ATTRIBUTES* sa, unsigned long flProtect,
                  unsigned long dwMaximumSizeHigh, unsigned long dwMaximumSizeLow,
                  const char* lpName) override;
    void* GetFileMapping() const override { return m_pMapping; }
    // msync(MS_SYNC) of the view (null/0: the whole current mapping); true when nothing is mapped.
    bool FlushViewOfFile(void* address, unsigned long bytes) const override;
    // 0, or KX_E_FILE_FLUSH; the mapping is forgotten either way.
    long UnMapFile() override;
    // Whole seconds; the creation time is ignored.
    bool SetFileTime(const _FILETIME* creation, const _FILETIME* lastAccess,
                     const _FILETIME* lastWrite) override;
    bool GetFileTime(_FILETIME* creation, _FILETIME* lastAccess, _FILETIME* lastWrite) override;
    bool IsDir(const char* name) override;
    // Maps `bytes` (0: the file's size) at the offset dwFileOffsetLow alone. Suspicious access
    // or mapping flags are logged even with logging off, and the call goes on.
    void* MapViewOfFile(unsigned long dwDesiredAccess, unsigned long dwFileOffsetHigh,
                        unsigned long dwFileOffsetLow, unsigned long dwNumberOfBytesToMap) override;
    // Its messages carry the name "KFileUnix::MapViewOfFile" and the failing call's -1 as their
    // id, always logged: both deliberate, kept for compatibility.
    bool UnmapViewOfFile(const void* address) override;
    // dup2(handle as a descriptor, own descriptor); dup2's result as a pointer.
    void* SetHandle(void* handle) override;
    // Only records the flags of the next mapping (shared with a name, private without); 1.
    void* CreateFileMappingA(_SECURITY_ATTRIBUTES* sa, unsigned long flProtect,
                             unsigned long dwMaximumSizeHigh, unsigned long dwMaximumSizeLow,
                             const char* lpName) override;
    int fstat(struct stat* buffer) override;
    long TryLockFile(bool exclusive) override;
    long UnlockFile() override;

    // Unmaps first when asked, closes the descriptor, forgets the name. False if close failed.
    virtual bool CloseHandleInternal(bool unmapFirst);

private:
    void Fail(long status, const char* format, ...) const __attribute__((format(printf, 3, 4)));

    kxEnv* const m_pEnv;
    char* m_pszFileName;
    int m_fd = -1;
    void* m_pMapping = nullptr;
    size_t m_nMappedLength = 0;
    bool m_bPreExisting = false;
    int m_nMapFlags = 0;  // MAP_SHARED or MAP_PRIVATE for the next view, 0 until set
};
