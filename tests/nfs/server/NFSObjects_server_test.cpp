// The object operations of the browse object against a real NFS server in the test's sandbox,
// checked through the local file system under the export root.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "base/KBuffer.h"
#include "kxLogCapture.h"
#include "kxNFSServerTest.h"
#include "nfs/NFSBrowse.h"
#include "base/kxWin32Types.h"

using namespace kxNFSUtils;
using kxtest::Exists;
using kxtest::Put;

namespace {

// The captured log, for failure messages.
std::string Lines(const kxtest::LogCapture& log) {
    std::string text;
    for (const auto& r : log.Records()) text += r.text + "\n";
    return text;
}

class NFSObjects : public kxtest::NFSServerTest {
protected:
    void SetUp() override {
        kxtest::NFSServerTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        data = root + "/data";
        dir = MakeTestDir();
    }

    static std::unique_ptr<DirEntry> Open(NFSBrowse& b, const std::string& path,
                                          bool create = false, bool nearest = false) {
        return std::unique_ptr<DirEntry>(b.Open(path, create, nearest));
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

    std::string data, dir;
};

TEST_F(NFSObjects, OpenCreatesTheLastNameOnlyAsRootWithMode0777) {
    {
        auto browse = Browse(eUseUDP);
        ASSERT_TRUE(browse);
        const std::string f = dir + "/f";

        EXPECT_FALSE(Open(*browse, f));
        EXPECT_EQ(KX_E_NFS_NOENT, browse->GetLastObjectError());
        EXPECT_FALSE(Exists(f));

        umask(022);  // the server, not this process, decides the mode
        auto made = Open(*browse, f, true);
        ASSERT_TRUE(made);
        EXPECT_EQ(f, made->serverPath);
        EXPECT_EQ(f, made->path);
        EXPECT_EQ(kDirEntryRegular, made->type);
        EXPECT_EQ(0u, made->size);
        EXPECT_GT(made->handleLength, 0u);
        // The export's preferred sizes travel with the entry, for the transfers that use it.
        EXPECT_EQ(65536u, made->readPreferred);
        EXPECT_EQ(65536u, made->writePreferred);
        const struct stat st = Stat(f);
        EXPECT_TRUE(S_ISREG(st.st_mode));
        EXPECT_EQ(0777u, st.st_mode & 07777);
        EXPECT_EQ(0u, st.st_uid);
        EXPECT_EQ(0u, st.st_gid);
        EXPECT_EQ(static_cast<uint64_t>(st.st_ino), made->fileId);

        // An existing file is found, not created again: its bytes stay.
        Put(f, "hello");
        auto again = Open(*browse, f, true);
        ASSERT_TRUE(again);
        EXPECT_EQ(made->fileId, again->fileId);
        EXPECT_EQ(5, Stat(f).st_size);

        // A missing directory on the way is not made.
        EXPECT_FALSE(Open(*browse, dir + "/missing/f", true));
        EXPECT_EQ(KX_E_NFS_NOENT, browse->GetLastObjectError());
        EXPECT_FALSE(Exists(dir + "/missing"));
    }
}

TEST_F(NFSObjects, OpenNearestStopsAtTheDeepestObjectReached) {
    ASSERT_EQ(0, mkdir((dir + "/d").c_str(), 0777));
    Put(dir + "/d/f", "x");
    auto browse = Browse(eUseTCP);
    ASSERT_TRUE(browse);

    auto e = Open(*browse, dir + "/d/x/y", false, true);
    ASSERT_TRUE(e);
    EXPECT_EQ(dir + "/d", e->serverPath);
    EXPECT_EQ(kDirEntryDirectory, e->type);
    EXPECT_EQ(KX_E_NFS_NOENT, browse->GetLastObjectError());
    EXPECT_FALSE(Open(*browse, dir + "/d/x/y", false, false));

    // A file in the middle of the path stops the walk there.
    e = Open(*browse, dir + "/d/f/x", false, true);
    ASSERT_TRUE(e);
    EXPECT_EQ(dir + "/d/f", e->serverPath);
    EXPECT_EQ(kDirEntryRegular, e->type);
    EXPECT_EQ(KX_E_NFS_WRONG_TYPE, browse->GetLastObjectError());

    // The first name missing: the export's root.
    e = Open(*browse, data + "/nothing/here", false, true);
    ASSERT_TRUE(e);
    EXPECT_EQ(data, e->serverPath);

    // create with nearest: the missing directory is not made, the walk ends above it.
    e = Open(*browse, dir + "/d/x/y", true, true);
    ASSERT_TRUE(e);
    EXPECT_EQ(dir + "/d", e->serverPath);
    EXPECT_FALSE(Exists(dir + "/d/x"));

    // Cancellation is asked before each LOOKUP and stops the walk like a failure.
    kxtest::CancelFrom cancel;
    auto cancellable = Browse(eUseTCP, 0, {0}, &cancel);
    ASSERT_TRUE(cancellable);
    const int levels = 3;  // the test's directory, d, f below the export
    cancel.asked = 0;
    cancel.from = levels + 1;
    EXPECT_TRUE(Open(*cancellable, dir + "/d/f"));
    EXPECT_EQ(levels, cancel.asked);
    cancel.asked = 0;
    cancel.from = 3;
    EXPECT_FALSE(Open(*cancellable, dir + "/d/f"));
    EXPECT_EQ(KX_E_NFS_CANCELLED, cancellable->GetLastObjectError());
    cancel.asked = 0;
    e = Open(*cancellable, dir + "/d/f", false, true);
    ASSERT_TRUE(e);
    EXPECT_EQ(dir + "/d", e->serverPath);
    EXPECT_EQ(KX_E_NFS_CANCELLED, cancellable->GetLastObjectError());
}

TEST_F(NFSObjects, OpenNormalisesSpellingsAndNeverLeavesTheExport) {
    ASSERT_EQ(0, mkdir((dir + "/d").c_str(), 0777));
    Put(dir + "/d/f", "x");
    Put(dir + "/..x", "dots in a name are fine");
    Put(root + "/a/b/c", "in the nested export");
    auto browse = Browse(eUseTCP);
    ASSERT_TRUE(browse);

    auto dots = Open(*browse, dir + "/..x");
    ASSERT_TRUE(dots);
    EXPECT_EQ(kDirEntryRegular, dots->type);

    // "//" must not make the shorter export match: /a//b/c lies in the export /a/b.
    auto nested = Open(*browse, root + "/a//b/c");
    ASSERT_TRUE(nested);
    EXPECT_EQ(root + "/a/b/c", nested->serverPath);
    EXPECT_EQ(static_cast<uint64_t>(Stat(root + "/a/b/c").st_ino), nested->fileId);

    // ".." anywhere refuses the path, even where it would stay inside the export.
    for (const std::string& p : {dir + "/d/../d/f", root + "/a/b/../../data"}) {
        SCOPED_TRACE(p);
        EXPECT_FALSE(Open(*browse, p, true, true));
        EXPECT_EQ(KX_E_BAD_ARGUMENT, browse->GetLastObjectError());
    }
    EXPECT_FALSE(Exists(dir + "/d/d"));

    for (const std::string& p : {std::string("data/x"), root + "/datax/y", std::string()}) {
        SCOPED_TRACE(p);
        EXPECT_FALSE(Open(*browse, p, false, true));
        EXPECT_EQ(KX_E_NFS_NO_EXPORT, browse->GetLastObjectError());
    }
}

TEST_F(NFSObjects, LookupAndAttributes) {
    Put(dir + "/f", "12345");
    auto browse = Browse(eUseUDP);
    ASSERT_TRUE(browse);
    auto d = Open(*browse, dir);
    ASSERT_TRUE(d);

    DirEntry f;
    ASSERT_TRUE(browse->Lookup(*d, "f", f));
    EXPECT_EQ(dir + "/f", f.serverPath);
    EXPECT_EQ(f.serverPath, f.path);
    EXPECT_EQ(kDirEntryRegular, f.type);
    EXPECT_EQ(5u, f.size);
    EXPECT_EQ(static_cast<uint64_t>(Stat(dir + "/f").st_ino), f.fileId);
    EXPECT_EQ(d->readPreferred, f.readPreferred);

    DirEntry self;
    ASSERT_TRUE(browse->Lookup(*d, ".", self));
    EXPECT_EQ(d->fileId, self.fileId);

    // Failures leave the entry as it was.
    DirEntry kept = f;
    EXPECT_FALSE(browse->Lookup(*d, "missing", kept));
    EXPECT_EQ(KX_E_NFS_NOENT, browse->GetLastObjectError());
    EXPECT_EQ(f.serverPath, kept.serverPath);
    EXPECT_EQ(f.fileId, kept.fileId);
    EXPECT_FALSE(browse->Lookup(f, "x", kept));
    EXPECT_EQ(KX_E_NFS_WRONG_TYPE, browse->GetLastObjectError());
    EXPECT_FALSE(browse->Lookup(*d, "", kept));
    EXPECT_EQ(KX_E_NFS_NO_NAME, browse->GetLastObjectError());
    for (const char* bad : {"..", "f/x", "/f"}) {
        SCOPED_TRACE(bad);
        EXPECT_FALSE(browse->Lookup(*d, bad, kept));
        EXPECT_EQ(KX_E_BAD_ARGUMENT, browse->GetLastObjectError());
    }

    // SetAttributes, seen through the local file: size, mode, owner and group; then the two
    // times alone (the server cuts the file after setting times, so a size in the same call
    // moves the modification time to its own clock).
    DirEntry want = f;
    want.size = 3;
    want.mode = 0640;
    want.uid = 1234;
    want.gid = 5678;
    ASSERT_TRUE(browse->SetAttributes(want, NFSBrowse::kSetAll));
    struct stat st = Stat(dir + "/f");
    EXPECT_EQ(3, st.st_size);
    EXPECT_EQ(0640u, st.st_mode & 07777);
    EXPECT_EQ(1234u, st.st_uid);
    EXPECT_EQ(5678u, st.st_gid);
    const uint64_t at = 1234567890ull, mt = 1300000000ull;  // seconds since 1970
    want.accessTime = kxFileTimeUnixEpoch + at * 10000000ull + 1230;     // + 123 µs
    want.writeTime = kxFileTimeUnixEpoch + mt * 10000000ull + 4567890;  // + 456789 µs
    ASSERT_TRUE(browse->SetAttributes(want, NFSBrowse::kSetAccessTime | NFSBrowse::kSetWriteTime));
    st = Stat(dir + "/f");
    EXPECT_EQ(static_cast<time_t>(at), st.st_atim.tv_sec);
    EXPECT_EQ(123000, st.st_atim.tv_nsec);
    EXPECT_EQ(static_cast<time_t>(mt), st.st_mtim.tv_sec);
    EXPECT_EQ(456789000, st.st_mtim.tv_nsec);

    // Only the selected attributes change.
    want.size = 1;
    want.mode = 0600;
    want.uid = 1;
    ASSERT_TRUE(browse->SetAttributes(want, NFSBrowse::kSetSize));
    st = Stat(dir + "/f");
    EXPECT_EQ(1, st.st_size);
    EXPECT_EQ(0640u, st.st_mode & 07777);
    EXPECT_EQ(1234u, st.st_uid);

    // GetAttributes refreshes what the server reports and keeps handle and paths.
    DirEntry seen = f;
    ASSERT_TRUE(browse->GetAttributes(seen));
    EXPECT_EQ(1u, seen.size);
    EXPECT_EQ(0640u, seen.mode & 07777);
    EXPECT_EQ(1234u, seen.uid);
    EXPECT_EQ(f.serverPath, seen.serverPath);
    EXPECT_EQ(kxFileTimeUnixEpoch + at * 10000000ull + 1230, seen.accessTime);
}

TEST_F(NFSObjects, CreateObjectAndDeleteObject) {
    kxtest::LogCapture log;
    Put(dir + "/old", "some bytes");
    ASSERT_EQ(0, mkdir((dir + "/full").c_str(), 0777));
    Put(dir + "/full/x", "");
    auto browse = Browse(eUseTCP);
    ASSERT_TRUE(browse);
    auto d = Open(*browse, dir);
    ASSERT_TRUE(d);

    // (This server refuses the size 0 sent for a directory after making it.)
    DirEntry sub = Describe(dir + "/sub", kDirEntryDirectory, 0750);
    sub.uid = 12;
    sub.gid = 34;
    ASSERT_TRUE(browse->CreateObject(*d, sub)) << Lines(log);
    EXPECT_TRUE(log.Records().empty()) << Lines(log);
    struct stat st = Stat(dir + "/sub");
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(0750u, st.st_mode & 07777);
    EXPECT_EQ(12u, st.st_uid);
    EXPECT_EQ(34u, st.st_gid);
    EXPECT_EQ(1500000000, st.st_mtim.tv_sec);
    EXPECT_EQ(kDirEntryDirectory, sub.type);
    EXPECT_GT(sub.handleLength, 0u);
    EXPECT_EQ(static_cast<uint64_t>(st.st_ino), sub.fileId);

    // A file is created UNCHECKED: an existing one is taken over and cut to 0 bytes.
    DirEntry file = Describe(dir + "/old", kDirEntryRegular, 0640);
    file.size = 99;
    const ino_t oldInode = Stat(dir + "/old").st_ino;
    ASSERT_TRUE(browse->CreateObject(*d, file));
    st = Stat(dir + "/old");
    EXPECT_EQ(0, st.st_size);
    EXPECT_EQ(oldInode, st.st_ino);
    EXPECT_EQ(0u, file.size);
    EXPECT_EQ(dir + "/old", file.path);

    // An existing directory name; a name-less entry (nothing sent); a file as directory.
    DirEntry again = Describe(dir + "/sub", kDirEntryDirectory, 0750);
    EXPECT_FALSE(browse->CreateObject(*d, again));
    EXPECT_EQ(KX_E_NFS_EXISTS, browse->GetLastObjectError());
    EXPECT_TRUE(log.Has(KX_E_NFS_EXISTS, "NFSBrowseImpl3::CreateObject (status 17, err 0x00000000) "
                                         "localhost:" + dir + "/sub"));
    log.Clear();
    DirEntry nameless = Describe(dir + "/", kDirEntryRegular, 0640);
    EXPECT_FALSE(browse->CreateObject(*d, nameless));
    EXPECT_EQ(KX_E_NFS_NO_NAME, browse->GetLastObjectError());
    EXPECT_TRUE(log.Records().empty());
    DirEntry inFile = Describe(dir + "/old/x", kDirEntryRegular, 0640);
    EXPECT_FALSE(browse->CreateObject(file, inFile));
    EXPECT_EQ(KX_E_NFS_WRONG_TYPE, browse->GetLastObjectError());

    // DeleteObject: RMDIR of a directory with entries, then of empty ones; REMOVE of a file.
    DirEntry full = Describe(dir + "/full", kDirEntryDirectory, 0);
    EXPECT_FALSE(browse->DeleteObject(*d, full));
    EXPECT_EQ(KX_E_NFS_NOT_EMPTY, browse->GetLastObjectError());
    EXPECT_TRUE(log.Has(KX_E_NFS_NOT_EMPTY, "nfsproc3_rmdir_3 (status 66, err 0x00000000) "
                                            "localhost:" + dir + "/full"));
    EXPECT_TRUE(Exists(dir + "/full/x"));
    EXPECT_TRUE(browse->DeleteObject(*d, sub));
    EXPECT_FALSE(Exists(dir + "/sub"));
    EXPECT_TRUE(browse->DeleteObject(*d, file));
    EXPECT_FALSE(Exists(dir + "/old"));
    EXPECT_FALSE(browse->DeleteObject(*d, file));
    EXPECT_EQ(KX_E_NFS_NOENT, browse->GetLastObjectError());
    EXPECT_TRUE(log.Has(KX_E_NFS_NOENT, "nfsproc3_remove_3 (status 2, err 0x00000000) "
                                        "localhost:" + dir + "/old"));
    // The type chooses the procedure: RMDIR of a file fails.
    Put(dir + "/plain", "");
    DirEntry fileAsDir = Describe(dir + "/plain", kDirEntryDirectory, 0);
    EXPECT_FALSE(browse->DeleteObject(*d, fileAsDir));
    EXPECT_EQ(KX_E_NFS_WRONG_TYPE, browse->GetLastObjectError());
    EXPECT_TRUE(Exists(dir + "/plain"));
    DirEntry dots = Describe(dir + "/..", kDirEntryDirectory, 0);
    EXPECT_FALSE(browse->DeleteObject(*d, dots));
    EXPECT_EQ(KX_E_BAD_ARGUMENT, browse->GetLastObjectError());
}

TEST_F(NFSObjects, RenameStaysInItsDirectory) {
    kxtest::LogCapture log;
    Put(dir + "/a", "A");
    ASSERT_EQ(0, mkdir((dir + "/src").c_str(), 0777));
    ASSERT_EQ(0, mkdir((dir + "/full").c_str(), 0777));
    Put(dir + "/full/x", "");
    auto browse = Browse(eUseUDP);
    ASSERT_TRUE(browse);
    auto d = Open(*browse, dir);
    auto a = Open(*browse, dir + "/a");
    ASSERT_TRUE(d && a);

    a->serverPath = "stale text";  // reset from path before use
    ASSERT_TRUE(browse->RenameObject(*d, *a, "b"));
    EXPECT_EQ(dir + "/b", a->serverPath);
    EXPECT_EQ(dir + "/b", a->path);
    EXPECT_FALSE(Exists(dir + "/a"));
    EXPECT_EQ("A", kxtest::ReadFile(dir + "/b"));

    // Over a directory that has entries: refused, and the log names both names.
    DirEntry src = Describe(dir + "/src", kDirEntryDirectory, 0);
    EXPECT_FALSE(browse->RenameObject(*d, src, "full"));
    const long code = browse->GetLastObjectError();
    // (The protocol lets a server answer either; this one says "not empty".)
    EXPECT_TRUE(code == KX_E_NFS_EXISTS || code == KX_E_NFS_NOT_EMPTY) << std::hex << code;
    EXPECT_TRUE(log.Has(code, "nfsproc3_rename_3 (status ")) << log.Records().size();
    EXPECT_TRUE(log.Has(code, ") localhost:" + dir + " from src to full"));
    EXPECT_EQ(dir + "/src", src.serverPath);
    EXPECT_TRUE(Exists(dir + "/src"));

    DirEntry gone = Describe(dir + "/nothing", kDirEntryRegular, 0);
    EXPECT_FALSE(browse->RenameObject(*d, gone, "other"));
    EXPECT_EQ(KX_E_NFS_NOENT, browse->GetLastObjectError());
    EXPECT_TRUE(log.Has(KX_E_NFS_NOENT, "localhost:" + dir + " from nothing to other"));

    // A file over a file replaces it.
    Put(dir + "/c", "C");
    ASSERT_TRUE(browse->RenameObject(*d, *a, "c"));
    EXPECT_EQ("A", kxtest::ReadFile(dir + "/c"));
    EXPECT_FALSE(Exists(dir + "/b"));
    EXPECT_EQ(dir + "/c", a->serverPath);

    // The new name is one name: no way into another directory.
    log.Clear();
    EXPECT_FALSE(browse->RenameObject(*d, *a, "../b"));
    EXPECT_EQ(KX_E_BAD_ARGUMENT, browse->GetLastObjectError());
    EXPECT_FALSE(browse->RenameObject(*d, *a, ".."));
    EXPECT_EQ(KX_E_BAD_ARGUMENT, browse->GetLastObjectError());
    EXPECT_FALSE(browse->RenameObject(*d, *a, ""));
    EXPECT_EQ(KX_E_NFS_NO_NAME, browse->GetLastObjectError());
    EXPECT_TRUE(log.Records().empty());
    EXPECT_TRUE(Exists(dir + "/c"));
}

TEST_F(NFSObjects, SymlinksAndHardLinks) {
    kxtest::LogCapture log;
    Put(dir + "/f", "F");
    auto browse = Browse(eUseTCP);
    ASSERT_TRUE(browse);
    auto d = Open(*browse, dir);
    auto f = Open(*browse, dir + "/f");
    ASSERT_TRUE(d && f);

    KBuffer target;
    ASSERT_EQ(KX_OK, target.Assign("some/where"));
    DirEntry link = Describe(dir + "/l", kDirEntrySymlink, 0);
    ASSERT_TRUE(browse->CreateSymlink(*d, link, target));
    EXPECT_EQ(kDirEntrySymlink, link.type);
    EXPECT_EQ(dir + "/l", link.serverPath);
    char text[64] = {};
    ASSERT_EQ(10, readlink((dir + "/l").c_str(), text, sizeof text));
    EXPECT_STREQ("some/where", text);

    KBuffer back;
    ASSERT_TRUE(browse->ReadSymlink(link, back));
    ASSERT_EQ(11u, back.GetBytesUsed());
    EXPECT_STREQ("some/where", reinterpret_cast<const char*>(back.GetPtr()));
    // Open does not follow the link: it is the link that comes back.
    auto opened = Open(*browse, dir + "/l");
    ASSERT_TRUE(opened);
    EXPECT_EQ(kDirEntrySymlink, opened->type);

    EXPECT_FALSE(browse->CreateSymlink(*d, link, target));
    EXPECT_EQ(KX_E_NFS_EXISTS, browse->GetLastObjectError());
    EXPECT_TRUE(log.Has(KX_E_NFS_EXISTS, "nfsproc3_symlink_3 (status 17, err 0x00000000) "
                                         "localhost:" + dir + "/l"));
    EXPECT_FALSE(browse->ReadSymlink(*f, back));
    EXPECT_NE(KX_OK, browse->GetLastObjectError());
    EXPECT_TRUE(log.Has(browse->GetLastObjectError(), "nfsproc3_readlink_3 (status "));

    ASSERT_TRUE(browse->MakeLink(*f, *d, "h"));
    EXPECT_EQ(Stat(dir + "/f").st_ino, Stat(dir + "/h").st_ino);
    EXPECT_EQ(2u, Stat(dir + "/f").st_nlink);
    EXPECT_FALSE(browse->MakeLink(*f, *d, "h"));
    EXPECT_EQ(KX_E_NFS_EXISTS, browse->GetLastObjectError());
    EXPECT_TRUE(log.Has(KX_E_NFS_EXISTS, "nfsproc3_link_3 (status 17, err 0x00000000) "
                                         "localhost:" + dir + "/f to " + dir + "/h"));
    EXPECT_FALSE(browse->MakeLink(*f, *f, "x"));
    EXPECT_EQ(KX_E_NFS_WRONG_TYPE, browse->GetLastObjectError());
}

TEST_F(NFSObjects, StaleHandlesAfterRemovalBehindTheClientsBack) {
    kxtest::LogCapture log;
    ASSERT_EQ(0, mkdir((dir + "/d").c_str(), 0777));
    Put(dir + "/f", "F");
    {
        auto browse = Browse(eUseTCP);
        ASSERT_TRUE(browse);
        auto d = Open(*browse, dir + "/d");
        auto f = Open(*browse, dir + "/f");
        ASSERT_TRUE(d && f);
        const std::string moved = dir + "/moved";
        ASSERT_EQ(0, rmdir((dir + "/d").c_str()));
        ASSERT_EQ(0, rename((dir + "/f").c_str(), moved.c_str()));
        ASSERT_EQ(0, unlink(moved.c_str()));

        // (The server may answer GETATTR and LOOKUP from its cache for a while; calls that
        // change an object reach the file system at once.)
        EXPECT_FALSE(browse->SetAttributes(*f, NFSBrowse::kSetSize));
        EXPECT_EQ(KX_E_NFS_STALE, browse->GetLastObjectError());
        EXPECT_TRUE(log.Has(KX_E_NFS_STALE, "nfsproc3_setattr_3 (status 70, err 0x00000000) "
                                            "localhost:" + dir + "/f"))
            << Lines(log);
        DirEntry made = Describe(dir + "/d/x", kDirEntryRegular, 0600);
        EXPECT_FALSE(browse->CreateObject(*d, made));
        EXPECT_EQ(KX_E_NFS_STALE, browse->GetLastObjectError());
        auto top = Open(*browse, dir);
        ASSERT_TRUE(top);
        DirEntry e;

        // Access fails too, and leaves the last error as the previous failure left it.
        EXPECT_FALSE(browse->Lookup(*top, "", e));
        EXPECT_EQ(KX_E_NFS_NO_NAME, browse->GetLastObjectError());
        uint32_t mask = 0x12345678;
        EXPECT_FALSE(browse->Access(*f, mask));
        EXPECT_EQ(KX_E_NFS_NO_NAME, browse->GetLastObjectError());
        EXPECT_TRUE(log.Has(KX_E_NFS_STALE, "nfsproc3_access_3 (status 70, err 0x00000000) "
                                            "localhost:" + dir + "/f"));
    }
}

TEST_F(NFSObjects, AccessReportsTheGrantedRights) {
    Put(dir + "/f", "F");
    ASSERT_EQ(0, chmod((dir + "/f").c_str(), 0640));
    auto browse = Browse(eUseTCP);
    ASSERT_TRUE(browse);
    auto d = Open(*browse, dir);
    auto f = Open(*browse, dir + "/f");
    ASSERT_TRUE(d && f);
    uint32_t mask = 0;  // the incoming value does not limit the question
    ASSERT_TRUE(browse->Access(*d, mask));
    EXPECT_EQ(0x1Fu, mask & 0x1Fu) << std::hex << mask;  // execute means nothing for a directory
    mask = 0;
    ASSERT_TRUE(browse->Access(*f, mask));
    EXPECT_EQ(0x01u | 0x04u | 0x08u, mask & 0x0Du) << std::hex << mask;
    EXPECT_EQ(0u, mask & 0x20u) << "root may not execute a file without x bits";
}

TEST_F(NFSObjects, EntriesWithoutTheSignatureAreRefused) {
    auto browse = Browse(eUseTCP);
    ASSERT_TRUE(browse);
    auto d = Open(*browse, dir);
    ASSERT_TRUE(d);
    DirEntry bad = Describe(dir + "/x", kDirEntryRegular, 0600);
    bad.magic = 0;
    EXPECT_FALSE(browse->CreateObject(*d, bad));
    EXPECT_EQ(KX_E_NOT_INITIALISED, browse->GetLastObjectError());
    EXPECT_FALSE(Exists(dir + "/x"));
    d->magic = 0;
    bad.magic = DirEntry::kMagic;
    EXPECT_FALSE(browse->CreateObject(*d, bad));
    EXPECT_FALSE(browse->GetAttributes(*d));
    EXPECT_EQ(KX_E_NOT_INITIALISED, browse->GetLastObjectError());
    EXPECT_FALSE(Exists(dir + "/x"));
}

}  // namespace
