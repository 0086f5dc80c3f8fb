#include "nfs/kxNFS3ObjectUtils.h"

#include <cstring>

#include "nfs/NFSBrowse.h"
#include "nfs/kxNFS3Call.h"
#include "base/kxWin32Types.h"

namespace kxNFSUtils {

void FileTimeToNFSTime(uint64_t fileTime, nfstime3& out) {
    const uint64_t sinceEpoch = fileTime - kxFileTimeUnixEpoch;
    out.seconds = static_cast<uint32>(sinceEpoch / 10000000u);
    out.nseconds = static_cast<uint32>(sinceEpoch % 10000000u * 100u);
}

void EntryToSattr3(const DirEntry& entry, sattr3& out, uint32_t selection) {
    memset(&out, 0, sizeof out);
    out.mode.set_it = (selection & NFSBrowse::kSetMode) != 0;
    out.mode.set_uint32_u.val = entry.mode;
    out.uid.set_it = (selection & NFSBrowse::kSetOwner) != 0;
    out.uid.set_uint32_u.val = entry.uid;
    out.gid.set_it = (selection & NFSBrowse::kSetGroup) != 0;
    out.gid.set_uint32_u.val = entry.gid;
    out.size.set_it = (selection & NFSBrowse::kSetSize) != 0;
    out.size.set_uint64_u.val = entry.size;
    out.atime.set_it = (selection & NFSBrowse::kSetAccessTime) != 0 ? SET_TO_CLIENT_TIME
                                                                     : DONT_CHANGE;
    FileTimeToNFSTime(entry.accessTime, out.atime.set_time_u.time);
    out.mtime.set_it = (selection & NFSBrowse::kSetWriteTime) != 0 ? SET_TO_CLIENT_TIME
                                                                    : DONT_CHANGE;
    FileTimeToNFSTime(entry.writeTime, out.mtime.set_time_u.time);
}

std::string ObjectName(const std::string& serverPath) {
    const size_t slash = serverPath.rfind('/');
    return slash == std::string::npos ? serverPath : serverPath.substr(slash + 1);
}

std::string JoinPath(const std::string& dir, const std::string& name) {
    if (!dir.empty() && dir.back() == '/') return dir + name;
    return dir + "/" + name;
}

long CheckEntries(std::initializer_list<const DirEntry*> entries) {
    for (const DirEntry* e : entries)
        if (e->magic != DirEntry::kMagic) return KX_E_NOT_INITIALISED;
    return KX_OK;
}

diropargs3 Where(const DirEntry& dir, const std::string& name) {
    diropargs3 where;
    where.dir = WireHandle(dir);
    where.name = const_cast<char*>(name.c_str());
    return where;
}

long CheckName(const std::string& name, bool allowDot) {
    if (name.empty()) return KX_E_NFS_NO_NAME;
    if (name.find('/') != std::string::npos || name.find('\0') != std::string::npos ||
        name == ".." || (name == "." && !allowDot))
        return KX_E_BAD_ARGUMENT;
    return KX_OK;
}

long CheckObjectInDir(const DirEntry& dir, const DirEntry& entry, std::string& name) {
    name = ObjectName(entry.serverPath);
    const long rc = CheckEntries({&dir, &entry});
    return rc != KX_OK ? rc : CheckName(name, false);
}

long SplitServerPath(const std::string& path, std::vector<std::string>& names,
                     std::string& clean) {
    if (path.find('\0') != std::string::npos) return KX_E_BAD_ARGUMENT;
    std::vector<std::string> found;
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        const std::string name = path.substr(start, end - start);
        if (name == "..") return KX_E_BAD_ARGUMENT;
        if (!name.empty() && name != ".") found.push_back(name);
        start = end + 1;
    }
    std::string rebuilt = !path.empty() && path[0] == '/' ? "/" : "";
    for (size_t i = 0; i < found.size(); ++i) {
        if (i != 0) rebuilt += '/';
        rebuilt += found[i];
    }
    names.swap(found);
    clean.swap(rebuilt);
    return KX_OK;
}

}  // namespace kxNFSUtils
