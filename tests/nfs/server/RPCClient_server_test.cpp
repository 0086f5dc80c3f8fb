// The RPC transport against a misbehaving peer and a missing program, in the test's sandbox.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/select.h>

#include <memory>
#include <set>

#include "kxNFSSandbox.h"
#include "nfs/ExportMount.h"
#include "nfs/NFSBrowse.h"
#include "nfs/kxNFSErrorMap.h"
#include "nfs/kxRPCWrappers.h"

using namespace kxNFSUtils;

namespace {

constexpr unsigned long kFakeProgram = 200999;
const xdrproc_t kVoid = reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(xdr_void));

const timeval kFive{5, 0};
const timeval kOne{1, 0};

unsigned long Loopback() { return static_cast<unsigned long>(inet_addr("127.0.0.1")); }

class FakePeer : public ::testing::Test {
protected:
    void SetUp() override {
        auto& sandbox = kxtest::NFSSandbox::Get();
        if (!sandbox.Usable()) GTEST_SKIP() << sandbox.Why();
        ASSERT_TRUE(sandbox.PortMapperUp());
    }
    void TearDown() override {
        if (pid > 0) kxtest::NFSSandbox::Get().Stop(pid);
    }
    std::unique_ptr<RPCClient> Start(const char* mode, RPCClient::PROTOCOL protocol) {
        pid = kxtest::NFSSandbox::Get().StartFake(kFakeProgram, 1, mode);
        EXPECT_GT(pid, 0);
        RPCClient* c = nullptr;
        EXPECT_EQ(KX_OK, CreateRPCClient(c, Loopback(), kFakeProgram, 1, protocol));
        RPCAuth* a = nullptr;
        EXPECT_EQ(KX_OK, CreateRPCAuth(a, 1000, {1000, 4, 24}));
        auth.reset(a);
        if (c != nullptr) c->SetAuth(auth->Handle());
        return std::unique_ptr<RPCClient>(c);
    }
    static bool Readable(int fd, int ms) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        timeval tv{0, ms * 1000};
        return select(fd + 1, &set, nullptr, nullptr, &tv) == 1;
    }

    pid_t pid = -1;
    std::unique_ptr<RPCAuth> auth;  // outlives the clients the tests hold
};

TEST_F(FakePeer, ProgUnavailableReplyFailsButReportsItsXid) {
    auto client = Start("progunavail", RPCClient::PROTOCOL_UDP);
    ASSERT_TRUE(client);
    EXPECT_EQ(RPCClient::PROTOCOL_UDP, client->ProtocolUsed());
    unsigned first = 0, second = 0;
    ASSERT_EQ(RPC_SUCCESS, client->Call(0, kVoid, nullptr, first));
    ASSERT_EQ(RPC_SUCCESS, client->Call(0, kVoid, nullptr, second));
    EXPECT_EQ(first - 1, second);

    std::set<unsigned> seen;
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(Readable(client->Socket(), 5000));
        unsigned xid = 0;
        EXPECT_EQ(RPC_FAILED, client->RecvReply(kVoid, nullptr, xid));
        seen.insert(xid);
    }
    EXPECT_EQ((std::set<unsigned>{first, second}), seen);

    // Through the library's own call loop the same reply is the library's status.
    char dummy;
    EXPECT_EQ(RPC_PROGUNAVAIL,
              clnt_call(client->Handle(), 0, kVoid, nullptr, kVoid, &dummy, kFive));
}

TEST_F(FakePeer, GarbledReplyCannotBeDecoded) {
    auto client = Start("garbage", RPCClient::PROTOCOL_UDP);
    ASSERT_TRUE(client);
    unsigned xid = 0, got = 12345;
    ASSERT_EQ(RPC_SUCCESS, client->Call(0, kVoid, nullptr, xid));
    ASSERT_TRUE(Readable(client->Socket(), 5000));
    EXPECT_EQ(RPC_CANTDECODERES, client->RecvReply(kVoid, nullptr, got));
    EXPECT_EQ(12345u, got);  // no transaction id could be read

    // Calls of this kind are datagrams: on a stream client Call refuses rather than corrupt
    // the stream.
    RPCClient* tcp = nullptr;
    ASSERT_EQ(KX_OK, CreateRPCClient(tcp, Loopback(), kFakeProgram, 1, RPCClient::PROTOCOL_TCP));
    std::unique_ptr<RPCClient> owned(tcp);
    EXPECT_EQ(RPC_CANTSEND, tcp->Call(0, kVoid, nullptr, xid));
}

// Regression: a denied reply cut off inside its version range once made the client free a
// pointer taken from the sender's bytes (on the 32-bit build a 20-byte datagram crashed it).
TEST_F(FakePeer, CutDeniedReplyIsRefusedAndFreesNothing) {
    auto client = Start("shortdenied", RPCClient::PROTOCOL_UDP);
    ASSERT_TRUE(client);
    for (int i = 0; i < 3; ++i) {
        unsigned xid = 0, got = 0;
        ASSERT_EQ(RPC_SUCCESS, client->Call(0, kVoid, nullptr, xid));
        ASSERT_TRUE(Readable(client->Socket(), 5000));
        EXPECT_EQ(RPC_CANTDECODERES, client->RecvReply(kVoid, nullptr, got));
    }
}

