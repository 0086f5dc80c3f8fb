// The XDR routines of the wire stubs: results decode from replies laid out by hand after the
// published definitions, the hand-coded routines on both of their paths; limits hold.
// (Arguments are checked where they matter, on the wire, by the tests against the server and
// the fake peer.)
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <string>
#include <vector>

#include "xdr/mount_prot.h"
#include "xdr/nfs3_prot.h"
#include "xdr/nlm_prot.h"

namespace {

template <typename F>
xdrproc_t Proc(F f) {
    return reinterpret_cast<xdrproc_t>(f);
}

// x_inline refusing every request: forces the field-by-field path of inline-capable routines.
int32_t* NoInline(XDR*, u_int) { return nullptr; }

std::vector<char> Encode(xdrproc_t proc, void* value) {
    std::vector<char> buf(8 << 20);
    XDR x;
    xdrmem_create(&x, buf.data(), static_cast<u_int>(buf.size()), XDR_ENCODE);
    const bool ok = proc(&x, value);
    EXPECT_TRUE(ok);
    buf.resize(ok ? XDR_GETPOS(&x) : 0);
    return buf;
}

bool Decode(xdrproc_t proc, std::vector<char>& bytes, void* value, bool inlineAllowed = true) {
    XDR x;
    xdrmem_create(&x, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
    XDR::xdr_ops ops = *x.x_ops;
    if (!inlineAllowed) {
        ops.x_inline = NoInline;
        x.x_ops = &ops;
    }
    return proc(&x, value) && XDR_GETPOS(&x) == bytes.size();
}

char g_fhBytes[80] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17};

nfs_fh3 Fh(u_int len = 28) { return nfs_fh3{{len, g_fhBytes}}; }

// Big-endian words as a server writes them; hypers are two words, high first.
std::vector<char> Wire(std::initializer_list<uint32_t> words) {
    std::vector<char> bytes;
    for (uint32_t w : words)
        for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<char>(w >> shift));
    return bytes;
}

