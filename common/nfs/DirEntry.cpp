#include "nfs/DirEntry.h"

#include <cstring>

#include "xdr/nfs3_prot.h"

namespace kxNFSUtils {

std::string DirEntry::Name() const {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

long DirEntry::CopyToWin32FindData(_WIN32_FIND_DATAA* data) const {
    if (data == nullptr) return KX_E_BAD_ARGUMENT;
    memset(data, 0, sizeof *data);
    if (type == kDirEntryDirectory) data->dwFileAttributes = 0x10;  // FILE_ATTRIBUTE_DIRECTORY
    data->ftLastAccessTime.dwLowDateTime = static_cast<uint32_t>(accessTime);
    data->ftLastAccessTime.dwHighDateTime = static_cast<uint32_t>(accessTime >> 32);
    data->ftLastWriteTime.dwLowDateTime = static_cast<uint32_t>(writeTime);
    data->ftLastWriteTime.dwHighDateTime = static_cast<uint32_t>(writeTime >> 32);
    data->nFileSizeHigh = static_cast<uint32_t>(size >> 32);
    data->nFileSizeLow = static_cast<uint32_t>(size);
    const std::string name = Name();
    if (name.size() + 1 > sizeof data->cFileName) return KX_E_BAD_NAME;
    memcpy(data->cFileName, name.c_str(), name.size() + 1);
    return KX_OK;
}

void InitExportInfo(ExportInfo& info) {
    info.totalBytes = info.freeBytes = info.availableBytes = info.timeDelta = 0;
    info.nameMax = info.unitSize = info.maxTransfer = info.transferMultiple = 0;
    info.caseInsensitive = info.casePreserving = info.canSetTime = info.chownRestricted = false;
}

uint64_t NFSTimeToFileTime(const nfstime3& t) {
    return static_cast<uint64_t>(t.seconds) * 10000000ull + kxFileTimeUnixEpoch +
           t.nseconds / 100u;
}

void FAttr3ToDirEntry(const fattr3& a, DirEntry& e) {
    e.type = static_cast<uint32_t>(a.type);
    e.mode = a.mode;
    e.nlink = a.nlink;
    e.uid = a.uid;
    e.gid = a.gid;
    e.size = a.size;
    e.used = a.used;
    e.fsId = a.fsid;
    e.fileId = a.fileid;
    e.accessTime = NFSTimeToFileTime(a.atime);
    e.writeTime = NFSTimeToFileTime(a.mtime);
    e.changeTime = NFSTimeToFileTime(a.ctime);
}

}  // namespace kxNFSUtils
