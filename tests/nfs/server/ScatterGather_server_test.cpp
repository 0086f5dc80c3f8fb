// The pipelined transfer (g_NFSUtils_UseScatterGather) against the fake peer: a failure in the
// middle, a server that stops answering, cancellation, short and oversized answers. Its bytes
// against the real server are compared with the sequential path's by the kxnfs tool's suite.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kxFakeBrowse.h"
#include "kxFakeNfs.h"
#include "kxLogCapture.h"
#include "kxNFSServerTest.h"
#include "nfs/NFSBrowse.h"
#include "nfs/kxNFSTransfer.h"
#include "xdr/nfs3_prot.h"

using namespace kxNFSUtils;

namespace {

using kxfake::IsFakeFile;
using kxtest::RandomBytes;

// Turns the pipelined path on for a scope (each fake test runs in a child of its own).
struct PipelineSwitch {
    PipelineSwitch() { g_NFSUtils_UseScatterGather = true; }
    ~PipelineSwitch() { g_NFSUtils_UseScatterGather = false; }
};

// A browse object on the fakes without looking anything up.
std::unique_ptr<NFSBrowse> BareBrowse() {
    NFSBrowse* b = nullptr;
    EXPECT_EQ(KX_OK, CreateNFSBrowse(b, inet_addr("127.0.0.1"), 0, {0}, nullptr, eUseTCP, "fake"));
    return std::unique_ptr<NFSBrowse>(b);
}

// The export root of the fakes, moving 4096 bytes per request.
DirEntry SmallChunks(const ExportInfo& root) {
    DirEntry e = root;
    e.readPreferred = e.writePreferred = 4096;
    return e;
}

KX_FAKE_TEST(ScatterGatherFake, FailureCancellationAndOddAnswers) {
    PipelineSwitch on;
    kxtest::FakeNFS fake;
    ASSERT_TRUE(fake.Start("nfsfailat8k", 100000));
    ExportInfo root;
    kxtest::CancelFrom cancel;
    auto browse = fake.Browse(eUseTCP, root, &cancel);
    ASSERT_TRUE(browse);
    const DirEntry file = SmallChunks(root);
    const std::string bytes = RandomBytes(40000, 3);
    std::string back(40000, '\0');
    {
        // The third chunk fails: 0 whatever the others moved, one line with the label.
        kxtest::LogCapture log;
        EXPECT_EQ(0u, browse->Read(file, &back[0], 0, back.size()));
        EXPECT_EQ(KX_E_NFS_ACCESS, browse->GetLastObjectError());
        EXPECT_EQ(0u, browse->Write(file, bytes.data(), 0, bytes.size()));
        EXPECT_EQ(KX_E_NFS_ACCESS, browse->GetLastObjectError());
        ASSERT_EQ(2u, log.Records().size());
        EXPECT_TRUE(log.Has(KX_E_NFS_ACCESS, "NFSBrowseImpl3::ScatterGatherIO (status 13, err "
                                             "0x00000000) fake:/export/000000"));
    }
    // Cancelled before the failing chunk is asked for: the bytes before it, and no failure.
    cancel.asked = 0;
    cancel.from = 3;
    EXPECT_EQ(8192u, browse->Read(file, &back[0], 0, back.size()));
    EXPECT_TRUE(IsFakeFile(back.substr(0, 8192), 0));

    // The connection is kept between transfers. When the server goes away meanwhile, the kept
    // one is found broken, a new one is refused, and the transfer fails at once.
    ASSERT_TRUE(fake.Start("nfs", 100000));
    auto plain = fake.Browse(eUseTCP, root);
    ASSERT_TRUE(plain);
    EXPECT_EQ(back.size(), plain->Read(file, &back[0], 0, back.size()));
    fake.Stop();
    EXPECT_EQ(0u, plain->Read(file, &back[0], 0, back.size()));
    EXPECT_EQ(KX_E_RPC_CANT_SEND, plain->GetLastObjectError());

    // A server that takes 1000 bytes of each WRITE: the rest of every chunk is sent again
    // until the whole range is written once.
    ASSERT_TRUE(fake.Start("nfsshortwrite", 0));
    auto shortWrites = fake.Browse(eUseTCP, root);
    ASSERT_TRUE(shortWrites);
    const size_t shortBefore = fake.Calls(7).size();
    EXPECT_EQ(10000u, shortWrites->Write(file, bytes.data(), 50, 10000));
    const auto shortWritten = fake.Requests(7);
    std::set<uint64_t> starts;
    uint64_t covered = 0;
    for (size_t i = shortBefore; i < shortWritten.size(); ++i) {
        const auto [offset, count] = shortWritten[i];
        EXPECT_TRUE(starts.insert(offset).second) << "written twice at " << offset;
        covered += std::min<uint32_t>(count, 1000);
    }
    EXPECT_EQ(10000u, covered);

    // A server that answers with more than it was asked for: never more lands in the buffer
    // than each request asked for, and the run ends where the server first says the file ends.
    ASSERT_TRUE(fake.Start("nfsoverread", 10000));
    auto greedy = BareBrowse();
    ASSERT_TRUE(greedy);
    std::string tight(10000, '\0');
    EXPECT_EQ(10000u, greedy->Read(file, &tight[0], 0, tight.size()));
    EXPECT_TRUE(IsFakeFile(tight, 0));
    std::string wide(20000, '\0');
    EXPECT_EQ(10100u, greedy->Read(file, &wide[0], 0, wide.size()));
    EXPECT_TRUE(IsFakeFile(wide.substr(0, 10100), 0));
    EXPECT_EQ(12288u, greedy->Write(file, bytes.data(), 0, 12288));
}

KX_FAKE_TEST(ScatterGatherFake, ServerThatStopsAnsweringEndsWithinTheTimeOut) {
    PipelineSwitch on;
    kxtest::FakeNFS fake;
    ASSERT_TRUE(fake.Start("nfsstall", 100000));
    // The file's entry is made by hand: nothing but the transfer is sent.
    std::unique_ptr<NFSBrowse> browse = BareBrowse();
    ASSERT_TRUE(browse);
    DirEntry file;
    memcpy(file.handle, "FAKEFILE", 8);
    file.handleLength = 8;
    file.type = kDirEntryRegular;
    file.readPreferred = file.writePreferred = 4096;
    file.path = file.serverPath = "/export/000000/f";
    std::string back(40000, '\0');
    kxtest::LogCapture log;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0u, browse->Read(file, &back[0], 0, back.size()));
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(KX_E_RPC_TIMED_OUT, browse->GetLastObjectError());
    // The stubs' time-out (25 s) after the last answer, with room for a loaded machine.
    EXPECT_LT(took, std::chrono::seconds(40));
    ASSERT_EQ(1u, log.Records().size());
    EXPECT_EQ(KX_E_RPC_TIMED_OUT, log.Records()[0].code);
    // Requests went out ahead of their answers: every chunk, where one at a time would have
    // stopped at the first unanswered one (the third).
    std::vector<std::pair<uint64_t, uint32_t>> expected;
    for (uint32_t at = 0; at < 40000; at += 4096)
        expected.emplace_back(at, std::min(4096u, 40000 - at));
    EXPECT_EQ(expected, fake.Requests(6));
}

}  // namespace
