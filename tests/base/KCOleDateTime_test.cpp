#include "base/KCOleDateTime.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Day counts and weekdays of single dates are checked against the reference table.
TEST(KCOleDateTime, RangeOfFieldsAndNumbers) {
    KCOleDateTime d;
    EXPECT_EQ(d.SetDateTime(2023, 2, 29, 0, 0, 0), KCOleDateTime::invalid);
    EXPECT_EQ(d.GetYear(), -1);
    EXPECT_EQ(d.SetDateTime(99, 12, 31, 0, 0, 0), KCOleDateTime::invalid);  // before 0100
    // The last valid value is 9999-12-31 00:00; later that day is out of range.
    EXPECT_EQ(d.SetDateTime(9999, 12, 31, 0, 0, 0), KCOleDateTime::valid);
    EXPECT_EQ(d.SetDateTime(9999, 12, 31, 0, 0, 1), KCOleDateTime::invalid);

    // A number is taken without a range check; getters still refuse it.
    KCOleDateTime late(2958466.0);
    EXPECT_EQ(late.GetStatus(), KCOleDateTime::valid);
    EXPECT_EQ(late.GetYear(), -1);
    _SYSTEMTIME st;
    EXPECT_FALSE(late.GetAsSystemTime(st));
    late.CheckRange();
    EXPECT_EQ(late.GetStatus(), KCOleDateTime::invalid);
}

TEST(KCOleDateTime, ArithmeticRunsOnTheContinuousTimeLine) {
    const KCOleDateTime zero(0.0);
    EXPECT_EQ((zero + KCOleDateTimeSpan(-0.5)).GetDate(), -1.5);  // 1899-12-29 12:00
    EXPECT_EQ((zero - KCOleDateTimeSpan(0.5)).GetDate(), -1.5);
    EXPECT_EQ((KCOleDateTime(-1.25) + KCOleDateTimeSpan(1.0)).GetDate(), 0.25);
    EXPECT_EQ((KCOleDateTime(-1.25) - zero).GetTotalDays(), -0.75);
    EXPECT_EQ((KCOleDateTime(2.5) - KCOleDateTime(-1.25)).GetTotalDays(), 3.25);
    const KCOleDateTime six(-1.25), noon(-1.5);  // 06:00 and 12:00 on 1899-12-29
    EXPECT_TRUE(six < noon && noon > six && six <= noon && !(six >= noon));

    const KCOleDateTime a(1850, 3, 1, 6, 0, 0), b(1950, 3, 1, 18, 0, 0);
    EXPECT_DOUBLE_EQ((b - a).GetTotalDays(), 36524.5);
    EXPECT_DOUBLE_EQ((a + (b - a)).GetDate(), b.GetDate());
}

TEST(KCOleDateTime, StatusPropagatesThroughArithmetic) {
    KCOleDateTime nul, bad;
    nul.SetStatus(KCOleDateTime::null);
    bad.SetStatus(KCOleDateTime::invalid);
    KCOleDateTimeSpan nulSpan, badSpan;
    nulSpan.SetStatus(KCOleDateTimeSpan::null);
    badSpan.SetStatus(KCOleDateTimeSpan::invalid);
    const KCOleDateTime ok(100.0);

    EXPECT_EQ((bad + nulSpan).GetStatus(), KCOleDateTime::null);  // null wins over invalid
    EXPECT_EQ((ok + badSpan).GetStatus(), KCOleDateTime::invalid);
    EXPECT_EQ((bad - KCOleDateTimeSpan(1.0)).GetStatus(), KCOleDateTime::invalid);
    EXPECT_EQ((bad - nul).GetStatus(), KCOleDateTimeSpan::null);
    EXPECT_EQ((ok - bad).GetStatus(), KCOleDateTimeSpan::invalid);

    const KCOleDateTime first(100, 1, 1, 0, 0, 0), last(9999, 12, 31, 0, 0, 0);
    EXPECT_EQ((last + KCOleDateTimeSpan(0.75)).GetStatus(), KCOleDateTime::invalid);
    EXPECT_EQ((first - KCOleDateTimeSpan(0.25)).GetStatus(), KCOleDateTime::invalid);
    EXPECT_EQ((last - first).GetStatus(), KCOleDateTimeSpan::valid);
}

TEST(KCOleDateTime, FormatWritesTheCalendarFields) {
    const KCOleDateTime d(1900, 1, 1, 12, 0, 5);
    EXPECT_STREQ(d.Format("%Y-%m-%d %H:%M:%S").c_str(), "1900-01-01 12:00:05");
    // Weekday, month and day of year pass through the struct tm conventions.
    EXPECT_STREQ(d.Format("%a %w %j %b").c_str(), "Mon 1 001 Jan");
    EXPECT_STREQ(KCOleDateTime(-1.25).Format("%d %H:%M %A").c_str(), "29 06:00 Friday");

    EXPECT_STREQ(KCOleDateTime(2958466.0).Format("%Y").c_str(), "Invalid DateTime");
    KCOleDateTime nul;
    nul.SetStatus(KCOleDateTime::null);
    EXPECT_STREQ(nul.Format("%Y").c_str(), "");
    EXPECT_STREQ(d.Format(nullptr).c_str(), "");
    EXPECT_EQ(std::string(d.Format(std::string(300, 'x').c_str()).c_str()), std::string(127, 'x'));
}

}  // namespace
