// The log file format in memory: exact bytes, the ring's wrap, the walks and damaged images.
// Files of the other byte order are read back through the viewer's tests.
#include "log/KLogFile.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <vector>

namespace {

// A zeroed, aligned image of sizeKB kilobytes with a fresh header.
struct Image {
    explicit Image(unsigned long sizeKB) : words(sizeKB * 256, 0) { new (words.data()) KLogFile(sizeKB); }
    KLogFile* file() { return reinterpret_cast<KLogFile*>(words.data()); }
    uint8_t* bytes() { return reinterpret_cast<uint8_t*>(words.data()); }
    uint32_t word(uint32_t offset) const { return words[offset / 4]; }
    std::vector<uint32_t> words;
};

const _FILETIME kStamp{0x89ABCDEF, 0x01D2C3B4};

// Appends a record with a fixed stamp and `n` payload bytes of value `fill`.
uint32_t Append(KLogFile* f, uint32_t n, uint8_t fill = 0x5A, kxLogRecType type = kxLogRecTypeStringA) {
    void* payload = nullptr;
    EXPECT_EQ(KX_OK, f->NewRecord(kStamp, 4242, 77, type, 9, n, &payload));
    if (payload) memset(payload, fill, n);
    return f->LastRecOffset();
}

// Record numbers met walking from the oldest record to the newest, and back.
std::vector<uint32_t> Forward(const KLogFile* f) {
    std::vector<uint32_t> seen;
    for (const KLogRec* r = f->FirstRec(); r != nullptr; r = f->NewerRec(r, r->GetRecNum()))
        seen.push_back(r->GetRecNum());
    return seen;
}
std::vector<uint32_t> Backward(const KLogFile* f) {
    std::vector<uint32_t> seen;
    const KLogRec* r = f->LastRec();
    if (r == nullptr || f->RecordAt(f->LastRecOffset()) == nullptr) return seen;
    for (; r != nullptr; r = f->OlderRec(r, r->GetRecNum())) seen.push_back(r->GetRecNum());
    return seen;
}

TEST(KLogFileTest, HeaderAndRecordBytesAreExact) {
    Image img(1);
    KLogFile* f = img.file();
    EXPECT_EQ(0xC0A1469Cu, img.word(0));
    EXPECT_EQ(0x00010002u, img.word(4));
    EXPECT_EQ(1024u, img.word(8));
    EXPECT_EQ(28u, img.word(16));
    EXPECT_FALSE(f->IsValid(1)) << "a file that never held a record is not valid";

    ASSERT_EQ(KX_OK, f->WriteStartRec());
    EXPECT_EQ(KX_E_LOG_NO_STREAM, f->WriteStartRec()) << "only into an empty file";
    EXPECT_TRUE(f->IsValid(1));
    EXPECT_FALSE(f->IsValid(2));
    EXPECT_EQ(68u, f->NextRecOffset()) << "empty payload: 40 bytes";

    const uint32_t at = Append(f, 1, 0xEE);
    EXPECT_EQ(68u, at);
    EXPECT_EQ(0x87EE9E9Cu, img.word(at + 0));
    EXPECT_EQ(41u, img.word(at + 4)) << "size is not rounded";
    EXPECT_EQ(0x89ABCDEFu, img.word(at + 8)) << "timestamp low word first";
    EXPECT_EQ(0x01D2C3B4u, img.word(at + 12));
    EXPECT_EQ(4242u, img.word(at + 16));
    EXPECT_EQ(77u, img.word(at + 20));
    EXPECT_EQ(2u, img.word(at + 24)) << "record number";
    EXPECT_EQ(9u, img.word(at + 28));
    EXPECT_EQ(0x41525453u, img.word(at + 32));
    EXPECT_EQ(28u, img.word(at + 36)) << "previous record offset";
    EXPECT_EQ(0xEE, img.bytes()[at + 40]);
    EXPECT_EQ(at + 44, f->NextRecOffset()) << "a 41-byte record occupies 44";
    EXPECT_EQ(at, img.word(12));
    EXPECT_EQ(2u, img.word(20));
}

TEST(KLogFileTest, RecordMayEndExactlyAtTheEndOfTheFile) {
    Image img(1);
    KLogFile* f = img.file();
    void* p = nullptr;
    EXPECT_EQ(KX_E_LOG_NO_STREAM, f->NewRecord(kStamp, 1, 1, kxLogRecTypeStringA, 0, 960, &p))
        << "space 1000 can never fit in 1024 - 28";
    EXPECT_EQ(0u, f->RecordCount());
    EXPECT_EQ(KX_E_LOG_NO_STREAM, f->NewRecord(kStamp, 1, 1, kxLogRecTypeStringA, 0, 0xFFFFFFF0u, &p))
        << "a huge payload does not wrap the size arithmetic";

    ASSERT_EQ(28u, Append(f, 956));
    EXPECT_EQ(1024u, f->NextRecOffset());
    EXPECT_EQ(0u, f->WrapCount());
    // Kept asymmetry: the writer may fill the file to its last byte, the offset check says no.
    EXPECT_FALSE(f->IsRecordValid(28));
    EXPECT_FALSE(f->IsRecordValid(f->LastRec(), 28));
    EXPECT_TRUE(f->IsRecordValid(f->LastRec(), 0));
    EXPECT_EQ(std::vector<uint32_t>{1}, Forward(f));

    // The next record wraps, and the walks cross the record that ended on the last byte.
    Image img2(1);
    KLogFile* g = img2.file();
    Append(g, 400);                   // 28..468
    Append(g, 516);                   // 468..1024, ends on the last byte
    Append(g, 0);                     // wraps to 28
    EXPECT_EQ(1u, g->WrapCount());
    EXPECT_EQ(28u, g->LastRecOffset());
    EXPECT_EQ((std::vector<uint32_t>{2, 3}), Forward(g));
    EXPECT_EQ((std::vector<uint32_t>{3, 2}), Backward(g));
    EXPECT_FALSE(g->IsRecordValid(0ul)) << "offsets below the records area";
    EXPECT_FALSE(g->IsRecordValid(1024ul)) << "offset at the end reads nothing past it";
    EXPECT_FALSE(g->IsRecordValid(0xFFFFFFF0ul));
}

TEST(KLogFileTest, ClearLeavesOneClearRecord) {
    Image img(1);
    KLogFile* f = img.file();
    for (int i = 0; i < 30; ++i) Append(f, 50);
    ASSERT_GT(f->WrapCount(), 0u);
    ASSERT_EQ(KX_OK, f->ClearRecs());
    EXPECT_EQ(0u, f->WrapCount());
    const KLogRec* r = f->LastRec();
    EXPECT_EQ(kxLogRecTypeClear, r->GetType());
    EXPECT_EQ(0u, r->GetPrevRecOffset());
    EXPECT_EQ(2u, r->GetFlags());
    EXPECT_EQ(std::vector<uint32_t>{1}, Forward(f));

    // Records left from before a clear that line up with the new ones stay out of the walks.
    Image same(1);
    KLogFile* g = same.file();
    g->WriteStartRec();
    for (int i = 0; i < 5; ++i) Append(g, 12);
    ASSERT_EQ(KX_OK, g->ClearRecs());  // "CLER" has the start record's size
    Append(g, 12);
    Append(g, 12);
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 3}), Forward(g));
    EXPECT_EQ((std::vector<uint32_t>{3, 2, 1}), Backward(g));
}

