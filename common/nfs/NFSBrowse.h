// NFSBrowse: the library's handle on one NFS server. It holds the RPC connections to the
// server's MOUNT, NFS and lock-manager services, knows the server's export list, mounts exports
// on demand and works on server objects described by DirEntry records.
//
// Convention: a failed remote call is translated and logged (nfs/kxNFSErrorMap.h). Operations
// that answer with a bool or a pointer store the translated code, a negative status from
// nfs/kxNFSStatus.h, as the object's last error, which GetLastObjectError returns.
//
// Ownership: the factory's caller owns the object and deletes it through the virtual
// destructor, which unmounts every export the object mounted and closes its connections.
// Entries returned by Open belong to the caller.
//
// Thread safety: none; one object is used by one thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "nfs/DirEntry.h"

class KBuffer;

namespace kxNFSUtils {

// Lets a caller abandon long work (export discovery, listings).
class CancelledIf {
public:
    // True when the caller wants the current work abandoned.
    virtual bool Cancelled() = 0;

protected:
    ~CancelledIf() = default;
};

// An entry-by-entry directory enumeration; deleting it releases what it holds.
class NFSGetNextHandle {
public:
    virtual ~NFSGetNextHandle() = default;
};

// Transports a browse object may use.
enum eUseProtocol { eUseTCP = 0, eUseUDP = 1, eUseTCPThenUDP = 2 };

class NFSBrowse {
public:
    virtual ~NFSBrowse() = default;

    // True when every open service answers its NULL procedure: NFS, the lock manager when a
    // connection to it exists (2-second limit), and MOUNT.
    virtual bool Verify() = 0;
    // Mounts every export (once per object) and appends a record for each, in the server's
    // order, failed ones included (type kDirEntryInvalid). A mount the server refuses only
    // makes its record invalid: the call still returns true. False when the figures of a
    // mounted export could not be read (root attributes, FSSTAT, FSINFO, PATHCONF, or the browse
    // was cancelled; its code in the last error, its record invalid from then on) or the
    // server lists none (KX_E_NFS_NO_EXPORT).
    virtual bool Exports(std::vector<ExportInfo>& list) = 0;
    // Appends the export paths in the server's order; nothing is cleared first.
    virtual void ExportPaths(std::vector<std::string>& list) = 0;
    // Appends an entry for every name in dir (nothing is cleared first), in the server's order,
    // "." and ".." included when the server sends them, read with READDIRPLUS batch after batch
    // (up to 1024 bytes of names and 8192 bytes of reply each; every request carries a zero
    // cookie verifier, on purpose). Each entry has both paths dir.serverPath "/" name (one '/'
    // only after a serverPath that ends with one), the attributes and handle as the reply
    // carries them (zero and zero-length when it leaves them out) and dir's preferred sizes.
    // False only when the first batch fails: its code in the last error, logged as
    // "nfsproc3_readdirplus_3 (status %d, err 0x%8.8X)" host:dir.serverPath. A later batch
    // that fails ends the listing with true and the entries gathered so far, without a log
    // line or a last error (kept on purpose: a directory changing under the listing yields what
    // could be read). The CancelledIf, asked after each batch, and a batch that brings no entry
    // without ending the directory end the listing with true too. KX_E_NOT_INITIALISED for a
    // dir without DirEntry::kMagic.
    virtual bool Entries(const DirEntry& dir, std::vector<DirEntry>& list) = 0;

