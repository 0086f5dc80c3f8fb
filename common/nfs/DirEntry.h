// DirEntry and ExportInfo: one object on an NFS server with its attributes and file handle, and
// one export of the server (its root directory plus the file-system figures the server gives).
//
// Plain records owned by whoever holds them; copying copies every field.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "nfs/kxNFSStatus.h"
#include "base/kxWin32Types.h"

struct fattr3;
struct nfstime3;

namespace kxNFSUtils {

// NFS version 3 object types as DirEntry::type holds them, plus the "no object" marker.
enum : uint32_t {
    kDirEntryRegular = 1,
    kDirEntryDirectory = 2,
    kDirEntrySymlink = 5,
    kDirEntryInvalid = 8  // default, failed mount, failed lookup
};

constexpr size_t kDirEntryHandleSize = 128;

struct DirEntry {
    // Lets the file layer recognise a DirEntry passed where an open-file handle is expected.
    static constexpr uint32_t kMagic = 0xFEFFFEFF;

    DirEntry() = default;

    // Fills a find-data record: directory attribute for directories and nothing else, last
    // access and write times, size, and the name (the part of `path` behind its last '/', or all
    // of it). Returns 0, KX_E_BAD_ARGUMENT for a null record, or KX_E_BAD_NAME when
    // the name and its terminator pass MAX_PATH bytes (the record then stays zeroed but for the
    // attributes, times and size).
    long CopyToWin32FindData(_WIN32_FIND_DATAA* data) const;

    // The name part of `path`.
    std::string Name() const;

    uint32_t magic = kMagic;
    std::string path;                 // as shown to callers; the name is behind the last '/'
    uint32_t type = kDirEntryInvalid; // ftype3, or kDirEntryInvalid
    uint32_t uid = 0;
    uint32_t gid = 0;
    uint32_t nlink = 0;
    uint64_t size = 0;
    uint64_t used = 0;    // bytes used on the server's disk
    uint64_t fileId = 0;
    uint64_t fsId = 0;
    // _FILETIME values. Zero by default rather than left undefined, so copies of a default
    // entry compare equal and never carry stack garbage.
    uint64_t accessTime = 0;
    uint64_t writeTime = 0;
    uint64_t changeTime = 0;
    uint32_t mode = 0;
    uint32_t readPreferred = 0;   // export roots only: FSINFO preferred sizes
    uint32_t writePreferred = 0;
    uint8_t handle[kDirEntryHandleSize] = {};  // first handleLength bytes are the NFS handle
    uint32_t handleLength = 0;
    std::string serverPath;       // full path on the server; for an export root, the export
};

struct ExportInfo : DirEntry {
    uint64_t totalBytes = 0;      // FSSTAT
    uint64_t freeBytes = 0;
    uint64_t availableBytes = 0;  // free space available to this user
    uint64_t timeDelta = 0;       // FSINFO time granularity, nanoseconds
    uint32_t nameMax = 0;         // PATHCONF longest name
    uint32_t unitSize = 0;        // 1024 once FSINFO ran
    uint32_t maxTransfer = 0;     // smaller of the read and write maxima
    uint32_t transferMultiple = 0;  // smaller of the read and write multiples
    bool caseInsensitive = false;
    bool casePreserving = false;
    bool canSetTime = false;
    bool chownRestricted = false;
    std::vector<std::string> groups;  // left empty by export discovery
};

// Zeroes the export figures (totalBytes through transferMultiple) and the four flags.
void InitExportInfo(ExportInfo& info);

// An NFS time (seconds and nanoseconds since 1970) as a _FILETIME value; the nanoseconds are
// cut to whole 100-nanosecond ticks.
uint64_t NFSTimeToFileTime(const nfstime3& t);

// Copies type, mode, nlink, uid, gid, size, used, fsId, fileId and the three times; nothing
// else of the entry changes (the device numbers are not kept).
void FAttr3ToDirEntry(const fattr3& attributes, DirEntry& entry);

}  // namespace kxNFSUtils
