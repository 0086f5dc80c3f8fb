// kx_fuzz_seeds DIR: writes the seed corpus of every fuzz target into DIR/<target>/, the files
// committed under tests/fuzz/corpus. Log files are written by the library's own writer (and
// byte-swapped into the other order record by record), NFS results and replies are encoded with
// the generated and hand-written XDR routines, the rest are texts of each kind. Run it again,
// and commit what changed, when a format or a target's input layout changes.
//
// Not a test; built on request only (cmake --build ... --target kx_fuzz_seeds).
#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

#include "log/KLogStream.h"
#include "nfs/kxXdrResultTable.h"

namespace {

using Bytes = std::string;
std::string g_out;

void Put(const std::string& target, const std::string& name, const Bytes& bytes) {
    const std::string dir = g_out + "/" + target;
    mkdir(dir.c_str(), 0755);
    std::ofstream(dir + "/" + name, std::ios::binary) << bytes;
}

Bytes Word(uint32_t v) {
    return Bytes(reinterpret_cast<const char*>(&v), 4);
}
Bytes BigWord(uint32_t v) {
    return Word(htonl(v));
}
// A control byte, then the text.
Bytes Ctl(int control, const Bytes& text) {
    return Bytes(1, static_cast<char>(control)) + text;
}

// ---- log files ---------------------------------------------------------------------------

Bytes ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void Swap32(Bytes& b, size_t at) {
    uint32_t v;
    memcpy(&v, &b[at], 4);
    v = kxLogSwap32(v);
    memcpy(&b[at], &v, 4);
}

// The file as a writer of the other byte order would have written it: every 32-bit field and
// payload word reversed, the timestamp as one 64-bit value. Records are found by the walk.
Bytes Foreign(const Bytes& native) {
    Bytes out = native;
    const KLogFile& image = *reinterpret_cast<const KLogFile*>(native.data());
    for (const KLogRec* rec = image.FirstRec(); rec != nullptr;
         rec = image.NewerRec(rec, rec->GetRecNum())) {
        const size_t at = image.OffsetOf(rec);
        for (size_t w : {0, 4, 16, 20, 24, 28, 32, 36}) Swap32(out, at + w);
        std::reverse(out.begin() + static_cast<long>(at) + 8,
                     out.begin() + static_cast<long>(at) + 16);
        const size_t payload = at + kxLogRecHeaderSize;
        size_t words = 0;
        if (rec->GetType() == kxLogRecTypeStringA || rec->GetType() == kxLogRecTypeResize)
            words = 2;
        if (rec->GetType() == kxLogRecTypeStringW) words = rec->GetPayloadSize() / 4;
        for (size_t k = 0; k < words; ++k) Swap32(out, payload + 4 * k);
    }
    for (size_t w = 0; w < kxLogFileHeaderSize; w += 4) Swap32(out, w);
    return out;
}

void LogSeeds(const std::string& scratch) {
    const std::string path = scratch + "/seed.log";
    auto fresh = [&] {
        unlink(path.c_str());
        unlink((path + ".lock").c_str());
    };
    // A few records of each kind.
    fresh();
    {
        KLogStream s(scratch.c_str(), "seed.log", 1, 0, true);
        s.PrintString("first message", 0, kxLogSevProgress, 0);
        s.PrintString(L"wide text: \u00e9\u2603", kxStatus(0xE0FF0104), kxLogSevWarning, 0);
        s.PrintString("an error\nover two lines", kxStatus(0x80000003), kxLogSevError, 0);
    }
    const Bytes few = ReadAll(path);
    // Resized to 2 KB (a "RESZ" record), then cleared ("CLER") and written again.
    {
        KLogStream s(scratch.c_str(), "seed.log", 2, 0, true);
        s.PrintString("after the resize", 0, kxLogSevProgress, 0);
    }
    const Bytes resized = ReadAll(path);
    fresh();
    {
        KLogStream s(scratch.c_str(), "seed.log", 1, 0, true);
        s.PrintString("before the clear", 0, kxLogSevProgress, 0);
        s.ClearRecs();
        s.PrintString("after the clear", 0, kxLogSevInfo, 0);
    }
    const Bytes cleared = ReadAll(path);
    // A ring that wrapped: its oldest records were overwritten, a stale tail is left.
    fresh();
    {
        KLogStream s(scratch.c_str(), "seed.log", 1, 0, true);
        for (int i = 0; i < 30; ++i) {
            char text[40];
            snprintf(text, sizeof text, "record %d of a ring that wraps", i);
            s.PrintString(text, 0, kxLogSevProgress, 0);
        }
    }
    const Bytes wrapped = ReadAll(path);
    fresh();

    // KLogFile: control 0 walks; 2 appends; 6 repairs a journal first; 7 also fixes the size.
    Put("KLogFile", "few_native", Word(0) + few);
    Put("KLogFile", "few_foreign", Word(0) + Foreign(few));
    Put("KLogFile", "wrapped_native_append", Word(0x00000A02) + wrapped);
    Put("KLogFile", "wrapped_foreign", Word(0) + Foreign(wrapped));
    Put("KLogFile", "cleared_journal", Word(0x0007140E) + cleared);
    Put("KLogFile", "resized_native", Word(0) + resized);
    Put("KLogFile", "truncated_size_fixed", Word(0x00001003) + few.substr(0, 600));
    // KLogStream: bit 1 opens a writer of (bits 8-13) + 1 KB.
    Put("KLogStream", "few_read", Word(0) + few);
    Put("KLogStream", "few_foreign_write", Word(0x00000002) + Foreign(few));
    Put("KLogStream", "wrapped_resize_up", Word(0x00000302) + wrapped);
    Put("KLogStream", "resized_resize_down", Word(0x00000002) + resized);
    Put("KLogStream", "cleared_same_size", Word(0x00000002) + cleared);
    Put("KLogStream", "truncated", Word(0x00000002) + wrapped.substr(0, 700));
    Put("KLogStream", "truncated_size_fixed", Word(0x00000001) + wrapped.substr(0, 700));
}

// ---- NFS results and replies -------------------------------------------------------------

size_t Index(xdrproc_t proc) {
    for (size_t i = 0; i < kxfuzz::kXdrResultCount; ++i)
        if (kxfuzz::kXdrResults[i].proc == proc) return i;
    fprintf(stderr, "kx_fuzz_seeds: routine not in the table\n");
    exit(1);
}

template <typename T>
Bytes Encode(bool_t (*proc)(XDR*, T*), T& value) {
    std::vector<char> buf(8192);
    XDR x;
    xdrmem_create(&x, buf.data(), static_cast<u_int>(buf.size()), XDR_ENCODE);
    if (!proc(&x, &value)) {
        fprintf(stderr, "kx_fuzz_seeds: cannot encode\n");
        exit(1);
    }
    return Bytes(buf.data(), XDR_GETPOS(&x));
}

// An accepted, successful reply carrying the results.
template <typename T>
Bytes Reply(uint32_t xid, bool_t (*proc)(XDR*, T*), T& value) {
    rpc_msg msg;
    memset(&msg, 0, sizeof msg);
    msg.rm_xid = xid;
    msg.rm_direction = REPLY;
    msg.rm_reply.rp_stat = MSG_ACCEPTED;
    msg.acpted_rply.ar_verf = _null_auth;
    msg.acpted_rply.ar_stat = SUCCESS;
    msg.acpted_rply.ar_results.where = reinterpret_cast<char*>(&value);
    msg.acpted_rply.ar_results.proc = reinterpret_cast<xdrproc_t>(proc);
    return Encode(xdr_replymsg, msg);
}

fattr3 Attributes(ftype3 type, uint64_t size, uint64_t fileid) {
    fattr3 a;
    memset(&a, 0, sizeof a);
    a.type = type;
    a.mode = type == NF3DIR ? 0755 : 0644;
    a.nlink = type == NF3DIR ? 2 : 1;
    a.uid = 1000;
    a.gid = 1000;
    a.size = size;
    a.used = (size + 4095) & ~4095ull;
    a.fsid = 0x1234;
    a.fileid = fileid;
    a.atime = {1700000000, 1};
    a.mtime = {1700000001, 2};
    a.ctime = {1700000002, 3};
    return a;
}

post_op_attr After(ftype3 type, uint64_t size, uint64_t fileid) {
    post_op_attr p;
    p.attributes_follow = TRUE;
    p.post_op_attr_u.attributes = Attributes(type, size, fileid);
    return p;
}

wcc_data Wcc() {
    wcc_data w;
    w.before.attributes_follow = TRUE;
    w.before.pre_op_attr_u.attributes = {4096, {1700000000, 0}, {1700000000, 0}};
    w.after = After(NF3DIR, 4096, 2);
    return w;
}

char g_handle[32] = "handle-of-a-file-on-the-server";

nfs_fh3 Handle() {
    nfs_fh3 h;
    h.data.data_len = sizeof g_handle;
    h.data.data_val = g_handle;
    return h;
}

void NfsSeeds() {
    std::vector<std::pair<std::string, Bytes>> results;  // name, selector byte + body
    auto add = [&](const std::string& name, xdrproc_t proc, const Bytes& body) {
        results.emplace_back(name, Bytes(1, static_cast<char>(Index(proc))) + body);
    };
#define KX_ADD(name, type, value) \
    add(name, reinterpret_cast<xdrproc_t>(xdr_##type), Encode(xdr_##type, value))

    // An export list with group lists, the root export open to everyone.
    char g1[] = "client1.example", g2[] = "10.0.0.0/8", g3[] = "*";
    char d1[] = "/export/a", d2[] = "/export/b", d3[] = "/";
    groupnode gn2{g2, nullptr}, gn1{g1, &gn2}, gn3{g3, nullptr};
    exportnode e3{d3, &gn3, nullptr}, e2{d2, nullptr, &e3}, e1{d1, &gn1, &e2};
    exports ex = &e1;
    KX_ADD("exports", exports, ex);

    fhstatus fh1;
    fh1.fhs_status = 0;
    memcpy(fh1.fhstatus_u.fhs_fhandle, g_handle, FHSIZE);
    KX_ADD("fhstatus", fhstatus, fh1);
    int flavors[] = {1, 0};
    mountres3 mnt;
    mnt.fhs_status = MNT3_OK;
    mnt.mountres3_u.mountinfo.fhandle.fhandle3_len = sizeof g_handle;
    mnt.mountres3_u.mountinfo.fhandle.fhandle3_val = g_handle;
    mnt.mountres3_u.mountinfo.auth_flavors.auth_flavors_len = 2;
    mnt.mountres3_u.mountinfo.auth_flavors.auth_flavors_val = flavors;
    KX_ADD("mountres3", mountres3, mnt);
    // A flavour list claimed a billion long (once allocated and walked before found short).
    add("mountres3_flavour_claim", reinterpret_cast<xdrproc_t>(xdr_mountres3),
        BigWord(MNT3_OK) + BigWord(4) + "\1\2\3\4" + BigWord(0x40000000) + BigWord(1) + BigWord(6));

    getattr3res ga;
    ga.status = NFS3_OK;
    ga.getattr3res_u.resok.obj_attributes = Attributes(NF3REG, 11, 7);
    KX_ADD("getattr3res", getattr3res, ga);
    lookup3res lk;
    lk.status = NFS3_OK;
    lk.lookup3res_u.resok.object = Handle();
    lk.lookup3res_u.resok.obj_attributes = After(NF3REG, 11, 7);
    lk.lookup3res_u.resok.dir_attributes = After(NF3DIR, 4096, 2);
    KX_ADD("lookup3res", lookup3res, lk);
    access3res ac;
    ac.status = NFS3_OK;
    ac.access3res_u.resok.obj_attributes = After(NF3REG, 11, 7);
    ac.access3res_u.resok.access = 0x3F;
    KX_ADD("access3res", access3res, ac);
    char target[] = "../elsewhere/target";
    readlink3res rl;
    rl.status = NFS3_OK;
    rl.readlink3res_u.resok.symlink_attributes.attributes_follow = FALSE;
    rl.readlink3res_u.resok.data = target;
    KX_ADD("readlink3res", readlink3res, rl);
    char text[] = "hello world";
    read3res rd;
    rd.status = NFS3_OK;
    rd.read3res_u.resok.file_attributes = After(NF3REG, 11, 7);
    rd.read3res_u.resok.count = 11;
    rd.read3res_u.resok.eof = TRUE;
    rd.read3res_u.resok.data.data_len = 11;
    rd.read3res_u.resok.data.data_val = text;
    KX_ADD("read3res", read3res, rd);
    read3res rdFail;
    rdFail.status = NFS3ERR_IO;
    rdFail.read3res_u.resfail.file_attributes.attributes_follow = FALSE;
    KX_ADD("read3res_io_error", read3res, rdFail);
    write3res wr;
    wr.status = NFS3_OK;
    wr.write3res_u.resok.file_wcc = Wcc();
    wr.write3res_u.resok.count = 4096;
    wr.write3res_u.resok.committed = FILE_SYNC;
    memcpy(wr.write3res_u.resok.verf, "verifier", 8);
    KX_ADD("write3res", write3res, wr);
    diropres3 dr;
    dr.status = NFS3_OK;
    dr.diropres3_u.resok.obj.handle_follows = TRUE;
    dr.diropres3_u.resok.obj.post_op_fh3_u.handle = Handle();
    dr.diropres3_u.resok.obj_attributes = After(NF3DIR, 4096, 9);
    dr.diropres3_u.resok.dir_wcc = Wcc();
    KX_ADD("diropres3", diropres3, dr);
    wccstat3 ws{NFS3_OK, Wcc()};
    KX_ADD("wccstat3", wccstat3, ws);
    rename3res rn{NFS3_OK, {Wcc(), Wcc()}};
    KX_ADD("rename3res", rename3res, rn);
    link3res ln{NFS3_OK, {After(NF3REG, 11, 7), Wcc()}};
    KX_ADD("link3res", link3res, ln);

    // A directory of three entries, each with attributes and a handle.
    char n1[] = ".", n2[] = "..", n3[] = "file.txt";
    entryplus3 en3{7, n3, 3, After(NF3REG, 11, 7), {TRUE, {Handle()}}, nullptr};
    entryplus3 en2{1, n2, 2, After(NF3DIR, 4096, 1), {FALSE, {}}, &en3};
    entryplus3 en1{2, n1, 1, After(NF3DIR, 4096, 2), {TRUE, {Handle()}}, &en2};
    readdirplus3res rp;
    rp.status = NFS3_OK;
    rp.readdirplus3res_u.resok.dir_attributes = After(NF3DIR, 4096, 2);
    memcpy(rp.readdirplus3res_u.resok.cookieverf, "cookieve", 8);
    rp.readdirplus3res_u.resok.reply.entries = &en1;
    rp.readdirplus3res_u.resok.reply.eof = TRUE;
    KX_ADD("readdirplus3res", readdirplus3res, rp);

    fsstat3res fs;
    fs.status = NFS3_OK;
    fs.fsstat3res_u.resok = {
        After(NF3DIR, 4096, 2), 1ull << 40, 1ull << 39, 1ull << 38, 1000000, 500000, 400000, 0};
    KX_ADD("fsstat3res", fsstat3res, fs);
    fsinfo3res fi;
    fi.status = NFS3_OK;
    fsinfo3resok& info = fi.fsinfo3res_u.resok;
    info.obj_attributes = After(NF3DIR, 4096, 2);
    info.rtmax = info.rtpref = info.wtmax = info.wtpref = 1048576;
    info.rtmult = info.wtmult = 4096;
    info.dtpref = 65536;
    info.maxfilesize = ~0ull >> 1;
    info.time_delta = {0, 1};
    info.properties = 0x1B;
    KX_ADD("fsinfo3res", fsinfo3res, fi);
    pathconf3res pc;
    pc.status = NFS3_OK;
    pc.pathconf3res_u.resok = {After(NF3DIR, 4096, 2), 32000, 255, TRUE, TRUE, FALSE, TRUE};
    KX_ADD("pathconf3res", pathconf3res, pc);

    char cookie[] = "cook";
    nlm_res nr;
    nr.cookie = {4, cookie};
    nr.stat.stat = nlm_denied;
    KX_ADD("nlm_res_denied", nlm_res, nr);
    nlm4_res n4;
    n4.cookie = {4, cookie};
    n4.stat.stat = NLM4_GRANTED;
    KX_ADD("nlm4_res_granted", nlm4_res, n4);
#undef KX_ADD

    for (const auto& r : results) Put("kxXdrResults", r.first, r.second);

    // Whole replies for RecvReply: the list, the directory, a READ, the mount, the lock.
    uint32_t nextXid = 0x1000;
    auto reply = [&](const std::string& name, xdrproc_t proc, const Bytes& msg) {
        Put("kxRPCReply", name, Bytes(1, static_cast<char>(Index(proc))) + msg);
    };
#define KX_REPLY(name, type, value) \
    reply(name, reinterpret_cast<xdrproc_t>(xdr_##type), Reply(nextXid++, xdr_##type, value))
    KX_REPLY("exports", exports, ex);
    KX_REPLY("readdirplus3res", readdirplus3res, rp);
    KX_REPLY("read3res", read3res, rd);
    KX_REPLY("mountres3", mountres3, mnt);
    KX_REPLY("fsinfo3res", fsinfo3res, fi);
    KX_REPLY("pathconf3res", pathconf3res, pc);
    KX_REPLY("nlm4_res", nlm4_res, n4);
#undef KX_REPLY
    const xdrproc_t readProc = reinterpret_cast<xdrproc_t>(xdr_read3res);
    // Refusals: wrong RPC version, bad credentials, program version mismatch, garbage.
    reply("denied_rpc_mismatch", readProc,
          BigWord(7) + BigWord(REPLY) + BigWord(MSG_DENIED) + BigWord(RPC_MISMATCH) + BigWord(2) +
              BigWord(2));
    reply("denied_auth_error", readProc,
          BigWord(8) + BigWord(REPLY) + BigWord(MSG_DENIED) + BigWord(AUTH_ERROR) +
              BigWord(AUTH_BADCRED));
    reply("accepted_prog_mismatch", readProc,
          BigWord(9) + BigWord(REPLY) + BigWord(MSG_ACCEPTED) + BigWord(AUTH_NONE) + BigWord(0) +
              BigWord(PROG_MISMATCH) + BigWord(3) + BigWord(3));
    // Status words beyond their enumerations: an accept status, and a reply status that ends
    // the decoding (both were once read through the enumerations).
    reply("accept_status_out_of_range", readProc,
          BigWord(11) + BigWord(REPLY) + BigWord(MSG_ACCEPTED) + BigWord(AUTH_NONE) + BigWord(0) +
              BigWord(0x00070000));
    reply("reply_status_out_of_range", readProc, BigWord(12) + BigWord(REPLY) + BigWord(7));
    // A short-hand verifier, which AUTH_UNIX credentials keep for later calls.
    reply("accepted_short_verifier", reinterpret_cast<xdrproc_t>(xdr_getattr3res),
          BigWord(10) + BigWord(REPLY) + BigWord(MSG_ACCEPTED) + BigWord(AUTH_SHORT) + BigWord(8) +
              "shorthnd" + BigWord(SUCCESS) + Encode(xdr_getattr3res, ga));

    // The pipeline's stream: record marks around READ and WRITE replies.
    const Bytes readReply = Reply(21, xdr_read3res, rd);
    const Bytes writeReply = Reply(22, xdr_write3res, wr);
    const Bytes errorReply = Reply(23, xdr_read3res, rdFail);
    auto last = [](const Bytes& r) {
        return BigWord(0x80000000u | static_cast<uint32_t>(r.size())) + r;
    };
    const Bytes max(1, '\xFF');
    Put("kxNFS3Pipeline", "read", max + last(readReply));
    Put("kxNFS3Pipeline", "write", max + last(writeReply));
    Put("kxNFS3Pipeline", "read_error_then_write", max + last(errorReply) + last(writeReply));
    Put("kxNFS3Pipeline", "read_in_two_fragments",
        max + BigWord(40) + readReply.substr(0, 40) + last(readReply.substr(40)));
    Put("kxNFS3Pipeline", "record_too_long", Bytes(1, '\0') + last(readReply));
    Put("kxNFS3Pipeline", "denied",
        max + last(BigWord(24) + BigWord(REPLY) + BigWord(MSG_DENIED) + BigWord(AUTH_ERROR) +
                   BigWord(AUTH_TOOWEAK)));
}

// ---- texts -------------------------------------------------------------------------------

// Arguments separated by zero bytes.
Bytes Z(std::initializer_list<const char*> words) {
    Bytes out;
    size_t i = 0;
    for (const char* w : words) {
        if (i++ != 0) out += '\0';
        out += w;
    }
    return out;
}

void TextSeeds() {
    // kxPath: two control bytes, a path, a zero byte, a second path.
    const Bytes c = Bytes("\x05\xFF", 2);
    const std::pair<const char*, Bytes> paths[] = {
        {"unc", c + Z({"\\\\server\\share\\dir\\file.txt", "\\\\server\\share"})},
        {"long_unc", c + Z({"\\\\?\\UNC\\srv\\sh\\x", "\\\\?\\unc\\srv\\sh"})},
        {"dos", Bytes("\x2a\x00", 2) + Z({"C:\\Windows\\System32\\", "c:\\windows"})},
        {"long_dos", c + "\\\\?\\D:\\very\\long\\path"},
        {"remote_dos", c + Z({"host:C:\\data\\x", "host:c:\\data"})},
        {"remote_long_dos", c + "host:\\\\?\\C:\\x"},
        {"unix", Bytes("\x11\x01", 2) + Z({"/usr/local/lib", "/usr"})},
        {"remote_unix", c + Z({"nfs1:/export/home/user/", "NFS1:/export"})},
        {"relative_blanks", c + "  relative/path with spaces / x "},
        {"drive_forward_slash", c + "D:/x/y"},
        {"spec_list", c + "\"*.log\" \"tmp/\" \"/abs/x\" \"a\\b/c\""},
    };
    for (const auto& p : paths) Put("kxPath", p.first, p.second);

    // kxXml: type (0 bool, 1 long, 2 unsigned long, 3 long long, 4 unsigned long long, 5 float,
    // 6 double, 7 long double), then the text.
    const std::pair<const char*, Bytes> numbers[] = {
        {"long_ff", Ctl(1, "ff")},
        {"long_minus_one", Ctl(3, "ffffffffffffffff")},
        {"bool_true", Ctl(0, "1")},
        {"double_one", Ctl(6, "3ff0000000000000")},
        {"double_nan_payload", Ctl(6, "7ff8000000000001")},
        {"double_minus_zero", Ctl(6, "8000000000000000")},
        {"float_infinity", Ctl(5, "7f800000")},
        {"long_double_one", Ctl(7, "3fff8000000000000000")},
        {"ulonglong_empty", Ctl(4, "")},
        {"ulong_mixed_case", Ctl(2, "FfFf")},
        {"long_hex_prefix", Ctl(1, "0x10")},
        {"double_too_long", Ctl(6, "13ff0000000000000")},
    };
    for (const auto& n : numbers) Put("kxXml", n.first, n.second);

    const std::pair<const char*, Bytes> nfsArgs[] = {
        {"ls", Z({"-t", "ls", "-la", "server:/export/./a/../b/"})},
        {"stat_ids", Z({"-j", "-U", "1000", "-G1000,4,24", "stat", "host:/x"})},
        {"get", Z({"get", "h:/a/b", "local.bin"})},
        {"put_stdin", Z({"put", "-", "h:/dst"})},
        {"mv", Z({"mv", "h:/a/old", "new"})},
        {"ln", Z({"ln", "-s", "../target", "h:/a/link"})},
        {"lock", Z({"lock", "-s", "h:/a/f", "sh", "-c", "true"})},
        {"exports_udp", Z({"-u", "exports", "192.168.1.10"})},
        {"help", Z({"--help"})},
        {"tcp_and_udp", Z({"-tu", "ping", "h"})},
        {"end_of_options", Z({"--", "rm", "--", "h:/-x"})},
    };
    for (const auto& a : nfsArgs) Put("kxnfsArgs", a.first, a.second);

    const std::pair<const char*, Bytes> viewArgs[] = {
        {"tail", Z({"-n", "5", "-p", "warning", "--since", "2024-01-02 03:04", "file.log"})},
        {"json", Z({"-r", "-o", "json", "--pid", "1234", "--until", "@1700000000", "x.log"})},
        {"follow_grep", Z({"-f", "-g", "err(or)?", "-o", "cat", "y.log"})},
        {"header", Z({"--header", "2024-01-02T03:04:05", "z.log"})},
        {"help", Z({"-h"})},
        {"follow_reverse", Z({"-f", "-r", "a.log"})},
        {"missing_value", Z({"a.log", "--since"})},
    };
    for (const auto& a : viewArgs) Put("kxlogviewArgs", a.first, a.second);

    // kxTextEscape: a flag byte (keep tabs), then the text.
    const std::pair<const char*, Bytes> texts[] = {
        {"ascii", Ctl(1, "plain text")},
        {"controls", Ctl(0, "tab\there\nnewline\r\x1b[31mred\x1b[0m\x7f")},
        {"utf8", Ctl(1, "caf\xc3\xa9 \xe2\x98\x83 \xf0\x9f\x98\x80")},
        {"c1_in_utf8", Ctl(1, "next line\xc2\x85\x65nd")},
        {"latin1", Ctl(1, "\xff\xfe latin1 \x85 \xe9")},
        {"quotes", Ctl(1, "say \"hi\" \\ back")},
        {"overlong", Ctl(1, "\xc0\xaf")},
        {"surrogate", Ctl(1, "\xed\xa0\x80")},
        {"beyond_unicode", Ctl(1, "\xf4\x90\x80\x80")},
    };
    for (const auto& t : texts) Put("kxTextEscape", t.first, t.second);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: kx_fuzz_seeds DIR\n");
        return 100;
    }
    g_out = argv[1];
    mkdir(g_out.c_str(), 0755);
    char scratch[] = "/tmp/kx_fuzz_seeds_XXXXXX";
    if (mkdtemp(scratch) == nullptr) return 111;
    LogSeeds(scratch);
    NfsSeeds();
    TextSeeds();
    rmdir(scratch);
    return 0;
}