    // Object operations (Open, Lookup, CreateObject ... GetAttributes). Common rules:
    // - A DirEntry argument without DirEntry::kMagic gives KX_E_NOT_INITIALISED; nothing is sent.
    // - A failed remote call is logged once, "<procedure> (status %d, err 0x%8.8X)" and the
    //   detail host ":" server path given at each operation, and its code is stored as the last
    //   error (Access alone never stores one).
    // - Names given by the caller or taken from the last part of a serverPath are single names:
    //   an empty one gives KX_E_NFS_NO_NAME; one holding '/' or a zero byte, "..", or "." (but
    //   for Lookup) gives KX_E_BAD_ARGUMENT; both are stored, not logged, and nothing is sent.
    // - Entries these operations make have path == serverPath and the readPreferred and
    //   writePreferred sizes of the directory they were made in (Open: of the export), so data
    //   transfer can use them. A reply that leaves out a new object's handle or attributes
    //   (both optional in the protocol) is completed with LOOKUP or GETATTR, so success always
    //   yields an entry with a handle and attributes.

    // A new entry for the server path that the caller deletes, or null.
    // The path is normalised first: empty names ("//", a trailing '/') and "." are dropped, and
    // a ".." anywhere refuses the path with KX_E_BAD_ARGUMENT (nothing sent), so a walk never
    // steps out of its export. The export is chosen for the normalised path (FindMountPoint;
    // its failure stays in the last error, KX_E_NFS_NO_EXPORT when no export serves it). The
    // export path itself, with or without a trailing '/', gives a copy of the export's root
    // without any LOOKUP; below it one LOOKUP per name, and the entry's serverPath is the
    // normalised path. KX_E_NFS_CANCELLED when the CancelledIf answers true before a LOOKUP.
    // create: a missing last name (NFS3ERR_NOENT) is made with CREATE UNCHECKED, mode 0777,
    //   owner 0 and group 0 whatever the credentials, size 0 and the server's times (kept as it
    //   is: a server may refuse owner 0 to a caller that is not root). Missing directories on
    //   the way are not made. Logged as "nfsproc3_create_3 (...)" host:path.
    // nearest: when the walk fails at any step, cancellation included, the deepest object
    //   reached comes back instead of null (the export's root when the first name is missing),
    //   with the failure in the last error. Compare the entry's serverPath with the normalised
    //   path to tell a partial walk from a whole one.
    // LOOKUP failures are logged as "nfsproc3_lookup_3 (...)" host:path up to the failing name.
    virtual DirEntry* Open(const std::string& path, bool create, bool nearest) = 0;
    // LOOKUP of one name in dir ("." allowed). True with entry replaced by the object found:
    // attributes, handle, both paths dir.serverPath "/" name, dir's preferred sizes. A failure
    // leaves entry as it was. Logged as "nfsproc3_lookup_3 (...)" host:dir.serverPath/name.
    virtual bool Lookup(const DirEntry& dir, const std::string& name, DirEntry& entry) = 0;
    // Writes count bytes of data at offset with WRITE, UNSTABLE (no COMMIT follows: the server
    // may hold the data in memory until it chooses to store it), in chunks sent one after
    // another, each waiting for its reply. Chunk size: 4096 bytes over UDP; over TCP the file's
    // readPreferred (the read size for writing, crossed on purpose and kept so) capped at
    // kNFSMaxChunk, kNFSDefaultChunk when it is 0, or the whole count in one request when
    // g_NFSUtils_FragmentCorrectly is cleared (nfs/kxNFSTransfer.h). The number of chunks is
    // fixed before the first request and each chunk starts where the server's reported count
    // left the last one, so a short write shifts the later chunks and leaves the tail
    // unwritten: the result says how much was written.
    // Returns the bytes written; 0 after a failed chunk, whatever earlier chunks wrote, with the
    // code in the last error (logged as "nfsproc3_write_3 (status %d, err 0x%8.8X)", no
    // detail). The CancelledIf, asked before each chunk, ends the transfer with the bytes
    // written so far and no error. Counts above 2^32 - 1 are cut to it; a count of 0 sends
    // nothing. A negative offset, or a null data with a nonzero count: 0 and KX_E_BAD_ARGUMENT;
    // a file without DirEntry::kMagic: 0 and KX_E_NOT_INITIALISED; nothing is sent.
    virtual unsigned long Write(const DirEntry& file, const char* data, long long offset,
                                unsigned long count) = 0;
    // Reads up to count bytes at offset into data with READ, in chunks cut as Write cuts them
    // but with the file's writePreferred over TCP. The fixed number of chunks all go out, also
    // past the end of the file (bringing nothing), so a read across the end returns the bytes
    // that were there. No chunk copies more than it asked for, whatever the server claims.
    // Returns the bytes read; failures (logged as "nfsproc3_read_3 (status %d, err 0x%8.8X)"),
    // cancellation and bad arguments as for Write.
    virtual unsigned long Read(const DirEntry& file, char* data, long long offset,
                               unsigned long count) = 0;
    // Finds the export under which path lies: of the exports that are path itself or one of its
    // leading directories, the longest one that mounts (the earlier of two of equal length).
    // `info` must come in with an empty serverPath. True when one was found and its figures
    // could be read; a failure to read them leaves the code in the last error.
    virtual bool FindMountPoint(const std::string& path, ExportInfo& info) = 0;
    // Makes in dir the object entry describes, named by the last part of entry.serverPath
    // (KX_E_NFS_NO_NAME, nothing sent, when that ends in '/'). Bit 0x02 of entry.type chooses
    // MKDIR, so types 2, 3, 6 and 7 all make a directory (a bit test, kept as it is); otherwise
    // CREATE UNCHECKED, which reuses an existing file and cuts it to 0 bytes (whether its other
    // attributes change is the server's choice). entry.size is set to 0 first, then all six
    // attributes go from the entry (kSetAll: mode, uid, gid, size 0, for directories too, and
    // the two times as client times): set them before the call. When a server refuses a
    // directory's size (NFS3ERR_INVAL), the directory it may have made anyway is given the
    // other attributes, or it is made again without the size.
    // True with entry's paths dir.serverPath "/" name, handle and attributes from the server.
    // Logged as "NFSBrowseImpl3::CreateObject (...)" host:dir.serverPath/name; an existing
    // directory name gives KX_E_NFS_EXISTS.
    virtual bool CreateObject(const DirEntry& dir, DirEntry& entry) = 0;
    // Removes from dir the object named by the last part of entry.serverPath: RMDIR when bit
    // 0x02 of entry.type is set, else REMOVE. Logged as "nfsproc3_rmdir_3 (...)" or
    // "nfsproc3_remove_3 (...)" host:dir.serverPath/name; a directory with entries in it gives
    // KX_E_NFS_NOT_EMPTY.
    virtual bool DeleteObject(const DirEntry& dir, const DirEntry& entry) = 0;
    // Renames entry within dir: the object never changes directory. entry.serverPath is first
    // reset from entry.path, whose last part is the old name. True with both paths
    // dir.serverPath "/" newName. An existing newName is replaced or refused as RENAME does (a
    // file over a file is replaced; over a directory with entries: KX_E_NFS_EXISTS or
    // KX_E_NFS_NOT_EMPTY, as the server says). Logged as "nfsproc3_rename_3 (...)"
    // host:dir.serverPath " from " old " to " new.
    virtual bool RenameObject(const DirEntry& dir, DirEntry& entry, const std::string& newName) = 0;
    // READLINK: target receives the link's text and a terminating zero (bytes used: length + 1).
    // KX_E_OUT_OF_MEMORY when the buffer cannot grow. Logged as "nfsproc3_readlink_3 (...)"
    // host:entry.serverPath.
    virtual bool ReadSymlink(const DirEntry& entry, KBuffer& target) = 0;
    // SYMLINK in dir, named by the last part of entry.serverPath, holding target's used bytes up
    // to the first zero. The server chooses the link's attributes. True with entry filled as
    // CreateObject fills it. Logged as "nfsproc3_symlink_3 (...)" host:dir.serverPath/name.
    virtual bool CreateSymlink(const DirEntry& dir, DirEntry& entry, const KBuffer& target) = 0;
    // ACCESS asking for all six rights (read 0x01, lookup 0x02, modify 0x04, extend 0x08,
    // delete 0x10, execute 0x20) whatever mask holds on entry. True with mask = the rights the
    // server grants. A failure is logged ("nfsproc3_access_3 (...)" host:entry.serverPath) but
    // never stored: the last error stays as it was (kept on purpose).
    virtual bool Access(const DirEntry& entry, uint32_t& mask) = 0;
    // Locks (lock true: shared, or exclusive when `exclusive`) or unlocks (lock false) the whole
    // file through the server's lock manager, never waiting: a lock held by another owner
    // fails at once. True when the server granted the request (unlocking what is not held is
    // granted too); the last error is left alone then.
    // The request, the same in every process of this machine: caller name this machine's name,
    // owner handle and request cookie the process-wide 4 bytes EB 20 F3 FA, svid 0, offset 0,
    // length the low 32 bits of file.size plus 4096, no reclaim, state 0. The range always
    // starts at byte 0, so whole-file locks of any two users of this library overlap whatever
    // sizes they saw.
    // Lock owners: all browse objects of all processes of one machine are one owner to the
    // server, so their locks never exclude one another; they exclude other machines. (nfs-
    // ganesha tells owners apart by client address, caller name, transport, owner handle and
    // svid, so a lock taken over UDP and one over TCP are two owners there.)
    // Versions: NLM version 1 first, as above: the handle padded to 32 bytes from the handle
    // buffer when shorter, and the length in 32-bit arithmetic, which wraps for sizes whose
    // low word is 0xFFFFF000 or more (0xFFFFFFFF locks 4095 bytes; 0xFFFFF000 gives 0, which
    // the server reads as "to the end of the file"); kept so. Servers that offer version 4
    // only (nfs-ganesha) are detected on the first request (the port mapper knows no version
    // 1, or the lock manager answers "program version mismatch" naming 4), and this object
    // then speaks version 4 for good: the same request with the handle at its own length and
    // a 64-bit length, file.size plus 4096 (0, to the end, when that would pass 2^63 - 1).
    // The connection is made on the first request (TCP, then UDP); one that broke (the server
    // closed or restarted it) is made again once and the request repeated, which is harmless:
    // a second LOCK by the owner or a second UNLOCK changes nothing.
    // Failures, false:
    //   no lock manager reachable: nothing stored, nothing logged (a later call tries again);
    //   KX_E_NOT_INITIALISED a file without DirEntry::kMagic, KX_E_BAD_ARGUMENT a handle
    //     length beyond the DirEntry's buffer (nothing sent, nothing logged);
    //   the refusal's code, stored and logged: KX_E_NLM_DENIED (another owner holds a
    //     conflicting lock), KX_E_NLM_NO_LOCKS, KX_E_NLM_BLOCKED, KX_E_NLM_GRACE_PERIOD,
    //     KX_E_NLM_FAILED for other statuses, the version-4 statuses stale handle
    //     (KX_E_NFS_STALE) and read-only file system (KX_E_NFS_READ_ONLY), or an RPC code.
    //     Version 1 logs "nlm_lock_3(status %d, err 0x%8.8X)" or "nlm_unlock_3(...)" (no blank
    //     before the parenthesis, kept so), version 4 "nlmproc4_lock_4 (status %d, ...)" or
    //     "nlmproc4_unlock_4 (...)", each followed by host ":" file.serverPath.
    // Locks are not tracked: deleting the browse object releases none.
    virtual bool LockFile(const DirEntry& file, bool lock, bool exclusive) = 0;
    // LINK: a hard link to entry's object in dir under name; entry is not changed. Logged as
    // "nfsproc3_link_3 (...)" host:entry.serverPath " to " dir.serverPath/name.
    virtual bool MakeLink(const DirEntry& entry, const DirEntry& dir, const std::string& name) = 0;
    // A new enumeration the caller deletes, or null.
    // Starts an enumeration of dir: READDIRPLUS batches requested as Entries requests them, as
    // they are used up, and entries made as Entries makes them. Returns a new handle that the
    // caller deletes (before this object, whose connection it uses) with first = the first
    // entry; or null with the last error 0 for an empty directory, or the code of the failed
    // first batch, logged as "nfsproc3_readdirplus_3 (status %d, err 0x%8.8X)"
    // host:dir.serverPath. Cancellation before the first entry gives null as the end does.
    // KX_E_NOT_INITIALISED for a dir without DirEntry::kMagic.
    virtual NFSGetNextHandle* GetFirstDirEntry(const DirEntry& dir, DirEntry& first) = 0;
    // The next entry of an enumeration. False at the end of the listing with the last error set
    // to 0, or when a batch fails with its code (logged as above; unlike Entries, every batch
    // counts): GetLastObjectError tells the end from a failure. A batch that brings no entry
    // ends the listing. When the CancelledIf answers true: false, the last error unchanged.
    // KX_E_BAD_ARGUMENT for a handle that GetFirstDirEntry of this kind of object did not make.
    virtual bool GetNextDirEntry(NFSGetNextHandle* handle, DirEntry& next) = 0;
    // Attribute selection of SetAttributes; CreateObject sends all six.
    enum : uint32_t {
        kSetMode = 0x01,
        kSetOwner = 0x02,       // uid
        kSetGroup = 0x04,       // gid
        kSetSize = 0x08,
        kSetAccessTime = 0x10,  // accessTime, as a client time
        kSetWriteTime = 0x20,   // writeTime, as a client time
        kSetAll = 0x3F
    };
    // SETATTR of the selected attributes from entry, without the ctime guard; unselected ones
    // keep the server's values. A _FILETIME before 1970 wraps (unsigned arithmetic, kept).
    // entry is not changed. Logged as "nfsproc3_setattr_3 (...)" host:entry.serverPath.
    virtual bool SetAttributes(DirEntry& entry, uint32_t selection) = 0;
    // GETATTR: refreshes entry's attributes (type, mode, nlink, uid, gid, sizes, ids, times);
    // handle, paths and preferred sizes stay. Logged as "nfsproc3_getattr_3 (...)"
    // host:entry.serverPath.
    virtual bool GetAttributes(DirEntry& entry) = 0;
    // The last stored failure code; 0 when nothing has failed.
    virtual long GetLastObjectError() = 0;
};

// Creates a browse object for the server at `address` (IPv4, network byte order) with AUTH_UNIX
// credentials for uid and gids (gids[0] is the primary group), connected to MOUNT version 3
// over TCP and to NFS version 3 over the transport `protocol` chooses, and reads the export
// list. hostName (may be empty) names the server in log lines.
// Returns 0 with `out` set, or a negative code with `out` null:
//   KX_E_RPC_AUTH            no credentials (for instance an empty gids)
//   KX_E_OUT_OF_MEMORY
//   KX_E_NFS_NO_PORTMAPPER   the server's port mapper did not answer
//   0xE00303..               the translated RPC creation status (a program not registered,
//                            an unknown host, ...), logged as
//                            "CreateNFSBrowse failed (system err 0x%8.8x, RPC status %d)"
//   KX_E_REFUSED             the services answered but the export list could not be read
// A failure is always logged with that line, whose RPC status is the library's record of the
// last failed client creation.
long CreateNFSBrowse(NFSBrowse*& out, unsigned long address, int uid,
                     const std::vector<int>& gids, CancelledIf* cancelled, eUseProtocol protocol,
                     const std::string& hostName);

// Resolves host (kxNetUtils::GetHostIPAddress) and creates the browse object for its first
// address, with host as the name in log lines. A resolution failure is returned as it is.
long CreateNFSBrowse(NFSBrowse*& out, const std::string& host, int uid,
                     const std::vector<int>& gids, CancelledIf* cancelled, eUseProtocol protocol);

}  // namespace kxNFSUtils
