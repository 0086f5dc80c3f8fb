// The object operations that work on existing objects: remove, rename, hard links, symbolic
// link text, attributes and access (Open and Lookup: NFSOpen3.cpp; making objects:
// NFSCreate3.cpp).
#include <cstring>

#include "base/KBuffer.h"
#include "nfs/NFSBrowseImpl3.h"
#include "nfs/kxNFS3Call.h"
#include "nfs/kxNFS3ObjectUtils.h"
#include "nfs/kxNFSErrorMap.h"

namespace kxNFSUtils {

namespace {

// Bit 0x02 of the type, not equality with the directory type: types 3, 6 and 7 count as
// directories too. Kept as it is.
bool DirectoryBit(const DirEntry& entry) { return (entry.type & 0x02u) != 0; }

bool Succeeded(clnt_stat rpc, nfsstat3 status) { return rpc == RPC_SUCCESS && status == NFS3_OK; }

}  // namespace

bool NFSBrowseImpl3::Store(long rc) {
    if (rc != KX_OK) lastError = rc;
    return rc == KX_OK;
}

bool NFSBrowseImpl3::DeleteObject(const DirEntry& dir, const DirEntry& entry) {
    std::string name;
    long rc = CheckObjectInDir(dir, entry, name);
    if (rc != KX_OK) return Store(rc);

    const bool directory = DirectoryBit(entry);
    diropargs3 args = Where(dir, name);
    rc = Call3<wccstat3>(nfsClient->Handle(), directory ? nfsproc3_rmdir_3 : nfsproc3_remove_3,
                         &args, xdr_wccstat3, [&](clnt_stat rpc, wccstat3& res) -> long {
        if (Succeeded(rpc, res.status)) return KX_OK;
        return TranslateError(g_NFSErrorMap, rpc, res.status,
                              directory ? "nfsproc3_rmdir_3 (status %d, err 0x%8.8X)"
                                        : "nfsproc3_remove_3 (status %d, err 0x%8.8X)",
                              Detail(hostName, JoinPath(dir.serverPath, name)));
    });
    return Store(rc);
}

bool NFSBrowseImpl3::RenameObject(const DirEntry& dir, DirEntry& entry,
                                  const std::string& newName) {
    long rc = CheckEntries({&dir, &entry});
    const std::string oldName = ObjectName(entry.path);
    if (rc == KX_OK) rc = CheckName(oldName, false);
    if (rc == KX_OK) rc = CheckName(newName, false);
    if (rc != KX_OK) return Store(rc);

    entry.serverPath = entry.path;
    rename3args args;
    args.from = Where(dir, oldName);
    args.to = Where(dir, newName);
    rc = Call3<rename3res>(nfsClient->Handle(), nfsproc3_rename_3, &args, xdr_rename3res,
        [&](clnt_stat rpc, rename3res& res) -> long {
            if (Succeeded(rpc, res.status)) return KX_OK;
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_rename_3 (status %d, err 0x%8.8X)",
                                  Detail(hostName, dir.serverPath) + " from " + oldName +
                                      " to " + newName);
        });
    if (rc == KX_OK) entry.serverPath = entry.path = JoinPath(dir.serverPath, newName);
    return Store(rc);
}

bool NFSBrowseImpl3::ReadSymlink(const DirEntry& entry, KBuffer& target) {
    long rc = CheckEntries({&entry});
    if (rc != KX_OK) return Store(rc);
    nfs_fh3 fh = WireHandle(entry);
    rc = Call3<readlink3res>(nfsClient->Handle(), nfsproc3_readlink_3, &fh, xdr_readlink3res,
        [&](clnt_stat rpc, readlink3res& res) -> long {
            if (Succeeded(rpc, res.status)) {
                const char* text = res.readlink3res_u.resok.data;
                const long assigned = target.Assign(text != nullptr ? text : "");
                return assigned != KX_OK && target.AllocationFailed() ? KX_E_OUT_OF_MEMORY
                                                                      : KX_OK;
            }
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_readlink_3 (status %d, err 0x%8.8X)",
                                  Detail(hostName, entry.serverPath));
        });
    return Store(rc);
}

bool NFSBrowseImpl3::Access(const DirEntry& entry, uint32_t& mask) {
    // No failure of Access reaches the last error, not even this one.
    if (CheckEntries({&entry}) != KX_OK) return false;
    access3args args;
    args.object = WireHandle(entry);
    args.access = ACCESS3_READ | ACCESS3_LOOKUP | ACCESS3_MODIFY | ACCESS3_EXTEND |
                  ACCESS3_DELETE | ACCESS3_EXECUTE;
    return Call3<access3res>(nfsClient->Handle(), nfsproc3_access_3, &args, xdr_access3res,
        [&](clnt_stat rpc, access3res& res) -> bool {
            if (Succeeded(rpc, res.status)) {
                mask = res.access3res_u.resok.access;
                return true;
            }
            TranslateError(g_NFSErrorMap, rpc, res.status,
                           "nfsproc3_access_3 (status %d, err 0x%8.8X)",
                           Detail(hostName, entry.serverPath));
            return false;
        });
}

bool NFSBrowseImpl3::MakeLink(const DirEntry& entry, const DirEntry& dir,
                              const std::string& name) {
    long rc = CheckEntries({&entry, &dir});
    if (rc == KX_OK) rc = CheckName(name, false);
    if (rc != KX_OK) return Store(rc);
    link3args args;
    args.file = WireHandle(entry);
    args.link = Where(dir, name);
    rc = Call3<link3res>(nfsClient->Handle(), nfsproc3_link_3, &args, xdr_link3res,
        [&](clnt_stat rpc, link3res& res) -> long {
            if (Succeeded(rpc, res.status)) return KX_OK;
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_link_3 (status %d, err 0x%8.8X)",
                                  Detail(hostName, entry.serverPath) + " to " +
                                      JoinPath(dir.serverPath, name));
        });
    return Store(rc);
}

bool NFSBrowseImpl3::SetAttributes(DirEntry& entry, uint32_t selection) {
    long rc = CheckEntries({&entry});
    if (rc == KX_OK) rc = SetAttr(entry, selection);
    return Store(rc);
}

long NFSBrowseImpl3::SetAttr(const DirEntry& entry, uint32_t selection) {
    setattr3args args;
    memset(&args, 0, sizeof args);
    args.object = WireHandle(entry);
    EntryToSattr3(entry, args.new_attributes, selection);
    args.guard.check = FALSE;
    return Call3<wccstat3>(nfsClient->Handle(), nfsproc3_setattr_3, &args, xdr_wccstat3,
        [&](clnt_stat rpc, wccstat3& res) -> long {
            if (Succeeded(rpc, res.status)) return KX_OK;
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_setattr_3 (status %d, err 0x%8.8X)",
                                  Detail(hostName, entry.serverPath));
        });
}

bool NFSBrowseImpl3::GetAttributes(DirEntry& entry) {
    long rc = CheckEntries({&entry});
    if (rc == KX_OK) rc = FetchAttributes(entry);
    return Store(rc);
}

}  // namespace kxNFSUtils
