#include "kxProcess.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "gtest/gtest.h"
#include "kxTestProcess.h"

namespace {

// Runs a process object over argv in a forked test child, so that its own children (and any
// zombies) stay out of the test runner.
template <typename Body>
int InChild(Body body) {
    const pid_t pid = fork();
    if (pid == 0) _exit(body());
    auto st = kxtest::WaitFor(pid, std::chrono::seconds(20));
    if (!st) {
        kxtest::KillAndReap(pid);
        return -1;
    }
    return WIFEXITED(*st) ? WEXITSTATUS(*st) : 200;
}

}  // namespace

TEST(Process, ArgumentCopyIsNullTerminatedAndSharesStrings) {
    char a0[] = "/bin/true", a1[] = "x";
    char* argv[] = {a0, a1, nullptr};
    kxProcess::process p(2, argv);
    EXPECT_EQ(p.pid(), -1);
    EXPECT_EQ(p.count(), 3);
    ASSERT_NE(p.arguments(), nullptr);
    EXPECT_EQ(p.arguments()[0], a0);
    EXPECT_EQ(p.arguments()[1], a1);
    EXPECT_EQ(p.arguments()[2], nullptr);
    EXPECT_EQ(p.arguments()[3], nullptr);

    char* empty[] = {nullptr};
    kxProcess::process none(0, empty);
    EXPECT_EQ(none.count(), 1);
    EXPECT_EQ(none.arguments()[0], nullptr);
    EXPECT_EQ(none.arguments()[1], nullptr);

    kxProcess::process negative(-1, empty);
    EXPECT_EQ(negative.count(), 0);
    EXPECT_EQ(negative.arguments(), nullptr);
}

TEST(Process, WaitReportsTheExitStatusAndExecFailureExitsWithOne) {
    EXPECT_EQ(InChild([] {
                  char a0[] = "/bin/sh", a1[] = "-c", a2[] = "exit 7", bad[] = "/nonexistent/x";
                  char* argv[] = {a0, a1, a2, nullptr};
                  char* missingArgv[] = {bad, nullptr};
                  char* empty[] = {nullptr};
                  kxProcess::process p(3, argv), missing(1, missingArgv), null(0, empty);
                  int st = 0, st1 = 0, st2 = 0;
                  if (!p.start() || p.pid() <= 0 || !p.wait(&st) || p.pid() != -1) return 1;
                  missing.start();
                  missing.wait(&st1);
                  null.start();  // a null program path fails like a missing program
                  null.wait(&st2);
                  for (int s : {st1, st2})
                      if (!WIFEXITED(s) || WEXITSTATUS(s) != 1) return 2;
                  return WIFEXITED(st) ? WEXITSTATUS(st) : 3;
              }),
              7);
}

TEST(Process, KillTerminatesEvenAChildIgnoringTerm) {
    EXPECT_EQ(InChild([] {
                  char a0[] = "/bin/sh", a1[] = "-c", a2[] = "trap '' TERM; while :; do sleep 1; done";
                  char* argv[] = {a0, a1, a2, nullptr};
                  kxProcess::process p(3, argv);
                  p.start();
                  const pid_t child = p.pid();
                  usleep(100 * 1000);
                  p.kill();
                  if (p.pid() != -1) return 1;
                  // Reaped: no such process any more, not even a zombie.
                  return ::kill(child, 0) == -1 ? 0 : 2;
              }),
              0);
}

TEST(Process, SignalWithoutChildDoesNothing) {
    char* empty[] = {nullptr};
    kxProcess::process p(0, empty);
    p.signal(SIGKILL);  // pid -1: must not become kill(-1, SIGKILL)
    SUCCEED();
}
