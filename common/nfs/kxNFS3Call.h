// Internal helpers of the NFS version 3 operations: one remote call with its result released
// whatever happens, and the file handle of a DirEntry in wire form.
//
// Internal to the NFS client; not installed for callers' use.
#pragma once

#include <rpc/rpc.h>

#include <cstring>
#include <string>

#include "nfs/DirEntry.h"
#include "xdr/nfs3_prot.h"

namespace kxNFSUtils {

// The entry's handle as the stubs take it. The result points into `entry`: it lives as long
// as the entry and is never written through (the stubs only encode it).
inline nfs_fh3 WireHandle(const DirEntry& entry) {
    nfs_fh3 fh;
    fh.data.data_len = entry.handleLength <= kDirEntryHandleSize ? entry.handleLength : 0;
    fh.data.data_val = reinterpret_cast<char*>(const_cast<uint8_t*>(entry.handle));
    return fh;
}

// Copies a handle from a reply into entry; a handle longer than the entry can hold (a server
// may send up to 64 bytes, our buffer holds 128, a hostile one sends anything) leaves a
// zero-length handle, so no later call sends a truncated one.
inline void CopyHandle(const nfs_fh3& fh, DirEntry& entry) {
    const u_int length = fh.data.data_len <= kDirEntryHandleSize ? fh.data.data_len : 0;
    if (length != 0) memcpy(entry.handle, fh.data.data_val, length);
    entry.handleLength = length;
}

// Runs stub(args, &res, client) on a zeroed result, hands the transport status and the result
// to use, and releases the result with its XDR routine afterwards, on success and failure
// alike. Returns what use returns.
template <typename Res, typename Args, typename Stub, typename Use>
auto Call3(CLIENT* client, Stub stub, Args* args, bool_t (*freeRes)(XDR*, Res*), Use use) {
    Res res;
    memset(&res, 0, sizeof res);
    const clnt_stat rpc = stub(args, &res, client);
    auto result = use(rpc, res);
    clnt_freeres(client, reinterpret_cast<xdrproc_t>(freeRes), reinterpret_cast<char*>(&res));
    return result;
}

// host ":" path, the detail of every log line about a server object.
inline std::string Detail(const std::string& host, const std::string& path) {
    return host + ":" + path;
}

}  // namespace kxNFSUtils
