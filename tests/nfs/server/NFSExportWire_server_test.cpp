// Export discovery as the server sees it: the credentials every call carries, the UMNT of each
// mounted export when the browse object ends, the figures read from FSSTAT, FSINFO and
// PATHCONF and the transfer sizes they lead to, and the export FindMountPoint chooses when "/"
// is exported. Against the fake peer (modes mountroot and nfsfigures, fake/kxFakeExport.h) in a
// fresh sandbox per test, since the real server holds both programs in the test's own.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <rpc/rpc.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kxFakeBrowse.h"
#include "kxFakeExport.h"
#include "kxFakeRecord.h"
#include "kxNFSSandbox.h"
#include "nfs/NFSBrowse.h"
#include "platform/kxSysInfo.h"
#include "xdr/mount_prot.h"
#include "xdr/nfs3_prot.h"

using namespace kxNFSUtils;

namespace {

// A browse object on the fakes, nothing mounted yet.
std::unique_ptr<NFSBrowse> BrowseAs(int uid, const std::vector<int>& gids) {
    NFSBrowse* b = nullptr;
    EXPECT_EQ(KX_OK,
              CreateNFSBrowse(b, inet_addr("127.0.0.1"), uid, gids, nullptr, eUseTCP, "fake"));
    return std::unique_ptr<NFSBrowse>(b);
}

// The MOUNT path argument of an MNT or UMNT call.
std::string PathArgument(const kxfake::Call& call) {
    const kxfake::Args<dirpath> path(call, xdr_dirpath);
    return path.ok ? path.value : "(undecodable)";
}

// The AUTH_UNIX credential of a call as "machine uid gid: g1 g2 ...", or why there is none.
std::string Credential(const kxfake::Call& call) {
    if (call.credFlavor != AUTH_UNIX) return "flavor " + std::to_string(call.credFlavor);
    authunix_parms parms{};
    std::vector<char> body = call.cred;
    XDR x;
    xdrmem_create(&x, body.data(), static_cast<u_int>(body.size()), XDR_DECODE);
    std::string text = "(undecodable)";
    if (xdr_authunix_parms(&x, &parms)) {
        text = std::string(parms.aup_machname) + " " + std::to_string(parms.aup_uid) + " " +
               std::to_string(parms.aup_gid) + ":";
        for (u_int i = 0; i < parms.aup_len; ++i) text += " " + std::to_string(parms.aup_gids[i]);
    }
    XDR_DESTROY(&x);
    x.x_op = XDR_FREE;
    xdr_authunix_parms(&x, &parms);
    return text;
}

KX_FAKE_TEST(NFSExportWire, CredentialsAndUnmountOnTheWire) {
    kxtest::FakeNFS fake;
    ASSERT_TRUE(fake.Start("nfsfigures", 0, "mountroot"));
    {
        auto browse = BrowseAs(4321, {100, 200, 300});
        ASSERT_TRUE(browse);
        ExportInfo info;
        ASSERT_TRUE(browse->FindMountPoint("/export/a", info));  // mounts "/" and "/export"
        info = ExportInfo();
        ASSERT_TRUE(browse->FindMountPoint("/export/b", info));  // from the cache
        std::vector<ExportInfo> list;
        // A refused mount is only an invalid record: its code is logged, never stored.
        EXPECT_TRUE(browse->Exports(list));
        EXPECT_EQ(0, browse->GetLastObjectError());
        for (const kxfake::Call& c : fake.MountCalls()) EXPECT_NE(MOUNTPROC3_UMNT, c.procedure);
    }
    std::vector<std::string> mounts, unmounts;
    const std::vector<kxfake::Call> calls = fake.MountCalls();
    for (const kxfake::Call& c : calls) {
        if (c.procedure == MOUNTPROC3_MNT) mounts.push_back(PathArgument(c));
        if (c.procedure == MOUNTPROC3_UMNT) unmounts.push_back(PathArgument(c));
    }
    using Paths = std::vector<std::string>;
    EXPECT_EQ((Paths{"/", "/export", "/refused"}), mounts);  // each once
    // Every export that mounted is unmounted once when the object ends, the refused one not.
    EXPECT_EQ((Paths{"/", "/export"}), unmounts);

    // Every call on both services carries the caller's identity: the first group is the
    // primary one, and the whole list, it included, goes along.
    const std::string expected =
        std::string(kxSysInfo::GetComputerNameA()) + " 4321 100: 100 200 300";
    std::vector<kxfake::Call> all = calls;
    for (kxfake::Call& c : fake.NfsCalls()) all.push_back(std::move(c));
    ASSERT_GT(all.size(), calls.size());
    for (const kxfake::Call& c : all)
        EXPECT_EQ(expected, Credential(c))
            << "program " << c.program << " procedure " << c.procedure;
}

void ExpectFigures(const ExportInfo& info, uint32_t maxTransfer, uint32_t multiple,
                   uint32_t readPreferred, uint32_t writePreferred, uint64_t timeDelta,
                   bool canSetTime, const kxfake::FakeFsFigures& f) {
    EXPECT_EQ(maxTransfer, info.maxTransfer);
    EXPECT_EQ(multiple, info.transferMultiple);
    EXPECT_EQ(readPreferred, info.readPreferred);
    EXPECT_EQ(writePreferred, info.writePreferred);
    EXPECT_EQ(timeDelta, info.timeDelta);
    EXPECT_EQ(canSetTime, info.canSetTime);
    EXPECT_EQ(1024u, info.unitSize);
    EXPECT_EQ(f.nameMax, info.nameMax);
    EXPECT_EQ(f.caseInsensitive, info.caseInsensitive);
    EXPECT_EQ(f.casePreserving, info.casePreserving);
    EXPECT_EQ(f.chownRestricted, info.chownRestricted);
    EXPECT_EQ(f.totalBytes, info.totalBytes);
    EXPECT_EQ(f.freeBytes, info.freeBytes);
    EXPECT_EQ(f.availableBytes, info.availableBytes);
}

KX_FAKE_TEST(NFSExportWire, FiguresOfEachExport) {
    kxtest::FakeNFS fake;
    ASSERT_TRUE(fake.Start("nfsfigures", 0, "mountroot"));
    auto browse = BrowseAs(0, {0});
    ASSERT_TRUE(browse);
    std::vector<ExportInfo> list;
    EXPECT_TRUE(browse->Exports(list));
    ASSERT_EQ(3u, list.size());
    EXPECT_EQ("/", list[0].serverPath);
    EXPECT_EQ("/export", list[1].serverPath);
    EXPECT_EQ(kDirEntryInvalid, list[2].type);
    // The smaller maximum and multiple of the two sides, each side's own preferred size, the
    // time granularity in nanoseconds and bit 0x10 as "can set time".
    {
        SCOPED_TRACE("/");
        ExpectFigures(list[0], 128u << 10, 1024, 48u << 10, 96u << 10, 2000000500ull, false,
                      kxfake::kFakeRootFigures);
    }
    {
        SCOPED_TRACE("/export");
        ExpectFigures(list[1], 256u << 10, 512, 64u << 10, 32u << 10, 1000ull, true,
                      kxfake::kFakeExportFigures);
    }
}

KX_FAKE_TEST(NFSExportWire, TransfersTakeTheExportsCrossedPreferredSizes) {
    kxtest::FakeNFS fake;
    ASSERT_TRUE(fake.Start("nfsfigures", 0, "mountroot"));
    auto browse = BrowseAs(0, {0});
    ASSERT_TRUE(browse);
    // "/export" prefers 64 KiB reads and 32 KiB writes; an entry opened below it carries both.
    std::unique_ptr<DirEntry> file(browse->Open("/export/f", false, false));
    ASSERT_TRUE(file);
    EXPECT_EQ(64u << 10, file->readPreferred);
    EXPECT_EQ(32u << 10, file->writePreferred);
    const std::vector<char> bytes(100u << 10, 'w');
    EXPECT_EQ(bytes.size(), browse->Write(*file, bytes.data(), 0, bytes.size()));
    std::vector<char> back(100u << 10);
    browse->Read(*file, back.data(), 0, back.size());  // the fake file is empty
    // Write cuts by the read size and Read by the write size (crossed on purpose).
    std::vector<uint32_t> writes, reads;
    for (const auto& request : fake.Requests(NFSPROC3_WRITE)) writes.push_back(request.second);
    for (const auto& request : fake.Requests(NFSPROC3_READ)) reads.push_back(request.second);
    EXPECT_EQ((std::vector<uint32_t>{65536, 36864}), writes);
    EXPECT_EQ((std::vector<uint32_t>{32768, 32768, 32768, 4096}), reads);
}

KX_FAKE_TEST(NFSExportWire, RootExportServesEveryPath) {
    kxtest::FakeNFS fake;
    ASSERT_TRUE(fake.Start("nfsfigures", 0, "mountroot"));
    auto browse = BrowseAs(0, {0});
    ASSERT_TRUE(browse);
    const std::pair<const char*, const char*> cases[] = {
        {"/elsewhere/x", "/"},  {"/", "/"},
        {"/export", "/export"}, {"/export/deep/f", "/export"},
        {"/exportx", "/"},      {"/refused/x", "/"},  // the longest export that mounts
    };
    for (const auto& [path, expected] : cases) {
        ExportInfo info;
        EXPECT_TRUE(browse->FindMountPoint(path, info)) << path;
        EXPECT_EQ(expected, info.serverPath) << path;
    }
    ExportInfo none;
    EXPECT_FALSE(browse->FindMountPoint("export", none));  // relative: no export holds it
    EXPECT_EQ(KX_E_NFS_NO_EXPORT, browse->GetLastObjectError());
}

}  // namespace
