// Helpers for the file-tree tests: a temporary root, file probes, and running an operation
// without root's power to ignore permissions.
#pragma once

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "kxLogCapture.h"
#include "kxTestProcess.h"

namespace kxtest {

inline bool IsDir(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

inline bool IsFile(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

inline void WriteText(const std::string& path, const std::string& text) {
    FILE* f = fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr) << path;
    fputs(text.c_str(), f);
    fclose(f);
}

// A temporary root open to every user, with the log captured.
class FilesTest : public ::testing::Test {
protected:
    void SetUp() override { chmod(root_.path().c_str(), 0777); }
    std::string Path(const std::string& name) const { return root_ / name; }

    TempDir root_;
    LogCapture log_;
};

// Runs `body` in a forked child as user nobody when the tests run as root (otherwise as the
// current user), so that read-only files and directories are really refused. Returns the
// status and, after it, the texts the child logged, one per line.
inline std::string RunUnprivileged(const std::function<long()>& body) {
    int fds[2];
    if (pipe(fds) != 0) return "pipe failed";
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        std::string report = "dropping privileges failed";
        if (geteuid() != 0 || (setgroups(0, nullptr) | setgid(65534) | setuid(65534)) == 0) {
            LogCapture log;
            report = std::to_string(body());
            for (const LoggedRecord& r : log.Records()) report += "\n" + r.text;
        }
        ssize_t ignored = write(fds[1], report.data(), report.size());
        (void)ignored;
        _exit(0);
    }
    close(fds[1]);
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    waitpid(pid, nullptr, 0);
    return text;
}

}  // namespace kxtest
