#include "nfs/NFSBrowseImpl3.h"

#include "nfs/kxNFS3Export.h"

namespace kxNFSUtils {

bool NFSBrowseImpl3::Exports(std::vector<ExportInfo>& list) {
    if (exportMount.Paths().empty()) {
        lastError = KX_E_NFS_NO_EXPORT;
        return false;
    }
    bool ok = true;
    for (const std::string& path : exportMount.Paths()) {
        ExportInfo& info = exportMount.MountHandle(path);
        if (info.type == kDirEntryDirectory) {
            const bool stop = cancelled != nullptr && cancelled->Cancelled();
            const long rc = FillExportInfo(nfsClient->Handle(), info, stop, hostName);
            if (rc < 0) {
                // Kept in the cache as failed: this object will not offer the export again.
                lastError = rc;
                info.type = kDirEntryInvalid;
                ok = false;
            }
        }
        list.push_back(info);
    }
    return ok;
}

void NFSBrowseImpl3::ExportPaths(std::vector<std::string>& list) {
    const auto& paths = exportMount.Paths();
    list.insert(list.end(), paths.begin(), paths.end());
}

bool NFSBrowseImpl3::Entries(const DirEntry&, std::vector<DirEntry>&) { return Refuse(); }
DirEntry* NFSBrowseImpl3::Open(const std::string&, bool, bool) {
    Refuse();
    return nullptr;
}
bool NFSBrowseImpl3::Lookup(const DirEntry&, const std::string&, DirEntry&) { return Refuse(); }
unsigned long NFSBrowseImpl3::Write(const DirEntry&, const char*, long long, unsigned long) {
    Refuse();
    return 0;
}
unsigned long NFSBrowseImpl3::Read(const DirEntry&, char*, long long, unsigned long) {
    Refuse();
    return 0;
}
bool NFSBrowseImpl3::CreateObject(const DirEntry&, DirEntry&) { return Refuse(); }
bool NFSBrowseImpl3::DeleteObject(const DirEntry&, const DirEntry&) { return Refuse(); }
bool NFSBrowseImpl3::RenameObject(const DirEntry&, DirEntry&, const std::string&) {
    return Refuse();
}
bool NFSBrowseImpl3::ReadSymlink(const DirEntry&, KBuffer&) { return Refuse(); }
bool NFSBrowseImpl3::CreateSymlink(const DirEntry&, DirEntry&, const KBuffer&) { return Refuse(); }
bool NFSBrowseImpl3::Access(const DirEntry&, uint32_t&) { return Refuse(); }
bool NFSBrowseImpl3::MakeLink(const DirEntry&, const DirEntry&, const std::string&) {
    return Refuse();
}
NFSGetNextHandle* NFSBrowseImpl3::GetFirstDirEntry(const DirEntry&, DirEntry&) {
    Refuse();
    return nullptr;
}
bool NFSBrowseImpl3::GetNextDirEntry(NFSGetNextHandle*, DirEntry&) { return Refuse(); }
bool NFSBrowseImpl3::SetAttributes(DirEntry&, uint32_t) { return Refuse(); }
bool NFSBrowseImpl3::GetAttributes(DirEntry&) { return Refuse(); }

}  // namespace kxNFSUtils
