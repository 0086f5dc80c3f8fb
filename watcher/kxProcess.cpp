#include "kxProcess.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "base/kxLog.h"

namespace kxProcess {

process::process(int argc, char** argv) : pid_(-1), count_(argc + 1) {
    if (count_ == 0) return;
    argvCopy_.reset(new char*[count_ + 1]);
    for (int i = 0; i < count_; ++i) argvCopy_[i] = argv[i];
    argvCopy_[count_] = nullptr;
}

bool process::start() {
    kxLogPrintfA(0, kxLogSevInfo, "process::start()");
    pid_ = fork();
    if (pid_ == -1) {
        kxLogPrintfA(errno, kxLogSevFailure, "fork() failed!\n");
        return false;
    }
    if (pid_ > 0) return true;

    char* path = argvCopy_ ? argvCopy_[0] : nullptr;
    kxLogPrintfA(0, kxLogSevProgress, "starting process: %s. with PID %x", path ? path : "(null)",
                 getpid());
    // The Watcher keeps its signals blocked; the watched program must start with none blocked.
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    // A null path is refused here with the error the kernel gives for it (EFAULT): the C
    // library declares execv's path non-null, so passing one is undefined behaviour.
    int err = EFAULT;
    if (path != nullptr) {
        execv(path, argvCopy_.get());
        err = errno;
    }
    kxLogPrintfA(err, kxLogSevFailure, "execv() failed! errno: %d\n", err);
    exit(1);
}

bool process::wait(int* status) {
    kxLogPrintfA(0, kxLogSevInfo, "waiting for %x", pid_);
    int st = 0;
    pid_t r = waitpid(pid_, &st, 0);
    int err = errno;
    if (status != nullptr) *status = st;
    if (r == -1 && err == EINTR) return false;
    if (r == pid_) pid_ = -1;
    return true;
}

void process::signal(int sig) {
    if (pid_ == -1) return;
    kxLogPrintfA(0, kxLogSevProgress, "process::signal(): sending signal %d to process %x", sig,
                 pid_);
    ::kill(pid_, sig);
}

bool process::kill() {
    signal(SIGTERM);
    // Deliberately no grace period: the check is immediate, so a child that is still alive or
    // not yet reaped gets SIGKILL too.
    if (::kill(pid_, 0) == 0) signal(SIGKILL);
    wait(nullptr);
    return true;
}

}  // namespace kxProcess
