// What the object operations put on the wire, and how they complete replies that leave out
// optional parts, against the fake peer in mode "nfsobjects" (fake/kxFakeObjectModes.cpp).
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/KBuffer.h"
#include "kxFakeBrowse.h"
#include "kxLogCapture.h"
#include "nfs/NFSBrowse.h"
#include "base/kxWin32Types.h"
#include "xdr/nfs3_prot.h"

using namespace kxNFSUtils;

namespace {

const std::string kExport = "/export/000000";
const std::string kRootHandle("\x01\x02\x03\x04", 4);

enum : uint32_t { kGetAttr = 1, kLookup = 3, kCreate = 8, kMkDir = 9 };

std::string HandleOf(const DirEntry& e) {
    return std::string(reinterpret_cast<const char*>(e.handle), e.handleLength);
}
std::string HandleOf(const nfs_fh3& fh) { return std::string(fh.data.data_val, fh.data.data_len); }

// The directory handle and name of every LOOKUP received.
std::vector<std::pair<std::string, std::string>> Lookups(const kxtest::FakeNFS& fake) {
    std::vector<std::pair<std::string, std::string>> seen;
    for (const kxfake::Call& c : fake.Calls(kLookup)) {
        const kxfake::Args<diropargs3> a(c, xdr_diropargs3);
        EXPECT_TRUE(a.ok);
        seen.emplace_back(HandleOf(a.value.dir), a.value.name);
    }
    return seen;
}

// A new object's entry in the export; only its last name counts.
DirEntry Named(const std::string& name, uint32_t type, uint32_t mode = 0) {
    DirEntry e;
    e.path = e.serverPath = kExport + "/" + name;
    e.type = type;
    e.mode = mode;
    return e;
}

// The i'th CREATE received: UNCHECKED, with mode, owner, group and a size of 0 all set. The
// attributes are returned for the caller's checks of the times.
sattr3 ExpectCreate(const kxtest::FakeNFS& fake, size_t i, uint32_t mode, uint32_t uid,
                    uint32_t gid) {
    const auto creates = fake.Calls(kCreate);
    if (creates.size() <= i) {
        ADD_FAILURE() << "no CREATE " << i;
        return sattr3{};
    }
    const kxfake::Args<create3args> a(creates[i], xdr_create3args);
    EXPECT_TRUE(a.ok);
    EXPECT_EQ(UNCHECKED, a.value.how.mode);
    const sattr3 o = a.value.how.createhow3_u.obj_attributes;
    EXPECT_TRUE(o.mode.set_it && o.uid.set_it && o.gid.set_it && o.size.set_it);
    EXPECT_EQ(mode, o.mode.set_uint32_u.val);
    EXPECT_EQ(uid, o.uid.set_uint32_u.val);
    EXPECT_EQ(gid, o.gid.set_uint32_u.val);
    EXPECT_EQ(0u, o.size.set_uint64_u.val);
    return o;
}

KX_FAKE_TEST(NFSObjectsWire, OpenSendsOneLookupPerNameAndNoneForTheExport) {
    kxtest::FakeNFS fake;
    ASSERT_TRUE(fake.Start("nfsobjects", 0));
    ExportInfo root;
    auto browse = fake.Browse(eUseUDP, root);
    ASSERT_TRUE(browse);
    using Sent = std::vector<std::pair<std::string, std::string>>;

    // The export itself: the root's copy, and no LOOKUP beyond the export's own ".".
    std::unique_ptr<DirEntry> e(browse->Open(kExport + "//.", false, false));
    ASSERT_TRUE(e);
    EXPECT_EQ(kExport, e->serverPath);
    EXPECT_EQ(kRootHandle, HandleOf(*e));
    for (const auto& l : Lookups(fake)) EXPECT_EQ(".", l.second);

    // One LOOKUP per name, each in the handle the previous one found; no "." nor "" sent.
    const size_t before = Lookups(fake).size();
    std::unique_ptr<DirEntry> f(browse->Open(kExport + "//d1/./d2//f/", false, false));
    ASSERT_TRUE(f);
    const Sent all = Lookups(fake);
    const Sent walk(all.begin() + static_cast<long>(before), all.end());
    EXPECT_EQ((Sent{{kRootHandle, "."}, {kRootHandle, "d1"}, {"H:d1", "d2"}, {"H:d2", "f"}}),
              walk);
    EXPECT_EQ(kExport + "/d1/d2/f", f->serverPath);
    EXPECT_EQ("H:f", HandleOf(*f));
    // The export's preferred sizes, each in its own field.
    EXPECT_EQ(32768u, f->readPreferred);
    EXPECT_EQ(16384u, f->writePreferred);

    // A LOOKUP reply without attributes is completed by GETATTR.
    const size_t getattrs = fake.Calls(kGetAttr).size();
    std::unique_ptr<DirEntry> bare(browse->Open(kExport + "/noattr", false, false));
    ASSERT_TRUE(bare);
    EXPECT_EQ(getattrs + 1, fake.Calls(kGetAttr).size());
    EXPECT_EQ(kDirEntryRegular, bare->type);
    EXPECT_EQ(5u, bare->fileId);

    // ".." sends nothing at all, not even the export's LOOKUP.
    const size_t calls = fake.NfsCalls().size();
    EXPECT_EQ(nullptr, browse->Open(kExport + "/d1/../d1/f", true, true));
    EXPECT_EQ(KX_E_BAD_ARGUMENT, browse->GetLastObjectError());
    EXPECT_EQ(calls, fake.NfsCalls().size());
}

KX_FAKE_TEST(NFSObjectsWire, CreatesSendEveryAttributeAndCompleteBareReplies) {
    kxtest::FakeNFS fake;
    ASSERT_TRUE(fake.Start("nfsobjects", 0));
    NFSBrowse* b = nullptr;
    ASSERT_EQ(KX_OK, CreateNFSBrowse(b, inet_addr("127.0.0.1"), 1000, {1000}, nullptr, eUseTCP,
                                     "fake"));
    std::unique_ptr<NFSBrowse> browse(b);
    ExportInfo root;
    ASSERT_TRUE(browse->FindMountPoint(kExport, root));
    kxtest::LogCapture log;

    // Open creates the last name with mode 0777, server times, and owner and group 0 even
    // when the caller is not root; the LOOKUP that finds no file is not a failure.
    std::unique_ptr<DirEntry> e(browse->Open(kExport + "/d1/missingfile", true, false));
    ASSERT_TRUE(e);
    EXPECT_EQ("C:missingfile", HandleOf(*e));
    EXPECT_TRUE(log.Records().empty());
    ASSERT_EQ(1u, fake.Calls(kCreate).size());
    const kxfake::Args<create3args> a(fake.Calls(kCreate)[0], xdr_create3args);
    ASSERT_TRUE(a.ok);
    EXPECT_EQ("H:d1", HandleOf(a.value.where.dir));
    EXPECT_STREQ("missingfile", a.value.where.name);
    const sattr3 o = ExpectCreate(fake, 0, 0777, 0, 0);
    EXPECT_EQ(SET_TO_SERVER_TIME, o.atime.set_it);
    EXPECT_EQ(SET_TO_SERVER_TIME, o.mtime.set_it);

    // CreateObject sends the entry's attributes, but for the size.
    DirEntry file = Named("f1", kDirEntryRegular, 0640);
    file.path = file.serverPath = "/elsewhere/f1";  // only the name counts
    file.uid = 7;
    file.gid = 8;
    file.size = 99;
    file.accessTime = kxFileTimeUnixEpoch + 20000005ull;
    file.writeTime = kxFileTimeUnixEpoch + 30000000ull;
    ASSERT_TRUE(browse->CreateObject(root, file));
    EXPECT_EQ(kExport + "/f1", file.path);
    EXPECT_EQ("C:f1", HandleOf(file));
    ASSERT_EQ(2u, fake.Calls(kCreate).size());
    const sattr3 s = ExpectCreate(fake, 1, 0640, 7, 8);  // the entry's size 99 is sent as 0
    EXPECT_EQ(SET_TO_CLIENT_TIME, s.atime.set_it);
    EXPECT_EQ(2u, s.atime.set_time_u.time.seconds);
    EXPECT_EQ(500u, s.atime.set_time_u.time.nseconds);
    EXPECT_EQ(3u, s.mtime.set_time_u.time.seconds);

    // MKDIR (for any type with bit 0x02, so 7 too) carries the size 0 as well; a server that
    // refuses it without making the directory gets the MKDIR again without the size, quietly.
    // (A server that makes the directory before refusing the size is the real one: see
    // NFSObjects.)
    DirEntry strict = Named("missingstrict", 7, 0700);
    ASSERT_TRUE(browse->CreateObject(root, strict));
    EXPECT_EQ("C:missingstrict", HandleOf(strict));
    const auto mkdirs = fake.Calls(kMkDir);
    ASSERT_EQ(2u, mkdirs.size());
    const kxfake::Args<mkdir3args> sized(mkdirs[0], xdr_mkdir3args);
    const kxfake::Args<mkdir3args> retried(mkdirs[1], xdr_mkdir3args);
    ASSERT_TRUE(sized.ok && retried.ok);
    EXPECT_TRUE(sized.value.attributes.size.set_it);
    EXPECT_EQ(0u, sized.value.attributes.size.set_uint64_u.val);
    EXPECT_FALSE(retried.value.attributes.size.set_it);
    EXPECT_TRUE(retried.value.attributes.mode.set_it);

    // A CREATE reply without handle and attributes: the object is looked up by name.
    DirEntry bare = Named("nohandle1", kDirEntryRegular);
    const size_t lookups = fake.Calls(kLookup).size();
    ASSERT_TRUE(browse->CreateObject(root, bare));
    EXPECT_EQ(lookups + 1, fake.Calls(kLookup).size());
    EXPECT_EQ("H:nohandle1", HandleOf(bare));

    // A SYMLINK reply with a handle but no attributes: GETATTR fills them in.
    DirEntry link = Named("l", kDirEntryInvalid);
    KBuffer target;
    ASSERT_EQ(KX_OK, target.Assign("t"));
    ASSERT_TRUE(browse->CreateSymlink(root, link, target));
    EXPECT_EQ("S:l", HandleOf(link));
    EXPECT_EQ(kDirEntrySymlink, link.type);
    EXPECT_TRUE(log.Records().empty());
}

}  // namespace
