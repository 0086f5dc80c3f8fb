// The hand-written XDR routines (the export and group lists, PATHCONF's result body, the
// READDIRPLUS entry list) read replies laid out word by word after the published definitions,
// refuse hostile lengths before allocating, and keep the stack flat however long a list is.
// Arbitrary bytes and the round trip of every result routine are the fuzz targets' part.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <string>
#include <vector>

#include "nfs/kxNFSErrorMap.h"
#include "xdr/mount_prot.h"
#include "xdr/nfs3_prot.h"

namespace {

template <typename F>
xdrproc_t Proc(F f) {
    return reinterpret_cast<xdrproc_t>(f);
}

// x_inline refusing every request: forces the field-by-field path of inline-capable routines.
int32_t* NoInline(XDR*, u_int) {
    return nullptr;
}

// Decodes the whole of bytes into value, which the caller zeroed.
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

// Big-endian words as a server writes them.
std::vector<char> Wire(const std::vector<uint32_t>& words) {
    std::vector<char> bytes(words.size() * 4);
    for (size_t i = 0; i < words.size(); ++i) {
        const uint32_t w = htonl(words[i]);
        memcpy(&bytes[i * 4], &w, 4);
    }
    return bytes;
}

// An export list as the published definition lays it out: flag, directory, groups, flag, ...
// Every other export, from the first on, has `groups` groups named "grp".
std::vector<char> ExportListBytes(int count, int groups = 1) {
    std::vector<char> buf(static_cast<size_t>(count) * 40 + static_cast<size_t>(groups) * 12 + 16);
    XDR x;
    xdrmem_create(&x, buf.data(), static_cast<u_int>(buf.size()), XDR_ENCODE);
    bool_t more = TRUE, noMore = FALSE;
    for (int i = 0; i < count; ++i) {
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
    xdr_bool(&x, &noMore);
    buf.resize(XDR_GETPOS(&x));
    return buf;
}

// One READDIRPLUS entry as a test writes it on the wire.
struct WireEntry {
    uint64_t fileid;
    std::string name;
    uint64_t cookie;
    bool attributes;
    u_int handleLength;  // 0: no handle follows
};

// A successful READDIRPLUS reply written field by field, independently of the routine under
// test. nameLength overrides the length word of the first name (0: the true length).
std::vector<char> DirListBytes(const std::vector<WireEntry>& entries, u_int nameLength = 0) {
    size_t room = 64;
    for (const WireEntry& e : entries) room += 200 + e.name.size();
    std::vector<char> buf(room);
    XDR x;
    xdrmem_create(&x, buf.data(), static_cast<u_int>(buf.size()), XDR_ENCODE);
    u_int status = NFS3_OK;
    bool_t no = FALSE, yes = TRUE;
    char verifier[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    xdr_u_int(&x, &status);
    xdr_bool(&x, &no);  // no directory attributes
    xdr_opaque(&x, verifier, 8);
    for (const WireEntry& e : entries) {
        uint64_t id = e.fileid, cookie = e.cookie;
        u_int len =
            &e == &entries[0] && nameLength != 0 ? nameLength : static_cast<u_int>(e.name.size());
        bool_t attrs = e.attributes, fh = e.handleLength != 0;
        xdr_bool(&x, &yes);
        xdr_u_int64_t(&x, &id);
        xdr_u_int(&x, &len);
        xdr_opaque(&x, const_cast<char*>(e.name.data()), static_cast<u_int>(e.name.size()));
        xdr_u_int64_t(&x, &cookie);
        xdr_bool(&x, &attrs);
        if (attrs) {
            fattr3 a{};
            a.type = NF3REG;
            a.size = e.fileid * 10;
            xdr_fattr3(&x, &a);
        }
        xdr_bool(&x, &fh);
        if (fh) {
            std::vector<char> h(e.handleLength, static_cast<char>(e.fileid));
            u_int hl = e.handleLength;
            xdr_u_int(&x, &hl);
            xdr_opaque(&x, h.data(), hl);
        }
    }
    bool_t eof = TRUE;
    xdr_bool(&x, &no);
    xdr_bool(&x, &eof);
    buf.resize(XDR_GETPOS(&x));
    return buf;
}

// Every cut of bytes short of the whole fails, and freeing what it built leaves no leak (the
// sanitizer build's leak checker watches).
template <typename T>
void ExpectEveryCutFails(xdrproc_t proc, const std::vector<char>& whole) {
    for (size_t cut = 0; cut < whole.size(); ++cut) {
        std::vector<char> bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut));
        T value{};
        EXPECT_FALSE(Decode(proc, bytes, &value)) << cut;
        xdr_free(proc, reinterpret_cast<char*>(&value));
    }
}

TEST(Xdr, HandCodedRoutinesReadThePublishedLayout) {
    // PATHCONF: no attributes, linkmax, name_max, then no_trunc, chown_restricted,
    // case_insensitive, case_preserving; one flag set at a time, on both paths.
    for (int flag = 0; flag < 4; ++flag) {
        for (bool inlineAllowed : {true, false}) {
            SCOPED_TRACE(flag);
            std::vector<char> bytes = Wire({0, 41, 42, flag == 0, flag == 1, flag == 2, flag == 3});
            pathconf3resok pc{};
            ASSERT_TRUE(Decode(Proc(xdr_pathconf3resok), bytes, &pc, inlineAllowed));
            EXPECT_EQ((std::vector<uint64_t>{41, 42, flag == 0, flag == 1, flag == 2, flag == 3}),
                      (std::vector<uint64_t>{pc.linkmax, pc.name_max, pc.no_trunc != 0,
                                             pc.chown_restricted != 0, pc.case_insensitive != 0,
                                             pc.case_preserving != 0}));
        }
    }

    std::vector<char> bytes = ExportListBytes(3);
    exports list = nullptr;
    ASSERT_TRUE(Decode(Proc(xdr_exports), bytes, &list));
    EXPECT_STREQ("/e/0", list->ex_dir);
    ASSERT_NE(nullptr, list->ex_groups);
    EXPECT_STREQ("grp", list->ex_groups->gr_name);
    EXPECT_EQ(nullptr, list->ex_next->ex_groups);
    EXPECT_STREQ("/e/2", list->ex_next->ex_next->ex_dir);
    EXPECT_EQ(nullptr, list->ex_next->ex_next->ex_next);
    xdr_free(Proc(xdr_exports), reinterpret_cast<char*>(&list));
    EXPECT_EQ(nullptr, list);
    ExpectEveryCutFails<exports>(Proc(xdr_exports), ExportListBytes(2));

    const std::vector<WireEntry> entries{{11, ".", 1, true, 28},
                                         {12, "a file", 0xFFFFFFFFFFull, false, 64},
                                         {13, "no handle", 3, true, 0}};
    bytes = DirListBytes(entries);
    readdirplus3res res{};
    ASSERT_TRUE(Decode(Proc(xdr_readdirplus3res), bytes, &res));
    EXPECT_TRUE(res.readdirplus3res_u.resok.reply.eof);
    const entryplus3* e = res.readdirplus3res_u.resok.reply.entries;
    for (const WireEntry& want : entries) {
        SCOPED_TRACE(want.name);
        ASSERT_NE(nullptr, e);
        EXPECT_EQ(want.fileid, e->fileid);
        EXPECT_STREQ(want.name.c_str(), e->name);
        EXPECT_EQ(want.cookie, e->cookie);
        EXPECT_EQ(want.attributes ? want.fileid * 10 : 0,
                  e->name_attributes.post_op_attr_u.attributes.size);
        EXPECT_EQ(want.handleLength, e->name_handle.post_op_fh3_u.handle.data.data_len);
        e = e->nextentry;
    }
    EXPECT_EQ(nullptr, e);
    xdr_free(Proc(xdr_readdirplus3res), reinterpret_cast<char*>(&res));
    ExpectEveryCutFails<readdirplus3res>(Proc(xdr_readdirplus3res), bytes);
}

TEST(Xdr, HostileLengthsAreRefusedBeforeAllocation) {
    // Entry names up to 8192 bytes decode; longer claims fail at once, also where the message
    // could never hold them.
    const std::string longest(8192, 'n');
    std::vector<char> bytes = DirListBytes({{1, longest, 1, false, 0}});
    readdirplus3res res{};
    ASSERT_TRUE(Decode(Proc(xdr_readdirplus3res), bytes, &res));
    EXPECT_EQ(longest, res.readdirplus3res_u.resok.reply.entries->name);
    xdr_free(Proc(xdr_readdirplus3res), reinterpret_cast<char*>(&res));
    for (u_int claimed : {8193u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        bytes = DirListBytes({{1, "x", 1, true, 0}, {2, "y", 2, true, 0}}, claimed);
        res = readdirplus3res{};
        EXPECT_FALSE(Decode(Proc(xdr_readdirplus3res), bytes, &res)) << claimed;
        xdr_free(Proc(xdr_readdirplus3res), reinterpret_cast<char*>(&res));
    }
    bytes = DirListBytes({{1, "x", 1, true, 65}});  // a handle above the protocol's 64 bytes
    res = readdirplus3res{};
    EXPECT_FALSE(Decode(Proc(xdr_readdirplus3res), bytes, &res));
    xdr_free(Proc(xdr_readdirplus3res), reinterpret_cast<char*>(&res));

    // Regression (found by fuzzing): a MNT reply of 24 bytes claiming a billion flavours was
    // allocated at 4 GB and walked element by element when freed. A list at the bound decodes.
    mountres3 mnt{};
    bytes = Wire({MNT3_OK, 4, 0x01020304, 0x40000000, 1, 6});
    EXPECT_FALSE(Decode(Proc(xdr_mountres3), bytes, &mnt));
    EXPECT_EQ(nullptr, mnt.mountres3_u.mountinfo.auth_flavors.auth_flavors_val);
    std::vector<uint32_t> full = {MNT3_OK, 4, 0x01020304, MNTFLAVORS};
    full.resize(full.size() + MNTFLAVORS, 1);
    bytes = Wire(full);
    ASSERT_TRUE(Decode(Proc(xdr_mountres3), bytes, &mnt));
    EXPECT_EQ(static_cast<u_int>(MNTFLAVORS),
              mnt.mountres3_u.mountinfo.auth_flavors.auth_flavors_len);
    xdr_free(Proc(xdr_mountres3), reinterpret_cast<char*>(&mnt));
}

// Regression (found by fuzzing): statuses and file types beyond every listed value were read
// through their enumerations, undefined behaviour the sanitizer build stopped at. They are
// values like any other and translate to the table's default.
TEST(Xdr, UnlistedStatusAndFileTypeAreOrdinaryValues) {
    std::vector<char> bytes = Wire({0x7FFFFFF0});
    getattr3res res{};
    ASSERT_TRUE(Decode(Proc(xdr_getattr3res), bytes, &res));
    EXPECT_EQ(kxNFSUtils::g_NFSErrorMap.Default(),
              kxNFSUtils::g_NFSErrorMap.TranslateError(res.status));
    std::vector<uint32_t> ok = {NFS3_OK, 99};
    ok.resize(2 + 20, 0);  // the rest of fattr3: mode .. ctime, all zero
    bytes = Wire(ok);
    ASSERT_TRUE(Decode(Proc(xdr_getattr3res), bytes, &res));
    EXPECT_EQ(99, static_cast<int>(res.getattr3res_u.resok.obj_attributes.type));
}

// Decodes the export list or READDIRPLUS reply in bytes and frees it, on the calling thread;
// the number of nodes (exports plus groups, or entries), 0 when it did not decode.
struct ListJob {
    std::vector<char> bytes;
    bool dirList;
    size_t nodes = 0;
};

void* DecodeList(void* arg) {
    auto* job = static_cast<ListJob*>(arg);
    if (job->dirList) {
        readdirplus3res res{};
        if (Decode(Proc(xdr_readdirplus3res), job->bytes, &res))
            for (entryplus3* e = res.readdirplus3res_u.resok.reply.entries; e; e = e->nextentry)
                ++job->nodes;
        xdr_free(Proc(xdr_readdirplus3res), reinterpret_cast<char*>(&res));
    } else {
        exports list = nullptr;
        if (Decode(Proc(xdr_exports), job->bytes, &list))
            for (exportnode* e = list; e != nullptr; e = e->ex_next) {
                ++job->nodes;
                for (groupnode* g = e->ex_groups; g != nullptr; g = g->gr_next) ++job->nodes;
            }
        xdr_free(Proc(xdr_exports), reinterpret_cast<char*>(&list));
    }
    return nullptr;
}

size_t NodesOnASmallStack(std::vector<char> bytes, bool dirList) {
    ListJob job{std::move(bytes), dirList};
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 256 * 1024);
    pthread_t t;
    if (pthread_create(&t, &attr, DecodeList, &job) == 0) pthread_join(t, nullptr);
    pthread_attr_destroy(&attr);
    return job.nodes;
}

// Regression: one export with 200,000 groups (a legal 2.4 MB reply) overflowed the stack in
// the group-list decoder. One frame per node would need megabytes for any of these lists.
TEST(Xdr, LongListsOnASmallStack) {
    EXPECT_EQ(100000u, NodesOnASmallStack(ExportListBytes(100000, 0), false));
    EXPECT_EQ(200001u, NodesOnASmallStack(ExportListBytes(1, 200000), false));
    std::vector<WireEntry> entries;
    for (size_t i = 0; i < 200000; ++i)
        entries.push_back({i, "e" + std::to_string(i), i + 1, i % 2 == 0, i % 3 == 0 ? 0u : 16u});
    EXPECT_EQ(entries.size(), NodesOnASmallStack(DirListBytes(entries), true));
}

}  // namespace
