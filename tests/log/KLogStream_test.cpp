// The log stream on real files: creation, reopening, re-creation, resizing, the lock against
// other processes, the flush policy, and reading back.
#include "log/KLogStream.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "kxLogTestFiles.h"
#include "kxTestProcess.h"
#include "log/kxLogRead.h"

namespace {

using kxtest::FileSize;
using kxtest::LogTexts;
using kxtest::TempDir;

std::vector<KLogEntry> ReadAll(const std::string& path) {
    std::vector<KLogEntry> out;
    EXPECT_EQ(KX_OK, kxLogReadFile(path.c_str(), out));
    return out;
}

// Narrow or wide format, as the caller's text is.
template <typename Char>
long Printf(KLogStream& s, long code, kxLogSev sev, const Char* format, ...) {
    va_list args;
    va_start(args, format);
    long r = s.vPrintf(code, sev, 0, format, args);
    va_end(args);
    return r;
}

long BigPrintf(KLogStream& s, const char* format, ...) {
    va_list args;
    va_start(args, format);
    long r = s.vBigMsgPrintf(1, kxLogSevProgress, 0, format, args);
    va_end(args);
    return r;
}

TEST(KLogStreamTest, WritesRecordsAndReadsThemBackBothWays) {
    TempDir dir;
    const std::string path = dir / "a.log";
    {
        KLogStream s(dir.path().c_str(), "a.log", 8, 0, true);
        ASSERT_TRUE(s.IsLive()) << std::hex << s.GetOpenStatus();
        EXPECT_EQ(8192, FileSize(path));
        EXPECT_EQ(KX_OK, Printf(s, kxStatus(0xE0020101), kxLogSevError, "open %s failed (%d)", "x", 2));
        EXPECT_EQ(KX_OK, s.PrintString("plain", 7, kxLogSevWarning, 5));
        EXPECT_EQ(KX_OK, Printf(s, 1, kxLogSevProgress, L"wide %ls \u00e9", L"text"));
        EXPECT_EQ(KX_OK, s.PrintString(L"w2", 0, kxLogSevProgress, 0));
        EXPECT_EQ(5, s.RecordCount());

        std::vector<uint32_t> back;
        for (KLogStream::iterator it = s.begin(); it != s.end(); it.PrevRec()) back.push_back(it.RecNum());
        EXPECT_EQ((std::vector<uint32_t>{5, 4, 3, 2, 1}), back);

        KLogStream::iterator it = s.rbegin();
        char small[4];
        unsigned long size = sizeof small;
        KLogRecInfo info;
        EXPECT_EQ(KX_OK, it.GetRecData(small, &size, &info)) << "the start record has no payload";
        it.NextRec();
        size = sizeof small;
        EXPECT_EQ(KX_E_BAD_ARGUMENT, it.GetRecData(small, &size, &info));
        EXPECT_EQ(8u + 17u, size) << "tells the size it needs";
        EXPECT_EQ(2u, info.GetRecNum());
    }
    std::vector<KLogEntry> e = ReadAll(path);
    ASSERT_EQ(5u, e.size());
    EXPECT_EQ(kxLogRecTypeStart, e[0].info.GetType());
    EXPECT_EQ(2u, e[0].info.GetFlags());
    EXPECT_EQ("open x failed (2)", e[1].text);
    EXPECT_EQ(kxStatus(0xE0020101), e[1].status);
    EXPECT_EQ(3u, e[1].severity);
    EXPECT_EQ(static_cast<uint32_t>(getpid()), e[1].info.GetProcessId());
    EXPECT_EQ(static_cast<uint32_t>(pthread_self()), e[1].info.GetThreadId());
    EXPECT_EQ("plain", e[2].text);
    EXPECT_EQ(5u, e[2].info.GetFlags());
    EXPECT_EQ(kxLogRecTypeStringW, e[3].info.GetType());
    EXPECT_EQ("wide text \xc3\xa9", e[3].text);
    EXPECT_EQ("w2", e[4].text);

    // Read-only: never writes.
    KLogStream r(path.c_str());
    ASSERT_TRUE(r.IsLive());
    EXPECT_EQ(KX_E_REFUSED, r.PrintString("x", 0, kxLogSevProgress, 0));
    EXPECT_EQ(KX_E_REFUSED, r.ClearRecs());
    EXPECT_EQ(5, r.RecordCount());
    EXPECT_EQ(5u, ReadAll(path).size());
}

TEST(KLogStreamTest, TextsAreCutToTheirBuffers) {
    TempDir dir;
    KLogStream s(dir.path().c_str(), "t.log", 64, 0, true);
    ASSERT_TRUE(s.IsLive());
    const std::string long2000(2000, 'x');
    const std::wstring wide2000(2000, L'y');
    EXPECT_EQ(KX_OK, Printf(s, 0, kxLogSevProgress, "%s", long2000.c_str()));
    EXPECT_EQ(KX_OK, BigPrintf(s, "%s", long2000.c_str()));
    EXPECT_EQ(KX_OK, s.PrintString(long2000.c_str(), 0, kxLogSevProgress, 0));
    EXPECT_EQ(KX_OK, Printf(s, 1, kxLogSevProgress, L"%ls", wide2000.c_str()));
    EXPECT_EQ(KX_OK, s.PrintString(wide2000.c_str(), 0, kxLogSevProgress, 0));

    const bool saved = g_LogInfoMessages;
    kxLogInfoMessages(false);
    EXPECT_EQ(KX_S_LOG_INFO_DROPPED, Printf(s, 0, kxLogSevInfo, "dropped"));
    EXPECT_EQ(KX_S_LOG_INFO_DROPPED, s.PrintString("dropped", 0, kxLogSevInfo, 0));
    kxLogInfoMessages(true);
    EXPECT_EQ(KX_OK, Printf(s, 0, kxLogSevInfo, "kept"));
    kxLogInfoMessages(saved);

    std::vector<KLogEntry> e = ReadAll(dir / "t.log");
    ASSERT_EQ(7u, e.size());
    EXPECT_EQ(1016u, e[1].text.size());
    EXPECT_EQ(2000u, e[2].text.size());
    EXPECT_EQ(1016u, e[3].text.size());
    EXPECT_EQ(1022u, e[4].text.size()) << "1022 wide characters, all ASCII";
    EXPECT_EQ(1022u, e[5].text.size());
    EXPECT_EQ("kept", e[6].text);
    EXPECT_EQ(0u, e[6].severity);
}

TEST(KLogStreamTest, RefusedArgumentsLeaveAStreamThatIsNotLive) {
    TempDir dir;
    const std::string longName(300, 'n');
    KLogStream tooBig(dir.path().c_str(), "a.log", 0x100001, 0, true);
    KLogStream zero(dir.path().c_str(), "a.log", 0, 0, true);
    KLogStream noName(dir.path().c_str(), "", 8, 0, true);
    KLogStream noDir(nullptr, "a.log", 8, 0, true);
    KLogStream tooLong(dir.path().c_str(), longName.c_str(), 8, 0, true);
    KLogStream missing((dir / "nope.log").c_str());
    for (KLogStream* s : {&tooBig, &zero, &noName, &noDir, &tooLong, &missing}) {
        EXPECT_FALSE(s->IsLive());
        EXPECT_EQ(KX_E_LOG_NO_STREAM, s->PrintString("x", 0, kxLogSevProgress, 0));
        EXPECT_EQ(KX_E_LOG_NO_STREAM, s->WriteRec("x", 1, kxLogRecTypeStringA, 0));
        EXPECT_EQ(KX_E_NOT_INITIALISED, s->LockLogfile(500, 4));
        EXPECT_EQ(-1, s->SizeInBytes());
        EXPECT_EQ(nullptr, s->GetLogFileName());
        EXPECT_TRUE(s->begin() == s->end());
        EXPECT_TRUE(s->rbegin() == s->end());
    }
    EXPECT_EQ(KX_E_NOT_FOUND, missing.GetOpenStatus());
    EXPECT_EQ(-1, FileSize(dir / "a.log")) << "nothing was created";
}

TEST(KLogStreamTest, DamagedOrForeignFilesAreRecreatedEmpty) {
    TempDir dir;
    const std::string path = dir / "x.log";
    { ASSERT_TRUE(KLogStream(dir.path().c_str(), "x.log", 8, 0, true).IsLive()); }
    std::string version = kxtest::ReadFile(path), foreign = version;
    version[4] = 3;
    uint32_t* w = reinterpret_cast<uint32_t*>(foreign.data());
    for (int i = 0; i < 17; ++i) w[i] = kxLogSwap32(w[i]);  // header and start record
    // Not a multiple of 1024; the right size but garbage; a header of another version; the same
    // file in the other byte order, which reads (see the viewer's tests) but is never appended to.
    for (const std::string& bytes :
         {std::string(1500, '\xA5'), std::string(8192, '\xA5'), version, foreign}) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
        KLogStream s(dir.path().c_str(), "x.log", 8, 0, true);
        ASSERT_TRUE(s.IsLive()) << bytes.size();
        EXPECT_FALSE(s.IsOppositeEndian());
        EXPECT_EQ(8192, FileSize(path));
        EXPECT_EQ(std::vector<std::string>{"<STRT>"}, LogTexts(path));
    }
}

