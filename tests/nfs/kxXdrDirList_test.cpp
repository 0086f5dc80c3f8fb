// The hand-coded READDIRPLUS entry list: the textbook wire format in both directions, no stack
// growth with the number of entries, and hostile replies (cut short anywhere, names claiming
// gigabytes, oversized handles) refused without a crash or a leak.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <string>
#include <vector>

#include "xdr/nfs3_prot.h"

namespace {

xdrproc_t ResProc() { return reinterpret_cast<xdrproc_t>(xdr_readdirplus3res); }

// One entry as a test writes it on the wire.
struct WireEntry {
    uint64_t fileid;
    std::string name;
    uint64_t cookie;
    bool attributes;
    u_int handleLength;  // 0: no handle follows
};

// A successful READDIRPLUS reply written field by field in the order of the published
// definition, independently of the routine under test. nameLength overrides the length word
// of the first name (0: the true length).
std::vector<char> ReplyBytes(const std::vector<WireEntry>& entries, bool eof,
                             u_int nameLength = 0) {
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
    bool first = true;
    for (const WireEntry& e : entries) {
        uint64_t id = e.fileid, cookie = e.cookie;
        u_int len = first && nameLength != 0 ? nameLength : static_cast<u_int>(e.name.size());
        first = false;
        xdr_bool(&x, &yes);
        xdr_u_int64_t(&x, &id);
        xdr_u_int(&x, &len);
        xdr_opaque(&x, const_cast<char*>(e.name.data()), static_cast<u_int>(e.name.size()));
        xdr_u_int64_t(&x, &cookie);
        bool_t attrs = e.attributes;
        xdr_bool(&x, &attrs);
        if (attrs) {
            fattr3 a{};
            a.type = NF3REG;
            a.size = e.fileid * 10;
            a.fileid = e.fileid;
            xdr_fattr3(&x, &a);
        }
        bool_t fh = e.handleLength != 0;
        xdr_bool(&x, &fh);
        if (fh) {
            std::vector<char> h(e.handleLength, static_cast<char>(e.fileid));
            u_int hl = e.handleLength;
            xdr_u_int(&x, &hl);
            xdr_opaque(&x, h.data(), hl);
        }
    }
    bool_t end = eof;
    xdr_bool(&x, &no);
    xdr_bool(&x, &end);
    buf.resize(XDR_GETPOS(&x));
    return buf;
}

bool Decode(std::vector<char>& bytes, readdirplus3res& res) {
    memset(&res, 0, sizeof res);
    XDR x;
    xdrmem_create(&x, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
    return xdr_readdirplus3res(&x, &res) && XDR_GETPOS(&x) == bytes.size();
}

std::vector<char> Encode(readdirplus3res& res, size_t room) {
    std::vector<char> buf(room);
    XDR x;
    xdrmem_create(&x, buf.data(), static_cast<u_int>(buf.size()), XDR_ENCODE);
    if (!xdr_readdirplus3res(&x, &res)) return {};
    buf.resize(XDR_GETPOS(&x));
    return buf;
}

size_t Count(const readdirplus3res& res) {
    size_t n = 0;
    for (const entryplus3* e = res.readdirplus3res_u.resok.reply.entries; e; e = e->nextentry) ++n;
    return n;
}

TEST(XdrDirList, MatchesTextbookFormatBothWays) {
    std::vector<WireEntry> entries{{11, ".", 1, true, 28},
                                   {12, "..", 2, false, 0},
                                   {13, "a file", 3, true, 64},
                                   {14, "no handle", 0xFFFFFFFFFFull, true, 0}};
    std::vector<char> bytes = ReplyBytes(entries, true);
    readdirplus3res res;
    ASSERT_TRUE(Decode(bytes, res));
    ASSERT_EQ(NFS3_OK, res.status);
    const dirlistplus3& list = res.readdirplus3res_u.resok.reply;
    EXPECT_TRUE(list.eof);
    const entryplus3* e = list.entries;
    for (const WireEntry& want : entries) {
        SCOPED_TRACE(want.name);
        ASSERT_NE(nullptr, e);
        EXPECT_EQ(want.fileid, e->fileid);
        EXPECT_STREQ(want.name.c_str(), e->name);
        EXPECT_EQ(want.cookie, e->cookie);
        EXPECT_EQ(want.attributes, e->name_attributes.attributes_follow != 0);
        if (want.attributes) {
            EXPECT_EQ(want.fileid * 10, e->name_attributes.post_op_attr_u.attributes.size);
        }
        EXPECT_EQ(want.handleLength != 0, e->name_handle.handle_follows != 0);
        EXPECT_EQ(want.handleLength, e->name_handle.post_op_fh3_u.handle.data.data_len);
        e = e->nextentry;
    }
    EXPECT_EQ(nullptr, e);
    EXPECT_EQ(bytes, Encode(res, bytes.size() + 64));
    xdr_free(ResProc(), reinterpret_cast<char*>(&res));
    EXPECT_EQ(nullptr, res.readdirplus3res_u.resok.reply.entries);

    std::vector<char> empty = ReplyBytes({}, false);
    ASSERT_TRUE(Decode(empty, res));
    EXPECT_EQ(0u, Count(res));
    EXPECT_EQ(empty, Encode(res, empty.size() + 64));
    xdr_free(ResProc(), reinterpret_cast<char*>(&res));
}

TEST(XdrDirList, ReplyCutAnywhereFailsAndFreesWhatWasBuilt) {
    // The leak checker of the sanitizer build sees any node, name or handle left behind.
    std::vector<char> whole =
        ReplyBytes({{1, "alpha", 1, true, 32}, {2, "beta", 2, false, 8}, {3, "gamma", 3, true, 0}},
                   true);
    for (size_t cut = 0; cut < whole.size(); ++cut) {
        SCOPED_TRACE(cut);
        std::vector<char> bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut));
        readdirplus3res res;
        EXPECT_FALSE(Decode(bytes, res));
        xdr_free(ResProc(), reinterpret_cast<char*>(&res));
    }
}

