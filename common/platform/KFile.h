// KFile: the file handle every file access of the library goes through. It owns one
// implementation at a time and picks it when a file is opened: a name "host:path" whose host is
// not this machine goes to the remote handle, every other name to KFileUnix (a local host's
// name is opened as its path part alone).
//
// The remote handle lives in the NFS library, which registers its factory with
// SetRemoteFactory at start-up (nfs/KFileNFSRegister.cpp; every program linked with the NFS
// library has it). Without one, opening a remote name fails with KX_E_REFUSED and one log
// record; nothing else changes.
//
// Without an implementation every operation fails quietly: false, 0, null, -1 or
// KX_E_REFUSED (GetWinFindData also zeroes its record, the size and time getters their
// outputs).
//
// Thread safety: one thread at a time per object; the host-name caches are shared safely.
#pragma once

#include <string>

#include "base/kxEnv.h"
#include "platform/KFileABC.h"

class KFile : public KFileABC {
public:
    // env: the system calls of the local files this handle opens (base/kxEnv.h); null means
    // kxEnv::Default() as it is now.
    explicit KFile(kxEnv* env = nullptr) : m_pEnv(kxEnv::Or(env)) {}
    // Destroys the implementation, which closes its file.
    ~KFile() override;

    // Makes a remote handle (owned by the caller) for names on other hosts. Returns the factory
    // it replaces (null: none), so a caller can put it back. Set it while no other thread
    // opens files.
    using RemoteFactory = KFileABC* (*)();
    static RemoteFactory SetRemoteFactory(RemoteFactory factory);

    // Destroys the current implementation, then chooses a new one by the name (see above) and
    // forwards the call with a null template. A remote handle receives the whole name, host
    // and colon included, and this object's credentials first.
    unsigned long CreateFileA(const char* lpFileName, unsigned long dwDesiredAccess,
                              unsigned long dwShareMode, _SECURITY_ATTRIBUTES* lpSecurityAttributes,
                              unsigned long dwCreationDisposition, unsigned long dwFlagsAndAttributes,
                              KFileABC* hTemplateFile) override;
    bool IsOpen() const override;
    bool IsPreExisting() const override;
    const char* GetFileName() const override;
    void CloseHandle() override;
    unsigned long GetFileSize(unsigned long* lpFileSizeHigh) override;
    bool GetFileSizeEx(_LARGE_INTEGER* lpFileSize) override;
    bool ReadFile(void* lpBuffer, unsigned long nBytes, unsigned long* lpRead,
                  _OVERLAPPED* lpOverlapped) override;
    bool WriteFile(const void* lpBuffer, unsigned long nBytes, unsigned long* lpWritten,
                   _OVERLAPPED* lpOverlapped) override;
    unsigned long SetFilePointer(long lDistanceToMove, long* lpDistanceToMoveHigh,
                                 unsigned long dwMoveMethod) override;
    bool SetEndOfFile() override;
    long GetWinFindData(const char* name, _WIN32_FIND_DATAA* data) override;
    void* MapFile(_SECURITY_ATTRIBUTES* sa, unsigned long flProtect,
                  unsigned long dwMaximumSizeHigh, unsigned long dwMaximumSizeLow,
                  const char* lpName) override;
    void* GetFileMapping() const override;
    bool FlushViewOfFile(void* address, unsigned long bytes) const override;
    long UnMapFile() override;
    bool SetFileTime(const _FILETIME* creation, const _FILETIME* lastAccess,
                     const _FILETIME* lastWrite) override;
    bool GetFileTime(_FILETIME* creation, _FILETIME* lastAccess, _FILETIME* lastWrite) override;
    bool IsDir(const char* name) override;
    void* MapViewOfFile(unsigned long dwDesiredAccess, unsigned long dwFileOffsetHigh,
                        unsigned long dwFileOffsetLow, unsigned long dwNumberOfBytesToMap) override;
    bool UnmapViewOfFile(const void* address) override;
    // A valid descriptor gets a KFileUnix; a record tagged 0xFEFFFEFF a remote handle (when a
    // factory is registered). Returns what the new implementation's SetHandle returns, or null.
    void* SetHandle(void* handle) override;
    void* CreateFileMappingA(_SECURITY_ATTRIBUTES* sa, unsigned long flProtect,
                             unsigned long dwMaximumSizeHigh, unsigned long dwMaximumSizeLow,
                             const char* lpName) override;
    int fstat(struct stat* buffer) override;
    void SetNFSCredentials(int uid, const std::vector<int>& gids) override;
    long TryLockFile(bool exclusive) override;
    long UnlockFile() override;

    // True while the implementation is the remote handle: a name on another host was opened,
    // or a remote handle record was given to SetHandle.
    bool IsRemote() const;

    // True when host names this machine (KFileNameCache).
    static bool _IsLocalServer(const std::string& host);

private:
    void Reset();
    KFileABC* m_pImpl = nullptr;
    kxEnv* const m_pEnv;
};
