// Data transfer: bytes at the edges of a file on the real server, and against the fake peer, the
// chunks that go on the wire and the faults a real server will not produce on demand.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kxFakeBrowse.h"
#include "kxFakeNfs.h"
#include "kxNFSServerTest.h"
#include "nfs/NFSBrowse.h"
#include "nfs/kxNFSTransfer.h"
#include "xdr/nfs3_prot.h"

using namespace kxNFSUtils;

namespace {

using kxfake::IsFakeFile;
using kxtest::RandomBytes;

// Restores the process-wide switch whatever a test does.
struct FragmentSwitch {
    explicit FragmentSwitch(bool on) { g_NFSUtils_FragmentCorrectly = on; }
    ~FragmentSwitch() { g_NFSUtils_FragmentCorrectly = true; }
};

using NFSTransfer = kxtest::NFSServerTest;

// Reads at and past the end of a file on the real server, over UDP's small chunks, and the
// arguments that send nothing. (Whole files of every size, over both transports and both
// transfer paths, are moved by the kxnfs tool's suite; writes at offsets by KFile's.)
TEST_F(NFSTransfer, ReadsPastTheEndAndRefusedArguments) {
    auto browse = Browse(eUseUDP);
    ASSERT_TRUE(browse);
    std::unique_ptr<DirEntry> file(browse->Open(root + "/data/offsets", true, false));
    ASSERT_TRUE(file);
    const std::string bytes = RandomBytes(10000, 1);
    ASSERT_EQ(10000u, browse->Write(*file, bytes.data(), 0, bytes.size()));

    // Far more than the file holds: the bytes that are there, nothing copied beyond them.
    std::vector<char> back(50000, '\x5a');
    EXPECT_EQ(100u, browse->Read(*file, back.data(), 9900, back.size()));
    EXPECT_TRUE(std::equal(bytes.end() - 100, bytes.end(), back.begin()));
    EXPECT_EQ('\x5a', back[100]);
    EXPECT_EQ(0u, browse->Read(*file, back.data(), 1ll << 40, 100));
    EXPECT_EQ(0, browse->GetLastObjectError()) << "the end of the file is not a failure";

    EXPECT_EQ(0u, browse->Read(*file, back.data(), -1, 10));
    EXPECT_EQ(KX_E_BAD_ARGUMENT, browse->GetLastObjectError());
    EXPECT_EQ(0u, browse->Write(*file, nullptr, 0, 10));
    EXPECT_EQ(KX_E_BAD_ARGUMENT, browse->GetLastObjectError());
    DirEntry dead = *file;
    dead.magic = 0;
    EXPECT_EQ(0u, browse->Read(dead, back.data(), 0, 10));
    EXPECT_EQ(KX_E_NOT_INITIALISED, browse->GetLastObjectError());
}

// ---- Against the fake peer ----

// The data of each WRITE received; each must ask for no stable storage.
std::vector<std::string> WrittenData(const kxtest::FakeNFS& fake) {
    std::vector<std::string> data;
    for (const kxfake::Call& c : fake.Calls(7)) {
        const kxfake::Args<write3args> w(c, xdr_write3args);
        EXPECT_TRUE(w.ok);
        EXPECT_EQ(UNSTABLE, w.value.stable);
        EXPECT_EQ(w.value.count, w.value.data.data_len);
        data.emplace_back(w.value.data.data_val, w.value.data.data_len);
    }
    return data;
}

constexpr uint32_t kMiB = 1u << 20;
constexpr uint32_t kFakeFileSize = 2 * kMiB + kMiB / 2 + 3;

KX_FAKE_TEST(NFSTransferFake, ChunksOnTheWire) {
    kxtest::FakeNFS fake;
    ASSERT_TRUE(fake.Start("nfs", static_cast<int>(kFakeFileSize)));
    ExportInfo dir;
    auto udp = fake.Browse(eUseUDP, dir);
    auto tcp = fake.Browse(eUseTCP, dir);
    ASSERT_TRUE(udp && tcp);
    ASSERT_EQ(64 * kMiB, dir.readPreferred);
    const std::string bytes = RandomBytes(kFakeFileSize, 4);

    // UDP: 4096-byte chunks whatever the entry prefers, the last one the remainder.
    EXPECT_EQ(10000u, udp->Write(dir, bytes.data(), 0, 10000));
    using L = std::vector<std::pair<uint64_t, uint32_t>>;
    EXPECT_EQ((L{{0, 4096}, {4096, 4096}, {8192, 1808}}), fake.Requests(7));
    std::string written;
    for (const std::string& d : WrittenData(fake)) written += d;
    EXPECT_TRUE(written == bytes.substr(0, 10000));

    // TCP: the preferred 64 MiB capped at 1 MiB, both directions.
    EXPECT_EQ(kFakeFileSize, tcp->Write(dir, bytes.data(), 0, kFakeFileSize));
    EXPECT_EQ((L{{0, kMiB}, {kMiB, kMiB}, {2 * kMiB, kMiB / 2 + 3}}), fake.Requests(7, 3));
    std::vector<char> back(kFakeFileSize);
    EXPECT_EQ(kFakeFileSize, tcp->Read(dir, back.data(), 0, back.size()));
    EXPECT_TRUE(IsFakeFile(back, 0));
    EXPECT_EQ((L{{0, kMiB}, {kMiB, kMiB}, {2 * kMiB, kMiB / 2 + 3}}), fake.Requests(6));

    // A zero preferred size: UDP-sized chunks rather than a division by zero.
    DirEntry unknown = dir;
    unknown.readPreferred = unknown.writePreferred = 0;
    EXPECT_EQ(5000u, tcp->Write(unknown, bytes.data(), 100, 5000));
    EXPECT_EQ((L{{100, 4096}, {4196, 904}}), fake.Requests(7, 6));

    {
        // Fragmentation off: one request of the whole count over TCP; UDP keeps its chunks.
        FragmentSwitch off(false);
        EXPECT_EQ(10000u, tcp->Write(dir, bytes.data(), 0, 10000));
        EXPECT_EQ(10000u, udp->Write(dir, bytes.data(), 0, 10000));
        EXPECT_EQ((L{{0, 10000}, {0, 4096}, {4096, 4096}, {8192, 1808}}), fake.Requests(7, 8));
    }
    EXPECT_TRUE(fake.Calls(21).empty());  // never a COMMIT
    EXPECT_EQ(0, udp->GetLastObjectError());
    EXPECT_EQ(0, tcp->GetLastObjectError());
}

KX_FAKE_TEST(NFSTransferFake, ShortWriteShiftsLaterChunks) {
    kxtest::FakeNFS fake;
    ASSERT_TRUE(fake.Start("nfsshortwrite", 0));
    ExportInfo dir;
    auto udp = fake.Browse(eUseUDP, dir);
    ASSERT_TRUE(udp);
    const std::string bytes = RandomBytes(10000, 5);
    // The server takes 1000 bytes of each chunk: three chunks still, each starting where the
    // last one's accepted bytes ended, the result their sum.
    EXPECT_EQ(3000u, udp->Write(dir, bytes.data(), 50, bytes.size()));
    using L = std::vector<std::pair<uint64_t, uint32_t>>;
    EXPECT_EQ((L{{50, 4096}, {1050, 4096}, {2050, 1808}}), fake.Requests(7));
    const std::vector<std::string> w = WrittenData(fake);
    for (size_t i = 0; i < w.size(); ++i) EXPECT_TRUE(w[i] == bytes.substr(1000 * i, w[i].size()));
    EXPECT_EQ(0, udp->GetLastObjectError());
}

KX_FAKE_TEST(NFSTransferFake, FailedChunkAndCancellation) {
    kxtest::FakeNFS fake;
    ASSERT_TRUE(fake.Start("nfsfailat8k", static_cast<int>(kFakeFileSize)));
    ExportInfo dir;
    kxtest::CancelFrom cancel;
    auto udp = fake.Browse(eUseUDP, dir, &cancel);
    ASSERT_TRUE(udp);
    const std::string bytes = RandomBytes(10000, 6);
    std::vector<char> back(10000);
    // The third chunk fails: 0 for the whole transfer, whatever the first two moved.
    EXPECT_EQ(0u, udp->Write(dir, bytes.data(), 0, bytes.size()));
    EXPECT_EQ(KX_E_NFS_ACCESS, udp->GetLastObjectError());
    EXPECT_EQ(3u, fake.Calls(7).size());
    EXPECT_EQ(0u, udp->Read(dir, back.data(), 0, back.size()));
    EXPECT_EQ(KX_E_NFS_ACCESS, udp->GetLastObjectError());
    // Cancelled before the third chunk: the bytes moved so far, and no failure.
    cancel.asked = 0;
    cancel.from = 3;
    EXPECT_EQ(8192u, udp->Write(dir, bytes.data(), 0, bytes.size()));
    EXPECT_EQ(5u, fake.Calls(7).size());
    cancel.asked = 0;
    EXPECT_EQ(8192u, udp->Read(dir, back.data(), 0, back.size()));
    back.resize(8192);
    EXPECT_TRUE(IsFakeFile(back, 0));
    EXPECT_EQ(KX_E_NFS_ACCESS, udp->GetLastObjectError());  // unchanged
}

}  // namespace
