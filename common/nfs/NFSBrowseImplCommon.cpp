#include "nfs/NFSBrowseImplCommon.h"

#include "nfs/kxNFS3Export.h"
#include "platform/kxSysInfo.h"
#include "xdr/mount_prot.h"
#include "xdr/nfs3_prot.h"

namespace kxNFSUtils {

namespace {
constexpr int kNFSProgram = 100003;
}

NFSBrowseImplCommon::NFSBrowseImplCommon(unsigned long addr, RPCAuth* credentials,
                                         int mountVersion, int version, CancelledIf* cancel,
                                         const std::string& host)
    : hostName(host),
      auth(credentials),
      address(addr),
      cancelled(cancel),
      exportMount(mountVersion, cancel),
      nfsVersion(version) {}

long NFSBrowseImplCommon::Init(eUseProtocol protocol) {
    long rc = exportMount.Init(address, hostName, auth.get());
    if (rc < 0) return rc;

    RPCClient* client = nullptr;
    if (protocol == eUseUDP) {
        rc = CreateRPCClient(client, address, kNFSProgram, nfsVersion, RPCClient::PROTOCOL_UDP);
    } else {
        rc = CreateRPCClient(client, address, kNFSProgram, nfsVersion, RPCClient::PROTOCOL_TCP);
        if (rc != KX_OK && protocol == eUseTCPThenUDP)
            rc = CreateRPCClient(client, address, kNFSProgram, nfsVersion,
                                 RPCClient::PROTOCOL_UDP);
    }
    if (rc != KX_OK) return rc;
    nfsClient.reset(client);
    localName = kxSysInfo::GetComputerNameA();
    nfsClient->SetAuth(auth->Handle());
    return KX_OK;
}

bool NFSBrowseImplCommon::Verify() {
    char dummy = 0;
    if (!nfsClient || nfsproc3_null_3(nullptr, &dummy, nfsClient->Handle()) != RPC_SUCCESS)
        return false;
    if (lockClient) {
        timeval limit{2, 0};
        // xdr_void is declared without parameters; the detour through void(*)() says the
        // cast to the XDR routine type is meant.
        const auto none = reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(xdr_void));
        if (clnt_call(lockClient->Handle(), 0, none, nullptr, none, nullptr, limit) != RPC_SUCCESS)
            return false;
    }
    RPCClient* mount = exportMount.Client();
    return mount != nullptr && mountproc_null_1(nullptr, &dummy, mount->Handle()) == RPC_SUCCESS;
}

bool NFSBrowseImplCommon::FindMountPoint(const std::string& path, ExportInfo& info) {
    bool found = false;
    for (const std::string& e : exportMount.Paths()) {
        const bool match = path.compare(0, e.size(), e) == 0 &&
                           (path.size() == e.size() || path[e.size()] == '/' || e == "/");
        if (!match) continue;
        ExportInfo& candidate = exportMount.MountHandle(e);
        if (candidate.type == kDirEntryDirectory && e.size() > info.serverPath.size()) {
            info = candidate;
            found = true;
        }
    }
    if (!found) {
        // Not asked for by callers, but it tells them why nothing came back.
        lastError = KX_E_NFS_NO_EXPORT;
        return false;
    }
    const long rc = FillExportInfo(nfsClient->Handle(), info, false, hostName);
    if (rc < 0) {
        lastError = rc;
        return false;
    }
    return true;
}

}  // namespace kxNFSUtils
