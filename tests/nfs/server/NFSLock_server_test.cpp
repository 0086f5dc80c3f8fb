// Whole-file locks: against nfs-ganesha's lock manager (which offers version 4 only, so every
// lock there goes through the fallback), and against the fake peer for what must be seen on
// the wire and for answers a real server does not give on demand.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "kxFakeBrowse.h"
#include "kxFakeRecord.h"
#include "kxLogCapture.h"
#include "kxNFSServerTest.h"
#include "nfs/NFSBrowse.h"
#include "platform/kxSysInfo.h"
#include "xdr/nlm4_prot.h"
#include "xdr/nlm_prot.h"

using namespace kxNFSUtils;

namespace {

const std::vector<int> kGroups{0};
const std::string kCookie("\xEB\x20\xF3\xFA", 4);
constexpr uint64_t kPast4GiB = (1ull << 32) + 10;

std::unique_ptr<NFSBrowse> BrowseAt(const std::string& host) {
    NFSBrowse* b = nullptr;
    EXPECT_EQ(KX_OK, CreateNFSBrowse(b, host, 0, kGroups, nullptr, eUseTCP)) << host;
    return std::unique_ptr<NFSBrowse>(b);
}

// ---- Against nfs-ganesha ----
//
// nfs-ganesha tells lock owners apart by the client's address, the caller name, the transport
// (TCP or UDP), the owner handle and the svid. Every browse object of every process on one
// machine sends the same caller name, owner handle and svid, so it takes a second client
// address to be a second owner: the tests reach the server at 127.0.0.1 and at 127.0.0.2, and
// a connection to a loopback address comes from that address.

class NLMServer : public kxtest::NFSServerTest {
protected:
    void SetUp() override {
        kxtest::NFSServerTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        auto& sandbox = kxtest::NFSSandbox::Get();
        if (!sandbox.StatusMonitorUp()) {
            if (access("/usr/sbin/rpc.statd", X_OK) != 0)
                GTEST_SKIP() << "rpc.statd is not installed (nfs-common)";
            FAIL() << "the lock manager or rpc.statd did not register with the port mapper";
        }
        exportPath = sandbox.ExportRoot() + "/a";
        here = BrowseAt("127.0.0.1");
        there = BrowseAt("127.0.0.2");
        ASSERT_TRUE(here && there);
    }

    // A new file of `size` bytes in the export, as the server names it.
    DirEntry File(const std::string& name, uint64_t size) {
        const std::string path = exportPath + "/" + name;
        const int fd = open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0666);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(0, ftruncate(fd, static_cast<off_t>(size)));
        close(fd);
        std::unique_ptr<DirEntry> file(here->Open(path, false, false));
        EXPECT_TRUE(file) << std::hex << here->GetLastObjectError();
        return file ? *file : DirEntry();
    }

    std::string exportPath;
    std::unique_ptr<NFSBrowse> here;   // reaches the server from 127.0.0.1
    std::unique_ptr<NFSBrowse> there;  // from 127.0.0.2: another lock owner
};

TEST_F(NLMServer, LocksKeepTheOtherOwnerOutUntilUnlocked) {
    const DirEntry file = File("exclusive", 100);
    kxtest::LogCapture log;
    ASSERT_TRUE(here->LockFile(file, true, true)) << std::hex << here->GetLastObjectError();
    // The version-1 connection was replaced by a version-4 one that answers.
    EXPECT_TRUE(here->Verify());

    EXPECT_FALSE(there->LockFile(file, true, true));
    EXPECT_EQ(KX_E_NLM_DENIED, there->GetLastObjectError());
    EXPECT_TRUE(log.Has(KX_E_NLM_DENIED,
                        "nlmproc4_lock_4 (status 1, err 0x00000000) 127.0.0.2:" + file.serverPath))
        << (log.Records().empty() ? "" : log.Records().back().text);
    EXPECT_FALSE(there->LockFile(file, true, false));
    // Locking again what one holds is granted (the same owner), and one unlock frees it.
    EXPECT_TRUE(here->LockFile(file, true, true));
    EXPECT_TRUE(here->LockFile(file, false, true));
    EXPECT_TRUE(there->LockFile(file, true, true));
    EXPECT_FALSE(here->LockFile(file, true, false));
    EXPECT_EQ(KX_E_NLM_DENIED, here->GetLastObjectError());
    EXPECT_TRUE(there->LockFile(file, false, true));
}

