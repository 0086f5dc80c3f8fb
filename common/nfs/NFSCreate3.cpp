// Making objects: Open's CREATE, CreateObject (CREATE or MKDIR) and CreateSymlink, and the
// entry each new object gets.
#include <cstring>

#include "base/KBuffer.h"
#include "nfs/NFSBrowseImpl3.h"
#include "nfs/kxNFS3Call.h"
#include "nfs/kxNFS3ObjectUtils.h"
#include "nfs/kxNFSErrorMap.h"

namespace kxNFSUtils {

namespace {
const char kCreateObjectLabel[] = "NFSBrowseImpl3::CreateObject (status %d, err 0x%8.8X)";
}

long NFSBrowseImpl3::CreateLeaf(const DirEntry& dir, const std::string& name,
                                const std::string& path, DirEntry& entry) {
    create3args args;
    memset(&args, 0, sizeof args);
    args.where = Where(dir, name);
    args.how.mode = UNCHECKED;
    // Owner and group 0 go out whatever the credentials: kept as it is.
    sattr3& a = args.how.createhow3_u.obj_attributes;
    a.mode.set_it = TRUE;
    a.mode.set_uint32_u.val = 0777;
    a.uid.set_it = TRUE;
    a.uid.set_uint32_u.val = 0;
    a.gid.set_it = TRUE;
    a.gid.set_uint32_u.val = 0;
    a.size.set_it = TRUE;
    a.size.set_uint64_u.val = 0;
    a.atime.set_it = SET_TO_SERVER_TIME;
    a.mtime.set_it = SET_TO_SERVER_TIME;
    return Call3<diropres3>(nfsClient->Handle(), nfsproc3_create_3, &args, xdr_diropres3,
        [&](clnt_stat rpc, diropres3& res) -> long {
            if (rpc == RPC_SUCCESS && res.status == NFS3_OK)
                return AdoptNewObject(dir, name, path, res.diropres3_u.resok, entry);
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_create_3 (status %d, err 0x%8.8X)",
                                  Detail(hostName, path));
        });
}

bool NFSBrowseImpl3::CreateObject(const DirEntry& dir, DirEntry& entry) {
    std::string name;
    long rc = CheckObjectInDir(dir, entry, name);
    if (rc != KX_OK) return Store(rc);

    entry.size = 0;  // sent as the size of directories too
    const std::string path = JoinPath(dir.serverPath, name);
    // Bit 0x02 of the type, not equality with the directory type: types 3, 6 and 7 make
    // directories too. Kept as it is.
    if ((entry.type & 0x02u) != 0) return Store(MakeDirectory(dir, name, path, entry));

    create3args args;
    memset(&args, 0, sizeof args);
    args.where = Where(dir, name);
    args.how.mode = UNCHECKED;
    EntryToSattr3(entry, args.how.createhow3_u.obj_attributes, kSetAll);
    rc = Call3<diropres3>(nfsClient->Handle(), nfsproc3_create_3, &args, xdr_diropres3,
        [&](clnt_stat rpc, diropres3& res) -> long {
            if (rpc == RPC_SUCCESS && res.status == NFS3_OK)
                return AdoptNewObject(dir, name, path, res.diropres3_u.resok, entry);
            return TranslateError(g_NFSErrorMap, rpc, res.status, kCreateObjectLabel,
                                  Detail(hostName, path));
        });
    return Store(rc);
}

