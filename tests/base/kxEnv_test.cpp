// The OS seam: a wrapper reaches the real system for everything it does not override, and
// scoped process Envs nest and restore.
#include "base/kxEnv.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace {

// Fails Write with ENOSPC; forwards everything else.
class FullDisk : public kxEnvWrapper {
public:
    ssize_t Write(int, const void*, size_t) override {
        errno = ENOSPC;
        return -1;
    }
};

TEST(kxEnvTest, WrapperForwardsWhatItDoesNotOverride) {
    char path[] = "/tmp/kxEnvTestXXXXXX";
    const int fd = mkstemp(path);
    ASSERT_NE(-1, fd);
    FullDisk env;
    EXPECT_EQ(-1, env.Write(fd, "abc", 3));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ(3, env.Pwrite(fd, "abc", 3, 0));
    struct stat st;
    ASSERT_EQ(0, env.Fstat(fd, &st));
    EXPECT_EQ(3, st.st_size);
    EXPECT_EQ(0, env.Close(fd));
    EXPECT_EQ(0, env.Unlink(path));
    EXPECT_EQ(-1, env.Stat(path, &st));
    EXPECT_EQ(ENOENT, errno);
}

TEST(kxEnvTest, ScopedEnvsNestAndRestore) {
    kxEnv* const posix = kxEnv::Posix();
    EXPECT_EQ(posix, kxEnv::Default());
    FullDisk outer, inner;
    {
        kxScopedEnv a(&outer);
        EXPECT_EQ(&outer, kxEnv::Default());
        EXPECT_EQ(&inner, kxEnv::Or(&inner));
        EXPECT_EQ(&outer, kxEnv::Or(nullptr));
        {
            kxScopedEnv b(&inner);
            EXPECT_EQ(&inner, kxEnv::Default());
        }
        EXPECT_EQ(&outer, kxEnv::Default());
    }
    EXPECT_EQ(posix, kxEnv::Default());
}

}  // namespace
