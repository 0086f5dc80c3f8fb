// Day-count arithmetic checked against reference values from another calendar implementation
// (kxDateReference.inc, written by make_date_reference.py).
#include "base/kxTimeUtils.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "base/KCOleDateTime.h"

namespace {

struct CalendarRow {
    int year, month, day, hour, minute, second, weekday, yearDay;
    double date;        // day-count form
    double continuous;  // days since 1899-12-30 on a continuous line
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

constexpr double kTolerance = 1e-8;  // days: under a millisecond

std::string Describe(const CalendarRow& r) {
    char text[64];
    snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d (%a)", r.year, r.month, r.day,
             r.hour, r.minute, r.second, r.date);
    return text;
}

TEST(DayCount, CalendarFieldsGiveTheReferenceDayCount) {
    for (const CalendarRow& r : kCalendarRows) {
        SCOPED_TRACE(Describe(r));
        double date = 12345.0;
        ASSERT_TRUE(kxTimeUtils::_AfxOleDateFromTm(
            static_cast<uint16_t>(r.year), static_cast<uint16_t>(r.month),
            static_cast<uint16_t>(r.day), static_cast<uint16_t>(r.hour),
            static_cast<uint16_t>(r.minute), static_cast<uint16_t>(r.second), date));
        // Within 4 ulps: the 32-bit target computes in extended precision and rounds twice.
        EXPECT_DOUBLE_EQ(date, r.date);
    }
}

TEST(DayCount, ReferenceDayCountBreaksDownToItsFields) {
    for (const CalendarRow& r : kCalendarRows) {
        SCOPED_TRACE(Describe(r));
        tm f;
        ASSERT_TRUE(kxTimeUtils::_AfxTmFromOleDate(r.date, f));
        EXPECT_EQ(std::make_tuple(f.tm_year, f.tm_mon, f.tm_mday, f.tm_hour, f.tm_min, f.tm_sec),
                  std::make_tuple(r.year, r.month, r.day, r.hour, r.minute, r.second));
        EXPECT_EQ(f.tm_wday, r.weekday);
        EXPECT_EQ(f.tm_yday, r.yearDay);

        _SYSTEMTIME st;
        ASSERT_TRUE(kxTimeUtils::_AfxSystemTimeFromOleDate(r.date, st));
        EXPECT_EQ(st.wDayOfWeek, r.weekday - 1);
        EXPECT_EQ(st.wMilliseconds, 0);
        EXPECT_EQ(std::make_tuple(st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond),
                  std::make_tuple(r.year, r.month, r.day, r.hour, r.minute, r.second));
    }
}

TEST(DayCount, MapsToAndFromTheContinuousTimeLine) {
    for (const CalendarRow& r : kCalendarRows) {
        SCOPED_TRACE(Describe(r));
        // The mapping cancels digits near day boundaries: compare to well under a second.
        EXPECT_NEAR(kxTimeUtils::_AfxDoubleFromDate(r.date), r.continuous, kTolerance);
        EXPECT_NEAR(kxTimeUtils::_AfxDateFromDouble(r.continuous), r.date, kTolerance);
    }
    // Stored values are not ordered around 0; their continuous forms are.
    std::vector<CalendarRow> rows(std::begin(kCalendarRows), std::end(kCalendarRows));
    std::sort(rows.begin(), rows.end(), [](const CalendarRow& a, const CalendarRow& b) {
        return std::tie(a.year, a.month, a.day, a.hour, a.minute, a.second) <
               std::tie(b.year, b.month, b.day, b.hour, b.minute, b.second);
    });
    for (size_t i = 1; i < rows.size(); ++i) {
        const KCOleDateTime earlier(rows[i - 1].date), later(rows[i].date);
        if (rows[i - 1].continuous == rows[i].continuous)
            continue;
        EXPECT_TRUE(earlier < later && later > earlier && earlier <= later && !(earlier >= later))
            << Describe(rows[i - 1]) << " vs " << Describe(rows[i]);
    }
}

TEST(DayCount, RoundsToTheNearestSecond) {
    for (const RoundingRow& r : kRoundingRows) {
        SCOPED_TRACE(testing::Message() << r.date);
        tm f;
        ASSERT_TRUE(kxTimeUtils::_AfxTmFromOleDate(r.date, f));
        EXPECT_EQ(std::make_tuple(f.tm_year, f.tm_mon, f.tm_mday, f.tm_hour, f.tm_min, f.tm_sec),
                  std::make_tuple(r.year, r.month, r.day, r.hour, r.minute, r.second));
    }
}

TEST(DayCount, KnownValues) {
    double d = -1;
    ASSERT_TRUE(kxTimeUtils::_AfxOleDateFromTm(1899, 12, 30, 0, 0, 0, d));
    EXPECT_EQ(d, 0.0);
    ASSERT_TRUE(kxTimeUtils::_AfxOleDateFromTm(1900, 1, 1, 12, 0, 0, d));
    EXPECT_EQ(d, 2.5);
    ASSERT_TRUE(kxTimeUtils::_AfxOleDateFromTm(1899, 12, 29, 6, 0, 0, d));
    EXPECT_EQ(d, -1.25);
    EXPECT_EQ(kxTimeUtils::_AfxDateFromDouble(-0.5), -1.5);
    EXPECT_EQ(kxTimeUtils::_AfxDoubleFromDate(-1.5), -0.5);
}

TEST(DayCount, RejectsImpossibleFields) {
    double d = 7.0;
    EXPECT_FALSE(kxTimeUtils::_AfxOleDateFromTm(2023, 2, 29, 0, 0, 0, d));
    EXPECT_FALSE(kxTimeUtils::_AfxOleDateFromTm(1900, 2, 29, 0, 0, 0, d));
    EXPECT_FALSE(kxTimeUtils::_AfxOleDateFromTm(2024, 4, 31, 0, 0, 0, d));
    EXPECT_FALSE(kxTimeUtils::_AfxOleDateFromTm(2024, 0, 1, 0, 0, 0, d));
    EXPECT_FALSE(kxTimeUtils::_AfxOleDateFromTm(2024, 13, 1, 0, 0, 0, d));
    EXPECT_FALSE(kxTimeUtils::_AfxOleDateFromTm(2024, 1, 0, 0, 0, 0, d));
    EXPECT_FALSE(kxTimeUtils::_AfxOleDateFromTm(2024, 1, 1, 24, 0, 0, d));
    EXPECT_FALSE(kxTimeUtils::_AfxOleDateFromTm(2024, 1, 1, 0, 60, 0, d));
    EXPECT_FALSE(kxTimeUtils::_AfxOleDateFromTm(2024, 1, 1, 0, 0, 60, d));
    EXPECT_FALSE(kxTimeUtils::_AfxOleDateFromTm(10000, 1, 1, 0, 0, 0, d));
    EXPECT_EQ(d, 7.0);
    EXPECT_TRUE(kxTimeUtils::_AfxOleDateFromTm(2000, 2, 29, 23, 59, 59, d));

    tm f;
    EXPECT_FALSE(kxTimeUtils::_AfxTmFromOleDate(kxTimeUtils::kxMaxDate + 1, f));
    EXPECT_FALSE(kxTimeUtils::_AfxTmFromOleDate(kxTimeUtils::kxMinDate - 0.5, f));
    EXPECT_FALSE(kxTimeUtils::_AfxTmFromOleDate(std::nan(""), f));
    _SYSTEMTIME st;
    EXPECT_FALSE(kxTimeUtils::_AfxSystemTimeFromOleDate(kxTimeUtils::kxMaxDate + 1, st));
}

}  // namespace
