// Runs a program as a process and collects what it did: exit status, standard output and
// standard error apart.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "kxTestProcess.h"

namespace kxtest {

struct ToolRun {
    int status = -1;  // the exit status, 128 + the signal that ended it, or -1: not started or
                      // killed after its time
    std::string out;
    std::string err;

    std::vector<std::string> OutLines() const {
        std::vector<std::string> lines;
        for (size_t at = 0, end; at < out.size(); at = end + 1) {
            end = out.find('\n', at);
            if (end == std::string::npos) end = out.size();
            lines.push_back(out.substr(at, end - at));
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
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, stdinPath.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, outPath.c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&files, 2, errPath.c_str(), O_WRONLY | O_CREAT, 0600);
    pid_t pid = -1;
    const int rc = posix_spawn(&pid, cargv[0], &files, nullptr, cargv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (rc != 0) return run;
    const std::optional<int> wait = WaitFor(pid, limit);
    if (!wait) KillAndReap(pid);
    run.status = !wait ? -1 : WIFEXITED(*wait) ? WEXITSTATUS(*wait) : 128 + WTERMSIG(*wait);
    run.out = ReadFile(outPath);
    run.err = ReadFile(errPath);
    return run;
}

// True when every line of text is one JSON value by a strict reader (python3's, which takes
// the bytes as UTF-8); also true where python3 is missing.
inline bool JsonLinesValid(const std::string& text) {
    if (access("/usr/bin/python3", X_OK) != 0) return true;
    TempDir dir;
    const std::string path = dir / "lines.json";
    std::vector<std::string> args{"-c",
                                  "import json, sys\n"
                                  "for line in open(sys.argv[1], 'rb').read().split(b'\\n'):\n"
                                  "    if line: json.loads(line.decode('utf-8'))\n",
                                  path};
    std::ofstream(path, std::ios::binary) << text;
    return RunProgram("/usr/bin/python3", args).status == 0;
}

}  // namespace kxtest
