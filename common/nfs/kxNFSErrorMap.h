// Error translation: the one place where the statuses of a Sun RPC exchange (the transport
// status of the call and the protocol status in the reply) become the library's status codes
// (nfs/kxNFSStatus.h), each failure with one log line.
//
// The tables are filled before main and only read afterwards, so any thread may translate at
// any time without a lock. Translation never fails and never inserts.
#pragma once

#include <rpc/rpc.h>

#include <map>
#include <string>

#include "base/kxLog.h"
#include "nfs/kxNFSStatus.h"
#include "xdr/mount_prot.h"
#include "xdr/nfs3_prot.h"
#include "xdr/nlm4_prot.h"
#include "xdr/nlm_prot.h"

namespace kxNFSUtils {

// Status-to-code table with a default for every status it does not list.
// One virtual operation and no virtual destructor: instances are the process-wide tables
// below and are never deleted through a base pointer.
template <typename T>
class ErrorMap {
public:
    // The stored code for status, or the default when the table has no entry for it.
    virtual long TranslateError(T status) const {
        const auto it = map.find(status);
        return it == map.end() ? defaultCode : it->second;
    }
    long Default() const { return defaultCode; }
    size_t Size() const { return map.size(); }

protected:
    explicit ErrorMap(long code) : defaultCode(code) {}
    ~ErrorMap() = default;
    ErrorMap(const ErrorMap&) = delete;
    ErrorMap& operator=(const ErrorMap&) = delete;

    long defaultCode;
    std::map<T, long> map;
};

// Transport statuses. RPC_CANTRECV has no entry on purpose (it yields the default, and no
// status yields 0xE0030305): do not fill the gap.
class RPCErrorMap final : public ErrorMap<clnt_stat> {
public:
    RPCErrorMap();
};

// NFS version 3 statuses. NOTDIR and ISDIR share one code on purpose.
class NFSErrorMap final : public ErrorMap<nfsstat3> {
public:
    NFSErrorMap();
};

// MOUNT version 3 statuses, with the NFS codes for the statuses the two protocols share.
class Mount3ErrorMap final : public ErrorMap<mountstat3> {
public:
    Mount3ErrorMap();
};

// Lock-manager statuses.
class NLMErrorMap final : public ErrorMap<nlm_stats> {
public:
    NLMErrorMap();
};

// Lock-manager statuses of protocol version 4: the statuses it shares with version 1 get the
// same codes, so a caller cannot tell which version answered. Of the statuses version 4 added,
// a stale handle and a read-only file system get the file-system codes that say so; the others
// (deadlock, too big, failed) get the default, as an unlisted version-1 status does.
class NLM4ErrorMap final : public ErrorMap<nlm4_stats> {
public:
    NLM4ErrorMap();
};

// System error numbers: every value translates to 0 and the table stays empty. Intended: its
// one user (the browse factory) reports the system error in its own message.
class DWORDErrorMap final : public ErrorMap<unsigned long> {
public:
    DWORDErrorMap() : ErrorMap<unsigned long>(0) {}
    long TranslateError(unsigned long) const override { return 0; }
};

extern DWORDErrorMap g_DWORDErrorMap;
extern NLMErrorMap g_NLMErrorMap;
extern NLM4ErrorMap g_NLM4ErrorMap;
extern Mount3ErrorMap g_Mount3ErrorMap;
extern NFSErrorMap g_NFSErrorMap;
extern RPCErrorMap g_RPCErrorMap;

// Copies text into out with every '%' doubled, so it reads as itself inside a printf format.
std::string EscapePercent(const std::string& text);

// Translates one failed exchange and logs it. The code is the transport status's entry in
// g_RPCErrorMap when rpcStatus is not RPC_SUCCESS (the protocol status is then not looked at),
// else the map's translation of status when it is not OK, else KX_E_NFS_NO_STATUS.
// The log line has the code, severity 2, and the text `format` (which takes the protocol status
// as %d and the transport status as %X, in that order) followed, when detail is not empty, by
// one blank and detail. A '%' in detail is written as itself.
template <typename T, T OK>
long TranslateError(const ErrorMap<T>& map, clnt_stat rpcStatus, T status,
                    const std::string& format, const std::string& detail) {
    long code = KX_E_NFS_NO_STATUS;
    std::string text = format;
    if (!detail.empty()) {
        text += ' ';
        text += EscapePercent(detail);
    }
    if (rpcStatus != RPC_SUCCESS)
        code = g_RPCErrorMap.TranslateError(rpcStatus);
    else if (status != OK)
        code = map.TranslateError(status);
    kxLogPrintfA(code, kxLogSevWarning, text.c_str(), static_cast<int>(status),
                 static_cast<unsigned>(rpcStatus));
    return code;
}

// The instantiations the client uses.
inline long TranslateError(const ErrorMap<nfsstat3>& map, clnt_stat rpc, nfsstat3 status,
                           const std::string& format, const std::string& detail) {
    return TranslateError<nfsstat3, NFS3_OK>(map, rpc, status, format, detail);
}
inline long TranslateError(const ErrorMap<mountstat3>& map, clnt_stat rpc, mountstat3 status,
                           const std::string& format, const std::string& detail) {
    return TranslateError<mountstat3, MNT3_OK>(map, rpc, status, format, detail);
}
inline long TranslateError(const ErrorMap<nlm_stats>& map, clnt_stat rpc, nlm_stats status,
                           const std::string& format, const std::string& detail) {
    return TranslateError<nlm_stats, nlm_granted>(map, rpc, status, format, detail);
}
inline long TranslateError(const ErrorMap<nlm4_stats>& map, clnt_stat rpc, nlm4_stats status,
                           const std::string& format, const std::string& detail) {
    return TranslateError<nlm4_stats, NLM4_GRANTED>(map, rpc, status, format, detail);
}
inline long TranslateError(const ErrorMap<unsigned long>& map, clnt_stat rpc,
                           unsigned long status, const std::string& format,
                           const std::string& detail) {
    return TranslateError<unsigned long, 0ul>(map, rpc, status, format, detail);
}

}  // namespace kxNFSUtils
