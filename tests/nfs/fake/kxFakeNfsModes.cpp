// NFS version 3 modes (program 100003): a plausible server holding one export root directory
// with one file in it, plus the faults the transfer and listing code must survive.
//
//   nfs           NULL, GETATTR, LOOKUP, FSSTAT, FSINFO and PATHCONF answer plausibly; FSINFO
//                 advertises 64 MiB for every size (nfs-ganesha's default export does).
//                 READ serves a file of Count() bytes, byte i being FakeFileByte(i); WRITE
//                 takes every byte (UNSTABLE). READDIRPLUS lists Count() entries "fNNNNNN" in
//                 batches of 40, with 64-bit cookies (FakeCookie) and a verifier that is not
//                 zero. Other procedures: PROC_UNAVAIL.
//   nfsshortwrite as nfs, but WRITE takes at most 1000 bytes of each request.
//   nfsfailat8k   as nfs, but READ and WRITE at an offset of 8192 or more fail with
//                 NFS3ERR_ACCES.
//   nfsstall      as nfs, but READ and WRITE at an offset of 8192 or more are taken and never
//                 answered.
//   nfsoverread   as nfs, but READ answers with 100 bytes more than asked for, count and data
//                 alike, past the end of the file too; WRITE claims 100 bytes more than sent.
//   nfsdirstale   as nfs, but every READDIRPLUS after the first batch (a cookie other than 0)
//                 fails with NFS3ERR_STALE.
//   nfsdirloop    as nfs, but the directory never ends: the cookie of the last entry leads back
//                 to the first, and no batch says end of directory.
//
// Every answer depends on the call alone, so a request resent over UDP gets the same reply.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kxFakeExport.h"
#include "kxFakeNfs.h"
#include "kxFakePeer.h"

