// The logging front end: dispatch to the default sink, the no-sink path, the catch-all around
// the sink, the system-log path and the exception reports.
#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "kxSyslogCapture.h"
#include "base/kxLog.h"
#include "base/kxLogSink.h"

namespace {

// A sink that keeps what it is given, or throws when told to.
class RecordingSink : public KLogSink {
public:
    struct Call {
        std::string op;
        long code;
        kxLogSev sev;
        unsigned long flags;
        std::string text;
    };
    bool IsLive() const override { return live; }

    long vPrintf(long code, kxLogSev sev, unsigned long flags, const char* format,
                 va_list args) override {
        return Record("vPrintfA", code, sev, flags, Format(format, args));
    }
    long vPrintf(long code, kxLogSev sev, unsigned long flags, const wchar_t* format,
                 va_list args) override {
        wchar_t wbuf[1024];
        vswprintf(wbuf, 1024, format, args);
        std::string narrow;
        for (const wchar_t* p = wbuf; *p; ++p) narrow += static_cast<char>(*p);
        return Record("vPrintfW", code, sev, flags, narrow);
    }
    long vBigMsgPrintf(long code, kxLogSev sev, unsigned long flags, const char* format,
                       va_list args) override {
        return Record("vBigMsgPrintf", code, sev, flags, Format(format, args));
    }
    long PrintString(const char* text, long code, kxLogSev sev, unsigned long flags) override {
        return Record("PrintString", code, sev, flags, text);
    }

    bool live = true;
    bool throwNext = false;
    long result = 0;
    std::vector<Call> calls;

private:
    static std::string Format(const char* format, va_list args) {
        char buf[4096];
        vsnprintf(buf, sizeof buf, format, args);
        return buf;
    }
    long Record(const char* op, long code, kxLogSev sev, unsigned long flags, std::string text) {
        if (throwNext) throw std::runtime_error("sink failure");
        calls.push_back({op, code, sev, flags, std::move(text)});
        return result;
    }
};

long CallV(long (*fn)(long, kxLogSev, const char*, va_list), const char* format, ...) {
    va_list args;
    va_start(args, format);
    const long r = fn(5, kxLogSevWarning, format, args);
    va_end(args);
    return r;
}

long CallVW(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    const long r = kxLogvPrintfW(6, kxLogSevError, format, args);
    va_end(args);
    return r;
}

// Every writing function once, in a fixed order, each returning its status.
std::vector<long> CallEveryWriter() {
    return {kxLogPrintfA(1, kxLogSevProgress, "a%d", 1),
            kxLogPrintfW(2, kxLogSevProgress, "w%s", "x"),
            CallV(kxLogvPrintfA, "v%c", 'z'),
            CallVW(L"wide %d", 42),
            kxLogPrintfEx(3, kxLogSevWarning, 0x55, "ex"),
            kxLogPrintStringA("plain %d", 4, kxLogSevError, 7),
            kxLogPrintStringW("plainW", 8, kxLogSevInfo, 9),
            kxLogBigMsgPrintfA(9, kxLogSevProgress, "%s", "big")};
}

const char* const kWriterNames[] = {"kxLogPrintfA",  "kxLogPrintfW",      "kxLogvPrintfA",
                                    "kxLogvPrintfW", "kxLogPrintfEx",     "kxLogPrintStringA",
                                    "kxLogPrintStringW", "kxLogBigMsgPrintfA"};

class LogFrontEnd : public ::testing::Test {
protected:
    void SetUp() override {
        saved_ = g_pKLogSinkDefault;
        g_pKLogSinkDefault = &sink_;
    }
    void TearDown() override { g_pKLogSinkDefault = saved_; }
    RecordingSink sink_;
    KLogSink* saved_ = nullptr;
};

}  // namespace

TEST_F(LogFrontEnd, WithoutALiveSinkEveryWriterReturnsNoStreamStatus) {
    sink_.live = false;
    for (long r : CallEveryWriter()) EXPECT_EQ(r, KX_E_LOG_NO_STREAM);
    EXPECT_TRUE(sink_.calls.empty());
    g_pKLogSinkDefault = nullptr;
    for (long r : CallEveryWriter()) {
        // The 32-bit pattern, sign-extended where long is wider.
        EXPECT_EQ(static_cast<int64_t>(r), static_cast<int64_t>(static_cast<int32_t>(0xE0010101)));
    }
}

