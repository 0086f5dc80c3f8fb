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

}  // namespace kxNFSUtils
