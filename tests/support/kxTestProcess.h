// Helpers for tests that drive real processes: spawning, waiting with a deadline, temporary
// directories, reading small files.
#pragma once

#include <sys/types.h>
#include <sys/wait.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace kxtest {

// A fresh directory under $TMPDIR (or /tmp), removed with everything in it when destroyed.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// Starts argv[0] (a path) with the given arguments and extra environment entries ("K=V"),
// stdin from /dev/null. Returns the child's pid.
pid_t Spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env = {});

// Waits for pid until the deadline; returns the waitpid status word, or nothing on time-out.
std::optional<int> WaitFor(pid_t pid, std::chrono::milliseconds limit);

// True when st is the status word of a normal exit with `code`.
inline bool ExitedWith(const std::optional<int>& st, int code) {
    return st && WIFEXITED(*st) && WEXITSTATUS(*st) == code;
}

// Kills pid with SIGKILL and reaps it, ignoring errors; for clean-up in failing tests.
void KillAndReap(pid_t pid);

// Polls pred every 10 ms until it is true or the limit passes; returns pred's last value.
template <typename Pred>
bool Eventually(Pred pred, std::chrono::milliseconds limit = std::chrono::seconds(10));

std::string ReadFile(const std::string& path);
std::vector<std::string> ReadLines(const std::string& path);

// Directory of the running test program, where the helper programs are built.
std::string ProgramDir();

template <typename Pred>
bool Eventually(Pred pred, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (pred()) return true;
        if (std::chrono::steady_clock::now() > end) return pred();
        struct timespec ts {0, 10 * 1000 * 1000};
        nanosleep(&ts, nullptr);
    }
}

}  // namespace kxtest
