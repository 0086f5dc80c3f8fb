#include "nfs/kxNFSStatusText.h"

#include "nfs/kxNFSStatus.h"
#include "platform/kxNetUtils.h"

namespace kxNFSUtils {

namespace {

struct StatusText {
    long status;
    const char* text;
};

// Codes several protocol statuses share keep a text that covers all of them (NOTDIR and ISDIR
// both become KX_E_NFS_WRONG_TYPE, say); callers that know more may say more.
constexpr StatusText kTexts[] = {
    {KX_OK, "success"},
    {KX_E_NFS_NO_EXPORT, "no export of the server holds this path"},
    {KX_E_NFS_FAILED, "the server failed (input/output error, no space, or another cause)"},
    {KX_E_NFS_PERM, "operation not permitted"},
    {KX_E_NFS_ACCESS, "permission denied"},
    {KX_E_NFS_NOENT, "no such file or directory"},
    {KX_E_NFS_NAME_TOO_LONG, "name too long"},
    {KX_E_NFS_NOT_EMPTY, "directory not empty"},
    {KX_E_NFS_WRONG_TYPE, "wrong type: not a directory, or a directory"},
    {KX_E_NFS_STALE, "stale file handle: the object is gone from the server"},
    {KX_E_NFS_BAD_TYPE, "object type not supported by the server"},
    {KX_E_NFS_SERVER_FAULT, "server fault"},
    {KX_E_NFS_READ_ONLY, "read-only file system"},
    {KX_E_NFS_BAD_HANDLE, "bad file handle"},
    {KX_E_NFS_EXISTS, "file exists"},
    {KX_E_NFS_NO_STATUS, "failed without a status"},
    {KX_E_NFS_NO_NAME, "the path has no name part"},
    {KX_E_RPC_FAILED, "no answer (connection lost or refused)"},
    {KX_E_RPC_AUTH, "credentials refused"},
    {KX_E_RPC_CANT_ENCODE, "request could not be encoded"},
    {KX_E_RPC_CANT_DECODE, "reply could not be decoded"},
    {KX_E_RPC_CANT_SEND, "request could not be sent"},
    {KX_E_RPC_TIMED_OUT, "timed out"},
    {KX_E_RPC_VERSION_MISMATCH, "protocol version not supported by the server"},
    {KX_E_RPC_PROG_UNAVAILABLE, "service not offered by the server"},
    {KX_E_RPC_PROC_UNAVAILABLE, "procedure not offered by the server"},
    {KX_E_RPC_UNKNOWN_HOST, "unknown host"},
    {KX_E_RPC_UNKNOWN_PROTOCOL, "unknown transport protocol"},
    {KX_E_RPC_PORTMAPPER, "the port mapper failed"},
    {KX_E_RPC_SYSTEM, "system error in the RPC layer"},
    {KX_E_NLM_FAILED, "the lock manager failed"},
    {KX_E_NLM_DENIED, "lock denied: another client holds a conflicting lock"},
    {KX_E_NLM_NO_LOCKS, "the server is out of locks"},
    {KX_E_NLM_BLOCKED, "lock blocked"},
    {KX_E_NLM_GRACE_PERIOD, "the lock manager is in its grace period after a restart"},
    {KX_E_BAD_NAME, "name too long for a find-data record"},
    {KX_E_NFS_NO_PORTMAPPER, "the server's port mapper does not answer"},
    {KX_E_NFS_CANCELLED, "cancelled"},
    {KX_E_HOST_NOT_FOUND, "unknown host"},
    {KX_S_WAIT_TIMEOUT, "timed out"},
    {KX_E_BAD_ARGUMENT, "invalid argument"},
    {KX_E_REFUSED, "refused"},
    {KX_E_NOT_INITIALISED, "not initialised"},
    {KX_E_OUT_OF_MEMORY, "out of memory"},
    {KX_E_UNHANDLED_EXCEPTION, "unhandled exception"},
};

}  // namespace

const char* kxNFSStatusText(long status) {
    for (const StatusText& t : kTexts)
        if (kxStatusBits(t.status) == kxStatusBits(status)) return t.text;
    return "unknown status";
}

}  // namespace kxNFSUtils
