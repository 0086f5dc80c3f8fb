// The standard streams at start-up: real processes started with and without the logging
// environment.
#include "log/kxLogging.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/kxLogSink.h"
#include "kxLogTestFiles.h"
#include "kxTestProcess.h"
#include "log/KLogStream.h"

namespace {

using kxtest::FileSize;
using kxtest::TempDir;

// Runs the helper's "probe" (one warning "probe text" through the default stream) with env.
void Probe(const std::vector<std::string>& env) {
    pid_t pid = kxtest::Spawn({KX_LOG_WRITER_BIN, "probe", "probe text"}, env);
    ASSERT_TRUE(kxtest::ExitedWith(kxtest::WaitFor(pid, std::chrono::seconds(30)), 0));
}

TEST(KxLoggingTest, ConfiguredProcessLogsStartMessageAndStopIntoNewTree) {
    TempDir dir;
    const std::string logs = dir / "a/b/logs";
    Probe({"KX_LOG_DIR=" + logs + "/", "KX_LOG_SIZE=0x40"});
    for (const char* name : {"Default.log", "Events.log", "PerfCtrs.log"})
        EXPECT_EQ(64 * 1024, FileSize(logs + "/" + name)) << name;
    EXPECT_EQ(
        (std::vector<std::string>{"<STRT>", "logging starting", "probe text", "logging stopping"}),
        kxtest::LogTexts(logs + "/Default.log"));
    EXPECT_EQ(std::vector<std::string>{"<STRT>"}, kxtest::LogTexts(logs + "/Events.log"));
    // A second run appends to the same files.
    Probe({"KX_LOG_DIR=" + logs, "KX_LOG_SIZE=64"});
    EXPECT_EQ(7u, kxtest::LogTexts(logs + "/Default.log").size());
    // A relative directory goes under the public data path, which is that same variable: still
    // relative, so nothing is opened (rather than logs in whatever directory the process is in).
    Probe({"KX_LOG_DIR=rel", "KX_LOG_SIZE=64"});
    EXPECT_EQ(-1, FileSize("rel"));
}

// The default stream is the default sink exactly while it is open: StopLogging takes it away
// before destroying it, so later calls are refused instead of reaching a freed stream (which
// the sanitizer build would report), and a sink installed meanwhile by someone else is dropped
// only if it is the stream.
TEST(KxLoggingTest, StartedStreamIsTheDefaultSinkUntilStopped) {
    TempDir dir;
    ASSERT_EQ(KX_OK, kxLogging::StartLogging(true, dir.path().c_str(), 64, 64, 64));
    ASSERT_NE(nullptr, g_pKLogStreamDefault);
    EXPECT_EQ(static_cast<KLogSink*>(g_pKLogStreamDefault), g_pKLogSinkDefault);
    EXPECT_EQ(KX_OK, kxLogPrintfA(0, kxLogSevWarning, "while started"));
    ASSERT_EQ(KX_OK, kxLogging::StopLogging());
    EXPECT_EQ(nullptr, g_pKLogStreamDefault);
    EXPECT_EQ(nullptr, g_pKLogSinkDefault);
    EXPECT_EQ(KX_E_LOG_NO_STREAM, kxLogPrintfA(0, kxLogSevWarning, "after stop"));

    EXPECT_EQ((std::vector<std::string>{"<STRT>", "logging starting", "while started",
                                        "logging stopping"}),
              kxtest::LogTexts(dir / "Default.log"));
}

}  // namespace
