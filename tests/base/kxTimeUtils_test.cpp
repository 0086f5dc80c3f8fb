// Dates checked against reference values from another calendar and time-zone implementation
// (kxDateReference.inc).
#include "base/kxTimeUtils.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <string>
#include <tuple>

#include "base/KCOleDateTime.h"
#include "kxEnvOverride.h"
#include "platform/kxWin32.h"

namespace {

struct CalendarRow {
    int year, month, day, hour, minute, second, weekday, yearDay;
    long days;  // whole days since 1899-12-30, negative before it
};
struct RoundingRow {
    long days;
    double seconds;  // into the day
    int year, month, day, hour, minute, second;
};
struct ZoneRow {
    const char* zone;
    long long unixTime;
    int year, month, day, hour, minute, second, weekday, dst;
};

#include "kxDateReference.inc"

// The day-count form: the time of day is added to the whole days, or subtracted before
// 1899-12-30.
double DayCount(long days, double seconds) {
    return days >= 0 ? days + seconds / 86400 : days - seconds / 86400;
}
double DayCount(const CalendarRow& r) {
    return DayCount(r.days, r.hour * 3600 + r.minute * 60 + r.second);
}

using Fields = std::tuple<int, int, int, int, int, int>;

Fields FieldsOf(const tm& f) {
    return Fields(f.tm_year, f.tm_mon, f.tm_mday, f.tm_hour, f.tm_min, f.tm_sec);
}
Fields FieldsOf(const KCOleDateTime& d) {
    return Fields(d.GetYear(), d.GetMonth(), d.GetDay(), d.GetHour(), d.GetMinute(), d.GetSecond());
}
template <typename Row>
Fields FieldsOf(const Row& r) {
    return Fields(r.year, r.month, r.day, r.hour, r.minute, r.second);
}

std::string Describe(const CalendarRow& r) {
    char text[64];
    snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", r.year, r.month, r.day, r.hour,
             r.minute, r.second);
    return text;
}

using kxtest::ZoneOverride;

TEST(DateReference, CalendarFieldsAndDayCountsAgree) {
    for (const CalendarRow& r : kCalendarRows) {
        SCOPED_TRACE(Describe(r));
        _SYSTEMTIME in = {static_cast<uint16_t>(r.year), static_cast<uint16_t>(r.month), 6,
                          static_cast<uint16_t>(r.day), static_cast<uint16_t>(r.hour),
                          static_cast<uint16_t>(r.minute), static_cast<uint16_t>(r.second), 999};
        KCOleDateTime d;
        d = in;
        ASSERT_EQ(d.GetStatus(), KCOleDateTime::valid);
        // Within 4 ulps: the 32-bit target computes in extended precision and rounds twice.
        EXPECT_DOUBLE_EQ(d.GetDate(), DayCount(r));

        tm f;
        ASSERT_TRUE(kxTimeUtils::_AfxTmFromOleDate(DayCount(r), f));
        EXPECT_EQ(FieldsOf(f), FieldsOf(r));
        EXPECT_EQ(f.tm_wday, r.weekday);
        EXPECT_EQ(f.tm_yday, r.yearDay);

        _SYSTEMTIME out;
        ASSERT_TRUE(KCOleDateTime(DayCount(r)).GetAsSystemTime(out));
        EXPECT_EQ(Fields(out.wYear, out.wMonth, out.wDay, out.wHour, out.wMinute, out.wSecond),
                  FieldsOf(r));
        EXPECT_EQ(out.wDayOfWeek, r.weekday - 1);
        EXPECT_EQ(out.wMilliseconds, 0);
    }
}

// Includes times just before midnight on days before 1899-12-30, which round into the next day.
TEST(DateReference, RoundsToTheNearestSecond) {
    for (const RoundingRow& r : kRoundingRows) {
        const double date = DayCount(r.days, r.seconds);
        SCOPED_TRACE(testing::Message() << date);
        tm f;
        ASSERT_TRUE(kxTimeUtils::_AfxTmFromOleDate(date, f));
        EXPECT_EQ(FieldsOf(f), FieldsOf(r));
    }
}

_FILETIME FileTimeOf(long long unixTime) {
    const uint64_t ticks =
        static_cast<uint64_t>(unixTime) * kxFileTimeTicksPerSecond + kxFileTimeUnixEpoch;
    return _FILETIME{static_cast<uint32_t>(ticks), static_cast<uint32_t>(ticks >> 32)};
}

