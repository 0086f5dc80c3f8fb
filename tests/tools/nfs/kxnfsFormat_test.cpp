// How kxnfs shows records, times and progress.
#include "kxnfsFormat.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "kxnfsProgress.h"

using namespace kxnfs;

namespace {

constexpr uint64_t kUnixEpoch = 116444736000000000ull;  // 1970-01-01 as a _FILETIME value

TEST(KxnfsFormatTest, TimesKeepTheirTicksOnBothSidesOfTheEpoch) {
    EXPECT_EQ("1970-01-01T00:00:01.0000005Z", UtcTime(kUnixEpoch + 10000005));
    // Half a second before 1970: the seconds round down, the fraction stays positive.
    EXPECT_EQ("1969-12-31T23:59:59.5000000Z", UtcTime(kUnixEpoch - 5000000));
    EXPECT_EQ("2024-02-29T12:00:00.0000000Z", UtcTime(kUnixEpoch + 1709208000ull * 10000000));
    EXPECT_EQ("", UtcTime(0));  // servers send 0 for "unknown"
    EXPECT_EQ("-", LocalTime(0, true));
}

TEST(KxnfsFormatTest, ModesShowSpecialBitsOverTheExecuteBits) {
    EXPECT_EQ("-rwsr-xr-x", ModeString(kxNFSUtils::kDirEntryRegular, 04755));
    EXPECT_EQ("drwxrwxrwt", ModeString(kxNFSUtils::kDirEntryDirectory, 01777));
    EXPECT_EQ("lrw-r-S--T", ModeString(kxNFSUtils::kDirEntrySymlink, 03640));
}

TEST(KxnfsFormatTest, JsonEntriesCarryEveryFieldAndStayValidForLatin1Names) {
    kxNFSUtils::DirEntry e;
    e.type = kxNFSUtils::kDirEntrySymlink;
    e.mode = 0777;
    e.size = 3;
    e.writeTime = kUnixEpoch + 10000000;
    const std::string json = JsonEntry(e, "caf\xe9\"", "t");
    EXPECT_EQ("{\"name\":\"caf\\u00e9\\\"\",\"type\":\"symlink\",\"mode\":\"0777\",\"links\":0,"
              "\"uid\":0,\"gid\":0,\"size\":3,\"used\":0,\"fileId\":0,\"atime\":null,"
              "\"mtime\":\"1970-01-01T00:00:01.0000000Z\",\"ctime\":null,\"target\":\"t\"}",
              json);
}

// A clock the test moves by hand.
double g_now = 0;
double TestClock() { return g_now; }

TEST(KxnfsProgressTest, ShowsALineOnlyAfterASecondAndEndsIt) {
    EXPECT_EQ("12.0 MiB of 256.0 MiB  6.0 MiB/s  4%",
              Progress::Line(12ull << 20, 256ull << 20, 2.0));
    EXPECT_EQ("1.5 KiB  1.5 KiB/s", Progress::Line(1536, 0, 1.0));  // size unknown (a pipe)

    char* text = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    ASSERT_NE(nullptr, out);
    g_now = 100;
    {
        Progress quick(out, 1000, TestClock);
        g_now = 100.9;
        quick.Update(900);
        quick.Finish(1000);  // a transfer under a second leaves no trace
    }
    fflush(out);
    EXPECT_EQ(0u, size);
    g_now = 100;
    {
        Progress slow(out, 1000, TestClock);
        g_now = 101.5;
        slow.Update(500);  // drawn
        g_now = 101.6;
        slow.Update(600);  // too soon to draw again
        g_now = 102.0;
        slow.Update(900);  // drawn
        slow.Finish(1000);
    }
    fclose(out);
    const std::string shown(text, size);
    free(text);
    EXPECT_EQ("\r500 B of 1000 B  333 B/s  50%\033[K\r900 B of 1000 B  450 B/s  90%\033[K"
              "\r1000 B of 1000 B  500 B/s  100%\033[K\n",
              shown);

    Progress silent(nullptr, 10, TestClock);  // not a terminal
    g_now += 10;
    silent.Update(5);
    silent.Finish(10);
}

}  // namespace
