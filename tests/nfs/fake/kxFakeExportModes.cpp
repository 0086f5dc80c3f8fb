// Export discovery modes: a MOUNT service whose list holds "/" and an export it refuses, and an
// NFS service whose file-system figures differ per export root (kxFakeExport.h).
//
//   hostilenames  for the command-line client's tests: MOUNT whose EXPORT lists exports whose names
//   hold terminal controls, a line
//                 end, a UTF-8 C1 control and a Latin-1 byte, and whose MNT refuses every
//                 export (MNT3ERR_ACCES); NULL and UMNT answer
#include <cstring>
#include <string>

#include "kxFakeExport.h"
#include "kxFakePeer.h"
#include "xdr/mount_prot.h"
#include "xdr/nfs3_prot.h"

namespace {

using kxfake::Call;
using kxfake::Proc;

const std::vector<const char*> kExports = {"/", "/export", "/refused"};

const std::vector<const char*> kHostileNames = {
    "/export/red\x1b[31mtext",
    "/export/two\nlines",
    "/export/csi\xc2\x9b"
    "2J",
    "/export/caf\xe9",
};

bool Mnt(const Call& call, bool refuseAll, std::vector<char>& out) {
    kxfake::Args<char*> path(call, xdr_dirpath);
    if (!path.ok) return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    std::string handle = std::string("MNT") + path.value;
    const bool refused = refuseAll || strcmp(path.value, "/refused") == 0;
    mountres3 res{};
    int flavor = AUTH_UNIX;
    if (refused) {
        res.fhs_status = MNT3ERR_ACCES;
    } else {
        res.fhs_status = MNT3_OK;
        mountres3_ok& ok = res.mountres3_u.mountinfo;
        ok.fhandle.fhandle3_len = static_cast<u_int>(handle.size());
        ok.fhandle.fhandle3_val = &handle[0];
        ok.auth_flavors.auth_flavors_len = 1;
        ok.auth_flavors.auth_flavors_val = &flavor;
    }
    return kxfake::AcceptWith(call, Proc(xdr_mountres3), &res, out);
}

template <const std::vector<const char*>* exports>
bool Mount(const Call& call, std::vector<char>& out) {
    switch (call.procedure) {
        case MOUNTPROC3_NULL:
        case MOUNTPROC3_UMNT:
            return kxfake::AcceptWith(call, nullptr, nullptr, out);
        case MOUNTPROC3_MNT:
            return Mnt(call, exports == &kHostileNames, out);
        case MOUNTPROC3_EXPORT:
            return kxfake::AcceptWith(call, Proc(kxfake::EncodeExportNames), exports, out);
        default:
            return kxfake::AcceptStatus(call, PROC_UNAVAIL, out);
    }
}

// The figures of the root whose handle the call carries (every FSSTAT, FSINFO and PATHCONF
// argument is one handle); null for an unknown handle.
const kxfake::FakeFsFigures* FiguresFor(const Call& call) {
    kxfake::Args<nfs_fh3> fh(call, xdr_nfs_fh3);
    if (!fh.ok) return nullptr;
    const std::string handle(fh.value.data.data_val, fh.value.data.data_len);
    if (handle == "MNT/") return &kxfake::kFakeRootFigures;
    if (handle == "MNT/export") return &kxfake::kFakeExportFigures;
    return nullptr;
}

bool NfsFigures(const Call& call, std::vector<char>& out) {
    switch (call.procedure) {
        case NFSPROC3_FSSTAT:
        case NFSPROC3_FSINFO:
        case NFSPROC3_PATHCONF:
            if (const kxfake::FakeFsFigures* f = FiguresFor(call))
                return kxfake::AnswerFigures(call, *f, out);
            return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
        default:
            return kxfake::FindMode("nfs")(call, out);
    }
}

}  // namespace

bool kxfake::AnswerFigures(const Call& call, const FakeFsFigures& f, std::vector<char>& out) {
    if (call.procedure == NFSPROC3_FSSTAT) {
        fsstat3res res{};
        fsstat3resok& ok = res.fsstat3res_u.resok;
        ok.tbytes = f.totalBytes;
        ok.fbytes = f.freeBytes;
        ok.abytes = f.availableBytes;
        return kxfake::AcceptWith(call, Proc(xdr_fsstat3res), &res, out);
    }
    if (call.procedure == NFSPROC3_FSINFO) {
        fsinfo3res res{};
        fsinfo3resok& ok = res.fsinfo3res_u.resok;
        ok.rtmax = f.rtmax;
        ok.rtpref = f.rtpref;
        ok.rtmult = f.rtmult;
        ok.wtmax = f.wtmax;
        ok.wtpref = f.wtpref;
        ok.wtmult = f.wtmult;
        ok.dtpref = 8192;
        ok.maxfilesize = ~0ull;
        ok.time_delta = {f.deltaSeconds, f.deltaNanoseconds};
        ok.properties = f.properties;
        return kxfake::AcceptWith(call, Proc(xdr_fsinfo3res), &res, out);
    }
    pathconf3res res{};
    pathconf3resok& ok = res.pathconf3res_u.resok;
    ok.linkmax = 32000;
    ok.name_max = f.nameMax;
    ok.no_trunc = TRUE;
    ok.chown_restricted = f.chownRestricted;
    ok.case_insensitive = f.caseInsensitive;
    ok.case_preserving = f.casePreserving;
    return kxfake::AcceptWith(call, Proc(xdr_pathconf3res), &res, out);
}

KX_FAKE_MODE("mountroot", Mount<&kExports>);
KX_FAKE_MODE("hostilenames", Mount<&kHostileNames>);
KX_FAKE_MODE("nfsfigures", NfsFigures);