// ---- Against the fake peer ----
//
// The fakes serve MOUNT, NFS and the lock manager in a sandbox of their own, apart from the
// real server (kxFakeBrowse.h runs each body in it), and the lock manager records every
// request it receives.

// The last error the browse objects on the fakes start with: a request that stores nothing
// leaves it.
constexpr long kErrorBefore = KX_E_NFS_NO_EXPORT;

class LockPeers {
public:
    // A lock manager registered for `version` (none for 0) in `mode`, answering `status`.
    LockPeers(unsigned long version, const char* mode, int status) {
        nlm = version == 0
                  ? 0
                  : kxtest::NFSSandbox::Get().StartFake(100021, version, mode, status, record);
        ExportInfo root;
        if (nlm >= 0 && fake.Start("nfs", 0)) browse = fake.Browse(eUseTCP, root);
        if (browse) {
            EXPECT_FALSE(browse->FindMountPoint("/nowhere", root));
        }
    }
    ~LockPeers() {
        browse.reset();
        if (nlm > 0) kxtest::NFSSandbox::Get().Stop(nlm);
    }
    LockPeers(const LockPeers&) = delete;
    LockPeers& operator=(const LockPeers&) = delete;

    // LockFile on a file whose handle buffer holds 1, 2, 3, ... so that padding shows.
    bool Lock(bool lock, bool exclusive, uint64_t size, uint32_t handleLength) {
        DirEntry file;
        for (size_t k = 0; k < kDirEntryHandleSize; ++k)
            file.handle[k] = static_cast<uint8_t>(k + 1);
        file.handleLength = handleLength;
        file.size = size;
        file.type = kDirEntryRegular;
        file.serverPath = file.path = "/export/000000/f";
        return browse->LockFile(file, lock, exclusive);
    }

    std::vector<kxfake::Call> Calls() const { return kxfake::ReadRecord(record); }

    kxtest::FakeNFS fake;
    std::unique_ptr<NFSBrowse> browse;
    kxtest::TempDir dir;
    const std::string record = dir / "nlm-calls";
    pid_t nlm = -1;
};

std::string Bytes(const netobj& n) {
    return std::string(n.n_bytes, n.n_len);
}

// The handle buffer's first n bytes, as LockPeers::Lock fills it.
std::string HandleBytes(size_t n) {
    std::string s;
    for (size_t k = 0; k < n; ++k) s += static_cast<char>(k + 1);
    return s;
}

// A LOCK (procedure 2) or UNLOCK (4) request of either version: every field the client sets.
template <typename Args>
void ExpectRequest(const kxfake::Call& call, bool_t (*decode)(XDR*, Args*), uint32_t procedure,
                   const std::string& handle, uint64_t length, bool exclusive = false) {
    kxfake::Args<Args> a(call, decode);
    ASSERT_TRUE(a.ok);
    EXPECT_EQ(procedure, call.procedure);
    EXPECT_EQ(kCookie, Bytes(a.value.cookie));
    EXPECT_EQ(kCookie, Bytes(a.value.alock.oh));
    EXPECT_EQ(std::string(kxSysInfo::GetComputerNameA()), a.value.alock.caller_name);
    EXPECT_EQ(handle, Bytes(a.value.alock.fh));
    EXPECT_EQ(0u, a.value.alock.l_offset);
    EXPECT_EQ(length, a.value.alock.l_len);
    if constexpr (std::is_same_v<Args, nlm_lockargs> || std::is_same_v<Args, nlm4_lockargs>) {
        EXPECT_EQ(exclusive, a.value.exclusive != 0);
        EXPECT_FALSE(a.value.block || a.value.reclaim);
    }
}

KX_FAKE_TEST(FakeLockManager, Version1RequestsCarryTheLockDescription) {
    LockPeers peers(1, "nlm", nlm_granted);
    ASSERT_TRUE(peers.browse);
    kxtest::LogCapture log;
    EXPECT_TRUE(peers.Lock(true, true, 100, 4));
    EXPECT_TRUE(peers.Lock(true, false, kPast4GiB, 40));
    EXPECT_TRUE(peers.Lock(false, false, 0xFFFFFFFFu, 28));
    // The connection broke with the restart: made again, and the request repeated.
    kxtest::NFSSandbox::Get().Stop(peers.nlm);
    peers.nlm = kxtest::NFSSandbox::Get().StartFake(100021, 1, "nlm", nlm_granted, peers.record);
    EXPECT_TRUE(peers.Lock(false, true, 0xFFFFF000u, 4));
    EXPECT_EQ(kErrorBefore, peers.browse->GetLastObjectError());  // success stores nothing
    EXPECT_TRUE(log.Records().empty());

    // Version 1 sends at least 32 handle bytes (padded from the buffer) and 32-bit lengths:
    // the size plus 4096, wrapping, so that 4 GiB - 4096 bytes lock "to the end of the file".
    const auto calls = peers.Calls();
    ASSERT_EQ(4u, calls.size());
    for (const auto& c : calls) EXPECT_EQ(1u, c.version);
    ExpectRequest(calls[0], xdr_nlm_lockargs, 2, HandleBytes(32), 4196, true);
    ExpectRequest(calls[1], xdr_nlm_lockargs, 2, HandleBytes(40), 4106);
    ExpectRequest(calls[2], xdr_nlm_unlockargs, 4, HandleBytes(32), 4095);
    ExpectRequest(calls[3], xdr_nlm_unlockargs, 4, HandleBytes(32), 0);
}