// Regression (found by fuzzing): the reply's status words were read through their enumerations,
// undefined for values outside them. Whatever the words, the answer is a refusal or no reply.
TEST_F(FakePeer, StatusWordsBeyondTheirEnumerations) {
    auto client = Start("oddstatus", RPCClient::PROTOCOL_UDP);
    ASSERT_TRUE(client);
    unsigned xid = 0, got = 0;
    ASSERT_EQ(RPC_SUCCESS, client->Call(1, kVoid, nullptr, xid));
    ASSERT_TRUE(Readable(client->Socket(), 5000));
    EXPECT_EQ(RPC_FAILED, client->RecvReply(kVoid, nullptr, got));
    EXPECT_EQ(xid, got);
    ASSERT_EQ(RPC_SUCCESS, client->Call(2, kVoid, nullptr, xid));
    ASSERT_TRUE(Readable(client->Socket(), 5000));
    got = 12345;
    EXPECT_EQ(RPC_CANTDECODERES, client->RecvReply(kVoid, nullptr, got));
    EXPECT_EQ(12345u, got);
}

TEST_F(FakePeer, SilentPeerTimesOut) {
    auto client = Start("silent", RPCClient::PROTOCOL_UDP);
    ASSERT_TRUE(client);
    unsigned xid = 0;
    ASSERT_EQ(RPC_SUCCESS, client->Call(0, kVoid, nullptr, xid));
    EXPECT_FALSE(Readable(client->Socket(), 300));
    char dummy;
    EXPECT_EQ(RPC_TIMEDOUT, clnt_call(client->Handle(), 0, kVoid, nullptr, kVoid, &dummy, kOne));
}

TEST_F(FakePeer, ProgramNotRegisteredMakesNoClient) {
    RPCClient* c = reinterpret_cast<RPCClient*>(0x1);
    EXPECT_EQ(KX_E_RPC_FAILED, CreateRPCClient(c, Loopback(), 200998, 1, RPCClient::PROTOCOL_TCP));
    EXPECT_EQ(reinterpret_cast<RPCClient*>(0x1), c);
    EXPECT_EQ(RPC_PROGNOTREGISTERED, rpc_createerr.cf_stat);
    EXPECT_EQ(KX_E_RPC_FAILED,
              CreateRPCClient(c, std::string("localhost"), 200998, 1, RPCClient::PROTOCOL_UDP));
    EXPECT_EQ(KX_E_RPC_PROG_UNAVAILABLE, g_RPCErrorMap.TranslateError(rpc_createerr.cf_stat));
}

// Cancels after a given number of questions.
struct CancelAfter final : CancelledIf {
    explicit CancelAfter(int n) : left(n) {}
    bool Cancelled() override { return --left <= 0; }
    int left;
};

// The MOUNT program is served by the fake in a sandbox of its own, apart from the real server.
int ListThousandsOfExports() {
    auto& sandbox = kxtest::NFSSandbox::Get();
    const pid_t fake = sandbox.StartFake(100005, 3, "accept", 20000);
    if (fake <= 0) return -1;
    RPCAuth* auth = nullptr;
    CreateRPCAuth(auth, 0, {0});
    int result = -2;
    {
        ExportMount mount(3, nullptr);
        if (mount.Init(Loopback(), "fake", auth) == KX_OK &&
            mount.Paths().front() == "/export/000000" && mount.Paths().back() == "/export/019999")
            result = static_cast<int>(mount.Paths().size());
        // Mounting through the fake: a 4-byte handle, unmounted when the object ends.
        if (mount.MountHandle("/export/000007").handleLength != 4) result = -3;
    }
    {
        // A cancelled listing keeps what it read so far and fails the set-up.
        CancelAfter cancel(10);
        ExportMount mount(3, &cancel);
        if (mount.Init(Loopback(), "fake", auth) != KX_E_REFUSED || mount.Paths().size() != 10)
            result = -4;
    }
    delete auth;
    sandbox.Stop(fake);
    return result;
}

TEST_F(FakePeer, ExportListOfThousands) {
    EXPECT_EQ(20000, kxtest::InFreshSandbox(true, ListThousandsOfExports));
}

// Regression: one export with 200,000 groups (a 1.2 MB reply) overflowed the stack of every
// caller of the factory in the group-list decoder.
int ListExportWithHugeGroupList() {
    auto& sandbox = kxtest::NFSSandbox::Get();
    const pid_t fake = sandbox.StartFake(100005, 3, "groups", 200000);
    if (fake <= 0) return -1;
    RPCAuth* auth = nullptr;
    CreateRPCAuth(auth, 0, {0});
    int result = -2;
    {
        ExportMount mount(3, nullptr);
        if (mount.Init(Loopback(), "fake", auth) == KX_OK && mount.Paths().size() == 1 &&
            mount.Paths()[0] == "/export")
            result = 1;
    }
    delete auth;
    sandbox.Stop(fake);
    return result;
}

TEST_F(FakePeer, ExportWithHugeGroupList) {
    EXPECT_EQ(1, kxtest::InFreshSandbox(true, ListExportWithHugeGroupList));
}

}  // namespace
