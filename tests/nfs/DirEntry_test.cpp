#include "nfs/DirEntry.h"

#include <gtest/gtest.h>

#include "xdr/nfs3_prot.h"

using namespace kxNFSUtils;

namespace {

TEST(DirEntry, AttributesAndTimeConversion) {
    DirEntry e;
    fattr3 a{};
    a.type = NF3REG;
    a.size = 0x123456789ull;
    a.fsid = 99;
    a.fileid = 1234;
    a.atime = {1, 500};
    a.mtime = {0, 99};
    a.ctime = {0xFFFFFFFFu, 999999999};
    e.path = "kept";
    FAttr3ToDirEntry(a, e);
    EXPECT_EQ(116444736010000005ull, e.accessTime);  // 1 s and 500 ns
    EXPECT_EQ(116444736000000000ull, e.writeTime);   // below one tick
    EXPECT_EQ(0xFFFFFFFFull * 10000000 + 116444736000000000ull + 9999999, e.changeTime);
    EXPECT_EQ(kDirEntryRegular, e.type);
    EXPECT_EQ(0x123456789ull, e.size);
    EXPECT_EQ(99u, e.fsId);
    EXPECT_EQ(1234u, e.fileId);
    EXPECT_EQ("kept", e.path);
}

TEST(DirEntry, FindDataNameLimitAndAttributes) {
    DirEntry e;
    e.type = kDirEntryRegular;
    e.size = 0x100000002ull;
    e.writeTime = 0x0102030405060708ull;
    e.path = "/export/dir/" + std::string(259, 'n');
    _WIN32_FIND_DATAA d;
    memset(&d, 0xAB, sizeof d);
    ASSERT_EQ(KX_OK, e.CopyToWin32FindData(&d));
    EXPECT_EQ(0u, d.dwFileAttributes);
    EXPECT_EQ(std::string(259, 'n'), d.cFileName);
    EXPECT_EQ(1u, d.nFileSizeHigh);
    EXPECT_EQ(2u, d.nFileSizeLow);
    EXPECT_EQ(0x05060708u, d.ftLastWriteTime.dwLowDateTime);
    EXPECT_EQ(0x01020304u, d.ftLastWriteTime.dwHighDateTime);
    EXPECT_EQ(0u, d.ftCreationTime.dwLowDateTime);

    e.path += "n";  // 260 characters no longer fit with the terminator
    EXPECT_EQ(KX_E_BAD_NAME, e.CopyToWin32FindData(&d));
    EXPECT_EQ(0, d.cFileName[0]);

    e.type = kDirEntryDirectory;
    e.path = "plain";  // no slash: the whole path is the name
    ASSERT_EQ(KX_OK, e.CopyToWin32FindData(&d));
    EXPECT_EQ(0x10u, d.dwFileAttributes);
    EXPECT_STREQ("plain", d.cFileName);
    EXPECT_EQ(KX_E_BAD_ARGUMENT, e.CopyToWin32FindData(nullptr));
}

}  // namespace
