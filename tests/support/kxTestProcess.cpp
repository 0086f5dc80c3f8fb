#include "kxTestProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace kxtest {

TempDir::TempDir() {
    const char* base = getenv("TMPDIR");
    std::string templ = std::string(base && *base ? base : "/tmp") + "/kxtest.XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    if (mkdtemp(buf.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = buf.data();
}

TempDir::~TempDir() {
    std::error_code ec;
    // Read-only entries left by a test must not keep the tree alive.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
        chmod(it->path().c_str(), 0700);
    }
    std::filesystem::remove_all(path_, ec);
}

pid_t Spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env) {
    std::vector<std::string> envStore;
    for (char** e = environ; *e; ++e) envStore.emplace_back(*e);
    for (const auto& kv : env) envStore.push_back(kv);
    std::vector<char*> args, envp;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    for (auto& e : envStore) envp.push_back(e.data());
    envp.push_back(nullptr);

    const pid_t pid = fork();
    if (pid == 0) {
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        int fd = open("/dev/null", O_RDONLY);
        if (fd >= 0) dup2(fd, 0);
        execve(args[0], args.data(), envp.data());
        _exit(127);
    }
    if (pid < 0) throw std::runtime_error(std::string("fork: ") + strerror(errno));
    return pid;
}

std::optional<int> WaitFor(pid_t pid, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        int status = 0;
        const pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid) return status;
        if (r < 0 && errno != EINTR) return std::nullopt;
        if (std::chrono::steady_clock::now() > end) return std::nullopt;
        struct timespec ts {0, 5 * 1000 * 1000};
        nanosleep(&ts, nullptr);
    }
}

void KillAndReap(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGKILL);
    int status;
    waitpid(pid, &status, 0);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::vector<std::string> ReadLines(const std::string& path) {
    std::vector<std::string> lines;
    std::istringstream in(ReadFile(path));
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::string ProgramDir() {
    char buf[4096];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0) return ".";
    buf[n] = '\0';
    return std::filesystem::path(buf).parent_path().string();
}

}  // namespace kxtest
