// The browse factory: credentials, connections and the export list, or one translated code.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <new>

#include "nfs/NFSBrowseImpl3.h"
#include "nfs/kxNFSErrorMap.h"
#include "platform/kxNetUtils.h"

namespace kxNFSUtils {

long CreateNFSBrowse(NFSBrowse*& out, unsigned long address, int uid,
                     const std::vector<int>& gids, CancelledIf* cancelled, eUseProtocol protocol,
                     const std::string& hostName) {
    out = nullptr;
    // Clear what an earlier failure in this thread left, so the record below describes only
    // this attempt (the status too: a stale one would be reported for a failure that made no
    // client at all).
    rpc_createerr.cf_stat = RPC_SUCCESS;
    rpc_createerr.cf_error.re_errno = 0;

    RPCAuth* auth = nullptr;
    long rc = CreateRPCAuth(auth, uid, gids);
    if (rc < 0) return rc;

    auto* browse = new (std::nothrow) NFSBrowseImpl3(address, auth, 3, 3, cancelled, hostName);
    if (browse == nullptr) {
        delete auth;
        return KX_E_OUT_OF_MEMORY;
    }
    const long initResult = browse->Init(protocol);
    if (initResult == KX_OK) {
        out = browse;
        return KX_OK;
    }
    delete browse;

    std::string detail = hostName;
    if (detail.empty()) {
        in_addr a;
        a.s_addr = static_cast<in_addr_t>(address);
        detail = inet_ntoa(a);
    }
    const clnt_stat created = rpc_createerr.cf_stat;
    clnt_stat status = created;
    if (created == RPC_PMAPFAILURE) status = rpc_createerr.cf_error.re_status;
    rc = TranslateError(g_DWORDErrorMap, status,
                        static_cast<unsigned long>(rpc_createerr.cf_error.re_errno),
                        "CreateNFSBrowse failed (system err 0x%8.8x, RPC status %d)", detail);
    if (created == RPC_PMAPFAILURE && status == RPC_CANTRECV) rc = KX_E_NFS_NO_PORTMAPPER;
    // Every connection was made but a later step failed (the export list): the translation
    // has nothing to go on and would report success, so the step's own code is returned.
    if (created == RPC_SUCCESS) rc = initResult;
    return rc;
}

long CreateNFSBrowse(NFSBrowse*& out, const std::string& host, int uid,
                     const std::vector<int>& gids, CancelledIf* cancelled, eUseProtocol protocol) {
    unsigned long address = 0;
    const long rc = kxNetUtils::GetHostIPAddress(host.c_str(), address, false);
    if (rc < 0) {
        out = nullptr;
        return rc;
    }
    return CreateNFSBrowse(out, address, uid, gids, cancelled, protocol, host);
}

}  // namespace kxNFSUtils
