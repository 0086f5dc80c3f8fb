#include "kxProcess.h"

#include <signal.h>

#include "gtest/gtest.h"

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
    negative.signal(SIGKILL);  // no child (pid -1): must not become kill(-1, SIGKILL)
}
