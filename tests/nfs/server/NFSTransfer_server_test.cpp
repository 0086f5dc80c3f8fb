// Data transfer: files written and read back through nfs-ganesha over both transports, and
// against the fake peer, the chunks that go on the wire and the faults a real server will not
// produce on demand.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kxFakeBrowse.h"
#include "kxFakeNfs.h"
#include "kxLogCapture.h"
#include "kxNFSSandbox.h"
#include "kxNFSServerTest.h"
#include "nfs/NFSBrowse.h"
#include "nfs/kxNFSTransfer.h"
#include "xdr/nfs3_prot.h"

using namespace kxNFSUtils;

namespace {

using kxfake::IsFakeFile;
using kxtest::RandomBytes;
using kxtest::ReadFile;

const char* Name(eUseProtocol p) { return p == eUseUDP ? "udp" : "tcp"; }

// Restores the process-wide switch whatever a test does.
struct FragmentSwitch {
    explicit FragmentSwitch(bool on) { g_NFSUtils_FragmentCorrectly = on; }
    ~FragmentSwitch() { g_NFSUtils_FragmentCorrectly = true; }
};

class NFSTransfer : public kxtest::NFSServerTest {
protected:
    // A new empty file at root + rel, made through the server.
    std::unique_ptr<DirEntry> Create(NFSBrowse& browse, const std::string& rel) {
        std::unique_ptr<DirEntry> e(browse.Open(root + rel, true, false));
        EXPECT_TRUE(e) << rel << ": 0x" << std::hex << browse.GetLastObjectError();
        return e;
    }
};

TEST_F(NFSTransfer, EdgeSizesRoundTripOverBothTransports) {
    // "/data" prefers 64 KiB; "/a" has the server's defaults, whose preferred sizes (64 MiB)
    // only work over TCP through the cap (UDP chunks are the same on both).
    const size_t sizes[] = {0, 1, 4096, 4097, (3u << 20) + 5};
    for (eUseProtocol protocol : {eUseTCP, eUseUDP}) {
        auto browse = Browse(protocol);
        ASSERT_TRUE(browse);
        for (const char* exportDir : {"/data", "/a"}) {
            if (protocol == eUseUDP && exportDir[1] == 'a') continue;
            for (size_t size : sizes) {
                const std::string rel = std::string(exportDir) + "/rt-" + Name(protocol) + "-" +
                                        std::to_string(size);
                SCOPED_TRACE(rel);
                auto file = Create(*browse, rel);
                ASSERT_TRUE(file);
                const std::string bytes = RandomBytes(size, static_cast<unsigned>(size));
                EXPECT_EQ(size, browse->Write(*file, bytes.data(), 0, size));
                EXPECT_TRUE(bytes == ReadFile(root + rel));
                std::vector<char> back(size + 16, '\x5a');
                EXPECT_EQ(size, browse->Read(*file, back.data(), 0, size));
                EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), back.begin()));
                EXPECT_EQ(std::vector<char>(16, '\x5a'),
                          std::vector<char>(back.end() - 16, back.end()));  // nothing beyond
            }
        }
        EXPECT_EQ(0, browse->GetLastObjectError());
    }
}

TEST_F(NFSTransfer, OffsetsWithinAndPastTheEnd) {
    {
        auto browse = Browse(eUseUDP);
        ASSERT_TRUE(browse);
        const std::string rel = "/data/offsets";
        auto file = Create(*browse, rel);
        ASSERT_TRUE(file);
        std::string bytes = RandomBytes(10000, 1);
        ASSERT_EQ(10000u, browse->Write(*file, bytes.data(), 0, bytes.size()));
        // Overwriting in the middle moves exactly those bytes.
        const std::string patch = RandomBytes(5000, 2);
        EXPECT_EQ(5000u, browse->Write(*file, patch.data(), 4000, patch.size()));
        std::copy(patch.begin(), patch.end(), bytes.begin() + 4000);
        EXPECT_TRUE(bytes == ReadFile(root + rel));

        // Across the end: the bytes that are there, nothing copied beyond them.
        std::vector<char> back(8192, '\x5a');
        EXPECT_EQ(100u, browse->Read(*file, back.data(), 9900, back.size()));
        EXPECT_TRUE(std::equal(bytes.end() - 100, bytes.end(), back.begin()));
        EXPECT_EQ('\x5a', back[100]);
        // Far more than the file holds: the chunks after the end bring nothing.
        std::vector<char> all(50000, '\x5a');
        EXPECT_EQ(10000u, browse->Read(*file, all.data(), 0, all.size()));
        EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), all.begin()));
        EXPECT_EQ('\x5a', all[10000]);
        // At and past the end: nothing, and no failure.
        EXPECT_EQ(0u, browse->Read(*file, back.data(), 10000, 100));
        EXPECT_EQ(0u, browse->Read(*file, back.data(), 1ll << 40, 100));
        EXPECT_EQ(0, browse->GetLastObjectError());

        // Arguments that send nothing.
        EXPECT_EQ(0u, browse->Read(*file, back.data(), -1, 10));
        EXPECT_EQ(KX_E_BAD_ARGUMENT, browse->GetLastObjectError());
        EXPECT_EQ(0u, browse->Write(*file, nullptr, 0, 10));
        EXPECT_EQ(KX_E_BAD_ARGUMENT, browse->GetLastObjectError());
        DirEntry dead = *file;
        dead.magic = 0;
        EXPECT_EQ(0u, browse->Read(dead, back.data(), 0, 10));
        EXPECT_EQ(KX_E_NOT_INITIALISED, browse->GetLastObjectError());
    }
}