// A writer killed in the middle of an append leaves its record written but the header only
// partly updated; the next append completes the header so the numbers stay contiguous.
TEST(KLogFileTest, AppendAfterAWriterDiedMidwayKeepsTheRunIntact) {
    for (int stage = 0; stage < 3; ++stage) {
        Image img(1);
        KLogFile* f = img.file();
        for (int i = 0; i < 3; ++i) Append(f, 20);
        // Replay an append of record 4 up to the stage where its writer died.
        const uint32_t at = f->NextRecOffset();
        KLogRec* rec = reinterpret_cast<KLogRec*>(img.bytes() + at);
        rec->SetSignature(kxLogRecSignature);
        rec->SetSize(60);
        rec->SetPrevRecOffset(f->LastRecOffset());
        rec->Info().SetRecNum(4);
        rec->Info().SetType(kxLogRecTypeStringA);
        if (stage >= 1) img.words[5] = 4;   // counted
        if (stage >= 2) img.words[3] = at;  // pointed at, next offset not advanced
        Append(f, 20);
        const std::vector<uint32_t> expected =
            stage == 0 ? std::vector<uint32_t>{1, 2, 3, 4} : std::vector<uint32_t>{1, 2, 3, 4, 5};
        EXPECT_EQ(expected, Forward(f)) << "stage " << stage;
        std::vector<uint32_t> back = Backward(f);
        EXPECT_EQ(expected, std::vector<uint32_t>(back.rbegin(), back.rend())) << "stage " << stage;
    }
}

}  // namespace