// Results a server sends, written word by word in the order of the published definitions
// with a distinct value in every field, so a field read from another's place shows.
TEST(Xdr, ResultsDecodeFromThePublishedLayout) {
    // GETATTR: status, then type, mode, nlink, uid, gid, size, used, rdev (two words), fsid,
    // fileid, atime, mtime, ctime.
    std::vector<char> bytes = Wire({0, 1, 0644, 3, 4, 5, 0, 6, 0, 7, 8, 9, 0, 10, 0, 11,
                                    12, 13, 14, 15, 16, 17});
    getattr3res ga{};
    ASSERT_TRUE(Decode(Proc(xdr_getattr3res), bytes, &ga));
    const fattr3& a = ga.getattr3res_u.resok.obj_attributes;
    EXPECT_EQ((std::vector<uint64_t>{NF3REG, 0644, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15,
                                     16, 17}),
              (std::vector<uint64_t>{a.type, a.mode, a.nlink, a.uid, a.gid, a.size, a.used,
                                     a.rdev.specdata1, a.rdev.specdata2, a.fsid, a.fileid,
                                     a.atime.seconds, a.atime.nseconds, a.mtime.seconds,
                                     a.mtime.nseconds, a.ctime.seconds, a.ctime.nseconds}));

    // FSINFO (no attributes): rtmax, rtpref, rtmult, wtmax, wtpref, wtmult, dtpref,
    // maxfilesize, time_delta, properties.
    bytes = Wire({0, 0, 21, 22, 23, 24, 25, 26, 27, 0, 28, 29, 30, 0x1B});
    fsinfo3res fi{};
    ASSERT_TRUE(Decode(Proc(xdr_fsinfo3res), bytes, &fi));
    const fsinfo3resok& f = fi.fsinfo3res_u.resok;
    EXPECT_EQ((std::vector<uint64_t>{21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 0x1B}),
              (std::vector<uint64_t>{f.rtmax, f.rtpref, f.rtmult, f.wtmax, f.wtpref, f.wtmult,
                                     f.dtpref, f.maxfilesize, f.time_delta.seconds,
                                     f.time_delta.nseconds, f.properties}));

    // FSSTAT: tbytes, fbytes, abytes, tfiles, ffiles, afiles, invarsec.
    bytes = Wire({0, 0, 1, 31, 0, 32, 0, 33, 0, 34, 0, 35, 0, 36, 37});
    fsstat3res fs{};
    ASSERT_TRUE(Decode(Proc(xdr_fsstat3res), bytes, &fs));
    const fsstat3resok& st = fs.fsstat3res_u.resok;
    EXPECT_EQ((std::vector<uint64_t>{(1ull << 32) + 31, 32, 33, 34, 35, 36, 37}),
              (std::vector<uint64_t>{st.tbytes, st.fbytes, st.abytes, st.tfiles, st.ffiles,
                                     st.afiles, st.invarsec}));

    // PATHCONF (hand-coded, both paths): linkmax, name_max, then no_trunc, chown_restricted,
    // case_insensitive, case_preserving; one flag set at a time.
    for (int flag = 0; flag < 4; ++flag) {
        for (bool inlineAllowed : {true, false}) {
            SCOPED_TRACE(flag);
            bytes = Wire({0, 41, 42, flag == 0, flag == 1, flag == 2, flag == 3});
            pathconf3resok pc{};
            ASSERT_TRUE(Decode(Proc(xdr_pathconf3resok), bytes, &pc, inlineAllowed));
            EXPECT_EQ((std::vector<uint64_t>{41, 42, flag == 0, flag == 1, flag == 2, flag == 3}),
                      (std::vector<uint64_t>{pc.linkmax, pc.name_max, pc.no_trunc != 0,
                                             pc.chown_restricted != 0, pc.case_insensitive != 0,
                                             pc.case_preserving != 0}));
        }
    }

    // READ: count, eof, then the data with its own length, padded to a word.
    bytes = Wire({0, 0, 5, 1, 5, 0x61626364, 0x65000000});
    read3res rd{};
    ASSERT_TRUE(Decode(Proc(xdr_read3res), bytes, &rd));
    const read3resok& r = rd.read3res_u.resok;
    EXPECT_EQ(5u, r.count);
    EXPECT_TRUE(r.eof);
    EXPECT_EQ("abcde", std::string(r.data.data_val, r.data.data_len));
    xdr_free(Proc(xdr_read3res), reinterpret_cast<char*>(&rd));

    // WRITE: no before or after attributes, count, committed, the 8-byte verifier.
    bytes = Wire({0, 0, 0, 51, FILE_SYNC, 0x56455249, 0x46594E47});
    write3res wr{};
    ASSERT_TRUE(Decode(Proc(xdr_write3res), bytes, &wr));
    EXPECT_EQ(51u, wr.write3res_u.resok.count);
    EXPECT_EQ(FILE_SYNC, wr.write3res_u.resok.committed);
    EXPECT_EQ(0, memcmp("VERIFYNG", wr.write3res_u.resok.verf, 8));

    // A failed LOOKUP carries only the directory's optional attributes.
    bytes = Wire({NFS3ERR_NOENT, 0});
    lookup3res lk{};
    ASSERT_TRUE(Decode(Proc(xdr_lookup3res), bytes, &lk));
    EXPECT_EQ(NFS3ERR_NOENT, lk.status);

    // MNT: status, the handle with its length, then the list of flavours.
    bytes = Wire({0, 6, 0x48414E44, 0x4C450000, 2, AUTH_UNIX, 6});
    mountres3 mr{};
    ASSERT_TRUE(Decode(Proc(xdr_mountres3), bytes, &mr));
    const mountres3_ok& m = mr.mountres3_u.mountinfo;
    EXPECT_EQ("HANDLE", std::string(m.fhandle.fhandle3_val, m.fhandle.fhandle3_len));
    ASSERT_EQ(2u, m.auth_flavors.auth_flavors_len);
    EXPECT_EQ(6, m.auth_flavors.auth_flavors_val[1]);
    xdr_free(Proc(xdr_mountres3), reinterpret_cast<char*>(&mr));
}

TEST(Xdr, LimitsOfPathsNamesAndHandles) {
    std::string path(1024, 'p');
    char* p = &path[0];
    EXPECT_FALSE(Encode(Proc(xdr_dirpath), &p).empty());
    path += 'p';
    p = &path[0];
    std::vector<char> buf(4096);
    XDR x;
    xdrmem_create(&x, buf.data(), static_cast<u_int>(buf.size()), XDR_ENCODE);
    EXPECT_FALSE(xdr_dirpath(&x, &p));  // 1025 bytes

    std::string n(256, 'n');
    char* np = &n[0];
    xdrmem_create(&x, buf.data(), static_cast<u_int>(buf.size()), XDR_ENCODE);
    EXPECT_FALSE(xdr_name(&x, &np));
    nfs_fh3 big = Fh(65);
    xdrmem_create(&x, buf.data(), static_cast<u_int>(buf.size()), XDR_ENCODE);
    EXPECT_FALSE(xdr_nfs_fh3(&x, &big));
}

