// A browse object against the fake peer: MOUNT in mode "accept" (one export, /export/000000,
// with a 4-byte root handle 01 02 03 04) or another MOUNT mode, and NFS in one of the NFS modes
// (fake/kxFakeNfs.h), every call recorded so that a test can check what went on the wire.
//
// The real server holds both programs in the test's sandbox, so these tests run in a fresh one
// of their own: RunInFakeSandbox<Body>() runs Body in a forked child (kxtest::InFreshSandbox),
// where gtest assertions report as usual; the child's answer says whether any failed.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kxFakeRecord.h"
#include "kxNFSSandbox.h"
#include "nfs/NFSBrowse.h"
#include "xdr/nfs3_prot.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace kxtest {

class FakeNFS {
public:
    FakeNFS() = default;
    ~FakeNFS() { Stop(); }
    FakeNFS(const FakeNFS&) = delete;
    FakeNFS& operator=(const FakeNFS&) = delete;

    // Starts the two peers (again, after Stop), count handed to the NFS mode; false when either
    // did not come up.
    bool Start(const std::string& nfsMode, int count, const std::string& mountMode = "accept") {
        Stop();
        auto& sandbox = NFSSandbox::Get();
        m_mount = sandbox.StartFake(100005, 3, mountMode, 1, m_mountRecord);
        m_nfs = sandbox.StartFake(100003, 3, nfsMode, count, m_record);
        return m_mount > 0 && m_nfs > 0;
    }

    void Stop() {
        if (m_nfs > 0) NFSSandbox::Get().Stop(m_nfs);
        if (m_mount > 0) NFSSandbox::Get().Stop(m_mount);
        m_nfs = m_mount = -1;
    }

    // A browse object on the fakes named "fake" in log lines, and the root of its export
    // (mounted, with the figures the NFS mode gives). Null after a failed assertion.
    std::unique_ptr<kxNFSUtils::NFSBrowse> Browse(kxNFSUtils::eUseProtocol protocol,
                                                  kxNFSUtils::ExportInfo& root,
                                                  kxNFSUtils::CancelledIf* cancel = nullptr) {
        kxNFSUtils::NFSBrowse* b = nullptr;
        const long rc = kxNFSUtils::CreateNFSBrowse(b, inet_addr("127.0.0.1"), 0, {0}, cancel,
                                                    protocol, "fake");
        EXPECT_EQ(0, rc);
        std::unique_ptr<kxNFSUtils::NFSBrowse> browse(b);
        if (!browse) return browse;
        root = kxNFSUtils::ExportInfo();
        EXPECT_TRUE(browse->FindMountPoint("/export/000000", root));
        return browse;
    }

    // The calls each peer received so far, in arrival order (kept across restarts).
    std::vector<kxfake::Call> MountCalls() const { return kxfake::ReadRecord(m_mountRecord); }
    std::vector<kxfake::Call> NfsCalls() const { return kxfake::ReadRecord(m_record); }

    // The NFS calls of one procedure received so far, in arrival order.
    std::vector<kxfake::Call> Calls(uint32_t procedure) const {
        std::vector<kxfake::Call> calls;
        for (kxfake::Call& c : NfsCalls())
            if (c.procedure == procedure) calls.push_back(std::move(c));
        return calls;
    }

    // (offset, count) of each READ (6) or WRITE (7) received from the first'th on; both
    // requests start with handle, offset and count.
    std::vector<std::pair<uint64_t, uint32_t>> Requests(uint32_t procedure,
                                                        size_t first = 0) const {
        std::vector<std::pair<uint64_t, uint32_t>> out;
        const std::vector<kxfake::Call> calls = Calls(procedure);
        for (size_t i = first; i < calls.size(); ++i) {
            const kxfake::Args<read3args> a(calls[i], xdr_read3args);
            EXPECT_TRUE(a.ok);
            out.emplace_back(a.value.offset, a.value.count);
        }
        return out;
    }

private:
    TempDir m_dir;
    std::string m_record = m_dir / "nfs-calls";
    std::string m_mountRecord = m_dir / "mount-calls";
    pid_t m_mount = -1;
    pid_t m_nfs = -1;
};

// Runs Body in a fresh sandbox with its own port mapper; true when no assertion failed there
// and, in the sanitizer build, nothing leaked (the child ends with _exit, past the exit-time
// leak check).
template <void (*Body)()>
bool RunInFakeSandbox() {
    return InFreshSandbox(true, [] {
               Body();
#ifdef __SANITIZE_ADDRESS__
               if (__lsan_do_recoverable_leak_check() != 0) ADD_FAILURE() << "leaks, see above";
#endif
               return ::testing::Test::HasFailure() ? 1 : 0;
           }) == 0;
}

}  // namespace kxtest

// A test whose body (the block that follows) runs in a fresh sandbox of its own; skipped where
// no sandbox can exist.
#define KX_FAKE_TEST(suite, name)                                       \
    void suite##_##name##_Body();                                       \
    TEST(suite, name) {                                                 \
        auto& sandbox = kxtest::NFSSandbox::Get();                      \
        if (!sandbox.Usable()) GTEST_SKIP() << sandbox.Why();           \
        EXPECT_TRUE(kxtest::RunInFakeSandbox<suite##_##name##_Body>()); \
    }                                                                   \
    void suite##_##name##_Body()