KX_FAKE_TEST(FakeLockManager, FallsBackToVersion4AndRemembersIt) {
    LockPeers peers(4, "nlm4only", NLM4_GRANTED);
    ASSERT_TRUE(peers.browse);
    kxtest::LogCapture log;
    EXPECT_TRUE(peers.Lock(true, true, kPast4GiB, 4));
    EXPECT_TRUE(peers.Lock(false, true, 100, 4));
    EXPECT_TRUE(peers.Lock(true, false, UINT64_MAX, 28));
    EXPECT_EQ(kErrorBefore, peers.browse->GetLastObjectError());
    EXPECT_TRUE(log.Records().empty());   // the refused version-1 request is no failure
    EXPECT_TRUE(peers.browse->Verify());  // the lock manager's connection answers

    // One version-1 request, refused; from then on version 4 only, with the handle at its own
    // length and 64-bit lengths.
    const auto calls = peers.Calls();
    ASSERT_EQ(5u, calls.size());  // the last one is Verify's NULL
    EXPECT_EQ(1u, calls[0].version);
    for (size_t i = 1; i < calls.size(); ++i) EXPECT_EQ(4u, calls[i].version) << i;
    EXPECT_EQ(0u, calls[4].procedure);
    ExpectRequest(calls[1], xdr_nlm4_lockargs, 2, HandleBytes(4), kPast4GiB + 4096, true);
    ExpectRequest(calls[2], xdr_nlm4_unlockargs, 4, HandleBytes(4), 4196);
    ExpectRequest(calls[3], xdr_nlm4_lockargs, 2, HandleBytes(28), 0);  // no end fits
}

// Refusals of both versions are translated and logged with the file; without a lock manager
// the request fails quietly and leaves no connection behind.
KX_FAKE_TEST(FakeLockManager, RefusalsAreTranslatedAndLogged) {
    const std::string detail = " fake:/export/000000/f";
    {
        LockPeers peers(1, "nlm", nlm_denied);
        ASSERT_TRUE(peers.browse);
        kxtest::LogCapture log;
        EXPECT_FALSE(peers.Lock(true, true, 100, 4));
        EXPECT_EQ(KX_E_NLM_DENIED, peers.browse->GetLastObjectError());
        EXPECT_FALSE(peers.Lock(false, true, 100, 4));
        ASSERT_EQ(2u, log.Records().size());
        EXPECT_EQ(KX_E_NLM_DENIED, log.Records()[0].code);
        EXPECT_EQ("nlm_lock_3(status 1, err 0x00000000)" + detail, log.Records()[0].text);
        EXPECT_EQ("nlm_unlock_3(status 1, err 0x00000000)" + detail, log.Records()[1].text);
    }
    {
        LockPeers peers(4, "nlm4only", NLM4_STALE_FH);
        ASSERT_TRUE(peers.browse);
        kxtest::LogCapture log;
        EXPECT_FALSE(peers.Lock(true, true, 100, 4));
        EXPECT_EQ(KX_E_NFS_STALE, peers.browse->GetLastObjectError());
        ASSERT_EQ(1u, log.Records().size());
        EXPECT_EQ("nlmproc4_lock_4 (status 7, err 0x00000000)" + detail, log.Records()[0].text);
    }
    LockPeers peers(0, "", 0);
    ASSERT_TRUE(peers.browse);
    kxtest::LogCapture log;
    EXPECT_FALSE(peers.Lock(true, true, 100, 4));
    EXPECT_EQ(kErrorBefore, peers.browse->GetLastObjectError());
    EXPECT_TRUE(log.Records().empty());
    EXPECT_TRUE(peers.browse->Verify());
}

}  // namespace
