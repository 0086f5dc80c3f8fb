#include "kxSyslogCapture.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

namespace kxtest {

namespace {

// Child side: set up the socket, run the body, forward every datagram through `out`, one per
// line with a length prefix. Exit status 2 means the namespace could not be made.
[[noreturn]] void RunCapture(const std::function<void()>& body, int out) {
    if (unshare(CLONE_NEWNS) != 0) _exit(2);
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) _exit(2);
    if (mount("tmpfs", "/dev", "tmpfs", 0, "size=64k") != 0) _exit(2);
    const int sock = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    strcpy(addr.sun_path, "/dev/log");
    if (sock < 0 || bind(sock, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) _exit(3);
    body();
    char buf[8192];
    for (;;) {
        const ssize_t n = recv(sock, buf, sizeof buf, MSG_DONTWAIT);
        if (n < 0) break;
        const uint32_t len = static_cast<uint32_t>(n);
        if (write(out, &len, sizeof len) != sizeof len || write(out, buf, len) != n) _exit(4);
    }
    _exit(0);
}

}  // namespace

std::optional<std::vector<std::string>> CaptureSyslog(const std::function<void()>& body) {
    int fds[2];
    if (pipe(fds) != 0) return std::nullopt;
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        RunCapture(body, fds[1]);
    }
    close(fds[1]);
    std::vector<std::string> messages;
    uint32_t len = 0;
    while (read(fds[0], &len, sizeof len) == sizeof len) {
        std::string msg(len, '\0');
        size_t got = 0;
        while (got < len) {
            const ssize_t n = read(fds[0], &msg[got], len - got);
            if (n <= 0) break;
            got += static_cast<size_t>(n);
        }
        messages.push_back(msg);
    }
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
    return messages;
}

}  // namespace kxtest
