// Whole-file locks: against nfs-ganesha's lock manager (which offers version 4 only, so every
// lock there goes through the fallback), and against the fake peer for what must be seen on
// the wire and for answers a real server does not give on demand.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "kxFakeRecord.h"
#include "kxLogCapture.h"
#include "kxNFSSandbox.h"
#include "kxTestProcess.h"
#include "nfs/NFSBrowse.h"
#include "nfs/kxRPCWrappers.h"
#include "platform/kxSysInfo.h"
#include "xdr/nfs3_prot.h"
#include "xdr/nlm4_prot.h"
#include "xdr/nlm_prot.h"

using namespace kxNFSUtils;

namespace {

const std::vector<int> kGroups{0};
const std::string kCookie("\xEB\x20\xF3\xFA", 4);
constexpr uint64_t kPast4GiB = (1ull << 32) + 10;

std::unique_ptr<NFSBrowse> Browse(const std::string& host) {
    NFSBrowse* b = nullptr;
    EXPECT_EQ(KX_OK, CreateNFSBrowse(b, host, 0, kGroups, nullptr, eUseTCP)) << host;
    return std::unique_ptr<NFSBrowse>(b);
}

// ---- Against nfs-ganesha ----
//
// nfs-ganesha tells lock owners apart by the client's address, the caller name, the transport
// (TCP or UDP), the owner handle and the svid. Every browse object of every process on one
// machine sends the same caller name, owner handle and svid, so it takes a second client
// address to be a second owner: the tests reach the server at 127.0.0.1 and at 127.0.0.2 (an
// address of its own on the sandbox's loopback, so connections to it come from it).

bool AddLoopbackAddress(const char* dotted) {
    const int s = socket(AF_INET, SOCK_DGRAM, 0);
    if (s < 0) return false;
    ifreq ifr{};
    strncpy(ifr.ifr_name, "lo:kx", IFNAMSIZ - 1);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = inet_addr(dotted);
    memcpy(&ifr.ifr_addr, &a, sizeof a);
    bool ok = ioctl(s, SIOCSIFADDR, &ifr) == 0 || errno == EEXIST;
    a.sin_addr.s_addr = INADDR_BROADCAST;  // a host address, not a second 127/8 network
    memcpy(&ifr.ifr_netmask, &a, sizeof a);
    ok = ok && ioctl(s, SIOCSIFNETMASK, &ifr) == 0;
    close(s);
    return ok;
}

class NLMServer : public ::testing::Test {
protected:
    void SetUp() override {
        auto& sandbox = kxtest::NFSSandbox::Get();
        if (!sandbox.Usable()) GTEST_SKIP() << sandbox.Why();
        if (!sandbox.StartNFSServer()) {
            if (!sandbox.Usable()) GTEST_SKIP() << sandbox.Why();
            FAIL() << sandbox.Failure();
        }
        if (!sandbox.StatusMonitorUp()) {
            if (access("/usr/sbin/rpc.statd", X_OK) != 0)
                GTEST_SKIP() << "rpc.statd is not installed (nfs-common)";
            FAIL() << "rpc.statd did not register with the port mapper";
        }
        ASSERT_TRUE(AddLoopbackAddress("127.0.0.2"));
        exportPath = sandbox.ExportRoot() + "/a";
        here = Browse("127.0.0.1");
        there = Browse("127.0.0.2");
        ASSERT_TRUE(here && there);
    }

    // A new file of `size` bytes in the export, as the server names it.
    DirEntry File(const std::string& name, uint64_t size) {
        const std::string local = exportPath + "/" + name;
        const int fd = open(local.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0666);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(0, ftruncate(fd, static_cast<off_t>(size)));
        close(fd);
        DirEntry file;
        ExportInfo top;
        EXPECT_TRUE(here->FindMountPoint(exportPath, top));
        RPCAuth* a = nullptr;
        RPCClient* c = nullptr;
        EXPECT_EQ(KX_OK, CreateRPCAuth(a, 0, kGroups));
        std::unique_ptr<RPCAuth> auth(a);
        EXPECT_EQ(KX_OK, CreateRPCClient(c, inet_addr("127.0.0.1"), 100003, 3,
                                         RPCClient::PROTOCOL_TCP));
        if (c == nullptr) return file;
        std::unique_ptr<RPCClient> client(c);
        client->SetAuth(auth->Handle());
        diropargs3 args;
        args.dir.data.data_len = top.handleLength;
        args.dir.data.data_val = reinterpret_cast<char*>(top.handle);
        args.name = const_cast<char*>(name.c_str());
        lookup3res res;
        memset(&res, 0, sizeof res);
        if (nfsproc3_lookup_3(&args, &res, client->Handle()) == RPC_SUCCESS &&
            res.status == NFS3_OK) {
            const nfs_fh3& fh = res.lookup3res_u.resok.object;
            memcpy(file.handle, fh.data.data_val, fh.data.data_len);
            file.handleLength = fh.data.data_len;
            file.type = kDirEntryRegular;
            file.size = size;
            file.serverPath = file.path = local;
        }
        clnt_freeres(client->Handle(), reinterpret_cast<xdrproc_t>(xdr_lookup3res),
                     reinterpret_cast<char*>(&res));
        EXPECT_GT(file.handleLength, 0u) << name;
        return file;
    }

