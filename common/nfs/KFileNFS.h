// KFileNFS: a file on an NFS version 3 server behind the Win32-shaped interface of KFileABC.
// KFile hands it every name "host:path" whose host is not this machine (KFileNFSRegister.cpp
// registers it); it can also be used directly.
//
// Each open handle owns one browse object (nfs/NFSBrowse.h), connected to the server with the
// handle's credentials (SetNFSCredentials: uid and groups, AUTH_UNIX), TCP first and then UDP,
// and the DirEntry of its file. Sizes, times, type and identifiers come from that entry: it is
// read when the file is opened and kept up to date with this handle's own writes, size and
// time changes; after a write or a size change the next size or time query asks the server
// once (GETATTR), so changes other clients make show up only when the file is opened again
// (close-to-open consistency, as NFS clients have it).
//
// Memory mapping is emulated: a view is a heap copy of at most kMaxView bytes of the file, read
// with one NFSBrowse::Read when mapped, written back with one Write by FlushViewOfFile or
// UnmapViewOfFile, and never shared with other views or handles of the same file.
//
// Convention: CreateFileA returns 0 or a status; GetWinFindData and UnMapFile a status; every
// other operation a Win32 truth value, size or address. Nothing here writes a log record of
// its own; failed remote calls are logged once by the browse layer with the procedure's name.
// The browse layer's codes (nfs/kxNFSStatus.h) reach the caller through CreateFileA.
//
// Thread safety: one thread at a time per handle; the handle holds no lock.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "nfs/DirEntry.h"
#include "nfs/NFSBrowse.h"
#include "platform/KFileABC.h"

class KFileNFS : public KFileABC {
public:
    // The largest view MapViewOfFile makes; larger regions go through ReadFile and WriteFile.
    static constexpr uint32_t kMaxView = 0x100000;

    KFileNFS() = default;
    // Frees the view (never written back), releases a lock this handle holds, and closes the
    // connection.
    ~KFileNFS() override;

