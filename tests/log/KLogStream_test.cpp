// The log stream on real files: creation, reopening, re-creation, resizing, the lock against
// other processes, the flush policy, and reading back.
#include "log/KLogStream.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <chrono>
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

long Printf(KLogStream& s, long code, kxLogSev sev, const char* format, ...) {
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

long WidePrintf(KLogStream& s, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    long r = s.vPrintf(1, kxLogSevProgress, 0, format, args);
    va_end(args);
    return r;
}

void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::vector<uint8_t> ReadBytes(const std::string& path) {
    const std::string s = kxtest::ReadFile(path);
    return std::vector<uint8_t>(s.begin(), s.end());
}

TEST(KLogStreamTest, WritesRecordsAndReadsThemBackBothWays) {
    TempDir dir;
    const std::string path = dir / "a.log";
    {
        KLogStream s(dir.path().c_str(), "a.log", 8, 0, true);
        ASSERT_TRUE(s.IsLive()) << std::hex << s.GetOpenStatus();
        EXPECT_EQ(8192, FileSize(path));
        EXPECT_EQ(8192, s.SizeInBytes());
        EXPECT_STREQ(path.c_str(), s.GetLogFileName());
        EXPECT_EQ(KX_OK, Printf(s, kxStatus(0xE0020101), kxLogSevError, "open %s failed (%d)", "x", 2));
        EXPECT_EQ(KX_OK, s.PrintString("plain", 7, kxLogSevWarning, 5));
        EXPECT_EQ(KX_OK, WidePrintf(s, L"wide %ls \u00e9", L"text"));
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
    EXPECT_EQ(KX_OK, WidePrintf(s, L"%ls", wide2000.c_str()));
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

    // Through the front end: the default stream refuses, the message is lost.
    KLogSink* saved = g_pKLogSinkDefault;
    g_pKLogSinkDefault = &tooBig;
    EXPECT_EQ(KX_E_LOG_NO_STREAM, kxLogPrintfA(0, kxLogSevWarning, "lost"));
    g_pKLogSinkDefault = saved;
}

TEST(KLogStreamTest, DamagedOrForeignFilesAreRecreatedEmpty) {
    TempDir dir;
    // Not a multiple of 1024; right size but garbage; a valid header of the wrong version.
    WriteBytes(dir / "odd.log", std::vector<uint8_t>(1500, 0xA5));
    WriteBytes(dir / "junk.log", std::vector<uint8_t>(8192, 0xA5));
    {
        KLogStream good(dir.path().c_str(), "v.log", 8, 0, true);
        ASSERT_TRUE(good.IsLive());
    }
    std::vector<uint8_t> v = ReadBytes(dir / "v.log");
    // The same file in the other byte order (header and start record): readable, but appends
    // must be native.
    std::vector<uint8_t> foreign = v;
    uint32_t* w = reinterpret_cast<uint32_t*>(foreign.data());
    for (int i = 0; i < 17; ++i) w[i] = kxLogSwap32(w[i]);
    v[4] = 3;
    WriteBytes(dir / "v.log", v);
    WriteBytes(dir / "foreign.log", foreign);
    {
        KLogStream r((dir / "foreign.log").c_str());
        ASSERT_TRUE(r.IsLive()) << "a foreign file reads";
        EXPECT_TRUE(r.IsOppositeEndian());
        EXPECT_EQ(1u, ReadAll(dir / "foreign.log").size());
    }

    for (const char* name : {"odd.log", "junk.log", "v.log", "foreign.log"}) {
        KLogStream s(dir.path().c_str(), name, 8, 0, true);
        ASSERT_TRUE(s.IsLive()) << name;
        EXPECT_EQ(8192, FileSize(dir / name)) << name;
        EXPECT_FALSE(s.IsOppositeEndian());
        std::vector<KLogEntry> e = ReadAll(dir / name);
        ASSERT_EQ(1u, e.size()) << name;
        EXPECT_EQ(kxLogRecTypeStart, e[0].info.GetType()) << name;
    }
    // Without the start record a new file holds nothing.
    KLogStream bare(dir.path().c_str(), "bare.log", 1, 0, false);
    ASSERT_TRUE(bare.IsLive());
    EXPECT_EQ(0, bare.RecordCount());
    EXPECT_TRUE(bare.rbegin() == bare.end());
}

TEST(KLogStreamTest, ResizeKeepsTheNewestRecordsWithTheirStamps) {
    TempDir dir;
    const std::string path = dir / "r.log";
    {
        KLogStream s(dir.path().c_str(), "r.log", 8, 0, true);
        ASSERT_TRUE(s.IsLive());
        for (uint32_t i = 1; i <= 60; ++i) {
            const std::string text = std::string(8, '\0') + "rec " + std::to_string(i);
            const _FILETIME stamp{1000u + i, 0x01D00000u};
            ASSERT_EQ(KX_OK, s.WriteRec(text.data(), text.size(), stamp, 100 + i, 200 + i,
                                        kxLogRecTypeStringA, i));
        }
    }
    std::vector<KLogEntry> before = ReadAll(path);
    ASSERT_EQ(61u, before.size());

    {
        KLogStream s(dir.path().c_str(), "r.log", 16, 0, true);
        ASSERT_TRUE(s.IsLive()) << std::hex << s.GetOpenStatus();
    }
    std::vector<KLogEntry> grown = ReadAll(path);
    ASSERT_EQ(62u, grown.size());
    for (size_t i = 0; i < 61; ++i) {
        EXPECT_EQ(i + 1, grown[i].info.GetRecNum());
        EXPECT_EQ(before[i].info.GetTimeStamp().dwLowDateTime, grown[i].info.GetTimeStamp().dwLowDateTime);
        EXPECT_EQ(before[i].info.GetProcessId(), grown[i].info.GetProcessId());
        EXPECT_EQ(before[i].info.GetThreadId(), grown[i].info.GetThreadId());
        EXPECT_EQ(before[i].info.GetFlags(), grown[i].info.GetFlags());
    }
    EXPECT_EQ(kxLogRecTypeResize, grown.back().info.GetType());

    // Shrinking keeps the newest that fit, oldest first, renumbered from 1.
    {
        KLogStream s(dir.path().c_str(), "r.log", 1, 0, true);
        ASSERT_TRUE(s.IsLive());
    }
    std::vector<KLogEntry> shrunk = ReadAll(path);
    ASSERT_GE(shrunk.size(), 10u);
    EXPECT_EQ(kxLogRecTypeResize, shrunk.back().info.GetType());
    EXPECT_EQ(kxLogRecTypeResize, shrunk[shrunk.size() - 2].info.GetType()) << "the earlier RESZ is kept";
    EXPECT_EQ("rec 60", shrunk[shrunk.size() - 3].text);
    for (size_t i = 1; i < shrunk.size(); ++i)
        EXPECT_EQ(shrunk[i - 1].info.GetRecNum() + 1, shrunk[i].info.GetRecNum());
}

TEST(KLogStreamTest, LockHeldByAnotherProcessTimesOutThenIsDroppedWhenItDies) {
    TempDir dir;
    KLogStream s(dir.path().c_str(), "l.log", 8, 0, true);
    ASSERT_TRUE(s.IsLive());
    const std::string marker = dir / "held";
    pid_t holder = kxtest::Spawn({KX_LOG_WRITER_BIN, "hold", dir / "l.log", "20000", marker});
    ASSERT_TRUE(kxtest::Eventually([&] { return FileSize(marker) >= 0; }));

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(KX_S_WAIT_TIMEOUT, s.PrintString("blocked", 0, kxLogSevProgress, 0));
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(1900));
    EXPECT_LT(waited, std::chrono::milliseconds(6000));
    EXPECT_TRUE(s.begin() == s.end()) << "iterators give up the same way";

    kxtest::KillAndReap(holder);
    EXPECT_EQ(KX_OK, s.PrintString("free", 0, kxLogSevProgress, 0)) << "the dead holder's lock passes on";
    EXPECT_EQ("free", LogTexts(dir / "l.log").back());
}

// The flush is seen through the file's modification time: the system stamps it when a clean
// page of a shared mapping is first written, so after a flush (msync cleans the pages) the next
// append moves the time, while appends to pages already dirty do not.
TEST(KLogStreamTest, FlushPolicyFlushesEveryIntervalAppends) {
    TempDir dir;
    const std::string f = dir / "f.log", g = dir / "g.log";
    auto age = [](const std::string& path) {
        struct utimbuf old{946684800, 946684800};  // 2000-01-01
        utime(path.c_str(), &old);
    };
    auto touched = [](const std::string& path) {
        struct stat st;
        return stat(path.c_str(), &st) == 0 && st.st_mtime != 946684800;
    };
    {
        KLogStream never(dir.path().c_str(), "f.log", 8, 0, true);
        ASSERT_TRUE(never.IsLive());
        never.PrintString("x", 0, kxLogSevProgress, 0);
        age(f);
        // Forty short records stay on the first page, dirty since the first one.
        for (int i = 0; i < 40; ++i) never.PrintString("x", 0, kxLogSevProgress, 0);
        EXPECT_FALSE(touched(f)) << "interval 0 never flushes";
    }
    KLogStream s(dir.path().c_str(), "g.log", 8, 3, true);
    ASSERT_TRUE(s.IsLive());
    s.PrintString("1", 0, kxLogSevProgress, 0);
    age(g);
    s.PrintString("2", 0, kxLogSevProgress, 0);
    EXPECT_FALSE(touched(g)) << "below the interval: no flush";
    s.PrintString("3", 0, kxLogSevProgress, 0);  // flushes
    age(g);
    s.PrintString("4", 0, kxLogSevProgress, 0);  // first write to a clean page
    EXPECT_TRUE(touched(g)) << "the third append flushed the mapping";

    age(g);
    EXPECT_EQ(KX_OK, s.TouchLogfile());
    EXPECT_TRUE(touched(g));
    EXPECT_EQ(KX_OK, s.Flush());
}

TEST(KLogStreamTest, ClearKeepsOnlyTheClearRecord) {
    TempDir dir;
    KLogStream s(dir.path().c_str(), "c.log", 1, 0, true);
    ASSERT_TRUE(s.IsLive());
    for (int i = 0; i < 100; ++i) s.PrintString("some text here", 0, kxLogSevProgress, 0);
    EXPECT_GT(s.WrapCount(), 0);
    EXPECT_EQ(KX_OK, s.ClearRecs());
    EXPECT_EQ(1, s.RecordCount());
    EXPECT_EQ(0, s.WrapCount());
    EXPECT_EQ(std::vector<std::string>{"<CLER>"}, LogTexts(dir / "c.log"));
}

TEST(KLogStreamTest, AuxiliaryNamesAreFlattenedAndUpperCased) {
    EXPECT_EQ("_TMP_LOGS_DEFAULT.LOG_MUTEX", KLogStream::CreateAuxName("/tmp/logs/Default.log", "_MUTEX"));
    EXPECT_EQ("C:_LOGS_A.LOG_FMAP", KLogStream::CreateAuxName("c:\\logs\\a.log", "_FMAP"));
}

}  // namespace
