// kxProcess::process: the one watched child of the Watcher.
//
// Keeps the child's argument vector, starts it with fork/execv, reaps it with waitpid, sends it
// signals and terminates it. Every step is logged through the logging front end. Used only
// from the Watcher's single thread; not copyable (it owns the argument array and the child).
#pragma once

#include <sys/types.h>

#include <memory>

namespace kxProcess {

class process {
public:
    // Copies argc + 1 pointers from argv (the caller's terminating null included) and appends
    // one more null. The strings are not copied: argv must outlive the object. argc of -1
    // leaves no copy at all; argc 0 with a vector holding only its null gives a null path,
    // which start() then fails to execute (the child exits with status 1).
    process(int argc, char** argv);
    process(const process&) = delete;
    process& operator=(const process&) = delete;

    // Forks; the child clears its signal mask and execv()s argv[0] (no path search). Returns
    // false only when fork fails; the parent does not wait for the exec. A failed exec shows
    // up later as the child's exit with status 1.
    bool start();

    // Blocks in waitpid for the child (pid -1: for any child). Stores the status word in
    // *status when status is not null, even if waitpid failed. Returns false, keeping the pid,
    // only when waitpid was interrupted by a signal; true otherwise. The pid becomes -1 once
    // the child is reaped.
    bool wait(int* status);

    // Sends sig to the child and logs it; does nothing when there is no child.
    void signal(int sig);

    // SIGTERM, then SIGKILL at once if the child still exists (no grace period: a child not
    // yet reaped still counts as existing, so it always gets both), then wait(). Always true.
    bool kill();

    // Frees the argument copy ahead of the object's end (the Watcher does this before it
    // returns from main).
    void FreeArguments() { argvCopy_.reset(); }

    pid_t pid() const { return pid_; }
    int count() const { return count_; }
    char* const* arguments() const { return argvCopy_.get(); }

private:
    pid_t pid_;
    int count_;
    std::unique_ptr<char*[]> argvCopy_;  // count_ + 1 entries, null-terminated; null if count_ == 0
};

}  // namespace kxProcess