    // Opens lpFileName, "host:path" (the whole name, as KFile passes it; the host is split off
    // at the first ':'), after closing whatever was open. GENERIC_READ (or GENERIC_ALL) opens
    // for reading, GENERIC_WRITE (or GENERIC_ALL) for writing: ReadFile and WriteFile refuse
    // otherwise; the server itself knows no open modes and checks each request against the
    // credentials. Share mode, security attributes, flags and template are ignored.
    // By disposition, for a file that exists (IsPreExisting() is then true):
    //   CREATE_NEW          KX_E_REFUSED, the handle stays closed;
    //   CREATE_ALWAYS       the file is removed from its directory and created again: owner 0,
    //                       group 0, mode 0777 (NFSBrowse::Open's create). Deliberate, and not
    //                       a truncation: links to the old file keep the old contents, and a
    //                       caller the server will not let create files as owner 0 (not root)
    //                       loses the file and gets the CREATE failure;
    //   TRUNCATE_EXISTING   cut to 0 bytes (SetEndOfFile at 0); failing that KX_E_REFUSED;
    //   OPEN_EXISTING, OPEN_ALWAYS   opened as it is.
    // A directory opens too (for queries), but CREATE_ALWAYS and TRUNCATE_EXISTING refuse it
    // with KX_E_NFS_WRONG_TYPE: neither ever removes a directory.
    // For a missing file (the server says no such name): OPEN_EXISTING and TRUNCATE_EXISTING
    // give KX_E_REFUSED; CREATE_NEW, CREATE_ALWAYS and OPEN_ALWAYS create it as above.
    // Returns 0, or:
    //   KX_E_BAD_ARGUMENT   null name, no ':' in it, or a disposition other than 1 to 5
    //                       (nothing is sent);
    //   the status of CreateNFSBrowse (host unknown, server unreachable, ...), as it is;
    //   the browse object's code when the lookup failed for another reason than a missing
    //   name (no export serves the path, access denied on a directory, transport failure),
    //   when creating gives no entry, or when CREATE_ALWAYS cannot remove the old file; the
    //   general KX_E_FILE_OPEN if the browse object recorded none.
    unsigned long CreateFileA(const char* lpFileName, unsigned long dwDesiredAccess,
                              unsigned long dwShareMode, _SECURITY_ATTRIBUTES* lpSecurityAttributes,
                              unsigned long dwCreationDisposition,
                              unsigned long dwFlagsAndAttributes, KFileABC* hTemplateFile) override;
    bool IsOpen() const override { return m_bOpen; }
    // The file existed when CreateFileA looked it up, whatever the disposition.
    bool IsPreExisting() const override { return m_bPreExisting; }
    // The whole name as opened, host and colon included; "" while closed.
    const char* GetFileName() const override { return m_strName.c_str(); }
    // Clears the access bits, open flag, position and names; frees the view without writing
    // it back (unmap first to keep its changes); releases a lock this handle holds; deletes
    // the entry and the connection. Pre-existing keeps its value until the next CreateFileA.
    void CloseHandle() override;
    // 0 (and *lpFileSizeHigh 0) without an entry; else the size's low word, the high word
    // through lpFileSizeHigh (the real one, unlike KFileUnix).
    unsigned long GetFileSize(unsigned long* lpFileSizeHigh) override;
    // False without an entry; true with a null lpFileSize; else the whole 64-bit size.
    bool GetFileSizeEx(_LARGE_INTEGER* lpFileSize) override;
    // False (count 0) unless opened for reading and connected. One NFSBrowse::Read of nBytes at
    // the position; stores the count read and advances the position by it. True only when all
    // nBytes came: a short read at the end of the file returns false with the bytes it did
    // read, by design. A failed read counts 0.
    bool ReadFile(void* lpBuffer, unsigned long nBytes, unsigned long* lpRead,
                  _OVERLAPPED* lpOverlapped) override;
    // The same with the write access and NFSBrowse::Write (UNSTABLE, never committed).
    bool WriteFile(const void* lpBuffer, unsigned long nBytes, unsigned long* lpWritten,
                   _OVERLAPPED* lpOverlapped) override;
    // Without a connection and entry: 0, and 0 through lpDistanceToMoveHigh. Else the distance
    // is lDistanceToMove's low 32 bits with, as its high word, *lpDistanceToMoveHigh (0 when
    // null) OR-ed with the sign of the low word: a negative low word makes the high word all
    // ones whatever *lpDistanceToMoveHigh says (kept, as the local handle does). FILE_BEGIN sets,
    // FILE_CURRENT adds, FILE_END sets size MINUS distance: a positive distance moves back from
    // the end (deliberate). Other methods leave the position alone. No error return, no check
    // against negative positions (they wrap). Returns the new position's low word and stores
    // its high word through lpDistanceToMoveHigh.
    unsigned long SetFilePointer(long lDistanceToMove, long* lpDistanceToMoveHigh,
                                 unsigned long dwMoveMethod) override;
    // SETATTR of the size to the position; false (entry's size unchanged) when it fails.
    bool SetEndOfFile() override;
    // Looks name ("host:path") up and fills data from its entry (DirEntry::CopyToWin32FindData:
    // FILETIME times, the directory attribute only). This handle's connection is used when it
    // is open on the same host, else a temporary one; this handle's own file is never touched.
    // 0; KX_E_BAD_ARGUMENT for null arguments; KX_E_FILE_FIND when name has no ':' or cannot be
    // looked up (data zeroed); KX_E_BAD_NAME.
    long GetWinFindData(const char* name, _WIN32_FIND_DATAA* data) override;
    // CreateFileMappingA, then MapViewOfFile of the first dwMaximumSizeLow bytes, a view that
    // is written back unless flProtect asks for PAGE_READONLY or PAGE_WRITECOPY (private
    // changes). The file is not grown: a file shorter than the view fails (null). The view's
    // address, or null.
    void* MapFile(_SECURITY_ATTRIBUTES* sa, unsigned long flProtect,
                  unsigned long dwMaximumSizeHigh, unsigned long dwMaximumSizeLow,
                  const char* lpName) override;
    // The view's buffer, or null: there is no separate mapping object.
    void* GetFileMapping() const override { return m_pView.get(); }
    // Writes `bytes` of the view (0, or more than the view holds: all of it) back at the view's
    // offset with one Write; true when all were written. True at once, without contacting the
    // server, for a view that is never written back (see MapViewOfFile). False when address is
    // neither the view's start nor null, or there is no view, connection or entry.
    bool FlushViewOfFile(void* address, unsigned long bytes) const override;
    // UnmapViewOfFile of the view: 0 when it succeeded or nothing is mapped, else KX_E_REFUSED
    // (the view is kept).
    long UnMapFile() override;
    // Copies the given access and/or write time into the entry and sends them (SETATTR, as
    // client times); creation is ignored, and with neither given nothing is sent (true). On
    // failure both times are restored and the result is false.
    bool SetFileTime(const _FILETIME* creation, const _FILETIME* lastAccess,
                     const _FILETIME* lastWrite) override;
    // False without an entry; creation (if asked for) is zero, the others the entry's access
    // and modification times.
    bool GetFileTime(_FILETIME* creation, _FILETIME* lastAccess, _FILETIME* lastWrite) override;
    // True when name, "host:path", is a directory on that server (type 2 exactly; a symbolic
    // link is not followed). No ':', a server that cannot be reached, or a path that does not
    // resolve: false. Uses this handle's connection when it is open on the same host, else a
    // temporary one made with this handle's credentials and deleted before returning; the
    // looked-up entry is always released.
    bool IsDir(const char* name) override;
    // Drops any earlier view without writing it back, then makes a heap view of
    // dwNumberOfBytesToMap bytes at the 64-bit offset (dwFileOffsetHigh, dwFileOffsetLow),
    // read with ONE NFSBrowse::Read. 0 bytes means from the offset to the end of the file.
    // Null without a connection and entry, or above kMaxView bytes (exactly kMaxView is fine).
    // A view is never written back when dwDesiredAccess is FILE_MAP_READ, when the handle was
    // opened without write access (writing a stale copy over the file would be worse than
    // refusing), or when its read came back short: it then returns null and the zero-filled
    // buffer stays recorded as the view (GetFileMapping shows it, UnmapViewOfFile frees it).
    void* MapViewOfFile(unsigned long dwDesiredAccess, unsigned long dwFileOffsetHigh,
                        unsigned long dwFileOffsetLow, unsigned long dwNumberOfBytesToMap) override;
    // FlushViewOfFile(address, view size); when that fails, false and the view is kept; else
    // the view is freed and forgotten, true. False when nothing is mapped or address is neither
    // the view's start nor null.
    bool UnmapViewOfFile(const void* address) override;
    // handle: a DirEntry (tag DirEntry::kMagic in its first word), copied whole over this
    // handle's entry; returns this handle's entry, or null (nothing changed) for a null or
    // untagged record. The connection stays as it is: a handle that never opened a file has
    // none, and answers the size, time, type and identity queries from the record while reads,
    // writes and views fail.
    void* SetHandle(void* handle) override;
    // Nothing to prepare: non-null when a connection and an entry exist, else null.
    void* CreateFileMappingA(_SECURITY_ATTRIBUTES* sa, unsigned long flProtect,
                             unsigned long dwMaximumSizeHigh, unsigned long dwMaximumSizeLow,
                             const char* lpName) override;
    // 0 with *buffer filled from the entry (type and permission bits, links, owner, group,
    // size, blocks used, times, file id as st_ino, file-system id as st_dev); -1 without an
    // entry or with a null buffer. Filled, not left alone, so callers that size a file by
    // fstat (the log reader) work on remote files.
    int fstat(struct stat* buffer) override;
    // A whole-file lock held through the server's lock manager (NFSBrowse::LockFile, NLM),
    // never waiting. 0; KX_S_WAIT_TIMEOUT while another client holds a conflicting lock (or
    // the server is in its grace period); KX_E_FILE_LOCK when the lock manager cannot be
    // reached or refuses otherwise, or the access does not fit (shared needs read access,
    // exclusive write access); KX_E_REFUSED with no file open. Unlike a local lock, the
    // handles of all processes of this machine are one lock owner to the server
    // (NFSBrowse::LockFile), so they exclude other machines but never one another, and a lock
    // whose process dies stays on the server until the server forgets it. Closing the handle
    // releases its lock.
    long TryLockFile(bool exclusive) override;
    long UnlockFile() override;

