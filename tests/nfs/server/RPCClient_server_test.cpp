// The RPC transport against a misbehaving peer and a missing program, in the test's sandbox.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/select.h>

#include <memory>

#include "kxFakeBrowse.h"
#include "kxNFSServerTest.h"
#include "nfs/ExportMount.h"
#include "nfs/NFSBrowse.h"
#include "nfs/kxNFSErrorMap.h"
#include "nfs/kxRPCWrappers.h"

using namespace kxNFSUtils;

namespace {

constexpr unsigned long kFakeProgram = 200999;
const xdrproc_t kVoid = reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(xdr_void));

unsigned long Loopback() {
    return static_cast<unsigned long>(inet_addr("127.0.0.1"));
}

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
    // A UDP client of a fake in mode (which replaces the fake of an earlier call).
    std::unique_ptr<RPCClient> Start(const char* mode) {
        if (pid > 0) kxtest::NFSSandbox::Get().Stop(pid);
        pid = kxtest::NFSSandbox::Get().StartFake(kFakeProgram, 1, mode);
        EXPECT_GT(pid, 0);
        RPCClient* c = nullptr;
        EXPECT_EQ(KX_OK, CreateRPCClient(c, Loopback(), kFakeProgram, 1, RPCClient::PROTOCOL_UDP));
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

// Replies that cannot be decoded report no transaction id; one that decodes but refuses the
// call (an accept status no enumeration holds) still names its call. Regressions among them: a
// denied reply cut off inside its version range once made the client free a pointer taken from
// the sender's bytes (a 20-byte datagram crashed the 32-bit build), and status words beyond
// their enumerations were read through them (found by fuzzing).
TEST_F(FakePeer, UndecodableRepliesAreRefused) {
    const struct {
        const char* mode;
        long procedure;
        clnt_stat expected;
    } cases[] = {{"garbage", 2, RPC_CANTDECODERES},
                 {"shortdenied", 2, RPC_CANTDECODERES},
                 {"oddstatus", 2, RPC_CANTDECODERES},
                 {"oddstatus", 1, RPC_FAILED}};
    unsigned xid = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.mode);
        auto client = Start(c.mode);
        ASSERT_TRUE(client);
        EXPECT_EQ(RPCClient::PROTOCOL_UDP, client->ProtocolUsed());
        unsigned got = 12345;
        ASSERT_EQ(RPC_SUCCESS, client->Call(c.procedure, kVoid, nullptr, xid));
        ASSERT_TRUE(Readable(client->Socket(), 5000));
        EXPECT_EQ(c.expected, client->RecvReply(kVoid, nullptr, got));
        EXPECT_EQ(c.expected == RPC_FAILED ? xid : 12345u, got);
    }

    // Calls of this kind are datagrams: on a stream client Call refuses rather than corrupt
    // the stream.
    RPCClient* tcp = nullptr;
    ASSERT_EQ(KX_OK, CreateRPCClient(tcp, Loopback(), kFakeProgram, 1, RPCClient::PROTOCOL_TCP));
    std::unique_ptr<RPCClient> owned(tcp);
    EXPECT_EQ(RPC_CANTSEND, tcp->Call(0, kVoid, nullptr, xid));
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

// The MOUNT program is served by the fake in a sandbox of its own, apart from the real server.
// (The group lists of such replies are the XDR tests' part.)
KX_FAKE_TEST(ExportMountFake, ListOfThousandsAndCancellation) {
    ASSERT_GT(kxtest::NFSSandbox::Get().StartFake(100005, 3, "accept", 20000), 0);
    RPCAuth* a = nullptr;
    ASSERT_EQ(KX_OK, CreateRPCAuth(a, 0, {0}));
    std::unique_ptr<RPCAuth> auth(a);
    {
        ExportMount mount(3, nullptr);
        ASSERT_EQ(KX_OK, mount.Init(Loopback(), "fake", auth.get()));
        ASSERT_EQ(20000u, mount.Paths().size());
        EXPECT_EQ("/export/000000", mount.Paths().front());
        EXPECT_EQ("/export/019999", mount.Paths().back());
        EXPECT_EQ(4u, mount.MountHandle("/export/000007").handleLength);
    }
    // A cancelled listing keeps what it read so far and fails the set-up.
    kxtest::CancelFrom cancel;
    cancel.from = 10;
    ExportMount mount(3, &cancel);
    EXPECT_EQ(KX_E_REFUSED, mount.Init(Loopback(), "fake", auth.get()));
    EXPECT_EQ(10u, mount.Paths().size());
}

}  // namespace