namespace {

using kxfake::Args;
using kxfake::Call;
using kxfake::FakeAttributes;
using kxfake::Present;
using kxfake::Proc;

enum class Fault { None, ShortWrite, FailAt8k, Stall, OverRead, DirStale, DirLoop };

constexpr uint32_t k64MiB = 64u << 20;
// clang-format off
constexpr kxfake::FakeFsFigures kFigures = {
    k64MiB, k64MiB, 4096, k64MiB, k64MiB, 4096, 0x1B, 0, 1, 255, false, true, false,
    1ull << 40, 1ull << 39, 1ull << 39};
// clang-format on

char g_fileHandle[] = "FAKEFILE";

bool GetAttr(const Call& call, std::vector<char>& out) {
    getattr3res res{};
    res.getattr3res_u.resok.obj_attributes = FakeAttributes(NF3DIR, 4096, 1);
    return kxfake::AcceptWith(call, Proc(xdr_getattr3res), &res, out);
}

bool Lookup(const Call& call, std::vector<char>& out) {
    Args<diropargs3> args(call, xdr_diropargs3);
    if (!args.ok) return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    lookup3res res{};
    lookup3resok& ok = res.lookup3res_u.resok;
    ok.object.data.data_len = 8;
    ok.object.data.data_val = g_fileHandle;
    ok.obj_attributes =
        Present(strcmp(args.value.name, ".") == 0
                    ? FakeAttributes(NF3DIR, 4096, 1)
                    : FakeAttributes(NF3REG, static_cast<uint64_t>(kxfake::Count()), 2));
    return kxfake::AcceptWith(call, Proc(xdr_lookup3res), &res, out);
}

// READ and WRITE share the shape of their arguments' start: handle, offset, count.
bool Read(const Call& call, Fault fault, std::vector<char>& out) {
    Args<read3args> args(call, xdr_read3args);
    if (!args.ok) return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    const uint64_t offset = args.value.offset;
    if (fault == Fault::Stall && offset >= 8192) return false;
    read3res res{};
    if (fault == Fault::FailAt8k && offset >= 8192) {
        res.status = NFS3ERR_ACCES;
        return kxfake::AcceptWith(call, Proc(xdr_read3res), &res, out);
    }
    const uint64_t size = static_cast<uint64_t>(kxfake::Count());
    uint64_t n = offset < size ? std::min<uint64_t>(size - offset, args.value.count) : 0;
    if (fault == Fault::OverRead) n += 100;
    std::vector<char> data(n);
    for (uint64_t i = 0; i < n; ++i) data[i] = kxfake::FakeFileByte(offset + i);
    read3resok& ok = res.read3res_u.resok;
    ok.file_attributes = Present(FakeAttributes(NF3REG, size, 2));
    ok.count = static_cast<count3>(n);
    ok.eof = offset + n >= size;
    ok.data.data_len = static_cast<u_int>(n);
    ok.data.data_val = data.data();
    return kxfake::AcceptWith(call, Proc(xdr_read3res), &res, out);
}

bool Write(const Call& call, Fault fault, std::vector<char>& out) {
    Args<write3args> args(call, xdr_write3args);
    if (!args.ok) return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    const count3 count = args.value.count;
    if (fault == Fault::Stall && args.value.offset >= 8192) return false;
    write3res res{};
    if (fault == Fault::FailAt8k && args.value.offset >= 8192) {
        res.status = NFS3ERR_ACCES;
        return kxfake::AcceptWith(call, Proc(xdr_write3res), &res, out);
    }
    write3resok& ok = res.write3res_u.resok;
    ok.count = fault == Fault::ShortWrite && count > 1000 ? 1000 : count;
    if (fault == Fault::OverRead) ok.count += 100;
    ok.committed = UNSTABLE;
    memcpy(ok.verf, "WRITEVRF", NFS3_WRITEVERFSIZE);
    return kxfake::AcceptWith(call, Proc(xdr_write3res), &res, out);
}

bool ReadDirPlus(const Call& call, Fault fault, std::vector<char>& out) {
    Args<readdirplus3args> args(call, xdr_readdirplus3args);
    if (!args.ok) return kxfake::AcceptStatus(call, GARBAGE_ARGS, out);
    const uint64_t cookie = args.value.cookie;
    readdirplus3res res{};
    const uint32_t total = static_cast<uint32_t>(kxfake::Count());
    // The entry after the one whose cookie came in.
    uint32_t first = 0;
    if (cookie != 0) {
        const uint64_t step = cookie - kxfake::kFakeCookieBase;
        if (cookie < kxfake::kFakeCookieBase || step % 3 != 0 || step / 3 >= total)
            res.status = NFS3ERR_BAD_COOKIE;
        else
            first = static_cast<uint32_t>(step / 3) + 1;
        if (fault == Fault::DirLoop && first == total) first = 0;
    }
    if (fault == Fault::DirStale && cookie != 0) res.status = NFS3ERR_STALE;
    if (res.status != NFS3_OK)
        return kxfake::AcceptWith(call, Proc(xdr_readdirplus3res), &res, out);

    const uint32_t end = std::min(first + kxfake::kFakeDirBatch, total);
    std::vector<entryplus3> entries(end - first);
    std::vector<std::string> names;
    std::vector<std::vector<char>> handles;
    names.reserve(entries.size());
    handles.reserve(entries.size());
    for (uint32_t i = first; i < end; ++i) {
        entryplus3& e = entries[i - first];
        char name[16];
        snprintf(name, sizeof name, "f%06u", i);
        names.emplace_back(name);
        handles.emplace_back(kxfake::FakeEntryHandle(i));
        e.fileid = 1000 + i;
        e.name = &names.back()[0];
        e.cookie = kxfake::FakeCookie(i);
        e.name_attributes = Present(FakeAttributes(NF3REG, i, 1000 + i));
        e.name_handle.handle_follows = TRUE;
        e.name_handle.post_op_fh3_u.handle.data.data_len =
            static_cast<u_int>(handles.back().size());
        e.name_handle.post_op_fh3_u.handle.data.data_val = handles.back().data();
        e.nextentry = i + 1 < end ? &entries[i - first + 1] : nullptr;
    }
    readdirplus3resok& ok = res.readdirplus3res_u.resok;
    ok.dir_attributes = Present(FakeAttributes(NF3DIR, 4096, 1));
    memcpy(ok.cookieverf, "COOKIEVF", NFS3_COOKIEVERFSIZE);
    ok.reply.entries = entries.empty() ? nullptr : entries.data();
    ok.reply.eof = end == total && fault != Fault::DirLoop;
    return kxfake::AcceptWith(call, Proc(xdr_readdirplus3res), &res, out);
}

template <Fault fault>
bool Answer(const Call& call, std::vector<char>& out) {
    switch (call.procedure) {
        case 0:
            return kxfake::AcceptWith(call, nullptr, nullptr, out);
        case 1:
            return GetAttr(call, out);
        case 3:
            return Lookup(call, out);
        case 6:
            return Read(call, fault, out);
        case 7:
            return Write(call, fault, out);
        case 17:
            return ReadDirPlus(call, fault, out);
        case 18:
        case 19:
        case 20:
            return kxfake::AnswerFigures(call, kFigures, out);
        default:
            return kxfake::AcceptStatus(call, PROC_UNAVAIL, out);
    }
}

}  // namespace

KX_FAKE_MODE("nfs", Answer<Fault::None>);
KX_FAKE_MODE("nfsshortwrite", Answer<Fault::ShortWrite>);
KX_FAKE_MODE("nfsfailat8k", Answer<Fault::FailAt8k>);
KX_FAKE_MODE("nfsstall", Answer<Fault::Stall>);
KX_FAKE_MODE("nfsoverread", Answer<Fault::OverRead>);
KX_FAKE_MODE("nfsdirstale", Answer<Fault::DirStale>);
KX_FAKE_MODE("nfsdirloop", Answer<Fault::DirLoop>);