    // The entry's NFS object type (kDirEntryRegular, ...); kDirEntryInvalid without an entry.
    uint32_t GetFileType() const;
    // The server's file-system and file numbers; 0 without an entry.
    uint64_t GetFileSystemId() const;
    uint64_t GetFileId() const;

private:
    enum : uint32_t { kAccessRead = 1, kAccessWrite = 2 };

    bool Connected() const { return m_pBrowse != nullptr && m_pEntry != nullptr; }
    // After this handle changed the file: the next size or time query asks the server.
    void RefreshAttributes();
    // A browse object for a one-off lookup on host: this handle's own when it is open there,
    // else a new one stored in `temporary`. Null on failure.
    kxNFSUtils::NFSBrowse* ConnectionFor(const std::string& host,
                                         std::unique_ptr<kxNFSUtils::NFSBrowse>& temporary);
    // The browse object's last error, or `fallback` when it recorded none.
    long LastError(long fallback) const;
    // Closes the handle and returns status, for CreateFileA's failure paths.
    unsigned long Fail(long status);
    void DropView();

    std::string m_strName;   // as opened: "host:path"
    std::string m_strPath;   // the path part
    std::string m_strHost;   // the host part, for reusing the connection
    bool m_bOpen = false;
    bool m_bPreExisting = false;
    uint32_t m_dwAccess = 0;  // kAccessRead | kAccessWrite
    uint64_t m_qwPosition = 0;
    std::unique_ptr<uint8_t[]> m_pView;
    uint32_t m_dwViewSize = 0;
    uint64_t m_qwViewOffset = 0;
    bool m_bReadOnlyView = false;  // never written back
    std::unique_ptr<kxNFSUtils::NFSBrowse> m_pBrowse;
    std::unique_ptr<kxNFSUtils::DirEntry> m_pEntry;
    // Set by this handle's writes and size changes (also through a const FlushViewOfFile).
    mutable bool m_bAttributesStale = false;
    bool m_bLocked = false;
    uint64_t m_qwLockedSize = 0;  // the size the lock's range was computed from
};
