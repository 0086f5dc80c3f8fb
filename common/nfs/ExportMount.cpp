#include "nfs/ExportMount.h"

#include <cstring>

#include "nfs/NFSBrowse.h"
#include "nfs/kxNFSErrorMap.h"
#include "xdr/mount_prot.h"

namespace kxNFSUtils {

namespace {
constexpr int kMountProgram = 100005;
}

ExportMount::~ExportMount() { Term(); }

long ExportMount::Init(unsigned long address, const std::string& host, RPCAuth* auth) {
    hostName = host;
    RPCClient* client = nullptr;
    const long rc =
        CreateRPCClient(client, address, kMountProgram, mountVersion, RPCClient::PROTOCOL_TCP);
    if (rc != KX_OK) return rc;
    mountClient.reset(client);
    mountClient->SetAuth(auth->Handle());
    return ListExports() ? KX_OK : KX_E_REFUSED;
}

bool ExportMount::ListExports() {
    if (!mountClient) return false;
    // The version-1 EXPORT: the reply has the same form in versions 1 and 3, and the
    // procedure number is the same.
    ::exports result = nullptr;  // the list type, not the member cache
    if (mountproc_export_1(nullptr, &result, mountClient->Handle()) != RPC_SUCCESS) {
        clnt_freeres(mountClient->Handle(), reinterpret_cast<xdrproc_t>(xdr_exports),
                     reinterpret_cast<char*>(&result));
        return false;
    }
    bool complete = true;
    for (exportnode* node = result; node != nullptr; node = node->ex_next) {
        exportPaths.emplace_back(node->ex_dir != nullptr ? node->ex_dir : "");
        if (cancelled != nullptr && cancelled->Cancelled()) {
            complete = false;
            break;
        }
    }
    clnt_freeres(mountClient->Handle(), reinterpret_cast<xdrproc_t>(xdr_exports),
                 reinterpret_cast<char*>(&result));
    return complete;
}

ExportInfo& ExportMount::MountHandle(const std::string& exportPath) {
    const auto cached = exports.find(exportPath);
    if (cached != exports.end()) return cached->second;

    ExportInfo info;
    InitExportInfo(info);
    std::string path = exportPath;  // the stubs take a non-const char*
    bool mounted = false;
    if (mountClient && mountVersion == 1) {
        fhstatus result;
        memset(&result, 0, sizeof result);
        char* arg = &path[0];
        if (mountproc_mnt_1(&arg, &result, mountClient->Handle()) == RPC_SUCCESS &&
            result.fhs_status == 0) {
            memcpy(info.handle, result.fhstatus_u.fhs_fhandle, FHSIZE);
            info.handleLength = FHSIZE;
            mounted = true;
        }
        clnt_freeres(mountClient->Handle(), reinterpret_cast<xdrproc_t>(xdr_fhstatus),
                     reinterpret_cast<char*>(&result));
    } else if (mountClient && mountVersion == 3) {
        mounted = Mount3(mountClient->Handle(), &path[0], info, hostName);
    }
    info.type = mounted ? kDirEntryDirectory : kDirEntryInvalid;
    info.serverPath = exportPath;
    info.path = exportPath;
    return exports.emplace(exportPath, std::move(info)).first->second;
}

void ExportMount::Term() {
    if (mountClient) {
        char dummy = 0;
        for (auto& [path, info] : exports) {
            if (info.type == kDirEntryInvalid) continue;
            std::string arg = info.serverPath;
            char* p = &arg[0];
            if (mountVersion == 1)
                mountproc_umnt_1(&p, &dummy, mountClient->Handle());
            else if (mountVersion == 3)
                mountproc3_umnt_3(&p, &dummy, mountClient->Handle());
        }
    }
    mountClient.reset();
}

bool Mount3(CLIENT* client, char* path, DirEntry& entry, const std::string& host) {
    mountres3 result;
    memset(&result, 0, sizeof result);
    const clnt_stat rpc = mountproc3_mnt_3(&path, &result, client);
    bool ok = false;
    if (rpc == RPC_SUCCESS && result.fhs_status == MNT3_OK) {
        const fhandle3& fh = result.mountres3_u.mountinfo.fhandle;
        const u_int length = fh.fhandle3_len <= kDirEntryHandleSize ? fh.fhandle3_len : 0;
        memcpy(entry.handle, fh.fhandle3_val, length);
        entry.handleLength = length;
        ok = length != 0;
    } else {
        TranslateError(g_Mount3ErrorMap, rpc, result.fhs_status,
                       "mountproc3_mnt_3 (status %d, err 0x%8.8X)", host + ":" + path);
    }
    clnt_freeres(client, reinterpret_cast<xdrproc_t>(xdr_mountres3),
                 reinterpret_cast<char*>(&result));
    return ok;
}

}  // namespace kxNFSUtils
