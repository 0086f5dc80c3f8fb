#include "base/KCOleDateTime.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <string>
#include <tuple>

#include "base/kxTimeUtils.h"
#include "platform/kxWin32.h"

namespace {

struct CalendarRow {
    int year, month, day, hour, minute, second, weekday, yearDay;
    double date;
    double continuous;
};
struct RoundingRow {
    double date;
    int year, month, day, hour, minute, second;
};
struct ZoneRow {
    const char* zone;
    long long unixTime;
    int year, month, day, hour, minute, second, weekday, dst;
};

#include "kxDateReference.inc"

// Sets TZ for the lifetime of the object and restores the previous setting.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* zone) {
        const char* old = std::getenv("TZ");
        m_hadOld = old != nullptr;
        if (m_hadOld)
            m_old = old;
        setenv("TZ", zone, 1);
        tzset();
    }
    ~ScopedTimeZone() {
        if (m_hadOld)
            setenv("TZ", m_old.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    ScopedTimeZone(const ScopedTimeZone&) = delete;
    ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

private:
    bool m_hadOld = false;
    std::string m_old;
};

_FILETIME FileTimeOf(long long unixTime) {
    const uint64_t ticks = static_cast<uint64_t>(unixTime) * kxFileTimeTicksPerSecond +
                           kxFileTimeUnixEpoch;
    return _FILETIME{static_cast<uint32_t>(ticks), static_cast<uint32_t>(ticks >> 32)};
}

long long UnixTimeOf(const _FILETIME& ft) {
    const uint64_t ticks = (static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
    return static_cast<long long>((ticks - kxFileTimeUnixEpoch) / kxFileTimeTicksPerSecond);
}

std::tuple<int, int, int, int, int, int> FieldsOf(const KCOleDateTime& d) {
    return std::make_tuple(d.GetYear(), d.GetMonth(), d.GetDay(), d.GetHour(), d.GetMinute(),
                           d.GetSecond());
}

TEST(KCOleDateTime, SystemTimeRoundTripsThroughTheReferenceCalendar) {
    for (const CalendarRow& r : kCalendarRows) {
        SCOPED_TRACE(testing::Message() << r.year << "-" << r.month << "-" << r.day << " "
                                        << r.hour << ":" << r.minute << ":" << r.second);
        _SYSTEMTIME in = {static_cast<uint16_t>(r.year), static_cast<uint16_t>(r.month), 6,
                          static_cast<uint16_t>(r.day), static_cast<uint16_t>(r.hour),
                          static_cast<uint16_t>(r.minute), static_cast<uint16_t>(r.second), 999};
        KCOleDateTime d;
        d = in;
        ASSERT_EQ(d.GetStatus(), KCOleDateTime::valid);
        EXPECT_DOUBLE_EQ(d.GetDate(), r.date);
        EXPECT_EQ(FieldsOf(d), std::make_tuple(r.year, r.month, r.day, r.hour, r.minute, r.second));
        EXPECT_EQ(d.GetDayOfWeek(), r.weekday);
        EXPECT_EQ(d.GetDayOfYear(), r.yearDay);

        _SYSTEMTIME out;
        ASSERT_TRUE(d.GetAsSystemTime(out));
        EXPECT_EQ(std::make_tuple(out.wYear, out.wMonth, out.wDay, out.wHour, out.wMinute,
                                  out.wSecond, out.wDayOfWeek, out.wMilliseconds),
                  std::make_tuple(in.wYear, in.wMonth, in.wDay, in.wHour, in.wMinute, in.wSecond,
                                  r.weekday - 1, 0));
    }
}

// time_t -> date (local time) -> _SYSTEMTIME -> _FILETIME, and _FILETIME -> date, for instants
// around the daylight-saving changes of each zone. The way back reads the local time as standard
// time, so in summer it lands one hour late: that is the compatibility layer's documented rule.
TEST(KCOleDateTime, UnixAndFileTimesRoundTripInEachZone) {
    for (const ZoneRow& r : kZoneRows) {
        if (sizeof(time_t) < 8 && r.unixTime > LONG_MAX)
            continue;
        ScopedTimeZone zone(r.zone);
        SCOPED_TRACE(testing::Message() << r.zone << " " << r.unixTime);
        const auto expected = std::make_tuple(r.year, r.month, r.day, r.hour, r.minute, r.second);

        KCOleDateTime fromUnix;
        fromUnix = static_cast<long>(r.unixTime);
        ASSERT_EQ(fromUnix.GetStatus(), KCOleDateTime::valid);
        EXPECT_EQ(FieldsOf(fromUnix), expected);
        EXPECT_EQ(fromUnix.GetDayOfWeek(), r.weekday + 1);

        const _FILETIME ft = FileTimeOf(r.unixTime);
        const KCOleDateTime split(ft, false), local(ft, true);
        KCOleDateTime assigned;
        assigned = ft;
        EXPECT_EQ(FieldsOf(split), expected);
        EXPECT_EQ(split.GetDate(), fromUnix.GetDate());
        EXPECT_EQ(local.GetDate(), fromUnix.GetDate());
        EXPECT_EQ(assigned.GetDate(), fromUnix.GetDate());

        _SYSTEMTIME st;
        ASSERT_TRUE(fromUnix.GetAsSystemTime(st));
        EXPECT_EQ(st.wDayOfWeek, r.weekday);
        _FILETIME back;
        if (r.year < 1970) {
            EXPECT_FALSE(SystemTimeToFileTime(&st, &back));
            continue;
        }
        ASSERT_TRUE(SystemTimeToFileTime(&st, &back));
        EXPECT_EQ(UnixTimeOf(back), r.unixTime + 3600LL * r.dst);
    }
}

TEST(KCOleDateTime, UnrepresentableTimesAreInvalid) {
    ScopedTimeZone zone("UTC");
    KCOleDateTime d(2.5);
    if (sizeof(long) == 8) {
        d = static_cast<long>(253402300800LL);  // 10000-01-01: beyond the last valid year
        EXPECT_EQ(d.GetStatus(), KCOleDateTime::invalid);
        EXPECT_EQ(d.GetDate(), 2.5);  // only the status changes
        d = 2.5;
        d = LONG_MAX;  // localtime cannot break it down
        EXPECT_EQ(d.GetStatus(), KCOleDateTime::invalid);
    }
    // Before the Unix epoch is fine as long as the C library can break it down.
#if LONG_MAX > 2147483647L
    d = -2208902400L;  // 1900-01-02
    EXPECT_EQ(d.GetStatus(), KCOleDateTime::valid);
    EXPECT_EQ(d.GetDate(), 3.0);
#endif
    d = -86400L;
    EXPECT_EQ(d.GetStatus(), KCOleDateTime::valid);
    EXPECT_EQ(d.GetDate(), 25568.0);  // 1969-12-31

    // Year 29228, or beyond time_t on the 32-bit target.
    const _FILETIME farFuture = {0xFFFFFFFFu, 0x7FFFFFFFu};
    EXPECT_EQ(KCOleDateTime(farFuture, false).GetStatus(), KCOleDateTime::invalid);
    EXPECT_EQ(KCOleDateTime(farFuture, true).GetStatus(), KCOleDateTime::invalid);
}

TEST(KCOleDateTime, CurrentTimeIsLocalWallClock) {
    ScopedTimeZone zone("America/New_York");
    const time_t before = time(nullptr);
    const KCOleDateTime now = KCOleDateTime::GetTickCount();
    const time_t after = time(nullptr);
    ASSERT_EQ(now.GetStatus(), KCOleDateTime::valid);
    KCOleDateTime low, high;
    low = static_cast<long>(before);
    high = static_cast<long>(after);
    EXPECT_TRUE(low <= now && now <= high);
}

TEST(KCOleDateTime, SetDateTimeValidatesTheCalendar) {
    KCOleDateTime d;
    EXPECT_EQ(d.SetDateTime(2023, 2, 29, 0, 0, 0), KCOleDateTime::invalid);
    EXPECT_EQ(d.SetDateTime(2024, 2, 29, 0, 0, 0), KCOleDateTime::valid);
    EXPECT_EQ(d.GetDay(), 29);
    EXPECT_EQ(d.SetDateTime(99, 12, 31, 0, 0, 0), KCOleDateTime::invalid);  // before 0100
    EXPECT_EQ(d.SetDateTime(100, 1, 1, 0, 0, 0), KCOleDateTime::valid);
    // The last valid value is 9999-12-31 00:00; later that day is out of range.
    EXPECT_EQ(d.SetDateTime(9999, 12, 31, 0, 0, 0), KCOleDateTime::valid);
    EXPECT_EQ(d.SetDateTime(9999, 12, 31, 0, 0, 1), KCOleDateTime::invalid);
    EXPECT_EQ(d.SetDateTime(2024, 6, 1, 24, 0, 0), KCOleDateTime::invalid);

    const _SYSTEMTIME bad = {2024, 13, 0, 1, 0, 0, 0, 0};
    d = bad;
    EXPECT_EQ(d.GetStatus(), KCOleDateTime::invalid);
    _SYSTEMTIME out;
    EXPECT_FALSE(d.GetAsSystemTime(out));
    EXPECT_EQ(d.GetYear(), -1);
    EXPECT_EQ(d.GetDayOfWeek(), -1);
}

TEST(KCOleDateTime, KnownDates) {
    EXPECT_EQ(KCOleDateTime(1899, 12, 30, 0, 0, 0).GetDate(), 0.0);
    EXPECT_EQ(KCOleDateTime(1900, 1, 1, 12, 0, 0).GetDate(), 2.5);
    EXPECT_EQ(KCOleDateTime(1899, 12, 29, 6, 0, 0).GetDate(), -1.25);
    EXPECT_EQ(KCOleDateTime(0.0).GetDayOfWeek(), 7);  // a Saturday

    // Out of range values: getters say -1, although the status is valid until CheckRange.
    KCOleDateTime late(2958466.0);
    EXPECT_EQ(late.GetStatus(), KCOleDateTime::valid);
    EXPECT_EQ(late.GetYear(), -1);
    late.CheckRange();
    EXPECT_EQ(late.GetStatus(), KCOleDateTime::invalid);
}

TEST(KCOleDateTime, ArithmeticRunsOnTheContinuousTimeLine) {
    const KCOleDateTime zero(0.0);
    const KCOleDateTime earlier = zero + KCOleDateTimeSpan(-0.5);
    EXPECT_EQ(earlier.GetDate(), -1.5);  // 1899-12-29 12:00, not -0.5
    EXPECT_EQ(earlier.GetDay(), 29);
    EXPECT_EQ(earlier.GetHour(), 12);
    EXPECT_EQ((zero - KCOleDateTimeSpan(0.5)).GetDate(), -1.5);
    EXPECT_EQ((KCOleDateTime(-1.25) + KCOleDateTimeSpan(1.0)).GetDate(), 0.25);
    EXPECT_EQ((KCOleDateTime(-1.25) - KCOleDateTimeSpan(1.0)).GetDate(), -2.25);
    EXPECT_EQ((KCOleDateTime(-1.25) - zero).GetTotalDays(), -0.75);
    EXPECT_EQ((KCOleDateTime(2.5) - KCOleDateTime(-1.25)).GetTotalDays(), 3.25);

    // Whole years across 1899-12-30: the span equals the reference day difference.
    const KCOleDateTime a(1850, 3, 1, 6, 0, 0), b(1950, 3, 1, 18, 0, 0);
    EXPECT_DOUBLE_EQ((b - a).GetTotalDays(), 36524.5);
    EXPECT_DOUBLE_EQ((a + (b - a)).GetDate(), b.GetDate());

    // Stored -1.25 is later than stored -1.5 on the calendar.
    EXPECT_TRUE(KCOleDateTime(-1.25) < KCOleDateTime(-1.5));
    EXPECT_TRUE(KCOleDateTime(-1.5) > KCOleDateTime(-1.25));
    EXPECT_TRUE(KCOleDateTime(-1.0) < KCOleDateTime(-1.25));
}

TEST(KCOleDateTime, StatusPropagatesThroughArithmetic) {
    KCOleDateTime nul, bad;
    nul.SetStatus(KCOleDateTime::null);
    bad.SetStatus(KCOleDateTime::invalid);
    KCOleDateTimeSpan nulSpan, badSpan;
    nulSpan.SetStatus(KCOleDateTimeSpan::null);
    badSpan.SetStatus(KCOleDateTimeSpan::invalid);
    const KCOleDateTime ok(100.0);

    EXPECT_EQ((ok + nulSpan).GetStatus(), KCOleDateTime::null);
    EXPECT_EQ((bad + nulSpan).GetStatus(), KCOleDateTime::null);
    EXPECT_EQ((nul - badSpan).GetStatus(), KCOleDateTime::null);
    EXPECT_EQ((ok + badSpan).GetStatus(), KCOleDateTime::invalid);
    EXPECT_EQ((bad - KCOleDateTimeSpan(1.0)).GetStatus(), KCOleDateTime::invalid);
    EXPECT_EQ((ok - nul).GetStatus(), KCOleDateTimeSpan::null);
    EXPECT_EQ((bad - nul).GetStatus(), KCOleDateTimeSpan::null);
    EXPECT_EQ((ok - bad).GetStatus(), KCOleDateTimeSpan::invalid);

    const KCOleDateTime last(9999, 12, 31, 0, 0, 0);
    EXPECT_EQ((last + KCOleDateTimeSpan(0.75)).GetStatus(), KCOleDateTime::invalid);
    EXPECT_EQ((last - KCOleDateTime(100, 1, 1, 0, 0, 0)).GetStatus(), KCOleDateTimeSpan::valid);
    EXPECT_EQ((KCOleDateTime(100, 1, 1, 0, 0, 0) - KCOleDateTimeSpan(0.25)).GetStatus(),
              KCOleDateTime::invalid);
}

TEST(KCOleDateTime, FormatWritesTheCalendarFields) {
    const KCOleDateTime d(1900, 1, 1, 12, 0, 5);
    EXPECT_STREQ(d.Format("%Y-%m-%d %H:%M:%S").c_str(), "1900-01-01 12:00:05");
    // Weekday and day of year go through the struct tm conventions (0 = Sunday, 0-based).
    EXPECT_STREQ(d.Format("%a %w %j %b").c_str(), "Mon 1 001 Jan");
    EXPECT_STREQ(KCOleDateTime(-1.25).Format("%d %H:%M %A").c_str(), "29 06:00 Friday");
    EXPECT_STREQ(KCOleDateTime(2024, 12, 31, 23, 59, 59).Format("%j %a").c_str(), "366 Tue");

    EXPECT_STREQ(KCOleDateTime(2958466.0).Format("%Y").c_str(), "Invalid DateTime");
    KCOleDateTime nul;
    nul.SetStatus(KCOleDateTime::null);
    EXPECT_STREQ(nul.Format("%Y").c_str(), "");
    EXPECT_STREQ(d.Format(nullptr).c_str(), "");
    EXPECT_STREQ(d.Format("").c_str(), "");

    // Long output is cut to 127 characters.
    const std::string longFormat(300, 'x');
    EXPECT_EQ(std::string(d.Format(longFormat.c_str()).c_str()), std::string(127, 'x'));
    EXPECT_STREQ(KCOleDateTime::GetInvalidDateTimeString(), "Invalid DateTime");
}

}  // namespace
