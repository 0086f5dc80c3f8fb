#include "kxProcess.h"

#include <signal.h>

#include "gtest/gtest.h"

// The argument vector handed to execv ends in a null pointer; an object with no arguments has
// no child to signal, and must never turn that into kill(-1, ...), which reaches every process.
TEST(Process, ArgumentCopyIsNullTerminatedAndNoChildIsNeverSignalled) {
    char a0[] = "/bin/true";
    char* argv[] = {a0, nullptr};
    kxProcess::process p(1, argv);
    EXPECT_EQ(p.pid(), -1);
    EXPECT_EQ(p.arguments()[0], a0);
    EXPECT_EQ(p.arguments()[1], nullptr);

    kxProcess::process negative(-1, argv);
    EXPECT_EQ(negative.arguments(), nullptr);
    negative.signal(SIGKILL);
}
