// Open (a server path resolved from its export's root, one LOOKUP per name), Lookup, and the
// LOOKUP and GETATTR helpers the other object operations share.
#include <new>

#include "nfs/NFSBrowseImpl3.h"
#include "nfs/kxNFS3Call.h"
#include "nfs/kxNFS3ObjectUtils.h"
#include "nfs/kxNFSErrorMap.h"

namespace kxNFSUtils {

DirEntry* NFSBrowseImpl3::Open(const std::string& path, bool create, bool nearest) {
    std::vector<std::string> names;
    std::string clean;
    const long rc = SplitServerPath(path, names, clean);
    if (rc != KX_OK) {
        lastError = rc;
        return nullptr;
    }
    ExportInfo root;
    if (!FindMountPoint(clean, root)) return nullptr;  // it stored why

    // The names below the export; the export path matched a prefix of the clean path, so the
    // rest cannot hold ".." either.
    std::vector<std::string> below;
    std::string rest;
    SplitServerPath(clean.substr(root.serverPath.size()), below, rest);

    DirEntry entry;
    bool whole = true;
    if (below.empty())
        entry = root;
    else
        whole = OpenLeaf(root, below, create, entry);
    if (!whole && !nearest) return nullptr;
    DirEntry* out = new (std::nothrow) DirEntry(entry);
    if (out == nullptr) lastError = KX_E_OUT_OF_MEMORY;
    return out;
}

bool NFSBrowseImpl3::OpenLeaf(const ExportInfo& root, const std::vector<std::string>& names,
                              bool create, DirEntry& entry) {
    entry = root;
    for (size_t i = 0; i < names.size(); ++i) {
        if (cancelled != nullptr && cancelled->Cancelled()) {
            lastError = KX_E_NFS_CANCELLED;
            return false;
        }
        const bool last = i + 1 == names.size();
        const std::string path = JoinPath(entry.serverPath, names[i]);
        DirEntry next;
        long rc = LookupName(entry, names[i], path, last && create, next);
        if (rc == KX_E_NFS_NOENT && last && create) rc = CreateLeaf(entry, names[i], path, next);
        if (rc != KX_OK) {
            lastError = rc;
            return false;
        }
        entry = next;
    }
    return true;
}

bool NFSBrowseImpl3::Lookup(const DirEntry& dir, const std::string& name, DirEntry& entry) {
    long rc = CheckEntries({&dir, &entry});
    if (rc == KX_OK) rc = CheckName(name, true);
    if (rc == KX_OK) rc = LookupName(dir, name, JoinPath(dir.serverPath, name), false, entry);
    return Store(rc);
}

long NFSBrowseImpl3::LookupName(const DirEntry& dir, const std::string& name,
                                const std::string& path, bool quietNoEnt, DirEntry& entry) {
    diropargs3 args;
    args.dir = WireHandle(dir);
    args.name = const_cast<char*>(name.c_str());
    DirEntry found;
    found.path = found.serverPath = path;
    found.readPreferred = dir.readPreferred;
    found.writePreferred = dir.writePreferred;
    bool attributes = false;
    long rc = Call3<lookup3res>(nfsClient->Handle(), nfsproc3_lookup_3, &args, xdr_lookup3res,
        [&](clnt_stat rpc, lookup3res& res) -> long {
            if (rpc == RPC_SUCCESS && res.status == NFS3_OK) {
                CopyHandle(res.lookup3res_u.resok.object, found);
                const post_op_attr& a = res.lookup3res_u.resok.obj_attributes;
                attributes = a.attributes_follow != 0;
                if (attributes) FAttr3ToDirEntry(a.post_op_attr_u.attributes, found);
                return KX_OK;
            }
            if (quietNoEnt && rpc == RPC_SUCCESS && res.status == NFS3ERR_NOENT)
                return KX_E_NFS_NOENT;
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_lookup_3 (status %d, err 0x%8.8X)",
                                  Detail(hostName, path));
        });
    if (rc == KX_OK && !attributes) rc = FetchAttributes(found);
    if (rc == KX_OK) entry = found;
    return rc;
}

long NFSBrowseImpl3::FetchAttributes(DirEntry& entry) {
    nfs_fh3 fh = WireHandle(entry);
    return Call3<getattr3res>(nfsClient->Handle(), nfsproc3_getattr_3, &fh, xdr_getattr3res,
        [&](clnt_stat rpc, getattr3res& res) -> long {
            if (rpc == RPC_SUCCESS && res.status == NFS3_OK) {
                FAttr3ToDirEntry(res.getattr3res_u.resok.obj_attributes, entry);
                return KX_OK;
            }
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_getattr_3 (status %d, err 0x%8.8X)",
                                  Detail(hostName, entry.serverPath));
        });
}

}  // namespace kxNFSUtils
