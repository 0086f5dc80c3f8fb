#include "nfs/kxNFSErrorMap.h"

namespace kxNFSUtils {

RPCErrorMap::RPCErrorMap() : ErrorMap<clnt_stat>(KX_E_RPC_FAILED) {
    map = {
        {RPC_CANTENCODEARGS, KX_E_RPC_CANT_ENCODE},
        {RPC_CANTDECODERES, KX_E_RPC_CANT_DECODE},
        {RPC_CANTSEND, KX_E_RPC_CANT_SEND},
        {RPC_TIMEDOUT, KX_E_RPC_TIMED_OUT},
        {RPC_VERSMISMATCH, KX_E_RPC_VERSION_MISMATCH},
        {RPC_AUTHERROR, KX_E_RPC_AUTH},
        {RPC_PROGUNAVAIL, KX_E_RPC_PROG_UNAVAILABLE},
        {RPC_PROGVERSMISMATCH, KX_E_RPC_VERSION_MISMATCH},
        {RPC_PROCUNAVAIL, KX_E_RPC_PROC_UNAVAILABLE},
        {RPC_CANTDECODEARGS, KX_E_RPC_SYSTEM},
        {RPC_SYSTEMERROR, KX_E_RPC_SYSTEM},
        {RPC_UNKNOWNHOST, KX_E_RPC_UNKNOWN_HOST},
        {RPC_PMAPFAILURE, KX_E_RPC_PORTMAPPER},
        {RPC_PROGNOTREGISTERED, KX_E_RPC_PROG_UNAVAILABLE},
        {RPC_UNKNOWNPROTO, KX_E_RPC_UNKNOWN_PROTOCOL},
    };
}

NFSErrorMap::NFSErrorMap() : ErrorMap<nfsstat3>(KX_E_NFS_FAILED) {
    map = {
        {NFS3ERR_PERM, KX_E_NFS_PERM},
        {NFS3ERR_NOENT, KX_E_NFS_NOENT},
        {NFS3ERR_ACCES, KX_E_NFS_ACCESS},
        {NFS3ERR_EXIST, KX_E_NFS_EXISTS},
        {NFS3ERR_NOTDIR, KX_E_NFS_WRONG_TYPE},
        {NFS3ERR_ISDIR, KX_E_NFS_WRONG_TYPE},
        {NFS3ERR_ROFS, KX_E_NFS_READ_ONLY},
        {NFS3ERR_NAMETOOLONG, KX_E_NFS_NAME_TOO_LONG},
        {NFS3ERR_NOTEMPTY, KX_E_NFS_NOT_EMPTY},
        {NFS3ERR_STALE, KX_E_NFS_STALE},
        {NFS3ERR_BADHANDLE, KX_E_NFS_BAD_HANDLE},
        {NFS3ERR_SERVERFAULT, KX_E_NFS_SERVER_FAULT},
        {NFS3ERR_BADTYPE, KX_E_NFS_BAD_TYPE},
    };
}

Mount3ErrorMap::Mount3ErrorMap() : ErrorMap<mountstat3>(KX_E_NFS_FAILED) {
    map = {
        {MNT3ERR_PERM, KX_E_NFS_PERM},
        {MNT3ERR_NOENT, KX_E_NFS_NOENT},
        {MNT3ERR_ACCES, KX_E_NFS_ACCESS},
        {MNT3ERR_NOTDIR, KX_E_NFS_WRONG_TYPE},
        {MNT3ERR_NAMETOOLONG, KX_E_NFS_NAME_TOO_LONG},
        {MNT3ERR_SERVERFAULT, KX_E_NFS_SERVER_FAULT},
    };
}

NLMErrorMap::NLMErrorMap() : ErrorMap<nlm_stats>(KX_E_NLM_FAILED) {
    map = {
        {nlm_denied, KX_E_NLM_DENIED},
        {nlm_denied_nolocks, KX_E_NLM_NO_LOCKS},
        {nlm_blocked, KX_E_NLM_BLOCKED},
        {nlm_denied_grace_period, KX_E_NLM_GRACE_PERIOD},
    };
}

NLM4ErrorMap::NLM4ErrorMap() : ErrorMap<nlm4_stats>(KX_E_NLM_FAILED) {
    map = {
        {NLM4_DENIED, KX_E_NLM_DENIED},
        {NLM4_DENIED_NOLOCKS, KX_E_NLM_NO_LOCKS},
        {NLM4_BLOCKED, KX_E_NLM_BLOCKED},
        {NLM4_DENIED_GRACE_PERIOD, KX_E_NLM_GRACE_PERIOD},
        {NLM4_ROFS, KX_E_NFS_READ_ONLY},
        {NLM4_STALE_FH, KX_E_NFS_STALE},
    };
}

// Definition order is construction order within this file: the tables are built in this
// order before main and destroyed in reverse at exit.
DWORDErrorMap g_DWORDErrorMap;
NLMErrorMap g_NLMErrorMap;
NLM4ErrorMap g_NLM4ErrorMap;
Mount3ErrorMap g_Mount3ErrorMap;
NFSErrorMap g_NFSErrorMap;
RPCErrorMap g_RPCErrorMap;

std::string EscapePercent(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        out += c;
        if (c == '%') out += '%';
    }
    return out;
}

}  // namespace kxNFSUtils