long NFSBrowseImpl3::MakeDirectory(const DirEntry& dir, const std::string& name,
                                   const std::string& path, DirEntry& entry) {
    mkdir3args args;
    args.where = Where(dir, name);
    EntryToSattr3(entry, args.attributes, kSetAll);
    auto use = [&](clnt_stat rpc, diropres3& res) -> long {
        if (rpc == RPC_SUCCESS && res.status == NFS3_OK)
            return AdoptNewObject(dir, name, path, res.diropres3_u.resok, entry);
        return TranslateError(g_NFSErrorMap, rpc, res.status, kCreateObjectLabel,
                              Detail(hostName, path));
    };
    constexpr long kSizeRefused = 1;  // never a status
    long rc = Call3<diropres3>(nfsClient->Handle(), nfsproc3_mkdir_3, &args, xdr_diropres3,
        [&](clnt_stat rpc, diropres3& res) -> long {
            if (rpc == RPC_SUCCESS && res.status == NFS3ERR_INVAL) return kSizeRefused;
            return use(rpc, res);
        });
    if (rc != kSizeRefused) return rc;

    // Made or not? A name that existed before would have been refused with NFS3ERR_EXIST.
    DirEntry made;
    rc = LookupName(dir, name, path, true, made);
    if (rc == KX_E_NFS_NOENT) {
        args.attributes.size.set_it = FALSE;
        return Call3<diropres3>(nfsClient->Handle(), nfsproc3_mkdir_3, &args, xdr_diropres3, use);
    }
    if (rc != KX_OK) return rc;
    if (made.type != kDirEntryDirectory)
        return TranslateError(g_NFSErrorMap, RPC_SUCCESS, NFS3ERR_INVAL, kCreateObjectLabel,
                              Detail(hostName, path));
    DirEntry wanted = entry;
    memcpy(wanted.handle, made.handle, sizeof wanted.handle);
    wanted.handleLength = made.handleLength;
    wanted.serverPath = path;
    rc = SetAttr(wanted, kSetAll & ~kSetSize);
    if (rc == KX_OK) rc = FetchAttributes(made);
    if (rc == KX_OK) entry = made;
    return rc;
}

bool NFSBrowseImpl3::CreateSymlink(const DirEntry& dir, DirEntry& entry, const KBuffer& target) {
    std::string name;
    long rc = CheckObjectInDir(dir, entry, name);
    if (rc != KX_OK) return Store(rc);

    std::string text;
    if (const unsigned char* bytes = target.GetPtr()) {
        const char* chars = reinterpret_cast<const char*>(bytes);
        text.assign(chars, strnlen(chars, target.GetBytesUsed()));
    }
    const std::string path = JoinPath(dir.serverPath, name);
    symlink3args args;
    memset(&args, 0, sizeof args);  // no attributes set: the server chooses them
    args.where = Where(dir, name);
    args.symlink.symlink_data = const_cast<char*>(text.c_str());
    rc = Call3<diropres3>(nfsClient->Handle(), nfsproc3_symlink_3, &args, xdr_diropres3,
        [&](clnt_stat rpc, diropres3& res) -> long {
            if (rpc == RPC_SUCCESS && res.status == NFS3_OK)
                return AdoptNewObject(dir, name, path, res.diropres3_u.resok, entry);
            return TranslateError(g_NFSErrorMap, rpc, res.status,
                                  "nfsproc3_symlink_3 (status %d, err 0x%8.8X)",
                                  Detail(hostName, path));
        });
    return Store(rc);
}

long NFSBrowseImpl3::AdoptNewObject(const DirEntry& dir, const std::string& name,
                                    const std::string& path, const diropres3ok& reply,
                                    DirEntry& entry) {
    const post_op_fh3& fh = reply.obj;
    if (!fh.handle_follows || fh.post_op_fh3_u.handle.data.data_len == 0)
        return LookupName(dir, name, path, false, entry);
    DirEntry made;
    made.path = made.serverPath = path;
    made.readPreferred = dir.readPreferred;
    made.writePreferred = dir.writePreferred;
    CopyHandle(fh.post_op_fh3_u.handle, made);
    long rc = KX_OK;
    if (reply.obj_attributes.attributes_follow)
        FAttr3ToDirEntry(reply.obj_attributes.post_op_attr_u.attributes, made);
    else
        rc = FetchAttributes(made);
    if (rc == KX_OK) entry = made;
    return rc;
}

}  // namespace kxNFSUtils
