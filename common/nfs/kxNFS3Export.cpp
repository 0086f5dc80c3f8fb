#include "nfs/kxNFS3Export.h"

#include <algorithm>
#include <cstring>

#include "nfs/kxNFS3Call.h"
#include "nfs/kxNFSErrorMap.h"
#include "xdr/nfs3_prot.h"

namespace kxNFSUtils {


long LookupEntry3(CLIENT* client, ExportInfo& info, char* name, const std::string& host) {
    diropargs3 args;
    args.dir = WireHandle(info);
    args.name = name;
    return Call3<lookup3res>(client, nfsproc3_lookup_3, &args, xdr_lookup3res,
        [&](clnt_stat rpc, lookup3res& res) -> long {
            if (rpc == RPC_SUCCESS && res.status == NFS3_OK) {
                const post_op_attr& attrs = res.lookup3res_u.resok.obj_attributes;
                if (attrs.attributes_follow) FAttr3ToDirEntry(attrs.post_op_attr_u.attributes, info);
                return KX_OK;
            }
            info.type = kDirEntryInvalid;
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_lookup_3 (status %d, err 0x%8.8X)", Detail(host, info.serverPath));
        });
}

namespace {

long FSStat3(CLIENT* client, ExportInfo& info, const std::string& host) {
    nfs_fh3 fh = WireHandle(info);
    return Call3<fsstat3res>(client, nfsproc3_fsstat_3, &fh, xdr_fsstat3res,
        [&](clnt_stat rpc, fsstat3res& res) -> long {
            if (rpc == RPC_SUCCESS && res.status == NFS3_OK) {
                const fsstat3resok& ok = res.fsstat3res_u.resok;
                info.totalBytes = ok.tbytes;
                info.freeBytes = ok.fbytes;
                info.availableBytes = ok.abytes;
                return KX_OK;
            }
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_fsstat_3 (status %d, err 0x%8.8X)", Detail(host, info.serverPath));
        });
}

}  // namespace

long FSInfo3(CLIENT* client, ExportInfo& info, const std::string& host) {
    info.unitSize = 1024;
    nfs_fh3 fh = WireHandle(info);
    return Call3<fsinfo3res>(client, nfsproc3_fsinfo_3, &fh, xdr_fsinfo3res,
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
                                  "nfsproc3_fsinfo_3 (status %d, err 0x%8.8X)", Detail(host, info.serverPath));
        });
}

long PathConf3(CLIENT* client, ExportInfo& info, const std::string& host) {
    nfs_fh3 fh = WireHandle(info);
    return Call3<pathconf3res>(client, nfsproc3_pathconf_3, &fh, xdr_pathconf3res,
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
                                  Detail(host, info.serverPath));
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
