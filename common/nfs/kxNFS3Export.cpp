#include "nfs/kxNFS3Export.h"

#include <algorithm>
#include <cstring>

#include "nfs/kxNFSErrorMap.h"
#include "xdr/nfs3_prot.h"

namespace kxNFSUtils {

namespace {

nfs_fh3 RootHandle(ExportInfo& info) {
    nfs_fh3 fh;
    fh.data.data_len = info.handleLength;
    fh.data.data_val = reinterpret_cast<char*>(info.handle);
    return fh;
}

std::string Detail(const std::string& host, const ExportInfo& info) {
    return host + ":" + info.serverPath;
}

// Runs one call whose result is freed with its XDR routine whatever happens.
template <typename Res, typename Stub, typename Use>
long CallAndUse(CLIENT* client, Stub stub, void* args, xdrproc_t freeRes, Use use) {
    Res res;
    memset(&res, 0, sizeof res);
    const clnt_stat rpc = stub(args, &res, client);
    const long rc = use(rpc, res);
    clnt_freeres(client, freeRes, reinterpret_cast<char*>(&res));
    return rc;
}

}  // namespace

long LookupEntry3(CLIENT* client, ExportInfo& info, char* name, const std::string& host) {
    diropargs3 args;
    args.dir = RootHandle(info);
    args.name = name;
    return CallAndUse<lookup3res>(
        client,
        [](void* a, lookup3res* r, CLIENT* c) {
            return nfsproc3_lookup_3(static_cast<diropargs3*>(a), r, c);
        },
        &args, reinterpret_cast<xdrproc_t>(xdr_lookup3res),
        [&](clnt_stat rpc, lookup3res& res) -> long {
            if (rpc == RPC_SUCCESS && res.status == NFS3_OK) {
                const post_op_attr& attrs = res.lookup3res_u.resok.obj_attributes;
                if (attrs.attributes_follow) FAttr3ToDirEntry(attrs.post_op_attr_u.attributes, info);
                return KX_OK;
            }
            info.type = kDirEntryInvalid;
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_lookup_3 (status %d, err 0x%8.8X)", Detail(host, info));
        });
}

namespace {

long FSStat3(CLIENT* client, ExportInfo& info, const std::string& host) {
    nfs_fh3 fh = RootHandle(info);
    return CallAndUse<fsstat3res>(
        client,
        [](void* a, fsstat3res* r, CLIENT* c) {
            return nfsproc3_fsstat_3(static_cast<nfs_fh3*>(a), r, c);
        },
        &fh, reinterpret_cast<xdrproc_t>(xdr_fsstat3res),
        [&](clnt_stat rpc, fsstat3res& res) -> long {
            if (rpc == RPC_SUCCESS && res.status == NFS3_OK) {
                const fsstat3resok& ok = res.fsstat3res_u.resok;
                info.totalBytes = ok.tbytes;
                info.freeBytes = ok.fbytes;
                info.availableBytes = ok.abytes;
                return KX_OK;
            }
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_fsstat_3 (status %d, err 0x%8.8X)", Detail(host, info));
        });
}

}  // namespace

long FSInfo3(CLIENT* client, ExportInfo& info, const std::string& host) {
    info.unitSize = 1024;
    nfs_fh3 fh = RootHandle(info);
    return CallAndUse<fsinfo3res>(
        client,
        [](void* a, fsinfo3res* r, CLIENT* c) {
            return nfsproc3_fsinfo_3(static_cast<nfs_fh3*>(a), r, c);
        },
        &fh, reinterpret_cast<xdrproc_t>(xdr_fsinfo3res),
        [&](clnt_stat rpc, fsinfo3res& res) -> long {
            if (rpc == RPC_SUCCESS && res.status == NFS3_OK) {
                const fsinfo3resok& ok = res.fsinfo3res_u.resok;
                info.readPreferred = ok.rtpref;
                info.writePreferred = ok.wtpref;
                info.timeDelta = static_cast<uint64_t>(ok.time_delta.seconds) * 1000000000ull +
                                 ok.time_delta.nseconds;
                info.maxTransfer = std::min(ok.rtmax, ok.wtmax);
                info.transferMultiple = std::min(ok.rtmult, ok.wtmult);
                info.canSetTime = (ok.properties & FSF3_CANSETTIME) != 0;
                return KX_OK;
            }
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_fsinfo_3 (status %d, err 0x%8.8X)", Detail(host, info));
        });
}

long PathConf3(CLIENT* client, ExportInfo& info, const std::string& host) {
    nfs_fh3 fh = RootHandle(info);
    return CallAndUse<pathconf3res>(
        client,
        [](void* a, pathconf3res* r, CLIENT* c) {
            return nfsproc3_pathconf_3(static_cast<nfs_fh3*>(a), r, c);
        },
        &fh, reinterpret_cast<xdrproc_t>(xdr_pathconf3res),
        [&](clnt_stat rpc, pathconf3res& res) -> long {
            if (rpc == RPC_SUCCESS && res.status == NFS3_OK) {
                const pathconf3resok& ok = res.pathconf3res_u.resok;
                info.nameMax = ok.name_max;
                info.caseInsensitive = ok.case_insensitive != 0;
                info.casePreserving = ok.case_preserving != 0;
                info.chownRestricted = ok.chown_restricted != 0;
                return KX_OK;
            }
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_pathconf_3 (status %d, err 0x%8.8X)",
                                  Detail(host, info));
        });
}

long FillExportInfo(CLIENT* client, ExportInfo& info, bool cancelled, const std::string& host) {
    if (cancelled) return KX_E_NFS_CANCELLED;
    char dot[] = ".";
    long rc = LookupEntry3(client, info, dot, host);
    if (rc == KX_OK) rc = FSStat3(client, info, host);
    if (rc == KX_OK) rc = FSInfo3(client, info, host);
    if (rc == KX_OK) rc = PathConf3(client, info, host);
    return rc;
}

}  // namespace kxNFSUtils
