#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

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

    EXPECT_EQ(nullptr, VirtualAlloc(nullptr, 4096, MEM_COMMIT, PAGE_READONLY));
}

// Identifiers of one host differ only by their time, so two taken in a row must differ.
TEST(kxWin32Misc, GuidsTakenInARowDifferAndCarryTheirVersion) {
    _GUID a, b;
    EXPECT_EQ(0, CoCreateGuid(&a));
    Sleep(2);
    EXPECT_EQ(0, CoCreateGuid(&b));
    EXPECT_NE(0, memcmp(&a, &b, sizeof(_GUID)));
    EXPECT_EQ(0x1000, a.Data3 & 0xF000);
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
        EXPECT_EQ(0u, GetTempPathA(0, nullptr));
    }
    {
        EnvOverride tmp("TMP", "/tmp/"), temp("TEMP", "/var/tmp");
        EXPECT_EQ(5u, GetTempPathA(7, buffer));
        EXPECT_STREQ("/tmp/", buffer);
    }
    // Unset or empty, neither turns into the root directory.
    for (const char* value : {static_cast<const char*>(nullptr), ""}) {
        EnvOverride tmp("TMP", value), temp("TEMP", value);
        EXPECT_EQ(2u, GetTempPathA(sizeof(buffer), buffer));
        EXPECT_STREQ("./", buffer);
    }
}

}  // namespace
