// The real watcher binary, driven as a user would, supervising real child programs.
#include <signal.h>
#include <unistd.h>

#include "WatcherRun.h"
#include "gtest/gtest.h"

using namespace std::chrono_literals;
using kxtest::ExitedWith;
using kxtest::WatcherRun;

namespace {

bool IsZombieOrGone(pid_t pid) {
    const std::string stat = kxtest::ReadFile("/proc/" + std::to_string(pid) + "/stat");
    if (stat.empty()) return true;
    const auto close = stat.rfind(')');
    return close != std::string::npos && stat.size() > close + 2 && stat[close + 2] == 'Z';
}

}  // namespace

TEST(WatcherBudget, ZeroBudgetEndsOnFirstWakeUpLeavingChildRunning) {
    WatcherRun run;
    run.Start({"-f", "-r", "0"}, "wait");
    ASSERT_TRUE(kxtest::Eventually([&] { return run.Ready(1); }));
    kill(run.watcher(), SIGINT);
    EXPECT_TRUE(ExitedWith(run.Wait(), 0));
    // The wake-up after the last permitted start ends supervision; the child is left alone.
    ASSERT_EQ(run.Starts().size(), 1u);
    EXPECT_EQ(kill(run.Starts()[0], 0), 0);
    EXPECT_TRUE(kxtest::Eventually([&] { return run.Signals().size() == 1; }));
}

TEST(WatcherRestart, AbnormalEndsRestartUntilACleanExit) {
    // Non-zero exits and deaths by signal restart; the clean exit ends supervision.
    WatcherRun run;
    run.Start({"-f", "-d", "0"}, "exit2,sig9,sig15,exit0,exit1");
    EXPECT_TRUE(ExitedWith(run.Wait(), 0));
    EXPECT_EQ(run.Starts().size(), 4u);
}

// The watched program starts as a fresh one would: nothing blocked and no descriptor of the
// watcher's log files.
TEST(WatcherDaemon, ParentExitsAtOnceAndDaemonLeadsSessionInRoot) {
    WatcherRun run;
    run.Start({"-d", "0"}, "info", {"KX_LOG_DIR=" + run.dir() / "logs", "KX_LOG_SIZE=64"});
    EXPECT_TRUE(ExitedWith(run.Wait(5s), 0));
    ASSERT_TRUE(kxtest::Eventually([&] { return run.Ready(1); }));
    const std::string info = kxtest::ReadFile(run.dir() / "info");
    EXPECT_NE(info.find("parent_cwd /\n"), std::string::npos) << info;
    EXPECT_NE(info.find("parent_is_session_leader 1"), std::string::npos) << info;
    EXPECT_NE(info.find("open_log_files 0\n"), std::string::npos) << info;
    EXPECT_NE(info.find("blocked 0000000000000000"), std::string::npos) << info;

    pid_t daemon = 0;
    ASSERT_EQ(sscanf(info.c_str(), "parent %d", &daemon), 1);
    kill(daemon, SIGTERM);
    // The daemon was re-parented to this test (a subreaper), so it can be reaped here.
    EXPECT_TRUE(ExitedWith(kxtest::WaitFor(daemon, 10s), 0));
    EXPECT_TRUE(kxtest::Eventually([&] { return IsZombieOrGone(run.Starts()[0]); }));
}

TEST(WatcherArguments, TrailingValueSwitchIsRefused) {
    WatcherRun run;
    run.StartRaw({KX_WATCHER_BIN, "-f", "-r"});
    EXPECT_TRUE(ExitedWith(run.Wait(5s), 100));
}
