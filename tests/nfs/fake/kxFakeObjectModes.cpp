// An NFS version 3 mode (program 100003) for the object operations: answers that tell the
// test what the client sent, and replies that leave out what the protocol lets a server leave
// out.
//
//   nfsobjects    NULL, FSSTAT and PATHCONF answer as in mode "nfs"; FSINFO prefers reads of
//                 32768 and writes of 16384. Handles are "H:" and the name looked up ("." gives
//                 back the directory's handle). LOOKUP: names starting with "missing" do not exist,
//                 names starting with "d" are directories, names starting with "noattr" come back
//                 without attributes, anything else is a regular file. GETATTR answers a symbolic
//                 link for handles "S:...", a directory for "H:d..." and "C:d...", a regular file
//                 otherwise. SETATTR always succeeds. CREATE and MKDIR give handle "C:"+name with
//                 attributes, but CREATE of a name starting with "nohandle" gives neither, and
//                 MKDIR of a name holding "strict" that sets a size fails with NFS3ERR_INVAL.
//                 SYMLINK gives handle "S:"+name without attributes. ACCESS grants read, modify and
//                 delete of what was asked. Other procedures: PROC_UNAVAIL.
//
// Every answer depends on the call alone, so a request resent over UDP gets the same reply.
#include <cstring>
#include <string>

#include "kxFakeExport.h"
#include "kxFakeNfs.h"
#include "kxFakePeer.h"

namespace {

using kxfake::Args;
using kxfake::Call;
using kxfake::Present;
using kxfake::Proc;

// clang-format off
constexpr kxfake::FakeFsFigures kFigures = {
    65536, 32768, 4096, 65536, 16384, 4096, 0x1B, 0, 0, 255, false, true, false,
    1ull << 40, 1ull << 39, 1ull << 39};
// clang-format on

bool StartsWith(const char* text, const char* prefix) {
    return text != nullptr && strncmp(text, prefix, strlen(prefix)) == 0;
}

fattr3 Attributes(ftype3 type, uint64_t fileid) {
    return kxfake::FakeAttributes(type, 0, fileid);
}

nfs_fh3 Handle(std::string& storage) {
    nfs_fh3 fh;
    fh.data.data_len = static_cast<u_int>(storage.size());
    fh.data.data_val = &storage[0];
    return fh;
}

bool Lookup(const Call& call, std::vector<char>& out) {
    Args<diropargs3> args(call, xdr_diropargs3);
    if (!args.ok) return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    const std::string name = args.value.name != nullptr ? args.value.name : "";
    const nfs_fh3& parent = args.value.dir;
    std::string handle =
        name == "." ? std::string(parent.data.data_val, parent.data.data_len) : "H:" + name;

    lookup3res res{};
    if (StartsWith(name.c_str(), "missing")) {
        res.status = NFS3ERR_NOENT;
        return kxfake::AcceptWith(call, Proc(xdr_lookup3res), &res, out);
    }
    lookup3resok& ok = res.lookup3res_u.resok;
    ok.object = Handle(handle);
    const bool dir = name == "." || StartsWith(name.c_str(), "d");
    if (!StartsWith(name.c_str(), "noattr"))
        ok.obj_attributes = Present(Attributes(dir ? NF3DIR : NF3REG, 100 + name.size()));
    return kxfake::AcceptWith(call, Proc(xdr_lookup3res), &res, out);
}

bool GetAttr(const Call& call, std::vector<char>& out) {
    Args<nfs_fh3> fh(call, xdr_nfs_fh3);
    if (!fh.ok) return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    const std::string handle(fh.value.data.data_val, fh.value.data.data_len);
    ftype3 type = NF3REG;
    if (handle.compare(0, 2, "S:") == 0) type = NF3LNK;
    if (handle.compare(0, 3, "H:d") == 0 || handle.compare(0, 3, "C:d") == 0) type = NF3DIR;
    getattr3res res{};
    res.getattr3res_u.resok.obj_attributes = Attributes(type, 5);
    return kxfake::AcceptWith(call, Proc(xdr_getattr3res), &res, out);
}

// The reply of CREATE, MKDIR and SYMLINK for name.
bool Made(const Call& call, const std::string& name, const std::string& prefix, bool handle,
          bool attributes, ftype3 type, std::vector<char>& out) {
    std::string storage = prefix + name;
    diropres3 res{};
    diropres3ok& ok = res.diropres3_u.resok;
    ok.obj.handle_follows = handle;
    if (handle) ok.obj.post_op_fh3_u.handle = Handle(storage);
    if (attributes) ok.obj_attributes = Present(Attributes(type, 200 + name.size()));
    return kxfake::AcceptWith(call, Proc(xdr_diropres3), &res, out);
}

bool Create(const Call& call, std::vector<char>& out) {
    Args<create3args> args(call, xdr_create3args);
    if (!args.ok) return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    const std::string name = args.value.where.name;
    const bool full = !StartsWith(name.c_str(), "nohandle");
    return Made(call, name, "C:", full, full, NF3REG, out);
}

bool MkDir(const Call& call, std::vector<char>& out) {
    Args<mkdir3args> args(call, xdr_mkdir3args);
    if (!args.ok) return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    const std::string name = args.value.where.name;
    if (args.value.attributes.size.set_it && name.find("strict") != std::string::npos) {
        diropres3 res{};
        res.status = NFS3ERR_INVAL;
        return kxfake::AcceptWith(call, Proc(xdr_diropres3), &res, out);
    }
    return Made(call, name, "C:", true, true, NF3DIR, out);
}

bool SymLink(const Call& call, std::vector<char>& out) {
    Args<symlink3args> args(call, xdr_symlink3args);
    if (!args.ok) return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    return Made(call, args.value.where.name, "S:", true, false, NF3LNK, out);
}

bool SetAttr(const Call& call, std::vector<char>& out) {
    wccstat3 res{};
    return kxfake::AcceptWith(call, Proc(xdr_wccstat3), &res, out);
}

bool Access(const Call& call, std::vector<char>& out) {
    Args<access3args> args(call, xdr_access3args);
    if (!args.ok) return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    const uint32_t asked = args.value.access;
    access3res res{};
    res.access3res_u.resok.access = asked & (ACCESS3_READ | ACCESS3_MODIFY | ACCESS3_DELETE);
    return kxfake::AcceptWith(call, Proc(xdr_access3res), &res, out);
}

bool Objects(const Call& call, std::vector<char>& out) {
    switch (call.procedure) {
        case 1:
            return GetAttr(call, out);
        case 2:
            return SetAttr(call, out);
        case 3:
            return Lookup(call, out);
        case 4:
            return Access(call, out);
        case 8:
            return Create(call, out);
        case 9:
            return MkDir(call, out);
        case 10:
            return SymLink(call, out);
        case 18:
        case 19:
        case 20:
            return kxfake::AnswerFigures(call, kFigures, out);
        case 0:
            return kxfake::AcceptWith(call, nullptr, nullptr, out);
        default:
            return kxfake::AcceptStatus(call, PROC_UNAVAIL, out);
    }
}

}  // namespace

KX_FAKE_MODE("nfsobjects", Objects);
