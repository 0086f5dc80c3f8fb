#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <vector>

#include "base/kxWin32Time.h"
#include "kxEnvOverride.h"

namespace {

uint64_t Value(const _FILETIME& ft) {
    return (uint64_t{ft.dwHighDateTime} << 32) | ft.dwLowDateTime;
}
_FILETIME Make(uint64_t v) { return {static_cast<uint32_t>(v), static_cast<uint32_t>(v >> 32)}; }

_SYSTEMTIME Date(int y, int mo, int d, int h, int mi, int s) {
    auto w = [](int v) { return static_cast<uint16_t>(v); };
    return {w(y), w(mo), 0, w(d), w(h), w(mi), w(s), 0};
}

using kxtest::ZoneOverride;
constexpr uint64_t kTicks = 10000000ULL;

// Conversions in each zone, and the summer hour of standard time, are checked against the date
// reference table; here only the refusals.
TEST(kxWin32Time, SystemTimeToFileTimeRefusesTimesBeforeTheEpoch) {
    // East of UTC, local midnight of 1970-01-01 lies before the epoch.
    ZoneOverride east("CET-1");
    _SYSTEMTIME st = Date(1970, 1, 1, 0, 0, 0);
    _FILETIME ft;
    EXPECT_FALSE(SystemTimeToFileTime(&st, &ft));
    st = Date(1970, 1, 1, 1, 0, 0);
    ASSERT_TRUE(SystemTimeToFileTime(&st, &ft));
    EXPECT_EQ(116444736000000000ULL, Value(ft));
    EXPECT_FALSE(SystemTimeToFileTime(nullptr, &ft));
    EXPECT_FALSE(SystemTimeToFileTime(&st, nullptr));
}

TEST(kxWin32Time, FileTimeToSystemTimeBreaksDownLocally) {
    ZoneOverride ny("EST5EDT,M3.2.0,M11.1.0");
    // 2021-01-15 17:30:45.678 UTC = 12:30:45.678 EST, a Friday.
    const uint64_t value = (1610731845ULL * kTicks) + 6789999 + 116444736000000000ULL;
    _FILETIME ft = Make(value);
    _SYSTEMTIME st;
    ASSERT_TRUE(FileTimeToSystemTime(&ft, &st));
    auto fields = [](const _SYSTEMTIME& t) {
        return std::vector<int>{t.wYear, t.wMonth, t.wDay, t.wDayOfWeek, t.wHour, t.wMinute,
                                t.wSecond, t.wMilliseconds};
    };
    EXPECT_EQ((std::vector<int>{2021, 1, 15, 5, 12, 30, 45, 678}), fields(st));

    // Before 1970 the breakdown does not wrap round into the future.
    ft = Make(116444736000000000ULL - kTicks / 2);  // 1969-12-31 23:59:59.5 UTC
    ASSERT_TRUE(FileTimeToSystemTime(&ft, &st));
    EXPECT_EQ((std::vector<int>{1969, 12, 31, 3, 18, 59, 59, 500}), fields(st));

    EXPECT_FALSE(FileTimeToSystemTime(nullptr, &st));
    EXPECT_FALSE(FileTimeToSystemTime(&ft, nullptr));
}

TEST(kxWin32Time, CurrentTimesAgree) {
    ZoneOverride utc("UTC0");
    _FILETIME ft;
    _SYSTEMTIME system, local;
    GetSystemTimeAsFileTime(&ft);
    GetSystemTime(&system);
    GetLocalTime(&local);
    const uint64_t seconds = (Value(ft) - 116444736000000000ULL) / kTicks;
    EXPECT_LE(static_cast<uint64_t>(time(nullptr)) - seconds, 2u);
    // In UTC the local time is the system time.
    EXPECT_EQ(system.wYear, local.wYear);
    EXPECT_EQ(system.wHour, local.wHour);
    GetSystemTime(nullptr);  // no effect, no crash
    GetLocalTime(nullptr);
    GetSystemTimeAsFileTime(nullptr);
}

// Whole seconds of clock ticks, times 1000 (cut to 32 bits, so a long uptime wraps it).
TEST(kxWin32Time, TickCountAdvancesInWholeSeconds) {
    const DWORD first = GetTickCount();
    Sleep(1100);
    const DWORD second = GetTickCount();
    EXPECT_EQ(0u, (second - first) % 1000);
    EXPECT_GE(second - first, 1000u);
    EXPECT_LE(second - first, 3000u);
}

void OnAlarm(int) {}

TEST(kxWin32Time, SleepLastsTheWholeTimeThroughSignals) {
    struct sigaction sa {};
    sa.sa_handler = OnAlarm;  // no SA_RESTART: nanosleep returns EINTR
    struct sigaction old;
    ASSERT_EQ(0, sigaction(SIGALRM, &sa, &old));
    struct itimerval every5ms {{0, 5000}, {0, 5000}};
    struct itimerval off {};
    setitimer(ITIMER_REAL, &every5ms, nullptr);
    const auto start = std::chrono::steady_clock::now();
    Sleep(250);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &old, nullptr);
    EXPECT_GE(ms, 250);
    EXPECT_LT(ms, 1000);
}

}  // namespace
