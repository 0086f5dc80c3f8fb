// A program for the Watcher's black-box tests to supervise.
//
//   kx_test_child DIR PLAN
//
// Every start appends its pid to DIR/starts, then acts on the PLAN entry for this start
// (comma-separated; the last entry repeats):
//   exitN   exit with status N
//   sigN    kill itself with signal N
//   wait    record SIGINT/SIGHUP as lines "INT"/"HUP" in DIR/signals and wait; SIGTERM kills
//   info    write facts about itself and its parent (working directory, session, blocked
//           signals, inherited log-file descriptors) to DIR/info, then behave as "wait"
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string g_dir;

void Append(const std::string& name, const std::string& line) {
    const std::string path = g_dir + "/" + name;
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd < 0) return;
    const std::string text = line + "\n";
    (void)!write(fd, text.data(), text.size());
    close(fd);
}

void OnSignal(int sig) { Append("signals", sig == SIGINT ? "INT" : "HUP"); }

int CountLines(const std::string& path) {
    std::ifstream in(path);
    int n = 0;
    for (std::string line; std::getline(in, line);) ++n;
    return n;
}

// How many of this process's descriptors lead to a file whose name ends in ".log". The standard
// streams are skipped: they are the test run's own, which may well go to a file named so.
int OpenLogFiles() {
    int n = 0;
    for (int fd = 3; fd < 1024; ++fd) {
        char target[4096];
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        const ssize_t len = readlink(link.c_str(), target, sizeof target - 1);
        if (len < 4) continue;
        target[len] = '\0';
        if (strcmp(target + len - 4, ".log") == 0) ++n;
    }
    return n;
}

std::string BlockedMask() {
    std::ifstream in("/proc/self/status");
    for (std::string line; std::getline(in, line);)
        if (line.rfind("SigBlk:", 0) == 0) return line.substr(line.find_first_not_of(" \t", 7));
    return "?";
}

void WriteInfo() {
    const pid_t parent = getppid();
    char cwd[4096] = "?";
    const std::string link = "/proc/" + std::to_string(parent) + "/cwd";
    const ssize_t n = readlink(link.c_str(), cwd, sizeof cwd - 1);
    if (n > 0) cwd[n] = '\0';
    std::ostringstream out;
    out << "parent " << parent << "\n"
        << "parent_cwd " << cwd << "\n"
        << "parent_is_session_leader " << (getsid(parent) == parent ? 1 : 0) << "\n"
        << "blocked " << BlockedMask() << "\n"
        << "open_log_files " << OpenLogFiles() << "\n";
    // Written under a temporary name and renamed, so the test never reads half a file.
    const std::string tmp = g_dir + "/info.tmp";
    std::ofstream(tmp) << out.str();
    rename(tmp.c_str(), (g_dir + "/info").c_str());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: kx_test_child DIR PLAN\n");
        return 100;
    }
    g_dir = argv[1];
    std::vector<std::string> plan;
    std::stringstream ss(argv[2]);
    for (std::string item; std::getline(ss, item, ',');) plan.push_back(item);
    if (plan.empty()) plan.push_back("exit0");

    const int start = CountLines(g_dir + "/starts");
    Append("starts", std::to_string(getpid()));

    const std::string& action = plan[std::min<size_t>(start, plan.size() - 1)];
    if (action.rfind("exit", 0) == 0) return atoi(action.c_str() + 4);
    if (action.rfind("sig", 0) == 0) {
        const int sig = atoi(action.c_str() + 3);
        signal(sig, SIG_DFL);
        raise(sig);
        return 99;
    }
    if (action == "info") WriteInfo();
    struct sigaction sa {};
    sa.sa_handler = OnSignal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);
    Append("ready", std::to_string(getpid()));
    for (;;) pause();
}
