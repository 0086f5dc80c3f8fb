// The real watcher binary, driven as a user would, supervising real child programs.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

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

bool Gone(pid_t pid) { return !std::filesystem::exists("/proc/" + std::to_string(pid)); }

}  // namespace

TEST(WatcherBudget, RetrySwitchSetsTheBudget) {
    // Without -r: ten restarts after the first start.
    for (auto [retries, starts] : {std::pair{"", 11u}, {"0", 1u}, {"2", 3u}}) {
        WatcherRun run;
        if (*retries == 0)
            run.Start({"-f", "-d", "0"}, "exit1");
        else
            run.Start({"-f", "-d", "0", "-r", retries}, "exit3");
        EXPECT_TRUE(ExitedWith(run.Wait(), 0)) << "-r " << retries;
        EXPECT_EQ(run.StartCount(), starts) << "-r " << retries;
    }
}

TEST(WatcherBudget, NegativeBudgetStartsNothingAndEndsOnFirstSignal) {
    WatcherRun run;
    run.Start({"-f", "-r", "-1"}, "exit0");
    // Still running: it waits for a signal without having started anything.
    EXPECT_FALSE(run.Wait(500ms));
    kill(run.watcher(), SIGHUP);
    EXPECT_TRUE(ExitedWith(run.Wait(), 0));
    EXPECT_EQ(run.StartCount(), 0u);
}

TEST(WatcherBudget, ZeroBudgetEndsOnFirstWakeUpLeavingChildRunning) {
    WatcherRun run;
    run.Start({"-f", "-r", "0"}, "wait");
    ASSERT_TRUE(kxtest::Eventually([&] { return run.Ready(1); }));
    kill(run.watcher(), SIGINT);
    EXPECT_TRUE(ExitedWith(run.Wait(), 0));
    // The wake-up after the last permitted start ends supervision; the child is left alone.
    ASSERT_EQ(run.StartCount(), 1u);
    EXPECT_TRUE(kxtest::ProcessExists(run.Starts()[0]));
    EXPECT_TRUE(kxtest::Eventually([&] { return run.Signals().size() == 1; }));
}

TEST(WatcherRestart, AbnormalEndsRestartUntilACleanExit) {
    // Non-zero exits and deaths by signal restart; the clean exit ends supervision.
    for (const char* plan : {"exit1,exit2,exit0,exit1", "sig9,sig15,exit0,exit1"}) {
        WatcherRun run;
        run.Start({"-f", "-d", "0"}, plan);
        EXPECT_TRUE(ExitedWith(run.Wait(), 0)) << plan;
        EXPECT_EQ(run.StartCount(), 3u) << plan;
    }
}

TEST(WatcherRestart, DelayPausesBetweenStarts) {
    WatcherRun run;
    run.Start({"-f", "-d", "1"}, "exit1,exit0");
    EXPECT_TRUE(ExitedWith(run.Wait(), 0));
    const auto starts = run.StartRecords();
    ASSERT_EQ(starts.size(), 2u);
    const long long gap = starts[1].ms - starts[0].ms;
    EXPECT_GE(gap, 900);
    EXPECT_LT(gap, 10000);
}

TEST(WatcherRestart, ExecFailureCountsAsAbnormalExit) {
    WatcherRun run;
    // The program does not exist at the first start; it appears before the restart.
    const std::string prog = run.dir() / "prog";
    run.StartRaw({KX_WATCHER_BIN, "-f", "-d", "1", "-r", "5", prog, run.dir().path(), "exit0"});
    std::this_thread::sleep_for(300ms);
    ASSERT_EQ(symlink(KX_TEST_CHILD_BIN, prog.c_str()), 0);
    EXPECT_TRUE(ExitedWith(run.Wait(), 0));
    EXPECT_EQ(run.StartCount(), 1u);
}

TEST(WatcherSignals, InterruptAndHangupReachTheChildWithoutRestart) {
    WatcherRun run;
    run.Start({"-f", "-d", "0"}, "wait");
    ASSERT_TRUE(kxtest::Eventually([&] { return run.Ready(1); }));
    kill(run.watcher(), SIGINT);
    ASSERT_TRUE(kxtest::Eventually([&] { return run.Signals().size() == 1; }));
    kill(run.watcher(), SIGHUP);
    ASSERT_TRUE(kxtest::Eventually([&] { return run.Signals().size() == 2; }));
    EXPECT_EQ(run.Signals(), (std::vector<std::string>{"INT", "HUP"}));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(run.StartCount(), 1u);
    EXPECT_FALSE(run.Wait(0ms));
}

TEST(WatcherSignals, TerminateKillsChildAndLeavesNoZombie) {
    WatcherRun run;
    run.Start({"-f"}, "wait");
    ASSERT_TRUE(kxtest::Eventually([&] { return run.Ready(1); }));
    const pid_t child = run.Starts()[0];
    kill(run.watcher(), SIGTERM);
    EXPECT_TRUE(ExitedWith(run.Wait(), 0));
    // The watcher reaped it itself: an unreaped child would now be our zombie.
    EXPECT_TRUE(Gone(child));
    EXPECT_EQ(run.StartCount(), 1u);
}

TEST(WatcherDaemon, ParentExitsAtOnceAndDaemonLeadsSessionInRoot) {
    WatcherRun run;
    run.Start({"-d", "0"}, "info");
    EXPECT_TRUE(ExitedWith(run.Wait(5s), 0));
    ASSERT_TRUE(kxtest::Eventually([&] { return run.Ready(1); }));
    const std::string info = kxtest::ReadFile(run.dir() / "info");
    EXPECT_NE(info.find("parent_cwd /\n"), std::string::npos) << info;
    EXPECT_NE(info.find("parent_is_session_leader 1"), std::string::npos) << info;

    pid_t daemon = 0;
    ASSERT_EQ(sscanf(info.c_str(), "parent %d", &daemon), 1);
    kill(daemon, SIGTERM);
    // The daemon was re-parented to this test (a subreaper), so it can be reaped here.
    EXPECT_TRUE(ExitedWith(kxtest::WaitFor(daemon, 10s), 0));
    EXPECT_TRUE(kxtest::Eventually([&] { return IsZombieOrGone(run.Starts()[0]); }));
}

TEST(WatcherDaemon, ForegroundKeepsSessionAndDirectoryAndChildStartsWithNothingBlocked) {
    WatcherRun run;
    run.Start({"-f"}, "info");
    ASSERT_TRUE(kxtest::Eventually([&] { return run.Ready(1); }));
    const std::string info = kxtest::ReadFile(run.dir() / "info");
    EXPECT_NE(info.find("blocked 0000000000000000"), std::string::npos) << info;
    EXPECT_EQ(info.find("parent_cwd /\n"), std::string::npos) << info;
    EXPECT_NE(info.find("parent_is_session_leader 0"), std::string::npos) << info;
    EXPECT_NE(info.find("parent " + std::to_string(run.watcher())), std::string::npos);
}

TEST(WatcherArguments, TrailingValueSwitchIsRefused) {
    for (const char* sw : {"-d", "-r"}) {
        WatcherRun run;
        run.StartRaw({KX_WATCHER_BIN, "-f", sw});
        EXPECT_TRUE(ExitedWith(run.Wait(5s), 100)) << sw;
    }
}

TEST(WatcherArguments, NoProgramRunsOutItsBudget) {
    // No program: every start execs a null path, which fails like a missing program.
    WatcherRun run;
    run.StartRaw({KX_WATCHER_BIN, "-f", "-d", "0", "-r", "1"});
    EXPECT_TRUE(ExitedWith(run.Wait(10s), 0));
}