    std::string exportPath;
    std::unique_ptr<NFSBrowse> here;   // reaches the server from 127.0.0.1
    std::unique_ptr<NFSBrowse> there;  // from 127.0.0.2: another lock owner
};

TEST_F(NLMServer, ExclusiveLockKeepsOtherClientOutUntilUnlocked) {
    const DirEntry file = File("exclusive", 100);
    kxtest::LogCapture log;
    ASSERT_TRUE(here->LockFile(file, true, true)) << std::hex << here->GetLastObjectError();
    // The version-1 connection was replaced by a version-4 one that answers.
    EXPECT_TRUE(here->Verify());

    EXPECT_FALSE(there->LockFile(file, true, true));
    EXPECT_EQ(KX_E_NLM_DENIED, there->GetLastObjectError());
    EXPECT_TRUE(log.Has(KX_E_NLM_DENIED, "nlmproc4_lock_4 (status 1, err 0x00000000) 127.0.0.2:" +
                                             file.serverPath))
        << (log.Records().empty() ? "" : log.Records().back().text);
    EXPECT_FALSE(there->LockFile(file, true, false));
    EXPECT_EQ(KX_E_NLM_DENIED, there->GetLastObjectError());

    // Locking again what one holds is granted (the same owner), and one unlock frees it.
    EXPECT_TRUE(here->LockFile(file, true, true));
    EXPECT_TRUE(here->LockFile(file, false, true));
    EXPECT_TRUE(there->LockFile(file, true, true));
    EXPECT_FALSE(here->LockFile(file, true, false));
    EXPECT_EQ(KX_E_NLM_DENIED, here->GetLastObjectError());
    EXPECT_TRUE(there->LockFile(file, false, true));
    EXPECT_TRUE(here->LockFile(file, true, true));
    EXPECT_TRUE(here->LockFile(file, false, true));
}

TEST_F(NLMServer, SharedLocksCoexistAndKeepExclusiveOut) {
    // A file past 4 GiB: the length goes as 64 bits and covers it all.
    const DirEntry file = File("shared", kPast4GiB);
    ASSERT_TRUE(here->LockFile(file, true, false));
    ASSERT_TRUE(there->LockFile(file, true, false));
    EXPECT_FALSE(here->LockFile(file, true, true));  // no upgrade while the other one reads
    EXPECT_EQ(KX_E_NLM_DENIED, here->GetLastObjectError());
    EXPECT_TRUE(there->LockFile(file, false, false));
    EXPECT_TRUE(here->LockFile(file, true, true));   // now the upgrade goes through
    EXPECT_FALSE(there->LockFile(file, true, false));
    EXPECT_TRUE(here->LockFile(file, false, true));
    // Unlocking what one does not hold is no failure.
    EXPECT_TRUE(there->LockFile(file, false, false));
}

TEST_F(NLMServer, BrowseObjectsOfOneMachineAreOneOwner) {
    const DirEntry file = File("one-owner", 10);
    auto again = Browse("127.0.0.1");
    ASSERT_TRUE(again);
    ASSERT_TRUE(here->LockFile(file, true, true));
    EXPECT_TRUE(again->LockFile(file, true, true));
    EXPECT_FALSE(there->LockFile(file, true, true));
    // Either one's unlock frees the lock both took.
    EXPECT_TRUE(again->LockFile(file, false, true));
    EXPECT_TRUE(there->LockFile(file, true, true));
    EXPECT_TRUE(there->LockFile(file, false, true));
}

// ---- Against the fake peer ----
//
// The fakes serve MOUNT, NFS and the lock manager in a sandbox of their own, apart from the
// real server. The sandboxed run fills a FakeRun in memory shared with the test, which then
// checks the outcome and reads the lock manager's record of requests.

struct Step {
    bool lock = true;
    bool exclusive = true;
    uint64_t size = 100;
    uint32_t handleLength = 4;
    bool restartBefore = false;  // the lock manager is restarted before this request
    // The outcome:
    bool result = false;
    long error = 0;   // the last error afterwards
    long logCode = 0;  // the code and text of the first line the request logged, if any
    char logText[200] = {};
};

struct FakeRun {
    unsigned long nlmVersion = 1;  // what the fake lock manager registers; 0 for none
    char mode[16] = "nlm";
    int status = 0;  // the status it answers with
    char record[200] = {};
    int steps = 0;
    Step step[6];
    int failure = -1;  // set by the run: 0 when it got through its steps
};

FakeRun* g_run = nullptr;

// The last error a browse object starts with in the fake runs: a request that leaves the
// last error alone leaves this.
constexpr long kErrorBefore = KX_E_NFS_NO_EXPORT;

int LockThroughFakes() {
    FakeRun& run = *g_run;
    auto& sandbox = kxtest::NFSSandbox::Get();
    const pid_t mount = sandbox.StartFake(100005, 3, "accept", 1);
    const pid_t nfs = sandbox.StartFake(100003, 3, "accept");
    const auto startNlm = [&] {
        return run.nlmVersion == 0 ? 0
                                   : sandbox.StartFake(100021, run.nlmVersion, run.mode,
                                                       run.status, run.record);
    };
    pid_t nlm = startNlm();
    if (mount <= 0 || nfs <= 0 || nlm < 0) return run.failure = 1;
    NFSBrowse* b = nullptr;
    if (CreateNFSBrowse(b, std::string("localhost"), 0, kGroups, nullptr, eUseTCP) != KX_OK)
        return run.failure = 2;
    std::unique_ptr<NFSBrowse> browse(b);
    ExportInfo none;
    if (browse->FindMountPoint("/nowhere", none) ||
        browse->GetLastObjectError() != kErrorBefore)
        return run.failure = 3;
    for (int i = 0; i < run.steps; ++i) {
        Step& s = run.step[i];
        if (s.restartBefore) {
            sandbox.Stop(nlm);
            nlm = startNlm();
        }
        DirEntry file;
        for (size_t k = 0; k < kDirEntryHandleSize; ++k) file.handle[k] = static_cast<uint8_t>(k + 1);
        file.handleLength = s.handleLength;
        file.size = s.size;
        file.type = kDirEntryRegular;
        file.serverPath = file.path = "/export/000000/f";
        kxtest::LogCapture log;
        s.result = browse->LockFile(file, s.lock, s.exclusive);
        s.error = browse->GetLastObjectError();
        if (!log.Records().empty()) {
            s.logCode = log.Records()[0].code;
            snprintf(s.logText, sizeof s.logText, "%s", log.Records()[0].text.c_str());
        }
    }
    browse.reset();
    for (pid_t pid : {nlm, nfs, mount})
        if (pid > 0) sandbox.Stop(pid);
    return run.failure = 0;
}

class FakeLockManager : public ::testing::Test {
protected:
    void SetUp() override {
        auto& sandbox = kxtest::NFSSandbox::Get();
        if (!sandbox.Usable()) GTEST_SKIP() << sandbox.Why();
        void* shared = mmap(nullptr, sizeof(FakeRun), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(MAP_FAILED, shared);
        g_run = new (shared) FakeRun;
    }
    void TearDown() override {
        if (g_run != nullptr) munmap(g_run, sizeof(FakeRun));
        g_run = nullptr;
    }

    // Runs the steps against a lock manager of `version` in `mode` answering `status`; returns
    // the requests it received.
    std::vector<kxfake::Call> Run(unsigned long version, const char* mode, int status,
                                  std::initializer_list<Step> steps) {
        *g_run = FakeRun();
        remove((dir / "record").c_str());
        g_run->nlmVersion = version;
        snprintf(g_run->mode, sizeof g_run->mode, "%s", mode);
        g_run->status = status;
        snprintf(g_run->record, sizeof g_run->record, "%s", (dir / "record").c_str());
        for (const Step& s : steps)
            if (g_run->steps < static_cast<int>(sizeof g_run->step / sizeof g_run->step[0]))
                g_run->step[g_run->steps++] = s;
        EXPECT_EQ(0, kxtest::InFreshSandbox(true, LockThroughFakes));
        EXPECT_EQ(0, g_run->failure);
        return kxfake::ReadRecord(dir / "record");
    }

    const Step& Outcome(int i) const { return g_run->step[i]; }

    kxtest::TempDir dir;
};

Step Request(bool lock, bool exclusive, uint64_t size, uint32_t handleLength) {
    Step s;
    s.lock = lock;
    s.exclusive = exclusive;
    s.size = size;
    s.handleLength = handleLength;
    return s;
}

std::string Bytes(const netobj& n) { return std::string(n.n_bytes, n.n_len); }

// The handle buffer's first n bytes, as the fake runs fill it.
std::string HandleBytes(size_t n) {
    std::string s;
    for (size_t k = 0; k < n; ++k) s += static_cast<char>(k + 1);
    return s;
}

// Decoded arguments of one recorded request, released at the end of the scope.
template <typename T>
struct Args {
    Args(const kxfake::Call& c, bool_t (*decode)(XDR*, T*))
        : call(c), proc(reinterpret_cast<xdrproc_t>(decode)) {
        memset(&value, 0, sizeof value);
        ok = call.DecodeArgs(proc, &value);
    }
    ~Args() { call.FreeArgs(proc, &value); }
    Args(const Args&) = delete;
    Args& operator=(const Args&) = delete;
    const kxfake::Call& call;
    xdrproc_t proc;
    T value;
    bool ok;
};

TEST_F(FakeLockManager, Version1RequestsCarryTheDesignedLockDescription) {
    Step restarted = Request(false, true, 0xFFFFF000u, 4);
    restarted.restartBefore = true;
    const auto calls = Run(1, "nlm", 0,
                           {Request(true, true, 100, 4), Request(true, false, kPast4GiB, 40),
                            Request(false, false, 0xFFFFFFFFu, 28), restarted});
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        EXPECT_TRUE(Outcome(i).result);
        EXPECT_EQ(kErrorBefore, Outcome(i).error);  // success stores nothing
        EXPECT_STREQ("", Outcome(i).logText);
    }
    // The restarted lock manager got the last request: the broken connection was replaced.
    ASSERT_EQ(4u, calls.size());
    const std::string caller = kxSysInfo::GetComputerNameA();
    {
        Args<nlm_lockargs> a(calls[0], xdr_nlm_lockargs);
        ASSERT_TRUE(a.ok);
        EXPECT_EQ(1u, calls[0].version);
        EXPECT_EQ(2u, calls[0].procedure);
        EXPECT_EQ(kCookie, Bytes(a.value.cookie));
        EXPECT_EQ(kCookie, Bytes(a.value.alock.oh));
        EXPECT_EQ(caller, a.value.alock.caller_name);
        EXPECT_EQ(HandleBytes(32), Bytes(a.value.alock.fh));  // 4 bytes padded from the buffer
        EXPECT_EQ(0, a.value.alock.uppid);
        EXPECT_EQ(0u, a.value.alock.l_offset);
        EXPECT_EQ(4196u, a.value.alock.l_len);
        EXPECT_FALSE(a.value.block);
        EXPECT_TRUE(a.value.exclusive);
        EXPECT_FALSE(a.value.reclaim);
        EXPECT_EQ(0, a.value.state);
    }
    {
        Args<nlm_lockargs> a(calls[1], xdr_nlm_lockargs);
        ASSERT_TRUE(a.ok);
        EXPECT_FALSE(a.value.exclusive);
        EXPECT_EQ(HandleBytes(40), Bytes(a.value.alock.fh));  // longer handles go whole
        EXPECT_EQ(4106u, a.value.alock.l_len);               // the low 32 bits of the size
    }
    {
        Args<nlm_unlockargs> a(calls[2], xdr_nlm_unlockargs);
        ASSERT_TRUE(a.ok);
        EXPECT_EQ(4u, calls[2].procedure);
        EXPECT_EQ(kCookie, Bytes(a.value.cookie));
        EXPECT_EQ(kCookie, Bytes(a.value.alock.oh));
        EXPECT_EQ(HandleBytes(32), Bytes(a.value.alock.fh));
        // The sum wraps in 32 bits: a file of 4 GiB - 1 bytes is locked for 4095.
        EXPECT_EQ(4095u, a.value.alock.l_len);
    }
    {
        Args<nlm_unlockargs> a(calls[3], xdr_nlm_unlockargs);
        ASSERT_TRUE(a.ok);
        EXPECT_EQ(0u, a.value.alock.l_len);  // wrapped to 0, "to the end of the file"
    }
}

TEST_F(FakeLockManager, FallsBackToVersion4AndRemembersIt) {
    const auto calls = Run(4, "nlm4only", 0,
                           {Request(true, true, kPast4GiB, 4), Request(false, true, 100, 4),
                            Request(true, false, UINT64_MAX, 28)});
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_TRUE(Outcome(i).result);
        EXPECT_EQ(kErrorBefore, Outcome(i).error);
        EXPECT_STREQ("", Outcome(i).logText);  // the refused version-1 request is no failure
    }
    // One version-1 request, refused; from then on version 4 only.
    ASSERT_EQ(4u, calls.size());
    EXPECT_EQ(1u, calls[0].version);
    for (size_t i = 1; i < calls.size(); ++i) EXPECT_EQ(4u, calls[i].version) << i;
    {
        Args<nlm4_lockargs> a(calls[1], xdr_nlm4_lockargs);
        ASSERT_TRUE(a.ok);
        EXPECT_EQ(2u, calls[1].procedure);
        EXPECT_EQ(kCookie, Bytes(a.value.cookie));
        EXPECT_EQ(kCookie, Bytes(a.value.alock.oh));
        EXPECT_EQ(std::string(kxSysInfo::GetComputerNameA()), a.value.alock.caller_name);
        EXPECT_EQ(HandleBytes(4), Bytes(a.value.alock.fh));  // the handle at its own length
        EXPECT_EQ(0, a.value.alock.svid);
        EXPECT_EQ(0u, a.value.alock.l_offset);
        EXPECT_EQ(kPast4GiB + 4096, a.value.alock.l_len);  // all 64 bits of the size
        EXPECT_FALSE(a.value.block);
        EXPECT_TRUE(a.value.exclusive);
        EXPECT_FALSE(a.value.reclaim);
        EXPECT_EQ(0, a.value.state);
    }
    {
        Args<nlm4_unlockargs> a(calls[2], xdr_nlm4_unlockargs);
        ASSERT_TRUE(a.ok);
        EXPECT_EQ(4u, calls[2].procedure);
        EXPECT_EQ(4196u, a.value.alock.l_len);
    }
    {
        Args<nlm4_lockargs> a(calls[3], xdr_nlm4_lockargs);
        ASSERT_TRUE(a.ok);
        EXPECT_FALSE(a.value.exclusive);
        EXPECT_EQ(HandleBytes(28), Bytes(a.value.alock.fh));
        EXPECT_EQ(0u, a.value.alock.l_len);  // no range end fits: to the end of the file
    }
}

