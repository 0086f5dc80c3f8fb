// NFS version 3 modes (program 100003) for the pipelined transfer: READ and WRITE only (NULL
// answers, everything else PROC_UNAVAIL), on a file of Count() bytes whose byte i is
// FakeFileByte(i) (fake/kxFakeNfs.h).
//
//   nfsstall     READ and WRITE below offset 8192 answer (WRITE takes every byte); from 8192
//                on the server stops answering: requests are taken and never replied to.
//   nfsoverread  READ answers with 100 bytes more than asked for, count and data alike, past
//                the end of the file too; WRITE claims 100 bytes more than it was sent.
#include <cstring>
#include <vector>

#include "kxFakeNfs.h"
#include "kxFakePeer.h"
#include "xdr/nfs3_prot.h"

namespace {

using kxfake::Call;
using kxfake::Proc;

bool Read(const Call& call, uint32_t extra, std::vector<char>& out) {
    read3args args;
    memset(&args, 0, sizeof args);
    if (!call.DecodeArgs(Proc(xdr_read3args), &args))
        return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    call.FreeArgs(Proc(xdr_read3args), &args);
    const uint64_t size = static_cast<uint64_t>(kxfake::Count());
    uint64_t n = args.offset < size ? size - args.offset : 0;
    if (n > args.count) n = args.count;
    n += extra;
    std::vector<char> data(n);
    for (uint64_t i = 0; i < n; ++i) data[i] = kxfake::FakeFileByte(args.offset + i);
    read3res res;
    memset(&res, 0, sizeof res);
    res.status = NFS3_OK;
    read3resok& ok = res.read3res_u.resok;
    ok.count = static_cast<count3>(n);
    ok.eof = args.offset + n >= size;
    ok.data.data_len = static_cast<u_int>(n);
    ok.data.data_val = data.data();
    return kxfake::AcceptWith(call, Proc(xdr_read3res), &res, out);
}

bool Write(const Call& call, uint32_t extra, std::vector<char>& out) {
    write3args args;
    memset(&args, 0, sizeof args);
    if (!call.DecodeArgs(Proc(xdr_write3args), &args))
        return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    const count3 count = args.count;
    call.FreeArgs(Proc(xdr_write3args), &args);
    write3res res;
    memset(&res, 0, sizeof res);
    res.status = NFS3_OK;
    write3resok& ok = res.write3res_u.resok;
    ok.count = count + extra;
    ok.committed = UNSTABLE;
    memcpy(ok.verf, "WRITEVRF", NFS3_WRITEVERFSIZE);
    return kxfake::AcceptWith(call, Proc(xdr_write3res), &res, out);
}

// The offset of a READ or WRITE (both start with the handle and the offset).
uint64_t Offset(const Call& call) {
    read3args args;
    memset(&args, 0, sizeof args);
    if (!call.DecodeArgs(Proc(xdr_read3args), &args)) return 0;
    const uint64_t offset = args.offset;
    call.FreeArgs(Proc(xdr_read3args), &args);
    return offset;
}

bool Answer(const Call& call, uint32_t extra, std::vector<char>& out) {
    switch (call.procedure) {
    case 0: return kxfake::AcceptWith(call, nullptr, nullptr, out);
    case 6: return Read(call, extra, out);
    case 7: return Write(call, extra, out);
    default: return kxfake::AcceptStatus(call, PROC_UNAVAIL, out);
    }
}

bool Stall(const Call& call, std::vector<char>& out) {
    if ((call.procedure == 6 || call.procedure == 7) && Offset(call) >= 8192) return false;
    return Answer(call, 0, out);
}

bool OverRead(const Call& call, std::vector<char>& out) { return Answer(call, 100, out); }

}  // namespace

KX_FAKE_MODE("nfsstall", Stall);
KX_FAKE_MODE("nfsoverread", OverRead);