// An export list as the textbook encoder writes it: flag, directory, groups, flag, ... Every
// other export, from the first on, has `groups` groups named "grp".
std::vector<char> ExportListBytes(int count, int groups = 1) {
    std::vector<char> buf(static_cast<size_t>(count) * 40 + static_cast<size_t>(groups) * 12 + 16);
    XDR x;
    xdrmem_create(&x, buf.data(), static_cast<u_int>(buf.size()), XDR_ENCODE);
    for (int i = 0; i < count; ++i) {
        bool_t more = TRUE, noMore = FALSE;
        std::string dir = "/e/" + std::to_string(i);
        char* d = &dir[0];
        char g[] = "grp";
        char* gp = g;
        xdr_bool(&x, &more);
        xdr_string(&x, &d, 1024);
        for (int n = 0; i % 2 == 0 && n < groups; ++n) {
            xdr_bool(&x, &more);
            xdr_string(&x, &gp, 255);
        }
        xdr_bool(&x, &noMore);
    }
    bool_t end = FALSE;
    xdr_bool(&x, &end);
    buf.resize(XDR_GETPOS(&x));
    return buf;
}

TEST(Xdr, ExportListMatchesTextbookFormat) {
    std::vector<char> bytes = ExportListBytes(3);
    exports list = nullptr;
    ASSERT_TRUE(Decode(Proc(xdr_exports), bytes, &list));
    ASSERT_NE(nullptr, list);
    EXPECT_STREQ("/e/0", list->ex_dir);
    ASSERT_NE(nullptr, list->ex_groups);
    EXPECT_STREQ("grp", list->ex_groups->gr_name);
    EXPECT_EQ(nullptr, list->ex_next->ex_groups);
    EXPECT_STREQ("/e/2", list->ex_next->ex_next->ex_dir);
    EXPECT_EQ(nullptr, list->ex_next->ex_next->ex_next);
    EXPECT_EQ(bytes, Encode(Proc(xdr_exports), &list));
    xdr_free(Proc(xdr_exports), reinterpret_cast<char*>(&list));
    EXPECT_EQ(nullptr, list);

    exports empty = nullptr;
    EXPECT_EQ(std::vector<char>(4, 0), Encode(Proc(xdr_exports), &empty));

    std::vector<char> cut = ExportListBytes(2);
    cut.resize(cut.size() - 6);
    exports partial = nullptr;
    EXPECT_FALSE(Decode(Proc(xdr_exports), cut, &partial));
    xdr_free(Proc(xdr_exports), reinterpret_cast<char*>(&partial));  // frees what was built
}

// Decodes, re-encodes and frees an export list; the number of exports plus groups when the
// re-encoding is byte-for-byte the input, else 0.
void* DecodeMany(void* arg) {
    auto* bytes = static_cast<std::vector<char>*>(arg);
    exports list = nullptr;
    size_t n = 0;
    if (Decode(Proc(xdr_exports), *bytes, &list))
        for (exportnode* e = list; e != nullptr; e = e->ex_next) {
            ++n;
            for (groupnode* g = e->ex_groups; g != nullptr; g = g->gr_next) ++n;
        }
    const bool reencoded = Encode(Proc(xdr_exports), &list) == *bytes;
    xdr_free(Proc(xdr_exports), reinterpret_cast<char*>(&list));
    return reinterpret_cast<void*>(reencoded ? n : 0);
}

size_t DecodeOnSmallStack(std::vector<char>& bytes) {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 256 * 1024);
    pthread_t t;
    void* n = nullptr;
    if (pthread_create(&t, &attr, DecodeMany, &bytes) == 0) pthread_join(t, &n);
    pthread_attr_destroy(&attr);
    return reinterpret_cast<size_t>(n);
}

TEST(Xdr, LongExportAndGroupListsOnASmallStack) {
    // One stack frame per node would need megabytes here; the loops need a few frames.
    std::vector<char> exportsOnly = ExportListBytes(100000, 0);
    EXPECT_EQ(100000u, DecodeOnSmallStack(exportsOnly));
    // One export with 200,000 groups: a 2.4 MB reply a server may legally send.
    std::vector<char> groups = ExportListBytes(1, 200000);
    EXPECT_EQ(200001u, DecodeOnSmallStack(groups));
    // Cut inside the group list: refused, and what was built is freed (the leak checker of the
    // sanitizer build watches).
    groups.resize(groups.size() / 2);
    exports partial = nullptr;
    EXPECT_FALSE(Decode(Proc(xdr_exports), groups, &partial));
    xdr_free(Proc(xdr_exports), reinterpret_cast<char*>(&partial));
}

}  // namespace
