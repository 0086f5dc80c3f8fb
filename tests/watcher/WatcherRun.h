// Runs the real watcher binary over kx_test_child and reads what the child recorded.
#pragma once

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "kxTestProcess.h"

namespace kxtest {

class WatcherRun {
public:
    WatcherRun() {
        // Orphans (the daemon, a child left running) come back to this process, so that the
        // tests can reap them and see zombies.
        prctl(PR_SET_CHILD_SUBREAPER, 1);
    }
    ~WatcherRun() {
        for (pid_t p : Starts()) KillAndReap(p);
        KillAndReap(watcher_);
        // Orphans adopted meanwhile go too, and the ones they leave in turn: a daemon whose pid
        // a failed test never read would otherwise outlive the test run.
        const std::string children = "/proc/self/task/" + std::to_string(getpid()) + "/children";
        for (std::string left; !(left = ReadFile(children)).empty();) {
            std::istringstream pids(left);
            for (pid_t p; pids >> p;) KillAndReap(p);
        }
    }
    WatcherRun(const WatcherRun&) = delete;
    WatcherRun& operator=(const WatcherRun&) = delete;

    // Starts: watcher SWITCHES... kx_test_child DIR PLAN
    pid_t Start(const std::vector<std::string>& switches, const std::string& plan,
                const std::vector<std::string>& env = {}) {
        std::vector<std::string> argv{KX_WATCHER_BIN};
        argv.insert(argv.end(), switches.begin(), switches.end());
        argv.insert(argv.end(), {KX_TEST_CHILD_BIN, dir_.path(), plan});
        return StartRaw(argv, env);
    }
    pid_t StartRaw(const std::vector<std::string>& argv, const std::vector<std::string>& env = {}) {
        watcher_ = Spawn(argv, env);
        return watcher_;
    }

    // The watcher's exit status word, or nothing if it is still running after `limit`.
    std::optional<int> Wait(std::chrono::milliseconds limit = std::chrono::seconds(30)) {
        auto st = WaitFor(watcher_, limit);
        if (st) watcher_ = -1;
        return st;
    }

    // The pids of the child's starts, in order.
    std::vector<pid_t> Starts() const {
        std::vector<pid_t> pids;
        for (const auto& line : ReadLines(dir_ / "starts")) pids.push_back(atoi(line.c_str()));
        return pids;
    }
    std::vector<std::string> Signals() const { return ReadLines(dir_ / "signals"); }
    // True once the child of start number n (from 1) waits for signals.
    bool Ready(size_t n) const { return ReadLines(dir_ / "ready").size() >= n; }

    pid_t watcher() const { return watcher_; }
    const TempDir& dir() const { return dir_; }

private:
    TempDir dir_;
    pid_t watcher_ = -1;
};

}  // namespace kxtest
