// The object operations of the browse object against a real NFS server in the test's sandbox,
// checked through the local file system under the export root. What goes on the wire is
// checked against the fake peer (NFSObjectsWire); here, what a real server makes of it.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "base/KBuffer.h"
#include "base/kxWin32Types.h"
#include "kxLogCapture.h"
#include "kxNFSServerTest.h"
#include "nfs/NFSBrowse.h"

using namespace kxNFSUtils;
using kxtest::Exists;
using kxtest::Put;

namespace {

class NFSObjects : public kxtest::NFSServerTest {
protected:
    void SetUp() override {
        kxtest::NFSServerTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        dir = MakeTestDir();
        browse = Browse(eUseTCP);
        ASSERT_TRUE(browse);
        top.reset(browse->Open(dir, false, false));
        ASSERT_TRUE(top);
    }

    std::unique_ptr<DirEntry> Open(const std::string& path, bool create = false,
                                   bool nearest = false) {
        return std::unique_ptr<DirEntry>(browse->Open(path, create, nearest));
    }
    static struct stat Stat(const std::string& path) {
        struct stat st {};
        EXPECT_EQ(0, lstat(path.c_str(), &st)) << path;
        return st;
    }
    // A new object's entry: the name goes in serverPath, the rest as CreateObject sends it.
    static DirEntry Describe(const std::string& path, uint32_t type, uint32_t mode) {
        DirEntry e;
        e.path = e.serverPath = path;
        e.type = type;
        e.mode = mode;
        e.accessTime = e.writeTime = kxFileTimeUnixEpoch + 1500000000ull * 10000000ull;
        return e;
    }
    // The log line of a failed call: its label and the server's status, then the object.
    std::string Line(const char* label, int status, const std::string& object) const {
        return std::string(label) + " (status " + std::to_string(status) +
               ", err 0x00000000) localhost:" + dir + object;
    }
    // The last failure's code, and whether the log holds a line with that code and text.
    ::testing::AssertionResult Failed(long code, const std::string& line = "") const {
        if (browse->GetLastObjectError() != code)
            return ::testing::AssertionFailure() << std::hex << browse->GetLastObjectError();
        if (!line.empty() && !log.Has(code, line))
            return ::testing::AssertionFailure() << "no log line: " << line;
        return ::testing::AssertionSuccess();
    }

