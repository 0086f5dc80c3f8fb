// Resizing a log file that other processes use: a resizer killed at any step, a writer that
// keeps appending while another process resizes, and the lock after operations refused because
// the file changed size under them.
#include "log/KLogStream.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "kxLogTestFiles.h"
#include "kxTestProcess.h"
#include "log/kxLogRead.h"

namespace {

using kxtest::ExitedWith;
using kxtest::FileSize;
using kxtest::LogTexts;
using kxtest::TempDir;
using Step = KLogStream::ResizeStep;

constexpr Step kSteps[] = {Step::kScratchMade,     Step::kRecordsCopied,     Step::kCopyFlushed,
                           Step::kHeaderRewritten, Step::kBodyPartlyWritten, Step::kBodyWritten,
                           Step::kFileComplete,    Step::kCopyRemoved};

std::string Resz(unsigned long oldKB, unsigned long newKB) {
    return "<RESZ " + std::to_string(oldKB) + " " + std::to_string(newKB) + ">";
}

Step g_killAt;

void KillAtStep(Step step) {
    if (step == g_killAt) raise(SIGKILL);
}

void PauseAtStep(Step) {
    const struct timespec pause{0, 20 * 1000 * 1000};
    nanosleep(&pause, nullptr);
}

// Each step of a grow and of a shrink: the resizer dies there. A writer that had the file open
// at the old size tries one more record; the file is then opened again at the new or the old
// size. Every record written before, and the late one if it was accepted, must be there in
// order, followed only by the resizes that happened.
TEST(KLogStreamResizeTest, ResizerKilledAtAnyStepLosesNoRecord) {
    for (const bool grow : {true, false}) {
        const unsigned long oldKB = grow ? 512 : 1024;
        const unsigned long newKB = grow ? 1024 : 512;
        for (const Step step : kSteps) {
            for (const bool reopenAtNew : {true, false}) {
                SCOPED_TRACE(testing::Message() << (grow ? "grow" : "shrink") << " killed at step "
                                                << static_cast<int>(step) << ", reopened at "
                                                << (reopenAtNew ? "new" : "old") << " size");
                TempDir dir;
                const std::string path = dir / "k.log";
                auto old =
                    std::make_unique<KLogStream>(dir.path().c_str(), "k.log", oldKB, 0, true);
                ASSERT_TRUE(old->IsLive());
                for (int i = 1; i <= 3000; ++i)
                    ASSERT_EQ(KX_OK, old->PrintString(("rec " + std::to_string(i)).c_str(), i,
                                                      kxLogSevProgress, 0));
                std::vector<std::string> expected = LogTexts(path);

                g_killAt = step;
                const pid_t resizer = fork();
                if (resizer == 0) {
                    KLogStream::SetResizeHookForTest(KillAtStep);
                    KLogStream s(dir.path().c_str(), "k.log", newKB, 0, true);
                    _exit(1);
                }
                const auto status = kxtest::WaitFor(resizer, std::chrono::seconds(60));
                ASSERT_TRUE(status.has_value());
                ASSERT_TRUE(WIFSIGNALED(*status) && WTERMSIG(*status) == SIGKILL) << *status;

                // Taken only while the file was still untouched; then it must survive.
                const long late = old->PrintString("late", 0, kxLogSevProgress, 0);
                EXPECT_TRUE(late == KX_OK || late == KX_E_LOG_NO_STREAM) << std::hex << late;
                old.reset();
                const bool untouched = late == KX_OK;
                if (untouched) expected.push_back("late");

                const unsigned long reopenKB = reopenAtNew ? newKB : oldKB;
                {
                    KLogStream s(dir.path().c_str(), "k.log", reopenKB, 0, true);
                    ASSERT_TRUE(s.IsLive()) << std::hex << s.GetOpenStatus();
                }
                EXPECT_EQ(-1, FileSize(path + "_tmp")) << "the scratch is settled and removed";
                EXPECT_EQ(static_cast<off_t>(reopenKB * 1024), FileSize(path));
                // The killed resize counts once it touched the file; the reopening resizes
                // whatever size that left.
                const unsigned long leftKB = untouched ? oldKB : newKB;
                if (!untouched) expected.push_back(Resz(oldKB, newKB));
                if (reopenKB != leftKB) expected.push_back(Resz(leftKB, reopenKB));
                EXPECT_EQ(expected, LogTexts(path));
            }
        }
    }
}

// A writer in another process appends all the time while this one resizes the file (held up
// at every step). Its appends wait for the resize; the first one after it is refused (the file
// changed size under its mapping), it reopens the file and goes on. Every append it was told
// succeeded must be in the file, once, in order.
TEST(KLogStreamResizeTest, WriterAppendingDuringAResizeLosesNothing) {
    TempDir dir;
    const std::string path = dir / "c.log";
    { ASSERT_TRUE(KLogStream(dir.path().c_str(), "c.log", 1024, 0, true).IsLive()); }
    constexpr long kTotal = 3000;
    int ready[2];
    ASSERT_EQ(0, pipe(ready));
    const pid_t writer = fork();
    if (writer == 0) {
        close(ready[0]);
        auto s = std::make_unique<KLogStream>(dir.path().c_str(), "c.log", 1024, 0, true);
        bool reopened = false;
        for (long n = 1; n <= kTotal;) {
            const long status =
                s->PrintString(("w " + std::to_string(n)).c_str(), n, kxLogSevProgress, 0);
            if (status == KX_OK) {
                if (n++ == 200 && write(ready[1], "x", 1) != 1) _exit(5);
                const struct timespec pause{0, 100 * 1000};
                nanosleep(&pause, nullptr);
            } else if (status == KX_E_LOG_NO_STREAM && !reopened) {
                s = std::make_unique<KLogStream>(dir.path().c_str(), "c.log", 2048, 0, true);
                if (!s->IsLive()) _exit(2);
                reopened = true;
            } else if (status != KX_S_WAIT_TIMEOUT) {
                _exit(3);
            }
        }
        _exit(reopened ? 0 : 4);
    }
    close(ready[1]);
    char byte;
    ASSERT_EQ(1, read(ready[0], &byte, 1));
    close(ready[0]);
    KLogStream::SetResizeHookForTest(PauseAtStep);
    {
        KLogStream resizer(dir.path().c_str(), "c.log", 2048, 0, true);
        EXPECT_TRUE(resizer.IsLive()) << std::hex << resizer.GetOpenStatus();
    }
    KLogStream::SetResizeHookForTest(nullptr);
    const auto status = kxtest::WaitFor(writer, std::chrono::seconds(60));
    ASSERT_TRUE(ExitedWith(status, 0))
        << "4: the writer finished before the resize; " << status.value_or(-1);

    std::vector<std::string> written;
    int resizes = 0;
    for (const std::string& t : LogTexts(path)) {
        if (t.rfind("w ", 0) == 0) written.push_back(t);
        resizes += t == Resz(1024, 2048);
    }
    EXPECT_EQ(1, resizes);
    ASSERT_EQ(static_cast<size_t>(kTotal), written.size());
    for (long n = 1; n <= kTotal; ++n) EXPECT_EQ("w " + std::to_string(n), written[n - 1]);
}

// Operations of a stream whose file another process resized are refused from inside the lock;
// each must let the lock go, or the other process waits for it in vain.
TEST(KLogStreamResizeTest, OperationsRefusedAfterAResizeLeaveTheLockFree) {
    TempDir dir;
    KLogStream stale(dir.path().c_str(), "f.log", 8, 0, true);
    ASSERT_TRUE(stale.IsLive());
    ASSERT_EQ(KX_OK, stale.PrintString("before", 0, kxLogSevProgress, 0));
    const KLogStream::iterator first = stale.begin();
    ASSERT_FALSE(first.IsEnd());

    // Another process resizes the file, and after the refusals appends (its lock wait is the
    // usual two seconds).
    auto other = [&](const char* text) {
        const pid_t pid = fork();
        if (pid == 0) {
            KLogStream s(dir.path().c_str(), "f.log", 16, 0, true);
            const bool ok =
                s.IsLive() && (!text || s.PrintString(text, 0, kxLogSevProgress, 0) == KX_OK);
            _exit(ok ? 0 : 1);
        }
        return ExitedWith(kxtest::WaitFor(pid, std::chrono::seconds(30)), 0);
    };
    ASSERT_TRUE(other(nullptr));

    EXPECT_EQ(KX_E_LOG_NO_STREAM, stale.PrintString("refused", 0, kxLogSevProgress, 0));
    EXPECT_EQ(KX_E_LOG_NO_STREAM, stale.ClearRecs());
    KLogFile header(0);
    EXPECT_EQ(KX_E_LOG_NO_STREAM, stale.ReadHeader(&header));
    EXPECT_TRUE(stale.begin() == stale.end());
    EXPECT_TRUE(stale.rbegin() == stale.end());
    uint8_t buf[64];
    unsigned long size = sizeof buf;
    EXPECT_EQ(KX_E_LOG_NO_STREAM, first.GetRecData(buf, &size, nullptr));
    KLogStream::iterator it = first;
    it.PrevRec();
    EXPECT_TRUE(it.IsEnd());

    EXPECT_TRUE(other("after")) << "the append waited for the lock in vain";
    EXPECT_EQ("after", LogTexts(dir / "f.log").back());
}

}  // namespace