TEST(KLogStreamTest, ResizeKeepsTheNewestRecordsWithTheirStamps) {
    TempDir dir;
    const std::string path = dir / "r.log";
    auto reopen = [&](unsigned long kb) {
        KLogStream s(dir.path().c_str(), "r.log", kb, 0, true);
        EXPECT_TRUE(s.IsLive()) << std::hex << s.GetOpenStatus();
        return s.IsLive();
    };
    {
        KLogStream s(dir.path().c_str(), "r.log", 8, 0, true);
        for (uint32_t i = 1; i <= 60; ++i) {
            const std::string text = std::string(8, '\0') + "rec " + std::to_string(i);
            ASSERT_EQ(KX_OK, s.WriteRec(text.data(), text.size(), _FILETIME{1000u + i, 0x01D00000u},
                                        100 + i, 200 + i, kxLogRecTypeStringA, i));
        }
    }
    const std::vector<KLogEntry> before = ReadAll(path);
    ASSERT_TRUE(reopen(16));
    const std::vector<KLogEntry> grown = ReadAll(path);
    ASSERT_EQ(before.size() + 1, grown.size());
    for (size_t i = 0; i < before.size(); ++i)  // number, stamp, process, thread, type, flags
        EXPECT_EQ(0, memcmp(&before[i].info, &grown[i].info, sizeof(KLogRecInfo))) << i;

    // Shrinking keeps the newest that fit, the earlier resize among them, numbers running on.
    ASSERT_TRUE(reopen(1));
    const std::vector<std::string> texts = LogTexts(path);
    ASSERT_GE(texts.size(), 10u);
    EXPECT_EQ((std::vector<std::string>{"rec 60", "<RESZ 8 16>", "<RESZ 16 1>"}),
              std::vector<std::string>(texts.end() - 3, texts.end()));
    const std::vector<KLogEntry> shrunk = ReadAll(path);
    for (size_t i = 1; i < shrunk.size(); ++i)
        EXPECT_EQ(shrunk[i - 1].info.GetRecNum() + 1, shrunk[i].info.GetRecNum());
}

}  // namespace
