// With logging configured, every decision of the Watcher lands in Default.log: the exact
// sequence of records (text, status, severity, writing process) for the main paths.
#include <signal.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "WatcherRun.h"
#include "gtest/gtest.h"
#include "log/kxLogRead.h"

using namespace std::chrono_literals;
using kxtest::ExitedWith;
using kxtest::WatcherRun;

namespace {

constexpr long kModuleMessage = kxStatus(0x60FFFF01);  // "logging starting"/"logging stopping"

// One expected text record. `who` names the writing process: 'W' the Watcher, '1'/'2' the
// child of that start (before its exec), 'P' the daemonizing parent.
struct Line {
    char who;
    uint32_t sev;
    long status;
    std::string text;
};

std::string Hex(pid_t pid) {
    char buf[16];
    snprintf(buf, sizeof buf, "%x", static_cast<unsigned>(pid));
    return buf;
}

class WatcherLog : public ::testing::Test {
protected:
    std::vector<std::string> Env() const {
        return {"KX_LOG_DIR=" + run_.dir() / "logs", "KX_LOG_SIZE=64"};
    }

    std::vector<KLogEntry> Texts() const {
        std::vector<KLogEntry> entries, texts;
        EXPECT_EQ(kxLogReadFile((run_.dir() / "logs/Default.log").c_str(), entries), 0);
        for (const auto& e : entries)
            if (e.isText) texts.push_back(e);
        return texts;
    }

    // Checks the text records of Default.log against `expected`, each `who` standing for its
    // pid. Only each process's own sequence is compared: processes that run at the same time
    // (a watcher and its child before the exec, the daemonizing parent and the daemon)
    // interleave as they are scheduled.
    void ExpectRecords(const std::vector<Line>& expected, const std::map<char, pid_t>& pids) const {
        auto render = [](uint32_t sev, long status, const std::string& text) {
            return std::to_string(sev) + " " + std::to_string(status) + " " + text;
        };
        const std::vector<KLogEntry> texts = Texts();
        EXPECT_EQ(expected.size(), texts.size());
        for (const auto& [who, pid] : pids) {
            std::vector<std::string> want, got;
            for (const Line& l : expected)
                if (l.who == who) want.push_back(render(l.sev, l.status, l.text));
            for (const KLogEntry& e : texts)
                if (static_cast<pid_t>(e.info.GetProcessId()) == pid)
                    got.push_back(render(e.severity, e.status, e.text));
            EXPECT_EQ(want, got) << who;
        }
    }

    WatcherRun run_;
};

}  // namespace

TEST_F(WatcherLog, RestartAfterTheDelayThenCleanExit) {
    const pid_t watcher = run_.Start({"-f", "-d", "1", "-r", "1"}, "exit1,exit0", Env());
    ASSERT_TRUE(ExitedWith(run_.Wait(), 0));
    const auto starts = run_.Starts();
    ASSERT_EQ(starts.size(), 2u);
    const std::string child = std::string(KX_TEST_CHILD_BIN);
    ExpectRecords(
        {
            {'W', 1, kModuleMessage, "logging starting"},
            {'W', 0, 0, "process::start()"},
            {'1', 1, 0, "starting process: " + child + ". with PID " + Hex(starts[0])},
            {'W', 1, 0, "Received signal: 17\n"},
            {'W', 1, 0, "Received SIGCHLD\n"},
            {'W', 1, 0, "watched process exited."},
            {'W', 0, 0, "waiting for " + Hex(starts[0])},
            {'W', 1, 0, "exit stat = 1"},
            {'W', 0, 0, "sleeping for 1"},
            {'W', 0, 0, "process::start()"},
            {'2', 1, 0, "starting process: " + child + ". with PID " + Hex(starts[1])},
            {'W', 1, 0, "Received signal: 17\n"},
            {'W', 1, 0, "Received SIGCHLD\n"},
            {'W', 1, 0, "watched process exited."},
            {'W', 0, 0, "waiting for " + Hex(starts[1])},
            {'W', 1, 0, "exit stat = 0"},
            {'W', 0, 0, "normal exit, no restart necessary"},
            {'W', 0, 0, "restart count exceeded"},
            {'W', 1, kModuleMessage, "logging stopping"},
        },
        {{'W', watcher}, {'1', starts[0]}, {'2', starts[1]}});
    // The pause lies between "sleeping for 1" and the next start (stamps in 100 ns units).
    const std::vector<KLogEntry> texts = Texts();
    ASSERT_EQ(texts.size(), 19u);
    auto stamp = [](const KLogEntry& e) {
        const _FILETIME t = e.info.GetTimeStamp();
        return static_cast<uint64_t>(t.dwHighDateTime) << 32 | t.dwLowDateTime;
    };
    EXPECT_GE(stamp(texts[9]) - stamp(texts[8]), 9000000u);
}

