#include <crypt.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>

#include "kxEnvOverride.h"
#include "platform/kxWin32.h"

namespace {

using kxtest::EnvOverride;

TEST(kxWin32Misc, VirtualAllocAcceptsOnlyCommitReadWrite) {
    void* p = VirtualAlloc(nullptr, 200000, MEM_COMMIT, PAGE_READWRITE);
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(p) % 65536);
    memset(p, 0x5A, 200000);
    EXPECT_FALSE(VirtualFree(p, 200000, MEM_RELEASE));
    EXPECT_FALSE(VirtualFree(p, 0, MEM_DECOMMIT));
    EXPECT_TRUE(VirtualFree(p, 0, MEM_RELEASE));

    char somewhere;
    EXPECT_EQ(nullptr, VirtualAlloc(nullptr, 4096, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    EXPECT_EQ(nullptr, VirtualAlloc(nullptr, 4096, MEM_RESERVE, PAGE_READWRITE));
    EXPECT_EQ(nullptr, VirtualAlloc(nullptr, 4096, MEM_COMMIT, PAGE_READONLY));
    EXPECT_EQ(nullptr, VirtualAlloc(&somewhere, 4096, MEM_COMMIT, PAGE_READWRITE));
}

TEST(kxWin32Misc, GuidCarriesTimeVersionAndTheHostsCryptCharacters) {
    char host[256];
    memset(host, 0, sizeof(host));
    gethostname(host, sizeof(host) - 1);
    // The classic, non-reentrant call: the reference for the six characters.
    const std::string hash = crypt(host, "kx");
    ASSERT_EQ(13u, hash.size()) << "DES crypt of a two-character salt";

    _GUID a, b;
    const time_t before = time(nullptr);
    EXPECT_EQ(0, CoCreateGuid(&a));
    Sleep(2);
    EXPECT_EQ(0, CoCreateGuid(&b));
    const time_t after = time(nullptr);

    for (const _GUID* g : {&a, &b}) {
        EXPECT_EQ(0x1000, g->Data3 & 0xF000);
        EXPECT_EQ(0xA0, g->Data4[0] & 0xA0);
        EXPECT_EQ(0, memcmp(g->Data4 + 2, hash.data() + 2, 6));
        const uint64_t t = (static_cast<uint64_t>(g->Data3 & 0x0FFF) << 48) |
                           (static_cast<uint64_t>(g->Data2) << 32) | g->Data1;
        const int64_t seconds = static_cast<int64_t>(t / 10000000) - 203932800;
        EXPECT_GE(seconds, static_cast<int64_t>(before));
        EXPECT_LE(seconds, static_cast<int64_t>(after));
    }
    EXPECT_NE(0, memcmp(&a, &b, sizeof(_GUID)));

    EXPECT_EQ(0, CoCreateGuid(nullptr));
}

TEST(kxWin32Misc, TempPathDemandsRoomForSlashAndTerminator) {
    char buffer[64];
    {
        EnvOverride tmp("TMP", nullptr), temp("TEMP", "/var/tmp");
        memset(buffer, 'X', sizeof(buffer));
        EXPECT_EQ(9u, GetTempPathA(10, buffer));
        EXPECT_STREQ("/var/tmp/", buffer);
        errno = 0;
        EXPECT_EQ(0u, GetTempPathA(9, buffer));
        EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, errno);
    }
    {
        EnvOverride tmp("TMP", "/tmp/"), temp("TEMP", "/var/tmp");
        EXPECT_EQ(0u, GetTempPathA(6, buffer));  // the slash is demanded even when present
        EXPECT_EQ(5u, GetTempPathA(7, buffer));
        EXPECT_STREQ("/tmp/", buffer);
    }
    {
        EnvOverride tmp("TMP", nullptr), temp("TEMP", nullptr);
        EXPECT_EQ(2u, GetTempPathA(sizeof(buffer), buffer));
        EXPECT_STREQ("./", buffer);
        EXPECT_EQ(0u, GetTempPathA(3, buffer));
        EXPECT_EQ(0u, GetTempPathA(0, nullptr));
    }
    {
        // Empty values do not turn into the root directory.
        EnvOverride tmp("TMP", ""), temp("TEMP", "");
        EXPECT_EQ(2u, GetTempPathA(sizeof(buffer), buffer));
        EXPECT_STREQ("./", buffer);
    }
}

TEST(kxWin32Misc, PathMatchSpecIsFnmatchWithoutEscapes) {
    EXPECT_TRUE(PathMatchSpec("dir/sub/a.log", "*.log"));  // wildcards cross '/'
    EXPECT_TRUE(PathMatchSpec(".hidden", "*"));            // and match a leading '.'
    EXPECT_FALSE(PathMatchSpec("Default.LOG", "*.log"));  // case matters
    // A backslash is an ordinary character.
    EXPECT_TRUE(PathMatchSpec("a\\xyz", "a\\*"));
    EXPECT_FALSE(PathMatchSpec("a*", "a\\*"));
    EXPECT_FALSE(PathMatchSpec(nullptr, "*"));
    EXPECT_FALSE(PathMatchSpec("x", nullptr));
}

}  // namespace
