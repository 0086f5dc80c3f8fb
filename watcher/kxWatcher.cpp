#include "kxWatcher.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "kxProcess.h"
#include "kxWatcherArgs.h"
#include "base/kxLog.h"

int32_t nRetries = 10;
uint32_t nRetryDelay = 5;
bool bRunInForeground = false;
sigset_t ssReceived;

namespace {

const int kWatchedSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGCHLD};

void FillWatchedSet(sigset_t* set) {
    sigemptyset(set);
    for (int sig : kWatchedSignals) sigaddset(set, sig);
}

void PrintUsage(char missing) {
    fprintf(stderr,
            "watcher: switch -%c needs a value\n"
            "usage: watcher [-d seconds] [-r retries] [-f] program [arguments...]\n",
            missing);
}

// Forks into the background. Returns only in the child (the daemon); the parent exits 0 and a
// failed fork exits 1. `lastArg` is the argument before the program's path, named in the
// failure message.
void Daemonize(const char* lastArg) {
    const pid_t child = fork();
    if (child == -1) {
        kxLogPrintfA(errno, kxLogSevFatal, "%s: fork failed", lastArg);
        exit(1);
    }
    if (child > 0) {
        kxLogPrintfA(0, kxLogSevInfo, "parent exiting, forked %x\n", child);
        exit(0);
    }
    // The constant 0 (not the pid) is what this line has always carried.
    kxLogPrintfA(0, kxLogSevInfo, "Watcher (%x) daemonizing", 0);
    (void)!chdir("/");
    setsid();
}

// Logs the end of a reaped child; returns false when it exited cleanly (status 0).
bool ReportChildEnd(int status) {
    if (WIFEXITED(status)) {
        const int code = WEXITSTATUS(status);
        kxLogPrintfA(0, kxLogSevProgress, "exit stat = %d", code);
        if (code == 0) {
            kxLogPrintfA(0, kxLogSevInfo, "normal exit, no restart necessary");
            return false;
        }
    } else if (WIFSIGNALED(status)) {
        kxLogPrintfA(0, kxLogSevProgress, "exit due to signal");
        if (WCOREDUMP(status)) kxLogPrintfA(0, kxLogSevInfo, "core dump produced");
    }
    // A stopped child counts as a failure too, silently.
    return true;
}

}  // namespace

// The four signals are blocked everywhere but inside sigsuspend, so this handler only ever
// interrupts sigsuspend: the main flow is never inside the logger or malloc when it runs,
// which is what makes logging from here safe.
void signal_handler(int signo) {
    kxLogPrintfA(0, kxLogSevProgress, "Received signal: %d\n", signo);
    sigaddset(&ssReceived, signo);
    switch (signo) {
        case SIGHUP: kxLogPrintfA(0, kxLogSevProgress, "Received SIGHUP\n"); break;
        case SIGINT: kxLogPrintfA(0, kxLogSevProgress, "Received SIGINT\n"); break;
        case SIGTERM: kxLogPrintfA(0, kxLogSevProgress, "Received SIGTERM\n"); break;
        case SIGCHLD: kxLogPrintfA(0, kxLogSevProgress, "Received SIGCHLD\n"); break;
        default: {
            // The line has always been "%s" with the signal number; pass the number as text so
            // the mismatch cannot crash (unreachable anyway: no other signal is handled).
            char number[16];
            snprintf(number, sizeof number, "%d", signo);
            kxLogPrintfA(0, kxLogSevProgress, "Unexecpected signal: %s\n", number);
        }
    }
}

void set_signal_handling() {
    struct sigaction action {};
    action.sa_handler = signal_handler;
    FillWatchedSet(&action.sa_mask);
    action.sa_flags = 0;
    for (int sig : kWatchedSignals) sigaction(sig, &action, nullptr);
}

int kxWatcherMain(int argc, char** argv) {
    const kxWatcherArgs args = kxScanWatcherArgs(argc, argv);
    if (args.missingValueFor != 0) {
        kxLogPrintfA(KX_E_BAD_ARGUMENT, kxLogSevError, "switch -%c needs a value",
                     args.missingValueFor);
        PrintUsage(args.missingValueFor);
        return kxWatcherUsageExit;
    }
    nRetries = args.retries;
    nRetryDelay = args.retryDelay;
    bRunInForeground = args.foreground;

    if (!bRunInForeground) Daemonize(argv[args.programIndex - 1]);

    sigset_t watched, waitMask;
    FillWatchedSet(&watched);
    sigprocmask(SIG_BLOCK, &watched, &waitMask);
    sigemptyset(&ssReceived);
    set_signal_handling();

    kxProcess::process child(argc - args.programIndex, argv + args.programIndex);

    int32_t starts = 0;
    bool need = true;
    bool run = true;
    for (;;) {
        if (starts <= nRetries && need) {
            child.start();
            ++starts;
            need = false;
        }
        sigsuspend(&waitMask);

        // One signal per wake-up, in this order; the others of the same wake-up are dropped.
        if (sigismember(&ssReceived, SIGINT)) {
            kxLogPrintfA(0, kxLogSevProgress, "send SIGINT to watched process");
            child.signal(SIGINT);
        } else if (sigismember(&ssReceived, SIGTERM)) {
            kxLogPrintfA(0, kxLogSevProgress, "terminating watched process");
            child.kill();
            exit(0);
        } else if (sigismember(&ssReceived, SIGHUP)) {
            kxLogPrintfA(0, kxLogSevProgress, "restarting watched process");
            child.signal(SIGHUP);
        } else if (sigismember(&ssReceived, SIGCHLD)) {
            kxLogPrintfA(0, kxLogSevProgress, "watched process exited.");
            int status = 0;
            child.wait(&status);
            if (!ReportChildEnd(status)) run = false;
            need = true;
        } else {
            kxLogPrintfA(0, kxLogSevProgress, "some vague signal received.\n");
        }
        sigemptyset(&ssReceived);

        // Checked after every wake-up: the one after the last permitted start ends the
        // Watcher even if the child is still running (it is left running).
        if (starts > nRetries) {
            run = false;
            kxLogPrintfA(0, kxLogSevInfo, "restart count exceeded");
        }
        if (!run) {
            child.FreeArguments();
            return 0;
        }
        if (child.pid() == -1) {
            kxLogPrintfA(0, kxLogSevInfo, "sleeping for %d", nRetryDelay);
            // Signals stay blocked while pausing; any that arrive are seen at the next wait.
            sleep(nRetryDelay);
        }
    }
}