TEST(XdrDirList, HostileLengthsAreRefusedBeforeAllocation) {
    const std::string longest(8192, 'n');
    // A name of the longest accepted length decodes.
    std::vector<char> bytes = ReplyBytes({{1, longest, 1, false, 0}}, true);
    readdirplus3res res;
    ASSERT_TRUE(Decode(bytes, res));
    EXPECT_EQ(longest.size(), strlen(res.readdirplus3res_u.resok.reply.entries->name));
    xdr_free(ResProc(), reinterpret_cast<char*>(&res));

    // Lengths claimed beyond it fail at once, also where the message could never hold them;
    // the names that follow are never read.
    for (u_int claimed : {8193u, 0x7FFFFFFFu, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(claimed);
        bytes = ReplyBytes({{1, "x", 1, true, 0}, {2, "y", 2, true, 0}}, true, claimed);
        EXPECT_FALSE(Decode(bytes, res));
        xdr_free(ResProc(), reinterpret_cast<char*>(&res));
    }
    // A handle above the protocol's 64 bytes.
    bytes = ReplyBytes({{1, "x", 1, true, 65}}, true);
    EXPECT_FALSE(Decode(bytes, res));
    xdr_free(ResProc(), reinterpret_cast<char*>(&res));
}

constexpr size_t kMany = 200000;

void* DecodeMany(void* arg) {
    auto* bytes = static_cast<std::vector<char>*>(arg);
    readdirplus3res res;
    size_t n = 0;
    if (Decode(*bytes, res)) n = Count(res);
    const bool same = Encode(res, bytes->size()) == *bytes;
    xdr_free(ResProc(), reinterpret_cast<char*>(&res));
    return reinterpret_cast<void*>(same ? n : 0);
}

TEST(XdrDirList, TwoHundredThousandEntriesOnASmallStack) {
    // One stack frame per entry (the generated routine) needs tens of megabytes for this list;
    // the loop needs a few frames.
    std::vector<WireEntry> entries;
    entries.reserve(kMany);
    for (size_t i = 0; i < kMany; ++i)
        entries.push_back({i, "e" + std::to_string(i), i + 1, i % 2 == 0, i % 3 == 0 ? 0u : 16u});
    std::vector<char> bytes = ReplyBytes(entries, true);
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 256 * 1024);
    pthread_t t;
    ASSERT_EQ(0, pthread_create(&t, &attr, DecodeMany, &bytes));
    void* n = nullptr;
    pthread_join(t, &n);
    pthread_attr_destroy(&attr);
    EXPECT_EQ(kMany, reinterpret_cast<size_t>(n));
}

}  // namespace
