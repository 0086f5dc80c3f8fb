// The Watcher: starts one program, restarts it after abnormal ends within a budget and with a
// pause, forwards SIGINT and SIGHUP, kills it on SIGTERM, and logs every event.
#pragma once

#include <signal.h>

#include <cstdint>

// Process-wide settings and state of the Watcher.
extern int32_t nRetries;         // default 10: at most 11 starts
extern uint32_t nRetryDelay;     // default 5 seconds
extern bool bRunInForeground;    // default false: daemonize
extern sigset_t ssReceived;      // signals seen by the handler since the loop last looked

// Exit status for a command line the Watcher refuses (a trailing -d or -r without a value).
constexpr int kxWatcherUsageExit = 100;

// The one handler of SIGINT, SIGTERM, SIGHUP and SIGCHLD: logs and records the signal.
void signal_handler(int signo);

// Installs signal_handler for SIGINT, SIGTERM, SIGHUP and SIGCHLD, in that order, with all four
// in the action mask (the handler never nests) and no flags.
void set_signal_handling();

// The whole program: scan, daemonize, supervise. Returns the exit status (0, or 1 when the
// daemonizing fork failed, or kxWatcherUsageExit); SIGTERM ends the process with exit(0).
int kxWatcherMain(int argc, char** argv);