// time_t -> date (local time) -> _SYSTEMTIME -> _FILETIME, and _FILETIME -> date, at instants
// around the daylight-saving changes of each zone. The way back reads the local time as standard
// time, so in summer it lands one hour late: the compatibility layer's documented rule.
TEST(DateReference, UnixAndFileTimesRoundTripInEachZone) {
    for (const ZoneRow& r : kZoneRows) {
        ZoneOverride zone(r.zone);
        SCOPED_TRACE(testing::Message() << r.zone << " " << r.unixTime);

        KCOleDateTime fromUnix;
        fromUnix = static_cast<long>(r.unixTime);
        ASSERT_EQ(fromUnix.GetStatus(), KCOleDateTime::valid);
        EXPECT_EQ(FieldsOf(fromUnix), FieldsOf(r));
        EXPECT_EQ(fromUnix.GetDayOfWeek(), r.weekday + 1);

        const _FILETIME ft = FileTimeOf(r.unixTime);
        KCOleDateTime assigned;
        assigned = ft;
        EXPECT_EQ(KCOleDateTime(ft, false).GetDate(), fromUnix.GetDate());
        EXPECT_EQ(KCOleDateTime(ft, true).GetDate(), fromUnix.GetDate());
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
        const uint64_t ticks = (static_cast<uint64_t>(back.dwHighDateTime) << 32) | back.dwLowDateTime;
        EXPECT_EQ(static_cast<long long>((ticks - kxFileTimeUnixEpoch) / kxFileTimeTicksPerSecond),
                  r.unixTime + 3600LL * r.dst);
    }
}

TEST(DateReference, UnrepresentableTimesAreInvalid) {
    ZoneOverride zone("UTC");
#if LONG_MAX > 2147483647L
    KCOleDateTime d(2.5);
    d = 253402300800L;  // 10000-01-01
    EXPECT_EQ(d.GetStatus(), KCOleDateTime::invalid);
    EXPECT_EQ(d.GetDate(), 2.5);  // only the status changes
    d = LONG_MAX;                 // localtime cannot break it down
    EXPECT_EQ(d.GetStatus(), KCOleDateTime::invalid);
    d = -2208902400L;  // 1900-01-02: before the Unix epoch is fine
    EXPECT_EQ(d.GetDate(), 3.0);
#endif

    // Year 29228, or beyond time_t on the 32-bit target.
    const _FILETIME farFuture = {0xFFFFFFFFu, 0x7FFFFFFFu};
    EXPECT_EQ(KCOleDateTime(farFuture, false).GetStatus(), KCOleDateTime::invalid);
    EXPECT_EQ(KCOleDateTime(farFuture, true).GetStatus(), KCOleDateTime::invalid);
}

TEST(DayCount, RejectsImpossibleFields) {
    const int impossible[][6] = {{2023, 2, 29, 0, 0, 0}, {1900, 2, 29, 0, 0, 0},
                                 {2024, 4, 31, 0, 0, 0}, {2024, 0, 1, 0, 0, 0},
                                 {2024, 13, 1, 0, 0, 0}, {2024, 1, 0, 0, 0, 0},
                                 {2024, 1, 1, 24, 0, 0}, {2024, 1, 1, 0, 60, 0},
                                 {2024, 1, 1, 0, 0, 60}, {10000, 1, 1, 0, 0, 0}};
    for (const int* f : impossible) {
        double d = 7.0;
        EXPECT_FALSE(kxTimeUtils::_AfxOleDateFromTm(f[0], f[1], f[2], f[3], f[4], f[5], d));
        EXPECT_EQ(d, 7.0) << f[0] << "-" << f[1] << "-" << f[2];
    }

    tm f;
    EXPECT_FALSE(kxTimeUtils::_AfxTmFromOleDate(kxTimeUtils::kxMaxDate + 1e-6, f));
    EXPECT_FALSE(kxTimeUtils::_AfxTmFromOleDate(kxTimeUtils::kxMinDate - 0.5, f));
    EXPECT_FALSE(kxTimeUtils::_AfxTmFromOleDate(std::strtod("nan", nullptr), f));
}

}  // namespace