TEST_F(LogFrontEnd, WritersForwardArgumentsAndReturnSinkStatus) {
    sink_.result = kxStatus(0xA0FFFF02);
    for (long r : CallEveryWriter()) EXPECT_EQ(r, sink_.result);
    ASSERT_EQ(sink_.calls.size(), 8u);
    const auto& c = sink_.calls;
    EXPECT_EQ(c[0].op, "vPrintfA");
    EXPECT_EQ(c[0].text, "a1");
    EXPECT_EQ(c[0].code, 1);
    EXPECT_EQ(c[0].flags, 0u);
    EXPECT_EQ(c[1].text, "wx");
    EXPECT_EQ(c[2].text, "vz");
    EXPECT_EQ(c[2].sev, kxLogSevWarning);
    EXPECT_EQ(c[3].op, "vPrintfW");
    EXPECT_EQ(c[3].text, "wide 42");
    EXPECT_EQ(c[4].flags, 0x55u);
    EXPECT_EQ(c[5].op, "PrintString");
    EXPECT_EQ(c[5].text, "plain %d");  // not formatted
    EXPECT_EQ(c[5].flags, 7u);
    EXPECT_EQ(c[6].sev, kxLogSevInfo);
    EXPECT_EQ(c[7].op, "vBigMsgPrintf");
}

TEST_F(LogFrontEnd, ExceptionReportsUseTheirFormatsAndStatus) {
    EXPECT_EQ(kxLogPrintUnhandledExceptionMessage(nullptr, 7), KX_E_UNHANDLED_EXCEPTION);
    ASSERT_EQ(sink_.calls.size(), 1u);
    EXPECT_EQ(sink_.calls[0].text, "???: unhandled exception (7)");
    EXPECT_EQ(sink_.calls[0].code, KX_E_UNHANDLED_EXCEPTION);
    EXPECT_EQ(sink_.calls[0].sev, kxLogSevError);

    // The report's status is returned whatever the write returned.
    sink_.throwNext = true;
    EXPECT_EQ(kxLogPrintUnhandledExceptionMessage("g", 1), KX_E_UNHANDLED_EXCEPTION);
}

TEST_F(LogFrontEnd, ThrowingSinkIsCaughtAndReportedToSystemLog) {
    auto messages = kxtest::CaptureSyslog([&] {
        sink_.throwNext = true;
        for (long r : CallEveryWriter())
            if (r != KX_E_UNHANDLED_EXCEPTION) _exit(10);
    });
    if (!messages) GTEST_SKIP() << "needs root for a private mount namespace";
    ASSERT_EQ(messages->size(), 8u);
    for (size_t i = 0; i < 8; ++i) {
        const std::string& m = (*messages)[i];
        // LOG_DAEMON | LOG_ERR, ident "kxLog" with the pid.
        EXPECT_EQ(m.rfind("<27>", 0), 0u) << m;
        EXPECT_NE(m.find(" kxLog["), std::string::npos) << m;
        const std::string tail = std::string("]: unhandled exception in ") + kWriterNames[i];
        EXPECT_EQ(m.substr(m.size() - tail.size()), tail) << m;
    }
}

TEST(LogEventString, PrioritiesIdentsAndNullText) {
    auto messages = kxtest::CaptureSyslog([] {
        kxLogEventStringA("info", 0, kxLogSevInfo, nullptr);
        kxLogEventStringA("progress", 0, kxLogSevProgress, "myident");
        kxLogEventStringA(nullptr, 0, kxLogSevWarning, nullptr);
        kxLogEventStringA("bad 100%% sure", 0, kxLogSevFatal, nullptr);
    });
    if (!messages) GTEST_SKIP() << "needs root for a private mount namespace";
    ASSERT_EQ(messages->size(), 4u);
    auto priority = [](const std::string& m) { return m.substr(0, m.find('>') + 1); };
    EXPECT_EQ(priority((*messages)[0]), "<30>");  // daemon.info
    EXPECT_EQ(priority((*messages)[1]), "<30>");
    EXPECT_EQ(priority((*messages)[2]), "<28>");  // daemon.warning
    EXPECT_EQ(priority((*messages)[3]), "<27>");  // daemon.err
    EXPECT_NE((*messages)[1].find(" myident["), std::string::npos);
    // The text is the format: "%%" comes out as one "%".
    EXPECT_NE((*messages)[3].find("]: bad 100% sure"), std::string::npos) << (*messages)[3];
}
