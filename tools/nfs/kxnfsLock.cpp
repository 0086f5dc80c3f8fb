// lock: runs a command while holding a lock on a server file, like flock(1).
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <vector>

#include "kxTextEscape.h"
#include "kxnfsCommands.h"
#include "nfs/kxNFSStatusText.h"

using namespace kxNFSUtils;

namespace kxnfs {

namespace {

volatile sig_atomic_t g_command = 0;

// kxnfs must outlive the command to release the lock (the server keeps a lock whose holder
// died until it restarts), so it catches the stop signals. Signals the terminal sends reach
// the command too (one foreground process group); only those sent to kxnfs alone are passed
// on.
void PassOn(int sig, siginfo_t* info, void*) {
    if (info != nullptr && info->si_code == SI_KERNEL) return;
    if (g_command > 0) kill(static_cast<pid_t>(g_command), sig);
}

void CatchStopSignals() {
    struct sigaction sa {};
    sa.sa_sigaction = PassOn;
    sa.sa_flags = SA_SIGINFO | SA_RESTART;
    sigemptyset(&sa.sa_mask);
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaction(sig, &sa, nullptr);
}

// The command's status as a shell reports it: its exit code, or 128 + the signal that ended it.
int ShellStatus(int wait) {
    if (WIFEXITED(wait)) return WEXITSTATUS(wait);
    if (WIFSIGNALED(wait)) return 128 + WTERMSIG(wait);
    return kExitRemote;
}

[[noreturn]] void RunCommand(const std::vector<std::string>& program,
                             const std::vector<int>& ownDescriptors) {
    for (int fd : ownDescriptors) close(fd);
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) signal(sig, SIG_DFL);
    std::vector<char*> argv;
    for (const std::string& a : program) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    const int error = errno;
    Complain("cannot run " + kxtools::TerminalText(program[0], false) + ": " + strerror(error));
    _exit(error == ENOENT ? 127 : 126);
}

}  // namespace

int RunLock(Session& s) {
    std::string path = s.Args().path;
    const bool exclusive = s.Args().exclusive;
    int exit = kExitOk;
    std::unique_ptr<DirEntry> file = s.OpenFollowing(path, exit);
    if (!file) return exit;
    if (!s.Browse().LockFile(*file, true, exclusive)) {
        // Without a lock manager to ask, nothing is stored in the last error.
        const long status = s.Browse().GetLastObjectError();
        if (status == 0) return s.Fail(path, 0, "the server's lock manager does not answer");
        return s.Fail(path, status);
    }

    CatchStopSignals();
    const std::vector<int> own = s.OwnDescriptors();
    fflush(stdout);
    fflush(stderr);
    const pid_t pid = fork();
    if (pid == 0) RunCommand(s.Args().program, own);
    int status = kExitLocal;
    if (pid < 0) {
        Complain(std::string("cannot start the command: ") + strerror(errno));
    } else {
        g_command = pid;
        int wait = 0;
        while (waitpid(pid, &wait, 0) < 0 && errno == EINTR) {
        }
        g_command = 0;
        status = ShellStatus(wait);
    }

    // The lock belongs to this machine's name and the client's owner, not to a connection,
    // so when the old connection is gone a new one can still release it.
    bool released = s.Browse().LockFile(*file, false, exclusive);
    if (!released && s.Reconnect() == kExitOk) {
        released = s.Browse().LockFile(*file, false, exclusive);
        if (!released) {
            const long code = s.Browse().GetLastObjectError();
            s.Fail(path, code,
                   std::string("the lock could not be released: ") +
                       (code != 0 ? kxNFSStatusText(code)
                                  : "the server's lock manager does not answer"));
        }
    }
    if (!released && status == kExitOk) status = kExitRemote;
    return status;
}

}  // namespace kxnfs
