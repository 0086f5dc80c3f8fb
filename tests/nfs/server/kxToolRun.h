// Runs the kxnfs program as a process and collects what it did: exit status, standard output
// and standard error apart, and its peak memory.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "kxTestProcess.h"

namespace kxtest {

struct ToolRun {
    int status = -1;  // the exit status, 128 + the signal that ended it, or -1: not started
    std::string out;
    std::string err;
    long maxRssKb = 0;

    std::vector<std::string> OutLines() const { return Split(out); }
    std::vector<std::string> ErrLines() const { return Split(err); }

    static std::vector<std::string> Split(const std::string& text) {
        std::vector<std::string> lines;
        size_t at = 0;
        while (at < text.size()) {
            size_t end = text.find('\n', at);
            if (end == std::string::npos) end = text.size();
            lines.push_back(text.substr(at, end - at));
            at = end + 1;
        }
        return lines;
    }
};

// Runs `program args...` with standard input from stdinPath; killed after limit.
inline ToolRun RunProgram(const std::string& program, const std::vector<std::string>& args,
                          const std::string& stdinPath = "/dev/null",
                          std::chrono::seconds limit = std::chrono::seconds(240)) {
    ToolRun run;
    TempDir dir;
    const std::string outPath = dir / "out", errPath = dir / "err";
    std::vector<std::string> argv{program};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> cargv;
    for (std::string& a : argv) cargv.push_back(&a[0]);
    cargv.push_back(nullptr);
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) return run;
    if (pid == 0) {
        const int in = open(stdinPath.c_str(), O_RDONLY);
        const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (in < 0 || out < 0 || err < 0) _exit(126);
        dup2(in, 0);
        dup2(out, 1);
        dup2(err, 2);
        execv(cargv[0], cargv.data());
        _exit(127);
    }
    const auto end = std::chrono::steady_clock::now() + limit;
    int wait = 0;
    struct rusage usage {};
    for (;;) {
        const pid_t done = wait4(pid, &wait, WNOHANG, &usage);
        if (done == pid) break;
        if (done < 0 || std::chrono::steady_clock::now() > end) {
            kill(pid, SIGKILL);
            wait4(pid, &wait, 0, &usage);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    run.status = WIFEXITED(wait) ? WEXITSTATUS(wait) : 128 + WTERMSIG(wait);
    run.out = ReadFile(outPath);
    run.err = ReadFile(errPath);
    run.maxRssKb = usage.ru_maxrss;
    return run;
}

// True when every line of text is one JSON value by a strict reader (python3's, which takes
// the bytes as UTF-8); also true, with *checked false, where python3 is missing.
inline bool JsonLinesValid(const std::string& text, bool* checked) {
    *checked = access("/usr/bin/python3", X_OK) == 0;
    if (!*checked) return true;
    TempDir dir;
    const std::string path = dir / "lines.json";
    FILE* f = fopen(path.c_str(), "wb");
    if (f == nullptr) return false;
    fwrite(text.data(), 1, text.size(), f);
    fclose(f);
    const ToolRun check = RunProgram(
        "/usr/bin/python3",
        {"-c",
         "import json, sys\n"
         "for line in open(sys.argv[1], 'rb').read().split(b'\\n'):\n"
         "    if line: json.loads(line.decode('utf-8'))\n",
         path});
    return check.status == 0;
}

}  // namespace kxtest