TEST_F(FakeLockManager, RefusalsAreTranslatedAndLogged) {
    const std::string detail = " localhost:/export/000000/f";
    {
        SCOPED_TRACE("version 1, denied");
        Run(1, "nlm", nlm_denied, {Request(true, true, 100, 4), Request(false, true, 100, 4)});
        EXPECT_FALSE(Outcome(0).result);
        EXPECT_EQ(KX_E_NLM_DENIED, Outcome(0).error);
        EXPECT_EQ(KX_E_NLM_DENIED, Outcome(0).logCode);
        EXPECT_EQ("nlm_lock_3(status 1, err 0x00000000)" + detail, Outcome(0).logText);
        EXPECT_FALSE(Outcome(1).result);
        EXPECT_EQ("nlm_unlock_3(status 1, err 0x00000000)" + detail, Outcome(1).logText);
    }
    {
        SCOPED_TRACE("version 4, stale handle");
        Run(4, "nlm4only", NLM4_STALE_FH, {Request(true, true, 100, 4)});
        EXPECT_FALSE(Outcome(0).result);
        EXPECT_EQ(KX_E_NFS_STALE, Outcome(0).error);
        EXPECT_EQ("nlmproc4_lock_4 (status 7, err 0x00000000)" + detail, Outcome(0).logText);
    }
    {
        SCOPED_TRACE("no lock manager");
        Run(0, "", 0, {Request(true, true, 100, 4)});
        EXPECT_FALSE(Outcome(0).result);
        EXPECT_EQ(kErrorBefore, Outcome(0).error);  // nothing stored
        EXPECT_STREQ("", Outcome(0).logText);       // nothing logged
    }
}

}  // namespace