TEST_F(WatcherLog, ForwardedSignalsAndTermination) {
    const pid_t watcher = run_.Start({"-f"}, "wait", Env());
    ASSERT_TRUE(kxtest::Eventually([&] { return run_.Ready(1); }));
    kill(watcher, SIGHUP);
    ASSERT_TRUE(kxtest::Eventually([&] { return run_.Signals().size() == 1; }));
    kill(watcher, SIGTERM);
    ASSERT_TRUE(ExitedWith(run_.Wait(), 0));
    const pid_t c = run_.Starts().at(0);
    // The watcher reaped it itself: an unreaped child would now be this test's zombie.
    EXPECT_FALSE(std::filesystem::exists("/proc/" + std::to_string(c)));
    ExpectRecords(
        {
            {'W', 1, kModuleMessage, "logging starting"},
            {'W', 0, 0, "process::start()"},
            {'1', 1, 0,
             "starting process: " + std::string(KX_TEST_CHILD_BIN) + ". with PID " + Hex(c)},
            {'W', 1, 0, "Received signal: 1\n"},
            {'W', 1, 0, "Received SIGHUP\n"},
            {'W', 1, 0, "restarting watched process"},
            {'W', 1, 0, "process::signal(): sending signal 1 to process " + Hex(c)},
            {'W', 1, 0, "Received signal: 15\n"},
            {'W', 1, 0, "Received SIGTERM\n"},
            {'W', 1, 0, "terminating watched process"},
            {'W', 1, 0, "process::signal(): sending signal 15 to process " + Hex(c)},
            {'W', 1, 0, "process::signal(): sending signal 9 to process " + Hex(c)},
            {'W', 0, 0, "waiting for " + Hex(c)},
            {'W', 1, kModuleMessage, "logging stopping"},
        },
        {{'W', watcher}, {'1', c}});
}

TEST_F(WatcherLog, DaemonizingAndExecFailure) {
    // The program is missing: the forked child logs the failure and exits 1 through exit(),
    // so its own exit handler writes "logging stopping" too.
    const std::string missing = run_.dir() / "missing";
    const pid_t parent = run_.StartRaw({KX_WATCHER_BIN, "-d", "0", "-r", "0", missing}, Env());
    ASSERT_TRUE(ExitedWith(run_.Wait(5s), 0));

    std::vector<KLogEntry> entries;
    const std::string log = run_.dir() / "logs/Default.log";
    ASSERT_TRUE(kxtest::Eventually([&] {
        entries.clear();
        kxLogReadFile(log.c_str(), entries);
        int stops = 0;
        for (const auto& e : entries) stops += e.text == "logging stopping";
        return stops == 3;
    }));
    pid_t daemon = 0, child = 0;
    for (const auto& e : entries) {
        if (e.text == "Watcher (0) daemonizing") daemon = e.info.GetProcessId();
        if (e.text.rfind("execv() failed!", 0) == 0) child = e.info.GetProcessId();
    }
    ASSERT_NE(daemon, 0);
    ASSERT_NE(child, 0);
    ExpectRecords(
        {
            {'P', 1, kModuleMessage, "logging starting"},
            {'P', 0, 0, "parent exiting, forked " + Hex(daemon) + "\n"},
            {'P', 1, kModuleMessage, "logging stopping"},
            {'D', 0, 0, "Watcher (0) daemonizing"},
            {'D', 0, 0, "process::start()"},
            {'C', 1, 0, "starting process: " + missing + ". with PID " + Hex(child)},
            {'C', 4, 2, "execv() failed! errno: 2\n"},
            {'C', 1, kModuleMessage, "logging stopping"},
            {'D', 1, 0, "Received signal: 17\n"},
            {'D', 1, 0, "Received SIGCHLD\n"},
            {'D', 1, 0, "watched process exited."},
            {'D', 0, 0, "waiting for " + Hex(child)},
            {'D', 1, 0, "exit stat = 1"},
            {'D', 0, 0, "restart count exceeded"},
            {'D', 1, kModuleMessage, "logging stopping"},
        },
        {{'P', parent}, {'D', daemon}, {'C', child}});
}
