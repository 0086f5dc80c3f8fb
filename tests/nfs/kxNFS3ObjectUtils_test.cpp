// The pure helpers of the object operations: attribute selection, time conversion, names and
// the paths Open walks.
#include "nfs/kxNFS3ObjectUtils.h"

#include <gtest/gtest.h>

#include "base/kxWin32Types.h"
#include "nfs/NFSBrowse.h"
#include "xdr/nfs3_prot.h"

using namespace kxNFSUtils;

namespace {

TEST(NFS3ObjectUtils, FileTimeToNFSTimeSplitsTicks) {
    nfstime3 t;
    FileTimeToNFSTime(kxFileTimeUnixEpoch + 10000005ull, t);  // 1 s and 500 ns
    EXPECT_EQ(1u, t.seconds);
    EXPECT_EQ(500u, t.nseconds);
    FileTimeToNFSTime(kxFileTimeUnixEpoch + 4102444800ull * 10000000ull + 9999999ull, t);
    EXPECT_EQ(4102444800u, t.seconds);  // 2100-01-01 still fits the unsigned 32 bits
    EXPECT_EQ(999999900u, t.nseconds);
}

TEST(NFS3ObjectUtils, EntryToSattr3SetsExactlyTheSelectedFields) {
    DirEntry e;
    e.mode = 0640;
    e.uid = 7;
    e.gid = 8;
    e.size = 0x100000001ull;  // a size past 32 bits
    e.accessTime = kxFileTimeUnixEpoch + 20000000ull;
    e.writeTime = kxFileTimeUnixEpoch + 30000000ull;
    for (uint32_t bit = 0; bit < 6; ++bit) {
        SCOPED_TRACE(bit);
        sattr3 s;
        memset(&s, 0xA5, sizeof s);  // nothing may be left from before
        EntryToSattr3(e, s, 1u << bit);
        EXPECT_EQ(bit == 0, s.mode.set_it != 0);
        EXPECT_EQ(bit == 1, s.uid.set_it != 0);
        EXPECT_EQ(bit == 2, s.gid.set_it != 0);
        EXPECT_EQ(bit == 3, s.size.set_it != 0);
        EXPECT_EQ(bit == 4 ? SET_TO_CLIENT_TIME : DONT_CHANGE, s.atime.set_it);
        EXPECT_EQ(bit == 5 ? SET_TO_CLIENT_TIME : DONT_CHANGE, s.mtime.set_it);
    }
    sattr3 s;
    EntryToSattr3(e, s, NFSBrowse::kSetAll | 0xFFFFFFC0u);  // unknown bits are ignored
    EXPECT_EQ(0640u, s.mode.set_uint32_u.val);
    EXPECT_EQ(7u, s.uid.set_uint32_u.val);
    EXPECT_EQ(8u, s.gid.set_uint32_u.val);
    EXPECT_EQ(0x100000001ull, s.size.set_uint64_u.val);
    EXPECT_EQ(2u, s.atime.set_time_u.time.seconds);
    EXPECT_EQ(3u, s.mtime.set_time_u.time.seconds);
}

TEST(NFS3ObjectUtils, NamesAndJoins) {
    EXPECT_EQ("f", ObjectName("/export/d/f"));
    EXPECT_EQ("", ObjectName("/export/d/"));
    EXPECT_EQ("plain", ObjectName("plain"));
    EXPECT_EQ("/export/f", JoinPath("/export", "f"));
    EXPECT_EQ("/f", JoinPath("/", "f"));  // the export "/" gives no "//"

    EXPECT_EQ(KX_OK, CheckName("..x", false));
    EXPECT_EQ(KX_OK, CheckName(".", true));
    EXPECT_EQ(KX_E_NFS_NO_NAME, CheckName("", true));
    for (const std::string& bad :
         {std::string(".."), std::string("a/b"), std::string("/"), std::string("a\0b", 3)})
        EXPECT_EQ(KX_E_BAD_ARGUMENT, CheckName(bad, true)) << bad;
    EXPECT_EQ(KX_E_BAD_ARGUMENT, CheckName(".", false));
}

TEST(NFS3ObjectUtils, SplitServerPathNormalisesAndRefusesParentNames) {
    struct Case {
        std::string path;
        std::string clean;
        std::vector<std::string> names;
    } cases[] = {
        {"/a//b/c", "/a/b/c", {"a", "b", "c"}},
        {"/a/./b/", "/a/b", {"a", "b"}},
        {"//", "/", {}},
        {"", "", {}},
        {"a/b", "a/b", {"a", "b"}},  // stays relative: no export will match it
        {"/a/..b/c..", "/a/..b/c..", {"a", "..b", "c.."}},
        {"/...", "/...", {"..."}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        std::vector<std::string> names{"left over"};
        std::string clean = "left over";
        ASSERT_EQ(KX_OK, SplitServerPath(c.path, names, clean));
        EXPECT_EQ(c.clean, clean);
        EXPECT_EQ(c.names, names);
    }
    for (const std::string& bad :
         {std::string("/a/../b"), std::string("/a/b/.."), std::string("/a\0/b", 5)}) {
        SCOPED_TRACE(bad);
        std::vector<std::string> names{"kept"};
        std::string clean = "kept";
        EXPECT_EQ(KX_E_BAD_ARGUMENT, SplitServerPath(bad, names, clean));
        EXPECT_EQ(std::vector<std::string>{"kept"}, names);
        EXPECT_EQ("kept", clean);
    }
}

}  // namespace
