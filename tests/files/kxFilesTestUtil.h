// Helpers for the file-tree tests: small file-system probes and a way to run an operation
// without root's power to ignore permissions.
#pragma once

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../base/kxLogCapture.h"

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

// What an operation run in a child process returned and logged.
struct ChildResult {
    long status = 0;
    std::vector<std::string> messages;  // texts of the records logged, in order
};

// Runs `body` in a forked child as the unprivileged user nobody (when the tests run as root;
// otherwise as the current user), so that read-only files and directories are really refused.
// The directories it touches must be reachable for that user.
inline ChildResult RunUnprivileged(const std::function<long()>& body) {
    int fds[2];
    EXPECT_EQ(pipe(fds), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        int rc = 0;
        if (geteuid() == 0) {
            rc = setgroups(0, nullptr) | setgid(65534) | setuid(65534);
        }
        std::string report;
        if (rc == 0) {
            LogCapture log;
            const long status = body();
            report = std::to_string(status);
            for (const LoggedRecord& r : log.Records()) report += "\n" + r.text;
        } else {
            report = "dropping privileges failed";
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
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);

    ChildResult result;
    size_t start = 0;
    bool first = true;
    for (;;) {
        const size_t end = text.find('\n', start);
        const std::string line = text.substr(start, end == std::string::npos ? end : end - start);
        if (first) {
            result.status = strtol(line.c_str(), nullptr, 10);
            first = false;
        } else {
            result.messages.push_back(line);
        }
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return result;
}

}  // namespace kxtest