    kxtest::LogCapture log;
    std::string dir;
    std::unique_ptr<NFSBrowse> browse;
    std::unique_ptr<DirEntry> top;
};

TEST_F(NFSObjects, OpenWalksToTheNearestObjectAndNeverLeavesTheExport) {
    ASSERT_EQ(0, mkdir((dir + "/d").c_str(), 0777));
    Put(dir + "/d/f", "x");
    Put(root + "/a/b/c", "in the nested export");

    auto e = Open(dir + "/d/x/y", true, true);
    ASSERT_TRUE(e);
    EXPECT_EQ(dir + "/d", e->serverPath);
    EXPECT_TRUE(Failed(KX_E_NFS_NOENT));
    EXPECT_FALSE(Exists(dir + "/d/x")) << "a missing directory on the way is not made";
    e = Open(dir + "/d/f/x", false, true);
    ASSERT_TRUE(e);
    EXPECT_EQ(dir + "/d/f", e->serverPath);
    EXPECT_TRUE(Failed(KX_E_NFS_WRONG_TYPE));

    // "//" must not make the shorter export match: /a//b/c lies in the export /a/b.
    e = Open(root + "/a//b/c");
    ASSERT_TRUE(e);
    EXPECT_EQ(root + "/a/b/c", e->serverPath);
    EXPECT_EQ(static_cast<uint64_t>(Stat(root + "/a/b/c").st_ino), e->fileId);

    // ".." anywhere refuses the path, even where it would stay inside the export.
    EXPECT_FALSE(Open(dir + "/d/../d/f", true, true));
    EXPECT_TRUE(Failed(KX_E_BAD_ARGUMENT));
    for (const std::string& p : {std::string("data/x"), root + "/datax/y"}) {
        EXPECT_FALSE(Open(p, false, true)) << p;
        EXPECT_TRUE(Failed(KX_E_NFS_NO_EXPORT)) << p;
    }
}

TEST_F(NFSObjects, CreateObjectAndDeleteObject) {
    Put(dir + "/old", "some bytes");
    ASSERT_EQ(0, mkdir((dir + "/full").c_str(), 0777));
    Put(dir + "/full/x", "");

    // (This server refuses the size 0 sent for a directory after making it.)
    DirEntry sub = Describe(dir + "/sub", kDirEntryDirectory, 0750);
    sub.uid = 12;
    sub.gid = 34;
    ASSERT_TRUE(browse->CreateObject(*top, sub));
    EXPECT_TRUE(log.Records().empty());
    struct stat st = Stat(dir + "/sub");
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(0750u, st.st_mode & 07777);
    EXPECT_EQ(12u, st.st_uid);
    EXPECT_EQ(34u, st.st_gid);
    EXPECT_EQ(1500000000, st.st_mtim.tv_sec);
    EXPECT_EQ(static_cast<uint64_t>(st.st_ino), sub.fileId);

    // A file is created UNCHECKED: an existing one is taken over and cut to 0 bytes.
    DirEntry file = Describe(dir + "/old", kDirEntryRegular, 0640);
    const ino_t oldInode = Stat(dir + "/old").st_ino;
    ASSERT_TRUE(browse->CreateObject(*top, file));
    EXPECT_EQ(0, Stat(dir + "/old").st_size);
    EXPECT_EQ(oldInode, Stat(dir + "/old").st_ino);

    DirEntry again = Describe(dir + "/sub", kDirEntryDirectory, 0750);
    EXPECT_FALSE(browse->CreateObject(*top, again));
    EXPECT_TRUE(Failed(KX_E_NFS_EXISTS, Line("NFSBrowseImpl3::CreateObject", 17, "/sub")));

    // DeleteObject: RMDIR of a directory with entries, of an empty one; REMOVE of a file; the
    // type chooses the procedure, so RMDIR of a file fails.
    DirEntry full = Describe(dir + "/full", kDirEntryDirectory, 0);
    EXPECT_FALSE(browse->DeleteObject(*top, full));
    EXPECT_TRUE(Failed(KX_E_NFS_NOT_EMPTY, Line("nfsproc3_rmdir_3", 66, "/full")));
    EXPECT_TRUE(browse->DeleteObject(*top, sub));
    EXPECT_FALSE(Exists(dir + "/sub"));
    DirEntry fileAsDir = Describe(dir + "/old", kDirEntryDirectory, 0);
    EXPECT_FALSE(browse->DeleteObject(*top, fileAsDir));
    EXPECT_TRUE(Failed(KX_E_NFS_WRONG_TYPE));
    EXPECT_TRUE(browse->DeleteObject(*top, file));
    EXPECT_FALSE(Exists(dir + "/old"));
    EXPECT_FALSE(browse->DeleteObject(*top, file));
    EXPECT_TRUE(Failed(KX_E_NFS_NOENT, Line("nfsproc3_remove_3", 2, "/old")));
}

TEST_F(NFSObjects, RenameStaysInItsDirectory) {
    Put(dir + "/a", "A");
    Put(dir + "/c", "C");
    ASSERT_EQ(0, mkdir((dir + "/src").c_str(), 0777));
    ASSERT_EQ(0, mkdir((dir + "/full").c_str(), 0777));
    Put(dir + "/full/x", "");
    auto a = Open(dir + "/a");
    ASSERT_TRUE(a);

    // A file over a file replaces it.
    a->serverPath = "stale text";  // reset from path before use
    ASSERT_TRUE(browse->RenameObject(*top, *a, "c"));
    EXPECT_EQ(dir + "/c", a->serverPath);
    EXPECT_EQ(dir + "/c", a->path);
    EXPECT_FALSE(Exists(dir + "/a"));
    EXPECT_EQ("A", kxtest::ReadFile(dir + "/c"));

    // Over a directory that has entries: refused, and the log names both names. (The protocol
    // lets a server answer "exists" or "not empty"; this one says "not empty".)
    DirEntry src = Describe(dir + "/src", kDirEntryDirectory, 0);
    EXPECT_FALSE(browse->RenameObject(*top, src, "full"));
    EXPECT_TRUE(Failed(KX_E_NFS_NOT_EMPTY, ") localhost:" + dir + " from src to full"));
    EXPECT_EQ(dir + "/src", src.serverPath);

    // The new name is one name: no way into another directory, and nothing is sent.
    log.Clear();
    for (const char* bad : {"../b", ".."}) {
        EXPECT_FALSE(browse->RenameObject(*top, *a, bad));
        EXPECT_TRUE(Failed(KX_E_BAD_ARGUMENT)) << bad;
    }
    EXPECT_FALSE(browse->RenameObject(*top, *a, ""));
    EXPECT_TRUE(Failed(KX_E_NFS_NO_NAME));
    EXPECT_TRUE(log.Records().empty());
    EXPECT_TRUE(Exists(dir + "/c"));
}

TEST_F(NFSObjects, SymlinksHardLinksAndAccess) {
    Put(dir + "/f", "F");
    ASSERT_EQ(0, chmod((dir + "/f").c_str(), 0640));
    auto f = Open(dir + "/f");
    ASSERT_TRUE(f);

    KBuffer target;
    ASSERT_EQ(KX_OK, target.Assign("some/where"));
    DirEntry link = Describe(dir + "/l", kDirEntrySymlink, 0);
    ASSERT_TRUE(browse->CreateSymlink(*top, link, target));
    KBuffer back;
    ASSERT_TRUE(browse->ReadSymlink(link, back));
    ASSERT_EQ(11u, back.GetBytesUsed()) << "the text and its terminating zero";
    EXPECT_STREQ("some/where", reinterpret_cast<const char*>(back.GetPtr()));
    auto opened = Open(dir + "/l");
    ASSERT_TRUE(opened);
    EXPECT_EQ(kDirEntrySymlink, opened->type) << "Open does not follow the link";
    EXPECT_FALSE(browse->CreateSymlink(*top, link, target));
    EXPECT_TRUE(Failed(KX_E_NFS_EXISTS, Line("nfsproc3_symlink_3", 17, "/l")));
    EXPECT_FALSE(browse->ReadSymlink(*f, back));
    EXPECT_TRUE(log.Has(browse->GetLastObjectError(), "nfsproc3_readlink_3 (status "));

    ASSERT_TRUE(browse->MakeLink(*f, *top, "h"));
    EXPECT_EQ(Stat(dir + "/f").st_ino, Stat(dir + "/h").st_ino);
    EXPECT_FALSE(browse->MakeLink(*f, *top, "h"));
    EXPECT_TRUE(Failed(KX_E_NFS_EXISTS, Line("nfsproc3_link_3", 17, "/f to " + dir + "/h")));
    EXPECT_FALSE(browse->MakeLink(*f, *f, "x"));
    EXPECT_TRUE(Failed(KX_E_NFS_WRONG_TYPE));

    // ACCESS: the rights the server grants root, whatever the incoming mask says.
    uint32_t mask = 0;
    ASSERT_TRUE(browse->Access(*f, mask));
    EXPECT_EQ(0x01u | 0x04u | 0x08u, mask & 0x0Du) << std::hex << mask;
    EXPECT_EQ(0u, mask & 0x20u) << "root may not execute a file without x bits";
}

TEST_F(NFSObjects, StaleHandlesAfterRemovalBehindTheClientsBack) {
    Put(dir + "/f", "F");
    auto f = Open(dir + "/f");
    ASSERT_TRUE(f);
    ASSERT_EQ(0, rename((dir + "/f").c_str(), (dir + "/moved").c_str()));
    ASSERT_EQ(0, unlink((dir + "/moved").c_str()));

    // (The server may answer GETATTR and LOOKUP from its cache for a while; calls that change
    // an object reach the file system at once.)
    EXPECT_FALSE(browse->SetAttributes(*f, NFSBrowse::kSetSize));
    EXPECT_TRUE(Failed(KX_E_NFS_STALE, Line("nfsproc3_setattr_3", 70, "/f")));

    // Lookup checks the name before sending; Access fails too, and leaves the last error as
    // the previous failure left it.
    DirEntry e;
    EXPECT_FALSE(browse->Lookup(*top, "", e));
    EXPECT_TRUE(Failed(KX_E_NFS_NO_NAME));
    uint32_t mask = 0x12345678;
    EXPECT_FALSE(browse->Access(*f, mask));
    EXPECT_TRUE(Failed(KX_E_NFS_NO_NAME));
    EXPECT_TRUE(log.Has(KX_E_NFS_STALE, Line("nfsproc3_access_3", 70, "/f")));
}

}  // namespace