// ---- Against the fake peer ----

using kxfake::Call;

struct Chunk {
    uint64_t offset;
    uint32_t count;
    std::vector<char> data;  // WRITE only
    stable_how stable;
};

std::vector<Chunk> Writes(const kxtest::FakeNFS& fake) {
    std::vector<Chunk> chunks;
    for (const Call& c : fake.Calls(7)) {
        const kxfake::Args<write3args> w(c, xdr_write3args);
        EXPECT_TRUE(w.ok);
        const write3args& a = w.value;
        chunks.push_back({a.offset, a.count,
                          std::vector<char>(a.data.data_val, a.data.data_val + a.data.data_len),
                          a.stable});
    }
    return chunks;
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
    std::vector<Chunk> w = Writes(fake);
    using L = std::vector<std::pair<uint64_t, uint32_t>>;
    EXPECT_EQ((L{{0, 4096}, {4096, 4096}, {8192, 1808}}), fake.Requests(7));
    for (const Chunk& c : w) {
        EXPECT_EQ(UNSTABLE, c.stable);
        EXPECT_TRUE(std::equal(c.data.begin(), c.data.end(), bytes.begin() + static_cast<long>(c.offset)));
        EXPECT_EQ(c.count, c.data.size());
    }

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
        EXPECT_EQ((L{{0, 10000}}), fake.Requests(7, 8));
        std::vector<char> part(10000);
        EXPECT_EQ(10000u, tcp->Read(dir, part.data(), 7, part.size()));
        EXPECT_TRUE(IsFakeFile(part, 7));
        EXPECT_EQ((L{{7, 10000}}), fake.Requests(6, 3));
        EXPECT_EQ(10000u, udp->Write(dir, bytes.data(), 0, 10000));
        EXPECT_EQ(3u, fake.Calls(7).size() - 9);
        EXPECT_EQ(0u, tcp->Write(dir, bytes.data(), 0, 0));  // nothing to send
        EXPECT_EQ(12u, fake.Calls(7).size());
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
    const std::vector<Chunk> w = Writes(fake);
    using L = std::vector<std::pair<uint64_t, uint32_t>>;
    EXPECT_EQ((L{{50, 4096}, {1050, 4096}, {2050, 1808}}), fake.Requests(7));
    for (size_t i = 0; i < w.size(); ++i)
        EXPECT_TRUE(std::equal(w[i].data.begin(), w[i].data.end(), bytes.begin() + 1000 * i)) << i;
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
    {
        // The third chunk fails: 0 for the whole transfer, whatever the first two moved.
        kxtest::LogCapture log;
        EXPECT_EQ(0u, udp->Write(dir, bytes.data(), 0, bytes.size()));
        EXPECT_EQ(KX_E_NFS_ACCESS, udp->GetLastObjectError());
        EXPECT_EQ(3u, fake.Calls(7).size());
        EXPECT_EQ(0u, udp->Read(dir, back.data(), 0, back.size()));
        EXPECT_EQ(KX_E_NFS_ACCESS, udp->GetLastObjectError());
        ASSERT_EQ(2u, log.Records().size());
        EXPECT_EQ("nfsproc3_write_3 (status 13, err 0x00000000)", log.Records()[0].text);
        EXPECT_EQ("nfsproc3_read_3 (status 13, err 0x00000000)", log.Records()[1].text);
    }
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
